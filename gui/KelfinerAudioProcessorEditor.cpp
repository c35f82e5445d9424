#include "KelfinerAudioProcessorEditor.h"

#include "ColourIds.h"
#include "Profiles.h"

#include <cmath>

using vesk::audio::Deconvolution;
using vesk::audio::Signal32;

namespace
{
const juce::Colour filterLineColour (0xFFEEAC18);
const juce::Colour inputFillColour (0x40FFAACC);
const juce::Colour outputFillColour (0x40AAFFCC);

void setUpLabel (juce::Label& label, const juce::String& name, const juce::String& text)
{
    label.setName (name);
    label.setText (TRANS (text), juce::dontSendNotification);
    label.setFont (juce::Font (14.0f));
    label.setJustificationType (juce::Justification::centredLeft);
    label.setMinimumHorizontalScale (1.0f);
}
} // namespace

KelfinerAudioProcessorEditor::KelfinerAudioProcessorEditor (KelfinerAudioProcessor& owner)
    : BasePluginEditor (owner), processor (owner), engine (owner.getEngine())
{
    targetGroup.setName ("targetGroup");
    targetGroup.setText (TRANS ("Target EQ profile"));
    filterEstimationGroup.setName ("filterEstimationGroup");
    filterEstimationGroup.setText (TRANS ("Filter estimation"));
    filterCurveEditor.setName ("filterCurveEditor");
    setUpLabel (masterGainLabel, "masterGainLabel", "Master gain (dB):\n");
    setUpLabel (detailsSlider, "detailsSlider", "Filter\nlength (ms)");
    setUpLabel (estimationThresholdLabel, "estimationThresholdLabel",
                "Signal level\nthreshold (dB)");
    framesLabel.setName ("learntFramesLabel");
    framesLabel.setFont (juce::Font (12.0f));
    framesLabel.setJustificationType (juce::Justification::centred);
    framesLabel.setTooltip (TRANS ("How many frames of the input the correction has learnt from"));
    gainAxis.setName ("gainAxis");
    gainAxis.setLabel (TRANS ("Gain correction (dB)"));
    frequencyAxis.setName ("frequencyAxis");
    frequencyAxis.setLabel (TRANS ("Frequency (Hz)"));
    spectrumAxis.setName ("spectrumAxis");
    spectrumAxis.setLabel (TRANS ("Spectral level (dB)"));

    const std::tuple<ParameterSlider*, int, const char*> sliders[] = {
        {&masterGainSlider, Deconvolution::masterGainIndex, "The master gain in dB"},
        {&filterLengthSlider, Deconvolution::filterLengthIndex,
         "Length of the deconvolution filter in milliseconds"},
        {&estimationThresholdSlider, Deconvolution::estimationThresholdIndex,
         "The source filter is only estimated when the signal level is above the threshold "
         "level"}};
    for (auto [slider, index, tip] : sliders)
    {
        slider->setSliderStyle (juce::Slider::LinearHorizontal);
        slider->setTextBoxStyle (juce::Slider::TextBoxRight, false, 56, 22);
        slider->attachParameter (&processor, &engine, EngineParameterId (index), false);
        slider->setTooltip (TRANS (tip));
        slider->setHelpText (TRANS (tip));
        slider->addListener (this);
    }

    const std::tuple<juce::Button*, const char*, const char*, const char*> buttons[] = {
        {&saveFilterButton, "saveFilterButton", "Save...", "Save the correction filter to a file"},
        {&loadFilterButton, "loadFilterButton", "Load...", "Load a correction filter from file"},
        {&emphasisToggle, "emphasisToggle", "Enable emphasis curve",
         "Show or hide an emphasis curve in the filter curve display that allows you to choose a "
         "weighting for the correction filters."},
        {&analyzerToggle, "analyzerToggle", "Enable spectrum analyzer",
         "Show or hide the real-time spectrum analyzers"},
        {&learnButton, "learnButton", "Learn",
         "Click to enable or disable the estimation of the correction filter."},
        {&gainRangeButton, "gainRangeButton", "-18",
         "Click to modify the maximum and minimum gain"},
        {&analyzerRangeButton, "analyzerRangeButton", "-90",
         "Click to modify the minium spectral level in the analyzer"}};
    for (auto [button, name, text, tip] : buttons)
    {
        button->setName (name);
        button->setButtonText (TRANS (text));
        button->setTooltip (TRANS (tip));
        button->setHelpText (TRANS (tip));
        button->addListener (this);
    }
    learnButton.setClickingTogglesState (true);

    targetProfileCombo.setName ("targetProfileCombo");
    // JUCE reserves item id 0 for "nothing chosen", so an item's id is its model value + 1.
    for (auto const& profile : vesk::audio::targetProfiles)
        targetProfileCombo.addItem (TRANS (profile.name), profile.model + 1);
    targetProfileCombo.setTextWhenNoChoicesAvailable (TRANS ("(no choices)"));
    targetProfileCombo.setTooltip (TRANS (
        "Allows you to choose the desired frequency distribution. You can optimize for music or "
        "speech. The automatic mode extracts the frequency distribution from the input audio or "
        "you can use custom profiles based on measurement."));
    targetProfileCombo.setTitle (TRANS ("Target EQ profile"));
    targetProfileCombo.addListener (this);

    for (juce::Component* c : {(juce::Component*) &targetGroup,
                               (juce::Component*) &filterEstimationGroup,
                               (juce::Component*) &filterCurveEditor,
                               (juce::Component*) &masterGainSlider,
                               (juce::Component*) &masterGainLabel,
                               (juce::Component*) &gainAxis,
                               (juce::Component*) &frequencyAxis,
                               (juce::Component*) &spectrumAxis,
                               (juce::Component*) &filterLengthSlider,
                               (juce::Component*) &detailsSlider,
                               (juce::Component*) &saveFilterButton,
                               (juce::Component*) &loadFilterButton,
                               (juce::Component*) &emphasisToggle,
                               (juce::Component*) &estimationThresholdLabel,
                               (juce::Component*) &estimationThresholdSlider,
                               (juce::Component*) &analyzerToggle,
                               (juce::Component*) &learnButton,
                               (juce::Component*) &gainRangeButton,
                               (juce::Component*) &analyzerRangeButton,
                               (juce::Component*) &targetProfileCombo,
                               (juce::Component*) &framesLabel})
        addAndMakeVisible (c);
    masterGainLabel.attachToComponent (nullptr, false);
    for (auto [slider, label] : {std::pair (&masterGainSlider, &masterGainLabel),
                                 std::pair (&filterLengthSlider, &detailsSlider),
                                 std::pair (&estimationThresholdSlider, &estimationThresholdLabel)})
        slider->setTitle (label->getText().replace ("\n", " ").trim().trimCharactersAtEnd (":"));

    setSize (760, 480);
    restoreSize (760, 480);

    // Stored ranges are checked like every other value that enters: only the menus' entries.
    const auto stored = [this] (const char* key, int fallback, const int* table, int count)
    {
        const int value = getProperties().getIntValue (key, fallback);
        for (int i = 0; i < count; ++i)
            if (-table[i] == value)
                return value;
        return fallback;
    };
    gainRange = stored ("GainRange", 24, gainRanges, (int) std::size (gainRanges));
    gainRangeButton.setButtonText (juce::String (-gainRange));
    gainAxis.setMode (Axis::linear, false, false);
    gainAxis.setRange (-gainRange, gainRange);
    gainAxis.setMargin (21);
    analyzerRange = stored ("AnalyzerRange", 90, analyzerRanges, (int) std::size (analyzerRanges));
    analyzerRangeButton.setButtonText (juce::String (-analyzerRange));
    spectrumAxis.setMode (Axis::linear, false, true);
    spectrumAxis.setRange (-analyzerRange, 0);
    spectrumAxis.setMargin (21);
    sampleRate = engine.getSampleRate() > 0.0 ? engine.getSampleRate()
                                              : ParameterDescription::nominalSampleRate;
    frequencyAxis.setMode (Axis::logarithmic, true, false);
    frequencyAxis.setRange (20, (long) std::lround (sampleRate / 2.0));
    frequencyAxis.setMargin (21);

    processor.addListener (this);
    filterCurveEditor.addListener (this);
    filterCurveEditor.setSelectionSwitch (true);
    filterCurveEditor.setColour (ThemeColourIds::plotShadow, juce::Colours::transparentBlack);
    header.attach (this, &processor);
    header.enablePresets (true, 0);
    header.addListener (this);
    header.setProductMenu (TRANS ("Correction"), [this] { return createCorrectionMenu(); });
    filterCurveEditor.setMargins (5.0f, 5.0f);

    updateEmphasisHandles();
    updateEmphasisGrid();
    updateParameterControls();
    parametersChanged = false;
    startTimer (50);
}

