// SPDX-License-Identifier: Apache-2.0
#include "rendering/utf8text.h"

#include <QtAlgorithms>

#include <array>
#include <cmath>
#include <cstring>

namespace
{

constexpr std::array powersOfTen{1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                 1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

//! How many digits a positive number has behind the binary point, where it has any.
int binaryPlaces(double value)
{
    constexpr int mantissaBits = 52;
    constexpr int exponentOfOne = 1023;
    constexpr quint64 hiddenBit = quint64(1) << mantissaBits;
    quint64 bits = 0;
    static_assert(sizeof bits == sizeof value);
    std::memcpy(&bits, &value, sizeof bits);
    const int exponent = int(bits >> mantissaBits) - exponentOfOne;
    return mantissaBits - exponent - int(qCountTrailingZeroBits(bits | hiddenBit));
}

/*!
 * Whether a positive number that is not whole lies exactly in the middle between two
 * results. It has as many decimal places as binary ones, and the last is a five; so it
 * does if that is one digit more than a result has.
 */
bool isMiddle(double value, int significantDigits)
{
    const auto places = size_t(binaryPlaces(value));
    if (places >= powersOfTen.size()) {
        return false; // 23 places and more make at least 17 digits
    }
    const double allDigits = value * powersOfTen[places];
    return allDigits >= powersOfTen[size_t(significantDigits)]
        && allDigits < powersOfTen[size_t(significantDigits) + 1];
}

} // namespace

void Utf8Text::append(std::string &out, double value, int significantDigits)
{
    const double size = std::abs(value);
    const bool whole = size == std::trunc(size);
    if (whole && size < powersOfTen[size_t(significantDigits)]) {
        append(out, qlonglong(value)); // which takes the sign off zero, as QString does
        return;
    }
    if (whole || std::isnan(value)) { // infinities are whole
        append(out, QString::number(value, 'g', significantDigits));
        return;
    }
    // Of two results equally near the C++ library takes the even one. Seen from the next
    // number the one away from zero is nearer.
    if (isMiddle(size, significantDigits)) {
        value = std::nextafter(value, 2 * value);
    }
    std::array<char, 32> text{};
    const auto end = std::to_chars(text.begin(), text.end(), value, std::chars_format::general,
                                   significantDigits);
    out.append(text.data(), size_t(end.ptr - text.data()));
}

void Utf8Text::append(std::string &out, const QString &text)
{
    const QByteArray utf8 = text.toUtf8();
    out.append(utf8.constData(), size_t(utf8.size()));
}

QString Utf8Text::toString(std::string_view utf8)
{
    constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
    const QString text = QString::fromUtf8(utf8.data(), QString::size_type(utf8.size()));
    return utf8.substr(0, byteOrderMark.size()) == byteOrderMark
        ? QChar(QChar::ByteOrderMark) + text
        : text;
}

void Utf8Text::appendLatin1(std::string &out, std::string_view latin1)
{
    if (isAscii(latin1)) {
        out += latin1;
    } else {
        append(out, QString::fromLatin1(latin1.data(), QString::size_type(latin1.size())));
    }
}
