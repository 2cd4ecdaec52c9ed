// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>

#include <sys/types.h>

/*!
 * A line of the shell on a terminal of its own, in which $CTL is the tool: it can be typed
 * to and interrupted, and has a width. Ends the test where anything takes too long.
 */
class Terminal
{
public:
    Terminal(const QString &line, int columns);
    ~Terminal();
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    //! Types keys, such as "\x03" for Ctrl-C.
    void type(const QByteArray &keys) const;
    //! Waits until the screen has shown a text.
    void waitFor(const QByteArray &text);
    //! Waits for the end; all that was shown, with plain line feeds.
    QByteArray finish();
    //! Of the shell, once it is finished.
    [[nodiscard]] int status() const { return exitStatus; }

private:
    //! False at the end of the output.
    bool readMore();

    int device = -1;
    pid_t process = -1;
    QByteArray shown;
    int exitStatus = -1;
};
