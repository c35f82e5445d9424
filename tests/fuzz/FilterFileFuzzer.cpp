// *.filter files from anywhere, read as the editor and the tool read them.
#include "FilterFile.h"
#include "KelfinerAudioProcessor.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput (const std::uint8_t* data, std::size_t size)
{
    juce::MemoryInputStream in (data, size, false);
    vesk::audio::Signal32 taps;
    double rate = 0.0;
    if (FilterFile::read (in, taps, rate) == FilterFile::Status::ok
        && (taps.isEmpty() || !KelfinerAudioProcessor::isPlausibleFilterRate (rate)))
        __builtin_trap(); // an accepted file is always a usable filter
    return 0;
}
