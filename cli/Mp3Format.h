#pragma once

#include "ReadOnlyFormat.h"

/** MP3 input through libmpg123. JUCE's own MP3 decoder writes past its arrays on crafted
    intensity-stereo frames (found by fuzzing the tool's inputs), so the tool reads MP3 with the
    system's maintained decoder instead. Reading only; one thread at a time per reader. */
class Mp3Format final : public ReadOnlyFormat
{
public:
    Mp3Format();

    /** Null (and the stream left to the caller unless asked to delete it) when it is not MP3. */
    juce::AudioFormatReader* createReaderFor (juce::InputStream* stream,
                                              bool deleteStreamIfOpeningFails) override;
};
