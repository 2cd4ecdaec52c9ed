// SPDX-License-Identifier: Apache-2.0
#include "ctl/follower.h"

#include "archive/filescan.h"
#include "ctl/window.h"
#include "logformat/logformat.h"

#include <algorithm>

namespace
{

using Archive::Place;
using Archive::Record;
using Archive::State;

std::string_view viewOf(const QByteArray &bytes)
{
    return {bytes.constData(), size_t(bytes.size())};
}

bool areSame(const LogFormat::RecordHead &left, const LogFormat::RecordHead &right)
{
    return left.logNr == right.logNr && left.seconds == right.seconds
        && left.microseconds == right.microseconds && left.eventId == right.eventId;
}

//! What tells a file's first record from any other; empty where there is none.
std::string headOf(const Archive::FileBytes &file)
{
    QByteArray head;
    return file.read(0, LogFormat::valuesOffset, head) ? std::string(viewOf(head)) : std::string();
}

//! Finds the last record that is no damage.
class Ending : public Archive::Visitor
{
public:
    void record(const Place &place, const Record &record) override
    {
        if (record.state != State::Damaged) {
            last = record.head;
            end = place.end();
        }
    }
    void lost(const Place & /*place*/, Archive::Fault /*reason*/) override { }

    LogFormat::RecordHead last; //!< a number of 0 where there is none
    qint64 end = 0;
};

//! Passes everything on, and notes the last record.
class Passing : public Archive::Visitor
{
public:
    Passing(Archive::Visitor &visitor, LogFormat::RecordHead &lastRecord)
        : shown(visitor)
        , last(lastRecord)
    {
    }

    void record(const Place &place, const Record &record) override
    {
        last = record.state != State::Damaged ? record.head : last;
        shown.record(place, record);
    }
    void lost(const Place &place, Archive::Fault reason) override { shown.lost(place, reason); }

private:
    Archive::Visitor &shown;
    LogFormat::RecordHead &last;
};

} // namespace

//! Finds where a record ends, or the last one whose number is not beyond that.
class Follower::RecordFinder : public Archive::Visitor
{
public:
    RecordFinder(const LogFormat::RecordHead &wantedHead, Wanted what)
        : head(wantedHead)
        , wanted(what)
    {
    }

    void record(const Place &place, const Record &record) override
    {
        const bool isWanted = wanted == Wanted::Itself ? areSame(record.head, head)
                                                       : record.head.logNr <= head.logNr;
        end = isWanted ? place.end() : end;
    }
    void lost(const Place & /*place*/, Archive::Fault /*reason*/) override { }

    qint64 end = -1; //!< negative: it is not there

private:
    const LogFormat::RecordHead &head;
    Wanted wanted;
};

Follower::Follower(Archive::Folder &followed, const RecordOrder &order)
    : folder(followed)
{
    for (auto file = order.files().rbegin(); file != order.files().rend(); ++file) {
        const Bytes opened = open(file->listed);
        if (!opened) {
            continue;
        }
        note(file->listed, *opened);
        if (last.logNr != 0) {
            continue;
        }
        Ending ending;
        (void)folder.visit(file->listed.index, *opened, file->size, ending);
        last = ending.last;
        if (!bytes) {
            // Behind its last record: a torn end may become one.
            enter(file->listed, opened, ending.end);
        }
    }
}

Follower::Bytes Follower::open(const Archive::ListedFile &file) const
{
    const Archive::Descriptor directory = Archive::openFolder(folder.path());
    int error = 0; // one that cannot be opened is not followed
    return Archive::openListed(directory.get(), file, error);
}

//! Takes account of a file that is not to be shown again.
void Follower::note(const Archive::ListedFile &file, const Archive::FileBytes &opened)
{
    const auto same = std::find_if(known.begin(), known.end(), [&file](const Known &each) {
        return each.identity == file.identity;
    });
    Known &entry = same != known.end() ? *same : known.emplace_back();
    entry = {file.identity, headOf(opened)};
}

bool Follower::isKnown(const Archive::FileBytes &opened) const
{
    const std::string head = headOf(opened);
    return !head.empty() && std::any_of(known.begin(), known.end(), [&head](const Known &each) {
        return each.head == head;
    });
}

