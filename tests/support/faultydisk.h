// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/faults.h"

#include <QTemporaryFile>

/*!
 * Storage that a test can make slow, full or broken: every process started while it
 * lives, the daemon above all, gets the preloaded library that the environment
 * variable SEL_FAULTSHIM names. Everything works until a test changes it.
 */
class FaultyDisk
{
public:
    FaultyDisk();
    ~FaultyDisk();
    Q_DISABLE_COPY_MOVE(FaultyDisk)

    Faults *operator->() const { return faults; }

private:
    QTemporaryFile shared;
    QByteArray sanitizerOptions; //!< as they were before
    Faults *faults = nullptr;
};
