#include "PlugInEditorHeader.h"

#include "BaseTheme.h"
#include "ColourIds.h"
#include "ErrorBox.h"

namespace
{
juce::String glyph (juce::juce_wchar code) { return juce::String::charToString (code); }

constexpr int presetBaseId = 1;      // + program index
constexpr int savePresetId = 0x7000; // the preset menu's last item
} // namespace

PlugInEditorHeader::PlugInEditorHeader()
    : undoButton ("undoButton", glyph (IconButton::Glyphs::undo)),
      redoButton ("redoButton", glyph (IconButton::Glyphs::redo)),
      copyButton ("copyButton", glyph (IconButton::Glyphs::copy)),
      previousButton ("previousPresetButton", glyph (IconButton::Glyphs::previous)),
      nextButton ("nextPresetButton", glyph (IconButton::Glyphs::next)),
      savePresetButton ("savePresetButton", glyph (IconButton::Glyphs::save)),
      menuButton ("menuButton", glyph (IconButton::Glyphs::menu)), abButton ("abButton", "A"),
      presetButton ("presetButton")
{
    setName ("header");
    const std::pair<juce::Button*, const char*> tips[] = {
        {&undoButton, "Undo the last change"},
        {&redoButton, "Redo the change undone last"},
        {&abButton, "Switch between the settings A and B"},
        {&copyButton, "Copy the current settings to the other slot"},
        {&previousButton, "Load the previous preset"},
        {&presetButton, "Choose a preset"},
        {&nextButton, "Load the next preset"},
        {&savePresetButton, "Save the current settings as a user preset"},
        {&menuButton, "Help, themes and information about the plug-in"}};
    for (auto [button, tip] : tips)
    {
        button->setTooltip (TRANS (tip));
        button->setTitle (TRANS (tip));
        button->setWantsKeyboardFocus (true);
        addAndMakeVisible (button);
    }
    undoButton.onClick = [this] { undo(); };
    redoButton.onClick = [this] { redo(); };
    abButton.onClick = [this] { switchAB(); };
    copyButton.onClick = [this] { copyToOther(); };
    previousButton.onClick = [this] { stepPreset (-1); };
    nextButton.onClick = [this] { stepPreset (1); };
    savePresetButton.onClick = [this] { askForPresetName(); };
    presetButton.onClick = [this]
    {
        createPresetMenu().showMenuAsync (
            juce::PopupMenu::Options().withTargetComponent (&presetButton),
            [safe = juce::Component::SafePointer<PlugInEditorHeader> (this)] (int result)
            {
                if (safe != nullptr)
                    safe->presetMenuResult (result);
            });
    };
    menuButton.onClick = [this]
    {
        createPluginMenu().showMenuAsync (
            juce::PopupMenu::Options().withTargetComponent (&menuButton),
            [safe = juce::Component::SafePointer<PlugInEditorHeader> (this)] (int result)
            {
                if (safe != nullptr && result != 0)
                    safe->handleCommand (result);
            });
    };
    enablePresets (false, 0);
}

PlugInEditorHeader::~PlugInEditorHeader() { stopTimer(); }

void PlugInEditorHeader::attach (juce::AudioProcessorEditor* owner, BasePlugInProcessor* plugin)
{
    editor = owner;
    processor = plugin;
    processor->copyToAlternate();
    showingB = false;
    refresh();
    startTimer (150);
}

void PlugInEditorHeader::enablePresets (bool enabled, int first)
{
    presetsEnabled = enabled;
    firstProgram = first;
    for (juce::Component* c :
         {(juce::Component*) &previousButton, (juce::Component*) &nextButton,
          (juce::Component*) &presetButton, (juce::Component*) &savePresetButton})
        c->setVisible (enabled);
    refresh();
}

void PlugInEditorHeader::addListener (Listener* listener)
{
    listeners.addIfNotAlreadyThere (listener);
}

void PlugInEditorHeader::removeListener (Listener* listener)
{
    listeners.removeFirstMatchingValue (listener);
}

