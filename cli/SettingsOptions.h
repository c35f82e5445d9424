#pragma once

#include "CommandLine.h"
#include "OfflineJob.h"

#include <optional>
#include <string>
#include <vector>

/** The settings options as typed, before any check. One command takes the groups it means. */
struct SettingsOptions
{
    std::optional<std::string> target, targetFilter, reference, estimator, threshold, smoothing,
        filterLength, gain, preset, saveFilter, plot, maxBoost, loudness, ceiling, bits, format,
        amount, range;
    std::vector<std::string> emphasis;
    bool live = false, liftEmptyBands = false, imposeTarget = false, force = false;

    /** How the learning works: --estimator, --threshold, --filter-length, --preset. */
    void addLearning (CLI::App& command);
    /** What the correction aims at, how far it goes and the level of the result. */
    void addCorrection (CLI::App& command);
    /** What a run writes beside the audio, and how it learns a file: --save-filter, --plot,
        --live. */
    void addFileOutputs (CLI::App& command);
    void addForce (CLI::App& command);
    /** --bits and --format: what the results are written as. */
    void addOutputFormat (CLI::App& command);

    /** The extension --format asks for (".wav", ".flac", ".aiff"); empty: as the input's. */
    juce::String outputExtension() const;

    /** Every value checked (numbers against the plug-in's parameter table or the tool's own
        ranges, names against their lists, options that contradict each other refused); the
        first problem is a UsageError. */
    JobSettings toJobSettings() const;
};
