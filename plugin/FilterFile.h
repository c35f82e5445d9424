#pragma once

#include "Signal.h"

#include <juce_core/juce_core.h>

#include <cstdint>

/** `*.filter` files, read and written by the editor and the command-line tool alike:
    a 64-bit file id, an int32 version, the sample rate (double), the channel count and the
    length (int32 each), then the taps (float32) channel after channel, all little-endian. */
struct FilterFile
{
    static constexpr std::uint64_t fileId = 0x15B9FB841FBF4A31ULL;
    static constexpr int version = 1;
    static constexpr int headerSize = 28;

    enum class Status
    {
        ok,
        unreadable, ///< the file could not be opened
        invalid     ///< wrong id or version, short, or not a usable filter
    };

    /** Writes through a temporary file beside the target, so a failed write leaves any old file
        as it was. Any thread. */
    static bool write (juce::File const& file, vesk::audio::Signal32 const& taps, double rate);
    /** Writes in place, for callers that manage their own temporary file. Any thread. */
    static bool writeInPlace (juce::File const& file, vesk::audio::Signal32 const& taps,
                              double rate);
    /** Writes the record to a stream. Any thread. */
    static void write (juce::OutputStream& out, vesk::audio::Signal32 const& taps, double rate);

    /** Reads a file; taps and rate are set only when the result is ok. A file is ok when its
        header matches, it holds every sample it announces, all samples are finite and its rate is
        one audio is made at. Any thread. */
    static Status read (juce::File const& file, vesk::audio::Signal32& taps, double& rate);
    /** Reads from a stream, as above. Any thread. */
    static Status read (juce::InputStream& in, vesk::audio::Signal32& taps, double& rate);
};
