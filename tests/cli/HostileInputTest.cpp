// Hostile files as users and attackers hand them to the tool (and, through the same readers,
// to every plug-in instance): each is refused at once with a message, nothing hangs or crashes.
#include "FilterFile.h"
#include "RegularFile.h"
#include "TestSignals.h"
#include "ToolHelpers.h"

#include <gtest/gtest.h>

#include <cstring>
#include <sys/stat.h>
#include <utility>

using namespace tool_test;

namespace
{
/** Runs the tool, but gives up (and fails) after the given time instead of waiting forever. */
Run kelfinerWithin (juce::StringArray args, int milliseconds)
{
    args.insert (0, KELFINER_TOOL);
    juce::ChildProcess child;
    EXPECT_TRUE (
        child.start (args, juce::ChildProcess::wantStdOut | juce::ChildProcess::wantStdErr));
    if (!child.waitForProcessToFinish (milliseconds))
    {
        child.kill();
        ADD_FAILURE() << "still running after " << milliseconds
                      << " ms: " << args.joinIntoString (" ");
        return {-1, {}};
    }
    return {static_cast<int> (child.getExitCode()), child.readAllProcessOutput()};
}

juce::File presetsFolder()
{
    return juce::File::getSpecialLocation (juce::File::userApplicationDataDirectory)
        .getChildFile ("Vesk Digital/Kelfiner/Presets");
}
} // namespace

// A FIFO waits for a writer forever and a device never ends: as audio input, preset, target
// filter or licence key, each is refused before it is opened, and a stored licence that is one
// does not stop the tool (every plug-in instance reads it at start).
TEST (HostileInput, SpecialFilesAreRefusedAtOnce)
{
    const Folder files;
    const auto fifo = files ("pipe.xml");
    ASSERT_EQ (mkfifo (fifo.getFullPathName().toRawUTF8(), 0600), 0);
    const auto zero = files ("zero.xml");
    ASSERT_TRUE (juce::File ("/dev/zero").createSymbolicLink (zero, true));
    const auto input = files ("in.wav");
    writeWav (input, Signal32 (1, 4800, 0.1f), 48000, 16);
    for (auto const& special : {fifo, zero})
    {
        SCOPED_TRACE (special.getFileName().toStdString());
        const juce::StringArray runs[] = {
            {"process", special.getFullPathName(), "-o", files ("out.wav").getFullPathName()},
            {"process", input.getFullPathName(), "-o", files ("out.wav").getFullPathName(),
             "--preset", special.getFullPathName()},
            {"process", input.getFullPathName(), "-o", files ("out.wav").getFullPathName(),
             "--target-filter", special.getFullPathName()},
            {"info", special.getFullPathName()},
            {"licence", "authorise", special.getFullPathName()}};
        for (auto const& args : runs)
        {
            const auto run = kelfinerWithin (args, 20000);
            EXPECT_NE (run.exitCode, 0) << args.joinIntoString (" ") << "\n" << run.output;
            EXPECT_FALSE (files ("out.wav").exists());
        }
    }
    const auto stored = juce::File::getSpecialLocation (juce::File::userApplicationDataDirectory)
                            .getChildFile ("Vesk Digital/Kelfiner/Kelfiner.licence");
    stored.getParentDirectory().createDirectory();
    for (auto const& special : {fifo, zero})
    {
        stored.deleteFile();
        ASSERT_TRUE (special.createSymbolicLink (stored, true));
        const auto status = kelfinerWithin ({"licence", "status"}, 20000);
        EXPECT_TRUE (status.output.contains ("demo mode")) << status.output;
    }
    stored.deleteFile();
}

