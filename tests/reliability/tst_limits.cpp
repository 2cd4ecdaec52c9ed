// SPDX-License-Identifier: Apache-2.0

// Far more of everything than a device has: files, event kinds, languages, text.
//
// SEL_LIMITS_KINDS is the number of event kinds in the large catalogue, 5,000 unless set. Of
// 50,000 the catalogue takes 160 MB on tmpfs and 500 MB in the daemon, several times as much
// with sanitizers.

#include "reliability/processfigures.h"
#include "support/device.h"
#include "support/environment.h"
#include "support/literals.h"
#include "support/recordbytes.h"
#include "support/testbus.h"

#include <QDBusUnixFileDescriptor>
#include <QDateTime>
#include <QElapsedTimer>
#include <QFile>
#include <QHostAddress>
#include <QTemporaryDir>
#include <QTest>
#include <QUdpSocket>

#include <algorithm>
#include <limits>
#include <vector>

#include <sys/resource.h>

namespace
{

constexpr quint64 highest = std::numeric_limits<quint64>::max();
constexpr int slowly = 200000; // milliseconds: a limit against hanging, nothing else

//! The daemon with a limit of open files, as its service manager would set it.
class LimitedDaemon
{
public:
    //! \a limits are the options and the value for the shell's ulimit.
    explicit LimitedDaemon(const QByteArray &limits)
        : daemon(qgetenv("SEL_DAEMON"))
    {
        QFile script(folder.filePath("limited"_s));
        if (!script.open(QIODevice::WriteOnly)
            || !script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner)) {
            qFatal("cannot write a script");
        }
        script.write("#!/bin/sh\nulimit " + limits + " && exec '" + daemon + "'\n");
        qputenv("SEL_DAEMON", QFile::encodeName(script.fileName()));
    }
    ~LimitedDaemon() { qputenv("SEL_DAEMON", daemon); }
    Q_DISABLE_COPY_MOVE(LimitedDaemon)

private:
    QTemporaryDir folder;
    QByteArray daemon;
};

rlim_t hardLimit()
{
    rlimit limit{};
    return getrlimit(RLIMIT_NOFILE, &limit) == 0 ? limit.rlim_max : 0;
}

//! The files of a log that has rotated for years: most are small, some are full.
class ManyFiles
{
public:
    static constexpr int count = 3000;

    explicit ManyFiles(int files = count)
        : firstNumbers(size_t(files))
    {
        for (int index = files - 1; index >= 0; --index) {
            firstNumbers[size_t(index)] = next;
            Device::writeLogFile(index, content(index));
            setAge(index);
        }
    }

    [[nodiscard]] quint64 lastNumber() const { return next - 1; }
    [[nodiscard]] quint64 firstNumber(int index) const { return firstNumbers[size_t(index)]; }
    //! The index of the file that begins with a number, -1 for none.
    [[nodiscard]] int fileBeginningWith(quint64 logNr) const
    {
        for (int index = 0; index < int(firstNumbers.size()); ++index) {
            if (firstNumber(index) == logNr) {
                return index;
            }
        }
        return -1;
    }

private:
    QByteArray content(int index)
    {
        // The current one is short of a rotation by less than a bundle.
        constexpr int nearlyFull = 101000;
        constexpr int full = 102400;
        const int size = index == 0 ? nearlyFull : index % 100 == 1 ? full : 1;
        QByteArray records;
        while (records.size() < size) {
            RecordBytes::Fields fields;
            fields.logNr = next++;
            fields.eventId = Device::fillerId;
            fields.path = "/x";
            records += RecordBytes::record(fields);
        }
        return records;
    }

    //! A renamed file keeps the time of its last record.
    static void setAge(int index)
    {
        QFile file(Device::logPath(index));
        if (!file.open(QIODevice::ReadWrite)
            || !file.setFileTime(QDateTime::currentDateTime().addSecs(-60LL * index),
                                 QFileDevice::FileModificationTime)) {
            qFatal("cannot set a file's time");
        }
    }

    std::vector<quint64> firstNumbers;
    quint64 next = 1;
};

