#include "OfflineJob.h"

#include "AudioInput.h"
#include "FilterFile.h"
#include "FlacFormat.h"
#include "InterruptCleanup.h"
#include "LevelMeter.h"
#include "PendingOutput.h"
#include "Plot.h"
#include "RegularFile.h"
#include "Report.h"
#include "WindowFunctions.h"

#include <cmath>
#include <limits>

using vesk::audio::Deconvolution;
using vesk::audio::Signal32;

namespace
{
constexpr int blockSize = 4096;

Signal32 toSignal (juce::AudioBuffer<float> const& buffer, int samples)
{
    Signal32 signal (buffer.getNumChannels(), samples);
    for (int c = 0; c < buffer.getNumChannels(); ++c)
        vesk::audio::ippsCopy_32f (buffer.getReadPointer (c), signal.getChannel (c), samples);
    return signal;
}

/** How much material the learnt frames stand for. They overlap by half, except the original
    estimator's while a whole file is learnt first (edge to edge). */
double learntSeconds (Deconvolution& engine, std::uint64_t frames, bool wholeFileFirst)
{
    const bool overlapping =
        !wholeFileFirst || engine.getEstimator() == vesk::audio::Estimator::longTermSpectrum;
    const double hop = engine.getEstimationFrameLength() / (overlapping ? 2.0 : 1.0);
    return static_cast<double> (frames) * hop / std::max (engine.getSampleRate(), 1.0);
}

/** How the file or reference is learnt: as the plug-in's defaults or the preset say, changed
    only where the user asked. */
void applyLearning (KelfinerAudioProcessor& processor, JobSettings const& settings)
{
    if (settings.estimator)
        processor.getEngine().setEstimator (*settings.estimator);
    if (settings.threshold)
        processor.setCheckedParameterValue (
            EngineParameterId (Deconvolution::estimationThresholdIndex), *settings.threshold,
            false);
    if (settings.filterLength)
        processor.setCheckedParameterValue (EngineParameterId (Deconvolution::filterLengthIndex),
                                            *settings.filterLength, false);
}

} // namespace

//==============================================================================
OfflineJob::OfflineJob (JobSettings settingsToUse, juce::File in, juce::File out)
    : settings (std::move (settingsToUse)), input (std::move (in)), output (std::move (out))
{
}

