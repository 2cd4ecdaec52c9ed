// SPDX-License-Identifier: Apache-2.0
#include "rendering/eventtemplate.h"

#include "rendering/placeholder.h"
#include "rendering/utf8text.h"

#include <algorithm>
#include <map>

namespace
{

// No text between two substitutions is longer than the template and the values put
// in. Each substitution counts the text before and after it, and there are at most a
// hundred different placeholders, "%0" to "%99".
constexpr qint64 longestBetween
    = EventTemplate::maxTemplateSize + qint64(EventTemplate::maxOnePassSize);
static_assert(longestBetween <= EventText::maxLength
              && longestBetween * 2 * 100 <= EventText::maxWork);

} // namespace

void ValueTexts::clear()
{
    texts.clear();
    ends.clear();
    percent = false;
}

std::string_view ValueTexts::text(int value) const
{
    const size_t begin = value == 0 ? 0 : ends[size_t(value - 1)];
    return std::string_view(texts).substr(begin, ends[size_t(value)] - begin);
}

void ValueTexts::finishValue(size_t begin)
{
    percent = percent || texts.find('%', begin) != std::string::npos;
    ends.push_back(texts.size());
}

void ValueTexts::substitute(std::string_view utf8)
{
    if (!Utf8Text::isAscii(utf8)) {
        substitute(QString::fromUtf8(utf8.data(), QString::size_type(utf8.size())));
        return;
    }
    const size_t begin = texts.size();
    texts += utf8;
    finishValue(begin);
}

void ValueTexts::substitute(const QString &value)
{
    const size_t begin = texts.size();
    Utf8Text::append(texts, value);
    finishValue(begin);
}

void ValueTexts::substitute(qlonglong value)
{
    Utf8Text::append(texts, value);
    ends.push_back(texts.size());
}

void ValueTexts::substitute(qulonglong value)
{
    Utf8Text::append(texts, value);
    ends.push_back(texts.size());
}

void ValueTexts::substitute(double value)
{
    Utf8Text::append(texts, value);
    ends.push_back(texts.size());
}

void ValueTexts::substituteLive(const QVariant &value)
{
    switch (value.userType()) {
    case QMetaType::Int:
        substitute(qlonglong(value.toInt()));
        break;
    case QMetaType::Double:
        Utf8Text::append(texts, value.toDouble(), liveDoubleDigits);
        ends.push_back(texts.size());
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

    QString::size_type end = 0;
    const Placeholder *before = nullptr;
    for (const auto &[placeholder, begin] : found) {
        const QString literal = source.mid(end, begin - end);
        // A value may begin with a digit, or be empty in front of one.
        const bool growsBefore
            = literal.endsWith(QLatin1Char('%')) || literal.endsWith(QLatin1String("%L"));
        const bool growsPlaceholder = literal.isEmpty() && before && before->digits == 1
            && placeholder.number < before->number;
        onePass = onePass && !placeholder.localised && !growsBefore && !growsPlaceholder;
        end = begin + placeholder.length;
        pieces.push_back({literal.toStdString(),
                          source.mid(begin, placeholder.length).toStdString(),
                          valueOfNumber[placeholder.number]});
        before = &placeholder;
    }
    rest = source.mid(end).toStdString();
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
    for (const Piece &piece : pieces) {
        out += piece.literal;
        out += piece.value < values.count() ? values.text(piece.value)
                                            : std::string_view(piece.name);
        if (out.size() - begin > maxOnePassSize) {
            break;
        }
    }
    out += rest;
    if (out.size() - begin > maxOnePassSize) {
        out.resize(begin);
        return false;
    }
    return true;
}

void appendLiveEvent(std::string &out, const QString &templateText, const QList<QVariant> &args)
{
    const EventTemplate eventTemplate(templateText);
    ValueTexts values;
    values.substituteLive(args, eventTemplate.valueCount() + 1);
    if (!eventTemplate.render(values, out)) {
        Utf8Text::append(out, renderLiveEvent(templateText, args));
    }
}
