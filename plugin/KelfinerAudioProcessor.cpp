#include "KelfinerAudioProcessor.h"

#include "UntrustedXml.h"

using vesk::audio::Deconvolution;
using vesk::audio::Signal32;

KelfinerAudioProcessor::KelfinerAudioProcessor()
    : BasePlugInProcessor (new Deconvolution(), bundle, displayName, code, version),
      deconvolution (static_cast<Deconvolution*> (getProcessor()))
{
    // The public parameter table: name, engine id, unit of the value text, unit shown by hosts,
    // display step and mapping. Ranges and defaults are the engine's; every value that enters
    // is checked against them by its description.
    auto* engineToDescribe = getProcessor();
    using Mode = ParameterDescription::ParameterMappingMode;
    const auto add = [&] (int id, const juce::String& name, const char* unit, const char* hostUnit,
                          float step, Mode mode)
    {
        auto description = std::make_unique<ParameterDescription> (
            engineToDescribe, EngineParameterId (id), name, unit, step, mode);
        description->hostUnit = hostUnit;
        addParameter (std::move (description));
    };
    add (0, "EstimationMode", "", "", 1.0f, ParameterDescription::linear);
    add (1, "EstimationThreshold", "dB", "dB", 0.1f, ParameterDescription::linear);
    add (2, "FilterLength", "ms", "ms", 0.1f, ParameterDescription::linear);
    add (3, "TargetModel", "", "", 1.0f, ParameterDescription::linear);
    add (4, "MasterGain", "dB", "dB", 0.1f, ParameterDescription::linear);
    add (5, "EnableAnalyzers", "", "", 1.0f, ParameterDescription::linear);
    add (6, "EnableEmphasisCurve", "", "", 1.0f, ParameterDescription::linear);
    for (int i = 0; i < Deconvolution::numEmphasisPoints; ++i)
    {
        const juce::String point = "CurvePoint" + juce::String (i + 1);
        add (Deconvolution::emphasisPointEnabledIndex + i, point + "Enabled", "", "", 1.0f,
             ParameterDescription::linear);
        add (Deconvolution::emphasisPointFrequencyIndex + i, point + "Frequency", "", "Hz", 0.1f,
             ParameterDescription::logarithmic);
        add (Deconvolution::emphasisPointLevelIndex + i, point + "Level", "", "%", 0.1f,
             ParameterDescription::linear);
    }
#if KELFINER_LICENSING
    // Only the plug-in formats are licensed; the command-line tool makes its processor itself
    // (no wrapper) and is never muted.
    if (wrapperType != wrapperType_Undefined)
        setLicenseManager (std::make_unique<vesk::licensing::LicenseManager> (
            licenceProductCode, vendorPublicKey(), getLicenceFile()));
#endif
    applyProductSettings (defaultProductSettings().get());
}

vesk::licensing::PublicKey KelfinerAudioProcessor::vendorPublicKey()
{
    vesk::licensing::PublicKey key{};
    vesk::licensing::LicenceToken::fromHex (juce::String (KELFINER_VENDOR_PUBLIC_KEY), key);
    return key;
}

juce::File KelfinerAudioProcessor::getLicenceFile() const
{
    return getUserDataFolder().getChildFile ("Kelfiner.licence");
}

juce::AudioProcessorEditor* KelfinerAudioProcessor::createEditor()
{
    return editorFactory != nullptr ? editorFactory (*this) : nullptr;
}

void KelfinerAudioProcessor::clearSettings()
{
    BasePlugInProcessor::clearSettings();
    applyProductSettings (defaultProductSettings().get());
    deconvolution->setSourceFilter (Signal32(), 0.0);
    deconvolution->setTargetFilter (Signal32(), 0.0);
}

double KelfinerAudioProcessor::learntSecondsOf (const juce::XmlElement* element)
{
    // Missing, negative or not a number: a finished model, applied in full.
    const double seconds =
        element != nullptr ? element->getDoubleAttribute (learntSecondsAttribute, -1.0) : -1.0;
    return seconds >= 0.0 && seconds < 1.0e6 ? seconds : std::numeric_limits<double>::infinity();
}

void KelfinerAudioProcessor::serializeSignal (Signal32 const& signal, juce::OutputStream& out)
{
    const bool hasData = signal.hasStorage();
    const int channels = hasData ? signal.getNumChannels() : 0;
    const int samples = hasData ? signal.getNumSamples() : 0;
    out.writeInt (channels);
    out.writeInt (samples);
    for (int c = 0; c < channels; ++c)
        for (int n = 0; n < samples; ++n)
            out.writeFloat (signal[c][n]);
}

