#pragma once

#include "BaseTheme.h"

/** "Brushed steel": a light metal surface drawn from noise, dark text, a blue accent. */
class SteelTheme : public BaseTheme
{
public:
    SteelTheme();
    juce::String getThemeName() const override { return "Brushed steel"; }
    int getThemeId() const override { return steelThemeId; }
    /** Brushed metal: fine horizontal streaks over a soft vertical sheen. */
    void drawEditorBackground (juce::Graphics& g, juce::Rectangle<int> area) override;

private:
    juce::Image brushed;
};
