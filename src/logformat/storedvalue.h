// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "logformat/argumenttype.h"
#include "logformat/logformat.h"

#include <string_view>

/*!
 * An argument value as it is read from a record. A record says nothing about the types of
 * its values, but for those within variants: what is read under a wrong type is some
 * value, and so are all behind it.
 */
struct StoredValue {
    enum class State : quint8 {
        Whole,
        TooShort,    //!< the bytes end within it: of a number those missing count as zero
        UnknownCode, //!< no value is stored under its type code: nothing was read of it
    };

    /*!
     * Under which type code it was read: that of the content of a variant where the
     * variant has one that can be read, else the declared one.
     */
    int type = ArgumentType::Unknown;
    State state = State::Whole;
    bool inVariant = false;
    /*!
     * Byte and Enum unsigned, Bool as 0 or 1, UInt64 by its bit pattern; of a Variant
     * the type code that it was stored with.
     */
    qint64 integer = 0;
    double real = 0;        //!< Float and Double
    std::string_view bytes; //!< String and ByteArray: what there is, valid until the next reading

    [[nodiscard]] bool isWhole() const { return state == State::Whole; }
};

namespace LogFormat
{

template <typename Number, typename Source>
Number readInto(Source &in, StoredValue &value)
{
    Number number{};
    if (read(in, number) < qint64(sizeof number)) {
        value.state = StoredValue::State::TooShort;
    }
    return number;
}

//! Bytes with their length in front.
template <typename Source>
void readSized(Source &in, StoredValue &value)
{
    const auto length = readInto<quint16>(in, value);
    if (value.isWhole()) {
        value.bytes = in.take(length);
        if (value.bytes.size() < length) {
            value.state = StoredValue::State::TooShort;
        }
    }
}

//! Reads what stands under value.type.
template <typename Source>
void readContent(Source &in, StoredValue &value)
{
    switch (ArgumentType::Code(value.type)) {
    case ArgumentType::Byte:
    case ArgumentType::Enum:
        value.integer = readInto<quint8>(in, value);
        return;
    case ArgumentType::Bool:
        value.integer = readInto<quint8>(in, value) != 0 ? 1 : 0;
        return;
    case ArgumentType::Int16:
        value.integer = readInto<qint16>(in, value);
        return;
    case ArgumentType::Int32:
        value.integer = readInto<qint32>(in, value);
        return;
    case ArgumentType::Int64:
    case ArgumentType::UInt64:
        value.integer = readInto<qint64>(in, value);
        return;
    case ArgumentType::Float:
        value.real = double(readInto<float>(in, value));
        return;
    case ArgumentType::Double:
        value.real = readInto<double>(in, value);
        return;
    case ArgumentType::String:
    case ArgumentType::ByteArray:
        readSized(in, value);
        return;
    case ArgumentType::Variant:
    case ArgumentType::Unknown:
        break;
    }
    value.state = StoredValue::State::UnknownCode;
}

//! Whether a variant's content can be of a type.
constexpr bool isContentType(int code)
{
    switch (ArgumentType::Code(code)) {
    case ArgumentType::Byte:
    case ArgumentType::Bool:
    case ArgumentType::Int16:
    case ArgumentType::Int32:
    case ArgumentType::Int64:
    case ArgumentType::UInt64:
    case ArgumentType::Float:
    case ArgumentType::Double:
    case ArgumentType::String:
    case ArgumentType::ByteArray:
        return true;
    case ArgumentType::Variant:
    case ArgumentType::Enum:
    case ArgumentType::Unknown:
        break;
    }
    return false;
}

/*!
 * Reads the value of an argument of the declared type from the source's position, whose
 * take() gives the next bytes without copying them. Damage never stops it: the state says
 * what was met, and the source stands behind what was read.
 */
template <typename Source>
StoredValue readValue(Source &in, int declaredType)
{
    StoredValue value;
    value.type = declaredType;
    if (declaredType == ArgumentType::Variant) {
        const auto code = readInto<qint16>(in, value);
        value.integer = code;
        if (!value.isWhole()) {
            return value;
        }
        if (isContentType(code)) {
            value.type = code;
            value.inVariant = true;
        }
    }
    readContent(in, value);
    return value;
}

} // namespace LogFormat
