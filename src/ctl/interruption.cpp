// SPDX-License-Identifier: Apache-2.0
#include "ctl/interruption.h"

#include <csignal>

namespace
{

constexpr int signals[] = {SIGINT, SIGTERM, SIGHUP};

volatile std::sig_atomic_t lastSignal = 0;

void takeNote(int signal)
{
    lastSignal = signal;
}

} // namespace

Interruption::Interruption()
{
    lastSignal = 0;
    for (const int signal : signals) {
        if (std::signal(signal, takeNote) == SIG_IGN) {
            (void)std::signal(signal, SIG_IGN); // as nohup wants it
        }
    }
}

Interruption::~Interruption()
{
    for (const int signal : signals) {
        if (std::signal(signal, SIG_DFL) == SIG_IGN) {
            (void)std::signal(signal, SIG_IGN);
        }
    }
}

void Interruption::check() const
{
    if (lastSignal != 0) {
        throw Happened{lastSignal};
    }
}
