#include "Axis.h"
#include "ColourIds.h"
#include "EqualizerCurveEditor.h"

// The curve editor's drawing, bottom to top: background, grid, rubber band, guide lines,
// curves, handles, cursor info, border and the shadow along the top edge.

void CurveEditor::paint (juce::Graphics& g)
{
    g.fillAll (findColour (ThemeColourIds::plotBackground));
    paintAxisGrid (g, yAxis != nullptr ? yAxis->getMarkerPositions() : horizontalGrid, false);
    paintAxisGrid (g, xAxis != nullptr ? xAxis->getMarkerPositions() : verticalGrid, true);
    if (dragMode == rubberBand)
    {
        g.setColour (juce::Colours::white.withAlpha (0.1f));
        g.fillRect (rubberBandRect);
        g.setColour (juce::Colours::white.withAlpha (0.3f));
        g.drawRect (rubberBandRect, 1);
    }
    paintHandles (g, false, true);
    paintCurves (g);
    paintHandles (g, true, false);
    if (cursorInfoVisible)
        paintCursorInfo (g);
    g.setColour (findColour (ThemeColourIds::plotBorder));
    g.drawRect (getLocalBounds(), 1);
    const auto shadow = findColour (ThemeColourIds::plotShadow);
    g.setGradientFill (juce::ColourGradient (shadow, 0.0f, 0.0f, juce::Colours::transparentBlack,
                                             0.0f, 6.0f, false));
    g.fillRect (0, 0, getWidth(), 6);
}

void CurveEditor::paintAxisGrid (juce::Graphics& g, const juce::Array<float>& positions,
                                 bool vertical)
{
    g.setColour (findColour (ThemeColourIds::plotGrid));
    for (const float position : positions)
    {
        if (vertical)
        {
            const float x = toPixels ({position, 0.0f}).x;
            g.drawLine (x, 0.0f, x, (float) getHeight(), 0.5f);
        }
        else
        {
            const float y = toPixels ({0.0f, position}).y;
            g.drawLine (0.0f, y, (float) getWidth(), y, 0.5f);
        }
    }
}

void CurveEditor::paintCurves (juce::Graphics& g)
{
    const juce::ScopedLock lock (curveLock);
    for (juce::HashMap<int, Curve>::Iterator i (curves); i.next();)
    {
        auto const& curve = i.getValue();
        if (curve.points.size() < 2)
            continue;
        juce::Path line;
        line.startNewSubPath (0.0f, toPixels (curve.points.getFirst()).y);
        for (auto const& point : curve.points)
            line.lineTo (toPixels (point));
        line.lineTo ((float) getWidth(), toPixels (curve.points.getLast()).y);
        if (!curve.lineColour.isTransparent())
        {
            g.setColour (curve.lineColour);
            g.strokePath (line, juce::PathStrokeType (curve.thickness));
        }
        if (!curve.fillColour.isTransparent())
        {
            const float base = curve.baseline == 0
                                   ? (float) getHeight()
                                   : toPixels ({0.0f, (float) (curve.baseline - 1)}).y;
            juce::Path area (line);
            area.lineTo ((float) getWidth(), base);
            area.lineTo (0.0f, base);
            area.closeSubPath();
            g.setColour (curve.fillColour);
            g.fillPath (area);
        }
    }
}

void CurveEditor::paintHandles (juce::Graphics& g, bool drawHandles, bool drawGuides)
{
    for (juce::HashMap<int, Handle>::Iterator i (handles); i.next();)
    {
        auto const& handle = i.getValue();
        const auto colour = i.getKey() == hoverId ? handle.colour.brighter (0.5f) : handle.colour;
        const auto centre = handleCentre (handle).toFloat();
        if (drawGuides)
        {
            g.setColour (colour);
            if ((handle.guideFlags & Handle::horizontalGuide) != 0)
                g.drawLine (0.0f, centre.y, centre.x, centre.y, 1.0f);
            if ((handle.guideFlags & Handle::verticalGuide) != 0)
                g.drawLine (centre.x, 0.0f, centre.x, centre.y, 1.0f);
        }
        if (!drawHandles)
            continue;
        auto path = handle.getPath();
        path.applyTransform (
            juce::AffineTransform::scale (handle.size).translated (centre.x, centre.y));
        if (handle.selected)
        {
            g.setColour (juce::Colours::white);
            g.strokePath (path, juce::PathStrokeType (2.5f));
        }
        g.setColour (colour);
        g.fillPath (path);
        if (handle.text.isNotEmpty() && handle.size > 0.0f)
        {
            // Beside the handle, on the side away from the nearer horizontal edge.
            const juce::Font font (handle.size);
            const float width = (float) font.getStringWidth (handle.text) + 2.0f;
            const bool upper = centre.y < (float) getHeight() * 0.5f;
            const float y =
                upper ? centre.y + handle.size + 8.0f : centre.y - handle.size - 8.0f - handle.size;
            g.setFont (font);
            g.drawText (
                handle.text,
                juce::Rectangle<float> (centre.x - width * 0.5f, y, width, handle.size + 2.0f),
                juce::Justification::centred, false);
        }
    }
}

void CurveEditor::paintCursorInfo (juce::Graphics& g)
{
    const juce::Font font (13.0f);
    g.setFont (font);
    const float w = (float) font.getStringWidth (cursorInfo) + 2.0f;
    const float h = 13.0f;
    juce::Rectangle<float> box;
    if (crosshairOn)
    {
        g.setColour (juce::Colours::grey);
        g.drawHorizontalLine (juce::roundToInt (crosshairPosition.y), 0.0f, (float) getWidth());
        g.drawVerticalLine (juce::roundToInt (crosshairPosition.x), 0.0f, (float) getHeight());
        box = {crosshairPosition.x + 1.0f, 1.0f, w, h};
        g.fillRect (box);
    }
    else
    {
        const auto pointer = getMouseXYRelative().toFloat();
        float x = pointer.x - w * 0.5f;
        if (x + w > (float) getWidth())
            x = (float) getWidth() - w;
        if (x < 0.0f)
            x = 0.0f;
        box = {x, pointer.y - 6.5f, w, h};
        g.setColour (juce::Colours::white.withAlpha (0.5f));
        g.fillRect (box);
    }
    g.setColour (juce::Colours::black);
    g.drawText (cursorInfo, box, juce::Justification::centred, false);
}
