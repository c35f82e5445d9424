#include "DemoDisrupter.h"

#include <algorithm>
#include <cmath>

namespace vesk::licensing
{
void DemoDisrupter::prepare (double sampleRate, std::uint32_t seed)
{
    rate = sampleRate > 0.0 ? sampleRate : 48000.0;
    state = 0x9E3779B97F4A7C15ULL ^ seed;
    fadeLength = std::max (1, (int) std::lround (fadeSeconds * rate));
    startPlaying();
}

std::int64_t DemoDisrupter::draw (double shortest, double longest) noexcept
{
    // xorshift64*: enough to make the intervals irregular, and no state beyond one word.
    state ^= state >> 12;
    state ^= state << 25;
    state ^= state >> 27;
    const auto bits = (state * 0x2545F4914F6CDD1DULL) >> 11;
    const double unit = (double) bits / (double) (1ULL << 53);
    return (std::int64_t) std::llround ((shortest + unit * (longest - shortest)) * rate);
}

void DemoDisrupter::startPlaying() noexcept
{
    phase = playing;
    remaining = draw (shortestGapSeconds, longestGapSeconds);
}

void DemoDisrupter::startMuting() noexcept
{
    phase = fadingOut;
    // The designed length of a gap counts from the start of the fade out to the end of the
    // fade in.
    muteLength = draw (shortestMuteSeconds, longestMuteSeconds);
    remaining = fadeLength;
}

void DemoDisrupter::process (float* const* channels, int numChannels, int samples) noexcept
{
    lastMuting = false;
    int done = 0;
    while (done < samples)
    {
        const int count = (int) std::min<std::int64_t> (samples - done, remaining);
        if (phase == muted)
            for (int c = 0; c < numChannels; ++c)
                std::fill (channels[c] + done, channels[c] + done + count, 0.0f);
        else if (phase != playing)
            for (int n = 0; n < count; ++n)
            {
                // A linear ramp: the largest step between samples is 1/fadeLength of full scale.
                const auto step = (std::int64_t) fadeLength - remaining + n + 1;
                const float ramp = (float) step / (float) fadeLength;
                const float gain = phase == fadingOut ? 1.0f - ramp : ramp;
                for (int c = 0; c < numChannels; ++c)
                    channels[c][done + n] *= gain;
            }
        lastMuting = lastMuting || phase != playing;
        done += count;
        remaining -= count;
        if (remaining > 0)
            continue;
        switch (phase)
        {
            case playing: startMuting(); break;
            case fadingOut:
                phase = muted;
                remaining = std::max<std::int64_t> (1, muteLength - 2 * fadeLength);
                break;
            case muted:
                phase = fadingIn;
                remaining = fadeLength;
                break;
            case fadingIn: startPlaying(); break;
        }
    }
}
} // namespace vesk::licensing
