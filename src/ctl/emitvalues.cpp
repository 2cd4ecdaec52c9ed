// SPDX-License-Identifier: Apache-2.0
#include "ctl/emitvalues.h"

#include "archive/valuefit.h"
#include "ctl/declaredevents.h"

#include <QStringList>

#include <algorithm>
#include <charconv>
#include <limits>
#include <optional>
#include <string_view>

namespace EmitValues
{
namespace
{

//! What the length in front of a text in a record can say.
constexpr int longestText = 65535;

//! A value, or why there is none.
struct Made {
    BusValue value;
    QString refusal;
};

Made made(const char *type, const QVariant &value)
{
    return {{type, value}, {}};
}

Made refuse(const QString &reason)
{
    return {{}, reason};
}

std::optional<bool> switchOf(const QByteArray &typed)
{
    if (typed == "true" || typed == "1") {
        return true;
    }
    if (typed == "false" || typed == "0") {
        return false;
    }
    return std::nullopt;
}

//! A whole number of the type, in decimal and without blanks.
template <typename Number>
std::optional<Number> wholeNumber(const QByteArray &typed)
{
    const std::string_view text(typed.constData(), size_t(typed.size()));
    Number value{};
    const auto read = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || read.ec != std::errc() || read.ptr != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

std::optional<qint64> numberWithin(const QByteArray &typed, qint64 lowest, qint64 highest)
{
    const std::optional<qint64> number = wholeNumber<qint64>(typed);
    return number && *number >= lowest && *number <= highest ? number : std::nullopt;
}

QString notWithin(qint64 lowest, qint64 highest)
{
    return QStringLiteral("it is no whole number from %1 to %2").arg(lowest).arg(highest);
}

std::optional<double> realNumber(const QByteArray &typed)
{
    bool isNumber = false;
    const double value = typed.toDouble(&isNumber);
    const bool isBare = typed == typed.trimmed();
    return isNumber && isBare ? std::optional<double>(value) : std::nullopt;
}

bool isText(const QByteArray &typed)
{
    return Archive::TextCheck().isText({typed.constData(), size_t(typed.size())});
}

QString textOf(const QByteArray &typed)
{
    return QString::fromUtf8(typed.constData(), typed.size());
}

Made text(const char *type, const QByteArray &typed)
{
    if (!isText(typed)) {
        return refuse(QStringLiteral("it is no text in UTF-8"));
    }
    if (typed.size() > longestText) {
        return refuse(
            QStringLiteral("it is longer than the %1 bytes that a record can hold of a text")
                .arg(longestText));
    }
    return made(type, textOf(typed));
}

const char onlyLast[] = "an int takes more bytes than are read, so only the last argument can be";

Made int32(const QByteArray &typed)
{
    constexpr qint64 lowest = std::numeric_limits<qint32>::min();
    constexpr qint64 highest = std::numeric_limits<qint32>::max();
    const auto number = numberWithin(typed, lowest, highest);
    return number ? made("i", int(*number)) : refuse(notWithin(lowest, highest));
}

//! Of 64 bits the log keeps the low 32, with their sign.
Made int64(const QByteArray &typed, qint64 lowest)
{
    constexpr qint64 highest = std::numeric_limits<qint32>::max();
    const auto number = numberWithin(typed, lowest, highest);
    return number ? made("x", qlonglong(*number))
                  : refuse(notWithin(lowest, highest)
                           + QStringLiteral(", which is what the log keeps of 64 bits"));
}

Made int16(const QByteArray &typed, bool isLast)
{
    constexpr qint64 lowest = std::numeric_limits<qint16>::min();
    constexpr qint64 highest = std::numeric_limits<qint16>::max();
    const auto number = numberWithin(typed, lowest, highest);
    if (!number) {
        return refuse(notWithin(lowest, highest));
    }
    return isLast ? made("i", int(*number))
                  : refuse(QLatin1String(onlyLast) + QStringLiteral(" an int16"));
}

//! A number, or a character by itself.
Made byte(const QByteArray &typed, bool isLast)
{
    constexpr qint64 highest = 255;
    auto number = numberWithin(typed, 0, highest);
    const QString character = textOf(typed);
    if (!number && character.size() == 1 && character.front().unicode() <= highest
        && isText(typed)) {
        number = character.front().unicode();
    }
    if (!number) {
        return refuse(notWithin(0, highest) + QStringLiteral(", and no character of Latin-1"));
    }
    return isLast ? made("i", int(*number))
                  : refuse(QLatin1String(onlyLast) + QStringLiteral(" a byte"));
}

QString itemsOf(const QHash<int, QString> &items)
{
    constexpr int most = 20;
    QList<int> numbers = items.keys();
    std::sort(numbers.begin(), numbers.end());
    QStringList shown;
    for (const int number : qAsConst(numbers)) {
        if (shown.size() == most) {
            shown.append(QStringLiteral("…"));
            break;
        }
        shown.append(QStringLiteral("%1 (%2)").arg(QString::number(number), items.value(number)));
    }
    return shown.join(QStringLiteral(", "));
}

//! The number of an item by its number or its text, of several with one text the lowest.
std::optional<int> itemOf(const QHash<int, QString> &items, const QByteArray &typed)
{
    const std::optional<int> number = wholeNumber<int>(typed);
    if (number && items.contains(*number)) {
        return number;
    }
    const QList<int> found = items.keys(textOf(typed));
    const auto lowest = std::min_element(found.begin(), found.end());
    return lowest != found.end() ? std::optional<int>(*lowest) : std::nullopt;
}

Made enumeration(const QHash<int, QString> &items, const QByteArray &typed, bool isLast)
{
    constexpr int highest = 255;
    const std::optional<int> item = itemOf(items, typed);
    if (!item) {
        return refuse(items.isEmpty() ? QStringLiteral("the catalogue has no such enum")
                                      : QStringLiteral("it is none of %1").arg(itemsOf(items)));
    }
    if (isLast && *item >= 0 && *item <= highest) {
        return made("i", *item);
    }
    if (!isLast && (*item == 0 || *item == 1)) {
        return made("b", *item == 1);
    }
    return refuse(isLast ? QStringLiteral("of an enum only the items 0 to 255 are read back")
                         : QLatin1String(onlyLast)
                          + QStringLiteral(" an enum with other items than 0 and 1"));
}

Made variant(const QByteArray &typed)
{
    if (typed == "true" || typed == "false") {
        return made("vb", typed == "true");
    }
    if (const auto number = wholeNumber<qint32>(typed)) {
        return made("vi", int(*number));
    }
    const bool beginsAsNumber
        = !typed.isEmpty() && QByteArray("+-.0123456789").contains(typed.front());
    const std::optional<double> real = realNumber(typed);
    return real && beginsAsNumber ? made("vd", *real) : text("vs", typed);
}

Made byDeclaredType(const SystemeventArgument &argument, const SystemeventCatalogue &catalogue,
                    const QByteArray &typed, bool isLast)
{
    switch (ArgumentType::Code(argument.type)) {
    case ArgumentType::Bool:
        if (const auto isOn = switchOf(typed)) {
            return made("b", *isOn);
        }
        return refuse(QStringLiteral("it is none of true, false, 1, 0"));
    case ArgumentType::Byte:
        return byte(typed, isLast);
    case ArgumentType::Int16:
        return int16(typed, isLast);
    case ArgumentType::Int32:
        return int32(typed);
    case ArgumentType::Int64:
        return int64(typed, std::numeric_limits<qint32>::min());
    case ArgumentType::UInt64:
        return int64(typed, 0);
    case ArgumentType::Double:
        if (const auto real = realNumber(typed)) {
            return made("d", *real);
        }
        return refuse(QStringLiteral("it is no number"));
    case ArgumentType::String:
    case ArgumentType::ByteArray:
        return text("s", typed);
    case ArgumentType::Variant:
        return variant(typed);
    case ArgumentType::Enum:
        return enumeration(catalogue.enums.value(argument.enumName), typed, isLast);
    case ArgumentType::Float:
        return refuse(QStringLiteral("nothing that is sent is read back as a float"));
    case ArgumentType::Unknown:
        break;
    }
    return refuse(QStringLiteral("the catalogue declares no type that is known"));
}

QString shown(const QByteArray &typed)
{
    constexpr int most = 40; // bytes; the rest of it is of no help
    const QString text = textOf(typed.left(most));
    return typed.size() > most ? text + QStringLiteral("…") : text;
}

//! Which value each argument gets; empty, and a refusal, where they cannot be shared out.
std::vector<const QByteArray *> sharedOut(const QList<SystemeventArgument> &arguments,
                                          const QList<QByteArray> &typed,
                                          std::vector<QByteArray> &named, QString &refusal)
{
    const auto count = size_t(arguments.size());
    std::vector<const QByteArray *> shares(count, nullptr);
    named.assign(count, {});
    std::vector<const QByteArray *> unnamed;
    for (const QByteArray &value : typed) {
        const QByteArray name = value.left(std::max(int(value.indexOf('=')), 0));
        const auto argument = std::find_if(arguments.begin(), arguments.end(),
                                           [&name](const SystemeventArgument &each) {
                                               return !name.isEmpty() && each.name.toUtf8() == name;
                                           });
        if (argument == arguments.end()) {
            unnamed.push_back(&value);
            continue;
        }
        const auto place = size_t(argument - arguments.begin());
        if (shares[place]) {
            refusal = QStringLiteral("%1 is given twice").arg(argument->name);
            return {};
        }
        named[place] = value.mid(name.size() + 1);
        shares[place] = &named[place];
    }
    auto next = unnamed.begin();
    for (const QByteArray *&share : shares) {
        if (!share && next != unnamed.end()) {
            share = *next++;
        }
    }
    const bool isShort = std::find(shares.begin(), shares.end(), nullptr) != shares.end();
    if (isShort || next != unnamed.end()) {
        refusal = QStringLiteral("%1 values are declared, and %2 given")
                      .arg(arguments.size())
                      .arg(typed.size());
        return {};
    }
    return shares;
}

//! The first type of a list of types; empty where that is none that can be sent.
std::string_view firstType(std::string_view types)
{
    const size_t variants = std::min(types.find_first_not_of('v'), types.size());
    constexpr size_t mostVariants = 60; // a message nests 64 containers
    const std::string_view rest = types.substr(variants);
    const bool isArray = rest.substr(0, 2) == "ay" || rest.substr(0, 2) == "as";
    const bool isBasic
        = !rest.empty() && std::string_view("bynqiuxtdso").find(rest.front()) != rest.npos;
    if (variants > mostVariants || (!isArray && !isBasic)) {
        return {};
    }
    return types.substr(0, variants + (isArray ? 2 : 1));
}

template <typename Number>
QVariant variantOf(std::optional<Number> number)
{
    return number ? QVariant::fromValue(*number) : QVariant();
}

//! Invalid where what is typed is no value of that type.
QVariant byType(std::string_view type, const QByteArray &typed)
{
    const bool isFit = isText(typed);
    switch (type.front()) {
    case 'b':
        return variantOf(switchOf(typed));
    case 'y':
        return variantOf(wholeNumber<uchar>(typed));
    case 'n':
        return variantOf(wholeNumber<short>(typed));
    case 'q':
        return variantOf(wholeNumber<ushort>(typed));
    case 'i':
        return variantOf(wholeNumber<int>(typed));
    case 'u':
        return variantOf(wholeNumber<uint>(typed));
    case 'x':
        return variantOf(wholeNumber<qlonglong>(typed));
    case 't':
        return variantOf(wholeNumber<qulonglong>(typed));
    case 'd':
        return variantOf(realNumber(typed));
    case 'o':
        return isPath(typed) ? QVariant(textOf(typed)) : QVariant();
    case 'a':
        if (type == "ay") {
            return typed;
        }
        return isFit ? QVariant(QStringList(textOf(typed))) : QVariant();
    default:
        return isFit ? QVariant(textOf(typed)) : QVariant();
    }
}

} // namespace

Result byDeclaration(const SystemeventDescription &event, const SystemeventCatalogue &catalogue,
                     const QList<QByteArray> &typed)
{
    Result result;
    std::vector<QByteArray> named;
    const std::vector<const QByteArray *> shares
        = sharedOut(event.arguments, typed, named, result.refusal);
    for (size_t i = 0; i < shares.size(); ++i) {
        const SystemeventArgument &argument = event.arguments.at(int(i));
        const bool isLast = i + 1 == shares.size();
        const Made value = byDeclaredType(argument, catalogue, *shares[i], isLast);
        if (!value.refusal.isEmpty()) {
            return {{},
                    QStringLiteral("\"%1\" does not fit %2: %3")
                        .arg(shown(*shares[i]), argument.name, value.refusal)};
        }
        result.values.push_back(value.value);
    }
    return result;
}

Result byTypes(const std::string &types, const QList<QByteArray> &typed)
{
    Result result;
    std::string_view rest = types;
    int used = 0;
    for (; !rest.empty(); ++used) {
        const std::string_view type = firstType(rest);
        if (type.empty()) {
            return {{},
                    QStringLiteral("\"%1\" begins with no type that can be sent")
                        .arg(QString::fromUtf8(rest.data(), int(rest.size())))};
        }
        rest.remove_prefix(type.size());
        if (used >= typed.size()) {
            continue;
        }
        BusValue value{std::string(type), {}};
        value.value = byType(value.innermostType(), typed.at(used));
        if (!value.value.isValid()) {
            return {{},
                    QStringLiteral("\"%1\" is no value of the type %2")
                        .arg(shown(typed.at(used)), QString::fromStdString(value.type))};
        }
        result.values.push_back(value);
    }
    if (used != typed.size()) {
        return {
            {},
            QStringLiteral("%1 types are named, and %2 values given").arg(used).arg(typed.size())};
    }
    return result;
}

QString declaration(const SystemeventDescription &event)
{
    return event.name + QLatin1Char('(') + DeclaredEvents::argumentsText(event) + QLatin1Char(')');
}

bool isPath(const QByteArray &text)
{
    constexpr char reserved[] = "/org/freedesktop/DBus/Local"; // the bus hangs up on its users
    if (!text.startsWith('/') || text == reserved) {
        return false;
    }
    char before = '\0';
    for (const char c : text) {
        const bool isNameSign = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z')
            || (c >= '0' && c <= '9') || c == '_';
        if (!isNameSign && (c != '/' || before == '/')) {
            return false;
        }
        before = c;
    }
    return text.size() == 1 || before != '/';
}

} // namespace EmitValues
