// SPDX-License-Identifier: Apache-2.0

// The reader answers exactly as a plain reading, field by field, does: on random
// and damaged files that grow, are renamed and disappear, question after question.
// A difference is told with the seed and the round that bring it back. On a slow machine
// SEL_COMPARISON_SEEDS=1 makes do with the first seed of each kind.

#include "dice.h"
#include "literalreader.h"
#include "randomlogs.h"
#include "reader/systemeventlogfilereader.h"
#include "rewrittenfolder.h"
#include "support/environment.h"
#include "support/literals.h"
#include "support/readfaults.h"

#include <QFile>
#include <QLocale>
#include <QTest>

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

namespace
{

constexpr quint64 highest = std::numeric_limits<quint64>::max();
constexpr quint64 usualLimit = 200000;
constexpr quint64 noLimit = 1000000000;

ReadFaults faults;

//! What is said meanwhile: every debug message, and that a placeholder was missing.
class Messages
{
public:
    Messages() { previous = qInstallMessageHandler(take); }
    ~Messages() { qInstallMessageHandler(previous); }
    Q_DISABLE_COPY_MOVE(Messages)

    static QStringList takeAll() { return std::exchange(lines(), {}); }

private:
    static QStringList &lines()
    {
        static QStringList all;
        return all;
    }

    static void take(QtMsgType type, const QMessageLogContext & /*context*/, const QString &message)
    {
        static const QString missing = "QString::arg: Argument missing"_s;
        if (type == QtDebugMsg) {
            lines().append(message);
        } else if (type == QtWarningMsg && message.startsWith(missing)) {
            lines().append(missing); // how it goes on is Qt's
        } else if (type == QtFatalMsg) {
            fprintf(stderr, "%s\n", qPrintable(message));
        }
    }

    QtMessageHandler previous;
};

//! What answers must have held somewhere for the comparison to be worth anything.
struct Sight {
    QString text;
    int seen = 0;
};

struct Tally {
    quint64 directories = 0;
    quint64 questions = 0;
    quint64 refusals = 0;
    quint64 messages = 0;
    quint64 characters = 0;
    LiteralReader::Encounters met;
    std::vector<Sight> sights;

    void add(const LiteralReader::Encounters &other);
    void look(const QString &answer);
};

void Tally::add(const LiteralReader::Encounters &other)
{
    met.records += other.records;
    met.recordsBeforeTheFile += other.recordsBeforeTheFile;
    met.recordsOfAnUnopenedFile += other.recordsOfAnUnopenedFile;
    met.shortNumbers += other.shortNumbers;
    met.shortValues += other.shortValues;
    met.percentValues += other.percentValues;
    met.textsTooLong += other.textsTooLong;
    met.textsTooCostly += other.textsTooCostly;
    met.readErrorMessages += other.readErrorMessages;
    for (const auto &[type, count] : other.types) {
        met.types[type] += count;
    }
    for (const auto &[type, count] : other.variantTypes) {
        met.variantTypes[type] += count;
    }
}

void Tally::look(const QString &answer)
{
    constexpr int enough = 20;
    constexpr int longest = 5000;
    for (Sight &sight : sights) {
        if (sight.seen < enough && answer.size() < longest && answer.contains(sight.text)) {
            ++sight.seen;
        }
    }
}

struct Question {
    const char *name;
    quint64 start = 0;
    quint64 end = 0;
    QString lang = QString();
    quint64 limit = 0;
};

//! With everything in view: a mark that takes no room, a control character.
QString visible(const QString &text)
{
    QString result;
    for (const QChar character : text) {
        if (character.unicode() >= 0x20 && character.unicode() < 0x7F) {
            result += character;
        } else {
            result += "<%1>"_s.arg(int(character.unicode()), 4, 16, QLatin1Char('0'));
        }
    }
    return result;
}

//! Two long texts from shortly before where they part.
QString parting(const QString &expected, const QString &answer)
{
    int begin = 0;
    while (begin < std::min(expected.size(), answer.size())
           && expected.at(begin) == answer.at(begin)) {
        ++begin;
    }
    constexpr int before = 60;
    constexpr int shown = 160;
    const auto excerpt = [begin](const QString &text) {
        return QString::number(text.size()) + " characters, ..."_s
            + visible(text.mid(std::max(begin - before, 0), shown));
    };
    return "\nexpected "_s + excerpt(expected) + "\nanswer   "_s + excerpt(answer);
}

//! Asks both readers the same and keeps the first difference.
class TwoReaders
{
public:
    TwoReaders(const QDir &directory, const SystemeventCatalogue *catalogue, Tally &counts)
        : literal(directory, catalogue)
        , reader(directory, catalogue)
        , tally(counts)
    {
        ++tally.directories;
    }
    ~TwoReaders() { tally.add(literal.encounters()); }
    Q_DISABLE_COPY_MOVE(TwoReaders)

