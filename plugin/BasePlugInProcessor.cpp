#include "BasePlugInProcessor.h"

using vesk::audio::AudioFormat;
using vesk::audio::Signal32;
using vesk::audio::SpeakerPosition;

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
    scanPresets();
}

BasePlugInProcessor::~BasePlugInProcessor()
{
    for (int i = parameters.size(); --i >= 0;)
        delete parameters.removeAndReturn (i);
}

//==============================================================================
void BasePlugInProcessor::addParameter (ParameterDescription* description)
{
    parameters.add (description);
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
    engine->getParameterRange (p->internalId, minimum, maximum);
    const float value = engine->getParameterValue (p->internalId);
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

bool BasePlugInProcessor::setCheckedParameterValue (int internalId, float value, bool flag)
{
    auto* description = findPublicParameter (internalId);
    if (description == nullptr)
        return false; // an id of another version, or of no parameter at all
    engine->setParameterValue (internalId, description->clampPlainValue (value), flag);
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

void BasePlugInProcessor::resetParameter (int index, bool notifyHost)
{
    if (!juce::isPositiveAndBelow (index, parameters.size()))
        return;
    auto* p = parameters[index];
    engine->setParameterValue (p->internalId, p->clampPlainValue (p->defaultValue), engineFlag());
    if (notifyHost)
    {
        const int found = findPublicParameterIndex (p->internalId);
        sendParamChangeMessageToListeners (found, parameters[found]->getNormalizedParameterValue());
    }
}

void BasePlugInProcessor::notifyInternalParameterChange (int internalId)
{
    const int index = findPublicParameterIndex (internalId);
    if (index >= 0)
        sendParamChangeMessageToListeners (index, parameters[index]->getNormalizedParameterValue());
}

int BasePlugInProcessor::findPublicParameterIndex (int internalId) const
{
    for (int i = 0; i < parameters.size(); ++i)
        if (parameters[i]->internalId == internalId)
            return i;
    return -1;
}

ParameterDescription* BasePlugInProcessor::findPublicParameter (int internalId) const
{
    const int index = findPublicParameterIndex (internalId);
    return index >= 0 ? parameters[index] : nullptr;
}

int BasePlugInProcessor::getInternalParameterId (int index) const
{
    return parameters[index]->internalId;
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

//==============================================================================
SpeakerPosition BasePlugInProcessor::speakerIdToPosition (const juce::String& id)
{
    struct Entry
    {
        const char* name;
        float x, y, z;
        int type;
    };
    static const Entry entries[] = {
        {"M", 0, 1, 0, 1},     {"L", -1, 1, 0, 0},   {"R", 1, 1, 0, 0},      {"C", 0, 1, 0, 0},
        {"Ls", -1, -1, 0, 0},  {"Rs", 1, -1, 0, 0},  {"Lc", -0.5f, 1, 0, 0}, {"Rc", 0.5f, 1, 0, 0},
        {"S", 0, 0, 0, 0},     {"Cs", 0, 0, 0, 0},   {"Sl", -1, 0, 0, 0},    {"Sr", 1, 0, 0, 0},
        {"Lss", -1, 0, 0, 0},  {"Rss", 1, 0, 0, 0},  {"Lsr", -1, -1, 0, 0},  {"Rsr", 1, -1, 0, 0},
        {"Tm", 0, 0, 1, 0},    {"Tfl", -1, 1, 1, 0}, {"Tfc", 0, 0, 1, 0},    {"Tfr", 1, 1, 1, 0},
        {"Trl", -1, -1, 1, 0}, {"Trc", 0, -1, 1, 0}, {"Trr", 1, -1, 1, 0},   {"Lfe", 0, 1, 0, 2},
        {"Lfe1", -1, 1, 0, 2}, {"Lfe2", 1, 1, 0, 2},
    };
    for (auto const& entry : entries)
        if (id.equalsIgnoreCase (entry.name))
            return SpeakerPosition (entry.x, entry.y, entry.z, entry.type);
    return SpeakerPosition();
}

bool BasePlugInProcessor::isBusesLayoutSupported (const BusesLayout& layouts) const
{
    // The engine needs matching input and output formats; any count from mono to 7.1 is served.
    const auto& in = layouts.getMainInputChannelSet();
    const auto& out = layouts.getMainOutputChannelSet();
    return !in.isDisabled() && in.size() == out.size() && in.size() <= 8;
}

AudioFormat BasePlugInProcessor::makeFormat (bool isInput, double sampleRate) const
{
    const int channels = isInput ? getTotalNumInputChannels() : getTotalNumOutputChannels();
    const auto arrangement = getChannelLayoutOfBus (isInput, 0).getSpeakerArrangementAsString();
    const auto tokens = juce::StringArray::fromTokens (arrangement, " ", "");
    if (tokens.size() != channels)
        return AudioFormat (channels, sampleRate);
    AudioFormat format;
    format.channelCount = channels;
    format.sampleRate = sampleRate;
    for (auto const& token : tokens)
        format.speakers.push_back (speakerIdToPosition (token));
    return format;
}

namespace
{
bool sameFormat (AudioFormat const& a, AudioFormat const& b)
{
    if (a.channelCount != b.channelCount || !(a.sampleRate == b.sampleRate)
        || a.speakers.size() != b.speakers.size())
        return false;
    for (std::size_t i = 0; i < a.speakers.size(); ++i)
        if (!(a.speakers[i] == b.speakers[i]) || a.speakers[i].reserved != b.speakers[i].reserved)
            return false;
    return true;
}
} // namespace

void BasePlugInProcessor::primeOutputQueue (int blockLength)
{
    outputQueue.clear();
    outputQueue.setChannels (-1);
    if (blockLength > 0)
        outputQueue.push (Signal32 (getTotalNumOutputChannels(), blockLength, 0.0f));
}

void BasePlugInProcessor::setNonRealtime (bool isNonRealtime) noexcept
{
    juce::AudioProcessor::setNonRealtime (isNonRealtime);
}

void BasePlugInProcessor::prepareToPlay (double sampleRate, int samplesPerBlock)
{
    engine->setRealtime (!isNonRealtime());
    engine->expectedBlockSize = juce::jmax (samplesPerBlock, 1);
    preparedBlockSize = juce::jmax (samplesPerBlock, 1);
    const auto input = makeFormat (true, sampleRate);
    const auto output = makeFormat (false, sampleRate);
    if (!sameFormat (input, engine->getInputFormat())
        || !sameFormat (output, engine->getOutputFormat()))
        engine->setFormat (input, output);
    engine->reset();

    engine->getProcessingInfo (processingInfo);
    setLatencySamples (processingInfo.blockLength + processingInfo.latency);
    lastBlockLength = processingInfo.blockLength;
    lastLatency = processingInfo.latency;
    primeOutputQueue (lastBlockLength);

    // Room for the largest block the host announced, so the audio thread does not allocate.
    inputBlock.ensureDimensions (getTotalNumInputChannels(), juce::jmax (samplesPerBlock, 1));
    silence.ensureDimensions (getTotalNumOutputChannels(), juce::jmax (samplesPerBlock, 1));
}

void BasePlugInProcessor::processBlock (juce::AudioBuffer<float>& buffer, juce::MidiBuffer&)
{
    const int samples = buffer.getNumSamples();
    if (samples <= 0)
        return;
    const juce::ScopedNoDenormals noDenormals;

    engine->getProcessingInfo (processingInfo);
    if (processingInfo.latency != lastLatency)
    {
        setLatencySamples (processingInfo.blockLength + processingInfo.latency);
        lastLatency = processingInfo.latency;
    }
    if (processingInfo.blockLength != lastBlockLength)
    {
        lastBlockLength = processingInfo.blockLength;
        primeOutputQueue (lastBlockLength);
    }

    // A host block longer than announced goes through in announced pieces: the engine's
    // buffers were made for that size, and the audio thread does not allocate more.
    for (int start = 0; start < samples; start += preparedBlockSize)
        processPiece (buffer, start, juce::jmin (preparedBlockSize, samples - start));
}

void BasePlugInProcessor::processPiece (juce::AudioBuffer<float>& buffer, int start, int samples)
{
    const int inputs = juce::jmin (getTotalNumInputChannels(), buffer.getNumChannels());
    const int outputs = juce::jmin (getTotalNumOutputChannels(), buffer.getNumChannels());
    inputBlock.ensureDimensions (inputs, samples);
    for (int c = 0; c < inputs; ++c)
        vesk::audio::ippsCopy_32f (buffer.getReadPointer (c, start), inputBlock.getChannel (c),
                                   samples);

    Signal32 result = engine->process (inputBlock);
    if (lastBlockLength >= 1)
    {
        outputQueue.pushCopy (result);
        if (outputQueue.getAvailable() < samples)
        {
            silence.ensureDimensions (outputs, samples);
            for (int c = 0; c < outputs; ++c)
                vesk::audio::ippsZero_32f (silence.getChannel (c), samples);
            result = silence;
        }
        else
        {
            silence.ensureDimensions (outputQueue.getChannels(), samples);
            outputQueue.get (silence);
            result = silence;
        }
    }

    for (int c = 0; c < outputs; ++c)
    {
        if (c < result.getNumChannels() && result.getNumSamples() >= samples)
            buffer.copyFrom (c, start, result.getChannel (c), samples);
        else
            buffer.clear (c, start, samples);
    }
}

//==============================================================================
void BasePlugInProcessor::getParameterSettings (juce::OutputStream& out)
{
    out.write ("KSEV", 4);
    out.writeInt (static_cast<int> (pluginCode));
    out.writeInt (static_cast<int> (getVersionCode()));
    out.writeInt (parameters.size());
    for (auto* p : parameters)
    {
        out.writeInt (p->internalId);
        out.writeFloat (engine->getParameterValue (p->internalId));
    }
    out.writeInt64 (static_cast<juce::int64> (presetNameMarker));
    out.writeString (currentPresetName);
}

bool BasePlugInProcessor::setParameterSettings (juce::InputStream& in)
{
    const auto total = in.getTotalLength();
    if (total < 16)
        return false;
    char magic[4] = {};
    in.read (magic, 4);
    const auto code = static_cast<unsigned int> (in.readInt());
    in.readInt(); // the writer's version code
    if (std::memcmp (magic, "KSEV", 4) != 0 || code != pluginCode)
        return false;

    const int count = in.readInt();
    // Checked against the stream's whole length, as it always was; the reads below stop at the
    // end of the data in any case, and a short read yields zeros, never foreign memory.
    if (count > 0 && 8 * static_cast<juce::int64> (count) + 4 <= total)
    {
        for (int i = 0; i < count && !in.isExhausted(); ++i)
        {
            const int id = in.readInt();
            const float value = in.readFloat();
            // A block from a later version may carry ids this engine does not know: skipped.
            setCheckedParameterValue (id, value, false);
        }
    }
    engine->effectuateParameterChanges();
    notifyListeners (-1);

    if (in.getPosition() + 8 < total)
    {
        const auto marker = static_cast<std::uint64_t> (in.readInt64());
        if (marker == presetNameMarker)
            currentPresetName = in.readString();
        else
            in.setPosition (in.getPosition() - 8);
    }
    return true;
}

void BasePlugInProcessor::getCurrentProgramStateInformation (juce::MemoryBlock& dest)
{
    dest.reset();
    juce::MemoryOutputStream out (dest, false);
    getParameterSettings (out);
}

void BasePlugInProcessor::setCurrentProgramStateInformation (const void* data, int size)
{
    juce::MemoryInputStream in (data, static_cast<std::size_t> (juce::jmax (size, 0)), false);
    setParameterSettings (in);
    updateSetStateTime();
}

void BasePlugInProcessor::getStateInformation (juce::MemoryBlock& dest)
{
    getCurrentProgramStateInformation (dest);
}

void BasePlugInProcessor::setStateInformation (const void* data, int size)
{
    setCurrentProgramStateInformation (data, size);
}

void BasePlugInProcessor::updateSetStateTime()
{
    setStateTime = juce::Time::getMillisecondCounter();
}

juce::MemoryBlock BasePlugInProcessor::currentSettings()
{
    juce::MemoryBlock block;
    juce::MemoryOutputStream out (block, false);
    getParameterSettings (out);
    out.flush();
    return block;
}

bool BasePlugInProcessor::loadSettings (const juce::MemoryBlock& block)
{
    juce::MemoryInputStream in (block, false);
    return setParameterSettings (in);
}

void BasePlugInProcessor::addUndoState()
{
    undoList.push_back (currentSettings());
    redoList.clear();
}

void BasePlugInProcessor::undo()
{
    if (undoList.empty())
        return;
    redoList.push_back (currentSettings());
    const auto previous = undoList.back();
    loadSettings (previous);
    undoList.pop_back();
}

void BasePlugInProcessor::redo()
{
    if (redoList.empty())
        return;
    undoList.push_back (currentSettings());
    const auto next = redoList.back();
    loadSettings (next);
    redoList.pop_back();
}

void BasePlugInProcessor::copyToAlternate() { alternateSettings = currentSettings(); }

void BasePlugInProcessor::switchToAlternateSettings()
{
    auto current = currentSettings();
    loadSettings (alternateSettings);
    alternateSettings = std::move (current);
}

void BasePlugInProcessor::clearSettings()
{
    for (int i = 0; i < parameters.size(); ++i)
        if (!excludedParameterIds.contains (parameters[i]->internalId))
            resetParameter (i, false);
}

//==============================================================================
bool BasePlugInProcessor::exportToPresetFile (const juce::File& file)
{
    juce::XmlElement preset ("Preset");
    auto* settings = preset.createNewChildElement ("ParameterSettings");
    for (auto* p : parameters)
    {
        auto* parameter = settings->createNewChildElement ("Parameter");
        parameter->setAttribute ("id", p->internalId);
        parameter->setAttribute ("unit", p->unit);
        parameter->setAttribute ("value",
                                 static_cast<double> (engine->getParameterValue (p->internalId)));
        parameter->setAttribute ("name", p->name);
    }
    auto customData = std::make_unique<juce::XmlElement> ("CustomData");
    if (fillCustomDataXmlElement (customData.get()))
        preset.addChildElement (customData.release());

    // Written beside the target and moved over it, so a failed write never destroys the old file.
    juce::TemporaryFile temporary (file);
    juce::XmlElement::TextFormat format;
    format.lineWrapLength = 60;
    if (!preset.writeTo (temporary.getFile(), format))
        return false;
    return temporary.overwriteTargetFileWithTemporary();
}

bool BasePlugInProcessor::importFromPresetFile (const juce::File& file)
{
    auto document = juce::XmlDocument::parse (file);
    if (document == nullptr)
        return false;
    auto* settings = document->getChildByName ("ParameterSettings");
    if (settings == nullptr)
        return false;

    clearSettings();
    for (auto* parameter : settings->getChildIterator())
    {
        const int id = parameter->getIntAttribute ("id", -1);
        if (id < 0 || excludedParameterIds.contains (id))
            continue;
        const auto value = static_cast<float> (parameter->getDoubleAttribute ("value", 0.0));
        if (!setCheckedParameterValue (id, value, false))
            continue; // an id this engine does not know (a preset of a later version)
        if (const int index = findPublicParameterIndex (id); index >= 0)
            sendParamChangeMessageToListeners (index,
                                               parameters[index]->getNormalizedParameterValue());
    }
    engine->effectuateParameterChanges();
    if (auto* customData = document->getChildByName ("CustomData"))
        parseCustomDataXmlElement (customData);
    notifyListeners (-1);
    currentPresetName = file.getFileNameWithoutExtension();
    return true;
}

bool BasePlugInProcessor::fillCustomDataXmlElement (juce::XmlElement*) { return false; }

void BasePlugInProcessor::parseCustomDataXmlElement (juce::XmlElement*) {}

void BasePlugInProcessor::scanPresets()
{
    presetTree = juce::ValueTree ("PresetTree");
    programNames.clearQuick();
    programFiles.clearQuick();

    // Program 0 is "Reset", so a host that selects the first program gets the defaults.
    juce::ValueTree reset ("Reset");
    reset.setProperty ("Name", "Reset", nullptr);
    presetTree.appendChild (reset, nullptr);
    programNames.add ("Reset");
    programFiles.add ({});

    const juce::File folders[] = {getResourcesFolder().getChildFile ("Presets"),
                                  getUserDataFolder().getChildFile ("Presets")};
    const char* names[] = {"Factory presets", "User presets"};
    for (int f = 0; f < 2; ++f)
    {
        juce::ValueTree folder ("PresetFolder");
        folder.setProperty ("Name", names[f], nullptr);
        auto files = folders[f].findChildFiles (juce::File::findFiles, true, "*.xml");
        files.sort();
        for (auto const& presetFile : files)
        {
            juce::ValueTree node ("Preset");
            node.setProperty ("Name", presetFile.getFileNameWithoutExtension(), nullptr);
            node.setProperty ("Index", programNames.size(), nullptr);
            node.setProperty ("File", presetFile.getFullPathName(), nullptr);
            folder.appendChild (node, nullptr);
            programNames.add (presetFile.getFileNameWithoutExtension());
            programFiles.add (presetFile.getFullPathName());
        }
        presetTree.appendChild (folder, nullptr);
    }
}

int BasePlugInProcessor::getNumPrograms() { return programNames.size(); }

int BasePlugInProcessor::getCurrentProgram() { return currentProgram; }

void BasePlugInProcessor::setCurrentProgram (int index)
{
    // A host that selects a program right after restoring a state must not overwrite it.
    const auto elapsed = static_cast<juce::uint32> (juce::Time::getMillisecondCounter())
                         - static_cast<juce::uint32> (setStateTime);
    if (setStateTime != 0 && elapsed < 200)
        return;
    if (!juce::isPositiveAndBelow (index, programNames.size()))
        return;
    currentProgram = index;
    if (programFiles[index].isEmpty())
    {
        clearSettings();
        engine->effectuateParameterChanges();
        notifyListeners (-1);
        currentPresetName = {};
        return;
    }
    importFromPresetFile (juce::File (programFiles[index]));
}

const juce::String BasePlugInProcessor::getProgramName (int index)
{
    return juce::isPositiveAndBelow (index, programNames.size()) ? programNames[index]
                                                                 : juce::String();
}

void BasePlugInProcessor::changeProgramName (int index, const juce::String& newName)
{
    if (index == currentProgram && newName.isNotEmpty())
        currentPresetName = newName;
}

//==============================================================================
const juce::String BasePlugInProcessor::getName() const
{
    return juce::String (makerName) + " " + pluginName;
}

unsigned int BasePlugInProcessor::versionCodeOf (const juce::String& version)
{
    const auto tokens = juce::StringArray::fromTokens (version, ".", "");
    unsigned int code = 0;
    for (int i = 0; i < 3; ++i)
        code = (code << 8) + static_cast<unsigned int> (juce::jmax (0, tokens[i].getIntValue()));
    return code;
}

unsigned int BasePlugInProcessor::getVersionCode() const { return versionCodeOf (versionText); }

juce::PropertiesFile* BasePlugInProcessor::createPropertiesFile() const
{
    juce::PropertiesFile::Options options;
    options.applicationName =
        (bundleName + versionText.upToFirstOccurrenceOf (".", false, false)).removeCharacters (" ");
    options.filenameSuffix = "prop";
    options.folderName = makerName;
    options.osxLibrarySubFolder = "Application Support";
#if JUCE_MAC
    options.commonToAllUsers = true;
#else
    options.commonToAllUsers = false; // Linux has no machine-wide folder that a user may write
#endif
    options.ignoreCaseOfKeyNames = false;

    const auto beside = juce::File::getSpecialLocation (juce::File::currentExecutableFile)
                            .getParentDirectory()
                            .getChildFile (options.applicationName + ".prop");
    if (beside.getParentDirectory().hasWriteAccess() && beside.existsAsFile())
        return new juce::PropertiesFile (beside, options);
    return new juce::PropertiesFile (options);
}

juce::File BasePlugInProcessor::getResourcesFolder() const
{
#if JUCE_MAC
    return juce::File::getSpecialLocation (juce::File::currentApplicationFile)
        .getChildFile ("Contents/Resources");
#else
    // VST3: Name.vst3/Contents/<arch>/Name.so; LV2: Name.lv2/Name.so; anything else (the
    // stand-alone program, the tool) keeps a Resources folder beside its executable.
    const auto executable = juce::File::getSpecialLocation (juce::File::currentExecutableFile);
    const auto bundle = executable.getParentDirectory().getParentDirectory().getParentDirectory();
    if (bundle.hasFileExtension ("vst3"))
        return bundle.getChildFile ("Contents/Resources");
    if (executable.getParentDirectory().hasFileExtension ("lv2"))
        return executable.getParentDirectory();
    return executable.getParentDirectory().getChildFile ("Resources");
#endif
}

juce::File BasePlugInProcessor::getUserDataFolder() const
{
#if JUCE_MAC
    const auto base = juce::File::getSpecialLocation (juce::File::userApplicationDataDirectory)
                          .getChildFile ("Application Support");
#else
    const auto base = juce::File::getSpecialLocation (juce::File::userApplicationDataDirectory);
#endif
    return base.getChildFile (makerName).getChildFile (bundleName.removeCharacters (" "));
}

void BasePlugInProcessor::initializeLocalization()
{
    const auto language =
        juce::SystemStats::getDisplayLanguage().upToFirstOccurrenceOf ("-", false, false);
    const auto file = getResourcesFolder().getChildFile (bundleName.removeCharacters (" ") + "_"
                                                         + language + ".loc");
    if (file.existsAsFile())
        juce::LocalisedStrings::setCurrentMappings (new juce::LocalisedStrings (file, false));
}

juce::String BasePlugInProcessor::getHelpFilePath (const juce::String& language) const
{
    const auto page = pluginName.toLowerCase().removeCharacters (" ") + ".html";
    const auto resources = getResourcesFolder();
    const auto bundle = bundleName.removeCharacters (" ");
    const auto localised = resources.getChildFile (bundle + "_" + language).getChildFile (page);
    if (localised.existsAsFile())
        return localised.getFullPathName();
    return resources.getChildFile (bundle + "_en").getChildFile (page).getFullPathName();
}

void BasePlugInProcessor::showHelp() const
{
    const auto language =
        juce::SystemStats::getDisplayLanguage().upToFirstOccurrenceOf ("-", false, false);
    juce::Process::openDocument (getHelpFilePath (language), {});
}

JUCE_END_IGNORE_WARNINGS_GCC_LIKE
