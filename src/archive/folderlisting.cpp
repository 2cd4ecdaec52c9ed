// SPDX-License-Identifier: Apache-2.0
#include "archive/folderlisting.h"

#include "logformat/logformat.h"

#include <QFile>

#include <algorithm>
#include <cerrno>
#include <memory>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

namespace Archive
{
namespace
{

// A device that rotates a thousand times a second is listed in between all the same.
constexpr int mostTries = 1000;

struct CloseDirectory {
    void operator()(DIR *directory) const { (void)closedir(directory); }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

//! Reads the folder from its beginning, whatever has been read of the descriptor before.
Directory openDirectory(int folder)
{
    const int again = ::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (again < 0) {
        return {};
    }
    Directory directory(fdopendir(again));
    if (!directory) {
        (void)::close(again);
    }
    return directory;
}

//! By the filter of the daemon's reader: "zib[0-9]*".
bool isTakenByReader(const QString &name)
{
    return name.size() > 3 && name.startsWith(QLatin1String("zib"))
        && name.at(3) >= QLatin1Char('0') && name.at(3) <= QLatin1Char('9');
}

std::optional<Listing> listOnce(int folder)
{
    const Directory directory = openDirectory(folder);
    if (!directory) {
        return std::nullopt;
    }
    Listing listing;
    errno = 0;
    while (const dirent *const entry = readdir(directory.get())) { // NOLINT(concurrency-mt-unsafe)
        const QString name = QFile::decodeName(entry->d_name);
        struct stat status {
        };
        if (!isTakenByReader(name) || ::fstatat(folder, entry->d_name, &status, 0) != 0
            || !S_ISREG(status.st_mode)) {
            errno = 0; // renamed or deleted just now, or nothing to read
            continue;
        }
        const int index = LogFormat::fileIndex(name);
        if (index >= 0) {
            listing.files.push_back({index, identityOf(status)});
        } else {
            listing.otherNames.append(name);
        }
    }
    if (errno != 0) {
        return std::nullopt;
    }
    std::sort(
        listing.files.begin(), listing.files.end(),
        [](const ListedFile &left, const ListedFile &right) { return left.index > right.index; });
    return listing;
}

bool areSame(const std::vector<ListedFile> &left, const std::vector<ListedFile> &right)
{
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](const ListedFile &one, const ListedFile &other) {
                          return one.index == other.index && one.identity == other.identity;
                      });
}

FileBytes openIndex(int folder, int index)
{
    return FileBytes(folder, QFile::encodeName(LogFormat::fileName(index)));
}

bool isListed(const FileBytes &bytes, const ListedFile &file)
{
    return bytes.isOpen() && identityOf(bytes.status()) == file.identity;
}

} // namespace

std::optional<Listing> listFolder(int folder)
{
    std::optional<Listing> before;
    std::optional<Listing> now = listOnce(folder);
    for (int tries = 1; now && tries < mostTries; ++tries) {
        before = std::move(now);
        now = listOnce(folder);
        if (now && areSame(before->files, now->files)) {
            break;
        }
    }
    return now;
}

FileBytes openListed(int folder, const ListedFile &file, int &error)
{
    error = 0;
    for (int tries = 0; tries < mostTries; ++tries) {
        FileBytes asListed = openIndex(folder, file.index);
        error = asListed.isOpen() ? 0 : errno;
        if (isListed(asListed, file)) {
            return asListed;
        }
        if (error != 0 && error != ENOENT) {
            return {};
        }
        const std::optional<Listing> now = listFolder(folder);
        if (!now) {
            error = errno;
            return {};
        }
        const auto moved
            = std::find_if(now->files.begin(), now->files.end(), [&file](const ListedFile &each) {
                  return each.identity == file.identity;
              });
        // Rotation only counts up: under a lower index it is a new file that got the inode.
        if (moved == now->files.end() || moved->index < file.index) {
            error = 0;
            return {};
        }
        FileBytes renamed = openIndex(folder, moved->index);
        if (isListed(renamed, file)) {
            return renamed;
        }
    }
    return {};
}

} // namespace Archive
