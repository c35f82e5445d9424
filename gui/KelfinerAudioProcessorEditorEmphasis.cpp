#include "KelfinerAudioProcessorEditor.h"

#include "Interpolation.h"

#include <algorithm>

// The emphasis points: up to twelve handles whose positions are engine parameters. Enabled
// points always occupy the lowest slots in ascending frequency, so a point's neighbours are the
// slots beside it.

using vesk::audio::Coordinate2D;
using vesk::audio::Deconvolution;

namespace
{
constexpr int numPoints = Deconvolution::numEmphasisPoints;
const juce::Colour emphasisColour (0xFF69A62A);

bool handleCompare (const Coordinate2D& a, const Coordinate2D& b) { return a.x < b.x; }
} // namespace

void KelfinerAudioProcessorEditor::updateEmphasisHandles()
{
    const bool on = engineValue (Deconvolution::enableEmphasisCurveIndex) > 0.5f;
    for (int i = 0; i < numPoints; ++i)
    {
        if (!on || engineValue (Deconvolution::emphasisPointEnabledIndex + i) <= 0.5f)
        {
            filterCurveEditor.removeHandle (i);
            continue;
        }
        const juce::Point<float> position (
            xFromFrequency (engineValue (Deconvolution::emphasisPointFrequencyIndex + i)),
            engineValue (Deconvolution::emphasisPointLevelIndex + i) / 100.0f);
        CurveEditor::Handle handle;
        if (filterCurveEditor.containsHandle (i))
            handle = filterCurveEditor.getHandle (i);
        else
        {
            handle.size = 10.0f;
            handle.shape = CurveEditor::Handle::square;
            handle.rotation = 2;
            handle.colour = emphasisColour;
            handle.guideFlags = 0;
            handle.text = {};
            handle.selected = false;
        }
        handle.position = position;
        handle.selectable = true;
        filterCurveEditor.setHandle (i, handle);
    }
    if (!filterCurveEditor.containsHandle (filterCurveEditor.getFocusedHandleId()))
        filterCurveEditor.unSelectHandles();
    updateEmphasisCurve();
}

void KelfinerAudioProcessorEditor::updateEmphasisCurve()
{
    std::vector<Coordinate2D> points;
    for (int i = 0; i < numPoints; ++i)
        if (filterCurveEditor.containsHandle (i))
        {
            const auto position = filterCurveEditor.getHandle (i).position;
            points.push_back ({position.x, position.y});
        }
    if (points.empty() || engineValue (Deconvolution::enableEmphasisCurveIndex) <= 0.5f)
    {
        filterCurveEditor.removeCurve (emphasisCurveId);
        return;
    }
    // The engine weights each bin by the same interpolation over log frequency, so what is
    // drawn is what is applied.
    std::sort (points.begin(), points.end(), handleCompare);
    const vesk::audio::TrigonometricInterpolation interpolation (points);
    const auto samples = interpolation.getSignal (256, 0.0f, 1.0f);
    juce::Array<float> values;
    for (int k = 0; k < samples.getNumSamples(); ++k)
        values.add (samples[0][k]);
    filterCurveEditor.setCurve (
        emphasisCurveId, Curve (values, emphasisColour, juce::Colours::transparentBlack, 2.0f));
}

void KelfinerAudioProcessorEditor::updateEmphasisGrid()
{
    // The grid lines fall on the labels of the gain and frequency scales.
    filterCurveEditor.setGridPositions (frequencyAxis.getMarkerPositions(),
                                        gainAxis.getMarkerPositions());
}

void KelfinerAudioProcessorEditor::handleDragStarted (CurveEditor*, int id, CurveEditor::Handle&)
{
    if (juce::isPositiveAndBelow (id, numPoints))
        processor.addUndoState();
}

void KelfinerAudioProcessorEditor::handlePositionChanged (CurveEditor*, int id,
                                                          CurveEditor::Handle& handle)
{
    if (!juce::isPositiveAndBelow (id, numPoints))
        return;
    const float oldX =
        xFromFrequency (engineValue (Deconvolution::emphasisPointFrequencyIndex + id));
    const float oldY = engineValue (Deconvolution::emphasisPointLevelIndex + id) / 100.0f;
    float dx = handle.position.x - oldX;
    float dy = handle.position.y - oldY;
    getAllowedMovement (dx, dy);
    handle.position = {oldX + dx, oldY + dy};
    moveSelection (dx, dy);
    // The moved handle itself may not be selected yet (the press that started the drag).
    if (!filterCurveEditor.getSelectedHandleIds().contains (id))
    {
        setEngineValue (Deconvolution::emphasisPointFrequencyIndex + id,
                        frequencyFromX (handle.position.x));
        setEngineValue (Deconvolution::emphasisPointLevelIndex + id, handle.position.y * 100.0f);
    }
    updateEmphasisCurve();
    filterCurveEditor.setCursorInfo (juce::String::formatted (
        "%.1f Hz, %.1f %%", frequencyFromX (handle.position.x), handle.position.y * 100.0f));
}

