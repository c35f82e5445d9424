#pragma once

#include "KelfinerAudioProcessor.h"

#include <functional>
#include <vector>

namespace vesk::test
{
/** Records which public parameters a processor reported, and may act on each report. */
struct CountingListener : BasePlugInProcessor::Listener
{
    void parameterChanged (int index) override
    {
        calls.push_back (index);
        if (onCall)
            onCall();
    }
    std::vector<int> calls;
    std::function<void()> onCall;
};

inline juce::MemoryBlock stateOf (KelfinerAudioProcessor& processor)
{
    juce::MemoryBlock block;
    processor.getStateInformation (block);
    return block;
}

/** A small, distinct filter. */
inline vesk::audio::Signal32 ramp (int channels, int samples)
{
    vesk::audio::Signal32 s (channels, samples);
    for (int c = 0; c < channels; ++c)
        for (int n = 0; n < samples; ++n)
            s[c][n] = 0.001f * static_cast<float> (n + 100 * c);
    return s;
}
} // namespace vesk::test
