#include "CircularBuffer.h"
#include "SignalQueue.h"

#include <gtest/gtest.h>

using namespace vesk::audio;

namespace
{
Signal32 ramp (int channels, int samples, float start)
{
    Signal32 s (channels, samples);
    for (int c = 0; c < channels; ++c)
        for (int n = 0; n < samples; ++n)
            s[c][n] = start + static_cast<float> (n) + 100.0f * static_cast<float> (c);
    return s;
}
} // namespace

TEST (CircularBuffer, PeekReadsTheNewestSamplesAcrossTheWrap)
{
    CircularBuffer<Signal32> ring (8);
    ring.add (ramp (2, 6, 0.0f));
    ring.add (ramp (2, 4, 6.0f));
    const auto newest = ring.peek (-4, 4);
    for (int n = 0; n < 4; ++n)
    {
        EXPECT_EQ (newest[0][n], 6.0f + static_cast<float> (n));
        EXPECT_EQ (newest[1][n], 106.0f + static_cast<float> (n));
    }
    EXPECT_EQ (ring.peek (-8, 1)[0][0], 2.0f);
}

TEST (CircularBuffer, GrowsByTheExcessOfALongerBlockAndKeepsItsNewestSamples)
{
    CircularBuffer<Signal32> ring (1000);
    ring.add (ramp (1, 5000, 0.0f));
    EXPECT_EQ (ring.getLength(), 1904);
    ring.add (ramp (1, 100, 5000.0f));
    EXPECT_EQ (ring.getLength(), 1904);
    EXPECT_EQ (ring.peek (-1904, 1904)[0][0], 5100.0f - 1904.0f);

    ring.resize (10);
    EXPECT_EQ (ring.getLength(), 1904);
    ring.resize (3000);
    EXPECT_EQ (ring.getLength(), 3000);
    const auto after = ring.peek (-1904, 1904);
    for (int n = 0; n < 1904; ++n)
        ASSERT_EQ (after[0][n], 5100.0f - 1904.0f + static_cast<float> (n));
    EXPECT_EQ (ring.peek (-3000, 1)[0][0], 0.0f) << "the grown part is silent";
}

TEST (SignalQueue, ReadsAcrossBlocksAndRemovesUsedOnes)
{
    SignalQueue<Signal32> queue;
    queue.push (ramp (1, 3, 0.0f));
    queue.push (ramp (1, 5, 3.0f));
    queue.push (Signal32());      // no storage: ignored
    queue.push (Signal32 (1, 0)); // no samples: ignored
    EXPECT_EQ (queue.getAvailable(), 8);
    EXPECT_EQ (queue.getNumBlocks(), 2);

    const auto peeked = queue.peek (4);
    EXPECT_EQ (queue.getAvailable(), 8);
    const auto got = queue.get (4);
    for (int n = 0; n < 4; ++n)
    {
        EXPECT_EQ (peeked[0][n], static_cast<float> (n));
        EXPECT_EQ (got[0][n], static_cast<float> (n));
    }
    EXPECT_EQ (queue.getAvailable(), 4);
    EXPECT_EQ (queue.getNumBlocks(), 1);
    EXPECT_EQ (queue.getFrontOffset(), 1);

    queue.skip (2);
    EXPECT_EQ (queue.get (2)[0][1], 7.0f);
    EXPECT_EQ (queue.getNumBlocks(), 0);
    EXPECT_EQ (queue.getAvailable(), 0);
}

TEST (SignalQueue, ManyBlocksInFlightAndClear)
{
    SignalQueue<Signal32> queue;
    float next = 0.0f;
    float expected = 0.0f;
    for (int round = 0; round < 50; ++round)
    {
        for (int i = 0; i < 7; ++i)
        {
            queue.push (ramp (2, 3, next));
            next += 3.0f;
        }
        auto out = queue.get (17);
        for (int n = 0; n < 17; ++n, expected += 1.0f)
            ASSERT_EQ (out[1][n], expected + 100.0f);
    }
    EXPECT_EQ (queue.getAvailable(), 50 * 4);
    queue.clear();
    EXPECT_EQ (queue.getAvailable(), 0);
    EXPECT_EQ (queue.getChannels(), 0);
}
