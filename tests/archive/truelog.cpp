// SPDX-License-Identifier: Apache-2.0
#include "truelog.h"

#include "support/literals.h"
#include "support/recordbytes.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace
{

using RecordBytes::number;
using RecordBytes::sized;

SystemeventCatalogue describeEvents()
{
    SystemeventCatalogue catalogue;
    const auto describe = [&catalogue](uint id, const QList<int> &types) {
        SystemeventDescription event(id, "event"_s, "warning"_s, "service"_s);
        for (const int type : types) {
            event.arguments.append(SystemeventArgument("value"_s, type));
        }
        catalogue.events.insert(id, event);
    };
    namespace Type = ArgumentType;
    describe(1001, {Type::Bool, Type::Int32, Type::Double, Type::String});
    describe(1002, {Type::String});
    describe(1003, {});
    describe(1004, {Type::Variant});
    describe(1005, {Type::Int64, Type::Byte});
    describe(1006, {Type::Enum, Type::String, Type::Int16});
    describe(1007, {Type::Int32}); // a service that sends a text instead
    describe(1008, {Type::UInt64, Type::Int32});
    return catalogue;
}

QByteArray real(double value)
{
    quint64 bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return number(bits, 8);
}

} // namespace

const SystemeventCatalogue &TrueLog::catalogue()
{
    static const SystemeventCatalogue described = describeEvents();
    return described;
}

TrueLog::TrueLog(Dice &throws, Content content, int size)
    : dice(throws)
    , logNr(quint64(dice.between(1, 100000)))
{
    while (int(all.size()) < size) {
        logNr += dice.chance(1) ? quint64(dice.between(2, 40)) : 1;
        seconds += dice.below(5);
        const QByteArray made = record(content);
        originals += made;
        const int begin = int(all.size());
        for (const char c : made) {
            all.push_back({c, false, int(all.size())});
        }
        records.push_back({begin, int(all.size()), logNr});
    }
}

QByteArray TrueLog::text(int most)
{
    static const QList<QByteArray> pieces{"a", "supply", " ", "Tür", "€", "\n", "\t", "0", "😀"};
    QByteArray result;
    const int size = dice.below(most);
    while (result.size() < size) {
        result += dice.oneOf(pieces);
    }
    return result;
}

//! A whole record, of a number that an attacker guesses, in bytes of his choice.
QByteArray TrueLog::spelt()
{
    RecordBytes::Fields fields;
    fields.logNr
        = dice.chance(50) ? logNr + quint64(dice.below(4)) : quint64(dice.between(1, 200000));
    fields.seconds = seconds;
    fields.path = "/forged";
    fields.eventId = dice.between(1001, 1008);
    fields.values = fields.eventId == 1003 ? QByteArray() : sized("forged");
    return RecordBytes::record(fields);
}

QByteArray TrueLog::record(Content content)
{
    static const QList<QByteArray> paths{"/power/supply", "/ui", "/", "/net/eth0", "/sensor/1"};
    RecordBytes::Fields fields;
    fields.logNr = logNr;
    fields.seconds = seconds;
    fields.microseconds = dice.below(1000000);
    fields.path = dice.oneOf(paths);
    const int often = content == Content::LongRecords ? 5 : 15; // in a hundred
    if (!dice.chance(often) || !makeSpecial(content, fields)) {
        fields.eventId = dice.between(1001, 1008);
        fields.values = values(fields.eventId);
    }
    if (content == Content::UnknownEvents) {
        fields.eventId += 5000;
    }
    return RecordBytes::record(fields);
}

bool TrueLog::makeSpecial(Content content, RecordBytes::Fields &fields)
{
    switch (content) {
    case Content::Mixed:
    case Content::UnknownEvents:
        return false;
    case Content::HostileTexts:
        fields.eventId = 1002;
        fields.values = sized(hostileText());
        break;
    case Content::SpeltInDoubles:
        fields.eventId = dice.chance(50) ? 1003 : 1005;
        fields.values = fields.eventId == 1003 ? QByteArray() : number(5, 8) + "A";
        fields.values += QByteArray(dice.below(8), 'x');
        for (int i = dice.between(1, 2); i > 0; --i) {
            fields.values += spelt();
        }
        fields.values += QByteArray(dice.below(16), 'y');
        break;
    case Content::SpeltInIntegers:
        fields.eventId = 1008; // declared as two integers, and all the others are surplus
        fields.values = number(1, 4) + spelt();
        fields.values += QByteArray((4 - int(fields.values.size()) % 4) % 4, '\0');
        break;
    case Content::LongRecords:
        fields.eventId = 1002;
        const QByteArray longText(dice.between(65500, 200000), 'x');
        fields.values = number(quint64(longText.size()) % 65536, 2) + longText;
    }
    return true;
}

