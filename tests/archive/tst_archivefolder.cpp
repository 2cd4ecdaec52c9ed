// SPDX-License-Identifier: Apache-2.0

// What a folder of log files is shown as: records with a judgement each, and what is lost.

#include "archive/archivefolder.h"
#include "archive/chainsearch.h"
#include "archive/folderreport.h"
#include "catalog/systemeventcatalogue.h"
#include "reader/systemeventlogfilereader.h"
#include "support/literals.h"
#include "support/logfolder.h"
#include "support/recordbytes.h"

#include <QTest>

#include <sys/stat.h>

namespace
{

using Archive::Fault;
using Archive::State;
using RecordBytes::number;
using RecordBytes::sized;

constexpr int plainEvent = 1003;
constexpr int textEvent = 1002;
constexpr int optionalEvent = 1005;

const SystemeventCatalogue &catalogue()
{
    static const SystemeventCatalogue described = [] {
        SystemeventCatalogue events;
        const auto describe = [&events](uint id, const QList<int> &types) {
            SystemeventDescription event(id, "event"_s, "warning"_s, "service"_s);
            for (const int type : types) {
                event.arguments.append(SystemeventArgument("value"_s, type));
            }
            events.events.insert(id, event);
        };
        describe(plainEvent, {});
        describe(textEvent, {ArgumentType::String});
        describe(optionalEvent, {ArgumentType::Int32, ArgumentType::UInt64, ArgumentType::Enum});
        return events;
    }();
    return described;
}

QByteArray record(quint64 logNr, int eventId = plainEvent, const QByteArray &values = {})
{
    RecordBytes::Fields fields;
    fields.logNr = logNr;
    fields.eventId = eventId;
    fields.values = values;
    return RecordBytes::record(fields);
}

QByteArray records(quint64 first, quint64 last)
{
    QByteArray bytes;
    for (quint64 logNr = first; logNr <= last; ++logNr) {
        bytes += record(logNr);
    }
    return bytes;
}

QByteArray withByte(QByteArray bytes, int at, char wrong)
{
    bytes[at < 0 ? int(bytes.size()) + at : at] = wrong;
    return bytes;
}

//! Writes one line for each piece, in short.
class Lines : public Archive::Visitor
{
public:
    void beginFile(int file, qint64 /*size*/) override { lines += "zib%1"_s.arg(file); }
    void record(const Archive::Place &place, const Archive::Record &record) override
    {
        place.offset == end ? void() : qFatal("a piece is missing");
        end = place.end();
        QCOMPARE(qint64(record.bytes.size()), place.length);
        QString line = QString::number(record.head.logNr);
        if (record.state != State::Whole) {
            line += u' ' + QString(Archive::stateName(record.state));
        }
        if (record.fault != Fault::None) {
            line += ": "_s + Archive::faultText(record.fault);
        }
        lines += line;
    }
    void lost(const Archive::Place &place, Fault reason) override
    {
        place.offset == end ? void() : qFatal("a piece is missing");
        end = place.end();
        lines += "lost %1: "_s.arg(place.length) + Archive::faultText(reason);
    }
    void endFile(const Archive::FileResult &result) override
    {
        end == result.size ? void() : qFatal("the end is missing");
        end = 0;
    }

    QStringList lines;

private:
    qint64 end = 0;
};

QStringList shown(const LogFolder &folder, const SystemeventCatalogue *events = nullptr)
{
    Archive::Folder archive(folder.dir().path(), events);
    Lines lines;
    if (!archive.open(Archive::Writers::None) || !archive.visit(lines)) {
        return {"not read"_s};
    }
    return lines.lines;
}

Archive::FolderReport report(const LogFolder &folder, std::vector<Archive::FileReport> &files,
                             const SystemeventCatalogue *events = nullptr)
{
    Archive::Folder archive(folder.dir().path(), events);
    if (!archive.open(Archive::Writers::None)) {
        qFatal("not opened");
    }
    return Archive::reportOn(archive,
                             [&files](const Archive::FileReport &file) { files.push_back(file); });
}

QString textOf(const std::vector<Archive::NumberRange> &ranges)
{
    QStringList parts;
    for (const Archive::NumberRange &range : ranges) {
        parts += "%1-%2"_s.arg(range.first).arg(range.last);
    }
    return parts.join(u' ');
}

QString linesOf(quint64 first, quint64 last)
{
    QStringList lines;
    for (quint64 logNr = first; logNr <= last; ++logNr) {
        lines += QString::number(logNr);
    }
    return lines.join(u'\n');
}

} // namespace

class ArchiveFolderTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void filesComeInTheOrderOfTheirNumbers();
    void otherNamesAreNamed();
    void namesAreThoseThatTheReaderTakes_data();
    void namesAreThoseThatTheReaderTakes();
    void judgement_data();
    void judgement();
    void forgedRecordsStayDead_data();
    void forgedRecordsStayDead();
    void textsAreJudgedOnceTheyAreKnown();
    void recordHasItsParts();
    void largeFiles_data();
    void largeFiles();
    void longRecordIsWholeThoughTheDaemonDoesNotFindIt();
    void reportCounts();
    void numbersMissingAndRepeated_data();
    void numbersMissingAndRepeated();
    void tooManyRangesAreCut();
    void tooManyStretchesAreOne();
    void missingFolderCannotBeOpened();
    void slowFiles_data();
    void slowFiles();
};

void ArchiveFolderTest::filesComeInTheOrderOfTheirNumbers()
{
    const LogFolder folder;
    folder.put(0, record(4));
    folder.put(2, record(2));
    folder.put(10, record(1));
    folder.put(3, "");
    QCOMPARE(shown(folder),
             QStringList({"zib10"_s, "1"_s, "zib3"_s, "zib2"_s, "2"_s, "zib0"_s, "4"_s}));
}

void ArchiveFolderTest::otherNamesAreNamed()
{
    const LogFolder folder;
    folder.put(0, record(1));
    for (const QString &name : {"zib0x.log"_s, "zib00.log"_s, "zib1"_s, "zibx.log"_s, "other"_s}) {
        folder.put(name, record(2));
    }
    QCOMPARE(mkfifo(qPrintable(folder.path("zib7.log"_s)), S_IRUSR | S_IWUSR), 0);
    QVERIFY(folder.dir().mkdir("zib8.log"_s));
    Archive::Folder archive(folder.dir().path());
    QVERIFY(archive.open());
    QStringList others = archive.otherNames();
    others.sort();
    QCOMPARE(others, QStringList({"zib00.log"_s, "zib0x.log"_s, "zib1"_s}));
    QCOMPARE(archive.files().size(), size_t(1));
}

void ArchiveFolderTest::namesAreThoseThatTheReaderTakes_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("isTaken");
    QTest::newRow("the writer's own") << "zib0.log"_s << true;
    QTest::newRow("upper case is taken") << "ZIB0.LOG"_s << true;
    QTest::newRow("mixed case is taken") << "Zib1.log"_s << true;
    QTest::newRow("nothing need follow the digit") << "zib3"_s << true;
    QTest::newRow("anything may follow the digit") << "zib3 a\nb.txt"_s << true;
    QTest::newRow("a letter is no digit") << "zibx.log"_s << false;
    QTest::newRow("a digit of another script is none")
        << "zib"_s + QChar(0x0663) + ".log"_s << false;
    QTest::newRow("something in front") << "azib0.log"_s << false;
}

void ArchiveFolderTest::namesAreThoseThatTheReaderTakes()
{
    QFETCH(QString, name);
    QFETCH(bool, isTaken);
    const LogFolder folder;
    folder.put(name, record(1));
    SystemeventLogfileReader reader(folder.dir(), &catalogue());
    QCOMPARE(reader.getMaxLogNr(), quint64(isTaken ? 1 : 0));
    Archive::Folder archive(folder.dir().path());
    QVERIFY(archive.open());
    QCOMPARE(archive.files().size() + size_t(archive.otherNames().size()), size_t(isTaken ? 1 : 0));
}

