// SPDX-License-Identifier: Apache-2.0

// The current file: bytes are in it whole or not at all, whatever storage and others do.

#include "binlog/currentfile.h"
#include "support/literals.h"
#include "support/logfolder.h"
#include "support/recordbytes.h"
#include "trouble.h"

#include <QTest>

#include <cerrno>
#include <functional>
#include <memory>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

using Replace = std::function<void(const QString &path)>;
const QByteArray before = "what was there";

} // namespace

Q_DECLARE_METATYPE(Trouble)
Q_DECLARE_METATYPE(Replace)

class CurrentFileTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void opening();
    void whatIsNoFileIsRefused_data();
    void whatIsNoFileIsRefused();
    void lastLogNr_data();
    void lastLogNr();
    void bytesThatFitAreWritten_data();
    void bytesThatFitAreWritten();
    void bytesThatDoNotFitLeaveNothing_data();
    void bytesThatDoNotFitLeaveNothing();
    void tearStaysUntilItCanBeCutOff();
    void fileIsOnlyEverCut_data();
    void fileIsOnlyEverCut();
    void fileChangedByOthersGoesOnAtItsEnd_data();
    void fileChangedByOthersGoesOnAtItsEnd();
    void deletedFileIsNoticed();
    void tearGoesWithTheDeletedFile();
    void tearOutlivesOpeningTheFileAnew();
    void syncing();

private:
    [[nodiscard]] QString path() const { return folder->path(LogFolder::name(0)); }
    [[nodiscard]] QByteArray content() const;
    void tear();

    std::unique_ptr<LogFolder> folder;
    std::unique_ptr<CurrentFile> file;
};

void CurrentFileTest::init()
{
    trouble = {};
    folder = std::make_unique<LogFolder>();
    folder->put(0, before);
    file = std::make_unique<CurrentFile>();
    QCOMPARE(file->device(), nullptr);
    QCOMPARE(file->open(path()).value(), 0);
    syncedSizes.clear();
    writtenSizes.clear();
}

QByteArray CurrentFileTest::content() const
{
    QFile stored(path());
    return stored.open(QIODevice::ReadOnly) ? stored.readAll() : QByteArray("no file");
}

//! Leaves five bytes behind those that were there, to be cut off as soon as that works.
void CurrentFileTest::tear()
{
    trouble.space = 5;
    trouble.truncateError = EROFS;
    QCOMPARE(file->append("torn off").value(), ENOSPC); // not why it could not be cut off
    QVERIFY(file->isTorn());
    QCOMPARE(content(), before + "torn ");
    trouble.space = -1;
}

void CurrentFileTest::opening()
{
    QVERIFY(file->device()->isOpen());
    QCOMPARE(file->size(), before.size());
    QVERIFY(!file->isTorn());
    file->close();
    QVERIFY(!file->device()->isOpen());

    QVERIFY(QFile::remove(path()));
    QCOMPARE(file->open(path()).value(), 0);
    QCOMPARE(content(), QByteArray());
    QCOMPARE(file->append("new").value(), 0);
    QCOMPARE(content(), QByteArray("new"));
    const int flags = fcntl(static_cast<QFile *>(file->device())->handle(), F_GETFD);
    QVERIFY((flags & FD_CLOEXEC) != 0);
}

void CurrentFileTest::whatIsNoFileIsRefused_data()
{
    QTest::addColumn<Replace>("replace");
    QTest::addColumn<int>("reason");
    const auto name = [](const QString &path) { return QFile::encodeName(path); };
    QTest::newRow("a pipe") << Replace([=](const QString &path) {
        QCOMPARE(mkfifo(name(path).constData(), S_IRUSR | S_IWUSR), 0);
    }) << ESPIPE;
    QTest::newRow("a device") << Replace([=](const QString &path) {
        QCOMPARE(symlink("/dev/null", name(path).constData()), 0);
    }) << ESPIPE;
    QTest::newRow("a folder") << Replace([](const QString &path) { QVERIFY(QDir().mkdir(path)); })
                              << EISDIR;
    QTest::newRow("a link into a folder that is missing") << Replace([=](const QString &path) {
        QCOMPARE(symlink("missing/file", name(path).constData()), 0);
    }) << ENOENT;
    QTest::newRow("a link to itself") << Replace([=](const QString &path) {
        QCOMPARE(symlink(name(path).constData(), name(path).constData()), 0);
    }) << ELOOP;
}

