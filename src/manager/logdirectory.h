// SPDX-License-Identifier: Apache-2.0
#pragma once

class QDir;

/*!
 * Makes sure that a log directory and its parent exist; nothing above them is
 * created. False when the directory is not there afterwards.
 */
[[nodiscard]] bool ensureLogDirectory(const QDir &directory);
