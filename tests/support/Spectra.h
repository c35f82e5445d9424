#pragma once

#include "FourierTransform.h"
#include "Signal.h"
#include "TestSignals.h"
#include "WindowFunctions.h"

#include <cmath>
#include <vector>

namespace vesk::test
{
/** A biquad section (direct form I, double precision) for colouring test signals. */
struct Biquad
{
    double b0 = 1, b1 = 0, b2 = 0, a1 = 0, a2 = 0;

    static Biquad lowPass (double frequency, double q, double rate)
    {
        const double w = 2.0 * M_PI * frequency / rate, alpha = std::sin (w) / (2.0 * q),
                     c = std::cos (w);
        const double a0 = 1.0 + alpha;
        return {(1.0 - c) / 2.0 / a0, (1.0 - c) / a0, (1.0 - c) / 2.0 / a0, -2.0 * c / a0,
                (1.0 - alpha) / a0};
    }

    static Biquad highPass (double frequency, double q, double rate)
    {
        const double w = 2.0 * M_PI * frequency / rate, alpha = std::sin (w) / (2.0 * q),
                     c = std::cos (w);
        const double a0 = 1.0 + alpha;
        return {(1.0 + c) / 2.0 / a0, -(1.0 + c) / a0, (1.0 + c) / 2.0 / a0, -2.0 * c / a0,
                (1.0 - alpha) / a0};
    }

    static Biquad peak (double frequency, double q, double gainDb, double rate)
    {
        const double a = std::pow (10.0, gainDb / 40.0), w = 2.0 * M_PI * frequency / rate;
        const double alpha = std::sin (w) / (2.0 * q), c = std::cos (w), a0 = 1.0 + alpha / a;
        return {(1.0 + alpha * a) / a0, -2.0 * c / a0, (1.0 - alpha * a) / a0, -2.0 * c / a0,
                (1.0 - alpha / a) / a0};
    }

    /** A low shelf of the given slope (1: as steep as it stays monotonic). */
    static Biquad lowShelf (double frequency, double slope, double gainDb, double rate)
    {
        const double a = std::pow (10.0, gainDb / 40.0), w = 2.0 * M_PI * frequency / rate;
        const double c = std::cos (w),
                     alpha =
                         std::sin (w) / 2.0 * std::sqrt ((a + 1.0 / a) * (1.0 / slope - 1.0) + 2.0),
                     s = 2.0 * std::sqrt (a) * alpha;
        const double a0 = (a + 1.0) + (a - 1.0) * c + s;
        return {a * ((a + 1.0) - (a - 1.0) * c + s) / a0,
                2.0 * a * ((a - 1.0) - (a + 1.0) * c) / a0,
                a * ((a + 1.0) - (a - 1.0) * c - s) / a0, -2.0 * ((a - 1.0) + (a + 1.0) * c) / a0,
                ((a + 1.0) + (a - 1.0) * c - s) / a0};
    }

    /** Filters every channel in place. */
    void apply (audio::Signal32& signal) const
    {
        for (int c = 0; c < signal.getNumChannels(); ++c)
        {
            double x1 = 0, x2 = 0, y1 = 0, y2 = 0;
            float* s = signal[c];
            for (int n = 0; n < signal.getNumSamples(); ++n)
            {
                const double x = s[n], y = b0 * x + b1 * x1 + b2 * x2 - a1 * y1 - a2 * y2;
                x2 = x1, x1 = x, y2 = y1, y1 = y;
                s[n] = static_cast<float> (y);
            }
        }
    }
};

/** Stereo white noise at 0.3 of full scale through a chain of biquads: stationary coloured
    material whose colour is known exactly. */
inline audio::Signal32 colouredNoise (std::vector<Biquad> const& colouring, int samples,
                                      std::uint32_t seed)
{
    audio::Signal32 signal = whiteNoise (2, samples, seed) * 0.3f;
    for (auto const& section : colouring)
        section.apply (signal);
    return signal;
}

/** Long-term power spectrum (Hamming-windowed frames of 8192, half overlap, channels summed as
    powers), then levels in dB of third-octave bands centred at 1000 * 2^(k/3) Hz. */
struct BandLevels
{
    std::vector<double> centres;
    std::vector<double> levels;

    /** The level at the band nearest to a frequency. */
    double at (double frequency) const
    {
        std::size_t best = 0;
        for (std::size_t i = 0; i < centres.size(); ++i)
            if (std::fabs (std::log (centres[i] / frequency))
                < std::fabs (std::log (centres[best] / frequency)))
                best = i;
        return levels[best];
    }
};

inline BandLevels thirdOctaveLevels (audio::Signal32 const& signal, double rate, double from,
                                     double to, int skip = 0)
{
    constexpr int size = 8192;
    audio::FourierTransform transform;
    const auto window = audio::WindowFunctions::generateHammingWindow (size);
    std::vector<double> power (size / 2 + 1, 0.0);
    audio::Signal32 frame (1, size);
    for (int c = 0; c < signal.getNumChannels(); ++c)
        for (int start = skip; start + size <= signal.getNumSamples(); start += size / 2)
        {
            for (int n = 0; n < size; ++n)
                frame[0][n] = signal[c][start + n] * window[0][n];
            const auto bins = transform.forwardReal (frame);
            for (int k = 0; k <= size / 2; ++k)
                power[static_cast<std::size_t> (k)] +=
                    bins[0][k].re * bins[0][k].re + bins[0][k].im * bins[0][k].im;
        }

    BandLevels bands;
    for (int k = -30; k <= 13; ++k)
    {
        const double centre = 1000.0 * std::pow (2.0, k / 3.0);
        if (centre < from * 0.99 || centre > to * 1.01)
            continue;
        const int lo =
            static_cast<int> (std::ceil (centre * std::pow (2.0, -1.0 / 6.0) * size / rate));
        const int hi =
            static_cast<int> (std::floor (centre * std::pow (2.0, 1.0 / 6.0) * size / rate));
        double sum = 0.0;
        for (int b = lo; b <= hi; ++b)
            sum += power[static_cast<std::size_t> (b)];
        bands.centres.push_back (centre);
        bands.levels.push_back (10.0 * std::log10 (sum / std::max (hi - lo + 1, 1)));
    }
    return bands;
}
} // namespace vesk::test
