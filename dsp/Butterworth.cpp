#include "Butterworth.h"

#include "MathEx.h"

#include <cmath>

namespace vesk::audio
{
namespace
{
Signal32 evaluatePass (std::vector<float> const& freqs, float cutoff, float order, float shapeDb,
                       bool highPass)
{
    const float g = MathEx::fromDecibel (2.0f * shapeDb);
    const float k = 2.0f / g - 2.0f;
    const double n = order;
    Signal32 result (1, static_cast<int> (freqs.size()));
    float* out = result.getChannel (0);
    for (std::size_t i = 0; i < freqs.size(); ++i)
    {
        const float f = freqs[i];
        if (highPass && f <= 0.0f)
        {
            out[i] = 0.0f;
            continue;
        }
        const float ratio = highPass ? cutoff / f : f / cutoff;
        const double r = static_cast<double> (ratio * ratio);
        out[i] = static_cast<float> (
            1.0
            / std::sqrt (std::pow (r, n) + static_cast<double> (k) * std::pow (r, n / 2.0) + 1.0));
    }
    return result;
}
} // namespace

Signal32 Butterworth::evaluateLowPassFilter (std::vector<float> const& freqs, float cutoff,
                                             float order, float shapeDb)
{
    return evaluatePass (freqs, cutoff, order, shapeDb, false);
}

Signal32 Butterworth::evaluateHighPassFilter (std::vector<float> const& freqs, float cutoff,
                                              float order, float shapeDb)
{
    return evaluatePass (freqs, cutoff, order, shapeDb, true);
}

Signal32 Butterworth::evaluatePeakFilter (std::vector<float> const& freqs, float gainDb,
                                          float centre, float bandwidthOctaves, float exponent)
{
    const float gain = MathEx::fromDecibel (std::fabs (gainDb));
    const float b = std::pow (2.0f, bandwidthOctaves);
    const float q = std::sqrt (b) / (b - 1.0f);
    Signal32 result (1, static_cast<int> (freqs.size()));
    float* out = result.getChannel (0);
    for (std::size_t i = 0; i < freqs.size(); ++i)
    {
        const float f = freqs[i];
        const float t = std::pow (std::fabs (centre * centre - f * f) * q / (f * centre), exponent);
        const float v = (gain - 1.0f) / std::sqrt (t + 1.0f) + 1.0f;
        out[i] = gainDb > 0.0f ? v : 1.0f / v;
    }
    return result;
}
} // namespace vesk::audio
