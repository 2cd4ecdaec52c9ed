// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "catalog/systemeventcatalogue.h"
#include "ctl/plan.h"

#include <QString>
#include <QStringList>

//! The languages of a catalogue's texts, sorted.
QStringList languagesOf(const SystemeventCatalogue &catalogue);

/*!
 * In which language texts are shown: the one that the user has named, or the locale's
 * where the catalogue has it, else English. What an event does not have in a language is
 * English as well. The catalogue may be null. One that was named and is not there is
 * remarked on.
 */
QString chooseLanguage(const OutputChoice &output, const SystemeventCatalogue *catalogue);
