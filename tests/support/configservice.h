// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDBusContext>
#include <QDBusMessage>
#include <QHash>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

/*!
 * The configuration service as a test wants it: remembers what it is asked, and
 * answers, errs or keeps silent.
 */
class ConfigService : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.tovel.fwconfig.SystemVariables")

public:
    enum class Manner {
        Answers,
        Errs,
        IsSilent,      //!< holds its answers back until release()
        TalksNonsense, //!< answers with a number instead of a text
        IsAbsent,
    };

    ConfigService();
    ~ConfigService() override;
    Q_DISABLE_COPY_MOVE(ConfigService)

    void behave(Manner newManner);
    //! Gives the answers held back so far.
    void release();
    //! Gives the one about a key, and keeps the others.
    void release(const QString &key);
    //! Leaves the bus for good, as a service does that ends.
    void leaveTheBus();

    QHash<QString, QString> values;
    QStringList calls; //!< "getTrimmed KEY", "set KEY=VALUE" and "save", in the order of arrival

public Q_SLOTS:
    QString getTrimmed(const QString &key);
    void set(const QString &key, const QString &value);
    void save();

private:
    void answer(const QDBusMessage &request) const;

    Manner manner = Manner::IsAbsent;
    QList<QDBusMessage> heldBack;
};
