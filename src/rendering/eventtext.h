// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QList>
#include <QString>
#include <QVariant>

/*!
 * An event's text while values take the place of its placeholders.
 *
 * Each value replaces every occurrence of the lowest-numbered placeholder still
 * in the text, exactly as QString::arg() does it: "%1" to "%99", "%L1" for a
 * number grouped by the locale. Values may themselves contain placeholders, which
 * take part in the substitutions after them.
 *
 * Since such values can make a text grow without end, a substitution that would
 * make it longer than maxLength is not made: the text stays as it is and the
 * remaining values are left out. So it is with one for which there is no work left,
 * and once no placeholder is left to fill. The work of a substitution is the length
 * of the text before and after it.
 */
class EventText
{
public:
    //! In UTF-16 code units, as all lengths and work here.
    static constexpr qint64 maxLength = 1048576;
    //! The most that a text may take of its own.
    static constexpr qint64 maxWork = 64 * maxLength;

    /*!
     * The text has \a ownWork of its own and draws what goes beyond it from a budget,
     * which it may share with others. That is not owned and must outlive the text;
     * without one there is nothing beyond.
     */
    explicit EventText(QString templateText, qint64 ownWork = maxWork, qint64 *budget = nullptr);

    void substitute(const QString &value);
    void substitute(qlonglong value);
    void substitute(qulonglong value);
    //! In format 'g' with six significant digits.
    void substitute(double value);

    //! Whether no further value can change the text.
    [[nodiscard]] bool isClosed() const { return closed; }
    [[nodiscard]] QString text() const { return current; }

private:
    template <typename Value>
    void substituteValue(const Value &value);
    [[nodiscard]] bool admits(qint64 resultLength);

    QString current;
    qint64 ownLeft;
    qint64 *sharedLeft; //!< null for none
    bool closed = false;
};

/*!
 * The text of a value as it came with a status change, whatever the catalogue
 * declares: QVariant::toString(), except where that differs between versions of
 * Qt. Kept as devices in the field write it: a double with 15
 * significant digits in format 'g', a byte array as Latin-1 up to its first zero
 * byte. The content of a WrappedValue stands between double quotes.
 */
QString liveValueText(const QVariant &value);
//! Significant digits of a live double.
constexpr int liveDoubleDigits = 15;