Signal32 KelfinerAudioProcessor::deserializeSignal (juce::MemoryInputStream& stream)
{
    const int channels = stream.readInt();
    const int samples = stream.readInt();
    if (channels == 0 || samples == 0)
        return {};
    // Hostile or truncated data: never allocate more than the remaining bytes could fill, and
    // never hand back samples that were not read.
    const auto remaining = stream.getNumBytesRemaining();
    if (channels < 0 || samples < 0 || channels > 64
        || static_cast<juce::int64> (channels) * samples * 4 > remaining)
        return {};
    Signal32 signal (channels, samples);
    for (int c = 0; c < channels; ++c)
        stream.read (signal.getChannel (c), samples * 4);
#if JUCE_BIG_ENDIAN
    for (int c = 0; c < channels; ++c)
        for (int n = 0; n < samples; ++n)
            signal[c][n] = juce::ByteOrder::swapIfBigEndian (signal[c][n]);
#endif
    // A filter with non-finite taps would silence or wreck the output: refuse it whole.
    for (int c = 0; c < channels; ++c)
        for (int n = 0; n < samples; ++n)
            if (!std::isfinite (signal[c][n]))
                return {};
    return signal;
}

void KelfinerAudioProcessor::getCurrentProgramStateInformation (juce::MemoryBlock& dest)
{
    dest.reset();
    juce::MemoryOutputStream out (dest, false);
    getParameterSettings (out);
    Signal32 filter;
    double rate = 0.0;
    deconvolution->getSourceFilter (filter, rate);
    out.writeDouble (rate);
    serializeSignal (filter, out);
    deconvolution->getTargetFilter (filter, rate);
    out.writeDouble (rate);
    serializeSignal (filter, out);
    // Settings beyond the public parameters follow as a marked, self-describing record, so that
    // states written before they existed still load (with the original estimator).
    out.writeInt64 (static_cast<juce::int64> (settingsMarker));
    auto settings = productSettings();
    // A correction still growing (Learn on for a moment) is restored as it sounded.
    if (const auto seconds = deconvolution->getLearntSeconds(); std::isfinite (seconds))
        settings->setAttribute (learntSecondsAttribute, seconds);
    out.writeString (
        settings->toString (juce::XmlElement::TextFormat().singleLine().withoutHeader()));
}

std::unique_ptr<juce::XmlElement> KelfinerAudioProcessor::productSettings() const
{
    auto settings = std::make_unique<juce::XmlElement> ("ProductSettings");
    for (auto const& choice : vesk::audio::estimators)
        if (choice.estimator == deconvolution->getEstimator())
            settings->setAttribute (SettingNames::estimator, choice.key);
    const auto limits = deconvolution->getCorrectionLimits();
    settings->setAttribute (SettingNames::loudnessMatched, limits.loudnessMatched ? 1 : 0);
    settings->setAttribute (SettingNames::spareEmptyBands, limits.spareEmptyBands ? 1 : 0);
    if (std::isfinite (limits.maximumBoostDb))
        settings->setAttribute (SettingNames::maximumBoost,
                                static_cast<double> (limits.maximumBoostDb));
    if (limits.smoothingOctaves > 0.0f)
        settings->setAttribute (SettingNames::smoothingOctaves,
                                static_cast<double> (limits.smoothingOctaves));
    settings->setAttribute (SettingNames::departuresOnly, limits.departuresOnly ? 1 : 0);
    settings->setAttribute (SettingNames::thresholdRelative,
                            limits.thresholdRelativeToLevel ? 1 : 0);
    return settings;
}

std::unique_ptr<juce::XmlElement> KelfinerAudioProcessor::defaultProductSettings()
{
    auto settings = std::make_unique<juce::XmlElement> ("ProductSettings");
    settings->setAttribute (SettingNames::estimator, "spectrum");
    settings->setAttribute (SettingNames::loudnessMatched, 1);
    settings->setAttribute (SettingNames::spareEmptyBands, 1);
    settings->setAttribute (SettingNames::smoothingOctaves, 1.0 / 3.0);
    settings->setAttribute (SettingNames::departuresOnly, 1);
    settings->setAttribute (SettingNames::thresholdRelative, 1);
    return settings;
}

void KelfinerAudioProcessor::applyProductSettings (const juce::XmlElement* settings)
{
    // Missing or unknown: the original estimator, as everything saved before the choice had.
    auto estimator = vesk::audio::Estimator::frameModels;
    if (settings != nullptr)
        for (auto const& choice : vesk::audio::estimators)
            if (settings->getStringAttribute (SettingNames::estimator) == choice.key)
                estimator = choice.estimator;
    deconvolution->setEstimator (estimator);

    Deconvolution::CorrectionLimits limits;
    if (settings != nullptr)
    {
        limits.loudnessMatched = settings->getIntAttribute (SettingNames::loudnessMatched, 0) != 0;
        limits.spareEmptyBands = settings->getIntAttribute (SettingNames::spareEmptyBands, 0) != 0;
        // Checked like every value from outside: 0 .. 48 dB, anything else means no limit.
        const auto boost = settings->getDoubleAttribute (SettingNames::maximumBoost, -1.0);
        if (boost >= 0.0 && boost <= maximumBoostLimitDb)
            limits.maximumBoostDb = static_cast<float> (boost);
        // 0 .. 2 octaves; anything else means no smoothing.
        const auto smoothing = settings->getDoubleAttribute (SettingNames::smoothingOctaves, 0.0);
        if (smoothing > 0.0 && smoothing <= 2.0)
            limits.smoothingOctaves = static_cast<float> (smoothing);
        limits.departuresOnly = settings->getIntAttribute (SettingNames::departuresOnly, 0) != 0;
        limits.thresholdRelativeToLevel =
            settings->getIntAttribute (SettingNames::thresholdRelative, 0) != 0;
    }
    deconvolution->setCorrectionLimits (limits);
}

