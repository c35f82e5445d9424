#pragma once
// What the tool's end-to-end tests share: running the tool, writing and reading files.
#include "Spectra.h"
#include "TestSignals.h"

#include <juce_audio_formats/juce_audio_formats.h>

#include <gtest/gtest.h>

using vesk::audio::Signal32;

namespace tool_test
{
struct Run
{
    int exitCode;
    juce::String output;
};

inline Run kelfiner (juce::StringArray args)
{
    args.insert (0, KELFINER_TOOL);
    juce::ChildProcess child;
    EXPECT_TRUE (
        child.start (args, juce::ChildProcess::wantStdOut | juce::ChildProcess::wantStdErr));
    const auto text = child.readAllProcessOutput();
    child.waitForProcessToFinish (60000);
    return {static_cast<int> (child.getExitCode()), text};
}

inline void writeWav (juce::File const& file, Signal32 const& signal, double rate, int bits)
{
    file.deleteFile();
    auto stream = std::make_unique<juce::FileOutputStream> (file);
    juce::WavAudioFormat wav;
    std::unique_ptr<juce::AudioFormatWriter> writer (wav.createWriterFor (
        stream.release(), rate, static_cast<unsigned int> (signal.getNumChannels()), bits, {}, 0));
    ASSERT_NE (writer, nullptr);
    std::vector<const float*> channels;
    for (int c = 0; c < signal.getNumChannels(); ++c)
        channels.push_back (signal[c]);
    writer->writeFromFloatArrays (channels.data(), signal.getNumChannels(), signal.getNumSamples());
}

inline Signal32 readWav (juce::File const& file, double& rate, int& bits)
{
    juce::AudioFormatManager formats;
    formats.registerBasicFormats();
    std::unique_ptr<juce::AudioFormatReader> reader (formats.createReaderFor (file));
    if (reader == nullptr)
        return {};
    rate = reader->sampleRate;
    bits = static_cast<int> (reader->bitsPerSample);
    juce::AudioBuffer<float> buffer (static_cast<int> (reader->numChannels),
                                     static_cast<int> (reader->lengthInSamples));
    reader->read (&buffer, 0, buffer.getNumSamples(), 0, true, true);
    Signal32 signal (buffer.getNumChannels(), buffer.getNumSamples());
    for (int c = 0; c < buffer.getNumChannels(); ++c)
        std::copy (buffer.getReadPointer (c), buffer.getReadPointer (c) + buffer.getNumSamples(),
                   signal[c]);
    return signal;
}

inline Signal32 colouredNoise (std::vector<vesk::test::Biquad> const& colouring, double rate,
                               int seconds, unsigned seed)
{
    Signal32 noise = vesk::test::whiteNoise (2, static_cast<int> (rate) * seconds, seed) * 0.25f;
    for (auto const& section : colouring)
        section.apply (noise);
    return noise;
}

inline double deviationFrom (juce::String const& summary, bool after)
{
    // "... deviation from target X dB -> Y dB RMS"
    const auto tail = summary.fromLastOccurrenceOf ("deviation from target", false, false);
    return (after ? tail.fromFirstOccurrenceOf ("->", false, false) : tail).trim().getDoubleValue();
}

/** Peak, full-scale samples and energy of a written file. */
struct Levels
{
    float peak = 0.0f;
    int clipped = 0;
    double energy = 0.0;
    int samples = 0;
};

inline Levels levelsOf (juce::File const& file)
{
    double rate = 0;
    int bits = 0;
    const auto output = readWav (file, rate, bits);
    Levels levels;
    levels.samples = output.getNumSamples();
    for (int c = 0; c < output.getNumChannels(); ++c)
        for (int n = 0; n < output.getNumSamples(); ++n)
        {
            levels.peak = std::max (levels.peak, std::abs (output[c][n]));
            levels.clipped += std::abs (output[c][n]) >= 0.999f ? 1 : 0;
            levels.energy += static_cast<double> (output[c][n]) * output[c][n];
        }
    return levels;
}

class Folder
{
public:
    Folder() { folder.getFile().createDirectory(); }
    juce::File operator() (juce::String const& name) const
    {
        return folder.getFile().getChildFile (name);
    }

private:
    juce::TemporaryFile folder;
};
} // namespace tool_test
