// SPDX-License-Identifier: Apache-2.0

// What "salvage" prints of folders made by hand: each record as an object, with the text
// that the daemon's reader gives, and what is no record.

#include "../reader/dice.h"
#include "catalog/systemeventcatalogue.h"
#include "ctl/ctlprocess.h"
#include "reader/systemeventlogfilereader.h"
#include "support/literals.h"
#include "support/logfolder.h"
#include "support/recordbytes.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>

#include <initializer_list>

using RecordBytes::Fields;
using RecordBytes::number;
using RecordBytes::record;
using RecordBytes::sized;

namespace
{

QByteArray recordOf(quint64 logNr, qint32 eventId, const QByteArray &values)
{
    Fields fields;
    fields.logNr = logNr;
    fields.eventId = eventId;
    fields.values = values;
    return record(fields);
}

QByteArray real(double value)
{
    QByteArray bytes(8, '\0');
    memcpy(bytes.data(), &value, 8);
    return bytes;
}

CtlRun salvage(const LogFolder &folder, const QStringList &more = {})
{
    return runCtl(QStringList{"salvage"_s, "-D"_s, folder.dir().path(), "-C"_s, testCatalogue()}
                  + more);
}

} // namespace

class CtlSalvageTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void members();
    void values_data();
    void values();
    void unknownEvents();
    void anyTextIsValid();
    void messagesAreTheReaders();
    void damage();
    void order();
    void forgedRecords_data();
    void forgedRecords();
    void textForPeople();
    void cannotRead();
    void closedOutput_data();
    void closedOutput();
    void fullOutput();
};

void CtlSalvageTest::initTestCase()
{
    QVERIFY2(!ctlProgram().isEmpty(), "SEL_CTL names the tool");
}

void CtlSalvageTest::members()
{
    Fields fields;
    fields.logNr = 16;
    fields.seconds = 1795288009;
    fields.microseconds = 787;
    fields.eventId = 4005;
    fields.path = "/update/settings";
    fields.values = sized("device.name");
    const QByteArray bytes = record(fields);
    LogFolder folder;
    folder.put(0, record(15) + bytes);

    const CtlRun run = salvage(folder);
    QCOMPARE(run.status, 0);
    QCOMPARE(run.errors, QByteArray());
    const QByteArray wanted
        = R"({"number":"16","time":"2026-11-21T19:06:49.000787Z","event":4005,)"
          R"("name":"settingChanged","service":"update","level":"notice","levelNumber":5,)"
          R"("path":"/update/settings","message":"Setting device.name is now …",)"
          R"("values":[{"name":"setting","type":"string","value":"device.name"}],)"
          R"("file":"zib0.log","offset":)"
        + QByteArray::number(record(15).size()) + ",\"length\":" + QByteArray::number(bytes.size())
        + R"(,"state":"whole"})";
    QCOMPARE(run.out.split('\n').value(1), wanted);
}

