// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "archive/archiverecord.h"
#include "archive/filebytes.h"
#include "archive/folderlisting.h"
#include "ctl/interruption.h"

#include <QString>

#include <vector>

/*!
 * Writes records as a new set of log files, as the daemon would have made it: byte for
 * byte, in the order of their numbers, "zib0.log" the newest. Where numbers were given
 * twice, as after a start that did not know the last one, each run of them comes after the
 * other, with a file of its own. A record of 64 KiB and more hides from the daemon what is
 * in front of it in its file: it begins a file, too.
 *
 * The files stand in a folder of their own below the target until all are complete and on
 * disk; only then do they get their names.
 *
 * Memory: 48 bytes for 2.5 KiB of records.
 */
class CleanSet
{
public:
    // In bytes, as the daemon has them; its writer is no part of the tool.
    static constexpr qint64 fullFileSize = 102400; //!< a file ends here
    static constexpr qint64 bundleSize = 2560;     //!< a bundle beyond it is written

    //! Why nothing can be written; no reason: it can.
    struct Refusal {
        QString reason;
        bool isWrongUsage = false;
    };
    struct Result {
        int files = 0;
        quint64 records = 0;
        QString failure; //!< why there is no set; null where there is
    };

    CleanSet(QString sourceFolder, QString targetFolder);

    //! Makes the target where only that level is missing.
    [[nodiscard]] Refusal prepare();

    //! The file that records are added of from now on, in the order of the folder.
    void useFile(const Archive::ListedFile &file) { files.push_back(file); }
    //! Adds a record, in the order of the file.
    void add(const Archive::Place &place, quint64 logNr);

    /*!
     * Writes the set. Throws Interruption::Happened, and leaves nothing behind, when the
     * process is to end.
     */
    [[nodiscard]] Result write(const Interruption &interruption);

private:
    //! Records that touch, with numbers one after another; as many as the daemon writes at once.
    struct Bundle {
        size_t file = 0; //!< index in files
        qint64 begin = 0;
        qint64 end = 0;
        quint64 first = 0;
        quint64 last = 0;
        quint64 records = 0;

        //! It is one record, alone, whose length is stored wrong.
        [[nodiscard]] bool isLongRecord() const;
    };
    //! Bundles one after another, by their indices; all numbers rise.
    using Lane = std::vector<size_t>;

    //! By errno.
    [[nodiscard]] QString unwritable() const;
    [[nodiscard]] std::vector<Lane> lanes() const;
    [[nodiscard]] Lane *bestLane(std::vector<Lane> &found, const Bundle &bundle) const;
    [[nodiscard]] bool goesOn(const Lane &lane, const Bundle &bundle) const;

    QString source;
    QString target;
    Archive::Descriptor targetFolder;
    std::vector<Archive::ListedFile> files;
    std::vector<Bundle> bundles; //!< in the order they were found
};
