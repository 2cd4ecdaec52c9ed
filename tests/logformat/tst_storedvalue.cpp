// SPDX-License-Identifier: Apache-2.0

// What is read of the bytes of a value, whole and cut off at every length.

#include "logformat/bytesource.h"
#include "logformat/storedvalue.h"
#include "support/goldenrecords.h"
#include "support/literals.h"

#include <QTest>

#include <cmath>

namespace
{

using State = StoredValue::State;

ByteSource source(const QByteArray &bytes)
{
    return ByteSource({bytes.constData(), size_t(bytes.size())});
}

} // namespace

Q_DECLARE_METATYPE(StoredValue::State)

class StoredValueTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void integers_data();
    void integers();
    void reals_data();
    void reals();
    void texts_data();
    void texts();
    void variants_data();
    void variants();
    void typesWithoutValue_data();
    void typesWithoutValue();
    void everyCutIsNoticed_data();
    void everyCutIsNoticed();
};

void StoredValueTest::integers_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<qlonglong>("integer");
    const auto hex = [](const char *digits) { return QByteArray::fromHex(digits); };
    namespace Type = ArgumentType;
    QTest::newRow("a byte has no sign") << int(Type::Byte) << hex("ff") << qlonglong(255);
    QTest::newRow("an item value has no sign") << int(Type::Enum) << hex("80") << qlonglong(128);
    QTest::newRow("a bool of 7 is true") << int(Type::Bool) << hex("07") << qlonglong(1);
    QTest::newRow("a bool of 0 is false") << int(Type::Bool) << hex("00") << qlonglong(0);
    QTest::newRow("int16 has a sign") << int(Type::Int16) << hex("ffff") << qlonglong(-1);
    QTest::newRow("int32 has a sign")
        << int(Type::Int32) << hex("00000080") << qlonglong(-2147483648);
    QTest::newRow("int64 has a sign")
        << int(Type::Int64) << hex("feffffffffffffff") << qlonglong(-2);
    QTest::newRow("uint64 keeps its bits")
        << int(Type::UInt64) << hex("ffffffffffffffff") << qlonglong(-1);
}

void StoredValueTest::integers()
{
    QFETCH(int, type);
    QFETCH(QByteArray, bytes);
    const QByteArray more = bytes + "more";
    ByteSource in = source(more);
    const StoredValue value = LogFormat::readValue(in, type);
    QVERIFY(value.isWhole());
    QCOMPARE(value.type, type);
    QVERIFY(!value.inVariant);
    QTEST(qlonglong(value.integer), "integer");
    QCOMPARE(in.position(), qint64(bytes.size()));
}

void StoredValueTest::reals_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<double>("real");
    namespace Type = ArgumentType;
    QTest::newRow("float is widened") << int(Type::Float) << QByteArray::fromHex("0000c03f") << 1.5;
    QTest::newRow("double") << int(Type::Double) << QByteArray::fromHex("9a9999999999b93f") << 0.1;
    QTest::newRow("infinite double")
        << int(Type::Double) << QByteArray::fromHex("000000000000f0ff") << -double(INFINITY);
}

void StoredValueTest::reals()
{
    QFETCH(int, type);
    QFETCH(QByteArray, bytes);
    ByteSource in = source(bytes);
    const StoredValue value = LogFormat::readValue(in, type);
    QVERIFY(value.isWhole());
    QTEST(value.real, "real");
}

void StoredValueTest::texts_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<StoredValue::State>("state");
    QTest::newRow("a text is as long as it says")
        << QByteArray("\x03\0abc", 5) << QByteArray("abc") << State::Whole;
    QTest::newRow("an empty text") << QByteArray("\0\0", 2) << QByteArray() << State::Whole;
    QTest::newRow("a zero byte belongs to it")
        << QByteArray("\x03\0a\0b", 5) << QByteArray("a\0b", 3) << State::Whole;
    QTest::newRow("a text that ends early has what is there")
        << QByteArray("\x05\0abc", 5) << QByteArray("abc") << State::TooShort;
    QTest::newRow("half a length is no text")
        << QByteArray("\x05", 1) << QByteArray() << State::TooShort;
    QTest::newRow("nothing is no text") << QByteArray() << QByteArray() << State::TooShort;
}

