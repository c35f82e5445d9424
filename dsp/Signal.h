#pragma once

#include "VectorOps.h"

#include <cassert>
#include <complex>
#include <cstdint>
#include <memory>
#include <new>
#include <vector>

namespace vesk::audio
{
/** Shared storage of a signal: one separately aligned block per channel. */
template <typename T>
struct SignalData
{
    SignalData (int channelCount, int sampleCount)
        : length (sampleCount), allocatedSamples (sampleCount)
    {
        channelBlocks.reserve (static_cast<std::size_t> (channelCount));
        try
        {
            for (int c = 0; c < channelCount; ++c)
            {
                auto* block = static_cast<T*> (
                    ippMalloc (sizeof (T) * static_cast<std::size_t> (sampleCount)));
                if (block == nullptr)
                    throw std::bad_alloc();
                channelBlocks.push_back (block);
            }
        }
        catch (...)
        {
            release();
            throw;
        }
    }

    ~SignalData() { release(); }

    SignalData (SignalData const&) = delete;
    SignalData& operator= (SignalData const&) = delete;

    int length;
    int allocatedSamples;
    std::vector<T*> channelBlocks;

private:
    void release()
    {
        for (auto* block : channelBlocks)
            ippFree (block);
        channelBlocks.clear();
    }
};

/** A value handle on a multichannel block of samples. Copies share the samples; copy() is the
    only deep copy. Not synchronised: data that crosses threads is deep-copied by its owner. */
template <typename T>
class Signal
{
public:
    Signal() = default;

    /** Allocates channels x samples; the samples are not initialised. Any thread (allocates). */
    Signal (int channelCount, int sampleCount)
        : channels (channelCount), samples (sampleCount),
          data (std::make_shared<SignalData<T>> (channelCount, sampleCount))
    {
    }

    /** Allocates and sets every sample to value. Any thread (allocates). */
    Signal (int channelCount, int sampleCount, T value) : Signal (channelCount, sampleCount)
    {
        for (int c = 0; c < channels; ++c)
            for (int n = 0; n < samples; ++n)
                data->channelBlocks[static_cast<std::size_t> (c)][n] = value;
    }

    virtual ~Signal() = default;
    Signal (Signal const&) = default;
    Signal& operator= (Signal const&) = default;
    Signal (Signal&&) noexcept = default;
    Signal& operator= (Signal&&) noexcept = default;

    int getNumChannels() const noexcept { return channels; }
    int getNumSamples() const noexcept { return samples; }
    /** True when the handle has sample storage (a signal of 0 samples may still have some). */
    bool hasStorage() const noexcept { return data != nullptr; }
    bool isEmpty() const noexcept { return channels == 0 || samples == 0; }

    T* getChannel (int c) noexcept
    {
        assert (data != nullptr && c >= 0 && c < static_cast<int> (data->channelBlocks.size()));
        return data->channelBlocks[static_cast<std::size_t> (c)];
    }
    const T* getChannel (int c) const noexcept
    {
        assert (data != nullptr && c >= 0 && c < static_cast<int> (data->channelBlocks.size()));
        return data->channelBlocks[static_cast<std::size_t> (c)];
    }
    T* operator[] (int c) noexcept { return getChannel (c); }
    const T* operator[] (int c) const noexcept { return getChannel (c); }

    /** True when both handles share one storage. */
    bool sharesStorageWith (Signal const& other) const noexcept
    {
        return data != nullptr && data == other.data;
    }

    /** Deep copy of the samples in use. Any thread (allocates). */
    Signal copy() const
    {
        if (data == nullptr)
            return {};
        Signal result (channels, samples);
        for (int c = 0; c < channels; ++c)
            std::copy (getChannel (c), getChannel (c) + samples, result.getChannel (c));
        return result;
    }

    /** Reuses the storage when it is large enough (contents kept), else allocates exactly these
        dimensions for this handle only. Real-time safe while the block does not grow. */
    void ensureDimensions (int channelCount, int sampleCount)
    {
        if (data != nullptr && data->allocatedSamples >= sampleCount
            && static_cast<int> (data->channelBlocks.size()) >= channelCount)
        {
            channels = channelCount;
            samples = sampleCount;
            return;
        }
        *this = Signal (channelCount, sampleCount);
    }

