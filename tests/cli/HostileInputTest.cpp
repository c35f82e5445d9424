// Hostile files as users and attackers hand them to the tool (and, through the same readers,
// to every plug-in instance): each is refused at once with a message, nothing hangs or crashes.
#include "ToolHelpers.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

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
