// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDir>
#include <QHash>
#include <QString>

#include <map>
#include <memory>
#include <optional>

class LiteralText;
class QFile;
class SystemeventCatalogue;
struct SystemeventDescription;

/*!
 * Reads log files the plain way: goes to every field and reads it, on the file
 * itself, and substitutes one value after another. Slow, and easy to see through;
 * it says what the product's reader has to answer, damaged files included.
 *
 * Uses the product's tables of events and its escaping of JSON, nothing else.
 */
class LiteralReader
{
public:
    //! How often the reading met what random files might never hold.
    struct Encounters {
        quint64 records = 0;
        quint64 recordsBeforeTheFile = 0; //!< at a negative position
        quint64 recordsOfAnUnopenedFile = 0;
        quint64 shortNumbers = 0; //!< the file ended within or before them
        quint64 shortValues = 0;  //!< likewise, with a length in front
        quint64 percentValues = 0;
        quint64 textsTooLong = 0;
        quint64 textsTooCostly = 0;
        quint64 readErrorMessages = 0;
        std::map<int, quint64> types;        //!< by declared type code
        std::map<int, quint64> variantTypes; //!< by stored type code
    };

    LiteralReader(const QDir &directory, const SystemeventCatalogue *systemevents);
    ~LiteralReader();
    Q_DISABLE_COPY_MOVE(LiteralReader)

    quint64 getMinLogNr();
    quint64 getMaxLogNr();
    QString jsonEntry(quint64 logNr, const QString &lang);
    std::optional<QString> jsonRange(quint64 start, quint64 end, const QString &lang,
                                     quint64 sizeLimit);
    void logfileChanged() { indexDirty = true; }
    void logfilesRotated() { filesDirty = true; }

    [[nodiscard]] const Encounters &encounters() const { return met; }

private:
    struct Location {
        int fileNr = 0;
        qint64 position = 0;
    };

    void refresh();
    void fullScan();
    void scanFile(int fileNr, QFile &file);
    void extendIndex(QFile &file);
    void addEntry(quint64 logNr, Location location);

    QString element(quint64 logNr, const QString &lang);
    QString recordJson(QFile &file, qint64 position, const QString &lang);
    QString body(int eventId, QFile &file, const QString &lang);
    QString renderArguments(const QString &message, const SystemeventDescription &event,
                            QFile &file);
    bool renderPlainValue(LiteralText &text, int type, QFile &file);
    void renderVariant(LiteralText &text, QFile &file);
    void renderEnum(LiteralText &text, const QString &enumName, QFile &file);
    void renderText(LiteralText &text, const QString &value);

    //! Missing bytes count as zero; the result says how many there were.
    template <typename Number>
    qint64 read(QFile &file, Number &value);
    template <typename Number>
    Number readNumber(QFile &file);
    std::optional<QByteArray> readSized(QFile &file);

    QDir logDir;
    bool filesDirty = true;
    bool indexDirty = true;
    quint64 minLogNr = ~quint64(0);
    quint64 maxLogNr = 0;
    const SystemeventCatalogue *catalogue;
    std::map<int, std::unique_ptr<QFile>> fileTable; //!< by file number
    QHash<quint64, Location> entryIndex;             //!< by log number
    qint64 answerWorkLeft = 0;
    Encounters met;
};
