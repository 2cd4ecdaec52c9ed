// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "catalog/systemeventcatalogue.h"
#include "logformat/storedvalue.h"
#include "rendering/eventtemplate.h"
#include "rendering/eventtext.h"

#include <QString>

#include <string>

/*!
 * The text of one kind of event, in one language, with the values of stored records in it.
 * Everybody who shows a record shows this text.
 *
 * Values that make placeholders can cost thousands of times their size. What a message
 * takes beyond the work of the same values without any, EventTemplate::plainWork(), and
 * a little of its own is drawn from one budget for all that is shown together.
 */
class StoredMessage
{
public:
    /*!
     * What each message has of its own beyond plainWork(), for an escape such as "%20" in
     * a value, or a value that is itself filled by the next one. Every record of a full log
     * may take it, and small ones do so at 11,000 times: it sets what such a log costs.
     */
    static constexpr qint64 spareWork = 2048;
    /*!
     * What the messages of one answer share beyond that: the longest text can be made and
     * shrink again four times. Values that make no placeholders never draw on it, however
     * large they and the log are.
     */
    static constexpr qint64 answerWork = 8388608;
    static_assert(answerWork == 8 * EventText::maxLength);

    //! Event and catalogue must outlive this.
    StoredMessage(const SystemeventDescription &description,
                  const SystemeventCatalogue &systemevents, const QString &language);

    /*!
     * Appends the text of the record whose values the source stands at, in UTF-8, not
     * escaped. Values are read by their declared types, whatever is there, also behind the
     * record's end. \a values is for use in between; \a workLeft begins as answerWork.
     */
    template <typename Source>
    void append(std::string &out, Source &source, ValueTexts &values, qint64 &workLeft) const
    {
        values.clear();
        for (const SystemeventArgument &argument : event->arguments) {
            substitute(values, LogFormat::readValue(source, argument.type), argument, *catalogue);
        }
        message.render(values, out, spareWork, &workLeft);
    }

    /*!
     * Adds what a message shows of a stored value of a declared argument: the value, a text
     * of its own where it is damaged, and nothing at all for an argument that takes no
     * placeholder.
     */
    static void substitute(ValueTexts &values, const StoredValue &value,
                           const SystemeventArgument &argument,
                           const SystemeventCatalogue &systemevents);

private:
    const SystemeventDescription *event;
    const SystemeventCatalogue *catalogue;
    EventTemplate message;
};