void PlugInEditorHeader::undo()
{
    if (processor != nullptr)
        processor->undo();
    refresh();
}

void PlugInEditorHeader::redo()
{
    if (processor != nullptr)
        processor->redo();
    refresh();
}

void PlugInEditorHeader::switchAB()
{
    if (processor == nullptr)
        return;
    processor->switchToAlternateSettings();
    showingB = !showingB;
    refresh();
}

void PlugInEditorHeader::copyToOther()
{
    if (processor != nullptr)
        processor->copyToAlternate();
}

void PlugInEditorHeader::stepPreset (int direction)
{
    if (processor == nullptr)
        return;
    const int count = processor->getNumPrograms() - firstProgram;
    if (count <= 0)
        return;
    const int current = juce::jlimit (0, count - 1, processor->getCurrentProgram() - firstProgram);
    loadProgram (firstProgram + (current + direction + count) % count);
}

void PlugInEditorHeader::loadProgram (int index)
{
    if (processor == nullptr || !juce::isPositiveAndBelow (index, processor->getNumPrograms()))
        return;
    processor->addUndoState(); // a preset is one step back from what was there
    processor->setCurrentProgram (index);
    refresh();
}

bool PlugInEditorHeader::saveUserPreset (const juce::String& name)
{
    const auto fileName = juce::File::createLegalFileName (name.trim());
    if (processor == nullptr || fileName.isEmpty())
        return false;
    const auto folder = processor->getUserDataFolder().getChildFile ("Presets");
    if (!folder.createDirectory())
        return false;
    const auto file = folder.getChildFile (fileName).withFileExtension ("xml");
    if (!processor->exportToPresetFile (file))
        return false;
    processor->scanPresets();
    processor->setCurrentPresetName (file.getFileNameWithoutExtension());
    refresh();
    return true;
}

void PlugInEditorHeader::refresh()
{
    if (processor == nullptr)
        return;
    undoButton.setEnabled (processor->canUndo());
    redoButton.setEnabled (processor->canRedo());
    abButton.setButtonText (showingB ? "B" : "A");
    abButton.setToggleState (showingB, juce::dontSendNotification);
    const auto name = processor->getCurrentPresetName();
    presetButton.setButtonText (name.isNotEmpty() ? name : TRANS ("(no preset)"));
}

void PlugInEditorHeader::setProductMenu (const juce::String& name,
                                         std::function<juce::PopupMenu()> make)
{
    productMenuName = name;
    makeProductMenu = std::move (make);
}

juce::PopupMenu PlugInEditorHeader::createPluginMenu() const
{
    juce::PopupMenu themes;
    for (int id : {(int) BaseTheme::darkThemeId, (int) BaseTheme::steelThemeId})
        themes.addItem (themeCommandBase + id, TRANS (BaseTheme::create (id)->getThemeName()), true,
                        id == currentThemeId);
    juce::PopupMenu menu;
    if (makeProductMenu)
    {
        menu.addSubMenu (productMenuName, makeProductMenu());
        menu.addSeparator();
    }
    menu.addItem (helpCommand, TRANS ("Help..."));
    menu.addSubMenu (TRANS ("Themes"), themes);
    menu.addItem (aboutCommand, TRANS ("About"));
#if KELFINER_LICENSING
    if (processor != nullptr && processor->getLicenseManager() != nullptr)
    {
        menu.addSeparator();
        if (processor->getLicenseManager()->isDemo())
            menu.addItem (authoriseCommand, TRANS ("Authorise..."));
        else
            menu.addItem (deauthoriseCommand, TRANS ("Deauthorise"));
    }
#endif
    return menu;
}

