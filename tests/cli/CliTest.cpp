// The command-line tool end to end: real files in, real files out, exit codes and messages.
#include "JuceTestEnvironment.h"
#include "LicenceToken.h"
#include "OwnUserFolders.h"
#include "Spectra.h"
#include "ToolHelpers.h"

#include <juce_audio_formats/juce_audio_formats.h>
#include <juce_graphics/juce_graphics.h>

#include <gtest/gtest.h>

using vesk::audio::Signal32;

using namespace tool_test;

TEST (KelfinerTool, ColouredNoiseComesOutCloserToTheTarget)
{
    const Folder files;
    writeWav (files ("dull.wav"),
              colouredNoise ({vesk::test::Biquad::lowPass (2000, 0.707, 48000)}, 48000, 6, 1),
              48000, 24);
    const auto run = kelfiner ({"process", files ("dull.wav").getFullPathName(), "-o",
                                files ("out.wav").getFullPathName(), "--target", "music",
                                "--impose-target", "--plot", files ("plot.png").getFullPathName(),
                                "--save-filter", files ("dull.filter").getFullPathName()});
    ASSERT_EQ (run.exitCode, 0) << run.output;
    EXPECT_GT (deviationFrom (run.output, false), 4.0) << run.output;
    EXPECT_LT (deviationFrom (run.output, true), 1.5) << run.output;
    EXPECT_TRUE (files ("plot.png").existsAsFile());
    EXPECT_NE (juce::ImageFileFormat::loadFrom (files ("plot.png")).getWidth(), 0);

    const auto info = kelfiner ({"info", files ("dull.filter").getFullPathName()});
    EXPECT_EQ (info.exitCode, 0);
    // The tool's own default model, the long-term spectrum's whitening filter: one design
    // transform long (8192 taps at 48 kHz).
    EXPECT_TRUE (info.output.contains ("8192 coefficients")) << info.output;
}

TEST (KelfinerTool, KeepsRateChannelsDepthAndLength)
{
    const Folder files;
    const auto input =
        colouredNoise ({vesk::test::Biquad::peak (3000, 1.0, 9.0, 44100)}, 44100, 3, 2);
    writeWav (files ("in.wav"), input, 44100, 24);
    const auto run = kelfiner ({"process", files ("in.wav").getFullPathName(), "-o",
                                files ("out.wav").getFullPathName(), "--live"});
    ASSERT_EQ (run.exitCode, 0) << run.output;
    double rate = 0;
    int bits = 0;
    const auto output = readWav (files ("out.wav"), rate, bits);
    EXPECT_EQ (rate, 44100.0);
    EXPECT_EQ (bits, 24);
    EXPECT_EQ (output.getNumChannels(), 2);
    EXPECT_EQ (output.getNumSamples(), input.getNumSamples());
}

