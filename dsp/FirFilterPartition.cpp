#include "FirFilter.h"

#include "MathEx.h"

#include <algorithm>

// The pieces a FirFilter is built from: spectrum sets, the direct-form head and the
// frequency-domain partitions.

namespace vesk::audio
{
namespace
{
int responseChannel (Signal32 const& ir, int inputChannel)
{
    return std::min (inputChannel, std::max (ir.getNumChannels() - 1, 0));
}
} // namespace

//==============================================================================
bool FirFilter::SpectrumSet::ensureShape (int count, int binCount)
{
    if (size() == count && bins == binCount)
        return false;
    release();
    blocks.reserve (static_cast<std::size_t> (count));
    for (int i = 0; i < count; ++i)
    {
        auto* p = static_cast<complex32*> (
            ippMalloc (sizeof (complex32) * static_cast<std::size_t> (binCount)));
        if (p == nullptr)
            throw std::bad_alloc();
        ippsZero_32f (reinterpret_cast<float*> (p), 2 * binCount);
        blocks.push_back (p);
    }
    bins = binCount;
    return true;
}

void FirFilter::SpectrumSet::release() noexcept
{
    for (auto* p : blocks)
        ippFree (p);
    blocks.clear();
    bins = 0;
}

//==============================================================================
FirFilter::IppFirFilter::~IppFirFilter() { release(); }

void FirFilter::IppFirFilter::release()
{
    for (auto& perResponse : states)
        for (auto* state : perResponse)
            ippsFIRFree_32f (state);
    states.clear();
    tapCounts.clear();
}

void FirFilter::IppFirFilter::setFilter (std::vector<Signal32> const& taps, int channelCount)
{
    if (states.size() != taps.size()
        || (!states.empty() && static_cast<int> (states[0].size()) != channelCount))
    {
        release();
        states.resize (taps.size());
        tapCounts.assign (taps.size(), 0);
    }
    const float silence = 0.0f;
    for (std::size_t r = 0; r < taps.size(); ++r)
    {
        const bool hasTaps = taps[r].getNumSamples() > 0 && taps[r].getNumChannels() > 0;
        const int count = hasTaps ? taps[r].getNumSamples() : 1;
        if (tapCounts[r] != count)
        {
            for (auto* state : states[r])
                ippsFIRFree_32f (state);
            states[r].assign (static_cast<std::size_t> (channelCount), nullptr);
            for (auto& state : states[r])
                ippsFIRInitAlloc_32f (&state, nullptr, count, nullptr);
            tapCounts[r] = count;
        }
        for (int c = 0; c < channelCount; ++c)
            ippsFIRSetTaps_32f (hasTaps ? taps[r].getChannel (responseChannel (taps[r], c))
                                        : &silence,
                                states[r][static_cast<std::size_t> (c)]);
    }
    delayScratch.assign (static_cast<std::size_t> (headLength), 0.0f);
}

void FirFilter::IppFirFilter::setDelayLine (Signal32 const& recent)
{
    const int available = recent.getNumSamples();
    for (std::size_t r = 0; r < states.size(); ++r)
    {
        const int needed = tapCounts[r] - 1;
        const int copied = std::min (needed, available);
        for (std::size_t c = 0; c < states[r].size(); ++c)
        {
            std::fill (delayScratch.begin(), delayScratch.end(), 0.0f);
            if (static_cast<int> (c) < recent.getNumChannels())
                ippsCopy_32f (recent.getChannel (static_cast<int> (c)) + available - copied,
                              delayScratch.data() + needed - copied, copied);
            ippsFIRSetDlyLine_32f (states[r][c], delayScratch.data());
        }
    }
}

bool FirFilter::IppFirFilter::replaceTaps (Signal32 const& taps) noexcept
{
    if (states.empty() || taps.getNumSamples() != tapCounts[0] || taps.getNumChannels() <= 0)
        return false;
    for (std::size_t c = 0; c < states[0].size(); ++c)
        ippsFIRSetTaps_32f (taps.getChannel (responseChannel (taps, static_cast<int> (c))),
                            states[0][c]);
    return true;
}

void FirFilter::IppFirFilter::reset()
{
    for (auto& perResponse : states)
        for (auto* state : perResponse)
            ippsFIRSetDlyLine_32f (state, nullptr);
}

void FirFilter::IppFirFilter::process (Signal32 const& in, std::vector<Signal32>& outs)
{
    for (std::size_t r = 0; r < states.size(); ++r)
        for (int c = 0; c < in.getNumChannels(); ++c)
            ippsFIR_32f (in.getChannel (c), outs[r].getChannel (c), in.getNumSamples(),
                         states[r][static_cast<std::size_t> (c)]);
}

//==============================================================================
FirFilter::Partition::Partition (int inputChannelCount, int responseCount, int start,
                                 int partitionSize)
    : inputChannels (inputChannelCount), responses (responseCount),
      transformLength (2 * partitionSize), startOffset (start), size (partitionSize),
      segmentLength (start == 0 ? partitionSize : frameLength),
      numSegments (start == 0 ? 1 : (partitionSize + frameLength - 1) / frameLength)
{
    ippsFFTInitAlloc_R_32f (&spec, MathEx::log2 (2 * segmentLength), IPP_FFT_NODIV_BY_ANY,
                            ippAlgHintFast);
    int bytes = 0;
    ippsFFTGetBufSize_R_32f (spec, &bytes);
    work = ippsMalloc_8u (bytes);
    spectra.ensureShape (responses * inputChannels * numSegments, segmentLength + 1);
    scratch = Signal32 (1, 2 * segmentLength, 0.0f);
    if (startOffset == 0)
    {
        frame = Signal32 (inputChannels, 2 * segmentLength, 0.0f);
        spectrumScratch = ComplexSignal32 (2, segmentLength + 1);
    }
}

FirFilter::Partition::~Partition()
{
    ippsFFTFree_R_32f (spec);
    ippsFree (work);
}

const complex32* FirFilter::Partition::getSpectrum (int response, int channel,
                                                    int segment) const noexcept
{
    return spectra[static_cast<std::size_t> ((response * inputChannels + channel) * numSegments
                                             + segment)];
}

void FirFilter::Partition::setImpulseResponses (std::vector<Signal32> const& irs)
{
    transformResponses (irs, spectra, work, scratch.getChannel (0));
}

int FirFilter::Partition::getWorkBytes() const noexcept
{
    int bytes = 0;
    ippsFFTGetBufSize_R_32f (spec, &bytes);
    return bytes;
}

void FirFilter::Partition::transformResponses (std::vector<Signal32> const& irs,
                                               SpectrumSet& target, std::uint8_t* fftWork,
                                               float* block) const
{
    const int count = responses * inputChannels * numSegments;
    target.ensureShape (count, segmentLength + 1);
    // The inverse transforms are unscaled; the 1/N is folded into the stored spectra.
    const float scale = 1.0f / static_cast<float> (2 * segmentLength);
    for (int r = 0; r < responses; ++r)
    {
        Signal32 const& ir = irs[static_cast<std::size_t> (r)];
        for (int c = 0; c < inputChannels; ++c)
        {
            for (int s = 0; s < numSegments; ++s)
            {
                ippsZero_32f (block, 2 * segmentLength);
                const int first = startOffset + s * segmentLength;
                const int last =
                    std::min ({first + segmentLength, startOffset + size, ir.getNumSamples()});
                if (last > first && ir.getNumChannels() > 0)
                    ippsCopy_32f (ir.getChannel (responseChannel (ir, c)) + first, block,
                                  last - first);
                ippsMulC_32f_I (scale, block, last > first ? last - first : 0);
                auto* bins =
                    target[static_cast<std::size_t> ((r * inputChannels + c) * numSegments + s)];
                ippsFFTFwd_RToCCS_32f (block, reinterpret_cast<float*> (bins), spec, fftWork);
            }
        }
    }
}

void FirFilter::Partition::reset() {}

void FirFilter::Partition::processNewest (CircularBuffer<Signal32> const& input, int samplesAfter,
                                          int count, std::vector<Signal32>& outs, int outputOffset)
{
    const int n = 2 * segmentLength;
    input.peek (-samplesAfter - n, frame);
    auto* inputSpectrum = spectrumScratch.getChannel (0);
    auto* product = spectrumScratch.getChannel (1);
    float* block = scratch.getChannel (0);
    for (int c = 0; c < inputChannels; ++c)
    {
        ippsFFTFwd_RToCCS_32f (frame.getChannel (c), reinterpret_cast<float*> (inputSpectrum), spec,
                               work);
        for (int r = 0; r < responses; ++r)
        {
            ippsMul_32fc (inputSpectrum, getSpectrum (r, c, 0), product, segmentLength + 1);
            ippsFFTInv_CCSToR_32f (reinterpret_cast<const float*> (product), block, spec, work);
            // Overlap-save: only the newest samples are free of circular wrap-around.
            ippsCopy_32f (block + n - count,
                          outs[static_cast<std::size_t> (r)].getChannel (c) + outputOffset, count);
        }
    }
}

} // namespace vesk::audio
