// SPDX-License-Identifier: Apache-2.0

// The input is an event catalogue. It is loaded, its tables are checked against one
// another, and its texts are rendered: of live values, and of stored ones through the
// reader; each also the plain way. What the tool reads of it to check it is the same, and
// the check itself ends. Values come from the catalogue itself, so that the
// fuzzer has them in its hand.

#include "catalog/systemeventcatalogue.h"
#include "checks.h"
#include "ctl/cataloguecheck.h"
#include "ctl/documentcompare.h"
#include "logformat/encoding.h"
#include "reader/literaltext.h"
#include "reader/rewrittenfolder.h"
#include "rendering/eventtemplate.h"
#include "rendering/eventtext.h"
#include "support/literals.h"
#include "support/recordbytes.h"
#include "tworeaders.h"

#include <QLocale>

#include <algorithm>
#include <array>

#include <sys/mman.h>
#include <unistd.h>

namespace
{

constexpr int mostEvents = 4; //!< rendered of one catalogue

//! A file in memory, which is read by a name.
class MemoryFile
{
public:
    MemoryFile()
        : handle(memfd_create("catalogue", MFD_CLOEXEC))
    {
        require(handle >= 0, "no file in memory");
    }
    ~MemoryFile() { close(handle); }
    Q_DISABLE_COPY_MOVE(MemoryFile)

