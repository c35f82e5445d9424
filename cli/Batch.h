#pragma once

#include <juce_core/juce_core.h>

#include <string>
#include <vector>

/** One file of a run: where it is read, what the user calls it, where its result goes. */
struct BatchItem
{
    juce::File input;
    juce::String shownName; // the path the user gave, or the folder given and the file within
    juce::File output;
    juce::File plot, filter; // beside the output, when a run into a folder asks for them
};

/** Files a run takes from a folder: audio by content is checked when they are opened. */
bool looksLikeAudioFile (juce::File const& file);

/** Expands the inputs in the order given: a file stands for itself; a folder for the audio files
    in it (and in its sub-folders with `recursive`), sorted by name. With several results, or a
    folder among the inputs, `output` is a folder and each result keeps the path it had under
    the folder it came from, with its plot and filter beside it when wanted (a single result
    takes the paths the user gave for those). `extension` (".flac", say) is what results are
    written as; empty: as each input, WAV for what the tool cannot write. Throws
    UsageError for an input that does not exist or a folder with no audio. */
std::vector<BatchItem> planBatch (std::vector<std::string> const& inputs, juce::File const& output,
                                  bool recursive, bool wantsPlot, bool wantsFilter,
                                  juce::String const& extension = {});

/** Whether two paths name one file: by device and inode when both exist, else by the real
    folder they lead to and the name in it. Any thread. */
bool sameFile (juce::File const& a, juce::File const& b);

/** What stops a run before anything is written: an output that is also something the run reads
    (never allowed, --force or not), two results bound for one file, or an existing file without
    --force. Empty when all is well. */
juce::String checkOutputs (juce::Array<juce::File> const& reads,
                           juce::Array<juce::File> const& writes, bool force);
