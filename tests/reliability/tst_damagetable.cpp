// SPDX-License-Identifier: Apache-2.0

// How much of a log stays readable after each kind of damage. Every damage is done in
// every place, one at a time, to a log that the writer has written; a record counts as
// readable where the answer shows it as before. Then the folder is repaired, and read again.
// Ends with the table, in Markdown.
//
// SEL_SEED: of the damage at random places (1).
// Every sixteenth answer is compared with that of a plain reading, and the bits of the length
// fields are flipped in the two newest files; SEL_DAMAGE_ALL=1 compares every answer and
// takes all files.

#include "../reader/dice.h"
#include "../reader/literalreader.h"
#include "../reader/rewrittenfolder.h"
#include "archive/repair.h"
#include "binlog/binaryloginterface.h"
#include "catalog/systemeventcatalogue.h"
#include "logformat/encoding.h"
#include "reader/systemeventlogfilereader.h"
#include "support/environment.h"
#include "support/literals.h"
#include "support/readfaults.h"
#include "support/recordbytes.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>

#include <algorithm>
#include <array>
#include <cstdio>
#include <functional>
#include <random>
#include <set>
#include <utility>
#include <vector>

namespace
{

using Numbers = std::set<quint64>;

ReadFaults faults;

constexpr int fileCount = 4;
constexpr uint fileLimit = 8192;
constexpr uint bundleLimit = 2560;
constexpr int pageSize = 4096;
constexpr int kinds = 6;        // of events, one after another
constexpr int patience = 20000; // milliseconds, against an answer that never comes

//! Stamps every record with a second of its own: each run writes the same bytes.
class FixedClockLog : public BinaryLogInterface
{
public:
    explicit FixedClockLog(const QDir &directory)
        : BinaryLogInterface(bundleLimit, 30, fileCount - 1, fileLimit, directory)
    {
    }

protected:
    void writeTimestamp() override { appendTimestamp(++seconds, 250000); }

private:
    qint64 seconds = 1700000000;
};

using Record = RecordBytes::Stored;

struct HealthyFile {
    QByteArray bytes;
    std::vector<Record> records; //!< in the order of the file
};

QString nameOf(int index)
{
    return "zib%1.log"_s.arg(index);
}

//! The records from one to another, both included.
Numbers numbersOf(const HealthyFile &file, size_t first, size_t last)
{
    Numbers numbers;
    for (size_t i = first; i <= last && i < file.records.size(); ++i) {
        numbers.insert(file.records[i].logNr);
    }
    return numbers;
}

Numbers numbersOf(const HealthyFile &file)
{
    return numbersOf(file, 0, file.records.size());
}

bool isWithin(const Numbers &part, const Numbers &whole)
{
    return std::includes(whole.begin(), whole.end(), part.begin(), part.end());
}

//! A damage, and what it costs at most: the tests below hold it to that.
struct Damage {
    QByteArray name;
    const char *loses;
    bool isCertain = true; //!< a repair finds each record that is whole, in each case
};

//! One line of the table.
struct Row {
    Damage damage;
    std::vector<int> readable; //!< in each case
    std::vector<int> mended;   //!< the same after the repair
    int missed = 0;            //!< by the repair, though they are whole
    int invalidJson = 0;       //!< elements of all answers before it
};

//! A field of a record, and how many records one wrong bit in it costs.
struct Field {
    Damage damage;
    int end; //!< where the next one begins
    size_t least;
    size_t most;
    bool keepsJson = true;
};

const QString separator = ",\n"_s;

//! Damages the bytes of a file somewhere.
using Spoil = std::function<void(QByteArray &bytes, Dice &dice)>;

int placeIn(const QByteArray &bytes, Dice &dice)
{
    return dice.below(int(bytes.size()));
}

int pageIn(const QByteArray &bytes, Dice &dice)
{
    return dice.below(int(bytes.size()) / pageSize) * pageSize;
}

QByteArray randomBytes(int size, Dice &dice)
{
    QByteArray bytes(size, '\0');
    std::generate(bytes.begin(), bytes.end(), [&dice] { return char(dice.below(256)); });
    return bytes;
}

void cutOff(QByteArray &bytes, Dice &dice)
{
    bytes.truncate(placeIn(bytes, dice));
}

void insertBytes(QByteArray &bytes, Dice &dice)
{
    bytes.insert(placeIn(bytes, dice), randomBytes(dice.between(1, 100), dice));
}

void removeBytes(QByteArray &bytes, Dice &dice)
{
    bytes.remove(placeIn(bytes, dice), dice.between(1, 100));
}

void doubleBytes(QByteArray &bytes, Dice &dice)
{
    const int at = placeIn(bytes, dice);
    bytes.insert(at, bytes.mid(at, dice.between(1, 100)));
}

const std::vector<std::pair<const char *, Spoil>> randomDamage{
    {"a file cut off, and zeros to the end of the page",
     [](QByteArray &bytes, Dice &dice) {
         cutOff(bytes, dice);
         bytes += QByteArray(pageSize - int(bytes.size()) % pageSize, '\0');
     }},
    {"a file cut off, and random bytes to the end of the page",
     [](QByteArray &bytes, Dice &dice) {
         cutOff(bytes, dice);
         bytes += randomBytes(pageSize - int(bytes.size()) % pageSize, dice);
     }},
    {"the beginning of a file missing",
     [](QByteArray &bytes, Dice &dice) { bytes.remove(0, placeIn(bytes, dice)); }},
    {"a page of random bytes",
     [](QByteArray &bytes, Dice &dice) {
         bytes.replace(pageIn(bytes, dice), pageSize, randomBytes(pageSize, dice));
     }},
    {"a page missing",
     [](QByteArray &bytes, Dice &dice) { bytes.remove(pageIn(bytes, dice), pageSize); }},
    {"a page doubled",
     [](QByteArray &bytes, Dice &dice) {
         const int at = pageIn(bytes, dice);
         bytes.insert(at, bytes.mid(at, pageSize));
     }},
    {"two pages swapped",
     [](QByteArray &bytes, Dice & /*dice*/) {
         std::swap_ranges(bytes.begin(), bytes.begin() + pageSize, bytes.begin() + pageSize);
     }},
    {"a page copied over another",
     [](QByteArray &bytes, Dice &dice) {
         const bool isForward = dice.chance(50);
         const QByteArray copied = bytes.mid(isForward ? 0 : pageSize, pageSize);
         bytes.replace(isForward ? pageSize : 0, pageSize, copied);
     }},
    {"bytes inserted", insertBytes},
    {"bytes removed", removeBytes},
    {"bytes doubled", doubleBytes},
    {"bytes inserted, removed and doubled in several places",
     [](QByteArray &bytes, Dice &dice) {
         const std::array<Spoil, 3> all{insertBytes, removeBytes, doubleBytes};
         for (int i = dice.between(2, 5); i > 0; --i) {
             dice.oneOf(all)(bytes, dice);
         }
     }},
};

void silence(QtMsgType /*type*/, const QMessageLogContext & /*context*/,
             const QString & /*message*/)
{
}

} // namespace

