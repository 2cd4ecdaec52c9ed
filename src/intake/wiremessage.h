// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QtGlobal>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

/*!
 * Messages as they lie on the bus's socket: chapter "Message Protocol" of the D-Bus
 * specification, version 1 of the protocol, from which all numbers here are. Whatever
 * the bytes, nothing is read but what was given.
 */
namespace Wire
{

constexpr size_t fixedSize = 16;                          //!< bytes that tell a message's size
constexpr size_t mostMessage = size_t(128) * 1024 * 1024; //!< bytes of a whole message
constexpr size_t mostArray = size_t(64) * 1024 * 1024;    //!< bytes of an array's elements
constexpr size_t mostSignature = 255;                     //!< characters
//! Arrays in each other, or structures; twice as many containers of all kinds.
constexpr int mostDepth = 32;

enum class Type : quint8 { Call = 1, Answer = 2, Error = 3, Signal = 4 };

//! What stands in front of a message's body; views into the message, empty where there is none.
struct Head {
    Type type = Type::Signal;
    bool isBigEndian = false;
    quint32 serial = 0;      //!< as its sender counts
    quint32 answerTo = 0;    //!< serial number of the call that it answers
    quint32 descriptors = 0; //!< how many travel along
    std::string_view path;
    std::string_view interface;
    std::string_view member;
    std::string_view errorName;
    std::string_view destination;
    std::string_view sender;
    std::string_view signature; //!< of the body
    std::string_view body;
};

//! The size in bytes of a message that begins with fixedSize bytes, none if it cannot be one.
std::optional<size_t> messageSize(std::string_view begin);
//! The head of a whole message, none if it is malformed.
std::optional<Head> readHead(std::string_view message);

//! A call of a method of the bus itself, with a text and a number behind it, if there are any.
std::string callOfBus(const char *member, quint32 serial, std::string_view text = {},
                      std::optional<quint32> number = std::nullopt);

} // namespace Wire
