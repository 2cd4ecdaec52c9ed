// SPDX-License-Identifier: Apache-2.0
#include "ctl/stats/statisticsjson.h"

#include "ctl/jsonobject.h"
#include "ctl/stats/namedamounts.h"
#include "ctl/timetext.h"

#include <utility>

namespace
{

void addAmount(JsonObject &object, const Amount &amount)
{
    object.addNumber("records", qint64(amount.records)).addNumber("bytes", qint64(amount.bytes));
}

void addTime(JsonObject &object, JsonObject::Key key, const Instant &time)
{
    std::string text;
    (void)appendTime(text, time.seconds, time.microseconds);
    object.add(key, std::string_view(text));
}

//! An array of objects, one for each row, of which a function adds the members.
template <typename Rows, typename Add>
void addRows(JsonObject &object, JsonObject::Key key, const Rows &rows, OutputStream &out,
             Add &&add)
{
    object.addKey(key) += '[';
    const char *separator = "";
    for (const auto &row : rows) {
        out.text() += std::exchange(separator, ",");
        JsonObject member(out.text());
        add(member, row);
        member.end();
        out.wrote();
    }
    out.text() += ']';
}

void addRanges(JsonObject &object, const std::vector<Archive::NumberRange> &ranges,
               OutputStream &out)
{
    object.addKey("ranges") += '[';
    const char *separator = "";
    for (const Archive::NumberRange &range : ranges) {
        out.write(std::string(std::exchange(separator, ",")) + "[\"" + std::to_string(range.first)
                  + "\",\"" + std::to_string(range.last) + "\"]");
    }
    out.text() += ']';
}

void addPeriod(JsonObject &object, const Statistics &counted)
{
    if (counted.numbers().lowest == 0) {
        object.addNull("lowest").addNull("highest").addNull("earliest").addNull("latest");
        return;
    }
    object.addLarge("lowest", counted.numbers().lowest);
    object.addLarge("highest", counted.numbers().highest);
    addTime(object, "earliest", counted.clock().earliest);
    addTime(object, "latest", counted.clock().latest);
}

void addLosses(JsonObject &object, const Statistics &counted, OutputStream &out)
{
    JsonObject missing(object.addKey("missing"));
    missing.addLarge("numbers", counted.missing().numbers);
    missing.addNumber("gaps", qint64(counted.missing().gaps));
    addRanges(missing, counted.missing().ranges, out);
    missing.end();

    const Statistics::Repeated found = counted.repeated();
    JsonObject repeated(object.addKey("repeated"));
    repeated.addLarge("numbers", found.numbers).addFlag("isComplete", found.isComplete);
    addRanges(repeated, found.ranges, out);
    repeated.end();
    object.addNumber("restarts", qint64(counted.numbers().restarts));

    const Statistics::Clock &clock = counted.clock();
    JsonObject clockBack(object.addKey("clockBack"));
    clockBack.addNumber("times", qint64(clock.stepsBack));
    addRows(clockBack, "largest", clock.largest, out, [](JsonObject &member, const auto &step) {
        member.addLarge("number", step.number);
        addTime(member, "from", step.from);
        addTime(member, "to", step.to);
    });
    clockBack.end();

    const Statistics::Damage &harm = counted.damage();
    JsonObject damage(object.addKey("damage"));
    damage.addNumber("damaged", qint64(harm.damaged)).addNumber("likely", qint64(harm.likely));
    damage.addNumber("notCounted", qint64(harm.unreadable));
    damage.addNumber("places", qint64(harm.places)).addNumber("lostBytes", qint64(harm.lostBytes));
    damage.end();
}

void addLevel(JsonObject &object, const QString &name, int number)
{
    object.add("level", name).addNumber("levelNumber", number);
}

void addEvents(JsonObject &object, const Statistics &counted, const SystemeventCatalogue *catalogue,
               OutputStream &out)
{
    addRows(object, "levels", NamedAmounts::levels(counted, catalogue), out,
            [](JsonObject &member, const NamedAmounts::Level &level) {
                if (level.number) {
                    addLevel(member, level.name, *level.number);
                } else {
                    member.addNull("level").addNull("levelNumber");
                }
                addAmount(member, level.amount);
            });
    addRows(object, "events", NamedAmounts::events(counted, catalogue), out,
            [](JsonObject &member, const NamedAmounts::Event &each) {
                member.addNumber("event", each.id);
                if (each.event) {
                    member.add("name", each.event->name).add("service", each.event->service);
                    addLevel(member, each.event->logLevelName, each.event->logLevel);
                }
                addAmount(member, each.amount);
            });
    JsonObject others(object.addKey("otherEvents"));
    addAmount(others, counted.unknownEvents().others());
    others.end();
    addRows(object, "services", NamedAmounts::services(counted, catalogue), out,
            [](JsonObject &member, const NamedAmounts::Service &service) {
                if (service.name.isNull()) {
                    member.addNull("service");
                } else {
                    member.add("service", service.name);
                }
                addAmount(member, service.amount);
            });
}

void addPaths(JsonObject &object, const Statistics &counted, OutputStream &out)
{
    addRows(object, "paths", counted.paths().descending(), out,
            [](JsonObject &member, const auto *path) {
                member.add("path", std::string_view(path->first));
                addAmount(member, path->second);
            });
    JsonObject others(object.addKey("otherPaths"));
    addAmount(others, counted.paths().others());
    others.end();
}

void addTimes(JsonObject &object, const Statistics &counted, OutputStream &out)
{
    const TimeHistogram::Bars bars = counted.times().bars(TimeHistogram::mostRows);
    const bool isInMonths = bars.step.unit == TimeStep::Unit::Month;
    JsonObject step(object.addKey("step"));
    step.addNumber(isInMonths ? JsonObject::Key("months") : JsonObject::Key("seconds"),
                   bars.step.count);
    step.end();
    addRows(object, "times", bars.bars, out, [](JsonObject &member, const TimeHistogram::Bar &bar) {
        addTime(member, "from", {quint64(bar.begin), 0});
        addAmount(member, bar.amount);
    });
}

} // namespace

void writeStatisticsJson(const Statistics &counted, const CountedFiles &files,
                         const SystemeventCatalogue *catalogue, OutputStream &out)
{
    JsonObject object(out.text());
    object.add("folder", files.folder).addNumber("files", qint64(files.count));
    object.addNumber("size", qint64(files.size)).addFlag("isComplete", files.isComplete);
    addAmount(object, counted.total());
    addPeriod(object, counted);
    addLosses(object, counted, out);
    addEvents(object, counted, catalogue, out);
    addPaths(object, counted, out);
    addTimes(object, counted, out);
    object.end();
    out.write("\n");
}
