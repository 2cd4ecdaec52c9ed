// SPDX-License-Identifier: Apache-2.0
#include "ctl/cataloguetextcheck.h"

#include "rendering/placeholder.h"

#include <QMap>

#include <algorithm>

namespace
{

using Document = CatalogueDocument;

constexpr QLatin1String fallback("en");

QString idOf(const Document::Event &event)
{
    return QString::number(event.id);
}

QString quoted(const QString &name)
{
    return CatalogueFindings::quoted(name);
}

//! An argument by its number, from 1, and its name.
QString argumentName(const Document::Event &event, size_t number)
{
    const QString &name = event.arguments[number - 1].name;
    const QString text = QStringLiteral("argument %1").arg(number);
    return name.isEmpty() ? text : text + QLatin1Char(' ') + quoted(name);
}

//! The different placeholders of a text, each as it is first written, by their numbers.
QMap<int, QString> placeholdersOf(const QString &text)
{
    QMap<int, QString> found;
    QString::size_type position = 0;
    while (const auto placeholder = Placeholder::next(text, position)) {
        if (!found.contains(placeholder->number)) {
            found.insert(placeholder->number,
                         text.mid(position - placeholder->length, placeholder->length));
        }
    }
    return found;
}

//! A placeholder that no value is left for.
void reportUnfilled(const Document::Event &event, const Document::Text &text, int number,
                    const QString &written, CatalogueFindings &findings)
{
    QString message = QStringLiteral("%1 in %2 has no argument and stays as it is; event %3 has %4")
                          .arg(quoted(written), quoted(text.lang), idOf(event),
                               event.arguments.empty() ? QStringLiteral("none")
                                                       : QString::number(event.arguments.size()));
    if (number >= 10 && number / 10 <= int(event.arguments.size())) {
        const QString first = QString::number(number / 10);
        message += QStringLiteral("; where \"%") + first
            + QStringLiteral("\" with a digit behind it is meant, write \"%0")
            + QString::number(number) + QLatin1Char('"');
    }
    findings.error(text.place, "placeholder", message);
}

//! A placeholder whose value is not that of the argument with its number.
void reportShifted(const Document::Event &event, const Document::Text &text, size_t argument,
                   int number, const QString &written, CatalogueFindings &findings)
{
    const QString message = QStringLiteral("%1 in %2 is filled by %3, as there is no \"%%4\"")
                                .arg(quoted(written), quoted(text.lang),
                                     argumentName(event, argument), QString::number(argument));
    // Where there is no argument of that number, it can hardly be meant otherwise.
    if (number >= 1 && number <= int(event.arguments.size())) {
        findings.error(text.place, "placeholder", message);
    } else {
        findings.warning(text.place, "placeholder", message);
    }
}

//! Values fill the placeholders in the order of their numbers, whatever these are.
void checkPlaceholders(const Document::Event &event, const Document::Text &text,
                       const QMap<int, QString> &placeholders, CatalogueFindings &findings)
{
    size_t argument = 0;
    bool isShifted = false;
    for (auto each = placeholders.cbegin(); each != placeholders.cend(); ++each) {
        ++argument;
        if (argument > event.arguments.size()) {
            reportUnfilled(event, text, each.key(), each.value(), findings);
        } else if (!isShifted && each.key() != int(argument)) {
            isShifted = true; // and so are all behind it
            reportShifted(event, text, argument, each.key(), each.value(), findings);
        }
    }
}

//! \a shown is the number of arguments that the text with the most placeholders shows.
void checkUnshown(const Document::Event &event, const Document::Text &text, size_t placeholders,
                  size_t shown, CatalogueFindings &findings)
{
    if (placeholders >= event.arguments.size()) {
        return;
    }
    QString message = argumentName(event, placeholders + 1);
    const size_t more = event.arguments.size() - placeholders - 1;
    if (more > 0) {
        message += QStringLiteral(" and %1 more").arg(more);
    }
    message += more > 0 ? QStringLiteral(" have") : QStringLiteral(" has");
    message += QStringLiteral(" no placeholder in %1, so that nothing is shown of ")
                   .arg(quoted(text.lang));
    message += more > 0 ? QStringLiteral("them") : QStringLiteral("it");
    // Left out everywhere it may be meant so.
    if (placeholders < shown) {
        findings.error(text.place, "argument-unshown",
                       message + QStringLiteral(", unlike in another language"));
    } else {
        findings.warning(text.place, "argument-unshown", message);
    }
}

//! A "%" right before a placeholder: a value that begins with a digit makes another of it.
void checkPercent(const Document::Text &text, CatalogueFindings &findings)
{
    QString::size_type position = 0;
    while (const auto placeholder = Placeholder::next(text.text, position)) {
        const QString::size_type begin = position - placeholder->length;
        if (begin > 0 && text.text.at(begin - 1) == QLatin1Char('%')) {
            findings.warning(
                text.place, "percent",
                QStringLiteral("%1 in %2: with a value that begins with a digit the first \"%\" "
                               "makes a new placeholder; put something between them")
                    .arg(quoted(text.text.mid(begin - 1, placeholder->length + 1)),
                         quoted(text.lang)));
            return;
        }
    }
}

void checkCharacters(const Document::Text &text, CatalogueFindings &findings)
{
    constexpr int longest = 60000; // bytes; a datagram holds 65,507, with the path and values
    if (holdsHalfCharacter(text.text)) {
        findings.error(text.place, "character",
                       QStringLiteral("the text in %1 holds half of a surrogate pair, which is "
                                      "no character: \"?\" is shown")
                           .arg(quoted(text.lang)));
    }
    if (text.text.contains(QLatin1Char('\n')) || text.text.contains(QLatin1Char('\r'))) {
        findings.warning(text.place, "line-break",
                         QStringLiteral("the text in %1 holds a line break, which is shown; keep "
                                        "it and its tags on one line")
                             .arg(quoted(text.lang)));
    }
    if (text.text.toUtf8().size() > longest) {
        findings.warning(text.place, "length",
                         QStringLiteral("the text in %1 is too long for a datagram, which then "
                                        "is not sent")
                             .arg(quoted(text.lang)));
    }
}

void checkLanguageOf(const Document::Text &text, QHash<QString, const Document::Text *> &earlier,
                     CatalogueFindings &findings)
{
    if (text.lang.isEmpty()) {
        findings.error(text.place, "language",
                       QStringLiteral("the text has no language, so that it is not shown; add "
                                      "lang=\"en\""));
    }
    if (const Document::Text *const lost = earlier.value(text.lang)) {
        findings.error(text.place, "language-twice",
                       QStringLiteral("the text in %1 is given again; the one of line %2 is lost")
                           .arg(quoted(text.lang), QString::number(lost->place.line)));
    }
    earlier.insert(text.lang, &text);
}

//! \a isWhole: all of the event has been read.
void checkEvent(const Document::Event &event, bool isWhole, CatalogueFindings &findings)
{
    std::vector<QMap<int, QString>> placeholders;
    size_t shown = 0;
    for (const Document::Text &text : event.texts) {
        placeholders.push_back(placeholdersOf(text.text));
        shown = std::max(shown, size_t(placeholders.back().size()));
    }
    QHash<QString, const Document::Text *> earlier;
    for (size_t i = 0; i < event.texts.size(); ++i) {
        const Document::Text &text = event.texts[i];
        checkLanguageOf(text, earlier, findings);
        checkPercent(text, findings);
        checkCharacters(text, findings);
        if (isWhole) {
            checkPlaceholders(event, text, placeholders[i], findings);
            checkUnshown(event, text, size_t(placeholders[i].size()), shown, findings);
        }
    }
    if (!isWhole || earlier.contains(fallback)) {
        return;
    }
    findings.error(
        event.place, "language-missing",
        event.texts.empty()
            ? QStringLiteral("event %1 has no text: \"Meta-Error\" is shown for it").arg(event.id)
            : QStringLiteral("event %1 has no text in \"en\": whoever asks for a "
                             "language that it does not have is shown \"Meta-Error\"")
                  .arg(event.id));
}

//! The languages of a catalogue, each with its first text and how many events have it.
class Languages
{
public:
    explicit Languages(const std::vector<Document::Event> &events)
    {
        for (const Document::Event &event : events) {
            for (const Document::Text &text : event.texts) {
                Use &use = uses[text.lang];
                use.first = use.first ? use.first : &text;
                use.events += use.last == &event ? 0 : 1;
                use.last = &event;
            }
        }
    }

