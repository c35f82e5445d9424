#include "FlacFormat.h"

#include <FLAC/stream_decoder.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace
{
bool startsLikeFlac (juce::InputStream& stream)
{
    char magic[4] = {};
    return stream.read (magic, 4) == 4 && std::memcmp (magic, "fLaC", 4) == 0;
}

class FlacReader final : public juce::AudioFormatReader
{
public:
    explicit FlacReader (juce::InputStream* stream) : juce::AudioFormatReader (stream, "FLAC file")
    {
        decoder = FLAC__stream_decoder_new();
        if (decoder == nullptr || !start())
            return;
        // One pass over the whole file: its real length and its damage, before anyone reads.
        scanning = true;
        while (decodeNextFrame())
            ;
        scanning = false;
        lengthInSamples = decodedSamples;
        if (lengthInSamples <= 0 || !start())
            return;
        if (frameErrors > 0)
            damage << frameErrors << " damaged frame" << (frameErrors == 1 ? "" : "s")
                   << " could not be decoded";
        if (claimedSamples > decodedSamples)
            damage << (damage.isEmpty() ? "" : "; ") << "the file ends after "
                   << juce::String (static_cast<double> (decodedSamples) / sampleRate, 2)
                   << " s of the "
                   << juce::String (static_cast<double> (claimedSamples) / sampleRate, 2)
                   << " s its header claims (cut short)";
        opened = true;
    }

    ~FlacReader() override
    {
        if (decoder != nullptr)
            FLAC__stream_decoder_delete (decoder);
    }

    bool isOpen() const noexcept { return opened; }
    juce::String const& getDamage() const noexcept { return damage; }

    bool readSamples (int* const* destChannels, int numDestChannels, int startOffsetInDestBuffer,
                      juce::int64 startSampleInFile, int numSamples) override
    {
        if (!opened)
            return false;
        // Read front to back, as the tool does; going back starts again from the top.
        if (startSampleInFile < position && !start())
            return false;
        int done = 0;
        while (done < numSamples)
        {
            if (bufferedFrom + buffered <= position && !decodeNextFrame())
                break;
            const auto offset = static_cast<int> (position - bufferedFrom);
            if (startSampleInFile > position)
            {
                position += std::min<juce::int64> (buffered - offset, startSampleInFile - position);
                continue;
            }
            const int count = std::min (numSamples - done, buffered - offset);
            for (int c = 0; c < numDestChannels; ++c)
                if (destChannels[c] != nullptr)
                {
                    auto* out = destChannels[c] + startOffsetInDestBuffer + done;
                    if (c < static_cast<int> (numChannels))
                        std::memcpy (out, frame[static_cast<std::size_t> (c)].data() + offset,
                                     sizeof (int) * static_cast<std::size_t> (count));
                    else
                        std::fill (out, out + count, 0);
                }
            done += count;
            position += count;
        }
        for (int c = 0; c < numDestChannels; ++c)
            if (destChannels[c] != nullptr)
                std::fill (destChannels[c] + startOffsetInDestBuffer + done,
                           destChannels[c] + startOffsetInDestBuffer + numSamples, 0);
        return true;
    }

private:
    /** (Re)starts decoding at the top of the stream; true once its format is known. */
    bool start()
    {
        FLAC__stream_decoder_finish (decoder);
        if (!input->setPosition (0)
            || FLAC__stream_decoder_init_stream (decoder, readFrom, seekIn, tell, length, atEnd,
                                                 take, metadata, failed, this)
                   != FLAC__STREAM_DECODER_INIT_STATUS_OK
            || !FLAC__stream_decoder_process_until_end_of_metadata (decoder) || !haveInfo)
            return false;
        position = bufferedFrom = 0;
        buffered = 0;
        return true;
    }

    bool decodeNextFrame()
    {
        const auto before = framesTaken;
        while (framesTaken == before)
        {
            if (!FLAC__stream_decoder_process_single (decoder))
                return false;
            const auto state = FLAC__stream_decoder_get_state (decoder);
            if (state == FLAC__STREAM_DECODER_END_OF_STREAM
                || state == FLAC__STREAM_DECODER_ABORTED)
                return framesTaken != before;
        }
        return true;
    }

    static FLAC__StreamDecoderReadStatus readFrom (const FLAC__StreamDecoder*, FLAC__byte buffer[],
                                                   size_t* bytes, void* self)
    {
        auto* stream = static_cast<FlacReader*> (self)->input;
        const auto got =
            stream->read (buffer, static_cast<int> (std::min<size_t> (*bytes, 1 << 20)));
        *bytes = got > 0 ? static_cast<size_t> (got) : 0;
        return got > 0 ? FLAC__STREAM_DECODER_READ_STATUS_CONTINUE
                       : FLAC__STREAM_DECODER_READ_STATUS_END_OF_STREAM;
    }

    static FLAC__StreamDecoderSeekStatus seekIn (const FLAC__StreamDecoder*, FLAC__uint64 offset,
                                                 void* self)
    {
        return static_cast<FlacReader*> (self)->input->setPosition (
                   static_cast<juce::int64> (offset))
                   ? FLAC__STREAM_DECODER_SEEK_STATUS_OK
                   : FLAC__STREAM_DECODER_SEEK_STATUS_ERROR;
    }

    static FLAC__StreamDecoderTellStatus tell (const FLAC__StreamDecoder*, FLAC__uint64* offset,
                                               void* self)
    {
        *offset = static_cast<FLAC__uint64> (static_cast<FlacReader*> (self)->input->getPosition());
        return FLAC__STREAM_DECODER_TELL_STATUS_OK;
    }

    static FLAC__StreamDecoderLengthStatus length (const FLAC__StreamDecoder*, FLAC__uint64* bytes,
                                                   void* self)
    {
        const auto total = static_cast<FlacReader*> (self)->input->getTotalLength();
        if (total < 0)
            return FLAC__STREAM_DECODER_LENGTH_STATUS_UNSUPPORTED;
        *bytes = static_cast<FLAC__uint64> (total);
        return FLAC__STREAM_DECODER_LENGTH_STATUS_OK;
    }

    static FLAC__bool atEnd (const FLAC__StreamDecoder*, void* self)
    {
        return static_cast<FlacReader*> (self)->input->isExhausted();
    }

    static FLAC__StreamDecoderWriteStatus take (const FLAC__StreamDecoder*,
                                                const FLAC__Frame* header,
                                                const FLAC__int32* const samples[], void* self)
    {
        auto& reader = *static_cast<FlacReader*> (self);
        const auto count = static_cast<int> (header->header.blocksize);
        if (header->header.channels != reader.numChannels
            || header->header.bits_per_sample != reader.bitsPerSample)
        {
            ++reader.frameErrors; // a frame of another format: not this stream's audio
            return FLAC__STREAM_DECODER_WRITE_STATUS_CONTINUE;
        }
        reader.framesTaken++;
        reader.bufferedFrom =
            reader.scanning ? reader.decodedSamples : reader.bufferedFrom + reader.buffered;
        reader.buffered = count;
        reader.decodedSamples += reader.scanning ? count : 0;
        if (reader.scanning)
            return FLAC__STREAM_DECODER_WRITE_STATUS_CONTINUE;
        // Left-justified in 32 bits, as JUCE's integer readers deliver samples.
        const int shift = 32 - static_cast<int> (reader.bitsPerSample);
        for (unsigned c = 0; c < reader.numChannels; ++c)
        {
            auto& channel = reader.frame[c];
            channel.resize (static_cast<std::size_t> (count));
            for (int n = 0; n < count; ++n)
                channel[static_cast<std::size_t> (n)] =
                    static_cast<int> (static_cast<juce::uint32> (samples[c][n]) << shift);
        }
        return FLAC__STREAM_DECODER_WRITE_STATUS_CONTINUE;
    }

    static void metadata (const FLAC__StreamDecoder*, const FLAC__StreamMetadata* data, void* self)
    {
        auto& reader = *static_cast<FlacReader*> (self);
        if (data->type != FLAC__METADATA_TYPE_STREAMINFO || reader.haveInfo)
            return;
        const auto& info = data->data.stream_info;
        if (info.channels < 1 || info.channels > 8 || info.sample_rate == 0
            || info.bits_per_sample < 4 || info.bits_per_sample > 32)
            return;
        reader.sampleRate = info.sample_rate;
        reader.numChannels = info.channels;
        reader.bitsPerSample = info.bits_per_sample;
        reader.usesFloatingPointData = false;
        reader.claimedSamples = static_cast<juce::int64> (info.total_samples);
        reader.frame.assign (info.channels, {});
        reader.haveInfo = true;
    }

    static void failed (const FLAC__StreamDecoder*, FLAC__StreamDecoderErrorStatus, void* self)
    {
        ++static_cast<FlacReader*> (self)->frameErrors;
    }

    FLAC__StreamDecoder* decoder = nullptr;
    bool opened = false, haveInfo = false, scanning = false;
    juce::int64 claimedSamples = 0, decodedSamples = 0, position = 0, bufferedFrom = 0;
    juce::int64 framesTaken = 0;
    int buffered = 0, frameErrors = 0;
    std::vector<std::vector<int>> frame;
    juce::String damage;
};
} // namespace

FlacFormat::FlacFormat() : ReadOnlyFormat ("FLAC file", ".flac") {}

juce::AudioFormatReader* FlacFormat::createReaderFor (juce::InputStream* stream,
                                                      bool deleteStreamIfOpeningFails)
{
    return open<FlacReader> (stream, deleteStreamIfOpeningFails, startsLikeFlac);
}

juce::String FlacFormat::damageOf (juce::AudioFormatReader const& reader)
{
    if (auto* flac = dynamic_cast<FlacReader const*> (&reader))
        return flac->getDamage();
    return {};
}
