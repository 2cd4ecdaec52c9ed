// SPDX-License-Identifier: Apache-2.0

// What is found in damaged log files, kind of damage by kind, and what the daemon's own
// walk finds in them before and after a repair. Ends with a table, in Markdown.
//
// SEL_SALVAGE_CASES is the number of cases for each kind of damage and of log, with a
// catalogue and without one; SEL_SALVAGE_SEED is where they begin. SEL_SALVAGE_SHOW prints
// each case in which not all went well.

#include "archive/archivefolder.h"
#include "archive/repair.h"
#include "support/environment.h"
#include "support/literals.h"
#include "support/logfolder.h"
#include "truelog.h"

#include <QElapsedTimer>
#include <QTest>
#include <QtEndian>

#include <algorithm>
#include <array>
#include <cstdio>
#include <functional>
#include <map>
#include <set>

namespace
{

constexpr int pageSize = 4096;
constexpr int fileSize = 24576; // pages enough, and a case takes milliseconds

using Damage = std::function<void(TrueLog &, Dice &)>;

struct Kind {
    const char *name;
    Damage damage;
    bool isTwice = false; //!< a piece of the file is there twice or elsewhere
};

struct LogKind {
    const char *name;
    TrueLog::Content content;
};

const std::array<LogKind, 6> logKinds{{
    {"mixed events", TrueLog::Content::Mixed},
    {"unknown events", TrueLog::Content::UnknownEvents},
    {"15 % hostile texts", TrueLog::Content::HostileTexts},
    {"15 % with records spelt in doubles", TrueLog::Content::SpeltInDoubles},
    {"15 % with records spelt in integers", TrueLog::Content::SpeltInIntegers},
    {"records over 64 KiB", TrueLog::Content::LongRecords},
}};

struct Counts {
    qint64 cases = 0;
    qint64 untouched = 0;
    qint64 found = 0;    //!< of these
    qint64 invented = 0; //!< records that never were
    qint64 doubtful = 0; //!< such that are only called likely
    qint64 before = 0;   //!< of the untouched ones, what the daemon's walk finds
    qint64 after = 0;    //!< and that after the repair
    qint64 hidden = 0;   //!< records that the repair hides from the walk

