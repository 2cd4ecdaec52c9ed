// SPDX-License-Identifier: Apache-2.0
#include "ctl/livefit.h"

#include <limits>
#include <optional>

namespace
{

constexpr int longestText = 65535; // bytes; its length is stored modulo 65536

//! What one argument gets.
struct Sent {
    const SystemeventArgument &argument;
    const BusValue &value;
    bool isLast = false;

    [[nodiscard]] bool is(std::string_view type) const { return value.type == type; }
};

//! Of what is read back as the number it is: "i" and "u", which have the same bytes.
std::optional<qint64> smallNumber(const Sent &sent)
{
    return sent.is("i") || sent.is("u") ? std::optional<qint64>(sent.value.value.toLongLong())
                                        : std::nullopt;
}

QString within(qint64 number, qint64 lowest, qint64 highest)
{
    return number >= lowest && number <= highest
        ? QString()
        : QStringLiteral("%1 is not kept, but only numbers from %2 to %3")
              .arg(number)
              .arg(lowest)
              .arg(highest);
}

QString sentAsOther(const Sent &sent)
{
    return QStringLiteral("it is declared as %1 and sent as %2")
        .arg(typeName(sent.argument.type), QString::fromStdString(sent.value.type));
}

QString fitOfType(const Sent &sent, std::string_view type)
{
    return sent.is(type) ? QString() : sentAsOther(sent);
}

//! Of 64 bits the log keeps the low 32, with their sign.
QString fitOfLong(const Sent &sent, qint64 lowest)
{
    return sent.is("x")
        ? within(sent.value.value.toLongLong(), lowest, std::numeric_limits<qint32>::max())
        : sentAsOther(sent);
}

//! Of what is read of the first bytes of a number.
QString fitOfShort(const Sent &sent, qint64 lowest, qint64 highest)
{
    const std::optional<qint64> number = smallNumber(sent);
    if (!number) {
        return sentAsOther(sent);
    }
    return sent.isLast ? within(*number, lowest, highest)
                       : sentAsOther(sent) + QStringLiteral(", which fits the last argument alone");
}

QString fitOfText(const QString &text)
{
    return text.toUtf8().size() <= longestText
        ? QString()
        : QStringLiteral("a text of more than %1 bytes is not kept whole").arg(longestText);
}

QString fitOfEnum(const Sent &sent, const SystemeventCatalogue &catalogue)
{
    constexpr qint64 highest = 255;
    QString flaw = sent.is("b") ? QString() : fitOfShort(sent, 0, highest);
    if (!flaw.isEmpty()) {
        return flaw;
    }
    const int item = sent.value.value.toInt();
    return catalogue.enumText(sent.argument.enumName, item).isNull()
        ? QStringLiteral("%1 is no item of the enum %2").arg(item).arg(sent.argument.enumName)
        : QString();
}

QString fitOfVariant(const Sent &sent)
{
    constexpr qint64 lowest = std::numeric_limits<qint32>::min();
    constexpr qint64 highest = std::numeric_limits<qint32>::max();
    const std::string &type = sent.value.type;
    if (type == "vs") {
        return fitOfText(sent.value.value.toString());
    }
    if (type == "vi" || type == "vu" || type == "vx") {
        return within(sent.value.value.toLongLong(), lowest, highest);
    }
    return type == "vb" || type == "vd" ? QString() : sentAsOther(sent);
}

QString fitOf(const Sent &sent, const SystemeventCatalogue &catalogue)
{
    using Int16 = std::numeric_limits<qint16>;
    using Int32 = std::numeric_limits<qint32>;
    switch (ArgumentType::Code(sent.argument.type)) {
    case ArgumentType::Bool:
        return fitOfType(sent, "b");
    case ArgumentType::Byte:
        return fitOfShort(sent, 0, std::numeric_limits<quint8>::max());
    case ArgumentType::Int16:
        return fitOfShort(sent, Int16::min(), Int16::max());
    case ArgumentType::Int32:
        return smallNumber(sent) ? within(*smallNumber(sent), Int32::min(), Int32::max())
                                 : sentAsOther(sent);
    case ArgumentType::Int64:
        return fitOfLong(sent, Int32::min());
    case ArgumentType::UInt64:
        return fitOfLong(sent, 0);
    case ArgumentType::Double:
        return fitOfType(sent, "d");
    case ArgumentType::String:
    case ArgumentType::ByteArray:
        return sent.is("s") ? fitOfText(sent.value.value.toString()) : sentAsOther(sent);
    case ArgumentType::Variant:
        return fitOfVariant(sent);
    case ArgumentType::Enum:
        return fitOfEnum(sent, catalogue);
    case ArgumentType::Float:
    case ArgumentType::Unknown:
        break;
    }
    return sentAsOther(sent); // nothing fits
}

} // namespace

QString misfit(const SystemeventDescription &event, const SystemeventCatalogue &catalogue,
               const std::vector<BusValue> &values)
{
    if (values.size() != size_t(event.arguments.size())) {
        return QStringLiteral("%1 values are declared, and %2%3 sent")
            .arg(event.arguments.size())
            .arg(values.size())
            .arg(values.size() < mostLiveValues ? QString() : QStringLiteral(" or more"));
    }
    for (size_t i = 0; i < values.size(); ++i) {
        const SystemeventArgument &argument = event.arguments.at(int(i));
        const QString flaw = fitOf({argument, values[i], i + 1 == values.size()}, catalogue);
        if (!flaw.isEmpty()) {
            return argument.name + QStringLiteral(": ") + flaw;
        }
    }
    return {};
}
