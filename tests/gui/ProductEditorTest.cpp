#include "EditorFixture.h"
#include "FilterFile.h"
#include "MouseEvents.h"

using vesk::audio::Deconvolution;
using vesk::audio::Signal32;

namespace
{
struct ProductEditor : vesk::test::EditorFixture
{
    int enabledPoints()
    {
        int count = 0;
        for (int i = 0; i < Deconvolution::numEmphasisPoints; ++i)
            count += value (Deconvolution::emphasisPointEnabledIndex + i) > 0.5f ? 1 : 0;
        return count;
    }
    /** Starts from no points (a new engine has one). */
    void enableEmphasis()
    {
        processor.setCheckedParameterValue (
            EngineParameterId (Deconvolution::emphasisPointEnabledIndex), 0.0f);
        processor.setCheckedParameterValue (
            EngineParameterId (Deconvolution::enableEmphasisCurveIndex), 1.0f);
        editor->updateEmphasisHandles();
    }
    void addPointAt (float x, float y)
    {
        editor->backGroundDoubleClick (&editor->getCurveEditor(), {x, y});
    }
};
} // namespace

TEST (CreateCurve, ColumnsOnALogScaleTakeTheLoudestBin)
{
    const double rate = 48000.0;
    Signal32 flat (2, 1025, 1.0f);
    const auto curve =
        KelfinerAudioProcessorEditor::createCurve (flat, rate, {}, {}, 200, -24.0f, 24.0f);
    ASSERT_GT (curve.points.size(), 50);
    EXPECT_LE (curve.points.size(), 200);
    EXPECT_FLOAT_EQ (curve.points[0].x, 0.0f);
    for (int i = 1; i < curve.points.size(); ++i)
    {
        EXPECT_GT (curve.points[i].x, curve.points[i - 1].x);
        EXPECT_FLOAT_EQ (curve.points[i].y, 0.5f); // 0 dB in the middle of -24..24
    }

    // A peak at 1 kHz in one channel: averaged over both, +6 dB - 6 dB = 0 dB... exactly the
    // mean, so one channel at 4 reads as 2.5, and it shows in the column that spans its bin.
    Signal32 peaked (2, 1025, 1.0f);
    const int bin = (int) std::lround (1000.0 / (rate / 2.0 + 1.0) * 1025);
    peaked[0][bin] = 4.0f;
    const auto withPeak =
        KelfinerAudioProcessorEditor::createCurve (peaked, rate, {}, {}, 400, -24.0f, 24.0f);
    auto loudest = withPeak.points[0];
    for (auto const& point : withPeak.points)
        if (point.y > loudest.y)
            loudest = point;
    EXPECT_NEAR (loudest.y, (20.0f * std::log10 (2.5f) + 24.0f) / 48.0f, 1e-5f);
    EXPECT_NEAR (loudest.x, std::log10 (50.0) / std::log10 (1200.0), 0.01);
    EXPECT_TRUE (
        KelfinerAudioProcessorEditor::createCurve ({}, rate, {}, {}, 10, 0, 1).points.isEmpty());
}

