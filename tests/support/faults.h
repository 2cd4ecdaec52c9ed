// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/readfaults.h"

#include <atomic>
#include <cstdint>

/*!
 * What the storage under the log does to the daemon: shared memory between a test and
 * the preloaded library. Only calls on files below /srv/public/log are touched, and reads
 * of the files that have been spoilt. Every error is an errno value, 0 for none.
 */
struct Faults {
    std::atomic<std::int32_t> writeError;
    std::atomic<std::int32_t> fsyncError;
    std::atomic<std::int32_t> renameError;
    std::atomic<std::int32_t> unlinkError;
    std::atomic<std::int32_t> openError;
    std::atomic<std::int32_t> truncateError;
    std::atomic<std::int32_t> mkdirError;
    std::atomic<std::int32_t> fsyncDelay; //!< microseconds that every fsync takes longer
    //! Bytes that still fit; a write that does not fit comes back short, and then fails
    //! with ENOSPC. Negative: everything fits.
    std::atomic<std::int64_t> space;
    std::atomic<std::int32_t> mostAtOnce; //!< bytes that one write takes at most, 0: any number
    std::atomic<std::uint64_t> writes;    //!< calls that arrived, failed ones included
    std::atomic<std::uint64_t> fsyncs;
    std::atomic<std::uint64_t> bytesWritten; //!< by writes that have returned
    std::atomic<std::uint64_t> bytesSynced;  //!< of these, when the last good fsync returned
    ReadFaults reads;
};

//! Names the file that is mapped as Faults.
constexpr const char *faultsVariable = "SEL_FAULTS";
//! Names a file, where one is wanted, that gets every byte before it goes to the log.
constexpr const char *witnessVariable = "SEL_WITNESS";
