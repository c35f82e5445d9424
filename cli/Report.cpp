#include "Report.h"

#include "InterruptCleanup.h"
#include "Profiles.h"
#include "RegularFile.h"

#include <cmath>

namespace
{
/** Under about a second of material at the tool's default model length. */
/** Less material than this (s) above the threshold is too little to trust. */
constexpr double fewestSecondsToTrust = 1.0;

/** JSON has no infinity (the loudness of silence): such a figure is null. */
juce::var number (double value, int decimals = 2)
{
    if (!std::isfinite (value))
        return {};
    const double scale = std::pow (10.0, decimals);
    return std::round (value * scale) / scale;
}

juce::var pairOf (juce::var first, juce::var second)
{
    juce::Array<juce::var> both{std::move (first), std::move (second)};
    return both;
}
} // namespace

juce::String describeExtremes (JobResult const& result)
{
    const auto at = [] (float db, float hz)
    {
        return (db >= 0.0f ? "+" : "") + juce::String (db, 1) + " dB at "
               + (hz >= 1000.0f ? juce::String (hz / 1000.0f, hz >= 10000.0f ? 0 : 1) + " kHz"
                                : juce::String (juce::roundToInt (hz)) + " Hz");
    };
    return at (result.correctionMaxDb, result.correctionMaxHz) + ", "
           + at (result.correctionMinDb, result.correctionMinHz);
}

juce::StringArray warningsFor (JobResult const& result)
{
    juce::StringArray warnings;
    // Only what a listener would hear: a guard that took less than 1 dB goes unmentioned.
    if (result.boostHeldBackDb >= 1.0)
        warnings.add ("the maximum boost held the level back by "
                      + juce::String (result.boostHeldBackDb, 1) + " dB");
    if (result.samplesKeptUnderCeiling > 0 && result.peakReductionDb >= 1.0)
        warnings.add ("the ceiling kept " + juce::String (result.samplesKeptUnderCeiling)
                      + " samples from going over it (the output is "
                      + juce::String (result.peakReductionDb, 1) + " dB quieter than asked)");
    if (result.learntFrames == 0)
        warnings.add ("nothing was loud enough to learn, so nothing was corrected (see "
                      "--threshold)");
    else if (result.learntSeconds < fewestSecondsToTrust)
        warnings.add ("only " + juce::String (result.learntSeconds, 2) + " s of material ("
                      + juce::String (result.learntFrames)
                      + " frames) were learnt, too little to trust the correction");
    if (result.deviationAfterDb > result.deviationBeforeDb)
        warnings.add ("the result is further from the target than the input");
    if (result.inputDamage.isNotEmpty())
        warnings.add ("the input is damaged (" + result.inputDamage
                      + "); what could be read was processed");
    if (result.nonFiniteSamples > 0)
        warnings.add (juce::String (result.nonFiniteSamples)
                      + " input samples were NaN, infinite or far beyond full scale and were "
                        "taken as silence");
    if (result.silencedOutputSamples > 0)
        warnings.add (juce::String (result.silencedOutputSamples)
                      + " output samples overflowed and were written as silence");
    return warnings;
}

juce::String summaryLine (juce::String const& shownName, juce::File const& output,
                          JobResult const& result)
{
    auto line = shownName
                + (output == juce::File() ? juce::String() : " -> " + output.getFullPathName())
                + ": learnt " + juce::String (result.learntFrames) + " frames, correction "
                + juce::String (result.correctionMinDb, 1) + " .. "
                + juce::String (result.correctionMaxDb, 1) + " dB (" + describeExtremes (result)
                + "), deviation from target " + juce::String (result.deviationBeforeDb, 2)
                + " dB -> " + juce::String (result.deviationAfterDb, 2) + " dB RMS, loudness "
                + juce::String (result.loudnessInLufs, 1) + " -> "
                + juce::String (result.loudnessOutLufs, 1) + " LUFS (gain "
                + juce::String (result.gainDb, 1) + " dB";
    if (result.boostHeldBackDb > 0.0)
        line << ", " << juce::String (result.boostHeldBackDb, 1)
             << " dB held back by the maximum boost";
    if (result.peakReductionDb > 0.0)
        line << ", " << juce::String (result.peakReductionDb, 1)
             << " dB less to keep peaks under the ceiling";
    line << ")";
    for (auto const& warning : warningsFor (result))
        line << "; warning: " << warning;
    return line;
}

