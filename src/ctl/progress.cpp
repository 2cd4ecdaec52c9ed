// SPDX-License-Identifier: Apache-2.0
#include "ctl/progress.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>

#include <unistd.h>

namespace
{

constexpr qint64 patience = 500; // milliseconds

//! What does not get there is not missed.
void print(std::string_view text)
{
    const ssize_t written = ::write(STDERR_FILENO, text.data(), text.size());
    (void)written;
}

} // namespace

Progress::Progress(bool isShown, OutputStream &output)
    : out(output)
    , isTold(isShown)
{
    timer.start();
    out.beforeWriting([this] { hide(); });
}

Progress::~Progress()
{
    hide();
    out.beforeWriting({});
}

void Progress::hide()
{
    if (std::exchange(isOnScreen, false)) {
        print("\r\33[K");
    }
}

void Progress::tell()
{
    next = done + all / 200; // the clock is not asked more often
    if (timer.elapsed() < patience) {
        return;
    }
    isOnScreen = true;
    const qint64 percent = all > 0 ? std::min<qint64>(100 * done / all, 100) : 100;
    print("\r" + std::to_string(percent) + " %\33[K");
}