// The user's presets folder linked into itself twice made the walk exponential: the tool and
// every plug-in instance hung in the scan. Links back up the tree are not followed.
TEST (HostileInput, APresetsFolderLinkedIntoItselfIsWalkedOnce)
{
    const auto folder = presetsFolder();
    ASSERT_TRUE (folder.createDirectory());
    folder.getChildFile ("Mine.xml")
        .replaceWithText ("<Preset><ParameterSettings><Parameter id=\"4\" value=\"-3\"/>"
                          "</ParameterSettings></Preset>");
    for (auto const* name : {"a", "b", "c"})
        ASSERT_TRUE (folder.createSymbolicLink (folder.getChildFile (name), true));
    const auto listed = kelfinerWithin ({"presets"}, 20000);
    EXPECT_EQ (listed.exitCode, 0) << listed.output;
    EXPECT_TRUE (listed.output.contains ("Mine")) << listed.output;
    folder.deleteRecursively();
}

// A stray quote in a tag hid the nesting from the old depth check, and JUCE's reader then
// recursed once per "<a>" until the stack ran out. Refused, as is a document whose root is not a
// preset.
TEST (HostileInput, PresetsThatAreNotPresetsAreRefused)
{
    const Folder files;
    const auto file = files ("q.xml");
    juce::String deep;
    for (int i = 0; i < 40000; ++i)
        deep << "<a>";
    for (auto const* start : {"<Preset><x \"", "<Preset><x '", "<Preset><x y=z\""})
    {
        file.replaceWithText (juce::String (start) + deep);
        const auto run = kelfinerWithin ({"info", file.getFullPathName()}, 20000);
        EXPECT_EQ (run.exitCode, 1) << start << "\n" << run.output;
    }
    file.replaceWithText ("<Other><ParameterSettings><Parameter id=\"4\" value=\"-3\"/>"
                          "</ParameterSettings></Other>");
    EXPECT_EQ (kelfinerWithin ({"info", file.getFullPathName()}, 20000).exitCode, 1);
}

// An output that leads to an input by another path (a linked folder, /proc/self/root, a link as
// the filter) is still the input: refused, --force or not. The demo replaces only what an earlier
// demo made.
TEST (HostileInput, NoPathToAnInputIsAnOutput)
{
    const Folder files;
    const auto input = files ("in.wav");
    writeWav (input, vesk::test::whiteNoise (1, 9600, 3), 48000, 16);
    const auto before = input.loadFileAsString();
    const auto folderLink = files ("linked");
    ASSERT_TRUE (files ("x").getParentDirectory().createSymbolicLink (folderLink, true));
    const auto fileLink = files ("in-link.filter");
    ASSERT_TRUE (input.createSymbolicLink (fileLink, true));
    const auto in = input.getFullPathName();
    const juce::StringArray runs[] = {
        {"process", in, "-o", folderLink.getChildFile ("in.wav").getFullPathName(), "--force"},
        {"process", in, "-o", "/proc/self/root" + in, "--force"},
        {"process", in, "-o", files ("out.wav").getFullPathName(), "--save-filter",
         fileLink.getFullPathName(), "--force"},
        {"learn", in, "-o", fileLink.getFullPathName(), "--force"}};
    for (auto const& args : runs)
    {
        const auto run = kelfinerWithin (args, 60000);
        EXPECT_EQ (run.exitCode, 2) << args.joinIntoString (" ") << "\n" << run.output;
        EXPECT_TRUE (run.output.contains ("is read by this run")) << run.output;
    }
    EXPECT_EQ (input.loadFileAsString(), before);

    const auto demo = files ("demo");
    demo.createDirectory();
    demo.getChildFile ("corrected.wav").replaceWithText ("mine");
    EXPECT_EQ (kelfinerWithin ({"demo", "-o", demo.getFullPathName()}, 60000).exitCode, 2);
    EXPECT_EQ (demo.getChildFile ("corrected.wav").loadFileAsString(), "mine");
    EXPECT_EQ (kelfinerWithin ({"demo", "-o", demo.getFullPathName(), "--force"}, 60000).exitCode,
               0);
    EXPECT_EQ (kelfinerWithin ({"demo", "-o", demo.getFullPathName()}, 60000).exitCode, 0)
        << "its own files are made again";
}

