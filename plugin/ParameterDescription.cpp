#include "ParameterDescription.h"

#include <cmath>
#include <stdexcept>

ParameterDescription::ParameterDescription (vesk::audio::BaseAudioProcessor* processorToUse, int id,
                                            juce::String nameToUse, juce::String unitToUse,
                                            float step, ParameterMappingMode mode)
    : processor (processorToUse), internalId (id), name (std::move (nameToUse)),
      unit (std::move (unitToUse)), stepSize (step),
      defaultValue (processorToUse->getParameterValue (id)), defaultNormalizedValue (0.0f),
      mappingMode (mode)
{
    defaultNormalizedValue = getNormalizedParameterValue();
}

float ParameterDescription::getNormalizedParameterValue() const
{
    float minimum = 0.0f, maximum = 0.0f;
    processor->getParameterRange (internalId, minimum, maximum);
    const float value = processor->getParameterValue (internalId);
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
    float minimum = 0.0f, maximum = 0.0f;
    processor->getParameterRange (internalId, minimum, maximum);
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
    processor->setParameterValue (internalId, value, flag);
}
