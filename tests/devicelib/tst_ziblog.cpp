// SPDX-License-Identifier: Apache-2.0
#include "devicelib/ziblog.h"

#include "support/literals.h"

#include <QtTest>

#include <memory>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using zib::Ziblog;
using zib::ziblog;

namespace
{

//! Stands in for the system's logger, behind /dev/log.
class SystemLogger
{
public:
    SystemLogger()
        : socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        qstrncpy(address.sun_path, path, sizeof(address.sun_path));
        bound = bind(socket, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0;
    }
    ~SystemLogger()
    {
        close(socket);
        if (bound) {
            unlink(path);
        }
    }
    Q_DISABLE_COPY_MOVE(SystemLogger)

    [[nodiscard]] bool isBound() const { return bound; }

    //! The next datagram that has arrived, null when there is none.
    [[nodiscard]] QByteArray next() const
    {
        QByteArray datagram(4096, '\0');
        const ssize_t size
            = recv(socket, datagram.data(), std::size_t(datagram.size()), MSG_DONTWAIT);
        return size < 0 ? QByteArray() : datagram.left(int(size));
    }

private:
    static constexpr const char *path = "/dev/log";

    int socket;
    bool bound;
};

std::unique_ptr<SystemLogger> &currentLogger()
{
    static auto instance = std::make_unique<SystemLogger>();
    return instance;
}

SystemLogger &logger()
{
    return *currentLogger();
}

struct Heard {
    QtMsgType type;
    QString message;
};

//! What reached those who heard the messages before the channel was opened.
QList<Heard> heardElsewhere;

void listenElsewhere(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    heardElsewhere.append({type, message});
}

//! Lets Qt hear a message; a fatal one without its consequence.
void say(QtMsgType type, const QString &message)
{
    const QtMessageHandler handler = qInstallMessageHandler(nullptr);
    qInstallMessageHandler(handler);
    handler(type, QMessageLogContext(), message);
}

void openChannel()
{
    ziblog.open("com.tovel.test"_s, Ziblog::Local5, Ziblog::NoOption);
}

//! Priorities of the facility local5: 21 times 8 plus the severity.
struct Priority {
    const char *name;
    const char *text;
    QtMsgType type;
    bool isWarningOrAbove;
};

constexpr Priority priorities[] = {
    {"debug is 175", "<175>", QtDebugMsg, false},
    {"info is 174", "<174>", QtInfoMsg, false},
    {"warning is 172", "<172>", QtWarningMsg, true},
    {"critical is 170", "<170>", QtCriticalMsg, true},
    {"fatal is 169", "<169>", QtFatalMsg, true},
};

} // namespace

class ZiblogTest : public QObject
{
    Q_OBJECT

    QtMessageHandler handlerOfTheTest = nullptr;

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void everyMessagePassesAtFirst_data();
    void everyMessagePassesAtFirst();
    void warningsAndAbovePassOnceTheLevelIsSet_data();
    void warningsAndAbovePassOnceTheLevelIsSet();
    void identityStandsInFrontOfTheMessage();
    void percentSignsAreText();
    void messageBeyondAsciiIsKept();
    void nothingPassesBeforeTheChannelIsOpened();
    void everyByteIsThatOfSyslog();
    void timeStampFollowsTheClock();
    void loggerThatDoesNotReadIsNotWaitedFor();
    void loggerMayComeAndGo();
};

void ZiblogTest::initTestCase()
{
    QVERIFY2(logger().isBound(), "/dev/log cannot be made: this test wants a private device");
}

void ZiblogTest::init()
{
    ziblog = Ziblog();
    heardElsewhere.clear();
    handlerOfTheTest = qInstallMessageHandler(listenElsewhere);
}

void ZiblogTest::cleanup()
{
    qInstallMessageHandler(handlerOfTheTest);
    closelog();
    QCOMPARE(logger().next(), QByteArray()); // nothing left over
}

void ZiblogTest::everyMessagePassesAtFirst_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QByteArray>("priority");

    for (const Priority &each : priorities) {
        QTest::newRow(each.name) << int(each.type) << QByteArray(each.text);
    }
}

void ZiblogTest::everyMessagePassesAtFirst()
{
    QFETCH(int, type);
    QFETCH(QByteArray, priority);
    openChannel();

    say(QtMsgType(type), "disk full"_s);

    const QByteArray datagram = logger().next();
    QVERIFY2(datagram.startsWith(priority), datagram.constData());
    QVERIFY2(datagram.endsWith(": disk full"), datagram.constData());
    QCOMPARE(heardElsewhere.size(), 1);
    QCOMPARE(int(heardElsewhere.at(0).type), type);
    QCOMPARE(heardElsewhere.at(0).message, "disk full"_s);
}

