#include "ErrorBox.h"
#include "FilterFile.h"
#include "KelfinerAudioProcessorEditor.h"

// Saving the learnt source filter and loading a filter as the custom target. A saved source
// comes back as a target: that asymmetry is the feature (learn one recording, match another).

using vesk::audio::Deconvolution;
using vesk::audio::Signal32;

void KelfinerAudioProcessorEditor::showError (const juce::String& text)
{
    lastError = text;
    showErrorBox (text, this);
}

juce::File KelfinerAudioProcessorEditor::getDefaultFilterFolder() const
{
    const auto folder = processor.getUserDataFolder().getChildFile ("Filters");
    folder.createDirectory();
    return folder;
}

bool KelfinerAudioProcessorEditor::saveFilter (const juce::File& file)
{
    Signal32 source;
    double rate = 0.0;
    engine.getSourceFilter (source, rate);
    if (source.isEmpty())
    {
        showError (TRANS ("Nothing has been learnt yet, so there is no filter to save."));
        return false;
    }
    if (!FilterFile::write (file, source, rate))
    {
        showError (TRANS ("Unable to create the file ") + file.getFullPathName());
        return false;
    }
    return true;
}

bool KelfinerAudioProcessorEditor::loadFilter (const juce::File& file)
{
    Signal32 target;
    double rate = 0.0;
    switch (FilterFile::read (file, target, rate))
    {
        case FilterFile::Status::unreadable:
            showError (TRANS ("Unable to open the file ") + file.getFullPathName());
            return false;
        case FilterFile::Status::invalid:
            showError (TRANS ("The file ") + file.getFullPathName()
                       + TRANS (" does not seem to be a valid filter file."));
            return false;
        case FilterFile::Status::ok: break;
    }
    processor.addUndoState();
    engine.setTargetFilter (target, rate);
    setEngineValue (Deconvolution::targetModelIndex, (float) Deconvolution::custom);
    updateParameterControls();
    return true;
}