ReadFaults *readFaults()
{
    return &faults;
}

class DamageTableTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void cleanup();
    void aBitOfARecord_data();
    void aBitOfARecord();
    void aBitOfATrailer();
    void aFileCutAtEveryLength();
    void aPageOfZeros();
    void aPageThatCannotBeRead();
    void aFileInPlaceOfAnother();
    void aCopyBesideTheOthers();
    void filesSwapped();
    void aFileMissing();
    void aFileTwiceInARow();
    void zerosAppended();
    void garbageAppended();
    void somewhereInAFile_data();
    void somewhereInAFile();

private:
    void describeEvents();
    void writeLog();
    void loadFile(int index, const QString &path);
    void restore(int index);
    void put(int index, const QByteArray &bytes);
    [[nodiscard]] QString flip(int index, int bit);
    [[nodiscard]] std::vector<Field> fieldsOf(const QByteArray &record) const;
    void flipTrailers(int index);
    void cut(int length);
    template <typename Spoil>
    void damagePages(const Damage &damage, const Spoil &spoil);
    [[nodiscard]] Row &row(const Damage &damage);
    [[nodiscard]] QString readAll(QString &problem);
    [[nodiscard]] Numbers lostIn(const QStringList &elements) const;
    [[nodiscard]] int beyond(const Numbers &expected) const;
    [[nodiscard]] bool isThere(quint64 logNr) const;
    [[nodiscard]] QString problemAfter(const Damage &damage);
    [[nodiscard]] QString problemAfterRepair(Row &counts);

    SystemeventCatalogue catalogue;
    RewrittenFolder folder;
    std::vector<HealthyFile> files; //!< by index
    QStringList healthy;            //!< the elements of the answer
    Numbers lost;                   //!< after the damage at hand: no longer shown as they were
    std::vector<Row> table;
    const quint32 seed = numberFromEnvironment<quint32>("SEL_SEED", 1);
    const bool everything = qEnvironmentVariableIsSet("SEL_DAMAGE_ALL");
    int answers = 0;
    int comparisons = 0;
    int bitsFlipped = 0;
    qint64 slowest = 0; //!< milliseconds
};

