// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "logformat/argumenttype.h"
#include "logformat/encoding.h"
#include "support/literals.h"

#include <QByteArray>
#include <QDBusObjectPath>
#include <QList>
#include <QVariant>

#include <limits>

/*!
 * Values, the bytes that a record holds of them, and the text that a reader makes
 * of those bytes. The encoder, the writer and the reader are each tested against
 * this one table, so that none of them can drift alone.
 */
struct GoldenRecord {
    const char *name; //!< a sentence that is true
    QVariant value;
    QByteArray bytes;
    int declaredType;        //!< as the catalogue has to declare it
    QString text;            //!< of the template "%1"; null where the value leaves no bytes to read
    bool isReported = false; //!< whether the encoder says "Unhandled type"
};

inline QVariant wrapped(const QVariant &value)
{
    return QVariant::fromValue(WrappedValue{value});
}

// NOLINTNEXTLINE(readability-function-size): a table
inline QList<GoldenRecord> goldenRecords()
{
    const auto hex = [](const char *digits) { return QByteArray::fromHex(digits); };
    namespace Type = ArgumentType;
    const QString unknown = "type: \"UNKNOWN\", more errors in this logentry possible"_s;
    return {
        {"true is one byte", true, hex("01"), Type::Bool, "1"_s},
        {"false is one byte", false, hex("00"), Type::Bool, "0"_s},
        {"int takes four bytes", 12, hex("0c000000"), Type::Int32, "12"_s},
        {"negative int", -7, hex("f9ffffff"), Type::Int32, "-7"_s},
        {"uint keeps its bit pattern", 4294967295U, hex("ffffffff"), Type::Int32, "-1"_s},
        {"int64 takes eight bytes", qint64(5), hex("0500000000000000"), Type::Int64, "5"_s},
        {"int64 keeps its low 32 bits", qint64(4294967297), hex("0100000000000000"), Type::Int64,
         "1"_s},
        {"int64 is sign-extended from 32 bits", qint64(2147483648), hex("00000080ffffffff"),
         Type::Int64, "-2147483648"_s},
        {"negative int64 stays", qint64(-1), hex("ffffffffffffffff"), Type::Int64, "-1"_s},
        {"double takes eight bytes", 0.1, hex("9a9999999999b93f"), Type::Double, "0.1"_s},
        {"double shows six digits", 1234567.0, hex("0000000087d63241"), Type::Double,
         "1.23457e+06"_s},
        {"infinite double", std::numeric_limits<double>::infinity(), hex("000000000000f07f"),
         Type::Double, "inf"_s},
        {"character is one byte", QChar(u'A'), hex("41"), Type::Byte, "A"_s},
        {"character keeps its low 8 bits", QChar(0x20AC), hex("ac"), Type::Byte, "\u00AC"_s},
        {"string has its length in front", "abc"_s, hex("0300616263"), Type::String, "abc"_s},
        {"empty string", QString(), hex("0000"), Type::String, ""_s},
        {"string is UTF-8 and counted in bytes", "Tür"_s, hex("040054c3bc72"), Type::String,
         "Tür"_s},
        {"string keeps a zero byte", QString(QLatin1String("a\0b", 3)), hex("0300610062"),
         Type::String, QString(QLatin1String("a\0b", 3))},
        {"wrapped bool carries its type", wrapped(true), hex("010001"), Type::Variant, "1"_s},
        {"wrapped int carries its type", wrapped(5), hex("030005000000"), Type::Variant, "5"_s},
        {"wrapped uint carries the type of an int", wrapped(7U), hex("030007000000"), Type::Variant,
         "7"_s},
        {"wrapped int64 carries its type", wrapped(qint64(6)), hex("04000600000000000000"),
         Type::Variant, "6"_s},
        {"wrapped double carries its type", wrapped(3.5), hex("07000000000000000c40"),
         Type::Variant, "3.5"_s},
        {"wrapped character carries its type", wrapped(QChar(u'A')), hex("000041"), Type::Variant,
         "A"_s},
        {"wrapped string carries its type", wrapped("x"_s), hex("0800010078"), Type::Variant,
         "x"_s},
        {"twice wrapped int has two codes", wrapped(wrapped(5)), hex("ffff030005000000"),
         Type::Variant, unknown},
        {"wrapped uint64 is a code alone", wrapped(quint64(5)), hex("ffff"), Type::Variant, unknown,
         true},
        {"uint64 writes nothing", quint64(5), {}, Type::UInt64, {}, true},
        {"unsigned char writes nothing", QVariant::fromValue<uchar>(65), {}, Type::Byte, {}, true},
        {"short writes nothing", QVariant::fromValue<short>(5), {}, Type::Int16, {}, true},
        {"unsigned short writes nothing",
         QVariant::fromValue<ushort>(5),
         {},
         Type::Int16,
         {},
         true},
        {"long writes nothing", QVariant::fromValue<long>(5), {}, Type::Int64, {}, true},
        {"float writes nothing", QVariant::fromValue<float>(1.5F), {}, Type::Float, {}, true},
        {"byte array writes nothing", QByteArray("abc"), {}, Type::ByteArray, {}, true},
        {"string list writes nothing", QStringList{"a"_s}, {}, Type::String, {}, true},
        {"invalid value writes nothing", QVariant(), {}, Type::Unknown, {}, true},
        {"object path writes nothing, silently",
         QVariant::fromValue(QDBusObjectPath("/a"_s)),
         {},
         Type::String,
         {}},
    };
}
