#pragma once

#include <juce_audio_processors/juce_audio_processors.h>

class KelfinerAudioProcessor;

/** The editor. For now a plain panel with the product's name; the curve editor, analysers and
    controls come with the editor work. */
class KelfinerAudioProcessorEditor : public juce::AudioProcessorEditor, private juce::Timer
{
public:
    /** Message thread. */
    explicit KelfinerAudioProcessorEditor (KelfinerAudioProcessor& owner);
    void paint (juce::Graphics& g) override;

private:
    void timerCallback() override;
};
