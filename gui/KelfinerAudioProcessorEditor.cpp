#include "KelfinerAudioProcessorEditor.h"

#include "KelfinerAudioProcessor.h"

KelfinerAudioProcessorEditor::KelfinerAudioProcessorEditor (KelfinerAudioProcessor& owner)
    : juce::AudioProcessorEditor (owner)
{
    setSize (640, 360);
}

void KelfinerAudioProcessorEditor::paint (juce::Graphics& g)
{
    g.fillAll (juce::Colour (0xff1e2227));
    g.setColour (juce::Colour (0xffd8dde3));
    g.setFont (28.0f);
    g.drawText ("Kelfiner", getLocalBounds().removeFromTop (getHeight() / 2),
                juce::Justification::centredBottom);
    g.setFont (14.0f);
    g.setColour (juce::Colour (0xff8a949e));
    g.drawText ("Vesk Digital", getLocalBounds().removeFromBottom (getHeight() / 2),
                juce::Justification::centredTop);
}
