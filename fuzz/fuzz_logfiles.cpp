// SPDX-License-Identifier: Apache-2.0

// The input describes a log directory: files of raw bytes, of sound records and of
// long runs of one byte, damaged or not, that grow and are replaced while questions
// are asked. The reader answers each as a plain reading, field by field, does.

#include "checks.h"
#include "input.h"
#include "reader/rewrittenfolder.h"
#include "richcatalogue.h"
#include "support/literals.h"
#include "support/recordbytes.h"
#include "tworeaders.h"

#include <QLocale>
#include <QMap>

#include <array>
#include <optional>

namespace
{

constexpr int mostSteps = 64;
constexpr int mostBytes = 300000;    //!< of all files; a window of the reader has 65536
constexpr quint64 sizeLimit = 16384; //!< of an answer, in bytes

RewrittenFolder &folder()
{
    static RewrittenFolder onlyOne;
    return onlyOne;
}

class LogDirectory
{
public:
    explicit LogDirectory(Input &bytes)
        : input(bytes)
    {
        folder().clear();
    }

    void run()
    {
        for (int step = 0; step < mostSteps && !input.atEnd(); ++step) {
            take();
        }
        ask();
    }

private:
    struct File {
        QByteArray content;
        int age = 0; //!< in seconds
    };

    void take();
    void add(const QByteArray &bytes);
    QByteArray record();
    QByteArray values(const SystemeventDescription &event);
    QByteArray value(int type);
    void chooseFile();
    void damage();
    void ask();
    void writeFiles();
    [[nodiscard]] bool onlyCurrentHasGrown() const;

    Input &input;
    QMap<QString, File> files;
    QMap<QString, File> written;
    QString name = "zib0.log"_s;
    quint64 logNr = 0;
    int total = 0;
    std::optional<TwoReaders> readers;
};

void LogDirectory::take()
{
    switch (input.below(8)) {
    case 0:
        add(input.longBytes());
        break;
    case 1:
    case 2:
        add(record());
        break;
    case 3: {
        const int length = input.number<uint16_t>();
        add(QByteArray(length, char(input.byte())));
        break;
    }
    case 4:
        chooseFile();
        break;
    case 5:
        damage();
        break;
    case 6:
        add(files.value("zib%1.log"_s.arg(input.below(3))).content);
        break;
    default:
        ask();
    }
}

void LogDirectory::add(const QByteArray &bytes)
{
    if (total + int(bytes.size()) <= mostBytes) {
        total += int(bytes.size());
        files[name].content += bytes;
    }
}

QByteArray LogDirectory::record()
{
    const int form = input.byte();
    RecordBytes::Fields fields;
    logNr = (form & 1) != 0 ? input.number<quint64>() : logNr + 1;
    fields.logNr = logNr;
    static const std::array<int, 16> ids{0, 1, 2, 3, 4,  5,          6,  7,
                                         8, 9, 1, 2, -5, 2147483647, 10, 1001};
    fields.eventId = ids.at(size_t(input.below(int(ids.size()))));
    if ((form & 2) != 0) {
        fields.seconds = input.number<qint64>();
        fields.microseconds = input.number<qint32>();
    }
    if ((form & 4) != 0) {
        fields.path = input.shortBytes();
    }
    fields.values = (form & 8) != 0 ? input.shortBytes()
                                    : values(richCatalogue().events.value(uint(fields.eventId)));
    return RecordBytes::record(fields);
}

QByteArray LogDirectory::values(const SystemeventDescription &event)
{
    QByteArray bytes;
    for (const SystemeventArgument &argument : event.arguments) {
        bytes += value(argument.type);
    }
    return bytes;
}

QByteArray LogDirectory::value(int type)
{
    static const std::array<size_t, 8> sizes{1, 1, 2, 4, 8, 8, 4, 8};
    if (type >= 0 && size_t(type) < sizes.size()) {
        return input.take(sizes.at(size_t(type)));
    }
    if (type == ArgumentType::String || type == ArgumentType::ByteArray) {
        const QByteArray bytes = input.shortBytes();
        return RecordBytes::sized(input.flag() ? bytes.repeated(input.byte()) : bytes);
    }
    if (type == ArgumentType::Variant) {
        const int code = input.below(14) - 1;
        return RecordBytes::number(quint64(code), 2)
            + (code == ArgumentType::Variant ? QByteArray() : value(code));
    }
    return input.take(type == ArgumentType::Enum ? 1 : 0);
}

void LogDirectory::chooseFile()
{
    static const std::array<QString, 12> names{"zib0.log"_s,       "zib1.log"_s,  "zib2.log"_s,
                                               "zib3.log"_s,       "zib10.log"_s, "zib0x.log"_s,
                                               "zib00.log"_s,      "zib1"_s,      "zib2.log.1"_s,
                                               "zib99999999999"_s, "zib-1.log"_s, "zib7_.log"_s};
    name = names.at(size_t(input.below(int(names.size()))));
    files[name].age = input.below(4);
}

void LogDirectory::damage()
{
    QByteArray &content = files[name].content;
    const int where = int(input.number<uint16_t>());
    const int what = input.byte();
    if (content.isEmpty()) {
        return;
    }
    const int position = int(content.size()) - 1 - where % int(content.size());
    if (what == 0) {
        content.truncate(position);
    } else {
        content[position] = char(content.at(position) ^ char(what));
    }
}

bool LogDirectory::onlyCurrentHasGrown() const
{
    const QString current = "zib0.log"_s;
    if (files.keys() != written.keys() || !files.contains(current)) {
        return false;
    }
    for (auto file = files.cbegin(); file != files.cend(); ++file) {
        const File before = written.value(file.key());
        const bool isSame = file->age == before.age
            && (file.key() == current ? file->content.startsWith(before.content)
                                      : file->content == before.content);
        if (!isSame) {
            return false;
        }
    }
    return true;
}

void LogDirectory::writeFiles()
{
    if (readers && onlyCurrentHasGrown()) {
        const QString current = "zib0.log"_s;
        folder().append(current, files[current].content.mid(written[current].content.size()));
        readers->changed();
    } else {
        for (auto file = files.cbegin(); file != files.cend(); ++file) {
            folder().put(file.key(), file->content, file->age);
        }
        folder().removeOthers();
    }
    if (!readers) {
        readers.emplace(folder().dir(), &richCatalogue());
    } else if (!onlyCurrentHasGrown()) {
        readers->rotated();
    }
    written = files;
}

void LogDirectory::ask()
{
    writeFiles();
    static const std::array<QString, 4> languages{"en"_s, "de"_s, ""_s, "EN"_s};
    static const std::array<QLocale, 4> locales{QLocale::c(), QLocale("de_DE"_s),
                                                QLocale("ar_EG"_s), QLocale("hi_IN"_s)};
    const int choice = input.byte();
    const QString &lang = languages.at(size_t(choice & 3));
    QLocale::setDefault(locales.at(size_t(choice >> 2 & 3)));
    const quint64 first = readers->minimum();
    const quint64 last = readers->maximum();
    readers->compareEntry(last, lang);
    readers->compareRange(first, last, lang, sizeLimit);
    const quint64 start
        = (choice & 16) != 0 ? input.number<quint64>() : first + quint64(input.byte());
    const quint64 end = start + quint64(input.byte());
    readers->compareEntry(start, lang);
    readers->compareRange(start, end, lang, sizeLimit);
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    prepare();
    Input input(data, size);
    LogDirectory(input).run();
    return 0;
}