void ZiblogTest::warningsAndAbovePassOnceTheLevelIsSet_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QByteArray>("priority"); // null: does not pass

    for (const Priority &each : priorities) {
        QTest::newRow(each.name) << int(each.type)
                                 << (each.isWarningOrAbove ? QByteArray(each.text) : QByteArray());
    }
}

void ZiblogTest::warningsAndAbovePassOnceTheLevelIsSet()
{
    QFETCH(int, type);
    QFETCH(QByteArray, priority);
    openChannel();
    ziblog.setSyslogLevelWarning();

    say(QtMsgType(type), "disk full"_s);

    QCOMPARE(logger().next().left(5), priority);
    QCOMPARE(heardElsewhere.size(), 1); // others hear all of it
    QCOMPARE(int(heardElsewhere.at(0).type), type);
    QCOMPARE(heardElsewhere.at(0).message, "disk full"_s);
}

void ZiblogTest::identityStandsInFrontOfTheMessage()
{
    openChannel();

    qWarning("disk %s", "full");

    const QString datagram = QString::fromUtf8(logger().next());
    const QRegularExpression layout(
        R"(^<172>\w{3} [ \d]\d \d\d:\d\d:\d\d com\.tovel\.test: disk full$)"_s);
    QVERIFY2(layout.match(datagram).hasMatch(), qPrintable(datagram));
}

void ZiblogTest::percentSignsAreText()
{
    openChannel();

    qWarning("%s", "100 % %s %n");

    const QByteArray datagram = logger().next();
    QVERIFY2(datagram.endsWith(": 100 % %s %n"), datagram.constData());
}

void ZiblogTest::messageBeyondAsciiIsKept()
{
    openChannel();

    qWarning("%s", "T\xC3\xBCr");

    const QByteArray datagram = logger().next();
    QVERIFY2(datagram.endsWith(": T\xC3\xBCr"), datagram.constData());
    QCOMPARE(heardElsewhere.at(0).message, "Tür"_s);
}

void ZiblogTest::nothingPassesBeforeTheChannelIsOpened()
{
    qWarning("too early");

    QCOMPARE(logger().next(), QByteArray());
    QCOMPARE(heardElsewhere.size(), 1);
}

void ZiblogTest::everyByteIsThatOfSyslog()
{
    const char text[] = "T\xC3\xBCr 100 %\nopen";
    openChannel();
    openlog("com.tovel.test", 0, LOG_LOCAL5);
    QByteArray ours;
    QByteArray original;
    // Unless the second changes in between; the clock of syslog(3) lags some milliseconds.
    constexpr int attempts = 10;
    for (int i = 0; i < attempts && (ours.isNull() || ours != original); ++i) {
        QTest::qWait(ours.isNull() ? 0 : 50);
        syslog(LOG_WARNING, "%s", text);
        qWarning("%s", text);
        original = logger().next();
        ours = logger().next();
    }
    QVERIFY(!original.isEmpty());
    QCOMPARE(ours, original);
}

//! It is made into text once a second.
void ZiblogTest::timeStampFollowsTheClock()
{
    const auto timeIn = [](const QByteArray &datagram) { return datagram.mid(5, 15); };
    openChannel();
    qWarning("disk full");
    const QByteArray first = timeIn(logger().next());
    const time_t second = time(nullptr);
    QTRY_VERIFY(time(nullptr) != second);
    qWarning("disk full");
    const QByteArray next = timeIn(logger().next());
    QVERIFY2(next != first, next.constData());
    const QDateTime shown = QLocale::c().toDateTime(QString::fromLatin1(next).simplified()
                                                        + QDate::currentDate().toString(" yyyy"_s),
                                                    "MMM d hh:mm:ss yyyy"_s);
    QVERIFY(shown.secsTo(QDateTime::currentDateTime()) < 60);
}

void ZiblogTest::loggerThatDoesNotReadIsNotWaitedFor()
{
    openChannel();
    constexpr int messages = 5000; // more than any queue of the system holds
    for (int i = 0; i < messages; ++i) {
        qWarning("disk full");
    }
    int received = 0;
    while (!logger().next().isNull()) {
        ++received;
    }
    QVERIFY(received > 0);
    QVERIFY(received < messages);
    QCOMPARE(heardElsewhere.size(), messages);

    qWarning("disk empty");
    QVERIFY(logger().next().endsWith(": disk empty"));
}

void ZiblogTest::loggerMayComeAndGo()
{
    openChannel();
    currentLogger().reset();
    qWarning("nobody listens");
    currentLogger() = std::make_unique<SystemLogger>();
    QVERIFY(logger().isBound());
    QCOMPARE(logger().next(), QByteArray());

    qWarning("somebody listens");
    QVERIFY(logger().next().endsWith(": somebody listens"));
    QCOMPARE(heardElsewhere.size(), 2);
}

QTEST_GUILESS_MAIN(ZiblogTest)

#include "tst_ziblog.moc"
