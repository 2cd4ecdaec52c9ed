// SPDX-License-Identifier: Apache-2.0
#include "logformat/plausibility.h"

#include "logformat/bytesource.h"
#include "logformat/logformat.h"
#include "logformat/storedvalue.h"

namespace LogFormat
{
namespace
{

constexpr quint64 highestLogNr = (quint64(1) << 53) - 1; // at 1,000 events a second 285,000 years
constexpr quint64 lastSecond = 253402300799;             // 9999-12-31T23:59:59Z
constexpr quint32 microsecondsASecond = 1000000;

bool isPathCharacter(char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
}

Flaw numbersFlaw(const RecordHead &head)
{
    if (head.logNr < 1 || head.logNr > highestLogNr) {
        return Flaw::LogNr;
    }
    const bool isTime = head.seconds <= lastSecond && head.microseconds < microsecondsASecond;
    return isTime ? Flaw::None : Flaw::Time;
}

Flaw pathFlaw(ByteSource &in)
{
    const StoredValue path = readValue(in, ArgumentType::String);
    if (!path.isWhole()) {
        return Flaw::PathLength;
    }
    return isObjectPath(path.bytes) ? Flaw::None : Flaw::Path;
}

} // namespace

bool isObjectPath(std::string_view text)
{
    if (text.empty() || text.front() != '/') {
        return false;
    }
    char before = '/';
    for (const char c : text.substr(1)) {
        if (c == '/' ? before == '/' : !isPathCharacter(c)) {
            return false;
        }
        before = c;
    }
    return text.size() == 1 || before != '/';
}

Flaw recordFlaw(std::string_view record)
{
    const auto size = qint64(record.size());
    if (size < minRecordSize) {
        return Flaw::Size;
    }
    const qint64 counted = size - trailerSize;
    if (record[size_t(counted - 1)] != endMark) {
        return Flaw::EndMark;
    }
    ByteSource whole(record);
    seek(whole, counted);
    if (readNumber<quint16>(whole) != counted % lengthModulus) {
        return Flaw::Trailer;
    }
    return headFlaw(record.substr(0, size_t(counted - 1)));
}

Flaw headFlaw(std::string_view bytes)
{
    if (qint64(bytes.size()) < valuesOffset) {
        return Flaw::Size;
    }
    ByteSource in(bytes);
    const RecordHead head = readHead(in, 0);
    const Flaw flaw = numbersFlaw(head);
    if (flaw != Flaw::None) {
        return flaw;
    }
    seek(in, paddingOffset);
    if (readNumber<quint32>(in) != 0) {
        return Flaw::Padding;
    }
    seek(in, valuesOffset);
    return pathFlaw(in);
}

} // namespace LogFormat
