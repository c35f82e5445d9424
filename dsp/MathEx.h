#pragma once

namespace vesk
{
/** Scalar helpers. Any thread. */
class MathEx
{
public:
    /** 20 log10(x) in double precision, rounded to float; no floor (0 gives -inf). */
    static float toDecibel (float x);
    /** 10^(x/20): the division in float, the power in double. */
    static float fromDecibel (float x);
    /** The smallest power of two p >= n, starting from 1. */
    static int findLargerPowerOfTwo (int n);
    /** The nearer of the neighbouring powers of two; a tie goes to the smaller one. */
    static int findNearestPowerOfTwo (int n);
    /** floor(log2 n) for n >= 1, 0 for n = 0. */
    static int log2 (int n);
};
} // namespace vesk
