// SPDX-License-Identifier: Apache-2.0
#include "ctl/cataloguecheckcommand.h"

#include "ctl/cataloguecheck.h"
#include "ctl/jsonobject.h"
#include "ctl/messages.h"

#include <QFile>
#include <QSet>

#include <algorithm>

namespace
{

//! What was found in one file.
struct Checked {
    QString file;
    qint64 events = 0; //!< that are loaded
    bool isWhole = true;
    CatalogueFindings findings;
};

std::string counted(quint64 count, const char *what)
{
    return count == 0 ? std::string("no ") + what + 's' : Messages::counted(count, what);
}

const char *severityOf(const CatalogueFinding &finding)
{
    return finding.isError ? "error" : "warning";
}

void showText(const Checked &checked, bool isQuiet, OutputStream &out)
{
    const std::vector<CatalogueFinding> first = checked.findings.first();
    for (const CatalogueFinding &finding : first) {
        std::string &line = out.text();
        Messages::appendPrintable(line, checked.file);
        line += ':' + std::to_string(finding.place.line) + ':'
            + std::to_string(finding.place.column) + ": " + severityOf(finding) + ": ";
        Messages::appendPrintable(line, finding.message);
        out.write("\n");
    }
    const quint64 all = checked.findings.errors() + checked.findings.warnings();
    if (isQuiet && all == 0) {
        return;
    }
    std::string &line = out.text();
    Messages::appendPrintable(line, checked.file);
    line += ": " + counted(quint64(checked.events), "event") + ", "
        + counted(checked.findings.errors(), "error") + ", "
        + counted(checked.findings.warnings(), "warning");
    if (all > first.size()) {
        line
            += "; only the first " + std::to_string(CatalogueFindings::most) + " of each are shown";
    }
    out.write("\n");
}

void showJson(const Checked &checked, OutputStream &out)
{
    for (const CatalogueFinding &finding : checked.findings.first()) {
        JsonObject object(out.text());
        object.add("file", checked.file);
        object.addNumber("line", finding.place.line).addNumber("column", finding.place.column);
        object.add("severity", std::string_view(severityOf(finding)));
        object.add("rule", std::string_view(finding.rule)).add("message", finding.message);
        object.end();
        out.write("\n");
    }
}

void addCounts(JsonObject &object, qint64 events, quint64 errors, quint64 warnings)
{
    object.addNumber("events", events);
    object.addNumber("errors", qint64(errors)).addNumber("warnings", qint64(warnings));
}

//! What is known of each file, and of all together.
class Summary
{
public:
    void add(const Checked &checked)
    {
        files += files.empty() ? "" : ",";
        JsonObject object(files);
        object.add("file", checked.file);
        addCounts(object, checked.events, checked.findings.errors(), checked.findings.warnings());
        object.addFlag("whole", checked.isWhole).end();
        events += checked.events;
        errors += checked.findings.errors();
        warnings += checked.findings.warnings();
    }

    void show(OutputStream &out) const
    {
        out.text() += "{\"summary\":";
        JsonObject object(out.text());
        addCounts(object, events, errors, warnings);
        object.addKey("files") += '[' + files + ']';
        object.end();
        out.write("}\n");
    }

    //! Nothing is found that counts.
    [[nodiscard]] bool isWell(bool warningsAreErrors) const
    {
        return errors == 0 && (warnings == 0 || !warningsAreErrors);
    }

private:
    std::string files;
    qint64 events = 0;
    quint64 errors = 0;
    quint64 warnings = 0;
};

//! False, and a message told, for what cannot be read or is too large.
bool readFile(const QString &name, QByteArray &bytes)
{
    constexpr qint64 piece = 65536;
    QFile file(name);
    bool isRead = file.open(QIODevice::ReadOnly);
    while (isRead && bytes.size() <= CatalogueDocument::maxSize) {
        const QByteArray more = file.read(piece);
        if (more.isEmpty()) {
            isRead = file.error() == QFileDevice::NoError;
            break;
        }
        bytes += more;
    }
    if (!isRead) {
        Messages::tell(
            QStringLiteral("%1: the catalogue cannot be read: %2").arg(name, file.errorString()));
        return false;
    }
    if (bytes.size() > CatalogueDocument::maxSize) {
        Messages::tell(
            QStringLiteral("%1: this is no catalogue: it has more than 16 MiB").arg(name));
        return false;
    }
    return true;
}

Checked check(const QString &name, const QByteArray &bytes)
{
    const CatalogueDocument document = CatalogueDocument::read(bytes);
    QSet<uint> ids;
    for (const CatalogueDocument::Event &event : document.events) {
        ids.insert(event.id);
    }
    return {name, ids.size(), !document.stop, checkCatalogue(document)};
}

} // namespace

ExitStatus runCatalogueCheck(const Plan &plan, OutputStream &out)
{
    const bool isJson = plan.output.format == Format::Json;
    ExitStatus status = ExitStatus::Done;
    Summary summary;
    for (const QString &name : plan.catalogue.files) {
        QByteArray bytes;
        if (!readFile(name, bytes)) {
            status = ExitStatus::Failed;
            continue;
        }
        const Checked checked = check(name, bytes);
        if (isJson) {
            showJson(checked, out);
        } else {
            showText(checked, plan.output.isQuiet, out);
        }
        summary.add(checked);
    }
    if (isJson) {
        summary.show(out);
    }
    if (status == ExitStatus::Done && !summary.isWell(plan.catalogue.warningsAreErrors)) {
        status = ExitStatus::NothingMatched;
    }
    return status;
}
