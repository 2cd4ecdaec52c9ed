// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/configservice.h"

#include <QByteArray>
#include <QDBusMessage>
#include <QProcess>
#include <QString>
#include <QTemporaryFile>
#include <QVariant>

#include <memory>

/*!
 * A device with nothing on it but an empty log folder, a catalogue, a configuration
 * service and, once started, the unmodified daemon. Needs a TestBus and to run under
 * scripts/private-device; the environment variable SEL_DAEMON names the executable.
 */
class Device
{
public:
    Device();
    ~Device();
    Q_DISABLE_COPY_MOVE(Device)

    ConfigService config;

    //! Starts the daemon and waits until its log node can be called.
    [[nodiscard]] bool start();
    //! Starts the daemon and waits for nothing.
    void launch();
    //! The same from a shell, with redirections such as "2>&-".
    void launch(const QString &redirections);
    //! Whether the log node answers.
    [[nodiscard]] bool isServing();
    //! Ends the daemon by a signal, as a device does.
    void stop();
    [[nodiscard]] bool isRunning() const { return daemon->state() == QProcess::Running; }
    [[nodiscard]] qint64 processId() const { return daemon->processId(); }
    //! Waits for the daemon to end by itself; its exit status, or "abort" for an abort.
    QString waitForEnd();
    //! What the daemon has written to standard error since it was launched.
    [[nodiscard]] QString output() const;
    //! The lines of output() that contain a text.
    [[nodiscard]] QStringList outputLines(const QString &part) const;

    //! Calls a method of the log node.
    QDBusMessage call(const QString &method, const QVariantList &arguments = {});
    //! Calls a method of the log node and does not wait for the answer.
    void callNoReply(const QString &method, const QVariantList &arguments);
    //! The first result of such a call, invalid after an error.
    QVariant result(const QString &method, const QVariantList &arguments = {});
    QVariant property(const QString &name);
    [[nodiscard]] bool setProperty(const QString &name, const QVariant &value);
    //! The whole log as JSON.
    QString json(const QString &lang = QStringLiteral("en"));

    //! Emits a status change with a list of values.
    void change(const QString &path, int id, const QVariantList &values);
    //! Emits a status change with any payload in its variant.
    void changeRaw(const QString &path, int id, const QVariant &payload);
    //! Has the daemon take in everything emitted so far.
    void settle();
    //! Emits events of no interest until a bundle has been written.
    [[nodiscard]] bool fillBundle();

    static constexpr int fillerId = 9999;
    static QString logPath(int index);
    static QByteArray logFile(int index);
    static void writeLogFile(int index, const QByteArray &content);
    static void writeCatalogue(const QByteArray &xml);
    //! A catalogue with the levels of syslog and a few events; see the source.
    static QByteArray catalogue();

private:
    void run(const QString &program, const QStringList &arguments);

    std::unique_ptr<QProcess> daemon;
    QTemporaryFile errors;
};

//! What a command-line client printed; its exit status must be 0, or the text is null.
QByteArray runClient(const QString &program, const QStringList &arguments);