void DamageTableTest::describeEvents()
{
    const auto describe = [this](uint id, const QString &text, const QList<int> &types) {
        SystemeventDescription event(id, "event"_s, "warning"_s, "service"_s);
        event.descriptions.insert("en"_s, text);
        for (const int type : types) {
            event.arguments.append(SystemeventArgument("value"_s, type));
        }
        catalogue.events.insert(id, event);
    };
    namespace Type = ArgumentType;
    describe(1001, "Supply %1: %2 A at %3 V from %4"_s,
             {Type::Bool, Type::Int32, Type::Double, Type::String});
    describe(1002, "Message %1"_s, {Type::String});
    describe(1003, "Failure"_s, {});
    describe(1004, "Value %1 rejected"_s, {Type::Variant});
    describe(1005, "Counter %1 of %2"_s, {Type::Int64, Type::Byte});
}

//! A log as a device has it: files full but for the newest, records of all sizes.
void DamageTableTest::writeLog()
{
    const QTemporaryDir written;
    FixedClockLog log((QDir(written.path())));
    const QFile oldest(written.filePath(nameOf(fileCount - 1)));
    const QFile newest(written.filePath(nameOf(0)));
    const auto supply = [&log](int load) {
        log.logEvent(1001, {"/power/supply"_s, true, load, 230.5, "mains"_s});
    };
    for (int i = 0; !oldest.exists() || newest.size() == 0; ++i) {
        supply(i);
        const int length = i % 20 * 60;
        log.logEvent(1002, {"/ui"_s, QString(length, QLatin1Char('x')) + "Tür"_s});
        log.logEvent(1003, {"/power/battery"_s});
        log.logEvent(1004, {"/sensor/1"_s, QVariant::fromValue(WrappedValue{i})});
        log.logEvent(1005, {"/net"_s, qint64(i), QChar(u'A')});
        log.logEvent(4711, {"/unknown"_s, i});
    }
    supply(0); // the last one of all has values of every size
    log.writeBundle();
    for (int index = 0; index < fileCount; ++index) {
        loadFile(index, written.filePath(nameOf(index)));
    }
}

void DamageTableTest::loadFile(int index, const QString &path)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    HealthyFile loaded;
    loaded.bytes = file.readAll();
    const QList<Record> records = RecordBytes::storedIn(loaded.bytes);
    QVERIFY(!records.isEmpty());
    loaded.records.assign(records.begin(), records.end());
    files.push_back(loaded);
    restore(index);
}

void DamageTableTest::initTestCase()
{
    qInstallMessageHandler(silence);
    describeEvents();
    writeLog();
    QString problem;
    healthy = readAll(problem).split(separator);
    QCOMPARE(problem, QString());
    QCOMPARE(files.back().records.front().logNr, quint64(1));
    QCOMPARE(files.front().records.back().logNr, quint64(healthy.size()));
    for (int i = 0; i < int(healthy.size()); ++i) {
        QVERIFY(QJsonDocument::fromJson(healthy[i].toUtf8()).isObject());
        QVERIFY(healthy[i].startsWith("{\"eventnr\":%1,"_s.arg(i + 1)));
    }
}

void DamageTableTest::cleanup()
{
    faults.heal();
    folder.clear();
    for (int index = 0; index < int(files.size()); ++index) {
        restore(index);
    }
    folder.removeOthers();
}

void DamageTableTest::restore(int index)
{
    put(index, files[size_t(index)].bytes);
}

void DamageTableTest::put(int index, const QByteArray &bytes)
{
    constexpr int minute = 60;
    folder.put(nameOf(index), bytes, index * minute);
}

