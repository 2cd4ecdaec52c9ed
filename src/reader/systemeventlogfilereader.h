// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "reader/logfilecursor.h"
#include "reader/logindex.h"

#include <QDir>
#include <QObject>
#include <QString>

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

class RecordJson;
class SystemeventCatalogue;

/*!
 * Reads records back from the binary log files and shows them as JSON.
 *
 * An index leads from every log number to its record. It is built from scratch
 * by the first query after the file set changed and extended by the first query
 * after the current file grew; the two slots only take note, and the second closes
 * the files.
 *
 * The files stay open. Where descriptors are short, the oldest ones are left out, which
 * is said once; file 0 is then opened for each query.
 *
 * Reads only, and never fails: damage shows as marker texts within a message,
 * positional problems as debug messages. A record that cannot be found is an
 * empty text.
 */
class SystemeventLogfileReader : public QObject
{
    Q_OBJECT

public:
    /*!
     * Touches no file yet. The catalogue is not owned and must outlive the
     * reader; without one the process ends with a fatal message.
     */
    SystemeventLogfileReader(const QDir &directory, const SystemeventCatalogue *systemevents);
    ~SystemeventLogfileReader() override;
    Q_DISABLE_COPY_MOVE(SystemeventLogfileReader)

    //! The smallest log number there is, 0xFFFFFFFFFFFFFFFF without any record.
    quint64 getMinLogNr();
    //! The largest log number there is, 0 without any record.
    quint64 getMaxLogNr();
    //! The JSON object of one record, empty when the number is not in the index.
    QString jsonEntry(quint64 logNr, const QString &lang);
    /*!
     * The records from \a start to \a end, both included, as a JSON array: one
     * element a number, an empty one for a number that is not in the index. An
     * array of \a sizeLimit bytes or more in UTF-8 is refused: nothing is returned.
     */
    std::optional<QString> jsonRange(quint64 start, quint64 end, const QString &lang,
                                     quint64 sizeLimit);

public Q_SLOTS:
    //! Records were appended to the current file.
    void logfileChanged();
    //! Files were renamed or removed.
    void logfilesRotated();

private:
    class Query;

    void refresh();
    void fullScan();
    void reportLeftOut(int files);
    void scanFile(int fileNr, LogFile &file, std::vector<LogIndexEntry> &found);
    void updateIndex();
    [[nodiscard]] std::vector<LogIndexEntry> newEntries(LogFile &file);
    void appendRecord(std::string &out, const LogIndexEntry &entry, RecordJson &json);

    QDir logDir;
    bool filesDirty = true;    //!< the file set must be scanned from scratch
    bool indexDirty = true;    //!< file 0 may have grown
    bool isLeavingOut = false; //!< of the last scan: files had to stay closed
    const SystemeventCatalogue *catalogue;
    std::unordered_map<int, LogFile> fileTable; //!< by file number
    LogFileCursor cursor;                       //!< in a file of the table during a query
    LogIndex index;
};
