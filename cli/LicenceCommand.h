#pragma once

#include <juce_core/juce_core.h>

/** kelfiner licence status | authorise FILE | deauthorise: the plug-ins' stored licence,
    managed on machines without a display. The tool itself is never gated. */
int licenceCommand (juce::StringArray const& args);
