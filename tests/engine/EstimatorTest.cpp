// The long-term-spectrum estimator beside the original one: what each learns from stationary
// and from changing material, and that the choice restarts learning.
#include "Deconvolution.h"
#include "Spectra.h"
#include "TestSignals.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace vesk::audio;
using vesk::test::BandLevels;
using vesk::test::Biquad;

namespace
{
constexpr double rate = 48000.0;

/** Learns a whole signal with the given estimator and returns the model's band levels (the
    all-pole spectrum 1/|A|^2, averaged over each third-octave band), mean removed. */
std::vector<double> learntBands (Signal32 const& signal, Estimator estimator,
                                 BandLevels const& bands, float filterLength = 10.0f)
{
    Deconvolution engine;
    EXPECT_TRUE (engine.setFormat (AudioFormat (2, rate), AudioFormat (2, rate)));
    engine.setEstimator (estimator);
    engine.setParameterValue (Deconvolution::estimationThresholdIndex, -80.0f, false);
    engine.setParameterValue (Deconvolution::filterLengthIndex, filterLength, false);
    engine.learn (signal);
    Signal32 model;
    double modelRate = 0.0;
    engine.getSourceFilter (model, modelRate);
    const auto inverse = engine.getMagnitudesFromFilterCoefficients (model, modelRate);
    const auto frequencies = engine.getBinFrequencies();

    std::vector<double> levels;
    for (double centre : bands.centres)
    {
        const double lo = centre * std::pow (2.0, -1.0 / 6.0),
                     hi = centre * std::pow (2.0, 1.0 / 6.0);
        double sum = 0.0;
        int count = 0;
        for (std::size_t k = 1; k < frequencies.size(); ++k)
            if (frequencies[k] >= lo && frequencies[k] <= hi)
            {
                const double a = inverse[0][static_cast<int> (k)];
                sum += 1.0 / (a * a);
                ++count;
            }
        levels.push_back (10.0 * std::log10 (sum / std::max (count, 1)));
    }
    return levels;
}

double largestDeviation (std::vector<double> a, std::vector<double> b)
{
    double meanA = 0.0, meanB = 0.0;
    for (std::size_t i = 0; i < a.size(); ++i)
        meanA += a[i] / a.size(), meanB += b[i] / b.size();
    double worst = 0.0;
    for (std::size_t i = 0; i < a.size(); ++i)
        worst = std::max (worst, std::fabs ((a[i] - meanA) - (b[i] - meanB)));
    return worst;
}

} // namespace

TEST (LongTermSpectrumEstimator, RecoversAStationaryColouration)
{
    // A tilt and a resonance, every third-octave band from 100 Hz to 16 kHz.
    const auto signal = vesk::test::colouredNoise (
        {Biquad::lowPass (4000, 0.7, rate), Biquad::peak (300, 2.0, 8.0, rate)},
        8 * static_cast<int> (rate), 3);
    const auto measured = vesk::test::thirdOctaveLevels (signal, rate, 100.0, 16000.0);
    // The tool's 20 ms model within 0.5 dB; the plug-in's 10 ms one resolves the 300 Hz
    // resonance a little less sharply.
    EXPECT_LT (largestDeviation (learntBands (signal, Estimator::longTermSpectrum, measured, 20.0f),
                                 measured.levels),
               0.5);
    EXPECT_LT (largestDeviation (learntBands (signal, Estimator::longTermSpectrum, measured, 10.0f),
                                 measured.levels),
               1.0);
}

