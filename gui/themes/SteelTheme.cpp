#include "SteelTheme.h"

#include "ColourIds.h"

SteelTheme::SteelTheme()
{
    applyPalette (juce::Colour (0xFFB9BDC2), juce::Colour (0xFFD3D6DA), juce::Colour (0xFF1E2126),
                  juce::Colour (0xFF2F6DB5), juce::Colour (0xFF1B1F24));
    // On steel the axis labels sit on the light surface, not on the dark plot.
    setColour (ThemeColourIds::axisLabel, juce::Colour (0xFF2A2D33));
    setColour (ThemeColourIds::buttonGlyphOn, juce::Colours::white);
    setColour (ThemeColourIds::headerBackground, juce::Colour (0xFF9DA2A8));
}

void SteelTheme::drawEditorBackground (juce::Graphics& g, juce::Rectangle<int> area)
{
    // The texture is made once per size from a fixed seed: the same streaks on every machine and
    // every repaint, and no per-paint cost beyond one image draw.
    if (brushed.getWidth() != area.getWidth() || brushed.getHeight() != area.getHeight())
    {
        const int width = juce::jmax (1, area.getWidth());
        const int height = juce::jmax (1, area.getHeight());
        brushed = juce::Image (juce::Image::RGB, width, height, false);
        juce::Image::BitmapData pixels (brushed, juce::Image::BitmapData::writeOnly);
        juce::Random random (0x5EE1);
        const auto base = findColour (ThemeColourIds::editorBackground);
        std::vector<float> streak (static_cast<size_t> (width));
        for (int y = 0; y < height; ++y)
        {
            // A streak is noise smoothed along the row, so grain runs horizontally.
            float smooth = random.nextFloat() - 0.5f;
            for (auto& value : streak)
            {
                smooth = 0.92f * smooth + 0.08f * (random.nextFloat() - 0.5f);
                value = smooth;
            }
            const float sheen = 0.06f
                                * std::cos (juce::MathConstants<float>::pi * 1.6f
                                            * ((float) y / (float) height - 0.35f));
            const float rowTone = 0.03f * (random.nextFloat() - 0.5f);
            for (int x = 0; x < width; ++x)
            {
                const float delta = sheen + rowTone + 0.5f * streak[(size_t) x];
                const auto shade = [delta] (juce::uint8 channel) {
                    return (juce::uint8) juce::jlimit (0, 255,
                                                       (int) channel + (int) (delta * 160.0f));
                };
                pixels.setPixelColour (x, y,
                                       juce::Colour (shade (base.getRed()), shade (base.getGreen()),
                                                     shade (base.getBlue())));
            }
        }
    }
    g.drawImageAt (brushed, area.getX(), area.getY());
}
