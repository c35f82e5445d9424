#pragma once

#include "BaseAudioProcessor.h"
#include "ParameterIds.h"

#include <juce_core/juce_core.h>

/** Binds one public (host) parameter to one engine parameter: name, unit, display step and the
    mapping between the engine's plain range and the host's 0..1. */
class ParameterDescription
{
public:
    enum ParameterMappingMode
    {
        linear = 0,
        logarithmic = 1
    };

    /** Reads the engine's current value as the default. Message thread, before any state load. */
    ParameterDescription (vesk::audio::BaseAudioProcessor* processor, EngineParameterId internalId,
                          juce::String name, juce::String unit, float stepSize,
                          ParameterMappingMode mode);

    /** The engine's value mapped to 0..1 over its current range. Any thread. */
    float getNormalizedParameterValue() const;
    /** Maps a 0..1 value (clamped; NaN gives the default) onto the engine's current range and
        sets it. Any thread. */
    void setNormalizedParameterValue (float normalized, bool flag);

    /** The one check that every value entering from outside passes (host, state, preset,
        editor, command line): clamped to the range, NaN replaced by the default. Any thread. */
    float clampPlainValue (float value) const;
    /** The engine's current range; before a sample rate exists, a range whose top follows the
        rate is taken at a nominal 48 kHz, so that hosts never see an empty range. Any thread. */
    void getRange (float& minimum, float& maximum) const;

    static constexpr double nominalSampleRate = 48000.0;

    vesk::audio::BaseAudioProcessor* processor;
    EngineParameterId internalId;
    juce::String name;
    juce::String unit;
    /** The unit hosts show beside the value ("dB", "ms", "Hz", "%"); may say more than unit. */
    juce::String hostUnit;
    float stepSize;
    float defaultValue;
    float defaultNormalizedValue;
    ParameterMappingMode mappingMode;
};