void CtlSalvageTest::values_data()
{
    QTest::addColumn<int>("eventId");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QByteArray>("value");

    const auto row = [](const char *name, int eventId, const QByteArray &bytes, const char *value) {
        QTest::newRow(name) << eventId << bytes << QByteArray(value);
    };
    row("a bool is true", 1, number(1, 1), R"({"name":"v","type":"bool","value":true})");
    row("or false", 1, number(0, 1), R"({"name":"v","type":"bool","value":false})");
    row("a byte is a number", 2, number(255, 1), R"({"name":"v","type":"byte","value":255})");
    row("16 bits are a number", 3, number(0xFFFE, 2), R"({"name":"v","type":"int16","value":-2})");
    row("32 bits are a number", 4, number(0x80000000, 4),
        R"({"name":"v","type":"int32","value":-2147483648})");
    row("64 bits are a string", 5, number(~quint64(0), 8),
        R"({"name":"v","type":"int64","value":"-1"})");
    row("unsigned ones too", 6, number(~quint64(0), 8),
        R"({"name":"v","type":"uint64","value":"18446744073709551615"})");
    row("a float is as short as it can be", 7, QByteArray::fromHex("cdcccc3d"),
        R"({"name":"v","type":"float","value":0.1})");
    row("a double too", 8, real(24.1), R"({"name":"v","type":"double","value":24.1})");
    row("a large one keeps all digits", 8, real(123456789.0123),
        R"({"name":"v","type":"double","value":123456789.0123})");
    row("no number is a string", 8, QByteArray::fromHex("000000000000f87f"),
        R"({"name":"v","type":"double","value":"nan"})");
    row("infinity too", 8, QByteArray::fromHex("000000000000f07f"),
        R"({"name":"v","type":"double","value":"inf"})");
    row("and the negative one", 8, QByteArray::fromHex("000000000000f0ff"),
        R"({"name":"v","type":"double","value":"-inf"})");
    row("a text is escaped", 9, sized("\"\\\n\x1B"),
        R"({"name":"v","type":"string","value":"\"\\\n\u001B"})");
    row("a byte array is a text", 10, sized("abc"),
        R"({"name":"v","type":"bytearray","value":"abc"})");
    row("a variant says its content's type", 11, number(3, 2) + number(7, 4),
        R"({"name":"v","type":"variant","contentType":"int32","value":7})");
    row("a variant's text", 11, number(8, 2) + sized("x"),
        R"({"name":"v","type":"variant","contentType":"string","value":"x"})");
    row("a variant of no known type has no value", 11, number(0xFFFF, 2),
        R"({"name":"v","type":"variant","value":null})");
    row("an enum has its number and its text", 12, number(2, 1),
        R"({"name":"v","type":"enum","value":2,"text":"night"})");
    row("an enum without such an item", 12, number(3, 1),
        R"({"name":"v","type":"enum","value":3,"text":""})");
    row("a missing value is null", 4, QByteArray(), R"({"name":"v","type":"int32","value":null})");
    row("a value of an unknown type is null", 13, QByteArray(),
        R"({"name":"v","type":"unknown","value":null})");
}

void CtlSalvageTest::values()
{
    QFETCH(int, eventId);
    QFETCH(QByteArray, bytes);
    QFETCH(QByteArray, value);
    LogFolder folder;
    folder.put(0, recordOf(1, eventId, bytes));
    const CtlRun run = salvage(folder);
    QCOMPARE(run.objects().size(), 1);
    QVERIFY2(run.out.contains("\"values\":[" + value + "]"), run.out.constData());
}

void CtlSalvageTest::unknownEvents()
{
    LogFolder folder;
    folder.put(0, recordOf(1, -5, {}) + recordOf(2, -7, QByteArray::fromHex("00ff0a")));
    const QList<QJsonObject> objects = salvage(folder).objects();
    QCOMPARE(objects.size(), 2);
    QCOMPARE(objects[0].value("event"_s).toInt(), -5);
    QCOMPARE(objects[0].value("name"_s).toString(), "negative"_s);
    QCOMPARE(objects[0].value("levelNumber"_s).toInt(), 7);
    const QStringList expected{"bytes"_s,  "event"_s, "file"_s,  "length"_s, "number"_s,
                               "offset"_s, "path"_s,  "state"_s, "time"_s};
    QCOMPARE(objects[1].keys(), expected);
    QCOMPARE(objects[1].value("bytes"_s).toString(), "00ff0a"_s);
    QCOMPARE(objects[1].value("event"_s).toInt(), -7);

    // Without a catalogue every event is one; that is said once.
    const CtlRun run = runCtl({"salvage"_s, "-D"_s, folder.dir().path()});
    QCOMPARE(run.objects().size(), 2);
    QCOMPARE(run.objects().first().value("bytes"_s).toString(), ""_s);
    QCOMPARE(run.errors.count("there is no catalogue"), QByteArray::size_type(1));
}

void CtlSalvageTest::anyTextIsValid()
{
    LogFolder folder;
    QByteArray every;
    for (int i = 1; i < 256; ++i) {
        every += char(i);
    }
    folder.put(0,
               message(1, every) + message(2, "\xEF\xBB\xBFmark") + message(3, "\xED\xA0\x80")
                   + message(4, QByteArray(60000, '"')));
    const CtlRun run = salvage(folder);
    const QList<QJsonObject> objects = run.objects();
    QCOMPARE(objects.size(), 4);
    QVERIFY(run.out.contains("\"value\":\"\xEF\xBB\xBFmark\"")); // a parser may drop it
    QCOMPARE(objects[3].value("message"_s).toString(), QString(60000, QLatin1Char('"')));
}