TEST (KelfinerTool, ReadsOggVorbisAndWritesFlacAndAiff)
{
    const Folder files;
    const auto noise =
        colouredNoise ({vesk::test::Biquad::lowPass (3000, 0.707, 48000)}, 48000, 2, 6);
    {
        auto stream = std::make_unique<juce::FileOutputStream> (files ("in.ogg"));
        juce::OggVorbisAudioFormat ogg;
        std::unique_ptr<juce::AudioFormatWriter> writer (
            ogg.createWriterFor (stream.release(), 48000, 2, 16, {}, 5));
        ASSERT_NE (writer, nullptr);
        const float* channels[] = {noise[0], noise[1]};
        writer->writeFromFloatArrays (channels, 2, noise.getNumSamples());
    }
    double rate = 0;
    int bits = 0;
    const auto decoded = readWav (files ("in.ogg"), rate, bits);
    ASSERT_GT (decoded.getNumSamples(), 0);

    auto run = kelfiner ({"process", files ("in.ogg").getFullPathName(), "-o",
                          files ("out.flac").getFullPathName()});
    ASSERT_EQ (run.exitCode, 0) << run.output;

    // Told by content: Ogg under the .oga name, MP3 (encoded by lame, where it is installed)
    // under any name.
    ASSERT_TRUE (files ("in.ogg").copyFileTo (files ("in.oga")));
    EXPECT_EQ (kelfiner ({"process", files ("in.oga").getFullPathName(), "-o",
                          files ("oga.wav").getFullPathName()})
                   .exitCode,
               0);
    if (juce::File ("/usr/bin/lame").existsAsFile())
    {
        writeWav (files ("for-mp3.wav"), noise, 48000, 16);
        juce::ChildProcess lame;
        ASSERT_TRUE (lame.start (juce::StringArray{"/usr/bin/lame", "--quiet", "-b", "192",
                                                   files ("for-mp3.wav").getFullPathName(),
                                                   files ("take.bin").getFullPathName()}));
        lame.waitForProcessToFinish (60000);
        const auto mp3 = kelfiner ({"process", files ("take.bin").getFullPathName(), "-o",
                                    files ("mp3.wav").getFullPathName()});
        EXPECT_EQ (mp3.exitCode, 0) << mp3.output;
        // Decoded whole: two seconds hold 22 frames of 8192 samples overlapping by half.
        EXPECT_GT (mp3.output.fromFirstOccurrenceOf ("learnt ", false, false).getIntValue(), 20)
            << mp3.output;
    }
    const auto flac = readWav (files ("out.flac"), rate, bits);
    EXPECT_EQ (rate, 48000.0);
    EXPECT_EQ (flac.getNumChannels(), 2);
    EXPECT_EQ (flac.getNumSamples(), decoded.getNumSamples());

    run = kelfiner ({"process", files ("out.flac").getFullPathName(), "-o",
                     files ("out.aiff").getFullPathName()});
    ASSERT_EQ (run.exitCode, 0) << run.output;
    const auto aiff = readWav (files ("out.aiff"), rate, bits);
    EXPECT_EQ (aiff.getNumSamples(), flac.getNumSamples());
    EXPECT_EQ (bits, 16) << "the depth the first file was read at carries through";
}

TEST (KelfinerTool, AReferenceRecordingPullsTheSpectrumTowardsItself)
{
    const Folder files;
    writeWav (files ("bright.wav"),
              colouredNoise ({vesk::test::Biquad::peak (4000, 0.7, 10.0, 48000)}, 48000, 5, 3),
              48000, 24);
    writeWav (files ("dark.wav"),
              colouredNoise ({vesk::test::Biquad::lowPass (1500, 0.707, 48000)}, 48000, 5, 4),
              48000, 24);
    const auto run = kelfiner ({"process", files ("bright.wav").getFullPathName(), "-o",
                                files ("out.wav").getFullPathName(), "--reference",
                                files ("dark.wav").getFullPathName()});
    ASSERT_EQ (run.exitCode, 0) << run.output;
    const auto levels = [&] (juce::String const& name)
    {
        double rate = 0;
        int bits = 0;
        const auto signal = readWav (files (name), rate, bits);
        return vesk::test::thirdOctaveLevels (signal, rate, 100, 10000);
    };
    const auto before = levels ("bright.wav"), after = levels ("out.wav"),
               reference = levels ("dark.wav");
    const auto tilt = [] (vesk::test::BandLevels const& b) { return b.at (200) - b.at (6300); };
    EXPECT_GT (std::fabs (tilt (before) - tilt (reference)), 15.0);
    EXPECT_LT (std::fabs (tilt (after) - tilt (reference)), 3.0)
        << "before " << tilt (before) << ", after " << tilt (after) << ", reference "
        << tilt (reference);
}

