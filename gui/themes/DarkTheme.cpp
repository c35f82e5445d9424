#include "DarkTheme.h"

DarkTheme::DarkTheme()
{
    applyPalette (juce::Colour (0xFF232529), juce::Colour (0xFF34373D), juce::Colour (0xFFE4E6EA),
                  juce::Colour (0xFFE0962A), juce::Colour (0xFF16181B));
}
