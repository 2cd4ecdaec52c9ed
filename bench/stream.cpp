// SPDX-License-Identifier: Apache-2.0
#include "stream.h"

#include "binlog/binaryloginterface.h"
#include "folders.h"
#include "logformat/logformat.h"

#include <QFile>

#include <array>
#include <cstdio>
#include <limits>

namespace Stream
{
namespace
{

constexpr uint maxBundleSize = BinaryLogInterface::defaultBundleSize;
constexpr int flushInterval = BinaryLogInterface::defaultFlushInterval;
constexpr uint maxFileSize = BinaryLogInterface::defaultFileSize;

SystemeventCatalogue loadCatalogue()
{
    const Folder folder(Folder::Tmpfs);
    const QString name = folder.dir().filePath(QStringLiteral("systemevent.xml"));
    QFile file(name);
    SystemeventCatalogue loaded;
    if (!file.open(QIODevice::WriteOnly) || file.write(catalogueXml()) < 0 || !file.flush()
        || !loaded.load(name)) {
        qFatal("cannot make a catalogue");
    }
    return loaded;
}

void append(BinaryLogInterface &log, int events)
{
    for (int n = 0; n < events; ++n) {
        log.logEvent(eventId, arguments(uint(n)));
    }
    if (events % recordsPerBundle != 0) {
        log.writeBundle();
    }
}

void fillCurrentFile(const QDir &folder, int events)
{
    constexpr uint noRotation = std::numeric_limits<uint>::max();
    BinaryLogInterface log(maxBundleSize, flushInterval, 1, noRotation, folder);
    append(log, events);
}

} // namespace

QList<QVariant> arguments(uint n)
{
    const int number = int((n * 2654435761U) % 200000U) - 100000;
    const double level = 11.5 + (n % 977) / 64.0;
    std::array<char, 24> unit{}; // as cheap as the peers make it: it is measured along in places
    (void)std::snprintf(unit.data(), unit.size(), "supply%06u-nominal", n % 1000000U);
    return {QStringLiteral("/power/supply"), (n & 1U) != 0, number, level,
            QString::fromLatin1(unit.data())};
}

QString templateText()
{
    return QStringLiteral("Supply enabled %1, load %2 mA, level %3 V, unit %4");
}

QByteArray catalogueXml()
{
    return QByteArrayLiteral("<systemevents>\n"
                             "<enum name=\"LogLevel\"><item value=\"4\" name=\"warning\"/></enum>\n"
                             "<service name=\"power\">\n"
                             "<event id=\"1001\" name=\"supply\" loglevel=\"warning\">\n"
                             "<argument type=\"bool\" name=\"enabled\"/>\n"
                             "<argument type=\"int32\" name=\"load\"/>\n"
                             "<argument type=\"double\" name=\"level\"/>\n"
                             "<argument type=\"string\" name=\"unit\"/>\n"
                             "<description lang=\"en\">")
        + templateText().toUtf8()
        + QByteArrayLiteral("</description>\n</event>\n</service>\n</systemevents>\n");
}

const SystemeventCatalogue &catalogue()
{
    static const SystemeventCatalogue loaded = loadCatalogue();
    return loaded;
}

std::unique_ptr<BinaryLogInterface> openLog(const QDir &folder, int highestIndex)
{
    return std::make_unique<BinaryLogInterface>(maxBundleSize, flushInterval, highestIndex,
                                                maxFileSize, folder);
}

void fill(const QDir &folder, int events, int highestIndex)
{
    append(*openLog(folder, highestIndex), events);
}

void fillFiles(const QDir &folder, int files)
{
    // Not by rotation, whose renaming takes longer than all the rest with 1,000 files.
    for (int index = files - 1; index >= 0; --index) {
        const int missing = index == 0 ? recordsPerBundle : 0;
        fillCurrentFile(folder, recordsPerFile - missing);
        if (index > 0
            && !QFile::rename(folder.filePath(LogFormat::fileName(0)),
                              folder.filePath(LogFormat::fileName(index)))) {
            qFatal("cannot rename a log file");
        }
    }
}

} // namespace Stream
