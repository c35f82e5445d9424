#include "FirFilter.h"

#include "MathEx.h"

#include <algorithm>
#include <atomic>
#include <cassert>

namespace vesk::audio
{
namespace
{
int maxLength (std::vector<Signal32> const& irs)
{
    int length = 0;
    for (auto const& ir : irs)
        length = std::max (length, ir.getNumSamples());
    return length;
}
} // namespace

//==============================================================================
FirFilter::FirFilter() : history (headLength + 4096)
{
    ippsFFTInitAlloc_R_32f (&frameSpec, MathEx::log2 (2 * frameLength), IPP_FFT_NODIV_BY_ANY,
                            ippAlgHintFast);
    int bytes = 0;
    ippsFFTGetBufSize_R_32f (frameSpec, &bytes);
    frameWork = ippsMalloc_8u (bytes);
    frameOutput = Signal32 (1, 2 * frameLength, 0.0f);
}

FirFilter::~FirFilter()
{
    ippsFFTFree_R_32f (frameSpec);
    ippsFree (frameWork);
}

void FirFilter::setImpulseResponse (Signal32 const& ir) { setMultipleIRs ({ir}); }

void FirFilter::newLayout() noexcept
{
    // Unique across filters, so a response prepared for one filter never fits another.
    static std::atomic<std::uint64_t> layouts{0};
    layoutId = ++layouts;
}

void FirFilter::prepareResponse (Signal32 const& ir, PreparedResponse& prepared) const
{
    prepared.pending = false;
    prepared.layout = layoutId;
    prepared.response = ir.copy();
    prepared.headTaps = ir.extractSection (0, std::min (ir.getNumSamples(), headLength));

    std::vector<const Partition*> all;
    for (auto const& partition : partitions)
        all.push_back (partition.get());
    if (blockPartition != nullptr)
        all.push_back (blockPartition.get());
    for (auto const* partition : all)
    {
        prepared.work.resize (
            std::max (prepared.work.size(), static_cast<std::size_t> (partition->getWorkBytes())));
        if (prepared.scratch.getNumSamples() < partition->getTransformLength())
            prepared.scratch = Signal32 (1, partition->getTransformLength());
    }
    // Each set is reshaped by the partition it is made for: after a new layout, set i may have
    // been made for a partition of other segments.
    prepared.spectra.resize (all.size());
    const std::vector<Signal32> irs{ir};
    for (std::size_t i = 0; i < all.size(); ++i)
        all[i]->transformResponses (irs, prepared.spectra[i], prepared.work.data(),
                                    prepared.scratch.getChannel (0));
    prepared.pending = true;
}

bool FirFilter::swapResponse (PreparedResponse& prepared) noexcept
{
    if (!prepared.pending || prepared.layout != layoutId || numResponses != 1
        || prepared.response.getNumSamples() != impulseResponses[0].getNumSamples()
        || prepared.headTaps.getNumSamples() != head.getTapCount())
        return false;
    std::size_t i = 0;
    for (auto& partition : partitions)
        partition->swapSpectra (prepared.spectra[i++]);
    if (blockPartition != nullptr)
        blockPartition->swapSpectra (prepared.spectra[i]);
    head.replaceTaps (prepared.headTaps);
    std::swap (impulseResponses[0], prepared.response);
    prepared.pending = false;
    // The tail output of the frame in progress was made with the old response.
    recomputeCurrentFrame();
    return true;
}

void FirFilter::updatePartitionSizes()
{
    partitionSizes.clear();
    int covered = headLength;
    const int length = maxLength (impulseResponses);
    if (length <= headLength)
    {
        coveredLength = covered;
        return;
    }
    int size = headLength;
    for (int i = 0;; ++i)
    {
        if (size + covered > length)
            break;
        partitionSizes.push_back (size);
        covered += size;
        if (insertionSwitch && insertionPeriod != 0 && i >= 1 && i % insertionPeriod == 0)
        {
            partitionSizes.push_back (size / 2);
            covered += size / 2;
        }
        size *= 2;
        if (covered >= length)
        {
            coveredLength = covered;
            return;
        }
    }
    while (size / 2 + covered > length)
        size /= 2;
    partitionSizes.push_back (size);
    coveredLength = length;
}

void FirFilter::setMultipleIRs (std::vector<Signal32> const& irs)
{
    impulseResponses = irs;
    numResponses = static_cast<int> (irs.size());
    if (history.getChannels() > 0)
        inputChannels = history.getChannels();
    else
    {
        inputChannels = 1;
        for (auto const& ir : irs)
            inputChannels = std::max (inputChannels, ir.getNumChannels());
        // Fixes the history's channel count now, so the first block does not reconfigure.
        history.add (Signal32 (inputChannels, 0));
    }

    std::vector<Signal32> headTaps;
    headTaps.reserve (irs.size());
    for (auto const& ir : irs)
        headTaps.push_back (ir.extractSection (0, std::min (ir.getNumSamples(), headLength)));
    head.setFilter (headTaps, inputChannels);

    updatePartitionSizes();
    std::vector<std::unique_ptr<Partition>> layout;
    int offset = headLength;
    for (std::size_t i = 0; i < partitionSizes.size(); ++i)
    {
        const int size = partitionSizes[i];
        std::unique_ptr<Partition> partition;
        for (auto& existing : partitions)
            if (existing != nullptr && existing->getStartOffset() == offset
                && existing->getTransformLength() == 2 * size
                && existing->getInputChannels() == inputChannels
                && existing->getResponses() == numResponses)
                partition = std::move (existing);
        if (partition == nullptr)
            partition = std::make_unique<Partition> (inputChannels, numResponses, offset, size);
        partition->setImpulseResponses (irs);
        layout.push_back (std::move (partition));
        assert (offset % frameLength == 0);
        offset += size;
    }
    partitions = std::move (layout);
    newLayout();

    resizeHistory();
    if (blockPartition != nullptr)
    {
        if (blockPartition->getInputChannels() != inputChannels
            || blockPartition->getResponses() != numResponses)
            blockPartition =
                std::make_shared<Partition> (inputChannels, numResponses, 0, effectiveBlockSize);
        blockPartition->setImpulseResponses (irs);
    }
    enablePartitions();

    // Per-response working blocks of the frame grid.
    accumulators.ensureShape (numResponses * inputChannels, frameLength + 1);
    if (static_cast<int> (tailOutputs.size()) != numResponses
        || (numResponses > 0 && tailOutputs[0].getNumChannels() != inputChannels))
        tailOutputs.assign (static_cast<std::size_t> (numResponses), Signal32());
    for (auto& tail : tailOutputs)
        if (!tail.hasStorage())
            tail = Signal32 (inputChannels, frameLength, 0.0f);
    frameInput.ensureDimensions (inputChannels, 2 * frameLength);

    // Frame spectra depend on the input only; they are made again only when their number changed.
    if (rebuildSchedule())
        rebuildFrameSpectra();
    recomputeCurrentFrame();

    if (history.getChannels() > 0)
        head.setDelayLine (history.peek (-headLength, headLength));
}

void FirFilter::resizeHistory()
{
    history.resize (std::max (effectiveBlockSize, headLength) + coveredLength
                    + history.getLargestBlock());
}

void FirFilter::enablePartitions()
{
    for (auto& partition : partitions)
        partition->setEnabled (effectiveBlockSize == -1
                               || partition->getStartOffset() >= effectiveBlockSize);
}

std::vector<int> FirFilter::getPartitionOffsets() const
{
    std::vector<int> offsets;
    for (auto const& partition : partitions)
        offsets.push_back (partition->getStartOffset());
    return offsets;
}

std::vector<bool> FirFilter::getPartitionEnabled() const
{
    std::vector<bool> enabled;
    for (auto const& partition : partitions)
        enabled.push_back (partition->isEnabled());
    return enabled;
}

void FirFilter::updateBlockSize (int blockSize)
{
    if (blockSize == requestedBlockSize)
        return;
    requestedBlockSize = blockSize;
    const int effective =
        blockSize >= headLength && MathEx::findNearestPowerOfTwo (blockSize) == blockSize
            ? blockSize
            : -1;
    if (effective == effectiveBlockSize)
        return;

    if (effective != -1)
    {
        blockPartition =
            std::make_shared<Partition> (std::max (inputChannels, 1), numResponses, 0, effective);
        blockPartition->setImpulseResponses (impulseResponses);
    }
    else
    {
        blockPartition.reset();
        if (history.getChannels() > 0)
            head.setDelayLine (history.peek (-headLength, headLength));
    }
    effectiveBlockSize = effective;
    newLayout();
    enablePartitions();
    resizeHistory();
    rebuildSchedule();
    recomputeCurrentFrame();
}

//==============================================================================
int FirFilter::slotOf (std::int64_t frame) const noexcept
{
    const auto index = frame / frameLength;
    return static_cast<int> (((index % numSlots) + numSlots) % numSlots);
}

bool FirFilter::rebuildSchedule()
{
    laggedWork.clear();
    immediateWork.clear();
    int deepest = -1;
    for (auto const& partition : partitions)
    {
        for (int s = 0; s < partition->getNumSegments(); ++s)
        {
            const int lag = (partition->getStartOffset() + s * frameLength) / frameLength - 1;
            deepest = std::max (deepest, lag);
            if (!partition->isEnabled())
                continue;
            (lag == 0 ? immediateWork : laggedWork).push_back ({partition.get(), s, lag});
        }
    }
    workDone = 0;

    const int slots = deepest + 1;
    const bool reshaped = slots != numSlots;
    numSlots = slots;
    return frameSpectra.ensureShape (numSlots * inputChannels, frameLength + 1) || reshaped;
}

void FirFilter::transformFrame (std::int64_t frameEnd, std::int64_t newest, int slot)
{
    // The frame ends at frameEnd; 2 * frameLength samples of history feed one overlap-save step.
    const auto samplesAfter = static_cast<int> (newest - frameEnd);
    if (frameEnd <= 0 || history.getChannels() <= 0)
    {
        for (int c = 0; c < inputChannels; ++c)
            ippsZero_32f (reinterpret_cast<float*> (
                              frameSpectra[static_cast<std::size_t> (c * numSlots + slot)]),
                          2 * (frameLength + 1));
        return;
    }
    history.peek (-samplesAfter - 2 * frameLength, frameInput);
    for (int c = 0; c < inputChannels; ++c)
        ippsFFTFwd_RToCCS_32f (
            frameInput.getChannel (c),
            reinterpret_cast<float*> (frameSpectra[static_cast<std::size_t> (c * numSlots + slot)]),
            frameSpec, frameWork);
}

void FirFilter::rebuildFrameSpectra()
{
    // After a new layout the spectra of the frames still needed are made again from the history.
    const auto newest = currentFrame;
    for (int lag = 0; lag < numSlots; ++lag)
    {
        const auto frame = newest - static_cast<std::int64_t> (lag) * frameLength;
        if (frame < 0)
        {
            transformFrame (0, position, slotOf (frame));
            continue;
        }
        transformFrame (frame, position, slotOf (frame));
    }
}

void FirFilter::accumulate (SegmentWork const& item, std::int64_t frame)
{
    const int slot = slotOf (frame - static_cast<std::int64_t> (item.lag) * frameLength);
    for (int c = 0; c < inputChannels; ++c)
    {
        const auto* x = frameSpectra[static_cast<std::size_t> (c * numSlots + slot)];
        for (int r = 0; r < numResponses; ++r)
            ippsAddProduct_32fc (x, item.partition->getSpectrum (r, c, item.segment),
                                 accumulators[static_cast<std::size_t> (r * inputChannels + c)],
                                 frameLength + 1);
    }
}

void FirFilter::finishFrame()
{
    float* block = frameOutput.getChannel (0);
    for (int r = 0; r < numResponses; ++r)
    {
        for (int c = 0; c < inputChannels; ++c)
        {
            auto* acc = accumulators[static_cast<std::size_t> (r * inputChannels + c)];
            ippsFFTInv_CCSToR_32f (reinterpret_cast<const float*> (acc), block, frameSpec,
                                   frameWork);
            ippsCopy_32f (block + frameLength,
                          tailOutputs[static_cast<std::size_t> (r)].getChannel (c), frameLength);
            ippsZero_32f (reinterpret_cast<float*> (acc), 2 * (frameLength + 1));
        }
    }
    workDone = 0;
}

void FirFilter::recomputeCurrentFrame()
{
    for (int i = 0; i < accumulators.size(); ++i)
        ippsZero_32f (reinterpret_cast<float*> (accumulators[static_cast<std::size_t> (i)]),
                      2 * (frameLength + 1));
    workDone = 0;
    if (numSlots == 0 || currentFrame < 0)
    {
        for (auto& tail : tailOutputs)
            for (int c = 0; c < tail.getNumChannels(); ++c)
                ippsZero_32f (tail.getChannel (c), frameLength);
        return;
    }
    for (auto const& item : laggedWork)
        accumulate (item, currentFrame);
    for (auto const& item : immediateWork)
        accumulate (item, currentFrame);
    finishFrame();
}

void FirFilter::spreadWork (int framePosition)
{
    const auto target = laggedWork.size() * static_cast<std::size_t> (framePosition) / frameLength;
    const auto next = currentFrame + frameLength;
    for (; workDone < target; ++workDone)
        accumulate (laggedWork[workDone], next);
}

void FirFilter::boundary (std::int64_t frameEnd)
{
    for (; workDone < laggedWork.size(); ++workDone)
        accumulate (laggedWork[workDone], frameEnd);
    transformFrame (frameEnd, position, slotOf (frameEnd));
    for (auto const& item : immediateWork)
        accumulate (item, frameEnd);
    currentFrame = frameEnd;
    finishFrame();
}

//==============================================================================
void FirFilter::configureChannels (int channels)
{
    history =
        CircularBuffer<Signal32> (std::max (effectiveBlockSize, headLength) + coveredLength + 4096);
    inputChannels = channels;
    Signal32 first (channels, 0);
    history.add (first);
    if (blockPartition != nullptr)
        blockPartition =
            std::make_shared<Partition> (channels, numResponses, 0, effectiveBlockSize);
    position = 0;
    currentFrame = -frameLength;
    setMultipleIRs (std::vector<Signal32> (impulseResponses));
}

std::vector<Signal32> const& FirFilter::processMultiple (Signal32 const& in)
{
    const int n = in.getNumSamples();
    const int channels = in.getNumChannels();
    if (channels == 0)
    {
        outputs.assign (1, Signal32 (0, n));
        return outputs;
    }
    if (history.getChannels() != channels)
        configureChannels (channels);

    history.add (in);
    const auto start = position;
    position += n;

    const auto outputCount = static_cast<std::size_t> (std::max (numResponses, 1));
    if (outputs.size() != outputCount)
        outputs.resize (outputCount);
    for (auto& out : outputs)
        out.ensureDimensions (channels, n);

    if (numResponses == 0)
    {
        for (int c = 0; c < channels; ++c)
            ippsZero_32f (outputs[0].getChannel (c), n);
        return outputs;
    }

    if (blockPartition != nullptr)
    {
        const int size = blockPartition->getSize();
        for (int done = 0; done < n;)
        {
            const int count = std::min (size, n - done);
            blockPartition->processNewest (history, n - done - count, count, outputs, done);
            done += count;
        }
    }
    else
    {
        head.process (in, outputs);
    }

    if (numSlots == 0)
    {
        // No tail: the frame grid still follows the stream, ready for a longer response.
        currentFrame = position > 0 ? (position - 1) / frameLength * frameLength : -frameLength;
        return outputs;
    }

    auto p = start;
    for (int i = 0; i < n;)
    {
        if (p == currentFrame + frameLength)
            boundary (p);
        const auto framePosition = static_cast<int> (p - currentFrame);
        const int count = std::min (n - i, frameLength - framePosition);
        for (int r = 0; r < numResponses; ++r)
            for (int c = 0; c < channels; ++c)
                ippsAdd_32f_I (tailOutputs[static_cast<std::size_t> (r)].getChannel (c)
                                   + framePosition,
                               outputs[static_cast<std::size_t> (r)].getChannel (c) + i, count);
        i += count;
        p += count;
        spreadWork (framePosition + count);
    }
    return outputs;
}

Signal32 FirFilter::process (Signal32 const& in) { return processMultiple (in)[0]; }

void FirFilter::reset()
{
    history.clear();
    head.reset();
    if (blockPartition != nullptr)
        blockPartition->reset();
    for (auto& partition : partitions)
        partition->reset();
    for (int i = 0; i < frameSpectra.size(); ++i)
        ippsZero_32f (reinterpret_cast<float*> (frameSpectra[static_cast<std::size_t> (i)]),
                      2 * (frameLength + 1));
    position = 0;
    currentFrame = -frameLength;
    recomputeCurrentFrame();
}

} // namespace vesk::audio
