#include "PresetLookup.h"

#include "CommandLine.h"
#include "KelfinerAudioProcessor.h"

std::vector<PresetEntry> listPresets()
{
    // The processor scans the folders the plug-in uses, so both list the same presets.
    KelfinerAudioProcessor processor;
    processor.scanPresets();
    // "Reset" is the plug-in's first program: no file, every setting at its default, which is
    // also what the tool does without --preset.
    std::vector<PresetEntry> presets{{"Reset", juce::File(), true}};
    const auto tree = processor.getPresetTree();
    for (int f = 0; f < tree.getNumChildren(); ++f)
    {
        const auto folder = tree.getChild (f);
        for (int p = 0; p < folder.getNumChildren(); ++p)
        {
            const auto node = folder.getChild (p);
            presets.push_back ({node.getProperty ("Name").toString(),
                                juce::File (node.getProperty ("File").toString()),
                                folder.getProperty ("Name").toString() == "Factory presets"});
        }
    }
    return presets;
}

juce::File resolvePreset (std::string const& given)
{
    const auto file = fileArgument (given);
    if (file.existsAsFile())
        return file;
    for (auto const& preset : listPresets())
        if (preset.name.equalsIgnoreCase (juce::String (given)))
            return preset.file;
    throw UsageError{"--preset \"" + given
                     + "\" is neither a file nor a preset's name (kelfiner presets lists them)"};
}
