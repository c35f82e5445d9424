#include "LinearPrediction.h"

#include "MathEx.h"

#include <algorithm>
#include <new>

namespace vesk::audio
{
LinearPrediction::~LinearPrediction()
{
    if (spec != nullptr)
        ippsFFTFree_R_64f (spec);
    ippsFree (work);
    ippFree (block);
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
    if (size != specSize)
    {
        if (spec != nullptr)
            ippsFFTFree_R_64f (spec);
        ippsFree (work);
        ippFree (block);
        spec = nullptr;
        work = nullptr;
        block = nullptr;
        specSize = 0;
        ippsFFTInitAlloc_R_64f (&spec, MathEx::log2 (size), IPP_FFT_NODIV_BY_ANY, ippAlgHintFast);
        int bytes = 0;
        ippsFFTGetBufSize_R_64f (spec, &bytes);
        work = ippsMalloc_8u (bytes);
        block = static_cast<double*> (
            ippMalloc (sizeof (double) * static_cast<std::size_t> (size + 2)));
        if (work == nullptr || block == nullptr)
            throw std::bad_alloc();
        specSize = size;
    }
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

    a[0] = 1.0;
    for (int j = 1; j <= order; ++j)
        a[j] = 0.0;
    if (order < 1)
        return true;
    a[1] = r[0] != 0.0 ? -r[1] / r[0] : 0.0;
    double error = r[0] + a[1] * r[1];

    previous.resize (static_cast<std::size_t> (order + 1));
    for (int i = 1; i <= order - 1; ++i)
    {
        double acc = 0.0;
        for (int j = 0; j <= i; ++j)
            acc += r[i + 1 - j] * a[j];
        const double k = error != 0.0 ? -acc / error : 0.0;
        std::copy (a, a + i + 1, previous.begin());
        for (int j = 1; j <= i; ++j)
            a[j] = previous[static_cast<std::size_t> (j)]
                   + k * previous[static_cast<std::size_t> (i + 1 - j)];
        a[i + 1] = k;
        error += k * acc;
        if (error < 0.0)
            return false;
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
