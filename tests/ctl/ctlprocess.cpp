// SPDX-License-Identifier: Apache-2.0
#include "ctl/ctlprocess.h"

#include "support/literals.h"
#include "support/recordbytes.h"

#include <QJsonDocument>
#include <QProcess>
#include <QTemporaryFile>
#include <QTest>

#include <unistd.h>

namespace
{

CtlRun run(const QString &program, const QStringList &arguments)
{
    constexpr int patience = 120000; // milliseconds; only so that a hang ends
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("LC_ALL"_s, "C.UTF-8"_s);
    environment.insert("CTL"_s, ctlProgram());
    process.setProcessEnvironment(environment);
    process.start(program, arguments);
    // What the tool calls may live in this process.
    const auto hasEnded = [&process] { return process.state() == QProcess::NotRunning; };
    if (!process.waitForStarted() || !QTest::qWaitFor(hasEnded, patience)) {
        qFatal("%s does not end: %s", qPrintable(program), qPrintable(process.errorString()));
    }
    CtlRun result;
    result.status = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    result.out = process.readAllStandardOutput();
    result.errors = process.readAllStandardError();
    return result;
}

constexpr char catalogueXml[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<systemevents>
  <enum name="LogLevel">
    <item value="4" name="warning"/>
    <item value="5" name="notice"/>
  </enum>
  <enum name="Mode">
    <item value="2" name="night"/>
  </enum>
  <service name="update">
    <event id="4005" name="settingChanged" loglevel="notice">
      <argument type="string" name="setting"/>
      <description lang="en">Setting %1 is now …</description>
    </event>
  </service>
  <service name="all">
    <event id="4294967291" name="negative" loglevel="odd">
      <description lang="en">Minus five</description>
    </event>
    <event id="1" name="bool"><argument type="bool" name="v"/><description lang="en">%1</description></event>
    <event id="2" name="byte"><argument type="byte" name="v"/><description lang="en">%1</description></event>
    <event id="3" name="int16"><argument type="int16" name="v"/><description lang="en">%1</description></event>
    <event id="4" name="int32"><argument type="int32" name="v"/><description lang="en">%1</description></event>
    <event id="5" name="int64"><argument type="int64" name="v"/><description lang="en">%1</description></event>
    <event id="6" name="uint64"><argument type="uint64" name="v"/><description lang="en">%1</description></event>
    <event id="7" name="float"><argument type="float" name="v"/><description lang="en">%1</description></event>
    <event id="8" name="double"><argument type="double" name="v"/><description lang="en">%1</description></event>
    <event id="9" name="string"><argument type="string" name="v"/><description lang="en">%1</description></event>
    <event id="10" name="bytearray"><argument type="bytearray" name="v"/><description lang="en">%1</description></event>
    <event id="11" name="variant"><argument type="variant" name="v"/><description lang="en">%1</description></event>
    <event id="12" name="enum"><argument type="enum" enum="Mode" name="v"/><description lang="en">%1</description></event>
    <event id="13" name="odd"><argument type="none" name="v"/><description lang="en">%1</description></event>
    <event id="14" name="three"><argument type="string" name="a"/><argument type="uint64" name="b"/><argument type="string" name="c"/><description lang="en">%1 %2 %3</description></event>
    <event id="15" name="silent"><argument type="double" name="a"/><description lang="en">nothing to fill</description></event>
  </service>
</systemevents>
)";

} // namespace

QList<QJsonObject> CtlRun::objects() const
{
    QList<QJsonObject> found;
    const QList<QByteArray> lines = out.split('\n');
    if (!lines.last().isEmpty()) {
        qFatal("the output does not end with a line feed: %s", out.constData());
    }
    for (int i = 0; i + 1 < lines.size(); ++i) {
        QJsonParseError error{};
        const QJsonDocument document = QJsonDocument::fromJson(lines.at(i), &error);
        if (!document.isObject()) {
            qFatal("no JSON object (%s): %s", qPrintable(error.errorString()),
                   lines.at(i).constData());
        }
        found.append(document.object());
    }
    return found;
}

QString ctlProgram()
{
    return QString::fromLocal8Bit(qgetenv("SEL_CTL"));
}

CtlRun runCtl(const QStringList &arguments)
{
    return run(ctlProgram(), arguments);
}

CtlRun runShell(const QString &line)
{
    return run("/bin/sh"_s, {"-c"_s, line});
}

QString asOrdinaryUser()
{
    return geteuid() == 0 ? "setpriv --bounding-set=-dac_override,-dac_read_search "_s : QString();
}

QString testCatalogue()
{
    static QTemporaryFile file;
    if (!file.isOpen() && (!file.open() || file.write(catalogueXml) < 0 || !file.flush())) {
        qFatal("cannot write a catalogue");
    }
    return file.fileName();
}

QByteArray message(quint64 logNr, const QByteArray &text)
{
    RecordBytes::Fields fields;
    fields.logNr = logNr;
    fields.eventId = 9;
    fields.values = RecordBytes::sized(text);
    return RecordBytes::record(fields);
}

QByteArray messages(quint64 from, quint64 to, int textSize)
{
    QByteArray bytes;
    for (quint64 i = from; i <= to; ++i) {
        bytes += message(i, QByteArray::number(i).rightJustified(textSize, '.'));
    }
    return bytes;
}
