#include "IconButton.h"

#include "BaseTheme.h"
#include "ColourIds.h"

IconButton::IconButton (const juce::String& name, const juce::String& glyph)
    : juce::TextButton (name), iconGlyph (glyph), font (BaseTheme::getIconTypeface())
{
}

IconButton::~IconButton() = default;

void IconButton::setIcon (juce::Drawable* drawable)
{
    iconDrawable.reset (drawable);
    repaint();
}

void IconButton::setIcon (const juce::Image& image)
{
    iconImage = image;
    repaint();
}

void IconButton::setGlyph (const juce::String& glyph)
{
    iconGlyph = glyph;
    repaint();
}

void IconButton::setLayoutMode (int mode)
{
    layoutMode = mode;
    repaint();
}

int IconButton::getIconWidth (int height) const
{
    if (iconImage.isValid())
        return iconImage.getWidth() * height / juce::jmax (1, iconImage.getHeight());
    if (iconDrawable != nullptr)
    {
        const auto bounds = iconDrawable->getDrawableBounds();
        return bounds.getHeight() > 0.0f
                   ? juce::roundToInt (bounds.getWidth() * (float) height / bounds.getHeight())
                   : 0;
    }
    if (iconGlyph.isNotEmpty())
        return font.withHeight ((float) height).getStringWidth (iconGlyph);
    return 0;
}

void IconButton::paintButton (juce::Graphics& g, bool isMouseOver, bool isButtonDown)
{
    const int toggled = getToggleState() ? 1 : 0;
    getLookAndFeel().drawButtonBackground (g, *this,
                                           findColour (ThemeColourIds::buttonBackground + toggled),
                                           isMouseOver, isButtonDown);
    auto area = getLocalBounds().toFloat();
    const float margin = 0.27f * juce::jmin (area.getWidth(), area.getHeight());
    auto iconArea = area.reduced (margin);
    if (layoutMode == 1)
    {
        const float iconWidth = (float) getIconWidth ((int) iconArea.getHeight());
        iconArea = iconArea.removeFromLeft (iconWidth);
        auto textArea = area.withTrimmedLeft (iconArea.getRight() + margin * 0.5f - area.getX());
        g.setColour (findColour (ThemeColourIds::buttonText));
        g.setFont (juce::Font (juce::jmin (15.0f, area.getHeight() * 0.55f)));
        g.drawText (getButtonText(), textArea, juce::Justification::centredLeft, true);
    }
    const float alpha = isEnabled() ? 1.0f : 0.4f;
    if (iconImage.isValid())
    {
        g.setOpacity (alpha);
        g.drawImage (iconImage, iconArea, juce::RectanglePlacement::centred);
    }
    else if (iconDrawable != nullptr)
        iconDrawable->drawWithin (g, iconArea, juce::RectanglePlacement::centred, alpha);
    else if (iconGlyph.isNotEmpty())
    {
        g.setColour (
            findColour (ThemeColourIds::buttonGlyph + toggled).withMultipliedAlpha (alpha));
        g.setFont (font.withHeight (iconArea.getHeight()));
        g.drawText (iconGlyph, layoutMode == 1 ? iconArea : area, juce::Justification::centred,
                    false);
    }
}
