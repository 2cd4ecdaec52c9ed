// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "rendering/eventtext.h"

#include <QList>
#include <QString>
#include <QVariant>

#include <string>
#include <string_view>
#include <variant>
#include <vector>

/*!
 * The values of one event as texts in UTF-8, in the order of their placeholders.
 * Takes values as EventText does and writes them the same way.
 */
class ValueTexts
{
public:
    void clear();

    void substitute(std::string_view utf8);
    void substitute(const QString &value);
    void substitute(qlonglong value);
    void substitute(qulonglong value);
    void substitute(double value);
    //! A value as it came with a status change, written as liveValueText() does it.
    void substituteLive(const QVariant &value);
    //! The values behind the path, at most so many.
    void substituteLive(const QList<QVariant> &args, int most);

    [[nodiscard]] int count() const { return int(ends.size()); }
    [[nodiscard]] std::string_view text(int value) const;
    //! Of the first values together, in bytes.
    [[nodiscard]] qint64 size(int values) const
    {
        return values == 0 ? 0 : qint64(ends[size_t(values - 1)]);
    }
    //! Whether a value holds a '%', and so could make a placeholder.
    [[nodiscard]] bool holdsPercent() const { return percent; }
    //! Puts the values into a text one after another, numbers as numbers.
    void substituteInto(EventText &into) const;

private:
    using Number = std::variant<std::monostate, qlonglong, qulonglong, double>;

    void finishText(size_t begin);
    template <typename Value>
    void finishNumber(Value value);

    std::string texts; //!< one behind the other
    std::vector<size_t> ends;
    std::vector<Number> numbers; //!< for each value; none for a text
    bool percent = false;
};

/*!
 * An event's text, taken apart once for many renderings.
 *
 * Renders in one pass what EventText makes by one substitution after another.
 * Where the two would differ it renders nothing, and EventText is to be used: a
 * value or the text around a placeholder could make new placeholders, one is to
 * be filled with a localised number, a value is left over, or the result is very
 * long.
 */
class EventTemplate
{
public:
    // Longer texts are left to EventText and its limits.
    static constexpr qint64 maxTemplateSize = 65536; //!< in UTF-16 code units
    static constexpr size_t maxOnePassSize = 262144; //!< of the result, in bytes

    //! A text and the placeholder behind it.
    struct Piece {
        std::string literal; //!< in UTF-8
        std::string name;    //!< the placeholder as written, shown where it has no value
        int value = 0;       //!< the place of its value
    };

    explicit EventTemplate(const QString &templateText);

    [[nodiscard]] const QString &text() const { return source; }
    //! Of these one pass makes the text: they and the values between them, and rest().
    [[nodiscard]] const std::vector<Piece> &pieces() const { return parts; }
    //! What stands behind the last placeholder, in UTF-8.
    [[nodiscard]] const std::string &rest() const { return end; }
    //! The number of different placeholders.
    [[nodiscard]] int valueCount() const { return placeholders; }
    /*!
     * The work that EventText takes at most where no value makes a placeholder, but for
     * the signs that group the digits of localised numbers, and not more than maxWork:
     * each value that has a placeholder finds and leaves a text not longer than the
     * template and, as often as its most frequent placeholder, all of these values.
     */
    [[nodiscard]] qint64 plainWork(const ValueTexts &values) const;
    //! Appends the text in UTF-8; false, and nothing appended, where EventText is to be used.
    bool render(const ValueTexts &values, std::string &out) const;
    /*!
     * Appends the text in UTF-8, by EventText where that is to be used, with plainWork() and
     * so much more of its own and what it draws from a budget.
     */
    void render(const ValueTexts &values, std::string &out, qint64 spareWork, qint64 *budget) const;

private:
    QString source;
    std::vector<Piece> parts;
    std::string end;
    int placeholders = 0;
    int mostOccurrences = 0; //!< of one placeholder
    bool onePass;            //!< whether the template as such allows it
};

//! What the text of a status change may take beyond EventTemplate::plainWork().
constexpr qint64 liveWork = 65536;

/*!
 * Renders a status change: \a args holds the emitter's path, which is not
 * substituted, and then the values in the order of the placeholders.
 */
QString renderLiveEvent(const EventTemplate &message, const QList<QVariant> &args);
//! Appends the same in UTF-8.
void appendLiveEvent(std::string &out, const EventTemplate &message, const QList<QVariant> &args);
