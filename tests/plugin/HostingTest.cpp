// The built VST3 and LV2 bundles, loaded through JUCE's own hosting code as a host would.
#include "AllocationGuard.h"
#include "JuceTestEnvironment.h"
#include "OwnUserFolders.h"
#include "Spectra.h"

#include <juce_audio_formats/juce_audio_formats.h>
#include <juce_audio_processors/juce_audio_processors.h>

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <thread>
#include <utility>

namespace
{
struct Bundle
{
    const char* format;
    const char* path;
};

std::unique_ptr<juce::AudioPluginInstance> load (juce::AudioPluginFormat& format,
                                                 juce::String const& identifier)
{
    juce::OwnedArray<juce::PluginDescription> types;
    format.findAllTypesForFile (types, identifier);
    if (types.isEmpty())
        return nullptr;
    juce::String error;
    auto instance = format.createInstanceFromDescription (*types[0], 48000.0, 512, error);
    EXPECT_TRUE (error.isEmpty()) << error;
    return instance;
}

juce::String identifierFor (juce::AudioPluginFormat& format, juce::String const& path)
{
    if (format.getName() != "LV2")
        return path;
    // An LV2 plug-in is found by its URI within the folders searched; JUCE's LV2 host also
    // lists what the system folders hold, so ours is picked by its URI.
    const auto found = format.searchPathsForPlugins (
        juce::FileSearchPath (juce::File (path).getParentDirectory().getFullPathName()), true,
        false);
    for (auto const& uri : found)
        if (uri == "https://vesk.digital/plugins/kelfiner")
            return uri;
    return {};
}

/** Streams a fixed test signal through a plug-in in the given block sizes. */
juce::AudioBuffer<float> run (juce::AudioPluginInstance& plugin, std::vector<int> const& blocks,
                              int total)
{
    juce::AudioBuffer<float> out (2, total);
    juce::MidiBuffer midi;
    int done = 0;
    for (std::size_t i = 0; done < total; ++i)
    {
        const int count = std::min (blocks[i % blocks.size()], total - done);
        juce::AudioBuffer<float> block (2, count);
        for (int c = 0; c < 2; ++c)
            for (int n = 0; n < count; ++n)
            {
                const auto t = static_cast<double> (done + n);
                block.setSample (c, n,
                                 static_cast<float> (0.3 * std::sin (0.031 * t + c)
                                                     + 0.1 * std::sin (0.47 * t)));
            }
        plugin.processBlock (block, midi);
        for (int c = 0; c < 2; ++c)
            out.copyFrom (c, done, block, c, 0, count);
        done += count;
    }
    return out;
}

juce::AudioProcessorParameter* parameterNamed (juce::AudioPluginInstance& plugin,
                                               juce::String const& name)
{
    for (auto* parameter : plugin.getParameters())
        if (parameter->getName (100) == name)
            return parameter;
    return nullptr;
}
} // namespace

class LoadedBundle : public testing::TestWithParam<Bundle>
{
protected:
    std::unique_ptr<juce::AudioPluginFormat> makeFormat() const
    {
        if (juce::String (GetParam().format) == "VST3")
            return std::make_unique<juce::VST3PluginFormat>();
        return std::make_unique<juce::LV2PluginFormat>();
    }
};

