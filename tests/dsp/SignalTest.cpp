#include "Signal.h"
#include "MathEx.h"
#include "TestSignals.h"
#include "WindowFunctions.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>

using namespace vesk::audio;
using vesk::MathEx;

TEST (Signal, CopiesShareStorageAndCopyIsDeep)
{
    Signal32 a (2, 4, 0.0f);
    Signal32 shared = a;
    shared[1][3] = 5.0f;
    EXPECT_EQ (a[1][3], 5.0f);

    Signal32 deep = a.copy();
    deep[1][3] = 7.0f;
    EXPECT_EQ (a[1][3], 5.0f);
    EXPECT_FALSE (Signal32().copy().hasStorage());

    for (int c = 0; c < 2; ++c)
        EXPECT_EQ (reinterpret_cast<std::uintptr_t> (a[c]) % 32, 0u)
            << "channel blocks are aligned";
}

TEST (Signal, EnsureDimensionsReusesStorageOnlyWhenItFits)
{
    Signal32 a (2, 256);
    for (int n = 0; n < 256; ++n)
        a[0][n] = static_cast<float> (n);
    Signal32 other = a;

    a.ensureDimensions (1, 100);
    EXPECT_TRUE (a.sharesStorageWith (other));
    EXPECT_EQ (a.getNumChannels(), 1);
    EXPECT_EQ (a.getNumSamples(), 100);
    EXPECT_EQ (a[0][99], 99.0f);

    a.ensureDimensions (2, 512);
    EXPECT_FALSE (a.sharesStorageWith (other));
    EXPECT_EQ (other.getNumSamples(), 256);
    EXPECT_EQ (other[0][255], 255.0f);
}

TEST (Signal, ArithmeticWorksPerChannelAndLeavesOperandsAlone)
{
    Signal32 a (2, 3, 6.0f), b (2, 3, 2.0f);
    const auto sum = a + b, difference = a - b, product = a * b, quotient = a / b;
    EXPECT_EQ (sum[1][2], 8.0f);
    EXPECT_EQ (difference[1][2], 4.0f);
    EXPECT_EQ (product[1][2], 12.0f);
    EXPECT_EQ (quotient[1][2], 3.0f);
    EXPECT_EQ ((a * 0.5f)[0][0], 3.0f);
    EXPECT_EQ ((0.5f * a)[0][0], 3.0f);
    EXPECT_EQ ((a / 4.0f)[0][0], 1.5f);
    EXPECT_EQ (a[0][0], 6.0f);
    EXPECT_FALSE (sum.sharesStorageWith (a));

    Signal32 pair (2, 2);
    pair[0][0] = 1.0f, pair[0][1] = 2.0f, pair[1][0] = 10.0f, pair[1][1] = 20.0f;
    const auto summed = Signal32::sumChannels (pair);
    EXPECT_EQ (summed.getNumChannels(), 1);
    EXPECT_EQ (summed[0][1], 22.0f);
    EXPECT_EQ (Signal32::reverse (pair)[1][0], 20.0f);
    EXPECT_EQ (pair.extractChannels (1, 1)[0][1], 20.0f);
    EXPECT_EQ (pair.extractSection (1, 1)[1][0], 20.0f);
    EXPECT_EQ (pair.createMultichannelSignal (3)[2][1], 2.0f);
}

TEST (Signal, RmsOfSeveralChannelsIsTheSumOfTheirNorms)
{
    Signal32 one (1, 4, 0.5f);
    EXPECT_FLOAT_EQ (one.getRmsLevel(), 0.5f);
    Signal32 two (2, 4, 0.5f);
    EXPECT_FLOAT_EQ (two.getRmsLevel(), 0.5f * std::sqrt (2.0f));
    EXPECT_TRUE (std::isnan (Signal32 (0, 4).getRmsLevel()));
}

