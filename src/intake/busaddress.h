// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>
#include <vector>

/*!
 * Where a bus listens, by chapter "Server Addresses" of the D-Bus specification.
 */
namespace BusAddress
{

/*!
 * The names of the sockets that a list of addresses leads to, in its order, as the kernel
 * takes them: a path, or a zero byte and the name of an abstract socket. What is no
 * socket of this machine to connect to is left out, and so is what is malformed.
 */
std::vector<std::string> socketNames(std::string_view addresses);

//! The addresses of the system bus: DBUS_SYSTEM_BUS_ADDRESS unless empty, else its well-known one.
std::string ofSystemBus();

} // namespace BusAddress
