// SPDX-License-Identifier: Apache-2.0

// The reader: its index, what it makes of values, and the JSON of one record.

#include "catalog/systemeventcatalogue.h"
#include "reader/systemeventlogfilereader.h"
#include "support/goldenrecords.h"
#include "support/literals.h"
#include "support/logfolder.h"
#include "support/recordbytes.h"
#include "support/workedrecord.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>
#include <QtEndian>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <memory>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

#include <fcntl.h>
#include <sys/stat.h>

namespace
{

using RecordBytes::number;
using RecordBytes::record;
using RecordBytes::sized;

constexpr quint64 noMinimum = std::numeric_limits<quint64>::max();

//! What the process says at one level, as it would appear on standard error.
class Messages
{
public:
    explicit Messages(QtMsgType level)
    {
        lines().clear();
        kept() = level;
        previous = qInstallMessageHandler(take);
    }
    ~Messages() { qInstallMessageHandler(previous); }
    Q_DISABLE_COPY_MOVE(Messages)

    [[nodiscard]] static QStringList &lines()
    {
        static QStringList all;
        return all;
    }

private:
    static QtMsgType &kept()
    {
        static QtMsgType level = QtDebugMsg;
        return level;
    }

    static void take(QtMsgType type, const QMessageLogContext & /*context*/, const QString &message)
    {
        if (type == kept()) {
            lines().append(message);
        }
    }

    QtMessageHandler previous;
};

//! Sets when a file, or a link itself, was modified.
void setModified(const QString &path, timespec time, int flags = 0)
{
    const std::array<timespec, 2> times{time, time};
    if (utimensat(AT_FDCWD, QFile::encodeName(path).constData(), times.data(), flags) != 0) {
        qFatal("cannot set the time of %s", qPrintable(path));
    }
}

//! Makes something, last modified long ago; next to it stands what it links to.
void makeEntry(const QString &path, const QString &kind)
{
    const bool isLink = kind.contains("link"_s);
    const QString place = isLink ? path.section(QLatin1Char('/'), 0, -2) + "/target"_s : path;
    const QByteArray name = QFile::encodeName(place);
    bool made = true;
    if (kind.endsWith("pipe"_s)) {
        made = mkfifo(name.constData(), 0600) == 0;
    } else if (kind.endsWith("folder"_s)) {
        made = QDir().mkdir(place);
    } else if (kind == "file"_s) {
        made = QFile(place).open(QIODevice::WriteOnly);
    }
    if (made && isLink) {
        made = QFile::link(kind.startsWith("circular"_s) ? path : place, path);
    }
    if (!made) {
        qFatal("cannot make %s", qPrintable(path));
    }
    if (QFile::exists(place)) {
        setModified(place, {1000, 0});
    }
}

//! Leaves the process so few descriptors that a number of files can be kept open.
class FewDescriptors
{
public:
    explicit FewDescriptors(int files)
    {
        std::vector<int> next; // those that will be given, and the first one beyond
        for (int i = 0; i <= files; ++i) {
            next.push_back(dup(STDERR_FILENO));
        }
        for (const int handle : next) {
            close(handle);
        }
        getrlimit(RLIMIT_NOFILE, &before);
        rlimit limit = before;
        const auto kept = rlim_t(next.back());
        limit.rlim_cur = kept + std::min<rlim_t>(kept - 2, 31); // half less one are spare, or 31
        if (next.back() < 0 || setrlimit(RLIMIT_NOFILE, &limit) != 0) {
            qFatal("cannot set the limit of open files");
        }
    }
    ~FewDescriptors() { (void)setrlimit(RLIMIT_NOFILE, &before); }
    Q_DISABLE_COPY_MOVE(FewDescriptors)

private:
    rlimit before{};
};

//! How often the process has a file open.
int openings(const QString &path)
{
    int count = 0;
    const QFileInfoList handles = QDir("/proc/self/fd"_s).entryInfoList(QDir::Files | QDir::System);
    for (const QFileInfo &handle : handles) {
        count += handle.symLinkTarget() == QFileInfo(path).canonicalFilePath() ? 1 : 0;
    }
    return count;
}

} // namespace

class SystemeventLogfileReaderTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void withoutRecords_data();
    void withoutRecords();
    void numbersOfSeveralFiles();
    void numbersHave64Bits();
    void constructionTouchesNothing();
    void queriesRereadOnlyAfterASignal();
    void appendedRecordsAreIndexedSilently();
    void allNewRecordsEndWithAReadError();
    void appendingWithoutCurrentFile();
    void emptyBundleChangesNothing();
    void rotationRebuildsTheIndex();
    void fileNumbers_data();
    void fileNumbers();
    void sameFileNumberTheLaterListedWins();
    void orderOfFiles_data();
    void orderOfFiles();
    void linkCountsByItsTarget_data();
    void linkCountsByItsTarget();
    void numberIsTaken_data();
    void numberIsTaken();
    void sameLogNumberTheLaterListedWins();
    void sameLogNumbersThroughoutTheLaterListedWins();
    void foldersAreSkipped();

    void goldenRecord_data();
    void goldenRecord();
    void storedValue_data();
    void storedValue();
    void valueAtTheEndOfTheFile_data();
    void valueAtTheEndOfTheFile();
    void partOfANumberAtTheEnd();
    void placeholders_data();
    void placeholders();
    void shortArgumentAreaReadsOn();
    void explodingTextStops();

    void entry_data();
    void entry();
    void documentedRecord();
    void missingNumberIsEmpty();
    void answerOfTheLimitIsRefused();
    void largeAnswer_data();
    void largeAnswer();
    void storedNumberIsShown();
    void filesThatCannotBeKeptOpenAreSaidOnce();
    void currentFileIsReadWithoutBeingKeptOpen();
    void withoutCatalogueTheProcessEnds();