Row &DamageTableTest::row(const Damage &damage)
{
    const auto known = std::find_if(table.begin(), table.end(), [&damage](const Row &each) {
        return each.damage.name == damage.name;
    });
    return known != table.end() ? *known : table.emplace_back(Row{damage, {}, {}, 0, 0});
}

//! What the reader shows of all numbers, without the brackets.
QString DamageTableTest::readAll(QString &problem)
{
    constexpr quint64 noLimit = 1U << 30;
    const quint64 last = files.front().records.back().logNr;
    QElapsedTimer timer;
    timer.start();
    SystemeventLogfileReader reader(folder.dir(), &catalogue);
    const quint64 lowest = reader.getMinLogNr();
    const quint64 highest = reader.getMaxLogNr();
    const QString answer = reader.jsonRange(1, last, "en"_s, noLimit).value_or(QString());
    slowest = std::max(slowest, timer.elapsed());
    if (slowest > patience) {
        problem = "too slow"_s;
    }
    constexpr int usualStep = 16; // the plain reading takes most of the time
    if (everything || answers % usualStep == 0) {
        ++comparisons;
        LiteralReader literal(folder.dir(), &catalogue);
        if (literal.getMinLogNr() != lowest || literal.getMaxLogNr() != highest
            || literal.jsonRange(1, last, "en"_s, noLimit) != answer) {
            problem = "the plain reading answers something else"_s;
        }
    }
    ++answers;
    return answer.mid(1).chopped(1);
}

//! The numbers that an answer does not show as it did before the damage.
Numbers DamageTableTest::lostIn(const QStringList &elements) const
{
    Numbers numbers;
    for (int i = 0; i < int(healthy.size()); ++i) {
        if (elements.value(i) != healthy[i]) {
            numbers.insert(quint64(i) + 1);
        }
    }
    return numbers;
}

/*!
 * How many are lost besides: wrong places may by chance hold the number of a record of any
 * file.
 */
int DamageTableTest::beyond(const Numbers &expected) const
{
    return int(std::count_if(lost.begin(), lost.end(),
                             [&expected](quint64 logNr) { return expected.count(logNr) == 0; }));
}

//! Whether a record's bytes are still in some file of the folder.
bool DamageTableTest::isThere(quint64 logNr) const
{
    QByteArray bytes;
    for (const HealthyFile &file : files) {
        for (const Record &record : file.records) {
            if (record.logNr == logNr) {
                bytes = file.bytes.mid(record.begin, record.end - record.begin);
            }
        }
    }
    const QStringList names = folder.names();
    return std::any_of(names.begin(), names.end(), [this, &bytes](const QString &name) {
        return folder.content(name).contains(bytes);
    });
}

//! Reads the damaged log as one case of its row; null where that went as it has to.
QString DamageTableTest::problemAfter(const Damage &damage)
{
    QString problem;
    const QStringList elements = readAll(problem).split(separator);
    if (elements.size() != healthy.size()) {
        return "the answer has %1 elements"_s.arg(elements.size());
    }
    Row &counts = row(damage);
    lost = lostIn(elements);
    for (const quint64 logNr : lost) {
        const QString &element = elements[int(logNr) - 1];
        if (!element.isEmpty() && !QJsonDocument::fromJson(element.toUtf8()).isObject()) {
            ++counts.invalidJson;
        }
    }
    counts.readable.push_back(int(healthy.size()) - int(lost.size()));
    return problem.isEmpty() ? problemAfterRepair(counts) : problem;
}

/*!
 * Repairs the damaged log and reads it again: what is whole is readable then, and so is what
 * was readable before. Where a file
 * cannot be read all stays as it was.
 */
QString DamageTableTest::problemAfterRepair(Row &counts)
{
    Archive::RepairDisk disk;
    Archive::Folder archive(folder.dir().path(), &catalogue);
    if (!archive.open(Archive::Writers::None)) {
        return "the folder cannot be opened"_s;
    }
    const Archive::RepairResult result = Archive::Repair(archive, disk).run();
    QString problem;
    const Numbers still = lostIn(readAll(problem).split(separator));
    counts.mended.push_back(int(healthy.size()) - int(still.size()));
    QDir(folder.dir().filePath("damaged"_s)).removeRecursively();
    const bool isRead
        = std::all_of(result.steps.begin(), result.steps.end(),
                      [](const Archive::RepairStep &step) { return step.error == 0; });
    if (!isRead) {
        return still == lost ? problem : "a repair that failed has changed what is read"_s;
    }
    const auto missed = std::count_if(still.begin(), still.end(),
                                      [this](quint64 logNr) { return isThere(logNr); });
    counts.missed += int(missed);
    if (!std::includes(lost.begin(), lost.end(), still.begin(), still.end())) {
        return "what was readable is not any more"_s;
    }
    return missed > 0 && counts.damage.isCertain
        ? "%1 whole records are not found"_s.arg(qint64(missed))
        : problem;
}

