#include "AudioInput.h"

#include "FlacFormat.h"
#include "Mp3Format.h"
#include "RegularFile.h"
#include "UntrustedXml.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace
{
/** The most channels the tool opens: as many as the plug-in has named layouts for. */
constexpr unsigned maximumChannels = 8;

/** How many samples per channel `bytes` bytes can hold at the most: exactly what the size allows
    for uncompressed formats; for compressed ones a generous bound (4096 samples per byte,
    beyond what FLAC reaches even on digital silence). */
bool uncompressed (juce::AudioFormatReader const& reader)
{
    return reader.getFormatName().containsIgnoreCase ("WAV")
           || reader.getFormatName().containsIgnoreCase ("AIFF");
}

juce::int64 mostSamplesIn (juce::AudioFormatReader const& reader, juce::int64 bytes)
{
    if (uncompressed (reader))
    {
        const auto frameBytes = static_cast<juce::int64> (reader.numChannels)
                                * std::max (1u, reader.bitsPerSample / 8u);
        return bytes / std::max<juce::int64> (frameBytes, 1);
    }
    return bytes * 4096;
}

/** What a WAV or AIFF header claims, read before JUCE sees the file. Its readers trust two
    claims they should not: for an extensible WAV format claiming hundreds of channels the reader
    names them past the end of its channel types while it constructs (undefined behaviour), and
    a metadata chunk's size is allocated as claimed (a 3 GB "bext" chunk in a file of a few
    hundred bytes). */
struct HeaderClaims
{
    int channels = 0;            ///< from a WAV format chunk; 0 when there is none
    juce::String oversizedChunk; ///< the first chunk claiming more than the file holds
    juce::int64 oversizedBytes = 0;
    bool container = false;  ///< a WAV or AIFF container was recognised
    bool soundChunk = false; ///< and its walk reached the sound data ("data", "SSND")
    juce::String badChunk;   ///< a metadata chunk JUCE's readers would choke on, and why
};

/** What JUCE's readers would make of a metadata chunk they loop over or parse, checked first:
    an AIFF comment or marker count larger than its chunk can hold (each is read, to the end of
    the file and past it, and kept: 65535 of them took seconds), and WAV iXML or aXML text,
    which JUCE parses with its own XML reader (see parseUntrustedXml). Empty when the chunk is
    fine; the stream is left where it was. */
juce::String checkMetadata (juce::InputStream& stream, const char* id, juce::uint32 size, bool wav)
{
    const auto start = stream.getPosition();
    const auto is = [&] (const char* name) { return std::memcmp (id, name, 4) == 0; };
    juce::String problem;
    if (!wav && (is ("COMT") || is ("MARK")) && size >= 2)
    {
        const auto count = static_cast<juce::uint16> (stream.readShortBigEndian());
        if (2 + 8 * static_cast<juce::uint32> (count) > size)
            problem = "a \"" + juce::String (id, 4) + "\" chunk of " + juce::String (size)
                      + " bytes claims " + juce::String (count) + " entries";
    }
    else if (wav && (is ("iXML") || is ("axml")))
    {
        juce::MemoryBlock text;
        if (size > untrustedXml::maximumBytes || stream.readIntoMemoryBlock (text, size) != size
            || parseUntrustedXml (text.getData(), text.getSize()) == nullptr)
            problem = "its \"" + juce::String (id, 4) + "\" chunk is not well-formed XML";
    }
    stream.setPosition (start);
    return problem;
}

/** Walks the chunks of a RIFF/RF64 WAVE or FORM AIFF/AIFC file of `bytes` bytes as JUCE's
    readers will. Leaves the stream at its start. */
HeaderClaims readHeaderClaims (juce::InputStream& stream, juce::int64 bytes)
{
    HeaderClaims claims;
    const auto start = stream.getPosition();
    char id[4] = {};
    const auto readId = [&] { return stream.read (id, 4) == 4; };
    const auto is = [&] (const char* name) { return std::memcmp (id, name, 4) == 0; };
    if (!readId() || !(is ("RIFF") || is ("RF64") || is ("FORM")))
    {
        stream.setPosition (start);
        return claims;
    }
    // The walk follows the readers': to the end the container claims (RF64 claims none),
    // chunks padded to even sizes in WAV only.
    const bool wav = !is ("FORM");
    const bool sized = !is ("RF64");
    const auto containerSize =
        static_cast<juce::uint32> (wav ? stream.readInt() : stream.readIntBigEndian());
    const auto end =
        sized ? std::min<juce::int64> (bytes, 8 + static_cast<juce::int64> (containerSize)) : bytes;
    if (!readId() || !(is ("WAVE") || is ("AIFF") || is ("AIFC")))
    {
        stream.setPosition (start);
        return claims;
    }
    claims.container = true;
    const auto named = [&]
    { return std::all_of (id, id + 4, [] (char c) { return c >= 0x20 && c <= 0x7e; }); };
    // Every chunk moves on by at least its eight header bytes.
    while (stream.getPosition() < end && readId())
    {
        const auto size =
            static_cast<juce::uint32> (wav ? stream.readInt() : stream.readIntBigEndian());
        if (is ("data") || is ("SSND"))
            claims.soundChunk = true;
        if (size > bytes - stream.getPosition())
        {
            // Sound data may run past the end of a file cut short (refused later, by its
            // length in samples), and a nameless chunk is junk the readers step over to the
            // end; a metadata chunk would be allocated at the size it claims.
            if (named() && !is ("data") && !is ("SSND"))
            {
                claims.oversizedChunk = juce::String (id, 4).trimEnd();
                claims.oversizedBytes = size;
            }
            break;
        }
        if (const auto problem = checkMetadata (stream, id, size, wav); problem.isNotEmpty())
        {
            claims.badChunk = problem;
            break;
        }
        if (wav && is ("fmt ") && size >= 4)
        {
            const auto chunkStart = stream.getPosition();
            stream.readShort(); // the format tag
            claims.channels =
                std::max<int> (claims.channels, static_cast<juce::uint16> (stream.readShort()));
            stream.setPosition (chunkStart);
        }
        // WAV pads a chunk of odd size; JUCE's AIFF reader aligns the next chunk to an even
        // position in the file instead.
        auto next = stream.getPosition() + size;
        next += wav ? (size & 1u) : (next & 1);
        if (!stream.setPosition (next))
            break;
    }
    stream.setPosition (start);
    return claims;
}
} // namespace