    /** New signal of all channels, samples start ... start + length - 1. */
    Signal extractSection (int start, int length) const
    {
        assert (start >= 0 && length >= 0 && start + length <= samples);
        Signal result (channels, length);
        for (int c = 0; c < channels; ++c)
            std::copy (getChannel (c) + start, getChannel (c) + start + length,
                       result.getChannel (c));
        return result;
    }

    /** New signal of count channels, channel i copied from channel first + i. */
    Signal extractChannels (int first, int count) const
    {
        assert (first >= 0 && count >= 0 && first + count <= channels);
        Signal result (count, samples);
        for (int c = 0; c < count; ++c)
            std::copy (getChannel (first + c), getChannel (first + c) + samples,
                       result.getChannel (c));
        return result;
    }

    /** New signal of channelCount channels, each a copy of channel 0. */
    Signal createMultichannelSignal (int channelCount) const
    {
        Signal result (channelCount, samples);
        for (int c = 0; c < channelCount; ++c)
            std::copy (getChannel (0), getChannel (0) + samples, result.getChannel (c));
        return result;
    }

    // Sample arithmetic; defined for float only.
    Signal operator+ (Signal const& right) const;
    Signal operator- (Signal right) const;
    Signal operator* (Signal const& right) const;
    Signal operator/ (Signal const& right) const;
    Signal operator* (float value) const;
    Signal operator/ (float value) const;
    float getRmsLevel() const;

    static Signal sumChannels (Signal const& in);
    static Signal toDecibel (Signal const& in);
    static Signal fromDecibel (Signal const& in);
    static Signal log (Signal const& in);
    static Signal lowerBound (Signal const& in, float floor);
    static Signal reverse (Signal const& in);

protected:
    int channels = 0;
    int samples = 0;
    std::shared_ptr<SignalData<T>> data;
};

// The sample arithmetic exists for float signals only (defined in Signal.cpp).
template <>
Signal<float> Signal<float>::operator+ (Signal const&) const;
template <>
Signal<float> Signal<float>::operator- (Signal) const;
template <>
Signal<float> Signal<float>::operator* (Signal const&) const;
template <>
Signal<float> Signal<float>::operator/ (Signal const&) const;
template <>
Signal<float> Signal<float>::operator* (float) const;
template <>
Signal<float> Signal<float>::operator/ (float) const;
template <>
float Signal<float>::getRmsLevel() const;
template <>
Signal<float> Signal<float>::sumChannels (Signal const&);
template <>
Signal<float> Signal<float>::toDecibel (Signal const&);
template <>
Signal<float> Signal<float>::fromDecibel (Signal const&);
template <>
Signal<float> Signal<float>::log (Signal const&);
template <>
Signal<float> Signal<float>::lowerBound (Signal const&, float);
template <>
Signal<float> Signal<float>::reverse (Signal const&);

Signal<float> operator* (float value, Signal<float> const& signal);

/** Audio blocks, magnitudes, dB curves and filter taps. */
class Signal32 : public Signal<float>
{
public:
    using Signal<float>::Signal;
    Signal32() = default;
    Signal32 (Signal<float> const& other) : Signal<float> (other) {}
    Signal32 (Signal<float>&& other) noexcept : Signal<float> (std::move (other)) {}
};

class Signal64 : public Signal<double>
{
public:
    using Signal<double>::Signal;
    Signal64() = default;
};

/** Half spectra of real signals (see FourierTransform). */
class ComplexSignal32 : public Signal<complex32>
{
public:
    using Signal<complex32>::Signal;
    ComplexSignal32() = default;
    ComplexSignal32 (Signal<complex32> const& other) : Signal<complex32> (other) {}

    /** magnitude * (cos phase + i sin phase); dimensions from the magnitudes. */
    ComplexSignal32 (Signal<float> const& magnitudes, Signal<float> const& phases);

    /** New signal of sqrt(re^2 + im^2) per element. */
    Signal32 getMagnitudeSignal() const;
};

class ComplexSignal64 : public Signal<std::complex<double>>
{
public:
    using Signal<std::complex<double>>::Signal;
    ComplexSignal64() = default;
};

/** A curve point. */
struct Coordinate2D
{
    double x = 0.0;
    double y = 0.0;
};

} // namespace vesk::audio
