#include "AllocationGuard.h"
#include "FilterFile.h"
#include "KelfinerAudioProcessor.h"
#include "TestSignals.h"
#include "UntrustedXml.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <random>
#include <thread>

using vesk::audio::Deconvolution;
using vesk::audio::Signal32;

JUCE_BEGIN_IGNORE_WARNINGS_GCC_LIKE ("-Wdeprecated-declarations")

namespace
{
struct CountingListener : BasePlugInProcessor::Listener
{
    void parameterChanged (int index) override
    {
        calls.push_back (index);
        if (onCall)
            onCall();
    }
    std::vector<int> calls;
    std::function<void()> onCall;
};

juce::MemoryBlock stateOf (KelfinerAudioProcessor& processor)
{
    juce::MemoryBlock block;
    processor.getStateInformation (block);
    return block;
}

Signal32 ramp (int channels, int samples)
{
    Signal32 s (channels, samples);
    for (int c = 0; c < channels; ++c)
        for (int n = 0; n < samples; ++n)
            s[c][n] = 0.001f * static_cast<float> (n + 100 * c);
    return s;
}
} // namespace

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
    EXPECT_EQ (processor.getInternalParameterId (41), 30);
    EXPECT_EQ (processor.getInternalParameterId (42), 42);

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
    EXPECT_EQ (processor.findPublicParameterIndex (99), -1);
    processor.notifyInternalParameterChange (99);
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

TEST (KelfinerState, ByteLayoutOfTheSettingsBlockAndTheState)
{
    KelfinerAudioProcessor processor;
    juce::MemoryOutputStream settings;
    processor.getParameterSettings (settings);
    ASSERT_EQ (settings.getDataSize(), 369u);
    const auto* bytes = static_cast<const unsigned char*> (settings.getData());
    EXPECT_EQ (std::memcmp (bytes, "KSEV", 4), 0);
    EXPECT_EQ (juce::ByteOrder::littleEndianInt (bytes + 4), KelfinerAudioProcessor::code);
    EXPECT_EQ (juce::ByteOrder::littleEndianInt (bytes + 8), 0x010000u);
    EXPECT_EQ (juce::ByteOrder::littleEndianInt (bytes + 12), 43u);
    EXPECT_EQ (juce::ByteOrder::littleEndianInt (bytes + 16 + 8 * 4), 4u)
        << "entry 4 is MasterGain";
    EXPECT_EQ (juce::ByteOrder::littleEndianInt64 (bytes + 360),
               BasePlugInProcessor::presetNameMarker);
    EXPECT_EQ (bytes[368], 0);

    // Empty filters: a rate and two zero counts each; then the marked settings record.
    const juce::String settingsText =
        "<ProductSettings estimator=\"frames\" loudnessMatched=\"0\" spareEmptyBands=\"0\"/>";
    const auto record = 8u + settingsText.getNumBytesAsUTF8() + 1u;
    EXPECT_EQ (stateOf (processor).getSize(), 369u + 2 * 16u + record);
    const auto state = stateOf (processor);
    EXPECT_EQ (static_cast<std::uint64_t> (juce::ByteOrder::littleEndianInt64 (
                   static_cast<const char*> (state.getData()) + 369 + 32)),
               KelfinerAudioProcessor::settingsMarker);
    EXPECT_EQ (juce::String (static_cast<const char*> (state.getData()) + 369 + 40), settingsText);
    Signal32 three (1, 3, 0.5f);
    processor.getEngine().setSourceFilter (three, 48000.0);
    EXPECT_EQ (stateOf (processor).getSize(), 369u + 16u + 12u + 16u + record);
    processor.getEngine().setSourceFilter (Signal32 (2, 3, 0.5f), 48000.0);
    EXPECT_EQ (stateOf (processor).getSize(), 369u + 16u + 24u + 16u + record);
}

