#include "FourierTransform.h"
#include "TestSignals.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <thread>

using namespace vesk::audio;

namespace
{
std::vector<std::complex<double>> dft (const float* x, int n)
{
    std::vector<std::complex<double>> bins (static_cast<std::size_t> (n / 2 + 1));
    for (int k = 0; k <= n / 2; ++k)
    {
        std::complex<double> sum;
        for (int m = 0; m < n; ++m)
            sum += static_cast<double> (x[m]) * std::polar (1.0, -2.0 * M_PI * k * m / n);
        bins[static_cast<std::size_t> (k)] = sum;
    }
    return bins;
}
} // namespace

TEST (FourierTransform, MatchesTheDefinitionInCcsPackingWithoutScaling)
{
    FourierTransform transform;
    for (int n : {2, 8, 64, 256, 1024, 4096})
    {
        const auto x = vesk::test::whiteNoise (2, n, static_cast<std::uint32_t> (n));
        const auto spectrum = transform.forwardReal (x);
        ASSERT_EQ (spectrum.getNumSamples(), n / 2 + 1);
        ASSERT_EQ (spectrum.getNumChannels(), 2);
        for (int c = 0; c < 2; ++c)
        {
            const auto reference = dft (x[c], n);
            double peak = 0.0, error = 0.0;
            for (int k = 0; k <= n / 2; ++k)
            {
                const std::complex<double> got (spectrum[c][k].re, spectrum[c][k].im);
                peak = std::max (peak, std::abs (reference[static_cast<std::size_t> (k)]));
                error = std::max (error, std::abs (got - reference[static_cast<std::size_t> (k)]));
            }
            EXPECT_LT (error / peak, 1e-5) << n;
            EXPECT_EQ (spectrum[c][0].im, 0.0f);
            EXPECT_EQ (spectrum[c][n / 2].im, 0.0f);
        }

        const auto back = transform.inverseReal (spectrum);
        ASSERT_EQ (back.getNumSamples(), n);
        for (int m = 0; m < n; ++m)
            ASSERT_NEAR (back[1][m], static_cast<float> (n) * x[1][m],
                         1e-4f * static_cast<float> (n))
                << n;
    }
}

TEST (FourierTransform, SmallCasesAndThePreparedSize)
{
    FourierTransform transform;
    Signal32 x (1, 8);
    for (int n = 0; n < 8; ++n)
        x[0][n] = static_cast<float> (n + 1);
    auto bins = transform.forwardReal (x);
    ASSERT_EQ (bins.getNumSamples(), 5);
    EXPECT_FLOAT_EQ (bins[0][0].re, 36.0f);
    const auto back = transform.inverseReal (bins);
    EXPECT_NEAR (back[0][3], 32.0f, 1e-4f);
    EXPECT_EQ (transform.getSize(), 8);

    Signal32 impulse (1, 1024, 0.0f);
    impulse[0][0] = 1.0f;
    bins = transform.forwardReal (impulse);
    EXPECT_EQ (transform.getSize(), 1024);
    for (int k = 0; k < 513; ++k)
    {
        ASSERT_FLOAT_EQ (bins[0][k].re, 1.0f);
        ASSERT_FLOAT_EQ (bins[0][k].im, 0.0f);
    }
    transform.inverseReal (ComplexSignal32 (1, 257, complex32{0.0f, 0.0f}));
    EXPECT_EQ (transform.getSize(), 512);
}

TEST (FourierTransform, MisalignedAndInPlaceArraysGiveTheSameResult)
{
    IppsFFTSpec_R_32f* spec = nullptr;
    ippsFFTInitAlloc_R_32f (&spec, 6, IPP_FFT_NODIV_BY_ANY, ippAlgHintFast);
    int bytes = 0;
    ippsFFTGetBufSize_R_32f (spec, &bytes);
    std::vector<std::uint8_t> unalignedWork (static_cast<std::size_t> (bytes) + 64);
    auto* work = ippsMalloc_8u (bytes);

    const auto x = vesk::test::whiteNoise (1, 70, 9);
    Signal32 aligned (1, 66), offset (1, 70), inPlace (1, 66);
    ippsFFTFwd_RToCCS_32f (x[0], aligned[0], spec, work);
    ippsFFTFwd_RToCCS_32f (x[0] + 1, offset[0] + 1, spec, work);
    std::copy (x[0] + 1, x[0] + 65, inPlace[0]);
    ippsFFTFwd_RToCCS_32f (inPlace[0], inPlace[0], spec, work);
    Signal32 shifted (1, 66);
    ippsFFTFwd_RToCCS_32f (x[0] + 1, shifted[0], spec, work);
    for (int k = 0; k < 66; ++k)
    {
        ASSERT_FLOAT_EQ (offset[0][k + 1], shifted[0][k]);
        ASSERT_FLOAT_EQ (inPlace[0][k], shifted[0][k]);
    }
    ippsFree (work);
    ippsFFTFree_R_32f (spec);
}

TEST (FourierTransform, PreparationFromManyThreadsAtOnceIsSafe)
{
    std::vector<std::thread> threads;
    std::vector<float> results (8);
    for (int t = 0; t < 8; ++t)
        threads.emplace_back (
            [t, &results]
            {
                FourierTransform transform;
                float last = 0.0f;
                for (int order = 3; order < 14; ++order)
                {
                    Signal32 ones (1, 1 << (order + (t % 3)), 1.0f);
                    last = transform.forwardReal (ones)[0][0].re;
                }
                results[static_cast<std::size_t> (t)] = last;
            });
    for (auto& thread : threads)
        thread.join();
    for (int t = 0; t < 8; ++t)
        EXPECT_EQ (results[static_cast<std::size_t> (t)], static_cast<float> (1 << (13 + t % 3)));
}
