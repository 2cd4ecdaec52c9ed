// SPDX-License-Identifier: Apache-2.0
#include "ctl/stats/statisticstext.h"

#include "ctl/colours.h"
#include "ctl/messages.h"
#include "ctl/stats/namedamounts.h"
#include "ctl/textwidth.h"
#include "ctl/timetext.h"
#include "ctl/utf8.h"

#include <QDate>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

namespace
{

using Messages::counted;

constexpr size_t usualWidth = 80;
constexpr size_t leastWidth = 60; // narrower terminals break lines
constexpr size_t mostRows = 10;   // of what there may be many of
constexpr size_t mostTimes = 24;
constexpr size_t mostListed = 5; // of what is wrong

constexpr size_t factColumn = 11;
constexpr size_t between = 2; // columns of a table
constexpr char recordsTitle[] = "records";
constexpr size_t shareWidth = 6;
constexpr char bytesTitle[] = "bytes each";
constexpr size_t leastBar = 16;

void appendRight(std::string &out, const std::string &text, size_t width)
{
    out.append(text.size() < width ? width - text.size() : 0, ' ');
    out += text;
}

//! A text as a terminal may show it.
template <typename Text>
std::string printable(const Text &text)
{
    std::string shown;
    Messages::appendPrintable(shown, text);
    return shown;
}

//! The end of a text that is too wide, which says more than its beginning.
std::string fitted(std::string text, size_t width)
{
    size_t taken = TextWidth::columns(text);
    if (taken <= width) {
        return text;
    }
    std::string_view rest = text;
    while (taken + 1 > width && !rest.empty()) {
        const std::string_view before = rest;
        (void)Utf8::takeCharacter(rest);
        taken -= TextWidth::columns(before.substr(0, before.size() - rest.size()));
    }
    return "…" + std::string(rest);
}

std::string tenths(quint64 tenth)
{
    return std::to_string(tenth / 10) + '.' + std::to_string(tenth % 10);
}

//! A part in percent.
std::string share(quint64 part, quint64 whole)
{
    const auto thousandths = quint64(std::lround(1000.0 * double(part) / double(whole)));
    return tenths(thousandths) + '%';
}

std::string average(const Amount &amount)
{
    return std::to_string((amount.bytes + amount.records / 2) / amount.records);
}

std::string sizeText(quint64 bytes)
{
    constexpr quint64 thousand = 1000;
    if (bytes < 10 * thousand) {
        return counted(bytes, "byte");
    }
    static constexpr const char *units[] = {" kB", " MB", " GB"};
    size_t unit = 0;
    quint64 tenth = bytes / (thousand / 10);
    while (tenth >= 10 * thousand && unit + 1 < std::size(units)) {
        tenth /= thousand;
        ++unit;
    }
    return tenths(tenth) + units[unit];
}

//! A span as one speaks of it.
std::string spanText(qint64 microseconds)
{
    static constexpr struct {
        qint64 seconds;
        const char *name;
    } units[] = {{86400, " d"}, {3600, " h"}, {60, " min"}, {1, " s"}};
    constexpr qint64 second = 1000000;
    const qint64 seconds = microseconds / second;
    if (seconds < 1) {
        return std::to_string((microseconds + 999) / 1000) + " ms";
    }
    size_t unit = 0;
    while (seconds < units[unit].seconds) {
        ++unit;
    }
    std::string text = std::to_string(seconds / units[unit].seconds) + units[unit].name;
    const qint64 rest = seconds % units[unit].seconds;
    if (rest > 0 && rest / units[unit + 1].seconds > 0) {
        text += ' ' + std::to_string(rest / units[unit + 1].seconds) + units[unit + 1].name;
    }
    return text;
}

//! The first ranges, as many as one can take in.
std::string listOf(const std::vector<Archive::NumberRange> &ranges, quint64 count)
{
    std::string text;
    for (size_t i = 0; i < ranges.size() && i < mostListed; ++i) {
        text += i == 0 ? "" : ", ";
        text += std::to_string(ranges[i].first);
        if (ranges[i].last != ranges[i].first) {
            text += " to " + std::to_string(ranges[i].last);
        }
    }
    return count > mostListed ? text + " and others" : text;
}

std::string missingText(const Statistics::Missing &missing)
{
    if (missing.gaps == 0) {
        return {};
    }
    return counted(missing.numbers, "number") + ": " + listOf(missing.ranges, missing.gaps);
}

std::string repeatedText(const Statistics::Repeated &repeated)
{
    std::string text;
    if (repeated.numbers > 0) {
        text = counted(repeated.numbers, "number") + ": "
            + listOf(repeated.ranges, repeated.ranges.size());
    }
    if (!repeated.isComplete) {
        text += text.empty() ? "" : "; ";
        text += "not all can be kept in mind";
    }
    return text;
}

std::string clockText(const Statistics::Clock &clock)
{
    if (clock.stepsBack == 0) {
        return {};
    }
    std::string text = "went back " + counted(clock.stepsBack, "time");
    for (size_t i = 0; i < clock.largest.size() && i < mostListed; ++i) {
        const Statistics::StepBack &step = clock.largest[i];
        text += i == 0 ? ": by " : ", by ";
        text += spanText(microsecondsBetween(step.to, step.from)) + " at number "
            + std::to_string(step.number);
    }
    return clock.stepsBack > mostListed ? text + " and others" : text;
}

std::string damageText(const Statistics::Damage &damage)
{
    std::string text;
    const auto add
        = [&text](const std::string &what) { text += text.empty() ? what : ", " + what; };
    if (damage.damaged > 0) {
        add(counted(damage.damaged, "damaged record"));
    }
    if (damage.unreadable > 0) {
        text += " (" + std::to_string(damage.unreadable) + " in no table, as nobody knows what "
            + (damage.unreadable == 1 ? "it was)" : "they were)");
    }
    if (damage.likely > 0) {
        add(counted(damage.likely, "record") + " likely whole");
    }
    if (damage.places > 0) {
        add(counted(damage.lostBytes, "byte") + " lost in " + counted(damage.places, "place"));
    }
    return text;
}

std::string twoDigits(qint64 value)
{
    return (value < 10 ? "0" : "") + std::to_string(value);
}

//! The time at which a step of a histogram begins.
std::string beginText(qint64 seconds, const TimeStep &step)
{
    constexpr qint64 day = 86400;
    static constexpr const char *weekdays[] = {"Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"};
    const qint64 ofDay = (seconds % day + day) % day;
    const QDate date = QDate(1970, 1, 1).addDays((seconds - ofDay) / day);
    std::string text = std::to_string(date.year());
    if (step.unit == TimeStep::Unit::Month) {
        return step.count % 12 == 0 ? text : text + '-' + twoDigits(date.month());
    }
    text += '-' + twoDigits(date.month()) + '-' + twoDigits(date.day()) + ' ';
    if (step.count >= day) {
        return text + weekdays[date.dayOfWeek() - 1];
    }
    text += twoDigits(ofDay / 3600) + ':' + twoDigits(ofDay / 60 % 60);
    return step.count >= 60 ? text : text + ':' + twoDigits(ofDay % 60);
}

std::string stepText(const TimeStep &step)
{
    static constexpr struct {
        TimeStep::Unit unit;
        qint64 size;
        const char *name;
    } units[] = {{TimeStep::Unit::Month, 12, "year"},      {TimeStep::Unit::Month, 1, "month"},
                 {TimeStep::Unit::Second, 604800, "week"}, {TimeStep::Unit::Second, 86400, "day"},
                 {TimeStep::Unit::Second, 3600, "hour"},   {TimeStep::Unit::Second, 60, "minute"},
                 {TimeStep::Unit::Second, 1, "second"}};
    const auto *const unit
        = std::find_if(std::begin(units), std::end(units), [&step](const auto &each) {
              return each.unit == step.unit && step.count % each.size == 0;
          });
    const qint64 count = step.count / unit->size;
    return count == 1 ? unit->name : std::to_string(count) + ' ' + unit->name + 's';
}

void appendBar(std::string &out, quint64 part, quint64 whole, size_t columns)
{
    static constexpr const char *eighths[] = {"", "▏", "▎", "▍", "▌", "▋", "▊", "▉"};
    const auto length = size_t(std::lround(double(part) / double(whole) * double(columns * 8)));
    const size_t shown = std::max(length, size_t(part > 0 ? 1 : 0));
    for (size_t i = 0; i < shown / 8; ++i) {
        out += "█";
    }
    out += eighths[shown % 8];
}

std::string othersText(size_t count, const Amount &uncounted)
{
    const std::string number = std::to_string(count);
    if (uncounted.records > 0) {
        return "more than " + number + " others";
    }
    return number + (count == 1 ? " other" : " others");
}

} // namespace