// The learning frames follow the filter length (eight times it, to a power of two) up to the
// correction's own transform, which sets the finest resolution worth learning.
TEST (LongTermSpectrumEstimator, FramesFollowTheFilterLengthUpToTheTransform)
{
    Deconvolution engine;
    ASSERT_TRUE (engine.setFormat (AudioFormat (1, rate), AudioFormat (1, rate)));
    engine.setEstimator (Estimator::longTermSpectrum);
    const std::pair<float, int> expected[] = {{1.0f, 512}, {10.0f, 4096}, {20.0f, 8192}};
    for (auto [length, frame] : expected)
    {
        engine.setParameterValue (Deconvolution::filterLengthIndex, length, false);
        EXPECT_EQ (engine.getEstimationFrameLength(), frame) << length << " ms";
    }
    engine.setEstimator (Estimator::frameModels);
    EXPECT_EQ (engine.getEstimationFrameLength(), 2 * 961) << "the original: twice the order";
}

// Low resonances and shelves lie closer together than short frames resolve: the evaluation's
// "boomy" colouration (a shelf at 180 Hz and a resonance at 110 Hz) is learnt band by band
// (frames of 40 ms, as the learning frames once were, leave about 0.4 dB in the 100 Hz band).
TEST (LongTermSpectrumEstimator, ResolvesALowResonanceAndShelf)
{
    const auto signal = vesk::test::colouredNoise (
        {Biquad::lowShelf (180, 0.9, 8.0, rate), Biquad::peak (110, 1.4, 5.0, rate)},
        12 * static_cast<int> (rate), 8);
    const auto measured = vesk::test::thirdOctaveLevels (signal, rate, 50.0, 16000.0);
    EXPECT_LT (largestDeviation (learntBands (signal, Estimator::longTermSpectrum, measured, 20.0f),
                                 measured.levels),
               0.1);
}

// What is learnt travels as a coefficient set (states, presets, filter files, the reference the
// tool learns): loaded into another engine it gives the same spectrum, and at a lower rate too,
// where the set (one transform of the higher rate) is longer than that engine's transform.
TEST (LongTermSpectrumEstimator, LearntSetCarriesTheSpectrumToAnotherEngine)
{
    constexpr double high = 96000.0, low = 44100.0;
    const auto signal = vesk::test::colouredNoise (
        {Biquad::lowPass (3000, 0.7, high), Biquad::peak (200, 3.0, -9.0, high)},
        4 * static_cast<int> (high), 9);
    Deconvolution learner, same, other;
    ASSERT_TRUE (learner.setFormat (AudioFormat (2, high), AudioFormat (2, high)));
    ASSERT_TRUE (same.setFormat (AudioFormat (2, high), AudioFormat (2, high)));
    ASSERT_TRUE (other.setFormat (AudioFormat (2, low), AudioFormat (2, low)));
    learner.setEstimator (Estimator::longTermSpectrum);
    learner.setParameterValue (Deconvolution::filterLengthIndex, 20.0f, false);
    learner.learn (signal);
    Signal32 model, again;
    double modelRate = 0.0, againRate = 0.0;
    learner.getSourceFilter (model, modelRate);
    ASSERT_GT (model.getNumSamples(), other.getFftSize());
    same.setSourceFilter (model, modelRate);
    same.getSourceFilter (again, againRate);

    // Single bins of a learnt noise spectrum scatter; a sixth of an octave of them does not.
    const auto level = [] (Deconvolution& engine, Signal32 const& set, double setRate, double f)
    {
        const auto inverse = engine.getMagnitudesFromFilterCoefficients (set, setRate);
        const auto bins = engine.getBinFrequencies();
        double sum = 0.0;
        int count = 0;
        for (std::size_t k = 1; k < bins.size(); ++k)
            if (std::fabs (std::log2 (bins[k] / f)) < 1.0 / 12.0)
            {
                const double a = inverse[0][static_cast<int> (k)];
                sum += 1.0 / (a * a), ++count;
            }
        return 10.0 * std::log10 (sum / std::max (count, 1));
    };
    for (const double f : {100.0, 200.0, 1000.0, 3000.0, 10000.0})
    {
        const double learnt =
            level (learner, model, modelRate, f) - level (learner, model, modelRate, 1000.0);
        EXPECT_NEAR (level (same, again, againRate, f) - level (same, again, againRate, 1000.0),
                     learnt, 0.01)
            << f << " Hz";
        EXPECT_NEAR (level (other, model, modelRate, f) - level (other, model, modelRate, 1000.0),
                     learnt, 0.3)
            << f << " Hz at 44.1 kHz";
    }
}

