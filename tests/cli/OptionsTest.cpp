// The tool's command line: every value checked, help where users look, batches from folders.
#include "ToolHelpers.h"

using namespace tool_test;

namespace
{
struct Refusal
{
    juce::StringArray options;
    juce::String says; // the option, the value and what is allowed
};
} // namespace

TEST (CommandLine, EveryMalformedOrOutOfRangeValueIsRefusedWithItsRange)
{
    const Folder files;
    writeWav (files ("in.wav"), colouredNoise ({}, 48000, 1, 3), 48000, 16);
    const auto in = files ("in.wav").getFullPathName(), out = files ("out.wav").getFullPathName();
    const std::vector<Refusal> table{
        {{"--gain", "100"}, "--gain 100 is out of range: it takes -24 .. 24 dB"},
        {{"--gain", "e"}, "--gain needs a number, not \"e\""},
        {{"--gain", "1-2"}, "--gain needs a number, not \"1-2\""},
        {{"--gain=nan"}, "--gain needs a number, not \"nan\""},
        {{"--threshold", "5"}, "--threshold 5 is out of range: it takes -112 .. -12 dB"},
        {{"--filter-length", "0"}, "--filter-length 0 is out of range: it takes 1 .. 20 ms"},
        {{"--emphasis", "50000:90"}, "--emphasis frequency 50000 is out of range: it takes 20 .."},
        {{"--emphasis", "1000:900"}, "--emphasis level 900 is out of range: it takes 0 .. 100 %"},
        {{"--emphasis", "1000"}, "--emphasis \"1000\" is not HZ:PERCENT"},
        {{"--jobs", "-5"}, "--jobs -5 is out of range: it takes 1 .. 256"},
        {{"--max-boost", "60"}, "--max-boost 60 is out of range: it takes 0 .. 48 dB"},
        {{"--smoothing=3"}, "--smoothing 3 is out of range: it takes 0 .. 2 octaves"},
        {{"--ceiling", "3"}, "--ceiling 3 is out of range: it takes -60 .. 0 dBFS"},
        {{"--loudness", "loud"}, "--loudness \"loud\" is not a mode: it takes match, off or a"},
        {{"--loudness", "-80LUFS"}, "--loudness -80 is out of range: it takes -70 .. 0 LUFS"},
        {{"--bits", "8"}, "--bits 8 is not a sample format: it takes 16, 24 or 32f"},
        {{"--format", "mp3"}, "--format \"mp3\" is not a format: it takes wav, flac or aiff"},
        {{"--format", "flac"},
         "-o " + out + " is a wav file: with --format flac, name it out.flac"},
        {{"--target", "loud"}, "--target \"loud\" is not a target: it takes automatic, music"},
        {{"--estimator", "mean"}, "--estimator \"mean\" is not an estimator"},
        {{"--target", "custom"}, "--target custom needs --target-filter"},
        {{"--target", "speech", "--reference", in}, "--reference sets the custom target"},
        {{"--target", "speech", "--target", "music"}, "--target was given more than once"},
        {{"--reference", in, "--target-filter", in}, "give one"},
        {{"--quiet", "--progress"}, "contradict"},
        {{"--bogus"}, "--bogus"},
    };
    for (auto const& row : table)
    {
        auto args = juce::StringArray{"process", in, "-o", out};
        args.addArray (row.options);
        const auto run = kelfiner (args);
        EXPECT_EQ (run.exitCode, 2) << row.options.joinIntoString (" ") << "\n" << run.output;
        EXPECT_TRUE (run.output.startsWith ("kelfiner process: ")) << run.output;
        EXPECT_TRUE (run.output.contains (row.says)) << run.output;
        EXPECT_EQ (run.output.trim().indexOfChar ('\n'), -1) << "one line:\n" << run.output;
    }
    EXPECT_FALSE (files ("out.wav").exists());

    // Options a command does not take are refused, not ignored.
    const auto learnPlot = kelfiner ({"learn", in, "-o", files ("x.filter").getFullPathName(),
                                      "--plot", files ("p.png").getFullPathName()});
    EXPECT_EQ (learnPlot.exitCode, 2) << learnPlot.output;
    EXPECT_TRUE (learnPlot.output.contains ("--plot")) << learnPlot.output;
    EXPECT_EQ (kelfiner ({"info", in, "--force"}).exitCode, 2);
    const auto missing = kelfiner ({"info", files ("none.filter").getFullPathName()});
    EXPECT_EQ (missing.exitCode, 2);
    EXPECT_TRUE (missing.output.contains ("no such file")) << missing.output;
}