    void add(const Counts &other)
    {
        cases += other.cases;
        untouched += other.untouched;
        found += other.found;
        invented += other.invented;
        doubtful += other.doubtful;
        before += other.before;
        after += other.after;
        hidden += other.hidden;
    }
};

//! Flips a bit between two offsets of a record.
Damage flipBetween(int from, int to)
{
    return [from, to](TrueLog &log, Dice &dice) {
        const TrueLog::Written record = dice.oneOf(log.written());
        const int begin = from >= 0 ? record.begin + from : record.end + from;
        const int end = to > 0 ? record.begin + to : record.end + to;
        const int at = begin + dice.below(std::max(end - begin, 1));
        log.flipBit(at % log.size() * 8 + dice.below(8)); // the file may have become shorter
    };
}

QByteArray randomBytes(Dice &dice, int size)
{
    QByteArray bytes(size, '\0');
    for (char &byte : bytes) {
        byte = char(dice.below(256));
    }
    return bytes;
}

int anyPage(const TrueLog &log, Dice &dice)
{
    return dice.below(log.size() / pageSize) * pageSize;
}

int anyPlace(const TrueLog &log, Dice &dice)
{
    return dice.below(log.size());
}

void cut(TrueLog &log, Dice &dice)
{
    const int at = anyPlace(log, dice);
    log.remove(at, log.size() - at);
}

void remove(TrueLog &log, Dice &dice)
{
    const int at = anyPlace(log, dice);
    log.remove(at, std::min(dice.between(1, 100), log.size() - at));
}

void insert(TrueLog &log, Dice &dice)
{
    log.insert(anyPlace(log, dice), randomBytes(dice, dice.between(1, 100)));
}

void zeroPage(TrueLog &log, Dice &dice)
{
    log.put(anyPage(log, dice), QByteArray(pageSize, '\0'));
}

void several(TrueLog &log, Dice &dice)
{
    const std::array<Damage, 7> all{flipBetween(0, 0), flipBetween(-2, 0), remove, insert, cut,
                                    zeroPage,          flipBetween(0, 28)};
    for (int i = dice.between(2, 5); i > 0 && log.size() > 2 * pageSize; --i) {
        dice.oneOf(all)(log, dice);
    }
}

std::vector<Kind> bitKinds()
{
    return {
        {"a bit of a log number", flipBetween(0, 8)},
        {"a bit of a time stamp", flipBetween(8, 20)},
        {"a bit of the padding", flipBetween(20, 24)},
        {"a bit of an event id", flipBetween(24, 28)},
        {"a bit of a path", flipBetween(28, 31)},
        {"a bit of the values", flipBetween(31, -3)},
        {"a bit of an end mark", flipBetween(-3, -2)},
        {"a bit of a length field", flipBetween(-2, 0)},
    };
}

std::vector<Kind> endKinds()
{
    return {
        {"cut off", cut},
        {"cut off, and zeros to the end of the page",
         [](TrueLog &log, Dice &dice) {
             cut(log, dice);
             log.insert(log.size(), QByteArray(pageSize - log.size() % pageSize, '\0'));
         }},
        {"cut off, and random bytes to the end of the page",
         [](TrueLog &log, Dice &dice) {
             cut(log, dice);
             log.insert(log.size(), randomBytes(dice, pageSize - log.size() % pageSize));
         }},
        {"zeros behind the end",
         [](TrueLog &log, Dice &dice) {
             log.insert(log.size(), QByteArray(dice.between(1, pageSize), '\0'));
         }},
        {"random bytes behind the end",
         [](TrueLog &log, Dice &dice) {
             log.insert(log.size(), randomBytes(dice, dice.between(1, 100)));
         }},
        {"the beginning missing",
         [](TrueLog &log, Dice &dice) { log.remove(0, anyPlace(log, dice)); }},
    };
}

std::vector<Kind> pieceKinds()
{
    return {
        {"a page of zeros", zeroPage},
        {"a page of random bytes",
         [](TrueLog &log, Dice &dice) {
             log.put(anyPage(log, dice), randomBytes(dice, pageSize));
         }},
        {"a page missing",
         [](TrueLog &log, Dice &dice) { log.remove(anyPage(log, dice), pageSize); }},
        {"a page doubled",
         [](TrueLog &log, Dice &dice) {
             const int page = anyPage(log, dice);
             log.copy(page, pageSize, page);
         },
         true},
        {"two pages swapped",
         [](TrueLog &log, Dice &dice) {
             log.swap(anyPage(log, dice), anyPage(log, dice), pageSize);
         },
         true},
        {"a page copied over another",
         [](TrueLog &log, Dice &dice) {
             log.copyOver(anyPage(log, dice), pageSize, anyPage(log, dice));
         },
         true},
        {"bytes inserted", insert},
        {"bytes removed", remove},
        {"bytes doubled",
         [](TrueLog &log, Dice &dice) {
             const int at = anyPlace(log, dice);
             log.copy(at, std::min(dice.between(1, 100), log.size() - at), at);
         },
         true},
        {"the file repeated",
         [](TrueLog &log, Dice & /*dice*/) { log.copy(0, log.size(), log.size()); }, true},
    };
}

const std::vector<Kind> &kinds()
{
    static const std::vector<Kind> all = [] {
        std::vector<Kind> joined;
        for (const std::vector<Kind> &some : {bitKinds(), endKinds(), pieceKinds()}) {
            joined.insert(joined.end(), some.begin(), some.end());
        }
        joined.push_back({"several damages at once", several});
        return joined;
    }();
    return all;
}

//! Without waiting for the disk, which would take most of the time.
class HastyDisk : public Archive::RepairDisk
{
public:
    int sync(int /*descriptor*/) override { return 0; }
};

class Collector : public Archive::Visitor
{
public:
    void record(const Archive::Place &place, const Archive::Record &record) override
    {
        if (record.state != Archive::State::Damaged) {
            begins.insert(int(place.offset));
        }
        if (record.state == Archive::State::Likely) {
            likely.insert(int(place.offset));
        }
        reachesTo(place);
    }
    void lost(const Archive::Place &place, Archive::Fault /*reason*/) override { reachesTo(place); }

