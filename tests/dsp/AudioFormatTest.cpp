#include "AudioFormat.h"

#include <gtest/gtest.h>

using namespace vesk::audio;

TEST (AudioFormat, StandardLayoutsByChannelCount)
{
    const AudioFormat six (6, 48000);
    ASSERT_EQ (six.speakers.size(), 6u);
    EXPECT_EQ (six.speakers[0], SpeakerPosition (-1, 1, 0, 0));
    EXPECT_EQ (six.speakers[2], SpeakerPosition (0, 1, 0, 0));
    EXPECT_EQ (six.speakers[3], SpeakerPosition (0, 0, 0, SpeakerPosition::lowFrequencyEffects));
    EXPECT_EQ (six.speakers[5], SpeakerPosition (1, -1, 0, 0));
    EXPECT_EQ (six.speakers[5].reserved, -1.0f);
    EXPECT_EQ (six.sampleRate, 48000.0);

    EXPECT_EQ (AudioFormat (1, 44100).speakers[0], SpeakerPosition (0, 1, 0, 0))
        << "mono keeps type 0 here";
    EXPECT_EQ (AudioFormat (8, 44100).speakers[7], SpeakerPosition (1, 0, 0, 0));
    EXPECT_EQ (AudioFormat (7, 44100).speakers[3], SpeakerPosition (-1, -1, 0, 0));

    const AudioFormat nine (9, 44100);
    ASSERT_EQ (nine.speakers.size(), 9u);
    for (auto const& speaker : nine.speakers)
        EXPECT_EQ (speaker, SpeakerPosition());
    EXPECT_TRUE (AudioFormat (0, 44100).speakers.empty());
}
