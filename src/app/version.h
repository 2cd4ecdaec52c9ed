// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>
#include <QString>

//! A QObject whose name, as it is not scriptable, stays off the bus.
class NamelessObject : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString objectName READ objectName WRITE setObjectName SCRIPTABLE false)

public:
    using QObject::QObject;
};

//! Tells clients on the bus which build of the daemon runs.
class Version : public NamelessObject
{
    Q_OBJECT
    // Clients in the field use this name, whatever the executable is called.
    Q_CLASSINFO("D-Bus Interface", "local.Version")

    //! Revision number of the source tree, in decimal.
    Q_PROPERTY(QString version READ version)
    //! Commit id of the source tree, 40 hexadecimal digits.
    Q_PROPERTY(QString githash READ githash)

public:
    using NamelessObject::NamelessObject;

    [[nodiscard]] QString version() const;
    [[nodiscard]] QString githash() const;
};
