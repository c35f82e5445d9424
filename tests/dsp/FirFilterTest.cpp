#include "FirFilter.h"
#include "TestSignals.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <thread>

using namespace vesk::audio;
using vesk::test::decayingResponse;
using vesk::test::directConvolution;
using vesk::test::whiteNoise;

namespace
{
std::vector<int> sizesFor (int length)
{
    FirFilter filter;
    filter.setImpulseResponse (Signal32 (1, length, 0.5f));
    return filter.getPartitionSizes();
}

/** Streams input through the filter in the given blocks and returns the output, channel by channel.
 */
Signal32 streamThrough (FirFilter& filter, Signal32 const& input, std::vector<int> const& blocks)
{
    Signal32 output (input.getNumChannels(), input.getNumSamples(), 0.0f);
    int done = 0;
    for (std::size_t i = 0; done < input.getNumSamples(); ++i)
    {
        const int count = std::min (blocks[i % blocks.size()], input.getNumSamples() - done);
        auto block = input.extractSection (done, count);
        auto result = filter.process (block);
        EXPECT_EQ (result.getNumSamples(), count);
        for (int c = 0; c < input.getNumChannels(); ++c)
            std::copy (result[c], result[c] + count, output[c] + done);
        done += count;
    }
    return output;
}

/** Largest error on any sample, relative to the reference's peak. */
double relativeError (Signal32 const& output, int channel, std::vector<double> const& reference,
                      int from = 0)
{
    double peak = 0.0, error = 0.0;
    for (std::size_t n = static_cast<std::size_t> (from); n < reference.size(); ++n)
    {
        peak = std::max (peak, std::fabs (reference[n]));
        error = std::max (error, std::fabs (reference[n] - output[channel][n]));
    }
    return error / std::max (peak, 1e-30);
}

constexpr double tolerance = 2e-6;
} // namespace

TEST (FirFilterLayout, PartitionSizesFollowTheDoublingRunAndTheFinalHalving)
{
    EXPECT_TRUE (sizesFor (100).empty());
    EXPECT_TRUE (sizesFor (128).empty());
    EXPECT_EQ (sizesFor (129), (std::vector<int>{2}));
    EXPECT_EQ (sizesFor (2048), (std::vector<int>{128, 256, 512, 1024}));
    EXPECT_EQ (sizesFor (2400), (std::vector<int>{128, 256, 512, 1024, 512}));
    EXPECT_EQ (sizesFor (3000), (std::vector<int>{128, 256, 512, 1024, 1024}));
    EXPECT_EQ (sizesFor (3500), (std::vector<int>{128, 256, 512, 1024, 2048}));

    FirFilter filter;
    filter.setImpulseResponse (Signal32 (1, 3000, 0.1f));
    EXPECT_EQ (filter.getCoveredLength(), 3000);
    EXPECT_EQ (filter.getPartitionOffsets(), (std::vector<int>{128, 256, 512, 1024, 2048}));
}

TEST (FirFilterLayout, BlockSizeChoosesTheHeadAndDisablesPartitionsInsideTheBlock)
{
    FirFilter filter;
    filter.setImpulseResponse (Signal32 (2, 3000, 0.1f));
    EXPECT_EQ (filter.getEffectiveBlockSize(), -1);

    filter.updateBlockSize (512);
    EXPECT_TRUE (filter.hasBlockPartition());
    EXPECT_EQ (filter.getEffectiveBlockSize(), 512);
    EXPECT_EQ (filter.getPartitionEnabled(), (std::vector<bool>{false, false, true, true, true}));
    EXPECT_GE (filter.getHistoryLength(), 512 + 3000 + 4096);

    for (int size : {500, 64, 1, 127})
    {
        filter.updateBlockSize (size);
        EXPECT_FALSE (filter.hasBlockPartition()) << size;
        EXPECT_EQ (filter.getPartitionEnabled(), std::vector<bool> (5, true)) << size;
    }
    filter.updateBlockSize (128);
    EXPECT_TRUE (filter.hasBlockPartition());
    EXPECT_EQ (filter.getPartitionEnabled(), std::vector<bool> (5, true));
}

