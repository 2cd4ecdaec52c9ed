// SPDX-License-Identifier: Apache-2.0

// Runs the files of a corpus through a fuzzer's target, so that whatever a fuzzer
// once found stays tested where there is no fuzzer:
//
//     tst_fuzz_logfiles FOLDER|FILE...
//
// A failed check aborts; the file that it belongs to is named then.

#include "checks.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <csignal>
#include <cstdio>

#include <unistd.h>

namespace
{

QByteArray current; //!< the file's name

void nameCurrentFile(int signal)
{
    const char failed[] = "failed on ";
    (void)!write(STDERR_FILENO, failed, sizeof failed - 1);
    (void)!write(STDERR_FILENO, current.constData(), size_t(current.size()));
    (void)!write(STDERR_FILENO, "\n", 1);
    (void)std::signal(signal, SIG_DFL);
    (void)raise(signal);
}

QStringList filesOf(const QString &argument)
{
    if (!QFileInfo(argument).isDir()) {
        return {argument};
    }
    const QDir folder(argument);
    QStringList files;
    const QStringList names = folder.entryList(QDir::Files, QDir::Name);
    for (const QString &name : names) {
        files.append(folder.filePath(name));
    }
    return files;
}

bool replay(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        (void)fprintf(stderr, "cannot read %s\n", qPrintable(path));
        return false;
    }
    const QByteArray content = file.readAll();
    current = path.toLocal8Bit();
    return LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(content.constData()),
                                  size_t(content.size()))
        == 0;
}

} // namespace

int main(int argc, char *argv[])
{
    (void)std::signal(SIGABRT, nameCurrentFile);
    (void)std::signal(SIGSEGV, nameCurrentFile);
    int count = 0;
    for (int i = 1; i < argc; ++i) {
        const QStringList files = filesOf(QString::fromLocal8Bit(argv[i]));
        for (const QString &file : files) {
            if (!replay(file)) {
                return 1;
            }
            ++count;
        }
    }
    printf("%d inputs replayed\n", count);
    return count > 0 ? 0 : 1;
}
