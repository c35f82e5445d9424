#include "Deconvolution.h"
#include "FourierTransform.h"
#include "TestSignals.h"
#include "WindowFunctions.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace vesk::audio;
using vesk::test::whiteNoise;

namespace
{
void format (Deconvolution& engine, int channels = 1, double rate = 48000.0)
{
    ASSERT_TRUE (engine.setFormat (AudioFormat (channels, rate), AudioFormat (channels, rate)));
}

Signal32 estimateOf (Deconvolution& engine)
{
    Signal32 coefficients;
    double rate = 0.0;
    engine.getSourceFilter (coefficients, rate);
    return coefficients;
}

/** The coefficient set one frame contributes, as a seed-only engine records it. */
Signal32 coefficientsOf (Signal32 const& frame, float filterLength = 10.0f)
{
    Deconvolution engine;
    format (engine, frame.getNumChannels());
    engine.setParameterValue (Deconvolution::estimationModeIndex, 0.0f, false);
    engine.setParameterValue (Deconvolution::filterLengthIndex, filterLength, false);
    EXPECT_TRUE (engine.updateEstimate (frame));
    return estimateOf (engine);
}

Signal32 scaled (Signal32 const& signal, float gain) { return signal * gain; }
} // namespace

TEST (DeconvolutionLearning, RunningMeanCountsTheFirstFrameTwice)
{
    const auto first = scaled (whiteNoise (2, 962, 1), 0.5f);
    const auto second = scaled (whiteNoise (2, 962, 2), 0.5f);
    const auto c1 = coefficientsOf (first), c2 = coefficientsOf (second);
    ASSERT_EQ (c1.getNumSamples(), 481) << "order follows the 10 ms filter length at 48 kHz";
    EXPECT_EQ (c1[0][0], 1.0f);

    Deconvolution engine;
    format (engine, 2);
    EXPECT_TRUE (engine.updateEstimate (first));
    EXPECT_EQ (engine.getEstimateFrameCount(), 2u);
    EXPECT_TRUE (engine.updateEstimate (second));
    EXPECT_EQ (engine.getEstimateFrameCount(), 3u);
    const auto estimate = estimateOf (engine);
    for (int k = 0; k < 481; ++k)
        ASSERT_NEAR (estimate[0][k], (2.0f * c1[0][k] + c2[0][k]) / 3.0f, 1e-6f) << k;

    // A mode change restarts the mean: the next frame replaces the estimate outright.
    engine.setParameterValue (Deconvolution::estimationModeIndex, 1.0f, false);
    EXPECT_EQ (engine.getEstimateFrameCount(), 0u);
    engine.updateEstimate (second);
    EXPECT_FLOAT_EQ (estimateOf (engine)[0][7], c2[0][7]);
}

TEST (DeconvolutionLearning, SeedOnlyModesAndHoldMode)
{
    const auto first = scaled (whiteNoise (1, 962, 3), 0.5f);
    const auto second = scaled (whiteNoise (1, 962, 4), 0.5f);
    for (float mode : {0.0f, 3.0f})
    {
        Deconvolution engine;
        format (engine);
        engine.setParameterValue (0, mode, false);
        engine.updateEstimate (first);
        const auto seeded = estimateOf (engine);
        EXPECT_TRUE (engine.updateEstimate (second)) << "accepted, but not averaged";
        EXPECT_EQ (engine.getEstimateFrameCount(), 1u);
        EXPECT_EQ (estimateOf (engine)[0][5], seeded[0][5]);
    }

    Deconvolution held;
    format (held);
    held.updateEstimate (first);
    held.setParameterValue (0, 2.0f, false);
    const auto before = estimateOf (held);
    EXPECT_FALSE (held.updateEstimate (second));
    held.reset();
    ASSERT_EQ (estimateOf (held).getNumSamples(), before.getNumSamples())
        << "mode 2 survives reset";
    EXPECT_EQ (estimateOf (held)[0][9], before[0][9]);

    held.setParameterValue (0, 1.0f, false);
    held.reset();
    EXPECT_FALSE (estimateOf (held).hasStorage()) << "any other mode forgets on reset";
}