//! Flips one bit of a file, and says which.
QString DamageTableTest::flip(int index, int bit)
{
    QByteArray bytes = files[size_t(index)].bytes;
    bytes[bit / 8] = char(bytes[bit / 8] ^ (1 << bit % 8));
    put(index, bytes);
    ++bitsFlipped;
    return "bit %1 of byte %2 of %3"_s.arg(bit % 8).arg(bit / 8).arg(nameOf(index));
}

void DamageTableTest::aBitOfARecord_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<int>("at");
    // The first of every six events has values of every size.
    const auto &records = files[1].records;
    size_t middle = records.size() / 2;
    while (records[middle].logNr % kinds != 1) {
        ++middle;
    }
    QTest::newRow("in the middle of a file") << 1 << int(middle);
    QTest::newRow("the last one of all") << 0 << int(files[0].records.size()) - 1;
}

std::vector<Field> DamageTableTest::fieldsOf(const QByteArray &record) const
{
    constexpr int pathBegin = 28;
    const int pathEnd = pathBegin + 2 + qFromLittleEndian<quint16>(record.constData() + pathBegin);
    const int endMark = int(record.size()) - 3;
    const char *const itself = "that record";
    return {
        {{"a bit of a log number", "that record and another one"}, 8, 1, 2},
        {{"a bit of a time stamp", itself}, 20, 1, 1},
        {{"a bit of the padding", "nothing"}, 24, 0, 0},
        {{"a bit of an event id", itself}, pathBegin, 1, 1},
        {{"a bit of a path", itself}, pathEnd, 0, 1, false},
        {{"a bit of the values", itself}, endMark, 0, 1},
        {{"a bit of an end mark", "nothing"}, endMark + 1, 0, 0},
    };
}

//! All bits but those of the length field.
void DamageTableTest::aBitOfARecord()
{
    QFETCH(int, index);
    QFETCH(int, at);
    const HealthyFile &file = files[size_t(index)];
    const Record record = file.records[size_t(at)];
    int offset = 0;
    const auto fields = fieldsOf(file.bytes.mid(record.begin, record.end - record.begin));
    for (const Field &field : fields) {
        QVERIFY(offset < field.end);
        for (; offset < field.end; ++offset) {
            for (int bit = 0; bit < 8; ++bit) {
                const QString flipped = flip(index, (record.begin + offset) * 8 + bit);
                const QString problem = problemAfter(field.damage);
                QVERIFY2(problem.isEmpty(), qPrintable(flipped + ": "_s + problem));
                QVERIFY2(lost.size() >= field.least && lost.size() <= field.most,
                         qPrintable(flipped));
                QVERIFY2(lost.empty() || lost.count(record.logNr) == 1, qPrintable(flipped));
                QVERIFY2(row(field.damage).invalidJson == 0 || !field.keepsJson,
                         qPrintable(flipped));
            }
        }
    }
    QCOMPARE(offset, record.end - record.begin - 2);
}

void DamageTableTest::aBitOfATrailer()
{
    const int count = everything ? int(files.size()) : 2;
    for (int index = 0; index < count && !QTest::currentTestFailed(); ++index) {
        flipTrailers(index);
        restore(index);
    }
}

void DamageTableTest::flipTrailers(int index)
{
    const HealthyFile &file = files[size_t(index)];
    for (size_t at = 0; at < file.records.size(); ++at) {
        const Numbers before = numbersOf(file, 0, at);
        for (int bit = 0; bit < 16; ++bit) {
            const QString flipped = flip(index, (file.records[at].end - 2) * 8 + bit);
            const QString problem
                = problemAfter({"a bit of a length field",
                                "that record, those before it in its file, and one more"});
            QVERIFY2(problem.isEmpty(), qPrintable(flipped + ": "_s + problem));
            // One that points before the start hides the record right behind.
            QVERIFY2(beyond(before) <= 1, qPrintable(flipped));
        }
    }
}