void CurrentFileTest::whatIsNoFileIsRefused()
{
    QFETCH(Replace, replace);
    QFETCH(int, reason);
    QVERIFY(QFile::rename(path(), path() + "x"_s));
    replace(path());
    const QIODevice *const device = file->device();
    QCOMPARE(file->open(path()).value(), reason);
    QCOMPARE(file->device(), device); // the file before is still in use
    QCOMPARE(file->append("!").value(), 0);
    QCOMPARE(file->size(), before.size() + 1);

    CurrentFile first;
    QCOMPARE(first.open(path()).value(), reason);
    QCOMPARE(first.device(), nullptr);
}

void CurrentFileTest::lastLogNr_data()
{
    using RecordBytes::record;
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<quint64>("number");
    QTest::newRow("that of the only record") << record(41) << quint64(41);
    QTest::newRow("that of the last of several") << record(99) + record(7) << quint64(7);
    QTest::newRow("0 where there is but a byte") << QByteArray("x") << quint64(0);
}

void CurrentFileTest::lastLogNr()
{
    QFETCH(QByteArray, bytes);
    QFETCH(quint64, number);
    folder->put(0, bytes);
    QCOMPARE(file->lastLogNr(), number);
    QCOMPARE(file->append("end").value(), 0); // reading has moved nothing
    QCOMPARE(content(), bytes + "end");
}

void CurrentFileTest::bytesThatFitAreWritten_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<qint64>("mostAtOnce");
    QTest::addColumn<int>("interruptions");
    QTest::addColumn<QList<qint64>>("writes");
    using Sizes = QList<qint64>;
    const QByteArray large(200000, 'x');
    QTest::newRow("in one write") << QByteArray("bytes") << qint64(-1) << 0 << Sizes{5};
    QTest::newRow("many in one write too") << large << qint64(-1) << 0 << Sizes{200000};
    QTest::newRow("none without a write") << QByteArray() << qint64(-1) << 0 << Sizes{};
    QTest::newRow("in several where the storage takes few")
        << QByteArray("bytes") << qint64(2) << 0 << Sizes{5, 3, 1};
    QTest::newRow("in spite of signals")
        << QByteArray("bytes") << qint64(-1) << 2 << Sizes{5, 5, 5};
}

void CurrentFileTest::bytesThatFitAreWritten()
{
    QFETCH(QByteArray, bytes);
    QFETCH(qint64, mostAtOnce);
    QFETCH(int, interruptions);
    QFETCH(QList<qint64>, writes);
    trouble.mostAtOnce = mostAtOnce;
    trouble.interruptions = interruptions;
    QCOMPARE(file->append(bytes).value(), 0);
    QCOMPARE(writtenSizes, writes);
    QCOMPARE(content(), before + bytes);
    QCOMPARE(file->size(), qint64(content().size()));
    QVERIFY(!file->isTorn());
    QCOMPARE(syncedSizes, QList<qint64>{}); // that is another step
}

void CurrentFileTest::bytesThatDoNotFitLeaveNothing_data()
{
    QTest::addColumn<Trouble>("kind");
    QTest::addColumn<int>("reason");
    const auto writeError = [](int error) {
        Trouble kind;
        kind.writeError = error;
        return kind;
    };
    const auto space = [](qint64 bytes, qint64 mostAtOnce = -1) {
        Trouble kind;
        kind.space = bytes;
        kind.mostAtOnce = mostAtOnce;
        return kind;
    };
    QTest::newRow("a write fails with EIO") << writeError(EIO) << EIO;
    QTest::newRow("a write fails with EROFS") << writeError(EROFS) << EROFS;
    QTest::newRow("a write fails with EDQUOT") << writeError(EDQUOT) << EDQUOT;
    QTest::newRow("no byte fits") << space(0) << ENOSPC;
    QTest::newRow("one byte fits") << space(1) << ENOSPC;
    QTest::newRow("all but the last byte fits") << space(4) << ENOSPC;
    QTest::newRow("the third of several writes fails") << space(4, 2) << ENOSPC;
    QTest::newRow("a write takes nothing and says nothing") << space(-1, 0) << EIO;
}

