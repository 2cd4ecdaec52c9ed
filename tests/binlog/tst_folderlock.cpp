// SPDX-License-Identifier: Apache-2.0

// The lock that tells others of the writer, and never holds the writer up.

#include "binlog/folderlock.h"
#include "support/literals.h"
#include "support/lockedfolder.h"

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

#include <sys/resource.h>

class FolderLockTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void lockEndsWithTheObject();
    void lockHasNoFile();
    void lockOfAnotherIsRespected();
    void heldLockIsNeverLetGo();
    void lockFollowsThePath_data();
    void lockFollowsThePath();
    void whatIsNoFolderIsNotLocked_data();
    void whatIsNoFolderIsNotLocked();
    void childrenDoNotInheritIt();

private:
    std::unique_ptr<QTemporaryDir> parent;
    QString path;
    std::unique_ptr<FolderLock> lock;
};

void FolderLockTest::init()
{
    parent = std::make_unique<QTemporaryDir>();
    path = parent->filePath("log"_s);
    QVERIFY(QDir().mkdir(path));
    lock = std::make_unique<FolderLock>(QDir(path));
}

void FolderLockTest::lockEndsWithTheObject()
{
    QVERIFY(!isLocked(path)); // only hold() takes it
    lock->hold();
    QVERIFY(isLocked(path));
    QVERIFY(!isLocked(parent->path()));
    lock.reset();
    QVERIFY(!isLocked(path));
}

void FolderLockTest::lockHasNoFile()
{
    lock->hold();
    QVERIFY(QDir(path).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot));
}

void FolderLockTest::lockOfAnotherIsRespected()
{
    auto other = std::make_unique<LockedFolder>(path);
    QVERIFY(other->lock());
    lock->hold(); // does not wait for it
    QVERIFY(other->lock());
    other.reset();
    QVERIFY(!isLocked(path));
    lock->hold();
    QVERIFY(isLocked(path));
}

//! Whoever lets go first may find it taken.
void FolderLockTest::heldLockIsNeverLetGo()
{
    lock->hold();
    rlimit limit{};
    QCOMPARE(getrlimit(RLIMIT_NOFILE, &limit), 0);
    rlimit none = limit;
    none.rlim_cur = 0; // nothing can be opened anew
    QCOMPARE(setrlimit(RLIMIT_NOFILE, &none), 0);
    lock->hold();
    QCOMPARE(setrlimit(RLIMIT_NOFILE, &limit), 0);
    QVERIFY(isLocked(path));
}

void FolderLockTest::lockFollowsThePath_data()
{
    QTest::addColumn<bool>("isDeleted");
    QTest::newRow("to a folder made anew") << true;
    QTest::newRow("to another one that was put there") << false;
}

void FolderLockTest::lockFollowsThePath()
{
    QFETCH(bool, isDeleted);
    lock->hold();
    const LockedFolder before(path);
    QVERIFY(!before.lock());
    QVERIFY(isDeleted ? QDir().rmdir(path) : QDir().rename(path, path + "x"_s));
    QVERIFY(QDir().mkdir(path));
    lock->hold();
    QVERIFY(isLocked(path));
    QVERIFY(before.lock()); // nothing is kept of the former one
}

void FolderLockTest::whatIsNoFolderIsNotLocked_data()
{
    QTest::addColumn<bool>("isFile");
    QTest::newRow("nothing") << false;
    QTest::newRow("a file") << true;
}

void FolderLockTest::whatIsNoFolderIsNotLocked()
{
    QFETCH(bool, isFile);
    lock->hold();
    const LockedFolder before(path);
    QVERIFY(QDir().rmdir(path));
    if (isFile) {
        QVERIFY(QFile(path).open(QIODevice::WriteOnly));
    }
    lock->hold();
    QVERIFY(before.lock());
    QCOMPARE(QFile::exists(path), isFile);
    QVERIFY(!isLocked(path));
    (void)QFile::remove(path);
    QVERIFY(QDir().mkdir(path));
    lock->hold();
    QVERIFY(isLocked(path));
}

//! One that outlives the writer would keep the lock for ever.
void FolderLockTest::childrenDoNotInheritIt()
{
    lock->hold();
    QProcess child;
    child.start("cat"_s, QStringList());
    QVERIFY(child.waitForStarted());
    lock.reset();
    QVERIFY(!isLocked(path));
    child.closeWriteChannel();
    QVERIFY(child.waitForFinished());
}

QTEST_GUILESS_MAIN(FolderLockTest)
#include "tst_folderlock.moc"