juce::PopupMenu PlugInEditorHeader::createPresetMenu() const
{
    juce::PopupMenu menu;
    if (processor == nullptr)
        return menu;
    const int current = processor->getCurrentProgram();
    const auto tree = processor->getPresetTree();
    for (const auto& node : tree)
    {
        if (node.hasType ("Reset"))
        {
            menu.addItem (presetBaseId, TRANS ("Reset"), true, current == 0);
            continue;
        }
        juce::PopupMenu folder;
        for (const auto& preset : node)
        {
            const int index = preset.getProperty ("Index");
            folder.addItem (presetBaseId + index, preset.getProperty ("Name").toString(), true,
                            index == current);
        }
        menu.addSubMenu (TRANS (node.getProperty ("Name").toString()), folder,
                         folder.getNumItems() > 0);
    }
    menu.addSeparator();
    menu.addItem (savePresetId, TRANS ("Save as user preset..."));
    return menu;
}

void PlugInEditorHeader::presetMenuResult (int result)
{
    if (result == savePresetId)
        askForPresetName();
    else if (result >= presetBaseId)
        loadProgram (result - presetBaseId);
}

void PlugInEditorHeader::handleCommand (int command)
{
    if (command >= themeCommandBase)
        currentThemeId = command - themeCommandBase;
    for (int i = listeners.size(); --i >= 0;)
        listeners.getUnchecked (i)->headerCommand (this, command);
}

void PlugInEditorHeader::askForPresetName()
{
    nameWindow = std::make_unique<juce::AlertWindow> (TRANS ("Save as user preset"),
                                                      TRANS ("Name of the new preset:"),
                                                      juce::MessageBoxIconType::NoIcon, editor);
    nameWindow->addTextEditor ("name",
                               processor != nullptr ? processor->getCurrentPresetName() : "");
    nameWindow->addButton (TRANS ("Save"), 1, juce::KeyPress (juce::KeyPress::returnKey));
    nameWindow->addButton (TRANS ("Cancel"), 0, juce::KeyPress (juce::KeyPress::escapeKey));
    nameWindow->enterModalState (
        true, juce::ModalCallbackFunction::create (
                  [safe = juce::Component::SafePointer<PlugInEditorHeader> (this)] (int result)
                  {
                      if (safe == nullptr || safe->nameWindow == nullptr)
                          return;
                      const auto name = safe->nameWindow->getTextEditorContents ("name");
                      safe->nameWindow.reset();
                      if (result == 1 && !safe->saveUserPreset (name))
                          showErrorBox (TRANS ("Unable to save the preset ") + name,
                                        safe.getComponent());
                  }));
}

void PlugInEditorHeader::paint (juce::Graphics& g)
{
    g.setColour (findColour (ThemeColourIds::headerBackground));
    g.fillRect (getLocalBounds());
    g.setColour (findColour (ThemeColourIds::plotBorder).withMultipliedAlpha (0.5f));
    g.drawHorizontalLine (getHeight() - 1, 0.0f, (float) getWidth());
    g.setColour (findColour (ThemeColourIds::headerText));
    g.setFont (juce::Font (22.0f, juce::Font::bold));
    g.drawText (editor != nullptr ? editor->getAudioProcessor()->getName().fromLastOccurrenceOf (
                    " ", false, false)
                                  : juce::String(),
                16, 0, 140, getHeight(), juce::Justification::centredLeft, true);
}

void PlugInEditorHeader::resized()
{
    const int y = 10, h = 28, w = 32;
    int x = 160;
    undoButton.setBounds (x, y, w, h);
    redoButton.setBounds (x += w + 4, y, w, h);
    abButton.setBounds (x += w + 14, y, w, h);
    copyButton.setBounds (x += w + 4, y, w, h);
    x += w + 14;
    const int menuX = getWidth() - 12 - w;
    menuButton.setBounds (menuX, y, w, h);
    const int presetWidth = juce::jlimit (120, 320, menuX - 14 - (x + 3 * (w + 4)));
    previousButton.setBounds (x, y, w, h);
    presetButton.setBounds (x += w + 4, y, presetWidth, h);
    nextButton.setBounds (x += presetWidth + 4, y, w, h);
    savePresetButton.setBounds (x += w + 4, y, w, h);
}
