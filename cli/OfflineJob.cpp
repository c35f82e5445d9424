#include "OfflineJob.h"

#include "AudioInput.h"
#include "FilterFile.h"
#include "InterruptCleanup.h"
#include "LevelMeter.h"
#include "Plot.h"
#include "WindowFunctions.h"

#include <cmath>
#include <limits>

using vesk::audio::Deconvolution;
using vesk::audio::Signal32;

namespace
{
constexpr int blockSize = 4096;

/** Triangular (TPDF) dither of one step of the output's resolution: requantised without it, the
    correction's quiet tails would turn into distortion. Seeded, so runs stay reproducible.
    Zero bits: a float output, left alone. */
class TpdfDither
{
public:
    explicit TpdfDither (int bits)
        : step (bits > 0 ? static_cast<float> (std::ldexp (1.0, 1 - bits)) : 0.0f)
    {
    }
    void apply (juce::AudioBuffer<float>& buffer)
    {
        if (step == 0.0f)
            return;
        for (int c = 0; c < buffer.getNumChannels(); ++c)
        {
            float* samples = buffer.getWritePointer (c);
            for (int n = 0; n < buffer.getNumSamples(); ++n)
                samples[n] += (random.nextFloat() - random.nextFloat()) * step;
        }
    }

private:
    float step;
    juce::Random random{1};
};

Signal32 toSignal (juce::AudioBuffer<float> const& buffer, int samples)
{
    Signal32 signal (buffer.getNumChannels(), samples);
    for (int c = 0; c < buffer.getNumChannels(); ++c)
        vesk::audio::ippsCopy_32f (buffer.getReadPointer (c), signal.getChannel (c), samples);
    return signal;
}

bool usesLongTermSpectrum (JobSettings const& settings)
{
    return settings.estimator.value_or (vesk::audio::Estimator::longTermSpectrum)
           == vesk::audio::Estimator::longTermSpectrum;
}

/** The long-term spectrum's own defaults, chosen by measurement (README): a 1/3-octave smoothing
    of the correction, so that it follows the material's balance rather than the harmonics of
    whatever notes or voices were learnt (evaluation score 88 -> 89). */
constexpr float defaultSmoothingOctaves = 1.0f / 3.0f;

/** The model length asked for; else, without a preset, the long-term spectrum's default. Files
    are learnt whole, so the longer model's finer low end costs nothing in time to converge: in
    the evaluation it brought the reference-based score from 84 to 86. */
std::optional<float> defaultFilterLength (JobSettings const& settings)
{
    if (settings.filterLength)
        return settings.filterLength;
    if (settings.preset == juce::File() && usesLongTermSpectrum (settings))
        return 20.0f;
    return std::nullopt;
}

/** The threshold asked for; else, without a preset, the long-term spectrum's default: 50 dB
    under the file's own RMS level (-70 dBFS for material at -20 dBFS), so that a recording
    turned down is learnt as it would be at full level. The long-term spectrum's sum weighs quiet
    frames by their little energy anyway; gating them at the plug-in's -36 dB left out the quiet,
    often bright, parts of speech in one recording and not in the other (evaluation score
    86 -> 88). */
std::optional<float> defaultThreshold (JobSettings const& settings, juce::AudioFormatReader& reader)
{
    if (settings.threshold)
        return settings.threshold;
    if (settings.preset == juce::File() && usesLongTermSpectrum (settings))
        return static_cast<float> (std::clamp (rmsLevelDb (reader) - 50.0, -112.0, -12.0));
    return std::nullopt;
}

/** How the file or reference is learnt: the long-term spectrum unless the user asks for the
    original estimator (whatever a preset of the plug-in chose), with its threshold and length. */
void applyLearning (KelfinerAudioProcessor& processor, JobSettings const& settings,
                    juce::AudioFormatReader& reader)
{
    processor.getEngine().setEstimator (
        settings.estimator.value_or (vesk::audio::Estimator::longTermSpectrum));
    if (const auto threshold = defaultThreshold (settings, reader))
        processor.setCheckedParameterValue (Deconvolution::estimationThresholdIndex, *threshold,
                                            false);
    if (const auto length = defaultFilterLength (settings))
        processor.setCheckedParameterValue (Deconvolution::filterLengthIndex, *length, false);
}

juce::AudioFormat* formatFor (juce::AudioFormatManager& formats, juce::File const& file)
{
    for (auto* format : formats)
        if (format->canHandleFile (file) && format->canDoStereo())
            return format;
    return nullptr;
}
} // namespace

