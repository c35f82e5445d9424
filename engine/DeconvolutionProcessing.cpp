#include "Deconvolution.h"
#include "Denormals.h"
#include "MathEx.h"

#include <cmath>
#include <map>
#include <mutex>

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
    const juce::ScopedLock lock (engineLock);
    audioThread = juce::Thread::getCurrentThreadId();

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

    if (estimationMode != holdMode && (secondsSinceFilterUpdate > 0.04 || snapshotStale))
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
    const int length = estimationLength();
    const int frameLength = 2 * (length + 1);
    const int hop = (length + 1) * std::clamp (hopMultiple, 1, 2);

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
        autocorrelationFrames = 0;
    }

    // Frames holding NaN or infinity are gated like silence, so they never poison the estimate.
    const float level = frame.getRmsLevel();
    if (!std::isfinite (level) || MathEx::fromDecibel (estimationThreshold) > level)
        return false;

    const int order = estimationLength() + 1;
    if (estimator.load() == Estimator::longTermSpectrum)
    {
        learnAutocorrelation (frame, order);
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

void Deconvolution::learnAutocorrelation (const Signal32& frame, int order)
{
    const int channels = frame.getNumChannels();
    const int samples = frame.getNumSamples();
    const int lags = order + 1; // as many as the recursion of this order reads
    const bool seedOnly = estimationMode != learnMode;
    if (seedOnly && autocorrelationFrames > 0)
        return; // modes 0 and 3 keep the first frame's model

    // A new filter length asks for other lags: the mean starts again.
    if (static_cast<int> (autocorrelationSum.size()) != lags)
        autocorrelationFrames = 0;
    if (autocorrelationFrames == 0)
        autocorrelationSum.assign (static_cast<std::size_t> (lags), 0.0);
    frameAutocorrelation.resize (static_cast<std::size_t> (lags));

    // Summed over channels and frames without normalising: louder frames weigh more, as they
    // do in the long-term spectrum. The model does not depend on the sum's scale.
    // A Blackman window: its leakage falls off steeply, where Hamming's far leakage fills every
    // band to about 55 dB under the loudest, which hides deep dips and empty bands from the
    // model. (A four-term Blackman-Harris window reached further down but blurred resonances
    // more; in the evaluation Blackman scored best of the three.)
    if (spectrumWindow.getNumSamples() != samples)
    {
        spectrumWindow.ensureDimensions (1, samples);
        float* w = spectrumWindow.getChannel (0);
        const double step = 2.0 * M_PI / std::max (samples - 1, 1);
        for (int n = 0; n < samples; ++n)
            w[n] = static_cast<float> (0.42 - 0.5 * std::cos (step * n)
                                       + 0.08 * std::cos (2.0 * step * n));
    }
    estimationFrame.ensureDimensions (channels, samples);
    for (int c = 0; c < channels; ++c)
    {
        float* windowed = estimationFrame.getChannel (c);
        if (windowed != frame.getChannel (c))
            ippsCopy_32f (frame.getChannel (c), windowed, samples);
        ippsMul_32f_I (spectrumWindow.getChannel (0), windowed, samples);
        linearPrediction.computeAutocorrelation (windowed, samples, frameAutocorrelation.data(),
                                                 lags);
        for (std::size_t k = 0; k < frameAutocorrelation.size(); ++k)
            autocorrelationSum[k] += frameAutocorrelation[k];
    }
    ++autocorrelationFrames;
    estimateFrameCount = autocorrelationFrames;
    sourceSampleRate = sampleRate;
    publishSourceSnapshot();
}

namespace
{
/** The normalised self-correlation of a Blackman window of `samples` samples, lags 0 .. lags-1:
    how much the window of a learning frame tapers each lag of the frame's autocorrelation. */
std::vector<double> blackmanTaper (int samples, std::size_t lags)
{
    std::vector<double> window (static_cast<std::size_t> (std::max (samples, 1)));
    const double step = 2.0 * M_PI / std::max (samples - 1, 1);
    for (std::size_t n = 0; n < window.size(); ++n)
        window[n] = 0.42 - 0.5 * std::cos (step * static_cast<double> (n))
                    + 0.08 * std::cos (2.0 * step * static_cast<double> (n));
    std::vector<double> taper (lags, 0.0);
    for (std::size_t k = 0; k < lags && k < window.size(); ++k)
        for (std::size_t n = 0; n + k < window.size(); ++n)
            taper[k] += window[n] * window[n + k];
    for (std::size_t k = lags; k-- > 0;)
        taper[k] /= taper[0];
    return taper;
}

/** Per lag: the taper of a frame four times as long, divided by that of the frames learnt.
    Frames of twice the model's length taper their far lags so much that the model's low end is
    blurred (a resonance at 110 Hz, a shelf at 300 Hz spread over an octave); four times the
    length resolved the evaluation's low colourations (white noise behind telephone shelves
    0.42 -> 0.23 dB) at no cost on the audio thread. Computed once per model length. */
std::vector<double> const& taperCompensation (std::size_t lags)
{
    static std::mutex guard;
    static std::map<std::size_t, std::vector<double>> made;
    const std::scoped_lock lock (guard);
    auto& compensation = made[lags];
    if (compensation.size() != lags)
    {
        // learnAutocorrelation's frames: twice the model's order, one lag more than the order.
        const int frame = 2 * static_cast<int> (std::max<std::size_t> (lags, 2) - 1);
        const auto learnt = blackmanTaper (frame, lags);
        const auto wanted = blackmanTaper (4 * frame, lags);
        compensation.resize (lags);
        for (std::size_t k = 0; k < lags; ++k)
            compensation[k] = wanted[k] / std::max (learnt[k], 1.0e-12);
    }
    return compensation;
}
} // namespace

Signal32 Deconvolution::modelOf (const std::vector<double>& autocorrelation, int order)
{
    std::vector<double> a (static_cast<std::size_t> (order), 0.0);
    Signal32 model (1, order, 0.0f);
    if (order < 1)
        return model;
    // A white floor 90 dB under the material's power keeps the recursion stable when the
    // spectrum spans more than double precision lets it resolve (deep cut-offs learnt through
    // a low-leakage window); nothing a listener could hear lies below it.
    std::vector<double> r (autocorrelation);
    const auto& compensation = taperCompensation (r.size());
    for (std::size_t k = 0; k < r.size(); ++k)
        r[k] *= compensation[k];
    if (!r.empty())
        r[0] *= 1.0 + 1.0e-9;
    if (static_cast<int> (r.size()) >= order + 1 && r[0] > 0.0
        && LinearPrediction::levinson (r.data(), a.data(), order - 1))
        for (int k = 0; k < order; ++k)
            model[0][k] = static_cast<float> (a[static_cast<std::size_t> (k)]);
    else
        model[0][0] = 1.0f; // nothing learnt, or a failed recursion: a flat envelope
    return model;
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
