#include "Signal.h"

#include <cmath>

namespace vesk::audio
{
namespace
{
// The single-precision constants 20 / ln 10 and ln 10 / 20.
constexpr float decibelsPerNeper = 8.685889f;
constexpr float nepersPerDecibel = 0.115129255f;

template <typename Operation>
Signal<float> combine (Signal<float> const& left, Signal<float> const& right, Operation operation)
{
    assert (right.getNumChannels() >= left.getNumChannels()
            && right.getNumSamples() >= left.getNumSamples());
    Signal<float> result = left.copy();
    for (int c = 0; c < result.getNumChannels(); ++c)
        operation (right.getChannel (c), result.getChannel (c), result.getNumSamples());
    return result;
}

template <typename Operation>
Signal<float> transform (Signal<float> const& in, Operation operation)
{
    Signal<float> result (in.getNumChannels(), in.getNumSamples());
    for (int c = 0; c < in.getNumChannels(); ++c)
        operation (in.getChannel (c), result.getChannel (c), in.getNumSamples());
    return result;
}
} // namespace

template <>
Signal<float> Signal<float>::operator+ (Signal const& right) const
{
    return combine (*this, right, ippsAdd_32f_I);
}

template <>
Signal<float> Signal<float>::operator- (Signal right) const
{
    return combine (*this, right, ippsSub_32f_I);
}

template <>
Signal<float> Signal<float>::operator* (Signal const& right) const
{
    return combine (*this, right, ippsMul_32f_I);
}

template <>
Signal<float> Signal<float>::operator/ (Signal const& right) const
{
    return combine (*this, right, ippsDiv_32f_I);
}

template <>
Signal<float> Signal<float>::operator* (float value) const
{
    Signal result = copy();
    for (int c = 0; c < result.channels; ++c)
        ippsMulC_32f_I (value, result.getChannel (c), result.samples);
    return result;
}

template <>
Signal<float> Signal<float>::operator/ (float value) const
{
    Signal result = copy();
    for (int c = 0; c < result.channels; ++c)
        ippsDivC_32f_I (value, result.getChannel (c), result.samples);
    return result;
}

Signal<float> operator* (float value, Signal<float> const& signal) { return signal * value; }

template <>
float Signal<float>::getRmsLevel() const
{
    // Deliberately the sum of the channel norms, not the norm over all samples.
    float sum = 0.0f;
    for (int c = 0; c < channels; ++c)
    {
        float norm = 0.0f;
        ippsNorm_L2_32f (getChannel (c), samples, &norm);
        sum += norm;
    }
    return static_cast<float> (
        static_cast<double> (sum)
        / std::sqrt (static_cast<double> (channels) * static_cast<double> (samples)));
}

template <>
Signal<float> Signal<float>::sumChannels (Signal const& in)
{
    Signal result (1, in.samples);
    ippsCopy_32f (in.getChannel (0), result.getChannel (0), in.samples);
    for (int c = 1; c < in.channels; ++c)
        ippsAdd_32f_I (in.getChannel (c), result.getChannel (0), in.samples);
    return result;
}

template <>
Signal<float> Signal<float>::toDecibel (Signal const& in)
{
    return transform (in,
                      [] (const float* src, float* dst, int len)
                      {
                          ippsLn_32f (src, dst, len);
                          ippsMulC_32f_I (decibelsPerNeper, dst, len);
                      });
}

template <>
Signal<float> Signal<float>::fromDecibel (Signal const& in)
{
    return transform (in,
                      [] (const float* src, float* dst, int len)
                      {
                          ippsCopy_32f (src, dst, len);
                          ippsMulC_32f_I (nepersPerDecibel, dst, len);
                          ippsExp_32f (dst, dst, len);
                      });
}

template <>
Signal<float> Signal<float>::log (Signal const& in)
{
    return transform (in, ippsLn_32f);
}

template <>
Signal<float> Signal<float>::lowerBound (Signal const& in, float floor)
{
    return transform (in, [floor] (const float* src, float* dst, int len)
                      { ippsThreshold_LT_32f (src, dst, len, floor); });
}

template <>
Signal<float> Signal<float>::reverse (Signal const& in)
{
    return transform (in, ippsFlip_32f);
}

ComplexSignal32::ComplexSignal32 (Signal<float> const& magnitudes, Signal<float> const& phases)
    : Signal<complex32> (magnitudes.getNumChannels(), magnitudes.getNumSamples())
{
    for (int c = 0; c < channels; ++c)
        ippsPolarToCart_32fc (magnitudes.getChannel (c), phases.getChannel (c), getChannel (c),
                              samples);
}

Signal32 ComplexSignal32::getMagnitudeSignal() const
{
    Signal32 result (channels, samples);
    for (int c = 0; c < channels; ++c)
        ippsMagnitude_32fc (getChannel (c), result.getChannel (c), samples);
    return result;
}

} // namespace vesk::audio
