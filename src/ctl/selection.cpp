// SPDX-License-Identifier: Apache-2.0
#include "ctl/selection.h"

#include "ctl/glob.h"

#include <QStringList>

#include <algorithm>
#include <limits>
#include <utility>

namespace
{

[[noreturn]] void refuse(const char *what, const QString &name, QStringList known)
{
    constexpr int most = 20; // of a large catalogue nobody reads more
    std::sort(known.begin(), known.end());
    known.removeDuplicates();
    if (known.size() > most) {
        known = known.mid(0, most) + QStringList{QStringLiteral("and others")};
    }
    const QString reason = QStringLiteral("the catalogue has no %1 \"%2\"; it has: %3");
    throw WrongUsage{
        reason.arg(QLatin1String(what), name, known.join(QLatin1String(", "))).toStdString()};
}

//! Names in the order of their numbers, as one looks for a level.
QStringList levelNames(const QHash<QString, int> &levels)
{
    QStringList names = levels.keys();
    std::sort(names.begin(), names.end(), [&levels](const QString &left, const QString &right) {
        return levels.value(left) < levels.value(right);
    });
    return names;
}

} // namespace

Selection::Selection(SelectionChoice selected, const SystemeventCatalogue *systemevents)
    : choice(std::move(selected))
    , catalogue(systemevents)
{
    resolveLevels();
    resolveEvents();
    if (catalogue) {
        checkServices();
    }
}

int Selection::levelNumber(const LevelChoice &level) const
{
    if (const int *const number = std::get_if<int>(&level)) {
        return *number;
    }
    const auto &name = std::get<QString>(level);
    if (!catalogue) {
        return 0; // no record has a level
    }
    const auto known = catalogue->logLevels.constFind(name);
    if (known == catalogue->logLevels.constEnd()) {
        const QString reason
            = QStringLiteral("the catalogue has no level \"%1\"; it has: %2; numbers do as well");
        throw WrongUsage{
            reason.arg(name, levelNames(catalogue->logLevels).join(QLatin1String(", ")))
                .toStdString()};
    }
    return *known;
}

void Selection::resolveLevels()
{
    for (const LevelRange &range : choice.levels) {
        const int from = range.from ? levelNumber(*range.from) : std::numeric_limits<int>::min();
        const int to = range.to ? levelNumber(*range.to) : std::numeric_limits<int>::max();
        levels.push_back({std::min(from, to), std::max(from, to)}); // whichever is named first
    }
}

void Selection::resolveEvents()
{
    for (const EventChoice &wanted : choice.events) {
        if (const qint32 *const id = std::get_if<qint32>(&wanted)) {
            events.insert(*id);
            continue;
        }
        const auto &name = std::get<QString>(wanted);
        const size_t before = events.size();
        QStringList names;
        if (!catalogue) {
            continue;
        }
        for (const SystemeventDescription &event : catalogue->events) {
            names.append(event.name);
            if (event.name == name) {
                events.insert(qint32(event.id));
            }
        }
        if (events.size() == before && !names.contains(name)) {
            refuse("event", name, names);
        }
    }
}

void Selection::checkServices() const
{
    QStringList known;
    for (const SystemeventDescription &event : catalogue->events) {
        known.append(event.service);
    }
    for (const QString &service : choice.services) {
        if (!known.contains(service)) {
            refuse("service", service, known);
        }
    }
}

bool Selection::takesNumbers(quint64 first, quint64 last) const
{
    return choice.numbers.empty()
        || std::any_of(choice.numbers.begin(), choice.numbers.end(),
                       [first, last](const Archive::NumberRange &range) {
                           return range.first <= last && first <= range.last;
                       });
}

bool Selection::takesTime(const Instant &time) const
{
    return !(choice.since && time < *choice.since) && !(choice.until && *choice.until < time);
}

bool Selection::takesEvent(qint32 eventId)
{
    if (choice.levels.empty() && choice.events.empty() && choice.services.isEmpty()) {
        return true;
    }
    const auto known = verdicts.find(eventId);
    if (known != verdicts.end()) {
        return known->second;
    }
    const bool isTaken = isMeant(eventId);
    if (verdicts.size() < 65536) { // damage makes ids without end
        verdicts.emplace(eventId, isTaken);
    }
    return isTaken;
}

bool Selection::isMeant(qint32 eventId) const
{
    if (!choice.events.empty() && events.count(eventId) == 0) {
        return false;
    }
    if (levels.empty() && choice.services.isEmpty()) {
        return true;
    }
    if (!catalogue) {
        return false;
    }
    const auto event = catalogue->events.constFind(uint(eventId));
    if (event == catalogue->events.constEnd()) {
        return false;
    }
    const int level = event->logLevel;
    return (levels.empty()
            || std::any_of(
                levels.begin(), levels.end(),
                [level](const Levels &range) { return range.from <= level && level <= range.to; }))
        && (choice.services.isEmpty() || choice.services.contains(event->service));
}

bool Selection::takesPath(std::string_view path) const
{
    return choice.paths.empty()
        || std::any_of(choice.paths.begin(), choice.paths.end(),
                       [path](const std::string &each) { return Glob::matches(each, path); });
}

bool Selection::takesText(std::string_view utf8) const
{
    const QString text = QString::fromUtf8(utf8.data(), int(utf8.size()));
    return std::any_of(
        choice.texts.begin(), choice.texts.end(),
        [&text](const QRegularExpression &each) { return each.match(text).hasMatch(); });
}
