#include "AudioInput.h"
#include "Mp3Format.h"

#include <cmath>
#include <cstring>

namespace
{
/** The most channels the tool opens: as many as the plug-in has named layouts for. */
constexpr unsigned maximumChannels = 8;

/** How many samples per channel `bytes` bytes can hold at the most: exactly what the size allows
    for uncompressed formats; for compressed ones a generous bound (4096 samples per byte,
    beyond what FLAC reaches even on digital silence). */
juce::int64 mostSamplesIn (juce::AudioFormatReader const& reader, juce::int64 bytes)
{
    const bool uncompressed = reader.getFormatName().containsIgnoreCase ("WAV")
                              || reader.getFormatName().containsIgnoreCase ("AIFF");
    if (uncompressed)
    {
        const auto frameBytes = static_cast<juce::int64> (reader.numChannels)
                                * std::max (1u, reader.bitsPerSample / 8u);
        return bytes / std::max<juce::int64> (frameBytes, 1);
    }
    return bytes * 4096;
}

/** The channel count a RIFF/RF64 WAVE file's format chunk claims, 0 for anything else. Read
    before JUCE sees the file: for an extensible format claiming hundreds of channels its WAV
    reader names them past the end of its channel types while it constructs (undefined
    behaviour), before any check of ours could refuse the count. Leaves the stream at its start. */
int wavChannelsClaimed (juce::InputStream& stream)
{
    const auto start = stream.getPosition();
    int channels = 0;
    char id[4] = {};
    const auto readId = [&] { return stream.read (id, 4) == 4; };
    if (readId() && (std::memcmp (id, "RIFF", 4) == 0 || std::memcmp (id, "RF64", 4) == 0))
    {
        stream.readInt(); // the file's size
        // A format chunk comes before the audio; a few chunks in, no file of ours is still
        // looking for it.
        if (readId() && std::memcmp (id, "WAVE", 4) == 0)
            for (int chunk = 0; chunk < 64 && readId(); ++chunk)
            {
                const auto size = static_cast<juce::uint32> (stream.readInt());
                if (std::memcmp (id, "fmt ", 4) == 0)
                {
                    stream.readShort(); // the format tag
                    channels = static_cast<juce::uint16> (stream.readShort());
                    break;
                }
                if (std::memcmp (id, "data", 4) == 0
                    || !stream.setPosition (stream.getPosition() + size + (size & 1u)))
                    break;
            }
    }
    stream.setPosition (start);
    return channels;
}
} // namespace

int silenceNonFinite (juce::AudioBuffer<float>& buffer)
{
    int silenced = 0;
    for (int c = 0; c < buffer.getNumChannels(); ++c)
    {
        float* samples = buffer.getWritePointer (c);
        for (int n = 0; n < buffer.getNumSamples(); ++n)
            if (!std::isfinite (samples[n]))
                samples[n] = 0.0f, ++silenced;
    }
    return silenced;
}

std::unique_ptr<juce::AudioFormatReader> openReader (std::unique_ptr<juce::InputStream> stream,
                                                     juce::int64 bytes, juce::String const& name,
                                                     juce::String& error)
{
    if (const int claimed = wavChannelsClaimed (*stream);
        claimed > static_cast<int> (maximumChannels))
    {
        error = "unsupported channel count (" + juce::String (claimed) + "): " + name;
        return nullptr;
    }
    juce::AudioFormatManager formats;
    formats.registerBasicFormats();
    formats.registerFormat (new Mp3Format(), false); // tried last: it searches for frames
    std::unique_ptr<juce::AudioFormatReader> reader (formats.createReaderFor (std::move (stream)));
    if (reader == nullptr)
        error = "not an audio file this tool reads (WAV, AIFF, FLAC, Ogg Vorbis, MP3): " + name;
    else if (reader->numChannels < 1 || reader->numChannels > maximumChannels
             || !(reader->sampleRate >= 1000.0) || !(reader->sampleRate <= 1.0e6))
    {
        error = "unsupported channel count or sample rate: " + name;
        reader.reset();
    }
    else if (reader->bitsPerSample < 8 || reader->bitsPerSample > 64)
    {
        // A header claiming less than a byte a sample made JUCE's AIFF reader divide by zero.
        error =
            "unsupported sample size (" + juce::String (reader->bitsPerSample) + " bits): " + name;
        reader.reset();
    }
    else if (const auto most = mostSamplesIn (*reader, bytes); reader->lengthInSamples > most)
    {
        error = "the header of " + name + " claims " + juce::String (reader->lengthInSamples)
                + " samples, but the file holds at most " + juce::String (most)
                + " (cut short or damaged)";
        reader.reset();
    }
    return reader;
}

std::unique_ptr<juce::AudioFormatReader> openReader (juce::File const& file, juce::String& error)
{
    if (!file.existsAsFile())
    {
        error = "no such file: " + file.getFullPathName();
        return nullptr;
    }
    auto stream = std::make_unique<juce::FileInputStream> (file);
    if (!stream->openedOk())
    {
        error = "cannot read " + file.getFullPathName();
        return nullptr;
    }
    return openReader (std::move (stream), file.getSize(), file.getFullPathName(), error);
}

double rmsLevelDb (juce::AudioFormatReader& reader)
{
    const int block = 1 << 16;
    juce::AudioBuffer<float> buffer (static_cast<int> (reader.numChannels), block);
    double sum = 0.0;
    juce::int64 counted = 0;
    for (juce::int64 done = 0; done < reader.lengthInSamples; done += block)
    {
        const auto count =
            static_cast<int> (std::min<juce::int64> (block, reader.lengthInSamples - done));
        reader.read (&buffer, 0, count, done, true, true);
        for (int c = 0; c < buffer.getNumChannels(); ++c)
        {
            const float* samples = buffer.getReadPointer (c);
            for (int n = 0; n < count; ++n)
                if (std::isfinite (samples[n]))
                    sum += static_cast<double> (samples[n]) * samples[n];
        }
        counted += static_cast<juce::int64> (count) * buffer.getNumChannels();
    }
    return 10.0
           * std::log10 (
               std::max (sum / static_cast<double> (std::max<juce::int64> (counted, 1)), 1.0e-20));
}
