#include "Deconvolution.h"
#include "Denormals.h"
#include "MathEx.h"
#include "WindowFunctions.h"

#include <cmath>

namespace vesk::audio
{
int Deconvolution::estimationLength() const
{
    // L = filter length in samples. Kept within 0 .. 100 ms so that an out-of-range value can
    // neither stall the frame loop nor make the queue grow without bound.
    const double samples = static_cast<double> (filterLength.load()) * sampleRate.load() / 1000.0;
    if (!std::isfinite (samples))
        return 0;
    return static_cast<int> (std::nearbyint (std::clamp (samples, 0.0, sampleRate.load() * 0.1)));
}

Signal32 Deconvolution::process (const Signal32& input)
{
    const ScopedFlushDenormals flushDenormals;
    const juce::ScopedLock lock (engineLock);

    const int samples = input.getNumSamples();
    const int channels = input.getNumChannels();
    outputBlock.ensureDimensions (channels, samples);
    if (sampleRate <= 0.0)
    {
        for (int c = 0; c < channels; ++c)
            ippsZero_32f (outputBlock.getChannel (c), samples);
        return outputBlock; // not formatted yet: nothing to learn from and no filter to run
    }

    feedEstimation (input, 1);

    if (estimationMode != 2 && secondsSinceFilterUpdate > 0.04)
        updateFilter();
    secondsSinceFilterUpdate += samples / sampleRate;

    const auto filtered = correctionFilter.process (input);
    const float gain = MathEx::fromDecibel (masterGain);
    for (int c = 0; c < channels; ++c)
    {
        ippsCopy_32f (filtered.getChannel (c), outputBlock.getChannel (c), samples);
        ippsMulC_32f_I (gain, outputBlock.getChannel (c), samples);
    }

    if (analyzersEnabled)
        updateAnalyzers (input, outputBlock);
    return outputBlock;
}

void Deconvolution::feedEstimation (const Signal32& input, int hopMultiple)
{
    const int length = estimationLength();
    const int frameLength = 2 * (length + 1);
    const int hop = (length + 1) * std::clamp (hopMultiple, 1, 2);

    // Frames must all have one channel count; a host that changes it starts a new queue.
    if (inputQueue.getAvailable() > 0 && inputQueue.getChannels() != input.getNumChannels())
        inputQueue.clear();
    inputQueue.pushCopy (input);
    while (inputQueue.getAvailable() > frameLength)
    {
        // Holding (mode 2) learns nothing from a frame, so it is not even copied out.
        if (estimationMode != 2)
        {
            estimationFrame.ensureDimensions (inputQueue.getChannels(), frameLength);
            inputQueue.peek (estimationFrame);
            updateEstimate (estimationFrame);
        }
        inputQueue.skip (hop);
    }
}

void Deconvolution::learn (const Signal32& input, int hopMultiple)
{
    const ScopedFlushDenormals flushDenormals;
    const juce::ScopedLock lock (engineLock);
    if (sampleRate > 0.0)
        feedEstimation (input, hopMultiple);
}

bool Deconvolution::updateEstimate (const Signal32& frame)
{
    const juce::ScopedLock lock (engineLock);
    if (estimationMode == 2)
        return false;

    // Frames holding NaN or infinity are gated like silence, so they never poison the estimate.
    const float level = frame.getRmsLevel();
    if (!std::isfinite (level) || MathEx::fromDecibel (estimationThreshold) > level)
        return false;

    const int channels = frame.getNumChannels();
    const int samples = frame.getNumSamples();
    if (estimationWindow.getNumSamples() != samples
        || estimationWindow.getNumChannels() != channels)
        estimationWindow =
            WindowFunctions::generateHammingWindow (samples).createMultichannelSignal (channels);

    const int order = estimationLength() + 1;
    estimationFrame.ensureDimensions (channels, samples);
    frameCoefficients.ensureDimensions (1, order);
    predictorScratch.resize (static_cast<std::size_t> (order));
    float* sum = frameCoefficients.getChannel (0);
    ippsZero_32f (sum, order);
    for (int c = 0; c < channels; ++c)
    {
        // The frame may be our own scratch block: window in place.
        float* windowed = estimationFrame.getChannel (c);
        if (windowed != frame.getChannel (c))
            ippsCopy_32f (frame.getChannel (c), windowed, samples);
        ippsMul_32f_I (estimationWindow.getChannel (c), windowed, samples);

        double* a = predictorScratch.data();
        if (linearPrediction.lpa (windowed, samples, a, order - 1))
            for (int k = 0; k < order; ++k)
                sum[k] += static_cast<float> (a[k]);
        else
            sum[0] += 1.0f; // an unstable recursion counts as a flat envelope
    }
    ippsDivC_32f_I (static_cast<float> (channels), sum, order);

    if (!sourceEstimate.hasStorage() || sourceEstimate.getNumSamples() == 0)
    {
        sourceEstimate = frameCoefficients.copy();
        estimateFrameCount = 1;
    }
    else if (sourceEstimate.getNumSamples() != order)
    {
        // The filter length changed while learning: carry the estimate over, cut or zero-extended.
        Signal32 resized (1, order, 0.0f);
        ippsCopy_32f (sourceEstimate.getChannel (0), resized.getChannel (0),
                      std::min (order, sourceEstimate.getNumSamples()));
        sourceEstimate = resized;
    }

    if (estimationMode == 1)
    {
        // The seeded first frame is averaged with itself: it weighs twice, as it always has.
        const auto n = static_cast<float> (estimateFrameCount);
        const float divisor = n + 1.0f;
        float* estimate = sourceEstimate.getChannel (0);
        for (int k = 0; k < order; ++k)
            estimate[k] = (estimate[k] * n + sum[k]) / divisor;
        ++estimateFrameCount;
    }
    sourceSampleRate = sampleRate;
    return true;
}

void Deconvolution::updateAnalyzers (const Signal32& input, const Signal32& processed)
{
    const int samples = input.getNumSamples();
    analyzerSum.ensureDimensions (1, samples);
    const auto pushSum = [&] (const Signal32& block, SignalQueue<Signal32>& queue)
    {
        ippsCopy_32f (block.getChannel (0), analyzerSum.getChannel (0), samples);
        for (int c = 1; c < block.getNumChannels(); ++c)
            ippsAdd_32f_I (block.getChannel (c), analyzerSum.getChannel (0), samples);
        queue.pushCopy (analyzerSum);
    };
    if (input.getNumChannels() > 0)
    {
        pushSum (input, analyzerInputQueue);
        pushSum (processed, analyzerOutputQueue);
    }

    if (analyzerWindow.getNumSamples() != analyzerFrameSize)
    {
        analyzerWindow = WindowFunctions::generateBlackman (analyzerFrameSize, 0.16f);
        float total = 0.0f;
        ippsSum_32f (analyzerWindow.getChannel (0), analyzerFrameSize, &total);
        ippsMulC_32f_I (2.0f / total, analyzerWindow.getChannel (0), analyzerFrameSize);
    }
    const float smoothing = 1.0f
                            - MathEx::fromDecibel (-static_cast<float> (analyzerHopSize) * 48.0f
                                                   / static_cast<float> (sampleRate.load()));

    const int bins = analyzerFrameSize / 2 + 1;
    analyzerFrame.ensureDimensions (1, analyzerFrameSize);
    analyzerBins.ensureDimensions (1, bins);
    analyzerMagnitudes.ensureDimensions (1, bins);
    const auto analyse = [&] (SignalQueue<Signal32>& queue, Signal32& spectrum)
    {
        queue.peek (analyzerFrame);
        ippsMul_32f_I (analyzerWindow.getChannel (0), analyzerFrame.getChannel (0),
                       analyzerFrameSize);
        analyzerTransform.forwardReal (analyzerFrame, analyzerBins);
        float* magnitudes = analyzerMagnitudes.getChannel (0);
        ippsMagnitude_32fc (analyzerBins.getChannel (0), magnitudes, bins);
        float total = 0.0f;
        ippsSum_32f (magnitudes, bins, &total);
        if (!std::isfinite (total))
            return; // a frame of non-finite input would freeze the display at NaN
        if (!spectrum.hasStorage() || spectrum.getNumSamples() != bins)
        {
            spectrum = analyzerMagnitudes.copy();
            return;
        }
        float* smoothed = spectrum.getChannel (0);
        for (int k = 0; k < bins; ++k)
            smoothed[k] += smoothing * (magnitudes[k] - smoothed[k]);
    };
    while (analyzerInputQueue.getAvailable() > analyzerFrameSize)
    {
        analyse (analyzerInputQueue, inputSpectrum);
        analyse (analyzerOutputQueue, outputSpectrum);
        analyzerInputQueue.skip (analyzerHopSize);
        analyzerOutputQueue.skip (analyzerHopSize);
    }
}
} // namespace vesk::audio
