#pragma once

#include "LicenseManager.h"

#include <juce_gui_basics/juce_gui_basics.h>

/** Shown over the editor in demo mode and from the plug-in menu: explains the demo muting, takes
    a licence key pasted as text or loaded from a file, and says why a key was refused. Message
    thread. */
class DemoDialog : public juce::Component
{
public:
    explicit DemoDialog (vesk::licensing::LicenseManager& licences);

    /** Checks and stores a key; the result is shown and returned. */
    vesk::licensing::Verdict authorise (const juce::String& text);
    /** Reads a key file (as the "Load key file..." button does after its chooser). */
    vesk::licensing::Verdict authoriseFromFile (const juce::File& file);
    /** The message under the key field. */
    juce::String getStatusText() const { return status.getText(); }

    void paint (juce::Graphics& g) override;
    void resized() override;
    bool keyPressed (const juce::KeyPress& key) override;

private:
    juce::Rectangle<int> getCard() const;
    void showVerdict (vesk::licensing::Verdict verdict);

    vesk::licensing::LicenseManager& licences;
    juce::Label explanation, status;
    juce::TextEditor keyEditor;
    juce::TextButton authoriseButton, loadButton, closeButton;
    std::unique_ptr<juce::FileChooser> chooser;
};
