// The settings beside the parameters that bound the correction: loudness kept by a static make-up
// gain, a maximum boost, and bands that hold nothing left alone.
#include "Deconvolution.h"
#include "Spectra.h"
#include "TestSignals.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace vesk::audio;
using vesk::test::Biquad;

namespace
{
constexpr double rate = 48000.0;

/** An engine that has learnt the signal (long-term spectrum) and holds it, with a profile. */
void learn (Deconvolution& engine, Signal32 const& signal, int model,
            Deconvolution::CorrectionLimits limits)
{
    ASSERT_TRUE (engine.setFormat (AudioFormat (2, rate), AudioFormat (2, rate)));
    engine.setEstimator (Estimator::longTermSpectrum);
    engine.setParameterValue (Deconvolution::estimationThresholdIndex, -100.0f, false);
    engine.setParameterValue (Deconvolution::targetModelIndex, static_cast<float> (model), false);
    engine.learn (signal);
    engine.setParameterValue (Deconvolution::estimationModeIndex, 2.0f, false);
    engine.setCorrectionLimits (limits);
}

float curveDbAt (Deconvolution& engine, double frequency)
{
    const auto curve = engine.getFilterCurve();
    const auto k = static_cast<int> (std::lround (frequency / rate * engine.getFftSize()));
    return 20.0f * std::log10 (curve[0][k]);
}

/** K-weighted (BS.1770, 48 kHz coefficients) mean power of a signal, in dB. */
double kWeightedDb (Signal32 signal)
{
    Biquad{1.53512485958697, -2.69169618940638, 1.19839281085285, -1.69065929318241,
           0.73248077421585}
        .apply (signal);
    Biquad{1.0, -2.0, 1.0, -1.99004745483398, 0.99007225036621}.apply (signal);
    double sum = 0.0;
    for (int c = 0; c < signal.getNumChannels(); ++c)
        for (int n = 0; n < signal.getNumSamples(); ++n)
            sum += static_cast<double> (signal[c][n]) * signal[c][n];
    return 10.0 * std::log10 (sum);
}

Signal32 processAll (Deconvolution& engine, Signal32 const& signal)
{
    engine.reset();
    Signal32 out (signal.getNumChannels(), signal.getNumSamples());
    for (int done = 0; done < signal.getNumSamples(); done += 4800)
    {
        const auto block = engine.process (signal.extractSection (done, 4800));
        for (int c = 0; c < 2; ++c)
            std::copy (block[c], block[c] + 4800, out[c] + done);
    }
    return out;
}
} // namespace

TEST (CorrectionLimits, LoudnessMatchedKeepsTheKWeightedLevel)
{
    // Dull material that the "Music" profile brightens a lot.
    const auto signal = vesk::test::colouredNoise (
        {Biquad::lowPass (1500, 0.7, rate), Biquad::lowPass (1500, 0.7, rate)},
        4 * static_cast<int> (rate), 11);
    Deconvolution designLevel, matched;
    learn (designLevel, signal, Deconvolution::music, {});
    Deconvolution::CorrectionLimits limits;
    limits.loudnessMatched = true;
    learn (matched, signal, Deconvolution::music, limits);

    const double input = kWeightedDb (signal.extractSection (9600, 4 * 48000 - 9600));
    const auto level = [&] (Deconvolution& engine)
    { return kWeightedDb (processAll (engine, signal).extractSection (9600, 4 * 48000 - 9600)); };
    EXPECT_NEAR (level (matched), input, 0.5);
    EXPECT_GT (std::fabs (level (designLevel) - input), 2.0)
        << "the original level matching moves the loudness of such material";
}

TEST (CorrectionLimits, MaximumBoostAndEmptyBands)
{
    // Content that stops at about 10 kHz, as an encoder's low-pass would leave it, and a deep
    // (-30 dB) but living dip around 3 kHz.
    std::vector<Biquad> cutOff (16, Biquad::lowPass (12000, 0.7, rate));
    cutOff.push_back (Biquad::peak (3000, 0.7, -30.0, rate));
    const auto signal = vesk::test::colouredNoise (cutOff, 4 * static_cast<int> (rate), 12);

    Deconvolution plain;
    learn (plain, signal, Deconvolution::music, {});
    EXPECT_GT (curveDbAt (plain, 20000.0), 10.0) << "unlimited, the empty top is lifted a lot";

    Deconvolution::CorrectionLimits spare;
    spare.spareEmptyBands = true;
    Deconvolution spared;
    learn (spared, signal, Deconvolution::music, spare);
    EXPECT_LE (curveDbAt (spared, 20000.0), 0.01f) << "nothing there: left as it is";
    EXPECT_GT (curveDbAt (spared, 3000.0), curveDbAt (spared, 1000.0) + 5.0)
        << "the dip still carries signal and is restored";
    EXPECT_NEAR (curveDbAt (spared, 3000.0), curveDbAt (plain, 3000.0), 0.01)
        << "as far as without the limit";

    Deconvolution::CorrectionLimits bounded;
    bounded.maximumBoostDb = 6.0f;
    Deconvolution limited;
    learn (limited, signal, Deconvolution::music, bounded);
    const auto curve = limited.getFilterCurve();
    for (int k = 0; k < curve.getNumSamples(); ++k)
        ASSERT_LE (curve[0][k], std::pow (10.0f, 6.0f / 20.0f) * 1.0001f) << k;
}

