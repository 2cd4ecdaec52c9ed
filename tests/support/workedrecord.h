// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/literals.h"

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QStringList>

//! The fenced blocks of a document that carry a language, joined by line feeds.
inline QString fencedBlocks(const QString &document, const QString &language)
{
    QFile file(document);
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    QStringList lines;
    bool inside = false;
    const QStringList all = QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'));
    for (const QString &line : all) {
        if (line.startsWith("```"_s)) {
            inside = !inside && line == "```"_s + language;
        } else if (inside) {
            lines.append(line);
        }
    }
    return lines.join(QLatin1Char('\n'));
}

//! The bytes of the worked record in the description of the log format.
inline QByteArray workedRecord(const QString &docs)
{
    QByteArray bytes;
    const QStringList lines
        = fencedBlocks(docs + "/log-format.md"_s, "record"_s).split(QLatin1Char('\n'));
    for (const QString &line : lines) {
        bytes += QByteArray::fromHex(line.section("  "_s, 1).toLatin1());
    }
    return bytes;
}
