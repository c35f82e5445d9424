// Preset text from anywhere (a downloaded preset, a user's folder) imported into a processor.
#include "KelfinerAudioProcessor.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput (const std::uint8_t* data, std::size_t size)
{
    static auto* processor = new KelfinerAudioProcessor();
    processor->importFromPresetData (data, size, "fuzz");
    return 0;
}
