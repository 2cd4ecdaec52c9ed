// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/cataloguefindings.h"

/*!
 * Looks for what an author of a catalogue has not meant. Where reading has ended early,
 * nothing is said of what may stand behind that place.
 */
CatalogueFindings checkCatalogue(const CatalogueDocument &document);
