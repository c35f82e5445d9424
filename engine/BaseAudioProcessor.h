#pragma once

#include "AudioFormat.h"
#include "Signal.h"

#include <cstdint>

namespace vesk::audio
{
/** What an engine asks of its host layer. */
struct ProcessingInfo
{
    std::int32_t blockLength = 0; // fixed processing block length; 0 accepts any length
    std::int32_t latency = 0;     // the engine's own latency in samples
    bool flag = false;
};

/** Marks what the calling thread does while it lives as audio-side work: a block being
    processed, or automation a host delivers on its audio thread outside the block (a VST3 host
    before the block it belongs to, any thread of a host's pool of audio workers). Engines that
    run in real time leave the work such a call would cause (a redesign) to a thread of their
    own. Told by the call, not by the thread's identity, because hosts process one instance from
    several threads. Nests. Any thread. */
class AudioThreadScope
{
public:
    AudioThreadScope() noexcept { ++depth; }
    ~AudioThreadScope() { --depth; }
    AudioThreadScope (AudioThreadScope const&) = delete;
    AudioThreadScope& operator= (AudioThreadScope const&) = delete;

    /** Whether the calling thread is inside such a scope. */
    static bool isActive() noexcept { return depth > 0; }

private:
    static inline thread_local int depth = 0;
};

/** The interface of every signal-processing engine: stream format, numbered parameters, reset
    and block processing. */
class BaseAudioProcessor
{
public:
    /** Not while audio runs. */
    virtual ~BaseAudioProcessor() = default;

    /** Stores both formats; returns true. Not while audio runs. */
    virtual bool setFormat (const AudioFormat& input, const AudioFormat& output);
    /** Fills 0, 0, false. Any thread. */
    virtual void getProcessingInfo (ProcessingInfo& info);
    /** No parameters here: throws std::out_of_range ("Parameter index"). Any thread. */
    virtual void getParameterRange (int index, float& minimum, float& maximum);
    /** As getParameterRange. Any thread. */
    virtual float getParameterValue (int index);
    /** As getParameterRange. Any thread. */
    virtual void setParameterValue (int index, float value, bool);
    /** Nothing to do here. Any thread but the audio thread. */
    virtual void effectuateParameterChanges();
    /** Nothing to do here. Not while audio runs. */
    virtual void reset();
    /** One block of audio. Audio thread. */
    virtual Signal32 process (const Signal32& input) = 0;

    /** Whether process() runs under real-time constraints (a host playing) or offline (a
        render, a tool), where it may do its work inline. Nothing to do here. Not while audio
        runs. */
    virtual void setRealtime (bool) {}

    /** Not while the format changes. */
    const AudioFormat& getInputFormat() const noexcept { return inputFormat; }
    /** Not while the format changes. */
    const AudioFormat& getOutputFormat() const noexcept { return outputFormat; }

    /** The host's announced block size, written by the host layer before each (re)start. */
    int expectedBlockSize = 0;

protected:
    AudioFormat inputFormat;
    AudioFormat outputFormat;
};
} // namespace vesk::audio