// Smoothing spreads a narrow correction over the octaves asked for: a sharp resonance of the
// material is answered by a broad, shallower cut around it.
TEST (CorrectionLimits, SmoothingWidensNarrowCorrections)
{
    const auto signal = vesk::test::colouredNoise ({Biquad::peak (1000, 10.0, 12.0, rate)},
                                                   4 * static_cast<int> (rate), 13);
    const auto dipDepth = [&] (float octaves)
    {
        Deconvolution::CorrectionLimits limits;
        limits.smoothingOctaves = octaves;
        Deconvolution engine;
        learn (engine, signal, 6, limits); // the flat target: the correction is the inverse
        return 0.5f * (curveDbAt (engine, 707.0) + curveDbAt (engine, 1414.0))
               - curveDbAt (engine, 1000.0);
    };
    const float sharp = dipDepth (0.0f), smoothed = dipDepth (1.0f);
    EXPECT_GT (sharp, 8.0f);
    EXPECT_LT (smoothed, 0.5f * sharp);
    EXPECT_GT (smoothed, 0.5f) << "still a cut where the resonance was";
}

// A built-in profile is followed only where the material departs from it by more than material
// naturally varies: a gentle bump stays, a strong one is brought back to the edge of that range.
TEST (CorrectionLimits, DeparturesOnlyCorrectWhatExceedsNaturalVariation)
{
    const auto signal = vesk::test::colouredNoise (
        {Biquad::peak (400, 2.0, 3.0, rate), Biquad::peak (4000, 2.0, 12.0, rate)},
        4 * static_cast<int> (rate), 14);
    const auto relative = [] (Deconvolution& engine, double frequency)
    { return curveDbAt (engine, frequency) - curveDbAt (engine, 1300.0); };
    Deconvolution::CorrectionLimits limits;
    Deconvolution everything, departures;
    learn (everything, signal, 6, limits); // the flat profile: the correction is the inverse
    limits.departuresOnly = true;
    learn (departures, signal, 6, limits);

    EXPECT_NEAR (relative (everything, 400.0), -3.0, 1.0);
    EXPECT_NEAR (relative (everything, 4000.0), -12.0, 1.5);
    EXPECT_NEAR (relative (departures, 400.0), 0.0, 0.5) << "within the material's variation";
    EXPECT_NEAR (relative (departures, 4000.0), -12.0 + Deconvolution::naturalVariationDb, 1.5)
        << "beyond it: corrected down to its edge";
}

// Rumble, a codec's band limit, the noise above a resampler's cut-off: bands far under the
// material's level at 1 kHz are not lifted, however far the profile lies above them.
TEST (CorrectionLimits, DeparturesOnlyLiftNothingFarUnderTheMaterial)
{
    const auto signal =
        vesk::test::colouredNoise (std::vector<Biquad> (12, Biquad::lowPass (3500, 0.7, rate)),
                                   4 * static_cast<int> (rate), 15);
    Deconvolution::CorrectionLimits limits;
    Deconvolution everything, departures;
    learn (everything, signal, Deconvolution::music, limits);
    limits.departuresOnly = true;
    learn (departures, signal, Deconvolution::music, limits);
    EXPECT_GT (curveDbAt (everything, 8000.0) - curveDbAt (everything, 1000.0), 20.0);
    for (const double frequency : {6000.0, 8000.0, 12000.0, 16000.0})
        EXPECT_LE (curveDbAt (departures, frequency) - curveDbAt (departures, 1000.0), 5.01)
            << frequency << " Hz";
}

// Learning from nothing, the correction grows with what has been learnt instead of starting at
// full size from the first frames; a finished model (loaded) is applied in full at once.
TEST (CorrectionLimits, TheCorrectionGrowsWithWhatWasLearnt)
{
    const auto signal = vesk::test::colouredNoise ({Biquad::lowPass (1500, 0.7, rate)},
                                                   4 * static_cast<int> (rate), 16);
    Deconvolution::CorrectionLimits limits;
    limits.departuresOnly = true;
    Deconvolution engine;
    learn (engine, signal.extractSection (0, 24000), 6, limits);
    const auto span = [&] { return curveDbAt (engine, 3000.0) - curveDbAt (engine, 300.0); };
    const float early = span();
    engine.setParameterValue (Deconvolution::estimationModeIndex, 1.0f, false);
    engine.learn (signal.extractSection (24000, 3 * 48000));
    engine.updateFilter();
    const float grown = span();
    EXPECT_GT (grown, 5.0f);
    EXPECT_NEAR (early / grown, 0.5 / Deconvolution::growthSeconds, 0.1)
        << "half a second learnt: " << early << " dB, " << engine.getLearntSeconds()
        << " s: " << grown << " dB";

    Signal32 model;
    double modelRate = 0.0;
    engine.getSourceFilter (model, modelRate);
    Deconvolution loaded;
    learn (loaded, Signal32 (2, 0), 6, limits);
    loaded.setSourceFilter (model, modelRate);
    EXPECT_NEAR (curveDbAt (loaded, 3000.0) - curveDbAt (loaded, 300.0), grown, 0.5);
}
