// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "reader/dice.h"
#include "support/device.h"
#include "support/faultydisk.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QTemporaryFile>

#include <functional>
#include <memory>

class QProcess;

//! What the files of the log hold, from the oldest to the current one.
struct StoredLog {
    QByteArray bytes;
    QList<quint64> numbers; //!< of the records, in the order of the files
    // Of a file that is no plain sequence of records nothing is in numbers.
    bool olderTorn = false;
    bool currentTorn = false;

    static StoredLog read();
};

/*!
 * A daemon that is ended in the middle of its work, again and again, and what its log
 * must then hold. What was written, and what of it was forced to storage, is known from
 * the preloaded library, which sees every write before the file does.
 *
 * Each function that checks gives the first thing that is wrong, or an empty text.
 */
class SuddenEnd
{
public:
    //! What happens before the daemon is started again.
    enum class Start {
        Alone,    //!< nothing
        Repaired, //!< the log is repaired
    };

    explicit SuddenEnd(quint32 seed, Start manner = Start::Alone);

    Device device; //!< keeps logtail + 1 files, and stores every event

    //! Forgets what the log held: it is empty now, and no file of it is left over.
    void startAnew();
    /*!
     * Has events stream in as fast as the bus takes them, and after some writes, in
     * the middle of whatever goes on then, calls \a end from another thread; that
     * must kill the daemon. Small events and large ones, up to 60,000 bytes.
     */
    [[nodiscard]] QString endUnderLoad(Dice &dice, const std::function<void()> &end);
    //! The daemon's end, with nothing said to it before.
    void kill() const;
    //! Stops it between two system calls.
    void pause() const;

    //! How many bytes of the last life must be there: all that was written, or synced.
    [[nodiscard]] quint64 bytesWritten() const { return disk->bytesWritten; }
    [[nodiscard]] quint64 bytesSynced() const { return disk->bytesSynced; }
    /*!
     * Compares the files with what was written: nothing but its beginning, at least
     * \a durable bytes of the last life, every record whole, the numbers without a
     * gap. The oldest files may have been rotated out. The last bundle may end in the
     * middle of a record: a torn tail, which is counted.
     */
    [[nodiscard]] QString checkFiles(quint64 durable);
    /*!
     * Starts the daemon, reads everything back from it and compares that with the files;
     * a full current file is rotated by that start. Of a file with a torn tail nothing
     * is read, and the log has to be emptied then: hasTornTail().
     */
    [[nodiscard]] QString checkReading();
    [[nodiscard]] bool hasTornTail() const { return stored.currentTorn || stored.olderTorn; }
    //! Whether the numbers of further events follow those of the records there are.
    [[nodiscard]] QString checkNumbering();

    // Before a repaired start, behind checkFiles():
    /*!
     * Damages the log in a way that touches no record: half a record, zeros or random bytes
     * behind the current file's end, or between two records of some file.
     */
    [[nodiscard]] bool damage(Dice &dice);
    /*!
     * Starts a repair and, in the middle of its steps, calls \a end with its process, which
     * must end it. Only where a repair has something to do.
     */
    [[nodiscard]] QString endInRepair(Dice &dice, const std::function<void(qint64 process)> &end);
    //! Whether the log is as it was before a repair that was ended, or as one leaves it.
    [[nodiscard]] QString checkEndedRepair() const;
    /*!
     * Repairs the log: what is left is every whole record and nothing else, and what was
     * taken out is kept.
     */
    [[nodiscard]] QString repair();
    //! Whether there is something to repair.
    [[nodiscard]] bool needsRepair() const { return hasTornTail() || !strange.isEmpty(); }

    struct Counts {
        quint64 ends = 0;
        quint64 events = 0;          //!< sent
        quint64 recordsChecked = 0;  //!< read back through the bus
        quint64 bytesDurable = 0;    //!< that had to be there, all were
        quint64 endsWithLoss = 0;    //!< where bytes written to the file were gone
        quint64 endsInsideWrite = 0; //!< where the last write had begun and not returned
        quint64 tornTails = 0;
        quint64 tailsWithZeros = 0; //!< instead of bytes that were not yet stored
        quint64 repairs = 0;        //!< that had something to do
        quint64 repairsEnded = 0;   //!< in the middle, by a signal or a failing disk
    };
    [[nodiscard]] const Counts &counts() const { return totals; }

    static constexpr int logtail = 10;

private:
    void signal(int number) const;
    void send(Dice &dice);
    [[nodiscard]] QByteArray writtenInThisLife();
    [[nodiscard]] QString compare(const StoredLog &log, quint64 durable);
    [[nodiscard]] QString seeRotation();
    [[nodiscard]] QString readBack(const QList<quint64> &numbers);
    [[nodiscard]] QString checkOrder(const QList<quint64> &texts) const;
    void foreseeRepair();
    [[nodiscard]] std::unique_ptr<QProcess> startRepair() const;

    Start startManner;
    FaultyDisk disk;
    QTemporaryFile witness;
    QByteArray before;          //!< what earlier lives have written and storage has kept; its end
    StoredLog stored;           //!< what it held when the life had ended
    QByteArray whole;           //!< of that, the whole records
    QByteArray strange;         //!< what damage() has put in between
    QList<QByteArray> mended;   //!< what a repair is to leave, file by file
    QList<QByteArray> unmended; //!< what was there before the last one
    quint64 sent = 0;
    int lives = 0; //!< whose events the log may hold
    Counts totals;
};
