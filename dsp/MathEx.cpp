#include "MathEx.h"

#include <cmath>
#include <cstdlib>

namespace vesk
{
float MathEx::toDecibel (float x)
{
    return static_cast<float> (20.0 * std::log10 (static_cast<double> (x)));
}

float MathEx::fromDecibel (float x)
{
    const float exponent = x / 20.0f;
    return static_cast<float> (std::pow (10.0, static_cast<double> (exponent)));
}

int MathEx::findLargerPowerOfTwo (int n)
{
    int p = 1;
    while (p < n && p <= (1 << 29))
        p <<= 1;
    return p < n ? (1 << 30) : p;
}

int MathEx::findNearestPowerOfTwo (int n)
{
    if (n <= 0)
        return 0;
    const int p = findLargerPowerOfTwo (n);
    const int h = p / 2;
    return std::abs (p - n) < std::abs (h - n) ? p : h;
}

int MathEx::log2 (int n)
{
    int shifts = 0;
    while (n > 0)
    {
        n >>= 1;
        ++shifts;
    }
    return shifts > 0 ? shifts - 1 : 0;
}
} // namespace vesk
