#pragma once

#include "BaseAudioProcessor.h"

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
    ParameterDescription (vesk::audio::BaseAudioProcessor* processor, int internalId,
                          juce::String name, juce::String unit, float stepSize,
                          ParameterMappingMode mode);

    /** The engine's value mapped to 0..1 over its current range. Any thread. */
    float getNormalizedParameterValue() const;
    /** Maps a 0..1 value onto the engine's current range and sets it. Any thread. */
    void setNormalizedParameterValue (float normalized, bool flag);

    vesk::audio::BaseAudioProcessor* processor;
    int internalId;
    juce::String name;
    juce::String unit;
    float stepSize;
    float defaultValue;
    float defaultNormalizedValue;
    ParameterMappingMode mappingMode;
};
