#pragma once

#include "KelfinerAudioProcessor.h"
#include "LongTermSpectrum.h"

#include <juce_audio_formats/juce_audio_formats.h>

#include <atomic>
#include <functional>
#include <optional>
#include <vector>

/** What a user of the tool can set; the same as a plug-in user can. */
struct JobSettings
{
    std::optional<int> targetModel;
    /** The estimator, threshold and length asked for; none: the plug-in's defaults, or the
        preset's. */
    std::optional<vesk::audio::Estimator> estimator;
    std::optional<float> threshold, filterLength, masterGain;
    std::vector<std::pair<float, float>> emphasis; // frequency in Hz, level in percent
    juce::File preset, targetFilter, reference, saveFilter, plot;
    bool live = false;
    bool force = false;
    /** No bin lifted by more than this (dB); none: no limit. */
    std::optional<float> maximumBoostDb;
    /** The share of the correction applied, in percent of its dB. */
    float amountPercent = 100.0f;
    /** Outside this band (Hz) the correction is held flat; none: everywhere. */
    std::optional<std::pair<float, float>> rangeHz;
    /** Smoothing of the correction, in octaves; none: the tool's default for the estimator. */
    std::optional<float> smoothingOctaves;
    /** Bands that hold nothing (90 to 100 dB under the learnt spectrum's peak) are not lifted;
        none: as the defaults or the preset say. */
    std::optional<bool> spareEmptyBands;
    /** The correction follows the target only where the material departs from it (the engine's
        departuresOnly); false imposes the profile in full; none: as the defaults or the preset
        say. */
    std::optional<bool> departuresOnly;
    /** The output's integrated loudness is brought back to the input's. */
    bool matchLoudness = true;
    /** Instead, the output's integrated loudness is brought to this (LUFS). */
    std::optional<float> loudnessTargetLufs;
    /** The output's sample format: 16, 24 or 32 bits (32 is float); none: as the input's where
        the output format can hold it. Fixed-point results are TPDF-dithered. */
    std::optional<int> bits;
    /** Outputs keep their sample peaks at or below this (dBFS); none: off. */
    std::optional<float> ceilingDb = -1.0f;
};

/** The outcome of one file, for the summary line. */
struct JobResult
{
    bool ok = false;
    juce::String error;
    std::uint64_t learntFrames = 0;
    double learntSeconds = 0.0; // the material those frames stand for
    /** The applied correction's deepest cut and largest lift over the third-octave curve below,
        with every gain after it, and where they lie (Hz). */
    float correctionMinDb = 0.0f, correctionMaxDb = 0.0f;
    float correctionMinHz = 0.0f, correctionMaxHz = 0.0f;
    double deviationBeforeDb = 0.0, deviationAfterDb = 0.0;
    double loudnessInLufs = 0.0, loudnessOutLufs = 0.0;
    double gainDb = 0.0;                     // applied after the correction
    double peakReductionDb = 0.0;            // of that, what the peak ceiling took
    double boostHeldBackDb = 0.0;            // and what the maximum boost took
    juce::int64 samplesKeptUnderCeiling = 0; // that would have gone over it without
    juce::int64 nonFiniteSamples = 0;        // in the input, taken as silence
    juce::String inputDamage;                // what a damaged input lacked, in words
    juce::String settingsUsed; // the input, the target and every setting in force, in words
    juce::int64 silencedOutputSamples = 0;      // non-finite results written as silence
    double peakInDbfs = 0.0, peakOutDbfs = 0.0; // sample peaks
    /** The tonal correction as applied (gainDb included): (Hz, dB) at third-octave centres
        from 20 Hz to 20 kHz. */
    std::vector<std::pair<float, float>> correctionCurve;
};

/** Corrects one file offline with the plug-in's own processor: learns the whole file first,
    then processes it from the start with the learnt filter held (or, live, in one pass). With
    no output file it only measures: everything in the result, nothing written. */
class OfflineJob
{
public:
    OfflineJob (JobSettings settings, juce::File input, juce::File output);
    /** progress receives the phase ("learning", "measuring", "writing") and the share of the
        whole file's work done, 0..1; it is called on the thread that runs the job. */
    JobResult run (std::function<void (const char*, double)> const& progress);
    /** Learns a file's envelope into a filter (coefficients and rate). */
    static bool learnFilter (juce::File const& file, JobSettings const& settings,
                             vesk::audio::Signal32& coefficients, double& rate,
                             juce::String& error);

private:
    bool configure (KelfinerAudioProcessor& processor, juce::String& error) const;

    JobSettings settings;
    juce::File input, output;
};
