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
    // What the header claims was checked against the size; reading all of it must hold.
    const int channels = static_cast<int> (reader->numChannels);
    juce::AudioBuffer<float> block (channels, 4096);
    for (juce::int64 position = 0; position < reader->lengthInSamples; position += 4096)
    {
        const auto count =
            static_cast<int> (std::min<juce::int64> (4096, reader->lengthInSamples - position));
        reader->read (&block, 0, count, position, true, true);
        silenceNonFinite (block);
    }
    return 0;
}