private:
    [[nodiscard]] std::unique_ptr<SystemeventLogfileReader> makeReader();
    //! The message of a record of event 1001 with these values, all else in order.
    [[nodiscard]] QString message(const QByteArray &values);
    void declare(const QList<int> &types, const QString &text);

    std::unique_ptr<LogFolder> logs;
    SystemeventCatalogue catalogue;
};

void SystemeventLogfileReaderTest::init()
{
    logs = std::make_unique<LogFolder>();
    catalogue = SystemeventCatalogue();
    catalogue.events.insert(1001, {1001, "supplyChanged"_s, "warning"_s, "power"_s});
    catalogue.enums.insert("PowerSource"_s, {{0, "mains"_s}, {1, "battery"_s}, {255, "none"_s}});
}

std::unique_ptr<SystemeventLogfileReader> SystemeventLogfileReaderTest::makeReader()
{
    return std::make_unique<SystemeventLogfileReader>(logs->dir(), &catalogue);
}

void SystemeventLogfileReaderTest::declare(const QList<int> &types, const QString &text)
{
    SystemeventDescription &event = catalogue.events[1001];
    event.arguments.clear();
    for (const int type : types) {
        SystemeventArgument argument("name"_s, type);
        argument.enumName = "PowerSource"_s;
        event.arguments.append(argument);
    }
    event.descriptions.insert("en"_s, text);
}

QString SystemeventLogfileReaderTest::message(const QByteArray &values)
{
    RecordBytes::Fields fields;
    fields.values = values;
    logs->put(0, record(fields));
    const QString entry = makeReader()->jsonEntry(1, "en"_s);
    return QJsonDocument::fromJson(entry.toUtf8()).object().value("msg"_s).toString();
}

void SystemeventLogfileReaderTest::withoutRecords_data()
{
    QTest::addColumn<QString>("directory");
    QTest::addColumn<QStringList>("debugLines");
    QTest::newRow("empty directory") << "."_s << QStringList{};
    QTest::newRow("missing directory") << "missing"_s << QStringList{};
    QTest::newRow("file of size 0") << "."_s << QStringList{"opening file:  \"zib0.log\""_s};
}

void SystemeventLogfileReaderTest::withoutRecords()
{
    QFETCH(QString, directory);
    QFETCH(QStringList, debugLines);
    if (!debugLines.isEmpty()) {
        logs->put(0, {});
    }
    const Messages debug(QtDebugMsg);
    SystemeventLogfileReader reader(QDir(logs->path(directory)), &catalogue);
    QCOMPARE(reader.getMinLogNr(), noMinimum);
    QCOMPARE(reader.getMaxLogNr(), quint64(0));
    QCOMPARE(reader.jsonEntry(0, "en"_s), QString());
    QCOMPARE(Messages::lines(), debugLines);
}

void SystemeventLogfileReaderTest::numbersOfSeveralFiles()
{
    logs->put(0, record(8) + record(9));
    logs->put(1, record(6) + record(7));
    logs->put(10, record(3));
    const auto reader = makeReader();
    QCOMPARE(reader->getMinLogNr(), quint64(3));
    QCOMPARE(reader->getMaxLogNr(), quint64(9));
    for (const quint64 logNr : {3, 6, 7, 8, 9}) {
        const QString begin = "{\"eventnr\":%1,"_s.arg(logNr);
        QVERIFY2(reader->jsonEntry(logNr, "en"_s).startsWith(begin), qPrintable(begin));
    }
}

void SystemeventLogfileReaderTest::numbersHave64Bits()
{
    const quint64 large = quint64(1) << 63;
    logs->put(0, record(large) + record(large + 1));
    const auto reader = makeReader();
    QCOMPARE(reader->getMinLogNr(), large);
    QCOMPARE(reader->getMaxLogNr(), large + 1);
    QVERIFY(reader->jsonEntry(large, "en"_s).startsWith("{\"eventnr\":9223372036854775808,"_s));
}

void SystemeventLogfileReaderTest::constructionTouchesNothing()
{
    const auto reader = makeReader();
    logs->put(0, record(5));
    QCOMPARE(reader->getMinLogNr(), quint64(5));
}

void SystemeventLogfileReaderTest::queriesRereadOnlyAfterASignal()
{
    logs->put(0, record(1));
    const auto reader = makeReader();
    QCOMPARE(reader->getMaxLogNr(), quint64(1));
    logs->append(0, record(2));
    logs->put(1, record(0));
    QCOMPARE(reader->getMaxLogNr(), quint64(1));
    reader->logfileChanged();
    QCOMPARE(reader->getMaxLogNr(), quint64(2));
    QCOMPARE(reader->getMinLogNr(), quint64(1)); // other files are not looked at
    reader->logfilesRotated();
    QCOMPARE(reader->getMinLogNr(), quint64(0));
}