//==============================================================================
LongTermSpectrum::LongTermSpectrum (double rate)
    : sampleRate (rate), window (vesk::audio::WindowFunctions::generateHammingWindow (size)),
      frame (1, size), pending (1, size, 0.0f), sum (size / 2 + 1, 0.0)
{
}

void LongTermSpectrum::add (Signal32 const& block)
{
    // The channels are summed, then framed with half overlap.
    for (int done = 0; done < block.getNumSamples();)
    {
        const int count = std::min (size - pendingCount, block.getNumSamples() - done);
        float* target = pending[0] + pendingCount;
        vesk::audio::ippsCopy_32f (block[0] + done, target, count);
        for (int c = 1; c < block.getNumChannels(); ++c)
            vesk::audio::ippsAdd_32f_I (block[c] + done, target, count);
        pendingCount += count;
        done += count;
        if (pendingCount < size)
            continue;
        vesk::audio::ippsCopy_32f (pending[0], frame[0], size);
        vesk::audio::ippsMul_32f_I (window[0], frame[0], size);
        const auto bins = transform.forwardReal (frame);
        for (int k = 0; k <= size / 2; ++k)
            sum[static_cast<std::size_t> (k)] +=
                static_cast<double> (bins[0][k].re) * bins[0][k].re
                + static_cast<double> (bins[0][k].im) * bins[0][k].im;
        ++frames;
        vesk::audio::ippsMove_32f (pending[0] + size / 2, pending[0], size / 2);
        pendingCount = size / 2;
    }
}

std::vector<double> LongTermSpectrum::power() const
{
    std::vector<double> mean (sum);
    for (auto& p : mean)
        p /= std::max (frames, 1);
    return mean;
}

double tonalDeviation (std::vector<double> const& power, double rate,
                       std::vector<float> const& targetFrequencies,
                       Signal32 const& targetMagnitudes)
{
    const int size = static_cast<int> (power.size() - 1) * 2;
    std::vector<double> deviation;
    for (int k = -13; k <= 12; ++k)
    {
        const double centre = 1000.0 * std::pow (2.0, k / 3.0);
        if (centre < 49.0 || centre > 16500.0 || centre * std::pow (2.0, 1.0 / 6.0) > rate / 2)
            continue;
        const double lo = centre * std::pow (2.0, -1.0 / 6.0),
                     hi = centre * std::pow (2.0, 1.0 / 6.0);
        double level = 0.0, target = 0.0;
        int bins = 0, targetBins = 0;
        for (int b = static_cast<int> (std::ceil (lo * size / rate));
             b <= static_cast<int> (hi * size / rate); ++b)
            level += power[static_cast<std::size_t> (b)], ++bins;
        for (std::size_t b = 1; b < targetFrequencies.size(); ++b)
            if (targetFrequencies[b] >= lo && targetFrequencies[b] <= hi)
                target += static_cast<double> (targetMagnitudes[0][b]) * targetMagnitudes[0][b],
                    ++targetBins;
        if (bins == 0 || targetBins == 0 || level <= 0.0 || target <= 0.0)
            continue;
        deviation.push_back (10.0 * std::log10 (level / bins)
                             - 10.0 * std::log10 (target / targetBins));
    }
    if (deviation.empty())
        return 0.0;
    double mean = 0.0, squares = 0.0;
    for (double d : deviation)
        mean += d;
    mean /= static_cast<double> (deviation.size());
    for (double d : deviation)
        squares += (d - mean) * (d - mean);
    return std::sqrt (squares / static_cast<double> (deviation.size()));
}