    quint64 minimum()
    {
        return ask({"minimum"}, [](auto &one) { return QString::number(one.getMinLogNr()); })
            .toULongLong();
    }
    quint64 maximum()
    {
        return ask({"maximum"}, [](auto &one) { return QString::number(one.getMaxLogNr()); })
            .toULongLong();
    }
    QString entry(quint64 logNr, const QString &lang)
    {
        return ask({"entry", logNr, logNr, lang},
                   [&](auto &one) { return one.jsonEntry(logNr, lang); });
    }
    //! Empty where it is refused.
    QString range(quint64 start, quint64 end, const QString &lang, quint64 limit)
    {
        QString answer = ask({"range", start, end, lang, limit}, [&](auto &one) {
            return one.jsonRange(start, end, lang, limit).value_or(QString());
        });
        tally.refusals += answer.isEmpty() ? 1 : 0;
        return answer;
    }
    void changed()
    {
        literal.logfileChanged();
        reader.logfileChanged();
    }
    void rotated()
    {
        literal.logfilesRotated();
        reader.logfilesRotated();
    }

    /*!
     * From here on an answer may differ, as long as there is one: what stood in a
     * file that was cut behind the reader's back is nothing to agree upon.
     */
    void tolerate(bool differences) { tolerant = differences; }

    //! Null while both agree.
    [[nodiscard]] QString difference() const { return firstDifference; }

private:
    template <typename Ask>
    QString ask(const Question &question, const Ask &answerOf);
    void compare(const Question &question, const QString &expected, const QString &answer);

    LiteralReader literal;
    SystemeventLogfileReader reader;
    Tally &tally;
    bool tolerant = false;
    QString firstDifference;
};

template <typename Ask>
QString TwoReaders::ask(const Question &question, const Ask &answerOf)
{
    QString expected = answerOf(literal);
    const QStringList expectedMessages = Messages::takeAll();
    const QString answer = answerOf(reader);
    const QStringList messages = Messages::takeAll();
    if (tolerant) {
        return expected;
    }
    compare(question, expected, answer);
    if (messages != expectedMessages) {
        compare(question, expectedMessages.join(QLatin1Char('\n')),
                messages.join(QLatin1Char('\n')));
    }
    ++tally.questions;
    tally.messages += quint64(messages.size());
    tally.characters += quint64(expected.size());
    tally.look(expected);
    return expected;
}

void TwoReaders::compare(const Question &question, const QString &expected, const QString &answer)
{
    if (expected != answer && firstDifference.isNull()) {
        firstDifference = "%1 %2 to %3 in '%4' below %5"_s.arg(QLatin1String(question.name))
                              .arg(question.start)
                              .arg(question.end)
                              .arg(question.lang)
                              .arg(question.limit)
            + parting(expected, answer);
    }
}

//! How many seeds of each kind to compare at most.
int mostSeeds()
{
    return numberFromEnvironment("SEL_COMPARISON_SEEDS", std::numeric_limits<int>::max());
}

} // namespace

ReadFaults *readFaults()
{
    return &faults;
}

class ReaderComparisonTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void randomDirectories_data() { seeds(10); }
    void randomDirectories();
    void everyLength_data() { seeds(6); }
    void everyLength();
    void everyByteChanged_data() { seeds(6); }
    void everyByteChanged();
    void recordAtAWindowsEdge_data();
    void recordAtAWindowsEdge();
    void manyRecords_data() { seeds(3); }
    void manyRecords();
    void largeFiles_data() { seeds(3); }
    void largeFiles();
    void unreadableBytes_data() { seeds(4); }
    void unreadableBytes();
    void growingTexts_data() { seeds(2); }
    void growingTexts();
    void costlyTexts_data() { seeds(2); }
    void costlyTexts();
    void comparedEnough();

