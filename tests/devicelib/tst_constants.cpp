// SPDX-License-Identifier: Apache-2.0
#include "devicelib/constants.h"

#include "support/literals.h"

#include <QtTest>

class ConstantsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void nameUnlessConfigured_data();
    void nameUnlessConfigured();
    void domainOfIndex_data();
    void domainOfIndex();
};

void ConstantsTest::init()
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 3, 0)
    QTest::failOnWarning(QRegularExpression(QStringLiteral(".?")));
#endif
}

void ConstantsTest::nameUnlessConfigured_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("expected");

    QTest::newRow("bus name of the daemon")
        << zib::SystemeventloggerGlobals::SERVICE_NAME << "com.tovel.systemeventlogger"_s;
    QTest::newRow("bus name of the configuration service")
        << zib::FwConfigGlobals::SERVICE_PATH_NAME << "com.tovel.fwconfig"_s;
    QTest::newRow("path of the configuration service's variables")
        << zib::FwConfigGlobals::SYSTEMVARIABLES_PATH << "/systemvariables"_s;
    QTest::newRow("interface of the configuration service's variables")
        << zib::FwConfigGlobals::SYSTEMVARIABLES_INTERFACE
        << "com.tovel.fwconfig.SystemVariables"_s;
}

void ConstantsTest::nameUnlessConfigured()
{
    QFETCH(QString, name);

    QTEST(name, "expected");
}

void ConstantsTest::domainOfIndex_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<QString>("domain");

    QTest::newRow("the device's own parameters are of the domain system")
        << int(zib::ConstParameter::IDX_SYSTEM) << "system"_s;
    QTest::newRow("negative index has no domain") << -1 << ""_s;
    QTest::newRow("unknown index has no domain") << 1 << ""_s;
}

void ConstantsTest::domainOfIndex()
{
    QFETCH(int, index);

    QTEST(zib::ConstParameter::domainForIdx(index), "domain");
}

QTEST_GUILESS_MAIN(ConstantsTest)

#include "tst_constants.moc"