void SystemeventLogfileReaderTest::appendedRecordsAreIndexedSilently()
{
    logs->put(0, record(1));
    const auto reader = makeReader();
    QCOMPARE(reader->getMaxLogNr(), quint64(1));

    logs->append(0, record(2) + record(3) + record(4));
    reader->logfileChanged();
    const Messages debug(QtDebugMsg);
    QCOMPARE(reader->getMaxLogNr(), quint64(4));
    QCOMPARE(Messages::lines(), QStringList{});
    for (quint64 logNr = 1; logNr <= 4; ++logNr) {
        QVERIFY(!reader->jsonEntry(logNr, "en"_s).isEmpty());
    }
}

void SystemeventLogfileReaderTest::allNewRecordsEndWithAReadError()
{
    logs->put(0, {});
    const auto reader = makeReader();
    QCOMPARE(reader->getMaxLogNr(), quint64(0));

    logs->append(0, record(7) + record(8));
    reader->logfileChanged();
    const Messages debug(QtDebugMsg);
    QCOMPARE(reader->getMinLogNr(), quint64(7)); // the record at position 0 is indexed
    QCOMPARE(reader->getMaxLogNr(), quint64(8));
    QCOMPARE(Messages::lines(),
             QStringList{"read error: \"%1\"  seekpos: -2"_s.arg(logs->path("zib0.log"_s))});
    QVERIFY(!reader->jsonEntry(7, "en"_s).isEmpty());
}

void SystemeventLogfileReaderTest::appendingWithoutCurrentFile()
{
    logs->put(1, record(1));
    const auto reader = makeReader();
    QCOMPARE(reader->getMaxLogNr(), quint64(1));
    logs->put(0, record(2));
    reader->logfileChanged();
    const Messages debug(QtDebugMsg);
    QCOMPARE(reader->getMaxLogNr(), quint64(1));
    QCOMPARE(Messages::lines(), QStringList{});
    reader->logfilesRotated();
    QCOMPARE(reader->getMaxLogNr(), quint64(2));
}

void SystemeventLogfileReaderTest::emptyBundleChangesNothing()
{
    logs->put(0, record(1));
    const auto reader = makeReader();
    QCOMPARE(reader->getMaxLogNr(), quint64(1));
    reader->logfileChanged();
    const Messages debug(QtDebugMsg);
    QCOMPARE(reader->getMaxLogNr(), quint64(1));
    QCOMPARE(Messages::lines(), QStringList{});
}

void SystemeventLogfileReaderTest::rotationRebuildsTheIndex()
{
    logs->put(0, record(1));
    const auto reader = makeReader();
    QCOMPARE(reader->getMaxLogNr(), quint64(1));
    QVERIFY(QFile::remove(logs->path("zib0.log"_s)));
    logs->put(0, record(5));
    reader->logfilesRotated();
    QCOMPARE(reader->getMinLogNr(), quint64(5));
    QCOMPARE(reader->getMaxLogNr(), quint64(5));
    QCOMPARE(reader->jsonEntry(1, "en"_s), QString());
    // The files of before are closed: one descriptor points into the folder.
    int open = 0;
    const QStringList descriptors
        = QDir("/proc/self/fd"_s).entryList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::System);
    for (const QString &descriptor : descriptors) {
        const QString target = QFile::symLinkTarget("/proc/self/fd/"_s + descriptor);
        open += target.startsWith(logs->dir().path()) ? 1 : 0;
    }
    QCOMPARE(open, 1);
}

void SystemeventLogfileReaderTest::fileNumbers_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("isRead");
    QTest::addColumn<bool>("isCurrent"); // takes part in extending the index
    QTest::newRow("zib0.log is number 0") << "zib0.log"_s << true << true;
    QTest::newRow("zib17.log is number 17") << "zib17.log"_s << true << false;
    QTest::newRow("zib0x.log counts as number 0") << "zib0x.log"_s << true << true;
    QTest::newRow("zib1x.log counts as number 0") << "zib1x.log"_s << true << true;
    QTest::newRow("zib00.log is number 0") << "zib00.log"_s << true << true;
    QTest::newRow("the first dot ends the number") << "zib0.1.log"_s << true << true;
    QTest::newRow("no suffix is needed") << "zib3"_s << true << false;
    QTest::newRow("capital letters are as good") << "ZIB0.LOG"_s << true << true;
    QTest::newRow("zibx.log is not read") << "zibx.log"_s << false << false;
    QTest::newRow("zib.log is not read") << "zib.log"_s << false << false;
    QTest::newRow("azib0.log is not read") << "azib0.log"_s << false << false;
}

void SystemeventLogfileReaderTest::fileNumbers()
{
    QFETCH(QString, name);
    QFETCH(bool, isRead);
    QFETCH(bool, isCurrent);
    logs->put(name, record(1));
    const auto reader = makeReader();
    QCOMPARE(reader->getMaxLogNr(), quint64(isRead ? 1 : 0));
    logs->put(name, record(1) + record(2));
    reader->logfileChanged();
    QCOMPARE(reader->getMaxLogNr(), quint64(isCurrent ? 2 : (isRead ? 1 : 0)));
}

