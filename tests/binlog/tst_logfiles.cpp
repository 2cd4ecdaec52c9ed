// SPDX-License-Identifier: Apache-2.0

// The set of files: their names, rotation, removal and the folder around them.

#include "binlog/logfiles.h"
#include "support/literals.h"
#include "support/logfolder.h"
#include "support/recordbytes.h"
#include "trouble.h"

#include <QTest>

#include <cerrno>
#include <limits>
#include <memory>

#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr int highest = std::numeric_limits<int>::max();

} // namespace

class LogFilesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void paths();
    void folderIsMadeSure_data();
    void folderIsMadeSure();
    void lastLogNr_data();
    void lastLogNr();
    void removing_data();
    void removing();
    void removingTakesLinksAndNoFolders();
    void rotating_data();
    void rotating();
    void rotatingPastWhatCannotBeMoved();
    void refusedRenameLeavesTheFileAndNoCopy();
    void withoutFolderNothingHappens();

private:
    void put(const QStringList &names) const;
    [[nodiscard]] QStringList contents() const;

    std::unique_ptr<LogFolder> folder;
    std::unique_ptr<LogFiles> files;
};

void LogFilesTest::init()
{
    trouble = {};
    folder = std::make_unique<LogFolder>();
    files = std::make_unique<LogFiles>(folder->dir());
}

//! Files that hold their own names.
void LogFilesTest::put(const QStringList &names) const
{
    for (const QString &name : names) {
        folder->put(name, name.toUtf8());
    }
}

//! What is there, in order of the names, as "name" or "name = other content".
QStringList LogFilesTest::contents() const
{
    QStringList found;
    const QStringList names = folder->dir().entryList(QDir::Files, QDir::Name);
    for (const QString &name : names) {
        QFile file(folder->path(name));
        (void)file.open(QIODevice::ReadOnly);
        const QString content = QString::fromUtf8(file.readAll());
        found.append(content == name ? name : name + " = "_s + content);
    }
    return found;
}

void LogFilesTest::paths()
{
    QCOMPARE(files->path(0), folder->dir().absoluteFilePath("zib0.log"_s));
    QCOMPARE(files->path(highest), folder->dir().absoluteFilePath("zib2147483647.log"_s));
}

void LogFilesTest::folderIsMadeSure_data()
{
    QTest::addColumn<QString>("present"); // a file
    QTest::addColumn<QString>("wanted");
    QTest::addColumn<int>("reason");
    QTest::newRow("one that is there is left alone") << "log/x"_s
                                                     << "log"_s << 0;
    QTest::newRow("one level is made") << "x"_s
                                       << "log"_s << 0;
    QTest::newRow("two levels are not") << "x"_s
                                        << "public/log"_s << ENOENT;
    QTest::newRow("a file is in its place") << "log"_s
                                            << "log"_s << EEXIST;
    QTest::newRow("a file is in its parent's place") << "public"_s
                                                     << "public/log"_s << ENOTDIR;
}

void LogFilesTest::folderIsMadeSure()
{
    QFETCH(QString, present);
    QFETCH(QString, wanted);
    QFETCH(int, reason);
    QVERIFY(folder->dir().mkpath(QFileInfo(present).path()));
    folder->put(present, "x");
    const LogFiles there(QDir(folder->path(wanted)));
    QCOMPARE(there.ensureFolder().value(), reason);
    QCOMPARE(QFileInfo(folder->path(wanted)).isDir(), reason == 0);
    QVERIFY(QFile::exists(folder->path(present)));
}

void LogFilesTest::lastLogNr_data()
{
    QTest::addColumn<QList<int>>("emptyFiles");
    QTest::addColumn<QList<int>>("fullFiles"); // file i ends with record 1000 - i
    QTest::addColumn<quint64>("number");
    QTest::newRow("0 without any file") << QList<int>{} << QList<int>{} << quint64(0);
    QTest::newRow("0 where all are empty") << QList<int>{1, 2} << QList<int>{} << quint64(0);
    QTest::newRow("the current file does not count") << QList<int>{} << QList<int>{0} << quint64(0);
    QTest::newRow("file 1 comes first") << QList<int>{0} << QList<int>{2, 1} << quint64(999);
    QTest::newRow("file 2 where 1 is empty") << QList<int>{1} << QList<int>{2, 3} << quint64(998);
    QTest::newRow("10 comes after 9") << QList<int>{} << QList<int>{10, 9} << quint64(991);
}

void LogFilesTest::lastLogNr()
{
    QFETCH(QList<int>, emptyFiles);
    QFETCH(QList<int>, fullFiles);
    QFETCH(quint64, number);
    for (const int index : qAsConst(emptyFiles)) {
        folder->put(index, {});
    }
    for (const int index : qAsConst(fullFiles)) {
        folder->put(index, RecordBytes::record(1) + RecordBytes::record(quint64(1000 - index)));
    }
    QCOMPARE(files->lastLogNr(), number);
    // Neither blocks nor counts.
    const QList<QString> others{"zib0.log"_s, "zib1.log"_s, "zib5.log"_s};
    for (const QString &name : others) {
        if (!QFile::exists(folder->path(name))) {
            QCOMPARE(mkfifo(qPrintable(folder->path(name)), S_IRUSR | S_IWUSR), 0);
        }
    }
    QVERIFY(folder->dir().mkdir("zib6.log"_s));
    QCOMPARE(files->lastLogNr(), number);
}

