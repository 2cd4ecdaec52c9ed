// SPDX-License-Identifier: Apache-2.0
#include "logformat/encoding.h"
#include "rendering/eventtemplate.h"
#include "support/literals.h"

#include <QDBusObjectPath>
#include <QDBusSignature>
#include <QRandomGenerator>
#include <QtTest>

#include <limits>

class EventTextTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();

    void substitution_data();
    void substitution();
    void substitutionOfNumbers_data();
    void substitutionOfNumbers();
    void surplusValueIsDroppedWithTheWarningOfQt();
    void substitutionIsThatOfQt();

    void longestText_data();
    void longestText();
    void longerTextIsNotMade_data();
    void longerTextIsNotMade();
    void whatFollowsALongerTextIsLeftOut();
    void explodingStrings();
    void workIsBounded();
    void manyValuesStopEarly();
    void workBeyondItsOwnIsTakenFromTheBudget();
    void substitutionWithoutEnoughWorkIsNotMade_data();
    void substitutionWithoutEnoughWorkIsNotMade();
    void growingLiveTextIsClosedEarly();
    void largeLiveTextIsWhole();

    void liveValue_data();
    void liveValue();
    void liveNumber_data();
    void liveNumber();
    void liveBytes_data();
    void liveBytes();
    void liveValueWithoutText_data();
    void liveValueWithoutText();
    void wrappedValue_data();
    void wrappedValue();

    void liveEvent_data();
    void liveEvent();
};

namespace
{

QVariant wrapped(const QVariant &value)
{
    return QVariant::fromValue(WrappedValue{value});
}

QString repeated(QChar character, qint64 count)
{
    return QString(QString::size_type(count), character);
}

QRegularExpression warningOfSurplusValue()
{
    return QRegularExpression("^QString::arg: Argument missing: "_s);
}

/*!
 * Keeps Qt's warnings of surplus values and of digits beyond ASCII off
 * the output of a test that meets thousands of them; other messages are counted.
 */
class QtMaySpeak
{
public:
    QtMaySpeak()
        : before(qInstallMessageHandler(handleMessage))
    {
        otherMessages = 0;
    }
    ~QtMaySpeak() { qInstallMessageHandler(before); }
    Q_DISABLE_COPY_MOVE(QtMaySpeak)

    static int otherMessages;

private:
    static void handleMessage(QtMsgType, const QMessageLogContext &, const QString &message)
    {
        if (!message.startsWith("QString::arg: Argument missing: "_s)
            && !message.startsWith("QString::arg(): the replacement "_s)) {
            ++otherMessages;
        }
    }

    QtMessageHandler before;
};

int QtMaySpeak::otherMessages = 0;

//! Texts and values made of what matters to placeholders, the same for the same seed.
class RandomTexts
{
public:
    explicit RandomTexts(quint32 seed)
        : random(seed)
    {
    }

    int below(int limit) { return random.bounded(limit); }

    QString text(int longest)
    {
        static const QStringList pieces{
            "%"_s,  "%"_s,   "L"_s,   "0"_s,    "1"_s,    "2"_s,       "9"_s,      "a"_s,
            " "_s,  "%1"_s,  "%2"_s,  "%3"_s,   "%L1"_s,  "%L2"_s,     "%%1"_s,    "%0"_s,
            "%9"_s, "%10"_s, "%99"_s, "%100"_s, "%LL1"_s, "%\u0661"_s, "\u0662"_s, "\u00FC"_s,
        };
        QString made;
        for (int count = below(longest); count > 0; --count) {
            made += pieces.at(below(int(pieces.size())));
        }
        return made;
    }

    //! Puts the same random value into both.
    void substitute(EventText &tested, QString &expected)
    {
        switch (below(4)) {
        case 0: {
            const auto value = qlonglong(random.generate64());
            tested.substitute(value);
            expected = expected.arg(value);
            break;
        }
        case 1: {
            const qulonglong value = random.generate64();
            tested.substitute(value);
            expected = expected.arg(value);
            break;
        }
        case 2: {
            const double value = random.generateDouble() * 1e7;
            tested.substitute(value);
            expected = expected.arg(value);
            break;
        }
        default: {
            const QString value = text(4);
            tested.substitute(value);
            expected = expected.arg(value);
        }
        }
    }

private:
    QRandomGenerator random;
};

} // namespace