void SystemeventLogfileReaderTest::sameFileNumberTheLaterListedWins()
{
    // Listed newest first, so the older file is the later one: it is what number 0
    // leads to, also for the records found in the other.
    RecordBytes::Fields fields;
    fields.logNr = 1;
    logs->put("zib0.log"_s, record(fields));
    fields.logNr = 2;
    logs->put("zib0x.log"_s, record(fields));
    logs->setAge("zib0x.log"_s, 100);
    const auto reader = makeReader();
    QCOMPARE(reader->getMinLogNr(), quint64(1));
    QCOMPARE(reader->getMaxLogNr(), quint64(2));
    QVERIFY(reader->jsonEntry(2, "en"_s).startsWith("{\"eventnr\":2,"_s));
    QVERIFY(reader->jsonEntry(1, "en"_s).startsWith("{\"eventnr\":2,"_s));
}

// The one listed last is what number 0 leads to, and its records count last.
void SystemeventLogfileReaderTest::orderOfFiles_data()
{
    constexpr long millisecond = 1000000; // in nanoseconds
    QTest::addColumn<long>("current");    // nanoseconds of zib0.log in the second of both
    QTest::addColumn<long>("other");      // of zib0x.log
    QTest::addColumn<bool>("currentIsLast");
    QTest::newRow("a millisecond older is last") << 500 * millisecond << 501 * millisecond << true;
    QTest::newRow("a millisecond newer is first")
        << 501 * millisecond << 500 * millisecond << false;
    QTest::newRow("equal ones are listed by name")
        << 500 * millisecond << 500 * millisecond << false;
    QTest::newRow("less than a millisecond is equal")
        << 500 * millisecond << 501 * millisecond - 1 << false;
}

void SystemeventLogfileReaderTest::orderOfFiles()
{
    QFETCH(long, current);
    QFETCH(long, other);
    QFETCH(bool, currentIsLast);
    RecordBytes::Fields fields;
    fields.seconds = 111;
    logs->put("zib0.log"_s, record(fields));
    fields.seconds = 222;
    logs->put("zib0x.log"_s, record(fields));
    constexpr time_t second = 1700000000;
    setModified(logs->path("zib0.log"_s), {second, current});
    setModified(logs->path("zib0x.log"_s), {second, other});
    const QString shown = makeReader()->jsonEntry(1, "en"_s);
    QVERIFY2(shown.contains(currentIsLast ? "\"secs\":\"111."_s : "\"secs\":\"222."_s),
             qPrintable(shown));
}

void SystemeventLogfileReaderTest::linkCountsByItsTarget_data()
{
    QTest::addColumn<time_t>("target"); // zib0.log is of second 1500
    QTest::addColumn<time_t>("link");
    QTest::addColumn<bool>("linkIsLast");
    QTest::newRow("a new link to an older file") << time_t(1000) << time_t(2000) << true;
    QTest::newRow("an old link to a newer file") << time_t(2000) << time_t(1000) << false;
}

void SystemeventLogfileReaderTest::linkCountsByItsTarget()
{
    QFETCH(time_t, target);
    QFETCH(time_t, link);
    QFETCH(bool, linkIsLast);
    RecordBytes::Fields fields;
    fields.seconds = 111;
    logs->put("zib0.log"_s, record(fields));
    setModified(logs->path("zib0.log"_s), {1500, 0});
    fields.seconds = 222;
    logs->put("elsewhere"_s, record(fields));
    setModified(logs->path("elsewhere"_s), {target, 0});
    QVERIFY(QFile::link("elsewhere"_s, logs->path("zib0x.log"_s)));
    setModified(logs->path("zib0x.log"_s), {link, 0}, AT_SYMLINK_NOFOLLOW);
    const QString shown = makeReader()->jsonEntry(1, "en"_s);
    QVERIFY2(shown.contains(linkIsLast ? "\"secs\":\"222."_s : "\"secs\":\"111."_s),
             qPrintable(shown));
}

void SystemeventLogfileReaderTest::numberIsTaken_data()
{
    QTest::addColumn<QString>("kind"); // what has the name zib0x.log and is listed last, if at all
    QTest::addColumn<bool>("taken");
    QTest::newRow("nothing") << QString() << false;
    QTest::newRow("a dangling link takes none") << "dangling link"_s << false;
    QTest::newRow("a link to itself takes none") << "circular link"_s << false;
    QTest::newRow("a pipe takes none") << "pipe"_s << false;
    QTest::newRow("a folder takes it") << "folder"_s << true;
    QTest::newRow("a link to a folder takes it") << "link to a folder"_s << true;
    QTest::newRow("a link to a pipe takes it") << "link to a pipe"_s << true;
    QTest::newRow("an empty file takes it") << "file"_s << true;
}

void SystemeventLogfileReaderTest::numberIsTaken()
{
    QFETCH(QString, kind);
    QFETCH(bool, taken);
    logs->put(0, record(1));
    logs->put(1, record(2));
    makeEntry(logs->path("zib0x.log"_s), kind);
    const auto reader = makeReader();
    // The records of zib0.log are counted, but looked for in what took its number.
    QCOMPARE(reader->getMinLogNr(), quint64(1));
    QCOMPARE(reader->getMaxLogNr(), quint64(2));
    QVERIFY(reader->jsonEntry(2, "en"_s).startsWith("{\"eventnr\":2,"_s));
    const QString shown = reader->jsonEntry(1, "en"_s);
    if (taken) {
        QCOMPARE(shown,
                 R"({"eventnr":0,"secs":"0.0","eventtype":0,"error":"Lookup of typeid 0 )"
                 R"(failed."})"_s);
    } else {
        QVERIFY2(shown.startsWith("{\"eventnr\":1,"_s), qPrintable(shown));
    }
    // New records of zib0.log are found only while the number is its own.
    logs->append(0, record(3));
    reader->logfileChanged();
    QCOMPARE(reader->getMaxLogNr(), quint64(taken ? 2 : 3));
    reader->logfilesRotated();
    QCOMPARE(reader->getMaxLogNr(), quint64(3));
}