//==============================================================================
OfflineJob::OfflineJob (JobSettings settingsToUse, juce::File in, juce::File out)
    : settings (std::move (settingsToUse)), input (std::move (in)), output (std::move (out))
{
}

bool OfflineJob::configure (KelfinerAudioProcessor& processor, juce::AudioFormatReader& reader,
                            juce::String& error) const
{
    auto& engine = processor.getEngine();
    if (settings.preset != juce::File() && !processor.importFromPresetFile (settings.preset))
    {
        error = "cannot read preset: " + settings.preset.getFullPathName();
        return false;
    }
    applyLearning (processor, settings, reader);
    Deconvolution::CorrectionLimits limits;
    limits.spareEmptyBands = settings.spareEmptyBands;
    limits.smoothingOctaves = settings.smoothingOctaves.value_or (
        usesLongTermSpectrum (settings) ? defaultSmoothingOctaves : 0.0f);
    if (settings.maximumBoostDb)
        limits.maximumBoostDb = *settings.maximumBoostDb;
    limits.amount = settings.amountPercent / 100.0f;
    if (settings.rangeHz)
        std::tie (limits.lowestHz, limits.highestHz) = *settings.rangeHz;
    engine.setCorrectionLimits (limits); // the tool matches loudness itself, by measurement
    if (settings.targetModel)
        processor.setCheckedParameterValue (Deconvolution::targetModelIndex,
                                            static_cast<float> (*settings.targetModel), false);
    if (settings.masterGain)
        processor.setCheckedParameterValue (Deconvolution::masterGainIndex, *settings.masterGain,
                                            false);
    if (!settings.emphasis.empty())
    {
        processor.setCheckedParameterValue (Deconvolution::enableEmphasisCurveIndex, 1.0f, false);
        auto points = settings.emphasis;
        std::sort (points.begin(), points.end());
        for (int i = 0; i < Deconvolution::numEmphasisPoints; ++i)
        {
            const bool used = i < static_cast<int> (points.size());
            processor.setCheckedParameterValue (Deconvolution::emphasisPointEnabledIndex + i,
                                                used ? 1.0f : 0.0f, false);
            if (used)
            {
                processor.setCheckedParameterValue (Deconvolution::emphasisPointFrequencyIndex + i,
                                                    points[static_cast<std::size_t> (i)].first,
                                                    false);
                processor.setCheckedParameterValue (Deconvolution::emphasisPointLevelIndex + i,
                                                    points[static_cast<std::size_t> (i)].second,
                                                    false);
            }
        }
    }

    Signal32 target;
    double targetRate = 0.0;
    if (settings.targetFilter != juce::File())
    {
        if (FilterFile::read (settings.targetFilter, target, targetRate) != FilterFile::Status::ok)
        {
            error = "not a filter file: " + settings.targetFilter.getFullPathName();
            return false;
        }
    }
    else if (settings.reference != juce::File())
    {
        if (!learnFilter (settings.reference, settings, target, targetRate, error))
            return false;
    }
    if (target.hasStorage())
    {
        processor.setCheckedParameterValue (Deconvolution::targetModelIndex,
                                            static_cast<float> (Deconvolution::custom), false);
        engine.setTargetFilter (target, targetRate);
    }
    return true;
}

bool OfflineJob::learnFilter (juce::File const& file, JobSettings const& settings,
                              Signal32& coefficients, double& rate, juce::String& error)
{
    auto reader = openReader (file, error);
    if (reader == nullptr)
        return false;
    // A processor of its own, so that the options pass the same checks as everywhere else.
    KelfinerAudioProcessor processor;
    processor.setNonRealtime (true);
    auto& engine = processor.getEngine();
    const auto channels = static_cast<int> (reader->numChannels);
    engine.setFormat ({channels, reader->sampleRate}, {channels, reader->sampleRate});
    applyLearning (processor, settings, *reader);
    juce::AudioBuffer<float> buffer (channels, blockSize);
    for (juce::int64 done = 0; done < reader->lengthInSamples; done += blockSize)
    {
        const auto count =
            static_cast<int> (std::min<juce::int64> (blockSize, reader->lengthInSamples - done));
        reader->read (&buffer, 0, count, done, true, true);
        engine.learn (toSignal (buffer, count));
    }
    engine.getSourceFilter (coefficients, rate);
    if (!coefficients.hasStorage())
    {
        error = "nothing above the learning threshold in " + file.getFullPathName();
        return false;
    }
    return true;
}