//! Whether a JSON array holds every number of a range once, in order, as a filler.
bool isWholeRange(const QString &json, quint64 first, quint64 last)
{
    const QStringList entries = json.mid(1, json.size() - 2).split(",\n"_s);
    if (quint64(entries.size()) != last - first + 1) {
        return false;
    }
    quint64 number = first;
    for (const QString &entry : entries) {
        if (!entry.startsWith("{\"eventnr\":%1,"_s.arg(number++))
            || !entry.endsWith("\"msg\":\"Filler\"}"_s)) {
            return false;
        }
    }
    return true;
}

//! Starts a daemon that may take its time.
bool startSlowly(Device &device)
{
    device.launch();
    return QTest::qWaitFor([&device] { return device.isServing() || !device.isRunning(); }, slowly)
        && device.isRunning();
}

#ifdef __SANITIZE_ADDRESS__
constexpr int forMemory = 0; // freed memory is kept: nothing comes back that one could wait for
#else
constexpr int forMemory = busPatience;
#endif
constexpr int megabyte = 1048576;
constexpr qint64 emptyDaemon = 64LL * megabyte; // more than it takes with a small catalogue
constexpr int largeId = 1;
constexpr int middleId = 2;
constexpr int middleSize = 60000; // fits into a datagram

//! An event with a string and a text of a size that ends with its placeholder.
QByteArray event(int id, int textSize)
{
    return "<event id=\"" + QByteArray::number(id)
        + "\"><argument type=\"string\"/><description lang=\"en\">" + QByteArray(textSize - 2, 'x')
        + "%1</description></event>";
}

QByteArray catalogueWithText(int size)
{
    return "<systemevents>" + event(largeId, size) + event(middleId, middleSize)
        + "<event id=\"9999\"><description lang=\"en\">Filler</description></event>"
          "</systemevents>";
}

} // namespace

class LimitsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void softLimitOfOpenFilesIsNoLimit();
    void hardLimitOfOpenFilesLeavesTheNewestReadable();
    void veryFewDescriptors_data();
    void veryFewDescriptors();
    void largeCatalogue();
    void largeDescription_data();
    void largeDescription();
    void largeDescriptionsFillAnAnswer();
    void largeDescriptionIsNoDatagram();
    void memoryOfALargeValueComesBack_data();
    void memoryOfALargeValueComesBack();

private:
    [[nodiscard]] QString json(quint64 start, quint64 end, const QString &lang = "en"_s)
    {
        return device->result("jsonLogfile"_s, {start, end, lang}).toString();
    }
    [[nodiscard]] bool rotates();
    [[nodiscard]] bool saysFilesLeftOut(int count);

    TestBus bus;
    std::unique_ptr<Device> device;
};

void LimitsTest::init()
{
    device = std::make_unique<Device>();
    device->config.values.insert("SystemeventLogLocal"_s, "true"_s);
    device->config.values.insert("SystemeventLogtail"_s, QString::number(ManyFiles::count - 1));
}

void LimitsTest::cleanup()
{
    device.reset();
}

//! Emits events until the current file has been replaced.
bool LimitsTest::rotates()
{
    constexpr int enough = 100; // bundles of 2560 bytes in a file of 102400
    for (int bundle = 0; bundle < enough; ++bundle) {
        const auto before = Device::logFile(0).size();
        if (!device->fillBundle()) {
            return false;
        }
        if (Device::logFile(0).size() < before) {
            return true;
        }
    }
    return false;
}

//! Whether the daemon has said, and said once, that it cannot keep so many files open.
bool LimitsTest::saysFilesLeftOut(int count)
{
    const QStringList said = device->outputLines("descriptors"_s);
    return said.size() == 1
        && said.first().endsWith("Too few file descriptors: %1 log files cannot be kept open "
                                 "and are not read."_s.arg(count));
}

