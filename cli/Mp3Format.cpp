#include "Mp3Format.h"

#include <mpg123.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

namespace
{
/** The length in bytes of the MPEG audio frame whose header starts at p, or 0 when those four
    bytes are no valid header (free bit rate included: no file we would want uses it). */
int frameLength (const unsigned char* p)
{
    if (p[0] != 0xFF || (p[1] & 0xE0) != 0xE0)
        return 0;
    const int version = (p[1] >> 3) & 3; // 0: 2.5, 2: 2, 3: 1
    const int layer = (p[1] >> 1) & 3;   // 1: III, 2: II, 3: I
    const int bitrateIndex = p[2] >> 4, rateIndex = (p[2] >> 2) & 3, padding = (p[2] >> 1) & 1;
    if (version == 1 || layer == 0 || bitrateIndex == 0 || bitrateIndex == 15 || rateIndex == 3)
        return 0;
    static const int bitrates[5][14] = {
        {32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448}, // 1, I
        {32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384},    // 1, II
        {32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320},     // 1, III
        {32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256},    // 2 and 2.5, I
        {8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160}};        // 2 and 2.5, II, III
    static const int rates[3] = {44100, 48000, 32000};
    const bool first = version == 3;
    const int table = first ? 3 - layer : (layer == 3 ? 3 : 4);
    const int bitrate = bitrates[table][bitrateIndex - 1] * 1000;
    const int rate = rates[rateIndex] >> (first ? 0 : (version == 2 ? 1 : 2));
    if (layer == 3)
        return (12 * bitrate / rate + padding) * 4;
    return (layer == 1 && !first ? 72 : 144) * bitrate / rate + padding;
}

/** Whether a stream's content says MP3: an ID3v2 tag or a frame header at its very start, and
    from there frames that follow each other back to back (four of them, or as many as the
    stream holds). libmpg123 alone resynchronises on any pair of bytes that looks like a frame,
    which turned executables and WAV files with a damaged header into "audio". Leaves the stream
    where it was. */
bool looksLikeMp3 (juce::InputStream& stream)
{
    const auto start = stream.getPosition();
    std::vector<unsigned char> head (64 * 1024 + 16);
    const auto got = stream.read (head.data(), static_cast<int> (head.size()));
    stream.setPosition (start);
    if (got < 4)
        return false;
    std::size_t at = 0;
    const auto total = stream.getTotalLength() - start;
    if (std::memcmp (head.data(), "ID3", 3) == 0 && got >= 10)
    {
        // The tag's size is "syncsafe": seven bits a byte; a footer adds ten bytes.
        std::size_t size = 0;
        for (int i = 6; i < 10; ++i)
            size = (size << 7) | (head[static_cast<std::size_t> (i)] & 0x7F);
        at = 10 + size + ((head[5] & 0x10) != 0 ? 10 : 0);
        if (static_cast<juce::int64> (at) + 4 > total)
            return false;
        if (at + 4 > static_cast<std::size_t> (got))
        {
            // A tag larger than what was read (cover art): the first frame is read where it is.
            stream.setPosition (start + static_cast<juce::int64> (at));
            const auto more = stream.read (head.data(), static_cast<int> (head.size()));
            stream.setPosition (start);
            if (more < 4)
                return false;
            return frameLength (head.data()) > 0;
        }
    }
    int frames = 0;
    while (frames < 4 && at + 4 <= static_cast<std::size_t> (got))
    {
        const int length = frameLength (head.data() + at);
        if (length <= 0)
            return false;
        ++frames;
        at += static_cast<std::size_t> (length);
        if (static_cast<juce::int64> (at) >= total)
            return true; // a short stream: every frame it holds was whole
    }
    return frames > 0;
}

/** One MP3 stream decoded to float by libmpg123, which reads through the JUCE stream it owns. */
class Mp3Reader final : public juce::AudioFormatReader
{
public:
    explicit Mp3Reader (juce::InputStream* stream) : juce::AudioFormatReader (stream, "MP3 file")
    {
        handle = mpg123_new (nullptr, nullptr);
        if (handle == nullptr)
            return;
        mpg123_param (handle, MPG123_ADD_FLAGS, MPG123_FORCE_FLOAT | MPG123_QUIET, 0.0);
        // A damaged stretch is skipped, but no farther than a few frames.
        mpg123_param (handle, MPG123_RESYNC_LIMIT, 4096, 0.0);
        long rate = 0;
        int channels = 0, encoding = 0;
        if (mpg123_replace_reader_handle (handle, readFrom, seekIn, nullptr) != MPG123_OK
            || mpg123_open_handle (handle, this) != MPG123_OK
            || mpg123_getformat (handle, &rate, &channels, &encoding) != MPG123_OK
            || encoding != MPG123_ENC_FLOAT_32 || channels < 1 || rate <= 0)
            return;
        // The first frame's format holds for the whole file: a stream that changes it midway
        // is read as far as it keeps it.
        mpg123_format_none (handle);
        mpg123_format (handle, rate, channels, MPG123_ENC_FLOAT_32);
        // The exact length needs one pass over the frames; it also makes seeking exact.
        if (mpg123_scan (handle) != MPG123_OK)
            return;
        const auto length = mpg123_length (handle);
        if (length <= 0)
            return;
        sampleRate = static_cast<double> (rate);
        numChannels = static_cast<unsigned int> (channels);
        lengthInSamples = static_cast<juce::int64> (length);
        bitsPerSample = 32;
        usesFloatingPointData = true;
        opened = true;
    }

