// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/outputstream.h"
#include "ctl/stats/statistics.h"

class SystemeventCatalogue;

/*!
 * Writes one JSON object on one line, piece by piece, so that it takes no memory. Statistics
 * are those of a clock in UTC; the catalogue may be null. Throws OutputFailure.
 */
void writeStatisticsJson(const Statistics &counted, const CountedFiles &files,
                         const SystemeventCatalogue *catalogue, OutputStream &out);
