#include "Deconvolution.h"

#include "MathEx.h"

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

Deconvolution::Deconvolution()
{
    for (auto& frequency : emphasisPointFrequency)
        frequency.store (1000.0f);
    for (auto& level : emphasisPointLevel)
        level.store (100.0f);
}

Deconvolution::~Deconvolution() = default;

bool Deconvolution::setFormat (const AudioFormat& input, const AudioFormat& output)
{
    BaseAudioProcessor::setFormat (input, output);
    if (input.channelCount != output.channelCount || !(input.sampleRate == output.sampleRate))
        return false;
    // Beyond the design's own check: a format without channels or with a rate no audio has
    // would leave the engine without a bin grid or with absurd sizes.
    if (input.channelCount < 1 || !(input.sampleRate >= 1000.0 && input.sampleRate <= 1.0e6))
        return false;

    // Not needed by the host layer's calling order, but cheap insurance against a parameter
    // change arriving from another thread while the grid is rebuilt.
    const juce::ScopedLock lock (engineLock);
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

    // Prepare the transforms here so the audio thread never has to.
    designTransform.allocate (fftSize, true);
    analyzerTransform.allocate (analyzerFrameSize, true);

    updateEmphasisLevels();
    updateFilter();
    updateTargetMagnitudes (Signal32());
    return true;
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
    const juce::ScopedLock lock (engineLock);
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
            break;
        case estimationThresholdIndex: estimationThreshold = value; break;
        case filterLengthIndex: filterLength = value; break;
        case targetModelIndex:
            targetModel = toInteger (value);
            updateTargetMagnitudes (Signal32());
            break;
        case masterGainIndex: masterGain = value; break;
        case enableAnalyzersIndex:
            analyzersEnabled = isFlag (value);
            updateEmphasisLevels();
            break;
        case enableEmphasisCurveIndex:
            emphasisCurveEnabled = isFlag (value);
            updateEmphasisLevels();
            break;
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
            updateEmphasisLevels();
            break;
    }
    updateFilter();
}

void Deconvolution::effectuateParameterChanges()
{
    const juce::ScopedLock lock (engineLock);
    updateEmphasisLevels();
    updateTargetMagnitudes (Signal32());
    updateFilter();
}

void Deconvolution::reset()
{
    const juce::ScopedLock lock (engineLock);
    if (estimationMode != 2)
        sourceEstimate = Signal32(); // mode 2 holds what was learnt, on purpose
    estimateFrameCount = 0;
    inputQueue.clear();
    correctionFilter.reset();
}

bool Deconvolution::hasTargetFilter()
{
    const juce::ScopedLock lock (engineLock);
    return targetFilter.hasStorage() && targetFilter.getNumSamples() > 0;
}

Signal32 Deconvolution::getFilterCurve()
{
    const juce::ScopedLock lock (engineLock);
    return filterCurve.copy();
}

void Deconvolution::getAnalyzerData (Signal32& input, Signal32& outputData)
{
    const juce::ScopedLock lock (engineLock);
    input = inputSpectrum.copy();
    outputData = outputSpectrum.copy();
}

void Deconvolution::getSourceFilter (Signal32& coefficients, double& rate)
{
    const juce::ScopedLock lock (engineLock);
    coefficients = sourceEstimate.copy();
    rate = sourceSampleRate;
}

void Deconvolution::setSourceFilter (const Signal32& coefficients, double rate)
{
    const juce::ScopedLock lock (engineLock);
    sourceEstimate = coefficients.copy();
    sourceSampleRate = rate;
    updateFilter();
}

void Deconvolution::getTargetFilter (Signal32& coefficients, double& rate)
{
    const juce::ScopedLock lock (engineLock);
    coefficients = targetModel == custom ? targetFilter.copy() : Signal32();
    rate = targetSampleRate;
}

void Deconvolution::setTargetFilter (const Signal32& coefficients, double rate)
{
    const juce::ScopedLock lock (engineLock);
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
    const juce::ScopedLock lock (engineLock);
    return targetMagnitudes.copy();
}

Signal32 Deconvolution::getEmphasisLevels()
{
    const juce::ScopedLock lock (engineLock);
    return emphasisLevels.copy();
}

Signal32 Deconvolution::getBinWeights()
{
    const juce::ScopedLock lock (engineLock);
    return binWeights.copy();
}

std::vector<float> Deconvolution::getBinFrequencies()
{
    const juce::ScopedLock lock (engineLock);
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
    const juce::ScopedLock lock (engineLock);
    return impulseResponse.copy();
}
} // namespace vesk::audio
