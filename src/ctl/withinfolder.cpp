// SPDX-License-Identifier: Apache-2.0
#include "ctl/withinfolder.h"

#include <utility>

#include <fcntl.h>
#include <sys/stat.h>

namespace
{

Archive::FileIdentity identityOf(int descriptor)
{
    struct stat status {
    };
    return ::fstat(descriptor, &status) == 0 ? Archive::identityOf(status)
                                             : Archive::FileIdentity();
}

} // namespace

bool isWithin(const Archive::Descriptor &folder, const Archive::Descriptor &other)
{
    const Archive::FileIdentity wanted = identityOf(other.get());
    Archive::Descriptor here(::openat(folder.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    while (here.isOpen()) {
        const Archive::FileIdentity identity = identityOf(here.get());
        if (identity == wanted) {
            return true;
        }
        Archive::Descriptor above(::openat(here.get(), "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (!above.isOpen() || identityOf(above.get()) == identity) {
            return false; // the root
        }
        here = std::move(above);
    }
    return false;
}
