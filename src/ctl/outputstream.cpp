// SPDX-License-Identifier: Apache-2.0
#include "ctl/outputstream.h"

#include <cerrno>
#include <utility>

#include <unistd.h>

void OutputStream::write(std::string_view utf8)
{
    waiting += utf8;
    wrote();
}

void OutputStream::flush()
{
    // What could not be written is not tried again.
    std::string piece = std::exchange(waiting, {});
    if (notice && !piece.empty()) {
        notice();
    }
    size_t done = 0;
    while (done < piece.size()) {
        const ssize_t written = ::write(descriptor, piece.data() + done, piece.size() - done);
        if (written >= 0) {
            done += size_t(written);
        } else if (errno != EINTR) {
            throw OutputFailure{errno};
        }
    }
    if (waiting.empty()) {
        piece.clear();
        waiting.swap(piece); // for its room
    }
}
