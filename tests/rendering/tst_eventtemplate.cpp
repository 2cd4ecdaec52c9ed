// SPDX-License-Identifier: Apache-2.0
#include "logformat/encoding.h"
#include "rendering/eventtemplate.h"

#include "support/literals.h"

#include <QtTest>

#include <array>
#include <random>

namespace
{

const QString notRendered = QStringLiteral("not rendered");

QString renderStrings(const QString &templateText, const QStringList &strings)
{
    ValueTexts values;
    for (const QString &string : strings) {
        values.substitute(string);
    }
    std::string out = "before ";
    if (!EventTemplate(templateText).render(values, out)) {
        return out == "before " ? notRendered : "something was appended"_s;
    }
    return QString::fromStdString(out).mid(7);
}

QString literally(const QString &templateText, const QStringList &strings)
{
    EventText text(templateText);
    for (const QString &string : strings) {
        text.substitute(string);
    }
    return text.text();
}

} // namespace

class TestEventTemplate : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void inOnePass_data()
    {
        QTest::addColumn<QString>("templateText");
        QTest::addColumn<QStringList>("values");
        QTest::addColumn<QString>("expected");
        const auto row = [](const char *name, const QString &templateText,
                            const QStringList &values, const QString &expected) {
            QTest::newRow(name) << templateText << values << expected;
        };
        row("in order", "a %1 b %2 c"_s, {"x"_s, "y"_s}, "a x b y c"_s);
        row("any order, repeated", "%2 %1 %2"_s, {"x"_s, "y"_s}, "y x y"_s);
        row("lowest first, with gaps", "%7 %99 %10"_s, {"a"_s, "b"_s, "c"_s}, "a c b"_s);
        row("values missing", "%1 %2 %12"_s, {"x"_s}, "x %2 %12"_s);
        row("no placeholder", "plain 100 %"_s, {}, "plain 100 %"_s);
        row("empty", QString(), {}, QString());
        row("side by side, ascending", "%1%2"_s, {"1"_s, "2"_s}, "12"_s);
        row("two digits side by side", "%12%11"_s, {"1"_s, "2"_s}, "21"_s);
        row("two digits and a digit", "%123"_s, {"x"_s}, "x3"_s);
        row("percent elsewhere", "50% %1"_s, {"x"_s}, "50% x"_s);
        row("beyond ASCII", "\u00e4 %1 \u20ac"_s, {"\u00f6"_s}, "\u00e4 \u00f6 \u20ac"_s);
        row("zero byte", "%1."_s, {QString(QChar(0))}, QString(QChar(0)) + "."_s);
        row("digits of another script", "%\u0661"_s, {"x"_s}, "x"_s);
    }
    void inOnePass()
    {
        QFETCH(QString, templateText);
        QFETCH(QStringList, values);
        QTEST(renderStrings(templateText, values), "expected");
        QCOMPARE(renderStrings(templateText, values), literally(templateText, values));
    }

    void leftToEventText_data()
    {
        QTest::addColumn<QString>("templateText");
        QTest::addColumn<QStringList>("values");
        const auto row
            = [](const char *name, const QString &templateText, const QStringList &values) {
                  QTest::newRow(name) << templateText << values;
              };
        row("percent in a value", "%1 %2"_s, {"%2"_s, "y"_s});
        row("percent in front", "%%1"_s, {"1"_s});
        row("percent and letter in front", "%L%1"_s, {"1"_s});
        row("digit joins a placeholder", "%2%1"_s, {"1"_s, "y"_s});
        row("localised", "%L1"_s, {"1"_s});
        row("value left over", "%1"_s, {"x"_s, "y"_s});
        row("long template", QString(65537, QLatin1Char('a')), {});
        row("long result", "%1%1%1%1%1"_s, {QString(60000, QLatin1Char('a'))});
        row("long rest", "%1"_s + QString(65000, QChar(0x20AC)),
            {QString(70000, QLatin1Char('a'))});
    }
    void leftToEventText()
    {
        QFETCH(QString, templateText);
        QFETCH(QStringList, values);
        QCOMPARE(renderStrings(templateText, values), notRendered);
    }

    void percentByAByteOrAnEnumText()
    {
        ValueTexts values;
        values.substitute(QString(QLatin1Char('%')));
        QVERIFY(values.holdsPercent());
        values.clear();
        QVERIFY(!values.holdsPercent());
        values.substitute(std::string_view("50%"));
        QVERIFY(values.holdsPercent());
        values.clear();
        values.substitute(std::string_view("\xC3\xA4%"));
        QVERIFY(values.holdsPercent());
    }

    void plainWork_data()
    {
        QTest::addColumn<QString>("templateText");
        QTest::addColumn<QStringList>("values");
        QTest::addColumn<qint64>("substitutions");
        QTest::addColumn<qint64>("longest");
        const auto row = [](const char *name, const QString &templateText,
                            const QStringList &values, qint64 substitutions, qint64 longest) {
            QTest::newRow(name) << templateText << values << substitutions << longest;
        };
        row("a value goes in once", "a %1"_s, {"xyz"_s}, 1, 4 + 3);
        row("as often as there are values", "%1 %2 %3"_s, {"xyz"_s, "z"_s}, 2, 8 + 4);
        row("as often as there are placeholders", "%1"_s, {"xyz"_s, "%2%2%2"_s}, 1, 2 + 3);
        row("all as often as the most frequent", "%1 %2%2%2"_s, {"xyz"_s, "z"_s}, 2, 9 + 3 * 4);
        row("nothing to fill", "a"_s, {"xyz"_s}, 0, 1);
        row("values count in UTF-8", "%1"_s, {"\u20ac"_s}, 1, 2 + 3);
        row("no text is longer than the limit", "%1%2"_s,
            {QString(600000, QLatin1Char('x')), QString(600000, QLatin1Char('x'))}, 2,
            EventText::maxLength);
    }
    void plainWork()
    {
        QFETCH(QString, templateText);
        QFETCH(QStringList, values);
        ValueTexts texts;
        for (const QString &value : values) {
            texts.substitute(value);
        }
        QFETCH(qint64, substitutions);
        QFETCH(qint64, longest);
        QCOMPARE(EventTemplate(templateText).plainWork(texts), 2 * substitutions * longest);
    }

    void plainWorkIsEnoughForPlainValues_data() { leftToEventText_data(); }
    //! What one pass leaves to EventText is rendered whole where no value makes a placeholder.
    void plainWorkIsEnoughForPlainValues()
    {
        QFETCH(QString, templateText);
        QFETCH(QStringList, values);
        ValueTexts texts;
        for (QString &value : values) {
            value.replace(QLatin1String("%2"), QLatin1String("% 2"));
            texts.substitute(value);
        }
        EventText text(templateText, EventTemplate(templateText).plainWork(texts));
        for (const QString &value : values) {
            text.substitute(value);
        }
        QVERIFY(text.text() == literally(templateText, values));
    }

    void valuesAreWrittenAsEventTextWritesThem()
    {
        ValueTexts values;
        EventText text("%1 %2 %3 %4 %5"_s);
        const auto substitute = [&](auto value) {
            values.substitute(value);
            text.substitute(value);
        };
        substitute(qlonglong(-5));
        substitute(~qulonglong(0));
        substitute(12.03125);
        const std::string_view stored = "\xEF\xBB\xBF\xC3\xA4\xFF";
        values.substitute(stored);
        text.substitute(QString::fromUtf8(stored.data(), int(stored.size())));
        substitute(QString(QChar(0xE4)));
        std::string out;
        QVERIFY(EventTemplate("%1 %2 %3 %4 %5"_s).render(values, out));
        QCOMPARE(QString::fromStdString(out), text.text());
    }

    void valuesArePutIntoATextAsTheyWere()
    {
        const QString templateText = "%L1 %L2 %L3 %L4 %L5"_s;
        const QString marked = QString(QChar(QChar::ByteOrderMark)) + QChar(0xE4);
        ValueTexts values;
        EventText expected(templateText);
        const auto substitute = [&](auto value) {
            values.substitute(value);
            expected.substitute(value);
        };
        const QLocale before;
        QLocale::setDefault(QLocale(QLocale::German));
        substitute(qlonglong(-1234567));
        substitute(~qulonglong(0));
        substitute(12.5);
        substitute(marked);
        substitute("1234567"_s);
        EventText text(templateText);
        values.substituteInto(text);
        QLocale::setDefault(before);
        QCOMPARE(text.text(), expected.text());
        QVERIFY(text.text().startsWith("-1.234.567 18.446"_s)); // numbers are still numbers
        QVERIFY(text.text().endsWith(marked + " 1234567"_s));
    }

    void liveEvents_data()
    {
        QTest::addColumn<QString>("templateText");
        QTest::addColumn<QVariantList>("values");
        const QVariantList all{true,
                               -5,
                               12.5,
                               "text \u00e4"_s,
                               QVariant::fromValue(WrappedValue{"wrapped"_s}),
                               QByteArray("by\0tes", 6),
                               quint8(7),
                               qlonglong(1) << 40,
                               0.1 + 0.2};
        QTest::newRow("all types") << "%1 %2 %3 %4 %5 %6 %7 %8 %9"_s << all;
        QTest::newRow("too many values") << "%1 %2"_s << all;
        QTest::newRow("none") << "%1"_s << QVariantList();
        QTest::newRow("percent") << "%1 %2"_s << QVariantList{"%2"_s, 7};
        QTest::newRow("localised") << "%L1"_s << QVariantList{1234567};
    }
    void liveEvents()
    {
        QFETCH(QString, templateText);
        QFETCH(QVariantList, values);
        const QVariantList args = QVariantList{"/path"_s} + values;
        std::string out = "before ";
        appendLiveEvent(out, EventTemplate(templateText), args);
        QCOMPARE(QString::fromStdString(out),
                 "before "_s + renderLiveEvent(EventTemplate(templateText), args));
    }

    void random_data()
    {
        QTest::addColumn<quint32>("seed");
        for (quint32 seed = 1; seed <= 10; ++seed) {
            QTest::addRow("seed %u", seed) << seed;
        }
    }
    //! Texts of pieces that are likely to meet in a harmful way.
    void random()
    {
        static const std::array<QString, 18> pieces
            = {"%"_s,  "L"_s, "1"_s, "2"_s,  "9"_s,   "%1"_s, "%2"_s,     "%3"_s, "%10"_s,
               "%9"_s, " "_s, "a"_s, "%L"_s, "%L2"_s, "0"_s,  "\u0661"_s, "\""_s, "%99"_s};
        QFETCH(quint32, seed);
        std::mt19937_64 generator(seed);
        const auto randomText = [&generator](quint64 longest) {
            QString text;
            for (quint64 left = generator() % (longest + 1); left > 0; --left) {
                text += pieces[std::size_t(generator() % pieces.size())];
            }
            return text;
        };
        int inOnePass = 0;
        for (int i = 0; i < 5000; ++i) {
            const QString templateText = randomText(8);
            QStringList values;
            for (quint64 left = generator() % 4; left > 0; --left) {
                values.append(randomText(generator() % 3));
            }
            const QString rendered = renderStrings(templateText, values);
            if (rendered != notRendered) {
                QCOMPARE(rendered, literally(templateText, values));
                ++inOnePass;
            }
        }
        QVERIFY(inOnePass > 500);
    }
};

QTEST_GUILESS_MAIN(TestEventTemplate)
#include "tst_eventtemplate.moc"