void DamageTableTest::aFileCutAtEveryLength()
{
    const int size = int(files.front().bytes.size());
    for (int length = 0; length < size && !QTest::currentTestFailed(); ++length) {
        cut(length);
    }
}

void DamageTableTest::cut(int length)
{
    const HealthyFile &newest = files.front();
    size_t kept = 0;
    while (newest.records[kept].end <= length) {
        ++kept;
    }
    const Numbers behind = numbersOf(newest, kept, newest.records.size());
    put(0, newest.bytes.left(length));
    if (newest.records[kept].begin == length) {
        QCOMPARE(problemAfter({"the newest file cut off behind a record", "the records cut off"}),
                 QString());
        QCOMPARE(lost, behind);
    } else {
        QCOMPARE(problemAfter({"the newest file cut off within a record", "that file"}), QString());
        // What is left of the torn record may lead to its beginning by chance.
        QVERIFY(isWithin(numbersOf(newest, kept + 1, newest.records.size()), lost));
        QVERIFY(isWithin(lost, numbersOf(newest)));
    }
}

//! Damages one page after another: it costs what it touches, and those before it in its file.
template <typename Spoil>
void DamageTableTest::damagePages(const Damage &damage, const Spoil &spoil)
{
    for (int index = 0; index < int(files.size()); ++index) {
        const HealthyFile &file = files[size_t(index)];
        for (int begin = 0; begin < int(file.bytes.size()); begin += pageSize) {
            const int end = std::min(begin + pageSize, int(file.bytes.size()));
            spoil(index, begin, end);
            QCOMPARE(problemAfter(damage), QString());
            faults.heal();
            Numbers reached;
            for (const Record &record : file.records) {
                if (record.begin < end) {
                    reached.insert(record.logNr);
                }
            }
            QVERIFY(!lost.empty() && isWithin(lost, reached));
        }
        restore(index);
    }
}

void DamageTableTest::aPageOfZeros()
{
    damagePages(
        {"a page of 4,096 bytes zeroed", "what it touches, and those before it in its file"},
        [this](int index, int begin, int end) {
            QByteArray bytes = files[size_t(index)].bytes;
            std::fill(bytes.begin() + begin, bytes.begin() + end, '\0');
            put(index, bytes);
        });
}

void DamageTableTest::aPageThatCannotBeRead()
{
    damagePages({"a page of 4,096 bytes that cannot be read",
                 "what it touches, and those before it in its file"},
                [this](int index, int begin, int end) {
                    const QString path = folder.dir().filePath(nameOf(index));
                    faults.spoil(QFile::encodeName(path).constData(), begin, end);
                });
}

void DamageTableTest::aFileInPlaceOfAnother()
{
    for (int from = 0; from < int(files.size()); ++from) {
        for (int to = 0; to < int(files.size()); ++to) {
            if (from == to) {
                continue;
            }
            put(to, files[size_t(from)].bytes);
            QCOMPARE(problemAfter({"a file copied over another", "the file overwritten"}),
                     QString());
            QCOMPARE(lost, numbersOf(files[size_t(to)]));
            restore(to);
        }
    }
}

void DamageTableTest::aCopyBesideTheOthers()
{
    for (const HealthyFile &file : files) {
        put(50, file.bytes);
        QCOMPARE(problemAfter({"a file there twice, under two numbers", "nothing"}), QString());
        QCOMPARE(lost, Numbers());
    }
}

void DamageTableTest::filesSwapped()
{
    for (int one = 0; one < int(files.size()); ++one) {
        for (int other = one + 1; other < int(files.size()); ++other) {
            put(one, files[size_t(other)].bytes);
            put(other, files[size_t(one)].bytes);
            QCOMPARE(problemAfter({"two files swapped", "nothing"}), QString());
            QCOMPARE(lost, Numbers());
            restore(one);
            restore(other);
        }
    }
}

void DamageTableTest::aFileMissing()
{
    for (int index = 0; index < int(files.size()); ++index) {
        folder.remove(nameOf(index));
        QCOMPARE(problemAfter({"a file missing", "that file"}), QString());
        QCOMPARE(lost, numbersOf(files[size_t(index)]));
        restore(index);
    }
}

