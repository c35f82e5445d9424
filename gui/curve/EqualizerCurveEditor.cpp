#include "EqualizerCurveEditor.h"

#include "Axis.h"
#include "ColourIds.h"

#include <cmath>

Curve::Curve (const juce::Array<float>& values, juce::Colour line, juce::Colour fill, float width)
    : fillColour (fill), lineColour (line), thickness (width)
{
    const int n = values.size();
    points.ensureStorageAllocated (n);
    for (int i = 0; i < n; ++i)
        points.add ({n > 1 ? (float) i / (float) (n - 1) : 0.0f, values[i]});
}

Curve::Curve (const juce::Array<juce::Point<float>>& curvePoints, juce::Colour line,
              juce::Colour fill, float width)
    : points (curvePoints), fillColour (fill), lineColour (line), thickness (width)
{
}

juce::Path CurveEditor::Handle::getPath() const
{
    juce::Path path;
    switch (shape)
    {
        case circle: path.addEllipse (-0.5f, -0.5f, 1.0f, 1.0f); break;
        case square: path.addRectangle (-0.5f, -0.5f, 1.0f, 1.0f); break;
        case triangle: path.addTriangle (-0.5f, -0.25f, 0.0f, 0.25f, 0.5f, -0.25f); break;
        case tMarker:
        {
            static constexpr float outline[][2] = {{-0.5f, -0.25f}, {0.5f, -0.25f}, {0.5f, -0.05f},
                                                   {0.1f, -0.05f},  {0.1f, 0.25f},  {-0.1f, 0.25f},
                                                   {-0.1f, -0.05f}, {-0.5f, -0.05f}};
            path.startNewSubPath (outline[0][0], outline[0][1]);
            for (int i = 1; i < 8; ++i)
                path.lineTo (outline[i][0], outline[i][1]);
            path.closeSubPath();
            break;
        }
        default: return path;
    }
    path.applyTransform (
        juce::AffineTransform::rotation ((float) rotation * juce::MathConstants<float>::halfPi));
    return path;
}

//==============================================================================
CurveEditor::CurveEditor()
{
    setWantsKeyboardFocus (true);
    setTitle ("Curve display");
}

CurveEditor::~CurveEditor() = default;

void CurveEditor::setCurve (int id, const Curve& curve)
{
    const juce::ScopedLock lock (curveLock);
    curves.set (id, curve);
}

void CurveEditor::removeCurve (int id)
{
    const juce::ScopedLock lock (curveLock);
    curves.remove (id);
}

bool CurveEditor::containsCurve (int id) const
{
    const juce::ScopedLock lock (curveLock);
    return curves.contains (id);
}

Curve CurveEditor::getCurve (int id) const
{
    const juce::ScopedLock lock (curveLock);
    for (juce::HashMap<int, Curve>::Iterator i (curves); i.next();)
        if (i.getKey() == id)
            return i.getValue();
    return {};
}

void CurveEditor::setHandle (int id, const Handle& handle) { handles.set (id, handle); }

CurveEditor::Handle CurveEditor::getHandle (int id) const
{
    return handles.contains (id) ? handles[id] : Handle();
}

bool CurveEditor::containsHandle (int id) const { return handles.contains (id); }

void CurveEditor::removeHandle (int id)
{
    handles.remove (id);
    if (hoverId == id)
        hoverId = -1;
}

void CurveEditor::unSelectHandles()
{
    for (juce::HashMap<int, Handle>::Iterator i (handles); i.next();)
    {
        auto handle = i.getValue();
        handle.selected = false;
        handles.set (i.getKey(), handle);
    }
}

juce::Array<int> CurveEditor::getSelectedHandleIds() const
{
    juce::Array<int> ids;
    for (juce::HashMap<int, Handle>::Iterator i (handles); i.next();)
        if (i.getValue().selected)
            ids.add (i.getKey());
    return ids;
}

juce::Point<float> CurveEditor::toPixels (juce::Point<float> normalised) const
{
    const float w = (float) getWidth(), h = (float) getHeight();
    const float mx = horizontalMargin, my = verticalMargin;
    const float x = juce::jlimit (-2.0f, 2.0f, normalised.x);
    const float y = juce::jlimit (-2.0f, 2.0f, normalised.y);
    float px = mx + 1.0f + x * (w - 1.0f - 2.0f * mx);
    px = juce::jlimit (1.0f, juce::jmax (1.0f, w - 1.0f - mx), px);
    const float py = my + 1.0f + (1.0f - y) * (h - 1.0f - 2.0f * my);
    return {(float) juce::roundToInt (px), (float) juce::roundToInt (py)};
}

