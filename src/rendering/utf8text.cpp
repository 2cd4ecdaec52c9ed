// SPDX-License-Identifier: Apache-2.0
#include "rendering/utf8text.h"

#include <array>
#include <cmath>
#include <optional>
#include <string_view>

namespace
{

constexpr int lowestFixedExponent = -4; // below it format 'g' writes an exponent

//! A positive number: its digits, the first before the decimal point, times a power of ten.
struct Decimal {
    std::array<char, 17> digits{}; //!< as many as identify any double
    int count = 0;
    int exponent = 0;

    [[nodiscard]] std::string_view text(int from, int to) const
    {
        return {&digits[size_t(from)], size_t(to - from)};
    }
};

//! The shortest decimal that identifies a positive normal number.
Decimal shortestDecimal(double value)
{
    std::array<char, 32> text{};
    const auto end
        = std::to_chars(text.begin(), text.end(), value, std::chars_format::scientific).ptr;
    Decimal decimal;
    const char *at = text.begin();
    for (; *at != 'e'; ++at) {
        if (*at != '.') {
            decimal.digits[size_t(decimal.count++)] = *at;
        }
    }
    ++at;
    const bool negative = *at++ == '-';
    std::from_chars(at, end, decimal.exponent);
    if (negative) {
        decimal.exponent = -decimal.exponent;
    }
    return decimal;
}

/*!
 * Compares a number with its shortest decimal: below, equal or above zero as the
 * number is; nothing where powers of ten are no longer exact in a double.
 */
std::optional<double> compare(double value, const Decimal &decimal)
{
    constexpr int exactPowers = 22;
    const int power = decimal.exponent - (decimal.count - 1); // of the last digit
    if (std::abs(power) > exactPowers) {
        return std::nullopt;
    }
    double digits = 0;
    for (const char digit : decimal.text(0, decimal.count)) {
        digits = digits * 10 + (digit - '0');
    }
    double scale = 1;
    for (int step = 0; step < std::abs(power); ++step) {
        scale *= 10;
    }
    constexpr double exactIntegers = 9007199254740992; // 2 to the power of 53
    if (digits > exactIntegers) {
        return std::nullopt;
    }
    // One rounding at the very end leaves the sign exact.
    return power < 0 ? std::fma(value, scale, -digits) : -std::fma(digits, scale, -value);
}

//! Adds one to the last digit.
void increment(Decimal &decimal)
{
    while (decimal.count > 0 && decimal.digits[size_t(decimal.count - 1)] == '9') {
        --decimal.count;
    }
    if (decimal.count == 0) {
        decimal.digits[0] = '1';
        decimal.count = 1;
        ++decimal.exponent;
    } else {
        ++decimal.digits[size_t(decimal.count - 1)];
    }
}

/*!
 * Rounds the shortest decimal of a number to the significant digits; false where
 * that cannot be decided.
 *
 * The number and its shortest decimal lie on the same side of the middle between
 * two results: the middle has one digit more than they have, and if it were between
 * the two it would have been the shortest decimal. So only a decimal that is the
 * middle itself needs a look at the number.
 */
bool round(Decimal &decimal, double value, int significantDigits)
{
    if (decimal.count > significantDigits) {
        const std::string_view rest = decimal.text(significantDigits, decimal.count);
        bool up = rest.front() >= '5';
        if (rest == "5") {
            const std::optional<double> side = compare(value, decimal);
            if (!side) {
                return false;
            }
            up = *side >= 0;
        }
        decimal.count = significantDigits;
        if (up) {
            increment(decimal);
        }
    }
    while (decimal.count > 1 && decimal.digits[size_t(decimal.count - 1)] == '0') {
        --decimal.count;
    }
    return true;
}

void appendScientific(std::string &out, const Decimal &decimal)
{
    out += decimal.digits[0];
    if (decimal.count > 1) {
        out += '.';
        out += decimal.text(1, decimal.count);
    }
    out += decimal.exponent < 0 ? "e-" : "e+";
    const int exponent = std::abs(decimal.exponent);
    if (exponent < 10) {
        out += '0';
    }
    Utf8Text::append(out, exponent);
}

void appendFixed(std::string &out, const Decimal &decimal)
{
    const int beforePoint = decimal.exponent + 1;
    if (beforePoint <= 0) {
        out += "0.";
        out.append(size_t(-beforePoint), '0');
        out += decimal.text(0, decimal.count);
    } else if (beforePoint >= decimal.count) {
        out += decimal.text(0, decimal.count);
        out.append(size_t(beforePoint - decimal.count), '0');
    } else {
        out += decimal.text(0, beforePoint);
        out += '.';
        out += decimal.text(beforePoint, decimal.count);
    }
}

} // namespace

void Utf8Text::append(std::string &out, double value, int significantDigits)
{
    Decimal decimal;
    // Numbers below the normal ones have too few digits of their own.
    if (std::isnormal(value)) {
        decimal = shortestDecimal(std::abs(value));
    }
    if (decimal.count == 0 || !round(decimal, std::abs(value), significantDigits)) {
        append(out, QString::number(value, 'g', significantDigits));
        return;
    }
    if (value < 0) {
        out += '-';
    }
    if (decimal.exponent < lowestFixedExponent || decimal.exponent >= significantDigits) {
        appendScientific(out, decimal);
    } else {
        appendFixed(out, decimal);
    }
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
