#include "AllocationGuard.h"
#include "AudioThreads.h"
#include "FilterFile.h"
#include "KelfinerAudioProcessor.h"
#include "ProcessorHelpers.h"
#include "TestSignals.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <random>
#include <thread>
#include <utility>

using vesk::audio::Deconvolution;
using vesk::audio::Signal32;
using vesk::test::CountingListener;
using vesk::test::ramp;
using vesk::test::stateOf;

JUCE_BEGIN_IGNORE_WARNINGS_GCC_LIKE ("-Wdeprecated-declarations")

TEST (KelfinerParameters, FortyThreeInterleavedParametersWithTheirNamesAndTexts)
{
    KelfinerAudioProcessor processor;
    ASSERT_EQ (processor.getNumParameters(), 43);
    EXPECT_EQ (processor.getParameterName (0), "EstimationMode");
    EXPECT_EQ (processor.getParameterName (4), "MasterGain");
    EXPECT_EQ (processor.getParameterName (7), "CurvePoint1Enabled");
    EXPECT_EQ (processor.getParameterName (8), "CurvePoint1Frequency");
    EXPECT_EQ (processor.getParameterName (41), "CurvePoint12Frequency");
    EXPECT_EQ (processor.getParameterName (42), "CurvePoint12Level");
    EXPECT_EQ (processor.getInternalParameterId (PublicParameterIndex (41)),
               EngineParameterId (30));
    EXPECT_EQ (processor.getInternalParameterId (PublicParameterIndex (42)),
               EngineParameterId (42));
    EXPECT_EQ (processor.findPublicParameterIndex (EngineParameterId (19)),
               PublicParameterIndex (8));

    EXPECT_EQ (processor.getParameterText (5), "On ")
        << "a switch, with the trailing space of its empty unit";
    EXPECT_EQ (processor.getParameterText (4), "0.00 dB");
    EXPECT_EQ (processor.getParameterText (0), "1.00 ")
        << "a step of 1 over 0..3 is a number, not a switch";
    processor.setParameter (5, 0.5f);
    EXPECT_EQ (processor.getParameterText (5), "Off ") << "0.5 is not above 0.5";
    processor.setParameter (4, (3.0f + 24.0f) / 48.0f);
    EXPECT_EQ (processor.getParameterText (4), "3.00 dB");

    for (int index : {-1, 43})
    {
        EXPECT_EQ (processor.getParameter (index), -1.0f);
        EXPECT_EQ (processor.getParameterDefaultValue (index), 0.0f);
        EXPECT_TRUE (processor.getParameterName (index).isEmpty());
        EXPECT_TRUE (processor.getParameterText (index).isEmpty());
        processor.setParameter (index, 0.5f);
    }
    EXPECT_FALSE (processor.findPublicParameterIndex (EngineParameterId (99)).isValid());
    processor.notifyInternalParameterChange (EngineParameterId (99));
    EXPECT_FLOAT_EQ (processor.getParameterDefaultValue (4), 0.5f);
}

TEST (KelfinerParameters, LogarithmicFrequenciesFollowTheSampleRate)
{
    KelfinerAudioProcessor processor;
    processor.prepareToPlay (40000.0, 512); // frequency range 20 .. 20000 Hz
    auto& engine = processor.getEngine();
    engine.setParameterValue (Deconvolution::emphasisPointFrequencyIndex, 200.0f, false);
    EXPECT_NEAR (processor.getParameter (8), 1.0f / 3.0f, 1e-6f);
    engine.setParameterValue (Deconvolution::emphasisPointFrequencyIndex, 2000.0f, false);
    EXPECT_NEAR (processor.getParameter (8), 2.0f / 3.0f, 1e-6f);
    processor.setParameter (8, 0.5f);
    EXPECT_NEAR (engine.getParameterValue (Deconvolution::emphasisPointFrequencyIndex), 632.456f,
                 0.01f);

    // Round trips at every public parameter, over the ranges of another rate.
    processor.prepareToPlay (96000.0, 64);
    for (int i = 0; i < 43; ++i)
    {
        const bool integer = i == 0 || i == 3 || i == 5 || i == 6 || (i >= 7 && (i - 7) % 3 == 0);
        if (integer)
            continue;
        for (float n : {0.0f, 0.25f, 0.8f, 1.0f})
        {
            processor.setParameter (i, n);
            ASSERT_NEAR (processor.getParameter (i), n, 1e-5f) << i;
        }
    }
    // The same plain frequency reads as another normalised value at another rate.
    engine.setParameterValue (Deconvolution::emphasisPointFrequencyIndex, 1000.0f, false);
    const float at96 = processor.getParameter (8);
    processor.prepareToPlay (44100.0, 64);
    EXPECT_GT (processor.getParameter (8), at96);
}

