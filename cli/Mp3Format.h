#pragma once

#include <juce_audio_formats/juce_audio_formats.h>

/** MP3 input through libmpg123. JUCE's own MP3 decoder writes past its arrays on crafted
    intensity-stereo frames (found by fuzzing the tool's inputs), so the tool reads MP3 with the
    system's maintained decoder instead. Reading only; one thread at a time per reader. */
class Mp3Format final : public juce::AudioFormat
{
public:
    Mp3Format();

    juce::Array<int> getPossibleSampleRates() override { return {}; }
    juce::Array<int> getPossibleBitDepths() override { return {}; }
    bool canDoStereo() override { return true; }
    bool canDoMono() override { return true; }
    bool isCompressed() override { return true; }

    /** Null (and the stream left to the caller unless asked to delete it) when it is not MP3. */
    juce::AudioFormatReader* createReaderFor (juce::InputStream* stream,
                                              bool deleteStreamIfOpeningFails) override;
    juce::AudioFormatWriter* createWriterFor (juce::OutputStream*, double, unsigned int, int,
                                              const juce::StringPairArray&, int) override
    {
        return nullptr;
    }
    using juce::AudioFormat::createWriterFor;
};
