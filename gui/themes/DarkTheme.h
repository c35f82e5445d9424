#pragma once

#include "BaseTheme.h"

/** "Simplistic dark": flat charcoal surfaces, an amber accent. */
class DarkTheme : public BaseTheme
{
public:
    DarkTheme();
    juce::String getThemeName() const override { return "Simplistic dark"; }
    int getThemeId() const override { return darkThemeId; }
};
