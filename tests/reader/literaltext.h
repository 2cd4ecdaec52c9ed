// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QList>
#include <QString>

#include <variant>
#include <vector>

/*!
 * A text into which values are put the plain way, by one QString::arg() after
 * another, each over the whole text. What the product does instead must come to
 * the same.
 *
 * A substitution that would make the text longer than maxLength is not made, and
 * none after it; nor is one that finds no placeholder, or not enough work. The work
 * of a substitution are the characters of the text before and after it. A text has
 * for nothing what its values would take if none of them held a placeholder, and a
 * little more; an answer has answerWork in store for all of its texts.
 */
class LiteralText
{
public:
    //! In UTF-16 code units.
    static constexpr qint64 maxLength = 1048576;
    static constexpr qint64 maxPlainWork = 64 * maxLength;
    static constexpr qint64 recordWork = 2048;
    static constexpr qint64 liveWork = 65536;
    static constexpr qint64 answerWork = 8 * maxLength;

    explicit LiteralText(QString templateText);

    void substitute(const QString &value) { values.emplace_back(value); }
    void substitute(qlonglong value) { values.emplace_back(value); }
    void substitute(qulonglong value) { values.emplace_back(value); }
    void substitute(double value) { values.emplace_back(value); }

    //! With all values so far, as the text of an event on its way.
    [[nodiscard]] QString liveText();
    //! With all values so far, as one of the texts of an answer.
    [[nodiscard]] QString recordText(qint64 &answerWorkLeft);
    //! Whether the text made last has a substitution left out for its length.
    [[nodiscard]] bool isTooLong() const { return tooLong; }
    //! Whether it has one left out for its work.
    [[nodiscard]] bool isTooCostly() const { return tooCostly; }

private:
    [[nodiscard]] qint64 plainWork() const;
    QString render(qint64 ownWork, qint64 &moreWork);

    QString templateText;
    std::vector<std::variant<QString, qlonglong, qulonglong, double>> values;
    bool tooLong = false;
    bool tooCostly = false;
};