TEST_P (LoadedBundle, ParametersAutomationAudioAndStateRoundTrip)
{
    auto format = makeFormat();
    const auto identifier = identifierFor (*format, GetParam().path);
    ASSERT_TRUE (identifier.isNotEmpty()) << "no plug-in found at " << GetParam().path;
    auto first = load (*format, identifier);
    auto second = load (*format, identifier);
    ASSERT_NE (first, nullptr);
    ASSERT_NE (second, nullptr);
    EXPECT_TRUE (first->getName().contains ("Kelfiner"));

    // Every host wrapper sees the 43 parameters, with names, texts and defaults.
    auto const& parameters = first->getParameters();
    int named = 0;
    for (auto* parameter : parameters)
        named += parameter->getName (100).isNotEmpty() ? 1 : 0;
    EXPECT_GE (named, 43);
    auto* gain = parameterNamed (*first, "MasterGain");
    auto* mode = parameterNamed (*first, "EstimationMode");
    ASSERT_NE (gain, nullptr);
    ASSERT_NE (mode, nullptr);
    ASSERT_NE (parameterNamed (*first, "CurvePoint12Level"), nullptr);
    EXPECT_NEAR (gain->getDefaultValue(), 0.5f, 1e-6f);
    const bool ownTexts =
        juce::String (GetParam().format) == "VST3"; // an LV2 host formats values itself
    if (ownTexts)
    {
        EXPECT_TRUE (gain->getText (gain->getValue(), 100).startsWith ("0.00"));
        EXPECT_EQ (gain->getLabel(), "dB") << "the unit reaches the host";
        EXPECT_EQ (parameterNamed (*first, "CurvePoint3Frequency")->getLabel(), "Hz");
        EXPECT_EQ (parameterNamed (*first, "CurvePoint3Level")->getLabel(), "%");
    }
    EXPECT_NEAR (parameterNamed (*first, "CurvePoint3Frequency")->getDefaultValue(),
                 std::log10 (1000.0 / 20.0) / std::log10 (24000.0 / 20.0), 1e-4)
        << "1000 Hz, not 0, before any sample rate";

    // Learn from a first stretch of audio at odd and tiny block sizes, then hold.
    first->prepareToPlay (48000.0, 512);
    run (*first, {1, 17, 512, 333}, 48000);
    mode->setValueNotifyingHost (2.0f / 3.0f);
    gain->setValueNotifyingHost (0.75f); // +12 dB, as automation would set it
    if (ownTexts)
        EXPECT_TRUE (gain->getText (gain->getValue(), 100).startsWith ("12.00"));

    juce::MemoryBlock state;
    first->getStateInformation (state);
    second->setStateInformation (state.getData(), static_cast<int> (state.getSize()));
    // JUCE's LV2 host keeps its own copy of every value, refreshes it after a state only for
    // control ports (JUCE's LV2 plug-ins have patch parameters instead) and sends it to the
    // plug-in at the next block: the host's part of a restore is done by hand here.
    if (!ownTexts)
        for (int i = 0; i < first->getParameters().size(); ++i)
            second->getParameters()[i]->setValue (first->getParameters()[i]->getValue());
    EXPECT_NEAR (parameterNamed (*second, "MasterGain")->getValue(), 0.75f, 1e-6f);

    // From the same state, the same input and the same blocks, both instances give the same
    // bits. (A host restarts playback by deactivating first; only then is the filter's history
    // cleared. The announced block size picks a transform-based head, whose rounding depends on
    // where the blocks fall.)
    for (auto* instance : {first.get(), second.get()})
    {
        instance->releaseResources();
        instance->prepareToPlay (48000.0, 512);
    }
    const auto a = run (*first, {512, 1, 480}, 24000);
    const auto b = run (*second, {512, 1, 480}, 24000);
    double energy = 0.0;
    for (int c = 0; c < 2; ++c)
        for (int n = 0; n < 24000; ++n)
        {
            ASSERT_EQ (a.getSample (c, n), b.getSample (c, n))
                << "channel " << c << ", sample " << n;
            ASSERT_TRUE (std::isfinite (a.getSample (c, n)));
            energy += a.getSample (c, n) * a.getSample (c, n);
        }
    EXPECT_GT (energy, 1.0);

    // The automated gain really reached the engine: 12 dB less is a quarter of the amplitude.
    gain->setValueNotifyingHost (0.5f);
    first->releaseResources();
    first->prepareToPlay (48000.0, 512);
    const auto quieter = run (*first, {512}, 24000);
    EXPECT_NEAR (quieter.getMagnitude (0, 4800, 19200) / a.getMagnitude (0, 4800, 19200), 0.25f,
                 0.01f);
    first->releaseResources();
    second->releaseResources();
}

// Learning, the plug-in's audio thread allocates nothing, with either estimator (the long-term
// spectrum through its factory preset, as a host selects it). Checked through the LV2 build:
// JUCE's VST3 wrapper allocates a little on every call by itself, and its LV2 wrapper whenever
// the block length changes (so the blocks here keep one length; the processor's own test covers
// changing lengths).
class LearningThroughLV2 : public testing::TestWithParam<const char*>
{
};

