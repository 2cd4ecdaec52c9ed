// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "../reader/dice.h"
#include "catalog/systemeventcatalogue.h"
#include "support/recordbytes.h"

#include <QByteArray>
#include <QList>

#include <vector>

/*!
 * A log file of which every byte's origin is known, whatever is done to it. The truth that
 * tests compare with comes from here, and not from what they test.
 */
class TrueLog
{
public:
    //! What the records are like.
    enum class Content {
        Mixed,           //!< events of all types, texts of all lengths
        HostileTexts,    //!< 15 % with texts that look like ends of records
        SpeltInDoubles,  //!< 15 % with a record spelt in surplus doubles
        SpeltInIntegers, //!< 15 % with one spelt in surplus 64-bit integers and 32-bit ones
        LongRecords,     //!< one in twenty over 64 KiB
        UnknownEvents,   //!< that no catalogue has
    };

    //! A record as it was written.
    struct Written {
        int begin = 0;
        int end = 0;
        quint64 logNr = 0;
    };

    TrueLog(Dice &throws, Content content, int size);

    static const SystemeventCatalogue &catalogue();

    [[nodiscard]] QByteArray bytes() const;
    [[nodiscard]] int size() const { return int(all.size()); }
    [[nodiscard]] const std::vector<Written> &written() const { return records; }
    //! The bytes of one of written() as they were.
    [[nodiscard]] QByteArray original(size_t index) const;

    // Damage. Positions are those of the file as it is then.
    void flipBit(int bit);
    void put(int at, const QByteArray &wrong);
    void insert(int at, const QByteArray &strange);
    void remove(int at, int count);
    //! Inserts a copy of bytes at a place.
    void copy(int from, int count, int to);
    //! Copies bytes over others.
    void copyOver(int from, int count, int to);
    void swap(int one, int other, int count);

    //! Where each record of written() still stands as it was; empty for the touched ones.
    [[nodiscard]] std::vector<std::vector<int>> places() const;
    //! Whether an original record began at a place, damaged or not.
    [[nodiscard]] bool isBeginning(int at) const;

private:
    struct Byte {
        char value = 0;
        bool isTouched = false;
        int origin = -1;
    };

    static std::vector<Byte> strangers(const QByteArray &bytes);
    QByteArray record(Content content);
    bool makeSpecial(Content content, RecordBytes::Fields &fields);
    QByteArray hostileText();
    QByteArray values(int eventId);
    QByteArray spelt();
    QByteArray text(int most);

    Dice &dice;
    quint64 logNr = 0;
    qint64 seconds = 1700000000;
    QByteArray originals;
    std::vector<Byte> all;
    std::vector<Written> records;
};
