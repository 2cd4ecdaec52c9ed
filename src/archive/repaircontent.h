// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "archive/filesurvey.h"

#include <QByteArray>

#include <set>
#include <vector>

//! What a mended file consists of. Ranges are ascending, and none overlaps another.
namespace Archive
{

QByteArray partsOf(const QByteArray &bytes, const std::vector<Range> &ranges);
qint64 sizeOf(const std::vector<Range> &ranges);
//! Where a position of a file lies in its parts; negative where it is in none.
qint64 positionInParts(qint64 position, const std::vector<Range> &ranges);
//! Ranges of what other ranges of a file make, as ranges of the file.
std::vector<Range> rangesOfRanges(const std::vector<Range> &outer, const std::vector<Range> &inner);

//! Where the daemon's own walk finds records.
std::set<qint64> walkedPositions(const QByteArray &bytes);

/*!
 * Whether several records would be left out of a file that the daemon's walk takes apart into
 * nothing but records with right ends. All of it is readable, whatever looks wrong.
 */
bool leavesOutWalked(const QByteArray &bytes, const std::vector<Range> &content);

/*!
 * Where records begin that the daemon finds without a doubt, the last one first: from the
 * end of a file, as long as nothing is wrong. A last number far from the one before is, and
 * so is one in front of them all that does not follow what is good before it.
 */
std::vector<qint64> undoubtedRecords(const FileSurvey &survey, const QByteArray &bytes);

//! What is good of a file and those records, which come first where they overlap.
std::vector<Range> goodContent(const FileSurvey &survey, const QByteArray &bytes);

} // namespace Archive
