#include "KelfinerAudioProcessorEditor.h"

// The plug-in formats' entry point. It lives with the editor so that only the plug-in itself
// carries the editor: the command-line tool makes its processor directly and has none.

namespace
{
juce::AudioProcessorEditor* makeEditor (KelfinerAudioProcessor& processor)
{
    return new KelfinerAudioProcessorEditor (processor);
}
} // namespace

juce::AudioProcessor* JUCE_CALLTYPE createPluginFilter()
{
    KelfinerAudioProcessor::setEditorFactory (&makeEditor);
    return new KelfinerAudioProcessor();
}