void LimitsTest::softLimitOfOpenFilesIsNoLimit()
{
    if (hardLimit() < rlim_t(ManyFiles::count) + 100) {
        QSKIP("the hard limit of open files is too low here");
    }
    const ManyFiles files;
    const LimitedDaemon limited("-S -n 1024");
    QVERIFY(device->start());
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(device->result("getMinLogNr"_s).toULongLong(), 1ULL);
    QCOMPARE(device->result("getMaxLogNr"_s).toULongLong(), files.lastNumber());
    QVERIFY(isWholeRange(json(0, highest), 1, files.lastNumber()));
    const qint64 reading = timer.restart();
    QVERIFY(openedBy(device->processId()).size() >= ManyFiles::count);

    QVERIFY(rotates());
    const qint64 rotating = timer.restart();
    // The oldest file is gone, and nothing else.
    QVERIFY(!QFile::exists(Device::logPath(ManyFiles::count)));
    QVERIFY(QFile::exists(Device::logPath(ManyFiles::count - 1)));
    const quint64 first = files.firstNumber(ManyFiles::count - 2);
    const quint64 last = device->result("getMaxLogNr"_s).toULongLong();
    QVERIFY(last > files.lastNumber());
    QVERIFY(isWholeRange(json(0, highest), first, last));
    qInfo("%d files, %llu records: read in %lld ms, rotated in %lld ms, %d KiB at most",
          ManyFiles::count, files.lastNumber(), reading, rotating,
          memoryOf(device->processId(), "VmHWM"));
}

void LimitsTest::hardLimitOfOpenFilesLeavesTheNewestReadable()
{
    constexpr int limit = 1024;
    constexpr int ownFiles = 64; // more than the daemon has besides its log files
    const ManyFiles files;
    const LimitedDaemon limited("-n " + QByteArray::number(limit));
    QVERIFY(device->start());

    // Every file beyond the limit is left out, the oldest first.
    const quint64 first = device->result("getMinLogNr"_s).toULongLong();
    const int oldest = files.fileBeginningWith(first);
    QVERIFY2(oldest >= limit - ownFiles && oldest < limit, qPrintable(QString::number(oldest)));
    QVERIFY(isWholeRange(json(0, highest), first, files.lastNumber()));
    // Some are left to the bus and the network, which a message can make need one.
    constexpr int spare = 16;
    QVERIFY(openedBy(device->processId()).size() <= limit - spare);
    device->changeRaw("/x"_s, Device::fillerId, QVariant::fromValue(QDBusUnixFileDescriptor(0)));
    QVERIFY(device->isServing());

    // With hardly a descriptor left, three whole files are written, and can be read.
    for (int file = 0; file < 3; ++file) {
        QVERIFY(rotates());
        const quint64 newest = device->result("getMaxLogNr"_s).toULongLong();
        const quint64 beginning = device->result("getMinLogNr"_s).toULongLong();
        QVERIFY(newest > files.lastNumber());
        QVERIFY(files.fileBeginningWith(beginning) >= limit - ownFiles - file - 1);
        QVERIFY(files.fileBeginningWith(beginning) < oldest);
        QVERIFY(isWholeRange(json(0, highest), beginning, newest));
    }
    QCOMPARE(device->outputLines("stored"_s), QStringList());
    QVERIFY(saysFilesLeftOut(ManyFiles::count - oldest - 1));
    // The oldest files are stored all the same.
    QVERIFY(QFile::exists(Device::logPath(ManyFiles::count - 1)));
    qInfo("%d of %d files readable with a hard limit of %d", oldest + 1, ManyFiles::count, limit);
}

void LimitsTest::veryFewDescriptors_data()
{
    QTest::addColumn<int>("limit");
    QTest::addColumn<int>("fewestKept");
    QTest::addColumn<int>("mostKept");
    QTest::addColumn<int>("passed");
    QTest::newRow("with 40 a good part of the files is kept open") << 40 << 8 << 16 << 8;
    QTest::newRow("with 24 some of the newest files are kept open") << 24 << 1 << 6 << 1;
    QTest::newRow("with 16 the current file is opened for every query") << 16 << 0 << 0 << 1;
}