void SystemeventLogfileReaderTest::sameLogNumberTheLaterListedWins()
{
    RecordBytes::Fields fields;
    fields.seconds = 111;
    logs->put(0, record(fields));
    fields.seconds = 222;
    logs->put(1, record(fields));
    logs->setAge("zib1.log"_s, 100);
    QVERIFY(makeReader()->jsonEntry(1, "en"_s).contains("\"secs\":\"222."_s));
    logs->setAge("zib0.log"_s, 200);
    QVERIFY(makeReader()->jsonEntry(1, "en"_s).contains("\"secs\":\"111."_s));
}

//! A copy of a file under another number: none of its numbers stand side by side.
void SystemeventLogfileReaderTest::sameLogNumbersThroughoutTheLaterListedWins()
{
    for (int index = 0; index < 2; ++index) {
        RecordBytes::Fields first;
        first.seconds = index == 0 ? 111 : 222;
        RecordBytes::Fields second = first;
        second.logNr = 2;
        logs->put(index, record(first) + record(second));
    }
    logs->setAge("zib1.log"_s, 100);
    const auto reader = makeReader();
    for (const quint64 logNr : {1, 2}) {
        QVERIFY(reader->jsonEntry(logNr, "en"_s).contains("\"secs\":\"222."_s));
    }
}

void SystemeventLogfileReaderTest::foldersAreSkipped()
{
    QVERIFY(logs->dir().mkdir("zib5.log"_s));
    logs->put(0, record(1));
    const auto reader = makeReader();
    QCOMPARE(reader->getMaxLogNr(), quint64(1));
}

void SystemeventLogfileReaderTest::goldenRecord_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("text");
    const auto rows = goldenRecords();
    for (const GoldenRecord &golden : rows) {
        if (!golden.text.isNull()) {
            QTest::newRow(golden.name) << golden.bytes << golden.declaredType << golden.text;
        }
    }
}

void SystemeventLogfileReaderTest::goldenRecord()
{
    QFETCH(QByteArray, bytes);
    QFETCH(int, type);
    QFETCH(QString, text);
    declare({type}, "<%1>"_s);
    QCOMPARE(message(bytes), "<"_s + text + ">"_s);
}

void SystemeventLogfileReaderTest::storedValue_data()
{
    const auto floating = [](auto value) {
        QByteArray bytes(sizeof value, '\0');
        qToLittleEndian(value, bytes.data());
        return bytes;
    };
    QTest::addColumn<int>("type");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("text");
    QTest::newRow("byte 65 is a character") << 0 << QByteArray("A") << "A"_s;
    QTest::newRow("byte above 127 is Latin-1") << 0 << QByteArray("\xE4") << "ä"_s;
    QTest::newRow("bool 7 is 1") << 1 << QByteArray("\x07") << "1"_s;
    QTest::newRow("bool 2 is 1") << 1 << QByteArray("\x02") << "1"_s;
    QTest::newRow("bool 0 is 0") << 1 << QByteArray(1, '\0') << "0"_s;
    QTest::newRow("int16 0xFFFF is -1") << 2 << number(0xFFFF, 2) << "-1"_s;
    QTest::newRow("int16 32767") << 2 << number(32767, 2) << "32767"_s;
    QTest::newRow("int32 is signed") << 3 << number(0x80000000, 4) << "-2147483648"_s;
    QTest::newRow("int64 is signed")
        << 4 << number(quint64(1) << 63, 8) << "-9223372036854775808"_s;
    QTest::newRow("uint64 is unsigned") << 5 << number(~quint64(0), 8) << "18446744073709551615"_s;
    QTest::newRow("float") << 6 << floating(0.1F) << "0.1"_s;
    QTest::newRow("float has six digits") << 6 << floating(1234567.0F) << "1.23457e+06"_s;
    QTest::newRow("double") << 7 << floating(0.1) << "0.1"_s;
    QTest::newRow("double has six digits") << 7 << floating(1234567.0) << "1.23457e+06"_s;
    QTest::newRow("double not a number") << 7 << floating(std::nan("")) << "nan"_s;
    QTest::newRow("double -0 has no sign") << 7 << floating(-0.0) << "0"_s;
    QTest::newRow("string") << 8 << sized("Tür") << "Tür"_s;
    QTest::newRow("string that is not UTF-8") << 8 << sized("a\xFFz") << "a\uFFFDz"_s;
    QTest::newRow("string longer than the file") << 8 << number(1000, 2) << "readerror"_s;
    QTest::newRow("bytearray as UTF-8") << 9 << sized("Tür") << "Tür"_s;
    QTest::newRow("bytearray ends at a zero byte") << 9 << sized(QByteArray("ab\0c", 4)) << "ab"_s;
    QTest::newRow("bytearray longer than the file") << 9 << number(1000, 2) << "readerror"_s;
    QTest::newRow("enum is the item's text") << 11 << QByteArray("\x01") << "battery"_s;
    QTest::newRow("enum byte is unsigned") << 11 << QByteArray("\xFF") << "none"_s;
    QTest::newRow("enum without item is empty") << 11 << QByteArray("\x07") << ""_s;
    QTest::newRow("unknown type") << -1 << QByteArray()
                                  << "unknown argument type! further errors ahead!"_s;
    QTest::newRow("code 12 substitutes nothing") << 12 << QByteArray() << "%1"_s;
    QTest::newRow("code -2 substitutes nothing") << -2 << QByteArray() << "%1"_s;

    const QList<QPair<int, QByteArray>> inner{
        {0, "A"},          {1, "\x07"},       {2, number(0xFFFF, 2)}, {3, number(5, 4)},
        {4, number(5, 8)}, {5, number(5, 8)}, {6, floating(0.5F)},    {7, floating(0.5)},
        {8, sized("x")},   {9, sized("y")},
    };
    const QStringList texts{"A"_s, "1"_s,   "-1"_s,  "5"_s, "5"_s,
                            "5"_s, "0.5"_s, "0.5"_s, "x"_s, "y"_s};
    for (int i = 0; i < inner.size(); ++i) {
        QTest::addRow("variant with code %d", i)
            << 10 << number(quint64(inner[i].first), 2) + inner[i].second << texts[i];
    }
    QTest::newRow("variant of unknown type")
        << 10 << number(0xFFFF, 2) << "type: \"UNKNOWN\", more errors in this logentry possible"_s;
    for (const int code : {10, 11, 12, -2}) {
        QTest::addRow("variant with code %d", code)
            << 10 << number(quint64(code), 2)
            << "unknown type, expect more errors in this entry!"_s;
    }
    QTest::newRow("variant with a string longer than the file")
        << 10 << number(8, 2) + number(1000, 2) << "readerror"_s;
}