private:
    static void seeds(int count);
    void fillFolder(RandomLogs &logs, Dice &dice);
    void changeFolder(TwoReaders &readers, RandomLogs &logs, Dice &dice);
    void appendToCurrent(TwoReaders &readers, RandomLogs &logs, Dice &dice);
    void rotate(TwoReaders &readers, RandomLogs &logs, Dice &dice);
    void spoil(const QString &name, Dice &dice) const;
    void cutUnnoticed(TwoReaders &readers, const RandomLogs &logs, Dice &dice);
    static void askSomething(TwoReaders &readers, RandomLogs &logs, Dice &dice);
    static void askForEntry(TwoReaders &readers, RandomLogs &logs, Dice &dice);
    static void askForRange(TwoReaders &readers, RandomLogs &logs, Dice &dice);
    static void askForEverything(TwoReaders &readers, const QString &lang);
    void compareFile(RandomLogs &logs, const QByteArray &bytes, const QString &round);

    RewrittenFolder folder;
    Tally tally;
};

void ReaderComparisonTest::initTestCase()
{
    const QStringList texts{"readerror"_s,
                            "unknown argument type! further errors ahead!"_s,
                            "type: \\\"UNKNOWN\\\", more errors in this logentry possible"_s,
                            "unknown type, expect more errors in this entry!"_s,
                            "Lookup of typeid "_s,
                            "Meta-Error: Id:"_s,
                            "nan"_s,
                            "inf"_s,
                            "-inf"_s,
                            "e+"_s,
                            "e-"_s,
                            "12.0312"_s,
                            "-0"_s,
                            "\\u0000"_s,
                            "\\u001F"_s,
                            "\\n"_s,
                            "\\\""_s,
                            "\\\\"_s,
                            "%L"_s,
                            "%1"_s,
                            "%99"_s,
                            ",\n,\n"_s,
                            "[]"_s,
                            "-9223372036854775808"_s,
                            "18446744073709551615"_s,
                            "4611686018427387904"_s,
                            QString(QChar(0xFF)),
                            QString(QChar(0x661)),
                            QString(QChar(0x20AC)),
                            QString(QChar(0xD83D)),
                            QString(QChar(0xFEFF)),
                            QString(QChar(0xFFFD))};
    for (const QString &text : texts) {
        tally.sights.push_back({text});
    }
}

void ReaderComparisonTest::init()
{
    QLocale::setDefault(QLocale::c());
    faults.heal();
    faults.interrupted = false;
}

void ReaderComparisonTest::seeds(int count)
{
    count = std::min(count, mostSeeds());
    QTest::addColumn<quint32>("seed");
    for (quint32 seed = 1; seed <= quint32(count); ++seed) {
        QTest::newRow(qPrintable("seed %1"_s.arg(seed))) << seed;
    }
}

void ReaderComparisonTest::fillFolder(RandomLogs &logs, Dice &dice)
{
    folder.clear();
    const int files = dice.chance(60) ? 1 : dice.below(5);
    const int ages = dice.chance(20) ? 1 : 5; // now and then all of one age
    QByteArray last;
    for (int i = 0; i < files; ++i) {
        const QString name = dice.chance(50) ? "zib0.log"_s : logs.fileName();
        if (dice.chance(8)) {
            logs.jump();
        }
        last = i > 0 && dice.chance(5) ? last : logs.file(); // or the same once more
        folder.put(name, last, dice.below(ages));
    }
    folder.removeOthers();
    if (dice.chance(1)) {
        folder.makeFolder(dice.oneOf(QStringList{"zib0x"_s, "zib3"_s}));
    }
}

void ReaderComparisonTest::appendToCurrent(TwoReaders &readers, RandomLogs &logs, Dice &dice)
{
    QByteArray bytes = logs.records(dice.between(1, 4));
    if (dice.chance(25)) {
        logs.damage(bytes);
    }
    const QString current = "zib0.log"_s;
    if (folder.has(current)) {
        folder.append(current, bytes);
    } else {
        folder.put(current, bytes, 0);
    }
    readers.changed();
}

