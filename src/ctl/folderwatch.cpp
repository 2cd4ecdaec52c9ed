// SPDX-License-Identifier: Apache-2.0
#include "ctl/folderwatch.h"

#include "ctl/outputstream.h"

#include <QFile>

#include <cerrno>

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

FolderWatch::FolderWatch(const QString &path)
    : folder(QFile::encodeName(path))
    , events(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK))
{
    look();
}

//! The same folder gives the same number; another one in its place is watched instead.
void FolderWatch::look()
{
    constexpr uint32_t changes = IN_MODIFY | IN_CREATE | IN_DELETE | IN_MOVED_TO | IN_DELETE_SELF
        | IN_MOVE_SELF | IN_ONLYDIR;
    const int now = ::inotify_add_watch(events.get(), folder.constData(), changes);
    if (now != watched && watched >= 0) {
        (void)::inotify_rm_watch(events.get(), watched); // it may be gone with its folder
    }
    watched = now;
}

//! What they say does not matter: the folder is looked at.
void FolderWatch::takeEvents()
{
    char bytes[8192];
    while (::read(events.get(), bytes, sizeof bytes) > 0) { }
}

void FolderWatch::wait()
{
    constexpr int slowly = 500; // milliseconds
    pollfd sources[] = {{STDOUT_FILENO, 0, 0}, {events.get(), POLLIN, 0}};
    if (::poll(sources, 2, slowly) > 0) {
        if ((sources[0].revents & (POLLERR | POLLHUP)) != 0) {
            throw OutputFailure{EPIPE};
        }
        takeEvents();
    }
    look();
}
