// SPDX-License-Identifier: Apache-2.0
#include "rendering/storedmessage.h"

#include "rendering/utf8text.h"

#include <string_view>

namespace
{

constexpr std::string_view readError = "readerror";

//! Substitutes what stands for a variant whose content cannot be read.
void substituteUnreadable(ValueTexts &text, const StoredValue &variant)
{
    if (variant.state == StoredValue::State::TooShort) {
        return;
    }
    text.substitute(
        variant.integer == ArgumentType::Unknown
            ? std::string_view("type: \"UNKNOWN\", more errors in this logentry possible")
            : std::string_view("unknown type, expect more errors in this entry!"));
}

} // namespace

StoredMessage::StoredMessage(const SystemeventDescription &description,
                             const SystemeventCatalogue &systemevents, const QString &language)
    : event(&description)
    , catalogue(&systemevents)
    , message(description.description(language))
{
}

void StoredMessage::substitute(ValueTexts &values, const StoredValue &value,
                               const SystemeventArgument &argument,
                               const SystemeventCatalogue &systemevents)
{
    switch (ArgumentType::Code(value.type)) {
    case ArgumentType::Byte:
        values.substitute(QString(QLatin1Char(char(value.integer))));
        return;
    case ArgumentType::Bool:
    case ArgumentType::Int16:
    case ArgumentType::Int32:
    case ArgumentType::Int64:
        values.substitute(qlonglong(value.integer));
        return;
    case ArgumentType::UInt64:
        values.substitute(qulonglong(value.integer));
        return;
    case ArgumentType::Float:
    case ArgumentType::Double:
        values.substitute(value.real);
        return;
    case ArgumentType::String:
        values.substitute(value.isWhole() ? value.bytes : readError);
        return;
    case ArgumentType::ByteArray:
        values.substitute(value.isWhole() ? Utf8Text::upToZeroByte(value.bytes) : readError);
        return;
    case ArgumentType::Variant:
        substituteUnreadable(values, value);
        return;
    case ArgumentType::Enum:
        if (value.isWhole()) {
            values.substitute(systemevents.enumText(argument.enumName, int(value.integer)));
        } else {
            values.substitute(readError);
        }
        return;
    case ArgumentType::Unknown:
        values.substitute(std::string_view("unknown argument type! further errors ahead!"));
        return;
    }
    // Another code has read nothing and leaves its placeholder to the next argument.
}
