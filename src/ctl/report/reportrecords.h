// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "catalog/systemeventcatalogue.h"
#include "ctl/recordview.h"
#include "ctl/report/reportpage.h"
#include "rendering/eventtemplate.h"

#include <QStringList>

#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

/*!
 * Gives records to a page, some thousands at a time: column by column, with everything that
 * repeats written once. log.js reads it and knows it from here.
 *
 * A message is not written for each language, but as the texts of its values, from which and
 * the pieces of the event's template the page puts it together as EventTemplate does in one
 * pass. Where that cannot do it the messages themselves are written.
 *
 * Memory: that of the records since the last piece, and 64 MiB at most for what repeats.
 */
class ReportRecords
{
public:
    //! All must outlive this; the catalogue may be null, the languages are not empty.
    ReportRecords(const SystemeventCatalogue *systemevents, const QStringList &languageCodes,
                  ReportPage &reportPage);

    void add(const RecordView &record);
    //! Writes what has been added since the last piece.
    void flush();

    //! How many have been added.
    [[nodiscard]] quint64 count() const { return flushed + quint64(rows); }
    //! Appends what there is to know of the events met, as a JSON array.
    void appendEvents(std::string &out) const;

private:
    //! An event that was met.
    struct Kind {
        qint32 id = 0;
        const SystemeventDescription *event = nullptr; //!< null for an unknown one
        std::vector<EventTemplate> templates;          //!< by language
    };
    //! The inside of a JSON array.
    struct Column {
        std::string json;
        std::string &next();
        void add(qint64 number);
    };
    //! Numbers as differences; as strings those that a script cannot hold.
    struct RisingColumn {
        Column column;
        quint64 last = 0;
        void add(quint64 number);
    };
    //! Texts as indices in a table that grows with each piece.
    struct Table {
        explicit Table(size_t mostEntries)
            : most(mostEntries)
        {
        }
        //! The index of an entry, which is given as JSON.
        qint64 indexOf(const std::string &entry);

        size_t most;
        std::unordered_map<std::string, qint64> known;
        qint64 size = 0;
        Column added;
    };
    struct Piece {
        RisingColumn number;
        RisingColumn seconds;
        Column microseconds;
        Column event;
        Column path;
        Column file;
        RisingColumn offset;
        Column length;
        Column value;
        Column states;
        Column surplus;
        Column whole;
        QByteArray bytes;
    };

    qint64 kindOf(qint32 eventId);
    void addHead(const RecordView &record);
    void addValues(const Kind &kind, const RecordView &record);
    void addMessages(const Kind &kind);

    const SystemeventCatalogue *catalogue;
    const QStringList &languages;
    ReportPage &page;
    std::vector<Kind> kinds;
    std::unordered_map<qint32, qint64> kindIndices;
    std::vector<qint64> workLeft; //!< by language, for all messages to come
    Table values;
    Table paths;
    Piece piece;
    quint64 flushed = 0;
    qint64 rows = 0;     //!< of the piece
    ValueTexts texts;    //!< of the record at hand
    std::string scratch; //!< for what is put together in between
};
