#include "BaseTheme.h"

#include "ColourIds.h"
#include "DarkTheme.h"
#include "KelfinerFonts.h"
#include "SteelTheme.h"

std::unique_ptr<BaseTheme> BaseTheme::create (int themeId)
{
    if (themeId == steelThemeId)
        return std::make_unique<SteelTheme>();
    return std::make_unique<DarkTheme>();
}

BaseTheme::BaseTheme() { setDefaultSansSerifTypeface (getTextTypeface (false)); }

juce::Typeface::Ptr BaseTheme::getTextTypeface (bool bold)
{
    static auto regular = juce::Typeface::createSystemTypefaceFor (
        KelfinerFonts::DejaVuSans_ttf, KelfinerFonts::DejaVuSans_ttfSize);
    static auto heavy = juce::Typeface::createSystemTypefaceFor (
        KelfinerFonts::DejaVuSansBold_ttf, KelfinerFonts::DejaVuSansBold_ttfSize);
    return bold ? heavy : regular;
}

juce::Typeface::Ptr BaseTheme::getIconTypeface()
{
    static auto icons = juce::Typeface::createSystemTypefaceFor (
        KelfinerFonts::fontawesomewebfont_ttf, KelfinerFonts::fontawesomewebfont_ttfSize);
    return icons;
}

juce::Typeface::Ptr BaseTheme::getTypefaceForFont (const juce::Font& font)
{
    // Every text face resolves to the embedded one; the icon font is asked for by its own name.
    if (font.getTypefaceName() == "FontAwesome")
        return getIconTypeface();
    return getTextTypeface (font.isBold());
}

void BaseTheme::drawEditorBackground (juce::Graphics& g, juce::Rectangle<int> area)
{
    g.setColour (findColour (ThemeColourIds::editorBackground));
    g.fillRect (area);
}

void BaseTheme::drawButtonBackground (juce::Graphics& g, juce::Button& button,
                                      const juce::Colour& background, bool highlighted, bool down)
{
    auto bounds = button.getLocalBounds().toFloat().reduced (0.5f);
    auto colour = background;
    if (!button.isEnabled())
        colour = colour.withMultipliedAlpha (0.5f);
    else if (down)
        colour = colour.brighter (0.25f);
    else if (highlighted)
        colour = colour.brighter (0.12f);
    g.setColour (colour);
    g.fillRoundedRectangle (bounds, 3.0f);
    g.setColour (button.findColour (juce::ComboBox::outlineColourId));
    g.drawRoundedRectangle (bounds, 3.0f, 1.0f);
    if (button.hasKeyboardFocus (true))
    {
        g.setColour (findColour (ThemeColourIds::accent));
        g.drawRoundedRectangle (bounds.reduced (1.0f), 3.0f, 1.5f);
    }
}

void BaseTheme::drawGroupComponentOutline (juce::Graphics& g, int width, int height,
                                           const juce::String& text, const juce::Justification&,
                                           juce::GroupComponent& group)
{
    const float textHeight = 14.0f;
    auto bounds = juce::Rectangle<float> (0.5f, textHeight * 0.5f, (float) width - 1.0f,
                                          (float) height - textHeight * 0.5f - 0.5f);
    g.setColour (group.findColour (juce::GroupComponent::outlineColourId));
    g.drawRoundedRectangle (bounds, 4.0f, 1.0f);
    const juce::Font font (textHeight, juce::Font::bold);
    const int textWidth = font.getStringWidth (text) + 8;
    g.setColour (findColour (ThemeColourIds::editorBackground));
    g.fillRect (juce::Rectangle<float> (10.0f, 0.0f, (float) textWidth, textHeight));
    g.setColour (group.findColour (juce::GroupComponent::textColourId));
    g.setFont (font);
    g.drawText (text, 14, 0, textWidth, (int) textHeight, juce::Justification::centredLeft);
}

void BaseTheme::applyPalette (juce::Colour background, juce::Colour panel, juce::Colour text,
                              juce::Colour accent, juce::Colour plot)
{
    namespace Colours = juce::Colours;
    const auto outline = text.withAlpha (0.35f);
    const std::pair<int, juce::Colour> palette[] = {
        {ThemeColourIds::buttonBackground, panel},
        {ThemeColourIds::buttonBackgroundOn, accent.withMultipliedBrightness (0.8f)},
        {ThemeColourIds::buttonGlyph, text},
        {ThemeColourIds::buttonGlyphOn, Colours::white},
        {ThemeColourIds::plotBackground, plot},
        {ThemeColourIds::plotBorder, Colours::black.withAlpha (0.8f)},
        {ThemeColourIds::plotGrid, Colours::white.withAlpha (0.22f)},
        {ThemeColourIds::plotShadow, Colours::black.withAlpha (0.6f)},
        {ThemeColourIds::axisLabel, text.withAlpha (0.85f)},
        {ThemeColourIds::editorBackground, background},
        {ThemeColourIds::editorText, text},
        {ThemeColourIds::headerBackground, panel.darker (0.3f)},
        {ThemeColourIds::headerText, text},
        {ThemeColourIds::accent, accent},
        {juce::ResizableWindow::backgroundColourId, background},
        {juce::Label::textColourId, text},
        {juce::GroupComponent::outlineColourId, outline},
        {juce::GroupComponent::textColourId, text},
        {juce::TextButton::buttonColourId, panel},
        {juce::TextButton::buttonOnColourId, accent.withMultipliedBrightness (0.8f)},
        {juce::TextButton::textColourOffId, text},
        {juce::TextButton::textColourOnId, Colours::white},
        {juce::ToggleButton::textColourId, text},
        {juce::ToggleButton::tickColourId, accent},
        {juce::ToggleButton::tickDisabledColourId, outline},
        {juce::ComboBox::backgroundColourId, panel},
        {juce::ComboBox::textColourId, text},
        {juce::ComboBox::outlineColourId, outline},
        {juce::ComboBox::arrowColourId, text},
        {juce::PopupMenu::backgroundColourId, panel.darker (0.2f)},
        {juce::PopupMenu::textColourId, text},
        {juce::PopupMenu::highlightedBackgroundColourId, accent.withMultipliedBrightness (0.8f)},
        {juce::PopupMenu::highlightedTextColourId, Colours::white},
        {juce::Slider::thumbColourId, accent},
        {juce::Slider::trackColourId, accent.withMultipliedAlpha (0.6f)},
        {juce::Slider::backgroundColourId, panel.darker (0.4f)},
        {juce::Slider::textBoxTextColourId, text},
        {juce::Slider::textBoxBackgroundColourId, panel.darker (0.3f)},
        {juce::Slider::textBoxOutlineColourId, outline},
        {juce::TooltipWindow::backgroundColourId, panel.darker (0.5f)},
        {juce::TooltipWindow::textColourId, text},
        {juce::TooltipWindow::outlineColourId, outline},
        {juce::AlertWindow::backgroundColourId, panel},
        {juce::AlertWindow::textColourId, text},
        {juce::AlertWindow::outlineColourId, outline},
        {juce::TextEditor::backgroundColourId, panel.darker (0.3f)},
        {juce::TextEditor::textColourId, text},
        {juce::TextEditor::outlineColourId, outline},
        {juce::HyperlinkButton::textColourId, accent.brighter (0.3f)},
    };
    for (auto const& [id, colour] : palette)
        setColour (id, colour);
    getCurrentColourScheme().setUIColour (ColourScheme::widgetBackground, panel);
    getCurrentColourScheme().setUIColour (ColourScheme::windowBackground, background);
}
