#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

class Axis;

/** A line, optionally filled, in the curve editor's normalised coordinates (x to the right, y
    upwards, both nominally 0 to 1). */
class Curve
{
public:
    /** Point i is (i / (n - 1), values[i]). */
    Curve (const juce::Array<float>& values, juce::Colour lineColour, juce::Colour fillColour,
           float thickness);
    Curve (const juce::Array<juce::Point<float>>& points, juce::Colour lineColour,
           juce::Colour fillColour, float thickness);
    /** An empty curve; juce::HashMap needs one to make its entries. */
    Curve() = default;
    virtual ~Curve() = default;
    Curve (const Curve&) = default;
    Curve& operator= (const Curve&) = default;

    juce::Array<juce::Point<float>> points;
    juce::Colour fillColour;
    juce::Colour lineColour;
    float thickness = 1.0f;
    /** The normalised level a fill closes to, plus one; 0 closes to the bottom edge. */
    std::int32_t baseline = 0;
};

/** The interactive plot: a grid, curves and draggable handles. It knows nothing of frequencies or
    decibels; its owner converts. Message thread (the curve map has its own lock, so a timer may
    replace curves while a paint runs). */
class CurveEditor : public juce::Component
{
public:
    struct Handle
    {
        enum Shape
        {
            circle = 1,
            square = 2,
            triangle = 3,
            tMarker = 4
        };
        enum GuideFlags
        {
            horizontalGuide = 1,
            verticalGuide = 16
        };

        juce::Point<float> position;
        float size = 0.0f; ///< half-width in pixels
        int shape = circle;
        int rotation = 2; ///< quarter turns
        juce::Colour colour = juce::Colours::black;
        int guideFlags = 0;
        juce::String text;
        bool selected = false;
        bool selectable = false;

        /** The shape in unit coordinates around the origin, rotated. */
        juce::Path getPath() const;
    };

    class Listener
    {
    public:
        virtual ~Listener() = default;
        virtual void handleDragStarted (CurveEditor*, int, Handle&) {}
        virtual void handleDragEnded (CurveEditor*, int, Handle&) {}
        /** The listener may change the handle; the editor stores it after all listeners ran. */
        virtual void handlePositionChanged (CurveEditor*, int, Handle&) {}
        virtual void handleFocusChanged (CurveEditor*, int) {}
        virtual void handleDoubleClick (CurveEditor*, int, Handle&) {}
        virtual void backGroundDoubleClick (CurveEditor*, const juce::Point<float>&) {}
        virtual void backGroundClick (CurveEditor*, const juce::Point<float>&) {}
        virtual void getCursorInfoFromPoint (CurveEditor*, const juce::Point<float>&, juce::String&)
        {
        }
    };

    enum DragMode
    {
        idle = 0,
        draggingHandle = 1,
        rubberBand = 2
    };

    CurveEditor();
    ~CurveEditor() override;

    void setCurve (int id, const Curve& curve);
    void removeCurve (int id);
    bool containsCurve (int id) const;
    /** A copy of a curve; an empty one when absent. */
    Curve getCurve (int id) const;

    void setHandle (int id, const Handle& handle);
    /** A copy; the default handle when absent. */
    Handle getHandle (int id) const;
    bool containsHandle (int id) const;
    void removeHandle (int id);
    void unSelectHandles();
    juce::Array<int> getSelectedHandleIds() const;
    /** The nearest handle whose box holds the point, or -1. */
    int getHandleFromPoint (const juce::Point<int>& point) const;
    int getFocusedHandleId() const noexcept { return focusedId; }
    int getHoverHandleId() const noexcept { return hoverId; }
    int getDragMode() const noexcept { return dragMode; }

    void setGridPositions (const juce::Array<float>& vertical,
                           const juce::Array<float>& horizontal);
    /** Axes whose marker positions replace the grid arrays when painting; not owned. */
    void setAxes (Axis* xAxis, Axis* yAxis);
    void setMargins (float horizontal, float vertical);
    void setCursorInfo (const juce::String& text);
    juce::String getCursorInfo() const { return cursorInfo; }
    bool isCursorInfoVisible() const noexcept { return cursorInfoVisible; }
    bool isCrosshairOn() const noexcept { return crosshairOn; }
    /** When off, clicks select nothing and start no rubber band. */
    void setSelectionSwitch (bool on) noexcept { selectionSwitch = on; }
    bool getSelectionSwitch() const noexcept { return selectionSwitch; }
    void addListener (Listener* listener);
    void removeListener (Listener* listener);
    void updateCrosshairCursor (bool on, const juce::Point<float>& pixelPosition);

    juce::Point<float> toPixels (juce::Point<float> normalised) const;
    /** The inverse used for mouse input; its vertical span is the height less one margin, not
        two, so it is not an exact inverse when there is a vertical margin. */
    juce::Point<float> toNormalised (juce::Point<float> pixels) const;

    void paint (juce::Graphics& g) override;
    void resized() override {}
    void mouseMove (const juce::MouseEvent& event) override;
    void mouseEnter (const juce::MouseEvent& event) override;
    void mouseExit (const juce::MouseEvent& event) override;
    void mouseDown (const juce::MouseEvent& event) override;
    void mouseDrag (const juce::MouseEvent& event) override;
    void mouseUp (const juce::MouseEvent& event) override;
    void mouseDoubleClick (const juce::MouseEvent& event) override;
    void modifierKeysChanged (const juce::ModifierKeys& modifiers) override;
    void focusGained (FocusChangeType) override {}
    void focusLost (FocusChangeType) override {}

protected:
    virtual void handleDragStarted (int, Handle&) {}
    virtual void handleDragEnded (int, Handle&) {}
    virtual void handlePositionChanged (int, Handle&) {}
    virtual void handleFocusChanged (int) {}
    virtual void handleDoubleClick (int, Handle&) {}
    virtual void backGroundDoubleClick (const juce::Point<float>&) {}
    virtual void backGroundClick (const juce::Point<float>&) {}

private:
    template <typename Call>
    void callListeners (Call&& call)
    {
        // Last added first; the count is read again each step, so a listener may remove itself.
        for (int i = listeners.size(); --i >= 0;)
        {
            if (i >= listeners.size())
                continue;
            call (*listeners.getUnchecked (i));
        }
    }
    void changeFocus (int id);
    juce::Point<int> handleCentre (const Handle& handle) const;
    void paintAxisGrid (juce::Graphics& g, const juce::Array<float>& positions, bool vertical);
    void paintCurves (juce::Graphics& g);
    void paintHandles (juce::Graphics& g, bool handles, bool guides);
    void paintCursorInfo (juce::Graphics& g);

    juce::Array<Listener*> listeners;
    juce::HashMap<int, Curve> curves;
    juce::CriticalSection curveLock;
    juce::HashMap<int, Handle> handles;
    int focusedId = -1;
    int hoverId = -1;
    int dragMode = idle;
    juce::Point<int> rubberBandAnchor;
    juce::Rectangle<int> rubberBandRect;
    bool selectionSwitch = false;
    juce::String cursorInfo;
    bool cursorInfoVisible = false;
    bool crosshairOn = false;
    juce::Point<float> crosshairPosition;
    float horizontalMargin = 0.0f, verticalMargin = 0.0f;
    juce::Array<float> verticalGrid, horizontalGrid;
    Axis* xAxis = nullptr;
    Axis* yAxis = nullptr;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (CurveEditor)
};
