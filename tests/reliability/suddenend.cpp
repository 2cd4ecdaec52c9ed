// SPDX-License-Identifier: Apache-2.0
#include "reliability/suddenend.h"

#include "support/literals.h"
#include "support/recordbytes.h"
#include "support/testbus.h"

#include <QDBusConnection>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QRegularExpression>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <optional>
#include <thread>
#include <utility>

#include <unistd.h>

namespace
{

using Size = QByteArray::size_type;

constexpr int messageId = 1002;
constexpr qint64 fullSize = 102400;
constexpr int hangLimit = 120000; // milliseconds; only so that a hang ends

//! The numbers of a file's records, found from its end; false where they do not fill it.
bool appendNumbers(const QByteArray &file, QList<quint64> &numbers)
{
    const QList<RecordBytes::Stored> records = RecordBytes::storedIn(file);
    for (const RecordBytes::Stored &record : records) {
        // A long text's length is kept modulo 65536; no event here is that long.
        if (record.end - record.begin < 33 || file.at(record.end - 3) != '\n') {
            return false;
        }
    }
    numbers += RecordBytes::numbersIn(file);
    return file.isEmpty() || !records.isEmpty();
}

/*!
 * Whether more than the oldest files of a full set are missing. Where a rotation was
 * interrupted, the next one finds a gap among the files, and one file less stays.
 */
bool isTooShort(const QByteArray &log)
{
    return log.size() < (SuddenEnd::logtail - 1) * fullSize;
}

//! How many bytes of a log are the same as those written, which begin at a position.
Size sameBytes(const QByteArray &written, Size begin, const QByteArray &log)
{
    const auto differing
        = std::mismatch(written.cbegin() + begin, written.cend(), log.cbegin(), log.cend());
    return Size(differing.second - log.cbegin());
}

//! What a file system makes of blocks that it has given to a file and not yet filled.
bool isWrittenOrZero(const QByteArray &log, const QByteArray &written, Size from)
{
    if (log.size() > written.size()) {
        return false;
    }
    return std::equal(log.cbegin() + from, log.cend(), written.cbegin() + from,
                      [](char stored, char wanted) { return stored == wanted || stored == 0; });
}

//! The size of a record, read from its start; one of an event that is sent here.
Size recordSize(const QByteArray &bytes, Size begin)
{
    constexpr Size pathAt = 28;
    if (begin + pathAt + 2 > bytes.size()) {
        return bytes.size();
    }
    const auto sizedAt = [&bytes](Size at) {
        return at + 2 > bytes.size() ? bytes.size()
                                     : 2 + Size(qFromLittleEndian<quint16>(bytes.constData() + at));
    };
    const auto eventId = qFromLittleEndian<qint32>(bytes.constData() + begin + 24);
    const Size values = begin + pathAt + sizedAt(begin + pathAt);
    return values + (eventId == messageId ? sizedAt(values) : 0) + 3 - begin;
}

//! The end of the last whole record that begins in front of a position.
Size lastBoundary(const QByteArray &written, Size begin, Size end)
{
    while (begin < end) {
        const Size next = begin + recordSize(written, begin);
        if (next > end) {
            break;
        }
        begin = next;
    }
    return begin;
}

//! What a cut leaves: less than a record.
QByteArray strangeBytes(Dice &dice, const QByteArray &log)
{
    switch (dice.below(3)) {
    case 0:
        return log.left(1 + dice.below(int(std::min<Size>(recordSize(log, 0), 2000)) - 1));
    case 1:
        return QByteArray(1 + dice.below(5000), '\0');
    default:
        QByteArray bytes;
        for (int left = 1 + dice.below(300); left > 0; --left) {
            bytes += char(dice.below(256));
        }
        return bytes;
    }
}

//! As bad storage does it: the file's time stays.
bool insertInto(int index, Size at, const QByteArray &bytes)
{
    QFile file(Device::logPath(index));
    if (!file.open(QIODevice::ReadWrite)) {
        return false;
    }
    const QDateTime time = file.fileTime(QFileDevice::FileModificationTime);
    const QByteArray rest = file.readAll().mid(at);
    return file.seek(at) && file.write(bytes + rest) == bytes.size() + rest.size() && file.flush()
        && file.setFileTime(time, QFileDevice::FileModificationTime) && fsync(file.handle()) == 0;
}

QString firstGap(const QList<quint64> &numbers)
{
    const auto gap
        = std::adjacent_find(numbers.cbegin(), numbers.cend(),
                             [](quint64 left, quint64 right) { return right != left + 1; });
    return gap == numbers.cend() ? QString() : "after number %1 comes %2"_s.arg(*gap).arg(gap[1]);
}

//! The number of a record and that in its text; nothing where the entry is not whole.
std::optional<std::pair<quint64, quint64>> readEntry(const QString &entry)
{
    static const QRegularExpression beginning(
        R"re("eventnr":(\d+),"secs":"\d+\.\d+","eventtype":1002,"loglevel":"info",)re"
        R"re("path":"/power/supply","msg":"Message (\d+) )re"_s);
    const QRegularExpressionMatch match = beginning.match(entry);
    const auto end = entry.indexOf("\"}"_s, match.capturedEnd());
    const auto padding = end - match.capturedEnd();
    if (!match.hasMatch() || end < 0
        || entry.mid(match.capturedEnd(), padding).count(QLatin1Char('x')) != padding) {
        return std::nullopt;
    }
    return std::pair(match.captured(1).toULongLong(), match.captured(2).toULongLong());
}

//! Waits until the bus has taken all that was sent.
void catchUpWithBus()
{
    (void)callAndServe(QDBusConnection::systemBus(),
                       QDBusMessage::createMethodCall("org.freedesktop.DBus"_s,
                                                      "/org/freedesktop/DBus"_s,
                                                      "org.freedesktop.DBus"_s, "GetId"_s));
}

int textSize(Dice &dice)
{
    const int throws = dice.below(100);
    if (throws < 90) {
        return dice.below(40);
    }
    return throws < 98 ? dice.below(3000) : dice.below(60000);
}

} // namespace