void Follower::forgetGone()
{
    const auto isGone = [this](const Known &each) {
        return std::none_of(
            folder.files().begin(), folder.files().end(),
            [&each](const Archive::ListedFile &file) { return file.identity == each.identity; });
    };
    known.erase(std::remove_if(known.begin(), known.end(), isGone), known.end());
}

void Follower::enter(const Archive::ListedFile &file, const Bytes &opened, qint64 from)
{
    current = file;
    bytes = opened;
    shown = from;
}

//! Where the records end that are there; behind it there may be a torn one.
qint64 Follower::endOfLast() const
{
    const auto size = qint64(bytes->status().st_size);
    QByteArray tail;
    if (size - shown <= Archive::FileScan::windowSize && bytes->read(shown, size, tail)
        && Archive::lastRecord({tail.constData(), size_t(tail.size())}) >= 0) {
        return size;
    }
    Ending ending;
    (void)folder.visit(current.index, *bytes, size, ending);
    return std::max(shown, ending.end);
}

//! Shows what is new of the current file: all of it, or what is surely written.
void Follower::show(RecordSieve &sieve, bool isComplete)
{
    const auto size = qint64(bytes->status().st_size);
    if (size <= shown) {
        shown = size; // it may have been cut
        return;
    }
    const qint64 end = isComplete ? size : endOfLast();
    if (end == shown) {
        return;
    }
    sieve.useFile(*bytes);
    Passing passing(sieve, last);
    Window window(shown, end, passing);
    (void)folder.visit(current.index, *bytes, end, window);
    if (shown == 0) {
        note(current, *bytes); // it has a first record now
    }
    shown = end;
}

void Follower::showFile(RecordSieve &sieve, size_t index)
{
    const Archive::ListedFile &file = folder.files()[index];
    const Bytes opened = open(file);
    if (opened) {
        note(file, *opened);
        enter(file, opened, 0);
        show(sieve, index + 1 < folder.files().size());
    }
}

//! Shows a file from behind its last record that a finder finds; false where there is none.
bool Follower::showBehind(RecordSieve &sieve, size_t index, Wanted wanted)
{
    const Archive::ListedFile &file = folder.files()[index];
    const Bytes opened = open(file);
    RecordFinder finder(last, wanted);
    if (opened && last.logNr != 0) {
        (void)folder.visit(file.index, *opened, opened->status().st_size, finder);
    }
    if (finder.end < 0) {
        return false;
    }
    note(file, *opened);
    enter(file, opened, finder.end);
    show(sieve, index + 1 < folder.files().size());
    return true;
}

/*!
 * Shows what follows where the current file is gone. It may have been written anew, or
 * moved somewhere and back with the whole folder: then it goes on behind the last record.
 * Otherwise all is new but what is known.
 */
void Follower::findAgain(RecordSieve &sieve)
{
    const std::vector<Archive::ListedFile> &files = folder.files();
    for (size_t i = files.size(); i-- > 0;) {
        if (showBehind(sieve, i, Wanted::Itself)) {
            showFrom(sieve, i + 1);
            return;
        }
    }
    for (size_t i = 0; i < files.size(); ++i) {
        const Bytes opened = open(files[i]);
        if (!opened || !isKnown(*opened) || !showBehind(sieve, i, Wanted::NotBeyond)) {
            showFile(sieve, i);
        }
    }
}

void Follower::showFrom(RecordSieve &sieve, size_t index)
{
    for (; index < folder.files().size(); ++index) {
        showFile(sieve, index);
    }
}

void Follower::catchUp(RecordSieve &sieve)
{
    // Where there is a newer file when the folder is listed, the current one is complete.
    const bool isThere = folder.open(Archive::Writers::None);
    const std::vector<Archive::ListedFile> &files = folder.files();
    const auto found = std::find_if(files.begin(), files.end(), [this](const auto &file) {
        return bytes && file.identity == current.identity;
    });
    const size_t next = found != files.end() ? size_t(found - files.begin()) + 1 : 0;
    if (bytes) {
        current.index = found != files.end() ? found->index : current.index;
        show(sieve, next < files.size());
    }
    if (!isThere || files.empty()) {
        return; // the current file may still be written to, without a name
    }
    if (bytes && found == files.end()) {
        findAgain(sieve);
    } else {
        showFrom(sieve, next);
    }
    forgetGone();
}