TEST_F (ProductEditor, ComponentsCarryTheirNamesAndTexts)
{
    const auto findByName = [this] (const juce::String& name) -> juce::Component*
    {
        for (auto* child : editor->getChildren())
            if (child->getName() == name)
                return child;
        return nullptr;
    };
    for (const char* name : {"targetGroup",
                             "filterEstimationGroup",
                             "filterCurveEditor",
                             "masterGainSlider",
                             "masterGainLabel",
                             "gainAxis",
                             "frequencyAxis",
                             "spectrumAxis",
                             "filterLengthSlider",
                             "detailsSlider",
                             "saveFilterButton",
                             "loadFilterButton",
                             "emphasisToggle",
                             "estimationThresholdLabel",
                             "estimationThresholdSlider",
                             "analyzerToggle",
                             "learnButton",
                             "gainRangeButton",
                             "analyzerRangeButton",
                             "targetProfileCombo"})
        EXPECT_NE (findByName (name), nullptr) << name;
    auto* combo = dynamic_cast<juce::ComboBox*> (findByName ("targetProfileCombo"));
    ASSERT_NE (combo, nullptr);
    EXPECT_EQ (combo->getNumItems(), 6);
    EXPECT_EQ (combo->getItemText (3), "Music (less harsh)");
    EXPECT_EQ (dynamic_cast<juce::Button*> (findByName ("gainRangeButton"))->getButtonText(),
               "-24");
    // Every control has a name a screen reader can say.
    for (auto* child : editor->getChildren())
    {
        auto* button = dynamic_cast<juce::Button*> (child);
        if (button != nullptr)
        {
            EXPECT_TRUE (button->getButtonText().isNotEmpty() || button->getTitle().isNotEmpty())
                << child->getName();
        }
        else if (dynamic_cast<juce::Slider*> (child) != nullptr)
        {
            EXPECT_TRUE (child->getTitle().isNotEmpty()) << child->getName();
        }
    }
    EXPECT_EQ (editor->getWidth(), 760);
    EXPECT_EQ (editor->getHeight(), 480);
    EXPECT_EQ (editor->getGainAxis().getMinimum(), -24);
    EXPECT_EQ (editor->getSpectrumAxis().getMinimum(), -90);
    EXPECT_EQ (editor->getFrequencyAxis().getMaximum(), 24000);
}

TEST_F (ProductEditor, EmphasisPointsStaySortedAndNoThirteenth)
{
    const int before = enabledPoints();
    addPointAt (0.5f, 0.5f);
    EXPECT_EQ (enabledPoints(), before); // the emphasis curve is off
    enableEmphasis();
    addPointAt (0.8f, 0.2f);
    addPointAt (0.2f, 0.9f);
    addPointAt (0.5f, 0.4f);
    ASSERT_EQ (enabledPoints(), 3);
    EXPECT_LT (value (Deconvolution::emphasisPointFrequencyIndex + 0),
               value (Deconvolution::emphasisPointFrequencyIndex + 1));
    EXPECT_LT (value (Deconvolution::emphasisPointFrequencyIndex + 1),
               value (Deconvolution::emphasisPointFrequencyIndex + 2));
    EXPECT_NEAR (value (Deconvolution::emphasisPointLevelIndex + 0), 90.0f, 1e-3f);
    EXPECT_TRUE (
        editor->getCurveEditor().containsCurve (KelfinerAudioProcessorEditor::emphasisCurveId));

    CurveEditor::Handle unused;
    editor->handleDoubleClick (&editor->getCurveEditor(), 0, unused);
    ASSERT_EQ (enabledPoints(), 2);
    EXPECT_NEAR (value (Deconvolution::emphasisPointLevelIndex + 0), 40.0f,
                 1e-3f); // moved down a slot
    EXPECT_FALSE (editor->getCurveEditor().containsHandle (2));

    for (int i = 0; i < 12; ++i)
        addPointAt (0.05f + 0.07f * (float) i, 0.5f);
    EXPECT_EQ (enabledPoints(), 12);
    for (int i = 1; i < 12; ++i)
        EXPECT_LE (value (Deconvolution::emphasisPointFrequencyIndex + i - 1),
                   value (Deconvolution::emphasisPointFrequencyIndex + i));
}

TEST_F (ProductEditor, DraggedPointsKeepTheirOrderAndTheUndoStep)
{
    enableEmphasis();
    addPointAt (0.3f, 0.5f);
    addPointAt (0.6f, 0.5f);
    auto& curves = editor->getCurveEditor();
    curves.setBounds (48, 56, 656, 220);
    auto handle = curves.getHandle (0);
    handle.selected = true;
    curves.setHandle (0, handle);

    handle.position = {0.9f, 1.4f}; // past its neighbour and above the plot
    editor->handlePositionChanged (&curves, 0, handle);
    EXPECT_NEAR (handle.position.x, 0.6f, 1e-4f); // may touch, not pass
    EXPECT_NEAR (handle.position.y, 1.0f, 1e-4f);
    EXPECT_NEAR (value (Deconvolution::emphasisPointLevelIndex + 0), 100.0f, 1e-3f);
    EXPECT_NEAR (value (Deconvolution::emphasisPointFrequencyIndex + 0),
                 value (Deconvolution::emphasisPointFrequencyIndex + 1), 0.5f);
    EXPECT_TRUE (curves.getCursorInfo().endsWith ("100.0 %"));
}

