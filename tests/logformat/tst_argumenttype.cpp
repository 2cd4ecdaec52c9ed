// SPDX-License-Identifier: Apache-2.0
#include "logformat/argumenttype.h"
#include "logformat/encoding.h"
#include "messages/boundedmessages.h"
#include "messages/messagebound.h"
#include "support/literals.h"

#include <QDBusObjectPath>
#include <QtTest>

class ArgumentTypeTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void codeOfTypeName_data();
    void codeOfTypeName();
    void codeOfLiveValue_data();
    void codeOfLiveValue();
    void valueWithoutCode_data();
    void valueWithoutCode();
    void longValuesAreShownInPart_data();
    void longValuesAreShownInPart();
    void whatIsNotShownIsNotMade();
    void primaryTypeOfValue_data();
    void primaryTypeOfValue();
};

void ArgumentTypeTest::init()
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 3, 0)
    QTest::failOnWarning(QRegularExpression(QStringLiteral(".?")));
#endif
}

void ArgumentTypeTest::codeOfTypeName_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("code");

    QTest::newRow("byte is 0") << "byte"_s << 0;
    QTest::newRow("bool is 1") << "bool"_s << 1;
    QTest::newRow("int16 is 2") << "int16"_s << 2;
    QTest::newRow("int32 is 3") << "int32"_s << 3;
    QTest::newRow("int64 is 4") << "int64"_s << 4;
    QTest::newRow("uint64 is 5") << "uint64"_s << 5;
    QTest::newRow("float is 6") << "float"_s << 6;
    QTest::newRow("double is 7") << "double"_s << 7;
    QTest::newRow("string is 8") << "string"_s << 8;
    QTest::newRow("bytearray is 9") << "bytearray"_s << 9;
    QTest::newRow("variant is 10") << "variant"_s << 10;
    QTest::newRow("enum is 11") << "enum"_s << 11;
    QTest::newRow("a blank after the name makes it unknown") << "enum "_s << -1;
    QTest::newRow("a blank before the name makes it unknown") << " int32"_s << -1;
    QTest::newRow("another case is unknown") << "Int32"_s << -1;
    QTest::newRow("upper case is unknown") << "ENUM"_s << -1;
    QTest::newRow("the beginning of a name is unknown") << "int"_s << -1;
    QTest::newRow("a name with more behind it is unknown") << "int32t"_s << -1;
    QTest::newRow("uint32 is unknown") << "uint32"_s << -1;
    QTest::newRow("an empty name is unknown") << ""_s << -1;
    QTest::newRow("a null name is unknown") << QString() << -1;
}

void ArgumentTypeTest::codeOfTypeName()
{
    QFETCH(QString, name);

    QTEST(typeFromName(name), "code");
}

void ArgumentTypeTest::codeOfLiveValue_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<int>("code");

    QTest::newRow("bool is bool") << QVariant(true) << 1;
    QTest::newRow("int is int32") << QVariant(5) << 3;
    QTest::newRow("unsigned int is int32") << QVariant(uint(7)) << 3;
    QTest::newRow("largest unsigned int is int32") << QVariant(4294967295U) << 3;
    QTest::newRow("64-bit integer is int64") << QVariant(qint64(5)) << 4;
    QTest::newRow("double is double") << QVariant(3.5) << 7;
    QTest::newRow("character is byte") << QVariant(QChar(u'a')) << 0;
    QTest::newRow("string is string") << QVariant("x"_s) << 8;
    QTest::newRow("null string is string") << QVariant(QString()) << 8;
}

void ArgumentTypeTest::codeOfLiveValue()
{
    QFETCH(QVariant, value);

    QTEST(LogFormat::lookupVariant(value), "code");
}

void ArgumentTypeTest::valueWithoutCode_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("shown"); // null where Qt's versions differ

    QTest::newRow("unsigned 64-bit integer has no code")
        << QVariant(quint64(5)) << "QVariant(qulonglong, 5)"_s;
    QTest::newRow("invalid value has no code") << QVariant() << "QVariant(Invalid)"_s;
    QTest::newRow("float has no code") << QVariant::fromValue(1.5F) << "QVariant(float, 1.5)"_s;
    QTest::newRow("unsigned char has no code") << QVariant::fromValue<uchar>(65) << QString();
    QTest::newRow("char has no code") << QVariant::fromValue<char>('A') << QString();
    QTest::newRow("signed char has no code") << QVariant::fromValue<signed char>(65) << QString();
    QTest::newRow("short has no code") << QVariant::fromValue<short>(5) << QString();
    QTest::newRow("unsigned short has no code") << QVariant::fromValue<ushort>(5) << QString();
    QTest::newRow("long has no code") << QVariant::fromValue<long>(5) << QString();
    QTest::newRow("unsigned long has no code") << QVariant::fromValue<ulong>(5) << QString();
    QTest::newRow("byte array has no code") << QVariant(QByteArray("abc")) << QString();
    QTest::newRow("string list has no code") << QVariant(QStringList{"a"_s}) << QString();
    QTest::newRow("list of values has no code") << QVariant(QVariantList{1}) << QString();
    QTest::newRow("object path has no code")
        << QVariant::fromValue(QDBusObjectPath("/a"_s)) << QString();
    QTest::newRow("wrapped value has no code of its own, and shows as QtDBus names it")
        << QVariant::fromValue(WrappedValue{5}) << "QVariant(QDBusVariant, )"_s;
}