void KelfinerAudioProcessorEditor::getAllowedMovement (float& dx, float& dy) const
{
    for (const int id : filterCurveEditor.getSelectedHandleIds())
    {
        if (!juce::isPositiveAndBelow (id, numPoints))
            continue;
        const auto position = filterCurveEditor.getHandle (id).position;
        float x = juce::jlimit (0.0f, 1.0f, position.x + dx);
        if (id >= 1)
            x = juce::jmax (x, filterCurveEditor.getHandle (id - 1).position.x);
        if (id < numPoints - 1 && filterCurveEditor.containsHandle (id + 1))
            x = juce::jmin (x, filterCurveEditor.getHandle (id + 1).position.x);
        const float y = juce::jlimit (0.0f, 1.0f, position.y + dy);
        dx = x - position.x;
        dy = y - position.y;
    }
}

void KelfinerAudioProcessorEditor::moveSelection (float dx, float dy)
{
    for (const int id : filterCurveEditor.getSelectedHandleIds())
    {
        if (!juce::isPositiveAndBelow (id, numPoints))
            continue;
        auto handle = filterCurveEditor.getHandle (id);
        handle.position += juce::Point<float> (dx, dy);
        filterCurveEditor.setHandle (id, handle);
        setEngineValue (Deconvolution::emphasisPointFrequencyIndex + id,
                        frequencyFromX (handle.position.x));
        setEngineValue (Deconvolution::emphasisPointLevelIndex + id, handle.position.y * 100.0f);
    }
}

void KelfinerAudioProcessorEditor::backGroundDoubleClick (CurveEditor*,
                                                          const juce::Point<float>& point)
{
    if (engineValue (Deconvolution::enableEmphasisCurveIndex) <= 0.5f)
        return;
    int slot = -1, used = 0;
    for (int i = 0; i < numPoints; ++i)
    {
        if (engineValue (Deconvolution::emphasisPointEnabledIndex + i) > 0.5f)
            ++used;
        else if (slot < 0)
            slot = i;
    }
    if (slot < 0 || used >= numPoints)
        return;
    processor.addUndoState();
    setEngineValue (Deconvolution::emphasisPointEnabledIndex + slot, 1.0f);
    setEngineValue (Deconvolution::emphasisPointFrequencyIndex + slot, frequencyFromX (point.x));
    setEngineValue (Deconvolution::emphasisPointLevelIndex + slot, point.y * 100.0f);
    sortHandles();
}

void KelfinerAudioProcessorEditor::handleDoubleClick (CurveEditor*, int id, CurveEditor::Handle&)
{
    if (!juce::isPositiveAndBelow (id, numPoints))
        return;
    processor.addUndoState();
    setEngineValue (Deconvolution::emphasisPointEnabledIndex + id, 0.0f);
    sortHandles();
}

void KelfinerAudioProcessorEditor::sortHandles()
{
    std::vector<Coordinate2D> points;
    for (int i = 0; i < numPoints; ++i)
        if (engineValue (Deconvolution::emphasisPointEnabledIndex + i) > 0.5f)
            points.push_back ({engineValue (Deconvolution::emphasisPointFrequencyIndex + i),
                               engineValue (Deconvolution::emphasisPointLevelIndex + i)});
    std::stable_sort (points.begin(), points.end(), handleCompare);
    for (int i = 0; i < numPoints; ++i)
    {
        const bool enabled = i < (int) points.size();
        if (engineValue (Deconvolution::emphasisPointEnabledIndex + i) != (enabled ? 1.0f : 0.0f))
            setEngineValue (Deconvolution::emphasisPointEnabledIndex + i, enabled ? 1.0f : 0.0f);
        if (!enabled)
            continue;
        setEngineValue (Deconvolution::emphasisPointFrequencyIndex + i,
                        (float) points[(size_t) i].x);
        setEngineValue (Deconvolution::emphasisPointLevelIndex + i, (float) points[(size_t) i].y);
    }
    // Slots now hold other points: the handles are rebuilt from the parameters.
    for (int i = 0; i < numPoints; ++i)
        filterCurveEditor.removeHandle (i);
    updateEmphasisHandles();
}
