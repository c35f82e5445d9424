#include "KelfinerAudioProcessorEditor.h"

#include <cmath>

// The "Correction" menu: how learning models the source and how far the correction may reach.
// These are settings beside the public parameters, kept with the host state and in presets;
// every change goes through the processor's one check of them.

namespace
{
enum CorrectionItem
{
    estimatorBase = PlugInEditorHeader::productCommandBase, // + the estimator's index
    loudnessItem = estimatorBase + 0x10,
    emptyBandsItem,
    departuresItem,
    relativeThresholdItem,
    smoothingBase = estimatorBase + 0x20, // + the choice's index
    boostBase = estimatorBase + 0x30
};

struct Choice
{
    double value; // 0: off
    const char* text;
};

constexpr Choice smoothingChoices[] = {{0.0, "Off"},
                                       {1.0 / 6.0, "1/6 octave"},
                                       {1.0 / 3.0, "1/3 octave"},
                                       {0.5, "1/2 octave"},
                                       {1.0, "1 octave"}};
constexpr Choice boostChoices[] = {
    {0.0, "No limit"}, {6.0, "6 dB"}, {12.0, "12 dB"}, {18.0, "18 dB"}, {24.0, "24 dB"}};

bool near (double a, double b) { return std::fabs (a - b) < 1.0e-3; }
} // namespace

juce::PopupMenu KelfinerAudioProcessorEditor::createCorrectionMenu() const
{
    const auto limits = engine.getCorrectionLimits();
    juce::PopupMenu menu;
    menu.addSectionHeader (TRANS ("Learning"));
    for (std::size_t i = 0; i < vesk::audio::estimators.size(); ++i)
    {
        const auto& choice = vesk::audio::estimators[i];
        menu.addItem (estimatorBase + static_cast<int> (i), TRANS (choice.name), true,
                      engine.getEstimator() == choice.estimator);
    }
    menu.addItem (relativeThresholdItem, TRANS ("Threshold under the material's level"), true,
                  limits.thresholdRelativeToLevel);
    menu.addSectionHeader (TRANS ("Limits"));
    menu.addItem (departuresItem, TRANS ("Correct only departures from the profile"), true,
                  limits.departuresOnly);
    menu.addItem (loudnessItem, TRANS ("Loudness-matched correction"), true,
                  limits.loudnessMatched);
    menu.addItem (emptyBandsItem, TRANS ("Leave empty bands alone"), true, limits.spareEmptyBands);

    juce::PopupMenu smoothing, boost;
    for (std::size_t i = 0; i < std::size (smoothingChoices); ++i)
        smoothing.addItem (smoothingBase + static_cast<int> (i), TRANS (smoothingChoices[i].text),
                           true, near (limits.smoothingOctaves, smoothingChoices[i].value));
    const bool unlimited = !std::isfinite (limits.maximumBoostDb);
    for (std::size_t i = 0; i < std::size (boostChoices); ++i)
        boost.addItem (boostBase + static_cast<int> (i), TRANS (boostChoices[i].text), true,
                       i == 0 ? unlimited
                              : !unlimited && near (limits.maximumBoostDb, boostChoices[i].value));
    menu.addSubMenu (TRANS ("Smoothing"), smoothing);
    menu.addSubMenu (TRANS ("Maximum boost"), boost);
    return menu;
}

void KelfinerAudioProcessorEditor::correctionCommand (int command)
{
    const auto limits = engine.getCorrectionLimits();
    const auto index = [command] (int base) { return static_cast<std::size_t> (command - base); };
    // The ticks: each one turns its setting over.
    using Names = KelfinerAudioProcessor::SettingNames;
    const struct
    {
        int item;
        const juce::Identifier& name;
        bool on;
    } ticks[] = {
        {loudnessItem, Names::loudnessMatched, limits.loudnessMatched},
        {emptyBandsItem, Names::spareEmptyBands, limits.spareEmptyBands},
        {departuresItem, Names::departuresOnly, limits.departuresOnly},
        {relativeThresholdItem, Names::thresholdRelative, limits.thresholdRelativeToLevel}};
    for (auto const& tick : ticks)
        if (command == tick.item)
        {
            processor.setProductSetting (tick.name, tick.on ? 0 : 1);
            return;
        }
    if (command >= estimatorBase && index (estimatorBase) < vesk::audio::estimators.size())
        processor.setProductSetting (KelfinerAudioProcessor::SettingNames::estimator,
                                     vesk::audio::estimators[index (estimatorBase)].key);
    else if (command >= smoothingBase && index (smoothingBase) < std::size (smoothingChoices))
    {
        const double octaves = smoothingChoices[index (smoothingBase)].value;
        processor.setProductSetting (KelfinerAudioProcessor::SettingNames::smoothingOctaves,
                                     octaves > 0.0 ? juce::var (octaves) : juce::var());
    }
    else if (command >= boostBase && index (boostBase) < std::size (boostChoices))
    {
        const double decibels = boostChoices[index (boostBase)].value;
        processor.setProductSetting (KelfinerAudioProcessor::SettingNames::maximumBoost,
                                     decibels > 0.0 ? juce::var (decibels) : juce::var());
    }
}
