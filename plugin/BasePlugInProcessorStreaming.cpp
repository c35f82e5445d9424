#include "BasePlugInProcessor.h"

#include <cmath>

// Audio streaming: host formats into engine formats, host blocks into engine blocks.

using vesk::audio::AudioFormat;
using vesk::audio::Signal32;
using vesk::audio::SpeakerPosition;

JUCE_BEGIN_IGNORE_WARNINGS_GCC_LIKE ("-Wdeprecated-declarations")

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
    // The engine needs matching input and output formats; any channel count is served.
    const auto& in = layouts.getMainInputChannelSet();
    const auto& out = layouts.getMainOutputChannelSet();
    return !in.isDisabled() && in.size() == out.size();
}

AudioFormat BasePlugInProcessor::makeFormat (bool isInput, double sampleRate) const
{
    const int channels = isInput ? getTotalNumInputChannels() : getTotalNumOutputChannels();
    const auto arrangement = getChannelLayoutOfBus (isInput, 0).getSpeakerArrangementAsString();
    const auto tokens = juce::StringArray::fromTokens (arrangement, " ", "");
    AudioFormat format (channels, sampleRate);
    if (tokens.size() == channels)
    {
        format.speakers.clear();
        for (auto const& token : tokens)
            format.speakers.push_back (speakerIdToPosition (token));
    }
    // Beyond the named layouts (more than eight channels, or names no layout uses) channels are
    // discrete: each gets a position of its own, evenly around the listener.
    for (std::size_t i = 0; i < format.speakers.size(); ++i)
        if (channels > 8 && format.speakers[i].type == SpeakerPosition::unassigned)
        {
            const double angle =
                juce::MathConstants<double>::twoPi * static_cast<double> (i) / channels;
            format.speakers[i] = SpeakerPosition (static_cast<float> (std::sin (angle)),
                                                  static_cast<float> (std::cos (angle)), 0.0f,
                                                  SpeakerPosition::ordinary);
        }
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

juce::String BasePlugInProcessor::getFormatProblem() const
{
    if (!formatRefused)
        return {};
    const auto& input = engine->getInputFormat();
    const auto& output = engine->getOutputFormat();
    if (input.channelCount != output.channelCount)
        return juce::translate ("The input has %1 channels and the output %2; they must match. "
                                "The audio passes through unchanged.")
            .replace ("%1", juce::String (input.channelCount))
            .replace ("%2", juce::String (output.channelCount));
    return juce::translate ("A sample rate of %1 Hz with %2 channels cannot be corrected (rates "
                            "from 1 kHz to 1 MHz, at least one channel). The audio passes "
                            "through unchanged.")
        .replace ("%1", juce::String (input.sampleRate, 0))
        .replace ("%2", juce::String (input.channelCount));
}

void BasePlugInProcessor::primeOutputQueue (int blockLength)
{
    outputQueue.clear();
    outputQueue.setChannels (-1);
    if (blockLength > 0)
        outputQueue.push (Signal32 (getTotalNumOutputChannels(), blockLength, 0.0f));
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
        formatRefused = !engine->setFormat (input, output);
    engine->reset();

    engine->getProcessingInfo (processingInfo);
    setLatencySamples (processingInfo.blockLength + processingInfo.latency);
    lastBlockLength = processingInfo.blockLength;
    lastLatency = processingInfo.latency;
    primeOutputQueue (lastBlockLength);

    // Room for the largest block the host announced, so the audio thread does not allocate.
    inputBlock.ensureDimensions (getTotalNumInputChannels(), juce::jmax (samplesPerBlock, 1));
    silence.ensureDimensions (getTotalNumOutputChannels(), juce::jmax (samplesPerBlock, 1));
#if KELFINER_LICENSING
    refreshDemoFlag();
    // Each instance its own seed, so that several demo instances do not fall silent together.
    demoDisrupter.prepare (sampleRate,
                           static_cast<std::uint32_t> (reinterpret_cast<std::uintptr_t> (this) >> 4)
                               ^ static_cast<std::uint32_t> (juce::Time::getMillisecondCounter()));
#endif
}

void BasePlugInProcessor::processBlock (juce::AudioBuffer<float>& buffer, juce::MidiBuffer&)
{
    const int samples = buffer.getNumSamples();
    if (samples <= 0)
        return;
    // A format the engine cannot run leaves the audio as it came (getFormatProblem says why),
    // rather than muting the track.
    if (formatRefused)
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
#if KELFINER_LICENSING
    refreshDemoFlag();
    if (demoMode)
        demoDisrupter.process (buffer.getArrayOfWritePointers(), getTotalNumOutputChannels(),
                               samples);
#endif
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

JUCE_END_IGNORE_WARNINGS_GCC_LIKE
