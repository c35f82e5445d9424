#pragma once

#include "Signal.h"

#include <vector>

namespace vesk::audio
{
/** Analogue-style magnitude responses sampled at given frequencies (one value per frequency,
    linear magnitude). Any thread. */
class Butterworth
{
public:
    /** 1 / sqrt(r^n + k r^(n/2) + 1) with r = (f/cutoff)^2 and k = 2/10^(shapeDb/10) - 2. */
    static Signal32 evaluateLowPassFilter (std::vector<float> const& freqs, float cutoff,
                                           float order, float shapeDb);
    /** As the low-pass with r = (cutoff/f)^2; 0 at f <= 0. */
    static Signal32 evaluateHighPassFilter (std::vector<float> const& freqs, float cutoff,
                                            float order, float shapeDb);
    /** A bell of bandwidthOctaves around centre; a cut is the exact reciprocal of the boost. */
    static Signal32 evaluatePeakFilter (std::vector<float> const& freqs, float gainDb, float centre,
                                        float bandwidthOctaves, float exponent);
};
} // namespace vesk::audio
