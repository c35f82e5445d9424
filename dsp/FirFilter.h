#pragma once

#include "CircularBuffer.h"
#include "Signal.h"

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace vesk::audio
{
/** Zero-latency convolution with long responses: a direct-form head for the first 128 taps and
    frequency-domain partitions of doubling size behind it; with power-of-two host blocks of at
    least 128 samples one block-sized partition replaces the head. Output sample n depends on
    input samples up to n only.

    The partitions' transforms are computed on 128-sample frames that all partitions share, and
    the work for the next frame is spread over the samples of the current one, so no block pays
    for a whole large transform at once. Used by one thread (the audio thread); responses and
    block size are changed by that thread or while it does not run. */
class FirFilter
{
public:
    static constexpr int headLength = 128;
    static constexpr int frameLength = 128;

    /** Spectra of one length in blocks of their own. A set knows its shape, so a set made for
        one partition is never reused by another of the same count but longer segments (a host
        that prepares again with a larger block gives the block partition longer segments). */
    class SpectrumSet
    {
    public:
        SpectrumSet() = default;
        ~SpectrumSet() { release(); }
        SpectrumSet (SpectrumSet const&) = delete;
        SpectrumSet& operator= (SpectrumSet const&) = delete;
        SpectrumSet (SpectrumSet&& other) noexcept { swap (other); }
        SpectrumSet& operator= (SpectrumSet&& other) noexcept
        {
            swap (other);
            return *this;
        }

        /** Count spectra of bins each. True when they were allocated (and zeroed) now; an
            unchanged shape keeps the blocks and their contents. */
        bool ensureShape (int count, int bins);
        void release() noexcept;
        void swap (SpectrumSet& other) noexcept
        {
            blocks.swap (other.blocks);
            std::swap (bins, other.bins);
        }
        complex32* operator[] (std::size_t index) const noexcept { return blocks[index]; }
        int size() const noexcept { return static_cast<int> (blocks.size()); }
        int getBins() const noexcept { return bins; }

    private:
        std::vector<complex32*> blocks;
        int bins = 0;
    };

    /** The direct-form head: one FIR with its own delay line per response and input channel. */
    class IppFirFilter
    {
    public:
        IppFirFilter() = default;
        ~IppFirFilter();
        IppFirFilter (IppFirFilter const&) = delete;
        IppFirFilter& operator= (IppFirFilter const&) = delete;

        /** One tap set per response (channel c of the input uses channel c of the taps, or the
            last one). Keeps the delay lines when the tap count stays. Allocates. */
        void setFilter (std::vector<Signal32> const& taps, int channelCount);
        /** Loads the delay lines from the newest input samples (fewer than needed: zeros before).
         */
        void setDelayLine (Signal32 const& history);
        /** New taps of the same count for the first response, delay lines kept. No allocation. */
        bool replaceTaps (Signal32 const& taps) noexcept;
        int getTapCount() const noexcept { return tapCounts.empty() ? 0 : tapCounts[0]; }
        void reset();
        /** Writes (not adds) the head's output for in into every output. */
        void process (Signal32 const& in, std::vector<Signal32>& outputs);

    private:
        void release();

        std::vector<std::vector<IppsFIRState_32f*>> states; // [response][input channel]
        std::vector<int> tapCounts;                         // per response
        std::vector<float> delayScratch;
    };

    /** One frequency-domain slice of the responses. Tail partitions are stored as 128-tap
        segments on the shared frame grid; the block partition (start offset 0) is one segment as
        long as itself, transformed over the newest input on every block. */
    class Partition
    {
    public:
        Partition (int inputChannels, int responses, int startOffset, int size);
        ~Partition();
        Partition (Partition const&) = delete;
        Partition& operator= (Partition const&) = delete;

        /** Transforms this partition's slice of every response. Allocates only the first time. */
        void setImpulseResponses (std::vector<Signal32> const& irs);
        /** The same into spectra laid out as this partition's own (reshaped when they are not),
            with the caller's work buffers: another thread may prepare a response this way while
            the partition runs. */
        void transformResponses (std::vector<Signal32> const& irs, SpectrumSet& target,
                                 std::uint8_t* fftWork, float* block) const;
        /** Exchanges the stored spectra with a set made by transformResponses for this
            partition. */
        void swapSpectra (SpectrumSet& other) noexcept { spectra.swap (other); }
        int getWorkBytes() const noexcept;
        void reset();

        int getStartOffset() const noexcept { return startOffset; }
        int getSize() const noexcept { return size; }
        int getTransformLength() const noexcept { return transformLength; }
        int getInputChannels() const noexcept { return inputChannels; }
        int getResponses() const noexcept { return responses; }
        bool isEnabled() const noexcept { return enabled; }
        void setEnabled (bool shouldBeEnabled) noexcept { enabled = shouldBeEnabled; }

        int getSegmentLength() const noexcept { return segmentLength; }
        int getNumSegments() const noexcept { return numSegments; }
        /** Scaled spectrum of one segment (segment length + 1 bins). */
        const complex32* getSpectrum (int response, int channel, int segment) const noexcept;

        /** Block partition only: writes the convolution of the newest input with this slice for
            count samples ending samplesAfter samples before the newest one. */
        void processNewest (CircularBuffer<Signal32> const& history, int samplesAfter, int count,
                            std::vector<Signal32>& outputs, int outputOffset);

    private:
        int inputChannels;
        int responses;
        int transformLength;
        bool enabled = true;
        int startOffset;
        int size;
        int segmentLength;
        int numSegments;
        SpectrumSet spectra; // [(response * inputChannels + channel) * numSegments + segment]
        IppsFFTSpec_R_32f* spec = nullptr;
        std::uint8_t* work = nullptr;
        Signal32 frame;
        Signal32 scratch;
        ComplexSignal32 spectrumScratch;
    };

    /** A response transformed for one layout of a filter (its partitions, head and channel
        count), ready to be swapped in by the audio thread without allocating or transforming. */
    class PreparedResponse
    {
    public:
        PreparedResponse() = default;
        ~PreparedResponse() = default;
        PreparedResponse (PreparedResponse const&) = delete;
        PreparedResponse& operator= (PreparedResponse const&) = delete;

        /** True when it holds a response that has not been swapped in yet. */
        bool isPending() const noexcept { return pending; }

    private:
        friend class FirFilter;
        std::uint64_t layout = 0;
        bool pending = false;
        Signal32 response;
        Signal32 headTaps;
        std::vector<SpectrumSet> spectra; // per partition, the block partition last
        std::vector<std::uint8_t> work;
        Signal32 scratch;
    };

    FirFilter();
    ~FirFilter();
    FirFilter (FirFilter const&) = delete;
    FirFilter& operator= (FirFilter const&) = delete;

    /** A single response (channel c filters input channel c). Audio thread or not while audio runs.
     */
    void setImpulseResponse (Signal32 const& ir);
    /** Several responses, each producing its own output. Keeps partitions whose size is unchanged
        and the input history, so an update during playback continues seamlessly. */
    void setMultipleIRs (std::vector<Signal32> const& irs);
    /** Chooses the head: a block partition for power-of-two sizes >= 128, else the direct head. */
    void updateBlockSize (int blockSize);

    /** Transforms a single response (as setImpulseResponse would take it, of the length the
        filter already has) for the current layout. Any thread, also while the audio thread
        processes, but not while the layout changes (setImpulseResponse, setMultipleIRs,
        updateBlockSize, a block with another channel count). Allocates on the calling thread. */
    void prepareResponse (Signal32 const& ir, PreparedResponse& prepared) const;
    /** Installs a prepared response by exchanging storage: no allocation, no transform of the
        response. The input history and the output in progress continue. False (nothing changes)
        when the layout changed since it was prepared. Audio thread. */
    bool swapResponse (PreparedResponse& prepared) noexcept;

    /** Filters a block with the first response. The result shares the filter's own output
        storage and is overwritten by the next call. Audio thread; allocates only when a block is
        longer or has more channels than any before. */
    Signal32 process (Signal32 const& in);
    /** Filters a block with every response. */
    std::vector<Signal32> const& processMultiple (Signal32 const& in);

    /** Silence in the history and every pending output; responses and layout stay. */
    void reset();

    std::vector<int> const& getPartitionSizes() const noexcept { return partitionSizes; }
    std::vector<int> getPartitionOffsets() const;
    std::vector<bool> getPartitionEnabled() const;
    int getCoveredLength() const noexcept { return coveredLength; }
    int getRequestedBlockSize() const noexcept { return requestedBlockSize; }
    int getEffectiveBlockSize() const noexcept { return effectiveBlockSize; }
    int getHistoryLength() const noexcept { return history.getLength(); }
    bool hasBlockPartition() const noexcept { return blockPartition != nullptr; }

private:
    struct SegmentWork
    {
        const Partition* partition;
        int segment;
        int lag; // in frames: which past frame spectrum this segment multiplies
    };

    void updatePartitionSizes();
    void configureChannels (int channels);
    void resizeHistory();
    void enablePartitions();
    bool rebuildSchedule();
    void rebuildFrameSpectra();
    void recomputeCurrentFrame();
    void transformFrame (std::int64_t frameEnd, std::int64_t newest, int slot);
    void accumulate (SegmentWork const& item, std::int64_t frame);
    void finishFrame();
    void spreadWork (int framePosition);
    void boundary (std::int64_t frameEnd);
    int slotOf (std::int64_t frame) const noexcept;
    void newLayout() noexcept;

    CircularBuffer<Signal32> history;
    std::vector<Signal32> impulseResponses;
    std::vector<std::unique_ptr<Partition>> partitions;
    std::shared_ptr<Partition> blockPartition;
    int inputChannels = 0;
    int numResponses = 0;
    int requestedBlockSize = -1;
    int effectiveBlockSize = -1;
    int coveredLength = headLength;
    IppFirFilter head;
    int insertionPeriod = 1;
    bool insertionSwitch = false;
    std::vector<int> partitionSizes;

    // The shared frame grid of the tail.
    int numSlots = 0;                       // frame spectra kept
    SpectrumSet frameSpectra;               // [channel * numSlots + slot]
    SpectrumSet accumulators;               // [response * inputChannels + channel]
    std::vector<Signal32> tailOutputs;      // per response: the tail's output for the current frame
    std::vector<SegmentWork> laggedWork;    // enabled segments that use earlier frames
    std::vector<SegmentWork> immediateWork; // enabled segments that need the newest frame
    std::size_t workDone = 0;
    std::int64_t position = 0;                // samples processed since reset
    std::int64_t currentFrame = -frameLength; // start of the frame whose tail output is ready
    IppsFFTSpec_R_32f* frameSpec = nullptr;
    std::uint8_t* frameWork = nullptr;
    Signal32 frameInput;
    Signal32 frameOutput;

    std::vector<Signal32> outputs;
    std::uint64_t layoutId = 0; // changes whenever partitions, head or channels change
};
} // namespace vesk::audio