// The learning estimator travels with states and presets; what was saved before the choice
// existed loads with the original estimator.
TEST (KelfinerState, TheEstimatorTravelsWithStatesAndPresets)
{
    using vesk::audio::Estimator;
    KelfinerAudioProcessor original, restored;
    original.getEngine().setEstimator (Estimator::longTermSpectrum);
    Deconvolution::CorrectionLimits limits;
    limits.loudnessMatched = true;
    limits.maximumBoostDb = 9.5f;
    limits.smoothingOctaves = 0.25f;
    original.getEngine().setCorrectionLimits (limits);
    const auto state = stateOf (original);
    restored.setStateInformation (state.getData(), static_cast<int> (state.getSize()));
    EXPECT_EQ (restored.getEngine().getEstimator(), Estimator::longTermSpectrum);
    EXPECT_TRUE (restored.getEngine().getCorrectionLimits().loudnessMatched);
    EXPECT_FALSE (restored.getEngine().getCorrectionLimits().spareEmptyBands);
    EXPECT_EQ (restored.getEngine().getCorrectionLimits().maximumBoostDb, 9.5f);
    EXPECT_EQ (restored.getEngine().getCorrectionLimits().smoothingOctaves, 0.25f);

    // A state of the earlier layout: the same bytes without the settings record.
    auto earlier = state.getSize();
    for (std::size_t at = 0; at + 8 < state.getSize(); ++at)
        if (static_cast<std::uint64_t> (juce::ByteOrder::littleEndianInt64 (
                static_cast<const char*> (state.getData()) + at))
            == KelfinerAudioProcessor::settingsMarker)
            earlier = at;
    ASSERT_LT (earlier, state.getSize());
    restored.setStateInformation (state.getData(), static_cast<int> (earlier));
    EXPECT_EQ (restored.getEngine().getEstimator(), Estimator::frameModels);
    EXPECT_FALSE (restored.getEngine().getCorrectionLimits().loudnessMatched);
    EXPECT_FALSE (std::isfinite (restored.getEngine().getCorrectionLimits().maximumBoostDb));

    const auto file = juce::File::createTempFile (".xml");
    ASSERT_TRUE (original.exportToPresetFile (file));
    EXPECT_TRUE (file.loadFileAsString().contains ("estimator=\"spectrum\""));
    ASSERT_TRUE (restored.importFromPresetFile (file));
    EXPECT_EQ (restored.getEngine().getEstimator(), Estimator::longTermSpectrum);
    EXPECT_EQ (restored.getEngine().getCorrectionLimits().maximumBoostDb, 9.5f);
    auto text = file.loadFileAsString();
    text = text.upToFirstOccurrenceOf ("<ProductSettings", false, false)
           + text.fromFirstOccurrenceOf ("<ProductSettings", false, false)
                 .fromFirstOccurrenceOf ("/>", false, false);
    file.replaceWithText (text);
    EXPECT_FALSE (text.contains ("ProductSettings")) << text;
    ASSERT_TRUE (restored.importFromPresetFile (file));
    EXPECT_EQ (restored.getEngine().getEstimator(), Estimator::frameModels) << "an older preset";
    file.deleteFile();
}

// A stored filter at a rate no audio has (1e-9 Hz once made a rescale by 10^13 and crashed the
// host on project restore) is refused at every entrance; the processor keeps running.
TEST (KelfinerState, FiltersAtImplausibleRatesAreRefused)
{
    KelfinerAudioProcessor processor;
    processor.prepareToPlay (48000.0, 256);
    for (const double rate : {1.0e-9, 0.05, 1.0e-300, 5.0e7})
    {
        juce::MemoryOutputStream state;
        state.write ("KSEV", 4);
        state.writeInt (static_cast<int> (KelfinerAudioProcessor::code));
        state.writeInt (0x010000);
        state.writeInt (0);
        state.writeDouble (rate);
        state.writeInt (1);
        state.writeInt (4);
        for (float tap : {1.0f, -0.5f, 0.25f, 0.0f})
            state.writeFloat (tap);
        processor.setStateInformation (state.getData(), static_cast<int> (state.getDataSize()));
        Signal32 source;
        double sourceRate = 0.0;
        processor.getEngine().getSourceFilter (source, sourceRate);
        EXPECT_TRUE (source.isEmpty()) << rate;

        const auto file = juce::File::createTempFile (".filter");
        ASSERT_TRUE (FilterFile::write (file, Signal32 (1, 4, 0.5f), rate));
        Signal32 read;
        double readRate = 0.0;
        EXPECT_EQ (FilterFile::read (file, read, readRate), FilterFile::Status::invalid) << rate;
        file.deleteFile();
    }
    juce::AudioBuffer<float> block (2, 256);
    block.clear();
    juce::MidiBuffer midi;
    processor.processBlock (block, midi);

    juce::MemoryOutputStream record;
    KelfinerAudioProcessor::serializeSignal (Signal32 (1, 4, 0.5f), record);
    juce::XmlElement custom ("CustomData");
    auto* source = custom.createNewChildElement ("SourceFilter");
    source->setAttribute ("sampleRate", "1e-9");
    source->setAttribute ("binaryData", record.getMemoryBlock().toBase64Encoding());
    processor.parseCustomDataXmlElement (&custom);
    Signal32 after;
    double afterRate = 0.0;
    processor.getEngine().getSourceFilter (after, afterRate);
    EXPECT_TRUE (after.isEmpty()) << "a preset's filter at 1e-9 Hz is refused too";
}

