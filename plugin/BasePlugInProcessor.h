#pragma once

#include "BaseAudioProcessor.h"
#include "ParameterDescription.h"
#include "SignalQueue.h"

#include <juce_audio_processors/juce_audio_processors.h>

#include <atomic>
#include <list>
#include <memory>

/** The host-facing processor shared by the maker's plug-ins: public parameters over an engine's
    internal ones, audio streaming into the engine, the parameter-settings block with undo, redo
    and A/B, preset files, the preset list offered to the host, and the plug-in's environment. */
class BasePlugInProcessor : public juce::AudioProcessor
{
public:
    /** Told when public parameters change; -1 means any may have changed. Called on the thread
        that made the change: the message thread for the editor, state loads and presets, but
        the audio thread when a host delivers automation there. An implementation does no more
        than set a flag that its own timer reads. */
    class Listener
    {
    public:
        virtual ~Listener() = default;
        virtual void parameterChanged (int publicIndex) = 0;
    };

    static constexpr std::uint64_t presetNameMarker = 0x8704AF4A0943473EULL;
    static constexpr const char* makerName = "Vesk Digital";

    /** Takes ownership of the engine. */
    BasePlugInProcessor (vesk::audio::BaseAudioProcessor* engine, const juce::String& bundleName,
                         const juce::String& pluginName, unsigned int pluginCode,
                         const juce::String& version);
    ~BasePlugInProcessor() override;

    // Public parameters (the index-based interface hosts reach through JUCE's legacy wrappers).
    // Any thread; out-of-range indices give neutral results.
    JUCE_BEGIN_IGNORE_WARNINGS_GCC_LIKE ("-Wdeprecated-declarations")
    int getNumParameters() override;
    float getParameter (int index) override;
    void setParameter (int index, float normalized) override;
    float getParameterDefaultValue (int index) override;
    const juce::String getParameterName (int index) override;
    /** The name doubles as the stable identifier that LV2 and VST3 hosts store automation under. */
    juce::String getParameterID (int index) override;
    const juce::String getParameterText (int index) override;
    /** The unit hosts show beside the value. */
    juce::String getParameterLabel (int index) const override;
    const juce::String getInputChannelName (int channelIndex) const override;
    const juce::String getOutputChannelName (int channelIndex) const override;
    bool isInputChannelStereoPair (int index) const override;
    bool isOutputChannelStereoPair (int index) const override;
    JUCE_END_IGNORE_WARNINGS_GCC_LIKE

    /** Sets an engine parameter through its public description's check (clamped to its range,
        NaN to its default): the entrance for states, presets, the editor and the tool. False,
        and nothing set, for an id no public parameter carries. Any thread. */
    bool setCheckedParameterValue (int internalId, float value, bool flag = false);
    /** Puts one parameter back to its default; optionally tells the host. Message thread. */
    virtual void resetParameter (int index, bool notifyHost);
    void notifyInternalParameterChange (int internalId);
    int findPublicParameterIndex (int internalId) const;
    ParameterDescription* findPublicParameter (int internalId) const;
    int getInternalParameterId (int index) const;
    vesk::audio::BaseAudioProcessor* getProcessor() const noexcept { return engine.get(); }
    void addListener (Listener* listener);
    void removeListener (Listener* listener);

    // Audio streaming. Audio thread (prepareToPlay: not while audio runs).
    void prepareToPlay (double sampleRate, int samplesPerBlock) override;
    void releaseResources() override {}
    /** Offline renders let the engine work inline; applied at the next prepareToPlay. */
    void setNonRealtime (bool isNonRealtime) noexcept override;
    bool silenceInProducesSilenceOut() const override { return true; }
    /** Why the audio passes through unprocessed (a format the engine refused), or empty.
        Message thread. */
    juce::String getFormatProblem() const;
    void processBlock (juce::AudioBuffer<float>& buffer, juce::MidiBuffer& midi) override;
    bool isBusesLayoutSupported (const BusesLayout& layouts) const override;
    bool acceptsMidi() const override { return false; }
    bool producesMidi() const override { return false; }
    bool isMidiEffect() const override { return false; }
    double getTailLengthSeconds() const override { return 0.0; }

