#include "DemoDialog.h"

#include "ColourIds.h"
#include "OverlayCard.h"

using vesk::licensing::Verdict;

DemoDialog::DemoDialog (vesk::licensing::LicenseManager& manager) : licences (manager)
{
    setName ("demoDialog");
    setTitle (TRANS ("Authorise"));
    setWantsKeyboardFocus (true);
    explanation.setText (
        TRANS ("This copy runs in demo mode: every 40 to 90 seconds the output falls silent for "
               "2 to 3 seconds. Everything else works. Paste your licence key below, or load the "
               "key file you received, to remove the muting."),
        juce::dontSendNotification);
    explanation.setJustificationType (juce::Justification::topLeft);
    explanation.setFont (juce::Font (14.0f));
    keyEditor.setMultiLine (true, true);
    keyEditor.setReturnKeyStartsNewLine (false);
    keyEditor.setTitle (TRANS ("Licence key"));
    keyEditor.setTextToShowWhenEmpty (TRANS ("Paste the licence key here"), juce::Colours::grey);
    status.setFont (juce::Font (13.0f));
    status.setJustificationType (juce::Justification::topLeft);
    authoriseButton.setButtonText (TRANS ("Authorise"));
    loadButton.setButtonText (TRANS ("Load key file..."));
    closeButton.setButtonText (TRANS ("Continue in demo mode"));
    authoriseButton.onClick = [this] { authorise (keyEditor.getText()); };
    loadButton.onClick = [this]
    {
        chooser = std::make_unique<juce::FileChooser> (
            TRANS ("Please select your licence key file..."), juce::File(), "*");
        chooser->launchAsync (
            juce::FileBrowserComponent::openMode | juce::FileBrowserComponent::canSelectFiles,
            [safe = juce::Component::SafePointer (this)] (const juce::FileChooser& chosen)
            {
                if (safe != nullptr && chosen.getResult() != juce::File())
                    safe->authoriseFromFile (chosen.getResult());
            });
    };
    closeButton.onClick = [this] { setVisible (false); };
    for (juce::Component* c : {(juce::Component*) &explanation, (juce::Component*) &keyEditor,
                               (juce::Component*) &status, (juce::Component*) &authoriseButton,
                               (juce::Component*) &loadButton, (juce::Component*) &closeButton})
        addAndMakeVisible (c);
    if (!licences.isDemo())
        showVerdict (Verdict::accepted);
}

Verdict DemoDialog::authorise (const juce::String& text)
{
    const auto verdict = licences.authorise (text);
    showVerdict (verdict);
    return verdict;
}

Verdict DemoDialog::authoriseFromFile (const juce::File& file)
{
    const auto verdict = licences.authoriseFromFile (file);
    showVerdict (verdict);
    return verdict;
}

void DemoDialog::showVerdict (Verdict verdict)
{
    if (verdict == Verdict::accepted)
    {
        const auto licence = licences.getLicence();
        status.setText (TRANS ("Thank you. Licensed to") + " " + licence.licensee + " ("
                            + licence.email + "). " + TRANS ("The muting has stopped."),
                        juce::dontSendNotification);
        closeButton.setButtonText (TRANS ("Close"));
    }
    else
        status.setText (TRANS (vesk::licensing::describe (verdict)), juce::dontSendNotification);
    status.setColour (juce::Label::textColourId, verdict == Verdict::accepted
                                                     ? findColour (ThemeColourIds::editorText)
                                                     : juce::Colour (0xFFE05A4A));
}

juce::Rectangle<int> DemoDialog::getCard() const
{
    return getLocalBounds().withSizeKeepingCentre (520, 330);
}

void DemoDialog::paint (juce::Graphics& g)
{
    paintOverlayCard (g, *this, getCard());
    g.setFont (juce::Font (20.0f, juce::Font::bold));
    g.drawText (TRANS ("Kelfiner demo"), getCard().reduced (20, 14).removeFromTop (26),
                juce::Justification::centredLeft);
}

void DemoDialog::resized()
{
    auto area = getCard().reduced (20, 14);
    area.removeFromTop (32);
    explanation.setBounds (area.removeFromTop (60));
    keyEditor.setBounds (area.removeFromTop (90));
    area.removeFromTop (6);
    status.setBounds (area.removeFromTop (46));
    auto buttons = area.removeFromBottom (30);
    authoriseButton.setBounds (buttons.removeFromLeft (110));
    buttons.removeFromLeft (8);
    loadButton.setBounds (buttons.removeFromLeft (130));
    closeButton.setBounds (buttons.removeFromRight (180));
}

bool DemoDialog::keyPressed (const juce::KeyPress& key)
{
    if (key != juce::KeyPress::escapeKey)
        return false;
    setVisible (false);
    return true;
}