StatisticsText::StatisticsText(const OutputChoice &output, const SystemeventCatalogue *systemevents,
                               OutputStream &stream)
    : choice(output)
    , catalogue(systemevents)
    , out(stream)
    , width(output.columns > 0 ? std::max(size_t(output.columns), leastWidth) : usualWidth)
{
}

void StatisticsText::print(const Statistics &counted, const CountedFiles &files)
{
    printFacts(counted, files);
    printLosses(counted);
    std::vector<Table> tables;
    if (catalogue) {
        tables.push_back(levels(counted));
    }
    tables.push_back(events(counted));
    if (catalogue) {
        tables.push_back(services(counted));
    }
    tables.push_back(paths(counted));
    tables.push_back(times(counted));
    layOut(tables, counted.total());
    for (const Table &table : tables) {
        if (!table.rows.empty()) {
            print(table, counted.total());
        }
    }
}

std::string StatisticsText::timeOf(const Instant &time) const
{
    std::string text;
    (void)TimeText(choice.time.value_or(TimeStyle::Local), {}).append(text, time.seconds, 0);
    const size_t fraction = text.find('.');
    return fraction != std::string::npos ? text.erase(fraction, 7) : text;
}

void StatisticsText::fact(const char *name, const std::string &text)
{
    line = choice.isColoured ? Colours::bold : "";
    TextWidth::appendPadded(line, name, factColumn);
    line += choice.isColoured ? Colours::plain : "";
    TextWidth::appendWrapped(line, text, width - factColumn, factColumn, width);
    endLine();
}