void DamageTableTest::aFileTwiceInARow()
{
    for (int index = 0; index < int(files.size()); ++index) {
        put(index, files[size_t(index)].bytes.repeated(2));
        QCOMPARE(problemAfter({"a file twice as large: its content repeated", "nothing"}),
                 QString());
        QCOMPARE(lost, Numbers());
        restore(index);
    }
}

void DamageTableTest::zerosAppended()
{
    constexpr int most = pageSize;
    for (const int odd : {0, 1}) {
        for (int size = 2 - odd; size <= most; size += 2 * (1 + size / 32)) {
            const HealthyFile &newest = files.front();
            put(0, newest.bytes + QByteArray(size, '\0'));
            // Two zeros are a length field that leads to the next two.
            const bool even = odd == 0;
            QCOMPARE(problemAfter(
                         even ? Damage{"zeros behind the newest file, an even number", "nothing"}
                              : Damage{"zeros behind the newest file, an odd number", "that file"}),
                     QString());
            QVERIFY(isWithin(lost, even ? Numbers() : numbersOf(newest)));
        }
    }
}

void DamageTableTest::garbageAppended()
{
    constexpr int most = 100;
    std::mt19937_64 random(20240501);
    for (int size = 1; size <= most; ++size) {
        QByteArray garbage(size, '\0');
        std::generate(garbage.begin(), garbage.end(), [&random] { return char(random()); });
        put(0, files.front().bytes + garbage);
        QCOMPARE(problemAfter({"random bytes behind the newest file", "that file"}), QString());
        QVERIFY(isWithin(lost, numbersOf(files.front())));
    }
}

void DamageTableTest::somewhereInAFile_data()
{
    QTest::addColumn<int>("kind");
    for (size_t kind = 0; kind < randomDamage.size(); ++kind) {
        QTest::newRow(randomDamage[kind].first) << int(kind);
    }
}

//! Each full file in turn.
void DamageTableTest::somewhereInAFile()
{
    QFETCH(int, kind);
    constexpr int cases = 99;
    const auto &[name, spoil] = randomDamage[size_t(kind)];
    const Damage damage{name, "that file, and one more", false};
    for (int i = 0; i < cases; ++i) {
        const int index = 1 + i % (fileCount - 1);
        const HealthyFile &file = files[size_t(index)];
        Dice dice(seed, quint32(kind * cases + i));
        QByteArray bytes = file.bytes;
        spoil(bytes, dice);
        put(index, bytes);
        QCOMPARE(problemAfter(damage), QString());
        QVERIFY(beyond(numbersOf(file)) <= 1);
        restore(index);
    }
    QVERIFY(row(damage).missed * 200 <= cases * int(healthy.size()));
}

void DamageTableTest::cleanupTestCase()
{
    qInstallMessageHandler(nullptr);
    std::printf("\nOf %d records in %d files (newest first:", int(healthy.size()),
                int(files.size()));
    for (const HealthyFile &file : files) {
        std::printf(" %d", int(file.records.size()));
    }
    std::printf(") stay readable before and after a repair, and so many elements before it "
                "are no valid JSON:\n\n"
                "| Damage | Cases | Before: least | median | most | Lost at most "
                "| After: least | median | most | Missed | Invalid JSON |\n"
                "|---|---:|---:|---:|---:|---|---:|---:|---:|---:|---:|\n");
    for (Row &each : table) {
        const auto figures = [](std::vector<int> &cases) {
            std::sort(cases.begin(), cases.end());
            return "%1 | %2 | %3"_s.arg(cases.front())
                .arg(cases[cases.size() / 2])
                .arg(cases.back());
        };
        std::printf("| %s | %zu | %s | %s | %s | %d | %d |\n", each.damage.name.constData(),
                    each.readable.size(), qPrintable(figures(each.readable)), each.damage.loses,
                    qPrintable(figures(each.mended)), each.missed, each.invalidJson);
    }
    std::printf("\n%d answers, the slowest after %lld ms; %d compared with a plain reading; "
                "%d bits flipped\n\n",
                answers, slowest, comparisons, bitsFlipped);
}

QTEST_GUILESS_MAIN(DamageTableTest)
#include "tst_damagetable.moc"
