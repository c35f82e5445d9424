#include "EqualizerCurveEditor.h"
#include "MouseEvents.h"

#include <gtest/gtest.h>

using vesk::test::mouseAt;

namespace
{
/** Records every call, own hooks and listener calls alike, in the order they arrive. */
struct Log
{
    juce::StringArray calls;
};

class RecordingEditor : public CurveEditor
{
public:
    explicit RecordingEditor (Log& l) : log (l) {}
    Log& log;

protected:
    void handlePositionChanged (int id, Handle&) override
    {
        log.calls.add ("own move " + juce::String (id));
    }
    void handleFocusChanged (int id) override { log.calls.add ("own focus " + juce::String (id)); }
    void handleDoubleClick (int id, Handle&) override
    {
        log.calls.add ("own double " + juce::String (id));
    }
    void backGroundDoubleClick (const juce::Point<float>&) override
    {
        log.calls.add ("own background double");
    }
    void backGroundClick (const juce::Point<float>&) override { log.calls.add ("own background"); }
};

class RecordingListener : public CurveEditor::Listener
{
public:
    RecordingListener (Log& l, juce::String n) : log (l), name (std::move (n)) {}
    void handleDragStarted (CurveEditor*, int id, CurveEditor::Handle&) override
    {
        add ("drag start", id);
    }
    void handleDragEnded (CurveEditor*, int id, CurveEditor::Handle&) override
    {
        add ("drag end", id);
    }
    void handlePositionChanged (CurveEditor*, int id, CurveEditor::Handle& handle) override
    {
        add ("move", id);
        if (limitY)
            handle.position.y = juce::jmin (handle.position.y, 0.5f);
    }
    void handleFocusChanged (CurveEditor* editor, int id) override
    {
        add ("focus", id);
        if (removeOnFocus)
            editor->removeListener (this);
    }
    void handleDoubleClick (CurveEditor*, int id, CurveEditor::Handle&) override
    {
        add ("double", id);
    }
    void backGroundDoubleClick (CurveEditor*, const juce::Point<float>&) override
    {
        add ("background double", -1);
    }
    void backGroundClick (CurveEditor*, const juce::Point<float>&) override
    {
        add ("background", -1);
    }
    void getCursorInfoFromPoint (CurveEditor*, const juce::Point<float>& p,
                                 juce::String& text) override
    {
        text = juce::String (p.x, 2) + "," + juce::String (p.y, 2);
    }

    bool limitY = false, removeOnFocus = false;

private:
    void add (const juce::String& what, int id)
    {
        log.calls.add (name + " " + what + " " + juce::String (id));
    }
    Log& log;
    juce::String name;
};

CurveEditor::Handle makeHandle (float x, float y, float size = 5.0f, bool selectable = true)
{
    CurveEditor::Handle handle;
    handle.position = {x, y};
    handle.size = size;
    handle.selectable = selectable;
    return handle;
}

struct CurveEditorTest : testing::Test
{
    CurveEditorTest()
    {
        editor.setSize (101, 51);
        editor.setMargins (5.0f, 5.0f);
        editor.setSelectionSwitch (true);
    }
    Log log;
    RecordingEditor editor{log};
};
} // namespace

TEST (CurveEditorData, CurvesFromValuesAndDefaultHandle)
{
    const Curve curve (juce::Array<float>{0.0f, 0.5f, 1.0f}, juce::Colours::red,
                       juce::Colours::blue, 2.0f);
    ASSERT_EQ (curve.points.size(), 3);
    EXPECT_EQ (curve.points[1], juce::Point<float> (0.5f, 0.5f));
    EXPECT_EQ (curve.points[2], juce::Point<float> (1.0f, 1.0f));
    EXPECT_EQ (curve.lineColour, juce::Colours::red);
    EXPECT_EQ (curve.fillColour, juce::Colours::blue);
    EXPECT_EQ (curve.baseline, 0);

    CurveEditor editor;
    const auto missing = editor.getHandle (7);
    EXPECT_EQ (missing.size, 0.0f);
    EXPECT_EQ (missing.shape, 1);
    EXPECT_EQ (missing.rotation, 2);
    EXPECT_EQ (missing.colour, juce::Colours::black);
    EXPECT_FALSE (missing.selected || missing.selectable);
    EXPECT_FALSE (editor.getSelectionSwitch());
}

TEST (CurveEditorData, HandlePathsAreUnitShapesRotated)
{
    CurveEditor::Handle handle;
    handle.rotation = 0;
    for (int shape : {1, 2, 3, 4})
    {
        handle.shape = shape;
        const auto bounds = handle.getPath().getBounds();
        EXPECT_NEAR (bounds.getWidth(), 1.0f, 1e-4f) << shape;
        EXPECT_NEAR (bounds.getHeight(), shape <= 2 ? 1.0f : 0.5f, 1e-4f) << shape;
    }
    handle.shape = 3;
    handle.rotation = 1; // a quarter turn swaps width and height
    EXPECT_NEAR (handle.getPath().getBounds().getHeight(), 1.0f, 1e-4f);
    handle.shape = 9;
    EXPECT_TRUE (handle.getPath().isEmpty());
}

