// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>

#include <string>
#include <string_view>

//! What is said to people.
namespace Messages
{

//! One line on standard error, behind the name of the program.
void tell(const QString &text);
//! That a file of a folder has not been read to its end.
void tellUnread(const QString &folder, int file, int error);
//! What an errno means.
QString errorText(int error);
//! A file of a folder, as a message names it.
QString filePath(const QString &folder, int file);

//! How a count is spoken of: "1 record", "2 records".
std::string counted(quint64 count, const char *what);

//! A text for a terminal, on one line: control characters are shown as \\xNN or \\uNNNN.
void appendPrintable(std::string &out, const QString &text);
void appendPrintable(std::string &out, std::string_view utf8);

} // namespace Messages
