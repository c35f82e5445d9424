// Renders a WAV file through the LV2 bundle as a host plays it: a new instance (its default
// state, Learn on), optionally another target profile, 512-sample blocks from the first sample,
// learning and correcting as it goes. What a user of a host hears, for bench/lv2_blind.sh.
//
//     kelfiner_lv2_render IN.wav OUT.wav [PROFILE 0..5]
#include <juce_audio_formats/juce_audio_formats.h>
#include <juce_audio_processors/juce_audio_processors.h>

#include <cstdio>
#include <memory>

int main (int argc, char* argv[])
{
    if (argc < 3)
    {
        std::fprintf (stderr, "usage: kelfiner_lv2_render IN.wav OUT.wav [PROFILE 0..5]\n");
        return 2;
    }
    const juce::ScopedJuceInitialiser_GUI juce;
    const juce::File in (juce::File::getCurrentWorkingDirectory().getChildFile (argv[1]));
    const juce::File out (juce::File::getCurrentWorkingDirectory().getChildFile (argv[2]));
    juce::WavAudioFormat wav;
    std::unique_ptr<juce::AudioFormatReader> reader (
        wav.createReaderFor (new juce::FileInputStream (in), true));
    if (reader == nullptr)
    {
        std::fprintf (stderr, "kelfiner_lv2_render: not a WAV file: %s\n", argv[1]);
        return 1;
    }

    juce::LV2PluginFormat format;
    std::unique_ptr<juce::AudioPluginInstance> plugin;
    const auto bundle = juce::File (KELFINER_LV2_PATH);
    for (auto const& uri : format.searchPathsForPlugins (
             juce::FileSearchPath (bundle.getParentDirectory().getFullPathName()), true, false))
        if (uri == "https://vesk.digital/plugins/kelfiner")
        {
            juce::OwnedArray<juce::PluginDescription> types;
            format.findAllTypesForFile (types, uri);
            juce::String error;
            if (!types.isEmpty())
                plugin = format.createInstanceFromDescription (*types[0], reader->sampleRate, 512,
                                                               error);
        }
    if (plugin == nullptr)
    {
        std::fprintf (stderr, "kelfiner_lv2_render: cannot load %s\n", KELFINER_LV2_PATH);
        return 1;
    }
    if (argc > 3)
        for (auto* parameter : plugin->getParameters())
            if (parameter->getName (100) == "TargetModel")
                parameter->setValueNotifyingHost (static_cast<float> (std::atoi (argv[3])) / 6.0f);

    const int channels = static_cast<int> (reader->numChannels);
    const auto length = static_cast<int> (reader->lengthInSamples);
    juce::AudioBuffer<float> audio (channels, length);
    reader->read (&audio, 0, length, 0, true, true);
    plugin->prepareToPlay (reader->sampleRate, 512);
    juce::MidiBuffer midi;
    juce::AudioBuffer<float> block (2, 512);
    for (int done = 0; done < length; done += 512)
    {
        const int count = std::min (512, length - done);
        block.setSize (2, count, false, false, true);
        for (int c = 0; c < 2; ++c)
            block.copyFrom (c, 0, audio, std::min (c, channels - 1), done, count);
        plugin->processBlock (block, midi);
        for (int c = 0; c < channels; ++c)
            audio.copyFrom (c, done, block, c, 0, count);
    }
    plugin->releaseResources();

    out.deleteFile();
    std::unique_ptr<juce::AudioFormatWriter> writer (
        wav.createWriterFor (new juce::FileOutputStream (out), reader->sampleRate,
                             static_cast<unsigned int> (channels), 32, {}, 0));
    if (writer == nullptr || !writer->writeFromAudioSampleBuffer (audio, 0, length))
    {
        std::fprintf (stderr, "kelfiner_lv2_render: cannot write %s\n", argv[2]);
        return 1;
    }
    return 0;
}
