#include "BasePlugInProcessor.h"

#include <optional>

// Public parameters: the host's normalised view of the engine's plain values.

JUCE_BEGIN_IGNORE_WARNINGS_GCC_LIKE ("-Wdeprecated-declarations")

BasePlugInProcessor::BasePlugInProcessor (vesk::audio::BaseAudioProcessor* engineToOwn,
                                          const juce::String& bundle, const juce::String& plugin,
                                          unsigned int code, const juce::String& version)
    : juce::AudioProcessor (BusesProperties()
                                .withInput ("Input", juce::AudioChannelSet::stereo(), true)
                                .withOutput ("Output", juce::AudioChannelSet::stereo(), true)),
      engine (engineToOwn), bundleName (bundle), pluginName (plugin), versionText (version),
      pluginCode (code)
{
    // The editors keep their window size, ranges and theme here; texts are translated from the
    // first editor on, so the mappings are in place before any component is made.
    properties.reset (createPropertiesFile());
    initializeLocalization();
    scanPresets();
}

BasePlugInProcessor::~BasePlugInProcessor() = default;

#if KELFINER_LICENSING
void BasePlugInProcessor::setLicenseManager (
    std::unique_ptr<vesk::licensing::LicenseManager> manager)
{
    licence = std::move (manager);
    refreshDemoFlag();
}
#endif

//==============================================================================
void BasePlugInProcessor::addParameter (std::unique_ptr<ParameterDescription> description)
{
    parameters.add (description.release());
}

int BasePlugInProcessor::getNumParameters() { return parameters.size(); }

float BasePlugInProcessor::getParameter (int index)
{
    if (!juce::isPositiveAndBelow (index, parameters.size()))
        return -1.0f;
    return parameters[index]->getNormalizedParameterValue();
}

bool BasePlugInProcessor::engineFlag() const
{
    // True while no editor is open: the engine may then treat the change as coming from the host.
    auto* editor = getActiveEditor();
    return editor == nullptr || dynamic_cast<juce::AudioProcessorEditor*> (editor) == nullptr;
}

void BasePlugInProcessor::setParameter (int index, float normalized)
{
    if (!juce::isPositiveAndBelow (index, parameters.size()))
        return;
    // Hosts deliver automation on their audio threads, and not only inside processBlock (a VST3
    // host hands it over before the block it belongs to, a host with a pool of workers on any of
    // them): a change that does not come from the message thread is audio-side work, which the
    // engine leaves to its design thread while a host plays.
    std::optional<vesk::audio::AudioThreadScope> audioSide;
    if (!juce::MessageManager::existsAndIsCurrentThread())
        audioSide.emplace();
    parameters[index]->setNormalizedParameterValue (normalized, engineFlag());
    notifyListeners (index);
}

void BasePlugInProcessor::notifyListeners (int publicIndex)
{
    // From the last to the first, re-reading the count, so a listener may remove itself.
    for (int i = listeners.size(); --i >= 0;)
    {
        i = juce::jmin (i, listeners.size() - 1);
        if (i < 0)
            break;
        listeners.getUnchecked (i)->parameterChanged (publicIndex);
    }
}

float BasePlugInProcessor::getParameterDefaultValue (int index)
{
    return juce::isPositiveAndBelow (index, parameters.size())
               ? parameters[index]->defaultNormalizedValue
               : 0.0f;
}

const juce::String BasePlugInProcessor::getParameterName (int index)
{
    return juce::isPositiveAndBelow (index, parameters.size()) ? parameters[index]->name
                                                               : juce::String();
}

juce::String BasePlugInProcessor::getParameterID (int index)
{
    return juce::isPositiveAndBelow (index, parameters.size()) ? parameters[index]->name
                                                               : juce::String (index);
}

const juce::String BasePlugInProcessor::getParameterText (int index)
{
    if (!juce::isPositiveAndBelow (index, parameters.size()))
        return {};
    auto* p = parameters[index];
    float minimum = 0.0f, maximum = 0.0f;
    engine->getParameterRange (p->internalId.value, minimum, maximum);
    const float value = engine->getParameterValue (p->internalId.value);
    // The trailing space before an empty unit is part of the text, as hosts have always seen it.
    if (p->stepSize == maximum - minimum)
        return juce::String (value > 0.5f ? "On" : "Off") + " " + p->unit;
    return juce::String::formatted ("%.2f", static_cast<double> (value)) + " " + p->unit;
}

juce::String BasePlugInProcessor::getParameterLabel (int index) const
{
    return juce::isPositiveAndBelow (index, parameters.size()) ? parameters[index]->hostUnit
                                                               : juce::String();
}

bool BasePlugInProcessor::setCheckedParameterValue (EngineParameterId id, float value, bool flag)
{
    auto* description = findPublicParameter (id);
    if (description == nullptr)
        return false; // an id of another version, or of no parameter at all
    engine->setParameterValue (id.value, description->clampPlainValue (value), flag);
    return true;
}

const juce::String BasePlugInProcessor::getInputChannelName (int channelIndex) const
{
    return juce::String (channelIndex + 1);
}

const juce::String BasePlugInProcessor::getOutputChannelName (int channelIndex) const
{
    return juce::String (channelIndex + 1);
}

bool BasePlugInProcessor::isInputChannelStereoPair (int) const { return true; }
bool BasePlugInProcessor::isOutputChannelStereoPair (int) const { return true; }

void BasePlugInProcessor::resetParameter (PublicParameterIndex index, bool notifyHost)
{
    if (!juce::isPositiveAndBelow (index.value, parameters.size()))
        return;
    auto* p = parameters[index.value];
    engine->setParameterValue (p->internalId.value, p->clampPlainValue (p->defaultValue),
                               engineFlag());
    if (notifyHost)
        sendParamChangeMessageToListeners (index.value, p->getNormalizedParameterValue());
}

void BasePlugInProcessor::notifyInternalParameterChange (EngineParameterId id)
{
    const auto index = findPublicParameterIndex (id);
    if (index.isValid())
        sendParamChangeMessageToListeners (index.value,
                                           parameters[index.value]->getNormalizedParameterValue());
}

PublicParameterIndex BasePlugInProcessor::findPublicParameterIndex (EngineParameterId id) const
{
    for (int i = 0; i < parameters.size(); ++i)
        if (parameters[i]->internalId == id)
            return PublicParameterIndex (i);
    return PublicParameterIndex (-1);
}

ParameterDescription* BasePlugInProcessor::findPublicParameter (EngineParameterId id) const
{
    const auto index = findPublicParameterIndex (id);
    return index.isValid() ? parameters[index.value] : nullptr;
}

EngineParameterId BasePlugInProcessor::getInternalParameterId (PublicParameterIndex index) const
{
    return parameters[index.value]->internalId;
}

void BasePlugInProcessor::addListener (Listener* listener)
{
    if (listener != nullptr)
        listeners.addIfNotAlreadyThere (listener);
}

void BasePlugInProcessor::removeListener (Listener* listener)
{
    listeners.removeFirstMatchingValue (listener);
}

JUCE_END_IGNORE_WARNINGS_GCC_LIKE
