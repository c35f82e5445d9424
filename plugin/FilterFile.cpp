#include "FilterFile.h"

#include "RegularFile.h"

#include "KelfinerAudioProcessor.h"

#include <cmath>

using vesk::audio::Signal32;

void FilterFile::write (juce::OutputStream& out, Signal32 const& taps, double rate)
{
    const bool hasData = taps.hasStorage();
    const int channels = hasData ? taps.getNumChannels() : 0;
    const int samples = hasData ? taps.getNumSamples() : 0;
    out.writeInt64 (static_cast<juce::int64> (fileId));
    out.writeInt (version);
    out.writeDouble (rate);
    out.writeInt (channels);
    out.writeInt (samples);
    for (int c = 0; c < channels; ++c)
        for (int n = 0; n < samples; ++n)
            out.writeFloat (taps[c][n]);
}

bool FilterFile::writeInPlace (juce::File const& file, Signal32 const& taps, double rate)
{
    // A large buffer: a filter of several channels is written in one or two system calls.
    juce::FileOutputStream out (file, 32768);
    if (!out.openedOk() || !out.setPosition (0) || out.truncate().failed())
        return false;
    write (out, taps, rate);
    out.flush();
    return !out.getStatus().failed();
}

bool FilterFile::write (juce::File const& file, Signal32 const& taps, double rate)
{
    juce::TemporaryFile temporary (file);
    return writeInPlace (temporary.getFile(), taps, rate)
           && temporary.overwriteTargetFileWithTemporary();
}

FilterFile::Status FilterFile::read (juce::InputStream& in, Signal32& taps, double& rate)
{
    if (in.getNumBytesRemaining() < headerSize
        || static_cast<std::uint64_t> (in.readInt64()) != fileId || in.readInt() != version)
        return Status::invalid;
    const double fileRate = in.readDouble();
    const int channels = in.readInt();
    const int samples = in.readInt();
    // Hostile or truncated files: never allocate more than the remaining bytes could fill.
    if (channels <= 0 || samples <= 0 || channels > 64
        || static_cast<juce::int64> (channels) * samples * 4 > in.getNumBytesRemaining()
        || !KelfinerAudioProcessor::isPlausibleFilterRate (fileRate))
        return Status::invalid;
    Signal32 read (channels, samples);
    for (int c = 0; c < channels; ++c)
        for (int n = 0; n < samples; ++n)
        {
            read[c][n] = in.readFloat();
            // Non-finite taps would silence or wreck the output: refuse the file whole.
            if (!std::isfinite (read[c][n]))
                return Status::invalid;
        }
    // All zeros is no filter: as a target it would ask for infinite gain everywhere.
    bool silent = true;
    for (int c = 0; c < channels && silent; ++c)
        for (int n = 0; n < samples && silent; ++n)
            silent = read[c][n] == 0.0f;
    if (silent)
        return Status::invalid;
    taps = std::move (read);
    rate = fileRate;
    return Status::ok;
}

FilterFile::Status FilterFile::read (juce::File const& file, Signal32& taps, double& rate)
{
    // Far more than any filter we write (64 channels of a transform at 384 kHz), and a bound on
    // what a link to a device could feed us.
    constexpr std::size_t mostBytes = 64 * 1024 * 1024;
    juce::MemoryBlock data;
    if (!regularFile::read (file, mostBytes, data))
        return Status::unreadable;
    juce::MemoryInputStream in (data, false);
    return read (in, taps, rate);
}