void ReaderComparisonTest::rotate(TwoReaders &readers, RandomLogs &logs, Dice &dice)
{
    const auto name = [](int index) { return "zib"_s + QString::number(index) + ".log"_s; };
    for (int index = 12; index >= 0; --index) {
        if (folder.has(name(index))) {
            folder.rename(name(index), name(index + 1));
        }
    }
    if (dice.chance(80)) {
        folder.put(name(0), logs.records(dice.below(3)), 0);
    }
    if (dice.chance(90)) {
        readers.rotated();
    }
    if (dice.chance(50)) {
        readers.changed();
    }
}

void ReaderComparisonTest::cutUnnoticed(TwoReaders &readers, const RandomLogs &logs, Dice &dice)
{
    if (folder.names().isEmpty()) {
        return;
    }
    const QString name = dice.oneOf(folder.names());
    const QByteArray content = folder.content(name);
    folder.put(name, content.left(dice.below(int(content.size()) + 1)), 0);
    readers.tolerate(true);
    for (const quint64 number : logs.logNumbers()) {
        (void)readers.entry(number, "en"_s);
    }
    readers.changed();
    (void)readers.range(readers.minimum(), readers.maximum(), "en"_s, usualLimit);
    readers.rotated();
    readers.tolerate(false);
}

void ReaderComparisonTest::changeFolder(TwoReaders &readers, RandomLogs &logs, Dice &dice)
{
    const QStringList names = folder.names();
    const int kind = dice.below(12);
    if (kind < 5) {
        appendToCurrent(readers, logs, dice);
    } else if (kind < 7) {
        rotate(readers, logs, dice);
    } else if (kind == 7) {
        readers.changed(); // although nothing did
    } else if (kind == 8) {
        cutUnnoticed(readers, logs, dice);
    } else if (kind == 9) {
        folder.put(logs.fileName(), logs.file(), dice.below(5));
        readers.rotated();
    } else if (!names.isEmpty()) {
        folder.remove(dice.oneOf(names)); // unnoticed as a rule: the files are open
        if (dice.chance(30)) {
            readers.rotated();
        }
    }
}

void ReaderComparisonTest::askForEntry(TwoReaders &readers, RandomLogs &logs, Dice &dice)
{
    static const std::array<quint64, 6> absent{0,       1,           1000000,
                                               highest, highest / 2, highest / 4 + 1};
    const bool known = dice.chance(85) && !logs.logNumbers().isEmpty();
    const quint64 number = known ? dice.oneOf(logs.logNumbers()) : dice.oneOf(absent);
    const QString lang = logs.language();
    (void)readers.entry(number, lang);
    if (dice.chance(15)) {
        (void)readers.entry(number, lang); // where it lies before its file, not the same again
    }
}

void ReaderComparisonTest::askForRange(TwoReaders &readers, RandomLogs &logs, Dice &dice)
{
    const quint64 middle = logs.logNumbers().isEmpty() ? 0 : dice.oneOf(logs.logNumbers());
    const quint64 start = middle - quint64(dice.below(4));
    const quint64 end = dice.chance(5) ? highest : middle + quint64(dice.below(10));
    const QString lang = logs.language();
    const QString whole = readers.range(start, end, lang, usualLimit);
    if (dice.chance(50)) {
        // The size that is just refused, and its neighbours; or any small one.
        const auto size = quint64(whole.toUtf8().size());
        const quint64 limit
            = dice.chance(60) ? size + quint64(dice.below(3)) - 1 : quint64(dice.below(800));
        (void)readers.range(start, end, lang, std::min(limit, usualLimit));
    }
}

void ReaderComparisonTest::askForEverything(TwoReaders &readers, const QString &lang)
{
    const quint64 first = readers.minimum();
    const quint64 last = readers.maximum();
    (void)readers.range(first, last, lang, usualLimit);
}

void ReaderComparisonTest::askSomething(TwoReaders &readers, RandomLogs &logs, Dice &dice)
{
    for (int questions = dice.between(1, 4); questions > 0; --questions) {
        switch (dice.below(10)) {
        case 0:
            (void)readers.minimum();
            break;
        case 1:
            (void)readers.maximum();
            break;
        case 2:
        case 3:
            askForEverything(readers, logs.language());
            break;
        case 4:
        case 5:
        case 6:
            askForRange(readers, logs, dice);
            break;
        default:
            askForEntry(readers, logs, dice);
        }
    }
}

