#include "Deconvolution.h"

namespace vesk::audio
{
/** One thread for every engine of the process that runs in real time: it carries out the
    redesigns that the audio threads ask for. The audio thread only raises a flag (no system
    call, no lock), so the thread looks for work at a short interval. */
class Deconvolution::DesignThread : public juce::Thread
{
public:
    DesignThread() : juce::Thread ("Kelfiner design") { startThread(); }
    ~DesignThread() override { stopThread (2000); }

    void add (Deconvolution* engine)
    {
        const juce::ScopedLock lock (enginesLock);
        engines.addIfNotAlreadyThere (engine);
    }

    /** Returns once a design for this engine that had started has finished. */
    void remove (Deconvolution* engine)
    {
        const juce::ScopedLock lock (enginesLock);
        engines.removeFirstMatchingValue (engine);
    }

    void run() override
    {
        while (!threadShouldExit())
        {
            wait (pollMilliseconds);
            const juce::ScopedLock lock (enginesLock);
            for (auto* engine : engines)
                if (engine->designPending.load())
                    engine->designRequested();
        }
    }

private:
    static constexpr int pollMilliseconds = 4;
    juce::CriticalSection enginesLock;
    juce::Array<Deconvolution*> engines;
};

Deconvolution::Deconvolution()
{
    for (auto& frequency : emphasisPointFrequency)
        frequency.store (1000.0f);
    for (auto& level : emphasisPointLevel)
        level.store (100.0f);
}

Deconvolution::~Deconvolution() { setRealtime (false); }

void Deconvolution::setRealtime (bool shouldBeRealtime)
{
    if (shouldBeRealtime && designThread == nullptr)
    {
        designThread = std::make_unique<juce::SharedResourcePointer<DesignThread>>();
        (*designThread)->add (this);
    }
    else if (!shouldBeRealtime && designThread != nullptr)
    {
        (*designThread)->remove (this);
        designThread.reset();
    }
    realtime = shouldBeRealtime;
    // Whatever was asked of the design thread is done here instead.
    if (!shouldBeRealtime && designPending.load())
        designRequested();
}

void Deconvolution::setEstimator (Estimator estimatorToUse)
{
    if (estimator.exchange (estimatorToUse) != estimatorToUse)
        restartEstimate = true;
}

bool Deconvolution::onAudioThread() const noexcept
{
    return realtime.load() && AudioThreadScope::isActive();
}

void Deconvolution::publishSourceSnapshot (bool wait)
{
    // The audio thread never waits: when a designer is copying the snapshot, the next block
    // tries again. Others may wait the moment that copy takes.
    if (wait)
        snapshotLock.enter();
    else if (!snapshotLock.tryEnter())
    {
        snapshotStale = true;
        return;
    }
    struct Leave
    {
        juce::SpinLock& lock;
        ~Leave() { lock.exit(); }
    } const leave{snapshotLock};
    if (estimator.load() == Estimator::longTermSpectrum && spectrumFrames > 0)
    {
        // The designers make the model; the audio thread only hands over the sum.
        spectrumSnapshot.assign (spectrumSum.begin(), spectrumSum.end());
        snapshotLearntSeconds = spectrumSeconds();
    }
    else
    {
        spectrumSnapshot.clear();
        snapshotLearntSeconds = loadedModelSeconds;
        const int samples = sourceEstimate.getNumSamples();
        sourceSnapshot.ensureDimensions (1, samples);
        if (samples > 0)
            ippsCopy_32f (sourceEstimate.getChannel (0), sourceSnapshot.getChannel (0), samples);
    }
    snapshotSampleRate = sourceSampleRate;
    snapshotStale = false;
    unpublishedFrames = false;
}

void Deconvolution::requestDesign()
{
    publishSourceSnapshot();
    if (snapshotStale)
        return;
    secondsSinceFilterUpdate = 0.0;
    if (realtime.load())
    {
        designPending = true;
        return;
    }
    updateFilter();
    designedSinceBlock = false; // this block's own design: the pacing restarted above
    installPendingResponse();
}

void Deconvolution::designRequested()
{
    const juce::ScopedLock lock (designLock);
    designPending = false;
    if (emphasisPending.exchange (false))
        updateEmphasisLevels();
    if (targetPending.exchange (false))
        updateTargetMagnitudes (Signal32());
    updateFilter();
}

void Deconvolution::installPendingResponse()
{
    if ((readySlot.load() & freshResponse) == 0)
        return;
    audioSlot = readySlot.exchange (audioSlot) & ~freshResponse;
    // A response made for an earlier layout (before setFormat or reset) is dropped; the designer
    // that made it has been asked again.
    if (correctionFilter.swapResponse (responseSlots[static_cast<std::size_t> (audioSlot)]))
        ++installedDesigns;
}
} // namespace vesk::audio
