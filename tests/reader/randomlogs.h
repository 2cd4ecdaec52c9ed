// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "catalog/systemeventcatalogue.h"
#include "dice.h"

#include <QByteArray>
#include <QList>
#include <QString>

/*!
 * Throws event catalogues and log files that hold what is rare: every type code,
 * placeholders of every form in texts and values, bytes that are no UTF-8,
 * numbers at the edge of their formatting; and damages the files.
 */
class RandomLogs
{
public:
    explicit RandomLogs(Dice &throws);

    [[nodiscard]] const SystemeventCatalogue &catalogue() const { return events; }
    //! Log numbers of all records made so far.
    [[nodiscard]] const QList<quint64> &logNumbers() const { return numbers; }

    //! The next record. Its event is in the catalogue as a rule.
    QByteArray record();
    QByteArray records(int count);
    //! A record with a value of \a valueSize bytes, for the bytes it takes.
    QByteArray filler(int valueSize);
    //! Lets the numbers go on elsewhere.
    void jump();
    //! The bytes of a file that is sound as a rule.
    QByteArray file();
    void damage(QByteArray &bytes);
    //! A record of an event of its own, whose text grows to the limits.
    QByteArray growingText();
    //! Records of one event, whose texts grow and shrink again; others between them.
    QByteArray costlyTexts(int count);
    QString fileName();
    QString language();

private:
    void makeEvents();
    void makeEvent(int id);
    void makeEnums();
    QList<int> typeCodes();
    QString templateFor(int arguments);
    QString wildTemplate(int arguments);
    QString placeholder(int number);
    QByteArray recordOf(quint64 logNr, int eventId, const QByteArray &path,
                        const QByteArray &values);
    QByteArray values(const SystemeventDescription &event);
    QByteArray value(int type);
    QByteArray variant();
    QByteArray sizedValue();
    QByteArray text();
    QByteArray textPiece();
    QByteArray textAtTheLimit();
    QByteArray integer(int size);
    double real();
    quint64 nextNumber();

    Dice &dice;
    SystemeventCatalogue events;
    QList<int> eventIds;
    QList<quint64> numbers;
    quint64 next = 1;
    bool sameNumbers = false;
};