// A disk that fills up while a result is written (here a limit on file sizes, which fails the
// same writes) leaves the good file that was there, and says so; what appeared at an output's
// place while a run was writing it is never replaced without --force.
TEST (HostileInput, AFullDiskReplacesNothing)
{
    const Folder files;
    const auto input = files ("in.wav");
    writeWav (input, vesk::test::whiteNoise (2, 96000, 4), 48000, 24);
    const auto output = files ("out.wav");
    output.replaceWithText ("a good file");
    // Blocks of 512 bytes: the result (over 500 kB) cannot be written whole.
    const auto command = juce::String ("trap '' XFSZ; ulimit -f 200; exec '") + KELFINER_TOOL
                         + "' process '" + input.getFullPathName() + "' -o '"
                         + output.getFullPathName() + "' --force --plot '"
                         + files ("plot.png").getFullPathName() + "'";
    juce::ChildProcess child;
    ASSERT_TRUE (child.start (juce::StringArray{"sh", "-c", command},
                              juce::ChildProcess::wantStdOut | juce::ChildProcess::wantStdErr));
    const auto text = child.readAllProcessOutput();
    ASSERT_TRUE (child.waitForProcessToFinish (60000));
    EXPECT_EQ (child.getExitCode(), 1u) << text;
    EXPECT_TRUE (text.contains ("disk full")) << text;
    EXPECT_EQ (output.loadFileAsString(), "a good file");
    EXPECT_FALSE (files ("plot.png").exists());

    const auto finished = files ("finished.tmp");
    finished.replaceWithText ("new");
    const auto place = files ("taken.txt");
    place.replaceWithText ("first");
    juce::String whyNot;
    EXPECT_FALSE (regularFile::moveIntoPlace (finished, place, false, &whyNot));
    EXPECT_TRUE (whyNot.contains ("another run")) << whyNot;
    EXPECT_EQ (place.loadFileAsString(), "first");
    EXPECT_TRUE (regularFile::moveIntoPlace (finished, place, true));
    EXPECT_EQ (place.loadFileAsString(), "new");
    EXPECT_FALSE (regularFile::writeWhole (juce::File ("/dev/full"), "x", 1, &whyNot));
    EXPECT_TRUE (whyNot.contains ("disk full")) << whyNot;
}

namespace
{
/** A WAV header for samples of any size, followed by noise. */
juce::MemoryBlock wavWithBits (int bits, int frames)
{
    juce::MemoryOutputStream out;
    const int channels = 2, bytesPerSample = (bits + 7) / 8,
              dataBytes = frames * channels * bytesPerSample;
    out.write ("RIFF", 4);
    out.writeInt (36 + dataBytes);
    out.write ("WAVEfmt ", 8);
    out.writeInt (16);
    out.writeShort (1);
    out.writeShort (channels);
    out.writeInt (48000);
    out.writeInt (48000 * channels * bytesPerSample);
    out.writeShort (static_cast<short> (channels * bytesPerSample));
    out.writeShort (static_cast<short> (bits));
    out.write ("data", 4);
    out.writeInt (dataBytes);
    juce::Random random (bits);
    for (int i = 0; i < dataBytes; ++i)
        out.writeByte (static_cast<char> (random.nextInt (256)));
    return out.getMemoryBlock();
}

void writeFlac (juce::File const& file, Signal32 const& signal)
{
    file.deleteFile();
    juce::FlacAudioFormat flac;
    auto stream = std::make_unique<juce::FileOutputStream> (file);
    std::unique_ptr<juce::AudioFormatWriter> writer (flac.createWriterFor (
        stream.release(), 48000, static_cast<unsigned> (signal.getNumChannels()), 16, {}, 0));
    ASSERT_NE (writer, nullptr);
    const float* channels[] = {signal[0], signal[signal.getNumChannels() - 1]};
    writer->writeFromFloatArrays (channels, signal.getNumChannels(), signal.getNumSamples());
}
} // namespace