TEST (KelfinerParameters, ListenersAreToldLastFirstAndMayRemoveThemselves)
{
    KelfinerAudioProcessor processor;
    CountingListener first, second;
    processor.addListener (&first);
    processor.addListener (&second);
    processor.addListener (&second);
    processor.addListener (static_cast<BasePlugInProcessor::Listener*> (nullptr));
    second.onCall = [&] { processor.removeListener (&second); };
    processor.setParameter (4, 0.7f);
    EXPECT_EQ (second.calls, std::vector<int>{4});
    EXPECT_EQ (first.calls, std::vector<int>{4});
    processor.setParameter (43, 0.7f);
    EXPECT_EQ (first.calls.size(), 1u);
    processor.removeListener (&first);
}

TEST (KelfinerEnvironment, NamesVersionCodesAndSpeakers)
{
    KelfinerAudioProcessor processor;
    EXPECT_EQ (processor.getName(), "Vesk Digital Kelfiner");
    EXPECT_EQ (BasePlugInProcessor::versionCodeOf ("3.10.7"), (3u << 16) + (10u << 8) + 7u);
    EXPECT_EQ (BasePlugInProcessor::versionCodeOf ("1.2"), 0x010200u);
    EXPECT_EQ (BasePlugInProcessor::versionCodeOf ("1.x.3"), 0x010003u);
    EXPECT_EQ (processor.getInputChannelName (1), "2");

    using vesk::audio::SpeakerPosition;
    EXPECT_EQ (BasePlugInProcessor::speakerIdToPosition ("lfe1"), SpeakerPosition (-1, 1, 0, 2));
    EXPECT_EQ (BasePlugInProcessor::speakerIdToPosition ("LFE1"), SpeakerPosition (-1, 1, 0, 2));
    EXPECT_EQ (BasePlugInProcessor::speakerIdToPosition ("Lfe3"), SpeakerPosition());
    EXPECT_EQ (BasePlugInProcessor::speakerIdToPosition ("LS"), SpeakerPosition (-1, -1, 0, 0));
    EXPECT_EQ (BasePlugInProcessor::speakerIdToPosition ("m"), SpeakerPosition (0, 1, 0, 1));
    EXPECT_EQ (BasePlugInProcessor::speakerIdToPosition ("Tfc"), SpeakerPosition (0, 0, 1, 0));

    std::unique_ptr<juce::PropertiesFile> properties (processor.createPropertiesFile());
    EXPECT_TRUE (properties->getFile().getFileName().startsWith ("Kelfiner1"));
    EXPECT_EQ (properties->getFile().getParentDirectory(),
               processor.getUserDataFolder().getParentDirectory())
        << "under ~/.config with the presets, not in a folder of its own in the home folder";
    EXPECT_TRUE (processor.getHelpFilePath ("de").endsWith ("Kelfiner_en/kelfiner.html"))
        << "falls back to English";
    // Where the page is not (the test program has no resources beside it), "Help..." says so.
    EXPECT_TRUE (processor.showHelp().contains ("missing"));
}

