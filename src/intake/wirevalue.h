// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "intake/wirereader.h"

#include <QList>
#include <QVariant>

#include <optional>
#include <string_view>

/*!
 * Values as they lie in a message's body. What is malformed is refused by the reader,
 * by the rules by which the bus itself refuses it.
 */
namespace Wire
{

/*!
 * Appends the values that the variant of a status change carries: the elements of an array of
 * variants, or the members of a structure up to the first that is no variant; anything else
 * carries none. Each is of the type that QtDBus gives it, a variant among them is a WrappedValue;
 * structures and lists other than those of bytes and of strings are there by their type alone.
 *
 * The variant has to be the last of the message. Of a malformed one any part may be appended.
 */
void appendStatusValues(QList<QVariant> &values, WireReader &in);

//! Goes behind the value of a head's field; its type has been read, and is checked here.
void skipVariant(WireReader &in, std::string_view type);

//! Whether a signature is one of any number of complete types.
bool isSignature(std::string_view signature);
bool isUtf8(std::string_view text);

} // namespace Wire