void ArgumentTypeTest::valueWithoutCode()
{
    QFETCH(QVariant, value);
    QFETCH(QString, shown);

    if (shown.isNull()) {
        QDebug(&shown).nospace() << value;
    }
    const QString message
        = "SystemeventArgument::lookupVariant( "_s + shown + " ): unknown type;"_s;
    QTest::ignoreMessage(QtDebugMsg, message.toUtf8().constData());

    QCOMPARE(LogFormat::lookupVariant(value), -1);
}

void ArgumentTypeTest::longValuesAreShownInPart_data()
{
    QTest::addColumn<QVariant>("value");

    QStringList many;
    QStringList empty;
    for (int i = 0; i < 5000; ++i) {
        many.append("text "_s + QString::number(i));
        empty.append(QString());
    }
    const QString text(100000, u'x');
    QTest::newRow("bytes") << QVariant(QByteArray(100000, 'x'));
    QTest::newRow("bytes that are not printable") << QVariant(QByteArray(100000, '\x9C'));
    QTest::newRow("many texts") << QVariant(many);
    QTest::newRow("a long text among others") << QVariant(QStringList{"short"_s, text, "short"_s});
    QTest::newRow("empty texts") << QVariant(empty);
    QTest::newRow("as many as can be seen whole") << QVariant(many.mid(0, 200));
}

//! What can be seen of the message, which is cut further on, is what it always was.
void ArgumentTypeTest::longValuesAreShownInPart()
{
    QFETCH(QVariant, value);
    QString shown;
    QDebug(&shown).nospace() << value;
    const QString whole = "SystemeventArgument::lookupVariant( "_s + shown + " ): unknown type;"_s;
    static QString heard;
    const QtMessageHandler before = qInstallMessageHandler(
        [](QtMsgType, const QMessageLogContext &, const QString &message) { heard = message; });
    const int code = LogFormat::lookupVariant(value);
    qInstallMessageHandler(before);

    QCOMPARE(code, -1);
    QCOMPARE(MessageBound::shortened(heard), MessageBound::shortened(whole));
    QVERIFY(heard.size() < 10 * MessageBound::mostLength);
}

void ArgumentTypeTest::whatIsNotShownIsNotMade()
{
    static int heard = 0;
    heard = 0;
    const QtMessageHandler before = qInstallMessageHandler(
        [](QtMsgType, const QMessageLogContext &, const QString &) { ++heard; });
    const QVariant value(QByteArray(MessageBound::mostLength, '\x9C'));
    constexpr int many = 200 * MessageBound::mostLines;
    QElapsedTimer timer;
    qint64 shown = 0;
    qint64 leftOut = 0;
    {
        const BoundedMessages messages;
        timer.start();
        for (int i = 0; i < MessageBound::mostLines; ++i) {
            (void)LogFormat::lookupVariant(value);
        }
        shown = timer.restart();
        for (int i = 0; i < many; ++i) {
            (void)LogFormat::lookupVariant(value);
        }
        leftOut = timer.elapsed();
    }
    qInstallMessageHandler(before);
    qInfo("%d shown: %lld ms, %d left out: %lld ms", MessageBound::mostLines, shown, many, leftOut);

    QCOMPARE(heard, MessageBound::mostLines + 1);   // and how many there were besides
    QVERIFY(leftOut < 20 * qMax(shown, qint64(1))); // two hundred times as many
}

void ArgumentTypeTest::primaryTypeOfValue_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<int>("type");

    QTest::newRow("built-in type is reported as it is") << QVariant(5) << int(QMetaType::Int);
    QTest::newRow("unsigned char is no user type")
        << QVariant::fromValue<uchar>(1) << int(QMetaType::UChar);
    QTest::newRow("float is no user type") << QVariant::fromValue(1.0F) << int(QMetaType::Float);
    QTest::newRow("long is no user type") << QVariant::fromValue<long>(1) << int(QMetaType::Long);
    QTest::newRow("invalid value is of the unknown type")
        << QVariant() << int(QMetaType::UnknownType);
    QTest::newRow("wrapped value is a user type")
        << QVariant::fromValue(WrappedValue{5}) << int(QMetaType::User);
    QTest::newRow("object path is a user type")
        << QVariant::fromValue(QDBusObjectPath("/a"_s)) << int(QMetaType::User);
}

void ArgumentTypeTest::primaryTypeOfValue()
{
    QFETCH(QVariant, value);

    QTEST(primaryType(value), "type");
}

QTEST_GUILESS_MAIN(ArgumentTypeTest)

#include "tst_argumenttype.moc"
