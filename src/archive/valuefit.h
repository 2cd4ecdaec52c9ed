// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "logformat/bytesource.h"

#include <QtGlobal>

#include <array>
#include <string_view>
#include <unordered_map>
#include <vector>

class SystemeventCatalogue;

namespace Archive
{

/*!
 * Whether bytes can be a text that came over the bus, which throws out who sends anything
 * else: valid UTF-8 without a zero byte.
 */
class TextCheck
{
public:
    TextCheck() = default;
    virtual ~TextCheck();
    Q_DISABLE_COPY_MOVE(TextCheck)

    [[nodiscard]] virtual bool isText(std::string_view bytes) const;
};

//! The same in logarithmic time, for texts within bytes that are looked through once.
class IndexedTextCheck : public TextCheck
{
public:
    //! \a bytes must outlive this.
    explicit IndexedTextCheck(std::string_view bytes);

    [[nodiscard]] bool isText(std::string_view bytes) const override;

private:
    std::string_view all;
    std::vector<quint32> wrong; //!< what belongs to no text, ascending
};

//! How the values of a record suit what the catalogue says of its event.
enum class Fit : quint8 {
    Exact,         //!< they fill it to the byte
    Broken,        //!< they fill it to the byte, but a text is none
    Loose,         //!< they end early: there are more than declared
    Unknown,       //!< the catalogue does not know the event, or cannot be believed of it
    Contradictory, //!< they run past the end mark
};

//! Where the values of a record may end.
struct ValueEnds {
    //! There are several where a service may send a value under one of several types.
    static constexpr size_t most = 4;
    struct End {
        qint32 offset = 0; //!< from the first value
        bool isBroken = false;
    };

    std::array<End, most> ends{};
    quint8 count = 0;
    bool isKnown = false; //!< the catalogue knows the event
    bool isOpen = false;  //!< a value of unknown length makes all behind it unknown

    [[nodiscard]] Fit fitOf(qint64 valuesSize) const;
};

//! The types of the values of each event, by the catalogue.
using EventTypes = std::unordered_map<qint32, std::vector<int>>;
//! Empty without a catalogue.
EventTypes eventTypes(const SystemeventCatalogue *catalogue);

/*!
 * Judges values by the catalogue. Some services send other types than it says: a value of
 * a small integer type comes as a 32-bit one, and one of a type that the log does not
 * store is not there at all. Where most records of an event contradict the catalogue, its
 * word does not count.
 */
class ValueFit
{
public:
    //! The types must outlive this.
    explicit ValueFit(const EventTypes &types)
        : events(types)
    {
    }

    [[nodiscard]] bool knowsNothing() const { return events.empty(); }
    //! Of a record whose \a values may go on behind its end.
    [[nodiscard]] ValueEnds endsOf(qint32 eventId, std::string_view values,
                                   const TextCheck &text) const;
    //! Takes account of a record.
    void learn(qint32 eventId, Fit fit);
    //! Whether the catalogue can be believed of an event.
    [[nodiscard]] bool isBelieved(qint32 eventId) const;
    //! Whether that is beyond doubt, so that a record which differs must be damaged.
    [[nodiscard]] bool isCertain(qint32 eventId) const;

private:
    struct Count {
        quint64 fitting = 0;
        quint64 others = 0;
    };

    [[nodiscard]] Count countOf(qint32 eventId) const;

    const EventTypes &events;
    std::unordered_map<qint32, Count> counts;
};

} // namespace Archive