juce::String describeRun (juce::File const& input, JobSettings const& settings,
                          vesk::audio::Deconvolution& engine)
{
    using vesk::audio::Deconvolution;
    const auto targetModel =
        static_cast<int> (engine.getParameterValue (Deconvolution::targetModelIndex));
    juce::String target = "flat";
    for (auto const& profile : vesk::audio::targetProfiles)
        if (profile.model == targetModel)
            target = profile.name;
    if (settings.reference != juce::File())
        target = "reference " + settings.reference.getFileName();
    else if (settings.targetFilter != juce::File())
        target = "filter " + settings.targetFilter.getFileName();
    const auto limits = engine.getCorrectionLimits();
    juce::StringArray shaping;
    shaping.add ((engine.getEstimator() == vesk::audio::Estimator::frameModels
                      ? "frame models"
                      : "long-term spectrum"));
    shaping.add (
        "threshold "
        + juce::String (engine.getParameterValue (Deconvolution::estimationThresholdIndex), 1)
        + (limits.thresholdRelativeToLevel ? " dB under the level" : " dBFS"));
    shaping.add ("filter length "
                 + juce::String (engine.getParameterValue (Deconvolution::filterLengthIndex), 1)
                 + " ms");
    if (limits.smoothingOctaves > 0.0f)
        shaping.add ("smoothing " + juce::String (limits.smoothingOctaves, 2) + " oct");
    if (limits.departuresOnly && targetModel != Deconvolution::custom)
        shaping.add ("departures only");
    if (settings.amountPercent != 100.0f)
        shaping.add ("amount " + juce::String (settings.amountPercent, 0) + " %");
    if (settings.rangeHz)
        shaping.add ("range " + juce::String (settings.rangeHz->first, 0) + "-"
                     + juce::String (settings.rangeHz->second, 0) + " Hz");
    if (std::isfinite (limits.maximumBoostDb))
        shaping.add ("max boost " + juce::String (limits.maximumBoostDb, 1) + " dB");
    shaping.add (settings.loudnessTargetLufs
                     ? "loudness " + juce::String (*settings.loudnessTargetLufs, 1) + " LUFS"
                     : juce::String (settings.matchLoudness ? "loudness kept" : "loudness free"));
    return input.getFileName() + "  |  target: " + target + "  |  " + shaping.joinIntoString (", ");
}

void JsonReport::add (juce::String const& shownName, juce::File const& output,
                      JobResult const& result)
{
    auto* entry = new juce::DynamicObject();
    entry->setProperty ("input", shownName);
    entry->setProperty ("output", output == juce::File() ? juce::var()
                                                         : juce::var (output.getFullPathName()));
    entry->setProperty ("ok", result.ok);
    if (!result.ok)
    {
        entry->setProperty ("error", result.error);
        files.add (juce::var (entry));
        return;
    }
    entry->setProperty ("settings", result.settingsUsed);
    entry->setProperty ("learntFrames", static_cast<juce::int64> (result.learntFrames));
    entry->setProperty ("learntSeconds", std::round (result.learntSeconds * 100.0) / 100.0);
    juce::Array<juce::var> curve;
    for (auto const& [frequency, db] : result.correctionCurve)
        curve.add (pairOf (number (frequency, 1), number (db)));
    auto* correction = new juce::DynamicObject();
    correction->setProperty ("minDb", number (result.correctionMinDb));
    correction->setProperty ("minHz", number (result.correctionMinHz, 1));
    correction->setProperty ("maxDb", number (result.correctionMaxDb));
    correction->setProperty ("maxHz", number (result.correctionMaxHz, 1));
    correction->setProperty ("curveHzDb", curve);
    entry->setProperty ("correction", juce::var (correction));
    const auto inAndOut = [] (juce::var in, juce::var out)
    {
        auto* both = new juce::DynamicObject();
        both->setProperty ("in", std::move (in));
        both->setProperty ("out", std::move (out));
        return juce::var (both);
    };
    auto* deviation = new juce::DynamicObject();
    deviation->setProperty ("before", number (result.deviationBeforeDb));
    deviation->setProperty ("after", number (result.deviationAfterDb));
    entry->setProperty ("deviationDbRms", juce::var (deviation));
    entry->setProperty ("loudnessLufs",
                        inAndOut (number (result.loudnessInLufs), number (result.loudnessOutLufs)));
    entry->setProperty ("peakDbfs",
                        inAndOut (number (result.peakInDbfs), number (result.peakOutDbfs)));
    entry->setProperty ("gainDb", number (result.gainDb));
    auto* heldBack = new juce::DynamicObject();
    heldBack->setProperty ("ceilingDb", number (result.peakReductionDb));
    heldBack->setProperty ("maximumBoostDb", number (result.boostHeldBackDb));
    entry->setProperty ("heldBack", juce::var (heldBack));
    juce::Array<juce::var> warnings;
    for (auto const& warning : warningsFor (result))
        warnings.add (warning);
    entry->setProperty ("warnings", warnings);
    files.add (juce::var (entry));
}

bool JsonReport::write (juce::File const& file, juce::String& error) const
{
    auto* root = new juce::DynamicObject();
    root->setProperty ("tool", "kelfiner " KELFINER_VERSION);
    root->setProperty ("files", files);
    juce::TemporaryFile temporary (file);
    const InterruptCleanup cleanup (temporary.getFile());
    const auto text = juce::JSON::toString (juce::var (root), false, 2) + "\n";
    juce::String whyNot;
    if (!regularFile::writeWhole (temporary.getFile(), text.toRawUTF8(), text.getNumBytesAsUTF8(),
                                  &whyNot)
        || !regularFile::moveIntoPlace (temporary.getFile(), file, true, &whyNot))
    {
        error = "cannot write the report " + file.getFullPathName() + ": " + whyNot;
        return false;
    }
    return true;
}
