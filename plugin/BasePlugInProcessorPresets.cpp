#include "BasePlugInProcessor.h"
#include "UntrustedXml.h"

// Preset files and the preset list offered to the host as programs.

JUCE_BEGIN_IGNORE_WARNINGS_GCC_LIKE ("-Wdeprecated-declarations")

bool BasePlugInProcessor::exportToPresetFile (const juce::File& file)
{
    juce::XmlElement preset ("Preset");
    auto* settings = preset.createNewChildElement ("ParameterSettings");
    for (auto* p : parameters)
    {
        auto* parameter = settings->createNewChildElement ("Parameter");
        parameter->setAttribute ("id", p->internalId.value);
        parameter->setAttribute ("unit", p->unit);
        parameter->setAttribute (
            "value", static_cast<double> (engine->getParameterValue (p->internalId.value)));
        parameter->setAttribute ("name", p->name);
    }
    auto customData = std::make_unique<juce::XmlElement> ("CustomData");
    if (fillCustomDataXmlElement (customData.get()))
        preset.addChildElement (customData.release());

    // Written beside the target and moved over it, so a failed write never destroys the old file.
    juce::TemporaryFile temporary (file);
    juce::XmlElement::TextFormat format;
    format.lineWrapLength = 60;
    if (!preset.writeTo (temporary.getFile(), format))
        return false;
    return temporary.overwriteTargetFileWithTemporary();
}

bool BasePlugInProcessor::importFromPresetFile (const juce::File& file)
{
    return importPreset (parseUntrustedXml (file), file.getFileNameWithoutExtension());
}

bool BasePlugInProcessor::importFromPresetData (const void* data, std::size_t size,
                                                const juce::String& name)
{
    return importPreset (parseUntrustedXml (data, size), name);
}

bool BasePlugInProcessor::importPreset (std::unique_ptr<juce::XmlElement> document,
                                        const juce::String& name)
{
    // Only our own kind of document: another program's XML that happens to hold a
    // "ParameterSettings" element is not a preset.
    if (document == nullptr || !document->hasTagName ("Preset"))
        return false;
    auto* settings = document->getChildByName ("ParameterSettings");
    if (settings == nullptr)
        return false;

    clearSettings();
    for (auto* parameter : settings->getChildIterator())
    {
        const EngineParameterId id (parameter->getIntAttribute ("id", -1));
        if (id.value < 0 || excludedParameterIds.contains (id.value))
            continue;
        const auto value = static_cast<float> (parameter->getDoubleAttribute ("value", 0.0));
        if (!setCheckedParameterValue (id, value, false))
            continue; // an id this engine does not know (a preset of a later version)
        if (const auto index = findPublicParameterIndex (id); index.isValid())
            sendParamChangeMessageToListeners (
                index.value, parameters[index.value]->getNormalizedParameterValue());
    }
    engine->effectuateParameterChanges();
    // A preset from before custom data existed gets what it was made with, not today's defaults.
    juce::XmlElement none ("CustomData");
    auto* customData = document->getChildByName ("CustomData");
    parseCustomDataXmlElement (customData != nullptr ? customData : &none);
    notifyListeners (-1);
    currentPresetName = name;
    return true;
}

bool BasePlugInProcessor::fillCustomDataXmlElement (juce::XmlElement*) { return false; }

void BasePlugInProcessor::parseCustomDataXmlElement (juce::XmlElement*) {}

void BasePlugInProcessor::scanPresets()
{
    presetTree = juce::ValueTree ("PresetTree");
    programNames.clearQuick();
    programFiles.clearQuick();

    // Program 0 is "Reset", so a host that selects the first program gets the defaults.
    juce::ValueTree reset ("Reset");
    reset.setProperty ("Name", "Reset", nullptr);
    presetTree.appendChild (reset, nullptr);
    programNames.add ("Reset");
    programFiles.add ({});

    const juce::File folders[] = {getResourcesFolder().getChildFile ("Presets"),
                                  getUserDataFolder().getChildFile ("Presets")};
    const char* names[] = {"Factory presets", "User presets"};
    for (int f = 0; f < 2; ++f)
    {
        juce::ValueTree folder ("PresetFolder");
        folder.setProperty ("Name", names[f], nullptr);
        // Every instance scans at start: links that lead back up the tree (a folder linked into
        // itself twice made the walk exponential and the host's constructor never returned)
        // are not followed, and no menu shows more than this many presets anyway.
        constexpr int mostPresets = 4096;
        juce::Array<juce::File> files;
        for (auto const& entry :
             juce::RangedDirectoryIterator (folders[f], true, "*.xml", juce::File::findFiles,
                                            juce::File::FollowSymlinks::noCycles))
        {
            files.add (entry.getFile());
            if (files.size() >= mostPresets)
                break;
        }
        files.sort();
        for (auto const& presetFile : files)
        {
            juce::ValueTree node ("Preset");
            node.setProperty ("Name", presetFile.getFileNameWithoutExtension(), nullptr);
            node.setProperty ("Index", programNames.size(), nullptr);
            node.setProperty ("File", presetFile.getFullPathName(), nullptr);
            folder.appendChild (node, nullptr);
            programNames.add (presetFile.getFileNameWithoutExtension());
            programFiles.add (presetFile.getFullPathName());
        }
        presetTree.appendChild (folder, nullptr);
    }
}

int BasePlugInProcessor::getNumPrograms() { return programNames.size(); }

int BasePlugInProcessor::getCurrentProgram() { return currentProgram; }

void BasePlugInProcessor::setCurrentProgram (int index)
{
    // A host that selects a program right after restoring a state must not overwrite it.
    const auto elapsed = static_cast<juce::uint32> (juce::Time::getMillisecondCounter())
                         - static_cast<juce::uint32> (setStateTime);
    if (setStateTime != 0 && elapsed < 200)
        return;
    if (!juce::isPositiveAndBelow (index, programNames.size()))
        return;
    currentProgram = index;
    if (programFiles[index].isEmpty())
    {
        clearSettings();
        engine->effectuateParameterChanges();
        notifyListeners (-1);
        currentPresetName = {};
        return;
    }
    importFromPresetFile (juce::File (programFiles[index]));
}

const juce::String BasePlugInProcessor::getProgramName (int index)
{
    return juce::isPositiveAndBelow (index, programNames.size()) ? programNames[index]
                                                                 : juce::String();
}

void BasePlugInProcessor::changeProgramName (int index, const juce::String& newName)
{
    if (index == currentProgram && newName.isNotEmpty())
        currentPresetName = newName;
}

JUCE_END_IGNORE_WARNINGS_GCC_LIKE
