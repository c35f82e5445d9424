#include "Mp3Format.h"

#include <mpg123.h>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace
{
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

Mp3Format::Mp3Format() : juce::AudioFormat ("MP3 file", ".mp3") {}

juce::AudioFormatReader* Mp3Format::createReaderFor (juce::InputStream* stream,
                                                     bool deleteStreamIfOpeningFails)
{
    if (stream == nullptr)
        return nullptr;
    const auto start = stream->getPosition();
    auto reader = std::make_unique<Mp3Reader> (stream);
    if (reader->isOpen())
        return reader.release();
    // The reader owns the stream; a caller that keeps it gets it back where it was.
    if (!deleteStreamIfOpeningFails)
    {
        reader->input = nullptr;
        stream->setPosition (start);
    }
    return nullptr;
}