    ~Mp3Reader() override
    {
        if (handle != nullptr)
            mpg123_delete (handle);
    }

    bool isOpen() const noexcept { return opened; }

    bool readSamples (int* const* destChannels, int numDestChannels, int startOffsetInDestBuffer,
                      juce::int64 startSampleInFile, int numSamples) override
    {
        if (!opened)
            return false;
        if (startSampleInFile != position)
        {
            if (mpg123_seek (handle, static_cast<off_t> (startSampleInFile), SEEK_SET) < 0)
                return false;
            position = startSampleInFile;
        }
        const auto channels = static_cast<int> (numChannels);
        int done = 0;
        while (done < numSamples)
        {
            const int wanted = std::min (numSamples - done, 4096);
            interleaved.resize (static_cast<std::size_t> (wanted * channels));
            size_t bytes = 0;
            const int result = mpg123_read (handle, interleaved.data(),
                                            interleaved.size() * sizeof (float), &bytes);
            const int frames = static_cast<int> (bytes / sizeof (float)) / channels;
            for (int c = 0; c < numDestChannels; ++c)
                if (auto* out = reinterpret_cast<float*> (destChannels[c]))
                    for (int n = 0; n < frames; ++n)
                        out[startOffsetInDestBuffer + done + n] =
                            c < channels ? interleaved[static_cast<std::size_t> (n * channels + c)]
                                         : 0.0f;
            done += frames;
            position += frames;
            if (frames == 0 || (result != MPG123_OK && result != MPG123_NEW_FORMAT))
                break;
        }
        // What the decoder could not give (a damaged end) reads as silence.
        for (int c = 0; c < numDestChannels; ++c)
            if (auto* out = reinterpret_cast<float*> (destChannels[c]))
                std::fill (out + startOffsetInDestBuffer + done,
                           out + startOffsetInDestBuffer + numSamples, 0.0f);
        return true;
    }

private:
    static mpg123_ssize_t readFrom (void* self, void* buffer, size_t bytes)
    {
        auto* stream = static_cast<Mp3Reader*> (self)->input;
        return stream->read (buffer, static_cast<size_t> (std::min<size_t> (bytes, 1 << 30)));
    }

    static off_t seekIn (void* self, off_t offset, int whence)
    {
        auto* stream = static_cast<Mp3Reader*> (self)->input;
        juce::int64 target = offset;
        if (whence == SEEK_CUR)
            target += stream->getPosition();
        else if (whence == SEEK_END)
        {
            const auto total = stream->getTotalLength();
            if (total < 0)
                return -1;
            target += total;
        }
        return target >= 0 && stream->setPosition (target) ? static_cast<off_t> (target) : -1;
    }

    mpg123_handle* handle = nullptr;
    bool opened = false;
    juce::int64 position = 0;
    std::vector<float> interleaved;
};
} // namespace

Mp3Format::Mp3Format() : ReadOnlyFormat ("MP3 file", ".mp3") {}

juce::AudioFormatReader* Mp3Format::createReaderFor (juce::InputStream* stream,
                                                     bool deleteStreamIfOpeningFails)
{
    return open<Mp3Reader> (stream, deleteStreamIfOpeningFails, looksLikeMp3);
}