TEST (KelfinerState, RestoresParametersFiltersAndPresetName)
{
    KelfinerAudioProcessor original;
    original.setParameter (4, 0.75f);
    original.setParameter (1, 0.2f);
    original.setCurrentPresetName ("My Sound");
    original.getEngine().setSourceFilter (ramp (1, 481), 44100.0);
    original.getEngine().setParameterValue (3, 5.0f, false);
    original.getEngine().setTargetFilter (ramp (1, 7), 48000.0);

    KelfinerAudioProcessor restored;
    CountingListener listener;
    restored.addListener (&listener);
    const auto state = stateOf (original);
    restored.setStateInformation (state.getData(), static_cast<int> (state.getSize()));
    EXPECT_EQ (listener.calls, std::vector<int>{-1});
    EXPECT_FLOAT_EQ (restored.getParameter (4), 0.75f);
    EXPECT_EQ (restored.getCurrentPresetName(), "My Sound");
    Signal32 source, target;
    double sourceRate = 0, targetRate = 0;
    restored.getEngine().getSourceFilter (source, sourceRate);
    restored.getEngine().getTargetFilter (target, targetRate);
    EXPECT_EQ (sourceRate, 44100.0);
    ASSERT_EQ (source.getNumSamples(), 481);
    EXPECT_EQ (source[0][480], ramp (1, 481)[0][480]);
    EXPECT_EQ (targetRate, 48000.0);
    ASSERT_EQ (target.getNumSamples(), 7);
    EXPECT_EQ (stateOf (restored), state);
    restored.removeListener (&listener);
}

TEST (KelfinerState, ForeignShortAndHostileStatesChangeNothingAndNeverCrash)
{
    KelfinerAudioProcessor processor;
    processor.setParameter (4, 0.25f);
    auto state = stateOf (processor);

    auto foreign = state;
    static_cast<char*> (foreign.getData())[5] ^= 0x55; // another product's code
    KelfinerAudioProcessor other;
    other.setStateInformation (foreign.getData(), static_cast<int> (foreign.getSize()));
    EXPECT_FLOAT_EQ (other.getParameter (4), 0.5f);
    other.setStateInformation (state.getData(), 15);
    EXPECT_FLOAT_EQ (other.getParameter (4), 0.5f);

    // Every truncation and a thousand random corruptions of a state with filters.
    processor.getEngine().setSourceFilter (ramp (2, 300), 48000.0);
    state = stateOf (processor);
    std::mt19937 generator (1);
    KelfinerAudioProcessor victim;
    for (std::size_t size = 0; size <= state.getSize(); size += 7)
        victim.setStateInformation (state.getData(), static_cast<int> (size));
    for (int round = 0; round < 1000; ++round)
    {
        auto corrupted = state;
        auto* data = static_cast<unsigned char*> (corrupted.getData());
        for (int k = 0; k < 4; ++k)
            data[16 + generator() % (corrupted.getSize() - 16)] =
                static_cast<unsigned char> (generator());
        victim.setStateInformation (corrupted.getData(), static_cast<int> (corrupted.getSize()));
    }
    // Whatever was loaded, the engine still produces finite audio.
    victim.prepareToPlay (48000.0, 256);
    juce::AudioBuffer<float> buffer (2, 256);
    juce::MidiBuffer midi;
    for (int c = 0; c < 2; ++c)
        for (int n = 0; n < 256; ++n)
            buffer.setSample (c, n, 0.1f * std::sin (0.05f * static_cast<float> (n)));
    victim.processBlock (buffer, midi);
    for (int c = 0; c < 2; ++c)
        for (int n = 0; n < 256; ++n)
            ASSERT_TRUE (std::isfinite (buffer.getSample (c, n)));
    EXPECT_NE (stateOf (victim).getSize(), 0u);
}

