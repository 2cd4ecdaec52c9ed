// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/outputstream.h"

#include <QElapsedTimer>
#include <QtGlobal>

/*!
 * Tells a person how far long work has come: one line on standard error, which is written
 * over, and goes at the end and where something is written beside it. Nothing is told of
 * what takes less than half a second.
 */
class Progress
{
public:
    /*!
     * \a isShown: whether standard error is a terminal. \a output, which must outlive this,
     * may lead to the same one.
     */
    Progress(bool isShown, OutputStream &output);
    ~Progress();
    Q_DISABLE_COPY_MOVE(Progress)

    //! How much there is to do, in any unit.
    void expect(qint64 total) { all = total; }
    //! So much more is done.
    void advance(qint64 by)
    {
        done += by;
        if (isTold && done >= next) {
            tell();
        }
    }

private:
    void tell();
    void hide();

    OutputStream &out;
    bool isTold;
    bool isOnScreen = false;
    qint64 all = 0;
    qint64 done = 0;
    qint64 next = 0; //!< from where on it is told again
    QElapsedTimer timer;
};
