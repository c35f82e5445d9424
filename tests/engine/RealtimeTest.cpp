#include "AllocationGuard.h"
#include "AudioThreads.h"
#include "Deconvolution.h"
#include "TestSignals.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <thread>
#include <utility>

using namespace vesk::audio;
using vesk::test::AllocationGuard;
using vesk::test::onTwoAlternatingThreads;

namespace
{
/** A stereo engine at 48 kHz, prepared as the plug-in prepares it for blocks of 64. */
void prepare (Deconvolution& engine, bool realtime)
{
    engine.expectedBlockSize = 64;
    ASSERT_TRUE (engine.setFormat (AudioFormat (2, 48000), AudioFormat (2, 48000)));
    engine.setRealtime (realtime);
    engine.reset();
}

/** Coloured noise, block by block, the same on every call with the same counter. */
void fill (Signal32& block, int counter)
{
    std::uint32_t state = 977u * static_cast<std::uint32_t> (counter) + 1u;
    for (int c = 0; c < block.getNumChannels(); ++c)
    {
        float previous = 0.0f;
        for (int n = 0; n < block.getNumSamples(); ++n)
        {
            state = state * 1664525u + 1013904223u;
            const float white = static_cast<float> (state >> 8) / 16777216.0f - 0.5f;
            previous = 0.7f * previous + white; // low-pass: a colour worth correcting
            block[c][n] = 0.3f * previous;
        }
    }
}

void skipUnlessCounting()
{
    if (!AllocationGuard::isCounting())
        GTEST_SKIP() << "allocations are not counted under a sanitizer";
}

/** Automation of every kind that changes the correction, at block i. */
void automate (Deconvolution& engine, int i)
{
    if (i % 7 == 0)
        engine.setParameterValue (Deconvolution::masterGainIndex,
                                  static_cast<float> (i % 13) - 6.0f, false);
    if (i % 50 == 0)
        engine.setParameterValue (Deconvolution::filterLengthIndex, i % 100 ? 12.5f : 10.0f, false);
    if (i % 90 == 0)
        engine.setParameterValue (Deconvolution::enableEmphasisCurveIndex, 1.0f, false);
    if (i % 120 == 0)
        engine.setParameterValue (Deconvolution::emphasisPointLevelIndex,
                                  static_cast<float> (i % 100), false);
    if (i % 400 == 0)
        engine.setParameterValue (Deconvolution::targetModelIndex,
                                  static_cast<float> ((i / 400) % 5), false);
}
} // namespace

// Learning (the default mode) with its redesigns, and automation of every kind arriving on the
// audio side, as hosts deliver it: from the very first block of a fresh engine, on two audio
// threads that take turns (hosts with a pool of audio workers). Nothing allocates there, and
// the designs made on the design thread still arrive.
TEST (DeconvolutionRealtime, LearningAndAudioThreadAutomationAllocateNothing)
{
    skipUnlessCounting();
    for (const auto estimator : {Estimator::frameModels, Estimator::longTermSpectrum})
    {
        SCOPED_TRACE (static_cast<int> (estimator));
        Deconvolution engine;
        prepare (engine, true);
        engine.setEstimator (estimator);
        Signal32 block (2, 64);
        std::size_t allocations = 0;
        onTwoAlternatingThreads (3000, // 4 s of audio
                                 [&] (int i)
                                 {
                                     fill (block, i);
                                     const AllocationGuard guard;
                                     {
                                         const AudioThreadScope audioSide; // a host's automation
                                         automate (engine, i);
                                     }
                                     engine.process (block);
                                     allocations += guard.count();
                                     if (i % 64 == 0) // let designs finish
                                         std::this_thread::sleep_for (
                                             std::chrono::milliseconds (10));
                                 });
        EXPECT_EQ (allocations, 0u);
        // (A new filter length restarts the long-term spectrum; the last came 50 blocks ago.)
        EXPECT_GT (engine.getEstimateFrameCount(), 2u) << "it learnt";
        EXPECT_GT (engine.getInstalledDesigns(), 10u) << "and the designs reached the convolution";
        EXPECT_EQ (engine.getParameterValue (Deconvolution::targetModelIndex), 2.0f);
    }
}

