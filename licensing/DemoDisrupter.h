#pragma once

#include <cstdint>

namespace vesk::licensing
{
/** What a demo does to the output: every 40 to 90 s a gap of 2 to 3 s of silence, faded in and
    out over 20 ms so it never clicks; the rest passes bit for bit. Intervals come from a seeded
    generator per instance, so they are irregular. Sample-accurate at any block size. prepare():
    not while audio runs; process(): audio thread (no allocation, lock or system call). */
class DemoDisrupter
{
public:
    void prepare (double sampleRate, std::uint32_t seed);
    /** Applies the muting in place to `channels` channels of `samples` samples. */
    void process (float* const* channels, int numChannels, int samples) noexcept;
    /** Whether any part of the last call was muted or fading. */
    bool wasMuting() const noexcept { return lastMuting; }

    static constexpr double shortestGapSeconds = 40.0, longestGapSeconds = 90.0;
    static constexpr double shortestMuteSeconds = 2.0, longestMuteSeconds = 3.0;
    static constexpr double fadeSeconds = 0.02;

private:
    std::int64_t draw (double shortest, double longest) noexcept;
    void startPlaying() noexcept;
    void startMuting() noexcept;

    enum Phase
    {
        playing,
        fadingOut,
        muted,
        fadingIn
    };

    double rate = 48000.0;
    std::uint64_t state = 1;
    Phase phase = playing;
    std::int64_t remaining = 0; ///< samples left in the current phase
    std::int64_t muteLength = 0;
    int fadeLength = 960;
    bool lastMuting = false;
};
} // namespace vesk::licensing