// NOLINTNEXTLINE(readability-function-size): a table
void ArchiveFolderTest::judgement_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QString>("lines");
    const QByteArray two = record(2);
    const auto around
        = [](const QByteArray &middle) { return records(1, 1) + middle + records(3, 6); };
    const QString behind = u'\n' + linesOf(3, 6);
    QTest::newRow("an empty file has no piece") << QByteArray() << QString();
    QTest::newRow("sound records are whole") << records(1, 3) << linesOf(1, 3);
    QTest::newRow("numbers that were never stored are no damage")
        << records(1, 2) + records(8, 9) << "1\n2\n8\n9"_s;
    QTest::newRow("zeros behind the end are lost")
        << records(1, 3) + QByteArray(40, '\0') << linesOf(1, 3) + "\nlost 40: zeros"_s;
    QTest::newRow("a torn record is lost")
        << records(1, 3) + record(4).chopped(1)
        << linesOf(1, 3) + "\nlost %1: a record whose end is missing"_s.arg(two.size() - 1);
    QTest::newRow("bytes that are nothing are lost")
        << records(1, 3) + "what is this" + records(4, 6)
        << linesOf(1, 3) + "\nlost 12: bytes that are no record\n"_s + linesOf(4, 6);
    QTest::newRow("a record with a wrong length")
        << around(withByte(two, -2, 'x'))
        << "1\n2 damaged: a record whose end mark or length is damaged"_s + behind;
    QTest::newRow("a record with a wrong end mark")
        << around(withByte(two, -3, 'x'))
        << "1\n2 damaged: a record whose end mark or length is damaged"_s + behind;
    QTest::newRow("a record with a wrong padding")
        << around(withByte(two, 21, 'x'))
        << "1\n2 damaged: a record whose number, time or path is damaged"_s + behind;
    QTest::newRow("a record with a wrong path")
        << around(withByte(two, 31, '\n'))
        << "1\n2 damaged: a record whose number, time or path is damaged"_s + behind;
    QTest::newRow("a record with a wrong number")
        << around(withByte(two, 3, 1))
        << "1\n%1 damaged: a record whose number, time or path is damaged"_s.arg((1 << 24) + 2)
            + behind;
    QTest::newRow("a wrong number behind the first record")
        << record(40) + record(7) + records(42, 46)
        << "40\n7 damaged: a record whose number, time or path is damaged\n"_s + linesOf(42, 46);
    QTest::newRow("a wrong first number")
        << record(90) + records(41, 46)
        << "90 damaged: a record whose number, time or path is damaged\n"_s + linesOf(41, 46);
    QTest::newRow("records that are there twice are whole")
        << records(1, 2) + record(2) + records(4, 6) << "1\n2\n2\n"_s + linesOf(4, 6);
    QTest::newRow("a last record that is there twice is whole")
        << records(1, 4) + record(4) << linesOf(1, 4) + "\n4"_s;
    QTest::newRow("a last number far from the one before") << records(1, 3) + record(4 + (1 << 21))
                                                           << linesOf(1, 3)
            + "\n%1 damaged: a record whose number, time or path is damaged"_s.arg(4 + (1 << 21));
    QTest::newRow("a record that a wrong length makes two of")
        << record(1) + record(2) + record(3).chopped(2)
            + number(quint64(2 * record(3).size() - 2), 2) + records(4, 6)
        << "1\n2\n3 damaged: a record whose end mark or length is damaged\n"_s + linesOf(4, 6);
    QTest::newRow("a single record between two damages, whose number does not fit")
        << records(1, 4) + "xxxxx" + record(4000) + "yyyyy" + records(6, 9)
        << linesOf(1, 4)
            + "\nlost 5: bytes that are no record\n4000 likely\n"
              "lost 5: bytes that are no record\n"_s
            + linesOf(6, 9);
    QTest::newRow("records between two damages, whose numbers fit")
        << records(1, 4) + "xxxxx" + records(6, 7) + "yyyyy" + records(9, 12)
        << linesOf(1, 4)
            + "\nlost 5: bytes that are no record\n6\n7\nlost 5: bytes that are no record\n"_s
            + linesOf(9, 12);
    QTest::newRow("records between two damages, whose numbers reach those at the end")
        << records(1, 4) + "xxxxx" + records(9, 10) + "yyyyy" + records(6, 7)
        << linesOf(1, 4)
            + "\nlost 5: bytes that are no record\n9 likely\n10 likely\n"
              "lost 5: bytes that are no record\n6\n7"_s;
    QTest::newRow("records that were moved are whole, where they are several in a row")
        << records(1, 4) + "xxxxx" + records(30, 34) + "yyyyy" + records(9, 12)
        << linesOf(1, 4) + "\nlost 5: bytes that are no record\n"_s + linesOf(30, 34)
            + "\nlost 5: bytes that are no record\n"_s + linesOf(9, 12);
}