TEST_F (ProductEditor, RateChangesMoveTheAxisAndHandles)
{
    enableEmphasis();
    addPointAt (0.5f, 0.5f);
    const float frequency = value (Deconvolution::emphasisPointFrequencyIndex);
    const float before = editor->getCurveEditor().getHandle (0).position.x;
    processor.prepareToPlay (96000.0, 512);
    editor->timerCallback();
    EXPECT_EQ (editor->getFrequencyAxis().getMaximum(), 48000);
    EXPECT_LT (editor->getCurveEditor().getHandle (0).position.x, before);
    EXPECT_NEAR (editor->getCurveEditor().getHandle (0).position.x,
                 std::log10 (frequency / 20.0) / std::log10 (48000.0 / 20.0), 1e-5);
}

TEST_F (ProductEditor, AnalysersAndFilterCurveFollowTheEngine)
{
    processor.setCheckedParameterValue (EngineParameterId (Deconvolution::enableAnalyzersIndex),
                                        1.0f);
    play (200);
    editor->timerCallback();
    auto& curves = editor->getCurveEditor();
    EXPECT_TRUE (curves.containsCurve (KelfinerAudioProcessorEditor::filterCurveId));
    EXPECT_TRUE (curves.containsCurve (KelfinerAudioProcessorEditor::inputSpectrumId));
    EXPECT_TRUE (curves.containsCurve (KelfinerAudioProcessorEditor::outputSpectrumId));
    EXPECT_TRUE (editor->getFramesText().contains ("frames"));
    EXPECT_FALSE (editor->getFramesText().contains ("\n0 "));

    processor.setCheckedParameterValue (EngineParameterId (Deconvolution::enableAnalyzersIndex),
                                        0.0f);
    editor->timerCallback();
    EXPECT_FALSE (curves.containsCurve (KelfinerAudioProcessorEditor::inputSpectrumId));
    EXPECT_FALSE (curves.containsCurve (KelfinerAudioProcessorEditor::outputSpectrumId));
}

TEST_F (ProductEditor, RangesAndCursorInfo)
{
    editor->numberMenuCallback (KelfinerAudioProcessorEditor::gainMenuBaseId + 5);
    EXPECT_EQ (editor->getGainRange(), 36);
    EXPECT_EQ (editor->getGainAxis().getMaximum(), 36);
    editor->numberMenuCallback (KelfinerAudioProcessorEditor::analyzerMenuBaseId + 2);
    EXPECT_EQ (editor->getSpectrumAxis().getMinimum(), -120);
    editor->numberMenuCallback (KelfinerAudioProcessorEditor::analyzerMenuBaseId
                                + 3); // no such item
    EXPECT_EQ (editor->getAnalyzerRange(), 120);
    juce::String text;
    editor->getCursorInfoFromPoint (&editor->getCurveEditor(), {1.0f, 0.75f}, text);
    EXPECT_EQ (text, "24000.0 Hz, 18.0 dB");

    // Both are kept for the next editor.
    editor.reset();
    editor = std::make_unique<KelfinerAudioProcessorEditor> (processor);
    EXPECT_EQ (editor->getGainRange(), 36);
    EXPECT_EQ (editor->getAnalyzerRange(), 120);
}

