// SPDX-License-Identifier: Apache-2.0
#include "manager/logmanager.h"

#include "devicelib/constants.h"
#include "manager/logdirectory.h"
#include "manager/statusvalues.h"

#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusPendingReply>
#include <QtDebug>

#include <algorithm>
#include <optional>

namespace
{

const QLatin1String catalogueFile("/var/www/data/systemevent.xml");

// What the binary log is made with: bytes, seconds, file index, bytes.
constexpr uint maxBundleSize = 2560;
constexpr int flushInterval = 30;
constexpr int defaultLogtail = 10;
constexpr uint maxFileSize = 102400;

const QLatin1String defaultLanguage("en");

// Keys in the configuration service. The language has none: it is stored, as
// devices in the field do it, under an empty key.
const QLatin1String keyLogLocal("SystemeventLogLocal");
const QLatin1String keyLogNetwork("SystemeventLogNetwork");
const QLatin1String keyLogNetworkAddress("SystemeventLogNetworkaddress");
const QLatin1String keyLogNetworkLang("");
const QLatin1String keyLogtail("SystemeventLogtail");
const QLatin1String keyLoglevel("SystemeventLoglevel");

QString boolText(bool on)
{
    return on ? QStringLiteral("true") : QStringLiteral("false");
}

//! The reply's text once it is there, empty when the call failed.
QString waitForText(QDBusPendingReply<QString> &reply)
{
    reply.waitForFinished();
    return reply.isValid() ? reply.value() : QString();
}

} // namespace

//! The answers of the configuration service, on their way while construction goes on.
struct LogManager::StoredSettings {
    QDBusPendingReply<QString> logLocal;
    QDBusPendingReply<QString> logNetwork;
    QDBusPendingReply<QString> logNetworkAddress;
    QDBusPendingReply<QString> logtail;
    QDBusPendingReply<QString> loglevel;
};

LogManager::LogManager(const QString &parentPath, const QString &nodeName, QObject *parent)
    : DataNode(parentPath, nodeName, parent)
    , logDir(BinaryLogInterface::defaultLogDir())
    , binaryLog(maxBundleSize, flushInterval, defaultLogtail, maxFileSize)
    , udpLog(&catalogue)
    , reader(logDir, &catalogue)
    , config(zib::FwConfigGlobals::SERVICE_PATH_NAME, zib::FwConfigGlobals::SYSTEMVARIABLES_PATH,
             QDBusConnection::systemBus())
{
    qRegisterMetaType<QDBusVariant>(); // or Qt 6 refuses to connect dbusStatusChange()

    StoredSettings stored = requestSettings();
    if (!ensureLogDirectory(logDir)) {
        qFatal("LogManager: can't create log path");
    }
    if (!catalogue.load(catalogueFile)) {
        qFatal("LogManager: can't read systemevents file: %s\n", catalogueFile.data());
    }
    connect(&binaryLog, &BinaryLogInterface::bundleWritten, &reader,
            &SystemeventLogfileReader::logfileChanged);
    connect(&binaryLog, &BinaryLogInterface::logsRotated, &reader,
            &SystemeventLogfileReader::logfilesRotated);
    applySettings(stored);
    updateSubscription();
}

LogManager::~LogManager() = default;

LogManager::StoredSettings LogManager::requestSettings()
{
    return {config.getTrimmed(keyLogLocal), config.getTrimmed(keyLogNetwork),
            config.getTrimmed(keyLogNetworkAddress), config.getTrimmed(keyLogtail),
            config.getTrimmed(keyLoglevel)};
}

void LogManager::applySettings(StoredSettings &stored)
{
    // The two switches go through their property writes, which store them anew
    // in one spelling; the others only take effect.
    if (const QString text = waitForText(stored.logLocal); !text.isEmpty()) {
        setLogLocal(QVariant(text).toBool());
    }
    if (const QString text = waitForText(stored.logNetwork); !text.isEmpty()) {
        setLogNetwork(QVariant(text).toBool());
    }
    if (const QString text = waitForText(stored.logNetworkAddress); !text.isEmpty()) {
        udpLog.setAddress(text);
    }
    if (const QString text = waitForText(stored.logtail); !text.isEmpty()) {
        binaryLog.setLogtail(text.toInt());
    }
    if (const QString text = waitForText(stored.loglevel); !text.isEmpty()) {
        loglevel = text.toInt();
    }
}