void ArchiveFolderTest::judgement()
{
    QFETCH(QByteArray, file);
    QFETCH(QString, lines);
    for (const SystemeventCatalogue *const events :
         {&catalogue(), (const SystemeventCatalogue *)nullptr}) {
        const LogFolder folder;
        folder.put(0, file);
        QCOMPARE(shown(folder, events).mid(1).join(u'\n'), lines);
    }
}

void ArchiveFolderTest::forgedRecordsStayDead_data()
{
    QTest::addColumn<QByteArray>("values"); // behind a declared integer
    QTest::addColumn<quint64>("forgedNumber");
    for (const quint64 forged : {quint64(6), quint64(7), quint64(3), quint64(900)}) {
        const auto row = [forged](const char *how, const QByteArray &values) {
            QTest::addRow("%s, number %llu", how, forged) << values << forged;
        };
        row("spelt in doubles", QByteArray(5, 'x') + record(forged) + QByteArray(3, 'y'));
        row("spelt in doubles, twice", record(forged) + record(forged + 1) + QByteArray(3, 'y'));
        row("spelt in doubles, forty in a row", records(forged, forged + 39) + "12345");
        // What is in front of them looks like a record of its own.
        const int shortened = 28 + 2 + 13 + 4 + 1;
        row("spelt in doubles, behind an end",
            '\n' + number(quint64(shortened), 2) + records(forged, forged + 39) + "12345");
        row("spelt in doubles, up to the end", record(forged));
        row("spelt in doubles, with texts", record(forged, textEvent, sized("forged")) + "12345");
        // The record's own end mark follows.
        row("spelt in doubles, its end shared", record(forged).chopped(3));
    }
}

void ArchiveFolderTest::forgedRecordsStayDead()
{
    QFETCH(QByteArray, values);
    const QByteArray known = record(5, optionalEvent, number(1, 4) + values);
    const QByteArray unknown = record(5, 77, values);
    const QByteArray text = record(5, textEvent, sized(values));
    for (const QByteArray &around : {known, unknown, text}) {
        const QByteArray before = records(1, 4) + around;
        const QByteArray sound = before + records(6, 9);
        const QString all = linesOf(1, 9);
        for (const SystemeventCatalogue *const events :
             {&catalogue(), (const SystemeventCatalogue *)nullptr}) {
            const LogFolder folder;
            folder.put(0, sound);
            QCOMPARE(shown(folder, events).mid(1).join(u'\n'), all);
            folder.put(0, before); // it is the last one
            QCOMPARE(shown(folder, events).mid(1).join(u'\n'), linesOf(1, 5));
            folder.put(0, around + records(6, 9));
            QCOMPARE(shown(folder, events).mid(1).join(u'\n'), linesOf(5, 9));
            folder.put(0, sound + "torn");
            QCOMPARE(shown(folder, events).mid(1).join(u'\n'),
                     all + "\nlost 4: bytes that are no record"_s);
            folder.put(0, "torn" + sound);
            QCOMPARE(shown(folder, events).mid(1).join(u'\n'),
                     "lost 4: bytes that are no record\n"_s + all);
        }
    }
}

