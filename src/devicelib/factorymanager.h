// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>
#include <QRegularExpression>
#include <QString>

namespace zib
{

/*!
 * Claims the D-Bus object paths of one domain that match a pattern: whoever
 * exports an object there does so under this manager's responsibility.
 *
 * The claims of all managers of the process are kept together, so that a node
 * can tell whether anybody answers for its path (see DataNode::dbusRegister).
 */
class FactoryManager : public QObject
{
    Q_OBJECT

public:
    /*!
     * \a pathPattern is a valid regular expression in Perl's syntax. The domain says
     * whose paths they are; a path is claimed or not whatever its domain.
     */
    FactoryManager(const QString &domain, const QString &pathPattern, QObject *parent = nullptr);

    //! Puts the manager into service: from now on, until the process ends, its claim counts.
    virtual void takeIntoService();

    //! Whether a manager of this process claims the object path.
    [[nodiscard]] static bool isClaimed(const QString &objectPath);

private:
    QRegularExpression pattern;
};

} // namespace zib