// Files that are not audio, or are damaged, were "processed" with exit status 0: executables and
// WAVs with a zeroed header through the MP3 decoder's resynchronisation, odd sample sizes from
// uninitialised memory, cut or lying FLACs and cut WAV headers as silence, huge floats as NaN.
// Each is refused, or processed as far as it holds audio with a warning that says so.
TEST (HostileInput, DamagedAndForeignFilesAreNotPassedOffAsAudio)
{
    const Folder files;
    const auto out = files ("out.wav");
    const auto process = [&] (juce::File const& in)
    {
        out.deleteFile();
        return kelfinerWithin ({"process", in.getFullPathName(), "-o", out.getFullPathName()},
                               60000);
    };

    const auto executable = files ("program.wav");
    ASSERT_TRUE (juce::File ("/bin/ls").copyFileTo (executable));
    const auto zeroedHeader = files ("zeroed.wav");
    {
        auto wav = wavWithBits (16, 48000);
        std::memset (wav.getData(), 0, 44);
        zeroedHeader.replaceWithData (wav.getData(), wav.getSize());
    }
    const auto cutHeader = files ("cut-header.wav");
    cutHeader.replaceWithData (wavWithBits (16, 100).getData(), 40);
    for (auto const& foreign : {executable, zeroedHeader, cutHeader})
    {
        const auto run = process (foreign);
        EXPECT_EQ (run.exitCode, 1) << foreign.getFileName() << "\n" << run.output;
        EXPECT_FALSE (out.exists());
    }
    // Metadata JUCE's readers loop over or parse: an AIFF comment count far beyond its chunk
    // (found by fuzzing: 65393 comments in 18 bytes took seconds), WAV iXML nested past any
    // limit (JUCE's XML reader recurses once per level).
    const auto comments = files ("comments.aiff");
    juce::MemoryOutputStream aiff;
    ASSERT_TRUE (juce::Base64::convertFromBase64 (
        aiff, "Rk9STQAAA7JBSUZGQ09NVAAAABL/cQDzAAD/GEANrOgAAAAAACFTU05EAASsC3kRmQ=="));
    comments.replaceWithData (aiff.getData(), aiff.getDataSize());
    const auto ixml = files ("ixml.wav");
    {
        const auto sound = wavWithBits (16, 480);
        std::string text;
        for (int i = 0; i < 5000; ++i)
            text += "<a>";
        juce::MemoryOutputStream wav;
        wav.write ("RIFF", 4);
        wav.writeInt (static_cast<int> (sound.getSize() - 8 + 8 + text.size()));
        wav.write (static_cast<const char*> (sound.getData()) + 8, 28); // "WAVE" and "fmt "
        wav.write ("iXML", 4);
        wav.writeInt (static_cast<int> (text.size()));
        wav.write (text.data(), text.size());
        wav.write (static_cast<const char*> (sound.getData()) + 36, sound.getSize() - 36);
        ixml.replaceWithData (wav.getData(), wav.getDataSize());
    }
    for (auto const& damaged : {comments, ixml})
    {
        const auto run = process (damaged);
        EXPECT_EQ (run.exitCode, 1) << damaged.getFileName() << "\n" << run.output;
        EXPECT_TRUE (run.output.contains ("is damaged")) << run.output;
    }
    for (const int bits : {12, 20, 28})
    {
        const auto odd = files ("odd.wav");
        odd.replaceWithData (wavWithBits (bits, 4800).getData(),
                             wavWithBits (bits, 4800).getSize());
        const auto run = process (odd);
        EXPECT_EQ (run.exitCode, 1) << bits << " bits\n" << run.output;
        EXPECT_TRUE (run.output.contains ("unsupported sample size")) << run.output;
    }

    // A FLAC cut in half keeps its first half; one whose header claims a thousand times its
    // length gives what it holds; either says so.
    const auto whole = files ("whole.flac");
    writeFlac (whole, vesk::test::whiteNoise (2, 96000, 7));
    juce::MemoryBlock flac;
    whole.loadFileAsData (flac);
    const auto half = files ("half.flac");
    half.replaceWithData (flac.getData(), flac.getSize() / 2);
    auto lying = flac;
    auto* info = static_cast<unsigned char*> (lying.getData()) + 18;
    juce::uint64 packed = 0;
    for (int i = 0; i < 8; ++i)
        packed = (packed << 8) | info[i];
    packed = (packed & ~((juce::uint64 (1) << 36) - 1)) | (96000ull * 1000);
    for (int i = 7; i >= 0; --i, packed >>= 8)
        info[i] = static_cast<unsigned char> (packed & 0xFF);
    const auto claims = files ("lying.flac");
    claims.replaceWithData (lying.getData(), lying.getSize());
    for (auto const& [damaged, longest] : {std::pair{half, 49000}, std::pair{claims, 96000}})
    {
        const auto run = process (damaged);
        EXPECT_EQ (run.exitCode, 0) << run.output;
        EXPECT_TRUE (run.output.contains ("the file ends after")) << run.output;
        double rate = 0;
        int bits = 0;
        const auto written = readWav (out, rate, bits);
        EXPECT_GT (written.getNumSamples(), longest / 3);
        EXPECT_LE (written.getNumSamples(), longest);
    }
    const auto tiny = files ("tiny.flac");
    tiny.replaceWithData (flac.getData(), 42);
    EXPECT_EQ (process (tiny).exitCode, 1);

    // Finite but absurd floats are damage: silenced, counted, and the figures stay numbers.
    auto huge = vesk::test::whiteNoise (1, 48000, 8);
    for (int n = 0; n < 48000; n += 100)
        huge[0][n] = n % 200 == 0 ? 3.0e37f : -3.0e37f;
    const auto hugeFile = files ("huge.wav");
    writeWav (hugeFile, huge, 48000, 32);
    const auto run = process (hugeFile);
    EXPECT_EQ (run.exitCode, 0) << run.output;
    EXPECT_TRUE (run.output.contains ("480 input samples")) << run.output;
    EXPECT_FALSE (run.output.contains ("nan dB")) << run.output;
}

