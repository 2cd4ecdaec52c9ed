// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "archive/archiverecord.h"
#include "archive/filebytes.h"
#include "rendering/storedmessage.h"

#include <string>
#include <unordered_map>

//! What records of one event have in common, worked out once.
struct EventKind {
    const SystemeventDescription *event = nullptr;
    StoredMessage message;
    std::string members; //!< of its JSON objects: from its name to the number of its level
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
    void appendMessage(std::string &out, const EventKind &kind, const Archive::Place &place,
                       const Archive::Record &record, const Archive::FileBytes &file);

private:
    const SystemeventCatalogue *catalogue;
    QString lang;
    std::unordered_map<qint32, EventKind> kinds; //!< those of the catalogue met so far
    ValueTexts values;                           //!< of the record at hand
    qint64 workLeft = StoredMessage::answerWork; //!< for all messages to come
};