void StoredValueTest::texts()
{
    QFETCH(QByteArray, bytes);
    for (const int type : {int(ArgumentType::String), int(ArgumentType::ByteArray)}) {
        ByteSource in = source(bytes);
        const StoredValue value = LogFormat::readValue(in, type);
        QTEST(QByteArray(value.bytes.data(), int(value.bytes.size())), "text");
        QTEST(value.state, "state");
    }
}

void StoredValueTest::variants_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("type");
    QTest::addColumn<qlonglong>("integer");
    QTest::addColumn<StoredValue::State>("state");
    QTest::addColumn<qlonglong>("read");
    const auto hex = [](const char *digits) { return QByteArray::fromHex(digits); };
    namespace Type = ArgumentType;
    QTest::newRow("its content says its own type")
        << hex("030005000000") << int(Type::Int32) << qlonglong(5) << State::Whole << qlonglong(6);
    QTest::newRow("a content that ends early counts as zero where it is missing")
        << hex("03000500") << int(Type::Int32) << qlonglong(5) << State::TooShort << qlonglong(4);
    QTest::newRow("what could not be stored is a code alone")
        << hex("ffff0500") << int(Type::Variant) << qlonglong(-1) << State::UnknownCode
        << qlonglong(2);
    QTest::newRow("a variant is no content of a variant")
        << hex("0a000300") << int(Type::Variant) << qlonglong(10) << State::UnknownCode
        << qlonglong(2);
    QTest::newRow("an enumeration is no content of a variant")
        << hex("0b000300") << int(Type::Variant) << qlonglong(11) << State::UnknownCode
        << qlonglong(2);
    QTest::newRow("code 12 stands for no type")
        << hex("0c000300") << int(Type::Variant) << qlonglong(12) << State::UnknownCode
        << qlonglong(2);
    QTest::newRow("half a code is none")
        << hex("03") << int(Type::Variant) << qlonglong(3) << State::TooShort << qlonglong(1);
}

void StoredValueTest::variants()
{
    QFETCH(QByteArray, bytes);
    QFETCH(int, type);
    ByteSource in = source(bytes);
    const StoredValue value = LogFormat::readValue(in, ArgumentType::Variant);
    QCOMPARE(value.type, type);
    QCOMPARE(value.inVariant, type != ArgumentType::Variant);
    QTEST(qlonglong(value.integer), "integer");
    QTEST(value.state, "state");
    QTEST(qlonglong(in.position()), "read");
}

void StoredValueTest::typesWithoutValue_data()
{
    QTest::addColumn<int>("type");
    QTest::newRow("the unknown type reads nothing") << -1;
    QTest::newRow("code 12 reads nothing") << 12;
    QTest::newRow("a negative code reads nothing") << -2;
}

void StoredValueTest::typesWithoutValue()
{
    QFETCH(int, type);
    const QByteArray bytes("some bytes");
    ByteSource in = source(bytes);
    const StoredValue value = LogFormat::readValue(in, type);
    QCOMPARE(value.state, State::UnknownCode);
    QCOMPARE(value.type, type);
    QCOMPARE(in.position(), qint64(0));
}

void StoredValueTest::everyCutIsNoticed_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("type");
    const auto rows = goldenRecords();
    for (const GoldenRecord &golden : rows) {
        if (!golden.text.isNull() && !golden.bytes.startsWith("\xff\xff")) {
            QTest::newRow(golden.name) << golden.bytes << golden.declaredType;
        }
    }
}

void StoredValueTest::everyCutIsNoticed()
{
    QFETCH(QByteArray, bytes);
    QFETCH(int, type);
    for (int length = 0; length <= bytes.size(); ++length) {
        const QByteArray cut = bytes.left(length);
        ByteSource in = source(cut);
        const StoredValue value = LogFormat::readValue(in, type);
        QCOMPARE(value.isWhole(), length == bytes.size());
        QCOMPARE(in.position(), qint64(length));
    }
}

QTEST_GUILESS_MAIN(StoredValueTest)
#include "tst_storedvalue.moc"
