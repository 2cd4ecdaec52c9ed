// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

/*!
 * A text into which values are put the plain way, by one QString::arg() after
 * another, each over the whole text. What the product does instead must come to
 * the same.
 *
 * A substitution that would make the text longer than maxLength is not made, and
 * none after it; nor is any once all of them together have gone over maxWork
 * characters, or once one found no placeholder.
 */
class LiteralText
{
public:
    //! In UTF-16 code units.
    static constexpr qint64 maxLength = 1048576;
    static constexpr qint64 maxWork = 64 * maxLength;

    explicit LiteralText(QString templateText);

    void substitute(const QString &value);
    void substitute(qlonglong value);
    void substitute(qulonglong value);
    void substitute(double value);

    [[nodiscard]] QString text() const { return current; }
    //! Whether a substitution was left out for the text's length or for the work done.
    [[nodiscard]] bool isCutShort() const { return cutShort; }

private:
    template <typename Value>
    void substituteValue(const Value &value);

    QString current;
    qint64 work = 0;
    bool closed = false;
    bool cutShort = false;
};
