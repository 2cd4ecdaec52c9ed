// SPDX-License-Identifier: Apache-2.0
#include "binlog/logformat.h"
#include "recordprinter.h"

#include <QCoreApplication>
#include <QFile>
#include <QStringList>

#include <cstdio>

namespace
{

//! A record's place in its file; a size of 0 when it was not found.
struct Location {
    qint64 position = 0;
    qint64 size = 0;
};

//! Walks from trailer to trailer, as there is no other way through a log file.
Location findRecord(QIODevice &file, quint64 wanted)
{
    qint64 end = file.size();
    while (end > LogFormat::trailerSize) {
        quint16 length = 0;
        LogFormat::seek(file, end - LogFormat::trailerSize);
        LogFormat::read(file, length);
        const qint64 position = end - LogFormat::trailerSize - length;
        if (position < 0) {
            break;
        }
        quint64 logNr = 0;
        LogFormat::seek(file, position);
        LogFormat::read(file, logNr);
        if (logNr == wanted) {
            return {position, end - position};
        }
        end = position;
    }
    return {};
}

} // namespace

//! demo-hexrecord CATALOGUE LOGFILE NUMBER: shows the record with a log number byte by byte.
int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() != 4) {
        qCritical("usage: demo-hexrecord CATALOGUE LOGFILE NUMBER");
        return 2;
    }
    SystemeventCatalogue catalogue;
    QFile file(arguments.at(2));
    if (!catalogue.load(arguments.at(1)) || !file.open(QIODevice::ReadOnly)) {
        qCritical("cannot open the catalogue or the log file");
        return 1;
    }
    const Location found = findRecord(file, arguments.at(3).toULongLong());
    if (found.size == 0) {
        qCritical("the file has no record with this number");
        return 1;
    }
    std::printf("offset  bytes                    meaning (bytes %lld to %lld of the file)\n",
                static_cast<long long>(found.position),
                static_cast<long long>(found.position + found.size - 1));
    LogFormat::seek(file, found.position);
    RecordPrinter printer(file.read(found.size), catalogue);
    if (!printer.print()) {
        qCritical("the bytes do not make a whole record of this catalogue");
        return 1;
    }
    return 0;
}