TEST_F (CurveEditorTest, MappingsAtTheMarginsKeepTheInverseAsymmetric)
{
    EXPECT_EQ (editor.toPixels ({0.0f, 1.0f}), juce::Point<float> (6.0f, 6.0f));
    // x = 1 would land on 96, but the right bound is W - 1 - margin.
    EXPECT_EQ (editor.toPixels ({1.0f, 0.0f}), juce::Point<float> (95.0f, 46.0f));
    // Far outside: x is held to the component, y only to [-2, 2].
    EXPECT_EQ (editor.toPixels ({-5.0f, -5.0f}), juce::Point<float> (1.0f, 126.0f));
    EXPECT_EQ (editor.toNormalised ({6.0f, 6.0f}), juce::Point<float> (0.0f, 1.0f));
    // The vertical span of the inverse is H - margin: the bottom pixel does not read as 0.
    EXPECT_NEAR (editor.toNormalised ({96.0f, 46.0f}).y, 1.0f - 40.0f / 46.0f, 1e-6f);
    EXPECT_EQ (editor.toNormalised ({500.0f, 500.0f}), juce::Point<float> (1.0f, 0.0f));
}

TEST_F (CurveEditorTest, HitTestTakesTheNearestFirstOnTiesAndNeverSizeZero)
{
    editor.setHandle (3, makeHandle (0.5f, 0.5f));
    editor.setHandle (8, makeHandle (0.5f, 0.5f));
    editor.setHandle (4, makeHandle (0.1f, 0.9f, 0.0f));
    auto a = editor.getHandle (3), b = editor.getHandle (8);
    a.selected = b.selected = true;
    editor.setHandle (3, a);
    editor.setHandle (8, b);
    const int first = editor.getSelectedHandleIds()[0]; // the map's walking order
    const auto centre = editor.toPixels ({0.5f, 0.5f}).toInt();
    EXPECT_EQ (editor.getHandleFromPoint (centre), first);
    // The box is half open: c - s is inside, c + s is not.
    EXPECT_EQ (editor.getHandleFromPoint (centre - juce::Point<int> (5, 5)), first);
    EXPECT_EQ (editor.getHandleFromPoint (centre + juce::Point<int> (5, 0)), -1);
    EXPECT_EQ (editor.getHandleFromPoint (editor.toPixels ({0.1f, 0.9f}).toInt()), -1);

    editor.setHandle (8, makeHandle (0.52f, 0.5f));
    EXPECT_EQ (editor.getHandleFromPoint (editor.toPixels ({0.52f, 0.5f}).toInt()), 8);
}

TEST_F (CurveEditorTest, DragsFollowAltConstraintsAndListenersMayAdjust)
{
    RecordingListener listener (log, "L");
    editor.addListener (&listener);
    editor.setHandle (0, makeHandle (0.5f, 0.5f));
    const auto c = editor.toPixels ({0.5f, 0.5f});
    editor.mouseDown (mouseAt (editor, c.x, c.y));
    EXPECT_TRUE (editor.getHandle (0).selected);
    EXPECT_EQ (editor.getDragMode(), CurveEditor::draggingHandle);

    editor.mouseDrag (mouseAt (editor, 80.0f, 10.0f, vesk::test::alt)); // vertical only
    EXPECT_FLOAT_EQ (editor.getHandle (0).position.x, 0.5f);
    EXPECT_GT (editor.getHandle (0).position.y, 0.8f);
    editor.mouseDrag (mouseAt (editor, 80.0f, 40.0f, vesk::test::altShift)); // horizontal only
    EXPECT_GT (editor.getHandle (0).position.x, 0.7f);
    EXPECT_GT (editor.getHandle (0).position.y, 0.8f);

    listener.limitY = true;
    editor.mouseDrag (mouseAt (editor, 20.0f, 8.0f));
    EXPECT_FLOAT_EQ (editor.getHandle (0).position.y, 0.5f);
    editor.mouseUp (mouseAt (editor, 20.0f, 8.0f));
    EXPECT_EQ (editor.getDragMode(), CurveEditor::idle);
    EXPECT_EQ (editor.getFocusedHandleId(), 0);
    EXPECT_EQ (log.calls,
               juce::StringArray ({"own focus 0", "L focus 0", "L drag start 0", "L move 0",
                                   "own move 0", "L move 0", "own move 0", "L move 0", "own move 0",
                                   "L move 0", "L drag end 0"}));
    editor.removeListener (&listener);
}