void ReaderComparisonTest::randomDirectories()
{
    QFETCH(quint32, seed);
    constexpr quint32 rounds = 1600;
    static const std::array<const char *, 8> locales{"C",     "C",     "C",     "C",
                                                     "en_US", "de_DE", "ar_EG", "hi_IN"};
    const Messages heard;
    for (quint32 round = 0; round < rounds; ++round) {
        Dice dice(seed, round);
        RandomLogs logs(dice);
        QLocale::setDefault(QLocale(QLatin1String(dice.oneOf(locales))));
        fillFolder(logs, dice);
        TwoReaders readers(folder.dir(), &logs.catalogue(), tally);
        askSomething(readers, logs, dice);
        for (int changes = dice.chance(50) ? 0 : dice.between(1, 4); changes > 0; --changes) {
            changeFolder(readers, logs, dice);
            askSomething(readers, logs, dice);
        }
        QVERIFY2(readers.difference().isNull(),
                 qPrintable("round %1: %2"_s.arg(round).arg(readers.difference())));
    }
}

//! Compares all that one file holds: its last record first, then everything.
void ReaderComparisonTest::compareFile(RandomLogs &logs, const QByteArray &bytes,
                                       const QString &round)
{
    folder.clear();
    folder.put("zib0.log"_s, bytes, 0);
    folder.removeOthers();
    TwoReaders readers(folder.dir(), &logs.catalogue(), tally);
    (void)readers.entry(readers.maximum(), "en"_s);
    (void)readers.range(readers.minimum(), readers.maximum(), "en"_s, noLimit / 1000);
    QVERIFY2(readers.difference().isNull(), qPrintable(round + ": "_s + readers.difference()));
}

void ReaderComparisonTest::everyLength()
{
    QFETCH(quint32, seed);
    constexpr int longest = 400;
    const Messages heard;
    Dice dice(seed, 0);
    RandomLogs logs(dice);
    const QByteArray whole = logs.records(20).left(longest);
    for (int length = 0; length <= whole.size(); ++length) {
        compareFile(logs, whole.left(length), "length %1"_s.arg(length));
        if (QTest::currentTestFailed()) {
            return;
        }
    }
}

void ReaderComparisonTest::everyByteChanged()
{
    QFETCH(quint32, seed);
    const Messages heard;
    Dice dice(seed, 1);
    RandomLogs logs(dice);
    const QByteArray whole = logs.records(5).right(300);
    for (int at = 0; at < whole.size(); ++at) {
        for (const int change : {0xFF, 1 << dice.below(8)}) {
            QByteArray damaged = whole;
            damaged[at] = char(damaged[at] ^ change);
            compareFile(logs, damaged, "byte %1 changed by %2"_s.arg(at).arg(change));
            if (QTest::currentTestFailed()) {
                return;
            }
        }
    }
}

void ReaderComparisonTest::recordAtAWindowsEdge_data()
{
    QTest::addColumn<int>("window");
    QTest::addColumn<bool>("fromTheEnd");
    for (const int window : {4096, 8192, 16384, 32768, 65536, 131072}) {
        QTest::addRow("%d bytes from the start", window) << window << false;
        QTest::addRow("%d bytes from the end", window) << window << true;
    }
}

//! Whatever part of a file is held in memory, a record may lie across its edge.
void ReaderComparisonTest::recordAtAWindowsEdge()
{
    QFETCH(int, window);
    QFETCH(bool, fromTheEnd);
    const Messages heard;
    for (int shift = 0; shift < 100; ++shift) {
        Dice dice(static_cast<quint32>(window), static_cast<quint32>(shift));
        RandomLogs logs(dice);
        const int fillers = window / (dice.chance(50) ? 8192 : 32768) + 1;
        const int bytes = window - shift;
        const int overhead = int(logs.filler(0).size());
        QByteArray filling;
        for (int i = 1; i <= fillers; ++i) {
            const int share = i < fillers ? bytes / fillers : bytes - int(filling.size());
            filling += logs.filler(std::max(share - overhead, 0));
        }
        const QByteArray target = logs.records(3);
        const QByteArray file = fromTheEnd ? target + filling : filling + target;
        compareFile(logs, file, "shift %1"_s.arg(shift));
        if (QTest::currentTestFailed()) {
            return;
        }
    }
}

