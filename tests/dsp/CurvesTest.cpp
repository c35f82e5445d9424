#include "Butterworth.h"
#include "Interpolation.h"
#include "MapScale.h"
#include "MathEx.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace vesk::audio;

TEST (TrigonometricInterpolation, RaisedCosineBetweenTwoPointsAndHeldOutside)
{
    const TrigonometricInterpolation curve ({{0.0, 0.0}, {1.0, 1.0}});
    EXPECT_DOUBLE_EQ (curve.evaluate (0.5), 0.5);
    EXPECT_NEAR (curve.evaluate (0.25), (1.0 - std::cos (M_PI / 4)) / 2.0, 1e-12);
    EXPECT_EQ (curve.evaluate (-3.0), 0.0);
    EXPECT_EQ (curve.evaluate (7.0), 1.0);
    EXPECT_EQ (curve.evaluate (1.0), 1.0);

    const TrigonometricInterpolation flat ({{0.0, 0.3}, {2.0, 0.3}});
    EXPECT_DOUBLE_EQ (flat.evaluate (1.3), 0.3);

    const auto sampled = curve.getSignal (5, 0.0f, 1.0f);
    EXPECT_FLOAT_EQ (sampled[0][1], static_cast<float> ((1.0 - std::cos (M_PI / 4)) / 2.0));
    EXPECT_FLOAT_EQ (sampled[0][4], 1.0f);

    const TrigonometricInterpolation single ({{3.0, 0.7}});
    EXPECT_EQ (single.evaluate (1.0), 0.7);
    EXPECT_EQ (single.evaluate (5.0), 0.7);
    EXPECT_EQ (TrigonometricInterpolation ({}).evaluate (1.0), 0.0);
}

TEST (TrigonometricInterpolation, NeighboursShapeTheSegmentToContinueTheirTrend)
{
    // A monotonic run: the middle segment leaves its points with the neighbours' slope instead of
    // flat.
    const TrigonometricInterpolation curve ({{0.0, 0.0}, {1.0, 1.0}, {2.0, 2.0}, {3.0, 3.0}});
    const double a = std::atan2 (1.0, 1.0), b = M_PI - std::atan2 (1.0, 1.0);
    const double expected =
        1.0 + (std::cos (a) - std::cos (a + (b - a) * 0.25)) / (std::cos (a) - std::cos (b));
    EXPECT_NEAR (curve.evaluate (1.25), expected, 1e-12);
    EXPECT_NEAR (curve.evaluate (1.5), 1.5, 1e-12);
    // A peak: the neighbours turn back, so the segment keeps the default flat ends.
    const TrigonometricInterpolation peak ({{0.0, 0.0}, {1.0, 1.0}, {2.0, 0.0}});
    EXPECT_NEAR (peak.evaluate (0.25), (1.0 - std::cos (M_PI / 4)) / 2.0, 1e-12);
}

TEST (Butterworth, PassAndPeakResponsesAtTheirCharacteristicPoints)
{
    const std::vector<float> freqs{0.0f, 500.0f, 1000.0f, 2000.0f, 8000.0f};
    const auto lowPass = Butterworth::evaluateLowPassFilter (freqs, 1000.0f, 2.0f, 0.0f);
    EXPECT_FLOAT_EQ (lowPass[0][0], 1.0f);
    EXPECT_NEAR (lowPass[0][2], 1.0f / std::sqrt (2.0f), 1e-6f);
    // 12 dB per octave well above the cut-off.
    EXPECT_NEAR (vesk::MathEx::toDecibel (lowPass[0][4]) - vesk::MathEx::toDecibel (lowPass[0][3]),
                 -24.0f, 0.3f);

    const auto highPass = Butterworth::evaluateHighPassFilter (freqs, 1000.0f, 2.0f, 0.0f);
    EXPECT_EQ (highPass[0][0], 0.0f);
    EXPECT_NEAR (highPass[0][2], 1.0f / std::sqrt (2.0f), 1e-6f);
    EXPECT_NEAR (highPass[0][4], 1.0f, 1e-3f);

    // shapeDb sets the squared magnitude at the cut-off to g/2.
    const auto shaped = Butterworth::evaluateLowPassFilter ({1000.0f}, 1000.0f, 3.0f, -3.0f);
    EXPECT_NEAR (shaped[0][0] * shaped[0][0], vesk::MathEx::fromDecibel (-6.0f) / 2.0f, 1e-5f);

    const auto boost = Butterworth::evaluatePeakFilter (freqs, 6.0f, 1000.0f, 1.0f, 2.0f);
    const auto cut = Butterworth::evaluatePeakFilter (freqs, -6.0f, 1000.0f, 1.0f, 2.0f);
    EXPECT_FLOAT_EQ (boost[0][2], vesk::MathEx::fromDecibel (6.0f));
    EXPECT_FLOAT_EQ (cut[0][2], 1.0f / vesk::MathEx::fromDecibel (6.0f));
    EXPECT_FLOAT_EQ (cut[0][3], 1.0f / boost[0][3]);
    EXPECT_LT (boost[0][4], boost[0][3]);
    EXPECT_LT (boost[0][4], 1.1f);
    EXPECT_FLOAT_EQ (Butterworth::evaluatePeakFilter (freqs, 0.0f, 1000.0f, 1.0f, 2.0f)[0][3],
                     1.0f);
}

TEST (MapScale, LinearWeightsAndTheLastValueBeyondTheInput)
{
    vesk::MapScale map;
    map.createLinearRescaleMap (5, 9, 0.5);
    Signal32 in (1, 5);
    for (int n = 0; n < 5; ++n)
        in[0][n] = static_cast<float> (n * n);
    const auto out = map.apply (in);
    ASSERT_EQ (out.getNumSamples(), 9);
    EXPECT_FLOAT_EQ (out[0][1], 0.5f);
    EXPECT_FLOAT_EQ (out[0][3], 0.5f * 1.0f + 0.5f * 4.0f);
    EXPECT_FLOAT_EQ (out[0][8], 16.0f);
    ASSERT_EQ (map.getEntries()[8].weights.size(), 1u);

    map.createLinearRescaleMap (5, 4, 3.0);
    const auto stretched = map.apply (in);
    EXPECT_FLOAT_EQ (stretched[0][1], 9.0f);
    EXPECT_FLOAT_EQ (stretched[0][2], 16.0f);
    EXPECT_FLOAT_EQ (stretched[0][3], 16.0f);

    map.createLinearRescaleMap (5, 0, 1.0);
    EXPECT_EQ (map.apply (in).getNumSamples(), 0);

    // Steps far beyond what an int holds (a filter stored at 1e-9 Hz, mapped to 48 kHz) read the
    // last value, never outside the input; so do infinite and NaN steps (held at the first).
    for (const double step : {4.8e13, 1.0e300, HUGE_VAL})
    {
        map.createLinearRescaleMap (5, 4, step);
        const auto far = map.apply (in);
        EXPECT_FLOAT_EQ (far[0][0], 0.0f) << step;
        EXPECT_FLOAT_EQ (far[0][3], 16.0f) << step;
    }
    map.createLinearRescaleMap (5, 4, std::nan (""));
    EXPECT_FLOAT_EQ (map.apply (in)[0][3], 0.0f);
}
