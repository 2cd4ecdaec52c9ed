// SPDX-License-Identifier: Apache-2.0

// Linked into the daemon and the tool where coverage is measured, and only there. Counters
// are written when a process exits; the daemon never does, nor does a tool that follows the
// log, a signal ends them: SIGTERM on a device, and SIGABRT after a fatal message. Here both
// write the counters first and then do what they would have done. What is killed otherwise
// leaves none.

#include <csignal>
#include <thread>

#include <semaphore.h>

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

sem_t request; // which takes no descriptor: tests count those

void askWriter(int /*signal*/)
{
    (void)sem_post(&request);
}

/*!
 * A termination can come in the middle of anything, an allocation say, where a handler
 * could not write: so it asks a thread of its own. Where the program comes to handle the
 * signal itself, that handler counts.
 */
void awaitTermination()
{
    (void)sem_init(&request, 0, 0);
    (void)std::signal(SIGTERM, askWriter);
    std::thread([] {
        while (sem_wait(&request) != 0) { }
        __gcov_dump();
        endBy(SIGTERM);
    }).detach();
}

const bool prepared = [] {
    (void)std::signal(SIGABRT, writeAndAbort);
    awaitTermination();
    return true;
}();

} // namespace
