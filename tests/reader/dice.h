// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QtGlobal>

#include <iterator>
#include <random>

//! Throws that are the same on every platform: each round of a seed starts anew.
class Dice
{
public:
    Dice(quint32 seed, quint32 round)
        : engine((quint64(seed) << 32) | round)
    {
    }

    quint64 bits() { return engine(); }
    //! From 0 to \a bound, which is not included.
    int below(int bound) { return int(engine() % quint64(bound)); }
    int between(int lowest, int highest) { return lowest + below(highest - lowest + 1); }
    bool chance(int percent) { return below(100) < percent; }
    template <typename Container>
    const auto &oneOf(const Container &container)
    {
        return *std::next(std::begin(container), below(int(std::size(container))));
    }

private:
    std::mt19937_64 engine;
};
