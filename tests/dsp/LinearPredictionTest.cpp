#include "LinearPrediction.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

using namespace vesk::audio;

TEST (LinearPrediction, RecoversAKnownAllPoleProcess)
{
    // x[n] = 1.3 x[n-1] - 0.6 x[n-2] + e[n]: the predictor is 1, -1.3, 0.6.
    std::mt19937 generator (1);
    std::normal_distribution<float> noise;
    Signal32 x (2, 40000, 0.0f);
    for (int n = 2; n < 40000; ++n)
    {
        x[0][n] = 1.3f * x[0][n - 1] - 0.6f * x[0][n - 2] + noise (generator);
        x[1][n] = -0.5f * x[1][n - 1] + noise (generator);
    }
    LinearPrediction lpc;
    const auto a = lpc.analyse (x, 4);
    EXPECT_FLOAT_EQ (a[0][0], 1.0f);
    EXPECT_NEAR (a[0][1], -1.3f, 0.02f);
    EXPECT_NEAR (a[0][2], 0.6f, 0.02f);
    EXPECT_NEAR (a[0][3], 0.0f, 0.02f);
    EXPECT_NEAR (a[1][1], 0.5f, 0.02f);
    EXPECT_NEAR (a[1][2], 0.0f, 0.02f);
}

TEST (LinearPrediction, DegenerateInputsGiveTheTrivialPredictor)
{
    LinearPrediction lpc;
    const auto zeros = lpc.analyse (Signal32 (1, 64, 0.0f), 5);
    EXPECT_EQ (zeros[0][0], 1.0f);
    for (int k = 1; k < 5; ++k)
        EXPECT_EQ (zeros[0][k], 0.0f);

    const auto single = lpc.analyse (Signal32 (2, 64, 0.3f), 1);
    ASSERT_EQ (single.getNumSamples(), 1);
    EXPECT_EQ (single[1][0], 1.0f);

    // Fewer samples than lags: the missing lags are zero and nothing is read past the frame.
    const auto shortFrame = lpc.analyse (Signal32 (1, 3, 0.5f), 10);
    EXPECT_EQ (shortFrame[0][0], 1.0f);
}

TEST (LinearPrediction, SinusoidGivesTheClassicSecondOrderResult)
{
    const double omega = 0.3;
    Signal32 x (1, 20000);
    for (int n = 0; n < 20000; ++n)
        x[0][n] = static_cast<float> (std::sin (omega * n));
    LinearPrediction lpc;
    const auto a = lpc.analyse (x, 3);
    EXPECT_NEAR (a[0][1], -2.0 * std::cos (omega), 1e-3);
    EXPECT_NEAR (a[0][2], 1.0, 1e-3);

    double coefficients[3];
    EXPECT_TRUE (lpc.lpa (x[0], 20000, coefficients, 2));
}
