#pragma once

#include <vector>

namespace vesk::audio
{
/** Where one channel's loudspeaker stands. */
struct SpeakerPosition
{
    enum Type
    {
        ordinary = 0,
        mono = 1,
        lowFrequencyEffects = 2,
        unassigned = 3
    };

    SpeakerPosition() = default;
    SpeakerPosition (float xToUse, float yToUse, float zToUse, int typeToUse)
        : x (xToUse), y (yToUse), z (zToUse), type (typeToUse)
    {
    }

    bool operator== (SpeakerPosition const& other) const
    {
        return x == other.x && y == other.y && z == other.z && type == other.type;
    }

    float x = 0.0f; // left (-1) to right (+1)
    float y = 0.0f; // back (-1) to front (+1)
    float z = 0.0f; // 0 ear level, 1 top layer
    int type = unassigned;
    float reserved = -1.0f; // kept for the record layout; nothing reads it
};

/** Channel count, sample rate and speaker layout of one side of an engine. */
struct AudioFormat
{
    AudioFormat() = default;
    /** Assigns the standard layout for 1 to 8 channels; other counts stay unassigned. */
    AudioFormat (int channels, double sampleRate);

    int channelCount = 0;
    double sampleRate = 0.0;
    std::vector<SpeakerPosition> speakers;
};
} // namespace vesk::audio
