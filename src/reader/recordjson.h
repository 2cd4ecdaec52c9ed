// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "rendering/storedmessage.h"

#include <QString>

#include <string>
#include <unordered_map>

class LogFileCursor;

/*!
 * Writes records as JSON objects, with messages in one language. What records of
 * one event have in common is worked out once, so one of these serves a whole query.
 */
class RecordJson
{
public:
    //! The catalogue is not owned and must outlive this.
    RecordJson(const SystemeventCatalogue *systemevents, QString language);

    //! Appends the object of the record at a position of the file that the cursor is in, in UTF-8.
    void append(std::string &out, LogFileCursor &file, qint64 position);

private:
    struct EventKind {
        std::string beforePath; //!< all from the event id up to the path
        StoredMessage message;
    };

    const EventKind *eventKind(int eventId);
    void appendPath(std::string &out, LogFileCursor &file) const;

    const SystemeventCatalogue *catalogue;
    QString lang;
    std::unordered_map<int, EventKind> eventKinds; //!< those of the catalogue met so far
    ValueTexts values;                             //!< of the record at hand
    qint64 workLeft = StoredMessage::answerWork;   //!< for all records to come
};
