// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QList>

/*!
 * What the storage does to the program that links this, the writer in it: functions that
 * stand in front of the C library's. Every error is an errno value, 0 for none.
 */
struct Trouble {
    int writeError = 0;
    qint64 space = -1;      //!< bytes that writes still find space for; negative: any number
    qint64 mostAtOnce = -1; //!< bytes that one write takes; negative: any number
    int interruptions = 0;  //!< writes that a signal still interrupts
    int fsyncError = 0;
    int truncateError = 0;
    int renameError = 0;
};
extern Trouble trouble;

//! The size that a file had at each fsync of this process.
extern QList<qint64> syncedSizes;
//! How much each write of this process to a file was about.
extern QList<qint64> writtenSizes;
