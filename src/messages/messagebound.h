// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QtGlobal>

#include <chrono>
#include <vector>

/*!
 * Counts the lines of Qt's messages and decides which are written: of each
 * kind so many in a minute. Whoever can provoke a message can provoke millions of them.
 *
 * Of a kind are messages of one type that begin with the same characters. A minute begins
 * with the first message after the one before, for all kinds together. The clock is the
 * caller's; nothing is written here.
 *
 * Memory: that of mostKinds short texts.
 */
class MessageBound
{
public:
    using Time = std::chrono::steady_clock::time_point;

    static constexpr std::chrono::minutes period{1};
    static constexpr int mostLines = 1000;       //!< of a kind in a period
    static constexpr int mostLength = 4096;      //!< of a message, in UTF-16 units
    static constexpr int kindLength = 16;        //!< of the beginning that makes a kind
    static constexpr std::size_t mostKinds = 64; //!< beyond that all others are one kind

    //! Messages of a kind that were not written.
    struct LeftOut {
        QtMsgType type = QtDebugMsg;
        QString beginning; //!< null for the kinds beyond mostKinds
        quint64 count = 0;
    };

    //! The message as it is to be written: one that is too long is cut, and ends with "...".
    [[nodiscard]] static QString shortened(const QString &message);

    /*!
     * Whether a message, shortened, is to be written; it is counted, as lines or as left
     * out. Fatal ones always are. A period that is over must have been ended.
     */
    [[nodiscard]] bool admits(QtMsgType type, const QString &message, Time now);
    /*!
     * Whether a message that begins so would not be written now. It then counts as left
     * out and need not be made. \a beginning has kindLength characters at least,
     * or is the whole message.
     */
    [[nodiscard]] bool leavesOut(QtMsgType type, QLatin1String beginning, Time now);

    [[nodiscard]] bool isOver(Time now) const { return begun && now >= periodEnd; }
    //! When the present period ends, or the last one did.
    [[nodiscard]] Time end() const { return periodEnd; }
    //! Ends the period and tells what was left out in it, in the order of the kinds' first
    //! messages.
    std::vector<LeftOut> endPeriod();

private:
    struct Kind {
        LeftOut leftOut;
        int lines = 0;
    };

    template <typename Text>
    Kind *known(QtMsgType type, const Text &beginning);
    Kind &kindOf(QtMsgType type, const QString &message);

    std::vector<Kind> kinds;
    bool begun = false;
    Time periodEnd;
};
