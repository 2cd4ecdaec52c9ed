// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>

#include <memory>
#include <mutex>
#include <thread>
#include <vector>

/*!
 * Stands between a program and the bus, and passes on what both say, until it is told to do
 * otherwise with one of the program's connections, which are counted from 0 on in
 * the order in which they come. File descriptors do not get through.
 */
class BusRelay
{
public:
    //! \a busAddress as TestBus gives it.
    explicit BusRelay(const QString &busAddress);
    ~BusRelay();
    Q_DISABLE_COPY_MOVE(BusRelay)

    //! For the program.
    [[nodiscard]] QByteArray address() const;
    [[nodiscard]] int connections() const;
    /*!
     * Has the program read this at once, behind what the bus has said so far. The bus must
     * be silent on that connection meanwhile.
     */
    [[nodiscard]] bool insert(int connection, const QByteArray &bytes);
    /*!
     * Hangs up a connection, as a bus does, when the bus has said this on it. The text gets
     * through, and what the bus has sent along with it.
     */
    void hangUpBehind(int connection, const QByteArray &text);

private:
    struct Connection {
        int program = -1;
        int bus = -1;
        QByteArray last;
        std::mutex sending; //!< to the program
        std::thread toBus;
        std::thread toProgram;
    };

    void accept();
    void passToBus(const Connection &connection) const;
    void passToProgram(Connection &connection) const;

    QTemporaryDir folder;
    QString busPath;
    int listening;
    mutable std::mutex adding;
    std::vector<std::unique_ptr<Connection>> all;
    std::thread accepting;
};