// Run as users run it, found through PATH (argv[0] without a folder), the tool still finds its
// factory presets; and bash completion offers their names after --preset.
TEST (CommandLine, FoundThroughThePathItFindsItsPresets)
{
    const juce::File tool (KELFINER_TOOL);
    const auto path = tool.getParentDirectory().getFullPathName() + ":"
                      + juce::SystemStats::getEnvironmentVariable ("PATH", "/usr/bin:/bin");
    const auto completion = juce::File (KELFINER_SOURCE_DIR "/cli/share/kelfiner.bash");
    juce::ChildProcess shell;
    ASSERT_TRUE (shell.start (juce::StringArray{
        "bash", "-c",
        "export PATH='" + path + "'; cd / && kelfiner presets && source '"
            + completion.getFullPathName()
            + "' && COMP_WORDS=(kelfiner process in.wav --preset Pod) && COMP_CWORD=4 && _kelfiner;"
              " printf 'offered: %s\\n' \"${COMPREPLY[@]}\""}));
    const auto output = shell.readAllProcessOutput();
    EXPECT_TRUE (output.contains ("Podcast voice")) << output;
    EXPECT_TRUE (output.contains ("offered: Podcast voice")) << output;
}

TEST (CommandLine, HelpVersionAndGnuStyleValues)
{
    const auto help = kelfiner ({"help", "process"});
    EXPECT_EQ (help.exitCode, 0);
    EXPECT_TRUE (help.output.contains ("--max-boost")) << help.output;
    const auto direct = kelfiner ({"process", "--help"});
    EXPECT_EQ (direct.exitCode, 0);
    EXPECT_TRUE (direct.output.contains ("--max-boost")) << direct.output;
    EXPECT_FALSE (kelfiner ({"learn", "--help"}).output.contains ("--plot"));
    EXPECT_TRUE (kelfiner ({"--version"}).output.startsWith ("kelfiner " KELFINER_VERSION));
    const auto nothing = kelfiner ({"help", "nothing"});
    EXPECT_EQ (nothing.exitCode, 2);
    EXPECT_FALSE (nothing.output.contains ("help: help:")) << nothing.output;
    // The tool's page lists its commands; a command's names it in full and types its values.
    const auto page = kelfiner ({"help"});
    for (auto const* command : {"process", "analyse", "learn", "info", "presets", "demo"})
        EXPECT_TRUE (page.output.contains (juce::String ("  ") + command)) << page.output;
    EXPECT_TRUE (help.output.contains ("Usage: kelfiner process")) << help.output;
    EXPECT_TRUE (help.output.contains ("--gain DB")) << help.output;

    const Folder files;
    writeWav (files ("in.wav"), colouredNoise ({}, 48000, 1, 3), 48000, 16);
    const auto run = kelfiner ({"process", files ("in.wav").getFullPathName(),
                                "--output=" + files ("out.wav").getFullPathName(),
                                "--target=speech", "--gain=-3", "--max-boost=12"});
    EXPECT_EQ (run.exitCode, 0) << run.output;
    EXPECT_TRUE (files ("out.wav").existsAsFile());
    const auto noExtension = kelfiner ({"process", files ("in.wav").getFullPathName(), "-o",
                                        files ("result").getFullPathName(), "--format", "wav"});
    EXPECT_EQ (noExtension.exitCode, 2);
    EXPECT_TRUE (noExtension.output.contains ("has no extension: with --format wav, name it "
                                              "result.wav"))
        << noExtension.output;
    // A loudness as users write it.
    for (auto const* level : {"-16", "-16LUFS", "-16 LUFS"})
    {
        const auto levelled =
            kelfiner ({"analyse", files ("in.wav").getFullPathName(), "--loudness", level});
        EXPECT_EQ (levelled.exitCode, 0) << level << "\n" << levelled.output;
    }
    EXPECT_EQ (
        kelfiner ({"analyse", files ("in.wav").getFullPathName(), "--loudness", "loud"}).exitCode,
        2);
}

