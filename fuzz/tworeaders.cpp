// SPDX-License-Identifier: Apache-2.0
#include "tworeaders.h"

#include "checks.h"

#include <optional>

namespace
{

QString text(quint64 number)
{
    return QString::number(number);
}

QString text(const QString &answer)
{
    return answer;
}

QString text(const std::optional<QString> &answer)
{
    return answer.value_or(QStringLiteral("refused"));
}

} // namespace

template <typename Ask>
auto TwoReaders::compare(const char *question, const Ask &answerOf)
{
    (void)takeMessages();
    const auto expected = answerOf(literal);
    const QStringList expectedMessages = takeMessages();
    auto answer = answerOf(reader);
    requireEqual(text(expected), text(answer), question);
    requireEqual(expectedMessages.join(QLatin1Char('\n')), takeMessages().join(QLatin1Char('\n')),
                 question);
    return answer;
}

quint64 TwoReaders::minimum()
{
    return compare("minimum", [](auto &one) { return one.getMinLogNr(); });
}

quint64 TwoReaders::maximum()
{
    return compare("maximum", [](auto &one) { return one.getMaxLogNr(); });
}

void TwoReaders::compareEntry(quint64 logNr, const QString &lang)
{
    (void)compare("entry", [&](auto &one) { return one.jsonEntry(logNr, lang); });
}

void TwoReaders::compareRange(quint64 start, quint64 end, const QString &lang, quint64 sizeLimit)
{
    (void)compare("range", [&](auto &one) { return one.jsonRange(start, end, lang, sizeLimit); });
}

void TwoReaders::changed()
{
    literal.logfileChanged();
    reader.logfileChanged();
}

void TwoReaders::rotated()
{
    literal.logfilesRotated();
    reader.logfilesRotated();
}