void StatisticsText::loss(const char *name, const std::string &text, const char *otherwise)
{
    if (!text.empty() || !choice.isQuiet) {
        fact(name, text.empty() ? otherwise : text);
    }
}

void StatisticsText::endLine()
{
    line += '\n';
    out.write(line);
}

void StatisticsText::printFacts(const Statistics &counted, const CountedFiles &files)
{
    const Amount &total = counted.total();
    fact("Log",
         printable(files.folder) + ", " + Messages::counted(files.count, "file") + ", "
             + sizeText(files.size)
             + (files.isComplete ? "" : ", of which not everything can be read"));
    std::string text = std::to_string(total.records);
    if (counted.numbers().lowest != 0) {
        text += ", numbers " + std::to_string(counted.numbers().lowest) + " to "
            + std::to_string(counted.numbers().highest);
    }
    fact("Records", text);
    if (total.records > 0) {
        fact("Size", average(total) + " bytes a record, " + sizeText(total.bytes) + " in all");
    }
    const Statistics::Clock &clock = counted.clock();
    if (clock.isKnown) {
        fact("Period",
             timeOf(clock.earliest) + " to " + timeOf(clock.latest) + ", "
                 + spanText(microsecondsBetween(clock.earliest, clock.latest)));
    }
    const auto paths = counted.paths().descending();
    if (!paths.empty()) {
        const auto &[path, amount] = *paths.front();
        // One that there was no room for may have as many as all of those have together.
        const bool isSure = counted.paths().others().records <= amount.records;
        fact("Busiest",
             printable(fitted(path, 2 * width)) + " with " + share(amount.records, total.records)
                 + " of the records" + (isSure ? "" : ", of the paths in memory"));
    }
}

void StatisticsText::printLosses(const Statistics &counted)
{
    loss("Missing", missingText(counted.missing()));
    loss("Repeated", repeatedText(counted.repeated()));
    const quint64 restarts = counted.numbers().restarts;
    if (restarts > 0) {
        fact("Restarts", "numbers began again " + Messages::counted(restarts, "time"));
    }
    loss("Clock", clockText(counted.clock()), "never went back");
    loss("Damage", damageText(counted.damage()));
}

const char *StatisticsText::colourOf(const SystemeventDescription *event) const
{
    return choice.isColoured && event ? Colours::ofLevel(event->logLevel) : "";
}

StatisticsText::Table StatisticsText::levels(const Statistics &counted) const
{
    Table table{"Level", {}};
    for (const NamedAmounts::Level &level : NamedAmounts::levels(counted, catalogue)) {
        const char *const colour
            = choice.isColoured && level.number ? Colours::ofLevel(*level.number) : "";
        table.rows.push_back(
            {level.number ? printable(level.name) : "none: unknown events", colour, level.amount});
    }
    return table;
}

StatisticsText::Table StatisticsText::events(const Statistics &counted) const
{
    Table table{"Event", {}};
    const std::vector<NamedAmounts::Event> events = NamedAmounts::events(counted, catalogue);
    const Amount &uncounted = counted.unknownEvents().others();
    Amount others = uncounted;
    for (size_t i = 0; i < events.size(); ++i) {
        const NamedAmounts::Event &each = events[i];
        if (i >= mostRows) {
            others.add(each.amount);
            continue;
        }
        const std::string id = std::to_string(each.id);
        table.rows.push_back({each.event ? id + ' ' + printable(each.event->name) : id,
                              colourOf(each.event), each.amount});
    }
    if (others.records > 0) {
        table.rows.push_back(
            {othersText(events.size() - table.rows.size(), uncounted), "", others, true});
    }
    return table;
}

