#pragma once

#include "BasePlugInProcessor.h"
#include "Deconvolution.h"
#include "LicenceToken.h"

#include <cmath>

/** Kelfiner's processor: the deconvolution engine behind 43 public parameters, with the learnt
    source filter and the custom target filter kept in the host state and in presets. */
class KelfinerAudioProcessor : public BasePlugInProcessor
{
public:
    static constexpr const char* bundle = "Kelfiner";
    static constexpr const char* displayName = "Kelfiner";
    static constexpr unsigned int code = 0x4b6c666e; // 'Klfn'
    static constexpr const char* version = "1.0.0";

    /** Message thread. */
    KelfinerAudioProcessor();

    /** Any thread; each engine call says its own. */
    vesk::audio::Deconvolution& getEngine() const noexcept { return *deconvolution; }

    /** Makes the editor. The plug-in's entry point installs it; the command-line tool has none,
        so it carries no editor code. */
    using EditorFactory = juce::AudioProcessorEditor* (*) (KelfinerAudioProcessor&);
    /** Message thread, before the first processor is made. */
    static void setEditorFactory (EditorFactory factory) noexcept { editorFactory = factory; }

    /** Any thread. */
    bool hasEditor() const override { return editorFactory != nullptr; }
    /** Message thread. */
    juce::AudioProcessorEditor* createEditor() override;

    /** Also forgets both filters. Message thread. */
    void clearSettings() override;
    /** The settings block, then the source and target filters. Message thread or a host
        worker thread. */
    void getCurrentProgramStateInformation (juce::MemoryBlock& dest) override;
    /** Message thread or a host worker thread. */
    void setCurrentProgramStateInformation (const void* data, int size) override;
    /** Message thread. */
    bool fillCustomDataXmlElement (juce::XmlElement* customData) override;
    /** Message thread. */
    void parseCustomDataXmlElement (juce::XmlElement* customData) override;

    /** Writes a signal record: channels, samples, then the samples channel after channel.
        Any thread. */
    static void serializeSignal (vesk::audio::Signal32 const& signal, juce::OutputStream& out);
    /** Reads a signal record. A record whose counts are negative, absurd or larger than the
        bytes that remain is read as an empty signal. Any thread. */
    static vesk::audio::Signal32 deserializeSignal (juce::MemoryInputStream& stream);

    /** Whether a stored filter's rate is one audio is made at (1 kHz to 1 MHz). Filters with
        other rates are refused wherever they enter: a rate of 1e-9 Hz once meant a rescale by
        10^13. Any thread. */
    static bool isPlausibleFilterRate (double rate) noexcept
    {
        return std::isfinite (rate) && rate >= 1000.0 && rate <= 1.0e6;
    }

    /** The product code licences name. */
    static constexpr const char* licenceProductCode = "Klfn";
    /** The vendor's public key, built in (KELFINER_VENDOR_PUBLIC_KEY). Any thread. */
    static vesk::licensing::PublicKey vendorPublicKey();
    /** Where the licence is kept; the plug-ins and the command-line tool share it. Any thread. */
    juce::File getLicenceFile() const;

    /** The largest maximum boost a setting may ask for, in dB. */
    static constexpr double maximumBoostLimitDb = 48.0;
    /** Marks the settings record that follows the filters in the host state. */
    static constexpr std::uint64_t settingsMarker = 0x4B4C464E53455431ULL;

    /** What a new instance, the "Reset" program and the command-line tool without options start
        from: the long-term spectrum learnt under a threshold relative to the material's level,
        a third-octave smoothing, empty bands spared, the loudness kept, and built-in targets
        followed only where the material departs from them. Any thread. */
    static std::unique_ptr<juce::XmlElement> defaultProductSettings();
    /** The settings beyond the public parameters (the learning estimator and the correction
        limits), as saved in states and presets. Message thread. */
    std::unique_ptr<juce::XmlElement> productSettings() const;
    /** Applies saved settings, each checked against its range here and nowhere else (states,
        presets and the editor all come this way); missing ones take the values states had
        before they existed. Message thread. */
    void applyProductSettings (const juce::XmlElement* settings);
    /** The attributes of those settings, as states, presets and the editor name them. */
    struct SettingNames
    {
        static inline const juce::Identifier estimator{"estimator"},
            loudnessMatched{"loudnessMatched"}, spareEmptyBands{"spareEmptyBands"},
            maximumBoost{"maximumBoost"}, smoothingOctaves{"smoothingOctaves"},
            departuresOnly{"departuresOnly"}, thresholdRelative{"thresholdRelative"};
    };
    /** Changes one of those settings as the editor does (a void value removes it: no limit, no
        smoothing) and tells the host that the state changed. Message thread. */
    void setProductSetting (const juce::Identifier& name, const juce::var& value);

private:
    /** How much material a saved source filter stands for, kept beside it while its correction
        is still growing. */
    static inline const juce::Identifier learntSecondsAttribute{"learntSeconds"};
    static double learntSecondsOf (const juce::XmlElement* element);

    vesk::audio::Deconvolution* deconvolution;
    static inline EditorFactory editorFactory = nullptr;
};
