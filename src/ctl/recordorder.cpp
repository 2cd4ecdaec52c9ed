// SPDX-License-Identifier: Apache-2.0
#include "ctl/recordorder.h"

#include "archive/numberset.h"
#include "ctl/messages.h"
#include "ctl/window.h"
#include "logformat/bytesource.h"
#include "logformat/logformat.h"

#include <algorithm>
#include <limits>
#include <tuple>

namespace
{

using Archive::Place;
using Archive::Record;

//! Larger files than any that the daemon makes are taken apart to begin with.
constexpr qint64 usualSize = 1048576;
//! A file is not taken apart any further, and no file is with so many parts of all.
constexpr size_t mostOfFile = 64;
constexpr size_t mostParts = 131072;
//! Numbers that began again more often than this come in some order.
constexpr size_t mostRuns = 32;

//! The first and the last number of a file; 0 where its numbers do not rise from end to end.
Archive::NumberRange risingNumbers(std::string_view file)
{
    ByteSource in(file);
    Archive::NumberRange numbers;
    bool rises = true;
    qint64 begin = 0;
    (void)LogFormat::walkBack(
        in, in.size(), LogFormat::Walk::WholeFile, [&](qint64 position, quint64 logNr) {
            const bool isLast = numbers.last == 0;
            rises = position >= 0 && logNr != 0 && (isLast || logNr < numbers.first);
            numbers = {logNr, isLast ? logNr : numbers.last};
            begin = position;
            return rises;
        });
    return rises && begin == 0 ? numbers : Archive::NumberRange();
}

//! Takes a file apart where numbers do not follow one another.
class Parting : public Archive::Visitor
{
public:
    Parting(size_t fileIndex, std::vector<Stretch> &stretches)
        : file(fileIndex)
        , parts(stretches)
        , begin(stretches.size())
    {
    }

    void record(const Place &place, const Record &record) override
    {
        const bool isNumbered
            = record.state != Archive::State::Damaged || record.fault != Archive::Fault::Head;
        extend(place, isNumbered ? record.head.logNr : 0);
    }
    void lost(const Place &place, Archive::Fault reason) override
    {
        (void)reason;
        extend(place, 0);
    }
    void endFile(const Archive::FileResult &result) override { error = result.error; }

    int error = 0; //!< errno of why the file could not be read to its end

private:
    [[nodiscard]] bool mayPart() const
    {
        return parts.size() < mostParts && parts.size() - begin < mostOfFile;
    }

    //! \a number is 0 of what has none.
    void extend(const Place &place, quint64 number)
    {
        const bool isFirst = parts.size() == begin;
        const bool follows
            = !isFirst && (number == 0 || current == 0 || number == current + 1 || !mayPart());
        if (!follows) {
            parts.push_back({file, place.offset, place.end(), number, number});
        } else {
            Stretch &part = parts.back();
            part.end = place.end();
            if (number != 0) {
                part.first = part.first == 0 ? number : std::min(part.first, number);
                part.last = std::max(part.last, number);
            }
        }
        current = number != 0 ? number : follows ? current : 0;
    }

    size_t file;
    std::vector<Stretch> &parts;
    size_t begin;
    quint64 current = 0; //!< the last number
};

} // namespace

RecordOrder::RecordOrder(const Archive::Folder &opened, By order)
    : folder(opened)
{
    for (const Archive::ListedFile &file : folder.files()) {
        add(file, order);
    }
    if (order == By::Number) {
        sort();
    } else {
        ordered = parts;
    }
}

void RecordOrder::sort()
{
    size_t unnumbered = 0; // of the front
    while (unnumbered < parts.size() && parts[unnumbered].first == 0) {
        put(parts[unnumbered++]);
    }
    for (const Indices &run : runs()) {
        for (size_t index : run) {
            put(parts[index]);
            // What has no number stays behind what it stands behind.
            while (index + 1 < parts.size() && parts[index + 1].first == 0) {
                put(parts[++index]);
            }
        }
    }
}

//! Tells of an error where there is one.
void RecordOrder::notice(int file, int error)
{
    if (error == 0) {
        return;
    }
    complete = false;
    Messages::tell(QStringLiteral("%1: cannot be read to its end: %2")
                       .arg(Messages::filePath(folder.path(), file), Messages::errorText(error)));
}

