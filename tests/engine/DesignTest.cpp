#include "Deconvolution.h"
#include "TestSignals.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace vesk::audio;

namespace
{
void format (Deconvolution& engine, double rate = 48000.0)
{
    ASSERT_TRUE (engine.setFormat (AudioFormat (2, rate), AudioFormat (2, rate)));
}

Signal32 flatModel()
{
    Signal32 coefficients (1, 481, 0.0f);
    coefficients[0][0] = 1.0f;
    return coefficients;
}

/** Weighted mean of a curve with the engine's own bin weights. */
double weightedMean (Signal32 const& curve, Signal32 const& weights)
{
    double sum = 0.0;
    for (int k = 0; k < curve.getNumSamples(); ++k)
        sum += static_cast<double> (curve[0][k]) * weights[0][k];
    return sum / curve.getNumSamples();
}

void expectDelta (Signal32 const& ir, float tolerance)
{
    EXPECT_NEAR (ir[0][0], 1.0f, tolerance);
    for (int n = 1; n < ir.getNumSamples(); ++n)
        ASSERT_NEAR (ir[0][n], 0.0f, tolerance) << n;
}
} // namespace

TEST (DeconvolutionDesign, NothingLearntMeansAFlatCorrectionAndAPassThrough)
{
    Deconvolution engine;
    format (engine);
    const auto curve = engine.getFilterCurve();
    ASSERT_EQ (curve.getNumSamples(), 4097);
    for (int k = 0; k < 4097; ++k)
        ASSERT_EQ (curve[0][k], 1.0f);
    const auto ir = engine.getImpulseResponse();
    ASSERT_EQ (ir.getNumSamples(), 2400);
    expectDelta (ir, 1e-5f);

    const auto noise = vesk::test::whiteNoise (2, 4800, 1);
    engine.setParameterValue (0, 2.0f, false);
    const auto out = engine.process (noise);
    for (int n = 0; n < 4800; n += 37)
        ASSERT_NEAR (out[1][n], noise[1][n], 1e-4f);
}

TEST (DeconvolutionDesign, FixedProfileOverAFlatSourceIsTheProfileLevelMatched)
{
    Deconvolution engine;
    format (engine);
    engine.setSourceFilter (flatModel(), 48000.0);
    const auto weights = engine.getBinWeights();
    for (int model : {1, 2, 3, 4})
    {
        engine.setParameterValue (Deconvolution::targetModelIndex, static_cast<float> (model),
                                  false);
        const auto target = engine.getTargetMagnitudes();
        const auto curve = engine.getFilterCurve();
        EXPECT_NEAR (weightedMean (curve, weights), 1.0, 1e-3) << model;
        const double scale = curve[0][400] / target[0][400];
        for (int k = 1; k < 4097; k += 97)
            ASSERT_NEAR (curve[0][k] / target[0][k], scale, 1e-4 * scale) << model << " bin " << k;
    }

    // The shapes themselves, by what a listener hears: Music falls about 6 dB per octave above
    // 100 Hz; Speech is flat to 500 Hz; all are cut far below 75 Hz.
    const auto bins = engine.getBinFrequencies();
    const auto levelAt = [&] (Signal32 const& t, double hz)
    { return 20.0 * std::log10 (t[0][static_cast<int> (std::lround (hz * 8192 / 48000.0))]); };
    engine.setParameterValue (3, 1.0f, false);
    auto music = engine.getTargetMagnitudes();
    EXPECT_NEAR (levelAt (music, 1000) - levelAt (music, 2000), 6.0, 0.3);
    EXPECT_LT (levelAt (music, 20) - levelAt (music, 150), -15.0);
    engine.setParameterValue (3, 2.0f, false);
    const auto dark = engine.getTargetMagnitudes();
    EXPECT_GT (levelAt (dark, 1000) - levelAt (dark, 4000),
               levelAt (music, 1000) - levelAt (music, 4000) + 1.0);
    engine.setParameterValue (3, 3.0f, false);
    const auto lessHarsh = engine.getTargetMagnitudes();
    EXPECT_NEAR (levelAt (lessHarsh, 3400) - levelAt (music, 3400),
                 -3.0 + 20.0 * std::log10 (std::pow (3400.0 / 100.0, -0.05)), 0.5);
    engine.setParameterValue (3, 4.0f, false);
    const auto speech = engine.getTargetMagnitudes();
    EXPECT_NEAR (levelAt (speech, 100) - levelAt (speech, 200), 0.0, 1.0);

    engine.setParameterValue (3, 6.0f, false);
    const auto flat = engine.getTargetMagnitudes();
    for (int k = 0; k < 4097; k += 13)
        ASSERT_EQ (flat[0][k], 1.0f) << "index 6 is a flat target";
}