bool OfflineJob::configure (KelfinerAudioProcessor& processor, juce::String& error) const
{
    auto& engine = processor.getEngine();
    if (settings.preset != juce::File() && !processor.importFromPresetFile (settings.preset))
    {
        error = "cannot read preset: " + settings.preset.getFullPathName();
        return false;
    }
    applyLearning (processor, settings);
    // The plug-in's defaults (a new instance's, the "Reset" program's) or the preset's, with
    // what the user changed.
    auto limits = engine.getCorrectionLimits();
    if (settings.spareEmptyBands)
        limits.spareEmptyBands = *settings.spareEmptyBands;
    if (settings.departuresOnly)
        limits.departuresOnly = *settings.departuresOnly;
    if (settings.smoothingOctaves)
        limits.smoothingOctaves = *settings.smoothingOctaves;
    if (settings.maximumBoostDb)
        limits.maximumBoostDb = *settings.maximumBoostDb;
    limits.amount = settings.amountPercent / 100.0f;
    if (settings.rangeHz)
        std::tie (limits.lowestHz, limits.highestHz) = *settings.rangeHz;
    engine.setCorrectionLimits (limits);
    if (settings.targetModel)
        processor.setCheckedParameterValue (EngineParameterId (Deconvolution::targetModelIndex),
                                            static_cast<float> (*settings.targetModel), false);
    if (settings.masterGain)
        processor.setCheckedParameterValue (EngineParameterId (Deconvolution::masterGainIndex),
                                            *settings.masterGain, false);
    if (!settings.emphasis.empty())
    {
        processor.setCheckedParameterValue (
            EngineParameterId (Deconvolution::enableEmphasisCurveIndex), 1.0f, false);
        auto points = settings.emphasis;
        std::sort (points.begin(), points.end());
        for (int i = 0; i < Deconvolution::numEmphasisPoints; ++i)
        {
            const bool used = i < static_cast<int> (points.size());
            processor.setCheckedParameterValue (
                EngineParameterId (Deconvolution::emphasisPointEnabledIndex + i),
                used ? 1.0f : 0.0f, false);
            if (used)
            {
                processor.setCheckedParameterValue (
                    EngineParameterId (Deconvolution::emphasisPointFrequencyIndex + i),
                    points[static_cast<std::size_t> (i)].first, false);
                processor.setCheckedParameterValue (
                    EngineParameterId (Deconvolution::emphasisPointLevelIndex + i),
                    points[static_cast<std::size_t> (i)].second, false);
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
        processor.setCheckedParameterValue (EngineParameterId (Deconvolution::targetModelIndex),
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
    if (settings.preset != juce::File())
        processor.importFromPresetFile (settings.preset);
    auto& engine = processor.getEngine();
    const auto channels = static_cast<int> (reader->numChannels);
    engine.setFormat ({channels, reader->sampleRate}, {channels, reader->sampleRate});
    applyLearning (processor, settings);
    juce::AudioBuffer<float> buffer (channels, blockSize);
    for (juce::int64 done = 0; done < reader->lengthInSamples; done += blockSize)
    {
        const auto count =
            static_cast<int> (std::min<juce::int64> (blockSize, reader->lengthInSamples - done));
        reader->read (&buffer, 0, count, done, true, true);
        silenceNonFinite (buffer, largestInputSample);
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

namespace
{

double decibels (double amplitude) { return 20.0 * std::log10 (std::max (amplitude, 1.0e-20)); }

/** The correction at third-octave centres from 20 Hz to 20 kHz with the gain after it, and its
    deepest cut and largest lift there: what the plot draws and the summary says. */
void describeCorrection (Signal32 const& curve, double rate, double gainDb, JobResult& result)
{
    result.correctionCurve.clear();
    const int bins = curve.getNumSamples();
    for (int band = -17; band <= 13 && bins > 1; ++band)
    {
        const double centre = 1000.0 * std::pow (10.0, band / 10.0);
        if (centre >= rate / 2.0)
            break;
        const auto k = std::clamp (
            static_cast<int> (std::ceil (centre / (rate / 2.0) * (bins - 1))), 1, bins - 1);
        result.correctionCurve.emplace_back (static_cast<float> (centre),
                                             static_cast<float> (decibels (curve[0][k]) + gainDb));
    }
    result.correctionMinDb = result.correctionMaxDb = 0.0f;
    for (auto const& [hz, db] : result.correctionCurve)
    {
        if (result.correctionMinHz == 0.0f || db < result.correctionMinDb)
            result.correctionMinDb = db, result.correctionMinHz = hz;
        if (result.correctionMaxHz == 0.0f || db > result.correctionMaxDb)
            result.correctionMaxDb = db, result.correctionMaxHz = hz;
    }
}

/** The largest rise of a third-octave band from input to output (dB), over the bands that hold
    something: within 80 dB of the input's loudest band. */
double largestLift (LongTermSpectrum const& before, LongTermSpectrum const& after)
{
    const auto in = thirdOctaveLevels (before.power(), before.getSampleRate());
    const auto out = thirdOctaveLevels (after.power(), after.getSampleRate());
    double loudest = -HUGE_VAL, lift = -HUGE_VAL;
    for (auto const& band : in)
        loudest = std::max (loudest, band.second);
    for (std::size_t b = 0; b < in.size() && b < out.size(); ++b)
        if (in[b].second > loudest - 80.0 && std::isfinite (out[b].second))
            lift = std::max (lift, out[b].second - in[b].second);
    return std::isfinite (lift) ? lift : 0.0;
}
} // namespace

JobResult OfflineJob::run (std::function<void (const char*, double)> const& progress)
{
    JobResult result;
    auto reader = openReader (input, result.error);
    if (reader == nullptr)
        return result;
    result.inputDamage = FlacFormat::damageOf (*reader);
    const bool writes = output != juce::File();
    PendingOutput pending;
    if (writes && !openOutput (output, settings, *reader, pending, result.error))
        return result;

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
    if (!configure (processor, result.error))
        return result;
    auto& engine = processor.getEngine();
    // The master gain (--gain, or a preset's) comes after the loudness stage below, so that it
    // changes the level in every loudness mode; the processor runs without it.
    const double masterGainDb = engine.getParameterValue (Deconvolution::masterGainIndex);
    processor.setCheckedParameterValue (EngineParameterId (Deconvolution::masterGainIndex), 0.0f,
                                        false);
    // Nobody looks at the analysers here; they only change what is displayed, never the audio.
    processor.setCheckedParameterValue (EngineParameterId (Deconvolution::enableAnalyzersIndex),
                                        0.0f, false);
    processor.prepareToPlay (rate, blockSize);

    juce::AudioBuffer<float> buffer (channels, blockSize);
    const double passes = (settings.live ? 1.0 : 2.0) - (writes ? 0.0 : 1.0);
    const double totalPasses = passes + 1.0;
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
                                      / totalPasses);
        }
        result.learntFrames = engine.getEstimateFrameCount();
        result.learntSeconds = learntSeconds (engine, result.learntFrames, true);
        processor.setCheckedParameterValue (EngineParameterId (Deconvolution::estimationModeIndex),
                                            static_cast<float> (vesk::audio::holdMode),
                                            false); // hold what was learnt
        processor.prepareToPlay (rate, blockSize);
    }

    // The whole file goes through twice: once to measure what the correction does to its level,
    // then again, with the gain that keeps loudness and peaks where they belong, to be written.
    // Offline processing is deterministic, so both passes give the same samples.
    LongTermSpectrum before (rate), after (rate);
    LevelMeter inputLevel (channels, rate), outputLevel (channels, rate);
    juce::MidiBuffer midi;
    const double measuring = settings.live ? 0.0 : 1.0;
    const auto runThrough = [&] (double pass, std::function<bool (int)> const& each)
    {
        for (juce::int64 done = 0; done < length; done += blockSize)
        {
            const auto count = static_cast<int> (std::min<juce::int64> (blockSize, length - done));
            reader->read (&buffer, 0, count, done, true, true);
            if (!each (count))
                return false;
            progress (pass == measuring ? "measuring" : "writing",
                      (pass
                       + static_cast<double> (done + count)
                             / static_cast<double> (std::max<juce::int64> (length, 1)))
                          / totalPasses);
        }
        return true;
    };
    runThrough (measuring,
                [&] (int count)
                {
                    // NaN and infinity are silence from the start, for every measure too.
                    result.nonFiniteSamples += silenceNonFinite (buffer, largestInputSample);
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
    {
        result.learntFrames = engine.getEstimateFrameCount();
        result.learntSeconds = learntSeconds (engine, result.learntFrames, false);
    }

    result.loudnessInLufs = inputLevel.integratedLoudness();
    result.loudnessOutLufs = outputLevel.integratedLoudness();
    double gainDb = 0.0;
    if (settings.loudnessTargetLufs && std::isfinite (result.loudnessOutLufs))
        gainDb = *settings.loudnessTargetLufs - result.loudnessOutLufs;
    else if (settings.matchLoudness && std::isfinite (result.loudnessInLufs)
             && std::isfinite (result.loudnessOutLufs))
        gainDb = result.loudnessInLufs - result.loudnessOutLufs;
    gainDb += masterGainDb;
    // No band ends more than the maximum boost above where it was, whatever the gains after the
    // correction ask for.
    const auto limits = engine.getCorrectionLimits();
    if (std::isfinite (limits.maximumBoostDb))
    {
        const double allowed = limits.maximumBoostDb - largestLift (before, after);
        if (gainDb > allowed)
        {
            result.boostHeldBackDb = gainDb - allowed;
            gainDb = allowed;
        }
    }
    // Fixed-point files clip above full scale, and a float file clips as soon as anything
    // converts it: the gain comes down rather than a sample clip.
    const double peakDb = decibels (outputLevel.samplePeak());
    if (settings.ceilingDb && peakDb + gainDb > *settings.ceilingDb)
    {
        result.peakReductionDb = peakDb + gainDb - *settings.ceilingDb;
        gainDb = *settings.ceilingDb - peakDb;
    }
    result.gainDb = gainDb;
    result.loudnessOutLufs += gainDb;
    result.peakInDbfs = decibels (inputLevel.samplePeak());
    result.peakOutDbfs = peakDb + gainDb;
    const auto gain = static_cast<float> (std::pow (10.0, gainDb / 20.0));

    const auto curve = engine.getFilterCurve();
    const auto frequencies = engine.getBinFrequencies();
    const auto target = engine.getTargetMagnitudes();
    describeCorrection (curve, rate, gainDb, result);
    result.deviationBeforeDb = tonalDeviation (before.power(), rate, frequencies, target);
    result.deviationAfterDb = tonalDeviation (after.power(), rate, frequencies, target);
    // What the run did, in the words the plot's title uses: the report records it too.
    result.settingsUsed = describeRun (input, settings, engine);
    if (!writes)
    {
        result.ok = true; // measured and reported, nothing written
        return result;
    }

    if (settings.live)
        engine.setSourceFilter (Signal32(), 0.0); // learning starts again from nothing
    processor.prepareToPlay (rate, blockSize);
    // A sample is counted as kept under the ceiling when the gain without the ceiling would
    // have put it over.
    const auto overAt = settings.ceilingDb ? static_cast<float> (
                            std::pow (10.0, (*settings.ceilingDb - result.peakReductionDb) / 20.0))
                                           : std::numeric_limits<float>::infinity();
    TpdfDither dither (pending.writer->isFloatingPoint() ? 0 : pending.bits);
    const bool written = runThrough (
        passes,
        [&] (int count)
        {
            juce::AudioBuffer<float> view (buffer.getArrayOfWritePointers(), channels, count);
            silenceNonFinite (view, largestInputSample);
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
            return pending.writer->writeFromAudioSampleBuffer (buffer, 0, count);
        });
    pending.writer.reset(); // finishes the file (not every format's writer can flush before that)
    // What a writer leaves unwritten when its stream is closed (the last block, the header)
    // fails silently: the file is read back, and must hold every sample it was given.
    {
        juce::String unreadable;
        const auto check = openReader (pending.temporary->getFile(), unreadable);
        if (!written || check == nullptr || check->lengthInSamples != length
            || check->numChannels != reader->numChannels)
        {
            result.error = "write failed (disk full?): " + output.getFullPathName();
            return result;
        }
    }

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
        const PlotData plotted{before.power(),
                               asWritten,
                               rate,
                               frequencies,
                               curve * gain,
                               target,
                               result.settingsUsed,
                               describeExtremes (result)};
        if (!drawPlot (plotTemporary->getFile(), plotted))
        {
            result.error = "cannot write the plot: " + settings.plot.getFullPathName();
            return result;
        }
    }
    const InterruptDeferral moving;
    juce::String whyNot;
    if (!regularFile::moveIntoPlace (pending.temporary->getFile(), output, settings.force, &whyNot))
    {
        result.error = output.getFullPathName() + " " + whyNot;
        return result;
    }
    if (filterTemporary != nullptr
        && !regularFile::moveIntoPlace (filterTemporary->getFile(), settings.saveFilter,
                                        settings.force, &whyNot))
    {
        result.error = settings.saveFilter.getFullPathName() + " " + whyNot;
        return result;
    }
    if (plotTemporary != nullptr
        && !regularFile::moveIntoPlace (plotTemporary->getFile(), settings.plot, settings.force,
                                        &whyNot))
    {
        result.error = settings.plot.getFullPathName() + " " + whyNot;
        return result;
    }
    result.ok = true;
    return result;
}
