// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <vector>

//! What the programs behind peers-hook tell the time with, and how they tell a result.

inline double seconds(clockid_t clock)
{
    timespec time{};
    (void)clock_gettime(clock, &time);
    return double(time.tv_sec) + double(time.tv_nsec) / 1e9;
}

inline double wallSeconds()
{
    return seconds(CLOCK_MONOTONIC);
}

inline double cpuSeconds()
{
    return seconds(CLOCK_PROCESS_CPUTIME_ID);
}

inline double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.at(values.size() / 2);
}

//! One result a line, for whoever started the program.
inline void say(const char *key, double value)
{
    (void)std::printf("%s %.17g\n", key, value);
    (void)std::fflush(stdout);
}

//! The time and the CPU time of everything since it was made, both for one of \a items.
class Stopwatch
{
public:
    void sayRateAndCpu(double items) const
    {
        const double wall = wallSeconds() - wallStart;
        const double cpu = cpuSeconds() - cpuStart;
        say("rate", items / wall);
        say("cpu_us", cpu / items * 1e6);
    }

private:
    double wallStart = wallSeconds();
    double cpuStart = cpuSeconds();
};