void CtlSalvageTest::messagesAreTheReaders()
{
    SystemeventCatalogue catalogue;
    QVERIFY(catalogue.load(testCatalogue()));
    // What Qt says of texts without a placeholder is not looked at.
    const QtMessageHandler handler
        = qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    Dice dice(5, 0);
    constexpr int count = 3000;
    QByteArray bytes;
    for (int i = 1; i <= count; ++i) {
        // Often not what the catalogue declares: too short, too long, of other types.
        QByteArray content;
        for (int left = dice.below(30); left > 0; --left) {
            content += dice.chance(40) ? char(dice.below(12)) : char(dice.below(256));
        }
        bytes += recordOf(quint64(i), dice.chance(90) ? 1 + dice.below(15) : 4005, content);
    }
    LogFolder folder;
    folder.put(0, bytes);
    SystemeventLogfileReader reader(folder.dir(), &catalogue);
    const QList<QJsonObject> objects = salvage(folder).objects();
    int compared = 0;
    int differing = 0;
    for (const QJsonObject &object : objects) {
        if (!object.contains("message"_s)) {
            continue; // lost
        }
        const QString logNr = object.value("number"_s).toString();
        const QJsonObject read
            = QJsonDocument::fromJson(reader.jsonEntry(logNr.toULongLong(), "en"_s).toUtf8())
                  .object();
        if (QString::number(read.value("eventnr"_s).toDouble(), 'f', 0) != logNr) {
            continue; // the reader went astray in a damaged text
        }
        differing += object.value("message"_s) == read.value("msg"_s) ? 0 : 1;
        ++compared;
    }
    qInstallMessageHandler(handler);
    QCOMPARE(differing, 0);
    QVERIFY2(compared > count / 2, qPrintable(QString::number(compared)));
}

void CtlSalvageTest::damage()
{
    LogFolder folder;
    const QByteArray first = message(1, "one");
    const QByteArray second = message(2, "two");
    folder.put(0, first + second + QByteArray(100, '\0') + message(3, "three"));
    const CtlRun run = salvage(folder);
    QCOMPARE(run.status, 3);
    const QList<QJsonObject> objects = run.objects();
    QCOMPARE(objects.size(), 4);
    const QJsonObject &lost = objects[2];
    const QStringList members{"file"_s, "length"_s, "offset"_s, "reason"_s, "state"_s};
    QCOMPARE(lost.keys(), members);
    QCOMPARE(lost.value("state"_s).toString(), "lost"_s);
    QCOMPARE(lost.value("offset"_s).toInt(), int(first.size() + second.size()));
    QCOMPARE(lost.value("length"_s).toInt(), 100);

    const CtlRun sure = salvage(folder, {"--sure"_s});
    QCOMPARE(sure.status, 3);
    QStringList numbers;
    for (const QJsonObject &object : sure.objects()) {
        QCOMPARE(object.value("state"_s).toString(), "whole"_s);
        numbers.append(object.value("number"_s).toString());
    }
    QCOMPARE(numbers, (QStringList{"1"_s, "2"_s, "3"_s}));
}

void CtlSalvageTest::order()
{
    LogFolder folder;
    folder.put(0, message(5, "e") + message(6, "f"));
    folder.put(2, message(1, "a") + message(2, "b"));
    folder.put(11, message(0x100, "before"));
    QStringList files;
    for (const QJsonObject &object : salvage(folder).objects()) {
        files.append(object.value("file"_s).toString());
    }
    QCOMPARE(files,
             (QStringList{"zib11.log"_s, "zib2.log"_s, "zib2.log"_s, "zib0.log"_s, "zib0.log"_s}));

    // As the help says.
    QByteArray help = runCtl({"salvage"_s, "--help"_s}).out;
    QVERIFY(help.replace('\n', ' ').contains("in the order of the files, as the bytes stand"));
}

void CtlSalvageTest::forgedRecords_data()
{
    QTest::addColumn<QByteArray>("inside");
    QTest::addColumn<int>("eventId");

    QByteArray spelt = message(77, "forged");
    spelt.append(8 - spelt.size() % 8, '\0');
    QTest::newRow("spelt in surplus numbers") << real(1.5) + spelt << 8;
    QTest::newRow("spelt in the numbers of an unknown event") << spelt << 555;
}

