// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QStringList>

#include <cstddef>
#include <cstdint>

//! What a fuzzer calls for every input, and the replay for every file of a corpus.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

/*!
 * To be called first for every input: gives the process an application object,
 * silences what Qt and the product say, and forgets what they said.
 */
void prepare();

//! The messages since the last call: debug messages, and that a placeholder was missing.
QStringList takeMessages();

//! Aborts, which is how a fuzzer learns of a failed check.
[[noreturn]] void fail(const QString &what);
void require(bool holds, const char *what);
void requireEqual(const QString &expected, const QString &found, const char *what);
