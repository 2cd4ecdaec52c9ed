// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QHash>

namespace Archive
{

//! What a repair keeps at most in the folder damaged/.
struct RepairLimits {
    int files = 16;
    qint64 bytes = qint64(2) << 20;
};

/*!
 * The folder damaged/ below a folder of log files: what a repair has taken out. Nothing in
 * it is ever deleted or changed. A kept file's name ends in a checksum of its content.
 */
class Quarantine
{
public:
    //! \a folder is a descriptor of the log files' folder.
    Quarantine(int folder, RepairLimits most);

    static const char *folderName();
    //! The name that bytes are kept under; \a prefix says what they are of.
    static QByteArray nameFor(const QByteArray &prefix, const QByteArray &bytes);

    /*!
     * Whether bytes are kept under a name, or still fit in beside what is kept and what
     * was reserved. Reserves the room for them.
     */
    [[nodiscard]] bool reserve(const QByteArray &name, const QByteArray &bytes);
    //! Whether a file of that name with these bytes is there.
    [[nodiscard]] bool holds(const QByteArray &name, const QByteArray &bytes) const;

private:
    int parent;
    RepairLimits limits;
    qint64 size = 0;                 //!< of all that is known
    QHash<QByteArray, qint64> known; //!< sizes by name, reserved ones too
};

} // namespace Archive
