// A host state block from anywhere (a project file, a crafted session) restored into a prepared
// processor, which must then still run.
#include "KelfinerAudioProcessor.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput (const std::uint8_t* data, std::size_t size)
{
    static auto* processor = []
    {
        auto* made = new KelfinerAudioProcessor();
        made->setNonRealtime (true);
        made->prepareToPlay (48000.0, 256);
        return made;
    }();
    processor->setStateInformation (data, static_cast<int> (std::min<std::size_t> (size, 1 << 20)));
    juce::AudioBuffer<float> block (2, 256);
    block.clear();
    block.setSample (0, 0, 1.0f);
    juce::MidiBuffer midi;
    processor->processBlock (block, midi);
    for (int c = 0; c < 2; ++c)
        for (int n = 0; n < 256; ++n)
            if (!std::isfinite (block.getSample (c, n)))
                __builtin_trap();
    return 0;
}
