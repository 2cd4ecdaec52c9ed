// SPDX-License-Identifier: Apache-2.0
#include "reliability/eventsource.h"

#include "support/literals.h"
#include "support/recordbytes.h"

#include <QDir>
#include <QFile>
#include <QtEndian>

#include <algorithm>
#include <functional>

namespace
{

constexpr int eventId = 1002;       // carries one text
constexpr int mostInABundle = 100;  // records of 33 bytes and more in 2560
constexpr quint64 sentAtOnce = 500; // so that no queue grows
const QLatin1String path("/x");

QByteArray textOf(quint64 number)
{
    return QByteArray::number(number).rightJustified(28, '.'); // makes a record of 65 bytes
}

//! A record as it must stand in the file, with the time that stands there.
QByteArray expectedRecord(quint64 number, const QByteArray &found)
{
    RecordBytes::Fields fields;
    fields.logNr = number;
    fields.eventId = eventId;
    fields.path = QByteArray(path.data(), int(path.size()));
    fields.values = RecordBytes::sized(textOf(number));
    const QByteArray record = RecordBytes::record(fields);
    return record.left(8) + found.mid(8, 12) + record.mid(20);
}

//! The numbers of a file's records, up to the first that is none.
QList<quint64> numbersForwards(const QByteArray &file)
{
    QList<quint64> numbers;
    QByteArray left = file;
    while (left.size() >= 8) {
        const auto number = qFromLittleEndian<quint64>(left.constData());
        const QByteArray record = expectedRecord(number, left);
        if (!left.startsWith(record)) {
            break;
        }
        numbers.append(number);
        left.remove(0, record.size());
    }
    return left.isEmpty() ? numbers : QList<quint64>{};
}

//! The indexes of all log files, the oldest first.
QList<int> fileIndexes()
{
    QList<int> indexes;
    const QStringList names = QDir("/srv/public/log"_s).entryList({"zib*"_s}, QDir::AllEntries);
    for (const QString &name : names) {
        indexes.append(name.mid(3).section(QLatin1Char('.'), 0, 0).toInt());
    }
    std::sort(indexes.begin(), indexes.end(), std::greater<>());
    return indexes;
}

} // namespace

void EventSource::sendOne()
{
    ++count;
    device.change(path, eventId, {QString::fromLatin1(textOf(count))});
}

void EventSource::send(quint64 events)
{
    for (quint64 i = 1; i <= events; ++i) {
        sendOne();
        if (i % sentAtOnce == 0 || i == events) {
            device.settle();
        }
    }
}

void EventSource::sendAtOnce(quint64 events)
{
    for (quint64 i = 0; i < events; ++i) {
        sendOne();
    }
}

bool EventSource::sendUntilReported()
{
    const auto before = storageReports(device).size();
    for (int i = 0; i < mostInABundle; ++i) {
        send(1);
        if (storageReports(device).size() > before) {
            return true;
        }
    }
    return false;
}

bool EventSource::sendUntilStored()
{
    const auto before = Device::logFile(0);
    for (int i = 0; i < mostInABundle; ++i) {
        send(1);
        if (Device::logFile(0) != before) {
            return true;
        }
    }
    return false;
}

StoredEvents storedEvents()
{
    StoredEvents stored;
    const QList<int> indexes = fileIndexes();
    for (const int index : indexes) {
        const QByteArray file = Device::logFile(index);
        const QList<quint64> numbers = numbersForwards(file);
        if ((numbers.isEmpty() && !file.isEmpty()) || numbers != RecordBytes::numbersIn(file)) {
            stored.damage += "file %1 is not all whole records\n"_s.arg(index);
        }
        stored.numbers += numbers;
    }
    for (int i = 1; i < int(stored.numbers.size()); ++i) {
        if (stored.numbers[i] <= stored.numbers[i - 1]) {
            stored.damage += "%1 after %2\n"_s.arg(stored.numbers[i]).arg(stored.numbers[i - 1]);
        }
    }
    return stored;
}

quint64 lostBefore(quint64 last, const StoredEvents &stored)
{
    return last - quint64(stored.numbers.size());
}

QStringList storageReports(const Device &device)
{
    QStringList reports = device.outputLines("The log "_s);
    // The refusal of an answer that would be too large speaks of log numbers.
    reports.erase(
        std::remove_if(reports.begin(), reports.end(),
                       [](const QString &line) { return !line.startsWith("The log "_s); }),
        reports.end());
    return reports;
}

QString failureReport(int reason)
{
    return "The log cannot be stored: "_s + qt_error_string(reason);
}

QString recoveryReport(quint64 lost)
{
    return "The log is stored again; records lost meanwhile: %1"_s.arg(lost);
}

bool answersReaders(Device &device)
{
    const QVariant all = QVariant::fromValue(~quint64(0));
    const QDBusMessage log = device.call("jsonLogfile"_s, {quint64(0), all, "en"_s});
    // Where the numbers that were found span too much, the answer is a refusal.
    return (log.type() == QDBusMessage::ReplyMessage
            || log.errorName() == "org.freedesktop.DBus.Error.LimitsExceeded"_s)
        && device.result("getMinLogNr"_s).isValid() && device.result("getMaxLogNr"_s).isValid();
}
