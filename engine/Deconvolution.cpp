#include "Deconvolution.h"

#include "MathEx.h"
#include "WindowFunctions.h"

#include <cmath>
#include <stdexcept>

namespace vesk::audio
{
namespace
{
int roundHalfEven (double x)
{
    // The default rounding mode rounds ties to even.
    return static_cast<int> (std::nearbyint (x));
}

bool isFlag (float value) { return value > 0.5f; }
} // namespace

namespace
{
/** Copies a signal into a handle of its own with room for at least capacity samples, so that
    the copy under the engine's lock is a plain copy, not an allocation. */
Signal32 withRoomFor (int channels, int samples, int capacity)
{
    Signal32 result (std::max (channels, 1), std::max (samples, capacity), 0.0f);
    result.ensureDimensions (channels, samples);
    return result;
}

void copySamples (Signal32 const& from, Signal32& to)
{
    for (int c = 0; c < from.getNumChannels(); ++c)
        ippsCopy_32f (from.getChannel (c), to.getChannel (c), from.getNumSamples());
}
} // namespace

bool Deconvolution::setFormat (const AudioFormat& input, const AudioFormat& output)
{
    BaseAudioProcessor::setFormat (input, output);
    if (input.channelCount != output.channelCount || !(input.sampleRate == output.sampleRate))
        return false;
    // Beyond the check every engine makes: a format without channels or with a rate no audio has
    // would leave the engine without a bin grid or with absurd sizes.
    if (input.channelCount < 1 || !(input.sampleRate >= 1000.0 && input.sampleRate <= 1.0e6))
        return false;

    // Not while audio runs, but a designer on another thread may be busy: both locks, in the
    // order every path takes them (an inline design runs under the engine lock).
    const juce::ScopedLock lock (engineLock);
    const juce::ScopedLock design (designLock);
    numChannels = input.channelCount;
    sampleRate = input.sampleRate;
    const double rate = input.sampleRate;
    analyzerFrameSize = MathEx::findLargerPowerOfTwo (roundHalfEven (rate * 60.0 / 1000.0));
    analyzerHopSize = roundHalfEven (rate * 60.0 / 2000.0);
    fftSize = MathEx::findLargerPowerOfTwo (static_cast<int> (2.0 * rate * 50.0 / 1000.0));

    const int bins = fftSize / 2 + 1;
    binFrequencies.assign (static_cast<std::size_t> (bins), 0.0f);
    binLogFrequencies.assign (static_cast<std::size_t> (bins), 0.0);
    binWeights = Signal32 (1, bins);
    float* weights = binWeights.getChannel (0);
    for (int k = 0; k < bins; ++k)
    {
        binFrequencies[static_cast<std::size_t> (k)] = static_cast<float> (k * rate / fftSize);
        binLogFrequencies[static_cast<std::size_t> (k)] =
            std::log10 (binFrequencies[static_cast<std::size_t> (k)]);
        weights[k] = 1.0f < static_cast<float> (k) ? 1.0f / static_cast<float> (k) : 1.0f;
    }
    float total = 0.0f;
    ippsSum_32f (weights, bins, &total);
    ippsDivC_32f_I (total / static_cast<float> (bins), weights, bins);

    prepareBuffers();

    // The first filter is installed directly: it fixes the convolution's layout, and responses
    // prepared for an earlier layout are void.
    updateEmphasisLevels();
    updateFilter();
    correctionFilter.setImpulseResponse (impulseResponse.createMultichannelSignal (numChannels));
    readySlot = 1;
    designSlot = 0;
    audioSlot = 2;
    for (auto& slot : responseSlots)
        correctionFilter.prepareResponse (impulseResponse, slot);
    for (auto& slot : responseSlots)
        correctionFilter.swapResponse (slot); // leaves every slot holding spectra of this layout
    updateTargetMagnitudes (Signal32());
    return true;
}

int Deconvolution::maximumOrder() const
{
    return static_cast<int> (std::nearbyint (sampleRate.load() * 0.1)) + 1;
}

void Deconvolution::prepareBuffers()
{
    // Everything the audio thread touches is sized here for the whole range of filter lengths
    // (estimationLength() allows up to 100 ms) and for blocks up to the announced size.
    const int channels = numChannels;
    const int order = maximumOrder();
    const int frame = 2 * order;
    const int block = std::max (expectedBlockSize, 1);
    inputQueue.prepare (channels, frame + queueChunk);
    estimationWindow = Signal32 (channels, frame);
    estimationWindow.ensureDimensions (channels, 0);
    spectrumWindow = Signal32 (1, std::max (frame, fftSize));
    spectrumWindow.ensureDimensions (1, 0);
    spectrumTransform.allocate (fftSize, true);
    spectrumFrame = Signal32 (1, fftSize, 0.0f);
    spectrumBins = ComplexSignal32 (1, fftSize / 2 + 1);
    spectrumSum.reserve (static_cast<std::size_t> (fftSize / 2 + 1));
    estimationFrame = Signal32 (channels, frame);
    frameCoefficients = Signal32 (1, order);
    predictorScratch.reserve (static_cast<std::size_t> (order));
    linearPrediction.prepare (frame, order);
    const int learntSamples = sourceEstimate.hasStorage() ? sourceEstimate.getNumSamples() : 0;
    Signal32 learnt =
        withRoomFor (std::max (sourceEstimate.getNumChannels(), 1), learntSamples, order);
    if (learntSamples > 0)
        copySamples (sourceEstimate, learnt);
    sourceEstimate = learnt;
    {
        const juce::SpinLock::ScopedLockType snapshot (snapshotLock);
        sourceSnapshot = withRoomFor (1, learntSamples, order);
        spectrumSnapshot.reserve (static_cast<std::size_t> (fftSize / 2 + 1));
        if (learntSamples > 0)
            ippsCopy_32f (sourceEstimate.getChannel (0), sourceSnapshot.getChannel (0),
                          learntSamples);
        snapshotSampleRate = sourceSampleRate;
        snapshotStale = false;
    }
    inputBlock = Signal32 (channels, block, 0.0f);
    outputBlock = Signal32 (channels, block, 0.0f);

    analyzerInputQueue.prepare (1, analyzerFrameSize + queueChunk);
    analyzerOutputQueue.prepare (1, analyzerFrameSize + queueChunk);
    analyzerTransform.allocate (analyzerFrameSize, true);
    analyzerWindow = WindowFunctions::generateBlackman (analyzerFrameSize, 0.16f);
    float windowSum = 0.0f;
    ippsSum_32f (analyzerWindow.getChannel (0), analyzerFrameSize, &windowSum);
    ippsMulC_32f_I (2.0f / windowSum, analyzerWindow.getChannel (0), analyzerFrameSize);
    const int analyzerBinCount = analyzerFrameSize / 2 + 1;
    inputSpectrum = Signal32 (1, analyzerBinCount, 0.0f);
    outputSpectrum = Signal32 (1, analyzerBinCount, 0.0f);
    inputSpectrumValid = outputSpectrumValid = false;
    analyzerSum = Signal32 (1, queueChunk);
    analyzerFrame = Signal32 (1, analyzerFrameSize);
    analyzerBins = ComplexSignal32 (1, analyzerBinCount);
    analyzerMagnitudes = Signal32 (1, analyzerBinCount);

    designTransform.allocate (fftSize, true);
}

void Deconvolution::getProcessingInfo (ProcessingInfo& info)
{
    BaseAudioProcessor::getProcessingInfo (info);
}

void Deconvolution::getParameterRange (int index, float& minimum, float& maximum)
{
    if (index < 0 || index >= numParameters)
        throw std::out_of_range ("Parameter index");
    switch (index)
    {
        case estimationModeIndex: minimum = 0.0f, maximum = 3.0f; return;
        case estimationThresholdIndex: minimum = -112.0f, maximum = -12.0f; return;
        case filterLengthIndex: minimum = 1.0f, maximum = 20.0f; return;
        case targetModelIndex: minimum = 0.0f, maximum = 6.0f; return;
        case masterGainIndex: minimum = -24.0f, maximum = 24.0f; return;
        default: break;
    }
    if (index < emphasisPointFrequencyIndex)
        minimum = 0.0f, maximum = 1.0f;
    else if (index < emphasisPointLevelIndex)
        minimum = 20.0f, maximum = static_cast<float> (sampleRate.load()) * 0.5f;
    else
        minimum = 0.0f, maximum = 100.0f;
}

float Deconvolution::getParameterValue (int index)
{
    if (index < 0 || index >= numParameters)
        throw std::out_of_range ("Parameter index");
    switch (index)
    {
        case estimationModeIndex: return static_cast<float> (estimationMode.load());
        case estimationThresholdIndex: return estimationThreshold;
        case filterLengthIndex: return filterLength;
        case targetModelIndex: return static_cast<float> (targetModel.load());
        case masterGainIndex: return masterGain;
        case enableAnalyzersIndex: return analyzersEnabled ? 1.0f : 0.0f;
        case enableEmphasisCurveIndex: return emphasisCurveEnabled ? 1.0f : 0.0f;
        default: break;
    }
    if (index < emphasisPointFrequencyIndex)
        return (emphasisPointEnabled.load() >> (index - emphasisPointEnabledIndex)) & 1u ? 1.0f
                                                                                         : 0.0f;
    if (index < emphasisPointLevelIndex)
        return emphasisPointFrequency[static_cast<std::size_t> (index
                                                                - emphasisPointFrequencyIndex)];
    return emphasisPointLevel[static_cast<std::size_t> (index - emphasisPointLevelIndex)];
}

void Deconvolution::setParameterValue (int index, float value, bool)
{
    if (index < 0 || index >= numParameters)
        throw std::out_of_range ("Parameter index");

    // Integers beyond what an int holds (or NaN) would make the rounding undefined.
    const auto toInteger = [] (float v)
    {
        return std::isfinite (v)
                   ? roundHalfEven (std::clamp (static_cast<double> (v), -1.0e6, 1.0e6))
                   : 0;
    };

    switch (index)
    {
        case estimationModeIndex:
            estimationMode = toInteger (value);
            estimateFrameCount = 0;
            restartEstimate = true;
            break;
        case estimationThresholdIndex: estimationThreshold = value; break;
        case filterLengthIndex: filterLength = value; break;
        case targetModelIndex: targetModel = toInteger (value); break;
        case masterGainIndex: masterGain = value; break;
        case enableAnalyzersIndex: analyzersEnabled = isFlag (value); break;
        case enableEmphasisCurveIndex: emphasisCurveEnabled = isFlag (value); break;
        default:
            if (index < emphasisPointFrequencyIndex)
            {
                const auto bit =
                    static_cast<std::uint16_t> (1u << (index - emphasisPointEnabledIndex));
                if (isFlag (value))
                    emphasisPointEnabled.fetch_or (bit);
                else
                    emphasisPointEnabled.fetch_and (static_cast<std::uint16_t> (~bit));
            }
            else if (index < emphasisPointLevelIndex)
                emphasisPointFrequency[static_cast<std::size_t> (
                    index - emphasisPointFrequencyIndex)] = value;
            else
                emphasisPointLevel[static_cast<std::size_t> (index - emphasisPointLevelIndex)] =
                    value;
            break;
    }
    parameterChangedFrom (index);
}

void Deconvolution::parameterChangedFrom (int index)
{
    // The master gain is applied after the convolution and the analysers only watch: neither
    // changes the correction, so neither costs a redesign.
    if (index == masterGainIndex || index == enableAnalyzersIndex)
        return;
    const bool emphasis = index >= enableEmphasisCurveIndex;
    const bool target = index == targetModelIndex;
    if (onAudioThread())
    {
        if (emphasis)
            emphasisPending = true;
        if (target)
            targetPending = true;
        designPending = true;
        return;
    }
    if (index == estimationModeIndex)
    {
        // What was learnt up to now, not up to the last paced design, is what a hold keeps
        // and what a saved state will hold.
        const juce::ScopedLock audio (engineLock);
        publishSourceSnapshot (true);
    }
    const juce::ScopedLock lock (designLock);
    if (emphasis)
        updateEmphasisLevels();
    if (target)
        updateTargetMagnitudes (Signal32());
    updateFilter();
}

void Deconvolution::effectuateParameterChanges()
{
    const juce::ScopedLock lock (designLock);
    updateEmphasisLevels();
    updateTargetMagnitudes (Signal32());
    updateFilter();
}

void Deconvolution::reset()
{
    bool layoutChanged = false, behind = false;
    {
        // A designer on another thread transforms its response for the convolution's layout
        // under designLock: the layout changes only while that lock is held too.
        const juce::ScopedLock lock (engineLock);
        const juce::ScopedLock design (designLock);
        if (estimationMode != holdMode)
        {
            sourceEstimate.ensureDimensions (1, 0); // mode 2 holds what was learnt, on purpose
            spectrumFrames = 0;
            levelPowerSum = 0.0;
            levelFrames = 0;
        }
        // Frames learnt after the last design (a hold that came between two of them) are
        // designed for before playback starts again.
        behind = unpublishedFrames;
        publishSourceSnapshot();
        estimateFrameCount = 0;
        restartEstimate = false;
        inputQueue.clear();

        // The announced block size picks the convolution's fastest layout. A silent block of
        // that size, run now and forgotten, sizes every buffer the audio thread will use.
        const int layoutBefore = correctionFilter.getEffectiveBlockSize();
        correctionFilter.updateBlockSize (expectedBlockSize);
        layoutChanged = layoutBefore != correctionFilter.getEffectiveBlockSize();
        const int block = std::max (expectedBlockSize, 1);
        if (numChannels > 0 && block > inputBlock.getNumSamples())
        {
            inputBlock = Signal32 (numChannels, block, 0.0f);
            outputBlock = Signal32 (numChannels, block, 0.0f);
        }
        if (numChannels > 0)
        {
            Signal32 silence (numChannels, block, 0.0f);
            correctionFilter.process (silence);
        }
        correctionFilter.reset();
        appliedGain = MathEx::fromDecibel (masterGain);
    }
    // A new layout voids responses prepared for the old one: design again for this one.
    // Work left for the design thread is done now, so playback restarts from a known filter.
    // Locks in the order every path takes them: the engine's, then the designers'.
    const juce::ScopedLock audio (engineLock);
    if (designPending.load())
    {
        designRequested();
        installPendingResponse();
    }
    else if ((layoutChanged || behind) && sampleRate > 0.0)
    {
        publishSourceSnapshot();
        updateFilter();
        installPendingResponse();
    }
}

bool Deconvolution::hasTargetFilter()
{
    const juce::ScopedLock lock (designLock);
    return targetFilter.hasStorage() && targetFilter.getNumSamples() > 0;
}

Signal32 Deconvolution::getFilterCurve()
{
    const juce::ScopedLock lock (designLock);
    return filterCurve.copy();
}

void Deconvolution::getAnalyzerData (Signal32& input, Signal32& outputData)
{
    const int bins = analyzerFrameSize / 2 + 1;
    Signal32 in = withRoomFor (1, bins, bins), out = withRoomFor (1, bins, bins);
    bool inValid = false, outValid = false;
    {
        const juce::ScopedLock lock (engineLock);
        inValid = inputSpectrumValid && inputSpectrum.getNumSamples() == bins;
        outValid = outputSpectrumValid && outputSpectrum.getNumSamples() == bins;
        if (inValid)
            copySamples (inputSpectrum, in);
        if (outValid)
            copySamples (outputSpectrum, out);
    }
    input = inValid ? in : Signal32();
    outputData = outValid ? out : Signal32();
}

void Deconvolution::getSourceFilter (Signal32& coefficients, double& rate)
{
    // Room is made outside the lock; only a loaded set longer than learning makes, or one of
    // several channels, needs more inside it.
    Signal32 copy = withRoomFor (1, 0, maximumOrder());
    std::vector<double> sum;
    sum.reserve (static_cast<std::size_t> (fftSize / 2 + 1));
    {
        const juce::ScopedLock lock (engineLock);
        if (estimator.load() == Estimator::longTermSpectrum && spectrumFrames > 0)
            sum.assign (spectrumSum.begin(), spectrumSum.end());
        copy.ensureDimensions (sourceEstimate.getNumChannels(), sourceEstimate.getNumSamples());
        if (copy.getNumSamples() > 0)
            copySamples (sourceEstimate, copy);
        rate = sourceSampleRate;
    }
    if (!sum.empty())
        copy = whiteningOf (sum);
    coefficients = copy.getNumSamples() > 0 ? copy : Signal32();
}

double Deconvolution::spectrumSeconds() const
{
    return static_cast<double> (spectrumFrames) * (spectrumFrameLength() / 2)
           / std::max (sampleRate.load(), 1.0);
}

double Deconvolution::getLearntSeconds()
{
    const juce::ScopedLock lock (engineLock);
    if (estimator.load() == Estimator::longTermSpectrum && spectrumFrames > 0)
        return spectrumSeconds();
    return loadedModelSeconds;
}

void Deconvolution::setSourceFilter (const Signal32& coefficients, double rate,
                                     double learntSeconds)
{
    const bool present = coefficients.hasStorage() && coefficients.getNumChannels() > 0
                         && coefficients.getNumSamples() > 0;
    const int channels = present ? coefficients.getNumChannels() : 1;
    const int samples = present ? coefficients.getNumSamples() : 0;
    // The storage keeps room for learning to go on without allocating.
    Signal32 learnt = withRoomFor (channels, samples, maximumOrder());
    if (present)
        copySamples (coefficients, learnt);
    {
        const juce::ScopedLock lock (engineLock);
        std::swap (sourceEstimate, learnt);
        sourceSampleRate = rate;
        loadedModelSeconds = std::isnan (learntSeconds) ? std::numeric_limits<double>::infinity()
                                                        : std::max (learntSeconds, 0.0);
        spectrumFrames = 0; // a loaded model stands for the estimate until frames come
        publishSourceSnapshot();
        if (snapshotStale)
        {
            // A designer holds the snapshot for a moment; this thread may wait for it.
            const juce::SpinLock::ScopedLockType snapshot (snapshotLock);
            sourceSnapshot.ensureDimensions (1, samples);
            if (samples > 0)
                ippsCopy_32f (sourceEstimate.getChannel (0), sourceSnapshot.getChannel (0),
                              samples);
            snapshotSampleRate = rate;
            snapshotStale = false;
        }
    }
    const juce::ScopedLock lock (designLock);
    updateFilter();
}

void Deconvolution::getTargetFilter (Signal32& coefficients, double& rate)
{
    const juce::ScopedLock lock (designLock);
    coefficients = targetModel == custom ? targetFilter.copy() : Signal32();
    rate = targetSampleRate;
}

void Deconvolution::setTargetFilter (const Signal32& coefficients, double rate)
{
    const juce::ScopedLock lock (designLock);
    targetFilter = coefficients.getNumSamples() > 0 ? coefficients.copy() : Signal32();
    targetSampleRate = rate;
    // A filter loaded while "Custom" is chosen is heard at once, not at the next profile change.
    if (targetModel == custom)
        updateTargetMagnitudes (Signal32());
    updateFilter();
}

std::uint64_t Deconvolution::getEstimateFrameCount()
{
    const juce::ScopedLock lock (engineLock);
    return estimateFrameCount;
}

Signal32 Deconvolution::getTargetMagnitudes()
{
    const juce::ScopedLock lock (designLock);
    return targetMagnitudes.copy();
}

Signal32 Deconvolution::getEmphasisLevels()
{
    const juce::ScopedLock lock (designLock);
    return emphasisLevels.copy();
}

Signal32 Deconvolution::getBinWeights()
{
    const juce::ScopedLock lock (designLock);
    return binWeights.copy();
}

std::vector<float> Deconvolution::getBinFrequencies()
{
    const juce::ScopedLock lock (designLock);
    return binFrequencies;
}

double Deconvolution::getSecondsSinceFilterUpdate()
{
    const juce::ScopedLock lock (engineLock);
    return secondsSinceFilterUpdate;
}

int Deconvolution::getQueuedSamples()
{
    const juce::ScopedLock lock (engineLock);
    return inputQueue.getAvailable();
}

int Deconvolution::getFftSize()
{
    const juce::ScopedLock lock (engineLock);
    return fftSize;
}

int Deconvolution::getAnalyzerFrameSize()
{
    const juce::ScopedLock lock (engineLock);
    return analyzerFrameSize;
}

int Deconvolution::getAnalyzerHopSize()
{
    const juce::ScopedLock lock (engineLock);
    return analyzerHopSize;
}

Signal32 Deconvolution::getImpulseResponse()
{
    const juce::ScopedLock lock (designLock);
    return impulseResponse.copy();
}
} // namespace vesk::audio