StoredLog StoredLog::read()
{
    StoredLog log;
    for (int index = SuddenEnd::logtail; index > 0; --index) {
        const QByteArray file = Device::logFile(index);
        log.olderTorn = !appendNumbers(file, log.numbers) || log.olderTorn;
        log.bytes += file;
    }
    const QByteArray current = Device::logFile(0);
    log.currentTorn = !appendNumbers(current, log.numbers);
    log.bytes += current;
    return log;
}

SuddenEnd::SuddenEnd(quint32 seed, Start manner)
    : startManner(manner)
{
    if (!witness.open()) {
        qFatal("no file for the witness");
    }
    qputenv(witnessVariable, witness.fileName().toLocal8Bit());
    device.config.values.insert("SystemeventLogLocal"_s, "true"_s);
    device.config.values.insert("SystemeventLogtail"_s, QString::number(logtail));
    qInfo("seed %u (SEL_SEED chooses another)", seed);
}

void SuddenEnd::startAnew()
{
    before.clear();
    whole.clear();
    strange.clear();
    stored = {};
    lives = 0;
}

void SuddenEnd::signal(int number) const
{
    // It may have ended by itself, and 0 would be this process and its like.
    if (const auto process = pid_t(device.processId()); process > 0) {
        (void)::kill(process, number);
    }
}

void SuddenEnd::kill() const
{
    signal(SIGKILL);
}

void SuddenEnd::pause() const
{
    signal(SIGSTOP);
    QFile stat("/proc/%1/stat"_s.arg(device.processId()));
    QElapsedTimer timer;
    timer.start();
    bool stopped = false;
    while (!stopped && !timer.hasExpired(hangLimit)) {
        stopped = stat.open(QIODevice::ReadOnly) && stat.readAll().contains(") T ");
        stat.close();
    }
}

void SuddenEnd::send(Dice &dice)
{
    constexpr int atOnce = 50;
    for (int i = 0; i < atOnce; ++i) {
        const QString text = "%1 "_s.arg(++sent) + QString(textSize(dice), QLatin1Char('x'));
        device.change("/power/supply"_s, messageId, {text});
    }
    totals.events += atOnce;
    catchUpWithBus();
}

QString SuddenEnd::endUnderLoad(Dice &dice, const std::function<void()> &end)
{
    const std::uint64_t writes = disk->writes + std::uint64_t(dice.below(60));
    const auto moment = std::chrono::microseconds(dice.below(dice.chance(50) ? 500 : 20000));
    const std::array<int, 4> delays{0, 0, 2000, 20000};
    disk->fsyncDelay = dice.oneOf(delays);

    std::atomic<bool> over{false};
    std::atomic<bool> hangs{false};
    std::thread ender([&] {
        QElapsedTimer timer;
        timer.start();
        while (disk->writes < writes && !hangs) {
            hangs = timer.hasExpired(hangLimit);
            usleep(50);
        }
        std::this_thread::sleep_for(moment);
        end();
        over = true;
    });
    while (!over) {
        send(dice);
    }
    ender.join();
    if (device.waitForEnd() == "still running"_s) {
        return "the daemon does not end"_s;
    }
    disk->fsyncDelay = 0;
    ++totals.ends;
    ++lives;
    return hangs ? "the daemon has not written for two minutes"_s : QString();
}

