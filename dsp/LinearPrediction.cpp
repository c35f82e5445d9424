#include "LinearPrediction.h"

#include <algorithm>

namespace vesk::audio
{
bool LinearPrediction::lpa (const float* x, int n, double* a, int order)
{
    // One lag more than the recursion uses is computed, as the model has always done.
    autocorrelation.assign (static_cast<std::size_t> (order + 2), 0.0);
    double* r = autocorrelation.data();
    for (int k = 0; k <= order + 1 && k < n; ++k)
    {
        double sum = 0.0;
        for (int m = 0; m + k < n; ++m)
            sum += static_cast<double> (x[m]) * static_cast<double> (x[m + k]);
        r[k] = sum;
    }

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
