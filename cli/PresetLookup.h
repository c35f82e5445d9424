#pragma once

#include <juce_core/juce_core.h>

#include <string>
#include <vector>

/** A preset the tool can find by name: the factory ones installed with it, then the user's
    (the same folders the plug-in lists). */
struct PresetEntry
{
    juce::String name;
    juce::File file; // none for "Reset": the defaults
    bool factory = true;
};

/** Main thread only. */
std::vector<PresetEntry> listPresets();

/** --preset takes a file, or the name of a listed preset (any case; "Reset" gives no file:
    the defaults); anything else is a UsageError that says where to look. */
juce::File resolvePreset (std::string const& given);