void LimitsTest::veryFewDescriptors()
{
    QFETCH(int, limit);
    QFETCH(int, fewestKept);
    QFETCH(int, mostKept);
    QFETCH(int, passed);
    constexpr int count = 30;
    device->config.values.insert("SystemeventLogtail"_s, QString::number(count - 1));
    const ManyFiles files(count);
    const LimitedDaemon limited("-n " + QByteArray::number(limit));
    QVERIFY(device->start());
    const auto keptFiles = [this] {
        return int(openedBy(device->processId()).filter("/srv/public/log/"_s).size())
            - 1; // the writer's
    };

    const quint64 first = device->result("getMinLogNr"_s).toULongLong();
    const int oldest = files.fileBeginningWith(first);
    const int kept = keptFiles();
    QVERIFY2(kept >= fewestKept && kept <= mostKept, qPrintable(QString::number(kept)));
    QCOMPARE(oldest, std::max(kept - 1, 0));
    QVERIFY(isWholeRange(json(0, highest), first, files.lastNumber()));
    QCOMPARE(keptFiles(), kept);
    QVERIFY(saysFilesLeftOut(count - oldest - 1));

    QVariantList descriptors;
    for (int i = 0; i < passed; ++i) {
        descriptors.append(QVariant::fromValue(QDBusUnixFileDescriptor(0)));
    }
    device->change("/x"_s, Device::fillerId, descriptors);
    QVERIFY(device->isServing());

    for (int file = 0; file < 2; ++file) {
        QVERIFY(rotates());
        QVERIFY(device->fillBundle());
        const quint64 newest = device->result("getMaxLogNr"_s).toULongLong();
        const quint64 beginning = device->result("getMinLogNr"_s).toULongLong();
        QVERIFY(newest > files.lastNumber());
        QVERIFY(isWholeRange(json(0, highest), beginning, newest));
    }
    QCOMPARE(keptFiles(), kept);
    QVERIFY(saysFilesLeftOut(count - oldest - 1)); // not again
    QCOMPARE(device->outputLines("stored"_s), QStringList());
    QVERIFY(QFile::exists(Device::logPath(count - 1)));
    qInfo("%d of %d files readable with a hard limit of %d, %d of them kept open", oldest + 1,
          count, limit, kept);
}

void LimitsTest::largeCatalogue()
{
    constexpr int languages = 40;
    const int kinds = numberFromEnvironment("SEL_LIMITS_KINDS", 5000);
    QFile catalogue("/var/www/data/systemevent.xml"_s);
    QVERIFY(catalogue.open(QIODevice::WriteOnly));
    catalogue.write(
        "<systemevents><enum name=\"LogLevel\"><item value=\"6\" name=\"info\"/></enum>");
    for (int id = 1; id <= kinds; ++id) {
        const QByteArray number = QByteArray::number(id);
        QByteArray xml = "<event id=\"" + number + "\" name=\"kind" + number
            + "\" loglevel=\"info\"><argument type=\"int32\" name=\"value\"/>"
              "<description lang=\"en\">Kind "
            + number + " with %1</description>\n";
        for (int language = 1; language < languages; ++language) {
            const QByteArray code = QByteArray::number(language);
            xml += "<description lang=\"l" + code + "\">Art " + number + " in Sprache " + code
                + " mit dem Wert %1</description>\n";
        }
        QCOMPARE(catalogue.write(xml + "</event>\n"), xml.size() + 9);
    }
    catalogue.write("</systemevents>");
    const qint64 size = catalogue.size();
    catalogue.close();
    const std::vector<int> logged{1, kinds / 2, kinds, kinds + 1};
    QByteArray log;
    for (size_t i = 0; i < logged.size(); ++i) {
        RecordBytes::Fields fields;
        fields.logNr = i + 1;
        fields.eventId = logged[i];
        fields.values = RecordBytes::number(quint64(logged[i]) * 3, 4);
        log += RecordBytes::record(fields);
    }
    Device::writeLogFile(0, log);

    QElapsedTimer timer;
    timer.start();
    QVERIFY(startSlowly(*device));
    const qint64 starting = timer.elapsed();
    for (size_t i = 0; i + 1 < logged.size(); ++i) {
        const QString id = QString::number(logged[i]);
        const QString value = QString::number(logged[i] * 3);
        QVERIFY(
            json(i + 1, i + 1, "l39"_s)
                .endsWith("\"msg\":\"Art %1 in Sprache 39 mit dem Wert %2\"}]"_s.arg(id, value)));
        QVERIFY(
            json(i + 1, i + 1, "l40"_s).endsWith("\"msg\":\"Kind %1 with %2\"}]"_s.arg(id, value)));
    }
    QVERIFY(json(4, 4).endsWith("\"error\":\"Lookup of typeid %1 failed.\"}]"_s.arg(kinds + 1)));
    const qint64 idle = memoryOf(device->processId(), "VmRSS");
    qInfo("%d kinds in %d languages, %lld bytes of XML: start in %lld ms, %lld KiB", kinds,
          languages, size, starting, idle);
#ifndef __SANITIZE_ADDRESS__ // which takes several times as much
    QVERIFY(idle > 0 && idle * 1024 < 5 * size + emptyDaemon);
#endif
}