juce::Point<float> CurveEditor::toNormalised (juce::Point<float> pixels) const
{
    const float w = (float) getWidth(), h = (float) getHeight();
    const float mx = horizontalMargin, my = verticalMargin;
    const float xSpan = w - 1.0f - 2.0f * mx, ySpan = h - my;
    const float x = xSpan != 0.0f ? ((pixels.x - 1.0f) - mx) / xSpan : 0.0f;
    const float y = ySpan != 0.0f ? 1.0f - ((pixels.y - 1.0f) - my) / ySpan : 0.0f;
    return {juce::jlimit (0.0f, 1.0f, x), juce::jlimit (0.0f, 1.0f, y)};
}

juce::Point<int> CurveEditor::handleCentre (const Handle& handle) const
{
    return toPixels (handle.position).toInt();
}

int CurveEditor::getHandleFromPoint (const juce::Point<int>& point) const
{
    int found = -1;
    int nearest = std::numeric_limits<int>::max();
    for (juce::HashMap<int, Handle>::Iterator i (handles); i.next();)
    {
        const auto c = handleCentre (i.getValue());
        const int s = juce::roundToInt (i.getValue().size);
        if (c.x - s <= point.x && point.x < c.x + s && c.y - s <= point.y && point.y < c.y + s)
        {
            const int distance =
                (int) std::hypot ((double) (point.x - c.x), (double) (point.y - c.y));
            if (distance < nearest)
            {
                nearest = distance;
                found = i.getKey();
            }
        }
    }
    return found;
}

void CurveEditor::setGridPositions (const juce::Array<float>& vertical,
                                    const juce::Array<float>& horizontal)
{
    verticalGrid = vertical;
    horizontalGrid = horizontal;
    repaint();
}

void CurveEditor::setAxes (Axis* newXAxis, Axis* newYAxis)
{
    xAxis = newXAxis;
    yAxis = newYAxis;
    repaint();
}

void CurveEditor::setMargins (float horizontal, float vertical)
{
    horizontalMargin = horizontal;
    verticalMargin = vertical;
    repaint();
}

void CurveEditor::setCursorInfo (const juce::String& text) { cursorInfo = text; }

void CurveEditor::addListener (Listener* listener) { listeners.addIfNotAlreadyThere (listener); }

void CurveEditor::removeListener (Listener* listener)
{
    listeners.removeFirstMatchingValue (listener);
}

void CurveEditor::updateCrosshairCursor (bool on, const juce::Point<float>& pixelPosition)
{
    if (on)
    {
        if (isShowing())
            grabKeyboardFocus();
        crosshairOn = true;
        cursorInfoVisible = true;
        setMouseCursor (juce::MouseCursor::NoCursor);
        crosshairPosition = pixelPosition;
        const auto point = toNormalised (pixelPosition);
        callListeners ([&] (Listener& l) { l.getCursorInfoFromPoint (this, point, cursorInfo); });
        repaint();
        return;
    }
    setMouseCursor (juce::MouseCursor::NormalCursor);
    if (crosshairOn)
        repaint();
    crosshairOn = false;
    cursorInfoVisible = false;
}

//==============================================================================
void CurveEditor::mouseMove (const juce::MouseEvent& event)
{
    if (dragMode == idle)
    {
        const int id = getHandleFromPoint (event.getPosition());
        if (id != hoverId)
        {
            hoverId = id;
            repaint();
        }
    }
    updateCrosshairCursor (event.mods.isAltDown(), event.position);
    if (cursorInfoVisible)
        repaint();
}

void CurveEditor::modifierKeysChanged (const juce::ModifierKeys& modifiers)
{
    updateCrosshairCursor (modifiers.isAltDown() && dragMode != draggingHandle,
                           getMouseXYRelative().toFloat());
}

void CurveEditor::mouseEnter (const juce::MouseEvent&)
{
    if (isShowing())
        grabKeyboardFocus(); // so that modifier changes arrive
}

