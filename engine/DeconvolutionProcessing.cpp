#include "Deconvolution.h"
#include "Denormals.h"
#include "MathEx.h"

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

namespace
{
/** Copies a block into the engine's channel count; a non-finite sample (NaN, infinity) enters
    as silence, so one bad sample cannot turn 50 ms of every channel into NaN. */
void copyFinite (Signal32 const& from, Signal32& to)
{
    const int samples = to.getNumSamples();
    for (int c = 0; c < to.getNumChannels(); ++c)
    {
        float* out = to.getChannel (c);
        if (c >= from.getNumChannels())
        {
            ippsZero_32f (out, samples);
            continue;
        }
        const float* in = from.getChannel (c);
        float check = 0.0f;
        for (int n = 0; n < samples; ++n)
        {
            out[n] = in[n];
            check += in[n] * 0.0f; // stays 0 unless a sample is NaN or infinite
        }
        if (std::isnan (check))
            for (int n = 0; n < samples; ++n)
                out[n] = std::isfinite (in[n]) ? in[n] : 0.0f;
    }
}
} // namespace

Signal32 Deconvolution::process (const Signal32& input)
{
    const ScopedFlushDenormals flushDenormals;
    const AudioThreadScope audioSide;
    const juce::ScopedLock lock (engineLock);

    const int samples = input.getNumSamples();
    const int channels = input.getNumChannels();
    outputBlock.ensureDimensions (channels, samples);
    if (sampleRate <= 0.0 || numChannels <= 0)
    {
        for (int c = 0; c < channels; ++c)
            ippsZero_32f (outputBlock.getChannel (c), samples);
        return outputBlock; // not formatted yet: nothing to learn from and no filter to run
    }

    installPendingResponse();
    if (designedSinceBlock.exchange (false))
        secondsSinceFilterUpdate = 0.0; // a design made elsewhere restarts the pacing

    inputBlock.ensureDimensions (numChannels, samples);
    copyFinite (input, inputBlock);
    feedEstimation (inputBlock, 1);

    // Held, the last frames learnt still reach one final design.
    if ((estimationMode != holdMode && secondsSinceFilterUpdate > 0.04) || snapshotStale
        || (estimationMode == holdMode && unpublishedFrames))
        requestDesign();
    secondsSinceFilterUpdate += samples / sampleRate;

    const auto filtered = correctionFilter.process (inputBlock);

    // The gain moves over the block when it changed, so automating it does not click.
    const float gain = MathEx::fromDecibel (masterGain);
    const float start = realtime.load() ? appliedGain : gain;
    appliedGain = gain;
    for (int c = 0; c < channels; ++c)
    {
        float* out = outputBlock.getChannel (c);
        if (c >= numChannels)
        {
            ippsZero_32f (out, samples);
            continue;
        }
        ippsCopy_32f (filtered.getChannel (c), out, samples);
        if (start == gain)
        {
            ippsMulC_32f_I (gain, out, samples);
            continue;
        }
        const float step = (gain - start) / static_cast<float> (samples);
        for (int n = 0; n < samples; ++n)
            out[n] *= start + step * static_cast<float> (n + 1);
    }

    if (analyzersEnabled)
        updateAnalyzers (inputBlock, outputBlock);
    return outputBlock;
}

void Deconvolution::feedEstimation (const Signal32& input, int hopMultiple)
{
    // The long-term spectrum's frames always overlap by half: taken edge to edge, its Hann
    // window would leave the samples at their joins out of the mean (on speech that changed the
    // learnt spectrum by up to 2 dB), and its frames cost little anyway.
    const bool spectral = estimator.load() == Estimator::longTermSpectrum;
    const int frameLength = spectral ? spectrumFrameLength() : 2 * (estimationLength() + 1);
    const int hop = frameLength / 2 * (spectral ? 1 : std::clamp (hopMultiple, 1, 2));

    // The queue's ring holds a frame and a piece of this size; the frames taken are the same
    // whatever the pieces.
    const int total = input.getNumSamples();
    for (int done = 0; done < total || (total == 0 && done == 0);)
    {
        const int piece = std::min (queueChunk, total - done);
        if (piece > 0)
            inputQueue.push (input, done, piece);
        done += std::max (piece, 1);
        while (inputQueue.getAvailable() > frameLength)
        {
            // Holding (mode 2) learns nothing from a frame, so it is not even copied out.
            if (estimationMode != holdMode)
            {
                estimationFrame.ensureDimensions (inputQueue.getChannels(), frameLength);
                inputQueue.peek (estimationFrame);
                updateEstimate (estimationFrame);
            }
            inputQueue.skip (hop);
        }
    }
}

void Deconvolution::learn (const Signal32& input, int hopMultiple)
{
    const ScopedFlushDenormals flushDenormals;
    const juce::ScopedLock lock (engineLock);
    if (sampleRate <= 0.0 || numChannels <= 0)
        return;
    inputBlock.ensureDimensions (numChannels, input.getNumSamples());
    copyFinite (input, inputBlock);
    feedEstimation (inputBlock, hopMultiple);
    publishSourceSnapshot();
}

