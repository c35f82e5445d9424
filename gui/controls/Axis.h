#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

/** The labelled scale beside the curve editor. It also supplies the positions of its markers, so
    that the plot's grid lines fall exactly on the labels. Message thread. */
class Axis : public juce::Component
{
public:
    enum AxisMode
    {
        linear = 0,
        logarithmic = 1, ///< decades
        decibels = 2,    ///< decibels of a value given in percent
        custom = 3       ///< a marker list set by the owner
    };

    struct Marker
    {
        juce::String text;
        float position = 0.0f; ///< 0 at the minimum end, 1 at the maximum end
    };

    Axis();

    void setRange (long minimum, long maximum);
    /** `second` marks a scale that sits on the far side of the plot (labels face away from it). */
    void setMode (AxisMode mode, bool horizontal, bool second);
    void setMargin (int margin);
    void setLabel (const juce::String& label);
    void setFontHeight (float height);
    /** Copies the markers; used with the custom mode. */
    void setMarkerList (const juce::OwnedArray<Marker>& markers);
    /** Recomputes the markers, then returns their positions in order. */
    juce::Array<float> getMarkerPositions();
    /** The current markers (after the last computation). */
    const juce::OwnedArray<Marker>& getMarkers() const noexcept { return markers; }

    long getMinimum() const noexcept { return minimum; }
    long getMaximum() const noexcept { return maximum; }
    juce::String getLabel() const { return label; }

    void paint (juce::Graphics& g) override;
    void resized() override {}

private:
    void prepareList();

    int mode = linear;
    bool horizontal = false;
    bool second = false;
    juce::int64 minimum = 0, maximum = 1;
    int margin = 0;
    juce::String label;
    float fontHeight = 12.0f;
    juce::OwnedArray<Marker> markers;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (Axis)
};
