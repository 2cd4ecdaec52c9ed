// SPDX-License-Identifier: Apache-2.0
#include "ctl/terminal.h"

#include "ctl/ctlprocess.h"

#include <QFile>

#include <cerrno>

#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

constexpr int patience = 60000; // milliseconds; only so that a hang ends

} // namespace

Terminal::Terminal(const QString &line, int columns)
{
    const QByteArray command = QFile::encodeName(line);
    const QByteArray program = QFile::encodeName(ctlProgram());
    winsize size{};
    size.ws_row = 24;
    size.ws_col = static_cast<unsigned short>(columns);
    process = ::forkpty(&device, nullptr, nullptr, &size);
    if (process == 0) {
        (void)::setenv("CTL", program.constData(), 1);
        (void)::setenv("TERM", "xterm", 1);
        (void)::setenv("LC_ALL", "C.UTF-8", 1);
        (void)::unsetenv("NO_COLOR");
        (void)::setenv("PAGER", "cat", 1);
        (void)::execl("/bin/sh", "sh", "-c", command.constData(), nullptr);
        ::_exit(127);
    }
    if (process < 0) {
        qFatal("there is no terminal");
    }
}

Terminal::~Terminal()
{
    (void)::close(device); // which hangs up
    if (exitStatus < 0) {
        (void)::waitpid(process, nullptr, 0);
    }
}

void Terminal::type(const QByteArray &keys) const
{
    if (::write(device, keys.constData(), size_t(keys.size())) != keys.size()) {
        qFatal("cannot type");
    }
}

bool Terminal::readMore()
{
    pollfd waiting{device, POLLIN, 0};
    if (::poll(&waiting, 1, patience) <= 0) {
        qFatal("nothing comes any more behind: %s", shown.constData());
    }
    char bytes[4096];
    const ssize_t count = ::read(device, bytes, sizeof bytes);
    if (count > 0) {
        shown.append(bytes, int(count));
    }
    return count > 0;
}

void Terminal::waitFor(const QByteArray &text)
{
    while (!shown.contains(text)) {
        if (!readMore()) {
            qFatal("%s is not in: %s", text.constData(), shown.constData());
        }
    }
}

QByteArray Terminal::finish()
{
    while (readMore()) { }
    int result = 0;
    while (::waitpid(process, &result, 0) < 0 && errno == EINTR) { }
    exitStatus = WIFEXITED(result) ? WEXITSTATUS(result) : 128 + WTERMSIG(result);
    return shown.replace("\r\n", "\n");
}
