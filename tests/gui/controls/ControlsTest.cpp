#include "Axis.h"
#include "IconButton.h"
#include "KelfinerAudioProcessor.h"
#include "MouseEvents.h"
#include "ParameterSlider.h"

#include <gtest/gtest.h>

#include <thread>

using vesk::audio::Deconvolution;

namespace
{
juce::StringArray texts (const Axis& axis)
{
    juce::StringArray result;
    for (auto* marker : axis.getMarkers())
        result.add (marker->text);
    return result;
}
} // namespace

TEST (Axis, MarkersAtTheDesignedEdges)
{
    Axis axis;
    axis.setSize (600, 40);
    axis.setMode (Axis::logarithmic, true, false);
    axis.setRange (20, 20000);
    const auto positions = axis.getMarkerPositions();
    EXPECT_EQ (texts (axis), juce::StringArray ({"100", "1000", "10000"}));
    ASSERT_EQ (positions.size(), 3);
    EXPECT_NEAR (positions[0], std::log10 (5.0) / 3.0, 1e-6);
    EXPECT_NEAR (positions[2], std::log10 (500.0) / 3.0, 1e-6);

    axis.setRange (100, 100);
    EXPECT_TRUE (axis.getMarkerPositions().isEmpty());

    axis.setSize (40, 300);
    axis.setMode (Axis::decibels, false, false);
    axis.setRange (0, 100);
    axis.getMarkerPositions();
    ASSERT_GT (axis.getMarkers().size(), 2);
    EXPECT_EQ (texts (axis)[0], juce::String (juce::CharPointer_UTF8 ("-\xe2\x88\x9e")));
    EXPECT_EQ (texts (axis)[texts (axis).size() - 1], "0.0"); // 100 % is 0 dB
}

TEST (Axis, LinearStepsGrowWithCrowdingAndCustomListsAreKept)
{
    Axis axis;
    axis.setSize (40, 240);
    axis.setMode (Axis::linear, false, false);
    axis.setRange (-24, 24);
    axis.getMarkerPositions();
    // 240 px over 48 dB leaves 5 px a dB: a 14.4 px label needs steps of 5 dB.
    EXPECT_EQ (texts (axis),
               juce::StringArray ({"-24", "-19", "-14", "-9", "-4", "1", "6", "11", "16", "21"}));
    axis.setSize (40, 0); // not laid out: the last list stays
    EXPECT_EQ (axis.getMarkerPositions().size(), 10);

    juce::OwnedArray<Axis::Marker> custom;
    custom.add (new Axis::Marker{"mid", 0.5f});
    axis.setMode (Axis::custom, false, false);
    axis.setMarkerList (custom);
    EXPECT_EQ (axis.getMarkerPositions(), juce::Array<float> ({0.5f}));
}

TEST (ParameterSlider, BindsToTheParameterAndStepsFinely)
{
    KelfinerAudioProcessor processor;
    auto& engine = processor.getEngine();
    // An emphasis frequency: engine id 19, but eighth in the hosts' list, where the emphasis
    // points are interleaved. A slider that looked its description up by the wrong number
    // would take the step, default and name of another parameter.
    {
        ParameterSlider frequency ("frequency");
        const EngineParameterId id (Deconvolution::emphasisPointFrequencyIndex);
        frequency.attachParameter (&processor, &engine, id, false);
        EXPECT_EQ (frequency.getPublicParameterIndex(), PublicParameterIndex (8));
        EXPECT_EQ (frequency.getTitle(), "CurvePoint1Frequency");
        EXPECT_EQ (frequency.getInterval(), processor.findPublicParameter (id)->stepSize);
        EXPECT_NEAR (frequency.getDoubleClickReturnValue(), 1000.0, 1e-3);
    }
    ParameterSlider slider ("masterGainSlider");
    slider.setSliderStyle (juce::Slider::LinearHorizontal);
    slider.setSize (200, 30);
    engine.setParameterValue (Deconvolution::masterGainIndex, 3.0f, false);
    const EngineParameterId gain (Deconvolution::masterGainIndex);
    slider.attachParameter (&processor, &engine, gain, false);
    float minimum = 0, maximum = 0;
    engine.getParameterRange (Deconvolution::masterGainIndex, minimum, maximum);
    EXPECT_EQ (slider.getMinimum(), minimum);
    EXPECT_EQ (slider.getMaximum(), maximum);
    EXPECT_NEAR (slider.getValue(), 3.0, 1e-6);
    const auto* description = processor.findPublicParameter (gain);
    EXPECT_DOUBLE_EQ (slider.getDoubleClickReturnValue(), description->defaultValue);

    slider.setValue (-2.0, juce::sendNotificationSync);
    EXPECT_FLOAT_EQ (engine.getParameterValue (Deconvolution::masterGainIndex), -2.0f);

    // With Alt held a drag moves by one interval, and only after 100 ms. (The press itself
    // moves a linear slider to the pointer, as JUCE's sliders do.)
    slider.mouseDown (vesk::test::mouseAt (slider, 150.0f, 15.0f));
    const double start = slider.getValue();
    const double step = description->stepSize;
    slider.mouseDrag (vesk::test::mouseAt (slider, 190.0f, 15.0f, vesk::test::alt));
    EXPECT_DOUBLE_EQ (slider.getValue(), start);
    std::this_thread::sleep_for (std::chrono::milliseconds (110));
    slider.mouseDrag (vesk::test::mouseAt (slider, 191.0f, 15.0f, vesk::test::alt));
    EXPECT_NEAR (slider.getValue(), start + step, 1e-5);
    std::this_thread::sleep_for (std::chrono::milliseconds (110));
    slider.mouseDrag (vesk::test::mouseAt (slider, 191.4f, 15.0f, vesk::test::alt));
    EXPECT_NEAR (slider.getValue(), start + step, 1e-5); // under a pixel
    std::this_thread::sleep_for (std::chrono::milliseconds (110));
    slider.mouseDrag (vesk::test::mouseAt (slider, 180.0f, 15.0f, vesk::test::alt));
    EXPECT_NEAR (slider.getValue(), start, 1e-5);
    EXPECT_NEAR (engine.getParameterValue (Deconvolution::masterGainIndex), start, 1e-5);
}

TEST (IconButton, IconWidthsFollowTheirSource)
{
    IconButton button ("b", juce::String::charToString (IconButton::Glyphs::undo));
    EXPECT_GT (button.getIconWidth (20), 5);
    IconButton empty ("e", {});
    EXPECT_EQ (empty.getIconWidth (20), 0);
    empty.setIcon (juce::Image (juce::Image::ARGB, 40, 10, true));
    EXPECT_EQ (empty.getIconWidth (20), 80);
}