//! A text that is full of what looks like ends of records.
QByteArray TrueLog::hostileText()
{
    QByteArray hostile = text(30);
    for (int i = dice.below(60); i > 0; --i) {
        hostile += '\n';
        hostile += char(dice.between(33, 126));
        hostile += char(dice.between(1, 3));
        hostile += "/a/b";
    }
    return hostile;
}

QByteArray TrueLog::values(int eventId)
{
    switch (eventId) {
    case 1001:
        return number(1, 1) + number(quint64(dice.below(1000)), 4) + real(11.5) + sized(text(40));
    case 1002:
        return sized(text(dice.chance(5) ? 3000 : 200));
    case 1003:
        return {};
    case 1004:
        return dice.chance(50) ? number(3, 2) + number(7, 4) : number(8, 2) + sized(text(20));
    case 1005:
        return number(dice.bits() >> 33, 8) + "A";
    case 1006: {
        QByteArray some = dice.chance(50) ? number(2, 1) : number(2, 4);
        some += sized(text(20));
        return dice.chance(50) ? some + number(7, 4) : some;
    }
    case 1007:
        return sized(text(9));
    default:
        return number(9, 4);
    }
}

QByteArray TrueLog::original(size_t index) const
{
    const Written &record = records.at(index);
    return originals.mid(record.begin, record.end - record.begin);
}

QByteArray TrueLog::bytes() const
{
    QByteArray result;
    result.reserve(size());
    for (const Byte &byte : all) {
        result.append(byte.value);
    }
    return result;
}

std::vector<TrueLog::Byte> TrueLog::strangers(const QByteArray &bytes)
{
    std::vector<Byte> result;
    for (const char c : bytes) {
        result.push_back({c, true, -1});
    }
    return result;
}

void TrueLog::flipBit(int bit)
{
    Byte &byte = all.at(size_t(bit / 8));
    byte.value = char(byte.value ^ (1 << bit % 8));
    byte.isTouched = true;
}

void TrueLog::put(int at, const QByteArray &wrong)
{
    for (const char c : wrong) {
        Byte &byte = all.at(size_t(at++));
        byte.isTouched = byte.isTouched || byte.value != c;
        byte.value = c;
    }
}

void TrueLog::insert(int at, const QByteArray &strange)
{
    const std::vector<Byte> added = strangers(strange);
    all.insert(all.begin() + at, added.begin(), added.end());
}

void TrueLog::remove(int at, int count)
{
    all.erase(all.begin() + at, all.begin() + at + count);
}

void TrueLog::copy(int from, int count, int to)
{
    const std::vector<Byte> copied(all.begin() + from, all.begin() + from + count);
    all.insert(all.begin() + to, copied.begin(), copied.end());
}

void TrueLog::copyOver(int from, int count, int to)
{
    const std::vector<Byte> copied(all.begin() + from, all.begin() + from + count);
    std::copy(copied.begin(), copied.end(), all.begin() + to);
}

void TrueLog::swap(int one, int other, int count)
{
    std::swap_ranges(all.begin() + one, all.begin() + one + count, all.begin() + other);
}

std::vector<std::vector<int>> TrueLog::places() const
{
    std::vector<std::vector<int>> result(records.size());
    for (int at = 0; at < size();) {
        int end = at; // of bytes that stand in a row as they did
        while (end < size() && !all[size_t(end)].isTouched
               && all[size_t(end)].origin == all[size_t(at)].origin + (end - at)) {
            ++end;
        }
        if (end == at) {
            ++at;
            continue;
        }
        const int origin = all[size_t(at)].origin;
        auto record = std::lower_bound(
            records.begin(), records.end(), origin,
            [](const Written &each, int position) { return each.begin < position; });
        for (; record != records.end() && record->end <= origin + (end - at); ++record) {
            result[size_t(record - records.begin())].push_back(at + record->begin - origin);
        }
        at = end;
    }
    return result;
}

bool TrueLog::isBeginning(int at) const
{
    const int origin = all.at(size_t(at)).origin;
    const auto record
        = std::lower_bound(records.begin(), records.end(), origin,
                           [](const Written &each, int position) { return each.begin < position; });
    return record != records.end() && record->begin == origin;
}
