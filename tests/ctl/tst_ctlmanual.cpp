// SPDX-License-Identifier: Apache-2.0

// The manual page and the help of the tool tell the same commands and options.

#include "ctl/ctlprocess.h"
#include "support/literals.h"

#include <QFile>
#include <QMap>
#include <QRegularExpression>
#include <QSet>
#include <QTest>

#include <algorithm>
#include <utility>

namespace
{

//! All matches of an expression, each as its captured texts.
QList<QStringList> matches(const QString &expression, const QString &text)
{
    QList<QStringList> found;
    QRegularExpressionMatchIterator each
        = QRegularExpression(expression, QRegularExpression::MultilineOption).globalMatch(text);
    while (each.hasNext()) {
        found.append(each.next().capturedTexts());
    }
    return found;
}

QString helpOf(const QString &command)
{
    const QStringList words = command.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    return QString::fromUtf8(runCtl(words + QStringList{"--help"_s}).out);
}

//! Options of a help as "-D, --directory" and so on.
QSet<QString> optionsOf(const QString &help)
{
    QSet<QString> found;
    for (const QStringList &option :
         matches("^ {2,6}((?:-\\w, )?--[\\w-]+)"_s, help.section("\nOptions:\n"_s, 1))) {
        found.insert(option[1]);
    }
    return found;
}

//! The shorter of an option's names.
QString shortName(const QString &names)
{
    return names.section(", "_s, 0, 0);
}

} // namespace

class CtlManualTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void commands();
    void options_data();
    void options();
    void explanations();
    void examples_data();
    void examples();

private:
    [[nodiscard]] QString section(const QString &title) const
    {
        return page.section("\n.SH "_s + title + QLatin1Char('\n'), 1)
            .section("\n.SH "_s, 0, 0)
            .prepend(QLatin1Char('\n'));
    }
    void addCommands() const
    {
        QTest::addColumn<QString>("command");
        for (const QString &command : told) {
            QTest::newRow(qPrintable(command)) << command;
        }
    }

    QString page;                       //!< its source, without what only sets type
    QStringList told;                   //!< commands, of the help
    QMap<QString, QStringList> written; //!< options by command, of the page
};

void CtlManualTest::initTestCase()
{
    QFile file(QString::fromLocal8Bit(qgetenv("SEL_MANUAL")));
    QVERIFY(file.open(QIODevice::ReadOnly));
    page = QString::fromUtf8(file.readAll());
    page.replace("\\-"_s, "-"_s).remove(QRegularExpression("\\\\f[BIRP]"_s));

    const QString list = helpOf({}).section("\nCommands:\n"_s, 1).section("\n\n"_s, 0, 0);
    for (const QStringList &command : matches("^  (\\w+(?: \\w+)?)  "_s, list)) {
        told.append(command[1]);
    }
    const QStringList entries = section("COMMANDS"_s).split("\n.TP\n"_s).mid(1);
    for (const QString &entry : entries) {
        const QList<QStringList> name = matches("\\A\\.B[RI]? (?:\"([^\"]+)\"|(\\S+))"_s, entry);
        const QList<QStringList> its = matches("^\\.RB \"Options: \" \"(.*)\"$"_s, entry);
        QVERIFY2(name.size() == 1 && its.size() == 1, qPrintable(entry));
        written.insert(name[0][1] + name[0].value(2), its[0][1].split(QLatin1Char(' ')));
    }
}

void CtlManualTest::commands()
{
    QStringList sorted = told;
    std::sort(sorted.begin(), sorted.end());
    QCOMPARE(QStringList(written.keys()), sorted);
}

void CtlManualTest::options_data()
{
    addCommands();
}

// -h stands once, for all of them.
void CtlManualTest::options()
{
    QFETCH(QString, command);
    QStringList expected;
    for (const QString &names : optionsOf(helpOf(command))) {
        expected.append(shortName(names));
    }
    expected.removeOne("-h"_s);
    std::sort(expected.begin(), expected.end());
    QStringList found = written.value(command);
    std::sort(found.begin(), found.end());
    QCOMPARE(found, expected);
}

void CtlManualTest::explanations()
{
    QSet<QString> expected = optionsOf(helpOf({}));
    for (const QString &command : std::as_const(told)) {
        expected += optionsOf(helpOf(command));
    }
    QSet<QString> found;
    for (const QStringList &tag :
         matches("^\\.TP\n\\.BR (?:(-\\w) \", \" )?(--[\\w-]+)"_s, section("OPTIONS"_s))) {
        found.insert(tag[1].isEmpty() ? tag[2] : tag[1] + ", "_s + tag[2]);
    }
    QCOMPARE(found, expected);
}

void CtlManualTest::examples_data()
{
    addCommands();
}

void CtlManualTest::examples()
{
    QFETCH(QString, command);
    QVERIFY(section("EXAMPLES"_s).contains("systemeventctl "_s + command));
}

QTEST_GUILESS_MAIN(CtlManualTest)
#include "tst_ctlmanual.moc"