TEST (KelfinerTool, ErrorsAreClearAndNothingIsLost)
{
    const Folder files;
    writeWav (files ("in.wav"), colouredNoise ({}, 48000, 1, 5), 48000, 16);
    EXPECT_EQ (kelfiner ({}).exitCode, 2);
    EXPECT_EQ (kelfiner ({"process", files ("in.wav").getFullPathName(), "--bogus"}).exitCode, 2);
    EXPECT_EQ (kelfiner ({"process", files ("in.wav").getFullPathName(), "-o",
                          files ("o.wav").getFullPathName(), "--target", "loud"})
                   .exitCode,
               2);

    const auto missing = kelfiner (
        {"process", files ("nope.wav").getFullPathName(), "-o", files ("o.wav").getFullPathName()});
    EXPECT_EQ (missing.exitCode, 2);
    EXPECT_TRUE (missing.output.contains ("nope.wav: no such file")) << missing.output;

    files ("text.wav").replaceWithText ("not audio");
    EXPECT_EQ (kelfiner ({"process", files ("text.wav").getFullPathName(), "-o",
                          files ("o.wav").getFullPathName()})
                   .exitCode,
               1);

    // Refused before anything runs (exit 2): an existing output of any kind without --force,
    // an output that the run also reads (even with --force), two results bound for one file.
    files ("existing.wav").replaceWithText ("precious");
    files ("existing.png").replaceWithText ("precious");
    const auto in = files ("in.wav").getFullPathName();
    const auto refusals = std::vector<juce::StringArray>{
        {"process", in, "-o", files ("existing.wav").getFullPathName()},
        {"process", in, "-o", files ("new.wav").getFullPathName(), "--plot",
         files ("existing.png").getFullPathName()},
        {"process", in, "-o", files ("new.wav").getFullPathName(), "--force", "--save-filter", in},
        {"process", in, "-o", files ("new.wav").getFullPathName(), "--force", "--plot", in},
        {"process", in, "-o", in, "--force"},
        {"learn", in, "-o", in, "--force"},
    };
    for (auto const& args : refusals)
    {
        const auto refused = kelfiner (args);
        EXPECT_EQ (refused.exitCode, 2) << args.joinIntoString (" ") << "\n" << refused.output;
    }
    EXPECT_EQ (files ("existing.wav").loadFileAsString(), "precious");
    EXPECT_EQ (files ("existing.png").loadFileAsString(), "precious");
    EXPECT_FALSE (files ("new.wav").exists());
    double rate = 0;
    int bits = 0;
    EXPECT_EQ (readWav (files ("in.wav"), rate, bits).getNumSamples(), 48000) << "input intact";

    files ("a").createDirectory();
    files ("b").createDirectory();
    files ("batch").createDirectory();
    ASSERT_TRUE (files ("in.wav").copyFileTo (files ("a").getChildFile ("x.wav")));
    ASSERT_TRUE (files ("in.wav").copyFileTo (files ("b").getChildFile ("x.wav")));
    const auto collision =
        kelfiner ({"process", files ("a").getChildFile ("x.wav").getFullPathName(),
                   files ("b").getChildFile ("x.wav").getFullPathName(), "-o",
                   files ("batch").getFullPathName()});
    EXPECT_EQ (collision.exitCode, 2) << collision.output;
    EXPECT_TRUE (collision.output.contains ("two results")) << collision.output;
    EXPECT_FALSE (files ("batch").getChildFile ("x.wav").exists());

    // All outputs of a file or none: a plot that cannot be written leaves no audio either.
    const auto halfway =
        kelfiner ({"process", in, "-o", files ("whole.wav").getFullPathName(), "--plot",
                   files ("nodir").getChildFile ("p.png").getFullPathName()});
    EXPECT_EQ (halfway.exitCode, 1) << halfway.output;
    EXPECT_FALSE (files ("whole.wav").exists());

    files ("bad.filter").replaceWithText ("garbage that is long enough to be read");
    EXPECT_EQ (kelfiner ({"process", files ("in.wav").getFullPathName(), "-o",
                          files ("o.wav").getFullPathName(), "--target-filter",
                          files ("bad.filter").getFullPathName()})
                   .exitCode,
               1);
    files ("bad.xml").replaceWithText ("<Preset>");
    EXPECT_EQ (kelfiner ({"process", files ("in.wav").getFullPathName(), "-o",
                          files ("o.wav").getFullPathName(), "--preset",
                          files ("bad.xml").getFullPathName()})
                   .exitCode,
               1);
    EXPECT_FALSE (files ("o.wav").exists()) << "no partial output after a failure";

    // No room for the output (a file-size limit stands in for a full disk): a clear error, and
    // nothing left behind.
    writeWav (files ("long.wav"), colouredNoise ({}, 48000, 2, 6), 48000, 24);
    juce::ChildProcess limited;
    ASSERT_TRUE (
        limited.start (juce::StringArray{"bash", "-c",
                                         "ulimit -f 200; exec \"" KELFINER_TOOL "\" process \""
                                             + files ("long.wav").getFullPathName() + "\" -o \""
                                             + files ("full.wav").getFullPathName() + "\""},
                       juce::ChildProcess::wantStdOut | juce::ChildProcess::wantStdErr));
    const auto message = limited.readAllProcessOutput();
    limited.waitForProcessToFinish (60000);
    EXPECT_EQ (limited.getExitCode(), 1u) << message;
    EXPECT_TRUE (message.contains ("write failed")) << message;
    EXPECT_FALSE (files ("full.wav").exists());
    EXPECT_EQ (files ("full.wav")
                   .getParentDirectory()
                   .findChildFiles (juce::File::findFiles, false, "*full*")
                   .size(),
               0);

    // Several inputs into a folder; one of them broken: the others are still written.
    const auto several =
        kelfiner ({"process", files ("in.wav").getFullPathName(),
                   files ("text.wav").getFullPathName(), "-o", files ("outs").getFullPathName()});
    EXPECT_EQ (several.exitCode, 1);
    EXPECT_TRUE (files ("outs").getChildFile ("in.wav").existsAsFile());
    EXPECT_FALSE (files ("outs").getChildFile ("text.wav").existsAsFile());
}