TEST (DeconvolutionLearning, LevelGateAndNonFiniteFrames)
{
    Deconvolution engine;
    format (engine);
    EXPECT_FALSE (engine.updateEstimate (Signal32 (1, 962, 0.01f))) << "-40 dB is below -36 dB";
    EXPECT_TRUE (engine.updateEstimate (Signal32 (1, 962, 0.02f))) << "-34 dB passes";

    auto poisoned = scaled (whiteNoise (1, 962, 5), 0.5f);
    poisoned[0][100] = std::nanf ("");
    EXPECT_FALSE (engine.updateEstimate (poisoned));
    poisoned[0][100] = INFINITY;
    EXPECT_FALSE (engine.updateEstimate (poisoned));
}

TEST (DeconvolutionLearning, ChangingTheFilterLengthCarriesTheEstimateOver)
{
    Deconvolution engine;
    format (engine);
    engine.updateEstimate (scaled (whiteNoise (1, 962, 6), 0.5f));
    const auto old = estimateOf (engine);
    engine.setParameterValue (Deconvolution::filterLengthIndex, 5.0f, false);
    const auto frame = scaled (whiteNoise (1, 482, 7), 0.5f);
    const auto c = coefficientsOf (frame, 5.0f);
    engine.updateEstimate (frame);
    const auto cut = estimateOf (engine);
    ASSERT_EQ (cut.getNumSamples(), 241);
    for (int k = 0; k < 241; ++k)
        ASSERT_NEAR (cut[0][k], (old[0][k] * 2.0f + c[0][k]) / 3.0f, 1e-6f) << k;
}

TEST (DeconvolutionLearning, FramesAreCutWithHalfOverlapAndModeTwoStillDrains)
{
    Deconvolution engine;
    format (engine);
    engine.process (scaled (whiteNoise (1, 962, 8), 0.5f));
    EXPECT_EQ (engine.getEstimateFrameCount(), 0u)
        << "exactly one frame's worth is not yet a frame";
    EXPECT_EQ (engine.getQueuedSamples(), 962);
    engine.process (scaled (whiteNoise (1, 1, 9), 0.5f));
    EXPECT_EQ (engine.getEstimateFrameCount(), 2u);
    EXPECT_EQ (engine.getQueuedSamples(), 963 - 481);

    engine.setParameterValue (0, 2.0f, false);
    const auto noise = scaled (whiteNoise (1, 48000, 10), 0.5f);
    for (int i = 0; i < 10; ++i)
        engine.process (noise);
    EXPECT_LE (engine.getQueuedSamples(), 962);
}

TEST (DeconvolutionLearning, RedesignsArePacedTo40Milliseconds)
{
    Deconvolution engine;
    format (engine);
    const auto block = scaled (whiteNoise (1, 512, 11), 0.5f);
    const double step = 512.0 / 48000.0;
    std::vector<double> seen;
    for (int i = 0; i < 10; ++i)
    {
        engine.process (block);
        seen.push_back (engine.getSecondsSinceFilterUpdate());
    }
    // setFormat designed a filter at 0 s; the fifth block finds 4 steps > 40 ms and redesigns.
    const double expected[] = {1, 2, 3, 4, 1, 2, 3, 4, 1, 2};
    for (int i = 0; i < 10; ++i)
        EXPECT_NEAR (seen[static_cast<std::size_t> (i)], expected[i] * step, 1e-9) << i;

    engine.setParameterValue (0, 2.0f, false);
    for (int i = 0; i < 10; ++i)
        engine.process (block);
    EXPECT_NEAR (engine.getSecondsSinceFilterUpdate(), 10 * step, 1e-9)
        << "no redesign while holding";

    // A block of no samples still runs the redesign test.
    engine.setParameterValue (0, 1.0f, false);
    for (int i = 0; i < 4; ++i)
        engine.process (block);
    const auto queued = engine.getQueuedSamples();
    engine.process (Signal32 (1, 0));
    EXPECT_EQ (engine.getQueuedSamples(), queued);
    EXPECT_EQ (engine.getSecondsSinceFilterUpdate(), 0.0);
}

