// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/cataloguefindings.h"

//! The part of checkCatalogue() that looks at the texts of events.
void checkTexts(const CatalogueDocument &document, CatalogueFindings &findings);

//! Whether a text holds half of a surrogate pair, which no UTF-8 can hold.
bool holdsHalfCharacter(const QString &text);
