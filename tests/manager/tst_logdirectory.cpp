// SPDX-License-Identifier: Apache-2.0

#include "manager/logdirectory.h"
#include "support/literals.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

class LogDirectoryTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void ensured_data();
    void ensured();
};

void LogDirectoryTest::ensured_data()
{
    QTest::addColumn<QString>("folders"); // present before
    QTest::addColumn<QString>("file");    // in the way
    QTest::addColumn<bool>("result");
    QTest::newRow("it is there") << "srv/public/log"_s << QString() << true;
    QTest::newRow("the last level is created") << "srv/public"_s << QString() << true;
    QTest::newRow("two levels are created") << "srv"_s << QString() << true;
    QTest::newRow("a third level is not") << "."_s << QString() << false;
    QTest::newRow("a file stands in its place") << "srv/public"_s
                                                << "srv/public/log"_s << false;
    QTest::newRow("a file stands in its parent's place") << "srv"_s
                                                         << "srv/public"_s << false;
}

void LogDirectoryTest::ensured()
{
    QFETCH(QString, folders);
    QFETCH(QString, file);
    QFETCH(bool, result);
    const QTemporaryDir root;
    QVERIFY(QDir(root.path()).mkpath(folders));
    if (!file.isEmpty()) {
        QFile obstacle(root.filePath(file));
        QVERIFY(obstacle.open(QIODevice::WriteOnly));
    }
    const QDir log(root.filePath("srv/public/log"_s));
    QCOMPARE(ensureLogDirectory(log), result);
    QCOMPARE(log.exists(), result);
}

QTEST_GUILESS_MAIN(LogDirectoryTest)
#include "tst_logdirectory.moc"
