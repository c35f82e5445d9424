#include "Commands.h"
#include "KelfinerAudioProcessor.h"
#include "PresetLookup.h"
#include "Profiles.h"

#include <algorithm>
#include <cstdio>

namespace
{
class PresetsCommand final : public Command
{
public:
    explicit PresetsCommand (CLI::App& parent)
    {
        app = parent.add_subcommand ("presets", "list the presets --preset finds by name");
    }

    int run() override
    {
        const auto presets = listPresets();
        if (presets.empty())
            std::printf ("no presets found (factory presets are installed with the tool)\n");
        int width = 24;
        for (auto const& preset : presets)
            width = std::max (width, preset.name.length());
        for (auto const& preset : presets)
        {
            KelfinerAudioProcessor processor;
            juce::String target = "?";
            if (preset.file == juce::File() || processor.importFromPresetFile (preset.file))
            {
                const auto model = static_cast<int> (processor.getEngine().getParameterValue (
                    vesk::audio::Deconvolution::targetModelIndex));
                for (auto const& profile : vesk::audio::targetProfiles)
                    if (profile.model == model)
                        target = profile.name;
            }
            std::printf ("%-*s %-8s target %-20s %s\n", width, preset.name.toRawUTF8(),
                         preset.factory ? "factory" : "user", target.toRawUTF8(),
                         preset.file == juce::File() ? "(built in: every setting at its default)"
                                                     : preset.file.getFullPathName().toRawUTF8());
        }
        return 0;
    }
};
} // namespace

std::unique_ptr<Command> makePresetsCommand (CLI::App& parent)
{
    return std::make_unique<PresetsCommand> (parent);
}