StatisticsText::Table StatisticsText::services(const Statistics &counted) const
{
    Table table{"Service", {}};
    const std::vector<NamedAmounts::Service> services = NamedAmounts::services(counted, catalogue);
    Amount others;
    for (size_t i = 0; i < services.size(); ++i) {
        const NamedAmounts::Service &each = services[i];
        if (i >= mostRows) {
            others.add(each.amount);
            continue;
        }
        table.rows.push_back(
            {each.name.isNull() ? "none: unknown events" : printable(each.name), "", each.amount});
    }
    if (others.records > 0) {
        table.rows.push_back({othersText(services.size() - mostRows, {}), "", others, true});
    }
    return table;
}

StatisticsText::Table StatisticsText::paths(const Statistics &counted) const
{
    Table table{"Path", {}};
    const auto paths = counted.paths().descending();
    Amount others = counted.paths().others();
    for (size_t i = 0; i < paths.size(); ++i) {
        if (i >= mostRows) {
            others.add(paths[i]->second);
            continue;
        }
        table.rows.push_back({printable(paths[i]->first), "", paths[i]->second});
    }
    if (others.records > 0) {
        table.rows.push_back(
            {othersText(paths.size() - table.rows.size(), counted.paths().others()), "", others,
             true});
    }
    return table;
}

StatisticsText::Table StatisticsText::times(const Statistics &counted) const
{
    constexpr qint64 second = 1000000;
    const auto [step, bars] = counted.times().bars(mostTimes);
    Table table{"Time, by " + stepText(step), {}};
    for (size_t i = 0; i < bars.size(); ++i) {
        const qint64 behind = i > 0 ? bars[i - 1].end : bars[i].begin;
        const qint64 empty = step.between(behind, bars[i].begin);
        if (empty > TimeHistogram::mostEmptyRows) {
            table.rows.push_back(
                {"none for " + spanText((bars[i].begin - behind) * second), "", {}, true});
        }
        for (qint64 begin = behind; empty <= TimeHistogram::mostEmptyRows && begin < bars[i].begin;
             begin = step.next(begin)) {
            table.rows.push_back({beginText(begin, step), "", {}});
        }
        table.rows.push_back({beginText(bars[i].begin, step), "", bars[i].amount});
    }
    return table;
}

//! Columns are as wide as their widest cells, and labels get what bars can spare.
void StatisticsText::layOut(const std::vector<Table> &tables, const Amount &total)
{
    recordsWidth = std::max(sizeof recordsTitle - 1, std::to_string(total.records).size());
    const size_t others = between + recordsWidth + between + shareWidth + between
        + (sizeof bytesTitle - 1) + between + leastBar;
    labelWidth = 0;
    for (const Table &table : tables) {
        labelWidth = std::max(labelWidth, TextWidth::columns(table.title));
        for (const Row &row : table.rows) {
            labelWidth = std::max(labelWidth, TextWidth::columns(row.label));
        }
    }
    labelWidth = std::min(labelWidth, width - others);
}

void StatisticsText::print(const Table &table, const Amount &total)
{
    line = '\n';
    line += choice.isColoured ? Colours::bold : "";
    TextWidth::appendPadded(line, table.title, labelWidth + between);
    appendRight(line, recordsTitle, recordsWidth);
    appendRight(line, "share", between + shareWidth);
    appendRight(line, bytesTitle, between + sizeof bytesTitle - 1);
    line += choice.isColoured ? Colours::plain : "";
    endLine();
    quint64 most = 1;
    for (const Row &row : table.rows) {
        most = std::max(most, row.isTogether ? 0 : row.amount.records);
    }
    for (const Row &row : table.rows) {
        print(row, most, total);
    }
}

void StatisticsText::print(const Row &row, quint64 most, const Amount &total)
{
    const std::string label = fitted(row.label, labelWidth);
    const char *const end = *row.colour != '\0' ? Colours::plain : "";
    line = row.colour + label + end;
    if (row.amount.records > 0 || !row.isTogether) {
        line.append(labelWidth - TextWidth::columns(label) + between, ' ');
        appendRight(line, std::to_string(row.amount.records), recordsWidth);
    }
    if (row.amount.records > 0) {
        appendRight(line, share(row.amount.records, total.records), between + shareWidth);
        appendRight(line, average(row.amount), between + sizeof bytesTitle - 1);
        if (!row.isTogether) {
            line.append(between, ' ');
            const size_t taken = labelWidth + between + recordsWidth + between + shareWidth
                + between + sizeof bytesTitle - 1 + between;
            line += row.colour;
            appendBar(line, row.amount.records, most, width - taken);
            line += end;
        }
    }
    endLine();
}
