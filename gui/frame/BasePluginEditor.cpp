#include "BasePluginEditor.h"

#include "ErrorBox.h"

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
#if KELFINER_LICENSING
    if (auto* licences = basePlugin.getLicenseManager(); licences != nullptr && licences->isDemo())
        showDemoDialog();
#endif
}

BasePluginEditor::~BasePluginEditor()
{
    header.removeListener (this);
    aboutBox.reset();
#if KELFINER_LICENSING
    demoDialog.reset();
#endif
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

#if KELFINER_LICENSING
void BasePluginEditor::showDemoDialog()
{
    auto* licences = basePlugin.getLicenseManager();
    if (licences == nullptr)
        return;
    demoDialog = std::make_unique<DemoDialog> (*licences);
    addChildComponent (*demoDialog);
    demoDialog->setBounds (getLocalBounds());
    demoDialog->setVisible (true);
    demoDialog->toFront (true);
}

void BasePluginEditor::askToDeauthorise()
{
    auto* licences = basePlugin.getLicenseManager();
    if (licences == nullptr)
        return;
    const auto remove = [safe = juce::Component::SafePointer (this), licences]
    {
        if (safe != nullptr && !licences->deauthorise())
            showErrorBox (TRANS ("Unable to remove the licence file ")
                              + licences->getStoredLicenceFile().getFullPathName(),
                          safe.getComponent());
    };
    if (juce::Desktop::getInstance().getDisplays().getPrimaryDisplay() == nullptr)
    {
        remove();
        return;
    }
    juce::AlertWindow::showOkCancelBox (
        juce::MessageBoxIconType::QuestionIcon, TRANS ("Deauthorise"),
        TRANS ("Remove the licence from this computer? The plug-in goes back to demo mode."),
        TRANS ("Deauthorise"), TRANS ("Cancel"), this,
        juce::ModalCallbackFunction::create (
            [remove] (int result)
            {
                if (result != 0)
                    remove();
            }));
}
#endif

void BasePluginEditor::headerCommand (PlugInEditorHeader*, int command)
{
#if KELFINER_LICENSING
    if (command == PlugInEditorHeader::authoriseCommand)
        showDemoDialog();
    else if (command == PlugInEditorHeader::deauthoriseCommand)
        askToDeauthorise();
#endif
    if (command == PlugInEditorHeader::helpCommand)
    {
        if (const auto problem = basePlugin.showHelp(); problem.isNotEmpty())
            showErrorBox (problem, this);
    }
    else if (command == PlugInEditorHeader::aboutCommand)
        showAbout();
    else if (command >= PlugInEditorHeader::themeCommandBase
             && command < PlugInEditorHeader::productCommandBase)
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
    // The overlays stay above whatever the product editor added after them.
    if (aboutBox != nullptr)
    {
        aboutBox->setBounds (getLocalBounds());
        aboutBox->toFront (false);
    }
#if KELFINER_LICENSING
    if (demoDialog != nullptr)
    {
        demoDialog->setBounds (getLocalBounds());
        demoDialog->toFront (false);
    }
#endif
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