void ReaderComparisonTest::manyRecords()
{
    QFETCH(quint32, seed);
    constexpr quint32 rounds = 20;
    const Messages heard;
    for (quint32 round = 0; round < rounds; ++round) {
        Dice dice(seed, 10000 + round);
        RandomLogs logs(dice);
        folder.clear();
        for (int index = dice.below(13); index >= 0; --index) {
            folder.put("zib"_s + QString::number(index) + ".log"_s,
                       logs.records(dice.between(20, 150)), index);
        }
        folder.removeOthers();
        TwoReaders readers(folder.dir(), &logs.catalogue(), tally);
        const quint64 first = readers.minimum();
        (void)readers.range(first, readers.maximum(), "en"_s, noLimit);
        for (int i = 0; i < 20; ++i) {
            askForEntry(readers, logs, dice);
        }
        for (int appended = 0; appended < 3; ++appended) {
            appendToCurrent(readers, logs, dice);
            askSomething(readers, logs, dice);
        }
        QVERIFY2(readers.difference().isNull(),
                 qPrintable("round %1: %2"_s.arg(round).arg(readers.difference())));
    }
}

void ReaderComparisonTest::largeFiles()
{
    QFETCH(quint32, seed);
    constexpr quint32 rounds = 8;
    constexpr int size = 350000;
    const Messages heard;
    for (quint32 round = 0; round < rounds; ++round) {
        Dice dice(seed, 20000 + round);
        RandomLogs logs(dice);
        QByteArray bytes;
        while (bytes.size() < size) {
            bytes += dice.chance(3)
                ? logs.filler(dice.chance(90) ? dice.between(1000, 65000) : 65535)
                : logs.record();
        }
        for (int damages = dice.below(3); damages > 0; --damages) {
            logs.damage(bytes);
        }
        folder.clear();
        folder.put("zib0.log"_s, bytes, 0);
        folder.removeOthers();
        TwoReaders readers(folder.dir(), &logs.catalogue(), tally);
        (void)readers.range(readers.minimum(), readers.maximum(), "en"_s, noLimit / 100);
        for (int i = 0; i < 10; ++i) {
            askForEntry(readers, logs, dice);
            askForRange(readers, logs, dice);
        }
        QVERIFY2(readers.difference().isNull(),
                 qPrintable("round %1: %2"_s.arg(round).arg(readers.difference())));
    }
}

//! Makes sectors of a file unreadable, from one to all of them.
void ReaderComparisonTest::spoil(const QString &name, Dice &dice) const
{
    constexpr int sector = 512;
    const int sectors = int(folder.content(name).size()) / sector + 1;
    const QByteArray path = QFile::encodeName(folder.dir().filePath(name));
    for (int areas = dice.between(1, 5); areas > 0; --areas) {
        const int length = dice.oneOf(std::array<int, 6>{1, 1, 2, 8, 16, 130});
        const int unit = dice.chance(50) ? length : 1;
        const int begin = dice.below(sectors) / unit * unit;
        faults.spoil(path.constData(), qint64(begin) * sector, qint64(begin + length) * sector);
    }
    faults.interrupted = dice.chance(20);
}

void ReaderComparisonTest::unreadableBytes()
{
    QFETCH(quint32, seed);
    constexpr quint32 rounds = 30;
    const Messages heard;
    const quint64 failuresBefore = faults.failures;
    for (quint32 round = 0; round < rounds; ++round) {
        Dice dice(seed, 40000 + round);
        RandomLogs logs(dice);
        faults.heal();
        folder.clear();
        for (int index = dice.below(3); index >= 0; --index) {
            const QString name = "zib"_s + QString::number(index) + ".log"_s;
            QByteArray bytes = logs.records(dice.oneOf(std::array<int, 4>{2, 20, 200, 1500}));
            bytes += dice.chance(20) ? logs.filler(dice.between(1000, 65535)) : QByteArray();
            folder.put(name, bytes + logs.records(dice.below(40)), index);
            spoil(name, dice);
        }
        folder.removeOthers();
        TwoReaders readers(folder.dir(), &logs.catalogue(), tally);
        (void)readers.range(readers.minimum(), readers.maximum(), "en"_s, noLimit / 100);
        for (int i = 0; i < 10; ++i) {
            askForEntry(readers, logs, dice);
            askForRange(readers, logs, dice);
        }
        appendToCurrent(readers, logs, dice);
        askSomething(readers, logs, dice);
        rotate(readers, logs, dice);
        askSomething(readers, logs, dice);
        QVERIFY2(readers.difference().isNull(),
                 qPrintable("round %1: %2"_s.arg(round).arg(readers.difference())));
    }
    QVERIFY(faults.failures > failuresBefore);
}

