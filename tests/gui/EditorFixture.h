#pragma once

#include "KelfinerAudioProcessor.h"
#include "KelfinerAudioProcessorEditor.h"
#include "TestSignals.h"

#include <gtest/gtest.h>

namespace vesk::test
{
/** A processor prepared at a rate, with an editor on it. */
struct EditorFixture : testing::Test
{
    explicit EditorFixture (double rate = 48000.0)
    {
        processor.setNonRealtime (true);
        processor.prepareToPlay (rate, 512);
        // Each test starts from the editor's defaults, whatever an earlier one stored.
        processor.getProperties().clear();
        editor = std::make_unique<KelfinerAudioProcessorEditor> (processor);
    }
    ~EditorFixture() override { editor.reset(); }

    float value (int index) { return processor.getEngine().getParameterValue (index); }

    /** Runs tilted noise through the processor, so that it learns and its analysers fill. */
    void play (int blocks, std::uint32_t seed = 7)
    {
        const auto noise = whiteNoise (2, 512 * blocks, seed);
        juce::AudioBuffer<float> block (2, 512);
        juce::MidiBuffer midi;
        float lowPass[2] = {};
        for (int b = 0; b < blocks; ++b)
        {
            for (int c = 0; c < 2; ++c)
                for (int n = 0; n < 512; ++n)
                {
                    // A gentle low-pass gives the correction something to correct.
                    lowPass[c] = 0.7f * lowPass[c] + 0.3f * noise[c][b * 512 + n];
                    block.setSample (c, n, 0.3f * lowPass[c]);
                }
            processor.processBlock (block, midi);
        }
    }

    KelfinerAudioProcessor processor;
    std::unique_ptr<KelfinerAudioProcessorEditor> editor;
};
} // namespace vesk::test
