// Audio files from anywhere, opened and read as the command-line tool reads them.
#include "AudioInput.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput (const std::uint8_t* data, std::size_t size)
{
    juce::String error;
    auto reader = openReader (std::make_unique<juce::MemoryInputStream> (data, size, false),
                              static_cast<juce::int64> (size), "fuzz input", error);
    if (reader == nullptr)
        return 0;
    // What the header claims was checked against the size; reading it must hold. A compressed
    // file of a few kilobytes may still claim minutes (the check allows what digital silence
    // compresses to), which the sanitizers take longer to read than a run may last: the first
    // megasample and the last block stand for the rest.
    const int channels = static_cast<int> (reader->numChannels);
    juce::AudioBuffer<float> block (channels, 4096);
    const auto length = reader->lengthInSamples;
    for (juce::int64 position = 0; position < length; position += 4096)
    {
        if (position >= (1 << 20) && position + 4096 < length)
            position = (length - 1) / 4096 * 4096; // on to the last block
        const auto count = static_cast<int> (std::min<juce::int64> (4096, length - position));
        reader->read (&block, 0, count, position, true, true);
        silenceNonFinite (block);
    }
    return 0;
}
