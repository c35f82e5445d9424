#pragma once

#include "InterruptCleanup.h"
#include "OfflineJob.h"

#include <juce_audio_formats/juce_audio_formats.h>

#include <memory>

/** Triangular (TPDF) dither of one step of the output's resolution: requantised without it, the
    correction's quiet tails would turn into distortion. Seeded, so runs stay reproducible.
    Zero bits: a float output, left alone. */
class TpdfDither
{
public:
    explicit TpdfDither (int bits)
        : step (bits > 0 ? static_cast<float> (std::ldexp (1.0, 1 - bits)) : 0.0f)
    {
    }
    void apply (juce::AudioBuffer<float>& buffer)
    {
        if (step == 0.0f)
            return;
        for (int c = 0; c < buffer.getNumChannels(); ++c)
        {
            float* samples = buffer.getWritePointer (c);
            for (int n = 0; n < buffer.getNumSamples(); ++n)
                samples[n] += (random.nextFloat() - random.nextFloat()) * step;
        }
    }

private:
    float step;
    juce::Random random{1};
};

/** Where a result goes while it is made: a temporary file beside its place (renamed over it at
    the end, so there is never a partial output file) and a writer into it. */
struct PendingOutput
{
    std::unique_ptr<juce::TemporaryFile> temporary;
    std::unique_ptr<InterruptCleanup> cleanup;
    std::unique_ptr<juce::AudioFormatWriter> writer;
    int bits = 0;
};

/** Opens the writer for a result in the format its name or --format asks for, at the depth
    asked for or the input's; false with the reason in error. Main thread. */
bool openOutput (juce::File const& output, JobSettings const& settings,
                 juce::AudioFormatReader const& reader, PendingOutput& pending,
                 juce::String& error);
