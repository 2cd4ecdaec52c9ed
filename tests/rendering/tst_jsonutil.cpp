// SPDX-License-Identifier: Apache-2.0
#include "rendering/jsonutil.h"

#include "support/literals.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QtTest>

class JsonUtilTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void escaped_data();
    void escaped();
    void everyCharacterSurvivesParsing();
    void charactersBeyond16BitsSurviveParsing();
};

namespace
{

//! What a parser reads from the escaped text; null where it is no JSON.
QString parsed(const QString &escapedText)
{
    const QByteArray json = "[\"" + escapedText.toUtf8() + "\"]";
    const QJsonArray array = QJsonDocument::fromJson(json).array();
    return array.size() == 1 ? array.first().toString() : QString();
}

//! Behind a character that stays, which keeps a byte order mark from being taken for one.
QString escape(const QString &text)
{
    std::string utf8 = "\"" + text.toStdString();
    jsonUtil::escape(utf8, 1);
    return QString::fromStdString(utf8).mid(1);
}

} // namespace

void JsonUtilTest::init()
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 3, 0)
    QTest::failOnWarning(QRegularExpression(QStringLiteral(".?")));
#endif
}

void JsonUtilTest::escaped_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("json");

    QTest::newRow("plain text stays") << "Value 5"_s
                                      << "Value 5"_s;
    QTest::newRow("empty text stays") << ""_s
                                      << ""_s;
    QTest::newRow("quote gets a backslash") << R"(a"b)"_s
                                            << R"(a\"b)"_s;
    QTest::newRow("backslash gets a backslash") << R"(a\b)"_s
                                                << R"(a\\b)"_s;
    QTest::newRow("what is escaped already is escaped again") << R"(\n)"_s
                                                              << R"(\\n)"_s;
    QTest::newRow("backspace has a short form") << "\b"_s
                                                << R"(\b)"_s;
    QTest::newRow("form feed has a short form") << "\f"_s
                                                << R"(\f)"_s;
    QTest::newRow("line feed has a short form") << "\n"_s
                                                << R"(\n)"_s;
    QTest::newRow("carriage return has a short form") << "\r"_s
                                                      << R"(\r)"_s;
    QTest::newRow("tabulator has a short form") << "\t"_s
                                                << R"(\t)"_s;
    QTest::newRow("zero has a long form") << QString(QChar(0)) << R"(\u0000)"_s;
    QTest::newRow("vertical tabulator has a long form") << "\v"_s
                                                        << R"(\u000B)"_s;
    QTest::newRow("escape has a long form, in upper case") << "\x1B"_s
                                                           << R"(\u001B)"_s;
    QTest::newRow("last control character has a long form") << "\x1F"_s
                                                            << R"(\u001F)"_s;
    QTest::newRow("blank stays") << " "_s
                                 << " "_s;
    QTest::newRow("slash stays") << "/power/supply"_s
                                 << "/power/supply"_s;
    QTest::newRow("apostrophe stays") << "'"_s
                                      << "'"_s;
    QTest::newRow("delete stays") << "\x7F"_s
                                  << "\x7F"_s;
    QTest::newRow("umlaut stays") << "Tür"_s
                                  << "Tür"_s;
    QTest::newRow("character beyond 16 bits stays") << "\U0001F50B"_s
                                                    << "\U0001F50B"_s;
    QTest::newRow("line separator stays") << "\u2028"_s
                                          << "\u2028"_s;
    QTest::newRow("byte order mark stays") << "\uFEFFa\""_s
                                           << "\uFEFFa\\\""_s;
    QTest::newRow("all kinds in one text") << "a\"\\\n\x01z"_s
                                           << R"(a\"\\\n\u0001z)"_s;
}

void JsonUtilTest::escaped()
{
    QFETCH(QString, text);

    QTEST(escape(text), "json");
}

void JsonUtilTest::everyCharacterSurvivesParsing()
{
    QString all;
    for (uint code = 0; code <= 0xFFFF; ++code) {
        const QChar character = QChar(ushort(code));
        if (character.isSurrogate()) {
            continue;
        }
        const QString text = "<"_s + character + ">"_s;
        QVERIFY2(parsed(escape(text)) == text, qPrintable(QString::number(code, 16)));
        all += character;
    }
    QVERIFY(parsed(escape(all)) == all);
}

void JsonUtilTest::charactersBeyond16BitsSurviveParsing()
{
    for (uint code = 0x10000; code <= 0x10FFFF; code += 0x3F7) {
        const QString text
            = QString(QChar(QChar::highSurrogate(code))) + QChar(QChar::lowSurrogate(code));
        QCOMPARE(parsed(escape(text)), text);
    }
}

QTEST_GUILESS_MAIN(JsonUtilTest)

#include "tst_jsonutil.moc"
