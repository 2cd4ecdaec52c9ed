// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "rendering/eventtemplate.h"
#include "rendering/eventtext.h"

#include <QString>

#include <string>
#include <unordered_map>

class LogFileCursor;
class SystemeventCatalogue;
struct SystemeventDescription;

/*!
 * Writes records as JSON objects, with messages in one language. What records of
 * one event have in common is worked out once, so one of these serves a whole query.
 *
 * Values that make placeholders can cost thousands of times their size. What a message
 * takes beyond the work of the same values without any, EventTemplate::plainWork(), and
 * a little of its own is drawn from one budget for all of them.
 */
class RecordJson
{
public:
    /*!
     * What each message has of its own beyond plainWork(), for an escape such as "%20" in
     * a value, or a value that is itself filled by the next one. Every record of a full log
     * may take it, and small ones do so at 11,000 times: it sets what such a log costs.
     */
    static constexpr qint64 spareWork = 2048;
    /*!
     * What all messages share beyond that: the longest text can be made and shrink again
     * four times. Values that make no placeholders never draw on it, however large they
     * and the log are.
     */
    static constexpr qint64 answerWork = 8388608;
    static_assert(answerWork == 8 * EventText::maxLength);

    //! The catalogue is not owned and must outlive this.
    RecordJson(const SystemeventCatalogue *systemevents, QString language);

    //! Appends the object of the record at a position of the file that the cursor is in, in UTF-8.
    void append(std::string &out, LogFileCursor &file, qint64 position);

private:
    struct EventKind {
        const SystemeventDescription *event = nullptr;
        std::string beforePath; //!< all from the event id up to the path
        EventTemplate message;
    };

    const EventKind *eventKind(int eventId);
    void appendPath(std::string &out, LogFileCursor &file) const;
    void renderArguments(std::string &out, const EventKind &kind, LogFileCursor &file);

    const SystemeventCatalogue *catalogue;
    QString lang;
    std::unordered_map<int, EventKind> eventKinds; //!< those of the catalogue met so far
    ValueTexts values;                             //!< of the record at hand
    qint64 workLeft = answerWork;                  //!< for all records to come
};
