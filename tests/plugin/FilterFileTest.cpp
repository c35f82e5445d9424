#include "FilterFile.h"

#include <gtest/gtest.h>

using vesk::audio::Signal32;

TEST (FilterFile, WritesTheExactLayout)
{
    Signal32 taps (2, 2);
    taps[0][0] = 1.0f;
    taps[0][1] = -0.5f;
    taps[1][0] = 0.25f;
    taps[1][1] = 2.0f;
    juce::MemoryOutputStream out;
    FilterFile::write (out, taps, 48000.0);
    const unsigned char expected[] = {
        0x31, 0x4A, 0xBF, 0x1F, 0x84, 0xFB, 0xB9, 0x15, // id 0x15B9FB841FBF4A31
        0x01, 0x00, 0x00, 0x00,                         // version 1
        0x00, 0x00, 0x00, 0x00, 0x00, 0x70, 0xE7, 0x40, // 48000.0
        0x02, 0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00, // 2 channels of 2
        0x00, 0x00, 0x80, 0x3F, 0x00, 0x00, 0x00, 0xBF, // channel 0: 1, -0.5
        0x00, 0x00, 0x80, 0x3E, 0x00, 0x00, 0x00, 0x40  // channel 1: 0.25, 2
    };
    ASSERT_EQ (out.getDataSize(), sizeof (expected));
    EXPECT_EQ (std::memcmp (out.getData(), expected, sizeof (expected)), 0);
}

TEST (FilterFile, ReadsBackAndRefusesWhatIsNotAFilter)
{
    const auto file = juce::File::createTempFile (".filter");
    Signal32 taps (1, 3, 0.5f);
    ASSERT_TRUE (FilterFile::write (file, taps, 44100.0));
    Signal32 read;
    double rate = 0.0;
    ASSERT_EQ (FilterFile::read (file, read, rate), FilterFile::Status::ok);
    EXPECT_EQ (rate, 44100.0);
    EXPECT_EQ (read.getNumSamples(), 3);

    juce::MemoryBlock bytes;
    file.loadFileAsData (bytes);
    const auto readBytes = [&] (juce::MemoryBlock const& block)
    {
        juce::MemoryInputStream in (block, false);
        Signal32 signal;
        double signalRate = 0.0;
        return FilterFile::read (in, signal, signalRate);
    };
    const auto changed = [&] (int offset, std::initializer_list<unsigned char> values)
    {
        auto copy = bytes;
        int i = offset;
        for (auto value : values)
            static_cast<unsigned char*> (copy.getData())[i++] = value;
        return copy;
    };
    EXPECT_EQ (readBytes (changed (0, {0x30})), FilterFile::Status::invalid); // id
    EXPECT_EQ (readBytes (changed (8, {0x02})), FilterFile::Status::invalid); // version 2
    EXPECT_EQ (readBytes (changed (24, {0xFF, 0xFF, 0xFF, 0x7F})), FilterFile::Status::invalid);
    EXPECT_EQ (readBytes (changed (28, {0x00, 0x00, 0xC0, 0x7F})),
               FilterFile::Status::invalid); // NaN
    EXPECT_EQ (readBytes (changed (12, {0, 0, 0, 0, 0, 0, 0xF0, 0x3F})),
               FilterFile::Status::invalid); // 1 Hz
    EXPECT_EQ (readBytes (changed (28, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0})),
               FilterFile::Status::invalid); // all taps zero: no filter at all
    juce::MemoryBlock shortFile (bytes.getData(), 27);
    EXPECT_EQ (readBytes (shortFile), FilterFile::Status::invalid);
    EXPECT_EQ (FilterFile::read (file.getSiblingFile ("no-such.filter"), read, rate),
               FilterFile::Status::unreadable);
    file.deleteFile();
}