TEST (DeconvolutionAnalyzers, FirstFrameSetsThenSmoothingMovesTowardTheNext)
{
    Deconvolution engine;
    format (engine);
    engine.setParameterValue (0, 2.0f, false); // hold: the filter stays a flat pass-through
    Signal32 in, out;
    engine.getAnalyzerData (in, out);
    EXPECT_FALSE (in.hasStorage());

    Signal32 x (1, 5537);
    for (int n = 0; n < 5537; ++n)
        x[0][n] =
            static_cast<float> ((n < 4300 ? 0.8 : 0.2) * std::sin (2.0 * M_PI * 85.0 * n / 4096.0));
    engine.process (x);
    engine.getAnalyzerData (in, out);
    ASSERT_EQ (in.getNumSamples(), 2049);

    auto window = WindowFunctions::generateBlackman (4096, 0.16f);
    float total = 0.0f;
    for (int n = 0; n < 4096; ++n)
        total += window[0][n];
    FourierTransform transform;
    const auto magnitudes = [&] (int start)
    {
        Signal32 frame (1, 4096);
        for (int n = 0; n < 4096; ++n)
            frame[0][n] = x[0][start + n] * window[0][n] * 2.0f / total;
        return transform.forwardReal (frame).getMagnitudeSignal();
    };
    const auto m1 = magnitudes (0), m2 = magnitudes (1440);
    const float factor =
        1.0f - static_cast<float> (std::pow (10.0, -1440.0 * 48.0 / 48000.0 / 20.0));
    EXPECT_NEAR (factor, 0.153f, 1e-3f);
    const int peak = 85; // the sine sits on a bin
    EXPECT_NEAR (m1[0][peak], 0.8f, 0.05f) << "a sine reads as its amplitude";
    for (int k : {peak - 1, peak, peak + 1, 100, 1000})
    {
        EXPECT_NEAR (in[0][k], m1[0][k] + factor * (m2[0][k] - m1[0][k]), 1e-4f) << k;
        EXPECT_NEAR (out[0][k], in[0][k], 1e-3f)
            << "a flat filter leaves the output spectrum as the input's";
    }

    // Switched off, the spectra freeze.
    engine.setParameterValue (Deconvolution::enableAnalyzersIndex, 0.0f, false);
    engine.process (Signal32 (1, 20000, 0.0f));
    Signal32 frozen, frozenOut;
    engine.getAnalyzerData (frozen, frozenOut);
    EXPECT_EQ (frozen[0][peak], in[0][peak]);
}

TEST (DeconvolutionProcessing, MasterGainAndRecoveryFromNonFiniteInput)
{
    Deconvolution engine;
    format (engine, 2);
    engine.setParameterValue (0, 2.0f, false);
    engine.setParameterValue (Deconvolution::masterGainIndex, -6.0f, false);
    const auto noise = scaled (whiteNoise (2, 4800, 12), 0.5f);
    auto out = engine.process (noise).copy();
    for (int n = 3000; n < 3010; ++n)
        EXPECT_NEAR (out[1][n], noise[1][n] * std::pow (10.0f, -0.3f), 1e-4f);

    engine.setParameterValue (0, 1.0f, false);
    engine.setParameterValue (Deconvolution::masterGainIndex, 0.0f, false);
    for (int i = 0; i < 20; ++i)
        engine.process (scaled (whiteNoise (2, 4800, static_cast<std::uint32_t> (20 + i)), 0.5f));
    const auto learnt = estimateOf (engine);

    // Non-finite samples enter as silence: a twin engine fed zeros in their place gives the same
    // output, sample for sample.
    Deconvolution twin;
    format (twin, 2);
    twin.setParameterValue (0, 2.0f, false);
    engine.setParameterValue (0, 2.0f, false);
    twin.setSourceFilter (learnt, 48000.0);
    engine.setSourceFilter (learnt, 48000.0);
    engine.reset();
    auto poisoned = scaled (whiteNoise (2, 4800, 40), 0.5f);
    auto zeroed = poisoned.copy();
    for (int n = 0; n < 4800; n += 7)
    {
        poisoned[n % 2][n] = n % 3 ? std::nanf ("") : INFINITY;
        zeroed[n % 2][n] = 0.0f;
    }
    for (int i = 0; i < 3; ++i)
    {
        const auto a = engine.process (poisoned).copy();
        const auto b = twin.process (zeroed);
        for (int c = 0; c < 2; ++c)
            for (int n = 0; n < 4800; ++n)
                ASSERT_EQ (a[c][n], b[c][n]) << c << " " << n;
    }
    engine.setParameterValue (0, 1.0f, false);
    for (int i = 0; i < 5; ++i)
        engine.process (poisoned);
    const auto after = estimateOf (engine);
    for (int k = 0; k < after.getNumSamples(); ++k)
        ASSERT_TRUE (std::isfinite (after[0][k])) << "non-finite samples never enter the estimate";

    Signal32 curve = engine.getFilterCurve();
    for (int k = 0; k < curve.getNumSamples(); ++k)
        ASSERT_TRUE (std::isfinite (curve[0][k]));
    for (int i = 0; i < 3; ++i)
        engine.process (scaled (whiteNoise (2, 4800, static_cast<std::uint32_t> (50 + i)), 0.5f));
    out = engine.process (scaled (whiteNoise (2, 4800, 60), 0.5f));
    for (int c = 0; c < 2; ++c)
        for (int n = 0; n < 4800; ++n)
            ASSERT_TRUE (std::isfinite (out[c][n]))
                << "the output recovers once the input is finite";

    Signal32 in, analysed;
    engine.getAnalyzerData (in, analysed);
    for (int k = 0; k < in.getNumSamples(); ++k)
        ASSERT_TRUE (std::isfinite (in[0][k]) && std::isfinite (analysed[0][k]));
}