void LimitsTest::largeDescription_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<QString>("end");
    QTest::newRow("a value that leaves the text at the limit is put in")
        << megabyte << QByteArray("ab") << "xab"_s;
    QTest::newRow("a value that makes the text longer than the limit is left out")
        << megabyte << QByteArray("abc") << "x%1"_s;
    QTest::newRow("a text beyond the limit takes no value")
        << megabyte + 3 << QByteArray("ab") << "x%1"_s;
    QTest::newRow("a text well beyond the limit is shown whole")
        << 4 * megabyte << QByteArray("ab") << "x%1"_s;
}

void LimitsTest::largeDescription()
{
    QFETCH(int, size);
    QFETCH(QByteArray, value);
    QFETCH(QString, end);
    Device::writeCatalogue(catalogueWithText(size));
    RecordBytes::Fields fields;
    fields.eventId = largeId;
    fields.values = RecordBytes::sized(value);
    Device::writeLogFile(0, RecordBytes::record(fields));
    QVERIFY(device->start());
    const QString answer = json(1, 1);
    const auto begin = answer.indexOf("\"msg\":\""_s) + 7;
    const QString message = answer.mid(begin, answer.size() - begin - 3);
    const QString expected = QString(size - end.size(), QLatin1Char('x')) + end;
    QCOMPARE(message.size(), expected.size());
    QVERIFY(message == expected);
}

void LimitsTest::largeDescriptionsFillAnAnswer()
{
    constexpr int records = 60;
    Device::writeCatalogue(catalogueWithText(megabyte));
    QByteArray log;
    for (int i = 1; i <= records; ++i) {
        RecordBytes::Fields fields;
        fields.logNr = quint64(i);
        fields.eventId = largeId;
        fields.values = RecordBytes::sized("ab");
        log += RecordBytes::record(fields);
    }
    Device::writeLogFile(0, log);
    QVERIFY(device->start());
    QCOMPARE(device->call("jsonLogfile"_s, {quint64(0), highest}).errorName(),
             "org.freedesktop.DBus.Error.LimitsExceeded"_s);
    // 31 of them fit below 32 MiB, 32 do not.
    QCOMPARE(device->call("jsonLogfile"_s, {quint64(1), quint64(32)}).errorName(),
             "org.freedesktop.DBus.Error.LimitsExceeded"_s);
    for (int from = 1; from + 30 <= records; from += 29) {
        const QString answer = json(quint64(from), quint64(from) + 30);
        QCOMPARE(answer.count("xab\"}"_s), 31);
        QVERIFY(answer.size() > 31LL * megabyte);
    }
    const qint64 most = memoryOf(device->processId(), "VmHWM");
    const qint64 idle = [this] {
        qint64 now = 0;
        (void)QTest::qWaitFor(
            [&] { return (now = memoryOf(device->processId(), "VmRSS")) * 1024 < emptyDaemon; },
            forMemory);
        return now;
    }();
    qInfo("answers of 31 texts of 1 MiB: %lld KiB at most, %lld KiB afterwards", most, idle);
#ifndef __SANITIZE_ADDRESS__ // which takes several times as much
    QVERIFY(most > 0 && most * 1024 < 10LL * 32 * megabyte);
    QVERIFY(idle > 0 && idle * 1024 < emptyDaemon);
#endif
}

