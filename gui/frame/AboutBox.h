#pragma once

#include "BasePlugInProcessor.h"

#include <juce_gui_basics/juce_gui_basics.h>

/** Product, maker, version, plug-in format, build date and a link to the help page, shown over
    the editor; a click outside the card or Escape closes it. Message thread. */
class AboutBox : public juce::Component
{
public:
    explicit AboutBox (BasePlugInProcessor& processor);

    /** The lines shown, for tests and screen readers. */
    juce::StringArray getLines() const { return lines; }

    void paint (juce::Graphics& g) override;
    void resized() override;
    void mouseDown (const juce::MouseEvent& event) override;
    bool keyPressed (const juce::KeyPress& key) override;

private:
    juce::Rectangle<int> getCard() const;

    BasePlugInProcessor& processor;
    juce::StringArray lines;
    juce::HyperlinkButton helpLink;
};