    //! Says of what is hardly one that it is not, and takes it out.
    void dropStrays(size_t events, CatalogueFindings &findings)
    {
        for (auto use = uses.begin(); use != uses.end();) {
            if (use->events * 10 >= events && !use.key().isEmpty()) {
                ++use;
                continue;
            }
            if (!use.key().isEmpty()) {
                findings.warning(use->first->place, "language-rare",
                                 QStringLiteral("only %1 of %2 events have a text in %3")
                                     .arg(QString::number(use->events), QString::number(events),
                                          quoted(use.key())));
            }
            use = uses.erase(use);
        }
    }

    void checkEvent(const Document::Event &event, CatalogueFindings &findings) const
    {
        QHash<QString, bool> own;
        for (const Document::Text &text : event.texts) {
            own.insert(text.lang, true);
        }
        for (auto use = uses.cbegin(); use != uses.cend(); ++use) {
            if (own.contains(use.key()) || use.key() == fallback || own.isEmpty()) {
                continue;
            }
            QString message
                = QStringLiteral("event %1 has no text in ").arg(event.id) + quoted(use.key());
            if (own.contains(fallback)) {
                message += QStringLiteral("; the one in \"en\" is shown");
            }
            findings.warning(event.place, "language-missing", message);
        }
    }

private:
    struct Use {
        const Document::Text *first = nullptr;
        const Document::Event *last = nullptr;
        size_t events = 0;
    };
    QMap<QString, Use> uses;
};

} // namespace

void checkTexts(const Document &document, CatalogueFindings &findings)
{
    Languages languages(document.events);
    languages.dropStrays(document.events.size(), findings);
    for (const Document::Event &event : document.events) {
        const bool isWhole = !document.stop || &event != &document.events.back();
        checkEvent(event, isWhole, findings);
        if (isWhole) {
            languages.checkEvent(event, findings);
        }
    }
}

bool holdsHalfCharacter(const QString &text)
{
    for (int i = 0; i < int(text.size()); ++i) {
        const QChar c = text.at(i);
        if (c.isHighSurrogate() && i + 1 < int(text.size()) && text.at(i + 1).isLowSurrogate()) {
            ++i;
        } else if (c.isSurrogate()) {
            return true;
        }
    }
    return false;
}
