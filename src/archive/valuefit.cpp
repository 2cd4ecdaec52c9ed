// SPDX-License-Identifier: Apache-2.0
#include "archive/valuefit.h"

#include "catalog/systemeventcatalogue.h"
#include "logformat/storedvalue.h"

#include <algorithm>
#include <iterator>

namespace Archive
{
namespace
{

unsigned byteAt(std::string_view bytes, size_t index)
{
    return static_cast<unsigned char>(bytes[index]);
}

bool isContinuation(unsigned byte)
{
    return (byte & 0xC0U) == 0x80U;
}

//! How many bytes a character has by its first one; 0 where that begins none.
size_t sequenceSize(unsigned first)
{
    if (first < 0x80) {
        return 1;
    }
    if (first < 0xC2) {
        return 0;
    }
    if (first < 0xE0) {
        return 2;
    }
    if (first < 0xF0) {
        return 3;
    }
    return first < 0xF5 ? 4 : 0;
}

//! Whether a second byte makes what is overlong, half of a pair or above U+10FFFF.
bool isForbidden(unsigned first, unsigned second)
{
    return (first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F)
        || (first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F);
}

//! The size of the character that the bytes begin with; 0 where that is none of a text.
size_t characterSize(std::string_view bytes)
{
    const unsigned first = byteAt(bytes, 0);
    const size_t size = first == 0 ? 0 : sequenceSize(first);
    if (size > bytes.size()) {
        return 0;
    }
    for (size_t i = 1; i < size; ++i) {
        if (!isContinuation(byteAt(bytes, i))) {
            return 0;
        }
    }
    return size > 1 && isForbidden(first, byteAt(bytes, 1)) ? 0 : size;
}

// As what a declared value may stand in a file.
constexpr int nothing = -2;
using Forms = std::array<int, 3>;

//! Unused forms are the declared one once more.
Forms formsOf(int type)
{
    switch (type) {
    case ArgumentType::Enum:
        return {type, ArgumentType::Int32, type};
    case ArgumentType::Byte:
    case ArgumentType::Int16:
        return {type, ArgumentType::Int32, nothing};
    case ArgumentType::UInt64:
    case ArgumentType::Float:
    case ArgumentType::ByteArray:
        return {type, nothing, type};
    default:
        return {type, type, type};
    }
}

//! Reads value after value, from all the places where one may begin.
class EndFinder
{
public:
    EndFinder(std::string_view bytes, const TextCheck &check)
        : values(bytes)
        , text(check)
    {
        result.isKnown = true;
        result.count = 1;
    }

    ValueEnds find(const std::vector<int> &types)
    {
        for (const int type : types) {
            if (result.isOpen || result.count == 0) {
                break;
            }
            readAll(type);
        }
        return result;
    }

private:
    void readAll(int type)
    {
        const ValueEnds before = result;
        result.count = 0;
        const Forms forms = formsOf(type);
        for (size_t i = 0; i < forms.size(); ++i) {
            if (i > 0 && forms.at(i) == type) {
                continue;
            }
            for (size_t each = 0; each < before.count; ++each) {
                readOne(before.ends.at(each), forms.at(i));
            }
        }
    }

    void readOne(ValueEnds::End end, int form)
    {
        if (form == nothing) {
            add(end);
            return;
        }
        ByteSource in(values);
        in.seek(end.offset);
        const StoredValue value = LogFormat::readValue(in, form);
        if (value.state == StoredValue::State::TooShort) {
            return;
        }
        result.isOpen = result.isOpen || !value.isWhole();
        end.offset = qint32(in.position());
        end.isBroken = end.isBroken
            || (value.isWhole() && value.type == ArgumentType::String && !text.isText(value.bytes));
        add(end);
    }

    void add(ValueEnds::End end)
    {
        const auto known = result.ends.begin() + result.count;
        const auto same
            = std::find_if(result.ends.begin(), known,
                           [end](const ValueEnds::End &each) { return each.offset == end.offset; });
        if (same != known) {
            same->isBroken = same->isBroken && end.isBroken;
        } else if (result.count < ValueEnds::most) {
            result.ends.at(result.count++) = end;
        }
    }

    std::string_view values;
    const TextCheck &text;
    ValueEnds result;
};

} // namespace

TextCheck::~TextCheck() = default;

bool TextCheck::isText(std::string_view bytes) const
{
    while (!bytes.empty()) {
        const size_t size = characterSize(bytes);
        if (size == 0) {
            return false;
        }
        bytes.remove_prefix(size);
    }
    return true;
}

IndexedTextCheck::IndexedTextCheck(std::string_view bytes)
    : all(bytes)
{
    for (size_t at = 0; at < bytes.size();) {
        const size_t size = characterSize(bytes.substr(at));
        if (size == 0) {
            wrong.push_back(quint32(at));
        }
        at += std::max<size_t>(size, 1);
    }
}

bool IndexedTextCheck::isText(std::string_view bytes) const
{
    if (bytes.empty()) {
        return true;
    }
    const auto begin = quint32(bytes.data() - all.data());
    const auto next = std::lower_bound(wrong.begin(), wrong.end(), begin);
    if ((next != wrong.end() && *next < begin + bytes.size()) || isContinuation(byteAt(bytes, 0))) {
        return false;
    }
    // The last character may go on behind the text.
    size_t last = bytes.size() - 1;
    while (last > 0 && isContinuation(byteAt(bytes, last))) {
        --last;
    }
    return last + sequenceSize(byteAt(bytes, last)) == bytes.size();
}

Fit ValueEnds::fitOf(qint64 valuesSize) const
{
    // Of a longer record the lengths of texts may be cut.
    constexpr qint64 longest = 65535;
    if (!isKnown || valuesSize > longest) {
        return Fit::Unknown;
    }
    Fit best = Fit::Contradictory;
    for (size_t i = 0; i < count; ++i) {
        const End &end = ends.at(i);
        const bool isExact = end.offset == valuesSize && !isOpen;
        if (end.offset <= valuesSize) {
            best = std::min(best, !isExact ? Fit::Loose : end.isBroken ? Fit::Broken : Fit::Exact);
        }
    }
    return best;
}

EventTypes eventTypes(const SystemeventCatalogue *catalogue)
{
    EventTypes types;
    if (!catalogue) {
        return types;
    }
    for (const SystemeventDescription &event : catalogue->events) {
        std::vector<int> &ofEvent = types[qint32(event.id)];
        std::transform(event.arguments.begin(), event.arguments.end(), std::back_inserter(ofEvent),
                       [](const SystemeventArgument &argument) { return argument.type; });
    }
    return types;
}

ValueEnds ValueFit::endsOf(qint32 eventId, std::string_view values, const TextCheck &text) const
{
    const auto event = events.find(eventId);
    return event != events.end() ? EndFinder(values, text).find(event->second) : ValueEnds();
}

void ValueFit::learn(qint32 eventId, Fit fit)
{
    if (fit != Fit::Unknown) {
        Count &count = counts[eventId];
        ++(fit == Fit::Exact || fit == Fit::Loose ? count.fitting : count.others);
    }
}

ValueFit::Count ValueFit::countOf(qint32 eventId) const
{
    const auto count = counts.find(eventId);
    return count != counts.end() ? count->second : Count();
}

bool ValueFit::isBelieved(qint32 eventId) const
{
    const Count count = countOf(eventId);
    return count.fitting >= count.others;
}

bool ValueFit::isCertain(qint32 eventId) const
{
    constexpr quint64 needed = 16; // that fit, for each that does not
    const Count count = countOf(eventId);
    return count.fitting >= needed * (count.others + 1);
}

} // namespace Archive
