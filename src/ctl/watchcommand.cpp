// SPDX-License-Identifier: Apache-2.0
#include "ctl/watchcommand.h"

#include "ctl/bus.h"
#include "ctl/liveevents.h"
#include "ctl/messages.h"
#include "ctl/source.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <iterator>
#include <limits>
#include <optional>
#include <utility>

#include <malloc.h>
#include <poll.h>
#include <unistd.h>

namespace
{

//! What a large message has taken goes back to the system with it.
void returnLargeMemory()
{
    constexpr int large = 131072; // bytes; where the library begins, before it adapts itself
    (void)mallopt(M_MMAP_THRESHOLD, large);
}

//! At once, also out of a write that does not come to its end.
void endQuietly(int /*signal*/)
{
    _exit(int(ExitStatus::Done));
}

void endOnInterrupt()
{
    if (std::signal(SIGINT, endQuietly) == SIG_IGN) {
        (void)std::signal(SIGINT, SIG_IGN); // as a shell wants it in the background
    }
}

/*!
 * Standard output, to which no more is given than it takes at once: while a program waits
 * for it the bus would keep what comes, at the cost of those who send it, until they can
 * send nothing any more. So what comes then is left out.
 */
class LiveOutput
{
public:
    //! For a printer to print to.
    OutputStream &lines() { return printed; }

    //! Whether a status change may be printed; otherwise it counts as left out.
    [[nodiscard]] bool admitsOne()
    {
        const bool hasRoom = waiting() < mostWaiting;
        leftOut += hasRoom ? 0 : 1;
        return hasRoom;
    }
    [[nodiscard]] bool isWaiting() const { return waiting() > 0; }
    //! Writes what can be written at once. Throws OutputFailure.
    void writeSome()
    {
        while (isWaiting() && takesMore(0)) {
            writePiece();
        }
        if (written > mostWaiting || !isWaiting()) {
            printed.text().erase(0, std::exchange(written, 0));
        }
        if (!isWaiting() && leftOut > 0) {
            Messages::tell(QStringLiteral("%1 status changes are left out: standard output took "
                                          "no more")
                               .arg(std::exchange(leftOut, 0)));
        }
    }
    //! Writes all that is waiting. Throws OutputFailure.
    void writeAll()
    {
        while (isWaiting() && takesMore(-1)) {
            writeSome();
        }
    }

private:
    static constexpr size_t mostWaiting = 1048576; // bytes, and what is printed last

    [[nodiscard]] size_t waiting() const { return printed.text().size() - written; }
    //! A pipe then takes PIPE_BUF bytes for sure.
    [[nodiscard]] static bool takesMore(int milliseconds)
    {
        pollfd output{STDOUT_FILENO, POLLOUT, 0};
        return ::poll(&output, 1, milliseconds) == 1;
    }
    void writePiece()
    {
        const size_t size = std::min(waiting(), size_t(PIPE_BUF));
        const ssize_t count = ::write(STDOUT_FILENO, printed.text().data() + written, size);
        if (count < 0) {
            throw OutputFailure{errno};
        }
        written += size_t(count);
    }

    OutputStream printed{-1, std::numeric_limits<size_t>::max()};
    size_t written = 0; //!< of what is printed
    qint64 leftOut = 0;
};

//! When there is no more to come, whatever is announced.
class End
{
public:
    explicit End(const SelectionChoice &choice)
        : most(choice.last)
        , until(choice.until)
    {
    }

    [[nodiscard]] bool isReached(quint64 count) const
    {
        return (most && count >= *most) || (until && *until < Instant::now());
    }
    //! For poll(): milliseconds until it may be there, or -1 for as long as it takes.
    [[nodiscard]] int patience() const
    {
        if (!until) {
            return -1;
        }
        constexpr quint64 longest = 3600; // seconds; then it is looked at again
        const Instant now = Instant::now();
        const quint64 seconds = until->seconds > now.seconds ? until->seconds - now.seconds : 0;
        return int(std::min(seconds, longest) + 1) * 1000;
    }

private:
    std::optional<quint64> most;
    std::optional<Instant> until;
};

//! Waits for messages, for room, or the end; false where nobody reads standard output any more.
bool wait(const Bus &bus, const LiveOutput &output, const End &end)
{
    const short room = output.isWaiting() ? POLLOUT : 0;
    pollfd both[] = {{bus.descriptor(), POLLIN, 0}, {STDOUT_FILENO, room, 0}};
    (void)::poll(both, std::size(both), end.patience());
    return (both[1].revents & (POLLERR | POLLHUP | POLLNVAL)) == 0;
}

//! Gives out what has come; false where the end is reached.
bool showAll(Bus &bus, LiveEvents &events, LiveOutput &output, const End &end)
{
    // Each message goes before the next is asked for: what has come is given out up to a
    // bound on all that is there.
    while (!end.isReached(events.count())) {
        const auto message = bus.take();
        if (!message) {
            return true;
        }
        if (events.isOne(*message) && output.admitsOne()) {
            events.show(*message);
            output.writeSome();
        }
    }
    return false;
}

ExitStatus watch(Bus &bus, LiveEvents &events, LiveOutput &output, const End &end)
{
    events.begin();
    do {
        const bool isThere = bus.read();
        if (!showAll(bus, events, output, end)) {
            output.writeAll();
            return events.count() > 0 ? ExitStatus::Done : ExitStatus::NothingMatched;
        }
        output.writeSome();
        if (!isThere) {
            output.writeAll();
            Messages::tell(QStringLiteral("the bus has gone"));
            return ExitStatus::Failed;
        }
    } while (wait(bus, output, end));
    return ExitStatus::Done;
}

} // namespace

ExitStatus runWatch(const Plan &plan)
{
    Source source(plan.source, plan.output.isQuiet);
    if (!source.openCatalogue()) {
        return ExitStatus::Failed;
    }
    LiveOutput output;
    LiveEvents events(plan, source.catalogue(), output.lines());
    Bus bus;
    if (!bus.openOrTell()) {
        return ExitStatus::Failed;
    }
    const BusAnswer listening = bus.listen();
    if (!listening.isDone()) {
        tellFailure(listening, QStringLiteral("status changes cannot be heard"), nullptr);
        return ExitStatus::Failed;
    }
    returnLargeMemory();
    endOnInterrupt();
    return watch(bus, events, output, End(plan.selection));
}
