// SPDX-License-Identifier: Apache-2.0
//
// The rows of peers-hook that one process measures: the product's writer, reader and
// sender, called as the daemon calls them. What is timed together follows the plain C
// loops that the rows are compared with.
#include "binlog/binaryloginterface.h"
#include "clocks.h"
#include "reader/systemeventlogfilereader.h"
#include "stream.h"
#include "udp/udploginterface.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QLoggingCategory>
#include <QStringList>

#include <limits>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace
{

constexpr quint64 noLimit = std::numeric_limits<quint64>::max();

QString english()
{
    return QStringLiteral("en");
}

QString range(SystemeventLogfileReader &reader, quint64 first, quint64 last)
{
    return reader.jsonRange(first, last, english(), noLimit).value_or(QString());
}

//! logEvent() alone: the arguments are made before, since on a device they come from the bus.
void measureWriter(const QDir &folder, int events)
{
    QList<QList<QVariant>> all;
    for (int n = 0; n < events; ++n) {
        all.append(Stream::arguments(uint(n)));
    }
    const auto log = Stream::openLog(folder, events / Stream::recordsPerFile + 1);
    const Stopwatch watch;
    for (const QList<QVariant> &args : std::as_const(all)) {
        log->logEvent(Stream::eventId, args);
    }
    log->writeBundle();
    watch.sayRateAndCpu(events);
}

//! Everything with the index that it takes; then 100 from the middle, with and without opening.
void measureReader(const QDir &folder)
{
    constexpr quint64 hundred = 100;
    const SystemeventCatalogue &catalogue = Stream::catalogue();

    const Stopwatch watch;
    SystemeventLogfileReader reader(folder, &catalogue);
    const quint64 records = reader.getMaxLogNr();
    const QString all = range(reader, reader.getMinLogNr(), records);
    watch.sayRateAndCpu(double(records));
    say("records", double(records));
    say("json_bytes", double(all.toUtf8().size()) / double(records));

    std::vector<double> times;
    for (quint64 step = 0; step < 51; ++step) {
        const quint64 first = records / 2 + step * 7;
        const double start = wallSeconds();
        (void)range(reader, first, first + hundred - 1);
        times.push_back(wallSeconds() - start);
    }
    say("range_warm_us", median(times) * 1e6);

    times.clear();
    for (int step = 0; step < 21; ++step) {
        const double start = wallSeconds();
        {
            SystemeventLogfileReader fresh(folder, &catalogue);
            (void)range(fresh, records / 2, records / 2 + hundred - 1);
        }
        times.push_back(wallSeconds() - start);
    }
    say("range_open_us", median(times) * 1e6);
}

void dropFromPageCache(const QDir &folder)
{
    const QStringList names = folder.entryList(QDir::Files);
    for (const QString &name : names) {
        QFile file(folder.filePath(name));
        if (file.open(QIODevice::ReadOnly)) {
            (void)fdatasync(file.handle());
            (void)posix_fadvise(file.handle(), 0, 0, POSIX_FADV_DONTNEED);
        }
    }
}

//! Index, first and last record.
void measureOpening(const QDir &folder)
{
    const SystemeventCatalogue &catalogue = Stream::catalogue();
    for (const bool cold : {true, false}) {
        std::vector<double> times;
        for (int step = 0; step < 11; ++step) {
            if (cold) {
                dropFromPageCache(folder);
            }
            const double start = wallSeconds();
            SystemeventLogfileReader reader(folder, &catalogue);
            (void)reader.jsonEntry(reader.getMinLogNr(), english());
            (void)reader.jsonEntry(reader.getMaxLogNr(), english());
            times.push_back(wallSeconds() - start);
        }
        say(cold ? "cold_us" : "warm_us", median(times) * 1e6);
    }
}

//! Datagrams to loopback; making the arguments counts along, as making the event does there.
void measureSender(int events, quint16 port)
{
    UdpLogInterface log(&Stream::catalogue());
    log.setTarget(QStringLiteral("127.0.0.1"), port);
    const Stopwatch watch;
    for (int n = 0; n < events; ++n) {
        log.logEvent(Stream::eventId, Stream::arguments(uint(n)));
    }
    watch.sayRateAndCpu(events);
}

//! How many of the records read from a damaged copy as they do from the whole log.
void countReadable(const QDir &whole, const QDir &damaged)
{
    SystemeventLogfileReader original(whole, &Stream::catalogue());
    SystemeventLogfileReader copy(damaged, &Stream::catalogue());
    const quint64 last = original.getMaxLogNr();
    int readable = 0;
    for (quint64 nr = original.getMinLogNr(); nr <= last; ++nr) {
        const QString text = original.jsonEntry(nr, english());
        if (!text.isEmpty() && range(copy, nr, nr) == range(original, nr, nr)) {
            ++readable;
        }
    }
    say("readable", readable);
}

bool writeCatalogue(const QString &fileName)
{
    QFile file(fileName);
    return file.open(QIODevice::WriteOnly)
        && file.write(Stream::catalogueXml()) == Stream::catalogueXml().size();
}

bool run(const QStringList &words)
{
    const QString mode = words.value(1);
    const QString first = words.value(2);
    const QString second = words.value(3);
    const QDir folder(first);
    if (mode == QLatin1String("catalogue") && words.size() == 3) {
        return writeCatalogue(first);
    }
    if (mode == QLatin1String("fill") && words.size() == 5) {
        Stream::fill(folder, second.toInt(), words.at(4).toInt());
    } else if (mode == QLatin1String("fill-files") && words.size() == 4) {
        Stream::fillFiles(folder, second.toInt());
    } else if (mode == QLatin1String("write") && words.size() == 4) {
        measureWriter(folder, second.toInt());
    } else if (mode == QLatin1String("read") && words.size() == 3) {
        measureReader(folder);
    } else if (mode == QLatin1String("open") && words.size() == 3) {
        measureOpening(folder);
    } else if (mode == QLatin1String("udp") && words.size() == 4) {
        measureSender(first.toInt(), quint16(second.toUInt()));
    } else if (mode == QLatin1String("readable") && words.size() == 4) {
        countReadable(folder, QDir(second));
    } else {
        return false;
    }
    return true;
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv); // the writer's timer wants an event loop
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));
    if (!run(QCoreApplication::arguments())) {
        (void)std::fputs("usage: hookbench catalogue FILE | fill FOLDER EVENTS HIGHEST |\n"
                         "       fill-files FOLDER FILES | write FOLDER EVENTS | read FOLDER |\n"
                         "       open FOLDER | udp EVENTS PORT | readable WHOLE DAMAGED\n",
                         stderr);
        return 2;
    }
    return 0;
}