TEST_P (LearningThroughLV2, AndAutomationAllocateNothingOnTheAudioThread)
{
    if (!vesk::test::AllocationGuard::isCounting())
        GTEST_SKIP() << "allocations are not counted under a sanitizer";
    juce::LV2PluginFormat format;
    auto plugin = load (format, identifierFor (format, KELFINER_LV2_PATH));
    ASSERT_NE (plugin, nullptr);
    ASSERT_NE (parameterNamed (*plugin, "EstimationMode"), nullptr);
    const juce::String preset = GetParam();
    int program = -1;
    for (int i = 0; i < plugin->getNumPrograms(); ++i)
        if (plugin->getProgramName (i) == preset)
            program = i;
    ASSERT_GE (program, 0) << preset;
    plugin->setCurrentProgram (program);
    // The host's saved state carries the plug-in's own, in JUCE's base-64, where the estimator
    // can be read.
    juce::MemoryBlock saved, own;
    plugin->getStateInformation (saved);
    own.fromBase64Encoding (saved.toString()
                                .fromFirstOccurrenceOf (":StateString> \"", false, false)
                                .upToFirstOccurrenceOf ("\"", false, false));
    const std::string bytes (static_cast<const char*> (own.getData()), own.getSize());
    EXPECT_EQ (bytes.find ("estimator=\"spectrum\"") != std::string::npos, preset == "Reset");
    plugin->prepareToPlay (48000.0, 512);
    run (*plugin, {512}, 96000);
    auto* gain = parameterNamed (*plugin, "MasterGain");
    auto* length = parameterNamed (*plugin, "FilterLength");

    juce::AudioBuffer<float> block (2, 512);
    juce::MidiBuffer midi;
    std::size_t allocations = 0;
    for (int i = 0; i < 300; ++i)
    {
        for (int c = 0; c < 2; ++c)
            for (int n = 0; n < 512; ++n)
                block.setSample (c, n, 0.2f * std::sin (0.01f * static_cast<float> (i * 512 + n)));
        juce::AudioBuffer<float> view (block.getArrayOfWritePointers(), 2, 512);
        // The LV2 wrapper reads the control ports on the audio thread, inside processBlock.
        gain->setValue (static_cast<float> (i % 10) / 10.0f);
        if (i % 30 == 0)
            length->setValue (static_cast<float> (i % 4) / 4.0f);
        const vesk::test::AllocationGuard guard;
        plugin->processBlock (view, midi);
        if (i >= 100)
            allocations += guard.count();
        if (i % 50 == 0)
            juce::Thread::sleep (5); // the design thread catches up
    }
    EXPECT_EQ (allocations, 0u) << "while learning, with automation";
}

INSTANTIATE_TEST_SUITE_P (Presets, LearningThroughLV2,
                          testing::Values ("Reset", "Automatic balance (averaged frames)"));

// What an LV2 host reads before it loads anything: every factory preset, and a maker whose
// e-mail is an address, not a path inside the bundle.
TEST (LV2BundleFiles, ListPresetsAndTheMaker)
{
    const juce::File bundle (KELFINER_LV2_PATH);
    const auto manifest = bundle.getChildFile ("manifest.ttl").loadFileAsString();
    const auto presets =
        bundle.getChildFile ("Presets").findChildFiles (juce::File::findFiles, false, "*.xml");
    EXPECT_EQ (presets.size(), 7);
    // The editor's "Help..." opens this page (the VST3 bundle keeps it under Contents/Resources).
    EXPECT_TRUE (bundle.getChildFile ("Kelfiner_en/kelfiner.html").existsAsFile());
    EXPECT_TRUE (juce::File (KELFINER_VST3_PATH)
                     .getChildFile ("Contents/Resources/Kelfiner_en/kelfiner.html")
                     .existsAsFile());
    int listed = 0;
    for (auto const& line : juce::StringArray::fromLines (manifest))
        listed += line.trim() == "a pset:Preset ;" ? 1 : 0;
    EXPECT_EQ (listed, presets.size() + 1) << "\"Reset\" and every factory preset";
    for (auto const& preset : presets)
        EXPECT_TRUE (manifest.contains ("\"" + preset.getFileNameWithoutExtension() + "\""));
    const auto plugin = bundle.getChildFile ("dsp.ttl").loadFileAsString();
    EXPECT_TRUE (plugin.contains ("foaf:mbox <mailto:"));
    EXPECT_TRUE (plugin.contains ("doap:description \"Tonal-balance correction"));
}

// The LV2 editor is opened as an LV2 host opens it, in Lv2EditorTest.cpp (JUCE's LV2 host embeds
// the plug-in's window through X and needs a window manager).
TEST (LoadedVST3Bundle, EditorOpensAndClosesAgainAndAgain)
{
    juce::VST3PluginFormat format;
    auto plugin = load (format, KELFINER_VST3_PATH);
    ASSERT_NE (plugin, nullptr);
    ASSERT_TRUE (plugin->hasEditor());
    for (int i = 0; i < 20; ++i)
    {
        std::unique_ptr<juce::AudioProcessorEditor> editor (plugin->createEditor());
        ASSERT_NE (editor, nullptr) << "opening " << i;
        EXPECT_GE (editor->getWidth(), 760);
        EXPECT_GE (editor->getHeight(), 480);
    }
}

