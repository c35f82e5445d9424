#include "Deconvolution.h"

#include <gtest/gtest.h>

#include <stdexcept>

using namespace vesk::audio;

TEST (DeconvolutionParameters, DefaultsAndRanges)
{
    Deconvolution engine;
    const float defaults[] = {1, -36, 10, 0, 0, 1, 0, 1};
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ (engine.getParameterValue (i), defaults[i]) << i;
    for (int i = 8; i < 19; ++i)
        EXPECT_EQ (engine.getParameterValue (i), 0.0f) << i;
    for (int i = 19; i < 31; ++i)
        EXPECT_EQ (engine.getParameterValue (i), 1000.0f) << i;
    for (int i = 31; i < 43; ++i)
        EXPECT_EQ (engine.getParameterValue (i), 100.0f) << i;

    float lo = 0, hi = 0;
    engine.getParameterRange (19, lo, hi);
    EXPECT_EQ (lo, 20.0f);
    EXPECT_EQ (hi, 0.0f) << "the frequency bound follows the sample rate, 0 before any format";
    ASSERT_TRUE (engine.setFormat (AudioFormat (2, 44100), AudioFormat (2, 44100)));
    engine.getParameterRange (30, lo, hi);
    EXPECT_EQ (hi, 22050.0f);
    engine.getParameterRange (1, lo, hi);
    EXPECT_EQ (lo, -112.0f);
    EXPECT_EQ (hi, -12.0f);
    engine.getParameterRange (3, lo, hi);
    EXPECT_EQ (hi, 6.0f);

    ProcessingInfo info{5, 5, true};
    engine.getProcessingInfo (info);
    EXPECT_EQ (info.blockLength, 0);
    EXPECT_EQ (info.latency, 0);
    EXPECT_FALSE (info.flag);
}

TEST (DeconvolutionParameters, OutOfRangeIndicesThrowEverywhere)
{
    Deconvolution engine;
    float lo = 0, hi = 0;
    for (int index : {-1, 43, 1000})
    {
        EXPECT_THROW (engine.getParameterValue (index), std::out_of_range);
        EXPECT_THROW (engine.getParameterRange (index, lo, hi), std::out_of_range);
        try
        {
            engine.setParameterValue (index, 1.0f, false);
            ADD_FAILURE() << "no exception";
        }
        catch (std::out_of_range const& e)
        {
            EXPECT_STREQ (e.what(), "Parameter index");
        }
    }
    // The lock was released on the throw: another thread can still take it.
    std::thread other ([&] { engine.setParameterValue (4, -3.0f, true); });
    other.join();
    EXPECT_EQ (engine.getParameterValue (4), -3.0f);
}

TEST (DeconvolutionParameters, IntegersRoundToEvenAndFlagsNeedMoreThanAHalf)
{
    Deconvolution engine;
    engine.setParameterValue (0, 1.5f, false);
    EXPECT_EQ (engine.getParameterValue (0), 2.0f);
    engine.setParameterValue (0, 2.5f, true);
    EXPECT_EQ (engine.getParameterValue (0), 2.0f);
    engine.setParameterValue (3, 4.5f, false);
    EXPECT_EQ (engine.getParameterValue (3), 4.0f);

    engine.setParameterValue (5, 0.5f, false);
    EXPECT_EQ (engine.getParameterValue (5), 0.0f);
    engine.setParameterValue (5, 0.50001f, false);
    EXPECT_EQ (engine.getParameterValue (5), 1.0f);
    engine.setParameterValue (7, 0.5f, false);
    EXPECT_EQ (engine.getParameterValue (7), 0.0f);
    engine.setParameterValue (18, 0.9f, false);
    EXPECT_EQ (engine.getParameterValue (18), 1.0f);
    EXPECT_EQ (engine.getParameterValue (17), 0.0f);

    // Values are not clamped; that is the host layer's business.
    engine.setParameterValue (4, 99.0f, false);
    EXPECT_EQ (engine.getParameterValue (4), 99.0f);
    engine.setParameterValue (0, std::nanf (""), false); // must not be undefined behaviour
}

TEST (DeconvolutionFormat, GridAndSizesFollowTheSampleRate)
{
    Deconvolution engine;
    EXPECT_FALSE (engine.setFormat (AudioFormat (2, 44100), AudioFormat (2, 48000)));
    EXPECT_FALSE (engine.setFormat (AudioFormat (2, 48000), AudioFormat (1, 48000)));
    EXPECT_FALSE (
        engine.setFormat (AudioFormat (2, std::nan ("")), AudioFormat (2, std::nan (""))));
    EXPECT_FALSE (engine.setFormat (AudioFormat (0, 48000), AudioFormat (0, 48000)));
    EXPECT_EQ (engine.getFftSize(), 0) << "a refused format changes nothing";

    ASSERT_TRUE (engine.setFormat (AudioFormat (2, 48000), AudioFormat (2, 48000)));
    EXPECT_EQ (engine.getFftSize(), 8192);
    EXPECT_EQ (engine.getAnalyzerFrameSize(), 4096);
    EXPECT_EQ (engine.getAnalyzerHopSize(), 1440);
    const auto bins = engine.getBinFrequencies();
    ASSERT_EQ (bins.size(), 4097u);
    EXPECT_FLOAT_EQ (bins[1], 48000.0f / 8192.0f);
    EXPECT_FLOAT_EQ (bins[4096], 24000.0f);

    // 1/k weights (bins 0 and 1 weigh as bin 1), normalised to a mean of 1.
    const auto weights = engine.getBinWeights();
    double sum = 0.0;
    for (int k = 0; k < 4097; ++k)
        sum += weights[0][k];
    EXPECT_NEAR (sum / 4097.0, 1.0, 1e-4);
    EXPECT_FLOAT_EQ (weights[0][0], weights[0][1]);
    EXPECT_NEAR (weights[0][2] / weights[0][4], 2.0f, 1e-5f);

    ASSERT_TRUE (engine.setFormat (AudioFormat (1, 44100), AudioFormat (1, 44100)));
    EXPECT_EQ (engine.getFftSize(), 8192);
    EXPECT_EQ (engine.getAnalyzerFrameSize(), 4096);
    EXPECT_EQ (engine.getAnalyzerHopSize(), 1323);
    EXPECT_EQ (engine.getImpulseResponse().getNumSamples(), 2205);
    ASSERT_TRUE (engine.setFormat (AudioFormat (1, 96000), AudioFormat (1, 96000)));
    EXPECT_EQ (engine.getFftSize(), 16384);
    EXPECT_EQ (engine.getImpulseResponse().getNumSamples(), 4800);
}
