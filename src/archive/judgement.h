// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "archive/filescan.h"

#include <vector>

namespace Archive
{

//! Whether a piece is a record whose number can be read.
bool isNumbered(const Piece &piece);

/*!
 * Calls records damaged whose numbers cannot be right. \a before is the number of the record
 * that the pieces touch, 0 where they touch none; \a isLast where they end the file.
 */
void judgeNumbers(std::vector<Piece> &pieces, quint64 before, bool isLast);

/*!
 * Calls records likely that nothing beside them speaks for. \a before is the last number in
 * front of the pieces, 0 where there is none.
 */
void judgeRuns(std::vector<Piece> &pieces, quint64 before, bool isBehindLost);

} // namespace Archive
