// SPDX-License-Identifier: Apache-2.0
#include "intake/busaddress.h"

#include <cstdlib>
#include <map>
#include <optional>

namespace BusAddress
{
namespace
{

//! Splits at a character; a list that is empty has one empty part.
std::vector<std::string_view> split(std::string_view text, char separator)
{
    std::vector<std::string_view> parts;
    for (size_t end = 0; end != std::string_view::npos; text.remove_prefix(end + 1)) {
        end = text.find(separator);
        parts.push_back(text.substr(0, end));
        if (end == std::string_view::npos) {
            break;
        }
    }
    return parts;
}

std::optional<unsigned> hexDigit(char c)
{
    constexpr std::string_view digits = "0123456789abcdef";
    const size_t value = digits.find(c >= 'A' && c <= 'F' ? char(c - 'A' + 'a') : c);
    return value == std::string_view::npos ? std::nullopt : std::optional(unsigned(value));
}

//! A value with its escapes, "%20" for one, resolved.
std::optional<std::string> unescaped(std::string_view value)
{
    std::string plain;
    for (size_t i = 0; i < value.size(); ++i) {
        if (value[i] != '%') {
            plain += value[i];
            continue;
        }
        if (i + 2 >= value.size()) {
            return std::nullopt;
        }
        const auto high = hexDigit(value[i + 1]);
        const auto low = hexDigit(value[i + 2]);
        if (!high || !low) {
            return std::nullopt;
        }
        plain += char(*high * 16 + *low);
        i += 2;
    }
    return plain;
}

std::optional<std::string> socketName(std::string_view address)
{
    constexpr std::string_view transport = "unix:";
    if (address.substr(0, transport.size()) != transport) {
        return std::nullopt;
    }
    std::map<std::string_view, std::string> values;
    for (const std::string_view pair : split(address.substr(transport.size()), ',')) {
        if (pair.empty()) {
            continue; // behind a comma at the end
        }
        const size_t equals = pair.find('=');
        const auto value
            = unescaped(pair.substr(equals == std::string_view::npos ? 0 : equals + 1));
        if (equals == std::string_view::npos || !value) {
            return std::nullopt;
        }
        values.emplace(pair.substr(0, equals), *value);
    }
    if (values.count("path") + values.count("abstract") != 1) {
        return std::nullopt; // a folder, for one, is for those who listen
    }
    return values.count("path") != 0 ? values["path"] : '\0' + values["abstract"];
}

} // namespace

std::vector<std::string> socketNames(std::string_view addresses)
{
    std::vector<std::string> names;
    for (const std::string_view address : split(addresses, ';')) {
        if (const auto name = socketName(address)) {
            names.push_back(*name);
        }
    }
    return names;
}

std::string ofSystemBus()
{
    const char *const configured = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
    return configured != nullptr && *configured != '\0'
        ? configured
        : "unix:path=/var/run/dbus/system_bus_socket";
}

} // namespace BusAddress