void RecordOrder::add(const Archive::ListedFile &file, By order)
{
    const Archive::OpenFile opened = folder.openFile(file);
    if (!opened.bytes) {
        notice(file.index, opened.error);
        return;
    }
    found.push_back({file, opened.size});
    if (order == By::Place) {
        constexpr quint64 any = std::numeric_limits<quint64>::max();
        parts.push_back({found.size() - 1, 0, opened.size, 0, any});
    } else if (opened.size > 0 && !addWhole(*opened.bytes, opened.size)) {
        addParts(*opened.bytes, opened.size);
    }
}

bool RecordOrder::addWhole(const Archive::FileBytes &bytes, qint64 size)
{
    if (size > usualSize || !bytes.read(0, size, content)) {
        return false;
    }
    const Archive::NumberRange numbers
        = risingNumbers({content.constData(), size_t(content.size())});
    if (numbers.first == 0) {
        return false;
    }
    parts.push_back({found.size() - 1, 0, size, numbers.first, numbers.last});
    return true;
}

void RecordOrder::addParts(const Archive::FileBytes &bytes, qint64 size)
{
    const int index = found.back().listed.index;
    Parting parting(found.size() - 1, parts);
    (void)folder.visit(index, bytes, size, parting);
    notice(index, parting.error);
}

RecordOrder::Indices *RecordOrder::bestRun(std::vector<Indices> &runs, const Stretch &stretch) const
{
    Indices *best = nullptr;
    // Where numbers began again, the later run is the one that goes on.
    const auto rank = [&](const Indices &run) {
        const Stretch &end = parts[run.back()];
        return std::make_tuple(end.last + 1 == stretch.first,
                               end.file == stretch.file && end.end == stretch.begin, end.last,
                               run.back());
    };
    for (Indices &run : runs) {
        if (parts[run.back()].last < stretch.first && (!best || rank(run) > rank(*best))) {
            best = &run;
        }
    }
    return best;
}

std::vector<RecordOrder::Indices> RecordOrder::runs() const
{
    Indices order;
    for (size_t i = 0; i < parts.size(); ++i) {
        if (parts[i].first != 0) {
            order.push_back(i);
        }
    }
    std::stable_sort(order.begin(), order.end(), [this](size_t left, size_t right) {
        return parts[left].first < parts[right].first;
    });
    std::vector<Indices> made;
    for (const size_t index : order) {
        Indices *run = bestRun(made, parts[index]);
        if (!run && made.size() < mostRuns) {
            made.emplace_back();
            run = &made.back();
        }
        (run ? *run : made.back()).push_back(index);
    }
    std::sort(made.begin(), made.end(),
              [](const Indices &left, const Indices &right) { return left.back() < right.back(); });
    return made;
}

//! As the next one that is shown; with the last one where it stands behind it.
void RecordOrder::put(const Stretch &stretch)
{
    if (!ordered.empty()) {
        Stretch &end = ordered.back();
        if (end.file == stretch.file && end.end == stretch.begin) {
            end.end = stretch.end;
            end.first = end.first == 0 || stretch.first == 0 ? std::max(end.first, stretch.first)
                                                             : std::min(end.first, stretch.first);
            end.last = std::max(end.last, stretch.last);
            return;
        }
    }
    ordered.push_back(stretch);
}

quint64 RecordOrder::highestNumber() const
{
    quint64 highest = 0;
    for (const Stretch &stretch : ordered) {
        highest = std::max(highest, stretch.last);
    }
    return highest;
}

std::shared_ptr<const Archive::FileBytes> RecordOrder::open(const Stretch &stretch)
{
    const File &file = found[stretch.file];
    const Archive::Descriptor directory = Archive::openFolder(folder.path());
    int error = 0;
    auto bytes = Archive::openListed(directory.get(), file.listed, error);
    notice(file.listed.index, error);
    return bytes;
}

void RecordOrder::visit(const Stretch &stretch, const Archive::FileBytes &bytes,
                        Archive::Visitor &visitor)
{
    const File &file = found[stretch.file];
    Window window(stretch.begin, stretch.end, visitor);
    (void)folder.visit(file.listed.index, bytes, file.size, window);
    notice(file.listed.index, window.error);
}
