#pragma once

#include "Signal.h"

#include <algorithm>
#include <cassert>

namespace vesk::audio
{
/** A multichannel ring of recent input, read relative to the newest sample. One thread. */
template <typename SignalType>
class CircularBuffer
{
public:
    explicit CircularBuffer (int length) : ringLength (std::max (length, 1)) {}

    /** Copies a block in after the newest sample. Allocates only when a longer block than ever
        arrives (or on the first call). */
    void add (SignalType const& block)
    {
        if (channels < 0)
            channels = block.getNumChannels();
        assert (block.getNumChannels() <= channels);

        const int length = block.getNumSamples();
        if (length > largestBlock)
        {
            resize (ringLength + (length - largestBlock));
            largestBlock = length;
        }
        if (!storage.hasStorage())
            storage = SignalType (channels, ringLength, 0.0f);

        // Only the newest ringLength samples of an overlong block can be kept.
        const int skip = std::max (0, length - ringLength);
        const int count = length - skip;
        const int first = std::min (count, ringLength - writePosition);
        for (int c = 0; c < block.getNumChannels(); ++c)
        {
            const float* src = block.getChannel (c) + skip;
            float* dst = storage.getChannel (c);
            ippsCopy_32f (src, dst + writePosition, first);
            ippsCopy_32f (src + first, dst, count - first);
        }
        writePosition = (writePosition + count) % ringLength;
    }

    /** Fills out (its dimensions decide how much) starting offset samples from the write
        position: peek(-k, out) with k samples yields the k newest samples, oldest first. */
    void peek (int offset, SignalType& out) const
    {
        const int length = out.getNumSamples();
        assert (length <= ringLength);
        const int start = ((offset % ringLength) + ringLength + writePosition) % ringLength;
        const int first = std::min (length, ringLength - start);
        for (int c = 0; c < out.getNumChannels(); ++c)
        {
            if (!storage.hasStorage())
            {
                ippsZero_32f (out.getChannel (c), length);
                continue;
            }
            const float* src = storage.getChannel (c);
            ippsCopy_32f (src + start, out.getChannel (c), first);
            ippsCopy_32f (src, out.getChannel (c) + first, length - first);
        }
    }

    SignalType peek (int offset, int length) const
    {
        SignalType out (std::max (channels, 0), length);
        peek (offset, out);
        return out;
    }

    /** Only grows; the newest samples keep their positions relative to the write position. */
    void resize (int length)
    {
        if (length <= ringLength)
            return;
        if (!storage.hasStorage())
        {
            ringLength = length;
            return;
        }
        SignalType grown (channels, length, 0.0f);
        for (int c = 0; c < channels; ++c)
        {
            const float* src = storage.getChannel (c);
            float* dst = grown.getChannel (c);
            // The old ring, oldest sample first, lands just before the (unchanged) write position.
            for (int k = 1; k <= ringLength; ++k)
                dst[(writePosition - k + length) % length] =
                    src[(writePosition - k + ringLength) % ringLength];
        }
        storage = grown;
        ringLength = length;
        writePosition %= ringLength;
        readPosition %= ringLength;
    }

    /** Silence in the whole ring; length and channel count stay. Real-time safe. */
    void clear()
    {
        for (int c = 0; c < storage.getNumChannels(); ++c)
            ippsZero_32f (storage.getChannel (c), storage.getNumSamples());
        writePosition = 0;
        readPosition = 0;
    }

    int getLength() const noexcept { return ringLength; }
    int getChannels() const noexcept { return channels; }
    int getLargestBlock() const noexcept { return largestBlock; }
    int getWritePosition() const noexcept { return writePosition; }

private:
    SignalType storage;
    int largestBlock = 4096;
    int ringLength;
    int readPosition = 0;
    int writePosition = 0;
    int channels = -1;
};
} // namespace vesk::audio