void EventTextTest::initTestCase()
{
    // A locale that groups digits makes "%L1" differ from "%1".
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
}

void EventTextTest::init()
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 3, 0)
    QTest::failOnWarning(QRegularExpression(QStringLiteral(".?")));
#endif
}

void EventTextTest::substitution_data()
{
    QTest::addColumn<QString>("templateText");
    QTest::addColumn<QStringList>("values");
    QTest::addColumn<QString>("text");

    QTest::newRow("numbers decide, not places")
        << "%2 before %1"_s << QStringList{"5"_s, "6"_s} << "6 before 5"_s;
    QTest::newRow("every occurrence is filled")
        << "%1 and %1"_s << QStringList{"a"_s} << "a and a"_s;
    QTest::newRow("the lowest number comes first")
        << "%7 %3"_s << QStringList{"a"_s, "b"_s} << "b a"_s;
    QTest::newRow("placeholders beyond the values stay")
        << "%1 %2"_s << QStringList{"a"_s} << "a %2"_s;
    QTest::newRow("no values leave the template") << "%1"_s << QStringList() << "%1"_s;
    QTest::newRow("zero is a number") << "%1 %0"_s << QStringList{"a"_s} << "%1 a"_s;
    QTest::newRow("99 is the highest number") << "%99"_s << QStringList{"a"_s} << "a"_s;
    QTest::newRow("a third digit is text") << "%100"_s << QStringList{"a"_s} << "a0"_s;
    QTest::newRow("a percent sign in front is text") << "%%1"_s << QStringList{"a"_s} << "%a"_s;
    QTest::newRow("percent sign and placeholder in a row")
        << "100 % %1"_s << QStringList{"a"_s} << "100 % a"_s;
    QTest::newRow("a placeholder by locale is a placeholder")
        << "%L1 %1"_s << QStringList{"1000"_s} << "1000 1000"_s;
    QTest::newRow("a value's placeholder takes part")
        << "%1 %2"_s << QStringList{"<%2>"_s, "a"_s} << "<a> a"_s;
    QTest::newRow("a value's percent sign may complete a placeholder")
        << "%012"_s << QStringList{"%"_s, "b"_s} << "b"_s;
    QTest::newRow("an empty value") << "[%1]"_s << QStringList{""_s} << "[]"_s;
    QTest::newRow("a null value") << "[%1]"_s << QStringList{QString()} << "[]"_s;
}

void EventTextTest::substitution()
{
    QFETCH(QString, templateText);
    QFETCH(QStringList, values);
    EventText text(templateText);

    for (const QString &value : qAsConst(values)) {
        text.substitute(value);
    }

    QTEST(text.text(), "text");
}

void EventTextTest::substitutionOfNumbers_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("groupedText"); // as "%L1"

    using Signed = std::numeric_limits<qlonglong>;
    using Unsigned = std::numeric_limits<qulonglong>;
    using Double = std::numeric_limits<double>;
    QTest::newRow("signed number") << QVariant(qlonglong(-1234567)) << "-1234567"_s
                                   << "-1.234.567"_s;
    QTest::newRow("smallest signed number") << QVariant(Signed::min()) << "-9223372036854775808"_s
                                            << "-9.223.372.036.854.775.808"_s;
    QTest::newRow("largest unsigned number")
        << QVariant(Unsigned::max()) << "18446744073709551615"_s
        << "18.446.744.073.709.551.615"_s;
    QTest::newRow("fraction") << QVariant(0.1) << "0.1"_s
                              << "0,1"_s;
    QTest::newRow("fraction has six digits") << QVariant(12345.678) << "12345.7"_s
                                             << "12.345,7"_s;
    QTest::newRow("infinite") << QVariant(Double::infinity()) << "inf"_s
                              << "inf"_s;
    QTest::newRow("no number") << QVariant(Double::quiet_NaN()) << "nan"_s
                               << "nan"_s;
    QTest::newRow("negative zero has no sign") << QVariant(-0.0) << "0"_s
                                               << "0"_s;
}

