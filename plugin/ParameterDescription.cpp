#include "ParameterDescription.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

ParameterDescription::ParameterDescription (vesk::audio::BaseAudioProcessor* processorToUse,
                                            EngineParameterId id, juce::String nameToUse,
                                            juce::String unitToUse, float step,
                                            ParameterMappingMode mode)
    : processor (processorToUse), internalId (id), name (std::move (nameToUse)),
      unit (std::move (unitToUse)), stepSize (step),
      defaultValue (processorToUse->getParameterValue (id.value)), defaultNormalizedValue (0.0f),
      mappingMode (mode)
{
    defaultNormalizedValue = getNormalizedParameterValue();
}

void ParameterDescription::getRange (float& minimum, float& maximum) const
{
    processor->getParameterRange (internalId.value, minimum, maximum);
    if (!(maximum > minimum))
        maximum = std::max (minimum + 1.0f, static_cast<float> (nominalSampleRate * 0.5));
}

float ParameterDescription::clampPlainValue (float value) const
{
    if (std::isnan (value))
        return defaultValue;
    float minimum = 0.0f, maximum = 0.0f;
    getRange (minimum, maximum);
    return std::clamp (value, minimum, maximum);
}

float ParameterDescription::getNormalizedParameterValue() const
{
    float minimum = 0.0f, maximum = 0.0f;
    getRange (minimum, maximum);
    const float value = processor->getParameterValue (internalId.value);
    switch (mappingMode)
    {
        case linear: return (value - minimum) / (maximum - minimum);
        case logarithmic:
        {
            const float ratio = value / minimum, range = maximum / minimum;
            return static_cast<float> (std::log10 (static_cast<double> (ratio))
                                       / std::log10 (static_cast<double> (range)));
        }
        default: throw std::runtime_error ("Unknown mapping mode");
    }
}

void ParameterDescription::setNormalizedParameterValue (float normalized, bool flag)
{
    if (std::isnan (normalized))
        normalized = defaultNormalizedValue;
    normalized = std::clamp (normalized, 0.0f, 1.0f);
    float minimum = 0.0f, maximum = 0.0f;
    getRange (minimum, maximum);
    float value = 0.0f;
    switch (mappingMode)
    {
        case linear: value = (maximum - minimum) * normalized + minimum; break;
        case logarithmic:
        {
            const float range = maximum / minimum;
            value = static_cast<float> (
                std::pow (static_cast<double> (range), static_cast<double> (normalized))
                * static_cast<double> (minimum));
            break;
        }
        default: throw std::runtime_error ("Unknown mapping mode");
    }
    processor->setParameterValue (internalId.value, clampPlainValue (value), flag);
}