    std::set<int> begins;
    std::set<int> likely; //!< of these
    qint64 end = 0;

private:
    void reachesTo(const Archive::Place &place)
    {
        QCOMPARE(place.offset, end);
        QVERIFY(place.length > 0);
        end = place.end();
    }
};

//! What a walk from trailer to trailer finds.
std::set<QByteArray> walked(const QByteArray &bytes)
{
    std::set<QByteArray> found;
    int end = int(bytes.size());
    while (end >= 2) {
        const int begin = end - 2 - qFromLittleEndian<quint16>(bytes.constData() + end - 2);
        if (begin >= 0) {
            found.insert(bytes.mid(begin, end - begin));
        }
        end = begin;
    }
    return found;
}

} // namespace

class SalvageTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyKind_data();
    void everyKind();
    void cleanupTestCase();

private:
    [[nodiscard]] Counts tryOne(const Kind &kind, const LogKind &logKind, bool hasCatalogue,
                                quint32 round);
    [[nodiscard]] static Counts compare(const TrueLog &log, const Collector &found,
                                        const std::set<QByteArray> &before,
                                        const std::set<QByteArray> &after);
    static void print(const QByteArray &name, const Counts &counts);
    static void printHeading(const char *title);
    static void printKinds(const char *title, std::map<QByteArray, Counts> &counts);

    const int cases = numberFromEnvironment("SEL_SALVAGE_CASES", 2);
    const quint32 seed = numberFromEnvironment<quint32>("SEL_SALVAGE_SEED", 20261121);
    const bool isTalkative = qEnvironmentVariableIsSet("SEL_SALVAGE_SHOW");
    std::map<QByteArray, Counts> byKind;
    std::map<QByteArray, Counts> longByKind; //!< those over 64 KiB the daemon cannot read
    std::map<QByteArray, Counts> byLog;
    qint64 slowest = 0;
};

void SalvageTest::everyKind_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<int>("logKind");
    for (int log = 0; log < int(logKinds.size()); ++log) {
        for (int kind = 0; kind < int(kinds().size()); ++kind) {
            QTest::addRow("%s, %s", logKinds.at(size_t(log)).name, kinds()[size_t(kind)].name)
                << kind << log;
        }
    }
}

Counts SalvageTest::compare(const TrueLog &log, const Collector &found,
                            const std::set<QByteArray> &before, const std::set<QByteArray> &after)
{
    Counts counts;
    counts.cases = 1;
    std::set<int> rest = found.begins;
    const std::vector<std::vector<int>> allPlaces = log.places();
    for (size_t i = 0; i < allPlaces.size(); ++i) {
        const QByteArray record = log.original(i);
        counts.hidden += before.count(record) != 0 && after.count(record) == 0 ? 1 : 0;
        bool isFound = false;
        for (const int place : allPlaces[i]) {
            isFound = isFound || found.begins.count(place) != 0;
            rest.erase(place);
        }
        if (!allPlaces[i].empty()) {
            ++counts.untouched;
            counts.found += isFound ? 1 : 0;
            counts.before += before.count(record) != 0 ? 1 : 0;
            counts.after += after.count(record) != 0 ? 1 : 0;
        }
    }
    for (const int begin : rest) {
        if (!log.isBeginning(begin)) {
            ++(found.likely.count(begin) != 0 ? counts.doubtful : counts.invented);
        }
    }
    return counts;
}

Counts SalvageTest::tryOne(const Kind &kind, const LogKind &logKind, bool hasCatalogue,
                           quint32 round)
{
    Dice dice(seed, round);
    TrueLog log(dice, logKind.content, fileSize);
    kind.damage(log, dice);
    const QByteArray bytes = log.bytes();
    const LogFolder folder;
    folder.put(0, bytes);
    Archive::Folder archive(folder.dir().path(), hasCatalogue ? &TrueLog::catalogue() : nullptr);
    Collector found;
    QElapsedTimer timer;
    timer.start();
    const bool isRead = archive.open(Archive::Writers::None) && archive.visit(found);
    slowest = std::max(slowest, timer.elapsed());
    if (!isRead || found.end != bytes.size()) {
        return {};
    }
    HastyDisk disk;
    (void)Archive::Repair(archive, disk).run();
    const Counts counts = compare(log, found, walked(bytes), walked(folder.content(0)));
    const bool isPerfect = counts.found == counts.untouched && counts.invented == 0;
    if (isTalkative && (!isPerfect || counts.hidden > 0 || counts.after < counts.found)) {
        std::printf("%s, %s, round %u, %s catalogue: %lld of %lld found, %lld invented, "
                    "%lld after the repair, %lld hidden by it\n",
                    logKind.name, kind.name, round, hasCatalogue ? "with a" : "without",
                    counts.found, counts.untouched, counts.invented, counts.after, counts.hidden);
    }
    return counts;
}

