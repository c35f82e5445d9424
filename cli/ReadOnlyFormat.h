#pragma once

#include <juce_audio_formats/juce_audio_formats.h>

#include <memory>

/** An audio format the tool only reads, through a system library's decoder: any rate, any
    channel count, no writer. */
class ReadOnlyFormat : public juce::AudioFormat
{
public:
    using juce::AudioFormat::AudioFormat;

    juce::Array<int> getPossibleSampleRates() override { return {}; }
    juce::Array<int> getPossibleBitDepths() override { return {}; }
    bool canDoStereo() override { return true; }
    bool canDoMono() override { return true; }
    bool isCompressed() override { return true; }
    juce::AudioFormatWriter* createWriterFor (juce::OutputStream*, double, unsigned int, int,
                                              const juce::StringPairArray&, int) override
    {
        return nullptr;
    }
    using juce::AudioFormat::createWriterFor;

protected:
    /** A Reader (which says isOpen()) on the stream when its content matches; else null, and
        the stream deleted or left where it was, as the caller of createReaderFor asked. */
    template <typename Reader>
    static juce::AudioFormatReader* open (juce::InputStream* stream,
                                          bool deleteStreamIfOpeningFails,
                                          bool (*contentMatches) (juce::InputStream&))
    {
        if (stream == nullptr)
            return nullptr;
        const auto start = stream->getPosition();
        if (contentMatches (*stream))
        {
            stream->setPosition (start);
            auto reader = std::make_unique<Reader> (stream);
            if (reader->isOpen())
                return reader.release();
            reader->input = nullptr; // the reader owns the stream; it is dealt with below
        }
        stream->setPosition (start);
        if (deleteStreamIfOpeningFails)
            delete stream;
        return nullptr;
    }
};
