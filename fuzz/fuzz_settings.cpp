// SPDX-License-Identifier: Apache-2.0

// The input holds settings as texts, as the configuration service keeps them and as
// clients write them, and what else becomes of the log files in between. Conversions
// are compared with the C library's and with plain rules; which files there are, with
// a set of numbers.

#include "binlog/binaryloginterface.h"
#include "catalog/systemeventcatalogue.h"
#include "checks.h"
#include "input.h"
#include "memoryfolder.h"
#include "support/literals.h"
#include "udp/udploginterface.h"

#include <QVariant>

#include <algorithm>
#include <array>
#include <limits>
#include <memory>
#include <set>

#include <arpa/inet.h>

namespace
{

constexpr int mostSteps = 24;
constexpr int defaultLogtail = 10;

const MemoryFolder &folder()
{
    static const MemoryFolder onlyOne;
    return onlyOne;
}

//! A text as a bus carries it: without the character of code 0.
QString takeText(Input &input)
{
    return input.shortText().remove(QChar(0));
}

bool isAscii(const QString &text)
{
    return std::all_of(text.cbegin(), text.cend(), [](QChar c) { return c.unicode() < 0x80; });
}

//! A switch is off for nothing, "0" and "false" in any case.
void checkSwitch(const QString &text)
{
    const bool off
        = text.isEmpty() || text == "0"_s || text.compare("false"_s, Qt::CaseInsensitive) == 0;
    if (isAscii(text)) {
        require(QVariant(text).toBool() == !off, "a switch by its text");
    } else {
        (void)QVariant(text).toBool(); // letters of other scripts are Qt's
    }
}

//! Digits with a sign in front and blanks around; 0 for anything else and beyond 32 bits.
int plainNumber(const QString &text)
{
    QString digits = text.trimmed();
    const bool isNegative = digits.startsWith(QLatin1Char('-'));
    if (isNegative || digits.startsWith(QLatin1Char('+'))) {
        digits.remove(0, 1);
    }
    qint64 number = 0;
    for (const QChar digit : digits) {
        if (digit < QLatin1Char('0') || digit > QLatin1Char('9')) {
            return 0;
        }
        number = std::min<qint64>(number * 10 + digit.unicode() - '0', Q_INT64_C(1) << 40);
    }
    number = isNegative ? -number : number;
    return number == qint32(number) ? int(number) : 0;
}

int takeNumber(const QString &text)
{
    const int number = text.toInt();
    if (isAscii(text)) {
        require(number == plainNumber(text), "a number by its text");
    }
    return number;
}

//! The bytes of an address by the C library; empty where it takes the text for none.
QByteArray addressBytes(int family, const QString &text)
{
    std::array<char, 16> bytes{};
    const QByteArray utf8 = text.toUtf8();
    const bool hasZero = utf8.contains('\0');
    const bool isAddress = !hasZero && inet_pton(family, utf8.constData(), bytes.data()) == 1;
    return isAddress ? QByteArray(bytes.data(), family == AF_INET ? 4 : 16) : QByteArray();
}

void checkAddress(UdpLogInterface &udp, const QString &text)
{
    const bool isTaken = udp.setAddress(text);
    const QString address = udp.getAddress();
    require(isTaken == !address.isEmpty(), "a text that is no address leaves none");
    for (const int family : {AF_INET, AF_INET6}) {
        const QByteArray bytes = addressBytes(family, text);
        require(bytes.isEmpty() || addressBytes(family, address) == bytes,
                "an address stays the same address");
    }
    // What is stored is loaded at the next start.
    require(udp.setAddress(address) == isTaken, "a stored address is one");
    requireEqual(address, udp.getAddress(), "a stored address stays as it is");
}

void checkLanguage(UdpLogInterface &udp, const QString &lang)
{
    udp.setLanguage(lang);
    requireEqual(lang, udp.getLanguage(), "language");
    SystemeventDescription event(7, "event"_s, "info"_s, "service"_s);
    event.descriptions.insert("en"_s, "English"_s);
    requireEqual("English"_s, event.description(lang), "English where there is nothing else");
    event.descriptions.insert(lang, "own"_s);
    requireEqual("own"_s, event.description(lang), "a text of one's own");
}

//! The log files of a device, and which there have to be.
class PlacedFiles
{
public:
    explicit PlacedFiles(Input &input)
    {
        folder().clear();
        for (int count = input.below(8); count > 0; --count) {
            const int index = input.below(20);
            folder().write("zib%1.log"_s.arg(index), "x");
            indexes.insert(index);
        }
        constexpr uint noBundle = 0;     // every record is written at once
        constexpr uint smallestFile = 1; // and fills its file
        log = std::make_unique<BinaryLogInterface>(noBundle, 3600, defaultLogtail, smallestFile,
                                                   folder().dir());
        if (indexes.count(0) > 0) {
            rotated();
        }
        indexes.insert(0);
        check();
    }

    void setLogtail(int n)
    {
        log->setLogtail(n);
        if (n >= 1) {
            if (n < logtail) {
                erase(n + 1, logtail);
            }
            logtail = n;
        }
        require(log->getLogtail() == logtail, "a logtail below 1 is ignored");
        check();
    }
    void logEvent()
    {
        log->logEvent(1, {"/power/supply"_s});
        rotated();
        check();
    }
    void clear()
    {
        log->clearLogfiles();
        erase(0, logtail);
        indexes.insert(0);
        check();
    }

private:
    void erase(int lowest, int highest)
    {
        indexes.erase(indexes.lower_bound(lowest), indexes.upper_bound(highest));
    }
    void rotated()
    {
        erase(logtail, logtail);
        std::set<int> moved{0};
        for (const int index : indexes) {
            moved.insert(index < logtail ? index + 1 : index);
        }
        indexes = moved;
    }
    void check() const
    {
        const QList<int> present = folder().logFiles().keys();
        require(std::equal(present.cbegin(), present.cend(), indexes.cbegin(), indexes.cend()),
                "the files that there have to be");
    }

    std::unique_ptr<BinaryLogInterface> log;
    std::set<int> indexes;
    int logtail = defaultLogtail;
};

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    prepare();
    static const SystemeventCatalogue catalogue;
    Input input(data, size);
    UdpLogInterface udp(&catalogue);
    PlacedFiles files(input);
    for (int step = 0; step < mostSteps && !input.atEnd(); ++step) {
        switch (input.below(6)) {
        case 0:
            checkSwitch(takeText(input));
            break;
        case 1:
            files.setLogtail(takeNumber(takeText(input)));
            break;
        case 2:
            checkAddress(udp, takeText(input));
            break;
        case 3:
            checkLanguage(udp, takeText(input));
            break;
        case 4:
            files.logEvent();
            break;
        default:
            files.clear();
        }
    }
    return 0;
}
