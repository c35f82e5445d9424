#pragma once

#include <juce_audio_basics/juce_audio_basics.h>

#include <ebur128.h>

#include <vector>

/** Integrated loudness (ITU-R BS.1770, through libebur128) and sample peak of a stream, fed
    block by block. One thread. */
class LevelMeter
{
public:
    LevelMeter (int channels, double rate);
    ~LevelMeter();
    LevelMeter (LevelMeter const&) = delete;
    LevelMeter& operator= (LevelMeter const&) = delete;

    void add (juce::AudioBuffer<float> const& buffer, int samples);
    /** LUFS; -inf for silence (below the absolute gate). */
    double integratedLoudness() const;
    /** The largest absolute sample, linear. */
    float samplePeak() const noexcept { return peak; }

private:
    ebur128_state* state = nullptr;
    std::vector<float> interleaved;
    float peak = 0.0f;
};