TEST (KelfinerState, SignalRecordsRefuseCountsBeyondTheirBytes)
{
    juce::MemoryOutputStream out;
    out.writeInt (2);
    out.writeInt (1000000); // claims 8 MB
    out.writeFloat (1.0f);
    juce::MemoryInputStream in (out.getData(), out.getDataSize(), false);
    EXPECT_FALSE (KelfinerAudioProcessor::deserializeSignal (in).hasStorage());

    juce::MemoryOutputStream negative;
    negative.writeInt (-1);
    negative.writeInt (4);
    juce::MemoryInputStream negativeIn (negative.getData(), negative.getDataSize(), false);
    EXPECT_FALSE (KelfinerAudioProcessor::deserializeSignal (negativeIn).hasStorage());

    juce::MemoryOutputStream record;
    KelfinerAudioProcessor::serializeSignal (ramp (2, 3), record);
    EXPECT_EQ (record.getDataSize(), 8u + 24u);
    juce::MemoryInputStream recordIn (record.getData(), record.getDataSize(), false);
    const auto back = KelfinerAudioProcessor::deserializeSignal (recordIn);
    ASSERT_EQ (back.getNumChannels(), 2);
    EXPECT_EQ (back[1][2], ramp (2, 3)[1][2]);
}

TEST (KelfinerUndo, UndoRedoAndAlternateSettings)
{
    KelfinerAudioProcessor processor;
    const auto gain = [&] { return processor.getEngine().getParameterValue (4); };

    processor.switchToAlternateSettings(); // nothing in B yet: the settings stay...
    EXPECT_FLOAT_EQ (gain(), 0.0f);
    processor.setParameter (4, 0.75f);     // 12 dB
    processor.switchToAlternateSettings(); // ...and the earlier ones came back from B
    EXPECT_FLOAT_EQ (gain(), 0.0f);
    processor.switchToAlternateSettings();
    EXPECT_FLOAT_EQ (gain(), 12.0f);

    processor.addUndoState();
    processor.setParameter (4, 0.25f); // -12 dB
    processor.addUndoState();
    processor.setParameter (4, 0.5f);
    processor.undo();
    EXPECT_FLOAT_EQ (gain(), -12.0f);
    processor.undo();
    EXPECT_FLOAT_EQ (gain(), 12.0f);
    processor.undo(); // empty: nothing
    EXPECT_FLOAT_EQ (gain(), 12.0f);
    processor.redo();
    EXPECT_FLOAT_EQ (gain(), -12.0f);
    processor.addUndoState();
    EXPECT_FALSE (processor.canRedo()) << "a new undo state clears the redo list";
    processor.redo();
    EXPECT_FLOAT_EQ (gain(), -12.0f);

    processor.copyToAlternate();
    processor.setParameter (4, 1.0f);
    processor.switchToAlternateSettings();
    EXPECT_FLOAT_EQ (gain(), -12.0f);
}

