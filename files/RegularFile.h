#pragma once

#include <juce_core/juce_core.h>

#include <cstddef>

/** Files from outside (presets, filters, licence keys, the stored licence, audio) are opened
    only when they are regular files once links are followed: a FIFO blocks whoever opens it, and
    a device or a /proc file reports no size and may never end, so a size check alone does not
    bound what is read. Files we make are checked to the last byte and moved into place only
    when whole. */
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

/** Writes data as the whole of file (made or emptied first) and syncs it to the disk, checking
    every step: a full disk shows here, not as a file cut short that looks complete. Any
    thread. */
bool writeWhole (const juce::File& file, const void* data, std::size_t size,
                 juce::String* whyNot = nullptr);

/** Moves a finished file (written beside its place) into place: synced first, and the folder
    after, so a crash leaves either the old file or the new one whole. Without replace the place
    must still be free at that moment (two runs started together on one output: the second is
    refused rather than silently replacing the first's result). Any thread. */
bool moveIntoPlace (const juce::File& finished, const juce::File& place, bool replace,
                    juce::String* whyNot = nullptr);
} // namespace regularFile
