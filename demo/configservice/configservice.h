// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>
#include <QSettings>
#include <QString>

/*!
 * A device's configuration service: texts by key, kept in an INI file.
 *
 * The slots are its methods on the bus. A key without a name (empty, or
 * made of slashes alone) stands for nothing: setting it is ignored and reading
 * it gives an empty text, because the file has no place for such an entry and
 * the event daemon is known to use one.
 */
class ConfigService : public QObject
{
    Q_OBJECT

public:
    explicit ConfigService(const QString &fileName, QObject *parent = nullptr);

    //! The stored text without surrounding blanks, empty when nothing is stored.
    [[nodiscard]] Q_SLOT QString getTrimmed(const QString &key) const;
    Q_SLOT void set(const QString &key, const QString &value);
    //! Returns once everything set so far is in the file.
    Q_SLOT void save();

private:
    QSettings settings;
};