JobResult OfflineJob::run (std::function<void (const char*, double)> const& progress)
{
    JobResult result;
    auto reader = openReader (input, result.error);
    if (reader == nullptr)
        return result;

    juce::AudioFormatManager formats;
    formats.registerBasicFormats();
    auto* format = formatFor (formats, output);
    if (format == nullptr || output.hasFileExtension ("ogg"))
    {
        result.error = "cannot write this kind of file (use .wav, .aiff or .flac): "
                       + output.getFullPathName();
        return result;
    }
    if (output.exists() && !settings.force)
    {
        result.error = "output exists (use --force to replace it): " + output.getFullPathName();
        return result;
    }

    const auto channels = static_cast<int> (reader->numChannels);
    const double rate = reader->sampleRate;
    const auto length = reader->lengthInSamples;
    KelfinerAudioProcessor processor;
    processor.setNonRealtime (true); // files are processed inline, the same on every run
    const auto layout = juce::AudioChannelSet::canonicalChannelSet (channels);
    if (!processor.setBusesLayout ({{layout}, {layout}}))
    {
        result.error = "unsupported channel layout";
        return result;
    }
    if (!configure (processor, *reader, result.error))
        return result;
    auto& engine = processor.getEngine();
    // Nobody looks at the analysers here; they only change what is displayed, never the audio.
    processor.setCheckedParameterValue (Deconvolution::enableAnalyzersIndex, 0.0f, false);
    processor.prepareToPlay (rate, blockSize);

    juce::AudioBuffer<float> buffer (channels, blockSize);
    const double passes = settings.live ? 1.0 : 2.0;
    if (!settings.live)
    {
        for (juce::int64 done = 0; done < length; done += blockSize)
        {
            const auto count = static_cast<int> (std::min<juce::int64> (blockSize, length - done));
            reader->read (&buffer, 0, count, done, true, true);
            engine.learn (toSignal (buffer, count),
                          2); // edge-to-edge frames: the whole file, half the work
            progress ("learning", static_cast<double> (done + count)
                                      / static_cast<double> (std::max<juce::int64> (length, 1))
                                      / (passes + 1.0));
        }
        result.learntFrames = engine.getEstimateFrameCount();
        processor.setCheckedParameterValue (Deconvolution::estimationModeIndex,
                                            static_cast<float> (vesk::audio::holdMode),
                                            false); // hold what was learnt
        processor.prepareToPlay (rate, blockSize);
    }

    // Written beside the output and renamed over it at the end: never a partial output file.
    juce::TemporaryFile temporary (output);
    const InterruptCleanup cleanAudio (temporary.getFile());
    int bits = settings.bits.value_or (static_cast<int> (reader->bitsPerSample));
    if (settings.bits && !format->getPossibleBitDepths().contains (bits))
    {
        result.error = juce::String (bits) + "-bit samples cannot be written as "
                       + format->getFormatName() + ": " + output.getFullPathName();
        return result;
    }
    if (!format->getPossibleBitDepths().contains (bits))
        bits = format->getPossibleBitDepths().contains (24)
                   ? 24
                   : format->getPossibleBitDepths().getLast();
    std::unique_ptr<juce::AudioFormatWriter> writer;
    {
        auto stream = std::make_unique<juce::FileOutputStream> (temporary.getFile());
        if (!stream->openedOk())
        {
            result.error = "cannot write beside " + output.getFullPathName();
            return result;
        }
        writer.reset (format->createWriterFor (stream.get(), rate,
                                               static_cast<unsigned int> (channels), bits, {}, 0));
        if (writer == nullptr)
        {
            result.error =
                "cannot write this format at this rate and depth: " + output.getFullPathName();
            return result;
        }
        stream.release(); // the writer owns it now
    }

    // The whole file goes through twice: once to measure what the correction does to its level,
    // then again, with the gain that keeps loudness and peaks where they belong, to be written.
    // Offline processing is deterministic, so both passes give the same samples.
    LongTermSpectrum before (rate), after (rate);
    LevelMeter inputLevel (channels, rate), outputLevel (channels, rate);
    juce::MidiBuffer midi;
    const double totalPasses = passes + 1.0;
    const auto runThrough = [&] (double pass, std::function<bool (int)> const& each)
    {
        for (juce::int64 done = 0; done < length; done += blockSize)
        {
            const auto count = static_cast<int> (std::min<juce::int64> (blockSize, length - done));
            reader->read (&buffer, 0, count, done, true, true);
            if (!each (count))
                return false;
            progress (pass < passes ? "measuring" : "writing",
                      (pass
                       + static_cast<double> (done + count)
                             / static_cast<double> (std::max<juce::int64> (length, 1)))
                          / totalPasses);
        }
        return true;
    };
    const auto restart = [&]
    {
        if (settings.live)
            engine.setSourceFilter (Signal32(), 0.0); // learning starts again from nothing
        processor.prepareToPlay (rate, blockSize);
    };
    runThrough (passes - 1.0,
                [&] (int count)
                {
                    // NaN and infinity are silence from the start, for every measure too.
                    result.nonFiniteSamples += silenceNonFinite (buffer);
                    before.add (toSignal (buffer, count));
                    inputLevel.add (buffer, count);
                    juce::AudioBuffer<float> view (buffer.getArrayOfWritePointers(), channels,
                                                   count);
                    processor.processBlock (view, midi);
                    after.add (toSignal (buffer, count));
                    outputLevel.add (buffer, count);
                    return true;
                });
    if (settings.live)
        result.learntFrames = engine.getEstimateFrameCount();

    result.loudnessInLufs = inputLevel.integratedLoudness();
    result.loudnessOutLufs = outputLevel.integratedLoudness();
    double gainDb = 0.0;
    if (settings.loudnessTargetLufs && std::isfinite (result.loudnessOutLufs))
        gainDb = *settings.loudnessTargetLufs - result.loudnessOutLufs;
    else if (settings.matchLoudness && std::isfinite (result.loudnessInLufs)
             && std::isfinite (result.loudnessOutLufs))
        gainDb = result.loudnessInLufs - result.loudnessOutLufs;
    // Fixed-point files clip above full scale, and a float file clips as soon as anything
    // converts it: the gain comes down rather than a sample clip.
    const double peakDb = 20.0 * std::log10 (std::max (outputLevel.samplePeak(), 1.0e-20f));
    if (settings.ceilingDb && peakDb + gainDb > *settings.ceilingDb)
    {
        result.peakReductionDb = peakDb + gainDb - *settings.ceilingDb;
        gainDb = *settings.ceilingDb - peakDb;
    }
    result.gainDb = gainDb;
    result.loudnessOutLufs += gainDb;
    const auto gain = static_cast<float> (std::pow (10.0, gainDb / 20.0));
    // A sample is counted as kept under the ceiling when the gain without the ceiling would
    // have put it over.
    const auto overAt = settings.ceilingDb ? static_cast<float> (
                            std::pow (10.0, (*settings.ceilingDb - result.peakReductionDb) / 20.0))
                                           : std::numeric_limits<float>::infinity();
    TpdfDither dither (writer->isFloatingPoint() ? 0 : bits);

    restart();
    const bool written = runThrough (
        passes,
        [&] (int count)
        {
            juce::AudioBuffer<float> view (buffer.getArrayOfWritePointers(), channels, count);
            silenceNonFinite (view);
            processor.processBlock (view, midi);
            view.applyGain (gain);
            // Whatever happened upstream, no NaN or infinity is ever written.
            result.silencedOutputSamples += silenceNonFinite (view);
            if (result.peakReductionDb > 0.0)
                for (int c = 0; c < channels; ++c)
                    for (int n = 0; n < count; ++n)
                        result.samplesKeptUnderCeiling +=
                            std::abs (view.getSample (c, n)) > overAt ? 1 : 0;
            dither.apply (view);
            return writer->writeFromAudioSampleBuffer (buffer, 0, count);
        });
    if (!written)
    {
        result.error = "write failed (disk full?): " + output.getFullPathName();
        return result;
    }
    writer.reset(); // finishes the file (not every format's writer can flush before that)
    if (temporary.getFile().getSize() <= 0)
    {
        result.error = "write failed (disk full?): " + output.getFullPathName();
        return result;
    }
    const auto curve = engine.getFilterCurve();
    const auto frequencies = engine.getBinFrequencies();
    result.correctionMinDb = 1.0e9f;
    result.correctionMaxDb = -1.0e9f;
    for (int k = 1; k < curve.getNumSamples(); ++k)
        if (frequencies[static_cast<std::size_t> (k)] >= 20.0f)
        {
            const float db = 20.0f * std::log10 (std::max (curve[0][k], 1.0e-10f));
            result.correctionMinDb = std::min (result.correctionMinDb, db);
            result.correctionMaxDb = std::max (result.correctionMaxDb, db);
        }
    const auto target = engine.getTargetMagnitudes();
    result.deviationBeforeDb = tonalDeviation (before.power(), rate, frequencies, target);
    result.deviationAfterDb = tonalDeviation (after.power(), rate, frequencies, target);

    // Every output of a file is made beside its place first and moved there only when all of
    // them exist: a failure leaves none of them, and none of what was there before is lost.
    std::unique_ptr<juce::TemporaryFile> filterTemporary, plotTemporary;
    std::unique_ptr<InterruptCleanup> filterCleanup, plotCleanup;
    if (settings.saveFilter != juce::File())
    {
        filterTemporary = std::make_unique<juce::TemporaryFile> (settings.saveFilter);
        filterCleanup = std::make_unique<InterruptCleanup> (filterTemporary->getFile());
        Signal32 source;
        double sourceRate = 0.0;
        engine.getSourceFilter (source, sourceRate);
        if (!source.hasStorage()
            || !FilterFile::writeInPlace (filterTemporary->getFile(), source, sourceRate))
        {
            result.error = "cannot save the filter: " + settings.saveFilter.getFullPathName();
            return result;
        }
    }
    if (settings.plot != juce::File())
    {
        plotTemporary = std::make_unique<juce::TemporaryFile> (settings.plot);
        plotCleanup = std::make_unique<InterruptCleanup> (plotTemporary->getFile());
        // Drawn as written: the level guard's gain is part of the output and of the correction.
        auto asWritten = after.power();
        for (auto& power : asWritten)
            power *= static_cast<double> (gain) * gain;
        if (!drawPlot (plotTemporary->getFile(), before.power(), asWritten, rate, frequencies,
                       curve * gain))
        {
            result.error = "cannot write the plot: " + settings.plot.getFullPathName();
            return result;
        }
    }
    const InterruptDeferral moving;
    if (!temporary.overwriteTargetFileWithTemporary())
    {
        result.error = "cannot replace " + output.getFullPathName();
        return result;
    }
    if (filterTemporary != nullptr && !filterTemporary->overwriteTargetFileWithTemporary())
    {
        result.error = "cannot replace " + settings.saveFilter.getFullPathName();
        return result;
    }
    if (plotTemporary != nullptr && !plotTemporary->overwriteTargetFileWithTemporary())
    {
        result.error = "cannot replace " + settings.plot.getFullPathName();
        return result;
    }
    result.ok = true;
    return result;
}