TEST (CommandLine, FoldersAreMirroredAndEveryFileIsAccountedFor)
{
    const Folder files;
    const auto takes = files ("takes");
    takes.getChildFile ("day2").createDirectory();
    writeWav (takes.getChildFile ("a.wav"), colouredNoise ({}, 44100, 1, 1), 44100, 16);
    writeWav (takes.getChildFile ("day2/b.wav"), colouredNoise ({}, 44100, 1, 2), 44100, 24);
    takes.getChildFile ("day2/broken.wav").replaceWithText ("not audio at all");
    takes.getChildFile ("notes.txt").replaceWithText ("not taken: not audio by its name");

    // Without --recursive only the folder's own files; with it, the tree is mirrored.
    const auto flat = kelfiner (
        {"process", takes.getFullPathName(), "-o", files ("flat").getFullPathName(), "--progress"});
    EXPECT_EQ (flat.exitCode, 0) << flat.output;
    EXPECT_TRUE (files ("flat/a.wav").existsAsFile());
    EXPECT_FALSE (files ("flat/day2").exists());
    EXPECT_TRUE (flat.output.contains ("[1/1] " + takes.getFullPathName() + "/a.wav finished"))
        << flat.output;

    const auto tree =
        kelfiner ({"process", takes.getFullPathName(), "-o", files ("tree").getFullPathName(),
                   "--recursive", "--plot", files ("any.png").getFullPathName(), "--progress"});
    EXPECT_EQ (tree.exitCode, 1) << "one file failed:\n" << tree.output;
    EXPECT_TRUE (tree.output.contains ("/day2/broken.wav failed at")) << tree.output;
    EXPECT_TRUE (files ("tree/a.wav").existsAsFile());
    EXPECT_TRUE (files ("tree/a.png").existsAsFile());
    EXPECT_TRUE (files ("tree/day2/b.wav").existsAsFile());
    EXPECT_FALSE (files ("tree/day2/broken.wav").exists());
    EXPECT_TRUE (
        tree.output.contains ("kelfiner: " + takes.getFullPathName() + "/day2/broken.wav: "))
        << tree.output;

    // A trailing slash names a folder, even for one input.
    EXPECT_EQ (kelfiner ({"process", takes.getChildFile ("a.wav").getFullPathName(), "-o",
                          files ("one").getFullPathName() + "/", "-q"})
                   .exitCode,
               0);
    EXPECT_TRUE (files ("one/a.wav").existsAsFile());

    // Quiet: nothing but errors.
    const auto quiet = kelfiner ({"process", takes.getChildFile ("a.wav").getFullPathName(), "-o",
                                  files ("q.wav").getFullPathName(), "-q"});
    EXPECT_EQ (quiet.exitCode, 0);
    EXPECT_TRUE (quiet.output.isEmpty()) << quiet.output;

    const auto empty = files ("empty");
    empty.createDirectory();
    const auto nothing =
        kelfiner ({"process", empty.getFullPathName(), "-o", files ("none").getFullPathName()});
    EXPECT_EQ (nothing.exitCode, 2);
    EXPECT_TRUE (nothing.output.contains ("no audio files")) << nothing.output;
}

namespace
{
int learntFrames (juce::String const& summary)
{
    return summary.fromFirstOccurrenceOf ("learnt ", false, false).getIntValue();
}
} // namespace

