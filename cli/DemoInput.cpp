#include "DemoInput.h"

#include <juce_audio_formats/juce_audio_formats.h>

#include <cmath>
#include <random>

namespace
{
/** A biquad (direct form I) for the colouring. */
struct Section
{
    double b0, b1, b2, a1, a2, x1 = 0, x2 = 0, y1 = 0, y2 = 0;
    float process (float in)
    {
        const double y = b0 * in + b1 * x1 + b2 * x2 - a1 * y1 - a2 * y2;
        x2 = x1, x1 = in, y2 = y1, y1 = y;
        return static_cast<float> (y);
    }
};

Section lowPass (double f, double q, double rate)
{
    const double w = 2 * M_PI * f / rate, alpha = std::sin (w) / (2 * q), c = std::cos (w),
                 a0 = 1 + alpha;
    return {(1 - c) / 2 / a0, (1 - c) / a0, (1 - c) / 2 / a0, -2 * c / a0, (1 - alpha) / a0};
}

Section peak (double f, double q, double gainDb, double rate)
{
    const double a = std::pow (10.0, gainDb / 40), w = 2 * M_PI * f / rate,
                 alpha = std::sin (w) / (2 * q);
    const double c = std::cos (w), a0 = 1 + alpha / a;
    return {(1 + alpha * a) / a0, -2 * c / a0, (1 - alpha * a) / a0, -2 * c / a0,
            (1 - alpha / a) / a0};
}
} // namespace

bool writeDemoInput (juce::File const& file)
{
    constexpr double rate = 48000.0;
    constexpr int length = 8 * 48000;
    juce::AudioBuffer<float> audio (2, length);
    audio.clear();
    std::mt19937 generator (2026);
    std::uniform_real_distribution<float> noise (-1.0f, 1.0f);

    // Four bars of chords (root, third, fifth, octave) over a bass line, with a hi-hat on eighths.
    const double chords[4][4] = {{220.0, 277.18, 329.63, 440.0},
                                 {196.0, 246.94, 293.66, 392.0},
                                 {174.61, 220.0, 261.63, 349.23},
                                 {196.0, 246.94, 293.66, 392.0}};
    const int bar = length / 4;
    for (int n = 0; n < length; ++n)
    {
        const int b = n / bar;
        const double t = static_cast<double> (n) / rate,
                     inBar = static_cast<double> (n % bar) / rate;
        double left = 0.0, right = 0.0;
        for (int v = 0; v < 4; ++v)
        {
            double tone = 0.0;
            for (int h = 1; h <= 12; ++h) // bright harmonics, so the dull colouring is audible
                tone += std::sin (2 * M_PI * chords[b][v] * h * t) / h;
            const double envelope = std::exp (-1.5 * inBar) * 0.08;
            left += tone * envelope * (v % 2 == 0 ? 1.0 : 0.6);
            right += tone * envelope * (v % 2 == 0 ? 0.6 : 1.0);
        }
        const double bass = std::sin (2 * M_PI * chords[b][0] / 4 * t) * 0.25
                            * std::exp (-3.0 * std::fmod (inBar, 0.5));
        const double eighth = std::fmod (t, 0.25);
        const double hat = noise (generator) * 0.12 * std::exp (-60.0 * eighth);
        audio.setSample (0, n, static_cast<float> (left + bass + hat));
        audio.setSample (1, n, static_cast<float> (right + bass + hat * 0.8));
    }

    // The colouring: dull (12 dB per octave above 1.5 kHz) and boomy (+8 dB around 120 Hz).
    for (int c = 0; c < 2; ++c)
    {
        auto dull = lowPass (1500.0, 0.707, rate);
        auto boom = peak (120.0, 1.2, 8.0, rate);
        float* samples = audio.getWritePointer (c);
        for (int n = 0; n < length; ++n)
            samples[n] = boom.process (dull.process (samples[n]));
    }
    audio.applyGain (0.5f / std::max (audio.getMagnitude (0, length), 1e-6f));

    file.deleteFile();
    auto stream = std::make_unique<juce::FileOutputStream> (file);
    if (!stream->openedOk())
        return false;
    juce::WavAudioFormat wav;
    std::unique_ptr<juce::AudioFormatWriter> writer (
        wav.createWriterFor (stream.get(), rate, 2, 24, {}, 0));
    if (writer == nullptr)
        return false;
    stream.release();
    return writer->writeFromAudioSampleBuffer (audio, 0, length);
}
