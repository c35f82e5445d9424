#include "EditorFixture.h"

using vesk::audio::Deconvolution;

namespace
{
struct Header : vesk::test::EditorFixture
{
    PlugInEditorHeader& header() { return editor->getHeader(); }
    void setGain (float gain)
    {
        processor.addUndoState();
        processor.setCheckedParameterValue (EngineParameterId (Deconvolution::masterGainIndex),
                                            gain);
    }
    float gain() { return value (Deconvolution::masterGainIndex); }
};
} // namespace

TEST_F (Header, UndoRedoAndABFollowTheProcessor)
{
    EXPECT_FALSE (header().isUndoEnabled());
    setGain (4.0f);
    setGain (-3.0f);
    header().refresh();
    EXPECT_TRUE (header().isUndoEnabled());
    EXPECT_FALSE (header().isRedoEnabled());
    header().undo();
    EXPECT_FLOAT_EQ (gain(), 4.0f);
    EXPECT_TRUE (header().isRedoEnabled());
    header().redo();
    EXPECT_FLOAT_EQ (gain(), -3.0f);

    // B started as a copy of what was there when the editor opened (gain 0).
    header().switchAB();
    EXPECT_TRUE (header().isShowingB());
    EXPECT_FLOAT_EQ (gain(), 0.0f);
    setGain (6.0f);
    header().switchAB();
    EXPECT_FALSE (header().isShowingB());
    EXPECT_FLOAT_EQ (gain(), -3.0f);
    header().copyToOther();
    header().switchAB();
    EXPECT_FLOAT_EQ (gain(), -3.0f);
}

TEST_F (Header, UserPresetsAreSavedListedAndStepped)
{
    setGain (5.0f);
    ASSERT_TRUE (header().saveUserPreset ("Bright vocal"));
    EXPECT_EQ (header().getPresetText(), "Bright vocal");
    EXPECT_FALSE (header().saveUserPreset ("   "));
    setGain (-7.0f);
    int index = -1;
    for (int i = 0; i < processor.getNumPrograms(); ++i)
        if (processor.getProgramName (i) == "Bright vocal")
            index = i;
    ASSERT_GT (index, 0);
    header().loadProgram (index);
    EXPECT_FLOAT_EQ (gain(), 5.0f);
    processor.undo(); // a preset load is one undo step
    EXPECT_FLOAT_EQ (gain(), -7.0f);

    header().loadProgram (index);
    header().stepPreset (+1); // past the end wraps to "Reset"
    EXPECT_EQ (processor.getCurrentProgram(), (index + 1) % processor.getNumPrograms());
    header().stepPreset (-1);
    EXPECT_EQ (processor.getCurrentProgram(), index);

    const auto menu = header().createPresetMenu();
    EXPECT_GE (menu.getNumItems(), 4); // Reset, two folders, a separator, save
}

TEST_F (Header, ThemesSwitchAtOnceAndAreKept)
{
    const auto menu = header().createPluginMenu();
    juce::StringArray items;
    for (juce::PopupMenu::MenuItemIterator i (menu); i.next();)
        items.add (i.getItem().text);
    EXPECT_EQ (items, juce::StringArray ({"Correction", "", "Help...", "Themes", "About"}));

    header().handleCommand (PlugInEditorHeader::themeCommandBase + BaseTheme::steelThemeId);
    EXPECT_EQ (editor->getTheme().getThemeName(), "Brushed steel");
    EXPECT_EQ (&editor->getLookAndFeel(), &editor->getTheme());
    EXPECT_EQ (editor->getProperties().getIntValue ("ThemeId"), BaseTheme::steelThemeId);
    editor.reset();
    editor = std::make_unique<KelfinerAudioProcessorEditor> (processor);
    EXPECT_EQ (editor->getTheme().getThemeName(), "Brushed steel");
    header().handleCommand (PlugInEditorHeader::themeCommandBase + BaseTheme::darkThemeId);
    EXPECT_EQ (editor->getTheme().getThemeName(), "Simplistic dark");
}

