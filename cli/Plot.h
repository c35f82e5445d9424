#pragma once

#include "Signal.h"

#include <juce_core/juce_core.h>

#include <vector>

/** What a plot shows: the long-term power spectra of input and output (bins from 0 Hz up), the
    correction and the target's shape on the engine's bins, and a title naming the file, the
    target and the settings. */
struct PlotData
{
    std::vector<double> inputPower, outputPower;
    double sampleRate = 48000.0;
    std::vector<float> curveFrequencies;
    vesk::audio::Signal32 correction, target;
    juce::String title;
    /** What the correction does at its extremes, in the summary's words, beside its legend. */
    juce::String applied;
};

/** Writes a PNG of the spectra (down to -90 dB under the input's strongest bin), the target
    drawn through the output's level, and the correction, on a logarithmic frequency axis. Any
    thread. */
bool drawPlot (juce::File const& file, PlotData const& data);