KelfinerAudioProcessorEditor::~KelfinerAudioProcessorEditor()
{
    stopTimer();
    processor.removeListener (this);
    header.removeListener (this);
    header.setProductMenu ({}, nullptr); // it refers to this editor
    auto& settings = getProperties();
    settings.setValue ("LastWindowWidth", getWidth());
    settings.setValue ("LastWindowHeight", getHeight());
    settings.setValue ("GainRange", gainRange);
    settings.setValue ("AnalyzerRange", analyzerRange);
    settings.saveIfNeeded();
}

void KelfinerAudioProcessorEditor::paint (juce::Graphics& g)
{
    BasePluginEditor::paint (g);
    if (engineValue (Deconvolution::enableAnalyzersIndex) <= 0.5f)
        return;
    // The analysers' legend, on the frequency caption's row at the right.
    const int y = getHeight() - 184;
    int x = getWidth() - 190;
    g.setFont (juce::Font (13.0f));
    for (auto [fill, caption] :
         {std::pair (inputFillColour, "Input"), std::pair (outputFillColour, "Output")})
    {
        g.setColour (fill.withAlpha (0.9f));
        g.fillRect (x, y + 3, 14, 10);
        g.setColour (findColour (ThemeColourIds::axisLabel));
        g.drawText (TRANS (caption), x + 18, y, 52, 16, juce::Justification::centredLeft);
        x += 74;
    }
}

