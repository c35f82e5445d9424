#pragma once

#include "Signal.h"

#include <algorithm>

namespace vesk::audio
{
/** A first-in first-out queue of multichannel samples held in one ring sized in advance, for
    cutting overlapping frames out of a stream on the audio thread: push, peek and skip never
    allocate. One thread. */
class FrameQueue
{
public:
    /** Room for channels x capacity samples; drops whatever was queued. Allocates. */
    void prepare (int channels, int capacity)
    {
        ring = Signal32 (std::max (channels, 1), std::max (capacity, 1), 0.0f);
        size = ring.getNumSamples();
        clear();
    }

    /** Appends a block, or count samples of it from offset. Channels beyond the queue's are
        ignored and missing ones read as silence; when more than the capacity is queued the
        oldest samples are dropped. */
    void push (Signal32 const& block, int offset = 0, int count = -1)
    {
        const int length = count < 0 ? block.getNumSamples() - offset : count;
        if (size == 0 || length <= 0 || !block.hasStorage())
            return;
        const int skipped = std::max (0, length - size); // only the newest samples fit
        const int kept = length - skipped;
        const int write = (readPosition + available) % size;
        const int first = std::min (kept, size - write);
        for (int c = 0; c < ring.getNumChannels(); ++c)
        {
            float* dst = ring.getChannel (c);
            if (c < block.getNumChannels())
            {
                const float* src = block.getChannel (c) + offset + skipped;
                ippsCopy_32f (src, dst + write, first);
                ippsCopy_32f (src + first, dst, kept - first);
            }
            else
            {
                ippsZero_32f (dst + write, first);
                ippsZero_32f (dst, kept - first);
            }
        }
        available += kept;
        if (available > size)
        {
            readPosition = (readPosition + available - size) % size;
            available = size;
        }
    }

    /** Fills out (its length decides how much, at most what is queued) with the oldest samples
        without consuming them. */
    void peek (Signal32& out) const
    {
        const int length = std::min (out.getNumSamples(), available);
        const int first = std::min (length, size - readPosition);
        for (int c = 0; c < out.getNumChannels(); ++c)
        {
            const float* src = ring.getChannel (std::min (c, ring.getNumChannels() - 1));
            ippsCopy_32f (src + readPosition, out.getChannel (c), first);
            ippsCopy_32f (src, out.getChannel (c) + first, length - first);
        }
    }

    /** Consumes samples from the front. */
    void skip (int samples)
    {
        const int count = std::clamp (samples, 0, available);
        if (size > 0)
            readPosition = (readPosition + count) % size;
        available -= count;
    }

    void clear() noexcept
    {
        readPosition = 0;
        available = 0;
    }

    int getAvailable() const noexcept { return available; }
    int getChannels() const noexcept { return ring.getNumChannels(); }
    int getCapacity() const noexcept { return size; }

private:
    Signal32 ring;
    int size = 0;
    int readPosition = 0;
    int available = 0;
};
} // namespace vesk::audio
