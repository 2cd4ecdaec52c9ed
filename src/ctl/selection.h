// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "catalog/systemeventcatalogue.h"
#include "ctl/plan.h"

#include <string_view>
#include <unordered_map>
#include <unordered_set>

/*!
 * Says of records, and of status changes that are not stored yet, whether they are meant.
 * How many of them, and in which order, is not its business: SelectionChoice::last and
 * newestFirst are left to who has them one after another.
 */
class Selection
{
public:
    //! What a record is selected by, but for its text.
    struct Facts {
        quint64 number = 0; //!< 0 where there is none yet
        Instant time;
        qint32 eventId = 0;
        std::string_view path;
    };

    /*!
     * The catalogue may be null, and must outlive this. Throws WrongUsage for the name of a
     * level, an event or a service that the catalogue does not have; without a catalogue
     * nothing is known of names, and what asks for one selects nothing.
     */
    Selection(SelectionChoice selected, const SystemeventCatalogue *systemevents);

    /*!
     * \a message gives the text as something that a std::string_view can be made of; it is
     * called at most once, and only where the answer hangs on it.
     */
    template <typename Message>
    bool takes(const Facts &facts, Message &&message)
    {
        return takesNumber(facts.number) && takesTime(facts.time) && takesEvent(facts.eventId)
            && takesPath(facts.path) && (choice.texts.isEmpty() || takesText(message()));
    }

    //! Whether a part of the numbers from one to another, both included, is meant.
    [[nodiscard]] bool takesNumbers(quint64 first, quint64 last) const;
    [[nodiscard]] bool takesTime(const Instant &time) const;
    [[nodiscard]] bool takesEveryTime() const { return !choice.since && !choice.until; }

private:
    struct Levels {
        int from = 0;
        int to = 0;
    };

    [[nodiscard]] bool takesNumber(quint64 number) const
    {
        return choice.numbers.empty() || takesNumbers(number, number);
    }
    [[nodiscard]] bool takesEvent(qint32 eventId);
    [[nodiscard]] bool takesPath(std::string_view path) const;
    [[nodiscard]] bool takesText(std::string_view utf8) const;
    [[nodiscard]] bool isMeant(qint32 eventId) const;
    [[nodiscard]] int levelNumber(const LevelChoice &level) const;
    void resolveLevels();
    void resolveEvents();
    void checkServices() const;

    SelectionChoice choice;
    const SystemeventCatalogue *catalogue;
    std::vector<Levels> levels;
    std::unordered_set<qint32> events;
    std::unordered_map<qint32, bool> verdicts; //!< of the events met so far
};
