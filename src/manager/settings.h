// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QList>
#include <QString>
#include <QVariant>
#include <QVariantMap>

#include <array>
#include <functional>

class BinaryLogInterface;
class UdpLogInterface;

/*!
 * The daemon's settings: what each is called, what it acts on, and how its text in the
 * configuration service is read and written. Values live where they act; only the two
 * switches and the level are kept here. The table in settings.cpp says all that is special
 * about one.
 */
class Settings
{
public:
    enum Name {
        LogLocal,
        LogNetwork,
        LogNetworkAddress,
        LogNetworkLang,
        Logtail,
        Loglevel,
        nameCount
    };

    //! Takes a key and a text to the configuration service.
    using Store = std::function<void(const QString &key, const QString &text)>;

    /*!
     * The two outputs are not owned and must outlive this. \a switched is called after
     * each write of one of the two switches, changed or not.
     */
    Settings(BinaryLogInterface &log, UdpLogInterface &sender, Store store,
             std::function<void()> switched);

    /*!
     * Has a value take effect and stores it. A value that makes no sense to what it acts
     * on leaves that as it is, and is stored all the same.
     */
    void write(Name setting, const QVariant &value);
    /*!
     * Has a stored text take effect as at a start; an empty one changes nothing. Kept: a
     * switch is written with it, and so stored anew in one spelling.
     */
    void load(Name setting, const QString &text);

    //! All values that hold, by the names that clients know.
    [[nodiscard]] QVariantMap values() const;

    //! The key in the configuration service.
    [[nodiscard]] static QString key(Name setting);
    //! The settings that a start asks the configuration service for, in that order.
    static QList<Name> storedOnes();

    [[nodiscard]] bool isLoggingLocally() const { return logLocal; }
    [[nodiscard]] bool isLoggingToNetwork() const { return logNetwork; }
    //! Events of this level and below are dropped; negative: none is.
    [[nodiscard]] int highestDroppedLevel() const { return loglevel; }

private:
    struct Row;
    static const std::array<Row, nameCount> &rows();
    static const Row &row(Name setting);

    BinaryLogInterface &binaryLog;
    UdpLogInterface &udpLog;
    Store storeText;
    std::function<void()> switchWritten;
    bool logLocal = false;
    bool logNetwork = false;
    int loglevel = -1;
};