TEST (DeconvolutionDesign, EmphasisOfZeroRemovesTheCorrectionAndOnePointHoldsItsLevel)
{
    Deconvolution engine;
    format (engine);
    EXPECT_FALSE (engine.getEmphasisLevels().hasStorage()) << "off by default";
    engine.setSourceFilter (flatModel(), 48000.0);
    engine.setParameterValue (3, 4.0f, false); // Speech: a strong correction
    engine.setParameterValue (Deconvolution::enableEmphasisCurveIndex, 1.0f, false);
    auto levels = engine.getEmphasisLevels();
    ASSERT_EQ (levels.getNumSamples(), 4097);
    EXPECT_EQ (levels[0][0], 1.0f);
    EXPECT_EQ (levels[0][2000], 1.0f) << "the default point: level 100 on every bin";

    engine.setParameterValue (Deconvolution::emphasisPointLevelIndex, 0.0f, false);
    levels = engine.getEmphasisLevels();
    EXPECT_EQ (levels[0][0], 1.0f);
    EXPECT_EQ (levels[0][1], 0.0f);
    EXPECT_EQ (levels[0][4096], 0.0f);
    const auto curve = engine.getFilterCurve();
    for (int k = 1; k < 4097; ++k)
        ASSERT_EQ (curve[0][k], 1.0f) << k;
    // Bin 0 keeps the profile's cut at 0 Hz; in a 50 ms response that null reaches a few tens of
    // hertz. From 250 Hz up everything passes unchanged.
    const auto ir = engine.getImpulseResponse();
    Signal32 padded (1, 8192, 0.0f);
    std::copy (ir[0], ir[0] + ir.getNumSamples(), padded[0]);
    FourierTransform transform;
    const auto response = transform.forwardReal (padded).getMagnitudeSignal();
    for (int k = 43; k < 4097; ++k)
        ASSERT_NEAR (20.0 * std::log10 (response[0][k]), 0.0, 0.2) << k;

    // Two points: full correction below 200 Hz, none above 2 kHz, a smooth blend between.
    engine.setParameterValue (Deconvolution::emphasisPointLevelIndex, 100.0f, false);
    engine.setParameterValue (Deconvolution::emphasisPointFrequencyIndex, 200.0f, false);
    engine.setParameterValue (Deconvolution::emphasisPointEnabledIndex + 1, 1.0f, false);
    engine.setParameterValue (Deconvolution::emphasisPointFrequencyIndex + 1, 2000.0f, false);
    engine.setParameterValue (Deconvolution::emphasisPointLevelIndex + 1, 0.0f, false);
    levels = engine.getEmphasisLevels();
    const auto bin = [] (double hz)
    { return static_cast<int> (std::lround (hz * 8192 / 48000.0)); };
    EXPECT_EQ (levels[0][bin (100)], 1.0f);
    EXPECT_NEAR (levels[0][bin (std::sqrt (200.0 * 2000.0))], 0.5f, 0.02f);
    EXPECT_EQ (levels[0][bin (5000)], 0.0f);

    engine.setParameterValue (Deconvolution::emphasisPointEnabledIndex, 0.0f, false);
    engine.setParameterValue (Deconvolution::emphasisPointEnabledIndex + 1, 0.0f, false);
    EXPECT_FALSE (engine.getEmphasisLevels().hasStorage()) << "no point enabled: no emphasis";
}

