#include "BasePluginEditor.h"

BasePluginEditor::BasePluginEditor (BasePlugInProcessor& owner)
    : juce::AudioProcessorEditor (owner), basePlugin (owner), corner (this, &constrainer)
{
    theme = BaseTheme::create (getProperties().getIntValue ("ThemeId", BaseTheme::darkThemeId));
    setLookAndFeel (theme.get());
    header.setCurrentThemeId (theme->getThemeId());
    header.addListener (this);
    addAndMakeVisible (header);
    corner.setName ("resizeCorner");
    corner.setTitle (TRANS ("Resize"));
    addAndMakeVisible (corner);
}

BasePluginEditor::~BasePluginEditor()
{
    header.removeListener (this);
    aboutBox.reset();
    setLookAndFeel (nullptr);
}

void BasePluginEditor::setTheme (int themeId)
{
    auto next = BaseTheme::create (themeId);
    setLookAndFeel (next.get()); // the old theme stays alive until no component refers to it
    theme = std::move (next);
    header.setCurrentThemeId (theme->getThemeId());
    getProperties().setValue ("ThemeId", theme->getThemeId());
    getProperties().saveIfNeeded();
    repaint();
}

void BasePluginEditor::showAbout()
{
    if (aboutBox == nullptr)
    {
        aboutBox = std::make_unique<AboutBox> (basePlugin);
        addChildComponent (*aboutBox);
    }
    aboutBox->setBounds (getLocalBounds());
    aboutBox->setVisible (true);
    aboutBox->toFront (true);
}

void BasePluginEditor::headerCommand (PlugInEditorHeader*, int command)
{
    if (command == PlugInEditorHeader::helpCommand)
        basePlugin.showHelp();
    else if (command == PlugInEditorHeader::aboutCommand)
        showAbout();
    else if (command >= PlugInEditorHeader::themeCommandBase)
        setTheme (command - PlugInEditorHeader::themeCommandBase);
}

void BasePluginEditor::paint (juce::Graphics& g)
{
    theme->drawEditorBackground (g, getLocalBounds());
}

void BasePluginEditor::resized() { layoutFrame(); }

void BasePluginEditor::layoutFrame()
{
    header.setBounds (0, 0, getWidth(), 48);
    corner.setBounds (getWidth() - 16, getHeight() - 16, 16, 16);
    corner.toFront (false);
    if (aboutBox != nullptr)
        aboutBox->setBounds (getLocalBounds());
}

void BasePluginEditor::restoreSize (int minimumWidth, int minimumHeight)
{
    constrainer.setMinimumSize (minimumWidth, minimumHeight);
    constrainer.setMaximumSize (8192, 8192);
    setConstrainer (&constrainer);
    setResizable (true, false);
    const int width = getProperties().getIntValue ("LastWindowWidth", getWidth());
    const int height = getProperties().getIntValue ("LastWindowHeight", getHeight());
    setSize (juce::jlimit (minimumWidth, 8192, width), juce::jlimit (minimumHeight, 8192, height));
}
