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
        {{"--loudness", "loud"}, "--loudness \"loud\" is not a mode: it takes match or off"},
        {{"--target", "loud"}, "--target \"loud\" is not a target: it takes automatic, music"},
        {{"--estimator", "mean"}, "--estimator \"mean\" is not an estimator"},
        {{"--target", "custom"}, "--target custom needs --target-filter"},
        {{"--target", "speech", "--reference", in}, "--reference sets the custom target"},
        {{"--target", "speech", "--target", "music"}, "--target"},
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
    EXPECT_EQ (kelfiner ({"help", "nothing"}).exitCode, 2);

    const Folder files;
    writeWav (files ("in.wav"), colouredNoise ({}, 48000, 1, 3), 48000, 16);
    const auto run = kelfiner ({"process", files ("in.wav").getFullPathName(),
                                "--output=" + files ("out.wav").getFullPathName(),
                                "--target=speech", "--gain=-3", "--max-boost=12"});
    EXPECT_EQ (run.exitCode, 0) << run.output;
    EXPECT_TRUE (files ("out.wav").existsAsFile());
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
                   "--recursive", "--plot", files ("any.png").getFullPathName()});
    EXPECT_EQ (tree.exitCode, 1) << "one file failed:\n" << tree.output;
    EXPECT_TRUE (files ("tree/a.wav").existsAsFile());
    EXPECT_TRUE (files ("tree/a.png").existsAsFile());
    EXPECT_TRUE (files ("tree/day2/b.wav").existsAsFile());
    EXPECT_FALSE (files ("tree/day2/broken.wav").exists());
    EXPECT_TRUE (
        tree.output.contains ("kelfiner: " + takes.getFullPathName() + "/day2/broken.wav: "))
        << tree.output;

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
