// SPDX-License-Identifier: Apache-2.0
#include "ctl/knownvalues.h"

#include "archive/archivefolder.h"
#include "catalog/systemeventcatalogue.h"
#include "ctl/language.h"
#include "ctl/settingscommand.h"

#include <QFileInfo>

#include <algorithm>
#include <iterator>
#include <set>
#include <string>

namespace KnownValues
{
namespace
{

using Values = std::vector<Value>;

//! Null where it cannot be read, or is a pipe that would be waited for.
std::optional<SystemeventCatalogue> catalogueOf(const SourceChoice &source)
{
    std::optional<SystemeventCatalogue> catalogue(std::in_place);
    if (!QFileInfo(source.catalogue).isFile() || !catalogue->load(source.catalogue)) {
        catalogue.reset();
    }
    return catalogue;
}

//! By name, or by id once a digit is typed.
Values events(const SystemeventCatalogue &catalogue, const QString &typed)
{
    const bool isById = !typed.isEmpty() && typed.front().isDigit();
    Values found;
    for (const SystemeventDescription &event : catalogue.events) {
        const QString id = QString::number(event.id);
        found.push_back(isById ? Value{id, event.name} : Value{event.name, id});
    }
    return found;
}

//! Also the end of a range.
Values levels(const SystemeventCatalogue &catalogue, const QString &typed)
{
    const QString dots = QStringLiteral("..");
    const QString front = typed.contains(dots) ? typed.section(dots, 0, 0) + dots : QString();
    Values found;
    for (auto level = catalogue.logLevels.constBegin(); level != catalogue.logLevels.constEnd();
         ++level) {
        found.push_back({front + level.key(), QString::number(level.value())});
    }
    return found;
}

Values services(const SystemeventCatalogue &catalogue, const QString & /*typed*/)
{
    Values found;
    for (const SystemeventDescription &event : catalogue.events) {
        found.push_back({event.service, {}});
    }
    return found;
}

Values languages(const SystemeventCatalogue &catalogue, const QString & /*typed*/)
{
    Values found;
    for (const QString &language : languagesOf(catalogue)) {
        found.push_back({language, {}});
    }
    return found;
}

class Paths : public Archive::Visitor
{
public:
    void record(const Archive::Place & /*place*/, const Archive::Record &record) override
    {
        if (record.state != Archive::State::Damaged) {
            seen.emplace(record.path);
        }
    }
    void lost(const Archive::Place & /*place*/, Archive::Fault /*reason*/) override { }

    std::set<std::string, std::less<>> seen;
};

//! Of the newest files; an old log of a single large one has none.
Values paths(const SourceChoice &source)
{
    qint64 bytesLeft = qint64(4) << 20;
    Archive::Folder folder(source.folder);
    Paths found;
    if (folder.open(Archive::Writers::None)) {
        for (auto file = folder.files().rbegin(); file != folder.files().rend(); ++file) {
            const Archive::OpenFile opened = folder.openFile(*file);
            bytesLeft -= opened.size;
            if (bytesLeft < 0) {
                break;
            }
            (void)(opened.bytes
                   && folder.visit(file->index, *opened.bytes, opened.size, found)); // or none
        }
    }
    Values values;
    for (const std::string &path : found.seen) {
        values.push_back({QString::fromStdString(path), {}});
    }
    return values;
}

Values settings()
{
    Values found;
    for (const QString &name : settingNames()) {
        found.push_back({name, {}});
    }
    return found;
}

//! The parts of "a|b|c".
Values alternatives(std::string_view words)
{
    Values found;
    for (const QString &word :
         QString::fromUtf8(words.data(), int(words.size())).split(QLatin1Char('|'))) {
        found.push_back({word, {}});
    }
    return found;
}

using FromCatalogue = Values (*)(const SystemeventCatalogue &, const QString &);
constexpr struct {
    std::string_view name;
    FromCatalogue values;
} fromCatalogue[]
    = {{"EVENT", events}, {"LEVEL", levels}, {"SERVICE", services}, {"LANGUAGE", languages}};

Values all(const QString &typed, std::string_view name, const SourceChoice &source)
{
    if (name == "TIME") {
        return alternatives("now|today|yesterday");
    }
    if (name == "NAME") {
        return settings();
    }
    if (name == "GLOB" || name == "PATH") {
        return paths(source);
    }
    if (name.find('|') != std::string_view::npos) {
        return alternatives(name);
    }
    const auto *const found = std::find_if(std::begin(fromCatalogue), std::end(fromCatalogue),
                                           [name](const auto &each) { return each.name == name; });
    if (found == std::end(fromCatalogue)) {
        return {};
    }
    const std::optional<SystemeventCatalogue> catalogue = catalogueOf(source);
    return catalogue ? found->values(*catalogue, typed) : Values();
}

//! A candidate is a line, and is shown on a terminal as it stands.
bool isShowable(const QString &text)
{
    return !text.isEmpty() && std::all_of(text.begin(), text.end(), [](QChar c) {
        return c.isPrint() || c.isSurrogate();
    });
}

} // namespace

Kind kindOf(std::string_view name)
{
    if (name == "DIR") {
        return Kind::Directories;
    }
    return name.substr(0, name.find('.')) == "FILE" ? Kind::Files : Kind::Words;
}

Values startingWith(const QString &typed, std::string_view name, const SourceChoice &source)
{
    Values values = all(typed, name, source);
    values.erase(std::remove_if(values.begin(), values.end(),
                                [&typed](const Value &value) {
                                    return !value.text.startsWith(typed) || !isShowable(value.text);
                                }),
                 values.end());
    std::sort(values.begin(), values.end(),
              [](const Value &left, const Value &right) { return left.text < right.text; });
    values.erase(
        std::unique(values.begin(), values.end(),
                    [](const Value &left, const Value &right) { return left.text == right.text; }),
        values.end());
    return values;
}

} // namespace KnownValues