QByteArray SuddenEnd::writtenInThisLife()
{
    witness.seek(0);
    return witness.readAll();
}

QString SuddenEnd::checkFiles(quint64 durable)
{
    stored = StoredLog::read();
    QString flaw = stored.olderTorn ? "an older file is torn"_s : compare(stored, durable);
    witness.resize(0);
    disk->bytesWritten = 0;
    disk->bytesSynced = 0;
    return flaw;
}

QString SuddenEnd::compare(const StoredLog &log, quint64 durable)
{
    const QByteArray written = before + writtenInThisLife();
    // The first record's number and time stand nowhere else.
    const auto begin
        = before.isEmpty() || log.bytes.isEmpty() ? 0 : written.indexOf(log.bytes.left(28));
    const Size same = begin < 0 ? 0 : sameBytes(written, begin, log.bytes);
    if (begin < 0 || !isWrittenOrZero(log.bytes, written.mid(begin), same)) {
        return "of %1 bytes the first %2 are as they were written, others are not"_s
            .arg(log.bytes.size())
            .arg(same);
    }
    const auto end = begin + same;
    const auto needed = before.size() + qint64(durable);
    const auto returned = before.size() + qint64(disk->bytesWritten);
    if (end < needed) {
        return "%1 durable bytes are lost"_s.arg(needed - end);
    }
    if (begin > 0 && isTooShort(log.bytes)) {
        return "%1 old bytes are gone although only %2 are there"_s.arg(begin).arg(
            log.bytes.size());
    }
    constexpr int enough = 8 * 1024 * 1024; // more than a full set of files
    const Size kept
        = startManner == Start::Repaired ? lastBoundary(written, Size(begin), end) : end;
    whole = written.mid(Size(begin), kept - Size(begin));
    before = written.left(kept).right(enough);
    foreseeRepair();
    totals.bytesDurable += durable;
    totals.endsWithLoss += end < returned ? 1 : 0;
    totals.tailsWithZeros += same < log.bytes.size() ? 1 : 0;
    totals.endsInsideWrite += written.size() > returned ? 1 : 0;
    return firstGap(log.numbers);
}

void SuddenEnd::foreseeRepair()
{
    mended.clear();
    Size older = 0;
    for (int index = 1; index <= logtail; ++index) {
        mended.append(Device::logFile(index));
        older += mended.last().size();
    }
    mended.prepend(whole.mid(older));
}

bool SuddenEnd::damage(Dice &dice)
{
    if (whole.isEmpty()) {
        return true;
    }
    strange = strangeBytes(dice, whole);
    QList<int> files;
    for (int index = 0; index <= logtail; ++index) {
        if (!Device::logFile(index).isEmpty()) {
            files.append(index);
        }
    }
    const int index = dice.chance(50) ? files.first() : files.at(dice.below(int(files.size())));
    const QByteArray file = Device::logFile(index);
    const bool atEnd = index == 0 && dice.chance(60);
    const Size at = atEnd ? file.size() : lastBoundary(file, 0, Size(dice.below(int(file.size()))));
    return insertInto(index, at, strange);
}

std::unique_ptr<QProcess> SuddenEnd::startRepair() const
{
    auto process = std::make_unique<QProcess>();
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.remove(QString::fromLatin1(witnessVariable)); // what it writes is no event's
    process->setProcessEnvironment(environment);
    process->start(QString::fromLocal8Bit(qgetenv("SEL_CTL")),
                   {"repair"_s, "--quiet"_s, "-D"_s, "/srv/public/log"_s});
    if (!process->waitForStarted()) {
        qFatal("the tool cannot be started (is SEL_CTL set?)");
    }
    return process;
}

QString SuddenEnd::endInRepair(Dice &dice, const std::function<void(qint64 process)> &end)
{
    unmended.clear();
    for (int index = 0; index <= logtail; ++index) {
        unmended.append(Device::logFile(index));
    }
    constexpr int stepTime = 3000; // microseconds
    disk->fsyncDelay = stepTime;
    const std::uint64_t steps = disk->fsyncs + disk->writes;
    const std::unique_ptr<QProcess> process = startRepair();
    while (disk->fsyncs + disk->writes == steps && !process->waitForFinished(0)
           && process->state() != QProcess::NotRunning) {
        usleep(50);
    }
    usleep(useconds_t(dice.below(4 * stepTime)));
    end(process->processId());
    disk->fsyncDelay = 0;
    if (process->state() != QProcess::NotRunning && !process->waitForFinished(hangLimit)) {
        return "the repair does not end; "_s;
    }
    const bool hasCome = process->exitStatus() == QProcess::NormalExit && process->exitCode() == 0;
    totals.repairsEnded += hasCome ? 0 : 1;
    return {};
}

