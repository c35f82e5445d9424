#pragma once

#include "ReadOnlyFormat.h"

/** FLAC input through libFLAC, read so that damage shows. JUCE's reader fills whatever it cannot
    decode with silence and believes the length a header claims: a file cut in half became a whole
    file of silence, one claiming a thousand times its size 1.5 GB of it. This one decodes the
    file once when it opens it, takes as its length what really decodes, and says what was
    wrong. Reading only; one thread at a time per reader. */
class FlacFormat final : public ReadOnlyFormat
{
public:
    FlacFormat();

    /** Null (and the stream left to the caller unless asked to delete it) when it is not FLAC or
        nothing in it decodes. */
    juce::AudioFormatReader* createReaderFor (juce::InputStream* stream,
                                              bool deleteStreamIfOpeningFails) override;

    /** What was wrong with the file a reader of this format read (cut short, frames that did
        not decode), in words; empty for a sound file or a reader of another format. */
    static juce::String damageOf (juce::AudioFormatReader const& reader);
};
