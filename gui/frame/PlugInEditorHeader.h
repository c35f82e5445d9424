#pragma once

#include "BasePlugInProcessor.h"
#include "IconButton.h"

#include <juce_gui_basics/juce_gui_basics.h>

#include <functional>

/** The bar along the top of every editor: the product's name, undo and redo, the A/B switch and
    the copy to the other slot, preset navigation, and the plug-in menu (help, themes, about).
    Buttons follow the processor (a 150 ms poll), so a host's undo or a preset change shows.
    Message thread. */
class PlugInEditorHeader : public juce::Component, private juce::Timer
{
public:
    /** Commands of the plug-in menu, handed to the listeners. */
    enum Command
    {
        helpCommand = 1,
        aboutCommand = 2,
        authoriseCommand = 3,
        deauthoriseCommand = 4,
        themeCommandBase = 0x100,   ///< + the theme's id
        productCommandBase = 0x1000 ///< and up: the product's own menu (setProductMenu)
    };

    class Listener
    {
    public:
        virtual ~Listener() = default;
        virtual void headerCommand (PlugInEditorHeader* header, int command) = 0;
    };

    PlugInEditorHeader();
    ~PlugInEditorHeader() override;

    /** Binds the header; the other slot (B) starts as a copy of the current settings. */
    void attach (juce::AudioProcessorEditor* editor, BasePlugInProcessor* processor);
    /** Shows the preset controls; `firstProgram` is the program index the list starts at. */
    void enablePresets (bool enabled, int firstProgram);
    void addListener (Listener* listener);
    void removeListener (Listener* listener);
    /** The theme ticked in the plug-in menu. */
    void setCurrentThemeId (int themeId) { currentThemeId = themeId; }
    /** A product's own submenu at the top of the plug-in menu, made anew each time the menu
        opens; its item ids start at productCommandBase and reach the listeners like the rest. */
    void setProductMenu (const juce::String& name, std::function<juce::PopupMenu()> make);

    // The buttons' actions, callable without a mouse.
    void undo();
    void redo();
    void switchAB();
    void copyToOther();
    /** Loads program current ± 1, wrapping round the list. */
    void stepPreset (int direction);
    void loadProgram (int index);
    /** Saves the current settings as a user preset of that name and selects it; false when the
        name is unusable or the file cannot be written. */
    bool saveUserPreset (const juce::String& name);
    /** Which slot is live: false A, true B. */
    bool isShowingB() const noexcept { return showingB; }
    /** Re-reads the processor's undo, redo and preset state. */
    void refresh();
    /** The plug-in menu as shown (for tests and for keyboard users). */
    juce::PopupMenu createPluginMenu() const;
    juce::PopupMenu createPresetMenu() const;
    void handleCommand (int command);

    juce::String getPresetText() const { return presetButton.getButtonText(); }
    bool isUndoEnabled() const { return undoButton.isEnabled(); }
    bool isRedoEnabled() const { return redoButton.isEnabled(); }

    void paint (juce::Graphics& g) override;
    void resized() override;

private:
    void timerCallback() override { refresh(); }
    void askForPresetName();
    void presetMenuResult (int result);

    juce::AudioProcessorEditor* editor = nullptr;
    BasePlugInProcessor* processor = nullptr;
    juce::Array<Listener*> listeners;
    bool presetsEnabled = false;
    int firstProgram = 0;
    bool showingB = false;
    int currentThemeId = 1;
    juce::String productMenuName;
    std::function<juce::PopupMenu()> makeProductMenu;

    IconButton undoButton, redoButton, copyButton, previousButton, nextButton, savePresetButton,
        menuButton;
    juce::TextButton abButton, presetButton;
    std::unique_ptr<juce::AlertWindow> nameWindow;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (PlugInEditorHeader)
};