void EventTextTest::substitutionOfNumbers()
{
    QFETCH(QVariant, value);
    QFETCH(QString, text);
    QFETCH(QString, groupedText);
    EventText made("%1|%L1"_s);

    switch (value.userType()) {
    case QMetaType::LongLong:
        made.substitute(value.toLongLong());
        break;
    case QMetaType::ULongLong:
        made.substitute(value.toULongLong());
        break;
    default:
        made.substitute(value.toDouble());
    }

    QCOMPARE(made.text(), text + "|"_s + groupedText);
}

void EventTextTest::surplusValueIsDroppedWithTheWarningOfQt()
{
    EventText text("value %1"_s);

    text.substitute("a"_s);
    QVERIFY(!text.isClosed());
    QTest::ignoreMessage(QtWarningMsg, warningOfSurplusValue());
    text.substitute("b"_s);
    QVERIFY(text.isClosed());
    text.substitute("c"_s); // one warning is enough
    QCOMPARE(text.text(), "value a"_s);
}

void EventTextTest::substitutionIsThatOfQt()
{
    constexpr quint32 seed = 20240501;
    constexpr int rounds = 5000;
    qInfo("seed %u", seed);
    RandomTexts random(seed);
    const QtMaySpeak qtMaySpeak;

    for (int round = 0; round < rounds; ++round) {
        const QString templateText = random.text(10);
        EventText tested(templateText);
        QString expected = templateText;
        for (int count = random.below(6); count > 0; --count) {
            random.substitute(tested, expected);
            QVERIFY2(tested.text() == expected,
                     qPrintable("round %1, template "_s.arg(round) + templateText));
        }
    }
    QCOMPARE(QtMaySpeak::otherMessages, 0);
}

void EventTextTest::longestText_data()
{
    QTest::addColumn<QString>("templateText");
    QTest::addColumn<qint64>("valueLength");

    QTest::newRow("of one value alone") << "%1"_s << EventText::maxLength;
    QTest::newRow("of text and value") << "a%1b"_s << EventText::maxLength - 2;
    QTest::newRow("of two occurrences") << "%1%1"_s << EventText::maxLength / 2;
    QTest::newRow("of occurrences written differently")
        << "%1%L1%01"_s + repeated(u'a', 1) << (EventText::maxLength - 1) / 3;
    QTest::newRow("of a value and a placeholder left") << "%1%2"_s << EventText::maxLength - 2;
    QTest::newRow("of a long template")
        << repeated(u'a', EventText::maxLength) + "%1"_s << qint64(0);
}

void EventTextTest::longestText()
{
    QFETCH(QString, templateText);
    QFETCH(qint64, valueLength);
    EventText text(templateText);

    text.substitute(repeated(u'v', valueLength));

    QCOMPARE(qint64(text.text().size()), EventText::maxLength);
    QVERIFY(!text.isClosed());
    QCOMPARE(qint64(text.text().count(u'v')) % qMax(valueLength, qint64(1)), qint64(0));
}

void EventTextTest::longerTextIsNotMade_data()
{
    longestText_data();
}

void EventTextTest::longerTextIsNotMade()
{
    QFETCH(QString, templateText);
    QFETCH(qint64, valueLength);
    EventText text(templateText);

    text.substitute(repeated(u'v', valueLength + 1));

    QVERIFY(text.isClosed());
    QVERIFY(text.text() == templateText);
}

void EventTextTest::whatFollowsALongerTextIsLeftOut()
{
    EventText text("%1 %2 %3"_s);

    text.substitute("a"_s);
    text.substitute(repeated(u'v', EventText::maxLength));
    text.substitute("c"_s);
    text.substitute(qlonglong(4));

    QCOMPARE(text.text(), "a %2 %3"_s);
}

void EventTextTest::explodingStrings()
{
    const QString bomb = "%1"_s.repeated(3500); // four of them fit into one record
    EventText text("%1"_s);

    for (int i = 0; i < 4; ++i) {
        text.substitute(bomb);
    }

    QVERIFY(text.isClosed());
    QVERIFY(text.text() == bomb); // the second one would make 24.5 million characters
}