void SystemeventLogfileReaderTest::storedValue()
{
    QFETCH(int, type);
    QFETCH(QByteArray, bytes);
    QFETCH(QString, text);
    declare({type}, "<%1>"_s);
    QCOMPARE(message(bytes), "<"_s + text + ">"_s);
    if (!text.contains("readerror"_s)) {
        // It has taken its bytes and no more: the value behind it comes out right.
        declare({type, ArgumentType::Int32}, type == 12 || type == -2 ? "%1"_s : "%1 %2"_s);
        const QString both = message(bytes + number(77, 4));
        QVERIFY2(both.endsWith("77"_s), qPrintable(both));
    }
}

void SystemeventLogfileReaderTest::valueAtTheEndOfTheFile_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("text");
    QTest::newRow("enum cannot be read") << 11 << "readerror"_s;
    QTest::newRow("string cannot be read") << 8 << "readerror"_s;
    QTest::newRow("bytearray cannot be read") << 9 << "readerror"_s;
    QTest::newRow("variant substitutes nothing") << 10 << "%2"_s;
    QTest::newRow("byte counts as zero") << 0 << QString(QChar(0));
    QTest::newRow("bool counts as zero") << 1 << "0"_s;
    QTest::newRow("double counts as zero") << 7 << "0"_s;
}

void SystemeventLogfileReaderTest::valueAtTheEndOfTheFile()
{
    QFETCH(int, type);
    QFETCH(QString, text);
    // Of the record only the end mark and the trailer are left, bytes like any other;
    // the first argument takes them, and nothing is left for the second.
    declare({ArgumentType::Int64, type}, "%1 %2"_s);
    QCOMPARE(message({}).section(QLatin1Char(' '), 1), text);
}

void SystemeventLogfileReaderTest::partOfANumberAtTheEnd()
{
    declare({ArgumentType::Int32}, "%1"_s);
    RecordBytes::Fields fields;
    fields.path = "/a";
    logs->put(0, record(fields)); // ends in 0A 21 00
    QVERIFY(makeReader()->jsonEntry(1, "en"_s).contains("\"msg\":\"8458\""_s));
}

void SystemeventLogfileReaderTest::placeholders_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("message");
    QTest::newRow("numbers, not places, give the order") << "%2 before %1"_s
                                                         << "6 before 5"_s;
    QTest::newRow("a surplus value is dropped") << "value %1"_s
                                                << "value 5"_s;
    QTest::newRow("no placeholder at all") << "none"_s
                                           << "none"_s;
    QTest::newRow("every occurrence") << "%1 %1 %2"_s
                                      << "5 5 6"_s;
    QTest::newRow("a placeholder beyond the values stays") << "%1 %2 %3"_s
                                                           << "5 6 %3"_s;
    QTest::newRow("the lowest number, whatever it is") << "%7 %99"_s
                                                       << "5 6"_s;
    QTest::newRow("a value may complete a placeholder") << "%%1"_s
                                                        << "6"_s;
}

void SystemeventLogfileReaderTest::placeholders()
{
    QFETCH(QString, text);
    QFETCH(QString, message);
    declare({ArgumentType::Int32, ArgumentType::Int32}, text);
    QCOMPARE(this->message(number(5, 4) + number(6, 4)), message);
}

