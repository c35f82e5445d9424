#pragma once

#include "Axis.h"
#include "BasePluginEditor.h"
#include "EqualizerCurveEditor.h"
#include "KelfinerAudioProcessor.h"
#include "ParameterSlider.h"

#include <atomic>

/** Kelfiner's editor: the correction curve, the analysers and the emphasis points in one plot,
    with the learning and correction controls below it. Every 50 ms it copies the curves out of
    the engine; the emphasis points are handles whose moves become engine parameters.
    Message thread, except parameterChanged (any thread: it only sets a flag). */
class KelfinerAudioProcessorEditor : public BasePluginEditor,
                                     public CurveEditor::Listener,
                                     public juce::Slider::Listener,
                                     public juce::Button::Listener,
                                     public juce::ComboBox::Listener,
                                     public BasePlugInProcessor::Listener,
                                     private juce::Timer
{
public:
    enum CurveIds
    {
        filterCurveId = 1,
        emphasisCurveId = 2,
        inputSpectrumId = 16,
        outputSpectrumId = 17
    };
    static constexpr int gainMenuBaseId = 12288;
    static constexpr int analyzerMenuBaseId = 12544;
    static constexpr int gainRanges[] = {-6, -12, -18, -24, -30, -36};
    static constexpr int analyzerRanges[] = {-60, -90, -120};
    /** What the Learn switch writes to "EstimationMode": on learns, off holds what was learnt. */
    static constexpr float learnOnMode = 1.0f, learnOffMode = 2.0f;

    explicit KelfinerAudioProcessorEditor (KelfinerAudioProcessor& processor);
    ~KelfinerAudioProcessorEditor() override;

    void paint (juce::Graphics& g) override;
    void resized() override;

    // CurveEditor::Listener
    void handleDragStarted (CurveEditor*, int id, CurveEditor::Handle&) override;
    void handlePositionChanged (CurveEditor*, int id, CurveEditor::Handle& handle) override;
    void handleDoubleClick (CurveEditor*, int id, CurveEditor::Handle&) override;
    void backGroundDoubleClick (CurveEditor*, const juce::Point<float>& point) override;
    void getCursorInfoFromPoint (CurveEditor*, const juce::Point<float>& point,
                                 juce::String& text) override;
    // Slider, button, combo box and header listeners
    void sliderValueChanged (juce::Slider*) override {}
    void sliderDragStarted (juce::Slider*) override;
    void buttonClicked (juce::Button* button) override;
    void comboBoxChanged (juce::ComboBox* combo) override;
    void headerCommand (PlugInEditorHeader* header, int command) override;
    /** Any thread: only sets the flag the timer reads. */
    void parameterChanged (int publicIndex) override;

    /** A magnitude spectrum (bins from 0 to half the rate) as a curve on the logarithmic
        frequency scale from 20 Hz to half the rate, one point per column at most. */
    static Curve createCurve (const vesk::audio::Signal32& spectrum, double sampleRate,
                              juce::Colour line, juce::Colour fill, int columns, float minimum,
                              float maximum);
    Curve createCurve (const vesk::audio::Signal32& spectrum, juce::Colour line, juce::Colour fill,
                       int columns, float minimum, float maximum) const;

    void setGainRange (int value);
    void setAnalyzerRange (int value);
    void numberMenuCallback (int result);
    /** Writes the source filter; false, after telling the user, when it cannot. */
    bool saveFilter (const juce::File& file);
    /** Installs a filter file as the custom target; false, after telling the user, when not. */
    bool loadFilter (const juce::File& file);
    juce::File getDefaultFilterFolder() const;
    /** The text of the last failure shown (for tests: alert boxes run asynchronously). */
    juce::String getLastError() const { return lastError; }

    void updateEmphasisHandles();
    void updateEmphasisCurve();
    void updateEmphasisGrid();
    void updateParameterControls();
    void getAllowedMovement (float& dx, float& dy) const;
    void moveSelection (float dx, float dy);
    void sortHandles();

    /** One refresh, as the timer does it (benchmarks and tests call it directly). */
    void timerCallback() override;

    // For tests and the benchmark.
    CurveEditor& getCurveEditor() noexcept { return filterCurveEditor; }
    Axis& getFrequencyAxis() noexcept { return frequencyAxis; }
    Axis& getGainAxis() noexcept { return gainAxis; }
    Axis& getSpectrumAxis() noexcept { return spectrumAxis; }
    int getGainRange() const noexcept { return gainRange; }
    int getAnalyzerRange() const noexcept { return analyzerRange; }
    juce::String getFramesText() const { return framesLabel.getText(); }

    /** The "Correction" menu under the plug-in menu: the learning estimator and the correction
        limits, ticked as they stand. */
    juce::PopupMenu createCorrectionMenu() const;
    /** Carries out one of that menu's items. */
    void correctionCommand (int command);

private:
    float xFromFrequency (float frequency) const;
    float frequencyFromX (float x) const;
    float engineValue (int index) const;
    void setEngineValue (int index, float value);
    void showNumberMenu (const int* values, int count, juce::Component* component, int baseId);
    void showError (const juce::String& text);

    KelfinerAudioProcessor& processor;
    vesk::audio::Deconvolution& engine;

    juce::GroupComponent targetGroup, filterEstimationGroup;
    CurveEditor filterCurveEditor;
    ParameterSlider masterGainSlider{"masterGainSlider"};
    juce::Label masterGainLabel, detailsSlider, estimationThresholdLabel, framesLabel;
    Axis gainAxis, frequencyAxis, spectrumAxis;
    ParameterSlider filterLengthSlider{"filterLengthSlider"};
    juce::TextButton saveFilterButton, loadFilterButton;
    juce::ToggleButton emphasisToggle, analyzerToggle;
    ParameterSlider estimationThresholdSlider{"estimationThresholdSlider"};
    juce::TextButton learnButton, gainRangeButton, analyzerRangeButton;
    juce::ComboBox targetProfileCombo;
    std::unique_ptr<juce::FileChooser> chooser;

    int gainRange = 24;
    int analyzerRange = 90;
    double sampleRate = 0.0;
    std::atomic<bool> parametersChanged{false};
    juce::String lastError;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (KelfinerAudioProcessorEditor)
};
