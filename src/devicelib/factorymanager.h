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
 * A claim counts once the manager has been put into service and ends with it.
 */
class FactoryManager : public QObject
{
    Q_OBJECT

public:
    //! \a pathPattern is a regular expression in Perl's syntax; an invalid one claims nothing.
    FactoryManager(QString domain, const QString &pathPattern, QObject *parent = nullptr);
    ~FactoryManager() override;
    Q_DISABLE_COPY_MOVE(FactoryManager)

    //! Puts the manager into service. To be called once, right after construction.
    virtual void takeIntoService();

    [[nodiscard]] QString domain() const { return domainName; }

    //! Whether a manager of this process that is in service claims the object path.
    [[nodiscard]] static bool isClaimed(const QString &objectPath);

private:
    QString domainName;
    QRegularExpression pattern;
    bool inService = false;
};

} // namespace zib
