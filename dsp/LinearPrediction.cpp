#include "LinearPrediction.h"

#include "MathEx.h"

#include <algorithm>
#include <new>

namespace vesk::audio
{
LinearPrediction::~LinearPrediction()
{
    for (auto* spec : specs)
        if (spec != nullptr)
            ippsFFTFree_R_64f (spec);
    ippsFree (work);
    ippFree (block);
}

void LinearPrediction::prepare (int maxSamples, int maxOrder)
{
    autocorrelation.reserve (static_cast<std::size_t> (std::max (maxOrder, 0) + 2));
    coefficients.reserve (static_cast<std::size_t> (std::max (maxOrder, 0) + 1));
    const int largest = MathEx::findLargerPowerOfTwo (maxSamples + maxOrder + 2);
    for (int size = 2; size <= largest; size *= 2)
        reserveTransform (size);
}

void LinearPrediction::reserveTransform (int size)
{
    const auto order = static_cast<std::size_t> (MathEx::log2 (size));
    if (specs.size() <= order)
        specs.resize (order + 1, nullptr);
    if (specs[order] == nullptr)
        ippsFFTInitAlloc_R_64f (&specs[order], static_cast<int> (order), IPP_FFT_NODIV_BY_ANY,
                                ippAlgHintFast);
    if (size <= capacity)
        return;
    // The largest transform's buffers serve every smaller one.
    int bytes = 0;
    ippsFFTGetBufSize_R_64f (specs[order], &bytes);
    ippsFree (work);
    ippFree (block);
    work = ippsMalloc_8u (bytes);
    block =
        static_cast<double*> (ippMalloc (sizeof (double) * static_cast<std::size_t> (size + 2)));
    if (work == nullptr || block == nullptr)
        throw std::bad_alloc();
    capacity = size;
}

void LinearPrediction::autocorrelate (const float* x, int n, int lags)
{
    double* r = autocorrelation.data();
    const int computed = std::min (lags, n);
    // Short models: the sums by definition. Long ones (the engine's run to hundreds of lags)
    // through a transform, which costs a few per cent of the direct sums. The transform is in
    // double precision: float rounding would let a frame with deep spectral nulls lose the
    // positive definiteness that keeps the recursion stable.
    if (static_cast<long long> (computed) * n < 32768)
    {
        for (int k = 0; k < computed; ++k)
        {
            double sum = 0.0;
            for (int m = 0; m + k < n; ++m)
                sum += static_cast<double> (x[m]) * static_cast<double> (x[m + k]);
            r[k] = sum;
        }
        return;
    }

    const int size = MathEx::findLargerPowerOfTwo (n + computed);
    reserveTransform (size);
    const auto* spec = specs[static_cast<std::size_t> (MathEx::log2 (size))];
    for (int m = 0; m < n; ++m)
        block[m] = x[m];
    std::fill (block + n, block + size + 2, 0.0);
    ippsFFTFwd_RToCCS_64f (block, block, spec, work);
    for (int k = 0; k <= size / 2; ++k)
    {
        const double re = block[2 * k], im = block[2 * k + 1];
        block[2 * k] = re * re + im * im;
        block[2 * k + 1] = 0.0;
    }
    ippsFFTInv_CCSToR_64f (block, block, spec, work);
    const double scale = 1.0 / size;
    for (int k = 0; k < computed; ++k)
        r[k] = block[k] * scale;
}

bool LinearPrediction::lpa (const float* x, int n, double* a, int order)
{
    // One lag more than the recursion uses is computed, as the model has always done.
    autocorrelation.assign (static_cast<std::size_t> (order + 2), 0.0);
    autocorrelate (x, n, order + 2);
    const double* r = autocorrelation.data();

    return levinson (r, a, order);
}

namespace
{
// One step of the recursion in a single pass: each pair (j, i + 1 - j) is updated together
// from the old values, and the sum that the next step needs is gathered from the new values on
// the way, so the coefficients are read once per step. The order of that double sum is free to
// change, which lets it vectorise.
VESK_VECTOR_CLONES double reflect (double* __restrict a, const double* __restrict r, int i,
                                   double k)
{
    const int half = i / 2;
    double next = r[i + 2];
#pragma omp simd reduction(+ : next)
    for (int j = 1; j <= half; ++j)
    {
        const double low = a[j], high = a[i + 1 - j];
        const double newLow = low + k * high, newHigh = high + k * low;
        a[j] = newLow;
        a[i + 1 - j] = newHigh;
        next += r[i + 2 - j] * newLow + r[j + 1] * newHigh;
    }
    if (i % 2 == 1)
    {
        a[half + 1] += k * a[half + 1];
        next += r[i + 1 - half] * a[half + 1];
    }
    return next + r[1] * k;
}
} // namespace

bool LinearPrediction::levinson (const double* r, double* a, int order)
{
    a[0] = 1.0;
    for (int j = 1; j <= order; ++j)
        a[j] = 0.0;
    if (order < 1)
        return true;
    a[1] = r[0] != 0.0 ? -r[1] / r[0] : 0.0;
    double error = r[0] + a[1] * r[1];

    double acc = r[2] + r[1] * a[1]; // the sum of r[i + 1 - j] a[j] for i = 1
    for (int i = 1; i <= order - 1; ++i)
    {
        const double k = error != 0.0 ? -acc / error : 0.0;
        const double next = reflect (a, r, i, k);
        a[i + 1] = k;
        error += k * acc;
        if (error < 0.0)
            return false;
        acc = next;
    }
    return true;
}

Signal32 LinearPrediction::analyse (Signal32 const& in, int count)
{
    Signal32 result (in.getNumChannels(), count);
    coefficients.resize (static_cast<std::size_t> (std::max (count, 1)));
    for (int c = 0; c < in.getNumChannels(); ++c)
    {
        float* out = result.getChannel (c);
        if (lpa (in.getChannel (c), in.getNumSamples(), coefficients.data(), count - 1))
        {
            for (int k = 0; k < count; ++k)
                out[k] = static_cast<float> (coefficients[static_cast<std::size_t> (k)]);
        }
        else
        {
            std::fill (out, out + count, 0.0f);
            if (count > 0)
                out[0] = 1.0f;
        }
    }
    return result;
}
} // namespace vesk::audio