// A host prepares one instance again and again (other block sizes, up and down, and rates from
// 22.05 to 384 kHz) while automation sent from another thread waits to be designed, saves and
// restores the state between, opens and closes the editor (the VST3's; the LV2's needs a window
// manager, see above) and plays on its own audio thread: the output stays finite and sounding.
// A heap overflow here once took both validators' hosts down.
TEST_P (LoadedBundle, PreparedAgainAndAgainWhileARedesignIsPending)
{
    auto format = makeFormat();
    auto plugin = load (*format, identifierFor (*format, GetParam().path));
    ASSERT_NE (plugin, nullptr);
    auto* target = parameterNamed (*plugin, "TargetModel");
    ASSERT_NE (target, nullptr);
    const bool vst3 = juce::String (GetParam().format) == "VST3";
    const std::pair<double, int> formats[] = {{44100, 64},    {44100, 128},  {48000, 256},
                                              {96000, 512},   {44100, 1024}, {22050, 32},
                                              {384000, 4096}, {192000, 100}, {48000, 2048}};
    int step = 0;
    for (const auto& [rate, blockSize] : formats)
    {
        SCOPED_TRACE (std::to_string (rate) + " Hz, blocks of " + std::to_string (blockSize));
        std::thread automation ([&, value = static_cast<float> (1 + step++ % 4) / 6.0f]
                                { target->setValue (value); });
        automation.join();
        plugin->releaseResources();
        plugin->prepareToPlay (rate, blockSize);
        juce::MemoryBlock state;
        plugin->getStateInformation (state);
        plugin->setStateInformation (state.getData(), static_cast<int> (state.getSize()));
        if (vst3)
            std::unique_ptr<juce::AudioProcessorEditor> (plugin->createEditor()).reset();

        juce::AudioBuffer<float> out;
        std::thread audio ([&, blocks = blockSize]
                           { out = run (*plugin, {blocks}, std::max (8 * blocks, 9600)); });
        audio.join();
        double energy = 0.0;
        for (int c = 0; c < 2; ++c)
            for (int n = 0; n < out.getNumSamples(); ++n)
            {
                ASSERT_TRUE (std::isfinite (out.getSample (c, n))) << "sample " << n;
                energy += out.getSample (c, n) * out.getSample (c, n);
            }
        EXPECT_GT (energy, 1.0);
    }
    plugin->releaseResources();
}

INSTANTIATE_TEST_SUITE_P (Formats, LoadedBundle,
                          testing::Values (Bundle{"VST3", KELFINER_VST3_PATH},
                                           Bundle{"LV2", KELFINER_LV2_PATH}),
                          [] (auto const& info) { return std::string (info.param.format); });

TEST (LoadedVST3Bundle, DemoModeMutesAtIntervals)
{
    // No licence in this test's own user folder (see main): the plug-in runs as a demo.
    juce::VST3PluginFormat format;
    auto plugin = load (format, KELFINER_VST3_PATH);
    ASSERT_NE (plugin, nullptr);
    plugin->setNonRealtime (true);
    plugin->prepareToPlay (8000.0, 1024);
    juce::AudioBuffer<float> block (2, 1024);
    juce::MidiBuffer midi;
    int silent = 0, sounding = 0;
    for (int b = 0; b < 8000 * 100 / 1024; ++b) // 100 s: at least one gap, wherever it falls
    {
        for (int c = 0; c < 2; ++c)
            for (int n = 0; n < 1024; ++n)
                block.setSample (c, n, 0.3f * std::sin (0.05f * (float) (b * 1024 + n)));
        plugin->processBlock (block, midi);
        const auto level = block.getMagnitude (0, 1024);
        silent += level == 0.0f ? 1 : 0;
        sounding += level > 1.0e-4f ? 1 : 0;
    }
    EXPECT_GE (silent, 10); // a gap is 2 to 3 s: 15 to 23 blocks of 1024 at 8 kHz
    EXPECT_LE (silent, 50);
    EXPECT_GT (sounding, 600); // and otherwise it plays
}

int main (int argc, char** argv)
{
    // The plug-ins keep presets and their licence in the user's folders: the tests get folders
    // of their own (so no licence: the plug-ins run as demos).
    const auto home = vesk::test::useOwnUserFolders ("kelfiner-host-tests");
    testing::InitGoogleTest (&argc, argv);
    testing::AddGlobalTestEnvironment (new vesk::test::JuceTestEnvironment());
    const int result = RUN_ALL_TESTS();
    home.deleteRecursively();
    return result;
}