void SalvageTest::everyKind()
{
    QFETCH(int, kind);
    QFETCH(int, logKind);
    const Kind &damage = kinds()[size_t(kind)];
    const LogKind &log = logKinds.at(size_t(logKind));
    Counts sum;
    for (int i = 0; i < 2 * cases; ++i) {
        const auto round = quint32((kind * 100 + logKind) * 100000 + i);
        const Counts counts = tryOne(damage, log, i % 2 == 0, round);
        QCOMPARE(counts.cases, qint64(1)); // all of the file has been shown
        sum.add(counts);
    }
    // A single record of another place looks like one with a wrong number.
    QVERIFY2(sum.hidden <= (damage.isTwice ? sum.cases / 10 : 0), damage.name);
    const bool isLong = log.content == TrueLog::Content::LongRecords;
    (isLong ? longByKind : byKind)[damage.name].add(sum);
    if (!damage.isTwice) {
        byLog[log.name].add(sum);
    }
}

void SalvageTest::print(const QByteArray &name, const Counts &counts)
{
    const auto percent = [&counts](qint64 part) {
        return counts.untouched == 0 ? 100 : 100 * double(part) / double(counts.untouched);
    };
    std::printf("| %s | %lld | %lld | %.2f %% | %lld | %lld | %.2f %% | %.2f %% |\n",
                name.constData(), counts.cases, counts.untouched, percent(counts.found),
                counts.invented, counts.doubtful, percent(counts.before), percent(counts.after));
}

void SalvageTest::printHeading(const char *title)
{
    std::printf("\n| %s | Files | Records untouched | Found | False | False, but only likely | "
                "Readable by the daemon before the repair | after |\n"
                "|---|---:|---:|---:|---:|---:|---:|---:|\n",
                title);
}

void SalvageTest::printKinds(const char *title, std::map<QByteArray, Counts> &counts)
{
    printHeading(title);
    Counts sum;
    for (const Kind &kind : kinds()) {
        print(kind.name, counts[kind.name]);
        sum.add(counts[kind.name]);
    }
    print("all", sum);
}

void SalvageTest::cleanupTestCase()
{
    std::printf("\nseed %u; the slowest file after %lld ms\n", seed, slowest);
    printKinds("Damage", byKind);
    printKinds("Damage, with records over 64 KiB", longByKind);
    printHeading("Log, and all damage but of pieces that are there twice");
    for (const LogKind &log : logKinds) {
        print(log.name, byLog[log.name]);
    }
    if (QTest::currentTestFailed() || byLog.size() < logKinds.size()) {
        return; // part of the rows
    }
    for (const Kind &kind : kinds()) {
        const int least = kind.isTwice ? 950 : 999; // in a thousand
        for (const Counts &counts : {byKind[kind.name], longByKind[kind.name]}) {
            QVERIFY2(counts.found * 1000 >= counts.untouched * least - 1000, kind.name);
        }
        const Counts &counts = byKind[kind.name];
        QVERIFY2(counts.after * 1000 >= counts.untouched * least - 1000, kind.name);
    }
    for (const LogKind &log : logKinds) {
        const bool isSpelt = log.content == TrueLog::Content::SpeltInDoubles
            || log.content == TrueLog::Content::SpeltInIntegers;
        const qint64 most = byLog[log.name].untouched / (isSpelt ? 20000 : 100000);
        QVERIFY2(byLog[log.name].invented <= most + 1, log.name);
    }
}

QTEST_GUILESS_MAIN(SalvageTest)
#include "tst_salvage.moc"
