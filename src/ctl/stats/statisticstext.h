// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "catalog/systemeventcatalogue.h"
#include "ctl/outputstream.h"
#include "ctl/plan.h"
#include "ctl/stats/statistics.h"

#include <string>
#include <string_view>
#include <vector>

/*!
 * Tables for people, as wide as the terminal, or 80 columns. They have the same columns, so
 * that bars can be compared. Whatever a log or a catalogue holds, it moves no cursor and
 * begins no line.
 */
class StatisticsText
{
public:
    //! The catalogue may be null. All must outlive this.
    StatisticsText(const OutputChoice &output, const SystemeventCatalogue *systemevents,
                   OutputStream &stream);

    //! Throws OutputFailure.
    void print(const Statistics &counted, const CountedFiles &files);

private:
    struct Row {
        std::string label;       //!< without control characters
        const char *colour = ""; //!< of its label and bar
        Amount amount;
        bool isTogether = false; //!< of several that have no rows of their own; without a bar
    };
    struct Table {
        std::string title;
        std::vector<Row> rows;
    };

    void printFacts(const Statistics &counted, const CountedFiles &files);
    void printLosses(const Statistics &counted);
    void fact(const char *name, const std::string &text);
    //! What is only told where there is something, or where all is to be told.
    void loss(const char *name, const std::string &text, const char *otherwise = "none");

    [[nodiscard]] Table levels(const Statistics &counted) const;
    [[nodiscard]] Table events(const Statistics &counted) const;
    [[nodiscard]] Table services(const Statistics &counted) const;
    [[nodiscard]] Table paths(const Statistics &counted) const;
    [[nodiscard]] Table times(const Statistics &counted) const;

    void layOut(const std::vector<Table> &tables, const Amount &total);
    void print(const Table &table, const Amount &total);
    void print(const Row &row, quint64 most, const Amount &total);
    void endLine();
    [[nodiscard]] std::string timeOf(const Instant &time) const;
    [[nodiscard]] const char *colourOf(const SystemeventDescription *event) const;

    const OutputChoice &choice;
    const SystemeventCatalogue *catalogue;
    OutputStream &out;
    size_t width;          //!< of a line, in columns
    size_t labelWidth = 0; //!< of the columns of tables
    size_t recordsWidth = 0;
    std::string line; //!< at hand
};
