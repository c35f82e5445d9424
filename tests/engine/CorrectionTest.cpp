// The engine doing its job: coloured noise learnt for a few seconds, then held, must come out
// with the long-term spectrum of the chosen profile.
#include "Butterworth.h"
#include "Deconvolution.h"
#include "Spectra.h"
#include "TestSignals.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>

using namespace vesk::audio;
using vesk::test::BandLevels;
using vesk::test::Biquad;

namespace
{
constexpr double rate = 48000.0;

/** Learns from the first signal, holds, and returns the output for the second. */
Signal32 learnThenHold (float targetModel, Signal32 const& learnFrom, Signal32 const& thenProcess)
{
    Deconvolution engine;
    EXPECT_TRUE (engine.setFormat (AudioFormat (2, rate), AudioFormat (2, rate)));
    engine.setParameterValue (Deconvolution::targetModelIndex, targetModel, false);
    engine.setParameterValue (Deconvolution::estimationThresholdIndex, -60.0f, false);
    for (int done = 0; done + 512 <= learnFrom.getNumSamples(); done += 512)
        engine.process (learnFrom.extractSection (done, 512));
    engine.setParameterValue (Deconvolution::estimationModeIndex, 2.0f, false);
    Signal32 out (2, thenProcess.getNumSamples(), 0.0f);
    for (int done = 0; done + 480 <= thenProcess.getNumSamples(); done += 480)
    {
        const auto block = engine.process (thenProcess.extractSection (done, 480));
        for (int c = 0; c < 2; ++c)
            std::copy (block[c], block[c] + 480, out[c] + done);
    }
    return out;
}

/** The profile's own curve in dB at a frequency, from the curve models directly. */
double profileDb (int model, double f)
{
    const std::vector<float> at{static_cast<float> (f)};
    const auto lp = [&] (float fc, float n)
    { return Butterworth::evaluateLowPassFilter (at, fc, n, 0.0f)[0][0]; };
    const auto hp = [&] (float fc, float n)
    { return Butterworth::evaluateHighPassFilter (at, fc, n, 0.0f)[0][0]; };
    double g = 1.0;
    switch (model)
    {
        case 1: g = hp (75, 2) * lp (100, 1.0f) * lp (10000, 1.0f); break;
        case 2: g = hp (60, 2) * lp (100, 1.15f) * lp (10000, 1.0f); break;
        case 3:
            g = hp (75, 2) * lp (100, 1.05f)
                * Butterworth::evaluatePeakFilter (at, -3, 3400, 1.5f, 2)[0][0] * lp (10000, 1.0f);
            break;
        case 4: g = hp (50, 2) * lp (500, 1.0f) * lp (10000, 1.0f); break;
        default: break;
    }
    return 20.0 * std::log10 (g);
}

/** Largest deviation of the output's band levels from the profile, after removing the mean offset.
 */
double worstDeviation (BandLevels const& bands, int model)
{
    std::vector<double> deviation;
    double mean = 0.0;
    for (std::size_t i = 0; i < bands.centres.size(); ++i)
    {
        deviation.push_back (bands.levels[i] - profileDb (model, bands.centres[i]));
        mean += deviation.back();
    }
    mean /= static_cast<double> (deviation.size());
    double worst = 0.0;
    for (std::size_t i = 0; i < deviation.size(); ++i)
    {
        if (std::getenv ("KELFINER_TEST_VERBOSE") != nullptr)
            std::printf ("%8.0f Hz %+6.2f dB\n", bands.centres[i], deviation[i] - mean);
        worst = std::max (worst, std::fabs (deviation[i] - mean));
    }
    return worst;
}
} // namespace

class FixedProfileFollowsTheTarget : public testing::TestWithParam<int>
{
};

TEST_P (FixedProfileFollowsTheTarget, FromMuffledAndFromHarshMaterial)
{
    const int model = GetParam();
    // Muffled: a 12 dB/oct low-pass at 3 kHz. Harsh: a +9 dB presence peak.
    const std::vector<std::vector<Biquad>> colourings{{Biquad::lowPass (3000, 0.707, rate)},
                                                      {Biquad::peak (3000, 1.0, 9.0, rate)}};
    for (std::size_t i = 0; i < colourings.size(); ++i)
    {
        const auto learn =
            vesk::test::colouredNoise (colourings[i], 4 * static_cast<int> (rate), 1);
        const auto play = vesk::test::colouredNoise (colourings[i], 6 * static_cast<int> (rate), 2);
        const auto before = vesk::test::thirdOctaveLevels (play, rate, 100, 10000);
        const auto out = learnThenHold (static_cast<float> (model), learn, play);
        const auto after = vesk::test::thirdOctaveLevels (out, rate, 100, 10000, 4800);
        EXPECT_GT (worstDeviation (before, model), 4.0) << "the colouring is audible to begin with";
        EXPECT_LT (worstDeviation (after, model), 1.0)
            << "profile " << model << ", colouring " << i;
    }
}

INSTANTIATE_TEST_SUITE_P (Profiles, FixedProfileFollowsTheTarget, testing::Values (1, 2, 3, 4));

TEST (AutomaticProfile, RemovesNarrowColouringAndKeepsTheBroadTilt)
{
    // A broad tilt (12 dB/oct above 1 kHz) with a narrow +9 dB resonance at 3 kHz on top.
    const std::vector<Biquad> colouring{Biquad::lowPass (1000, 0.5, rate),
                                        Biquad::peak (3000, 4.0, 9.0, rate)};
    const auto learn = vesk::test::colouredNoise (colouring, 4 * static_cast<int> (rate), 3);
    const auto play = vesk::test::colouredNoise (colouring, 6 * static_cast<int> (rate), 4);
    const auto before = vesk::test::thirdOctaveLevels (play, rate, 100, 10000);
    const auto out = learnThenHold (0.0f, learn, play);
    const auto after = vesk::test::thirdOctaveLevels (out, rate, 100, 10000, 4800);

    // The resonance against the mean of its neighbours an octave away, on the log scale.
    const auto excess = [] (BandLevels const& bands)
    { return bands.at (3150) - 0.5 * (bands.at (1600) + bands.at (6300)); };
    const auto tilt = [] (BandLevels const& bands) { return bands.at (250) - bands.at (8000); };
    if (std::getenv ("KELFINER_TEST_VERBOSE") != nullptr)
        std::printf ("excess %.2f -> %.2f, tilt %.2f -> %.2f\n", excess (before), excess (after),
                     tilt (before), tilt (after));
    EXPECT_GT (excess (before), 4.0);
    EXPECT_LT (std::fabs (excess (after)), 0.4 * excess (before))
        << "most of the resonance is gone";
    EXPECT_GT (tilt (before), 30.0);
    EXPECT_NEAR (tilt (after), tilt (before), 0.2 * tilt (before)) << "the broad balance stays";
}
