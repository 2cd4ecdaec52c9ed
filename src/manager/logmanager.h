// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "binlog/binaryloginterface.h"
#include "catalog/systemeventcatalogue.h"
#include "devicelib/bareboxconfigproxy.h"
#include "devicelib/datanode.h"
#include "intake/statusintake.h"
#include "manager/settings.h"
#include "reader/systemeventlogfilereader.h"
#include "udp/udploginterface.h"

#include <QDBusContext>
#include <QDBusVariant>
#include <QDir>
#include <QString>
#include <QVariantMap>

#include <vector>

/*!
 * The daemon's one working object: owns the outputs, the catalogue and the
 * reader, hears the status changes, and is the D-Bus node through which clients
 * read the log and change the settings (docs/dbus.md).
 *
 * The settings (Settings) are loaded from the configuration service once, during
 * construction; every property write stores its value there without waiting. Construction blocks
 * until that service has answered or failed, and ends the process with a fatal message when there
 * is no log directory or catalogue.
 */
class LogManager : public zib::DataNode, protected QDBusContext
{
    Q_OBJECT
    // Clients in the field use this name, whatever the executable is called.
    Q_CLASSINFO("D-Bus Interface", "local.LogManager")

    Q_PROPERTY(bool logLocal READ getLogLocal WRITE setLogLocal)
    Q_PROPERTY(bool logNetwork READ getLogNetwork WRITE setLogNetwork)
    Q_PROPERTY(QString logNetworkAddress READ getLogNetworkAddress WRITE setLogNetworkAddress)
    Q_PROPERTY(QString logNetworkLang READ getLogNetworkLang WRITE setLogNetworkLang)
    Q_PROPERTY(int logtail READ getLogtail WRITE setLogtail)
    Q_PROPERTY(int loglevel READ getLoglevel WRITE setLoglevel)
    Q_PROPERTY(int minLogNr READ getMinLogNrProperty)
    Q_PROPERTY(int maxLogNr READ getMaxLogNrProperty)

public:
    /*!
     * Largest JSON answer, in bytes of UTF-8, not included: the bus drops the
     * sender of a message of more than 32 MiB, and the message's head needs room.
     */
    static constexpr quint64 maxAnswerSize = 33488896; // 32 MiB less 64 KiB

    LogManager(const QString &parentPath, const QString &nodeName, QObject *parent = nullptr);
    ~LogManager() override;
    Q_DISABLE_COPY_MOVE(LogManager)

    [[nodiscard]] bool getLogLocal() const { return settings.isLoggingLocally(); }
    void setLogLocal(bool on) { settings.write(Settings::LogLocal, on); }
    [[nodiscard]] bool getLogNetwork() const { return settings.isLoggingToNetwork(); }
    void setLogNetwork(bool on) { settings.write(Settings::LogNetwork, on); }
    [[nodiscard]] QString getLogNetworkAddress() const { return udpLog.getAddress(); }
    void setLogNetworkAddress(const QString &text)
    {
        settings.write(Settings::LogNetworkAddress, text);
    }
    [[nodiscard]] QString getLogNetworkLang() const { return udpLog.getLanguage(); }
    void setLogNetworkLang(const QString &lang) { settings.write(Settings::LogNetworkLang, lang); }
    [[nodiscard]] int getLogtail() const { return binaryLog.getLogtail(); }
    void setLogtail(int n) { settings.write(Settings::Logtail, n); }
    [[nodiscard]] int getLoglevel() const { return settings.highestDroppedLevel(); }
    void setLoglevel(int level) { settings.write(Settings::Loglevel, level); }
    //! Kept: the properties carry the low 32 bits, the methods the whole number.
    int getMinLogNrProperty() { return int(reader.getMinLogNr()); }
    int getMaxLogNrProperty() { return int(reader.getMaxLogNr()); }

    //! Stores what has been received, for an end of the process that nobody asked for.
    void writeReceived();
    //! What hears the status changes; signals of this class would be seen on the bus.
    [[nodiscard]] const StatusIntake &statusIntake() const { return intake; }

public Q_SLOTS: // the methods on the bus
    void clearLogfiles();
    /*!
     * The records from \a start to \a end, both included, as a JSON array with
     * messages in a language; the range is clipped to the logged numbers. An
     * answer of maxAnswerSize or more cannot travel and is refused with the
     * D-Bus error LimitsExceeded.
     */
    QString jsonLogfile(quint64 start, quint64 end, const QString &lang);
    //! The same in English.
    QString jsonLogfile(quint64 start, quint64 end);
    quint64 getMinLogNr();
    quint64 getMaxLogNr();
    //! All settings and the range of log numbers.
    QVariantMap allValues();

protected Q_SLOTS:
    /*!
     * Takes a status change that was sent to the daemon alone, or before the intake has taken
     * over: \a id is the event id, \a v holds the values.
     */
    void dbusStatusChange(int id, const QDBusVariant &v);

private:
    struct PendingSetting;

    [[nodiscard]] std::vector<PendingSetting> requestSettings();
    void applySettings(std::vector<PendingSetting> &pending);
    void updateSubscription();
    bool subscribe(bool on);
    [[nodiscard]] bool isFiltered(int id) const;
    void take(const StatusChange &change);

    QDir logDir;
    BinaryLogInterface binaryLog;
    UdpLogInterface udpLog;
    SystemeventCatalogue catalogue;
    SystemeventLogfileReader reader;
    zib::BareboxConfigProxy config;
    Settings settings;
    StatusIntake intake;
    bool listening = false; //!< whether status changes reach take()
};
