// SPDX-License-Identifier: Apache-2.0
#include "app/version.h"

#include "support/literals.h"

#include <QMetaProperty>
#include <QtTest>

class VersionTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void propertiesInTheirOrder();
    void nothingElseIsDeclared();
    void interfaceNameIsThatOfTheField();
    void versionIsADecimalNumber();
    void githashIsACommitId();
    void propertiesAreReadOnly_data();
    void propertiesAreReadOnly();
};

void VersionTest::init()
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 3, 0)
    QTest::failOnWarning(QRegularExpression(QStringLiteral(".?")));
#endif
}

void VersionTest::propertiesInTheirOrder()
{
    const QMetaObject &meta = Version::staticMetaObject;
    QStringList properties;
    for (int i = meta.propertyOffset(); i < meta.propertyCount(); ++i) {
        properties += QLatin1String(meta.property(i).typeName()) + " "_s
            + QLatin1String(meta.property(i).name());
    }

    QCOMPARE(properties, (QStringList{"QString version"_s, "QString githash"_s}));
}

void VersionTest::nothingElseIsDeclared()
{
    const QMetaObject &meta = Version::staticMetaObject;

    QCOMPARE(meta.className(), "Version");
    QCOMPARE(meta.methodCount(), meta.methodOffset());
    QCOMPARE(meta.enumeratorCount(), meta.enumeratorOffset());
}

void VersionTest::interfaceNameIsThatOfTheField()
{
    const QMetaObject &meta = Version::staticMetaObject;
    const int index = meta.indexOfClassInfo("D-Bus Interface");

    QVERIFY(index >= 0);
    QCOMPARE(meta.classInfo(index).value(), "local.Version");
}

void VersionTest::versionIsADecimalNumber()
{
    const QString text = Version().property("version").toString();

    QVERIFY2(QRegularExpression("^[0-9]+$"_s).match(text).hasMatch(), qPrintable(text));
}

void VersionTest::githashIsACommitId()
{
    const QString text = Version().property("githash").toString();

    QVERIFY2(QRegularExpression("^[0-9a-f]{40}$"_s).match(text).hasMatch(), qPrintable(text));
}

void VersionTest::propertiesAreReadOnly_data()
{
    QTest::addColumn<QByteArray>("name");

    QTest::newRow("version cannot be written") << QByteArray("version");
    QTest::newRow("githash cannot be written") << QByteArray("githash");
}

void VersionTest::propertiesAreReadOnly()
{
    QFETCH(QByteArray, name);
    Version version;
    const QVariant before = version.property(name.constData());
    const QMetaObject &meta = Version::staticMetaObject;
    const QMetaProperty property = meta.property(meta.indexOfProperty(name.constData()));

    QVERIFY(!property.isWritable());
    QVERIFY(!property.isResettable());
    QVERIFY(!property.hasNotifySignal());
    QVERIFY(!version.setProperty(name.constData(), "5"_s));
    QCOMPARE(version.property(name.constData()), before);
}

QTEST_GUILESS_MAIN(VersionTest)

#include "tst_version.moc"
