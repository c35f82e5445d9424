#include "LongTermSpectrum.h"

#include "WindowFunctions.h"

#include <algorithm>
#include <cmath>

using vesk::audio::Signal32;

LongTermSpectrum::LongTermSpectrum (double rate)
    : sampleRate (rate), window (vesk::audio::WindowFunctions::generateHammingWindow (size)),
      frame (1, size), pending (1, size, 0.0f), sum (size / 2 + 1, 0.0)
{
}

void LongTermSpectrum::add (Signal32 const& block)
{
    // The channels are summed, then framed with half overlap.
    for (int done = 0; done < block.getNumSamples();)
    {
        const int count = std::min (size - pendingCount, block.getNumSamples() - done);
        float* target = pending[0] + pendingCount;
        vesk::audio::ippsCopy_32f (block[0] + done, target, count);
        for (int c = 1; c < block.getNumChannels(); ++c)
            vesk::audio::ippsAdd_32f_I (block[c] + done, target, count);
        pendingCount += count;
        done += count;
        if (pendingCount < size)
            continue;
        vesk::audio::ippsCopy_32f (pending[0], frame[0], size);
        vesk::audio::ippsMul_32f_I (window[0], frame[0], size);
        const auto bins = transform.forwardReal (frame);
        for (int k = 0; k <= size / 2; ++k)
            sum[static_cast<std::size_t> (k)] +=
                static_cast<double> (bins[0][k].re) * bins[0][k].re
                + static_cast<double> (bins[0][k].im) * bins[0][k].im;
        ++frames;
        vesk::audio::ippsMove_32f (pending[0] + size / 2, pending[0], size / 2);
        pendingCount = size / 2;
    }
}

std::vector<double> LongTermSpectrum::power() const
{
    std::vector<double> mean (sum);
    for (auto& p : mean)
        p /= std::max (frames, 1);
    return mean;
}

double tonalDeviation (std::vector<double> const& power, double rate,
                       std::vector<float> const& targetFrequencies,
                       Signal32 const& targetMagnitudes)
{
    const int size = static_cast<int> (power.size() - 1) * 2;
    std::vector<double> deviation;
    for (int k = -13; k <= 12; ++k)
    {
        const double centre = 1000.0 * std::pow (2.0, k / 3.0);
        if (centre < 49.0 || centre > 16500.0 || centre * std::pow (2.0, 1.0 / 6.0) > rate / 2)
            continue;
        const double lo = centre * std::pow (2.0, -1.0 / 6.0),
                     hi = centre * std::pow (2.0, 1.0 / 6.0);
        double level = 0.0, target = 0.0;
        int bins = 0, targetBins = 0;
        for (int b = static_cast<int> (std::ceil (lo * size / rate));
             b <= static_cast<int> (hi * size / rate); ++b)
            level += power[static_cast<std::size_t> (b)], ++bins;
        for (std::size_t b = 1; b < targetFrequencies.size(); ++b)
            if (targetFrequencies[b] >= lo && targetFrequencies[b] <= hi)
                target += static_cast<double> (targetMagnitudes[0][b]) * targetMagnitudes[0][b],
                    ++targetBins;
        if (bins == 0 || targetBins == 0 || level <= 0.0 || target <= 0.0)
            continue;
        deviation.push_back (10.0 * std::log10 (level / bins)
                             - 10.0 * std::log10 (target / targetBins));
    }
    if (deviation.empty())
        return 0.0;
    double mean = 0.0, squares = 0.0;
    for (double d : deviation)
        mean += d;
    mean /= static_cast<double> (deviation.size());
    for (double d : deviation)
        squares += (d - mean) * (d - mean);
    return std::sqrt (squares / static_cast<double> (deviation.size()));
}

std::vector<std::pair<double, double>> thirdOctaveLevels (std::vector<double> const& power,
                                                          double rate)
{
    const int size = static_cast<int> (power.size() - 1) * 2;
    std::vector<std::pair<double, double>> levels;
    for (int k = -17; k <= 13; ++k)
    {
        const double centre = 1000.0 * std::pow (2.0, k / 3.0);
        const double lo = centre * std::pow (2.0, -1.0 / 6.0),
                     hi = centre * std::pow (2.0, 1.0 / 6.0);
        if (hi > rate / 2)
            break;
        double level = 0.0;
        int bins = 0;
        for (int b = static_cast<int> (std::ceil (lo * size / rate));
             b <= static_cast<int> (hi * size / rate); ++b)
            level += power[static_cast<std::size_t> (b)], ++bins;
        levels.emplace_back (centre, bins > 0 && level > 0.0 ? 10.0 * std::log10 (level / bins)
                                                             : -HUGE_VAL);
    }
    return levels;
}
