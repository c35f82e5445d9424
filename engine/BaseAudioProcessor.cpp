#include "BaseAudioProcessor.h"

#include <stdexcept>

namespace vesk::audio
{
bool BaseAudioProcessor::setFormat (const AudioFormat& input, const AudioFormat& output)
{
    inputFormat = input;
    outputFormat = output;
    return true;
}

void BaseAudioProcessor::getProcessingInfo (ProcessingInfo& info) { info = ProcessingInfo(); }

void BaseAudioProcessor::getParameterRange (int, float&, float&)
{
    throw std::out_of_range ("Parameter index");
}

float BaseAudioProcessor::getParameterValue (int) { throw std::out_of_range ("Parameter index"); }

void BaseAudioProcessor::setParameterValue (int, float, bool)
{
    throw std::out_of_range ("Parameter index");
}

void BaseAudioProcessor::effectuateParameterChanges() {}

void BaseAudioProcessor::reset() {}
} // namespace vesk::audio
