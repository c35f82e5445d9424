#pragma once

#if defined(__SSE__) || defined(__x86_64__)
#include <xmmintrin.h>
#endif

namespace vesk::audio
{
/** Flushes subnormal floats to zero while in scope, so a decaying tail or a flood of tiny input
    cannot slow the audio thread down. */
class ScopedFlushDenormals
{
public:
    ScopedFlushDenormals() noexcept
    {
#if defined(__SSE__) || defined(__x86_64__)
        previous = _mm_getcsr();
        _mm_setcsr (previous | 0x8040u); // flush-to-zero and denormals-are-zero
#elif defined(__aarch64__)
        asm volatile("mrs %0, fpcr" : "=r"(previous));
        const unsigned long flushing = previous | (1ul << 24);
        asm volatile("msr fpcr, %0" : : "r"(flushing));
#endif
    }

    ~ScopedFlushDenormals()
    {
#if defined(__SSE__) || defined(__x86_64__)
        _mm_setcsr (previous);
#elif defined(__aarch64__)
        asm volatile("msr fpcr, %0" : : "r"(previous));
#endif
    }

    ScopedFlushDenormals (ScopedFlushDenormals const&) = delete;
    ScopedFlushDenormals& operator= (ScopedFlushDenormals const&) = delete;

private:
#if defined(__aarch64__)
    unsigned long previous = 0;
#else
    unsigned int previous = 0;
#endif
};
} // namespace vesk::audio
