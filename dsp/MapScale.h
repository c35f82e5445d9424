#pragma once

#include "Signal.h"

#include <vector>

namespace vesk
{
/** Linear resampling of curves from one grid onto another, weights computed once. Any thread;
    one object per thread. */
class MapScale
{
public:
    struct LinearMapEntry
    {
        int first = 0;
        int end = 0;
        std::vector<float> weights;
    };

    MapScale() = default;

    /** Output j reads input position j * step; beyond the last input it holds the last value.
        A negative position is clamped to the first input. */
    void createLinearRescaleMap (int inputSize, int outputSize, double step);
    /** out[c][j] = sum of weights times the input samples of entry j. */
    audio::Signal32 apply (audio::Signal32 const& in) const;

    std::vector<LinearMapEntry> const& getEntries() const noexcept { return entries; }

private:
    std::vector<LinearMapEntry> entries;
};
} // namespace vesk
