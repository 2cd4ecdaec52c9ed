// SPDX-License-Identifier: Apache-2.0
#include "ctl/verifycommand.h"

#include "archive/folderreport.h"
#include "ctl/advice.h"
#include "ctl/jsonobject.h"
#include "ctl/messages.h"
#include "ctl/progress.h"
#include "ctl/source.h"
#include "ctl/timetext.h"
#include "logformat/logformat.h"
#include "rendering/utf8text.h"

#include <vector>

namespace
{

using Archive::FileReport;
using Archive::FolderReport;
using Archive::NumberRange;
using Messages::counted;

std::string timeOf(const Archive::RecordTime &time)
{
    std::string text;
    return appendTime(text, time.seconds, time.microseconds) ? text : std::string("unknown");
}

class Reports
{
public:
    explicit Reports(OutputStream &output)
        : out(output)
    {
    }
    virtual ~Reports() = default;
    Q_DISABLE_COPY_MOVE(Reports)

    virtual void show(const FileReport &file) = 0;
    virtual void show(const FolderReport &folder, const QStringList &otherNames) = 0;

protected:
    OutputStream &out;
};

// For programs.

void addNumbers(JsonObject &object, const FileReport &file)
{
    if (file.records == 0) {
        object.addNull("first").addNull("last").addNull("firstTime").addNull("lastTime");
        return;
    }
    object.addLarge("first", file.first).addLarge("last", file.last);
    object.add("firstTime", std::string_view(timeOf(file.firstTime)));
    object.add("lastTime", std::string_view(timeOf(file.lastTime)));
}

void appendStretch(std::string &text, const Archive::Stretch &stretch)
{
    JsonObject object(text);
    object.addNumber("from", stretch.from).addNumber("to", stretch.to);
    object.add("reason", Archive::faultText(stretch.reason));
    object.addNumber("wholeBefore", qint64(stretch.wholeBefore));
    object.addNumber("wholeBehind", qint64(stretch.wholeBehind));
    object.end();
}

class JsonReports : public Reports
{
public:
    using Reports::Reports;

    void show(const FileReport &file) override
    {
        JsonObject object(out.text());
        object.add("file", LogFormat::fileName(file.file));
        object.addNumber("size", file.size).addNumber("records", qint64(file.records));
        addNumbers(object, file);
        std::string &text = object.addKey("damaged");
        text += '[';
        const char *separator = "";
        for (const Archive::Stretch &stretch : file.damaged) {
            text += separator;
            separator = ",";
            appendStretch(text, stretch);
        }
        text += ']';
        object.addNumber("readByDaemon", qint64(file.readByDaemon));
        if (file.error != 0) {
            object.add("error", Messages::errorText(file.error));
        }
        object.end();
        out.write("\n");
    }

    void show(const FolderReport &folder, const QStringList &otherNames) override
    {
        out.text() += "{\"summary\":";
        JsonObject object(out.text());
        object.addNumber("files", folder.files).addNumber("records", qint64(folder.records));
        object.addNumber("readByDaemon", qint64(folder.readByDaemon));
        object.addKey("missing");
        appendRanges(folder.numbers.missing());
        object.addKey("repeated");
        appendEach(folder.numbers.repeated());
        if (folder.numbers.isCut()) {
            object.addFlag("numbersAreComplete", false);
        }
        if (!otherNames.isEmpty()) {
            object.add("otherNames", otherNames.join(QLatin1Char('/')));
        }
        object.end();
        out.write("}\n");
    }

private:
    void appendRanges(const std::vector<NumberRange> &ranges)
    {
        const char *separator = "[";
        for (const NumberRange &range : ranges) {
            out.write(std::string(separator) + "[\"" + std::to_string(range.first) + "\",\""
                      + std::to_string(range.last) + "\"]");
            separator = ",";
        }
        out.write(ranges.empty() ? "[]" : "]");
    }