void KelfinerAudioProcessor::setProductSetting (const juce::Identifier& name,
                                                const juce::var& value)
{
    auto settings = productSettings();
    if (value.isVoid())
        settings->removeAttribute (name);
    else
        settings->setAttribute (name, value.toString());
    applyProductSettings (settings.get());
    updateHostDisplay (ChangeDetails().withNonParameterStateChanged (true));
}

void KelfinerAudioProcessor::setCurrentProgramStateInformation (const void* data, int size)
{
    juce::MemoryInputStream in (data, static_cast<std::size_t> (juce::jmax (size, 0)), false);
    if (setParameterSettings (in))
    {
        // The settings record is at the end; the estimator is chosen before filters load.
        std::unique_ptr<juce::XmlElement> settings;
        {
            juce::MemoryInputStream ahead (data, static_cast<std::size_t> (juce::jmax (size, 0)),
                                           false);
            ahead.setPosition (in.getPosition());
            for (int filter = 0; filter < 2 && ahead.getNumBytesRemaining() >= 16; ++filter)
            {
                ahead.readDouble();
                const int channels = ahead.readInt(), samples = ahead.readInt();
                // Counts as deserializeSignal takes them; anything else ends the walk (and
                // two large counts must not overflow on the way).
                const auto remaining = ahead.getNumBytesRemaining();
                const bool plausible =
                    channels >= 0 && samples >= 0 && channels <= 64
                    && static_cast<juce::int64> (channels) * samples <= remaining / 4;
                ahead.skipNextBytes (plausible ? 4 * static_cast<juce::int64> (channels) * samples
                                               : remaining);
            }
            if (ahead.getNumBytesRemaining() > 8
                && static_cast<std::uint64_t> (ahead.readInt64()) == settingsMarker)
            {
                const auto text = ahead.readString().toStdString();
                settings = parseUntrustedXml (text.data(), text.size());
            }
        }
        applyProductSettings (settings.get());

        // A state cut short after the parameters keeps the filters that are already there.
        if (in.getNumBytesRemaining() >= 16)
        {
            const double sourceRate = in.readDouble();
            const auto source = deserializeSignal (in);
            if (source.isEmpty() || isPlausibleFilterRate (sourceRate))
                deconvolution->setSourceFilter (source, sourceRate,
                                                learntSecondsOf (settings.get()));
        }
        if (in.getNumBytesRemaining() >= 16)
        {
            const double targetRate = in.readDouble();
            const auto target = deserializeSignal (in);
            if (target.isEmpty() || isPlausibleFilterRate (targetRate))
                deconvolution->setTargetFilter (target, targetRate);
        }
    }
    updateSetStateTime();
}

bool KelfinerAudioProcessor::fillCustomDataXmlElement (juce::XmlElement* customData)
{
    const auto add = [customData] (const char* tag, Signal32 const& filter, double rate)
    {
        juce::MemoryOutputStream record (256);
        serializeSignal (filter, record);
        auto* element = customData->createNewChildElement (tag);
        element->setAttribute ("sampleRate", rate);
        element->setAttribute ("binaryData", record.getMemoryBlock().toBase64Encoding());
    };
    Signal32 filter;
    double rate = 0.0;
    deconvolution->getSourceFilter (filter, rate);
    add ("SourceFilter", filter, rate);
    if (const auto seconds = deconvolution->getLearntSeconds(); std::isfinite (seconds))
        customData->getChildByName ("SourceFilter")->setAttribute (learntSecondsAttribute, seconds);
    deconvolution->getTargetFilter (filter, rate);
    add ("TargetFilter", filter, rate);
    customData->addChildElement (productSettings().release());
    return true;
}

void KelfinerAudioProcessor::parseCustomDataXmlElement (juce::XmlElement* customData)
{
    applyProductSettings (customData->getChildByName ("ProductSettings"));
    for (const char* tag : {"SourceFilter", "TargetFilter"})
    {
        auto* element = customData->getChildByName (tag);
        if (element == nullptr)
            continue;
        const double rate = element->getDoubleAttribute ("sampleRate", 44100.0);
        juce::MemoryBlock decoded;
        decoded.fromBase64Encoding (element->getStringAttribute ("binaryData", {}));
        if (decoded.isEmpty())
            continue;
        juce::MemoryInputStream in (decoded, false);
        const auto signal = deserializeSignal (in);
        if (!signal.isEmpty() && !isPlausibleFilterRate (rate))
            continue;
        if (juce::String (tag) == "SourceFilter")
            deconvolution->setSourceFilter (signal, rate, learntSecondsOf (element));
        else
            deconvolution->setTargetFilter (signal, rate);
    }
}
