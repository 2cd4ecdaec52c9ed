// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/literals.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QString>
#include <QStringList>

#include <unistd.h>

//! A line of /proc/PID/status in KiB: "VmRSS" is what is used now, "VmHWM" the peak.
inline int memoryOf(qint64 process, const QByteArray &line)
{
    QFile status("/proc/%1/status"_s.arg(process));
    if (!status.open(QIODevice::ReadOnly)) {
        return -1;
    }
    const QList<QByteArray> lines = status.readAll().split('\n');
    for (const QByteArray &each : lines) {
        if (each.startsWith(line + ':')) {
            return each.mid(line.size() + 1).simplified().split(' ').constFirst().toInt();
        }
    }
    return -1;
}

//! The processor time that a process has used, in milliseconds.
inline qint64 processorTimeOf(qint64 process)
{
    QFile stat("/proc/%1/stat"_s.arg(process));
    if (!stat.open(QIODevice::ReadOnly)) {
        return -1;
    }
    // Behind the name, which may hold anything: user and system time are the 12th and 13th.
    const QList<QByteArray> fields = stat.readAll().split(')').last().simplified().split(' ');
    return (fields.value(11).toLongLong() + fields.value(12).toLongLong()) * 1000
        / sysconf(_SC_CLK_TCK);
}

//! Has the peak begin anew at what is used now.
inline bool forgetPeak(qint64 process)
{
    QFile file("/proc/%1/clear_refs"_s.arg(process));
    return file.open(QIODevice::WriteOnly) && file.write("5") == 1;
}

//! What the open descriptors of a process lead to.
inline QStringList openedBy(qint64 process)
{
    QStringList targets;
    const QDir folder("/proc/%1/fd"_s.arg(process));
    const QStringList names
        = folder.entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot);
    for (const QString &name : names) {
        targets.append(QFile::symLinkTarget(folder.filePath(name)));
    }
    return targets;
}
