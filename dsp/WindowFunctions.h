#pragma once

#include "Signal.h"

namespace vesk::audio
{
/** Analysis windows as one-channel signals. Any thread (allocates). */
class WindowFunctions
{
public:
    /** w[k] = 0.54 - 0.46 cos(2 pi k / (n - 1)). */
    static Signal32 generateHammingWindow (int n);
    /** w[k] = (alpha + 1)/2 - 0.5 cos(2 pi k/(n - 1)) - (alpha/2) cos(4 pi k/(n - 1)). */
    static Signal32 generateBlackman (int n, float alpha);
};
} // namespace vesk::audio