TEST (CommandLine, LevelFormatAndHowMuchIsCorrected)
{
    const Folder files;
    const auto loud = colouredNoise ({vesk::test::Biquad::lowPass (2500, 0.7, 48000),
                                      vesk::test::Biquad::peak (200, 1.0, 8, 48000)},
                                     48000, 2, 11);
    writeWav (files ("loud.wav"), loud, 48000, 24);
    writeWav (files ("quiet.wav"), loud * 0.03f, 48000, 24); // 30 dB down
    const auto process =
        [&] (juce::String const& in, juce::String const& out, juce::StringArray options)
    {
        auto args = juce::StringArray{"process", files (in).getFullPathName(), "-o",
                                      files (out).getFullPathName(), "--force"};
        args.addArray (options);
        const auto run = kelfiner (args);
        EXPECT_EQ (run.exitCode, 0) << args.joinIntoString (" ") << "\n" << run.output;
        return run.output;
    };

    // The default threshold follows the file's own level: turned down, it learns the same.
    const auto fromLoud = process ("loud.wav", "a.wav", {});
    EXPECT_GT (learntFrames (fromLoud), 0) << fromLoud;
    EXPECT_EQ (learntFrames (process ("quiet.wav", "b.wav", {})), learntFrames (fromLoud));
    EXPECT_EQ (learntFrames (process ("quiet.wav", "c.wav",
                                      {"--preset", "Automatic balance (averaged frames)"})),
               0)
        << "a preset's absolute threshold stays absolute";

    // --amount scales the correction in dB; --range holds it flat outside the band.
    const auto span = [] (juce::String const& summary)
    {
        const auto text = summary.fromFirstOccurrenceOf ("correction ", false, false);
        return text.fromFirstOccurrenceOf (".. ", false, false).getDoubleValue()
               - text.getDoubleValue();
    };
    const auto full = span (fromLoud);
    EXPECT_NEAR (span (process ("loud.wav", "d.wav", {"--amount", "50"})), full / 2.0, 0.2);
    EXPECT_NEAR (span (process ("loud.wav", "e.wav", {"--amount=0"})), 0.0, 0.05);
    const auto imposed = span (process ("loud.wav", "f.wav", {"--impose-target"}));
    EXPECT_LT (span (process ("loud.wav", "f.wav", {"--impose-target", "--range", "100:1000"})),
               imposed / 2.0);

    // A loudness target, 16-bit output (dithered, never clipped) and FLAC by request.
    const auto louder = process ("loud.wav", "g.flac",
                                 {"--loudness", "-16LUFS", "--bits", "16", "--format", "flac"});
    EXPECT_TRUE (louder.contains ("-> -16.0 LUFS") || louder.contains ("ceiling")) << louder;
    juce::AudioFormatManager formats;
    formats.registerBasicFormats();
    std::unique_ptr<juce::AudioFormatReader> flac (formats.createReaderFor (files ("g.flac")));
    ASSERT_NE (flac, nullptr);
    EXPECT_EQ (flac->bitsPerSample, 16u);
    EXPECT_EQ (flac->getFormatName(), "FLAC file");
    EXPECT_EQ (levelsOf (files ("a.wav")).clipped, 0);
}

TEST (CommandLine, ReportsAgreeWithTheSummaryAndAnalyseWritesNoAudio)
{
    const Folder files;
    writeWav (files ("in.wav"),
              colouredNoise ({vesk::test::Biquad::peak (3000, 1.0, 9, 44100)}, 44100, 2, 21), 44100,
              24);
    const auto processed = kelfiner ({"process", files ("in.wav").getFullPathName(), "-o",
                                      files ("out.wav").getFullPathName(), "--target", "music",
                                      "--report", files ("run.json").getFullPathName()});
    ASSERT_EQ (processed.exitCode, 0) << processed.output;
    const auto report = juce::JSON::parse (files ("run.json"));
    ASSERT_TRUE (report.isObject()) << files ("run.json").loadFileAsString();
    const auto entry = report["files"][0];
    EXPECT_TRUE (static_cast<bool> (entry["ok"]));
    EXPECT_EQ (entry["output"].toString(), files ("out.wav").getFullPathName());
    EXPECT_NEAR (static_cast<double> (entry["deviationDbRms"]["before"]),
                 deviationFrom (processed.output, false), 0.006);
    EXPECT_NEAR (static_cast<double> (entry["deviationDbRms"]["after"]),
                 deviationFrom (processed.output, true), 0.006);
    EXPECT_GT (entry["correction"]["curveHzDb"].size(), 25);
    EXPECT_LE (static_cast<double> (entry["peakDbfs"]["out"]), -1.0 + 1.0e-6);
    EXPECT_TRUE (entry["warnings"].isArray());
    // What was asked for, as the plot's title says it: the target, the estimator, the values.
    const auto settings = entry["settings"].toString();
    EXPECT_TRUE (settings.contains ("target: Music") && settings.contains ("long-term spectrum")
                 && settings.contains ("threshold") && settings.contains ("loudness kept"))
        << settings;
    EXPECT_TRUE (report["tool"].toString().startsWith ("kelfiner " KELFINER_VERSION));

    // The same measures without any audio written; an existing report needs --force.
    const auto analysed = kelfiner ({"analyse", files ("in.wav").getFullPathName(), "--target",
                                     "music", "--report", files ("run.json").getFullPathName()});
    EXPECT_EQ (analysed.exitCode, 2) << analysed.output;
    const auto forced =
        kelfiner ({"analyse", files ("in.wav").getFullPathName(), "--target", "music", "--report",
                   files ("run.json").getFullPathName(), "--force"});
    ASSERT_EQ (forced.exitCode, 0) << forced.output;
    EXPECT_NEAR (deviationFrom (forced.output, true), deviationFrom (processed.output, true),
                 0.006);
    EXPECT_TRUE (juce::JSON::parse (files ("run.json"))["files"][0]["output"].isVoid());
    EXPECT_EQ (files ("in.wav").getParentDirectory().getNumberOfChildFiles (juce::File::findFiles),
               3)
        << "in.wav, out.wav and the report; nothing more";
}