// Any matching channel count works, beyond the named layouts with a position for every channel;
// a format the engine refuses passes the audio through untouched and says why.
TEST (KelfinerStreaming, AnyChannelCountAndRefusedFormatsPassThrough)
{
    KelfinerAudioProcessor processor;
    EXPECT_TRUE (processor.silenceInProducesSilenceOut());
    const auto twelve = juce::AudioChannelSet::discreteChannels (12);
    ASSERT_TRUE (processor.setBusesLayout ({{twelve}, {twelve}}));
    processor.prepareToPlay (48000.0, 256);
    const auto& format = processor.getEngine().getInputFormat();
    ASSERT_EQ (format.channelCount, 12);
    for (int i = 0; i < 12; ++i)
    {
        EXPECT_NE (format.speakers[static_cast<std::size_t> (i)].type,
                   vesk::audio::SpeakerPosition::unassigned);
        for (int j = 0; j < i; ++j)
            EXPECT_FALSE (format.speakers[static_cast<std::size_t> (i)]
                          == format.speakers[static_cast<std::size_t> (j)]);
    }
    processor.setParameter (0, 2.0f / 3.0f); // hold: a flat correction
    juce::AudioBuffer<float> buffer (12, 256);
    juce::MidiBuffer midi;
    for (int block = 0; block < 20; ++block)
    {
        for (int c = 0; c < 12; ++c)
            for (int n = 0; n < 256; ++n)
                buffer.setSample (c, n, 0.1f * std::sin (0.05f * static_cast<float> (n + c)));
        processor.processBlock (buffer, midi);
    }
    for (int c = 0; c < 12; ++c)
        EXPECT_GT (buffer.getRMSLevel (c, 0, 256), 0.03f) << "channel " << c;
    EXPECT_TRUE (processor.getFormatProblem().isEmpty());

    processor.prepareToPlay (500.0, 256); // no engine runs at 500 Hz
    EXPECT_TRUE (processor.getFormatProblem().contains ("500 Hz")) << processor.getFormatProblem();
    for (int c = 0; c < 12; ++c)
        for (int n = 0; n < 256; ++n)
            buffer.setSample (c, n, 0.25f * static_cast<float> ((n + c) % 7));
    juce::AudioBuffer<float> original (buffer);
    processor.processBlock (buffer, midi);
    for (int c = 0; c < 12; ++c)
        for (int n = 0; n < 256; ++n)
            ASSERT_EQ (buffer.getSample (c, n), original.getSample (c, n));

    processor.prepareToPlay (44100.0, 256);
    EXPECT_TRUE (processor.getFormatProblem().isEmpty()) << "a rate it can run clears it";
}

// Learning with its redesigns, at changing block sizes (one larger than announced), with host
// automation delivered on the audio side from the first block on, by two audio threads that
// take turns (neither is the message thread): nothing allocates there.
TEST (KelfinerStreaming, LearningAndAutomationAllocateNothingOnTheAudioThread)
{
    if (!vesk::test::AllocationGuard::isCounting())
        GTEST_SKIP() << "allocations are not counted under a sanitizer";
    {
        const vesk::test::AllocationGuard guard;
        auto* probe = new std::vector<int> (100);
        delete probe;
        ASSERT_EQ (guard.count(), 2u) << "the guard sees allocations at all";
    }
    KelfinerAudioProcessor processor;
    processor.prepareToPlay (48000.0, 512);
    juce::AudioBuffer<float> block (2, 1500);
    std::size_t allocations = 0;
    vesk::test::onTwoAlternatingThreads (
        600,
        [&] (int i)
        {
            for (int c = 0; c < 2; ++c)
                for (int n = 0; n < 1500; ++n)
                    block.setSample (
                        c, n, 0.2f * std::sin (0.01f * static_cast<float> (i * 512 + n + c)));
            const int size = i % 4 == 0 ? 512 : (i % 4 == 1 ? 480 : (i % 4 == 2 ? 64 : 1500));
            juce::AudioBuffer<float> view (block.getArrayOfWritePointers(), 2, size);
            juce::MidiBuffer midi;
            const vesk::test::AllocationGuard guard;
            processor.setParameter (4, static_cast<float> (i % 10) / 10.0f); // MasterGain
            if (i % 25 == 0)
                processor.setParameter (2, static_cast<float> (i % 3) / 3.0f); // FilterLength
            if (i % 40 == 0)
                processor.setParameter (9, static_cast<float> (i % 7) / 7.0f); // CurvePoint1Level
            processor.processBlock (view, midi);
            allocations += guard.count();
            if (i % 50 == 0)
                juce::Thread::sleep (10); // the design thread catches up
        });
    EXPECT_EQ (allocations, 0u);
    EXPECT_GT (processor.getEngine().getInstalledDesigns(), 3u);
}

