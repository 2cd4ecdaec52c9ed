// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <utility>

//! Thrown when what a command prints cannot be written.
struct OutputFailure {
    int error = 0; //!< errno; EPIPE where nobody reads any more
};

/*!
 * Writes text to a descriptor, which is not owned, in large pieces. Every failure is seen,
 * also that of the last piece, as long as flush() is called.
 */
class OutputStream
{
public:
    static constexpr size_t usualPiece = 65536;

    //! Writes whenever \a piece bytes are waiting.
    explicit OutputStream(int output, size_t piece = usualPiece)
        : descriptor(output)
        , pieceSize(piece)
    {
    }

    //! Add to it what is to be written, and call wrote() then.
    std::string &text() { return waiting; }
    [[nodiscard]] const std::string &text() const { return waiting; }
    //! Throws OutputFailure.
    void wrote()
    {
        if (waiting.size() >= pieceSize) {
            flush();
        }
    }
    //! Throws OutputFailure.
    void write(std::string_view utf8);
    //! Throws OutputFailure.
    void flush();
    //! Has a function called each time before a piece is written; an empty one: none.
    void beforeWriting(std::function<void()> function) { notice = std::move(function); }

private:
    int descriptor;
    size_t pieceSize;
    std::string waiting;
    std::function<void()> notice;
};