TEST (FirFilterLayout, UnchangedPartitionsSurviveANewResponse)
{
    FirFilter filter;
    filter.setImpulseResponse (Signal32 (1, 3000, 0.1f));
    filter.setImpulseResponse (Signal32 (1, 3500, 0.1f));
    EXPECT_EQ (filter.getPartitionSizes(), (std::vector<int>{128, 256, 512, 1024, 2048}));
    EXPECT_EQ (filter.getCoveredLength(), 3500);
}

// Every response length around a partition boundary against every block size, on every sample.
class FirFilterAgainstDirectConvolution : public testing::TestWithParam<int>
{
};

TEST_P (FirFilterAgainstDirectConvolution, EverySampleMatchesForEveryBlockSize)
{
    const int length = GetParam();
    const auto response = decayingResponse (2, length, static_cast<std::uint32_t> (length));
    const int samples = std::max (2 * length + 1000, 5000);
    const auto input = whiteNoise (2, samples, 7);
    std::vector<std::vector<double>> reference;
    for (int c = 0; c < 2; ++c)
        reference.push_back (directConvolution (input[c], samples, response[c], length));

    for (int blockSize : {1, 17, 64, 128, 480, 512, 4096})
    {
        for (bool announceBlockSize : {false, true})
        {
            FirFilter filter;
            filter.setImpulseResponse (response);
            if (announceBlockSize)
                filter.updateBlockSize (blockSize);
            const auto output = streamThrough (filter, input, {blockSize});
            for (int c = 0; c < 2; ++c)
                EXPECT_LT (relativeError (output, c, reference[static_cast<std::size_t> (c)]),
                           tolerance)
                    << "length " << length << ", block " << blockSize << ", announced "
                    << announceBlockSize << ", channel " << c;
        }
    }
}

INSTANTIATE_TEST_SUITE_P (ResponseLengths, FirFilterAgainstDirectConvolution,
                          testing::Values (100, 128, 129, 2048, 2205, 2400, 3000, 3500, 8192));

TEST (FirFilterStream, ImpulseReproducesTheResponseFromTheFirstSample)
{
    const auto response = decayingResponse (1, 2400, 3);
    for (int blockSize : {1, 64, 256, 333})
    {
        FirFilter filter;
        filter.setImpulseResponse (response);
        filter.updateBlockSize (blockSize);
        Signal32 impulse (1, 3000, 0.0f);
        impulse[0][0] = 1.0f;
        const auto output = streamThrough (filter, impulse, {blockSize});
        for (int n = 0; n < 2400; ++n)
            ASSERT_NEAR (output[0][n], response[0][n], 2e-6f)
                << "sample " << n << ", block " << blockSize;
        for (int n = 2400; n < 3000; ++n)
            ASSERT_NEAR (output[0][n], 0.0f, 2e-6f) << "sample " << n;
    }
}

TEST (FirFilterStream, RandomBlockSizesAndModeChangesKeepTheConvolutionExact)
{
    const int length = 2400, samples = 60000;
    const auto response = decayingResponse (1, length, 11);
    const auto input = whiteNoise (1, samples, 12);
    const auto reference = directConvolution (input[0], samples, response[0], length);

    std::mt19937 generator (5);
    const std::vector<int> sizes{1, 7, 17, 64, 128, 256, 480, 512, 1000, 1024, 2048, 4096, 5000};
    FirFilter filter;
    filter.setImpulseResponse (response);
    Signal32 output (1, samples, 0.0f);
    for (int done = 0; done < samples;)
    {
        const int size = sizes[generator() % sizes.size()];
        if (generator() % 2 == 0)
            filter.updateBlockSize (
                size); // announced; otherwise the block size differs from the announced one
        const int count = std::min (size, samples - done);
        auto result = filter.process (input.extractSection (done, count));
        std::copy (result[0], result[0] + count, output[0] + done);
        done += count;
    }
    EXPECT_LT (relativeError (output, 0, reference), tolerance);
}