// A host prepares one instance again and again: block sizes up and down, rates from 22.05 to
// 384 kHz, a redesign pending from automation each time, the state saved and restored between.
// After every prepare the output is the convolution of the input with the engine's correction.
TEST (KelfinerStreaming, PreparedAgainAtOtherBlockSizesAndRates)
{
    KelfinerAudioProcessor processor;
    processor.setCheckedParameterValue (EngineParameterId (Deconvolution::estimationModeIndex),
                                        2.0f); // fixed filter
    const std::pair<double, int> formats[] = {{44100, 64},    {44100, 128},  {48000, 256},
                                              {96000, 512},   {88200, 1024}, {22050, 32},
                                              {384000, 4096}, {192000, 100}, {48000, 2048}};
    int step = 0;
    for (const auto& format : formats)
    {
        const double rate = format.first; // (clang's C++17 lambdas take no structured bindings)
        const int blockSize = format.second;
        SCOPED_TRACE (std::to_string (rate) + " Hz, blocks of " + std::to_string (blockSize));
        vesk::test::onAnotherThread (
            [&]
            {
                processor.setParameter (3, static_cast<float> (1 + step % 4) / 6.0f);
            }); // TargetModel, left to the design thread
        processor.prepareToPlay (rate, blockSize);
        const auto state = stateOf (processor);
        processor.setStateInformation (state.getData(), static_cast<int> (state.getSize()));

        const auto input = vesk::test::whiteNoise (2, 6000, static_cast<std::uint32_t> (++step));
        Signal32 output (2, input.getNumSamples());
        vesk::test::onAnotherThread (
            [&]
            {
                juce::MidiBuffer midi;
                for (int done = 0; done < input.getNumSamples(); done += blockSize)
                {
                    const int count = std::min (blockSize, input.getNumSamples() - done);
                    juce::AudioBuffer<float> buffer (2, count);
                    for (int c = 0; c < 2; ++c)
                        buffer.copyFrom (c, 0, input[c] + done, count);
                    processor.processBlock (buffer, midi);
                    for (int c = 0; c < 2; ++c)
                        std::copy (buffer.getReadPointer (c), buffer.getReadPointer (c) + count,
                                   output[c] + done);
                }
            });
        EXPECT_LT (vesk::test::convolutionError (input, output,
                                                 processor.getEngine().getImpulseResponse()),
                   1e-5);
    }
}

// Two threads writing one parameter (a host's automation and its user, say) cannot leave the
// processor's view and the engine apart: the processor keeps no copy, and what a state saves
// is what it restores.
TEST (KelfinerParameters, ConcurrentWritersLeaveOneValue)
{
    KelfinerAudioProcessor processor;
    processor.prepareToPlay (48000.0, 256);
    std::atomic<bool> go{false};
    const auto writer = [&] (float offset)
    {
        while (!go)
            std::this_thread::yield();
        for (int i = 0; i < 300; ++i)
            processor.setParameter (0, std::fmod (offset + 0.37f * static_cast<float> (i), 1.0f));
    };
    std::thread a (writer, 0.1f), b (writer, 0.6f);
    go = true;
    a.join();
    b.join();
    const float mode = processor.getEngine().getParameterValue (Deconvolution::estimationModeIndex);
    EXPECT_FLOAT_EQ (processor.getParameter (0), mode / 3.0f);
    const auto saved = stateOf (processor);
    processor.setParameter (0, mode > 1.5f ? 0.0f : 1.0f);
    processor.setStateInformation (saved.getData(), static_cast<int> (saved.getSize()));
    EXPECT_EQ (processor.getEngine().getParameterValue (Deconvolution::estimationModeIndex), mode);
    EXPECT_FLOAT_EQ (processor.getParameter (0), mode / 3.0f);
}

// Values from a host, a state block or a preset are clamped to the parameter's range; NaN falls
// back to the default. The emphasis frequencies have a range before any sample rate exists.
TEST (KelfinerParameters, EveryEntranceClampsToTheRange)
{
    KelfinerAudioProcessor processor;
    auto& engine = processor.getEngine();
    EXPECT_NEAR (processor.getParameterDefaultValue (8),
                 std::log10 (1000.0 / 20.0) / std::log10 (24000.0 / 20.0), 1e-5)
        << "CurvePoint1Frequency: 1000 Hz at a nominal 48 kHz";
    EXPECT_EQ (processor.getParameterLabel (8), "Hz");
    EXPECT_EQ (processor.getParameterLabel (9), "%");
    EXPECT_EQ (processor.getParameterLabel (4), "dB");

    processor.setParameter (4, 7.0f);
    EXPECT_EQ (engine.getParameterValue (Deconvolution::masterGainIndex), 24.0f);
    processor.setParameter (4, std::nanf (""));
    EXPECT_EQ (engine.getParameterValue (Deconvolution::masterGainIndex), 0.0f);

    EXPECT_TRUE (processor.setCheckedParameterValue (
        EngineParameterId (Deconvolution::masterGainIndex), 1.0e30f));
    EXPECT_EQ (engine.getParameterValue (Deconvolution::masterGainIndex), 24.0f);
    EXPECT_TRUE (processor.setCheckedParameterValue (
        EngineParameterId (Deconvolution::filterLengthIndex), -5.0f));
    EXPECT_EQ (engine.getParameterValue (Deconvolution::filterLengthIndex), 1.0f);
    EXPECT_TRUE (processor.setCheckedParameterValue (
        EngineParameterId (Deconvolution::masterGainIndex), std::nanf ("")));
    EXPECT_EQ (engine.getParameterValue (Deconvolution::masterGainIndex), 0.0f);
    EXPECT_FALSE (processor.setCheckedParameterValue (EngineParameterId (43), 1.0f))
        << "no such parameter";

    // A state block carrying absurd values.
    juce::MemoryOutputStream block;
    block.write ("KSEV", 4);
    block.writeInt (static_cast<int> (KelfinerAudioProcessor::code));
    block.writeInt (0x010000);
    block.writeInt (3);
    for (auto [id, value] : {std::pair<int, float>{4, 1.0e30f}, {2, -5.0f}, {19, 1.0e9f}})
    {
        block.writeInt (id);
        block.writeFloat (value);
    }
    processor.setStateInformation (block.getData(), static_cast<int> (block.getDataSize()));
    EXPECT_EQ (engine.getParameterValue (Deconvolution::masterGainIndex), 24.0f);
    EXPECT_EQ (engine.getParameterValue (Deconvolution::filterLengthIndex), 1.0f);
    EXPECT_EQ (engine.getParameterValue (Deconvolution::emphasisPointFrequencyIndex), 24000.0f);

    // And a preset.
    const auto file = juce::File::createTempFile (".xml");
    file.replaceWithText ("<Preset><ParameterSettings>"
                          "<Parameter id=\"4\" value=\"nan\"/>"
                          "<Parameter id=\"1\" value=\"5\"/>"
                          "</ParameterSettings></Preset>");
    ASSERT_TRUE (processor.importFromPresetFile (file));
    file.deleteFile();
    EXPECT_EQ (engine.getParameterValue (Deconvolution::masterGainIndex), 0.0f);
    EXPECT_EQ (engine.getParameterValue (Deconvolution::estimationThresholdIndex), -12.0f);
}