void LogManager::store(const QString &key, const QString &value)
{
    config.set(key, value);
    config.save();
}

void LogManager::setLogLocal(bool on)
{
    logLocal = on;
    store(keyLogLocal, boolText(on));
    updateSubscription();
}

void LogManager::setLogNetwork(bool on)
{
    logNetwork = on;
    store(keyLogNetwork, boolText(on));
    updateSubscription();
}

void LogManager::setLogNetworkAddress(const QString &text)
{
    udpLog.setAddress(text);
    store(keyLogNetworkAddress, udpLog.getAddress());
}

void LogManager::setLogNetworkLang(const QString &lang)
{
    udpLog.setLanguage(lang);
    store(keyLogNetworkLang, udpLog.getAddress());
}

void LogManager::setLogtail(int n)
{
    binaryLog.setLogtail(n);
    store(keyLogtail, QString::number(n));
}

void LogManager::setLoglevel(int level)
{
    binaryLog.setLogtail(level);
    store(keyLoglevel, QString::number(level));
}

void LogManager::clearLogfiles()
{
    binaryLog.clearLogfiles();
}

quint64 LogManager::getMinLogNr()
{
    return reader.getMinLogNr();
}

quint64 LogManager::getMaxLogNr()
{
    return reader.getMaxLogNr();
}

QVariantMap LogManager::allValues()
{
    return {
        {QStringLiteral("loglocal"), logLocal},
        {QStringLiteral("lognetwork"), logNetwork},
        {QStringLiteral("lognetworkaddress"), udpLog.getAddress()},
        {QStringLiteral("logtail"), binaryLog.getLogtail()},
        {QStringLiteral("loglevel"), loglevel},
        {QStringLiteral("loglang"), udpLog.getLanguage()},
        {QStringLiteral("minLogNr"), reader.getMinLogNr()},
        {QStringLiteral("maxLogNr"), reader.getMaxLogNr()},
    };
}

QString LogManager::jsonLogfile(quint64 start, quint64 end)
{
    return jsonLogfile(start, end, defaultLanguage);
}

QString LogManager::jsonLogfile(quint64 start, quint64 end, const QString &lang)
{
    start = std::max(start, reader.getMinLogNr());
    end = std::min(end, reader.getMaxLogNr());
    const std::optional<QString> answer = reader.jsonRange(start, end, lang, maxAnswerSize);
    if (!answer) {
        const QString reason
            = QStringLiteral("The log numbers %1 to %2 make an answer of %3 bytes or more, too "
                             "large for the bus; ask for a smaller range.")
                  .arg(start)
                  .arg(end)
                  .arg(maxAnswerSize);
        qWarning("jsonLogfile: %s", qPrintable(reason));
        sendErrorReply(QDBusError::LimitsExceeded, reason);
        return {};
    }
    return *answer;
}

void LogManager::updateSubscription()
{
    const QString anySender;
    const QString anyPath;
    const QString interface = QStringLiteral("com.tovel.status");
    const QString member = QStringLiteral("change");
    const QString signature = QStringLiteral("iv");
    const char *const slot = SLOT(dbusStatusChange(int, QDBusVariant));
    QDBusConnection bus = QDBusConnection::systemBus();

    const bool wanted = logLocal || logNetwork;
    if (wanted == listening) {
        return;
    }
    if (wanted) {
        listening = bus.connect(anySender, anyPath, interface, member, signature, this, slot);
        qDebug() << "systemeventlogger: startet listening on dbus listening:" << listening;
    } else {
        listening = !bus.disconnect(anySender, anyPath, interface, member, signature, this, slot);
        qDebug() << "systemeventlogger: stopped listening on dbus listening:" << listening;
    }
}

/*!
 * Kept: only levels strictly greater than the configured one pass. A filter that
 * is on also drops what the catalogue does not know.
 */
bool LogManager::isFiltered(int id) const
{
    if (loglevel < 0) {
        return false;
    }
    const auto event = catalogue.events.constFind(uint(id));
    return event == catalogue.events.constEnd() || event->logLevel <= loglevel;
}

void LogManager::dbusStatusChange(int id, const QDBusVariant &v)
{
    if (isFiltered(id)) {
        return; // before any unpacking: a dropped change costs next to nothing
    }
    QList<QVariant> args = statusValues(v);
    args.prepend(message().path());
    if (logLocal) {
        binaryLog.logEvent(id, args);
    }
    if (logNetwork) {
        udpLog.logEvent(id, args);
    }
}