void ArchiveFolderTest::textsAreJudgedOnceTheyAreKnown()
{
    QByteArray file;
    for (quint64 logNr = 1; logNr <= 40; ++logNr) {
        file += record(logNr, textEvent, sized("Tür"));
    }
    const LogFolder folder;
    folder.put(0, file + record(41, textEvent, sized("T\xFCr")));
    QCOMPARE(shown(folder, &catalogue()).last(), "41 damaged: a record with a damaged text"_s);
    QCOMPARE(shown(folder).last(), "41"_s);
    folder.put(0, file + record(41, textEvent, sized(QByteArray("a\0b", 3))));
    QCOMPARE(shown(folder, &catalogue()).last(), "41 damaged: a record with a damaged text"_s);
    // A service that sends another type than declared is not damaged.
    folder.put(0, record(1, textEvent, number(2, 4)) + record(2, textEvent, number(1, 4)));
    QCOMPARE(shown(folder, &catalogue()), QStringList({"zib0"_s, "1"_s, "2"_s}));
}

void ArchiveFolderTest::recordHasItsParts()
{
    class Parts : public Archive::Visitor
    {
    public:
        void record(const Archive::Place &place, const Archive::Record &record) override
        {
            QCOMPARE(place.file, 3);
            QCOMPARE(record.head.logNr, quint64(7));
            QCOMPARE(record.head.seconds, quint64(1700000000));
            QCOMPARE(record.head.microseconds, quint32(250000));
            QCOMPARE(record.head.eventId, -5);
            QCOMPARE(QByteArray::fromStdString(std::string(record.path)),
                     QByteArray("/power/supply"));
            QCOMPARE(QByteArray::fromStdString(std::string(record.values)), QByteArray("values"));
            ++count;
        }
        void lost(const Archive::Place & /*place*/, Fault /*reason*/) override { count = -1; }
        void endFile(const Archive::FileResult &result) override
        {
            QCOMPARE(result.readByDaemon, quint64(1));
        }
        int count = 0;
    };
    const LogFolder folder;
    folder.put(3, record(7, -5, "values"));
    Archive::Folder archive(folder.dir().path());
    Parts parts;
    QVERIFY(archive.open() && archive.visit(parts));
    QCOMPARE(parts.count, 1);
}

void ArchiveFolderTest::largeFiles_data()
{
    QTest::addColumn<int>("damagedAt");
    const int size = int(records(1, 1).size());
    QTest::newRow("sound") << -1;
    for (const int at : {0, 1, 12000, 262144 / size, 524288 / size, 524288 / size + 1, 70000}) {
        QTest::addRow("record %d damaged", at) << at;
    }
}

//! Of several windows: what is between them is not lost.
void ArchiveFolderTest::largeFiles()
{
    QFETCH(int, damagedAt);
    constexpr quint64 count = 70001;
    const LogFolder folder;
    QByteArray file = records(1, count);
    const int size = int(record(1).size());
    QVERIFY(file.size() > 3000000);
    if (damagedAt >= 0) {
        file[(damagedAt + 1) * size - 1] = 'x';
    }
    folder.put(0, file);
    std::vector<Archive::FileReport> files;
    const Archive::FolderReport found = report(folder, files);
    QCOMPARE(found.records, damagedAt >= 0 ? count - 1 : count);
    QCOMPARE(found.isDamaged, damagedAt >= 0);
    QCOMPARE(textOf(found.numbers.repeated()), QString());
    if (damagedAt >= 0) {
        const auto damaged = files.at(0).damaged;
        QCOMPARE(damaged.size(), size_t(1));
        QCOMPARE(damaged[0].from, qint64(damagedAt) * size);
        QCOMPARE(damaged[0].to, qint64(damagedAt + 1) * size);
        QCOMPARE(damaged[0].wholeBefore, quint64(damagedAt));
        QCOMPARE(damaged[0].wholeBehind, count - 1 - quint64(damagedAt));
        // In front of the damage its walk comes upon records by chance.
        QVERIFY(found.readByDaemon >= count - 1 - quint64(damagedAt));
    } else {
        QCOMPARE(found.readByDaemon, count);
    }
}

