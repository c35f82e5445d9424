#pragma once

#include "Signal.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

namespace vesk::test
{
/** Deterministic white noise in [-1, 1). */
inline audio::Signal32 whiteNoise (int channels, int samples, std::uint32_t seed)
{
    std::mt19937 generator (seed);
    std::uniform_real_distribution<float> distribution (-1.0f, 1.0f);
    audio::Signal32 signal (channels, samples);
    for (int c = 0; c < channels; ++c)
        for (int n = 0; n < samples; ++n)
            signal[c][n] = distribution (generator);
    return signal;
}

/** A decaying noise response, like a room or a correction filter's tail. */
inline audio::Signal32 decayingResponse (int channels, int length, std::uint32_t seed)
{
    auto response = whiteNoise (channels, length, seed);
    for (int c = 0; c < channels; ++c)
        for (int n = 0; n < length; ++n)
            response[c][n] *= static_cast<float> (std::exp (-3.0 * n / std::max (length, 1)));
    return response;
}

/** y[n] = sum_k h[k] x[n - k] in double precision, one channel. */
inline std::vector<double> directConvolution (const float* x, int samples, const float* h, int taps)
{
    std::vector<double> y (static_cast<std::size_t> (samples), 0.0);
    for (int n = 0; n < samples; ++n)
    {
        double sum = 0.0;
        const int last = std::min (taps - 1, n);
        for (int k = 0; k <= last; ++k)
            sum += static_cast<double> (h[k]) * x[n - k];
        y[static_cast<std::size_t> (n)] = sum;
    }
    return y;
}

/** The largest difference, on any sample of any channel, between output and the direct
    convolution of input with the response's first channel, relative to the convolution's peak. */
inline double convolutionError (const audio::Signal32& input, const audio::Signal32& output,
                                const audio::Signal32& response)
{
    double peak = 0.0, error = 0.0;
    for (int c = 0; c < input.getNumChannels(); ++c)
    {
        const auto reference = directConvolution (input[c], input.getNumSamples(), response[0],
                                                  response.getNumSamples());
        for (int n = 0; n < input.getNumSamples(); ++n)
        {
            peak = std::max (peak, std::fabs (reference[static_cast<std::size_t> (n)]));
            error = std::max (error,
                              std::fabs (reference[static_cast<std::size_t> (n)] - output[c][n]));
        }
    }
    return error / std::max (peak, 1e-30);
}
} // namespace vesk::test