bool Deconvolution::updateEstimate (const Signal32& frame)
{
    const juce::ScopedLock lock (engineLock);
    if (estimationMode == holdMode)
        return false;
    if (restartEstimate.exchange (false))
    {
        estimateFrameCount = 0;
        spectrumFrames = 0;
        levelPowerSum = 0.0;
        levelFrames = 0;
    }

    // Frames holding NaN or infinity are gated like silence, so they never poison the estimate.
    const float level = frame.getRmsLevel();
    if (!std::isfinite (level))
        return false;
    double gate = MathEx::fromDecibel (estimationThreshold);
    if (relativeThreshold.load())
    {
        // Digital silence (under -140 dBFS) neither counts towards the level nor is learnt.
        constexpr double silence = 1.0e-7;
        if (level > silence)
        {
            levelPowerSum += static_cast<double> (level) * level;
            ++levelFrames;
        }
        gate = std::max (silence, gate
                                      * std::sqrt (levelPowerSum
                                                   / static_cast<double> (
                                                       std::max<std::uint64_t> (levelFrames, 1))));
    }
    if (gate > level)
        return false;

    const int order = estimationLength() + 1;
    if (estimator.load() == Estimator::longTermSpectrum)
    {
        learnSpectrum (frame);
        return true;
    }

    const int channels = frame.getNumChannels();
    const int samples = frame.getNumSamples();
    if (estimationWindow.getNumSamples() != samples
        || estimationWindow.getNumChannels() != channels)
    {
        // Made in place: the storage was sized for the longest frame.
        estimationWindow.ensureDimensions (channels, samples);
        for (int c = 0; c < channels; ++c)
        {
            ippsSet_32f (1.0f, estimationWindow.getChannel (c), samples);
            ippsWinHamming_32f_I (estimationWindow.getChannel (c), samples);
        }
    }

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

    const int learnt = sourceEstimate.hasStorage() ? sourceEstimate.getNumSamples() : 0;
    if (learnt == 0)
    {
        sourceEstimate.ensureDimensions (1, order);
        ippsCopy_32f (sum, sourceEstimate.getChannel (0), order);
        estimateFrameCount = 1;
        loadedModelSeconds = std::numeric_limits<double>::infinity();
    }
    else if (learnt != order)
    {
        // The filter length changed while learning: carry the estimate over, cut or zero-extended.
        sourceEstimate.ensureDimensions (1, order);
        if (order > learnt)
            ippsZero_32f (sourceEstimate.getChannel (0) + learnt, order - learnt);
    }

    if (estimationMode == learnMode)
    {
        // The seeded first frame is averaged with itself: it weighs twice, as it always has.
        const auto n = static_cast<float> (estimateFrameCount.load());
        const float divisor = n + 1.0f;
        float* estimate = sourceEstimate.getChannel (0);
        for (int k = 0; k < order; ++k)
            estimate[k] = (estimate[k] * n + sum[k]) / divisor;
        ++estimateFrameCount;
    }
    sourceSampleRate = sampleRate;
    publishSourceSnapshot();
    return true;
}

void Deconvolution::analyse (FrameQueue& queue, Signal32& spectrum, bool& valid, float smoothing)
{
    const int bins = analyzerFrameSize / 2 + 1;
    queue.peek (analyzerFrame);
    ippsMul_32f_I (analyzerWindow.getChannel (0), analyzerFrame.getChannel (0), analyzerFrameSize);
    analyzerTransform.forwardReal (analyzerFrame, analyzerBins);
    float* magnitudes = analyzerMagnitudes.getChannel (0);
    ippsMagnitude_32fc (analyzerBins.getChannel (0), magnitudes, bins);
    float total = 0.0f;
    ippsSum_32f (magnitudes, bins, &total);
    if (!std::isfinite (total))
        return; // a frame of overflowing input would freeze the display at NaN
    float* smoothed = spectrum.getChannel (0);
    if (!valid)
    {
        ippsCopy_32f (magnitudes, smoothed, bins);
        valid = true;
        return;
    }
    for (int k = 0; k < bins; ++k)
        smoothed[k] += smoothing * (magnitudes[k] - smoothed[k]);
}

void Deconvolution::updateAnalyzers (const Signal32& input, const Signal32& processed)
{
    const float smoothing = 1.0f
                            - MathEx::fromDecibel (-static_cast<float> (analyzerHopSize) * 48.0f
                                                   / static_cast<float> (sampleRate.load()));
    const int total = input.getNumSamples();
    for (int done = 0; done < total || (total == 0 && done == 0);)
    {
        const int piece = std::min (queueChunk, total - done);
        if (piece > 0 && input.getNumChannels() > 0)
        {
            const auto pushSum = [&] (const Signal32& block, FrameQueue& queue)
            {
                analyzerSum.ensureDimensions (1, piece);
                float* sum = analyzerSum.getChannel (0);
                ippsCopy_32f (block.getChannel (0) + done, sum, piece);
                for (int c = 1; c < block.getNumChannels(); ++c)
                    ippsAdd_32f_I (block.getChannel (c) + done, sum, piece);
                queue.push (analyzerSum);
            };
            pushSum (input, analyzerInputQueue);
            pushSum (processed, analyzerOutputQueue);
        }
        done += std::max (piece, 1);
        while (analyzerInputQueue.getAvailable() > analyzerFrameSize)
        {
            analyse (analyzerInputQueue, inputSpectrum, inputSpectrumValid, smoothing);
            analyse (analyzerOutputQueue, outputSpectrum, outputSpectrumValid, smoothing);
            analyzerInputQueue.skip (analyzerHopSize);
            analyzerOutputQueue.skip (analyzerHopSize);
        }
    }
}
} // namespace vesk::audio
