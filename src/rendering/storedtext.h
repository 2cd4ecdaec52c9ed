// SPDX-License-Identifier: Apache-2.0
#pragma once

class SystemeventCatalogue;
class ValueTexts;
struct StoredValue;
struct SystemeventArgument;

/*!
 * Adds what a message shows of a stored value of a declared argument: the value, a text of
 * its own where it is damaged, and nothing at all for an argument that takes no
 * placeholder.
 */
void substituteStored(ValueTexts &values, const StoredValue &value,
                      const SystemeventArgument &argument, const SystemeventCatalogue &catalogue);
