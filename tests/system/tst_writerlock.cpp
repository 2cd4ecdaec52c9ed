// SPDX-License-Identifier: Apache-2.0

// While the daemon runs, others find its log folder locked, and their locks do not hold it up.

#include "support/device.h"
#include "support/literals.h"
#include "support/lockedfolder.h"
#include "support/testbus.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTest>

#include <memory>

namespace
{

const QString logFolder = QStringLiteral("/srv/public/log");

//! As scripts see it.
bool isFree()
{
    return QProcess::execute("flock"_s, {"-n"_s, logFolder, "true"_s}) == 0;
}

} // namespace

class WriterLockTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void folderIsLockedFromStartToEnd();
    void lockOutlivesRotationAndClearing();
    void folderMadeAnewIsLocked();
    void lockOfAnotherStopsNothing();

private:
    [[nodiscard]] bool rotates();

    TestBus bus;
    std::unique_ptr<Device> device;
};

void WriterLockTest::init()
{
    device = std::make_unique<Device>();
    device->config.values.insert("SystemeventLogLocal"_s, "true"_s);
}

void WriterLockTest::cleanup()
{
    device.reset();
}

//! Fills a whole file.
bool WriterLockTest::rotates()
{
    constexpr int enough = 100; // bundles of 2560 bytes in a file of 102400
    for (int i = 0; i < enough; ++i) {
        if (!device->fillBundle()) {
            return false;
        }
        if (QFile::exists(Device::logPath(1))) {
            return true;
        }
    }
    return false;
}

void WriterLockTest::folderIsLockedFromStartToEnd()
{
    QVERIFY(QDir().mkdir(logFolder));
    QVERIFY(isFree());
    QVERIFY(device->start());
    QVERIFY(!isFree());
    QCOMPARE(QDir(logFolder).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
             QStringList{"zib0.log"_s});
    device->stop();
    QVERIFY(isFree());
}

void WriterLockTest::lockOutlivesRotationAndClearing()
{
    QVERIFY(device->start());
    QVERIFY(rotates());
    QVERIFY(!isFree());
    QCOMPARE(device->call("clearLogfiles"_s).type(), QDBusMessage::ReplyMessage);
    QVERIFY(!QFile::exists(Device::logPath(1)));
    QVERIFY(!isFree());
}

void WriterLockTest::folderMadeAnewIsLocked()
{
    QVERIFY(device->start());
    QVERIFY(QDir(logFolder).removeRecursively());
    QVERIFY(device->fillBundle());
    QVERIFY(!isFree());
    // Of the deleted one nothing is kept that would hold its space.
    const QDir descriptors("/proc/%1/fd"_s.arg(device->processId()));
    const QFileInfoList all = descriptors.entryInfoList(QDir::AllEntries | QDir::System);
    QStringList folders;
    for (const QFileInfo &descriptor : all) {
        const QString target = descriptor.symLinkTarget();
        if (target.startsWith(logFolder) && !target.contains("zib"_s)) {
            folders.append(target);
        }
    }
    QCOMPARE(folders, QStringList{logFolder});
}

void WriterLockTest::lockOfAnotherStopsNothing()
{
    QVERIFY(QDir().mkdir(logFolder));
    auto other = std::make_unique<LockedFolder>(logFolder);
    QVERIFY(other->lock());
    QVERIFY(device->start());
    QVERIFY(device->fillBundle());
    QCOMPARE(device->call("clearLogfiles"_s).type(), QDBusMessage::ReplyMessage);
    QVERIFY(device->fillBundle());
    QCOMPARE(device->outputLines("stored"_s), QStringList());
    QVERIFY(other->lock());
    other.reset();
    QVERIFY(isFree());
    QVERIFY(rotates()); // the next occasion to take it
    QVERIFY(!isFree());
}

QTEST_GUILESS_MAIN(WriterLockTest)
#include "tst_writerlock.moc"