void EventTextTest::workIsBounded()
{
    const QString longest = "%1"_s + repeated(u'a', EventText::maxLength - 2);
    constexpr qint64 workOfOne = 2 * EventText::maxLength; // reading and writing the text
    EventText text(longest);

    for (qint64 i = 0; i < EventText::maxWork / workOfOne; ++i) {
        QVERIFY(!text.isClosed());
        text.substitute("%1"_s);
    }
    QVERIFY(!text.isClosed());
    text.substitute("%1"_s);
    QVERIFY(text.isClosed());
    text.substitute("late"_s);
    QVERIFY(text.text() == longest);
}

void EventTextTest::manyValuesStopEarly()
{
    const QString longest = "%1"_s + repeated(u'a', EventText::maxLength - 2);
    QVariantList args{"/path"_s};
    for (int i = 0; i < 50000; ++i) {
        args.append("%1"_s);
    }

    // Each value would cost two million characters of work.
    QVERIFY(renderLiveEvent(EventTemplate(longest), args) == longest);
}

//! "%1" of two characters becomes one of ten: twelve characters of work.
void EventTextTest::workBeyondItsOwnIsTakenFromTheBudget()
{
    qint64 budget = 100;
    EventText one("%1"_s, 8, &budget);
    EventText another("%1"_s, 24, &budget);

    one.substitute("12345678%1"_s);
    QCOMPARE(budget, qint64(96));
    one.substitute("x"_s); // from ten to nine characters, nothing of its own left
    QCOMPARE(budget, qint64(77));
    another.substitute("12345678%1"_s);
    QCOMPARE(budget, qint64(77));
    another.substitute("x"_s);
    QCOMPARE(budget, qint64(70));
    QCOMPARE(one.text(), "12345678x"_s);
    QCOMPARE(another.text(), "12345678x"_s);
    QVERIFY(!one.isClosed());
}

void EventTextTest::substitutionWithoutEnoughWorkIsNotMade_data()
{
    QTest::addColumn<qint64>("ownWork");
    QTest::addColumn<qint64>("shared");
    QTest::addColumn<bool>("made");
    QTest::addColumn<qint64>("left");

    QTest::newRow("enough of its own") << qint64(12) << qint64(0) << true << qint64(0);
    QTest::newRow("enough together") << qint64(5) << qint64(7) << true << qint64(0);
    QTest::newRow("enough in the budget") << qint64(0) << qint64(13) << true << qint64(1);
    QTest::newRow("one too little leaves the rest to others")
        << qint64(5) << qint64(6) << false << qint64(6);
    QTest::newRow("nothing at all") << qint64(0) << qint64(0) << false << qint64(0);
}

void EventTextTest::substitutionWithoutEnoughWorkIsNotMade()
{
    QFETCH(qint64, ownWork);
    QFETCH(qint64, shared);
    QFETCH(bool, made);
    EventText text("%1"_s, ownWork, &shared);

    text.substitute("12345678%1"_s);

    QCOMPARE(text.text(), made ? "12345678%1"_s : "%1"_s);
    QCOMPARE(text.isClosed(), !made);
    QTEST(shared, "left");
}

//! A status change costs about as much as its size, whatever its values do.
void EventTextTest::growingLiveTextIsClosedEarly()
{
    const QString marks = "%1"_s.repeated(80);

    const QString text
        = renderLiveEvent(EventTemplate("%1"_s), {"/path"_s, marks, marks, marks, ""_s});

    QCOMPARE(text, marks.repeated(80));
}

//! What a datagram can hold, and more, in as many values as there may be.
void EventTextTest::largeLiveTextIsWhole()
{
    QString templateText;
    QString expected;
    QVariantList args{"/path"_s};
    for (int i = 1; i < 100; ++i) {
        const QString value = QString::number(i) + " % "_s + repeated(u'v', 900);
        templateText += " %"_s + QString::number(i) + ":"_s;
        expected += " "_s + value + ":"_s;
        args.append(value);
    }

    QVERIFY(renderLiveEvent(EventTemplate(templateText), args) == expected);
}

