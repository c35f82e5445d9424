#pragma once

#include "Signal.h"

#include <algorithm>
#include <cassert>
#include <vector>

namespace vesk::audio
{
/** A first-in first-out queue of shared sample blocks, read in pieces of any length. The
    blocks are handles, so the owner must not overwrite a block it has pushed. One thread. */
template <typename SignalType>
class SignalQueue
{
public:
    /** Appends a block. Blocks without storage or samples are ignored; the first block fixes
        the channel count. Allocates only when more blocks are queued than ever before. */
    void push (SignalType const& block)
    {
        if (!block.hasStorage() || block.getNumSamples() <= 0)
            return;
        if (channels <= 0)
            channels = block.getNumChannels();
        if (count == static_cast<int> (blocks.size()))
            grow();
        blocks[static_cast<std::size_t> ((head + count) % static_cast<int> (blocks.size()))] =
            block;
        ++count;
        available += block.getNumSamples();
    }

    /** Appends a copy of a block, reusing the storage of blocks already consumed, so that a
        caller may overwrite its block afterwards. Real-time safe once the queue has held as many
        blocks of this size as it needs (it allocates only to grow). */
    void pushCopy (SignalType const& block)
    {
        if (!block.hasStorage() || block.getNumSamples() <= 0)
            return;
        SignalType stored;
        if (!spares.empty())
        {
            stored = std::move (spares.back());
            spares.pop_back();
        }
        stored.ensureDimensions (block.getNumChannels(), block.getNumSamples());
        for (int c = 0; c < block.getNumChannels(); ++c)
            ippsCopy_32f (block.getChannel (c), stored.getChannel (c), block.getNumSamples());
        push (stored);
        ownsBlocks = true;
    }

    /** Fills out with the next out.getNumSamples() samples and consumes them. */
    void get (SignalType& out) { read (out.getNumSamples(), &out, true); }
    /** As get, without consuming anything. */
    void peek (SignalType& out) const
    {
        const_cast<SignalQueue*> (this)->read (out.getNumSamples(), &out, false);
    }
    /** Consumes count samples without copying them. */
    void skip (int samples) { read (samples, nullptr, true); }

    SignalType get (int samples)
    {
        SignalType out (channels, samples);
        get (out);
        return out;
    }

    SignalType peek (int samples) const
    {
        SignalType out (channels, samples);
        peek (out);
        return out;
    }

    /** Drops every block and forgets the channel count. Real-time safe. */
    void clear()
    {
        for (int i = 0; i < count; ++i)
        {
            auto& block =
                blocks[static_cast<std::size_t> ((head + i) % static_cast<int> (blocks.size()))];
            if (ownsBlocks && spares.size() < spares.capacity())
                spares.push_back (std::move (block));
            block = SignalType();
        }
        head = 0;
        count = 0;
        available = 0;
        frontOffset = 0;
        channels = 0;
    }

    int getAvailable() const noexcept { return available; }
    int getFrontOffset() const noexcept { return frontOffset; }
    int getNumBlocks() const noexcept { return count; }
    int getChannels() const noexcept { return channels; }
    void setChannels (int channelCount) noexcept { channels = channelCount; }

private:
    void read (int samples, SignalType* out, bool consume)
    {
        available -= consume || samples <= 0 ? samples : 0;
        if (samples <= 0)
            return;
        assert (samples <= available + (consume ? samples : 0));

        int index = head, remainingBlocks = count, offset = frontOffset, done = 0;
        while (done < samples && remainingBlocks > 0)
        {
            auto& block = blocks[static_cast<std::size_t> (index)];
            const int take = std::min (samples - done, block.getNumSamples() - offset);
            if (out != nullptr)
                for (int c = 0; c < out->getNumChannels(); ++c)
                    ippsCopy_32f (block.getChannel (c) + offset, out->getChannel (c) + done, take);
            done += take;
            offset += take;
            if (offset == block.getNumSamples())
            {
                if (consume)
                {
                    // Blocks the queue copied itself are kept for reuse by pushCopy.
                    if (ownsBlocks && spares.size() < spares.capacity())
                        spares.push_back (std::move (block));
                    block = SignalType();
                    head = (head + 1) % static_cast<int> (blocks.size());
                    --count;
                }
                index = (index + 1) % static_cast<int> (blocks.size());
                --remainingBlocks;
                offset = 0;
            }
        }
        if (consume)
            frontOffset = offset;
    }

    void grow()
    {
        spares.reserve (std::max<std::size_t> (8, blocks.size() * 2));
        std::vector<SignalType> larger (std::max<std::size_t> (8, blocks.size() * 2));
        for (int i = 0; i < count; ++i)
            larger[static_cast<std::size_t> (i)] =
                blocks[static_cast<std::size_t> ((head + i) % static_cast<int> (blocks.size()))];
        blocks.swap (larger);
        head = 0;
    }

    int available = 0;
    std::vector<SignalType> blocks; // a ring of handles, oldest at head
    std::vector<SignalType> spares; // consumed copies awaiting reuse; never grows on its own
    bool ownsBlocks = false;
    int head = 0;
    int count = 0;
    int frontOffset = 0;
    int channels = 0;
};
} // namespace vesk::audio