    //! There are no more of them than records, so this ends.
    void appendEach(const std::vector<NumberRange> &ranges)
    {
        const char *separator = "[";
        for (const NumberRange &range : ranges) {
            for (quint64 number = range.first; number <= range.last; ++number) {
                out.write(std::string(separator) + '"' + std::to_string(number) + '"');
                separator = ",";
            }
        }
        out.write(ranges.empty() ? "[]" : "]");
    }
};

// For people.

//! The first ranges, as many as one can take in.
std::string shortList(const std::vector<NumberRange> &ranges)
{
    constexpr size_t most = 10;
    std::string text;
    for (size_t i = 0; i < ranges.size() && i < most; ++i) {
        text += i == 0 ? "" : ", ";
        text += std::to_string(ranges[i].first);
        if (ranges[i].last != ranges[i].first) {
            text += " to " + std::to_string(ranges[i].last);
        }
    }
    if (ranges.size() > most) {
        text += " and " + counted(ranges.size() - most, "more range");
    }
    return text;
}

//! The end of a sentence that begins with the number of records.
std::string shownText(quint64 shown, quint64 records)
{
    switch (records) {
    case 0:
        return {};
    case 1:
        return shown == 1 ? "; the daemon shows it" : "; the daemon does not show it";
    default:
        return "; the daemon shows " + (shown == records ? "all" : std::to_string(shown))
            + " of them";
    }
}

class TextReports : public Reports
{
public:
    TextReports(OutputStream &output, const Plan &plan)
        : Reports(output)
        , source(plan.source)
        , quiet(plan.output.isQuiet)
    {
    }

    void show(const FileReport &file) override
    {
        if (quiet && file.damaged.empty()) {
            return;
        }
        std::string &text = out.text();
        Utf8Text::append(text, LogFormat::fileName(file.file));
        text += ": " + counted(quint64(file.size), "byte") + ", " + counted(file.records, "record")
            + (file.error != 0 ? ", as far as it can be read\n" : "\n");
        if (file.records > 0) {
            text += "  numbers  " + std::to_string(file.first) + " to " + std::to_string(file.last)
                + "\n  time     " + timeOf(file.firstTime) + " to " + timeOf(file.lastTime) + '\n';
        }
        for (const Archive::Stretch &stretch : file.damaged) {
            out.write("  damaged  " + std::to_string(stretch.from) + " to "
                      + std::to_string(stretch.to) + ": "
                      + Archive::faultText(stretch.reason).data() + "\n           "
                      + counted(stretch.wholeBefore, "whole record") + " before it, "
                      + std::to_string(stretch.wholeBehind) + " behind it\n");
        }
        out.wrote();
    }

    void show(const FolderReport &folder, const QStringList &otherNames) override
    {
        const bool isWell = !folder.isDamaged && folder.readByDaemon == folder.records;
        if (quiet && isWell) {
            return;
        }
        out.write(counted(quint64(folder.files), "file") + ", " + counted(folder.records, "record")
                  + shownText(folder.readByDaemon, folder.records) + '\n');
        showNumbers("missing", folder.numbers.missing());
        showNumbers("repeated", folder.numbers.repeated());
        if (folder.numbers.isCut()) {
            out.write("there are more of them than can be kept in mind\n");
        }
        for (const QString &name : otherNames) {
            std::string line = "not looked at, though the daemon reads it: ";
            Messages::appendPrintable(line, name);
            out.write(line + '\n');
        }
        if (isWell) {
            return;
        }
        if (folder.isDamaged || folder.error != 0) {
            Advice::appendForDamage(out.text(), source);
        } else {
            Advice::appendForHidden(out.text(), source);
        }
        out.wrote();
    }

private:
    void showNumbers(const char *what, const std::vector<NumberRange> &ranges)
    {
        if (!ranges.empty()) {
            out.write(std::string(what) + " numbers: " + shortList(ranges) + '\n');
        }
    }

    const SourceChoice &source;
    bool quiet;
};

} // namespace

ExitStatus runVerify(const Plan &plan, OutputStream &out)
{
    Source source(plan.source, plan.output.isQuiet);
    if (!source.open()) {
        return ExitStatus::Failed;
    }
    JsonReports json(out);
    TextReports text(out, plan);
    Reports &reports = plan.output.format == Format::Json ? static_cast<Reports &>(json) : text;
    Progress progress(plan.output.isProgressShown, out);
    progress.expect(qint64(source.folder().files().size()));
    const FolderReport folder = Archive::reportOn(source.folder(), [&](const FileReport &file) {
        progress.advance(1);
        reports.show(file);
        if (file.error != 0) {
            Messages::tellUnread(plan.source.folder, file.file, file.error);
        }
    });
    reports.show(folder, source.folder().otherNames());
    if (folder.error != 0) {
        return ExitStatus::Failed;
    }
    return folder.isDamaged ? ExitStatus::DamageFound : ExitStatus::Done;
}
