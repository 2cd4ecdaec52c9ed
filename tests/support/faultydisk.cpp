// SPDX-License-Identifier: Apache-2.0
#include "support/faultydisk.h"

#include <new>

#include <sys/mman.h>

FaultyDisk::FaultyDisk()
{
    if (!shared.open() || !shared.resize(qint64(sizeof(Faults)))) {
        qFatal("no file to share with the daemon");
    }
    void *const mapped
        = mmap(nullptr, sizeof(Faults), PROT_READ | PROT_WRITE, MAP_SHARED, shared.handle(), 0);
    if (mapped == MAP_FAILED || !qEnvironmentVariableIsSet("SEL_FAULTSHIM")) {
        qFatal("no memory to share with the daemon, or SEL_FAULTSHIM is not set");
    }
    faults = new (mapped) Faults{};
    faults->space = -1;
    qputenv(faultsVariable, shared.fileName().toLocal8Bit());
    qputenv("LD_PRELOAD", qgetenv("SEL_FAULTSHIM"));
    // The sanitizers' library wants to be the first one loaded, without a reason here.
    sanitizerOptions = qgetenv("ASAN_OPTIONS");
    qputenv("ASAN_OPTIONS", sanitizerOptions + ":verify_asan_link_order=0");
}

FaultyDisk::~FaultyDisk()
{
    qunsetenv("LD_PRELOAD");
    qputenv("ASAN_OPTIONS", sanitizerOptions);
    qunsetenv(faultsVariable);
    munmap(faults, sizeof(Faults));
}
