#include "LevelMeter.h"

#include <cmath>
#include <limits>
#include <new>

LevelMeter::LevelMeter (int channels, double rate)
    : state (ebur128_init (static_cast<unsigned int> (channels), static_cast<unsigned long> (rate),
                           EBUR128_MODE_I))
{
    if (state == nullptr)
        throw std::bad_alloc();
}

LevelMeter::~LevelMeter() { ebur128_destroy (&state); }

void LevelMeter::add (juce::AudioBuffer<float> const& buffer, int samples)
{
    const int channels = buffer.getNumChannels();
    interleaved.resize (static_cast<std::size_t> (channels * samples));
    for (int c = 0; c < channels; ++c)
    {
        const float* in = buffer.getReadPointer (c);
        for (int n = 0; n < samples; ++n)
        {
            interleaved[static_cast<std::size_t> (n * channels + c)] = in[n];
            peak = std::max (peak, std::abs (in[n]));
        }
    }
    ebur128_add_frames_float (state, interleaved.data(), static_cast<std::size_t> (samples));
}

double LevelMeter::integratedLoudness() const
{
    double loudness = -std::numeric_limits<double>::infinity();
    if (ebur128_loudness_global (state, &loudness) != EBUR128_SUCCESS)
        return -std::numeric_limits<double>::infinity();
    return loudness;
}
