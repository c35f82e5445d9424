#pragma once

#include "AboutBox.h"
#include "BasePlugInProcessor.h"
#include "BaseTheme.h"
#if KELFINER_LICENSING
#include "DemoDialog.h"
#endif
#include "PlugInEditorHeader.h"

#include <juce_audio_processors/juce_audio_processors.h>

/** The frame of the maker's editors: the header bar, the theme, a resize corner, the about box,
    and the plug-in's properties file. A product editor derives from it and lays out the rest.
    Message thread. */
class BasePluginEditor : public juce::AudioProcessorEditor, public PlugInEditorHeader::Listener
{
public:
    explicit BasePluginEditor (BasePlugInProcessor& owner);
    ~BasePluginEditor() override;

    PlugInEditorHeader& getHeader() noexcept { return header; }
    BaseTheme& getTheme() noexcept { return *theme; }
    /** Applies a theme to the whole editor at once and stores it as "ThemeId". */
    void setTheme (int themeId);
    juce::PropertiesFile& getProperties() const { return basePlugin.getProperties(); }
    void showAbout();
    bool isAboutShowing() const { return aboutBox != nullptr && aboutBox->isVisible(); }
    AboutBox* getAboutBox() const { return aboutBox.get(); }
#if KELFINER_LICENSING
    /** The licence dialog over the editor (opened by itself in demo mode). */
    void showDemoDialog();
    DemoDialog* getDemoDialog() const { return demoDialog.get(); }
    /** Removes the licence after the user confirmed it (a box asks, where there is a display). */
    void askToDeauthorise();
#endif

    /** Help, themes and about; a product editor that overrides this calls it first. */
    void headerCommand (PlugInEditorHeader* header, int command) override;

    void paint (juce::Graphics& g) override;
    void resized() override;

protected:
    /** Places the header and the resize corner; a product editor calls it from its resized(). */
    void layoutFrame();
    /** Sets the smallest size and restores the last one stored under these keys. */
    void restoreSize (int minimumWidth, int minimumHeight);

    BasePlugInProcessor& basePlugin;
    PlugInEditorHeader header;

private:
    std::unique_ptr<BaseTheme> theme;
    juce::ComponentBoundsConstrainer constrainer;
    juce::ResizableCornerComponent corner;
    std::unique_ptr<AboutBox> aboutBox;
#if KELFINER_LICENSING
    std::unique_ptr<DemoDialog> demoDialog;
#endif
    juce::TooltipWindow tooltips{this, 600};
};
