// SPDX-License-Identifier: Apache-2.0

// A library to preload into a test that runs under user-mode emulation, so that it can
// start other programs with QProcess.
//
// - The kernel that the test sees is the host's, which makes Qt clone its children with
//   a flag that the emulator refuses. Here the kernel seems too old for that; Qt then
//   forks, as on older ones.
// - Of its children, those made for the host are started without this library, and those
//   made for the emulated machine by the emulator, which SEL_EMULATOR names.

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

constexpr long processHandle = 3; // P_PIDFD, which not every header knows
const char preload[] = "LD_PRELOAD=";

template <typename Function>
Function *original(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

//! The beginning of an ELF file up to the two bytes that name its machine.
struct Header {
    char magic[SELFMAG];
    char unused[EI_NIDENT - SELFMAG + 2];
    char machine[2];
};

bool readHeader(const char *path, Header &header)
{
    const int handle = open(path, O_RDONLY | O_CLOEXEC);
    if (handle < 0) {
        return false;
    }
    const bool whole = read(handle, &header, sizeof(header)) == ssize_t(sizeof(header));
    close(handle);
    return whole && std::memcmp(header.magic, ELFMAG, SELFMAG) == 0;
}

//! Whether a program is for the machine that this one was built for.
bool isEmulated(const char *path)
{
    Header own{};
    Header header{};
    return readHeader("/proc/self/exe", own) && readHeader(path, header)
        && std::memcmp(own.machine, header.machine, sizeof(own.machine)) == 0;
}

std::vector<char *> withoutPreload(char *const environment[])
{
    std::vector<char *> kept;
    for (; *environment != nullptr; ++environment) {
        if (std::strncmp(*environment, preload, sizeof(preload) - 1) != 0) {
            kept.push_back(*environment);
        }
    }
    kept.push_back(nullptr);
    return kept;
}

int run(const char *path, char *const arguments[], char *const environment[])
{
    using Execve = int(const char *, char *const *, char *const *);
    // The emulator, too, is a program of the host; it preloads what QEMU_SET_ENV says.
    const std::vector<char *> kept = withoutPreload(environment);
    const char *const emulator = std::getenv("SEL_EMULATOR");
    if (emulator == nullptr || !isEmulated(path)) {
        return original<Execve>("execve")(path, arguments, kept.data());
    }
    std::vector<char *> emulated{const_cast<char *>(emulator), const_cast<char *>(path)};
    for (++arguments; *arguments != nullptr; ++arguments) {
        emulated.push_back(*arguments);
    }
    emulated.push_back(nullptr);
    return original<Execve>("execve")(emulator, emulated.data(), kept.data());
}

} // namespace

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the C library's functions
extern "C" {

//! Like the C library's, takes six arguments on, whether there are so many or not.
long syscall(long number, ...) noexcept
{
    va_list list;
    va_start(list, number);
    long value[6];
    for (long &each : value) {
        each = va_arg(list, long);
    }
    va_end(list);
    if (number == SYS_waitid && value[0] == processHandle) {
        errno = EINVAL;
        return -1;
    }
    static auto *const call = original<long(long, ...)>("syscall");
    return call(number, value[0], value[1], value[2], value[3], value[4], value[5]);
}

int execve(const char *path, char *const arguments[], char *const environment[]) noexcept
{
    return run(path, arguments, environment);
}

int execv(const char *path, char *const arguments[]) noexcept
{
    return run(path, arguments, environ);
}
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
