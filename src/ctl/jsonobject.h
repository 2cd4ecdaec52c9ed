// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QLatin1String>
#include <QString>

#include <algorithm>
#include <array>
#include <cassert>
#include <string>
#include <string_view>

/*!
 * Appends one JSON object to a text in UTF-8, member by member in the order of the calls.
 * Whatever the bytes of a text, the object is valid: what is no UTF-8 becomes U+FFFD. Keys
 * are taken as they are.
 */
class JsonObject
{
public:
    static constexpr size_t mostKey = 28; //!< characters of a key

    //! Opens an object at the end of \a text, which must outlive this.
    explicit JsonObject(std::string &text)
        : out(text)
    {
        out += '{';
    }
    //! Opens one that goes on behind a brace and members, which are made already.
    JsonObject(std::string &text, std::string_view opened)
        : out(text)
        , isEmpty(false)
    {
        out += opened;
    }

    JsonObject &add(std::string_view key, std::string_view utf8);
    JsonObject &add(std::string_view key, const QString &text);
    JsonObject &add(std::string_view key, QLatin1String ascii)
    {
        return add(key, std::string_view(ascii.data(), size_t(ascii.size())));
    }
    JsonObject &addFlag(std::string_view key, bool value);
    JsonObject &addNumber(std::string_view key, qint64 value);
    //! A number that readers might not hold: as a string.
    JsonObject &addLarge(std::string_view key, quint64 value);
    JsonObject &addLarge(std::string_view key, qint64 value);
    //! Bytes in hexadecimal.
    JsonObject &addHex(std::string_view key, std::string_view bytes);
    JsonObject &addNull(std::string_view key);
    //! Appends a key; its value is to be appended to the text then.
    std::string &addKey(std::string_view key) { return append(memberOf(key)); }

    //! Closes it.
    void end() { out += '}'; }

    //! Appends bytes in hexadecimal, without quotes.
    static void appendHex(std::string &text, std::string_view bytes);
    //! Appends a JSON string.
    static void appendString(std::string &text, std::string_view utf8);

private:
    //! A key and a short value, made beside the text and appended at once: records have many.
    struct Member {
        std::array<char, mostKey + 28> text; //!< 4 for the key's frame, 24 for a number's
        char *end;
    };
    Member memberOf(std::string_view key)
    {
        assert(key.size() <= mostKey);
        Member member; // NOLINT(cppcoreguidelines-pro-type-member-init): nobody reads the rest
        char *end = member.text.data();
        if (!isEmpty) {
            *end++ = ',';
        }
        isEmpty = false;
        *end++ = '"';
        end = std::copy(key.begin(), key.end(), end);
        *end++ = '"';
        *end++ = ':';
        member.end = end;
        return member;
    }
    std::string &append(const Member &member)
    {
        return out.append(member.text.data(), size_t(member.end - member.text.data()));
    }
    template <typename Integer>
    JsonObject &addDigits(std::string_view key, Integer value, bool inQuotes);

    std::string &out;
    bool isEmpty = true;
};