TEST (KelfinerPresets, ImportResetsWhatTheFileDoesNotNameAndEmptiesTheFilters)
{
    KelfinerAudioProcessor processor;
    const juce::TemporaryFile folder;
    folder.getFile().createDirectory();
    const auto file = folder.getFile().getChildFile ("My Sound.xml");
    file.replaceWithText (R"(<?xml version="1.0"?><Preset><ParameterSettings>
        <Parameter id="4" unit="dB" value="-6.5" name="MasterGain"/><Parameter unit="" value="3"/>
        <Parameter id="99" value="1"/></ParameterSettings></Preset>)");
    processor.setParameter (1, 0.1f);
    processor.getEngine().setSourceFilter (ramp (1, 50), 48000.0);
    CountingListener listener;
    processor.addListener (&listener);
    ASSERT_TRUE (processor.importFromPresetFile (file));
    EXPECT_FLOAT_EQ (processor.getEngine().getParameterValue (4), -6.5f);
    EXPECT_FLOAT_EQ (processor.getEngine().getParameterValue (1), -36.0f) << "back to its default";
    Signal32 source;
    double rate = 1;
    processor.getEngine().getSourceFilter (source, rate);
    EXPECT_FALSE (source.hasStorage());
    EXPECT_EQ (processor.getCurrentPresetName(), "My Sound");
    EXPECT_EQ (listener.calls.back(), -1);
    processor.removeListener (&listener);

    const auto broken = folder.getFile().getChildFile ("broken.xml");
    broken.replaceWithText ("<Preset><ParameterSet");
    EXPECT_FALSE (processor.importFromPresetFile (broken));
    broken.replaceWithText ("<Preset/>");
    EXPECT_FALSE (processor.importFromPresetFile (broken));
    EXPECT_FLOAT_EQ (processor.getEngine().getParameterValue (4), -6.5f)
        << "a refused file changes nothing";
}

TEST (KelfinerPresets, ExportAndImportRoundTripWithFilters)
{
    KelfinerAudioProcessor writer;
    writer.setParameter (4, 0.6f);
    writer.setParameter (9, 0.3f);
    writer.getEngine().setParameterValue (3, 5.0f, false);
    writer.getEngine().setSourceFilter (ramp (1, 481), 48000.0);
    writer.getEngine().setTargetFilter (ramp (1, 33), 44100.0);
    const juce::TemporaryFile file (".xml");
    file.getFile().replaceWithText ("old contents");
    ASSERT_TRUE (writer.exportToPresetFile (file.getFile()));
    const auto xml = juce::XmlDocument::parse (file.getFile());
    ASSERT_NE (xml, nullptr);
    ASSERT_NE (xml->getChildByName ("CustomData"), nullptr);
    EXPECT_EQ (xml->getChildByName ("ParameterSettings")->getNumChildElements(), 43);
    auto* target = xml->getChildByName ("CustomData")->getChildByName ("TargetFilter");
    ASSERT_NE (target, nullptr);
    EXPECT_EQ (target->getDoubleAttribute ("sampleRate"), 44100.0);

    KelfinerAudioProcessor reader;
    ASSERT_TRUE (reader.importFromPresetFile (file.getFile()));
    EXPECT_FLOAT_EQ (reader.getParameter (4), writer.getParameter (4));
    EXPECT_FLOAT_EQ (reader.getParameter (9), writer.getParameter (9));
    Signal32 filter;
    double rate = 0;
    reader.getEngine().getTargetFilter (filter, rate);
    ASSERT_EQ (filter.getNumSamples(), 33);
    EXPECT_EQ (rate, 44100.0);
    EXPECT_EQ (filter[0][32], ramp (1, 33)[0][32]);

    // Without a sample rate attribute the filter is read at 44.1 kHz.
    target->removeAttribute ("sampleRate");
    ASSERT_TRUE (xml->writeTo (file.getFile()));
    ASSERT_TRUE (reader.importFromPresetFile (file.getFile()));
    reader.getEngine().getTargetFilter (filter, rate);
    EXPECT_EQ (rate, 44100.0);
}

