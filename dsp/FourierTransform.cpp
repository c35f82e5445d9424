#include "FourierTransform.h"

#include "MathEx.h"

#include <cassert>

namespace vesk::audio
{
FourierTransform::~FourierTransform() { release(); }

void FourierTransform::release()
{
    if (complexSpec != nullptr)
        ippsFFTFree_C_32fc (complexSpec);
    if (realSpec != nullptr)
        ippsFFTFree_R_32f (realSpec);
    ippsFree (workBuffer);
    complexSpec = nullptr;
    realSpec = nullptr;
    workBuffer = nullptr;
    size = 0;
}

void FourierTransform::allocate (int newSize, bool real)
{
    release();
    size = newSize;
    const int order = MathEx::log2 (newSize);
    int bytes = 0;
    if (real)
    {
        ippsFFTInitAlloc_R_32f (&realSpec, order, IPP_FFT_NODIV_BY_ANY, ippAlgHintFast);
        ippsFFTGetBufSize_R_32f (realSpec, &bytes);
    }
    else
    {
        ippsFFTInitAlloc_C_32fc (&complexSpec, order, IPP_FFT_NODIV_BY_ANY, ippAlgHintFast);
        ippsFFTGetBufSize_C_32fc (complexSpec, &bytes);
    }
    workBuffer = ippsMalloc_8u (bytes);
    if (workBuffer == nullptr)
    {
        release();
        throw std::bad_alloc();
    }
}

void FourierTransform::forwardReal (Signal32 const& in, ComplexSignal32& out)
{
    if (realSpec == nullptr || in.getNumSamples() != size)
        allocate (in.getNumSamples(), true);
    assert (out.getNumChannels() >= in.getNumChannels() && out.getNumSamples() >= size / 2 + 1);
    for (int c = 0; c < in.getNumChannels(); ++c)
        ippsFFTFwd_RToCCS_32f (in.getChannel (c), reinterpret_cast<float*> (out.getChannel (c)),
                               realSpec, workBuffer);
}

ComplexSignal32 FourierTransform::forwardReal (Signal32 const& in)
{
    ComplexSignal32 out (in.getNumChannels(), in.getNumSamples() / 2 + 1);
    forwardReal (in, out);
    return out;
}

void FourierTransform::inverseReal (ComplexSignal32 const& in, Signal32& out)
{
    const int bins = in.getNumSamples();
    if (realSpec == nullptr || bins != size / 2 + 1)
        allocate (2 * bins - 2, true);
    assert (out.getNumChannels() >= in.getNumChannels() && out.getNumSamples() >= size);
    for (int c = 0; c < in.getNumChannels(); ++c)
        ippsFFTInv_CCSToR_32f (reinterpret_cast<const float*> (in.getChannel (c)),
                               out.getChannel (c), realSpec, workBuffer);
}

Signal32 FourierTransform::inverseReal (ComplexSignal32 const& in)
{
    Signal32 out (in.getNumChannels(), 2 * in.getNumSamples() - 2);
    inverseReal (in, out);
    return out;
}
} // namespace vesk::audio
