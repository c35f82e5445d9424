#include "BasePlugInProcessor.h"

// The parameter-settings block and what it serves: host state, undo, redo and A/B.

JUCE_BEGIN_IGNORE_WARNINGS_GCC_LIKE ("-Wdeprecated-declarations")

void BasePlugInProcessor::getParameterSettings (juce::OutputStream& out)
{
    out.write ("KSEV", 4);
    out.writeInt (static_cast<int> (pluginCode));
    out.writeInt (static_cast<int> (getVersionCode()));
    out.writeInt (parameters.size());
    for (auto* p : parameters)
    {
        out.writeInt (p->internalId.value);
        out.writeFloat (engine->getParameterValue (p->internalId.value));
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
            setCheckedParameterValue (EngineParameterId (id), value, false);
        }
    }
    engine->effectuateParameterChanges();
    notifyListeners (-1);
    // Host wrappers keep their own copy of each value (an LV2 host learns values only from
    // what the plug-in reports): a restored state, an undo or a switch to B is reported whole.
    for (int i = 0; i < parameters.size(); ++i)
        sendParamChangeMessageToListeners (i, parameters[i]->getNormalizedParameterValue());

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
        if (!excludedParameterIds.contains (parameters[i]->internalId.value))
            resetParameter (PublicParameterIndex (i), false);
}

JUCE_END_IGNORE_WARNINGS_GCC_LIKE