TEST (Signal, DecibelsHaveNoFloorUntilLowerBoundIsApplied)
{
    Signal32 values (1, 4);
    values[0][0] = 0.0f, values[0][1] = -1.0f, values[0][2] = 1.0f, values[0][3] = 10.0f;
    const auto db = Signal32::toDecibel (values);
    EXPECT_TRUE (std::isinf (db[0][0]) && db[0][0] < 0);
    EXPECT_TRUE (std::isnan (db[0][1]));
    EXPECT_FLOAT_EQ (db[0][2], 0.0f);
    EXPECT_NEAR (db[0][3], 20.0f, 1e-5f);
    EXPECT_NEAR (Signal32::fromDecibel (db)[0][3], 10.0f, 1e-5f);

    const auto floored = Signal32::lowerBound (db, -100.0f);
    EXPECT_EQ (floored[0][0], -100.0f);
    EXPECT_NEAR (Signal32::log (values)[0][3], std::log (10.0f), 1e-6f);

    Signal32 edge (1, 2);
    edge[0][0] = -100.0f, edge[0][1] = -100.5f;
    EXPECT_EQ (Signal32::lowerBound (edge, -100.0f)[0][0], -100.0f);
    EXPECT_EQ (Signal32::lowerBound (edge, -100.0f)[0][1], -100.0f);

    EXPECT_TRUE (std::isinf (MathEx::toDecibel (0.0f)));
    EXPECT_FLOAT_EQ (MathEx::toDecibel (10.0f), 20.0f);
    EXPECT_FLOAT_EQ (MathEx::fromDecibel (-6.0f), static_cast<float> (std::pow (10.0, -0.3)));
}

TEST (Signal, ComplexSignalsFromPolarAndTheirMagnitudes)
{
    Signal32 magnitudes (1, 2, 2.0f), phases (1, 2, 0.0f);
    phases[0][1] = static_cast<float> (M_PI / 2);
    ComplexSignal32 spectrum (magnitudes, phases);
    EXPECT_FLOAT_EQ (spectrum[0][0].re, 2.0f);
    EXPECT_NEAR (spectrum[0][1].re, 0.0f, 1e-6f);
    EXPECT_FLOAT_EQ (spectrum[0][1].im, 2.0f);
    EXPECT_FLOAT_EQ (spectrum.getMagnitudeSignal()[0][1], 2.0f);

    ComplexSignal32 filled (1, 3, complex32{1.0f, -2.0f});
    EXPECT_EQ (filled[0][2].im, -2.0f);
}

TEST (MathEx, PowerOfTwoHelpers)
{
    const std::pair<int, int> nearest[] = {{3, 2},  {5, 4}, {6, 4}, {7, 8},
                                           {12, 8}, {1, 1}, {0, 0}, {-3, 0}};
    for (auto [n, expected] : nearest)
        EXPECT_EQ (MathEx::findNearestPowerOfTwo (n), expected) << n;
    EXPECT_EQ (MathEx::findLargerPowerOfTwo (0), 1);
    EXPECT_EQ (MathEx::findLargerPowerOfTwo (5), 8);
    EXPECT_EQ (MathEx::findLargerPowerOfTwo (8), 8);
    EXPECT_EQ (MathEx::findLargerPowerOfTwo (4801), 8192);
    EXPECT_EQ (MathEx::log2 (1), 0);
    EXPECT_EQ (MathEx::log2 (1024), 10);
    EXPECT_EQ (MathEx::log2 (1023), 9);
    EXPECT_EQ (MathEx::log2 (0), 0);
}

