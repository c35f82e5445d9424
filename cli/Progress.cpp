#include "Progress.h"

#include <cstdio>
#include <unistd.h>

namespace
{
juce::String clock (double seconds)
{
    const auto whole = static_cast<int> (seconds + 0.5);
    return juce::String (whole / 60) + ":" + juce::String (whole % 60).paddedLeft ('0', 2);
}
} // namespace

ProgressReport::Style ProgressReport::choose (bool quiet, bool lines)
{
    if (quiet)
        return Style::silent;
    if (lines)
        return Style::lines;
    return isatty (STDERR_FILENO) != 0 ? Style::terminal : Style::silent;
}

ProgressReport::ProgressReport (Style styleToUse, std::vector<FileProgress*> filesToWatch)
    : style (styleToUse), files (std::move (filesToWatch)), reported (files.size(), false),
      started (juce::Time::getMillisecondCounter())
{
}

void ProgressReport::update()
{
    const double elapsed = (juce::Time::getMillisecondCounter() - started) / 1000.0;
    if (style == Style::lines)
    {
        for (std::size_t i = 0; i < files.size(); ++i)
            if (!reported[i] && files[i]->done)
            {
                reported[i] = true;
                std::fprintf (stderr, "kelfiner: [%d/%d] %s %s at %s\n", static_cast<int> (i + 1),
                              static_cast<int> (files.size()), files[i]->name.toRawUTF8(),
                              files[i]->failed ? "failed" : "finished",
                              clock (elapsed).toRawUTF8());
            }
        std::fflush (stderr);
        return;
    }
    if (style != Style::terminal)
        return;

    double total = 0.0;
    const FileProgress* current = nullptr;
    int index = 0;
    for (std::size_t i = 0; i < files.size(); ++i)
    {
        total += files[i]->done ? 1.0 : files[i]->fraction.load();
        if (current == nullptr && !files[i]->done && files[i]->fraction > 0.0)
        {
            current = files[i];
            index = static_cast<int> (i) + 1;
        }
    }
    const double fraction = total / static_cast<double> (std::max<std::size_t> (files.size(), 1));
    juce::String line =
        juce::String (static_cast<int> (fraction * 100.0)).paddedLeft (' ', 3) + "%";
    if (current != nullptr)
        line << "  [" << index << "/" << static_cast<int> (files.size()) << "] " << current->name
             << ": " << current->phase.load();
    if (fraction > 0.02 && elapsed > 1.0)
        line << "  (" << clock (elapsed * (1.0 - fraction) / fraction) << " left)";
    // One terminal line: a long name is cut from the front, where folders repeat.
    if (line.length() > 79)
        line = "..." + line.getLastCharacters (76);
    std::fprintf (stderr, "\r%-79s", line.toRawUTF8());
    std::fflush (stderr);
}

void ProgressReport::finish()
{
    update();
    if (style == Style::terminal)
        std::fprintf (stderr, "\r%79s\r", "");
}
