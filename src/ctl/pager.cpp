// SPDX-License-Identifier: Apache-2.0
#include "ctl/pager.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

[[noreturn]] void run(const std::string &command, int input)
{
    (void)std::signal(SIGPIPE, SIG_DFL);
    (void)::dup2(input, STDIN_FILENO);
    (void)::execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
    ::_exit(127);
}

} // namespace

Pager::Pager(const std::string &command)
{
    int ends[2] = {-1, -1};
    if (command.empty() || ::pipe2(ends, O_CLOEXEC) != 0) {
        return;
    }
    (void)::setenv("LESSCHARSET", "utf-8", 0); // whatever the locale: texts are UTF-8
    terminal = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    process = terminal >= 0 ? ::fork() : -1;
    if (process == 0) {
        run(command, ends[0]);
    }
    (void)::close(ends[0]);
    if (process > 0) {
        (void)::dup2(ends[1], STDOUT_FILENO);
        interruption.emplace();
    }
    (void)::close(ends[1]);
}

Pager::~Pager()
{
    if (process > 0) {
        (void)::dup2(terminal, STDOUT_FILENO); // which ends the pager's input
        while (::waitpid(process, nullptr, 0) < 0 && errno == EINTR) { }
    }
    if (terminal >= 0) {
        (void)::close(terminal);
    }
}