QString SuddenEnd::checkEndedRepair() const
{
    for (int index = 0; index <= logtail; ++index) {
        const QByteArray now = Device::logFile(index);
        if (now != mended.at(index) && now != unmended.at(index)) {
            return "file %1 is neither as it was nor mended; "_s.arg(index);
        }
    }
    return {};
}

QString SuddenEnd::repair()
{
    const bool isNeeded = needsRepair();
    if (whole.isEmpty() && !QDir("/srv/public/log"_s).exists()) {
        return {}; // not even the folder had reached the disk
    }
    const std::unique_ptr<QProcess> process = startRepair();
    if (!process->waitForFinished(hangLimit) || process->exitCode() != 0) {
        return "the repair fails: "_s + QString::fromUtf8(process->readAllStandardError())
            + QString::fromUtf8(process->readAllStandardOutput());
    }
    stored = StoredLog::read();
    if (stored.bytes != whole || hasTornTail()) {
        return "the repair leaves %1 bytes, %2 are those of whole records; "_s
            .arg(stored.bytes.size())
            .arg(whole.size());
    }
    QByteArray keptBytes;
    const QDir kept("/srv/public/log/damaged"_s);
    const QStringList names = kept.entryList(QDir::Files);
    for (const QString &name : names) {
        QFile file(kept.filePath(name));
        keptBytes += file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
        (void)file.remove(); // somebody has looked at it
    }
    const bool isKept = keptBytes.contains(std::exchange(strange, {}));
    totals.repairs += isNeeded ? 1 : 0;
    disk->bytesWritten = 0; // by the repair
    disk->bytesSynced = 0;
    return isKept ? firstGap(stored.numbers) : "what was taken out is not kept; "_s;
}

QString SuddenEnd::checkReading()
{
    if (!device.start()) {
        return "the daemon does not start: "_s + device.output();
    }
    const bool torn = stored.currentTorn;
    QString flaw = seeRotation();
    flaw += readBack(stored.numbers);
    totals.tornTails += torn ? 1 : 0;
    return flaw;
}

//! The start may have found the current file full, and the oldest one then had to go.
QString SuddenEnd::seeRotation()
{
    const StoredLog now = StoredLog::read();
    const auto gone = stored.bytes.size() - now.bytes.size();
    if (!stored.bytes.endsWith(now.bytes) || (gone > 0 && isTooShort(now.bytes))) {
        return "the start has changed the files; "_s;
    }
    stored = now;
    return {};
}

//! Asks for these records by their numbers.
QString SuddenEnd::readBack(const QList<quint64> &numbers)
{
    if (numbers.isEmpty()) {
        return {};
    }
    QList<quint64> found;
    QList<quint64> texts;
    const QString json
        = device.result("jsonLogfile"_s, {numbers.constFirst(), numbers.constLast(), "en"_s})
              .toString();
    const QStringList entries = json.split("\n"_s);
    for (const QString &entry : entries) {
        if (const auto message = readEntry(entry)) {
            found.append(message->first);
            texts.append(message->second);
        }
    }
    if (found != numbers) {
        return "%1 records are read back, %2 are stored"_s.arg(found.size()).arg(numbers.size());
    }
    totals.recordsChecked += quint64(numbers.size());
    return checkOrder(texts);
}

//! Events may be missing where the daemon was ended, and nowhere else.
QString SuddenEnd::checkOrder(const QList<quint64> &texts) const
{
    int jumps = 0;
    for (int i = 1; i < int(texts.size()); ++i) {
        if (texts[i] <= texts[i - 1]) {
            return "event %1 is stored after event %2"_s.arg(texts[i]).arg(texts[i - 1]);
        }
        jumps += texts[i] == texts[i - 1] + 1 ? 0 : 1;
    }
    return jumps < std::max(lives, 1) ? QString() : "events are missing in the middle"_s;
}

QString SuddenEnd::checkNumbering()
{
    const quint64 last = stored.numbers.isEmpty() ? 0 : stored.numbers.constLast();
    if (!device.fillBundle()) {
        return "nothing is stored any more"_s;
    }
    kill();
    (void)device.waitForEnd();
    const QString flaw = checkFiles(bytesWritten());
    return flaw.isEmpty() && stored.numbers.constLast() <= last
        ? "no number is above %1"_s.arg(last)
        : flaw;
}