void EventTextTest::liveValue_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("text");

    QTest::newRow("string is itself") << QVariant(R"(a "b" %1)"_s) << R"(a "b" %1)"_s;
    QTest::newRow("empty string is empty") << QVariant(""_s) << ""_s;
    QTest::newRow("string keeps what follows a zero character")
        << QVariant(QString(QLatin1String("a\0b", 3))) << QString(QLatin1String("a\0b", 3));
    QTest::newRow("true is a word") << QVariant(true) << "true"_s;
    QTest::newRow("false is a word") << QVariant(false) << "false"_s;
    QTest::newRow("unsigned char is a character") << QVariant::fromValue<uchar>(65) << "A"_s;
    QTest::newRow("character is itself") << QVariant(QChar(0x20AC)) << "\u20AC"_s;
    QTest::newRow("short is a number") << QVariant::fromValue<short>(-5) << "-5"_s;
    QTest::newRow("unsigned short is a number") << QVariant::fromValue<ushort>(65535) << "65535"_s;
    QTest::newRow("int is a number") << QVariant(-2147483647 - 1) << "-2147483648"_s;
    QTest::newRow("unsigned int is a number") << QVariant(4294967295U) << "4294967295"_s;
    QTest::newRow("int64 is a number")
        << QVariant(std::numeric_limits<qint64>::min()) << "-9223372036854775808"_s;
    QTest::newRow("uint64 is a number")
        << QVariant(std::numeric_limits<quint64>::max()) << "18446744073709551615"_s;
}

void EventTextTest::liveValue()
{
    QFETCH(QVariant, value);

    QTEST(liveValueText(value), "text");
}

void EventTextTest::liveNumber_data()
{
    QTest::addColumn<double>("value");
    QTest::addColumn<QString>("text");

    QTest::newRow("a million is written out") << 1000000.0 << "1000000"_s;
    QTest::newRow("a tenth") << 0.1 << "0.1"_s;
    QTest::newRow("a whole number has no point") << 12.0 << "12"_s;
    QTest::newRow("15 digits are shown") << 123456789012345.0 << "123456789012345"_s;
    QTest::newRow("16 digits go into the exponent") << 1e15 << "1e+15"_s;
    QTest::newRow("a small number has an exponent of two digits") << 1e-5 << "1e-05"_s;
    QTest::newRow("four zeros behind the point are written out") << 0.0001 << "0.0001"_s;
    QTest::newRow("large exponent") << 1e300 << "1e+300"_s;
    QTest::newRow("fraction of a large number") << 123456789.125 << "123456789.125"_s;
    QTest::newRow("15 digits hide rounding") << 0.30000000000000004 << "0.3"_s;
    QTest::newRow("a third ends after 15 digits") << 1.0 / 3 << "0.333333333333333"_s;
    QTest::newRow("negative") << -2.5 << "-2.5"_s;
    QTest::newRow("zero") << 0.0 << "0"_s;
    QTest::newRow("negative zero has no sign") << -0.0 << "0"_s;
    QTest::newRow("infinite") << std::numeric_limits<double>::infinity() << "inf"_s;
    QTest::newRow("infinite below zero") << -std::numeric_limits<double>::infinity() << "-inf"_s;
    QTest::newRow("no number") << std::numeric_limits<double>::quiet_NaN() << "nan"_s;
}

void EventTextTest::liveNumber()
{
    QFETCH(double, value);
    QFETCH(QString, text);

    QCOMPARE(liveValueText(QVariant(value)), text);
    QCOMPARE(liveValueText(wrapped(value)), "\""_s + text + "\""_s);
}

void EventTextTest::liveBytes_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("text");

    QTest::newRow("plain bytes") << QByteArray("abc") << "abc"_s;
    QTest::newRow("no bytes") << QByteArray() << ""_s;
    QTest::newRow("bytes are Latin-1") << QByteArray("T\xFCr") << "Tür"_s;
    QTest::newRow("bytes are not UTF-8") << QByteArray("T\xC3\xBCr") << "T\u00C3\u00BCr"_s;
    QTest::newRow("a zero byte ends the text") << QByteArray("T\xFCr\0auf", 7) << "Tür"_s;
    QTest::newRow("a zero byte in front leaves nothing") << QByteArray("\0a", 2) << ""_s;
}

