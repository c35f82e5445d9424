#include "SettingsOptions.h"

#include "PresetLookup.h"
#include "Profiles.h"

using vesk::audio::Deconvolution;

namespace
{
std::string targetNames()
{
    std::string names;
    for (auto const& profile : vesk::audio::targetProfiles)
        names += (names.empty() ? "" : ", ") + std::string (profile.key);
    return names;
}

int targetModelFromName (std::string const& name)
{
    const auto* profile =
        vesk::audio::findTargetProfile (juce::String (name).toLowerCase().toStdString());
    if (profile == nullptr)
        throw UsageError{"--target \"" + name + "\" is not a target: it takes " + targetNames()};
    return profile->model;
}

vesk::audio::Estimator estimatorFromName (std::string const& name)
{
    for (auto const& choice : vesk::audio::estimators)
        if (name == choice.key)
            return choice.estimator;
    throw UsageError{"--estimator \"" + name
                     + "\" is not an estimator: it takes spectrum or frames"};
}
} // namespace

void SettingsOptions::addLearning (CLI::App& command)
{
    command
        .add_option ("--estimator", estimator,
                     "spectrum (the long-term spectrum, default) or frames (each frame's model, "
                     "averaged: the original way)")
        ->type_name ("spectrum|frames");
    command
        .add_option ("--threshold", threshold,
                     "learning threshold in dB (-112 .. -12, default -36): under the material's "
                     "running level, or under full scale with a preset that says so")
        ->type_name ("DB");
    command
        .add_option ("--filter-length", filterLength,
                     "filter length in ms (1 .. 20, default 10): the frames' length (x 8) with "
                     "the spectrum estimator, the model's with frames")
        ->type_name ("MS");
    command
        .add_option ("--preset", preset,
                     "start from a preset: a file, or a name that kelfiner presets lists")
        ->type_name ("FILE|NAME");
}

void SettingsOptions::addCorrection (CLI::App& command)
{
    command.add_option ("--target", target, "target profile: " + targetNames())
        ->type_name ("PROFILE");
    command.add_option ("--target-filter", targetFilter, "a *.filter file as the custom target")
        ->type_name ("FILE");
    command.add_option ("--reference", reference, "learn the custom target from another recording")
        ->type_name ("FILE");
    command
        .add_option ("--smoothing", smoothing,
                     "smooth the correction over this many octaves (0 .. 2, default 1/3)")
        ->type_name ("OCTAVES");
    command
        .add_option ("--gain", gain,
                     "master gain in dB (-24 .. 24), after the loudness match: the result is "
                     "this much louder or quieter in every loudness mode")
        ->type_name ("DB");
    command
        .add_option ("--emphasis", emphasis,
                     "an emphasis point HZ:PERCENT (up to twelve; turns the emphasis curve on)")
        ->take_all()
        ->allow_extra_args (false);
    command
        .add_option ("--max-boost", maxBoost,
                     "no third-octave band of the output more than this many dB above the input's, "
                     "after every gain (0 .. 48; default: no limit)")
        ->type_name ("DB");
    command
        .add_option ("--amount", amount,
                     "apply this share of the correction, in percent of its dB (0 .. 200; "
                     "default 100)")
        ->type_name ("PERCENT");
    command
        .add_option ("--range", range,
                     "LO:HI in Hz: outside this band the correction is held flat (for example "
                     "40:16000 above an encoder's low-pass)")
        ->type_name ("LO:HI");
    command.add_flag ("--lift-empty-bands", liftEmptyBands,
                      "also lift bands that hold nothing (90 to 100 dB under the material's peak "
                      "level: noise, an encoder's cut-off); by default they are left alone");
    command.add_flag ("--impose-target", imposeTarget,
                      "impose the target profile in full; by default the correction follows it "
                      "only where the material departs from it by more than its kind naturally "
                      "varies, and lifts no band far under the material's level at 1 kHz");
    command
        .add_option ("--loudness", loudness,
                     "match (default: the output as loud as the input, BS.1770), off, or a "
                     "level such as -16LUFS (-70 .. 0)")
        ->type_name ("match|off|LUFS");
    command
        .add_option ("--ceiling", ceiling,
                     "sample-peak ceiling of the output in dBFS (-60 .. 0, default -1) or off; "
                     "the gain comes down rather than a sample clip")
        ->type_name ("DBFS|off");
}

void SettingsOptions::addFileOutputs (CLI::App& command)
{
    command.add_option ("--save-filter", saveFilter, "save the learnt filter")->type_name ("FILE");
    command.add_option ("--plot", plot, "draw input, output and correction into a PNG file")
        ->type_name ("FILE");
    command.add_flag ("--live", live,
                      "one pass, as the plug-in hears it (default: learn the whole file first)");
}

void SettingsOptions::addOutputFormat (CLI::App& command)
{
    command
        .add_option ("--bits", bits,
                     "16, 24 or 32f (float, WAV only); default: the input's where the format "
                     "holds it. Fixed-point results are TPDF-dithered")
        ->type_name ("16|24|32f");
    command
        .add_option ("--format", format,
                     "wav, flac or aiff: what results are written as (default: the input's, "
                     "WAV for what the tool cannot write)")
        ->type_name ("wav|flac|aiff");
}

juce::String SettingsOptions::outputExtension() const
{
    if (!format)
        return {};
    if (*format == "wav" || *format == "flac" || *format == "aiff")
        return "." + juce::String (*format);
    throw UsageError{"--format \"" + *format + "\" is not a format: it takes wav, flac or aiff"};
}

