// SPDX-License-Identifier: Apache-2.0
#include "rendering/utf8text.h"

#include "support/literals.h"

#include <QtTest>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>

namespace
{

template <typename Value, typename... Digits>
QString text(Value value, Digits... digits)
{
    std::string out;
    Utf8Text::append(out, value, digits...);
    return QString::fromStdString(out);
}

double fromBits(quint64 bits)
{
    double value = 0;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

} // namespace

class TestUtf8Text : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void integers()
    {
        QCOMPARE(text(std::numeric_limits<qlonglong>::min()), "-9223372036854775808"_s);
        QCOMPARE(text(std::numeric_limits<qulonglong>::max()), "18446744073709551615"_s);
        QCOMPARE(text(0), "0"_s);
        QCOMPARE(text(quint32(7)), "7"_s);
    }

    void doubles_data()
    {
        QTest::addColumn<double>("value");
        QTest::addColumn<QString>("expected");
        const double inf = std::numeric_limits<double>::infinity();
        QTest::newRow("zero") << 0.0 << "0"_s;
        QTest::newRow("negative zero") << -0.0 << "0"_s;
        QTest::newRow("infinity") << inf << "inf"_s;
        QTest::newRow("negative infinity") << -inf << "-inf"_s;
        QTest::newRow("nan") << std::nan("") << "nan"_s;
        QTest::newRow("integer") << 100.0 << "100"_s;
        QTest::newRow("fraction") << 23.75 << "23.75"_s;
        QTest::newRow("middle, rounds up from an even digit") << 12.03125 << "12.0313"_s;
        QTest::newRow("middle, negative") << -12.03125 << "-12.0313"_s;
        QTest::newRow("middle of ten places") << 0.0009765625 << "0.000976563"_s;
        QTest::newRow("middle, whole") << 1000005.0 << "1.00001e+06"_s;
        QTest::newRow("middle, whole, with zeros behind it") << 100000500.0 << "1.00001e+08"_s;
        QTest::newRow("just below the middle") << std::nextafter(12.03125, 0) << "12.0312"_s;
        QTest::newRow("middle only as a decimal, above") << 1.000105 << "1.00011"_s;
        QTest::newRow("middle only as a decimal, below") << 1.000135 << "1.00013"_s;
        QTest::newRow("carry over all digits") << 999999.5 << "1e+06"_s;
        QTest::newRow("carry into the whole part") << 9.999996 << "10"_s;
        QTest::newRow("last fixed") << 999999.0 << "999999"_s;
        QTest::newRow("first with an exponent") << 1000000.0 << "1e+06"_s;
        QTest::newRow("small fixed") << 0.0001 << "0.0001"_s;
        QTest::newRow("small with an exponent") << 0.00001 << "1e-05"_s;
        QTest::newRow("carry into fixed") << 0.00009999996 << "0.0001"_s;
        QTest::newRow("three digits of exponent") << 1.5e300 << "1.5e+300"_s;
        QTest::newRow("smallest") << 4.9406564584124654e-324 << "4.94066e-324"_s;
        QTest::newRow("largest") << std::numeric_limits<double>::max() << "1.79769e+308"_s;
    }
    void doubles()
    {
        QFETCH(double, value);
        QTEST(text(value), "expected");
        QCOMPARE(text(value), QString::number(value, 'g', 6));
    }

    void randomDoubles_data()
    {
        QTest::addColumn<quint32>("seed");
        for (quint32 seed = 1; seed <= 8; ++seed) {
            QTest::addRow("seed %u", seed) << seed;
        }
    }
    //! All bit patterns, sums of a few powers of two, middles, and their neighbours.
    void randomDoubles()
    {
        QFETCH(quint32, seed);
        std::mt19937_64 random(seed);
        for (int i = 0; i < 20000; ++i) {
            const double any = fromBits(random());
            // A whole number with a five behind its fifteenth digit is a middle.
            const auto fifteen = double(random() % 900000000000000 * 10 + 5);
            const double dyadic = std::ldexp(double(random() % 100000000), int(random() % 40) - 30);
            const double decimal
                = double(random() % 20000000) / std::pow(10.0, double(random() % 12));
            // So has one of n places, if it has sixteen digits: an odd multiple of five to the n.
            const int places = 1 + int(random() % 22);
            const double middle = std::ldexp(
                std::ceil(1e15 / std::pow(5.0, places)) + double(random() % 8), -places);
            for (const double value :
                 {middle, -middle, std::nextafter(middle, 0.0), std::nextafter(middle, 1e30), any,
                  double(float(any)), dyadic, std::nextafter(dyadic, 0.0), fifteen,
                  std::nextafter(fifteen, 0.0), decimal, std::nextafter(decimal, 1e30),
                  std::nextafter(decimal, 0.0), -decimal}) {
                for (const int digits : {6, 15}) {
                    const QString expected = QString::number(value, 'g', digits);
                    if (text(value, digits) != expected) {
                        QCOMPARE(text(value, digits), expected);
                    }
                }
            }
        }
    }

    void latin1()
    {
        std::string out = "x";
        Utf8Text::appendLatin1(out, "a\xE4");
        QCOMPARE(QByteArray::fromStdString(out), QByteArray("xa\xC3\xA4"));
    }

    void ascii()
    {
        QVERIFY(Utf8Text::isAscii(""));
        QVERIFY(Utf8Text::isAscii("a\x7F"));
        QVERIFY(!Utf8Text::isAscii("a\x80z"));
    }
};

QTEST_GUILESS_MAIN(TestUtf8Text)
#include "tst_utf8text.moc"