void SystemeventLogfileReaderTest::shortArgumentAreaReadsOn()
{
    // Declared but not stored: the value is taken from the end mark, the trailer and
    // the next record. Only the message suffers.
    declare({ArgumentType::UInt64}, "%1"_s);
    logs->put(0, record(1) + record(2));
    const auto reader = makeReader();
    // 0A, the trailer 2C 00, and five bytes of the next record's number.
    QVERIFY(reader->jsonEntry(1, "en"_s).contains("\"msg\":\"%1\""_s.arg(0x0000000002002C0AULL)));
    QVERIFY(reader->jsonEntry(2, "en"_s).startsWith("{\"eventnr\":2,"_s));
}

void SystemeventLogfileReaderTest::explodingTextStops()
{
    declare({8, 8, 8, 8}, "%1"_s);
    const QByteArray many = QByteArray("%1").repeated(3500);
    const QString text = message(sized(many) + sized(many) + sized(many) + sized(many));
    QCOMPARE(text.size(), 2 * 3500); // the second would make it 24 million characters long
}

void SystemeventLogfileReaderTest::entry_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("text");
    const auto with = [](auto change) {
        RecordBytes::Fields fields;
        change(fields);
        return record(fields);
    };
    using Fields = RecordBytes::Fields;
    const QString tail = R"(,"loglevel":"warning","path":"/power/supply","msg":"M"})"_s;
    QTest::newRow("members in their order")
        << with([](Fields & /*unchanged*/) {})
        << R"({"eventnr":1,"secs":"1700000000.250000","eventtype":1001)"_s + tail;
    QTest::newRow("microseconds without leading zeros")
        << with([](Fields &f) { f.microseconds = 5; })
        << R"({"eventnr":1,"secs":"1700000000.5","eventtype":1001)"_s + tail;
    QTest::newRow("time is unsigned") << with([](Fields &f) {
        f.seconds = -1;
        f.microseconds = -1;
    }) << R"({"eventnr":1,"secs":"18446744073709551615.4294967295","eventtype":1001)"_s + tail;
    QTest::newRow("unknown event") << with([](Fields &f) {
        f.eventId = 999;
        f.microseconds = 7;
    }) << R"({"eventnr":1,"secs":"1700000000.7","eventtype":999,"error":"Lookup of typeid 999 failed."})"_s;
    QTest::newRow("event ids are signed") << with([](Fields &f) {
        f.eventId = -3;
    }) << R"({"eventnr":1,"secs":"1700000000.250000","eventtype":-3,"error":"Lookup of typeid -3 failed."})"_s;
    QTest::newRow("path ends at a zero byte")
        << with([](Fields &f) { f.path = QByteArray("/power/supply\0x", 15); })
        << R"({"eventnr":1,"secs":"1700000000.250000","eventtype":1001)"_s + tail;
    QTest::newRow("path is Latin-1") << with([](Fields &f) {
        f.path = "/t\xC3\xBCr";
    }) << R"({"eventnr":1,"secs":"1700000000.250000","eventtype":1001,"loglevel":"warning","path":"/tÃ¼r","msg":"M"})"_s;
    QTest::newRow("path is not escaped") << with([](Fields &f) {
        f.path = "/\"\\";
    }) << R"({"eventnr":1,"secs":"1700000000.250000","eventtype":1001,"loglevel":"warning","path":"/"\","msg":"M"})"_s;
}

void SystemeventLogfileReaderTest::entry()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, text);
    declare({}, "M"_s);
    logs->put(0, bytes);
    QCOMPARE(makeReader()->jsonEntry(1, "en"_s), text);
    // Level and message: one as it is, the other escaped.
    catalogue.events[1001].logLevelName = "\"w\\"_s;
    declare({}, "a \"b\" \\ c\nd\u0001"_s);
    if (text.contains("\"msg\""_s)) {
        const QString other = makeReader()->jsonEntry(1, "en"_s);
        QVERIFY(other.contains("\"loglevel\":\"\"w\\\","_s));
        QVERIFY(other.endsWith("\"msg\":\"a \\\"b\\\" \\\\ c\\nd\\u0001\"}"_s));
    }
}

void SystemeventLogfileReaderTest::documentedRecord()
{
    catalogue.events[1001].logLevelName = "warning"_s;
    declare({ArgumentType::Bool, ArgumentType::Int32, ArgumentType::Double, ArgumentType::String},
            "Supply %1: %2 A at %3 V from %4"_s);
    const QString docs = QStringLiteral(SEL_DOCS);
    logs->put(0, workedRecord(docs));
    const QString shown = makeReader()->jsonEntry(42, "en"_s);
    QVERIFY(!shown.isEmpty());
    QCOMPARE(fencedBlocks(docs + "/log-format.md"_s, "json"_s), shown);
}

void SystemeventLogfileReaderTest::missingNumberIsEmpty()
{
    logs->put(0, record(1) + record(3));
    const auto reader = makeReader();
    for (const quint64 logNr : {quint64(0), quint64(2), quint64(4), noMinimum}) {
        QCOMPARE(reader->jsonEntry(logNr, "en"_s), QString());
    }
}

void SystemeventLogfileReaderTest::answerOfTheLimitIsRefused()
{
    logs->put(0, record(1) + record(2));
    const auto reader = makeReader();
    const auto answer = reader->jsonRange(1, 2, "en"_s, noMinimum);
    QVERIFY(answer.has_value());
    const auto size = quint64(answer->toUtf8().size());
    QVERIFY(!reader->jsonRange(1, 2, "en"_s, size).has_value());
    QVERIFY(reader->jsonRange(1, 2, "en"_s, size + 1) == answer);
}

