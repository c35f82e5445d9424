#pragma once

#include <juce_core/juce_core.h>

#include <cstddef>

/** Files from outside (presets, filters, licence keys, the stored licence, audio) are opened
    only when they are regular files once links are followed: a FIFO blocks whoever opens it, and
    a device or a /proc file reports no size and may never end, so a size check alone does not
    bound what is read. */
namespace regularFile
{
/** True when file is a regular file (links followed); otherwise false and, when asked, why in
    words ("does not exist", "is a directory", "is not a regular file (a FIFO, a device or a
    socket)"). Any thread. */
bool check (const juce::File& file, juce::String* whyNot = nullptr);

/** Reads a whole regular file of at most maximumBytes into data. The read itself is bounded,
    and the file opened is checked again, so a file swapped for a device after the check is
    refused too. False (data empty, whyNot filled when asked) otherwise. Any thread. */
bool read (const juce::File& file, std::size_t maximumBytes, juce::MemoryBlock& data,
           juce::String* whyNot = nullptr);
} // namespace regularFile