int silenceNonFinite (juce::AudioBuffer<float>& buffer, float largest)
{
    int silenced = 0;
    for (int c = 0; c < buffer.getNumChannels(); ++c)
    {
        float* samples = buffer.getWritePointer (c);
        for (int n = 0; n < buffer.getNumSamples(); ++n)
            if (!(std::abs (samples[n]) <= largest))
                samples[n] = 0.0f, ++silenced;
    }
    return silenced;
}

std::unique_ptr<juce::AudioFormatReader> openReader (std::unique_ptr<juce::InputStream> stream,
                                                     juce::int64 bytes, juce::String const& name,
                                                     juce::String& error)
{
    const auto claims = readHeaderClaims (*stream, bytes);
    if (claims.channels > static_cast<int> (maximumChannels))
    {
        error = "unsupported channel count (" + juce::String (claims.channels) + "): " + name;
        return nullptr;
    }
    if (claims.oversizedChunk.isNotEmpty())
    {
        error = "the header of " + name + " claims a " + juce::String (claims.oversizedBytes)
                + "-byte \"" + claims.oversizedChunk + "\" chunk, but the file holds "
                + juce::String (bytes) + " bytes (cut short or damaged)";
        return nullptr;
    }
    if (claims.badChunk.isNotEmpty())
    {
        error = name + " is damaged: " + claims.badChunk;
        return nullptr;
    }
    if (claims.container && !claims.soundChunk)
    {
        // Without one, JUCE's readers read samples from wherever an unset offset points.
        error = "the header of " + name + " leads to no sound data (cut short or damaged)";
        return nullptr;
    }
    juce::AudioFormatManager formats;
    formats.registerFormat (new juce::WavAudioFormat(), true);
    formats.registerFormat (new juce::AiffAudioFormat(), false);
    formats.registerFormat (new FlacFormat(), false); // ours: damage shows, claims are not believed
    formats.registerFormat (new juce::OggVorbisAudioFormat(), false);
    formats.registerFormat (new Mp3Format(), false); // only where the content says MP3
    std::unique_ptr<juce::AudioFormatReader> reader (formats.createReaderFor (std::move (stream)));
    if (reader == nullptr)
        error = "not an audio file this tool reads (WAV, AIFF, FLAC, Ogg Vorbis, MP3): " + name;
    else if (reader->numChannels < 1 || reader->numChannels > maximumChannels
             || !(reader->sampleRate >= 1000.0) || !(reader->sampleRate <= 1.0e6))
    {
        error = "unsupported channel count or sample rate: " + name;
        reader.reset();
    }
    else if (reader->bitsPerSample < 8 || reader->bitsPerSample > 64
             || (uncompressed (*reader) && reader->bitsPerSample % 8 != 0))
    {
        // A header claiming less than a byte a sample made JUCE's AIFF reader divide by zero;
        // its WAV and AIFF readers leave samples of 12, 20, 28 or 33 bits unwritten (what came
        // out was whatever the memory held).
        error =
            "unsupported sample size (" + juce::String (reader->bitsPerSample) + " bits): " + name;
        reader.reset();
    }
    else if (reader->lengthInSamples <= 0)
    {
        error = name + " holds no audio";
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
    // A FIFO would wait for a writer forever, a device never ends.
    juce::String whyNot;
    if (!regularFile::check (file, &whyNot))
    {
        error = file.getFullPathName() + " " + whyNot;
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
                if (std::abs (samples[n]) <= largestInputSample)
                    sum += static_cast<double> (samples[n]) * samples[n];
        }
        counted += static_cast<juce::int64> (count) * buffer.getNumChannels();
    }
    return 10.0
           * std::log10 (
               std::max (sum / static_cast<double> (std::max<juce::int64> (counted, 1)), 1.0e-20));
}