void LimitsTest::largeDescriptionIsNoDatagram()
{
    QUdpSocket receiver;
    QVERIFY(receiver.bind(QHostAddress(QHostAddress::LocalHost), 514));
    Device::writeCatalogue(catalogueWithText(megabyte));
    device->config.values.insert("SystemeventLogNetwork"_s, "true"_s);
    device->config.values.insert("SystemeventLogNetworkaddress"_s, "127.0.0.1"_s);
    QVERIFY(device->start());
    const auto next = [&receiver]() -> QByteArray {
        if (!QTest::qWaitFor([&receiver] { return receiver.hasPendingDatagrams(); }, busPatience)) {
            return {};
        }
        QByteArray datagram(int(receiver.pendingDatagramSize()), Qt::Uninitialized);
        receiver.readDatagram(datagram.data(), datagram.size());
        return datagram;
    };
    device->change("/large"_s, largeId, {"ab"_s});
    device->change("/middle"_s, middleId, {"ab"_s});
    device->change("/x"_s, Device::fillerId, {});
    // Of the three the network carries the last two; the log has them all.
    const QByteArray middle = next();
    QVERIFY(middle.contains("[/middle] xxx") && middle.endsWith("xab"));
    QVERIFY(middle.size() > middleSize);
    QVERIFY(next().endsWith("[/x] Filler"));
    QVERIFY(device->fillBundle());
    const QString first = json(1, 1);
    QVERIFY(first.endsWith("xab\"}]"_s) && first.size() > megabyte);
    QVERIFY(json(2, 2).endsWith("xab\"}]"_s));
}

void LimitsTest::memoryOfALargeValueComesBack_data()
{
    QTest::addColumn<bool>("stored");
    QTest::addColumn<bool>("forwarded");
    QTest::newRow("where it is stored") << true << false;
    QTest::newRow("where it is forwarded") << false << true;
    QTest::newRow("where it is both") << true << true;
}

void LimitsTest::memoryOfALargeValueComesBack()
{
    QFETCH(bool, stored);
    QFETCH(bool, forwarded);
    constexpr qint64 little = 1024; // KiB, beside those of the value
    device->config.values.insert("SystemeventLogLocal"_s, stored ? "true"_s : "false"_s);
    device->config.values.insert("SystemeventLogNetwork"_s, forwarded ? "true"_s : "false"_s);
    device->config.values.insert("SystemeventLogNetworkaddress"_s, "127.0.0.1"_s);
    QVERIFY(device->start());
    const auto send = [this](int size) {
        device->change("/x"_s, 1002, {QString(size, QLatin1Char('x'))});
        device->change("/x"_s, 1002, {"an ordinary one behind it"_s});
        device->settle();
    };
    send(middleSize); // whatever does not depend on the size is there now
    const qint64 before = memoryOf(device->processId(), "VmRSS");
    send(3 * megabyte);
    const qint64 most = memoryOf(device->processId(), "VmHWM");
    const qint64 after = [&] {
        qint64 now = 0;
        (void)QTest::qWaitFor(
            [&] { return (now = memoryOf(device->processId(), "VmRSS")) < before + little; },
            forMemory);
        return now;
    }();
    qInfo("a value of 3 MiB: %lld KiB before, %lld at most, %lld afterwards", before, most, after);
#ifndef __SANITIZE_ADDRESS__ // which keeps freed memory for a while
    QVERIFY(before > 0 && most > before + 3 * little);
    QVERIFY2(after < before + little, "the memory of a large value stays");
#endif
}

QTEST_GUILESS_MAIN(LimitsTest)
#include "tst_limits.moc"
