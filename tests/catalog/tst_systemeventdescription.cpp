// SPDX-License-Identifier: Apache-2.0
#include "catalog/systemeventdescription.h"
#include "support/literals.h"

#include <QtTest>

using Texts = QHash<QString, QString>;

class SystemeventDescriptionTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void construction();
    void textInLanguage_data();
    void textInLanguage();
    void missingText_data();
    void missingText();
};

void SystemeventDescriptionTest::init()
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 3, 0)
    QTest::failOnWarning(QRegularExpression(QStringLiteral(".?")));
#endif
}

void SystemeventDescriptionTest::construction()
{
    const SystemeventDescription event(1001, "supplyChanged"_s, "warning"_s, "power"_s);

    QCOMPARE(event.id, 1001U);
    QCOMPARE(event.name, "supplyChanged"_s);
    QCOMPARE(event.logLevelName, "warning"_s);
    QCOMPARE(event.logLevel, 7);
    QCOMPARE(event.service, "power"_s);
    QVERIFY(event.arguments.isEmpty());
    QVERIFY(event.descriptions.isEmpty());
}

void SystemeventDescriptionTest::textInLanguage_data()
{
    QTest::addColumn<Texts>("texts");
    QTest::addColumn<QString>("lang");
    QTest::addColumn<QString>("text");

    const Texts both{{"de"_s, "Netz %1"_s}, {"en"_s, "Mains %1"_s}};
    QTest::newRow("language that is there") << both << "de"_s
                                            << "Netz %1"_s;
    QTest::newRow("English is there") << both << "en"_s
                                      << "Mains %1"_s;
    QTest::newRow("missing language falls back to English") << both << "fr"_s
                                                            << "Mains %1"_s;
    QTest::newRow("empty language falls back to English") << both << ""_s
                                                          << "Mains %1"_s;
    QTest::newRow("null language falls back to English") << both << QString() << "Mains %1"_s;
    QTest::newRow("language in another case falls back to English") << both << "DE"_s
                                                                    << "Mains %1"_s;
    QTest::newRow("language with a region falls back to English") << both << "de_DE"_s
                                                                  << "Mains %1"_s;
    QTest::newRow("text without a language is found by the empty one")
        << Texts{{""_s, "Bare"_s}, {"en"_s, "Mains"_s}} << ""_s
        << "Bare"_s;
    QTest::newRow("empty text is a text") << Texts{{"de"_s, ""_s}, {"en"_s, "Mains"_s}} << "de"_s
                                          << ""_s;
    QTest::newRow("empty English text is a text") << Texts{{"en"_s, ""_s}} << "de"_s
                                                  << ""_s;
}

void SystemeventDescriptionTest::textInLanguage()
{
    QFETCH(Texts, texts);
    QFETCH(QString, lang);
    SystemeventDescription event(1001, "supplyChanged"_s, "warning"_s, "power"_s);
    event.descriptions = texts;

    QTEST(event.description(lang), "text");
}

void SystemeventDescriptionTest::missingText_data()
{
    QTest::addColumn<Texts>("texts");
    QTest::addColumn<uint>("id");
    QTest::addColumn<QString>("lang");
    QTest::addColumn<QString>("idText");

    const Texts german{{"de"_s, "Netz"_s}};
    QTest::newRow("English is missing") << german << 1001U << "en"_s
                                        << "1001"_s;
    QTest::newRow("language and English are missing") << german << 1001U << "fr"_s
                                                      << "1001"_s;
    QTest::newRow("upper-case EN is not English") << Texts{{"EN"_s, "Mains"_s}} << 1001U << "en"_s
                                                  << "1001"_s;
    QTest::newRow("there are no texts") << Texts() << 0U << "de"_s
                                        << "0"_s;
    QTest::newRow("the id is unsigned") << Texts() << 4294967291U << "en"_s
                                        << "4294967291"_s;
}

void SystemeventDescriptionTest::missingText()
{
    QFETCH(Texts, texts);
    QFETCH(uint, id);
    QFETCH(QString, lang);
    QFETCH(QString, idText);
    SystemeventDescription event(id, "supplyChanged"_s, "warning"_s, "power"_s);
    event.descriptions = texts;

    QCOMPARE(event.description(lang),
             "Meta-Error: Id:"_s + idText + " No log description found, this should not happen!"_s);
}

QTEST_GUILESS_MAIN(SystemeventDescriptionTest)

#include "tst_systemeventdescription.moc"
