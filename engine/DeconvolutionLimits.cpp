#include "Deconvolution.h"

#include <algorithm>
#include <cmath>
#include <complex>

namespace vesk::audio
{
namespace
{
/** |H|^2 of a biquad (b0, b1, b2; 1, a1, a2) at normalised angular frequency w. */
double biquadPower (double b0, double b1, double b2, double a1, double a2, double w)
{
    const std::complex<double> z1 = std::polar (1.0, -w), z2 = z1 * z1;
    return std::norm ((b0 + b1 * z1 + b2 * z2) / (1.0 + a1 * z1 + a2 * z2));
}

/** The power response of the BS.1770 K-weighting at any rate: its high shelf and its
    high-pass, designed from their analogue prototypes for the rate (as libebur128 does). */
double kWeightingPower (double frequency, double rate)
{
    const double w = 2.0 * M_PI * frequency / rate;
    double shelf = 0.0;
    {
        const double f0 = 1681.974450955533, gain = 3.999843853973347, q = 0.7071752369554196;
        const double k = std::tan (M_PI * f0 / rate), vh = std::pow (10.0, gain / 20.0);
        const double vb = std::pow (vh, 0.4996667741545416), a0 = 1.0 + k / q + k * k;
        shelf = biquadPower ((vh + vb * k / q + k * k) / a0, 2.0 * (k * k - vh) / a0,
                             (vh - vb * k / q + k * k) / a0, 2.0 * (k * k - 1.0) / a0,
                             (1.0 - k / q + k * k) / a0, w);
    }
    const double f0 = 38.13547087602444, q = 0.5003270373238773;
    const double k = std::tan (M_PI * f0 / rate), a0 = 1.0 + k / q + k * k;
    const double highPass =
        biquadPower (1.0, -2.0, 1.0, 2.0 * (k * k - 1.0) / a0, (1.0 - k / q + k * k) / a0, w);
    return shelf * highPass;
}
} // namespace

void Deconvolution::setCorrectionLimits (const CorrectionLimits& limits)
{
    const juce::ScopedLock lock (designLock);
    correctionLimits = limits;
    relativeThreshold = limits.thresholdRelativeToLevel;
    updateFilter();
}

Deconvolution::CorrectionLimits Deconvolution::getCorrectionLimits()
{
    const juce::ScopedLock lock (designLock);
    return correctionLimits;
}

void Deconvolution::averageOverOctaves (std::vector<double>& values, double octaves) const
{
    // A running mean over a window of constant width in octaves, from prefix sums: linear in the
    // number of bins whatever the width.
    const int bins = static_cast<int> (values.size());
    std::vector<double> prefix (values.size() + 1, 0.0);
    for (std::size_t k = 0; k < values.size(); ++k)
        prefix[k + 1] = prefix[k] + values[k];
    const double binWidth = sampleRate.load() / fftSize, half = std::pow (2.0, octaves / 2.0);
    for (int k = 0; k < bins; ++k)
    {
        const double f = std::max (k * binWidth, 20.0);
        const int lo =
            std::clamp (static_cast<int> (std::floor (f / half / binWidth)), 0, bins - 1);
        const int hi =
            std::clamp (static_cast<int> (std::ceil (f * half / binWidth)), lo, bins - 1);
        values[static_cast<std::size_t> (k)] =
            (prefix[static_cast<std::size_t> (hi) + 1] - prefix[static_cast<std::size_t> (lo)])
            / (hi - lo + 1);
    }
}

Signal32 Deconvolution::smoothedCorrection (const Signal32& whitening, const Signal32& target)
{
    const juce::ScopedLock lock (designLock);
    const double octaves = correctionLimits.smoothingOctaves;
    const int bins = std::min (whitening.getNumSamples(), target.getNumSamples());
    Signal32 correction (1, bins);
    if (!(octaves > 0.0))
    {
        for (int k = 0; k < bins; ++k)
            correction[0][k] = whitening[0][k] * target[0][k];
        return correction;
    }
    // Both spectra are first averaged as power over a narrow band, the way band levels add up:
    // the partials of the notes or voices learnt count by their energy, not by the dips between
    // them. The ratio is then averaged in dB over the whole width, which keeps steep slopes
    // (a telephone's shelves) where they are.
    std::vector<double> source (static_cast<std::size_t> (bins)), wanted (source.size());
    for (int k = 0; k < bins; ++k)
    {
        const double a = std::max (static_cast<double> (whitening[0][k]), 1.0e-10);
        source[static_cast<std::size_t> (k)] = 1.0 / (a * a);
        wanted[static_cast<std::size_t> (k)] = static_cast<double> (target[0][k]) * target[0][k];
    }
    averageOverOctaves (source, partialsOctaves);
    averageOverOctaves (wanted, partialsOctaves);
    std::vector<double> ratio (source.size());
    for (std::size_t k = 0; k < ratio.size(); ++k)
        ratio[k] = 0.5 * std::log (std::max (wanted[k], 1.0e-30) / std::max (source[k], 1.0e-30));
    averageOverOctaves (ratio, octaves);
    for (int k = 0; k < bins; ++k)
    {
        const double gain = std::exp (ratio[static_cast<std::size_t> (k)]);
        correction[0][k] = std::isfinite (gain) ? static_cast<float> (gain) : 1.0f;
    }
    return correction;
}

namespace
{
/** The median of values weighted by their weights (both nonempty, same size). */
double weightedMedian (std::vector<std::pair<double, double>> valueAndWeight)
{
    std::sort (valueAndWeight.begin(), valueAndWeight.end());
    double total = 0.0;
    for (auto const& [value, weight] : valueAndWeight)
        total += weight;
    double sum = 0.0;
    for (auto const& [value, weight] : valueAndWeight)
        if ((sum += weight) >= total / 2.0)
            return value;
    return valueAndWeight.back().first;
}
} // namespace

void Deconvolution::spareNaturalVariation (Signal32& correction)
{
    const juce::ScopedLock lock (designLock);
    const int bins =
        std::min (correction.getNumSamples(), static_cast<int> (binFrequencies.size()));
    float* c = correction.getChannel (0);
    // The level at which the target fits most of the range: the median of the correction over
    // 100 Hz .. 8 kHz, each octave counting the same.
    std::vector<std::pair<double, double>> levels;
    for (int k = 1; k < bins; ++k)
    {
        const double f = binFrequencies[static_cast<std::size_t> (k)];
        if (f >= 100.0 && f <= 8000.0)
            levels.emplace_back (std::log (std::max (c[k], 1.0e-10f)), 1.0 / f);
    }
    if (levels.empty())
        return;
    const double reference = weightedMedian (std::move (levels));
    const double tolerance = naturalVariationDb / 20.0 * std::log (10.0);
    for (int k = 0; k < bins; ++k)
    {
        // Below 200 Hz and above 8 kHz material varies more (the bass of an arrangement, air,
        // a microphone's roll-off): the tolerance grows to 2.5 times over the octave beyond.
        const double f =
            std::max (static_cast<double> (binFrequencies[static_cast<std::size_t> (k)]), 1.0);
        const double outside = std::max ({0.0, std::log2 (200.0 / f), std::log2 (f / 8000.0)});
        const double allowed = tolerance * (1.0 + 1.5 * std::min (outside, 1.0));
        const double departure = std::log (std::max (c[k], 1.0e-10f)) - reference;
        const double kept = departure > 0.0 ? std::max (departure - allowed, 0.0)
                                            : std::min (departure + allowed, 0.0);
        c[k] = static_cast<float> (std::exp (reference + kept));
    }
}

void Deconvolution::spareUnheldBands (Signal32& curve, const Signal32& whitening, float share)
{
    const juce::ScopedLock lock (designLock);
    const int bins = std::min (curve.getNumSamples(), whitening.getNumSamples());
    if (bins < 2)
        return;
    float* c = curve.getChannel (0);
    const float* a = whitening.getChannel (0);
    // The material's level per third of an octave (the learnt power is 1 / |A|^2).
    std::vector<double> level (static_cast<std::size_t> (bins));
    for (int k = 0; k < bins; ++k)
        level[static_cast<std::size_t> (k)] =
            1.0 / std::max (static_cast<double> (a[k]) * a[k], 1.0e-30);
    averageOverOctaves (level, 1.0 / 3.0);
    const double binWidth = sampleRate.load() / fftSize;
    const int reference =
        std::clamp (static_cast<int> (std::lround (1000.0 / binWidth)), 1, bins - 1);
    const double referenceDb = 10.0 * std::log10 (level[static_cast<std::size_t> (reference)]);
    const double referenceLift = 20.0 * std::log10 (std::max (c[reference], 1.0e-10f));
    for (int k = 0; k < bins; ++k)
    {
        // From 20 dB under the 1 kHz band on, the lift allowed above the 1 kHz correction
        // shrinks from 24 dB to 5 dB, reached 30 dB under it, and on to nothing 60 dB under it:
        // what lies that far down is rumble, hum, a codec's band limit or a resampler's noise
        // more often than music. (With no lift from 30 dB on, muffled and telephone-band music
        // kept half of what the profiles now restore; with 5 dB on to any depth, a lossy file's
        // empty top was lifted by 6 dB.) The allowance scales with the share of the correction
        // applied.
        const double depth = referenceDb - 10.0 * std::log10 (level[static_cast<std::size_t> (k)]);
        if (depth <= 20.0)
            continue;
        const double allowed = share
                               * (5.0 * std::clamp ((60.0 - depth) / 30.0, 0.0, 1.0)
                                  + 19.0 * std::clamp ((30.0 - depth) / 10.0, 0.0, 1.0));
        const double most = std::pow (10.0, (referenceLift + allowed) / 20.0);
        c[k] = std::min (c[k], static_cast<float> (most));
    }
}

void Deconvolution::applyCorrectionLimits (Signal32& curve, const Signal32& whitening)
{
    const juce::ScopedLock lock (designLock);
    const int bins = std::min (curve.getNumSamples(), whitening.getNumSamples());
    float* c = curve.getChannel (0);
    const float* a = whitening.getChannel (0);
    const double rate = sampleRate.load();

    if (correctionLimits.lowestHz > 0.0f || std::isfinite (correctionLimits.highestHz))
    {
        int first = 0, last = bins - 1;
        while (first < last
               && binFrequencies[static_cast<std::size_t> (first)] < correctionLimits.lowestHz)
            ++first;
        while (last > first
               && binFrequencies[static_cast<std::size_t> (last)] > correctionLimits.highestHz)
            --last;
        std::fill (c, c + first, c[first]);
        std::fill (c + last + 1, c + bins, c[last]);
    }
    // The correction grows with what has been learnt: a few frames are not a balance yet.
    float amount = correctionLimits.amount;
    if (correctionLimits.departuresOnly)
        amount *= static_cast<float> (std::clamp (designLearntSeconds / growthSeconds, 0.0, 1.0));
    if (amount != 1.0f)
        for (int k = 0; k < bins; ++k)
            c[k] = std::pow (c[k], amount);
    if (correctionLimits.departuresOnly && targetModel != custom)
        spareUnheldBands (curve, whitening, amount);

    // The learnt power spectrum is 1 / |A|^2; its peak tells where "almost nothing" begins.
    if (correctionLimits.spareEmptyBands)
    {
        float smallest = std::numeric_limits<float>::infinity();
        for (int k = 1; k < bins; ++k)
            if (binFrequencies[static_cast<std::size_t> (k)] >= 20.0f)
                smallest = std::min (smallest, a[k]);
        // Lifts fade out between 90 and 100 dB under the peak rather than stop at a line, so a
        // level hovering at the threshold does not make the correction flicker bin by bin. (From
        // 80 dB on, the top of music behind telephone shelves, at 80 to 90 dB, stayed too dull;
        // an encoder's cut-off lies deeper, at the model's floor.)
        for (int k = 0; k < bins; ++k)
        {
            if (c[k] <= 1.0f)
                continue;
            const float depthDb = 20.0f * std::log10 (a[k] / smallest);
            const float keep = std::clamp ((100.0f - depthDb) / 10.0f, 0.0f, 1.0f);
            c[k] = std::pow (c[k], keep);
        }
    }
    if (correctionLimits.loudnessMatched && rate > 0.0)
    {
        // K-weighted power of the material before and after the curve: their ratio is the
        // make-up gain. Static, so it adds no latency and does not pump.
        double before = 0.0, after = 0.0;
        for (int k = 1; k < bins; ++k)
        {
            const double f = binFrequencies[static_cast<std::size_t> (k)];
            const double power = kWeightingPower (f, rate) / (static_cast<double> (a[k]) * a[k]);
            before += power;
            after += power * c[k] * c[k];
        }
        if (after > 0.0 && std::isfinite (before / after))
        {
            const auto gain = static_cast<float> (std::sqrt (before / after));
            for (int k = 0; k < bins; ++k)
                c[k] *= gain;
        }
    }
    // Last, so that the loudness gain cannot lift a band past it.
    if (std::isfinite (correctionLimits.maximumBoostDb))
    {
        const float most = std::pow (10.0f, correctionLimits.maximumBoostDb / 20.0f);
        for (int k = 0; k < bins; ++k)
            c[k] = std::min (c[k], most);
    }
}
} // namespace vesk::audio