TEST (CommandLine, FactoryPresetsAreFoundByName)
{
    const auto list = kelfiner ({"presets"});
    EXPECT_EQ (list.exitCode, 0);
    EXPECT_TRUE (list.output.contains ("Podcast voice")) << list.output;
    EXPECT_TRUE (list.output.contains ("Speech")) << list.output;
    const auto info = kelfiner ({"info", "podcast voice"});
    EXPECT_EQ (info.exitCode, 0) << info.output;
    EXPECT_TRUE (info.output.contains ("Speech (--target speech)")) << info.output;
    EXPECT_TRUE (info.output.contains ("ms")) << info.output;
    // The settings beside the parameters come with a preset and are shown.
    EXPECT_TRUE (info.output.contains ("Long-term spectrum (--estimator spectrum)")) << info.output;
    EXPECT_TRUE (info.output.contains ("-36.0 dB under the material's level")) << info.output;
    EXPECT_TRUE (info.output.contains ("built-in targets followed only where the material "
                                       "departs, loudness kept, empty bands left alone, smoothed "
                                       "over 0.33 oct"))
        << info.output;
    // The original way is kept in a preset of its own, and a preset from before these settings
    // existed loads with it.
    const auto original = kelfiner ({"info", "Automatic balance (averaged frames)"});
    EXPECT_TRUE (original.output.contains ("Frame models averaged")) << original.output;
    EXPECT_TRUE (original.output.contains ("-36.0 dBFS")) << original.output;
    EXPECT_TRUE (original.output.contains ("correction limits  none")) << original.output;

    const Folder files;
    writeWav (files ("in.wav"), colouredNoise ({}, 48000, 1, 5), 48000, 16);
    const auto run = kelfiner ({"process", files ("in.wav").getFullPathName(), "-o",
                                files ("out.wav").getFullPathName(), "--preset", "Podcast voice"});
    EXPECT_EQ (run.exitCode, 0) << run.output;
    // "Reset", the plug-in's first program, is the tool's own default: the same samples.
    EXPECT_TRUE (list.output.contains ("Reset")) << list.output;
    for (auto const& [name, extra] : {std::pair{"plain.wav", ""}, {"reset.wav", "Reset"}})
    {
        juce::StringArray args{"process", files ("in.wav").getFullPathName(), "-o",
                               files (name).getFullPathName()};
        if (juce::String (extra).isNotEmpty())
            args.addArray ({"--preset", extra});
        ASSERT_EQ (kelfiner (args).exitCode, 0);
    }
    juce::MemoryBlock plain, reset;
    files ("plain.wav").loadFileAsData (plain);
    files ("reset.wav").loadFileAsData (reset);
    EXPECT_TRUE (plain == reset);
    const auto unknown = kelfiner ({"process", files ("in.wav").getFullPathName(), "-o",
                                    files ("x.wav").getFullPathName(), "--preset", "Nothing"});
    EXPECT_EQ (unknown.exitCode, 2);
    EXPECT_TRUE (unknown.output.contains ("kelfiner presets")) << unknown.output;
}
