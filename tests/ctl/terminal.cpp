// SPDX-License-Identifier: Apache-2.0
#include "ctl/terminal.h"

#include <QProcess>
#include <QTest>

#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace
{

//! A pseudo-terminal; what is typed is at its one end.
class Terminal
{
public:
    Terminal()
        : master(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC))
    {
        char name[64];
        if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0
            || ptsname_r(master, name, sizeof name) != 0) {
            qFatal("there is no pseudo-terminal");
        }
        path = QString::fromLocal8Bit(name);
        // Held open, or what was printed would go with the last process.
        slave = ::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
    }
    ~Terminal()
    {
        ::close(slave);
        ::close(master);
    }
    Q_DISABLE_COPY_MOVE(Terminal)

    void type(const QByteArray &text) const
    {
        if (::write(master, text.constData(), size_t(text.size())) != text.size()) {
            qFatal("nothing can be typed");
        }
    }
    //! What has been printed, and the echo of what was typed.
    [[nodiscard]] QByteArray read() const
    {
        QByteArray all;
        pollfd waiting{master, POLLIN, 0};
        while (::poll(&waiting, 1, 0) == 1) {
            char piece[4096];
            const ssize_t size = ::read(master, piece, sizeof piece);
            if (size <= 0) {
                break;
            }
            all.append(piece, int(size));
        }
        return all.replace("\r\n", "\n");
    }

    QString path;

private:
    int master;
    int slave = -1;
};

} // namespace

CtlRun runCtlOnTerminal(const QStringList &arguments, const QByteArray &typed)
{
    constexpr int patience = 120000; // milliseconds; only so that a hang ends
    const Terminal terminal;
    terminal.type(typed);
    QProcess process;
    process.setStandardInputFile(terminal.path);
    process.setStandardErrorFile(terminal.path, QIODevice::Append);
    process.start(ctlProgram(), arguments);
    const auto hasEnded = [&process] { return process.state() == QProcess::NotRunning; };
    if (!process.waitForStarted() || !QTest::qWaitFor(hasEnded, patience)) {
        qFatal("the tool does not end");
    }
    CtlRun result;
    result.status = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    result.out = process.readAllStandardOutput();
    result.errors = terminal.read();
    return result;
}
