// SPDX-License-Identifier: Apache-2.0

// Texts as JSON: valid, the same when read, and without what moves a terminal's cursor.

#include "ctl/jsonobject.h"
#include "support/literals.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include <limits>
#include <utility>

class JsonObjectTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyCharacterAtEveryPlace();
    void keysAndNumbers();
};

namespace
{

//! The text of a member "a" behind the reading, as it was written and as it is read.
struct Written {
    explicit Written(const std::string &text)
    {
        std::string json;
        JsonObject object(json);
        object.add("a", std::string_view(text));
        object.end();
        raw = QByteArray::fromStdString(json);
        read = QJsonDocument::fromJson(raw).object().value("a"_s);
    }

    QByteArray raw;
    QJsonValue read;
};

bool isPlain(uint character)
{
    return character >= 0x20 && character < 0x7F && character != '"' && character != '\\';
}

} // namespace

// Texts are looked at eight bytes at a time, so that the place counts.
void JsonObjectTest::everyCharacterAtEveryPlace()
{
    constexpr int longest = 18;
    QList<uint> characters{0x80, 0x9F, 0xA0, 0xE4, 0x200E, 0x202E, 0x2066, 0x20AC, 0x1F4A5};
    for (uint ascii = 0; ascii < 0x80; ++ascii) {
        characters.append(ascii);
    }
    for (const uint character : std::as_const(characters)) {
        const auto code = char32_t(character);
        const QString one = QString::fromUcs4(&code, 1);
        for (int length = 0; length < longest; ++length) {
            for (int place = 0; place <= length; ++place) {
                const QString text = QString(place, QLatin1Char('~')) + one
                    + QString(length - place, QLatin1Char('!'));
                const Written written(text.toStdString());
                QVERIFY2(written.read.isString(), written.raw.constData());
                QCOMPARE(written.read.toString(), text);
                QCOMPARE(written.raw == "{\"a\":\"" + text.toUtf8() + "\"}",
                         isPlain(character) || character == 0xA0 || character == 0xE4
                             || character == 0x20AC || character == 0x1F4A5);
            }
        }
    }
    QCOMPARE(Written({}).raw, QByteArray("{\"a\":\"\"}"));
}

void JsonObjectTest::keysAndNumbers()
{
    std::string json;
    JsonObject object(json);
    object.addNumber("smallest", std::numeric_limits<qint64>::min())
        .addLarge("largest", std::numeric_limits<quint64>::max())
        .addLarge("aKeyOfTwentyEightCharacters_", std::numeric_limits<qint64>::min())
        .addFlag("flag", true)
        .addNull("null")
        .addHex("hex", "\x01\xFF")
        .add("none", std::string_view()); // which leads to no byte
    object.end();
    QCOMPARE(QByteArray::fromStdString(json),
             QByteArray("{\"smallest\":-9223372036854775808,\"largest\":\"18446744073709551615\","
                        "\"aKeyOfTwentyEightCharacters_\":\"-9223372036854775808\","
                        "\"flag\":true,\"null\":null,\"hex\":\"01ff\",\"none\":\"\"}"));
}

QTEST_GUILESS_MAIN(JsonObjectTest)
#include "tst_jsonobject.moc"