// A --report that cannot be written stops the run before any audio is; temporaries left by a
// killed run are swept; an all-zero filter is no target.
TEST (HostileInput, EveryOutputOrNoneAndNoEmptyTarget)
{
    const Folder files;
    const auto input = files ("in.wav");
    writeWav (input, vesk::test::whiteNoise (1, 9600, 9), 48000, 16);
    files ("blocked").replaceWithText ("a file where the report's folder would be");
    const auto run = kelfinerWithin ({"process", input.getFullPathName(), "-o",
                                      files ("out.wav").getFullPathName(), "--report",
                                      files ("blocked/run.json").getFullPathName()},
                                     60000);
    EXPECT_EQ (run.exitCode, 1) << run.output;
    EXPECT_FALSE (files ("out.wav").exists());

    // What a run killed outright left beside its output is swept by the next, once no run can
    // still be writing it.
    const auto stale = files ("out_tempdeadbeef.wav"), fresh = files ("out_temp0badcafe.wav");
    stale.replaceWithText ("left by a killed run");
    fresh.replaceWithText ("another run's, still being written");
    ASSERT_TRUE (stale.setLastModificationTime (juce::Time::getCurrentTime()
                                                - juce::RelativeTime::hours (1)));
    EXPECT_EQ (
        kelfinerWithin (
            {"process", input.getFullPathName(), "-o", files ("out.wav").getFullPathName()}, 60000)
            .exitCode,
        0);
    EXPECT_FALSE (stale.exists());
    EXPECT_TRUE (fresh.exists());
    files ("out.wav").deleteFile();

    const auto zeros = files ("zeros.filter");
    ASSERT_TRUE (FilterFile::write (zeros, Signal32 (1, 32, 0.0f), 48000.0));
    const auto refused = kelfinerWithin ({"process", input.getFullPathName(), "-o",
                                          files ("out.wav").getFullPathName(), "--target-filter",
                                          zeros.getFullPathName()},
                                         60000);
    EXPECT_NE (refused.exitCode, 0) << refused.output;
    EXPECT_FALSE (files ("out.wav").exists());
}