void SettingsOptions::addForce (CLI::App& command)
{
    command.add_flag ("-f,--force", force, "replace existing outputs");
}

JobSettings SettingsOptions::toJobSettings() const
{
    JobSettings settings;
    if (target)
        settings.targetModel = targetModelFromName (*target);
    if (estimator)
        settings.estimator = estimatorFromName (*estimator);
    if (threshold)
        settings.threshold =
            checkedParameter (Deconvolution::estimationThresholdIndex, "--threshold", *threshold);
    if (filterLength)
        settings.filterLength =
            checkedParameter (Deconvolution::filterLengthIndex, "--filter-length", *filterLength);
    if (gain)
        settings.masterGain = checkedParameter (Deconvolution::masterGainIndex, "--gain", *gain);
    if (emphasis.size() > static_cast<std::size_t> (Deconvolution::numEmphasisPoints))
        throw UsageError{"--emphasis given " + std::to_string (emphasis.size())
                         + " times: the curve has at most twelve points"};
    for (auto const& point : emphasis)
    {
        const auto colon = point.find (':');
        if (colon == std::string::npos)
            throw UsageError{"--emphasis \"" + point + "\" is not HZ:PERCENT"};
        const float frequency = checkedParameter (Deconvolution::emphasisPointFrequencyIndex,
                                                  "--emphasis frequency", point.substr (0, colon));
        const float level = checkedParameter (Deconvolution::emphasisPointLevelIndex,
                                              "--emphasis level", point.substr (colon + 1));
        settings.emphasis.emplace_back (frequency, level);
    }
    if (smoothing)
        settings.smoothingOctaves =
            static_cast<float> (checkedNumber ("--smoothing", *smoothing, 0.0, 2.0, "octaves"));
    if (maxBoost)
        settings.maximumBoostDb =
            static_cast<float> (checkedNumber ("--max-boost", *maxBoost, 0.0, 48.0, "dB"));
    if (amount)
        settings.amountPercent =
            static_cast<float> (checkedNumber ("--amount", *amount, 0.0, 200.0, "%"));
    if (range)
    {
        const auto colon = range->find (':');
        if (colon == std::string::npos)
            throw UsageError{"--range \"" + *range + "\" is not LO:HI (in Hz, such as 40:16000)"};
        const auto low =
            checkedNumber ("--range low", range->substr (0, colon), 0.0, 96000.0, "Hz");
        const auto high =
            checkedNumber ("--range high", range->substr (colon + 1), 0.0, 96000.0, "Hz");
        if (!(low < high))
            throw UsageError{"--range " + *range + " is empty: LO must lie under HI"};
        settings.rangeHz = std::pair{static_cast<float> (low), static_cast<float> (high)};
    }
    if (loudness && *loudness != "match")
    {
        settings.matchLoudness = false;
        if (*loudness != "off")
        {
            // A level as users write it: -16, -16LUFS or -16 LUFS.
            auto level = juce::String (*loudness).trim();
            if (level.endsWithIgnoreCase ("LUFS"))
                level = level.dropLastCharacters (4).trim();
            if (!level.containsOnly ("+-.0123456789") || level.isEmpty())
                throw UsageError{"--loudness \"" + *loudness
                                 + "\" is not a mode: it takes match, off or a level such as "
                                   "-16 (LUFS)"};
            settings.loudnessTargetLufs = static_cast<float> (
                checkedNumber ("--loudness", level.toStdString(), -70.0, 0.0, "LUFS"));
        }
    }
    if (bits)
    {
        if (*bits != "16" && *bits != "24" && *bits != "32f")
            throw UsageError{"--bits " + *bits + " is not a sample format: it takes 16, 24 or 32f"};
        settings.bits = std::stoi (*bits);
        if (settings.bits == 32 && format && *format != "wav")
            throw UsageError{"--bits 32f is written as WAV only, not as --format " + *format};
    }
    outputExtension(); // checked here with everything else
    if (ceiling)
    {
        if (*ceiling == "off")
            settings.ceilingDb.reset();
        else
            settings.ceilingDb = static_cast<float> (
                checkedNumber ("--ceiling", *ceiling, -60.0, 0.0, "dBFS, or off"));
    }
    const auto file = [] (std::optional<std::string> const& path)
    { return path ? fileArgument (*path) : juce::File(); };
    settings.preset = preset ? resolvePreset (*preset) : juce::File();
    settings.targetFilter = file (targetFilter);
    settings.reference = file (reference);
    settings.saveFilter = file (saveFilter);
    settings.plot = file (plot);
    settings.live = live;
    settings.force = force;
    if (liftEmptyBands)
        settings.spareEmptyBands = false;
    if (imposeTarget)
        settings.departuresOnly = false;

    // A reference or a filter file is a custom target; any other target beside one contradicts it.
    if (targetFilter && reference)
        throw UsageError{"--target-filter and --reference both set the custom target: give one"};
    if ((targetFilter || reference) && target && settings.targetModel != Deconvolution::custom)
        throw UsageError{std::string (reference ? "--reference" : "--target-filter")
                         + " sets the custom target, but --target is \"" + *target
                         + "\": leave --target out or make it custom"};
    if (settings.targetModel == Deconvolution::custom && !targetFilter && !reference && !preset)
        throw UsageError{"--target custom needs --target-filter F.filter or --reference REC"};
    return settings;
}
