// SPDX-License-Identifier: Apache-2.0
#include "ctl/language.h"

#include "ctl/messages.h"

#include <QSet>

#include <algorithm>

QStringList languagesOf(const SystemeventCatalogue &catalogue)
{
    QSet<QString> found;
    for (const SystemeventDescription &event : catalogue.events) {
        for (auto text = event.descriptions.constBegin(); text != event.descriptions.constEnd();
             ++text) {
            found.insert(text.key());
        }
    }
    QStringList sorted = found.values();
    std::sort(sorted.begin(), sorted.end());
    return sorted;
}

QString chooseLanguage(const OutputChoice &output, const SystemeventCatalogue *catalogue)
{
    QString english = QStringLiteral("en");
    if (!catalogue || (!output.language && output.localeLanguages.isEmpty())) {
        return output.language.value_or(english);
    }
    const QStringList known = languagesOf(*catalogue);
    if (output.language) {
        if (!known.contains(*output.language) && !output.isQuiet) {
            Messages::tell(
                QStringLiteral("the catalogue has no texts in \"%1\", so they are in English; "
                               "it has: %2")
                    .arg(*output.language, known.join(QLatin1String(", "))));
        }
        return *output.language;
    }
    for (const QString &language : output.localeLanguages) {
        if (known.contains(language)) {
            return language;
        }
    }
    return english;
}
