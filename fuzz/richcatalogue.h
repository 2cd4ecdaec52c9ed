// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "catalog/systemeventcatalogue.h"

/*!
 * A catalogue with every type of argument and every form of placeholder, also those
 * that no sensible catalogue holds. Inputs name its events by id: a change of it makes
 * the corpus of fuzz_logfiles a poorer one.
 */
const SystemeventCatalogue &richCatalogue();
