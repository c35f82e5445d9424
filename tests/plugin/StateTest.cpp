// The processor's settings state: host state blocks, undo and A/B, preset files and the
// program list.
#include "FilterFile.h"
#include "KelfinerAudioProcessor.h"
#include "ProcessorHelpers.h"
#include "TestSignals.h"

#include <gtest/gtest.h>

#include <map>

#include <cmath>

using vesk::audio::Deconvolution;
using vesk::audio::Signal32;
using vesk::test::CountingListener;
using vesk::test::ramp;
using vesk::test::stateOf;

JUCE_BEGIN_IGNORE_WARNINGS_GCC_LIKE ("-Wdeprecated-declarations")

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
        "<ProductSettings estimator=\"spectrum\" loudnessMatched=\"1\" spareEmptyBands=\"1\" "
        "smoothingOctaves=\"0.3333333432674408\" departuresOnly=\"1\" thresholdRelative=\"1\"/>";
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
    EXPECT_FALSE (restored.getEngine().getCorrectionLimits().departuresOnly);
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

    // Host wrappers keep their own copy of every value: each is reported, as restored.
    struct HostCopy : juce::AudioProcessorListener
    {
        void audioProcessorParameterChanged (juce::AudioProcessor*, int index, float value) override
        {
            values[index] = value;
        }
        void audioProcessorChanged (juce::AudioProcessor*, const ChangeDetails&) override {}
        std::map<int, float> values;
    } host;
    KelfinerAudioProcessor restored;
    CountingListener listener;
    restored.addListener (&listener);
    restored.addListener (&host);
    const auto state = stateOf (original);
    restored.setStateInformation (state.getData(), static_cast<int> (state.getSize()));
    EXPECT_EQ (listener.calls, std::vector<int>{-1});
    EXPECT_FLOAT_EQ (restored.getParameter (4), 0.75f);
    ASSERT_EQ (host.values.size(), 43u);
    EXPECT_FLOAT_EQ (host.values[4], 0.75f);
    EXPECT_FLOAT_EQ (host.values[1], 0.2f);
    restored.removeListener (&host);
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

JUCE_END_IGNORE_WARNINGS_GCC_LIKE
