#include "Axis.h"

#include "ColourIds.h"

#include <cmath>

Axis::Axis() { setInterceptsMouseClicks (false, false); }

void Axis::setRange (long newMinimum, long newMaximum)
{
    minimum = newMinimum;
    maximum = newMaximum;
    repaint();
}

void Axis::setMode (AxisMode newMode, bool isHorizontal, bool isSecond)
{
    mode = newMode;
    horizontal = isHorizontal;
    second = isSecond;
    repaint();
}

void Axis::setMargin (int newMargin)
{
    margin = newMargin;
    repaint();
}

void Axis::setLabel (const juce::String& newLabel)
{
    label = newLabel;
    setTitle (newLabel);
    repaint();
}

void Axis::setFontHeight (float height)
{
    fontHeight = height;
    repaint();
}

void Axis::setMarkerList (const juce::OwnedArray<Marker>& list)
{
    markers.clear();
    for (auto* marker : list)
        markers.add (new Marker (*marker));
    repaint();
}

juce::Array<float> Axis::getMarkerPositions()
{
    prepareList();
    juce::Array<float> positions;
    for (auto* marker : markers)
        positions.add (marker->position);
    return positions;
}

void Axis::prepareList()
{
    if (mode == custom)
        return;
    const double span = (double) (maximum - minimum);
    if (span == 0.0)
    {
        markers.clear(); // a scale without extent has nothing to mark
        return;
    }
    double pixelsPerUnit = (horizontal ? getWidth() : getHeight()) / span;
    double spacing = fontHeight * 1.2;
    if (horizontal)
    {
        const double widest = juce::jmax (std::abs ((double) minimum), std::abs ((double) maximum));
        spacing = fontHeight * 0.8 * (std::log10 (widest) + 3.0);
    }
    // Not laid out yet: keep what there is. A reversed range counts its pixels the same way.
    if (!(pixelsPerUnit != 0.0) || !std::isfinite (pixelsPerUnit))
        return;
    pixelsPerUnit = std::abs (pixelsPerUnit);

    static constexpr double mantissas[] = {1.0, 2.0, 5.0};
    double step = 0.0;
    for (int k = 0; k < 64; ++k)
    {
        const double candidate = mantissas[k % 3] * std::ceil (std::pow (10.0, k / 3));
        if (candidate * pixelsPerUnit >= spacing)
        {
            step = candidate;
            // A decibel scale of percentages reads better in steps of 5.
            if (mode == decibels && k % 3 == 1)
                step = 5.0 * std::ceil (std::pow (10.0, k / 3));
            break;
        }
    }
    if (step == 0.0)
        return;

    double value = (double) minimum;
    if (mode == logarithmic)
    {
        if (minimum <= 0)
            return;
        value = std::ceil (std::pow (10.0, std::trunc (std::log10 ((double) minimum) + 0.9999999)));
    }
    markers.clear();
    const double low = (double) juce::jmin (minimum, maximum);
    const double high = (double) juce::jmax (minimum, maximum);
    while (value >= low && value <= high)
    {
        auto* marker = markers.add (new Marker());
        if (mode == decibels)
            marker->text = value == 0.0 ? juce::String (juce::CharPointer_UTF8 ("-\xe2\x88\x9e"))
                                        : juce::String::formatted (
                                            "%.1f", 20.0 * std::log10 (std::abs (value) / 100.0));
        else
            marker->text = juce::String ((juce::int64) value);
        if (mode == logarithmic)
            marker->position = (float) (std::log10 (value / (double) minimum)
                                        / std::log10 ((double) maximum / (double) minimum));
        else
            marker->position = (float) ((value - (double) minimum) / span);
        if (mode == logarithmic)
            value *= 10.0;
        else
            value += maximum > minimum ? step : -step;
    }
}

void Axis::paint (juce::Graphics& g)
{
    prepareList();
    const juce::Font font (fontHeight);
    g.setFont (font);
    g.setColour (findColour (ThemeColourIds::axisLabel));

    float spacing = fontHeight;
    if (horizontal)
        for (auto* marker : markers)
            spacing = juce::jmax (spacing, (float) font.getStringWidth (marker->text));

    const float length = (float) (horizontal ? getWidth() : getHeight());
    float lastDrawn = -1.0e9f;
    const int labelBand = horizontal ? (int) fontHeight + 4 : getWidth() - 4;
    for (auto* marker : markers)
    {
        const float along = (float) margin + marker->position * (length - 2.0f * (float) margin);
        // Labels closer than the widest label (or one line) to the last one drawn are dropped.
        if (std::abs (along - lastDrawn) < spacing + 4.0f)
            continue;
        lastDrawn = along;
        if (horizontal)
            g.drawText (
                marker->text,
                juce::Rectangle<float> (along - spacing, 0.0f, 2.0f * spacing, fontHeight + 4.0f),
                juce::Justification::centred, false);
        else
        {
            const float y = length - along; // the minimum is at the bottom
            g.drawText (marker->text,
                        juce::Rectangle<float> (second ? 4.0f : 0.0f, y - fontHeight * 0.5f - 1.0f,
                                                (float) labelBand, fontHeight + 2.0f),
                        second ? juce::Justification::centredLeft
                               : juce::Justification::centredRight,
                        false);
        }
    }

    if (label.isEmpty())
        return;
    // The caption: under a horizontal scale; turned along a vertical one, on its outer side.
    g.setFont (juce::Font (fontHeight, juce::Font::bold));
    if (horizontal)
    {
        g.drawText (label, getLocalBounds().removeFromBottom ((int) fontHeight + 6),
                    juce::Justification::centred, false);
        return;
    }
    juce::Graphics::ScopedSaveState state (g);
    const float x = second ? (float) getWidth() - 2.0f : fontHeight;
    g.addTransform (juce::AffineTransform::rotation (second ? juce::MathConstants<float>::halfPi
                                                            : -juce::MathConstants<float>::halfPi,
                                                     x, length * 0.5f));
    // Turned clockwise (far side) the band below the pivot lands left of it; turned
    // anticlockwise the band above it does.
    const float top = second ? length * 0.5f : length * 0.5f - fontHeight;
    g.drawText (label, juce::Rectangle<float> (x - length * 0.5f, top, length, fontHeight),
                juce::Justification::centred, false);
}
