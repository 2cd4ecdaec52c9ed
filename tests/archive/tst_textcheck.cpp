// SPDX-License-Identifier: Apache-2.0

// What can be a text: compared with what Qt makes of the same bytes.

#include "../reader/dice.h"
#include "archive/valuefit.h"
#include "support/literals.h"

#include <QByteArray>
#include <QString>
#include <QTest>

namespace
{

//! What is no text does not come back as it was. A mark of the byte order would not either.
bool comesBack(const QByteArray &bytes)
{
    const QByteArray behindA = 'a' + bytes;
    return !bytes.contains('\0') && QString::fromUtf8(behindA).toUtf8() == behindA;
}

//! Characters of all sizes, at the borders of what there is, and what is almost one.
QByteArray piece(Dice &dice)
{
    static const char *const pieces[] = {
        "a", "~", "\x7F", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80",
        "\xEF\xBF\xBD", "\xF0\x90\x80\x80", "\xF0\x9F\x98\x80", "\xF4\x8F\xBF\xBF",
        // from here on: none
        "\x80", "\xBF", "\xC0\x80", "\xC1\xBF", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xF0\x8F\xBF\xBF",
        "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF", "\xC3", "\xE2\x82", "\xF0\x9F\x98"};
    constexpr int texts = 12;
    if (dice.chance(2)) {
        return QByteArray(1, '\0');
    }
    return QByteArray(pieces[dice.chance(90) ? dice.below(texts) : dice.below(std::size(pieces))]);
}

} // namespace

class TextCheckTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void isText();
};

void TextCheckTest::isText()
{
    constexpr quint32 rounds = 3000;
    int texts = 0;
    for (quint32 round = 0; round < rounds; ++round) {
        Dice dice(1, round);
        QByteArray bytes;
        for (int i = dice.below(12); i >= 0; --i) {
            bytes += piece(dice);
        }
        const std::string_view all(bytes.constData(), size_t(bytes.size()));
        const Archive::IndexedTextCheck indexed(all);
        for (int begin = 0; begin <= bytes.size(); ++begin) {
            const int size = dice.below(int(bytes.size()) - begin + 1);
            const bool expected = comesBack(bytes.mid(begin, size));
            texts += expected ? 1 : 0;
            const std::string_view part = all.substr(size_t(begin), size_t(size));
            const QByteArray hex = bytes.mid(begin, size).toHex(' ');
            QVERIFY2(Archive::TextCheck().isText(part) == expected, hex.constData());
            QVERIFY2(indexed.isText(part) == expected, hex.constData());
        }
    }
    QVERIFY(texts > int(rounds));
}

QTEST_GUILESS_MAIN(TextCheckTest)
#include "tst_textcheck.moc"