// The plug-ins' licence, managed from the tool: refused keys say why and change nothing.
TEST (CommandLine, LicenceCommandsExplainAndKeepWhatIsStored)
{
    using namespace vesk::licensing;
    const auto status = kelfiner ({"licence", "status"});
    EXPECT_EQ (status.exitCode, 0);
    EXPECT_TRUE (status.output.contains ("demo mode")) << status.output;

    const auto folder = juce::File::createTempFile ("keys");
    folder.createDirectory();
    folder.getChildFile ("random.key").replaceWithText ("not a key at all");
    auto refused =
        kelfiner ({"licence", "authorise", folder.getChildFile ("random.key").getFullPathName()});
    EXPECT_EQ (refused.exitCode, 1);
    EXPECT_TRUE (refused.output.contains ("not a licence key")) << refused.output;

    PublicKey publicKey;
    SecretKey secretKey;
    LicenceToken::makeKeyPair (publicKey, secretKey); // not the vendor's
    LicenceToken token;
    token.product = "Klfn";
    token.licensee = "Mallory";
    token.email = "m@example.org";
    token.serial = "FORGED";
    token.issued = "2026-01-01";
    folder.getChildFile ("forged.key").replaceWithText (token.sign (secretKey));
    refused =
        kelfiner ({"licence", "authorise", folder.getChildFile ("forged.key").getFullPathName()});
    EXPECT_EQ (refused.exitCode, 1);
    EXPECT_TRUE (refused.output.contains ("not genuine")) << refused.output;
    EXPECT_TRUE (kelfiner ({"licence", "status"}).output.contains ("demo mode"));
    EXPECT_EQ (kelfiner ({"licence", "deauthorise"}).exitCode, 0);
    const auto missing =
        kelfiner ({"licence", "authorise", folder.getChildFile ("no-such.key").getFullPathName()});
    EXPECT_EQ (missing.exitCode, 1);
    EXPECT_TRUE (missing.output.contains ("does not exist")) << missing.output;
    EXPECT_EQ (kelfiner ({"licence", "bogus"}).exitCode, 2);
    folder.deleteRecursively();
}

