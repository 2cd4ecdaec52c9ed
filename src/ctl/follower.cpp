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

} // namespace

void Follower::Position::pass(const Place &place, const Record &record)
{
    end = place.end();
    begin = place.offset;
    head.assign(record.bytes.substr(0, LogFormat::valuesOffset));
}

//! Finds the last record that is no damage.
class Follower::Ending : public Archive::Visitor
{
public:
    void record(const Place &place, const Record &record) override
    {
        if (record.state != State::Damaged) {
            last = record.head;
            position.pass(place, record);
        }
    }
    void lost(const Place & /*place*/, Archive::Fault /*reason*/) override { }

    LogFormat::RecordHead last; //!< a number of 0 where there is none
    Position position;
};

//! Passes everything on, and notes the last record.
class Follower::Passing : public Archive::Visitor
{
public:
    Passing(Archive::Visitor &visitor, LogFormat::RecordHead &lastRecord, Position &behindIt)
        : shown(visitor)
        , last(lastRecord)
        , position(behindIt)
    {
    }

    void record(const Place &place, const Record &record) override
    {
        if (record.state != State::Damaged) {
            last = record.head;
            position.pass(place, record);
        }
        shown.record(place, record);
    }
    void lost(const Place &place, Archive::Fault reason) override { shown.lost(place, reason); }

private:
    Archive::Visitor &shown;
    LogFormat::RecordHead &last;
    Position &position;
};

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
        if (isWanted) {
            position.pass(place, record);
        }
    }
    void lost(const Place & /*place*/, Archive::Fault /*reason*/) override { }

    Position position; //!< the start of the file where it is not there

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
            enter(file->listed, opened, ending.position);
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

//! Whether it is a file that was shown, and no other in its place.
bool Follower::isShown(const Archive::ListedFile &file, const Archive::FileBytes &opened) const
{
    const std::string head = headOf(opened);
    return std::any_of(known.begin(), known.end(), [&](const Known &each) {
        return each.identity == file.identity && each.head == head;
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

void Follower::enter(const Archive::ListedFile &file, const Bytes &opened, const Position &from)
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
    if (size - shown.end <= Archive::FileScan::windowSize && bytes->read(shown.end, size, tail)
        && Archive::lastRecord({tail.constData(), size_t(tail.size())}) >= 0) {
        return size;
    }
    Ending ending;
    (void)folder.visit(current.index, *bytes, size, ending);
    return std::max(shown.end, ending.position.end);
}

//! Shows what is new of the current file: all of it, or what is surely written.
void Follower::show(RecordSieve &sieve, bool isComplete)
{
    const auto size = qint64(bytes->status().st_size);
    if (size <= shown.end) {
        return;
    }
    const qint64 begin = shown.end;
    const qint64 end = isComplete ? size : endOfLast();
    if (end == begin) {
        return;
    }
    sieve.useFile(*bytes);
    Passing passing(sieve, last, shown);
    Window window(begin, end, passing);
    (void)folder.visit(current.index, *bytes, end, window);
    if (begin == 0) {
        note(current, *bytes); // it has a first record now
    }
    if (shown.head.empty()) {
        shown.head = headOf(*bytes); // of damage alone
    }
    shown.end = end;
}

//! Where to go on in a file in which the last record need not be where it was.
Follower::Position Follower::find(int index, const Archive::FileBytes &opened, Wanted wanted) const
{
    RecordFinder finder(last, wanted);
    if (last.logNr != 0) {
        (void)folder.visit(index, opened, opened.status().st_size, finder);
    }
    return finder.position;
}

/*!
 * Goes back where the record that was shown last is no longer there: the current file was
 * emptied or cut, and may be as long again. What is still there of it is not shown again.
 */
void Follower::goBack()
{
    const auto size = qint64(bytes->status().st_size);
    if (size < LogFormat::valuesOffset) {
        return; // what it is to be is not there yet
    }
    QByteArray found;
    if (shown.head.empty()
        || (bytes->read(shown.begin, shown.begin + qint64(shown.head.size()), found)
            && viewOf(found) == shown.head)) {
        shown.end = std::min(shown.end, size);
        return;
    }
    shown = find(current.index, *bytes, Wanted::Itself);
    if (shown.end == 0 && isShown(current, *bytes)) {
        shown = find(current.index, *bytes, Wanted::NotBeyond);
    }
    note(current, *bytes);
}

void Follower::showFile(RecordSieve &sieve, size_t index)
{
    const Archive::ListedFile &file = folder.files()[index];
    const Bytes opened = open(file);
    if (opened) {
        note(file, *opened);
        enter(file, opened, {});
        show(sieve, index + 1 < folder.files().size());
    }
}

//! Shows a file from behind its last record that a finder finds; false where there is none.
bool Follower::showBehind(RecordSieve &sieve, size_t index, Wanted wanted)
{
    const Archive::ListedFile &file = folder.files()[index];
    const Bytes opened = open(file);
    const Position position = opened ? find(file.index, *opened, wanted) : Position();
    if (position.end == 0) {
        return false;
    }
    note(file, *opened);
    enter(file, opened, position);
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
        if (opened && isShown(files[i], *opened)) {
            continue; // the current one, which is gone, may be written to all the same
        }
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
        goBack();
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
