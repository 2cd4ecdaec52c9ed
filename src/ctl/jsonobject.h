// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QLatin1String>
#include <QString>

#include <algorithm>
#include <array>
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
    /*!
     * A key, which is written out in the code: its length is known to the compiler, who
     * refuses one that is too long.
     */
    class Key
    {
    public:
        static constexpr size_t most = 28; //!< characters

        template <size_t Size>
        constexpr Key(const char (&literal)[Size]) // NOLINT(google-explicit-constructor)
            : text(literal, Size - 1)
        {
            static_assert(Size - 1 <= most);
        }

        std::string_view text;
    };

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

    JsonObject &add(Key key, std::string_view utf8);
    JsonObject &add(Key key, const QString &text);
    JsonObject &add(Key key, QLatin1String ascii)
    {
        return add(key, std::string_view(ascii.data(), size_t(ascii.size())));
    }
    JsonObject &addFlag(Key key, bool value);
    JsonObject &addNumber(Key key, qint64 value);
    //! A number that readers might not hold: as a string.
    JsonObject &addLarge(Key key, quint64 value);
    JsonObject &addLarge(Key key, qint64 value);
    //! Bytes in hexadecimal.
    JsonObject &addHex(Key key, std::string_view bytes);
    JsonObject &addNull(Key key);
    //! Appends a key; its value is to be appended to the text then.
    std::string &addKey(Key key) { return append(memberOf(key)); }

    //! Closes it.
    void end() { out += '}'; }

    //! Appends bytes in hexadecimal, without quotes.
    static void appendHex(std::string &text, std::string_view bytes);
    //! Appends a JSON string.
    static void appendString(std::string &text, std::string_view utf8);

private:
    //! A key and a short value, made beside the text and appended at once: records have many.
    struct Member {
        std::array<char, Key::most + 28> text; //!< 4 for the key's frame, 24 for a number's
        char *end;
    };
    Member memberOf(Key key)
    {
        Member member; // NOLINT(cppcoreguidelines-pro-type-member-init): nobody reads the rest
        char *end = member.text.data();
        if (!isEmpty) {
            *end++ = ',';
        }
        isEmpty = false;
        *end++ = '"';
        end = std::copy(key.text.begin(), key.text.end(), end);
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
    JsonObject &addDigits(Key key, Integer value, bool inQuotes);

    std::string &out;
    bool isEmpty = true;
};