int main (int argc, char** argv)
{
    // The tool keeps the plug-ins' licence in the user's folder: the tests get a folder of their
    // own, passed on to the tool they start.
    const auto home = vesk::test::useOwnUserFolders ("kelfiner-cli-tests");
    testing::InitGoogleTest (&argc, argv);
    testing::AddGlobalTestEnvironment (new vesk::test::JuceTestEnvironment());
    const int result = RUN_ALL_TESTS();
    home.deleteRecursively();
    return result;
}

// A preset holding absurd values goes through the same check as every other entrance: clamped to
// the ranges (NaN to the default), so the output is neither full scale nor silent nor NaN.
TEST (KelfinerTool, PresetValuesAreCheckedLikeEveryOtherEntrance)
{
    const Folder files;
    // Quiet enough that the largest gain allowed (+24 dB) does not clip; 1e30 would.
    writeWav (files ("in.wav"),
              colouredNoise ({vesk::test::Biquad::lowPass (3000, 0.707, 48000)}, 48000, 2, 5)
                  * 0.01f,
              48000, 24);
    for (auto const& [gain, length] :
         {std::pair<const char*, const char*>{"1e30", "10"}, {"nan", "-5"}})
    {
        files ("p.xml").replaceWithText (
            juce::String ("<Preset><ParameterSettings>") + "<Parameter id=\"4\" value=\"" + gain
            + "\"/><Parameter id=\"2\" value=\"" + length + "\"/></ParameterSettings></Preset>");
        const auto run = kelfiner ({"process", files ("in.wav").getFullPathName(), "-o",
                                    files ("out.wav").getFullPathName(), "--force", "--threshold",
                                    "-90", "--preset", files ("p.xml").getFullPathName()});
        ASSERT_EQ (run.exitCode, 0) << run.output;
        EXPECT_FALSE (run.output.containsIgnoreCase ("nan")) << run.output;
        const auto levels = levelsOf (files ("out.wav"));
        EXPECT_LT (levels.clipped, levels.samples / 100) << "gain " << gain;
        EXPECT_GT (levels.energy, 0.01) << "gain " << gain << ", filter length " << length;
    }
}

// The tool's defaults keep the level: a speech-like signal that the correction lifts by a lot
// comes out as loud as it went in, with its peaks at or below -1 dBFS and no sample clipped;
// either guard can be switched off.
TEST (KelfinerTool, LoudnessAndPeaksAreKeptByDefault)
{
    const Folder files;
    // Bursts of dull noise with pauses, quiet at the top: the "music" target lifts the highs.
    auto input = colouredNoise ({vesk::test::Biquad::lowPass (800, 0.707, 48000),
                                 vesk::test::Biquad::lowPass (800, 0.707, 48000)},
                                48000, 6, 9);
    for (int c = 0; c < 2; ++c)
        for (int n = 0; n < input.getNumSamples(); ++n)
            input[c][n] *= (n / 12000) % 3 == 2 ? 0.02f : 2.5f;
    writeWav (files ("in.wav"), input, 48000, 16);

    const auto levels = [&] (juce::StringArray extra)
    {
        juce::StringArray args{"process", files ("in.wav").getFullPathName(),
                               "-o",      files ("out.wav").getFullPathName(),
                               "--force", "--target",
                               "music",   "--impose-target"};
        args.addArray (extra);
        const auto run = kelfiner (args);
        EXPECT_EQ (run.exitCode, 0) << run.output;
        const auto levels = levelsOf (files ("out.wav"));
        const float peak = levels.peak;
        const int clipped = levels.clipped;
        const auto loudness = run.output.fromLastOccurrenceOf ("loudness", false, false);
        const double in = loudness.getDoubleValue();
        const double out = loudness.fromFirstOccurrenceOf ("->", false, false).getDoubleValue();
        return std::make_tuple (in, out, peak, clipped, run.output);
    };

    // This material cannot be as loud as it was without clipping: the ceiling wins, and the
    // summary says by how much.
    const auto [in, out, peak, clipped, text] = levels ({});
    const double reduction = text.fromFirstOccurrenceOf ("dB, ", false, false)
                                 .fromLastOccurrenceOf ("dB, ", false, false)
                                 .getDoubleValue();
    EXPECT_GT (reduction, 0.5) << text;
    EXPECT_NEAR (out, in - reduction, 0.5) << text;
    EXPECT_LE (peak, std::pow (10.0f, -1.0f / 20.0f) + 1.0e-4f) << text;
    EXPECT_EQ (clipped, 0);
    EXPECT_TRUE (text.contains ("to keep peaks under the ceiling")) << text;

    const auto [in2, out2, peak2, clipped2, text2] = levels ({"--ceiling", "off"});
    EXPECT_NEAR (out2, in2, 0.5) << text2;
    EXPECT_GT (clipped2, 0) << "without the ceiling the matched level clips this material";

    const auto [in3, out3, peak3, clipped3, text3] = levels ({"--loudness", "off"});
    EXPECT_GT (std::fabs (out3 - in3), 1.0) << "the correction's own level matching moves it";
}

