// SPDX-License-Identifier: Apache-2.0
#include "app/daemon.h"

#include <QCoreApplication>

#include <fcntl.h>
#include <unistd.h>

namespace
{

/*!
 * Has standard input, output and error lead somewhere. A bare init script may start the
 * process without them; the next descriptors, the connection to the bus among them, would
 * take their numbers, and what is written to standard error would end up there.
 */
void openStandardDescriptors()
{
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) == -1) {
            (void)open("/dev/null", O_RDWR); // takes the lowest number that is free
        }
    }
}

} // namespace

int main(int argc, char *argv[])
{
    openStandardDescriptors(); // before anything else is opened
    QCoreApplication application(argc, argv);
    return runDaemon(application);
}