TEST (DeconvolutionDesign, StoredFiltersAcrossSampleRates)
{
    Deconvolution engine;
    format (engine);
    EXPECT_FALSE (engine.hasTargetFilter());

    // A two-tap average made at 44.1 kHz: |H(f)| = |cos(pi f / 44100)|.
    Signal32 average (1, 2, 0.5f);
    engine.setTargetFilter (average, 44100.0);
    EXPECT_TRUE (engine.hasTargetFilter());
    Signal32 coefficients;
    double rate = 0.0;
    engine.getTargetFilter (coefficients, rate);
    EXPECT_FALSE (coefficients.hasStorage()) << "only exported while Custom is chosen";
    EXPECT_EQ (rate, 44100.0);

    engine.setParameterValue (3, 5.0f, false);
    engine.getTargetFilter (coefficients, rate);
    ASSERT_EQ (coefficients.getNumSamples(), 2);
    const auto target = engine.getTargetMagnitudes();
    const auto bins = engine.getBinFrequencies();
    for (int k : {10, 500, 1500, 3000})
    {
        const double expected =
            1.0 / std::fabs (std::cos (M_PI * bins[static_cast<std::size_t> (k)] / 44100.0));
        EXPECT_NEAR (target[0][k], expected, 0.01 * expected) << "bin " << k;
    }

    // Within 1 Hz the set is read at the engine's own rate.
    engine.setTargetFilter (average, 48000.5);
    const auto unmapped = engine.getTargetMagnitudes();
    EXPECT_NEAR (unmapped[0][3000], 1.0 / std::fabs (std::cos (M_PI * bins[3000] / 48000.0)), 1e-3);

    engine.setTargetFilter (Signal32(), 48000.0);
    EXPECT_FALSE (engine.hasTargetFilter());

    // Source filters come back equal but as a copy.
    const auto model = flatModel();
    engine.setSourceFilter (model, 44100.0);
    engine.getSourceFilter (coefficients, rate);
    EXPECT_EQ (rate, 44100.0);
    EXPECT_FALSE (coefficients.sharesStorageWith (model));
    EXPECT_EQ (coefficients[0][0], 1.0f);

    // A corrupt target (a null in its response) leaves a finite filter.
    Signal32 notch (1, 2, 0.0f);
    notch[0][0] = 1.0f, notch[0][1] = 1.0f; // zero at Nyquist
    engine.setTargetFilter (notch, 48000.0);
    const auto ir = engine.getImpulseResponse();
    for (int n = 0; n < ir.getNumSamples(); ++n)
        ASSERT_TRUE (std::isfinite (ir[0][n]));
}

TEST (DeconvolutionDesign, MinimumPhaseResponseHasTheRequestedMagnitude)
{
    Deconvolution engine;
    format (engine);
    // A gentle tilt: its 50 ms minimum-phase response must reproduce it and start at once.
    Signal32 tilt (1, 4097);
    for (int k = 0; k < 4097; ++k)
        tilt[0][k] = static_cast<float> (std::pow (10.0, (-6.0 * k / 4096.0) / 20.0));
    const auto ir = engine.calculateImpulseResponse (tilt);
    ASSERT_EQ (ir.getNumSamples(), 2400);
    Signal32 padded (1, 8192, 0.0f);
    std::copy (ir[0], ir[0] + 2400, padded[0]);
    FourierTransform transform;
    const auto spectrum = transform.forwardReal (padded).getMagnitudeSignal();
    for (int k = 1; k < 4097; k += 211)
        EXPECT_NEAR (20.0 * std::log10 (spectrum[0][k] / tilt[0][k]), 0.0, 0.05) << k;
    double early = 0.0, total = 0.0;
    for (int n = 0; n < 2400; ++n)
    {
        total += ir[0][n] * ir[0][n];
        if (n < 24)
            early += ir[0][n] * ir[0][n];
    }
    EXPECT_GT (early / total, 0.95) << "minimum phase: the energy comes first";
}