// An interrupted run (SIGTERM, as Ctrl-C or a closed terminal would) leaves no temporary file
// beside its outputs: cut at several moments, the folder holds the input alone, or the input
// and both finished outputs.
TEST (KelfinerTool, AnInterruptedRunLeavesNothingBehind)
{
    const Folder files;
    writeWav (files ("long.wav"), colouredNoise ({}, 48000, 60, 8), 48000, 24);
    int interrupted = 0;
    for (const char* after : {"0.15", "0.3", "0.45", "0.6", "0.75", "0.9"})
    {
        files ("out.wav").deleteFile();
        files ("out.png").deleteFile();
        const auto command = juce::String ("timeout -s TERM ") + after + " '" + KELFINER_TOOL
                             + "' process '" + files ("long.wav").getFullPathName() + "' -o '"
                             + files ("out.wav").getFullPathName() + "' --plot '"
                             + files ("out.png").getFullPathName() + "' > /dev/null 2>&1";
        interrupted += std::system (command.toRawUTF8()) != 0 ? 1 : 0;
        const auto left = files ("long.wav")
                              .getParentDirectory()
                              .findChildFiles (juce::File::findFiles, false, "*");
        EXPECT_TRUE (
            left.size() == 1
            || (left.size() == 3 && files ("out.wav").exists() && files ("out.png").exists()))
            << left.size() << " files after " << after << " s: " << left.getLast().getFileName();
    }
    EXPECT_GT (interrupted, 0);
}

