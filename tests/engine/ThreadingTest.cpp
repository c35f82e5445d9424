#include "Deconvolution.h"
#include "TestSignals.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <random>
#include <thread>

using namespace vesk::audio;

// The message thread changes parameters, loads filters and reads the display while the audio
// thread processes; run under ThreadSanitizer as well.
TEST (DeconvolutionThreads, ParameterChangesAndFilterLoadsWhileProcessing)
{
    Deconvolution engine;
    ASSERT_TRUE (engine.setFormat (AudioFormat (2, 48000), AudioFormat (2, 48000)));
    const auto noise = vesk::test::whiteNoise (2, 48000, 1) * 0.3f;
    std::atomic<bool> running{true};
    std::atomic<int> blocks{0};
    std::atomic<bool> finite{true};

    std::thread audio (
        [&]
        {
            Signal32 block (2, 256);
            for (int done = 0; running; done = (done + 256) % (48000 - 256))
            {
                for (int c = 0; c < 2; ++c)
                    std::copy (noise[c] + done, noise[c] + done + 256, block[c]);
                const auto out = engine.process (block);
                for (int c = 0; c < 2; ++c)
                    for (int n = 0; n < 256; n += 17)
                        if (!std::isfinite (out[c][n]))
                            finite = false;
                ++blocks;
            }
        });

    std::mt19937 generator (7);
    const auto pick = [&] (float lo, float hi)
    { return std::uniform_real_distribution<float> (lo, hi) (generator); };
    Signal32 filter (1, 300, 0.0f);
    filter[0][0] = 1.0f, filter[0][1] = -0.5f;
    for (int i = 0; i < 300 && blocks < 100000; ++i)
    {
        const int index = static_cast<int> (generator() % Deconvolution::numParameters);
        float lo = 0, hi = 0;
        engine.getParameterRange (index, lo, hi);
        engine.setParameterValue (
            index, index == 0 ? (i % 3 == 0 ? 2.0f : 1.0f) : pick (lo, std::max (lo, hi)), false);
        if (i % 10 == 0)
            engine.setTargetFilter (filter, i % 20 == 0 ? 44100.0 : 48000.0);
        if (i % 15 == 0)
            engine.setSourceFilter (filter, 48000.0);
        Signal32 in, out;
        engine.getAnalyzerData (in, out);
        const auto curve = engine.getFilterCurve();
        EXPECT_TRUE (curve.getNumSamples() == 4097);
        (void) engine.getParameterValue (index);
        std::this_thread::sleep_for (std::chrono::microseconds (200));
    }
    running = false;
    audio.join();
    EXPECT_GT (blocks.load(), 10);
    EXPECT_TRUE (finite.load());
}
