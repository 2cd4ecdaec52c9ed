// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "archive/filebytes.h"
#include "ctl/recordview.h"
#include "rendering/storedmessage.h"

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

//! What an argument of an event has in common in all records.
struct ArgumentKind {
    int type = ArgumentType::Unknown; //!< a type code
    std::string members;              //!< of its JSON objects: the brace, its name, its type
    std::unordered_map<int, std::string> items; //!< texts of an enumeration, by value

    [[nodiscard]] std::string_view itemText(int value) const
    {
        const auto item = items.find(value);
        return item != items.end() ? std::string_view(item->second) : std::string_view();
    }
};

//! What records of one event have in common, worked out once.
struct EventKind {
    const SystemeventDescription *event = nullptr;
    StoredMessage message;
    std::string name; //!< in UTF-8
    std::string service;
    std::string level;
    std::string members; //!< of its JSON objects: from its name to the number of its level
    std::vector<ArgumentKind> arguments;
};

//! Explains records by the catalogue, in one language.
class EventKinds
{
public:
    //! The catalogue may be null; it must outlive this.
    EventKinds(const SystemeventCatalogue *systemevents, QString language);

    //! Null for an event that the catalogue does not know.
    const EventKind *find(qint32 eventId);
    /*!
     * Appends the text of a record, as the daemon gives it: where the values are not those
     * declared it is made of what follows the record in its file, too.
     */
    void appendMessage(std::string &out, const EventKind &kind, const RecordView &record,
                       const Archive::FileBytes &file);

private:
    const SystemeventCatalogue *catalogue;
    QString lang;
    std::unordered_map<qint32, EventKind> kinds; //!< those of the catalogue met so far
    ValueTexts values;                           //!< of the record at hand
    qint64 workLeft = StoredMessage::answerWork; //!< for all messages to come
};
