// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/interruption.h"

#include <QtGlobal>

#include <optional>
#include <string>

#include <sys/types.h>

/*!
 * Has what is written to standard output shown by another program, page by page, for as
 * long as this lives. Where that one cannot be started, the output goes where it went.
 */
class Pager
{
public:
    //! \a command is a line for the shell; with an empty one nothing is done.
    explicit Pager(const std::string &command);
    //! Waits until the user has had enough.
    ~Pager();
    Q_DISABLE_COPY_MOVE(Pager)

    //! Throws Interruption::Happened after Ctrl-C, which the pager outlives.
    void check() const
    {
        if (interruption) {
            interruption->check();
        }
    }

private:
    int terminal = -1; //!< standard output as it was
    pid_t process = -1;
    std::optional<Interruption> interruption;
};