void KelfinerAudioProcessorEditor::resized()
{
    const int w = getWidth(), h = getHeight();
    layoutFrame();
    filterCurveEditor.setBounds (48, 56, w - 104, h - 260);
    gainAxis.setBounds (8, 40, 40, h - 228);
    spectrumAxis.setBounds (w - 56, 40, 52, h - 228);
    frequencyAxis.setBounds (32, h - 204, w - 72, 40);
    gainRangeButton.setBounds (17, h - 217, 26, 18);
    analyzerRangeButton.setBounds (w - 50, h - 217, 32, 18);

    const int top = h - 160;
    targetGroup.setBounds (16, top, 240, 62);
    targetProfileCombo.setBounds (28, top + 22, 216, 28);
    masterGainLabel.setBounds (16, top + 70, 122, 24);
    masterGainSlider.setBounds (136, top + 68, 120, 28);
    analyzerToggle.setBounds (16, top + 104, 240, 22);
    emphasisToggle.setBounds (16, top + 130, 240, 22);

    filterEstimationGroup.setBounds (272, top, 472, 150);
    learnButton.setBounds (288, top + 26, 96, 50);
    framesLabel.setBounds (284, top + 82, 104, 40);
    estimationThresholdLabel.setBounds (398, top + 24, 112, 40);
    estimationThresholdSlider.setBounds (510, top + 28, 140, 32);
    detailsSlider.setBounds (398, top + 80, 112, 40);
    filterLengthSlider.setBounds (510, top + 84, 140, 32);
    saveFilterButton.setBounds (660, top + 28, 72, 28);
    loadFilterButton.setBounds (660, top + 86, 72, 28);
    updateEmphasisGrid();
}

//==============================================================================
float KelfinerAudioProcessorEditor::engineValue (int index) const
{
    return engine.getParameterValue (index);
}

void KelfinerAudioProcessorEditor::setEngineValue (int index, float value)
{
    processor.setCheckedParameterValue (EngineParameterId (index), value);
    processor.notifyInternalParameterChange (EngineParameterId (index));
}

void KelfinerAudioProcessorEditor::parameterChanged (int) { parametersChanged = true; }

void KelfinerAudioProcessorEditor::timerCallback()
{
    const double rate = engine.getSampleRate();
    if (rate > 0.0 && rate != sampleRate)
    {
        sampleRate = rate;
        frequencyAxis.setRange (20, (long) std::lround (sampleRate / 2.0));
        updateEmphasisHandles();
        updateEmphasisGrid();
    }
    if (parametersChanged.exchange (false))
    {
        updateEmphasisHandles();
        updateParameterControls();
    }
    const int columns = juce::jmax (1, getWidth());
    const auto curve = engine.getFilterCurve();
    if (!curve.isEmpty())
        filterCurveEditor.setCurve (
            filterCurveId, createCurve (curve, filterLineColour, juce::Colours::transparentBlack,
                                        columns, (float) -gainRange, (float) gainRange));
    bool analysersShown = false;
    if (engineValue (Deconvolution::enableAnalyzersIndex) > 0.5f)
    {
        Signal32 input, output;
        engine.getAnalyzerData (input, output);
        if (!input.isEmpty() && !output.isEmpty())
        {
            const auto line = juce::Colours::white.withAlpha (0.3f);
            filterCurveEditor.setCurve (
                inputSpectrumId,
                createCurve (input, line, inputFillColour, columns, (float) -analyzerRange, 0.0f));
            filterCurveEditor.setCurve (outputSpectrumId,
                                        createCurve (output, line, outputFillColour, columns,
                                                     (float) -analyzerRange, 0.0f));
            analysersShown = true;
        }
    }
    if (!analysersShown)
    {
        filterCurveEditor.removeCurve (inputSpectrumId);
        filterCurveEditor.removeCurve (outputSpectrumId);
    }
    const auto frames = engine.getEstimateFrameCount();
    framesLabel.setText (TRANS ("Learnt") + "\n" + juce::String ((juce::int64) frames) + " "
                             + TRANS (frames == 1 ? "frame" : "frames"),
                         juce::dontSendNotification);
    filterCurveEditor.repaint();
}

