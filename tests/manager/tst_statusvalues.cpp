// SPDX-License-Identifier: Apache-2.0

// What the outputs get of a status change, from payloads that have been on a bus.

#include "logformat/encoding.h"
#include "manager/statusvalues.h"
#include "support/literals.h"
#include "support/testbus.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusVariant>
#include <QTest>

Q_DECLARE_METATYPE(QList<int>)

namespace
{

QVariant variant(const QVariant &value)
{
    return QVariant::fromValue(QDBusVariant(value));
}

QVariant wrapped(const QVariant &value)
{
    return QVariant::fromValue(WrappedValue{value});
}

//! A value with its types, to compare and to show.
QString described(const QVariant &value)
{
    if (value.userType() == qMetaTypeId<WrappedValue>()) {
        return "wrapped("_s + described(value.value<WrappedValue>().content) + ")"_s;
    }
    return QString::fromLatin1(value.typeName()) + " "_s + value.toString();
}

QStringList all(const QList<QVariant> &values)
{
    QStringList texts;
    for (const QVariant &value : values) {
        texts.append(described(value));
    }
    return texts;
}

} // namespace

class StatusValuesTest : public QObject
{
    Q_OBJECT

public Q_SLOTS:
    void hear(const QDBusVariant &payload)
    {
        values = statusValues(payload);
        ++heard;
    }

private Q_SLOTS:
    void initTestCase();
    void valuesOf_data();
    void valuesOf();

private:
    TestBus bus;
    QList<QVariant> values;
    int heard = 0;
};

void StatusValuesTest::initTestCase()
{
    qRegisterMetaType<QDBusVariant>();
    qDBusRegisterMetaType<QList<int>>();
    QVERIFY(QDBusConnection::systemBus().connect(QString(), "/values"_s, "test.values"_s, "sent"_s,
                                                 this, SLOT(hear(QDBusVariant))));
}

void StatusValuesTest::valuesOf_data()
{
    QTest::addColumn<QVariantList>("payload"); // of one element: a column unwraps a variant
    QTest::addColumn<QStringList>("expected");
    const auto list = [](const QVariantList &elements) { return QVariantList{QVariant(elements)}; };

    QTest::newRow("elements lose the one variant that the array gives them")
        << list({true, 12, "text"_s}) << all({true, 12, "text"_s});
    QTest::newRow("every type keeps its own")
        << list({7U, qint64(8), quint64(9), 1.5, QVariant::fromValue<uchar>(1),
                 QVariant::fromValue<short>(2), QVariant::fromValue<ushort>(3), QByteArray("ab")})
        << all({7U, qint64(8), quint64(9), 1.5, QVariant::fromValue<uchar>(1),
                QVariant::fromValue<short>(2), QVariant::fromValue<ushort>(3), QByteArray("ab")});
    QTest::newRow("a variant in place of a value is a wrapped value")
        << list({variant(5), 6}) << all({wrapped(5), 6});
    QTest::newRow("every variant within it is one again")
        << list({variant(variant(variant("x"_s)))}) << all({wrapped(wrapped(wrapped("x"_s)))});
    QTest::newRow("an empty array has none") << list({}) << QStringList{};
    QTest::newRow("an integer is no array") << QVariantList{5} << QStringList{};
    QTest::newRow("a text is no array") << QVariantList{"text"_s} << QStringList{};
    QTest::newRow("an array of bytes has no variants")
        << QVariantList{QByteArray("abc")} << QStringList{};
    QTest::newRow("an array of strings has no variants")
        << QVariantList{QStringList{"a"_s, "b"_s}} << QStringList{};
    QTest::newRow("an array of integers has no variants")
        << QVariantList{QVariant::fromValue(QList<int>{1, 2})} << QStringList{};
}

void StatusValuesTest::valuesOf()
{
    QFETCH(QVariantList, payload);
    QDBusMessage signal = QDBusMessage::createSignal("/values"_s, "test.values"_s, "sent"_s);
    signal << variant(payload.constFirst());
    heard = 0;
    QVERIFY(QDBusConnection::systemBus().send(signal));
    QTRY_COMPARE_WITH_TIMEOUT(heard, 1, busPatience);
    QTEST(all(values), "expected");
}

QTEST_GUILESS_MAIN(StatusValuesTest)
#include "tst_statusvalues.moc"
