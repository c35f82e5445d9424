#pragma once

#include "BaseAudioProcessor.h"
#include "ParameterDescription.h"
#include "ParameterIds.h"
#include "SignalQueue.h"

#if KELFINER_LICENSING
#include "DemoDisrupter.h"
#include "LicenseManager.h"
#endif

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

    /** Takes ownership of the engine. Message thread. */
    BasePlugInProcessor (vesk::audio::BaseAudioProcessor* engine, const juce::String& bundleName,
                         const juce::String& pluginName, unsigned int pluginCode,
                         const juce::String& version);
    /** Message thread, after the editor is gone. */
    ~BasePlugInProcessor() override;

    // Public parameters (the index-based interface hosts reach through JUCE's legacy wrappers).
    // Out-of-range indices give neutral results.
    JUCE_BEGIN_IGNORE_WARNINGS_GCC_LIKE ("-Wdeprecated-declarations")
    /** Any thread. */
    int getNumParameters() override;
    /** The engine's value, normalised. Any thread. */
    float getParameter (int index) override;
    /** Checks, maps and sets; listeners are told on the calling thread. Any thread, the audio
        thread included (it never allocates or redesigns there). */
    void setParameter (int index, float normalized) override;
    /** Any thread. */
    float getParameterDefaultValue (int index) override;
    /** Any thread. */
    const juce::String getParameterName (int index) override;
    /** The name doubles as the stable identifier that LV2 and VST3 hosts store automation under.
        Any thread. */
    juce::String getParameterID (int index) override;
    /** Any thread. */
    const juce::String getParameterText (int index) override;
    /** The unit hosts show beside the value. Any thread. */
    juce::String getParameterLabel (int index) const override;
    /** Any thread. */
    const juce::String getInputChannelName (int channelIndex) const override;
    /** Any thread. */
    const juce::String getOutputChannelName (int channelIndex) const override;
    /** Any thread. */
    bool isInputChannelStereoPair (int index) const override;
    /** Any thread. */
    bool isOutputChannelStereoPair (int index) const override;
    JUCE_END_IGNORE_WARNINGS_GCC_LIKE

    /** Sets an engine parameter through its public description's check (clamped to its range,
        NaN to its default): the entrance for states, presets, the editor and the tool. False,
        and nothing set, for an id no public parameter carries. Any thread. */
    bool setCheckedParameterValue (EngineParameterId id, float value, bool flag = false);
    /** Puts one parameter back to its default; optionally tells the host. Message thread. */
    virtual void resetParameter (PublicParameterIndex index, bool notifyHost);
    /** Tells the host the engine's value changed (after the editor or a load set it). Message
        thread. */
    void notifyInternalParameterChange (EngineParameterId id);
    /** Any thread. */
    PublicParameterIndex findPublicParameterIndex (EngineParameterId id) const;
    /** Any thread. */
    ParameterDescription* findPublicParameter (EngineParameterId id) const;
    /** Any thread. */
    EngineParameterId getInternalParameterId (PublicParameterIndex index) const;
    /** Any thread. */
    vesk::audio::BaseAudioProcessor* getProcessor() const noexcept { return engine.get(); }
    /** Message thread. */
    void addListener (Listener* listener);
    using juce::AudioProcessor::addListener; // the host wrappers' listeners
    /** Message thread. */
    void removeListener (Listener* listener);
    using juce::AudioProcessor::removeListener;

    // Audio streaming.
    /** Formats, resets and prepares the engine for the announced block size; an offline render
        (setNonRealtime) lets the engine design inline. Not while audio runs. */
    void prepareToPlay (double sampleRate, int samplesPerBlock) override;
    /** Keeps everything. Not while audio runs. */
    void releaseResources() override {}
    /** Any thread. */
    bool silenceInProducesSilenceOut() const override { return true; }
    /** Why the audio passes through unprocessed (a format the engine refused), or empty.
        Message thread. */
    juce::String getFormatProblem() const;
    /** Audio thread. */
    void processBlock (juce::AudioBuffer<float>& buffer, juce::MidiBuffer& midi) override;
    /** Any matching input and output channel count. Not while audio runs. */
    bool isBusesLayoutSupported (const BusesLayout& layouts) const override;
    /** Any thread. */
    bool acceptsMidi() const override { return false; }
    /** Any thread. */
    bool producesMidi() const override { return false; }
    /** Any thread. */
    bool isMidiEffect() const override { return false; }
    /** Any thread. */
    double getTailLengthSeconds() const override { return 0.0; }

    // The parameter-settings block, undo, redo and A/B. The host's state calls come on the
    // message thread or a host worker thread; everything else on the message thread.
    /** Message thread or a host worker thread. */
    void getParameterSettings (juce::OutputStream& out);
    /** Message thread or a host worker thread. */
    bool setParameterSettings (juce::InputStream& in);
    /** Message thread or a host worker thread. */
    void getCurrentProgramStateInformation (juce::MemoryBlock& dest) override;
    /** Message thread or a host worker thread. */
    void setCurrentProgramStateInformation (const void* data, int size) override;
    /** Message thread or a host worker thread. */
    void getStateInformation (juce::MemoryBlock& dest) override;
    /** Message thread or a host worker thread. */
    void setStateInformation (const void* data, int size) override;
    /** Message thread or a host worker thread. */
    void updateSetStateTime();
    /** Message thread. */
    void addUndoState();
    /** Message thread. */
    void undo();
    /** Message thread. */
    void redo();
    /** Message thread. */
    bool canUndo() const noexcept { return !undoList.empty(); }
    /** Message thread. */
    bool canRedo() const noexcept { return !redoList.empty(); }
    /** Message thread. */
    void copyToAlternate();
    /** Message thread. */
    void switchToAlternateSettings();
    /** Every parameter back to its default. Message thread. */
    virtual void clearSettings();

    // Preset files and the preset list. Message thread.
    /** Message thread. */
    bool exportToPresetFile (const juce::File& file);
    /** Message thread. */
    bool importFromPresetFile (const juce::File& file);
    /** A preset's text from memory, checked as untrusted; `name` becomes the preset's name.
        Message thread. */
    bool importFromPresetData (const void* data, std::size_t size, const juce::String& name);
    /** Message thread. */
    virtual bool fillCustomDataXmlElement (juce::XmlElement* customData);
    /** Message thread. */
    virtual void parseCustomDataXmlElement (juce::XmlElement* customData);
    /** Rebuilds the preset tree from the factory and user folders. Message thread. */
    void scanPresets();
    /** Message thread. */
    juce::ValueTree getPresetTree() const { return presetTree; }
    /** Message thread. */
    juce::String getCurrentPresetName() const { return currentPresetName; }
    /** Message thread. */
    void setCurrentPresetName (const juce::String& name) { currentPresetName = name; }
    /** Message thread. */
    int getNumPrograms() override;
    /** Message thread. */
    int getCurrentProgram() override;
    /** Message thread. */
    void setCurrentProgram (int index) override;
    /** Message thread. */
    const juce::String getProgramName (int index) override;
    /** Message thread. */
    void changeProgramName (int index, const juce::String& newName) override;

    // Environment.
    /** Any thread. */
    const juce::String getName() const override;
    /** Any thread. */
    juce::String getShortName() const { return pluginName; }
    /** Any thread. */
    juce::String getBundleName() const { return bundleName; }
    /** Any thread. */
    unsigned int getVersionCode() const;
    /** Any thread. */
    static unsigned int versionCodeOf (const juce::String& version);
    /** The caller owns the file. Message thread. */
    juce::PropertiesFile* createPropertiesFile() const;
    /** The properties file opened when the processor was made. Message thread. */
    juce::PropertiesFile& getProperties() const noexcept { return *properties; }
    /** Message thread. */
    void initializeLocalization();
    /** Message thread. */
    juce::String getHelpFilePath (const juce::String& language) const;
    /** Opens the help page with the desktop's browser. Empty when it did; otherwise what to tell
        the user: where the page is, or that it is missing. Message thread. */
    juce::String showHelp() const;
    /** Where the bundle keeps its resources (presets, translations, help). Any thread. */
    juce::File getResourcesFolder() const;
    /** The user's folder for this plug-in's presets and filters (created on demand). Any
        thread. */
    juce::File getUserDataFolder() const;

    /** Any thread. */
    static vesk::audio::SpeakerPosition speakerIdToPosition (const juce::String& id);

#if KELFINER_LICENSING
    // Licensing. Without a licence manager (the command-line tool, tests) nothing is gated.
    /** Message thread, before audio starts. */
    void setLicenseManager (std::unique_ptr<vesk::licensing::LicenseManager> manager);
    /** Null when this processor is not gated. Message thread. */
    vesk::licensing::LicenseManager* getLicenseManager() const noexcept { return licence.get(); }
    /** Whether the output is being disrupted (the flag as last read). Any thread. */
    bool isInDemoMode() const noexcept { return demoMode; }
#endif

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
    bool importPreset (std::unique_ptr<juce::XmlElement> document, const juce::String& name);

    std::unique_ptr<vesk::audio::BaseAudioProcessor> engine;
    std::unique_ptr<juce::PropertiesFile> properties;
#if KELFINER_LICENSING
    void refreshDemoFlag() noexcept { demoMode = licence != nullptr && licence->isDemo(); }
    std::unique_ptr<vesk::licensing::LicenseManager> licence;
    vesk::licensing::DemoDisrupter demoDisrupter;
    std::atomic<bool> demoMode{false};
#endif
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