void SystemeventLogfileReaderTest::largeAnswer_data()
{
    QTest::addColumn<QString>("firstTexts");
    QTest::addColumn<QString>("otherTexts");
    QTest::addColumn<int>("mostRoom");
    const int any = std::numeric_limits<int>::max();
    const QString small = "nominal"_s;
    const QString large(5000, QLatin1Char('x'));
    QTest::newRow("of like records has hardly more room than it takes") << small << small << 165000;
    QTest::newRow("is whole when its first records are the largest") << large << small << any;
    QTest::newRow("is whole when its first records are the smallest") << small << large << any;
    QTest::newRow("is whole when it stops being plain ASCII")
        << small << QString(large + "\u00E4"_s) << any;
    QTest::newRow("is whole when it becomes plain ASCII")
        << QString(large + "\u20AC"_s) << small << any;
}

//! The room of an answer is guessed from its first records.
void SystemeventLogfileReaderTest::largeAnswer()
{
    QFETCH(QString, firstTexts);
    QFETCH(QString, otherTexts);
    QFETCH(int, mostRoom);
    declare({ArgumentType::String}, "%1"_s);
    QByteArray file;
    QString expected = "["_s;
    for (int nr = 1; nr <= 1200; ++nr) {
        const QString text = nr <= 200 ? firstTexts : otherTexts;
        RecordBytes::Fields fields;
        fields.logNr = quint64(nr);
        fields.values = sized(text.toUtf8());
        file += record(fields);
        expected += R"({"eventnr":%1,"secs":"1700000000.250000","eventtype":1001,)"_s.arg(nr)
            + R"("loglevel":"warning","path":"/power/supply","msg":"%1"},)"_s.arg(text) + "\n"_s;
    }
    expected.replace(expected.size() - 2, 2, "]"_s);
    logs->put(0, file);
    const auto answer = makeReader()->jsonRange(1, 1200, "en"_s, noMinimum);
    QVERIFY(answer == expected);
    QVERIFY2(answer->capacity() <= mostRoom, qPrintable(QString::number(answer->capacity())));
}

void SystemeventLogfileReaderTest::storedNumberIsShown()
{
    logs->put(0, record(1));
    const auto reader = makeReader();
    QCOMPARE(reader->getMaxLogNr(), quint64(1));
    logs->put(0, record(12)); // behind the index's back
    QVERIFY(reader->jsonEntry(1, "en"_s).startsWith("{\"eventnr\":12,"_s));
}

//! Every rotation scans anew: a warning that every scan repeats would fill the journal.
void SystemeventLogfileReaderTest::filesThatCannotBeKeptOpenAreSaidOnce()
{
    for (int index = 0; index < 5; ++index) {
        logs->put(index, record(quint64(10 - index)));
        logs->setAge(LogFolder::name(index), index * 60);
    }
    const auto reader = makeReader();
    for (int onset = 0; onset < 2; ++onset) {
        const Messages warnings(QtWarningMsg);
        const FewDescriptors few(2);
        for (int scan = 0; scan < 3; ++scan) {
            QCOMPARE(reader->getMinLogNr(), quint64(9));
            QCOMPARE(reader->getMaxLogNr(), quint64(10));
            reader->logfilesRotated();
        }
        QCOMPARE(Messages::lines(),
                 QStringList{"Too few file descriptors: 3 log files cannot be kept open and are "
                             "not read."_s});
        const FewDescriptors enough(5);
        QCOMPARE(reader->getMinLogNr(), quint64(6));
        reader->logfilesRotated();
    }
}

void SystemeventLogfileReaderTest::currentFileIsReadWithoutBeingKeptOpen()
{
    logs->put(0, record(7));
    const QString path = logs->path(LogFolder::name(0));
    const FewDescriptors few(0);
    const auto reader = makeReader();
    QCOMPARE(reader->getMinLogNr(), quint64(7));
    QVERIFY(reader->jsonEntry(7, "en"_s).startsWith("{\"eventnr\":7,"_s));
    QCOMPARE(openings(path), 0);
    logs->append(0, record(8));
    reader->logfileChanged();
    QVERIFY(reader->jsonRange(7, 8, "en"_s, 10000)->contains("{\"eventnr\":8,"_s));
    QCOMPARE(openings(path), 0);
    QCOMPARE(reader->getMaxLogNr(), quint64(8));
    QCOMPARE(openings(path), 0);
}

void SystemeventLogfileReaderTest::withoutCatalogueTheProcessEnds()
{
    QProcess child;
    child.start(QCoreApplication::applicationFilePath(), {"--without-catalogue"_s});
    QVERIFY(child.waitForFinished());
    QCOMPARE(child.exitStatus(), QProcess::CrashExit);
    QVERIFY(child.readAllStandardError().contains(
        "SystemeventLogfileReader::SystemeventLogfileReader systemevents==NULL!"));
}

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    if (QCoreApplication::arguments().value(1) == "--without-catalogue"_s) {
        const SystemeventLogfileReader reader(QDir(), nullptr);
        return 0;
    }
    SystemeventLogfileReaderTest test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_systemeventlogfilereader.moc"
