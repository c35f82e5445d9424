#include "Commands.h"
#include "FilterFile.h"
#include "KelfinerAudioProcessor.h"
#include "PresetLookup.h"
#include "Profiles.h"

#include <cmath>
#include <cstdio>

using vesk::audio::Deconvolution;

namespace
{
juce::String describeFilter (vesk::audio::Signal32 const& filter, double rate)
{
    return filter.hasStorage() ? juce::String (filter.getNumSamples()) + " coefficients at "
                                     + juce::String (rate, 0) + " Hz"
                               : juce::String ("none");
}

class InfoCommand final : public Command
{
public:
    explicit InfoCommand (CLI::App& parent)
    {
        app = parent.add_subcommand ("info", "what a filter or preset file holds");
        app->add_option ("file", file, "a *.filter or preset file, or a preset's name")->required();
    }

    int run() override
    {
        auto path = fileArgument (file);
        if (!path.existsAsFile())
            for (auto const& preset : listPresets())
                if (preset.name.equalsIgnoreCase (juce::String (file)))
                    path = preset.file;
        if (!path.existsAsFile())
            throw UsageError{file + ": no such file, nor a preset's name (kelfiner presets)"};
        if (path.hasFileExtension ("xml"))
            return showPreset (path);
        vesk::audio::Signal32 coefficients;
        double rate = 0.0;
        if (FilterFile::read (path, coefficients, rate) != FilterFile::Status::ok)
        {
            printError (juce::String (file)
                        + ": not a filter file (nor a preset, which ends in .xml)");
            return 1;
        }
        std::printf ("filter: %d channel(s), %d coefficients, made at %.1f Hz\n",
                     coefficients.getNumChannels(), coefficients.getNumSamples(), rate);
        return 0;
    }

private:
    int showPreset (juce::File const& path) const
    {
        KelfinerAudioProcessor processor;
        if (!processor.importFromPresetFile (path))
        {
            printError (juce::String (file) + ": not a preset file");
            return 1;
        }
        auto& engine = processor.getEngine();
        std::printf ("preset \"%s\"\n", processor.getCurrentPresetName().toRawUTF8());
        const auto model =
            static_cast<int> (engine.getParameterValue (Deconvolution::targetModelIndex));
        juce::String target = "flat (no profile)";
        for (auto const& profile : vesk::audio::targetProfiles)
            if (profile.model == model)
                target = juce::String (profile.name) + " (--target " + profile.key + ")";
        std::printf ("  target:            %s\n", target.toRawUTF8());
        for (auto const& choice : vesk::audio::estimators)
            if (choice.estimator == engine.getEstimator())
                std::printf ("  learning           %s (--estimator %s)\n", choice.name, choice.key);
        const auto value = [&] (int id) { return juce::String (engine.getParameterValue (id), 1); };
        const auto limits = engine.getCorrectionLimits();
        std::printf ("  learning threshold %s %s\n",
                     value (Deconvolution::estimationThresholdIndex).toRawUTF8(),
                     limits.thresholdRelativeToLevel ? "dB under the material's level" : "dBFS");
        std::printf ("  filter length      %s ms\n",
                     value (Deconvolution::filterLengthIndex).toRawUTF8());
        std::printf ("  master gain        %s dB\n",
                     value (Deconvolution::masterGainIndex).toRawUTF8());
        const bool curve =
            engine.getParameterValue (Deconvolution::enableEmphasisCurveIndex) > 0.5f;
        juce::StringArray limited;
        if (limits.departuresOnly)
            limited.add ("built-in targets followed only where the material departs");
        if (limits.loudnessMatched)
            limited.add ("loudness kept");
        if (limits.spareEmptyBands)
            limited.add ("empty bands left alone");
        if (limits.smoothingOctaves > 0.0f)
            limited.add ("smoothed over " + juce::String (limits.smoothingOctaves, 2) + " oct");
        if (std::isfinite (limits.maximumBoostDb))
            limited.add ("boosts up to " + juce::String (limits.maximumBoostDb, 1) + " dB");
        std::printf ("  correction limits  %s\n",
                     limited.isEmpty() ? "none" : limited.joinIntoString (", ").toRawUTF8());
        std::printf ("  emphasis curve     %s\n", curve ? "on" : "off");
        for (int i = 0; curve && i < Deconvolution::numEmphasisPoints; ++i)
            if (engine.getParameterValue (Deconvolution::emphasisPointEnabledIndex + i) > 0.5f)
                std::printf ("    point %2d         %s Hz at %s %%\n", i + 1,
                             value (Deconvolution::emphasisPointFrequencyIndex + i).toRawUTF8(),
                             value (Deconvolution::emphasisPointLevelIndex + i).toRawUTF8());
        vesk::audio::Signal32 filter;
        double rate = 0.0;
        engine.getSourceFilter (filter, rate);
        std::printf ("  source filter      %s\n", describeFilter (filter, rate).toRawUTF8());
        engine.getTargetFilter (filter, rate);
        std::printf ("  target filter      %s\n", describeFilter (filter, rate).toRawUTF8());
        return 0;
    }

    std::string file;
};
} // namespace

std::unique_ptr<Command> makeInfoCommand (CLI::App& parent)
{
    return std::make_unique<InfoCommand> (parent);
}
