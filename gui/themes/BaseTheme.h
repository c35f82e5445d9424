#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

/** The look shared by every theme: the embedded fonts, the colours behind the editors' colour
    ids and the drawing of the editor's background. A theme only chooses colours and, if it
    likes, its own background. Message thread. */
class BaseTheme : public juce::LookAndFeel_V4
{
public:
    enum ThemeId
    {
        darkThemeId = 1,
        steelThemeId = 2
    };

    /** Makes the theme of an id; unknown ids give the dark theme. Message thread. */
    static std::unique_ptr<BaseTheme> create (int themeId);

    BaseTheme();

    /** The name shown in the themes menu. */
    virtual juce::String getThemeName() const = 0;
    /** The id stored as the editor's "ThemeId". */
    virtual int getThemeId() const = 0;
    /** Fills the editor behind its components. Message thread. */
    virtual void drawEditorBackground (juce::Graphics& g, juce::Rectangle<int> area);

    /** The embedded text face, so that the editor looks the same on every machine. */
    static juce::Typeface::Ptr getTextTypeface (bool bold);
    /** The embedded icon font. */
    static juce::Typeface::Ptr getIconTypeface();

    juce::Typeface::Ptr getTypefaceForFont (const juce::Font& font) override;
    void drawButtonBackground (juce::Graphics&, juce::Button&, const juce::Colour& background,
                               bool highlighted, bool down) override;
    void drawGroupComponentOutline (juce::Graphics&, int width, int height,
                                    const juce::String& text, const juce::Justification&,
                                    juce::GroupComponent&) override;

protected:
    /** Sets JUCE's own colour ids from the theme's few base colours. */
    void applyPalette (juce::Colour background, juce::Colour panel, juce::Colour text,
                       juce::Colour accent, juce::Colour plot);
};