void LogFilesTest::removing_data()
{
    QTest::addColumn<int>("from");
    QTest::addColumn<int>("to");
    QTest::addColumn<QStringList>("left");
    const QStringList all{"zib0.log"_s, "zib1.log"_s, "zib10.log"_s, "zib2.log"_s,
                          "zib2147483647.log"_s};
    QTest::newRow("both bounds are included") << 1 << 2 << QStringList{all[0], all[2], all[4]};
    QTest::newRow("one file") << 10 << 10 << QStringList{all[0], all[1], all[3], all[4]};
    QTest::newRow("one that is missing") << 7 << 7 << all;
    QTest::newRow("none in an empty range") << 3 << 2 << all;
    QTest::newRow("two thousand million take no time") << 0 << highest << QStringList{};
}

void LogFilesTest::removing()
{
    QFETCH(int, from);
    QFETCH(int, to);
    QFETCH(QStringList, left);
    const QStringList strangers{"ZIB1.LOG"_s,     "zib-1.log"_s, "zib01.log"_s,
                                "zib1.log.bak"_s, "zib1x.log"_s, "zib2147483648.log"_s,
                                "zib_.log"_s};
    put(strangers);
    put({"zib0.log"_s, "zib1.log"_s, "zib2.log"_s, "zib10.log"_s, "zib2147483647.log"_s});
    files->remove(from, to);
    left.append(strangers);
    left.sort();
    QStringList found = contents();
    found.sort();
    QCOMPARE(found, left);
}

void LogFilesTest::removingTakesLinksAndNoFolders()
{
    put({"target"_s});
    QVERIFY(QFile::link(folder->path("target"_s), folder->path("zib1.log"_s)));
    QVERIFY(QFile::link("missing"_s, folder->path("zib2.log"_s)));
    QVERIFY(folder->dir().mkdir("zib3.log"_s));
    files->remove(0, highest);
    QCOMPARE(folder->dir().entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot),
             (QStringList{"target"_s, "zib3.log"_s}));
}

void LogFilesTest::rotating_data()
{
    QTest::addColumn<int>("last");
    QTest::addColumn<QList<int>>("present");
    QTest::addColumn<QStringList>("rotated");
    const auto moved
        = [](int from) { return LogFolder::name(from + 1) + " = "_s + LogFolder::name(from); };
    QTest::newRow("each moves up, the last is gone")
        << 3 << QList<int>{0, 1, 2, 3} << QStringList{moved(0), moved(1), moved(2)};
    QTest::newRow("gaps stay gaps")
        << 5 << QList<int>{0, 2, 3} << QStringList{moved(0), moved(2), moved(3)};
    QTest::newRow("without a current file the others move")
        << 3 << QList<int>{1} << QStringList{moved(1)};
    QTest::newRow("what lies beyond the last stays")
        << 1 << QList<int>{0, 1, 2, 4}
        << QStringList{moved(0), LogFolder::name(2), LogFolder::name(4)};
    QTest::newRow("no index is too high") << highest << QList<int>{5, highest - 1, highest}
                                          << QStringList{moved(highest - 1), moved(5)};
}

void LogFilesTest::rotating()
{
    QFETCH(int, last);
    QFETCH(QList<int>, present);
    QFETCH(QStringList, rotated);
    for (const int index : qAsConst(present)) {
        put({LogFolder::name(index)});
    }
    files->rotate(last);
    QCOMPARE(contents(), rotated);
}

void LogFilesTest::rotatingPastWhatCannotBeMoved()
{
    put({"zib0.log"_s, "zib1.log"_s, "zib2.log"_s});
    QVERIFY(folder->dir().mkpath("zib4.log/occupied"_s)); // cannot be removed
    put({"zib3.log"_s});
    files->rotate(4);
    QCOMPARE(contents(), (QStringList{"zib0.log"_s, "zib1.log"_s, "zib2.log"_s, "zib3.log"_s}));
    QVERIFY(QFile::remove(folder->path("zib2.log"_s)));
    files->rotate(4);
    QCOMPARE(contents(),
             (QStringList{"zib1.log = zib0.log"_s, "zib2.log = zib1.log"_s, "zib3.log"_s}));
}

void LogFilesTest::refusedRenameLeavesTheFileAndNoCopy()
{
    put({"zib0.log"_s, "zib1.log"_s, "zib2.log"_s});
    trouble.renameError = EXDEV; // what a copy would be made for
    files->rotate(2);
    QCOMPARE(contents(), (QStringList{"zib0.log"_s, "zib1.log"_s}));
    trouble = {};
    files->rotate(2);
    QCOMPARE(contents(), (QStringList{"zib1.log = zib0.log"_s, "zib2.log = zib1.log"_s}));
}

void LogFilesTest::withoutFolderNothingHappens()
{
    QVERIFY(folder->dir().removeRecursively());
    files->remove(0, highest);
    files->rotate(highest);
    QCOMPARE(files->lastLogNr(), quint64(0));
    QVERIFY(!folder->dir().exists());
}

QTEST_GUILESS_MAIN(LogFilesTest)
#include "tst_logfiles.moc"
