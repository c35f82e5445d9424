#pragma once

#include "Signal.h"

#include <cstdint>
#include <vector>

namespace vesk::audio
{
/** All-pole (linear prediction) models of signal frames: autocorrelation method with the
    Levinson-Durbin recursion in double precision. One object per thread (it keeps scratch). */
class LinearPrediction
{
public:
    LinearPrediction() = default;
    ~LinearPrediction();
    LinearPrediction (LinearPrediction const&) = delete;
    LinearPrediction& operator= (LinearPrediction const&) = delete;

    /** Per channel the polynomial 1, a[1] ... a[count - 1]; a failed recursion gives 1, 0, ... 0.
     */
    Signal32 analyse (Signal32 const& in, int count);
    /** a[0 ... order] of n samples into a; false when the recursion becomes unstable.
        Allocates only for frames or orders beyond those prepared. */
    bool lpa (const float* x, int n, double* a, int order);
    /** The recursion alone: a[0 ... order] from r[0 ... order + 1]; false when it becomes
        unstable. Any thread. */
    static bool levinson (const double* r, double* a, int order);
    /** Makes every transform and buffer that frames of up to maxSamples and models of up to
        maxOrder need, so that lpa() no longer allocates. Not while lpa() runs. */
    void prepare (int maxSamples, int maxOrder);

private:
    void autocorrelate (const float* x, int n, int lags);

    std::vector<double> autocorrelation;
    void reserveTransform (int size);

    std::vector<IppsFFTSpec_R_64f*> specs; // by log2 of the transform length
    int capacity = 0;                      // length that work and block serve
    std::uint8_t* work = nullptr;
    double* block = nullptr;
    std::vector<double> coefficients;
};
} // namespace vesk::audio