// A host prepares one engine again and again: block sizes up and down, rates from 22.05 to
// 384 kHz, each time with a redesign still pending from automation. After every prepare the
// output is the convolution of the input with the correction the engine reports.
TEST (DeconvolutionRealtime, PreparedAgainAtOtherBlockSizesAndRates)
{
    Deconvolution engine;
    engine.setParameterValue (Deconvolution::estimationModeIndex, 2.0f, false); // a fixed filter
    engine.setRealtime (true);
    const std::pair<double, int> formats[] = {{44100, 64},    {44100, 128},  {48000, 256},
                                              {96000, 512},   {88200, 1024}, {22050, 32},
                                              {384000, 4096}, {192000, 100}, {48000, 2048}};
    int step = 0;
    for (const auto& [rate, blockSize] : formats)
    {
        SCOPED_TRACE (std::to_string (rate) + " Hz, blocks of " + std::to_string (blockSize));
        {
            const AudioThreadScope audioSide; // left to the design thread, and not yet done
            engine.setParameterValue (Deconvolution::targetModelIndex,
                                      static_cast<float> (1 + step % 4), false);
        }
        engine.expectedBlockSize = blockSize;
        ASSERT_TRUE (engine.setFormat (AudioFormat (2, rate), AudioFormat (2, rate)));
        engine.reset();
        const auto input = vesk::test::whiteNoise (2, 6000, static_cast<std::uint32_t> (++step));
        Signal32 output (2, input.getNumSamples());
        for (int done = 0; done < input.getNumSamples(); done += blockSize)
        {
            const int count = std::min (blockSize, input.getNumSamples() - done);
            const auto result = engine.process (input.extractSection (done, count));
            for (int c = 0; c < 2; ++c)
                std::copy (result[c], result[c] + count, output[c] + done);
        }
        EXPECT_LT (vesk::test::convolutionError (input, output, engine.getImpulseResponse()), 1e-5);
    }
}

// Parameter changes, filter loads and display reads on another thread while audio runs in
// real time: the audio thread allocates nothing, the output stays finite, and the last change
// made on that thread is what the engine designs.
TEST (DeconvolutionRealtime, ChangesFromAnotherThreadWhileAudioRuns)
{
    skipUnlessCounting();
    Deconvolution engine;
    prepare (engine, true);
    std::atomic<bool> running{true};
    std::atomic<std::size_t> allocations{0};
    std::atomic<int> blocks{0};
    std::atomic<bool> finite{true};
    std::thread audio (
        [&]
        {
            Signal32 block (2, 64);
            for (int i = 0; running; ++i)
            {
                fill (block, i);
                const AllocationGuard guard;
                const auto out = engine.process (block);
                allocations += guard.count();
                finite = finite && std::isfinite (out[0][63]) && std::isfinite (out[1][0]);
                ++blocks;
                std::this_thread::sleep_for (std::chrono::microseconds (300));
            }
        });

    Signal32 filter (1, 300, 0.0f);
    filter[0][0] = 1.0f, filter[0][1] = -0.9f;
    for (int i = 0; i < 200; ++i)
    {
        engine.setParameterValue (i % 43, i % 43 == 0 ? 1.0f : engine.getParameterValue (i % 43),
                                  false);
        if (i % 20 == 0)
            engine.setTargetFilter (filter, 44100.0);
        Signal32 in, out;
        engine.getAnalyzerData (in, out);
        std::this_thread::sleep_for (std::chrono::microseconds (500));
    }
    engine.setParameterValue (Deconvolution::estimationModeIndex, 2.0f, false);
    engine.setParameterValue (Deconvolution::targetModelIndex, 1.0f, false);
    const auto designed = engine.getImpulseResponse();
    while (blocks < 400)
        std::this_thread::yield();
    running = false;
    audio.join();
    EXPECT_EQ (allocations.load(), 0u);
    EXPECT_TRUE (finite.load());
    EXPECT_EQ (engine.getFilterCurve().getNumSamples(), 4097);
    EXPECT_EQ (engine.getImpulseResponse()[0][5], designed[0][5]);
}

// Only changes that alter the correction cost a design; the master gain, applied after the
// convolution, and the analyser switch do not. Offline (the default), designs run inline and
// every run gives the same bits.
TEST (DeconvolutionRealtime, DesignsOnlyWhenTheCorrectionChangesAndOfflineIsDeterministic)
{
    Deconvolution engine, twin;
    prepare (engine, false);
    prepare (twin, false);
    Signal32 block (2, 64);
    const auto designs = [&]
    {
        fill (block, 0);
        engine.process (block);
        return engine.getInstalledDesigns();
    };
    engine.setParameterValue (Deconvolution::estimationModeIndex, 2.0f, false);
    const auto before = designs();
    engine.setParameterValue (Deconvolution::masterGainIndex, -12.0f, false);
    engine.setParameterValue (Deconvolution::enableAnalyzersIndex, 0.0f, false);
    EXPECT_EQ (designs(), before);
    engine.setParameterValue (Deconvolution::filterLengthIndex, 5.0f, false);
    EXPECT_EQ (designs(), before + 1);

    Deconvolution a, b;
    prepare (a, false);
    prepare (b, false);
    for (int i = 0; i < 1500; ++i)
    {
        fill (block, i);
        const auto x = a.process (block).copy();
        const auto y = b.process (block);
        for (int c = 0; c < 2; ++c)
            for (int n = 0; n < 64; ++n)
                ASSERT_EQ (x[c][n], y[c][n]) << "block " << i;
    }
    EXPECT_GT (a.getInstalledDesigns(), 20u);
}