// A host with a new instance (Learn on, "Automatic", the defaults) that learns through a file
// once and then holds it applies the correction the command-line tool applies to that file by
// default.
TEST (LearningThroughLV2, ADefaultInstanceCorrectsAsTheToolDoes)
{
    constexpr int length = 4 * 48000;
    // Noise with a resonance that the automatic profile answers.
    auto signal = vesk::test::colouredNoise ({vesk::test::Biquad::peak (1000, 4.0, 12.0, 48000),
                                              vesk::test::Biquad::lowPass (6000, 0.7, 48000)},
                                             length, 31)
                  * 0.1f;
    const auto folder = juce::File::createTempFile ("");
    ASSERT_TRUE (folder.createDirectory());
    const auto in = folder.getChildFile ("in.wav"), byTool = folder.getChildFile ("tool.wav");
    {
        juce::AudioBuffer<float> buffer (2, length);
        for (int c = 0; c < 2; ++c)
            buffer.copyFrom (c, 0, signal[0], length);
        std::unique_ptr<juce::AudioFormatWriter> writer (juce::WavAudioFormat().createWriterFor (
            new juce::FileOutputStream (in), 48000.0, 2, 32, {}, 0));
        ASSERT_NE (writer, nullptr);
        writer->writeFromAudioSampleBuffer (buffer, 0, length);
    }
    juce::ChildProcess tool;
    ASSERT_TRUE (tool.start (juce::StringArray{KELFINER_TOOL, "process", in.getFullPathName(), "-o",
                                               byTool.getFullPathName(), "--bits", "32f", "-q"}));
    tool.waitForProcessToFinish (60000);
    ASSERT_EQ (tool.getExitCode(), 0u) << tool.readAllProcessOutput();
    std::unique_ptr<juce::AudioFormatReader> reader (
        juce::WavAudioFormat().createReaderFor (new juce::FileInputStream (byTool), true));
    ASSERT_NE (reader, nullptr);
    vesk::audio::Signal32 fromTool (1, length);
    {
        juce::AudioBuffer<float> buffer (2, length);
        reader->read (&buffer, 0, length, 0, true, true);
        std::copy (buffer.getReadPointer (0), buffer.getReadPointer (0) + length, fromTool[0]);
    }

    juce::LV2PluginFormat format;
    auto plugin = load (format, identifierFor (format, KELFINER_LV2_PATH));
    ASSERT_NE (plugin, nullptr);
    const auto pass = [&]
    {
        plugin->prepareToPlay (48000.0, 512);
        vesk::audio::Signal32 out (1, length);
        juce::MidiBuffer midi;
        for (int done = 0; done < length; done += 512)
        {
            const int count = std::min (512, length - done);
            juce::AudioBuffer<float> block (2, count);
            for (int c = 0; c < 2; ++c)
                block.copyFrom (c, 0, signal[0] + done, count);
            plugin->processBlock (block, midi);
            std::copy (block.getReadPointer (0), block.getReadPointer (0) + count, out[0] + done);
        }
        plugin->releaseResources();
        return out;
    };
    pass();                                                                          // learns
    parameterNamed (*plugin, "EstimationMode")->setValueNotifyingHost (2.0f / 3.0f); // holds
    const auto fromHost = pass();

    const auto original = vesk::test::thirdOctaveLevels (signal, 48000.0, 50, 16000);
    const auto byFile = vesk::test::thirdOctaveLevels (fromTool, 48000.0, 50, 16000);
    const auto host = vesk::test::thirdOctaveLevels (fromHost, 48000.0, 50, 16000);
    double offset = 0.0, largest = 0.0;
    for (std::size_t b = 0; b < host.levels.size(); ++b)
        offset += (host.levels[b] - byFile.levels[b]) / static_cast<double> (host.levels.size());
    for (std::size_t b = 0; b < host.levels.size(); ++b)
    {
        EXPECT_NEAR (host.levels[b] - byFile.levels[b] - offset, 0.0, 0.5)
            << host.centres[b] << " Hz";
        largest = std::max (largest, std::fabs (byFile.levels[b] - original.levels[b]));
    }
    EXPECT_LT (std::fabs (offset), 1.0) << "the loudness, kept by both";
    EXPECT_GT (largest, 3.0) << "a correction to compare";
    folder.deleteRecursively();
}
