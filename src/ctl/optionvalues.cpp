// SPDX-License-Identifier: Apache-2.0
#include "ctl/optionvalues.h"

#include "ctl/glob.h"

#include <charconv>
#include <limits>
#include <optional>
#include <string_view>
#include <system_error>

namespace OptionValues
{
namespace
{

constexpr std::string_view dots = "..";

template <typename Integer>
std::optional<Integer> integer(std::string_view text)
{
    Integer value = 0;
    const char *const end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, value);
    return read.ec == std::errc() && read.ptr == end ? std::optional(value) : std::nullopt;
}

//! Both sides of the dots; nothing where there are none, or nothing beside them.
std::optional<std::pair<std::string_view, std::string_view>> sides(std::string_view text)
{
    const size_t middle = text.find(dots);
    if (middle == std::string_view::npos || text.size() == dots.size()) {
        return std::nullopt;
    }
    return std::pair(text.substr(0, middle), text.substr(middle + dots.size()));
}

std::optional<LevelChoice> level(std::string_view text)
{
    if (text.empty()) {
        return std::nullopt;
    }
    if (const std::optional<int> byNumber = integer<int>(text)) {
        return LevelChoice(*byNumber);
    }
    return LevelChoice(QString::fromUtf8(text.data(), int(text.size())));
}

} // namespace

void refuse(const char *option, const std::string &text, const std::string &accepted)
{
    throw WrongUsage{std::string(option) + ": \"" + text + "\" is none of: " + accepted};
}

quint64 number(const char *option, const std::string &text, quint64 least, quint64 most)
{
    const std::optional<quint64> value = integer<quint64>(text);
    if (!value || *value < least || *value > most) {
        throw WrongUsage{std::string(option) + ": \"" + text + "\" is no number from "
                         + std::to_string(least) + " to " + std::to_string(most)};
    }
    return *value;
}

Archive::NumberRange numberRange(const char *option, const std::string &text)
{
    constexpr quint64 highest = std::numeric_limits<quint64>::max();
    Archive::NumberRange range{0, highest};
    bool isRange = false;
    if (const auto found = sides(text)) {
        const std::optional<quint64> first = integer<quint64>(found->first);
        const std::optional<quint64> last = integer<quint64>(found->second);
        isRange = (first || found->first.empty()) && (last || found->second.empty());
        range = {first.value_or(0), last.value_or(highest)};
    } else if (const std::optional<quint64> only = integer<quint64>(text)) {
        isRange = true;
        range = {*only, *only};
    }
    if (!isRange || range.first > range.last) {
        throw WrongUsage{std::string(option) + ": \"" + text
                         + "\" is no range of numbers such as 12..34, 12.., ..34 or 12"};
    }
    return range;
}

LevelRange levelRange(const char *option, const std::string &text)
{
    if (text.empty() || text == dots) {
        throw WrongUsage{std::string(option) + ": \"" + text
                         + "\" is no level, by name or number, and no range such as A..B"};
    }
    const auto found = sides(text);
    return found ? LevelRange{level(found->first), level(found->second)}
                 : LevelRange{std::nullopt, level(text)};
}

EventChoice event(const char *option, const std::string &text)
{
    // Ids are 32 bits wide: catalogues write them without a sign, records with one.
    const std::optional<qint64> id = integer<qint64>(text);
    if (id && *id >= std::numeric_limits<qint32>::min()
        && *id <= std::numeric_limits<quint32>::max()) {
        return qint32(*id);
    }
    if (id || text.empty()) {
        throw WrongUsage{std::string(option) + ": \"" + text
                         + "\" is neither the id of an event nor its name in the catalogue"};
    }
    return QString::fromStdString(text);
}

Instant time(const char *option, const std::string &text, const Instant &now,
             TimePoint::Reading reading)
{
    const std::optional<Instant> found = TimePoint::read(text, now, reading);
    if (!found) {
        throw WrongUsage{std::string(option) + ": \"" + text
                         + "\" is no time; such are: " + TimePoint::accepted};
    }
    return *found;
}

QRegularExpression expression(const char *option, const std::string &text)
{
    QRegularExpression found(QString::fromStdString(text),
                             QRegularExpression::UseUnicodePropertiesOption
                                 | QRegularExpression::DontCaptureOption);
    if (!found.isValid()) {
        throw WrongUsage{std::string(option) + ": \"" + text
                         + "\" is no Perl-compatible expression: "
                         + found.errorString().toStdString() + ", at character "
                         + std::to_string(found.patternErrorOffset() + 1)};
    }
    return found;
}

std::string pattern(const char *option, const std::string &text)
{
    if (!Glob::isValid(text)) {
        throw WrongUsage{std::string(option) + ": \"" + text
                         + "\" is no pattern: * stands for any text, ? for one character, "
                           "[a-z] for one of several"};
    }
    return text;
}

} // namespace OptionValues
