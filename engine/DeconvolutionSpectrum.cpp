#include "Deconvolution.h"
#include "MathEx.h"

#include <cmath>

namespace vesk::audio
{
int Deconvolution::spectrumFrameLength() const
{
    // Eight times the filter length, to a power of two, at most the correction's transform: at 20
    // ms that is the transform itself (8192 samples at 44.1 and 48 kHz), so the learnt spectrum
    // resolves what the 50 ms correction can; shorter lengths learn a coarser spectrum.
    const int wanted = 8 * (estimationLength() + 1);
    return std::min (MathEx::findLargerPowerOfTwo (std::max (wanted, 2)), std::max (fftSize, 2));
}

int Deconvolution::getEstimationFrameLength() const
{
    return estimator.load() == Estimator::longTermSpectrum ? spectrumFrameLength()
                                                           : 2 * (estimationLength() + 1);
}

void Deconvolution::learnSpectrum (const Signal32& frame)
{
    const bool seedOnly = estimationMode != learnMode;
    if (seedOnly && spectrumFrames > 0)
        return; // modes 0 and 3 keep the first frame's spectrum

    const int bins = fftSize / 2 + 1;
    const int samples = std::min (frame.getNumSamples(), fftSize);
    if (samples < 2 || spectrumFrame.getNumSamples() != fftSize)
        return;
    if (spectrumFrames == 0)
        spectrumSum.assign (static_cast<std::size_t> (bins), 0.0);

    // A periodic Hann window, as in Welch's method: on the evaluation's material it beat
    // Blackman, whose wider main lobe blurs what the frame length resolves.
    if (spectrumWindow.getNumSamples() != samples)
    {
        spectrumWindow.ensureDimensions (1, samples);
        float* w = spectrumWindow.getChannel (0);
        double power = 0.0;
        for (int n = 0; n < samples; ++n)
        {
            w[n] = static_cast<float> (0.5 - 0.5 * std::cos (2.0 * M_PI * n / samples));
            power += static_cast<double> (w[n]) * w[n];
        }
        spectrumWindowPower = power;
    }

    // Frames shorter than the transform are zero-padded: every length lands on the correction's bin
    // grid, and frames of different lengths weigh by their power per sample.
    float* padded = spectrumFrame.getChannel (0);
    const complex32* spectrum = spectrumBins.getChannel (0);
    for (int c = 0; c < frame.getNumChannels(); ++c)
    {
        ippsCopy_32f (frame.getChannel (c), padded, samples);
        ippsMul_32f_I (spectrumWindow.getChannel (0), padded, samples);
        ippsZero_32f (padded + samples, fftSize - samples);
        spectrumTransform.forwardReal (spectrumFrame, spectrumBins);
        for (int k = 0; k < bins; ++k)
        {
            const double re = spectrum[k].re, im = spectrum[k].im;
            spectrumSum[static_cast<std::size_t> (k)] += (re * re + im * im) / spectrumWindowPower;
        }
    }
    ++spectrumFrames;
    estimateFrameCount = spectrumFrames;
    sourceSampleRate = sampleRate;
    // In real time the snapshot is published at the design pacing; offline callers design
    // right after a frame and must see it.
    if (!realtime.load())
        publishSourceSnapshot();
    else
        unpublishedFrames = true;
}

Signal32 Deconvolution::whiteningOf (const std::vector<double>& spectrum, double floor)
{
    const juce::ScopedLock lock (designLock);
    const int bins = fftSize / 2 + 1;
    double mean = 0.0;
    for (const double power : spectrum)
        mean += power;
    mean /= static_cast<double> (std::max<std::size_t> (spectrum.size(), 1));
    Signal32 flat (1, 1, 1.0f);
    if (static_cast<int> (spectrum.size()) != bins || !(mean > 0.0) || !std::isfinite (mean))
        return flat; // nothing learnt: a flat envelope

    // The whitening filter's magnitudes, relative to the mean power so that any level of input
    // keeps them in range. A white floor 90 dB under that mean stands where the material holds
    // nothing (an encoder's cut-off, silence in a band): nothing a listener could hear lies
    // below it, and the limits judge such bands by their depth under the peak.
    Signal32 magnitudes (1, bins);
    float* a = magnitudes.getChannel (0);
    for (int k = 0; k < bins; ++k)
        a[k] = static_cast<float> (
            1.0 / std::sqrt (spectrum[static_cast<std::size_t> (k)] / mean + floor));

    // Its minimum-phase response is a coefficient set like a linear-prediction model's: states,
    // presets and filter files store it as they store those, and its transform gives the same
    // magnitudes back on the bin grid.
    auto response = minimumPhaseResponse (magnitudes);
    const float first = response[0][0];
    if (!(std::fabs (first) > 0.0f) || !std::isfinite (first))
        return flat;
    ippsMulC_32f_I (1.0f / first, response.getChannel (0), response.getNumSamples());
    return response;
}
} // namespace vesk::audio