void ArchiveFolderTest::longRecordIsWholeThoughTheDaemonDoesNotFindIt()
{
    const QByteArray text(3 << 20, 'x');
    const QByteArray longRecord = record(3, textEvent, number(text.size() % 65536, 2) + text);
    const LogFolder folder;
    folder.put(0, records(1, 2) + longRecord + records(4, 6));
    QCOMPARE(shown(folder, &catalogue()), QStringList("zib0"_s) + linesOf(1, 6).split(u'\n'));
    std::vector<Archive::FileReport> files;
    QCOMPARE(report(folder, files).readByDaemon, quint64(3));
    // In a damaged file they are found up to half a window.
    const QByteArray shorter = record(3, textEvent, number(200000 % 65536, 2) + text.left(200000));
    folder.put(0, records(1, 2) + shorter + records(4, 6) + "torn");
    QCOMPARE(shown(folder).mid(1, 6).join(u'\n'), linesOf(1, 6));
}

void ArchiveFolderTest::reportCounts()
{
    const LogFolder folder;
    folder.put(1, records(5, 9));
    folder.put(0, records(10, 12) + withByte(record(13), -1, 'x') + records(14, 20));
    std::vector<Archive::FileReport> files;
    const Archive::FolderReport found = report(folder, files);
    QCOMPARE(found.files, 2);
    QCOMPARE(found.records, quint64(15));
    QCOMPARE(found.readByDaemon, quint64(12));
    QVERIFY(found.isDamaged);
    QCOMPARE(textOf(found.numbers.missing()), "13-13"_s);
    QCOMPARE(files.size(), size_t(2));
    QCOMPARE(files[0].file, 1);
    QCOMPARE(files[0].first, quint64(5));
    QCOMPARE(files[0].last, quint64(9));
    QVERIFY(files[0].damaged.empty());
    QCOMPARE(files[1].firstTime.seconds, quint64(1700000000));
    QCOMPARE(files[1].lastTime.microseconds, quint32(250000));
    QCOMPARE(files[1].damaged.size(), size_t(1));
    QCOMPARE(files[1].damaged[0].reason, Fault::End);
    QCOMPARE(files[1].damaged[0].wholeBefore, quint64(3));
    QCOMPARE(files[1].damaged[0].wholeBehind, quint64(7));
}

void ArchiveFolderTest::numbersMissingAndRepeated_data()
{
    QTest::addColumn<QList<int>>("numbers");
    QTest::addColumn<QString>("missing");
    QTest::addColumn<QString>("repeated");
    QTest::newRow("no number") << QList<int>{} << QString() << QString();
    QTest::newRow("what is below the lowest is not missing")
        << QList<int>{5, 6} << QString() << QString();
    QTest::newRow("one, and several") << QList<int>{1, 3, 7} << "2-2 4-6"_s << QString();
    QTest::newRow("the order does not count")
        << QList<int>{7, 8, 1, 2, 4, 3, 6} << "5-5"_s << QString();
    QTest::newRow("what comes later fills a gap")
        << QList<int>{1, 2, 5, 6, 3, 4, 7} << QString() << QString();
    QTest::newRow("twice") << QList<int>{1, 2, 2, 3} << QString() << "2-2"_s;
    QTest::newRow("a range twice, and thrice") << QList<int>{1, 2, 3, 4, 2, 3, 4, 3, 9} << "5-8"_s
                                               << "2-4"_s;
    QTest::newRow("a range that runs into another")
        << QList<int>{5, 6, 3, 4, 5, 6, 7} << QString() << "5-6"_s;
}

void ArchiveFolderTest::numbersMissingAndRepeated()
{
    QFETCH(QList<int>, numbers);
    Archive::NumberSet set;
    for (const int each : numbers) {
        set.insert(quint64(each));
    }
    QTEST(textOf(set.missing()), "missing");
    QTEST(textOf(set.repeated()), "repeated");
    QVERIFY(!set.isCut());
}

