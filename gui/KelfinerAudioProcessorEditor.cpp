#include "KelfinerAudioProcessorEditor.h"

#include "KelfinerAudioProcessor.h"

KelfinerAudioProcessorEditor::KelfinerAudioProcessorEditor (KelfinerAudioProcessor& owner)
    : juce::AudioProcessorEditor (owner)
{
    setSize (640, 360);
    startTimer (500);
}

void KelfinerAudioProcessorEditor::timerCallback() { repaint(); }

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

    // A format the engine refused: the audio passes through, and the user is told why.
    const auto problem = static_cast<KelfinerAudioProcessor&> (processor).getFormatProblem();
    if (problem.isNotEmpty())
    {
        g.setColour (juce::Colour (0xffe8a33d));
        g.drawFittedText (problem, getLocalBounds().reduced (24).removeFromBottom (60),
                          juce::Justification::centred, 3);
    }
}
