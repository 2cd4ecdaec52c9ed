// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

#include <string>
#include <string_view>

//! What is said to people on standard error.
namespace Messages
{

//! One line, behind the name of the program.
void tell(const QString &text);
//! What an errno means.
QString errorText(int error);
//! A file of a folder, as a message names it.
QString filePath(const QString &folder, int file);

//! A text for a terminal, on one line: control characters are shown as \\xNN or \\uNNNN.
void appendPrintable(std::string &out, std::string_view utf8);

} // namespace Messages