TEST (WindowFunctions, HammingAndBlackmanShapes)
{
    const auto hamming = WindowFunctions::generateHammingWindow (9);
    EXPECT_NEAR (hamming[0][0], 0.08f, 1e-6f);
    EXPECT_NEAR (hamming[0][4], 1.0f, 1e-6f);
    EXPECT_NEAR (hamming[0][2], 0.54f, 1e-6f);

    const auto blackman = WindowFunctions::generateBlackman (9, 0.16f);
    EXPECT_NEAR (blackman[0][0], 0.0f, 1e-6f);
    EXPECT_NEAR (blackman[0][8], 0.0f, 1e-6f);
    EXPECT_NEAR (blackman[0][4], 1.0f, 1e-6f);
    EXPECT_NEAR (blackman[0][2], 0.58f - 0.5f * std::cos (M_PI / 2) - 0.08f * std::cos (M_PI),
                 1e-6f);
}

// The vectorised primitives against plain loops, on odd lengths and unaligned starts.
TEST (VectorOps, VectorisedPathsMatchScalarLoops)
{
    for (int len : {1, 3, 7, 31, 33, 257, 1001})
    {
        const auto a = vesk::test::whiteNoise (1, 2 * len + 2, 1);
        const auto b = vesk::test::whiteNoise (1, 2 * len + 2, 2);
        const auto* ac = reinterpret_cast<const complex32*> (a[0] + 1); // deliberately misaligned
        const auto* bc = reinterpret_cast<const complex32*> (b[0]);
        std::vector<complex32> product (static_cast<std::size_t> (len)),
            acc (static_cast<std::size_t> (len), {1.0f, 1.0f});
        ippsMul_32fc (ac, bc, product.data(), len);
        ippsAddProduct_32fc (ac, bc, acc.data(), len);
        for (int n = 0; n < len; ++n)
        {
            const std::complex<double> x (ac[n].re, ac[n].im), y (bc[n].re, bc[n].im);
            const auto z = x * y;
            ASSERT_NEAR (product[static_cast<std::size_t> (n)].re, z.real(), 1e-6) << len;
            ASSERT_NEAR (product[static_cast<std::size_t> (n)].im, z.imag(), 1e-6) << len;
            ASSERT_NEAR (acc[static_cast<std::size_t> (n)].re, 1.0 + z.real(), 1e-6) << len;
            ASSERT_NEAR (acc[static_cast<std::size_t> (n)].im, 1.0 + z.imag(), 1e-6) << len;
        }

        std::vector<float> sumTarget (a[0], a[0] + len);
        ippsAdd_32f_I (b[0] + 1, sumTarget.data(), len);
        ippsMulC_32f_I (0.5f, sumTarget.data(), len);
        double total = 0.0;
        for (int n = 0; n < len; ++n)
        {
            ASSERT_FLOAT_EQ (sumTarget[static_cast<std::size_t> (n)],
                             (a[0][n] + b[0][n + 1]) * 0.5f);
            total += a[0][n];
        }
        float sum = 0.0f;
        ippsSum_32f (a[0], len, &sum);
        EXPECT_NEAR (sum, total, 1e-4);
    }
}

TEST (VectorOps, DirectFormFirMatchesConvolutionAcrossCallsAndKeepsItsDelayLine)
{
    for (int taps : {1, 5, 128})
    {
        const auto h = vesk::test::whiteNoise (1, taps, 3);
        const auto x = vesk::test::whiteNoise (1, 1500, 4);
        const auto reference = vesk::test::directConvolution (x[0], 1500, h[0], taps);
        IppsFIRState_32f* state = nullptr;
        ippsFIRInitAlloc_32f (&state, h[0], taps, nullptr);
        std::vector<float> y (1500);
        // Odd pieces, one longer than the kernel's internal chunk.
        const int pieces[] = {1, 33, 300, 7, 1159};
        int done = 0;
        for (int piece : pieces)
        {
            ippsFIR_32f (x[0] + done, y.data() + done, piece, state);
            done += piece;
        }
        for (int n = 0; n < 1500; ++n)
            ASSERT_NEAR (y[static_cast<std::size_t> (n)], reference[static_cast<std::size_t> (n)],
                         1e-5)
                << taps << " " << n;
        ippsFIRFree_32f (state);
    }
}
