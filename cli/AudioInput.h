#pragma once

#include <juce_audio_formats/juce_audio_formats.h>

#include <limits>

#include <memory>

/** Audio files as the tool takes them in: WAV, AIFF, FLAC, Ogg Vorbis or MP3 (told by content, not
   by name), 1 to 8 channels, a plausible rate, and never more samples than the file's size can hold
   (a header may claim anything; a reader would make up silence for what is not there). Null, with
   the reason in `error`, for anything else. */
std::unique_ptr<juce::AudioFormatReader> openReader (juce::File const& file, juce::String& error);
/** The same from a stream of `bytes` bytes; `name` is what messages call it. */
std::unique_ptr<juce::AudioFormatReader> openReader (std::unique_ptr<juce::InputStream> stream,
                                                     juce::int64 bytes, juce::String const& name,
                                                     juce::String& error);
/** Input samples beyond this are damage, not audio (80 dB over full scale): a float file of
    finite but huge values (3e37) overflowed the filter and came out as silence with a NaN
    "deviation". */
constexpr float largestInputSample = 1.0e4f;

/** Replaces NaN and infinite samples, and any beyond largest, by silence; returns how many
    there were. */
int silenceNonFinite (juce::AudioBuffer<float>& buffer,
                      float largest = std::numeric_limits<float>::infinity());
/** The RMS level of a whole file over all its channels, in dBFS; NaN and infinity count as
    silence. Reads the file once. */
double rmsLevelDb (juce::AudioFormatReader& reader);