TEST_F (CurveEditorTest, RubberBandSelectsOnlySelectableHandlesInside)
{
    editor.setHandle (1, makeHandle (0.2f, 0.8f));
    editor.setHandle (2, makeHandle (0.3f, 0.7f, 5.0f, false));
    editor.setHandle (3, makeHandle (0.9f, 0.1f));
    auto outside = editor.getHandle (3);
    outside.selected = true;
    editor.setHandle (3, outside);

    editor.mouseDown (mouseAt (editor, 2.0f, 2.0f));
    EXPECT_EQ (editor.getDragMode(), CurveEditor::rubberBand);
    EXPECT_FALSE (editor.getHandle (3).selected); // a background press clears the selection
    editor.mouseDrag (mouseAt (editor, 45.0f, 30.0f));
    EXPECT_EQ (editor.getSelectedHandleIds(), juce::Array<int> ({1}));
    EXPECT_EQ (editor.getFocusedHandleId(), 1);
    editor.mouseUp (mouseAt (editor, 45.0f, 30.0f));
    EXPECT_EQ (editor.getDragMode(), CurveEditor::idle);
}

TEST_F (CurveEditorTest, SelectionSwitchOffLeavesSelectionAlone)
{
    editor.setSelectionSwitch (false);
    auto handle = makeHandle (0.9f, 0.1f);
    handle.selected = true;
    editor.setHandle (3, handle);
    editor.setHandle (4, makeHandle (0.5f, 0.5f));
    editor.mouseDown (mouseAt (editor, 2.0f, 2.0f));
    EXPECT_EQ (editor.getDragMode(), CurveEditor::idle);
    EXPECT_TRUE (editor.getHandle (3).selected);
    EXPECT_FALSE (log.calls.contains ("own background"));
    const auto c = editor.toPixels ({0.5f, 0.5f});
    editor.mouseDown (mouseAt (editor, c.x, c.y));
    EXPECT_FALSE (editor.getHandle (4).selected);
    EXPECT_TRUE (editor.getHandle (3).selected);
}

TEST_F (CurveEditorTest, DoubleClicksBelowThreeAndListenersLastAddedFirst)
{
    RecordingListener first (log, "A"), second (log, "B");
    editor.addListener (&first);
    editor.addListener (&second);
    editor.mouseDoubleClick (mouseAt (editor, 30.0f, 30.0f, {}, 3));
    EXPECT_TRUE (log.calls.isEmpty());
    editor.mouseDoubleClick (mouseAt (editor, 30.0f, 30.0f, {}, 2));
    EXPECT_EQ (log.calls, juce::StringArray ({"own background double", "B background double -1",
                                              "A background double -1"}));

    log.calls.clear();
    editor.setHandle (5, makeHandle (0.5f, 0.5f));
    const auto c = editor.toPixels ({0.5f, 0.5f});
    second.removeOnFocus = true; // removes itself in the middle of a notification
    editor.mouseDown (mouseAt (editor, c.x, c.y));
    editor.mouseDoubleClick (mouseAt (editor, c.x, c.y, {}, 2));
    EXPECT_EQ (log.calls,
               juce::StringArray ({"own focus 5", "B focus 5", "A focus 5", "A drag start 5",
                                   "A move 5", "own double 5", "A double 5"}));
    editor.removeListener (&first);
}

TEST_F (CurveEditorTest, CrosshairAsksListenersForTheText)
{
    RecordingListener listener (log, "L");
    editor.addListener (&listener);
    editor.updateCrosshairCursor (true, editor.toPixels ({0.25f, 0.75f}));
    EXPECT_TRUE (editor.isCrosshairOn() && editor.isCursorInfoVisible());
    EXPECT_EQ (editor.getCursorInfo(), "0.24,0.78"); // through the asymmetric inverse
    editor.updateCrosshairCursor (false, {});
    EXPECT_FALSE (editor.isCrosshairOn() || editor.isCursorInfoVisible());
    editor.removeListener (&listener);
}

TEST_F (CurveEditorTest, CurvesBelowTwoPointsDrawNothing)
{
    editor.setColour (0x2000200, juce::Colours::black);
    editor.setColour (0x2000400, juce::Colours::transparentBlack);
    editor.setColour (0x2000300, juce::Colours::black);
    editor.setColour (0x2001001, juce::Colours::transparentBlack);
    const auto whitePixels = [this]
    {
        juce::Image image (juce::Image::ARGB, 101, 51, true);
        juce::Graphics g (image);
        editor.paintEntireComponent (g, true);
        int count = 0;
        for (int y = 0; y < 51; ++y)
            for (int x = 0; x < 101; ++x)
                count += image.getPixelAt (x, y).getBrightness() > 0.5f ? 1 : 0;
        return count;
    };
    editor.setCurve (
        1, Curve (juce::Array<float>{0.5f}, juce::Colours::white, juce::Colours::white, 2.0f));
    EXPECT_EQ (whitePixels(), 0);
    editor.setCurve (1, Curve (juce::Array<float>{0.5f, 0.5f}, juce::Colours::white, {}, 2.0f));
    EXPECT_GT (whitePixels(), 150); // a line across the whole width
    editor.removeCurve (1);
    EXPECT_EQ (whitePixels(), 0);
}
