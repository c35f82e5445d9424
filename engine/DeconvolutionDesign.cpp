#include "Butterworth.h"
#include "Deconvolution.h"
#include "Interpolation.h"
#include "MathEx.h"

#include <cmath>

namespace vesk::audio
{
namespace
{
Signal32 multiplied (Signal32 const& curve, Signal32 const& factor)
{
    Signal32 result = curve.copy();
    ippsMul_32f_I (factor.getChannel (0), result.getChannel (0), result.getNumSamples());
    return result;
}

/** Only corrupt data (a stored filter with a null in its response, say) produces non-finite or
    absurd gains; they are held within +-200 dB rather than poisoning the whole filter. */
void sanitise (Signal32& curve)
{
    float* c = curve.getChannel (0);
    for (int k = 0; k < curve.getNumSamples(); ++k)
        c[k] = std::isnan (c[k]) ? 1.0f : std::clamp (c[k], 0.0f, 1.0e10f);
}

bool hasCoefficients (Signal32 const& coefficients)
{
    return coefficients.hasStorage() && coefficients.getNumChannels() > 0
           && coefficients.getNumSamples() > 0;
}
} // namespace

Signal32 Deconvolution::getMagnitudesFromFilterCoefficients (const Signal32& coefficients,
                                                             double filterSampleRate)
{
    const juce::ScopedLock lock (designLock);
    const int bins = fftSize / 2 + 1;
    if (!hasCoefficients (coefficients))
        return Signal32 (1, bins, 1.0f);

    // A set longer than the transform (the long-term spectrum learnt at a higher rate is one
    // transform of that rate long) gets a transform of its own length, so its tail is not cut
    // off; beyond eight transforms (more than any rate the engine runs at) it is cut.
    const int taps = coefficients.getNumSamples();
    const int size =
        std::min (std::max (fftSize, MathEx::findLargerPowerOfTwo (taps)), 8 * fftSize);
    Signal32 padded (1, size, 0.0f);
    ippsCopy_32f (coefficients.getChannel (0), padded.getChannel (0), std::min (taps, size));
    auto& transform = size == fftSize ? designTransform : filterTransform;
    const auto magnitudes = transform.forwardReal (padded).getMagnitudeSignal();

    // A rate that is not a rate (0, negative, NaN) cannot be mapped; the set is read as it is.
    const double rate = sampleRate;
    const bool otherRate = std::fabs (rate - filterSampleRate) > 1.0 && filterSampleRate > 0.0
                           && std::isfinite (filterSampleRate);
    if (otherRate || size != fftSize)
    {
        const double ratio = otherRate ? rate / filterSampleRate : 1.0;
        rescaleMap.createLinearRescaleMap (size / 2 + 1, bins,
                                           ratio * size / static_cast<double> (fftSize));
        return rescaleMap.apply (magnitudes);
    }
    return magnitudes;
}

void Deconvolution::updateTargetMagnitudes (const Signal32& sourceMagnitudes)
{
    const juce::ScopedLock lock (designLock);
    const int bins = static_cast<int> (binFrequencies.size());
    const auto lowPass = [this] (float cutoff, float order)
    { return Butterworth::evaluateLowPassFilter (binFrequencies, cutoff, order, 0.0f); };
    const auto highPass = [this] (float cutoff, float order)
    { return Butterworth::evaluateHighPassFilter (binFrequencies, cutoff, order, 0.0f); };

    switch (targetModel.load())
    {
        case automatic: targetMagnitudes = extractTargetModelFromSource (sourceMagnitudes); break;
        case music:
            targetMagnitudes =
                multiplied (multiplied (highPass (75.0f, 2.0f), lowPass (100.0f, 1.0f)),
                            lowPass (10000.0f, 1.0f));
            break;
        case musicDark:
            targetMagnitudes =
                multiplied (multiplied (highPass (60.0f, 2.0f), lowPass (100.0f, 1.15f)),
                            lowPass (10000.0f, 1.0f));
            break;
        case musicLessHarsh:
            targetMagnitudes = multiplied (
                multiplied (
                    multiplied (highPass (75.0f, 2.0f), lowPass (100.0f, 1.05f)),
                    Butterworth::evaluatePeakFilter (binFrequencies, -3.0f, 3400.0f, 1.5f, 2.0f)),
                lowPass (10000.0f, 1.0f));
            break;
        case speech:
            targetMagnitudes =
                multiplied (multiplied (highPass (50.0f, 2.0f), lowPass (500.0f, 1.0f)),
                            lowPass (10000.0f, 1.0f));
            break;
        case custom:
        {
            targetMagnitudes = Signal32 (1, bins, 1.0f);
            if (bins > 0)
                ippsDiv_32f_I (getMagnitudesFromFilterCoefficients (targetFilter, targetSampleRate)
                                   .getChannel (0),
                               targetMagnitudes.getChannel (0), bins);
            break;
        }
        default:
            // Index 6 (the range allows one value past the six profiles) and anything else: flat.
            targetMagnitudes = Signal32 (1, bins, 1.0f);
            break;
    }
}

Signal32 Deconvolution::extractTargetModelFromSource (const Signal32&)
{
    const juce::ScopedLock lock (designLock);
    const int bins = fftSize / 2 + 1;
    // The long-term spectrum's model reaches 90 dB under its mean where the material holds
    // nothing (below a voice, above a codec's band): its first taps, all this profile looks at,
    // then swing with every frame learnt, and the profile's low end by 20 dB and more. Its
    // envelope is taken from the same spectrum with a floor 20 dB under that mean instead
    // (measured on the evaluation's restore tasks, learnt live: 40 dB still let speech's end up
    // further from its original), made from the model on the bin grid so that a model loaded
    // from a state gives the same profile as the one it was saved from.
    const bool spectral = estimator.load() == Estimator::longTermSpectrum;
    const auto& model = spectral ? envelopeSource : designSource;
    if (!hasCoefficients (model))
        return Signal32 (1, bins, 1.0f);

    // A 0.5 ms model, tapered towards its end: a much smoother envelope than the source's own.
    const int taps = std::min (static_cast<int> (sampleRate * 0.5 / 1000.0), model.getNumSamples());
    Signal32 shortened (1, std::max (taps, 1), 0.0f);
    for (int k = 0; k < taps; ++k)
        shortened[0][k] =
            model[0][k] * static_cast<float> (0.5 + 0.5 * std::cos (M_PI * k / std::max (taps, 1)));
    const auto whitening = getMagnitudesFromFilterCoefficients (
        shortened, spectral ? sampleRate.load() : designSourceRate);

    // Half-octave bands from 20 Hz up. A band's level is the mean of its bins in dB (a geometric
    // mean), so that a narrow notch or peak of the model cannot dominate the band. Bands centred
    // below 100 Hz hold only a handful of bins at these transform sizes, so each of them is
    // widened up to the top of the 100 Hz band: the target follows the source's low end broadly
    // instead of following single bins.
    const double binWidth = sampleRate / fftSize;
    const auto toBin = [&] (double frequency)
    { return std::clamp (static_cast<int> (std::lround (frequency / binWidth)), 1, bins - 1); };
    Signal32 logMagnitude = Signal32::log (Signal32::lowerBound (whitening, 1.0e-10f));
    const float* level = logMagnitude.getChannel (0);
    std::vector<Coordinate2D> points;
    for (double centre = 20.0; centre < sampleRate * 0.5; centre *= std::sqrt (2.0))
    {
        const int first = toBin (centre / std::sqrt (2.0));
        const int last =
            centre < 100.0 ? toBin (100.0 * std::sqrt (2.0)) : toBin (centre * std::sqrt (2.0));
        double sum = 0.0;
        for (int k = first; k <= last; ++k)
            sum += level[k];
        points.push_back ({static_cast<double> (static_cast<float> (std::log10 (centre))),
                           std::exp (sum / (last - first + 1))});
    }

    Signal32 target (1, bins, 1.0f);
    if (points.empty() || bins < 2)
        return target;
    TrigonometricInterpolation smoothed (points);
    float* out = target.getChannel (0);
    smoothed.evaluateAscending (binLogFrequencies.data() + 1, out + 1, bins - 1);
    for (int k = 1; k < bins; ++k)
        out[k] = 1.0f / out[k];
    out[0] = out[1];
    return target;
}

void Deconvolution::updateFilter()
{
    const juce::ScopedLock lock (designLock);
    const int bins = static_cast<int> (binFrequencies.size());
    if (bins == 0)
        return;

    {
        // The designers' own copy of what the audio thread learnt, taken in a moment.
        const juce::SpinLock::ScopedLockType snapshot (snapshotLock);
        designSpectrum.assign (spectrumSnapshot.begin(), spectrumSnapshot.end());
        const int learnt = sourceSnapshot.getNumSamples();
        designSource.ensureDimensions (1, learnt);
        if (learnt > 0)
            ippsCopy_32f (sourceSnapshot.getChannel (0), designSource.getChannel (0), learnt);
        designSourceRate = snapshotSampleRate;
        designLearntSeconds = snapshotLearntSeconds;
    }
    // The long-term spectrum's model is made here, once per design, off the audio thread.
    if (!designSpectrum.empty())
        designSource = whiteningOf (designSpectrum);

    Signal32 whitening; // of the learnt source, where there is one
    if (!hasCoefficients (designSource))
    {
        filterCurve = Signal32 (1, bins, 1.0f);
    }
    else
    {
        const auto source = getMagnitudesFromFilterCoefficients (designSource, designSourceRate);
        whitening = source;
        if (targetModel == automatic && estimator.load() == Estimator::longTermSpectrum)
        {
            std::vector<double> power (static_cast<std::size_t> (source.getNumSamples()));
            for (std::size_t k = 0; k < power.size(); ++k)
            {
                const double a = std::max (source[0][static_cast<int> (k)], 1.0e-10f);
                power[k] = 1.0 / (a * a);
            }
            envelopeSource = whiteningOf (power, 1.0e-2);
        }
        if (targetModel == automatic || targetMagnitudes.getNumSamples() != source.getNumSamples())
            updateTargetMagnitudes (source);
        Signal32 correction = smoothedCorrection (source, targetMagnitudes);
        sanitise (correction);
        // A custom target was learnt from one recording: it is followed exactly.
        if (correctionLimits.departuresOnly && targetModel != custom)
            spareNaturalVariation (correction);

        // Level matching. The bin weights average 1, so dividing by the mean of the weighted curve
        // gives the correction a weighted mean of 1: learning changes the colour, not the loudness.
        const auto weighted = correction * binWeights;
        float sum = 0.0f, total = 0.0f;
        for (int ch = 0; ch < weighted.getNumChannels(); ++ch)
        {
            ippsSum_32f (weighted.getChannel (ch), bins, &sum);
            total += sum;
        }
        const float mean =
            total / static_cast<float> (weighted.getNumChannels()) / static_cast<float> (bins);
        filterCurve = mean > 0.0f && std::isfinite (mean) ? correction / mean : correction;
    }

    if (emphasisLevels.hasStorage() && emphasisLevels.getNumSamples() == bins)
    {
        filterCurve = Signal32::fromDecibel (Signal32::toDecibel (filterCurve) * emphasisLevels);
        sanitise (filterCurve); // a null bin with a weight of 0 is -inf times 0
    }
    if (whitening.hasStorage())
        applyCorrectionLimits (filterCurve, whitening);

    // Every channel gets the same curve, so one response serves them all. It is transformed
    // for the convolution here and handed over; the audio thread only exchanges storage.
    impulseResponse = calculateImpulseResponse (filterCurve.extractChannels (0, 1));
    auto& slot = responseSlots[static_cast<std::size_t> (designSlot)];
    correctionFilter.prepareResponse (impulseResponse, slot);
    designSlot = readySlot.exchange (designSlot | freshResponse) & ~freshResponse;
    designedSinceBlock = true;
}

Signal32 Deconvolution::calculateImpulseResponse (const Signal32& magnitudes)
{
    const juce::ScopedLock lock (designLock);
    const int taps = std::min (static_cast<int> (sampleRate * 50.0 / 1000.0), fftSize);
    return minimumPhaseResponse (magnitudes).extractSection (0, taps);
}

Signal32 Deconvolution::minimumPhaseResponse (const Signal32& magnitudes)
{
    const juce::ScopedLock lock (designLock);
    const int n = fftSize;
    const int bins = n / 2 + 1;
    const int channels = magnitudes.getNumChannels();
    const float scale = 1.0f / static_cast<float> (n);

    // Log magnitude (scaled and floored at -200 dB), extended evenly to a full period.
    const auto logMagnitudes =
        Signal32::log (Signal32::lowerBound (magnitudes * scale, MathEx::fromDecibel (-200.0f)));
    Signal32 even (channels, n);
    for (int c = 0; c < channels; ++c)
    {
        ippsCopy_32f (logMagnitudes.getChannel (c), even.getChannel (c), bins);
        for (int k = 1; k < n / 2; ++k)
            even[c][n - k] = logMagnitudes[c][k];
    }

    // Its cepstrum times j/N, transformed back, is the minimum phase.
    auto cepstrum = designTransform.forwardReal (even);
    for (int c = 0; c < channels; ++c)
    {
        complex32* bin = cepstrum.getChannel (c);
        for (int k = 0; k < bins; ++k)
            bin[k] = {-bin[k].im * scale, bin[k].re * scale};
        bin[0] = {0.0f, 0.0f};
    }
    const auto phase = designTransform.inverseReal (cepstrum);

    return designTransform.inverseReal (ComplexSignal32 (magnitudes, phase))
           / static_cast<float> (n);
}

void Deconvolution::updateEmphasisLevels()
{
    const juce::ScopedLock lock (designLock);
    const int bins = static_cast<int> (binFrequencies.size());
    if (!emphasisCurveEnabled || bins == 0)
    {
        emphasisLevels = Signal32();
        return;
    }

    std::vector<Coordinate2D> points;
    const auto enabled = emphasisPointEnabled.load();
    for (int i = 0; i < numEmphasisPoints; ++i)
        if ((enabled >> i) & 1u)
            points.push_back (
                {static_cast<double> (
                     std::log10 (emphasisPointFrequency[static_cast<std::size_t> (i)].load())),
                 static_cast<double> (emphasisPointLevel[static_cast<std::size_t> (i)].load()
                                      / 100.0f)});
    if (points.empty())
    {
        emphasisLevels = Signal32();
        return;
    }

    // A single point gives its level on every bin (the interpolation holds it on both sides).
    // Points are used in index order as they stand; the editor keeps them sorted by frequency.
    TrigonometricInterpolation curve (points);
    emphasisLevels = Signal32 (1, bins);
    float* levels = emphasisLevels.getChannel (0);
    levels[0] = 1.0f;
    for (int k = 1; k < bins; ++k)
        levels[k] = static_cast<float> (
            curve.evaluate (std::log10 (binFrequencies[static_cast<std::size_t> (k)])));
}
} // namespace vesk::audio
