// SPDX-License-Identifier: Apache-2.0
#include "app/daemon.h"

#include <QCoreApplication>

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    return runDaemon(application);
}
