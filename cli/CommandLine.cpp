#include "CommandLine.h"

#include "KelfinerAudioProcessor.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace
{
std::string shown (float value)
{
    auto text = juce::String (value, 2);
    while (text.contains (".") && (text.endsWithChar ('0') || text.endsWithChar ('.')))
        text = text.dropLastCharacters (1);
    return text.toStdString();
}
} // namespace

double parseNumber (std::string const& option, std::string const& text)
{
    char* end = nullptr;
    const double value = std::strtod (text.c_str(), &end);
    if (text.empty() || end != text.c_str() + text.size() || !std::isfinite (value)
        || std::isspace (static_cast<unsigned char> (text.front())))
        throw UsageError{option + " needs a number, not \"" + text + "\""};
    return value;
}

float checkedParameter (int internalId, std::string const& option, std::string const& text)
{
    // The plug-in's own description of the parameter: its range, name and unit.
    static KelfinerAudioProcessor table;
    const auto* parameter = table.findPublicParameter (EngineParameterId (internalId));
    jassert (parameter != nullptr);
    float lowest = 0.0f, highest = 0.0f;
    parameter->getRange (lowest, highest);
    const auto value = static_cast<float> (parseNumber (option, text));
    if (!(value >= lowest && value <= highest))
        throw UsageError{option + " " + text + " is out of range: it takes " + shown (lowest)
                         + " .. " + shown (highest) + " " + parameter->hostUnit.toStdString()};
    return value;
}

double checkedNumber (std::string const& option, std::string const& text, double lowest,
                      double highest, std::string const& unit)
{
    const double value = parseNumber (option, text);
    if (!(value >= lowest && value <= highest))
        throw UsageError{option + " " + text + " is out of range: it takes "
                         + shown (static_cast<float> (lowest)) + " .. "
                         + shown (static_cast<float> (highest)) + " " + unit};
    return value;
}

juce::File fileArgument (std::string const& path)
{
    return juce::File::getCurrentWorkingDirectory().getChildFile (juce::String (path));
}

void printError (juce::String const& message)
{
    std::fprintf (stderr, "kelfiner: %s\n", message.toRawUTF8());
}
