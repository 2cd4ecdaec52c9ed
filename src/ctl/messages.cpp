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

/*!
 * Whether a text is UTF-8 without any control character, as most are. Of the characters
 * that take three bytes and more it does not know, of some that take two neither.
 */
bool isPlain(std::string_view utf8)
{
    for (size_t i = 0; i < utf8.size(); ++i) {
        const auto byte = static_cast<unsigned char>(utf8[i]);
        if (byte < 0x20 || byte == 0x7F) {
            return false;
        }
        if (byte < 0x80) {
            continue;
        }
        const bool isPair = byte >= 0xC3 && byte < 0xE0 && i + 1 < utf8.size()
            && (static_cast<unsigned char>(utf8[i + 1]) & 0xC0U) == 0x80U;
        if (!isPair) {
            return false;
        }
        ++i;
    }
    return true;
}

} // namespace

void tell(const QString &text)
{
    const QByteArray utf8 = text.toUtf8();
    std::string line = "systemeventctl: ";
    appendPrintable(line, {utf8.constData(), size_t(utf8.size())});
    line += '\n';
    OutputStream errors(STDERR_FILENO);
    try {
        errors.write(line);
        errors.flush();
    } catch (const OutputFailure &) {
        // There is nobody left to tell.
    }
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

void appendPrintable(std::string &out, std::string_view utf8)
{
    if (isPlain(utf8)) {
        out += utf8;
        return;
    }
    const QString text = QString::fromUtf8(utf8.data(), int(utf8.size()));
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

} // namespace Messages
