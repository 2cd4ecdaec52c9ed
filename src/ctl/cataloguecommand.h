// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "catalog/systemeventcatalogue.h"
#include "ctl/outputstream.h"
#include "ctl/plan.h"

//! Prints the events of a catalogue, by their ids.
ExitStatus runCatalogueList(const Plan &plan, OutputStream &out);
//! Prints all that a catalogue says of one event, or of several with one name.
ExitStatus runCatalogueShow(const Plan &plan, OutputStream &out);

/*!
 * The arguments of an event on one line, as in "input: enum PowerInput (0 A, 1 B); volts:
 * double"; empty where it has none.
 */
QString eventDeclaration(const SystemeventDescription &event,
                         const SystemeventCatalogue &catalogue);