void EventTextTest::liveBytes()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, text);

    QCOMPARE(liveValueText(QVariant(bytes)), text);
    QCOMPARE(liveValueText(wrapped(bytes)), "\""_s + text + "\""_s);
}

void EventTextTest::liveValueWithoutText_data()
{
    QTest::addColumn<QVariant>("value");

    QTest::newRow("invalid value") << QVariant();
    QTest::newRow("object path") << QVariant::fromValue(QDBusObjectPath("/a"_s));
    QTest::newRow("signature") << QVariant::fromValue(QDBusSignature("i"_s));
    QTest::newRow("list of values") << QVariant(QVariantList{1, 2});
    QTest::newRow("dictionary") << QVariant(QVariantMap{{"a"_s, 1}});
    QTest::newRow("list of several strings") << QVariant(QStringList{"a"_s, "b"_s});
}

void EventTextTest::liveValueWithoutText()
{
    QFETCH(QVariant, value);

    QCOMPARE(liveValueText(value), QString());
    QCOMPARE(liveValueText(wrapped(value)), "\"\""_s);
}

void EventTextTest::wrappedValue_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("text");

    QTest::newRow("plain number has no quotes") << QVariant(5) << "5"_s;
    QTest::newRow("wrapped number stands in quotes") << wrapped(5) << R"("5")"_s;
    QTest::newRow("wrapped string stands in quotes") << wrapped("abc"_s) << R"("abc")"_s;
    QTest::newRow("a quote in a wrapped string is not escaped")
        << wrapped(R"(a"b)"_s) << R"("a"b")"_s;
    QTest::newRow("wrapped empty string is two quotes") << wrapped(""_s) << R"("")"_s;
    QTest::newRow("wrapped bool stands in quotes") << wrapped(true) << R"("true")"_s;
    QTest::newRow("wrapped unsigned char is a character")
        << wrapped(QVariant::fromValue<uchar>(65)) << R"("A")"_s;
    QTest::newRow("twice wrapped value is two quotes") << wrapped(wrapped(5)) << R"("")"_s;
}

void EventTextTest::wrappedValue()
{
    QFETCH(QVariant, value);

    QTEST(liveValueText(value), "text");
}

void EventTextTest::liveEvent_data()
{
    QTest::addColumn<QString>("templateText");
    QTest::addColumn<QVariantList>("args");
    QTest::addColumn<QString>("text");

    const QVariant path("/path"_s);
    QTest::newRow("the first value is not substituted")
        << "%1 %2"_s << QVariantList{path, 5, 6} << "5 6"_s;
    QTest::newRow("the first value alone changes nothing")
        << "%1 %2"_s << QVariantList{path} << "%1 %2"_s;
    QTest::newRow("values come in the order received")
        << "%2 before %1"_s << QVariantList{path, 5, 6} << "6 before 5"_s;
    QTest::newRow("wrapped and plain values differ in quotes")
        << "%1 %2"_s << QVariantList{path, wrapped(5), 5} << R"("5" 5)"_s;
    QTest::newRow("a value without text is an empty one")
        << "[%1] %2"_s << QVariantList{path, QVariant(), 5} << "[] 5"_s;
    QTest::newRow("numbers are texts and not grouped by the locale")
        << "%L1"_s << QVariantList{path, 1234567} << "1234567"_s;
    QTest::newRow("a template without placeholders stays")
        << "No text"_s << QVariantList{path} << "No text"_s;
    QTest::newRow("an empty template stays") << ""_s << QVariantList{path} << ""_s;
}

void EventTextTest::liveEvent()
{
    QFETCH(QString, templateText);
    QFETCH(QVariantList, args);

    QTEST(renderLiveEvent(EventTemplate(templateText), args), "text");
}

QTEST_GUILESS_MAIN(EventTextTest)

#include "tst_eventtext.moc"
