#include "AboutBox.h"

#include "ColourIds.h"
#include "ErrorBox.h"
#include "OverlayCard.h"

AboutBox::AboutBox (BasePlugInProcessor& owner) : processor (owner)
{
    setName ("aboutBox");
    setTitle (TRANS ("About"));
    setWantsKeyboardFocus (true);
    const auto code = processor.getVersionCode();
    const auto version = juce::String ((code >> 16) & 0xFF) + "."
                         + juce::String ((code >> 8) & 0xFF) + "." + juce::String (code & 0xFF);
    lines.add (processor.getShortName());
    lines.add (BasePlugInProcessor::makerName);
    lines.add (TRANS ("Version") + " " + version);
    lines.add (TRANS ("Format") + ": "
               + juce::AudioProcessor::getWrapperTypeDescription (processor.wrapperType));
    lines.add (TRANS ("Built") + " " + juce::String (__DATE__));
#if KELFINER_LICENSING
    if (auto* licences = processor.getLicenseManager())
        lines.add (licences->isDemo()
                       ? TRANS ("Demo mode")
                       : TRANS ("Licensed to") + " " + licences->getLicence().licensee);
#endif
    helpLink.setButtonText (TRANS ("Help..."));
    helpLink.setTooltip (TRANS ("Open the help page"));
    helpLink.onClick = [this]
    {
        if (const auto problem = processor.showHelp(); problem.isNotEmpty())
            showErrorBox (problem, this);
    };
    addAndMakeVisible (helpLink);
}

juce::Rectangle<int> AboutBox::getCard() const
{
    return getLocalBounds().withSizeKeepingCentre (340, 222);
}

void AboutBox::paint (juce::Graphics& g)
{
    paintOverlayCard (g, *this, getCard());
    auto area = getCard().reduced (16, 14);
    g.setFont (juce::Font (24.0f, juce::Font::bold));
    g.drawText (lines[0], area.removeFromTop (32), juce::Justification::centred);
    g.setFont (juce::Font (15.0f));
    for (int i = 1; i < lines.size(); ++i)
        g.drawText (lines[i], area.removeFromTop (22), juce::Justification::centred);
}

void AboutBox::resized()
{
    helpLink.setBounds (getCard().removeFromBottom (36).withSizeKeepingCentre (120, 24));
}

void AboutBox::mouseDown (const juce::MouseEvent& event)
{
    if (!getCard().contains (event.getPosition()))
        setVisible (false);
}

bool AboutBox::keyPressed (const juce::KeyPress& key)
{
    if (key != juce::KeyPress::escapeKey)
        return false;
    setVisible (false);
    return true;
}