void CtlSalvageTest::forgedRecords()
{
    QFETCH(QByteArray, inside);
    QFETCH(int, eventId);
    LogFolder folder;
    folder.put(0, message(1, "a") + recordOf(2, eventId, inside) + message(3, "b"));
    const QString path = folder.dir().path();
    for (const QString &command : {"salvage"_s, "verify"_s, "repair"_s}) {
        const CtlRun run
            = runCtl({command, "-D"_s, path, "-C"_s, testCatalogue(), "-o"_s, "json"_s});
        QCOMPARE(run.status, 0);
        QVERIFY2(!run.out.contains("\"77\""), run.out.constData());
        QVERIFY2(!run.out.contains("forged"), run.out.constData());
    }
    QCOMPARE(salvage(folder).objects().size(), 3);
}

void CtlSalvageTest::textForPeople()
{
    LogFolder folder;
    folder.put(0,
               message(1, "\x1B[2J\xC2\x9Bline\nfeed\xE2\x80\xAE") + recordOf(2, 555, "x")
                   + QByteArray(50, 'y'));
    const CtlRun run = salvage(folder, {"-o"_s, "text"_s});
    QCOMPARE(run.status, 3);
    const QList<QByteArray> lines = run.out.split('\n');
    QCOMPARE(lines.size(), 4);
    QVERIFY2(lines[0].endsWith("string /power/supply \\x1b[2J\\x9bline\\x0afeed\\u202e"),
             lines[0].constData());
    QVERIFY2(lines[0].startsWith("1 2023-11-14T22:13:20.250000Z "), lines[0].constData());
    QVERIFY2(lines[2].startsWith("-- lost: zib0.log from "), lines[2].constData());
}

void CtlSalvageTest::cannotRead()
{
    const CtlRun folder = runCtl({"salvage"_s, "-D"_s, "/nowhere/at/all"_s});
    QCOMPARE(folder.status, 4);
    QVERIFY(folder.errors.contains("/nowhere/at/all: the folder cannot be read: "
                                   "No such file or directory; name another one with -D"));
    const LogFolder empty;
    const CtlRun catalogue
        = runCtl({"salvage"_s, "-D"_s, empty.dir().path(), "-C"_s, "/nowhere.xml"_s});
    QCOMPARE(catalogue.status, 4);
    QVERIFY(catalogue.errors.contains("/nowhere.xml: the catalogue cannot be read"));
    QCOMPARE(salvage(empty).status, 0);
}

void CtlSalvageTest::closedOutput_data()
{
    QTest::addColumn<QString>("starter");

    QTest::newRow("the signal ends it") << QString();
    QTest::newRow("also where its parent ignores the signal") << "env --ignore-signal=PIPE"_s;
    QTest::newRow("also where its parent blocks the signal") << "env --block-signal=PIPE"_s;
}

void CtlSalvageTest::closedOutput()
{
    QFETCH(QString, starter);
    LogFolder folder;
    QByteArray bytes(10, '\0'); // damage, which is not to be taken for none
    for (quint64 i = 1; i <= 2000; ++i) {
        bytes += message(i, "more than fits into a pipe");
    }
    folder.put(0, bytes);
    const CtlRun run
        = runShell("exec 3>&1; { "_s + starter + " \"$CTL\" salvage -C "_s + testCatalogue()
                   + " -D "_s + folder.dir().path() + "; echo $? >&3; } | :"_s);
    QCOMPARE(run.out, QByteArray("141\n")); // 128 and SIGPIPE
    QCOMPARE(run.errors, QByteArray());
}

void CtlSalvageTest::fullOutput()
{
    LogFolder folder;
    folder.put(0, message(1, "a"));
    const CtlRun run = runShell("\"$CTL\" salvage -D "_s + folder.dir().path() + " >/dev/full"_s);
    QCOMPARE(run.status, 4);
    QVERIFY(run.errors.contains("No space left on device"));
}

QTEST_GUILESS_MAIN(CtlSalvageTest)
#include "tst_ctlsalvage.moc"
