#pragma once

#include <juce_core/juce_core.h>

/** Writes the built-in test recording: eight seconds of synthesised stereo music (chords, bass
    and hi-hat noise) made dull and boomy, as a 24-bit 48 kHz WAV file. */
bool writeDemoInput (juce::File const& file);
