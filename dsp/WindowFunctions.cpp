#include "WindowFunctions.h"

namespace vesk::audio
{
Signal32 WindowFunctions::generateHammingWindow (int n)
{
    Signal32 window (1, n, 1.0f);
    ippsWinHamming_32f_I (window.getChannel (0), n);
    return window;
}

Signal32 WindowFunctions::generateBlackman (int n, float alpha)
{
    Signal32 window (1, n, 1.0f);
    ippsWinBlackman_32f_I (window.getChannel (0), n, alpha);
    return window;
}
} // namespace vesk::audio
