#pragma once

#include <juce_core/juce_core.h>

#include <atomic>
#include <vector>

/** Where one file stands; written by its job's thread, read by the main thread. */
struct FileProgress
{
    juce::String name;
    std::atomic<const char*> phase{"waiting"};
    std::atomic<double> fraction{0.0}; // of the whole file's work
    std::atomic<bool> done{false};
    std::atomic<bool> failed{false}; // set before done
};

/** How a run tells where it is: a live line on a terminal (file, phase, time left), one line per
    finished file for logs (--progress), or nothing (-q, or output to a file without
    --progress). Main thread only. */
class ProgressReport
{
public:
    enum class Style
    {
        silent,
        terminal,
        lines
    };
    static Style choose (bool quiet, bool lines);

    ProgressReport (Style style, std::vector<FileProgress*> files);
    /** Redraws the live line and prints a line for every file that finished since. */
    void update();
    /** Clears the live line. */
    void finish();

private:
    Style style;
    std::vector<FileProgress*> files;
    std::vector<bool> reported;
    juce::uint32 started;
};
