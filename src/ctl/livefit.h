// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "catalog/systemeventcatalogue.h"
#include "ctl/busvalue.h"

#include <QString>

#include <vector>

/*!
 * Of more values of a status change no more is looked at. Only values that hold placeholders
 * themselves can make a text take so many, and the work that a text may take ends before.
 */
constexpr size_t mostLiveValues = 65536;

/*!
 * What of a status change does not fit the declaration of its event, so that it will not be
 * read back from the log as it was sent (docs/catalogue.md, "Types"): the first that is
 * found, as a sentence without its full stop. Empty where all fits.
 */
QString misfit(const SystemeventDescription &event, const SystemeventCatalogue &catalogue,
               const std::vector<BusValue> &values);