void ArchiveFolderTest::tooManyRangesAreCut()
{
    Archive::NumberSet set;
    for (quint64 i = 1; i <= Archive::NumberSet::mostRanges + 10; ++i) {
        set.insert(2 * i);
    }
    QVERIFY(set.isCut());
    QCOMPARE(set.missing().size(), Archive::NumberSet::mostRanges);
}

void ArchiveFolderTest::tooManyStretchesAreOne()
{
    QByteArray file;
    for (quint64 i = 1; i <= Archive::FileReport::mostStretches + 5; ++i) {
        file += record(i) + 'x';
    }
    const LogFolder folder;
    folder.put(0, file);
    std::vector<Archive::FileReport> files;
    QCOMPARE(report(folder, files).records, quint64(Archive::FileReport::mostStretches + 5));
    QCOMPARE(files.at(0).damaged.size(), Archive::FileReport::mostStretches);
    QCOMPARE(files.at(0).damaged.back().to, qint64(file.size()));
}

void ArchiveFolderTest::missingFolderCannotBeOpened()
{
    Archive::Folder archive("/nowhere/at/all"_s);
    QVERIFY(!archive.open());
    QCOMPARE(errno, ENOENT);
}

void ArchiveFolderTest::slowFiles_data()
{
    QTest::addColumn<QByteArray>("file");
    constexpr int size = 1 << 17;
    const auto repeated = [](const QByteArray &piece) {
        return piece.repeated(size / int(piece.size()) + 1).left(size);
    };
    QTest::newRow("zeros") << QByteArray(size, '\0');
    QTest::newRow("end marks") << QByteArray(size, '\n');
    QTest::newRow("end marks and zeros") << repeated(QByteArray("\n\0", 2));
    QTest::newRow("ends that lead to a record before")
        << repeated(record(1)) + repeated(QByteArray("\n\x40\x80", 3));
    const QByteArray head = record(1).chopped(3);
    QTest::newRow("heads without an end") << repeated(head);
    QTest::newRow("records without a head") << repeated(record(1).mid(9));
    QTest::newRow("a record in a record in a record") << [&] {
        QByteArray nested = record(1);
        while (nested.size() < 60000) {
            nested = record(quint64(nested.size()), 77, nested);
        }
        return repeated(nested);
    }();
    QTest::newRow("heads, and ends that make a candidate with each of them") << [&] {
        constexpr int heads = 65000; // bytes of them
        QByteArray file = repeated(head).left(heads - heads % int(head.size()));
        for (int i = 0; file.size() < size; ++i) {
            const int begin = i * int(head.size()) % 60000;
            file += '\n' + number(quint64(file.size() + 1 - begin), 2);
        }
        return file;
    }();
    QTest::newRow("numbers that fall") << [&] {
        QByteArray file;
        for (quint64 i = 20000; file.size() < size; --i) {
            file += record(i) + 'x';
        }
        return file;
    }();
    QTest::newRow("heads with texts that cover one another") << [&] {
        RecordBytes::Fields fields;
        fields.eventId = textEvent;
        fields.values = number(65535, 2);
        return repeated(RecordBytes::record(fields).chopped(3));
    }();
}

//! Work is counted in states, of which each costs a bounded number of steps.
void ArchiveFolderTest::slowFiles()
{
    QFETCH(QByteArray, file);
    for (const SystemeventCatalogue *const events :
         {&catalogue(), (const SystemeventCatalogue *)nullptr}) {
        const Archive::EventTypes types = Archive::eventTypes(events);
        Archive::ValueFit fit(types);
        Archive::ChainSearch search(fit);
        (void)search.search({file.constData(), size_t(file.size())}, true);
        QVERIFY(search.stateCount() <= size_t(file.size()) * Archive::ChainSearch::mostStates / 3);
        const LogFolder folder;
        folder.put(0, file.repeated(5));
        std::vector<Archive::FileReport> files;
        (void)report(folder, files, events);
        QCOMPARE(files.size(), size_t(1));
    }
}

QTEST_GUILESS_MAIN(ArchiveFolderTest)
#include "tst_archivefolder.moc"