void CurveEditor::mouseExit (const juce::MouseEvent&)
{
    dragMode = idle;
    cursorInfoVisible = false;
    repaint();
}

void CurveEditor::changeFocus (int id)
{
    focusedId = id;
    handleFocusChanged (id);
    callListeners ([&] (Listener& l) { l.handleFocusChanged (this, id); });
}

void CurveEditor::mouseDown (const juce::MouseEvent& event)
{
    const int id = getHandleFromPoint (event.getPosition());
    if (id != focusedId)
    {
        const auto handle = getHandle (id);
        if (!handle.selected && handle.selectable && !event.mods.isShiftDown()
            && !event.mods.isCtrlDown() && selectionSwitch)
            unSelectHandles();
        changeFocus (id);
    }
    if (id < 0 && selectionSwitch)
    {
        const auto point = toNormalised (event.position);
        backGroundClick (point);
        callListeners ([&] (Listener& l) { l.backGroundClick (this, point); });
        dragMode = rubberBand;
        changeFocus (-1);
        unSelectHandles();
        rubberBandAnchor = event.getPosition();
        rubberBandRect = {rubberBandAnchor.x, rubberBandAnchor.y, 0, 0};
    }
    if (id >= 0)
    {
        dragMode = draggingHandle;
        auto handle = getHandle (id);
        handle.selected = handle.selectable && selectionSwitch;
        callListeners ([&] (Listener& l) { l.handleDragStarted (this, id, handle); });
        callListeners ([&] (Listener& l) { l.handlePositionChanged (this, id, handle); });
        setHandle (id, handle);
        repaint();
    }
}

void CurveEditor::mouseDrag (const juce::MouseEvent& event)
{
    if (focusedId >= 0 && dragMode == draggingHandle)
    {
        const int id = focusedId;
        auto handle = getHandle (id);
        const auto point = toNormalised (event.position);
        const bool alt = event.mods.isAltDown(), shift = event.mods.isShiftDown();
        if (!(alt && !shift))
            handle.position.x = point.x;
        if (!(alt && shift))
            handle.position.y = point.y;
        handlePositionChanged (id, handle);
        callListeners ([&] (Listener& l) { l.handlePositionChanged (this, id, handle); });
        setHandle (id, handle);
        repaint();
    }
    if (dragMode == rubberBand)
    {
        const auto p = event.getPosition();
        rubberBandRect = {juce::jmin (p.x, rubberBandAnchor.x),
                          juce::jmin (p.y, rubberBandAnchor.y), std::abs (p.x - rubberBandAnchor.x),
                          std::abs (p.y - rubberBandAnchor.y)};
        juce::Array<int> ids;
        for (juce::HashMap<int, Handle>::Iterator i (handles); i.next();)
            ids.add (i.getKey());
        for (const int id : ids)
        {
            auto handle = getHandle (id);
            const auto c = handleCentre (handle);
            const bool inside = rubberBandRect.getX() <= c.x && c.x < rubberBandRect.getRight()
                                && rubberBandRect.getY() <= c.y && c.y < rubberBandRect.getBottom();
            handle.selected = inside && handle.selectable;
            if (inside && focusedId < 0)
                changeFocus (id);
            setHandle (id, handle);
        }
        repaint();
    }
}

void CurveEditor::mouseUp (const juce::MouseEvent&)
{
    cursorInfoVisible = false;
    if (focusedId >= 0)
    {
        const int id = focusedId;
        auto handle = getHandle (id);
        callListeners ([&] (Listener& l) { l.handleDragEnded (this, id, handle); });
        repaint();
    }
    if (dragMode != idle)
    {
        dragMode = idle;
        repaint();
    }
}

void CurveEditor::mouseDoubleClick (const juce::MouseEvent& event)
{
    if (event.getNumberOfClicks() >= 3)
        return;
    if (focusedId < 0)
    {
        const auto point = toNormalised (event.position);
        backGroundDoubleClick (point);
        callListeners ([&] (Listener& l) { l.backGroundDoubleClick (this, point); });
        return;
    }
    const int hit = getHandleFromPoint (event.getPosition());
    auto handle = getHandle (hit);
    handleDoubleClick (hit, handle);
    const int id = focusedId;
    auto focused = getHandle (id);
    callListeners ([&] (Listener& l) { l.handleDoubleClick (this, id, focused); });
}