void ReaderComparisonTest::growingTexts()
{
    QFETCH(quint32, seed);
    constexpr quint32 rounds = 16;
    const Messages heard;
    for (quint32 round = 0; round < rounds; ++round) {
        Dice dice(seed, 30000 + round);
        RandomLogs logs(dice);
        const QByteArray bytes = logs.growingText();
        compareFile(logs, bytes, "round %1"_s.arg(round));
        if (QTest::currentTestFailed()) {
            return;
        }
    }
}

//! Many texts of one answer that grow, which share its work, with plain ones between them.
void ReaderComparisonTest::costlyTexts()
{
    QFETCH(quint32, seed);
    constexpr quint32 rounds = 4;
    const Messages heard;
    const quint64 before = tally.met.textsTooCostly;
    for (quint32 round = 0; round < rounds; ++round) {
        Dice dice(seed, 40000 + round);
        RandomLogs logs(dice);
        folder.clear();
        folder.put("zib0.log"_s, logs.costlyTexts(dice.between(50, 250)), 0);
        folder.removeOthers();
        {
            TwoReaders readers(folder.dir(), &logs.catalogue(), tally);
            const quint64 last = readers.maximum();
            (void)readers.range(readers.minimum(), last, "en"_s, noLimit);
            (void)readers.range(readers.minimum(), last, "en"_s,
                                noLimit); // with all its work again
            (void)readers.range(last - quint64(dice.below(20)), last, "en"_s, noLimit);
            QVERIFY2(readers.difference().isNull(),
                     qPrintable("round %1: %2"_s.arg(round).arg(readers.difference())));
        }
    }
    QVERIFY(tally.met.textsTooCostly > before);
}

void ReaderComparisonTest::comparedEnough()
{
    const LiteralReader::Encounters &met = tally.met;
    qInfo("%llu directories, %llu questions (%llu refused), %llu records, %llu characters, "
          "%llu messages compared",
          tally.directories, tally.questions, tally.refusals, met.records, tally.characters,
          tally.messages);
    qInfo("met: %llu records before their file, %llu of an unopened one, %llu short numbers, "
          "%llu short values, %llu values with a percent sign, %llu texts too long, "
          "%llu too costly, %llu messages of read errors",
          met.recordsBeforeTheFile, met.recordsOfAnUnopenedFile, met.shortNumbers, met.shortValues,
          met.percentValues, met.textsTooLong, met.textsTooCostly, met.readErrorMessages);
    if (tally.directories == 0) {
        QSKIP("counts what the other tests compared");
    }
    if (mostSeeds() < std::numeric_limits<int>::max()) {
        QSKIP("fewer seeds do not meet everything");
    }
    constexpr quint64 enough = 20000;
    QVERIFY(tally.directories >= enough);
    QVERIFY(tally.refusals > 0);
    QVERIFY(met.recordsBeforeTheFile > 0);
    QVERIFY(met.recordsOfAnUnopenedFile > 0);
    QVERIFY(met.shortNumbers > 0);
    QVERIFY(met.shortValues > 0);
    QVERIFY(met.percentValues > 0);
    QVERIFY(met.textsTooLong > 0);
    QVERIFY(met.textsTooCostly > 0);
    QVERIFY(met.readErrorMessages > 0);
    for (const int type : {-1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 255}) {
        QVERIFY2(met.types.count(type) > 0, qPrintable(QString::number(type)));
    }
    for (const int type : {-1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}) {
        QVERIFY2(met.variantTypes.count(type) > 0, qPrintable(QString::number(type)));
    }
    for (const Sight &sight : tally.sights) {
        QVERIFY2(sight.seen > 0, qPrintable(sight.text));
    }
}

QTEST_GUILESS_MAIN(ReaderComparisonTest)
#include "tst_readercomparison.moc"