void KelfinerAudioProcessorEditor::updateParameterControls()
{
    for (auto* slider : {&masterGainSlider, &filterLengthSlider, &estimationThresholdSlider})
    {
        slider->setForwarding (false);
        slider->setValue (engineValue (slider->getEngineParameterId().value),
                          juce::dontSendNotification);
        slider->setForwarding (true);
    }
    emphasisToggle.setToggleState (engineValue (Deconvolution::enableEmphasisCurveIndex) > 0.5f,
                                   juce::dontSendNotification);
    analyzerToggle.setToggleState (engineValue (Deconvolution::enableAnalyzersIndex) > 0.5f,
                                   juce::dontSendNotification);
    learnButton.setToggleState (juce::roundToInt (engineValue (Deconvolution::estimationModeIndex))
                                    == vesk::audio::learnMode,
                                juce::dontSendNotification);
    targetProfileCombo.setSelectedId (
        juce::roundToInt (engineValue (Deconvolution::targetModelIndex)) + 1,
        juce::dontSendNotification);
    if (engineValue (Deconvolution::enableEmphasisCurveIndex) <= 0.5f)
        filterCurveEditor.removeCurve (emphasisCurveId);
    else
        updateEmphasisCurve();
    repaint();
}

//==============================================================================
Curve KelfinerAudioProcessorEditor::createCurve (const Signal32& spectrum, double rate,
                                                 juce::Colour line, juce::Colour fill, int columns,
                                                 float minimum, float maximum)
{
    juce::Array<juce::Point<float>> points;
    const int bins = spectrum.isEmpty() ? 0 : spectrum.getNumSamples();
    const int channels = spectrum.isEmpty() ? 0 : spectrum.getNumChannels();
    if (bins == 0 || channels == 0 || columns <= 0 || rate <= 40.0)
        return Curve (points, line, fill, 1.5f);
    const double nyquist = rate / 2.0;
    const double ratio = std::pow (rate / 40.0, 1.0 / columns);
    const double span = std::log10 (nyquist / 20.0);
    // The divisor is the Nyquist frequency plus one, as the bins are laid out by the engine.
    const auto binOf = [&] (double f)
    { return juce::jlimit (0, bins - 1, (int) std::lround (f / (nyquist + 1.0) * bins)); };
    const auto magnitude = [&] (int bin)
    {
        double sum = 0.0;
        for (int c = 0; c < channels; ++c)
            sum += spectrum[c][bin];
        return sum / channels;
    };
    double f = 20.0;
    int bin = binOf (f);
    points.ensureStorageAllocated (columns);
    for (int column = 0; column < columns; ++column)
    {
        const int end = binOf (f * ratio);
        if (column == 0 || end != bin)
        {
            double value = magnitude (bin);
            for (int k = bin + 1; k < end; ++k)
                value = juce::jmax (value, magnitude (k));
            const double level = 20.0 * std::log10 (juce::jmax (value, 1.0e-12));
            points.add ({(float) (std::log10 (f / 20.0) / span),
                         (float) ((level - minimum) / (maximum - minimum))});
        }
        bin = end;
        f *= ratio;
    }
    return Curve (points, line, fill, 1.5f);
}

Curve KelfinerAudioProcessorEditor::createCurve (const Signal32& spectrum, juce::Colour line,
                                                 juce::Colour fill, int columns, float minimum,
                                                 float maximum) const
{
    return createCurve (spectrum, sampleRate, line, fill, columns, minimum, maximum);
}

//==============================================================================
void KelfinerAudioProcessorEditor::sliderDragStarted (juce::Slider*) { processor.addUndoState(); }