// Material whose spectrum changes (here it alternates between a dark and a bright sound every
// quarter of a second) is learnt as its long-term spectrum, the mean of its power spectra. The
// original estimator averages the frames' coefficient sets instead; on this material its model
// lies several dB away (printed, not asserted: it is the original behaviour, kept as it is).
TEST (LongTermSpectrumEstimator, LearnsTheMeanPowerSpectrumOfChangingMaterial)
{
    const int quarter = static_cast<int> (rate) / 4;
    const auto dark =
        vesk::test::colouredNoise ({Biquad::lowPass (700, 0.7, rate)}, 16 * quarter, 4) * 3.0f;
    const auto bright =
        vesk::test::colouredNoise ({Biquad::highPass (3000, 0.7, rate)}, 16 * quarter, 5);
    Signal32 alternating (2, 16 * quarter);
    for (int c = 0; c < 2; ++c)
        for (int n = 0; n < 16 * quarter; ++n)
            alternating[c][n] = (n / quarter) % 2 ? bright[c][n] : dark[c][n];

    const auto measured = vesk::test::thirdOctaveLevels (alternating, rate, 100.0, 16000.0);
    const double spectrum = largestDeviation (
        learntBands (alternating, Estimator::longTermSpectrum, measured), measured.levels);
    const double frames = largestDeviation (
        learntBands (alternating, Estimator::frameModels, measured), measured.levels);
    EXPECT_LT (spectrum, 1.0);
    std::printf ("alternating material, largest band deviation: long-term spectrum %.2f dB, "
                 "frame models averaged %.2f dB\n",
                 spectrum, frames);
}

TEST (LongTermSpectrumEstimator, ChoosingAnEstimatorRestartsLearningAndHoldKeepsIt)
{
    Deconvolution engine;
    ASSERT_TRUE (engine.setFormat (AudioFormat (2, rate), AudioFormat (2, rate)));
    EXPECT_EQ (engine.getEstimator(), Estimator::frameModels) << "the original by default";
    engine.setEstimator (Estimator::longTermSpectrum);
    const auto signal =
        vesk::test::colouredNoise ({Biquad::lowPass (2000, 0.7, rate)}, static_cast<int> (rate), 6);
    engine.learn (signal);
    // At 10 ms, frames of 4096 samples overlapping by half: about 22 in a second.
    EXPECT_EQ (engine.getEstimationFrameLength(), 4096);
    EXPECT_GT (engine.getEstimateFrameCount(), 20u);
    Signal32 model;
    double modelRate = 0.0;
    engine.getSourceFilter (model, modelRate);
    EXPECT_EQ (model.getNumSamples(), engine.getFftSize());
    EXPECT_EQ (model[0][0], 1.0f);

    // Hold keeps the estimate through a reset; the filter follows it.
    engine.setParameterValue (Deconvolution::estimationModeIndex, 2.0f, false);
    engine.reset();
    Signal32 held;
    engine.getSourceFilter (held, modelRate);
    ASSERT_EQ (held.getNumSamples(), model.getNumSamples());
    EXPECT_EQ (held[0][5], model[0][5]);
    engine.setParameterValue (Deconvolution::targetModelIndex, 1.0f, false); // designs
    const auto curve = engine.getFilterCurve();
    EXPECT_GT (curve[0][3000], curve[0][100] * 2.0f) << "the dull source is brightened";

    // Another choice restarts learning with the next frame.
    engine.setParameterValue (Deconvolution::estimationModeIndex, 1.0f, false);
    engine.setEstimator (Estimator::frameModels);
    engine.learn (signal.extractSection (0, 2000));
    EXPECT_LT (engine.getEstimateFrameCount(), 5u);
}
