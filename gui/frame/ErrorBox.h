#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

/** Tells the user of a failure in an asynchronous warning box titled "Error occured", as all of
    the maker's plug-ins do. Without a display (headless rendering, tests) nothing is shown; the
    caller keeps the text. Message thread. */
inline void showErrorBox (const juce::String& text, juce::Component* associated)
{
    if (juce::Desktop::getInstance().getDisplays().getPrimaryDisplay() == nullptr)
        return;
    juce::AlertWindow::showMessageBoxAsync (juce::MessageBoxIconType::WarningIcon,
                                            TRANS ("Error occured"), text, {}, associated);
}