// Files that lie or hold what audio should not: a header claiming more than the file holds is
// refused with what it claims; NaN and infinity in a float file are taken as silence, said in
// the summary, and never written.
TEST (KelfinerTool, LyingHeadersAndNonFiniteSamples)
{
    const Folder files;
    writeWav (files ("short.wav"), colouredNoise ({}, 48000, 1, 3), 48000, 16);
    {
        juce::MemoryBlock data;
        files ("short.wav").loadFileAsData (data);
        auto* bytes = static_cast<char*> (data.getData());
        for (std::size_t at = 12; at + 8 <= data.getSize(); ++at)
            if (std::memcmp (bytes + at, "data", 4) == 0)
            {
                juce::ByteOrder::littleEndianInt (bytes + at + 4);
                const std::uint32_t claim = 0xFFFFFF00u;
                std::memcpy (bytes + at + 4, &claim, 4);
                break;
            }
        files ("liar.wav").replaceWithData (data.getData(), data.getSize());
    }
    const auto lie = kelfiner ({"process", files ("liar.wav").getFullPathName(), "-o",
                                files ("liar-out.wav").getFullPathName()});
    EXPECT_EQ (lie.exitCode, 1) << lie.output;
    EXPECT_TRUE (lie.output.contains ("claims")) << lie.output;
    EXPECT_FALSE (files ("liar-out.wav").exists());

    // A metadata chunk claiming 3 GB in a file of a few hundred bytes: JUCE's reader would
    // allocate what it claims (found by fuzzing).
    {
        juce::MemoryBlock data;
        files ("short.wav").loadFileAsData (data);
        const char chunk[] = {'b', 'e', 'x', 't', 0, 0, 0, static_cast<char> (0xBE)};
        data.insert (chunk, sizeof (chunk), 12);
        files ("bext.wav").replaceWithData (data.getData(), data.getSize());
    }
    const auto bext = kelfiner ({"analyse", files ("bext.wav").getFullPathName()});
    EXPECT_EQ (bext.exitCode, 1) << bext.output;
    EXPECT_TRUE (bext.output.contains ("\"bext\" chunk")) << bext.output;

    auto poisoned = colouredNoise ({}, 48000, 2, 4);
    for (int n = 0; n < poisoned.getNumSamples(); n += 1000)
        poisoned[n % 2][n] = n % 3000 ? std::nanf ("") : INFINITY;
    writeWav (files ("nan.wav"), poisoned, 48000, 32);
    const auto run = kelfiner ({"process", files ("nan.wav").getFullPathName(), "-o",
                                files ("nan-out.wav").getFullPathName()});
    ASSERT_EQ (run.exitCode, 0) << run.output;
    EXPECT_TRUE (run.output.contains ("taken as silence")) << run.output;
    EXPECT_FALSE (run.output.containsIgnoreCase ("-nan")) << run.output;
    double rate = 0;
    int bits = 0;
    const auto output = readWav (files ("nan-out.wav"), rate, bits);
    double energy = 0.0;
    for (int c = 0; c < output.getNumChannels(); ++c)
        for (int n = 0; n < output.getNumSamples(); ++n)
        {
            ASSERT_TRUE (std::isfinite (output[c][n])) << c << " " << n;
            energy += output[c][n] * output[c][n];
        }
    EXPECT_GT (energy, 1.0) << "the rest of the file comes through";
}

// --gain comes after the loudness match, so it is heard in every loudness mode; --max-boost
// holds for every band of the result, whatever the gains after the correction ask for.
TEST (KelfinerTool, GainAndMaximumBoostHoldAfterEveryLevelStage)
{
    const Folder files;
    writeWav (files ("dull.wav"),
              colouredNoise ({vesk::test::Biquad::lowPass (2000, 0.707, 48000)}, 48000, 3, 21)
                  * 0.1f,
              48000, 24);
    const auto run = [&] (juce::String const& out, juce::StringArray extra)
    {
        juce::StringArray args{"process", files ("dull.wav").getFullPathName(), "-o",
                               files (out).getFullPathName()};
        args.addArray (extra);
        const auto result = kelfiner (args);
        EXPECT_EQ (result.exitCode, 0) << result.output;
        const auto loudness = result.output.fromLastOccurrenceOf ("loudness", false, false);
        return std::make_pair (loudness.fromFirstOccurrenceOf ("->", false, false).getDoubleValue()
                                   - loudness.getDoubleValue(),
                               result.output);
    };
    for (const char* mode : {"match", "off"})
    {
        const auto plain = run (juce::String ("a-") + mode + ".wav", {"--loudness", mode});
        const auto louder =
            run (juce::String ("b-") + mode + ".wav", {"--loudness", mode, "--gain", "6"});
        EXPECT_NEAR (louder.first - plain.first, 6.0, 0.3) << mode << "\n" << louder.second;
    }

    const auto [change, text] = run (
        "bounded.wav", {"--target", "music", "--impose-target", "--max-boost", "3", "--gain", "6"});
    EXPECT_TRUE (text.contains ("held back by the maximum boost")) << text;
    double rate = 0;
    int bits = 0;
    const auto input = readWav (files ("dull.wav"), rate, bits);
    const auto output = readWav (files ("bounded.wav"), rate, bits);
    const auto in = vesk::test::thirdOctaveLevels (input, rate, 40, 16000);
    const auto out = vesk::test::thirdOctaveLevels (output, rate, 40, 16000);
    for (std::size_t b = 0; b < in.levels.size(); ++b)
        EXPECT_LE (out.levels[b] - in.levels[b], 3.5) << in.centres[b] << " Hz\n" << text;
}