// The settings beside the public parameters are chosen in the plug-in menu, shown ticked as they
// stand, and travel with the host state.
TEST_F (Header, CorrectionMenuSetsEstimatorAndLimits)
{
    const auto ticked = [this]
    {
        juce::StringArray items;
        const auto menu = editor->createCorrectionMenu();
        for (juce::PopupMenu::MenuItemIterator i (menu, true); i.next();)
            if (i.getItem().isTicked)
                items.add (i.getItem().text);
        return items;
    };
    const auto idOf = [this] (juce::String const& text)
    {
        const auto menu = header().createPluginMenu();
        for (juce::PopupMenu::MenuItemIterator i (menu, true); i.next();)
            if (i.getItem().text == text)
                return i.getItem().itemID;
        return 0;
    };
    // A new instance starts from the accurate defaults; every one of them can be undone, down
    // to the original estimator without limits.
    const juce::StringArray defaults{"Long-term spectrum",
                                     "Threshold under the material's level",
                                     "Correct only departures from the profile",
                                     "Loudness-matched correction",
                                     "Leave empty bands alone",
                                     "1/3 octave",
                                     "No limit"};
    EXPECT_EQ (ticked(), defaults) << ticked().joinIntoString (", ");

    for (const char* item :
         {"Frame models averaged", "Threshold under the material's level",
          "Correct only departures from the profile", "Loudness-matched correction",
          "Leave empty bands alone", "Off", "12 dB"})
    {
        ASSERT_GE (idOf (item), PlugInEditorHeader::productCommandBase) << item;
        header().handleCommand (idOf (item));
    }
    auto& engine = processor.getEngine();
    EXPECT_EQ (engine.getEstimator(), vesk::audio::Estimator::frameModels);
    const auto limits = engine.getCorrectionLimits();
    EXPECT_FALSE (limits.loudnessMatched || limits.spareEmptyBands || limits.departuresOnly
                  || limits.thresholdRelativeToLevel);
    EXPECT_EQ (limits.smoothingOctaves, 0.0f);
    EXPECT_FLOAT_EQ (limits.maximumBoostDb, 12.0f);
    EXPECT_EQ (ticked(), juce::StringArray ({"Frame models averaged", "Off", "12 dB"}))
        << ticked().joinIntoString (", ");

    juce::MemoryBlock state;
    processor.getStateInformation (state);
    header().handleCommand (idOf ("Correct only departures from the profile")); // a tick toggles
    header().handleCommand (idOf ("No limit"));
    EXPECT_TRUE (engine.getCorrectionLimits().departuresOnly);
    EXPECT_FALSE (std::isfinite (engine.getCorrectionLimits().maximumBoostDb));
    processor.setStateInformation (state.getData(), static_cast<int> (state.getSize()));
    EXPECT_FALSE (engine.getCorrectionLimits().departuresOnly);
    EXPECT_FLOAT_EQ (engine.getCorrectionLimits().maximumBoostDb, 12.0f);
}

TEST_F (Header, AboutNamesProductMakerVersionAndFormat)
{
    header().handleCommand (PlugInEditorHeader::aboutCommand);
    ASSERT_TRUE (editor->isAboutShowing());
    const auto lines = editor->getAboutBox()->getLines();
    EXPECT_EQ (lines[0], "Kelfiner");
    EXPECT_EQ (lines[1], "Vesk Digital");
    EXPECT_EQ (lines[2], "Version 1.0.0");
    EXPECT_TRUE (lines[3].startsWith ("Format: "));
    EXPECT_TRUE (lines[4].startsWith ("Built "));
}

TEST_F (Header, DemoDialogAuthorisesAndTheMenuDeauthorises)
{
    using namespace vesk::licensing;
    PublicKey publicKey;
    SecretKey secretKey;
    LicenceToken::makeKeyPair (publicKey, secretKey);
    LicenceToken licence;
    licence.product = "Klfn";
    licence.licensee = "Ada Lovelace";
    licence.email = "ada@example.org";
    licence.serial = "KLF-0001";
    licence.issued = "2026-01-02";
    const auto folder = juce::File::createTempFile ("licence");
    processor.setLicenseManager (std::make_unique<LicenseManager> (
        "Klfn", publicKey, folder.getChildFile ("Kelfiner.licence")));
    editor = std::make_unique<KelfinerAudioProcessorEditor> (processor); // opens in demo mode

    const auto menuTexts = [this]
    {
        juce::StringArray texts;
        const auto menu = header().createPluginMenu();
        for (juce::PopupMenu::MenuItemIterator i (menu); i.next();)
            texts.add (i.getItem().text);
        return texts;
    };
    auto* dialog = editor->getDemoDialog();
    ASSERT_NE (dialog, nullptr);
    EXPECT_TRUE (dialog->isVisible());
    EXPECT_TRUE (menuTexts().contains ("Authorise..."));
    EXPECT_EQ (dialog->authorise ("KLF1.nonsense"), Verdict::malformed);
    EXPECT_TRUE (dialog->getStatusText().startsWith ("This is not a licence key"));
    if (const char* shots = std::getenv ("KELFINER_SCREENSHOTS"))
    {
        const auto file = juce::File (shots).getChildFile ("editor-demo-dialog.png");
        file.deleteFile();
        juce::FileOutputStream out (file);
        juce::PNGImageFormat().writeImageToStream (
            editor->createComponentSnapshot (editor->getLocalBounds()), out);
    }
    EXPECT_EQ (dialog->authorise (licence.sign (secretKey)), Verdict::accepted);
    EXPECT_TRUE (dialog->getStatusText().contains ("Ada Lovelace"));
    EXPECT_FALSE (processor.getLicenseManager()->isDemo());
    EXPECT_TRUE (menuTexts().contains ("Deauthorise"));
    editor->showAbout();
    EXPECT_TRUE (editor->getAboutBox()->getLines().contains ("Licensed to Ada Lovelace"));

    header().handleCommand (PlugInEditorHeader::deauthoriseCommand); // no display: no question
    EXPECT_TRUE (processor.getLicenseManager()->isDemo());
    editor.reset();
    folder.deleteRecursively();
}