TEST (FirFilterStream, ANewResponseMidStreamAppliesToTheWholeHistoryAtOnce)
{
    // After a change, every output sample is the new response over the whole past input.
    const int samples = 40000;
    const auto input = whiteNoise (2, samples, 21);
    const std::vector<Signal32> responses{
        decayingResponse (2, 2400, 1), decayingResponse (2, 3500, 2), decayingResponse (2, 100, 3),
        decayingResponse (2, 2205, 4)};
    const std::vector<int> changeAt{0, 7001, 15000, 23457};

    for (int blockSize : {17, 512})
    {
        FirFilter filter;
        filter.updateBlockSize (blockSize);
        Signal32 output (2, samples, 0.0f);
        std::size_t active = 0;
        for (int done = 0; done < samples;)
        {
            if (active < changeAt.size() && done >= changeAt[active])
                filter.setImpulseResponse (responses[active++]);
            int count = std::min (blockSize, samples - done);
            if (active < changeAt.size())
                count = std::min (count, changeAt[active] - done);
            auto result = filter.process (input.extractSection (done, count));
            for (int c = 0; c < 2; ++c)
                std::copy (result[c], result[c] + count, output[c] + done);
            done += count;
        }

        for (std::size_t i = 0; i < responses.size(); ++i)
        {
            const int from = changeAt[i];
            const int to = i + 1 < changeAt.size() ? changeAt[i + 1] : samples;
            for (int c = 0; c < 2; ++c)
            {
                const auto reference =
                    directConvolution (input[c], to, responses[i][c], responses[i].getNumSamples());
                EXPECT_LT (relativeError (output, c, reference, from), tolerance)
                    << "response " << i << ", block " << blockSize << ", channel " << c;
            }
        }
    }
}

TEST (FirFilterStream, SeveralResponsesFilterTheSameInputIndependently)
{
    const int samples = 9000;
    const auto input = whiteNoise (2, samples, 31);
    const std::vector<Signal32> responses{decayingResponse (2, 3000, 8),
                                          decayingResponse (1, 700, 9)};
    FirFilter filter;
    filter.setMultipleIRs (responses);
    std::vector<Signal32> outputs{Signal32 (2, samples, 0.0f), Signal32 (2, samples, 0.0f)};
    for (int done = 0; done < samples; done += 300)
    {
        auto const& results = filter.processMultiple (input.extractSection (done, 300));
        ASSERT_EQ (results.size(), 2u);
        for (std::size_t r = 0; r < 2; ++r)
            for (int c = 0; c < 2; ++c)
                std::copy (results[r][c], results[r][c] + 300, outputs[r][c] + done);
    }
    for (int c = 0; c < 2; ++c)
    {
        // The one-channel response serves both input channels.
        const int responseChannel = std::min (c, responses[1].getNumChannels() - 1);
        EXPECT_LT (relativeError (outputs[0], c,
                                  directConvolution (input[c], samples, responses[0][c], 3000)),
                   tolerance);
        EXPECT_LT (relativeError (
                       outputs[1], c,
                       directConvolution (input[c], samples, responses[1][responseChannel], 700)),
                   tolerance);
    }
}

TEST (FirFilterStream, TheSameStreamSplitDifferentlyGivesTheSameBits)
{
    // Hosts split a stream as they please; the output must not depend on it, to the last bit.
    const auto response = decayingResponse (2, 2400, 51);
    const auto input = whiteNoise (2, 20000, 52);
    FirFilter reference;
    reference.setImpulseResponse (response);
    const auto expected = streamThrough (reference, input, {512});
    for (std::vector<int> const& blocks :
         std::vector<std::vector<int>>{{1}, {17, 64, 1, 480}, {33, 4096}})
    {
        FirFilter filter;
        filter.setImpulseResponse (response);
        const auto output = streamThrough (filter, input, blocks);
        for (int c = 0; c < 2; ++c)
            for (int n = 0; n < 20000; ++n)
                ASSERT_EQ (output[c][n], expected[c][n])
                    << "sample " << n << ", first block " << blocks[0];
    }
}

TEST (FirFilterStream, ResetSilencesTheHistoryButKeepsTheResponse)
{
    const auto response = decayingResponse (1, 3000, 41);
    const auto input = whiteNoise (1, 8000, 42);
    for (int blockSize : {100, 256})
    {
        FirFilter filter;
        filter.setImpulseResponse (response);
        filter.updateBlockSize (blockSize);
        const auto first = streamThrough (filter, input, {blockSize});
        filter.reset();
        const auto second = streamThrough (filter, input, {blockSize});
        for (int n = 0; n < 8000; ++n)
            ASSERT_FLOAT_EQ (first[0][n], second[0][n]) << "sample " << n;
    }
}