JUCE_END_IGNORE_WARNINGS_GCC_LIKE

namespace
{
/** An engine that works in fixed blocks of 256 and passes its input through. */
class FixedBlockEngine : public vesk::audio::BaseAudioProcessor
{
public:
    void getProcessingInfo (vesk::audio::ProcessingInfo& info) override
    {
        info = {};
        info.blockLength = blockLength;
        info.latency = latency;
    }
    vesk::audio::Signal32 process (const vesk::audio::Signal32& input) override
    {
        return input.copy();
    }

    int blockLength = 256;
    int latency = 0;
};

class FixedBlockProcessor : public BasePlugInProcessor
{
public:
    FixedBlockProcessor() : FixedBlockProcessor (new FixedBlockEngine()) {}
    explicit FixedBlockProcessor (FixedBlockEngine* owned)
        : BasePlugInProcessor (owned, "Test", "Test", 0x54657374, "1.0.0"), engine (owned)
    {
    }
    bool hasEditor() const override { return false; }
    juce::AudioProcessorEditor* createEditor() override { return nullptr; }
    FixedBlockEngine* engine;
};
} // namespace

TEST (KelfinerStreaming, ReblockingThroughTheOutputQueueWithAnEngineThatReportsABlockLength)
{
    FixedBlockProcessor processor;
    processor.prepareToPlay (48000.0, 100);
    EXPECT_EQ (processor.getLatencySamples(), 256);

    juce::MidiBuffer midi;
    juce::AudioBuffer<float> block (2, 100);
    std::vector<float> out;
    for (int i = 0; i < 10; ++i)
    {
        for (int n = 0; n < 100; ++n)
            block.setSample (0, n, static_cast<float> (i * 100 + n + 1));
        processor.processBlock (block, midi);
        for (int n = 0; n < 100; ++n)
            out.push_back (block.getSample (0, n));
    }
    // The primed block of silence stands for the reported latency: the input follows it exactly.
    for (int n = 0; n < 256; ++n)
        ASSERT_EQ (out[static_cast<std::size_t> (n)], 0.0f) << n;
    for (int n = 256; n < 1000; ++n)
        ASSERT_EQ (out[static_cast<std::size_t> (n)], static_cast<float> (n - 256 + 1)) << n;

    // A new block length re-primes the queue but the host keeps the latency until the engine's
    // own latency changes.
    processor.engine->blockLength = 512;
    processor.processBlock (block, midi);
    EXPECT_EQ (processor.getLatencySamples(), 256);
    EXPECT_EQ (block.getSample (0, 99), 0.0f);
    processor.engine->latency = 10;
    processor.processBlock (block, midi);
    EXPECT_EQ (processor.getLatencySamples(), 522);

    juce::AudioBuffer<float> empty (2, 0);
    processor.processBlock (empty, midi); // nothing happens
}
