// SPDX-License-Identifier: Apache-2.0
#include "ctl/messages.h"

#include "ctl/outputstream.h"
#include "logformat/logformat.h"
#include "rendering/utf8text.h"

#include <string_view>

#include <cstring>
#include <unistd.h>

namespace Messages
{
namespace
{

//! Moves the cursor, ends the line or turns its direction.
bool isControl(ushort code)
{
    return code < 0x20 || (code >= 0x7F && code < 0xA0) || code == 0x200E || code == 0x200F
        || (code >= 0x2028 && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
}

} // namespace

void tell(const QString &text)
{
    std::string line = "systemeventctl: ";
    appendPrintable(line, text);
    line += '\n';
    OutputStream errors(STDERR_FILENO);
    try {
        errors.write(line);
        errors.flush();
    } catch (const OutputFailure &) {
        // There is nobody left to tell.
    }
}

void tellUnread(const QString &folder, int file, int error)
{
    tell(QStringLiteral("%1: cannot be read to its end: %2")
             .arg(filePath(folder, file), errorText(error)));
}

QString errorText(int error)
{
    return QString::fromLocal8Bit(std::strerror(error)); // NOLINT(concurrency-mt-unsafe)
}

QString filePath(const QString &folder, int file)
{
    const QString name = LogFormat::fileName(file);
    return folder.endsWith(QLatin1Char('/')) ? folder + name : folder + QLatin1Char('/') + name;
}

std::string counted(quint64 count, const char *what)
{
    std::string text = std::to_string(count) + ' ' + what;
    return count == 1 ? text : text + 's';
}

void appendPrintable(std::string &out, const QString &text)
{
    QString shown;
    for (const QChar c : text) {
        const ushort code = c.unicode();
        if (!isControl(code)) {
            shown += c;
        } else if (code < 0x100) {
            shown += QStringLiteral("\\x%1").arg(code, 2, 16, QLatin1Char('0'));
        } else {
            shown += QStringLiteral("\\u%1").arg(code, 4, 16, QLatin1Char('0'));
        }
    }
    Utf8Text::append(out, shown);
}

void appendPrintable(std::string &out, std::string_view utf8)
{
    appendPrintable(out, QString::fromUtf8(utf8.data(), int(utf8.size())));
}

} // namespace Messages
