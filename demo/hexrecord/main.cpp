// SPDX-License-Identifier: Apache-2.0
#include "recordprinter.h"

#include "logformat/bytesource.h"
#include "logformat/logformat.h"

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

Location findRecord(const QByteArray &content, quint64 wanted)
{
    ByteSource file({content.constData(), size_t(content.size())});
    Location found;
    qint64 end = file.size();
    LogFormat::walkBack(file, end, LogFormat::Walk::Tail, [&](qint64 position, quint64 logNr) {
        if (position >= 0 && logNr == wanted) {
            found = {position, end - position};
        }
        end = position;
        return position > 0 && found.size == 0;
    });
    return found;
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
    const QByteArray content = file.readAll();
    const Location found = findRecord(content, arguments.at(3).toULongLong());
    if (found.size == 0) {
        qCritical("the file has no record with this number");
        return 1;
    }
    std::printf("offset  bytes                    meaning (bytes %lld to %lld of the file)\n",
                static_cast<long long>(found.position),
                static_cast<long long>(found.position + found.size - 1));
    RecordPrinter printer(content.mid(int(found.position), int(found.size)), catalogue);
    if (!printer.print()) {
        qCritical("the bytes do not make a whole record of this catalogue");
        return 1;
    }
    return 0;
}
