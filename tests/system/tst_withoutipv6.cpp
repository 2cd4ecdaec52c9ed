// SPDX-License-Identifier: Apache-2.0

// A device whose kernel has no IPv6: datagrams go out over IPv4 all the same.

#include "support/device.h"
#include "support/literals.h"
#include "support/receiver.h"
#include "support/testbus.h"

#include <QTest>

#include <cerrno>
#include <cstddef>

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

/*!
 * Has the kernel answer this process, and all that it starts from now on, as one without
 * IPv6 does. False where it takes no such orders.
 */
bool takeIpv6Away()
{
    constexpr auto number = offsetof(seccomp_data, nr);
    constexpr auto family = offsetof(seccomp_data, args); // its low half
    sock_filter instructions[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, number),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_socket, 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, family),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, AF_INET6, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EAFNOSUPPORT),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog filter{std::size(instructions), std::begin(instructions)};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0
        && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

} // namespace

class WithoutIpv6Test : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void datagramsGoOutOverIpv4_data();
    void datagramsGoOutOverIpv4();

private:
    TestBus bus;
};

void WithoutIpv6Test::initTestCase()
{
    if (!takeIpv6Away()) {
        QSKIP("the kernel's answers cannot be changed here");
    }
    const int descriptor = socket(AF_INET6, SOCK_DGRAM, 0);
    QCOMPARE(descriptor, -1);
    QCOMPARE(errno, EAFNOSUPPORT);
}

void WithoutIpv6Test::datagramsGoOutOverIpv4_data()
{
    QTest::addColumn<QString>("addressBefore");
    QTest::newRow("from the first one on") << QString();
    QTest::newRow("after an address that cannot be reached") << "::1"_s;
}

void WithoutIpv6Test::datagramsGoOutOverIpv4()
{
    QFETCH(QString, addressBefore);
    Device device;
    device.config.values.insert("SystemeventLogNetwork"_s, "true"_s);
    device.config.values.insert("SystemeventLogNetworkaddress"_s, addressBefore);
    QVERIFY(device.start());
    Receiver receiver("127.0.0.1"_s);
    device.change("/x"_s, 1002, {"to nobody"_s});
    QVERIFY(device.setProperty("logNetworkAddress"_s, "127.0.0.1"_s));
    for (int i = 0; i < 2; ++i) {
        device.change("/x"_s, 1002, {"over IPv4"_s});
        device.settle();
        const QList<QByteArray> datagrams = receiver.received();
        QCOMPARE(datagrams.size(), 1);
        QVERIFY(datagrams[0].endsWith("[/x] Message over IPv4"));
    }
}

QTEST_GUILESS_MAIN(WithoutIpv6Test)
#include "tst_withoutipv6.moc"
