// SPDX-License-Identifier: Apache-2.0
#include "manager/logmanager.h"

#include "devicelib/constants.h"
#include "intake/statussignal.h"
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

const QLatin1String defaultLanguage("en");

//! The reply's text once it is there, empty when the call failed.
QString waitForText(QDBusPendingReply<QString> &reply)
{
    reply.waitForFinished();
    return reply.isValid() ? reply.value() : QString();
}

} // namespace

//! A question to the configuration service, which answers while construction goes on.
struct LogManager::PendingSetting {
    Settings::Name setting;
    QDBusPendingReply<QString> answer;
};

LogManager::LogManager(const QString &parentPath, const QString &nodeName, QObject *parent)
    : DataNode(parentPath, nodeName, parent)
    , logDir(BinaryLogInterface::defaultLogDir())
    , binaryLog(BinaryLogInterface::defaultBundleSize, BinaryLogInterface::defaultFlushInterval,
                BinaryLogInterface::defaultLogtail, BinaryLogInterface::defaultFileSize)
    , udpLog(&catalogue)
    , reader(logDir, &catalogue)
    , config(zib::FwConfigGlobals::SERVICE_PATH_NAME, zib::FwConfigGlobals::SYSTEMVARIABLES_PATH,
             QDBusConnection::systemBus())
    , settings(
          binaryLog, udpLog,
          [this](const QString &key, const QString &text) {
              config.set(key, text);
              config.save();
          },
          [this] { updateSubscription(); })
    , intake(QDBusConnection::systemBus(), zib::SystemeventloggerGlobals::SERVICE_NAME,
             {[this](int id) { return !isFiltered(id); },
              [this](const StatusChange &change) { take(change); }})
{
    qRegisterMetaType<QDBusVariant>(); // or Qt 6 refuses to connect dbusStatusChange()

    std::vector<PendingSetting> pending = requestSettings();
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
    applySettings(pending);
    updateSubscription();
}

LogManager::~LogManager() = default;

std::vector<LogManager::PendingSetting> LogManager::requestSettings()
{
    std::vector<PendingSetting> pending;
    const auto stored = Settings::storedOnes();
    for (const Settings::Name setting : stored) {
        pending.push_back({setting, config.getTrimmed(Settings::key(setting))});
    }
    return pending;
}

void LogManager::applySettings(std::vector<PendingSetting> &pending)
{
    for (PendingSetting &each : pending) {
        settings.load(each.setting, waitForText(each.answer));
    }
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
    QVariantMap all = settings.values();
    all.insert(QStringLiteral("minLogNr"), reader.getMinLogNr());
    all.insert(QStringLiteral("maxLogNr"), reader.getMaxLogNr());
    return all;
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
    const bool wanted = settings.isLoggingLocally() || settings.isLoggingToNetwork();
    if (wanted == listening) {
        return;
    }
    if (wanted) {
        listening = subscribe(true);
        qDebug() << "systemeventlogger: startet listening on dbus listening:" << listening;
    } else {
        listening = !subscribe(false);
        qDebug() << "systemeventlogger: stopped listening on dbus listening:" << listening;
    }
}

//! QtDBus asks for everything, and keeps what is sent to the daemon alone.
bool LogManager::subscribe(bool on)
{
    const QString anySender;
    const QString anyPath;
    const QString interface = QLatin1String(StatusSignal::interface);
    const QString member = QLatin1String(StatusSignal::member);
    const QString signature = QLatin1String(StatusSignal::signature);
    const char *const slot = SLOT(dbusStatusChange(int, QDBusVariant));
    QDBusConnection bus = QDBusConnection::systemBus();
    const bool done = on
        ? bus.connect(anySender, anyPath, interface, member, signature, this, slot)
        : bus.disconnect(anySender, anyPath, interface, member, signature, this, slot);
    if (done && on) {
        intake.start();
    } else if (done) {
        intake.stop();
    }
    return done;
}

/*!
 * Kept: only levels strictly greater than the configured one pass. A filter that
 * is on also drops what the catalogue does not know.
 */
bool LogManager::isFiltered(int id) const
{
    const int loglevel = settings.highestDroppedLevel();
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
    StatusChange change{id, {message().path()}};
    change.args += statusValues(v);
    take(change);
}

void LogManager::take(const StatusChange &change)
{
    if (settings.isLoggingLocally()) {
        binaryLog.logEvent(change.id, change.args);
    }
    if (settings.isLoggingToNetwork()) {
        udpLog.logEvent(change.id, change.args);
    }
}

void LogManager::writeReceived()
{
    intake.finish();
    binaryLog.writeQueued();
}
