// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QtGlobal>

/*!
 * Lets long work end in order when the user, or the system, ends the process. There is one
 * of these at a time.
 */
class Interruption
{
public:
    //! Thrown where the process is to end.
    struct Happened {
        int signal = 0;
    };

    //! From now on SIGINT, SIGTERM and SIGHUP are only taken note of.
    Interruption();
    //! Signals do what they did before.
    ~Interruption();
    Q_DISABLE_COPY_MOVE(Interruption)

    //! Throws Happened after a signal.
    void check() const;
};
