#pragma once

#include "Signal.h"

namespace vesk::audio
{
/** Real transforms of multichannel signals into CCS-packed half spectra and back, unscaled in
    both directions (inverseReal(forwardReal(x)) = N x). Keeps one prepared size and prepares
    another by itself when handed a signal of another size. One thread at a time. */
class FourierTransform
{
public:
    FourierTransform() = default;
    ~FourierTransform();
    FourierTransform (FourierTransform const&) = delete;
    FourierTransform& operator= (FourierTransform const&) = delete;

    /** Prepares a transform of 2^log2(size) points (real or complex). Allocates. */
    void allocate (int size, bool real);

    /** Channel c of in into channel c of out (N/2 + 1 bins; out is not resized). */
    void forwardReal (Signal32 const& in, ComplexSignal32& out);
    ComplexSignal32 forwardReal (Signal32 const& in);

    /** B packed bins per channel back into 2B - 2 samples (out is not resized). */
    void inverseReal (ComplexSignal32 const& in, Signal32& out);
    Signal32 inverseReal (ComplexSignal32 const& in);

    int getSize() const noexcept { return size; }

private:
    void release();

    IppsFFTSpec_C_32fc* complexSpec = nullptr;
    IppsFFTSpec_R_32f* realSpec = nullptr;
    std::uint8_t* workBuffer = nullptr;
    int size = 0;
};
} // namespace vesk::audio
