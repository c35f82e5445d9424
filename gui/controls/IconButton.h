#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

/** A text button that shows an image, a drawable or a glyph of the embedded icon font, instead
    of or beside its text. Message thread. */
class IconButton : public juce::TextButton
{
public:
    /** Glyphs of the embedded icon font used by the editors. */
    struct Glyphs
    {
        static constexpr juce::juce_wchar undo = 0xF0E2, redo = 0xF01E, copy = 0xF0C5,
                                          previous = 0xF053, next = 0xF054, menu = 0xF0C9,
                                          save = 0xF0C7, open = 0xF07C, presets = 0xF0CA,
                                          exchange = 0xF0EC;
    };

    IconButton (const juce::String& name, const juce::String& glyph);
    ~IconButton() override;

    /** Takes ownership. */
    void setIcon (juce::Drawable* drawable);
    void setIcon (const juce::Image& image);
    void setGlyph (const juce::String& glyph);
    /** 0: the icon alone; 1: the button's text beside the icon. */
    void setLayoutMode (int mode);
    /** The icon's width when drawn at this height; 0 without an icon. */
    int getIconWidth (int height) const;

    void paintButton (juce::Graphics& g, bool isMouseOver, bool isButtonDown) override;

private:
    juce::Image iconImage;
    std::unique_ptr<juce::Drawable> iconDrawable;
    juce::String iconGlyph;
    juce::Font font;
    int layoutMode = 0;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (IconButton)
};