void KelfinerAudioProcessorEditor::buttonClicked (juce::Button* button)
{
    processor.addUndoState();
    if (button == &emphasisToggle)
    {
        setEngineValue (Deconvolution::enableEmphasisCurveIndex,
                        emphasisToggle.getToggleState() ? 1.0f : 0.0f);
        updateEmphasisHandles();
        updateParameterControls();
    }
    else if (button == &gainRangeButton)
        showNumberMenu (gainRanges, (int) std::size (gainRanges), button, gainMenuBaseId);
    else if (button == &analyzerRangeButton)
        showNumberMenu (analyzerRanges, (int) std::size (analyzerRanges), button,
                        analyzerMenuBaseId);
    else if (button == &saveFilterButton || button == &loadFilterButton)
    {
        const bool saving = button == &saveFilterButton;
        chooser = std::make_unique<juce::FileChooser> (
            TRANS (saving ? "Please choose a file name for the filter you want to save..."
                          : "Please select the filter file you want to load..."),
            getDefaultFilterFolder(), "*.filter");
        const int chooserFlags = saving ? juce::FileBrowserComponent::saveMode
                                              | juce::FileBrowserComponent::warnAboutOverwriting
                                        : juce::FileBrowserComponent::openMode;
        chooser->launchAsync (
            chooserFlags | juce::FileBrowserComponent::canSelectFiles,
            [safe = juce::Component::SafePointer (this), saving] (const juce::FileChooser& chosen)
            {
                const auto file = chosen.getResult();
                if (safe == nullptr || file == juce::File())
                    return;
                if (saving)
                    safe->saveFilter (file.withFileExtension ("filter"));
                else
                    safe->loadFilter (file);
            });
    }
    else if (button == &analyzerToggle)
        setEngineValue (Deconvolution::enableAnalyzersIndex,
                        analyzerToggle.getToggleState() ? 1.0f : 0.0f);
    else if (button == &learnButton)
        setEngineValue (Deconvolution::estimationModeIndex,
                        learnButton.getToggleState() ? learnOnMode : learnOffMode);
    repaint();
}

void KelfinerAudioProcessorEditor::comboBoxChanged (juce::ComboBox* combo)
{
    if (combo != &targetProfileCombo || combo->getSelectedId() == 0)
        return;
    processor.addUndoState();
    setEngineValue (Deconvolution::targetModelIndex, (float) (combo->getSelectedId() - 1));
}

void KelfinerAudioProcessorEditor::headerCommand (PlugInEditorHeader* from, int command)
{
    BasePluginEditor::headerCommand (from, command);
    if (command >= PlugInEditorHeader::productCommandBase)
        correctionCommand (command);
    else if (command >= PlugInEditorHeader::themeCommandBase)
        updateParameterControls(); // everything repainted in the new theme's colours
}

void KelfinerAudioProcessorEditor::showNumberMenu (const int* values, int count,
                                                   juce::Component* component, int baseId)
{
    juce::PopupMenu menu;
    menu.setLookAndFeel (&getLookAndFeel());
    for (int i = 0; i < count; ++i)
        menu.addItem (baseId + i, juce::String (values[i]));
    menu.showMenuAsync (juce::PopupMenu::Options().withTargetComponent (component),
                        [safe = juce::Component::SafePointer (this)] (int result)
                        {
                            if (safe != nullptr)
                                safe->numberMenuCallback (result);
                        });
}

void KelfinerAudioProcessorEditor::numberMenuCallback (int result)
{
    if (result >= gainMenuBaseId && result < gainMenuBaseId + (int) std::size (gainRanges))
        setGainRange (gainRanges[result - gainMenuBaseId]);
    else if (result >= analyzerMenuBaseId
             && result < analyzerMenuBaseId + (int) std::size (analyzerRanges))
        setAnalyzerRange (analyzerRanges[result - analyzerMenuBaseId]);
}

void KelfinerAudioProcessorEditor::setGainRange (int value)
{
    gainRange = -value;
    gainAxis.setRange (value, -value);
    gainRangeButton.setButtonText (juce::String (value));
    updateEmphasisGrid();
}

void KelfinerAudioProcessorEditor::setAnalyzerRange (int value)
{
    analyzerRange = -value;
    spectrumAxis.setRange (value, 0);
    analyzerRangeButton.setButtonText (juce::String (value));
    updateEmphasisGrid();
}

void KelfinerAudioProcessorEditor::getCursorInfoFromPoint (CurveEditor*,
                                                           const juce::Point<float>& point,
                                                           juce::String& text)
{
    text = juce::String::formatted ("%.1f Hz, %.1f dB", frequencyFromX (point.x),
                                    -gainRange + point.y * 2.0f * gainRange);
}

float KelfinerAudioProcessorEditor::xFromFrequency (float frequency) const
{
    return (float) (std::log10 (frequency / 20.0) / std::log10 (sampleRate / 2.0 / 20.0));
}

float KelfinerAudioProcessorEditor::frequencyFromX (float x) const
{
    return (float) (20.0 * std::pow (10.0, x * std::log10 (sampleRate / 2.0 / 20.0)));
}
