// Writes an LV2 state folder (manifest.ttl, state.ttl) holding a Kelfiner state that a host
// which is not JUCE loads (jalv -l FOLDER): the master gain at -18 dB and the "Speech" target,
// so that whoever plays it can tell the state was taken by the level of what comes out.

#include "KelfinerAudioProcessor.h"

#include <iostream>

int main (int argc, char** argv)
{
    if (argc != 2)
    {
        std::cerr << "usage: write_lv2_state FOLDER\n";
        return 2;
    }
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
            EngineParameterId (vesk::audio::Deconvolution::masterGainIndex), -18.0f);
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
