// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "stream.h"

#include <QFile>
#include <QProcess>
#include <QStringList>

//! The tool as it is run, on a folder of the stream; its catalogue lies there, too.
class ToolRun
{
public:
    ToolRun(const QDir &folder, int files)
        : source{QStringLiteral("-D"), folder.path(), QStringLiteral("-C"),
                 folder.filePath(QStringLiteral("systemevent.xml"))}
    {
        Stream::fillFiles(folder, files);
        QFile catalogue(source.last());
        if (!catalogue.open(QIODevice::WriteOnly) || catalogue.write(Stream::catalogueXml()) < 0) {
            qFatal("cannot write a catalogue");
        }
    }

    //! From its exec to its end; what it prints goes nowhere.
    void run(const QStringList &arguments) const
    {
        QProcess tool;
        tool.setStandardOutputFile(QProcess::nullDevice());
        tool.start(QStringLiteral(SEL_CTL), arguments + source);
        if (!tool.waitForFinished() || tool.exitCode() != 0) {
            qFatal("the tool fails");
        }
    }

private:
    QStringList source;
};
