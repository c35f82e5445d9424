#pragma once

#include "OfflineJob.h"

/** What a run says about one file: the warnings, the summary line and the report entry all come
    from the same result, so that they never disagree. */
juce::StringArray warningsFor (JobResult const& result);

/** One file's summary line, naming the input as the user gave it; no output: measured only. */
juce::String summaryLine (juce::String const& shownName, juce::File const& output,
                          JobResult const& result);

/** The applied correction's largest lift and deepest cut with their frequencies, as the summary
    and the plot say them: "+3.1 dB at 8 kHz, -4.0 dB at 160 Hz". */
juce::String describeExtremes (JobResult const& result);

/** A plot's title: the file, the target (a profile, a reference or a filter file) and the
    settings that shape the correction. */
juce::String describeRun (juce::File const& input, JobSettings const& settings,
                          vesk::audio::Deconvolution& engine);

/** Collects the files of a run and writes them as JSON (--report). Main thread only. */
class JsonReport
{
public:
    void add (juce::String const& shownName, juce::File const& output, JobResult const& result);
    /** Written beside the file and moved over it, as every output of the tool is. */
    bool write (juce::File const& file, juce::String& error) const;

private:
    juce::Array<juce::var> files;
};