    // The parameter-settings block, undo, redo and A/B. Message thread.
    void getParameterSettings (juce::OutputStream& out);
    bool setParameterSettings (juce::InputStream& in);
    virtual void getCurrentProgramStateInformation (juce::MemoryBlock& dest);
    virtual void setCurrentProgramStateInformation (const void* data, int size);
    void getStateInformation (juce::MemoryBlock& dest) override;
    void setStateInformation (const void* data, int size) override;
    void updateSetStateTime();
    void addUndoState();
    void undo();
    void redo();
    bool canUndo() const noexcept { return !undoList.empty(); }
    bool canRedo() const noexcept { return !redoList.empty(); }
    void copyToAlternate();
    void switchToAlternateSettings();
    virtual void clearSettings();

    // Preset files and the preset list. Message thread.
    bool exportToPresetFile (const juce::File& file);
    bool importFromPresetFile (const juce::File& file);
    virtual bool fillCustomDataXmlElement (juce::XmlElement* customData);
    virtual void parseCustomDataXmlElement (juce::XmlElement* customData);
    /** Rebuilds the preset tree from the factory and user folders. */
    void scanPresets();
    juce::ValueTree getPresetTree() const { return presetTree; }
    juce::String getCurrentPresetName() const { return currentPresetName; }
    void setCurrentPresetName (const juce::String& name) { currentPresetName = name; }
    int getNumPrograms() override;
    int getCurrentProgram() override;
    void setCurrentProgram (int index) override;
    const juce::String getProgramName (int index) override;
    void changeProgramName (int index, const juce::String& newName) override;

    // Environment.
    const juce::String getName() const override;
    juce::String getShortName() const { return pluginName; }
    juce::String getBundleName() const { return bundleName; }
    unsigned int getVersionCode() const;
    static unsigned int versionCodeOf (const juce::String& version);
    juce::PropertiesFile* createPropertiesFile() const;
    void initializeLocalization();
    juce::String getHelpFilePath (const juce::String& language) const;
    void showHelp() const;
    /** Where the bundle keeps its resources (presets, translations, help). */
    juce::File getResourcesFolder() const;
    /** The user's folder for this plug-in's presets and filters (created on demand). */
    juce::File getUserDataFolder() const;

    static vesk::audio::SpeakerPosition speakerIdToPosition (const juce::String& id);

protected:
    /** Appends a public parameter; the product does this in its constructor. */
    void addParameter (std::unique_ptr<ParameterDescription> description);

    juce::Array<int> excludedParameterIds;

private:
    bool engineFlag() const;
    void notifyListeners (int publicIndex);
    vesk::audio::AudioFormat makeFormat (bool isInput, double sampleRate) const;
    void primeOutputQueue (int blockLength);
    void processPiece (juce::AudioBuffer<float>& buffer, int start, int samples);
    juce::MemoryBlock currentSettings();
    bool loadSettings (const juce::MemoryBlock& block);

    std::unique_ptr<vesk::audio::BaseAudioProcessor> engine;
    juce::OwnedArray<ParameterDescription> parameters; // deleted last first
    juce::Array<Listener*> listeners;

    juce::String bundleName, pluginName, versionText;
    unsigned int pluginCode;

    vesk::audio::ProcessingInfo processingInfo;
    int lastBlockLength = 0;
    int lastLatency = 0;
    int preparedBlockSize = 4096; // until prepareToPlay says otherwise
    std::atomic<bool> formatRefused{false};
    vesk::audio::SignalQueue<vesk::audio::Signal32> outputQueue;
    vesk::audio::Signal32 inputBlock;
    vesk::audio::Signal32 silence;

    std::list<juce::MemoryBlock> undoList, redoList;
    juce::MemoryBlock alternateSettings;
    juce::String currentPresetName;
    juce::int64 setStateTime = 0;

    juce::ValueTree presetTree;
    juce::StringArray programNames;
    juce::StringArray programFiles; // empty path: the "Reset" entry
    int currentProgram = 0;
};