TEST (KelfinerPrograms, ResetComesFirstAndEveryProgramHasAName)
{
    KelfinerAudioProcessor processor;
    ASSERT_GE (processor.getNumPrograms(), 1);
    EXPECT_EQ (processor.getProgramName (0), "Reset");
    for (int i = 0; i < processor.getNumPrograms(); ++i)
        EXPECT_TRUE (processor.getProgramName (i).isNotEmpty()) << i;
    EXPECT_EQ (processor.getPresetTree().getChild (1).getProperty ("Name").toString(),
               "Factory presets");
    EXPECT_EQ (processor.getPresetTree().getChild (2).getProperty ("Name").toString(),
               "User presets");

    processor.setParameter (4, 0.9f);
    const auto state = stateOf (processor);
    processor.setStateInformation (state.getData(), static_cast<int> (state.getSize()));
    processor.setCurrentProgram (0); // right after a state load: ignored
    EXPECT_FLOAT_EQ (processor.getParameter (4), 0.9f);
    juce::Thread::sleep (220);
    processor.setCurrentProgram (0);
    EXPECT_FLOAT_EQ (processor.getParameter (4), 0.5f);
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
    EXPECT_TRUE (processor.getHelpFilePath ("de").endsWith ("Kelfiner_en/kelfiner.html"))
        << "falls back to English";
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
// automation delivered on the audio thread between blocks: nothing allocates there.
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
    juce::MidiBuffer midi;
    const auto fill = [&] (int i)
    {
        for (int c = 0; c < 2; ++c)
            for (int n = 0; n < 1500; ++n)
                block.setSample (c, n,
                                 0.2f * std::sin (0.01f * static_cast<float> (i * 512 + n + c)));
    };
    fill (0);
    processor.processBlock (block, midi);
    std::size_t allocations = 0;
    for (int i = 0; i < 600; ++i)
    {
        fill (i);
        const int size = i % 4 == 0 ? 512 : (i % 4 == 1 ? 480 : (i % 4 == 2 ? 64 : 1500));
        juce::AudioBuffer<float> view (block.getArrayOfWritePointers(), 2, size);
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
    }
    EXPECT_EQ (allocations, 0u);
    EXPECT_GT (processor.getEngine().getInstalledDesigns(), 3u);
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

    EXPECT_TRUE (processor.setCheckedParameterValue (Deconvolution::masterGainIndex, 1.0e30f));
    EXPECT_EQ (engine.getParameterValue (Deconvolution::masterGainIndex), 24.0f);
    EXPECT_TRUE (processor.setCheckedParameterValue (Deconvolution::filterLengthIndex, -5.0f));
    EXPECT_EQ (engine.getParameterValue (Deconvolution::filterLengthIndex), 1.0f);
    EXPECT_TRUE (
        processor.setCheckedParameterValue (Deconvolution::masterGainIndex, std::nanf ("")));
    EXPECT_EQ (engine.getParameterValue (Deconvolution::masterGainIndex), 0.0f);
    EXPECT_FALSE (processor.setCheckedParameterValue (43, 1.0f)) << "no such parameter";

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

// XML from outside is checked before JUCE's reader sees it: a document nested 200000 deep once
// overflowed the stack, and an invalid UTF-8 byte made the reader run past its buffer.
TEST (UntrustedXml, DepthSizeAndEncodingAreCheckedFirst)
{
    const auto parse = [] (std::string const& text)
    { return parseUntrustedXml (text.data(), text.size()); };
    EXPECT_NE (parse ("<Preset a=\"x > y\"><b/><!-- <c> --><d><![CDATA[<e>]]></d></Preset>"),
               nullptr);

    std::string deep = "<Preset>";
    for (int i = 0; i < 200000; ++i)
        deep += "<a>";
    EXPECT_EQ (parse (deep), nullptr);
    std::string allowed = "<Preset>";
    for (int i = 1; i < untrustedXml::maximumDepth; ++i)
        allowed += "<a>";
    for (int i = 1; i < untrustedXml::maximumDepth; ++i)
        allowed += "</a>";
    EXPECT_NE (parse (allowed + "</Preset>"), nullptr) << "as deep as allowed";

    EXPECT_EQ (parse ("<a>\xff"), nullptr);
    EXPECT_EQ (parse (std::string ("<a>\0</a>", 8)), nullptr);
    EXPECT_EQ (parse ("<a>" + std::string (untrustedXml::maximumBytes, ' ') + "</a>"), nullptr);

    // The plug-in's preset entrance refuses such files and keeps its settings.
    KelfinerAudioProcessor processor;
    processor.setParameter (4, 0.75f);
    const auto file = juce::File::createTempFile (".xml");
    file.replaceWithText (juce::String (deep));
    EXPECT_FALSE (processor.importFromPresetFile (file));
    file.replaceWithData ("<a>\xff", 4);
    EXPECT_FALSE (processor.importFromPresetFile (file));
    file.deleteFile();
    EXPECT_NEAR (processor.getParameter (4), 0.75f, 1e-6f);
}