TEST (FirFilterStream, OutputSharesTheFiltersStorageAndIsReused)
{
    FirFilter filter;
    filter.setImpulseResponse (Signal32 (1, 10, 1.0f));
    auto first = filter.process (Signal32 (1, 64, 1.0f));
    const float kept = first[0][63];
    auto second = filter.process (Signal32 (1, 64, 0.0f));
    EXPECT_TRUE (first.sharesStorageWith (second));
    EXPECT_FLOAT_EQ (kept, 10.0f);
    EXPECT_FLOAT_EQ (first[0][63], 0.0f);
}

TEST (FirFilterStream, WithoutAResponseTheOutputIsSilent)
{
    FirFilter filter;
    auto output = filter.process (Signal32 (2, 100, 1.0f));
    ASSERT_EQ (output.getNumChannels(), 2);
    for (int c = 0; c < 2; ++c)
        for (int n = 0; n < 100; ++n)
            ASSERT_EQ (output[c][n], 0.0f);
}

// A response prepared on another thread and swapped in mid-stream: every later sample is the
// direct convolution of the whole input with the new response, in both head modes; a response
// made for another layout is refused.
TEST (FirFilterSwap, PreparedResponseContinuesTheStreamExactly)
{
    const int samples = 6000, length = 2400;
    const auto input = whiteNoise (2, samples, 31);
    const auto first = decayingResponse (1, length, 32);
    const auto second = decayingResponse (1, length, 33);
    const auto reference = directConvolution (input[1], samples, second[0], length);
    for (const int blockSize : {0, 256})
    {
        FirFilter filter;
        filter.setImpulseResponse (first.createMultichannelSignal (2));
        if (blockSize > 0)
            filter.updateBlockSize (blockSize);
        FirFilter::PreparedResponse prepared;
        std::thread preparer ([&] { filter.prepareResponse (second, prepared); });
        preparer.join();
        ASSERT_TRUE (prepared.isPending());

        const int swapAt = 2560 + 37;
        std::vector<int> blocks{blockSize > 0 ? blockSize : 61};
        auto before = streamThrough (filter, input.extractSection (0, swapAt), blocks);
        ASSERT_TRUE (filter.swapResponse (prepared));
        EXPECT_FALSE (prepared.isPending());
        auto after =
            streamThrough (filter, input.extractSection (swapAt, samples - swapAt), blocks);
        for (int n = 0; n < samples - swapAt; ++n)
            ASSERT_NEAR (after[1][n], reference[static_cast<std::size_t> (swapAt + n)], 2e-5)
                << "block size " << blockSize << ", sample " << swapAt + n;

        // The layout changes with the block size: a response prepared before is void.
        filter.prepareResponse (first, prepared);
        filter.updateBlockSize (blockSize > 0 ? 0 : 512);
        EXPECT_FALSE (filter.swapResponse (prepared));
    }
}

// A host prepares one instance again and again at other block sizes, while the three response
// slots the engine keeps travel between the designers and the filter. A slot last filled for a
// partition of shorter segments must be reshaped, not written past its end; after every change
// each swapped-in response filters every sample exactly.
TEST (FirFilterSwap, PreparedResponsesSurviveEveryChangeOfBlockSize)
{
    const int length = 2400, samples = 5000;
    const auto input = whiteNoise (2, samples, 41);
    FirFilter filter;
    filter.setImpulseResponse (decayingResponse (1, length, 40).createMultichannelSignal (2));
    std::array<FirFilter::PreparedResponse, 3> slots;
    std::uint32_t seed = 42;
    std::size_t next = 0;
    for (const int blockSize : {64, 128, 256, 512, 1024, 32, 4096, 128, 2048, 256, 100})
    {
        SCOPED_TRACE (blockSize);
        filter.updateBlockSize (blockSize);
        filter.process (Signal32 (2, blockSize, 0.0f)); // as the engine sizes its buffers
        filter.reset();
        for (int round = 0; round < 2; ++round)
        {
            const auto response = decayingResponse (1, length, seed++);
            auto& slot = slots[next++ % slots.size()];
            filter.prepareResponse (response, slot);
            ASSERT_TRUE (filter.swapResponse (slot));
            filter.reset();
            const auto output = streamThrough (filter, input, {blockSize});
            for (int c = 0; c < 2; ++c)
                EXPECT_LT (
                    relativeError (output, c,
                                   directConvolution (input[c], samples, response[0], length)),
                    tolerance)
                    << "channel " << c << ", round " << round;
        }
    }
}
