// SPDX-License-Identifier: Apache-2.0
#include "rendering/eventtemplate.h"

#include "rendering/placeholder.h"
#include "rendering/utf8text.h"

#include <algorithm>
#include <map>

namespace
{

// What is rendered in one pass must not be what EventText would cut short. EventText makes it
// in steps, one for each of at most a hundred placeholders, "%0" to "%99". After each step its
// text holds the template and some of the values, so it is never longer than this; and a step
// costs the length of the text before and after it.
constexpr qint64 longestStep
    = EventTemplate::maxTemplateSize + qint64(EventTemplate::maxOnePassSize);
static_assert(longestStep <= EventText::maxLength);
static_assert(longestStep * 100 * 2 <= EventText::maxWork);

} // namespace

void ValueTexts::clear()
{
    texts.clear();
    ends.clear();
    numbers.clear();
    percent = false;
}

std::string_view ValueTexts::text(int value) const
{
    const size_t begin = value == 0 ? 0 : ends[size_t(value - 1)];
    return std::string_view(texts).substr(begin, ends[size_t(value)] - begin);
}

void ValueTexts::finishText(size_t begin)
{
    percent = percent || texts.find('%', begin) != std::string::npos;
    ends.push_back(texts.size());
    numbers.emplace_back();
}

template <typename Value>
void ValueTexts::finishNumber(Value value)
{
    ends.push_back(texts.size());
    numbers.emplace_back(value);
}

void ValueTexts::substitute(std::string_view utf8)
{
    if (!Utf8Text::isAscii(utf8)) {
        substitute(QString::fromUtf8(utf8.data(), QString::size_type(utf8.size())));
        return;
    }
    const size_t begin = texts.size();
    texts += utf8;
    finishText(begin);
}

void ValueTexts::substitute(const QString &value)
{
    const size_t begin = texts.size();
    Utf8Text::append(texts, value);
    finishText(begin);
}

void ValueTexts::substitute(qlonglong value)
{
    Utf8Text::append(texts, value);
    finishNumber(value);
}

void ValueTexts::substitute(qulonglong value)
{
    Utf8Text::append(texts, value);
    finishNumber(value);
}

void ValueTexts::substitute(double value)
{
    Utf8Text::append(texts, value);
    finishNumber(value);
}

void ValueTexts::substituteInto(EventText &into) const
{
    for (int i = 0; i < count(); ++i) {
        const Number &number = numbers[size_t(i)];
        if (const auto *const integer = std::get_if<qlonglong>(&number)) {
            into.substitute(*integer);
        } else if (const auto *const unsignedInteger = std::get_if<qulonglong>(&number)) {
            into.substitute(*unsignedInteger);
        } else if (const auto *const real = std::get_if<double>(&number)) {
            into.substitute(*real);
        } else {
            into.substitute(Utf8Text::toString(text(i)));
        }
    }
}

void ValueTexts::substituteLive(const QVariant &value)
{
    switch (value.userType()) {
    case QMetaType::Int:
        substitute(qlonglong(value.toInt()));
        break;
    case QMetaType::Double:
        Utf8Text::append(texts, value.toDouble(), liveDoubleDigits);
        finishNumber(value.toDouble());
        break;
    case QMetaType::QString:
        substitute(value.toString());
        break;
    default:
        substitute(liveValueText(value));
    }
}

void ValueTexts::substituteLive(const QList<QVariant> &args, int most)
{
    for (int i = 1; i < int(args.size()) && count() < most; ++i) {
        substituteLive(args.at(i));
    }
}

EventTemplate::EventTemplate(const QString &templateText)
    : source(templateText)
    , onePass(templateText.size() <= maxTemplateSize)
{
    struct Found {
        Placeholder placeholder;
        QString::size_type begin = 0;
    };
    std::vector<Found> found;
    std::map<int, int> valueOfNumber; // at first the number of occurrences
    QString::size_type position = 0;
    while (const auto placeholder = Placeholder::next(source, position)) {
        found.push_back({*placeholder, position - placeholder->length});
        mostOccurrences = std::max(mostOccurrences, ++valueOfNumber[placeholder->number]);
    }
    for (auto &[number, value] : valueOfNumber) {
        value = placeholders++;
    }

    QString::size_type literalBegin = 0;
    const Placeholder *before = nullptr;
    for (const auto &[placeholder, begin] : found) {
        const QString literal = source.mid(literalBegin, begin - literalBegin);
        // A value may begin with a digit, or be empty in front of one.
        const bool growsBefore
            = literal.endsWith(QLatin1Char('%')) || literal.endsWith(QLatin1String("%L"));
        const bool growsPlaceholder = literal.isEmpty() && before && before->digits == 1
            && placeholder.number < before->number;
        onePass = onePass && !placeholder.localised && !growsBefore && !growsPlaceholder;
        literalBegin = begin + placeholder.length;
        parts.push_back({literal.toStdString(), source.mid(begin, placeholder.length).toStdString(),
                         valueOfNumber[placeholder.number]});
        before = &placeholder;
    }
    end = source.mid(literalBegin).toStdString();
}

qint64 EventTemplate::plainWork(const ValueTexts &values) const
{
    const int count = std::min(values.count(), placeholders);
    const qint64 longest
        = std::min(source.size() + mostOccurrences * values.size(count), EventText::maxLength);
    return std::min(qint64(2) * count * longest, EventText::maxWork);
}

bool EventTemplate::render(const ValueTexts &values, std::string &out) const
{
    if (!onePass || values.holdsPercent() || values.count() > placeholders) {
        return false;
    }
    const size_t begin = out.size();
    for (const Piece &piece : parts) {
        out += piece.literal;
        out += piece.value < values.count() ? values.text(piece.value)
                                            : std::string_view(piece.name);
        if (out.size() - begin > maxOnePassSize) {
            break;
        }
    }
    out += end;
    if (out.size() - begin > maxOnePassSize) {
        out.resize(begin);
        return false;
    }
    return true;
}

void EventTemplate::render(const ValueTexts &values, std::string &out, qint64 spareWork,
                           qint64 *budget) const
{
    if (!render(values, out)) {
        EventText text(source, plainWork(values) + spareWork, budget);
        values.substituteInto(text);
        Utf8Text::append(out, text.text());
    }
}

QString renderLiveEvent(const EventTemplate &message, const QList<QVariant> &args)
{
    ValueTexts values;
    values.substituteLive(args, message.valueCount());
    EventText text(message.text(), message.plainWork(values) + liveWork);
    for (auto value = args.cbegin() + 1; value != args.cend() && !text.isClosed(); ++value) {
        text.substitute(liveValueText(*value));
    }
    return text.text();
}

void appendLiveEvent(std::string &out, const EventTemplate &message, const QList<QVariant> &args)
{
    ValueTexts values;
    values.substituteLive(args, message.valueCount() + 1);
    if (!message.render(values, out)) {
        Utf8Text::append(out, renderLiveEvent(message, args));
    }
}
