// SPDX-License-Identifier: Apache-2.0

// A folder is looked through while it is written, rotated and cleared: no false alarm.
// SEL_LIVE_SECONDS is how long, 5 unless told otherwise.

#include "archive/folderreport.h"
#include "binlog/binaryloginterface.h"
#include "support/environment.h"
#include "support/literals.h"
#include "support/logfolder.h"

#include <QElapsedTimer>
#include <QTest>
#include <QThread>

#include <atomic>
#include <cstdio>
#include <memory>

namespace
{

constexpr uint bundleLimit = 12000; // several pages: a write in progress can be seen
constexpr uint fileLimit = 60000;
constexpr int highestIndex = 5;

constexpr int enough = 10; // looks and rotations, for which a busy machine takes longer

//! Whether it has gone on for so many seconds, and with something to be seen.
bool isEnough(qint64 elapsed, int seconds, int looks, int rotations)
{
    constexpr int patience = 100000; // milliseconds; only so that a hang ends
    return elapsed / 1000 >= seconds
        && ((looks > enough && rotations > enough) || elapsed > patience);
}

void silence(QtMsgType /*type*/, const QMessageLogContext & /*context*/,
             const QString & /*message*/)
{
}

} // namespace

class LiveFolderTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { qInstallMessageHandler(silence); }
    void cleanupTestCase() { qInstallMessageHandler(nullptr); }
    void neverAFalseAlarm_data();
    static void neverAFalseAlarm();
};

void LiveFolderTest::neverAFalseAlarm_data()
{
    QTest::addColumn<bool>("clears");
    QTest::newRow("written and rotated") << false;
    QTest::newRow("cleared at times, too") << true;
}

void LiveFolderTest::neverAFalseAlarm()
{
    QFETCH(bool, clears);
    const int seconds = numberFromEnvironment("SEL_LIVE_SECONDS", 5);
    const LogFolder folder;
    std::atomic_bool isEnding = false;
    std::atomic_int rotations = 0;
    const std::unique_ptr<QThread> writer(QThread::create([&] {
        BinaryLogInterface log(bundleLimit, 3600, highestIndex, fileLimit, folder.dir());
        QObject::connect(&log, &BinaryLogInterface::logsRotated, &log, [&] { ++rotations; });
        for (int i = 0; !isEnding; ++i) {
            log.logEvent(1001, {"/power/supply"_s, i, QString(i % 300, QLatin1Char('x'))});
            if (clears && i % 20000 == 19999) {
                log.clearLogfiles();
            }
        }
    }));
    writer->start();
    QElapsedTimer timer;
    timer.start();
    int looks = 0;
    quint64 records = 0;
    QString alarm;
    while (!isEnough(timer.elapsed(), seconds, looks, rotations) && alarm.isEmpty()) {
        Archive::Folder archive(folder.dir().path());
        if (!archive.open()) {
            alarm = "the folder cannot be opened"_s;
            break;
        }
        const Archive::FolderReport report
            = Archive::reportOn(archive, [&alarm](const Archive::FileReport &file) {
                  for (const Archive::Stretch &stretch : file.damaged) {
                      alarm = "zib%1.log, %2 to %3 of %4: "_s.arg(file.file)
                                  .arg(stretch.from)
                                  .arg(stretch.to)
                                  .arg(file.size)
                          + Archive::faultText(stretch.reason);
                  }
              });
        if (report.error != 0) {
            alarm = "a file cannot be read: "_s + qt_error_string(report.error);
        } else if (!report.numbers.repeated().empty()) {
            alarm = "repeated numbers"_s;
        } else if (!report.numbers.missing().empty() && !clears) {
            alarm = "missing numbers"_s;
        } else if (report.readByDaemon != report.records) {
            alarm = "the daemon does not find all records"_s;
        }
        ++looks;
        records += report.records;
    }
    isEnding = true;
    QVERIFY(writer->wait());
    QCOMPARE(alarm, QString());
    std::printf("%d looks at %llu records, %d rotations\n", looks, records, int(rotations));
    QVERIFY(looks > enough && rotations > enough);
}

QTEST_GUILESS_MAIN(LiveFolderTest)
#include "tst_livefolder.moc"
