// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "logformat/argumenttype.h"

#include <QByteArray>
#include <QHash>
#include <QString>

#include <optional>
#include <vector>

/*!
 * An event catalogue as it stands in its file: what SystemeventCatalogue loads of it, each
 * element with its place, and also what is lost in loading, such as an event whose id comes
 * again.
 *
 * The same reader walks over it, so that both end at the same place. Only what would take a
 * loader minutes or much memory is not walked through to its end: more than a hundred levels,
 * attributes of one element or 250,000 elements, an element or a text of more than 256 KiB, and
 * entities or a document type that make much of little.
 */
struct CatalogueDocument {
    //! A larger file is no catalogue.
    static constexpr qint64 maxSize = 16777216; // bytes

    //! Of an element's first character, in UTF-16 units; both count from 1.
    struct Place {
        qint64 line = 1;
        qint64 column = 1;
    };

    struct Argument {
        Place place;
        QString name;
        QString typeText; //!< as written
        int type = ArgumentType::Unknown;
        QString enumName; //!< also where the type gives it no meaning
    };

    struct Text {
        Place place;
        QString lang;
        QString text;
    };

    struct Event {
        Place place;
        QString idText; //!< as written
        uint id = 0;    //!< as it is read
        QString name;
        QString level;
        QString service;
        std::vector<Argument> arguments;
        std::vector<Text> texts;
    };

    struct Item {
        Place place;
        QString valueText;
        int value = 0;
        bool isNumber = false;
        QString name;
    };

    struct Enum {
        Place place;
        QString name;
        std::vector<Item> items;
    };

    //! An element that does not stand where it belongs.
    struct Oddity {
        enum class Kind : quint8 {
            Unknown, //!< no element of a catalogue
            Ignored, //!< in front of what it could belong to
            Outside, //!< not within what it is taken for
            Unnamed, //!< a service that therefore is none
        };
        Kind kind = Kind::Unknown;
        Place place;
        QString element;
        QString owner; //!< what it counts for: an event's id, an enumeration or a service
    };

    //! Why reading has ended before the end of the file.
    struct Stop {
        enum class Reason : quint8 {
            Xml,   //!< an error, at which a loader stops, too
            Bytes, //!< the same: what does not fit the encoding
            Byte,  //!< the same, but all before it is read
            Limit, //!< of what is walked through here; a loader goes on
        };
        Reason reason = Reason::Xml;
        Place place;
        QString text; //!< what is wrong
        bool isInText = false;
    };

    //! A reference to an entity that is read as nothing, as it stands in another file.
    struct Unread {
        Place place;
        QString entity;
    };

    static CatalogueDocument read(const QByteArray &bytes);

    //! The numbers of the levels by their names, as they are loaded.
    [[nodiscard]] QHash<QString, int> levels() const;

    Place root;
    std::vector<Event> events; //!< in the order of the file, as all here
    std::vector<Enum> enums;
    std::vector<Oddity> oddities;
    std::vector<Unread> unread; //!< none behind the end of reading
    //! The first element for whose bytes U+FFFD is read, as they do not fit the encoding.
    std::optional<Place> replaced;
    QString encoding; //!< as declared; may be empty
    std::optional<Stop> stop;
};
