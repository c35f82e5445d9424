// Writes an LV2 state folder (manifest.ttl, state.ttl) holding a Kelfiner state that a host
// which is not JUCE loads (jalv -l FOLDER): learning held (so the correction does not wander
// with what is played), the "Speech" target and the master gain given, so that whoever plays
// two such states can tell they were taken by the difference in level of what comes out.

#include "KelfinerAudioProcessor.h"

#include <cstdlib>
#include <iostream>

int main (int argc, char** argv)
{
    if (argc != 3)
    {
        std::cerr << "usage: write_lv2_state FOLDER GAIN_DB\n";
        return 2;
    }
    const auto gain = static_cast<float> (std::atof (argv[2]));
    const juce::ScopedJuceInitialiser_GUI juce;
    const juce::File folder (juce::File::getCurrentWorkingDirectory().getChildFile (argv[1]));
    if (!folder.createDirectory())
    {
        std::cerr << "cannot make " << folder.getFullPathName() << "\n";
        return 1;
    }
    juce::MemoryBlock state;
    {
        KelfinerAudioProcessor processor;
        processor.setCheckedParameterValue (
            EngineParameterId (vesk::audio::Deconvolution::estimationModeIndex), 2.0f);
        processor.setCheckedParameterValue (
            EngineParameterId (vesk::audio::Deconvolution::masterGainIndex), gain);
        processor.setCheckedParameterValue (
            EngineParameterId (vesk::audio::Deconvolution::targetModelIndex),
            vesk::audio::Deconvolution::speech);
        processor.getStateInformation (state);
    }
    const juce::String uri = JucePlugin_LV2URI;
    const juce::String prefixes = "@prefix lv2: <http://lv2plug.in/ns/lv2core#> .\n"
                                  "@prefix pset: <http://lv2plug.in/ns/ext/presets#> .\n"
                                  "@prefix rdfs: <http://www.w3.org/2000/01/rdf-schema#> .\n"
                                  "@prefix state: <http://lv2plug.in/ns/ext/state#> .\n\n";
    const bool written =
        folder.getChildFile ("manifest.ttl")
            .replaceWithText (prefixes + "<state.ttl> a pset:Preset ;\n\tlv2:appliesTo <" + uri
                              + "> ;\n\trdfs:seeAlso <state.ttl> .\n")
        && folder.getChildFile ("state.ttl")
               .replaceWithText (prefixes + "<> a pset:Preset ;\n\tlv2:appliesTo <" + uri
                                 + "> ;\n\tstate:state [\n\t\t<" + uri + ":StateString> \""
                                 + state.toBase64Encoding() + "\"\n\t] .\n");
    if (!written)
    {
        std::cerr << "cannot write into " << folder.getFullPathName() << "\n";
        return 1;
    }
    return 0;
}
