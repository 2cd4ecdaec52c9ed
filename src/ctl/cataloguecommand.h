// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ctl/outputstream.h"
#include "ctl/plan.h"

//! Prints the events of a catalogue, by their ids. Failed, and a message told, without one.
ExitStatus runCatalogueList(const Plan &plan, OutputStream &out);
//! Prints all that a catalogue says of one event, or of several with one name; as above.
ExitStatus runCatalogueShow(const Plan &plan, OutputStream &out);