TEST_F (ProductEditor, FilterFilesRoundTripAndRefuseOthers)
{
    const auto folder = juce::File::createTempFile ("filters");
    folder.createDirectory();
    const auto file = folder.getChildFile ("learnt.filter");
    EXPECT_FALSE (editor->saveFilter (file)); // nothing learnt yet
    EXPECT_TRUE (editor->getLastError().isNotEmpty());

    auto source = vesk::test::decayingResponse (2, 64, 3);
    processor.getEngine().setSourceFilter (source, 44100.0);
    ASSERT_TRUE (editor->saveFilter (file));
    ASSERT_TRUE (editor->loadFilter (file));
    EXPECT_EQ (value (Deconvolution::targetModelIndex), (float) Deconvolution::custom);
    Signal32 target;
    double rate = 0.0;
    processor.getEngine().getTargetFilter (target, rate);
    EXPECT_EQ (rate, 44100.0);
    ASSERT_EQ (target.getNumSamples(), 64);
    EXPECT_EQ (target[1][5], source[1][5]);

    const auto invalid =
        "The file " + file.getFullPathName() + " does not seem to be a valid filter file.";
    juce::MemoryBlock bytes;
    file.loadFileAsData (bytes);
    file.replaceWithData (bytes.getData(), 20); // shorter than the header
    EXPECT_FALSE (editor->loadFilter (file));
    EXPECT_EQ (editor->getLastError(), invalid);
    static_cast<char*> (bytes.getData())[8] = 2; // version 2
    file.replaceWithData (bytes.getData(), bytes.getSize());
    EXPECT_FALSE (editor->loadFilter (file));
    EXPECT_EQ (editor->getLastError(), invalid);
    EXPECT_FALSE (editor->loadFilter (folder.getChildFile ("missing.filter")));
    EXPECT_TRUE (editor->getLastError().startsWith ("Unable to open the file "));
    folder.deleteRecursively();
    EXPECT_TRUE (editor->getDefaultFilterFolder().isDirectory());
}

TEST_F (ProductEditor, ASliderDragIsOneGestureForTheHost)
{
    // What the plug-in wrappers pass on to hosts: the processor's gesture callbacks.
    struct Gestures : juce::AudioProcessorListener
    {
        void audioProcessorParameterChanged (juce::AudioProcessor*, int index, float) override
        {
            changes += index == watched ? 1 : 0;
        }
        void audioProcessorChanged (juce::AudioProcessor*, const ChangeDetails&) override {}
        void audioProcessorParameterChangeGestureBegin (juce::AudioProcessor*, int index) override
        {
            log.add ("begin " + juce::String (index));
        }
        void audioProcessorParameterChangeGestureEnd (juce::AudioProcessor*, int index) override
        {
            log.add ("end " + juce::String (index));
        }
        int watched = -1, changes = 0;
        juce::StringArray log;
    } gestures;
    gestures.watched =
        processor.findPublicParameterIndex (EngineParameterId (Deconvolution::masterGainIndex))
            .value;
    processor.juce::AudioProcessor::addListener (&gestures);

    juce::Slider* slider = nullptr;
    for (auto* child : editor->getChildren())
        if (child->getName() == "masterGainSlider")
            slider = dynamic_cast<juce::Slider*> (child);
    ASSERT_NE (slider, nullptr);
    const float before = value (Deconvolution::masterGainIndex);
    const auto at = [&] (float x) { return vesk::test::mouseAt (*slider, x, 14.0f); };
    slider->mouseDown (at (20.0f));
    for (float x : {24.0f, 30.0f, 38.0f, 50.0f})
        slider->mouseDrag (at (x));
    slider->mouseUp (at (50.0f));
    processor.juce::AudioProcessor::removeListener (&gestures);

    const auto index = juce::String (gestures.watched);
    EXPECT_EQ (gestures.log.joinIntoString (","), "begin " + index + ",end " + index);
    EXPECT_GT (gestures.changes, 0);
    EXPECT_NE (value (Deconvolution::masterGainIndex), before);
    EXPECT_TRUE (processor.canUndo()); // the drag's start is one undo step
}
