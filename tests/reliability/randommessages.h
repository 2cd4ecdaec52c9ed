// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "reader/dice.h"
#include "reliability/wirebus.h"

#include <QByteArray>

/*!
 * Messages as no healthy service sends them, yet such as the bus lets through: all types
 * of the bus, nested as deep as it allows, with values at and beyond what anybody expects.
 */
class RandomMessages
{
public:
    explicit RandomMessages(Dice *source)
        : dice(source)
    {
    }

    //! Of the messages from now on; little-endian unless told otherwise.
    void setBigEndian(bool isBigEndian) { out.isBigEndian = isBigEndian; }

    //! Status changes of every shape, and signals that only resemble them.
    WireMessage signal();
    //! Calls of the daemon's methods and properties, and of what it does not have.
    WireMessage call();
    //! A reply or an error that nobody asked for.
    WireMessage answer();

private:
    struct Depth {
        int arrays = 0;
        int structs = 0;
        int variants = 0;
    };

    WireMessage statusChange();
    void appendValueList(WireMessage *message);
    void appendArguments(WireMessage *message);
    void appendKnownArguments(WireMessage *message);
    void finish(WireMessage *message);
    void add(WireMessage *message, const QByteArray &types);
    void addText(WireMessage *message, const QByteArray &text);
    QByteArray signatureOf(int values);
    QByteArray type(int room);
    QByteArray deepType();
    void value(const char *&type, Depth depth);
    void basicValue(char type);
    void array(const char *&type, Depth depth);
    void structure(const char *&type, Depth depth);
    void variant(Depth depth);
    QByteArray text();
    QByteArray objectPath();
    QByteArray name();
    quint64 doubleBits();

    Dice *dice;
    WireWriter out;
    int descriptors = 0; //!< of the message under construction
    int budget = 0;      //!< bytes that its values may still take, about
};
