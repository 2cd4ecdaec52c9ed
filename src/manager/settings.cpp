// SPDX-License-Identifier: Apache-2.0
#include "manager/settings.h"

#include "binlog/binaryloginterface.h"
#include "udp/udploginterface.h"

#include <array>
#include <utility>

namespace
{

QString boolText(bool on)
{
    return on ? QStringLiteral("true") : QStringLiteral("false");
}

} // namespace

struct Settings::Row {
    Name setting;
    const char *name; //!< for clients
    const char *key;  //!< in the configuration service
    bool isSwitch;    //!< whether a write says who is to hear events
    QVariant (*value)(const Settings &);
    //! Has a stored text take effect; null where a start does not ask for one.
    void (*load)(Settings &, const QString &text);
    //! Has a value take effect and gives the text to store.
    QString (*write)(Settings &, const QVariant &value);
};

const std::array<Settings::Row, Settings::nameCount> &Settings::rows()
{
    using S = Settings;
    static constexpr std::array<Row, nameCount> table = {{
        {LogLocal, "loglocal", "SystemeventLogLocal", true,
         [](const S &s) { return QVariant(s.logLocal); },
         [](S &s, const QString &text) { s.write(LogLocal, QVariant(text).toBool()); },
         [](S &s, const QVariant &on) { return boolText(s.logLocal = on.toBool()); }},
        {LogNetwork, "lognetwork", "SystemeventLogNetwork", true,
         [](const S &s) { return QVariant(s.logNetwork); },
         [](S &s, const QString &text) { s.write(LogNetwork, QVariant(text).toBool()); },
         [](S &s, const QVariant &on) { return boolText(s.logNetwork = on.toBool()); }},
        // A text that is no IP address leaves no receiver and stores an empty text.
        {LogNetworkAddress, "lognetworkaddress", "SystemeventLogNetworkaddress", false,
         [](const S &s) { return QVariant(s.udpLog.getAddress()); },
         [](S &s, const QString &text) { s.udpLog.setAddress(text); },
         [](S &s, const QVariant &text) {
             s.udpLog.setAddress(text.toString());
             return s.udpLog.getAddress();
         }},
        // Kept: the language holds for the running process only, and writing it stores the
        // address under an empty key, as devices in the field do it.
        {LogNetworkLang, "loglang", "", false,
         [](const S &s) { return QVariant(s.udpLog.getLanguage()); }, nullptr,
         [](S &s, const QVariant &lang) {
             s.udpLog.setLanguage(lang.toString());
             return s.udpLog.getAddress();
         }},
        // Kept: a value below 1 is stored, and ignored otherwise.
        {Logtail, "logtail", "SystemeventLogtail", false,
         [](const S &s) { return QVariant(s.binaryLog.getLogtail()); },
         [](S &s, const QString &text) { s.binaryLog.setLogtail(text.toInt()); },
         [](S &s, const QVariant &n) {
             s.binaryLog.setLogtail(n.toInt());
             return QString::number(n.toInt());
         }},
        // Kept: writing the level sets logtail; the level itself counts from the next start on.
        {Loglevel, "loglevel", "SystemeventLoglevel", false,
         [](const S &s) { return QVariant(s.loglevel); },
         [](S &s, const QString &text) { s.loglevel = text.toInt(); },
         [](S &s, const QVariant &n) {
             s.binaryLog.setLogtail(n.toInt());
             return QString::number(n.toInt());
         }},
    }};
    constexpr auto inOrder = [](const auto &each) {
        for (size_t i = 0; i < each.size(); ++i) {
            if (each[i].setting != Name(i)) {
                return false;
            }
        }
        return true;
    };
    static_assert(inOrder(table), "each name has its row, at its place");
    return table;
}

const Settings::Row &Settings::row(Name setting)
{
    return rows()[size_t(setting)];
}

Settings::Settings(BinaryLogInterface &log, UdpLogInterface &sender, Store store,
                   std::function<void()> switched)
    : binaryLog(log)
    , udpLog(sender)
    , storeText(std::move(store))
    , switchWritten(std::move(switched))
{
}

void Settings::write(Name setting, const QVariant &value)
{
    const QString text = row(setting).write(*this, value);
    storeText(key(setting), text);
    if (row(setting).isSwitch) {
        switchWritten();
    }
}

void Settings::load(Name setting, const QString &text)
{
    if (!text.isEmpty()) {
        row(setting).load(*this, text);
    }
}

QVariantMap Settings::values() const
{
    QVariantMap all;
    for (const Row &each : rows()) {
        all.insert(QLatin1String(each.name), each.value(*this));
    }
    return all;
}

QString Settings::key(Name setting)
{
    return QLatin1String(row(setting).key);
}

QList<Settings::Name> Settings::storedOnes()
{
    QList<Name> names;
    for (const Row &each : rows()) {
        if (each.load) {
            names.append(each.setting);
        }
    }
    return names;
}