    void put(const uint8_t *data, size_t size) const
    {
        require(ftruncate(handle, 0) == 0 && pwrite(handle, data, size, 0) == ssize_t(size),
                "the file in memory cannot be written");
    }
    [[nodiscard]] QString name() const { return "/proc/self/fd/%1"_s.arg(handle); }

private:
    int handle;
};

void checkTables(const SystemeventCatalogue &catalogue)
{
    const bool hasLevels = catalogue.enums.contains("LogLevel"_s);
    require(hasLevels || catalogue.logLevels.isEmpty(), "levels come from their enumeration");
    for (auto event = catalogue.events.cbegin(); event != catalogue.events.cend(); ++event) {
        require(event->id == event.key(), "an event stands under its id");
        require(event->logLevel == catalogue.logLevelForName(event->logLevelName),
                "an event has the level of its name");
        for (const SystemeventArgument &argument : event->arguments) {
            require(argument.type == ArgumentType::Unknown
                        || typeFromName(typeName(argument.type)) == argument.type,
                    "an argument's type is known or Unknown");
            require(argument.type == ArgumentType::Enum || argument.enumName.isNull(),
                    "only an enum argument names an enumeration");
        }
    }
    for (auto items = catalogue.enums.cbegin(); items != catalogue.enums.cend(); ++items) {
        for (auto item = items->cbegin(); item != items->cend(); ++item) {
            requireEqual(item.value(), catalogue.enumText(items.key(), item.key()),
                         "an item's text is found");
        }
    }
}

//! The events with the lowest ids: the tables have no order of their own.
QList<SystemeventDescription> firstEvents(const SystemeventCatalogue &catalogue)
{
    QList<uint> ids = catalogue.events.keys();
    std::sort(ids.begin(), ids.end());
    QList<SystemeventDescription> events;
    for (int i = 0; i < std::min(mostEvents, int(ids.size())); ++i) {
        events.append(catalogue.events.value(ids.at(i)));
    }
    return events;
}

//! Values of many types, made of the event's own words.
QList<QVariant> liveValues(const SystemeventCatalogue &catalogue,
                           const SystemeventDescription &event)
{
    const QString item = event.arguments.isEmpty()
        ? QString()
        : catalogue.enumText(event.arguments.first().enumName, 1);
    const double real = event.name.toDouble();
    return {event.service,
            event.name,
            int(event.id),
            real,
            item,
            QVariant::fromValue(WrappedValue{event.logLevelName}),
            event.name.toUtf8(),
            QVariant::fromValue(WrappedValue{real}),
            qlonglong(event.id) << 20,
            true};
}

void checkLiveText(const QString &templateText, const QList<QVariant> &args)
{
    LiteralText expected(templateText);
    for (int i = 1; i < args.size(); ++i) {
        expected.substitute(liveValueText(args.at(i)));
    }
    const QString text = expected.liveText();
    requireEqual(text, renderLiveEvent(EventTemplate(templateText), args), "live text");
    std::string utf8 = "before";
    appendLiveEvent(utf8, EventTemplate(templateText), args);
    require("before" + text.toUtf8().toStdString() == utf8, "live text in UTF-8");
}

//! A record whose values are the words of the event's declaration, right or wrong.
QByteArray recordOf(quint64 logNr, const SystemeventDescription &event)
{
    RecordBytes::Fields fields;
    fields.logNr = logNr;
    fields.eventId = qint32(event.id);
    fields.path = event.service.toUtf8().left(200);
    for (const SystemeventArgument &argument : event.arguments) {
        const QByteArray word = argument.name.toUtf8().left(200);
        if (argument.type == ArgumentType::Variant) {
            fields.values += RecordBytes::number(quint64(word.size() % 13), 2);
        }
        const bool isText
            = argument.type == ArgumentType::String || argument.type == ArgumentType::ByteArray;
        fields.values += isText ? RecordBytes::sized(word) : word;
    }
    fields.values = fields.values.left(30000);
    return RecordBytes::record(fields);
}

void checkStoredTexts(const SystemeventCatalogue &catalogue,
                      const QList<SystemeventDescription> &events)
{
    static RewrittenFolder folder;
    QByteArray content;
    quint64 logNr = 0;
    for (const SystemeventDescription &event : events) {
        content += recordOf(++logNr, event);
    }
    folder.put("zib0.log"_s, content, 0);
    TwoReaders readers(folder.dir(), &catalogue);
    for (const char *const lang : {"en", "de"}) {
        readers.compareRange(1, logNr, QLatin1String(lang), 100000);
    }
}

//! Where the check has read to the end, or to an error, it has what is loaded.
void checkDocument(const uint8_t *data, size_t size, const SystemeventCatalogue &catalogue)
{
    const CatalogueDocument document = CatalogueDocument::read(
        QByteArray(reinterpret_cast<const char *>(data), QByteArray::size_type(size)));
    const bool isAll
        = !document.stop || document.stop->reason != CatalogueDocument::Stop::Reason::Limit;
    if (isAll) {
        requireEqual(QString(), DocumentCompare::difference(document, catalogue),
                     "what is checked is what is loaded");
    }
    const CatalogueFindings findings = checkCatalogue(document);
    require(findings.errors() > 0 || !document.stop, "an error that ends the reading is told");
    const std::vector<CatalogueFinding> first = findings.first();
    require(first.size() <= 2 * CatalogueFindings::most + 1, "there are never very many findings");
    for (const CatalogueFinding &finding : first) {
        require(finding.place.line >= 1 && finding.place.column >= 1, "a finding has a place");
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    prepare();
    static const MemoryFile file;
    static const std::array<QLocale, 2> locales{QLocale::c(), QLocale("de_DE"_s)};
    QLocale::setDefault(locales.at(size % locales.size()));
    file.put(data, size);
    SystemeventCatalogue catalogue;
    require(catalogue.load(file.name()), "a file that is there is loaded");
    checkTables(catalogue);
    checkDocument(data, size, catalogue);

    const QList<SystemeventDescription> events = firstEvents(catalogue);
    for (const SystemeventDescription &event : events) {
        const QList<QVariant> values = liveValues(catalogue, event);
        for (const char *const lang : {"en", "de"}) {
            const QString templateText = event.description(QLatin1String(lang));
            checkLiveText(templateText, values);
            // One value more than there are placeholders is another road than just enough.
            checkLiveText(templateText,
                          values.mid(0, 1 + EventTemplate(templateText).valueCount()));
        }
    }
    if (!events.isEmpty()) {
        checkStoredTexts(catalogue, events);
    }
    return 0;
}
