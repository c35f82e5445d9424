#pragma once

#include "ColourIds.h"

#include <juce_gui_basics/juce_gui_basics.h>

/** The look of the editor's overlays (about box, licence dialog): the editor dimmed, a card in the
    theme's colours with an accent edge; leaves the text colour set for what follows. Message
    thread. */
inline void paintOverlayCard (juce::Graphics& g, const juce::Component& overlay,
                              juce::Rectangle<int> card)
{
    g.fillAll (juce::Colours::black.withAlpha (0.55f));
    g.setColour (overlay.findColour (ThemeColourIds::editorBackground));
    g.fillRoundedRectangle (card.toFloat(), 8.0f);
    g.setColour (overlay.findColour (ThemeColourIds::accent));
    g.drawRoundedRectangle (card.toFloat().reduced (0.5f), 8.0f, 1.5f);
    g.setColour (overlay.findColour (ThemeColourIds::editorText));
}