void CurrentFileTest::bytesThatDoNotFitLeaveNothing()
{
    QFETCH(Trouble, kind);
    QFETCH(int, reason);
    trouble = kind;
    for (int i = 0; i < 2; ++i) {
        QCOMPARE(file->append("bytes").value(), reason);
        QCOMPARE(content(), before);
        QVERIFY(!file->isTorn());
    }
    trouble = {};
    QCOMPARE(file->append("bytes").value(), 0);
    QCOMPARE(content(), before + "bytes");
}

void CurrentFileTest::tearStaysUntilItCanBeCutOff()
{
    tear();
    QCOMPARE(file->mend().value(), EROFS);
    QVERIFY(file->isTorn());
    trouble = {};
    QCOMPARE(file->mend().value(), 0);
    QVERIFY(!file->isTorn());
    QCOMPARE(content(), before);
    QCOMPARE(file->append("!").value(), 0);
    QCOMPARE(file->mend().value(), 0); // there is nothing to do
    QCOMPARE(content(), before + "!");
}

void CurrentFileTest::fileIsOnlyEverCut_data()
{
    QTest::addColumn<int>("size");
    QTest::newRow("one that was emptied stays empty") << 0;
    QTest::newRow("one that became shorter stays as it is") << before.size() - 1;
    QTest::newRow("one that lost its tear alone stays as it is") << int(before.size());
}

void CurrentFileTest::fileIsOnlyEverCut()
{
    QFETCH(int, size);
    tear();
    QVERIFY(QFile::resize(path(), size)); // by somebody else, past the trouble
    QCOMPARE(file->mend().value(), 0);    // there is nothing to cut that could fail
    QVERIFY(!file->isTorn());
    QCOMPARE(file->append("!").value(), 0);
    QCOMPARE(content(), before.left(size) + "!");
}

void CurrentFileTest::fileChangedByOthersGoesOnAtItsEnd_data()
{
    QTest::addColumn<QByteArray>("changed");
    QTest::newRow("emptied") << QByteArray();
    QTest::newRow("shortened") << QByteArray("what");
    QTest::newRow("lengthened") << before + " and more";
}

void CurrentFileTest::fileChangedByOthersGoesOnAtItsEnd()
{
    QFETCH(QByteArray, changed);
    QCOMPARE(file->append("bytes").value(), 0);
    folder->put(0, changed);
    QCOMPARE(file->append("!").value(), 0);
    QCOMPARE(content(), changed + "!");
}

void CurrentFileTest::deletedFileIsNoticed()
{
    QVERIFY(!file->isDeleted());
    QVERIFY(QFile::rename(path(), path() + "x"_s));
    QVERIFY(!file->isDeleted()); // another name is not its business
    QVERIFY(QFile::remove(path() + "x"_s));
    QVERIFY(file->isDeleted());
    QCOMPARE(file->open(path()).value(), 0);
    QVERIFY(!file->isDeleted());
}

void CurrentFileTest::tearGoesWithTheDeletedFile()
{
    tear();
    QVERIFY(QFile::remove(path()));
    const QByteArray other = "by somebody else, and longer than what was there";
    folder->put(0, other);
    QCOMPARE(file->open(path()).value(), 0);
    QVERIFY(!file->isTorn());
    QCOMPARE(content(), other);
}

void CurrentFileTest::tearOutlivesOpeningTheFileAnew()
{
    tear();
    file->close();
    QCOMPARE(file->open(path()).value(), 0);
    QVERIFY(file->isTorn());
    trouble = {};
    QCOMPARE(file->mend().value(), 0);
    QCOMPARE(content(), before);
}

void CurrentFileTest::syncing()
{
    QCOMPARE(file->append("!").value(), 0);
    QCOMPARE(file->sync().value(), 0);
    QCOMPARE(syncedSizes, QList<qint64>{before.size() + 1});
    trouble.fsyncError = EIO;
    QCOMPARE(file->sync().value(), EIO);
    QCOMPARE(content(), before + "!");
}

QTEST_GUILESS_MAIN(CurrentFileTest)
#include "tst_currentfile.moc"