TEST (DeconvolutionProcessing, SubnormalInputLeavesNoSubnormalOutput)
{
    Deconvolution engine;
    format (engine, 2);
    Signal32 tiny (2, 4096);
    for (int c = 0; c < 2; ++c)
        for (int n = 0; n < 4096; ++n)
            tiny[c][n] = (n % 2 ? 1.0f : -1.0f) * 1.0e-40f;
    for (int i = 0; i < 4; ++i)
    {
        const auto out = engine.process (tiny);
        for (int c = 0; c < 2; ++c)
            for (int n = 0; n < 4096; ++n)
                ASSERT_NE (std::fpclassify (out[c][n]), FP_SUBNORMAL);
    }
}

TEST (DeconvolutionProcessing, BeforeAnyFormatTheOutputIsSilent)
{
    Deconvolution engine;
    const auto out = engine.process (Signal32 (2, 64, 0.5f));
    ASSERT_EQ (out.getNumSamples(), 64);
    EXPECT_EQ (out[1][63], 0.0f);
}

TEST (DeconvolutionLearning, OfflineLearningFeedsFramesOnlyAndCanTakeThemEdgeToEdge)
{
    const auto noise = vesk::test::whiteNoise (2, 48000, 70) * 0.5f;
    Deconvolution overlapping, edgeToEdge;
    format (overlapping, 2);
    format (edgeToEdge, 2);
    const auto designedAt = overlapping.getSecondsSinceFilterUpdate();
    overlapping.learn (noise);
    edgeToEdge.learn (noise, 2);
    // 48000 samples: a frame of 962 whenever more than 962 are queued, every 481 samples or 962.
    EXPECT_EQ (overlapping.getEstimateFrameCount(), 98u + 1u); // the first frame counts twice
    EXPECT_EQ (edgeToEdge.getEstimateFrameCount(), 49u + 1u);
    EXPECT_EQ (overlapping.getSecondsSinceFilterUpdate(), designedAt)
        << "no redesign, no time passes";
    Signal32 in, out;
    overlapping.getAnalyzerData (in, out);
    EXPECT_FALSE (in.hasStorage()) << "no analysers";

    // Both estimates describe the same (white) source: flat within a fraction of a dB.
    overlapping.updateFilter();
    edgeToEdge.updateFilter();
    const auto a = overlapping.getFilterCurve(), b = edgeToEdge.getFilterCurve();
    for (int k = 100; k < 4000; k += 300)
        EXPECT_NEAR (20.0 * std::log10 (a[0][k] / b[0][k]), 0.0, 1.5) << k;
}
