#pragma once

#include "Signal.h"

#include <juce_core/juce_core.h>

#include <vector>

/** Writes a PNG of the input and output long-term spectra and the correction curve on a
    logarithmic frequency axis. Any thread. */
bool drawPlot (juce::File const& file, std::vector<double> const& inputPower,
               std::vector<double> const& outputPower, double sampleRate,
               std::vector<float> const& curveFrequencies, vesk::audio::Signal32 const& correction);
