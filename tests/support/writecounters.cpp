// SPDX-License-Identifier: Apache-2.0

// Linked into the daemon and the tool where coverage is measured, and only there. Counters
// are written when a process exits; the daemon never does, nor does a tool that follows the
// log, a signal ends them: SIGTERM on a device, and SIGABRT after a fatal message. Here both
// write the counters first and then do what they would have done. What is killed otherwise
// leaves none.

#include <csignal>
#include <thread>

extern "C" void __gcov_dump(); // NOLINT(bugprone-reserved-identifier): the compiler's name

namespace
{

//! Ends the process by a signal as if it had never been caught.
void endBy(int signal)
{
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, signal);
    (void)std::signal(signal, SIG_DFL);
    (void)pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
    (void)std::raise(signal);
}

//! The aborting thread itself comes by, in the middle of nothing.
void writeAndAbort(int signal)
{
    __gcov_dump();
    endBy(signal);
}

/*!
 * A termination can come in the middle of anything, an allocation say, where a handler
 * could not write: so a thread of its own waits for it. Later threads inherit the mask.
 */
void awaitTermination()
{
    sigset_t termination;
    sigemptyset(&termination);
    sigaddset(&termination, SIGTERM);
    (void)pthread_sigmask(SIG_BLOCK, &termination, nullptr);
    std::thread([termination] {
        int signal = 0;
        while (sigwait(&termination, &signal) == 0) {
            struct sigaction meant {
            };
            (void)sigaction(signal, nullptr, &meant);
            if (meant.sa_handler == SIG_DFL) {
                __gcov_dump();
                endBy(signal);
            } else if (meant.sa_handler != SIG_IGN) {
                meant.sa_handler(signal); // takes note of it
            }
        }
    }).detach();
}

const bool prepared = [] {
    (void)std::signal(SIGABRT, writeAndAbort);
    awaitTermination();
    return true;
}();

} // namespace
