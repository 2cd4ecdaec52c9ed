// SPDX-License-Identifier: Apache-2.0
#include "archive/folderlisting.h"

#include "logformat/logformat.h"

#include <QFile>

#include <algorithm>
#include <cerrno>

#include <dirent.h>
#include <sys/stat.h>

namespace Archive
{
namespace
{

// A device that rotates a thousand times a second is listed in between all the same.
constexpr int mostTries = 1000;

std::optional<Listing> listOnce(int folder)
{
    const Directory directory = openDirectory(folder, ".");
    if (!directory) {
        return std::nullopt;
    }
    Listing listing;
    errno = 0;
    while (const dirent *const entry = readdir(directory.get())) { // NOLINT(concurrency-mt-unsafe)
        const QString name = QFile::decodeName(entry->d_name);
        const int index = LogFormat::fileIndex(name);
        const bool isLogFile = index >= 0 || LogFormat::isReaderName(name);
        struct stat status {
        };
        if (!isLogFile || ::fstatat(folder, entry->d_name, &status, 0) != 0
            || !S_ISREG(status.st_mode)) {
            errno = 0; // renamed or deleted just now, or nothing to read
            continue;
        }
        if (index >= 0) {
            listing.files.push_back({index, identityOf(status), nullptr});
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

std::shared_ptr<const FileBytes> openIndex(int folder, int index)
{
    auto bytes
        = std::make_shared<const FileBytes>(folder, QFile::encodeName(LogFormat::fileName(index)));
    return bytes->isOpen() ? bytes : nullptr;
}

//! Those that cannot be opened are no longer what was listed, or whoever reads them is told.
void openOldest(int folder, Listing &listing)
{
    const size_t count = std::min(listing.files.size(), Listing::mostOpen);
    for (size_t i = 0; i < count; ++i) {
        ListedFile &file = listing.files[i];
        file.bytes = openIndex(folder, file.index);
        if (file.bytes && !(identityOf(file.bytes->status()) == file.identity)) {
            file.bytes.reset();
        }
    }
}

} // namespace

std::optional<Listing> listFolder(int folder)
{
    std::optional<Listing> found = listOnce(folder);
    for (int tries = 1; found && tries < mostTries; ++tries) {
        openOldest(folder, *found);
        std::optional<Listing> now = listOnce(folder);
        if (now && areSame(found->files, now->files)) {
            break;
        }
        found = std::move(now);
    }
    return found;
}

std::shared_ptr<const FileBytes> openListed(int folder, const ListedFile &file, int &error)
{
    error = 0;
    if (file.bytes) {
        return file.bytes;
    }
    int index = file.index;
    for (int tries = 0; tries < mostTries; ++tries) {
        std::shared_ptr<const FileBytes> bytes = openIndex(folder, index);
        error = bytes ? 0 : errno;
        if (bytes && identityOf(bytes->status()) == file.identity) {
            return bytes;
        }
        if (error != 0 && error != ENOENT) {
            return nullptr;
        }
        const std::optional<Listing> now = listOnce(folder);
        if (!now) {
            error = errno;
            return nullptr;
        }
        const auto moved
            = std::find_if(now->files.begin(), now->files.end(), [&file](const ListedFile &each) {
                  return each.identity == file.identity;
              });
        // Rotation only counts up: under a lower index it is a new file that got the inode.
        if (moved == now->files.end() || moved->index < file.index) {
            error = 0;
            return nullptr;
        }
        index = moved->index;
    }
    return nullptr;
}

} // namespace Archive
