#pragma once

#include "BaseAudioProcessor.h"
#include "FirFilter.h"
#include "FourierTransform.h"
#include "FrameQueue.h"
#include "LinearPrediction.h"
#include "MapScale.h"
#include "Profiles.h"

#include <juce_core/juce_core.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

namespace vesk::audio
{
/** The tonal-balance correction engine. While learning it models the long-term spectral
    envelope of its input (the source estimate: by linear prediction, or from the long-term
    power spectrum, see Estimator), compares it with a target profile and applies a 50 ms
    minimum-phase FIR correction with zero added latency.

    Threads and locks:
    - The audio thread calls process(). It holds engineLock for the block, as the engine always has,
      but in real-time mode nothing else holds that lock for longer than a copy: the analyser
      read-outs, the source filter's get and set, and the calls made while audio does not run
      (setFormat, reset).
    - A redesign (updateFilter and the routines it uses) holds designLock, which the audio thread
      never takes in real-time mode. It runs on the thread that caused it: a parameter or filter
      change made on a message or worker thread designs there and then. The finished response
      is transformed for the convolution on that thread as well and handed over through a
      lock-free exchange that process() looks at once per block. Where both locks are held,
      engineLock is taken first.
    - In real-time mode (setRealtime (true), what the plug-in uses while a host plays) process()
      never designs: when learning wants a new filter, or when a parameter change arrives inside
      an AudioThreadScope (process() opens one; the host layer opens one where hosts deliver
      automation), it only raises a flag, and a shared design thread does the work. The learnt
      estimate reaches that thread through a snapshot that the audio thread writes only when it
      gets the snapshot's spin lock at once.
    - In offline mode (the default, and the command-line tool's) process() redesigns inline,
      under both locks, so a file gives the same result on every run.
    - On the audio thread nothing allocates once setFormat and reset have prepared the buffers
      for the announced block size (expectedBlockSize) and the whole range of filter lengths. */
class Deconvolution : public BaseAudioProcessor
{
public:
    enum ParameterIndex
    {
        estimationModeIndex = 0,
        estimationThresholdIndex = 1,
        filterLengthIndex = 2,
        targetModelIndex = 3,
        masterGainIndex = 4,
        enableAnalyzersIndex = 5,
        enableEmphasisCurveIndex = 6,
        emphasisPointEnabledIndex = 7,
        emphasisPointFrequencyIndex = 19,
        emphasisPointLevelIndex = 31,
        numParameters = 43
    };

    /** The "TargetModel" values; names and the tool's keys are in targetProfiles. */
    enum TargetModel
    {
        automatic = 0,
        music = 1,
        musicDark = 2,
        musicLessHarsh = 3,
        speech = 4,
        custom = 5
    };

    static constexpr int numEmphasisPoints = 12;

    /** Any thread. */
    Deconvolution();
    /** Not while audio runs. */
    ~Deconvolution() override;

    /** Builds the bin grid, weights, analyser sizes, every buffer the audio thread needs and a
        first filter. Refuses (false) differing input and output formats, and formats no engine
        can run (no channels, no sample rate). Not while audio runs. */
    bool setFormat (const AudioFormat& input, const AudioFormat& output) override;
    /** Any thread. */
    void getProcessingInfo (ProcessingInfo& info) override;
    /** Any thread, no lock. */
    void getParameterRange (int index, float& minimum, float& maximum) override;
    /** Any thread, no lock. */
    float getParameterValue (int index) override;
    /** Any thread. Stores the value at once; a change that alters the correction redesigns it:
        on the calling thread, or on the design thread when called on the audio thread in
        real-time mode. The master gain and the analyser switch never redesign. */
    void setParameterValue (int index, float value, bool) override;
    /** Rebuilds emphasis, target and filter. Any thread but the audio thread. */
    void effectuateParameterChanges() override;
    /** Empties the estimation queue and the filter history (outside mode 2 also the estimate)
        and prepares the convolution for expectedBlockSize. Not while audio runs. */
    void reset() override;
    /** Learns (outside mode 2), filters and analyses one block. The result shares the engine's
        output storage until the next call. Audio thread. */
    Signal32 process (const Signal32& input) override;

    /** Real time: process() hands redesigns to the design thread. Offline (the default): it
        redesigns inline, deterministically. Not while audio runs. */
    void setRealtime (bool shouldBeRealtime) override;
    /** Chooses how learning models the source (see Estimator); a change restarts learning.
        Any thread. */
    void setEstimator (Estimator estimatorToUse);
    /** Any thread. */
    Estimator getEstimator() const noexcept { return estimator.load(); }
    /** Settings beside the parameters, for the level and the reach of the correction. All off
        by default, which is the engine's original behaviour. */
    struct CorrectionLimits
    {
        /** A static make-up gain, computed at each design from the learnt spectrum, keeps the
            K-weighted (BS.1770) loudness of the material as it was, instead of the original
            level matching. */
        bool loudnessMatched = false;
        /** No bin is lifted by more than this (dB). */
        float maximumBoostDb = std::numeric_limits<float>::infinity();
        /** Bins whose learnt level lies 90 to 100 dB or more under the spectrum's peak (noise, an
            encoder's cut-off) are not lifted at all; attenuated bands that still carry signal
            are. */
        bool spareEmptyBands = false;
        /** The correction is averaged (in dB) over this many octaves around each frequency,
            the spectra it comes from first as power over an eighth of an octave, so that it
            follows the material's balance rather than the harmonics of the notes or voices
            that happened to be learnt; 0: not smoothed. */
        float smoothingOctaves = 0.0f;
        /** The whole correction scaled in dB: 1 as designed, 0.5 half of it, 0 none. */
        float amount = 1.0f;
        /** Outside this band the correction holds its value at the nearer edge (Hz): nothing is
            chased above an encoder's low-pass or below a microphone's roll-off. */
        float lowestHz = 0.0f, highestHz = std::numeric_limits<float>::infinity();
        /** A built-in profile describes a kind of material, not one recording: the correction
            follows it only where the learnt balance departs from it by more than that kind of
            material naturally varies (naturalVariationDb, more at the ends of the range), and
            lifts no band that lies far under the material's level at 1 kHz (rumble, a codec's
            band limit, the noise above a resampler's cut-off). With every target, "Custom"
            included, the correction grows with what has been learnt over the first seconds
            (growthSeconds), so that switching Learn on makes no jump. */
        bool departuresOnly = false;
        /** Learning's threshold ("EstimationThreshold") is read in dB under the material's
            running level (the mean power of the frames heard so far) instead of under full
            scale, so that a recording turned down is learnt as it would be at full level. */
        bool thresholdRelativeToLevel = false;
    };
    /** How far a kind of material naturally strays from its profile (dB), chosen by
        measurement (README, "How the tool learns"). */
    static constexpr float naturalVariationDb = 5.0f;
    /** Over this much learnt material the correction grows from nothing to its full size. */
    static constexpr double growthSeconds = 2.0;
    /** Any thread but the audio thread; redesigns. */
    void setCorrectionLimits (const CorrectionLimits& limits);
    /** Any thread but the audio thread. */
    CorrectionLimits getCorrectionLimits();

    /** Feeds estimation frames only: no redesign, no convolution, no analysers. For offline tools
        that learn a whole file before processing it; call updateFilter() afterwards. A hop
        multiple of 2 takes the original estimator's frames edge to edge instead of half
        overlapping: over a whole file the mean is the same, at half the cost (the long-term
        spectrum's windowed frames always overlap by half). Not while audio runs. */
    void learn (const Signal32& input, int hopMultiple = 1);

    /** The rate of the current format; 0 before one is set. Any thread. */
    double getSampleRate() const noexcept { return sampleRate.load(); }
    /** Any thread. */
    bool hasTargetFilter();
    /** Deep copy of the current correction magnitude curve. Any thread but the audio thread. */
    Signal32 getFilterCurve();
    /** Deep copies of the smoothed input and output spectra (linear magnitudes). Any thread but
        the audio thread. */
    void getAnalyzerData (Signal32& input, Signal32& output);
    /** Copy of the learnt source filter and its rate. Any thread but the audio thread. */
    void getSourceFilter (Signal32& coefficients, double& rate);
    /** Replaces the learnt source filter and redesigns. learntSeconds: how much material it
        stands for, when it was saved before its correction had grown to full size (see
        CorrectionLimits::departuresOnly); infinite for a finished model. Any thread but the
        audio thread. */
    void setSourceFilter (const Signal32& coefficients, double rate,
                          double learntSeconds = std::numeric_limits<double>::infinity());
    /** How much material the current estimate stands for (infinite for a loaded model or
        averaged frames), as a state keeps it beside the source filter. Any thread but the
        audio thread. */
    double getLearntSeconds();
    /** The stored target, but only while the "Custom" profile is chosen. Any thread but the
        audio thread. */
    void getTargetFilter (Signal32& coefficients, double& rate);
    /** Replaces the stored target filter and redesigns. Any thread but the audio thread. */
    void setTargetFilter (const Signal32& coefficients, double rate);

    // The engine's routines. process() and the calls above use them; they are public so that
    // tools and tests can drive one step at a time. The estimation routine runs under
    // engineLock (audio thread, or not while audio runs); the design routines under designLock
    // (any thread but the audio thread).

    /** Folds one estimation frame into the source estimate; false when the mode or the level
        gate rejects it. */
    bool updateEstimate (const Signal32& frame);
    /** Rebuilds the target curve of the current profile on the bin grid. */
    void updateTargetMagnitudes (const Signal32& sourceMagnitudes);
    /** The "Automatic" profile: a strongly smoothed copy of the source's envelope. */
    Signal32 extractTargetModelFromSource (const Signal32& sourceMagnitudes);
    /** Magnitude response of a coefficient set on the bin grid, mapped from its own rate. */
    Signal32 getMagnitudesFromFilterCoefficients (const Signal32& coefficients,
                                                  double filterSampleRate);
    /** Designs the correction filter from the latest estimate and hands it to the audio thread.
     */
    void updateFilter();
    /** The correction that whitens the source and imposes the target, smoothed as the limits
        ask. */
    Signal32 smoothedCorrection (const Signal32& whitening, const Signal32& target);
    /** Replaces each value by the mean over a band this many octaves wide around its bin. */
    void averageOverOctaves (std::vector<double>& values, double octaves) const;
    /** The narrow band over which smoothing first averages power (octaves). */
    static constexpr double partialsOctaves = 1.0 / 6.0;
    /** Keeps, of a correction, only what departs from the target by more than the material's
        natural variation (soft-thresholded in dB around the level that fits most of the range). */
    void spareNaturalVariation (Signal32& correction);
    /** Caps lifts of bands lying far under the material's level at 1 kHz, given the source's
        whitening magnitudes and the share of the correction applied. */
    void spareUnheldBands (Signal32& curve, const Signal32& whitening, float share);
    /** Applies the correction limits to a curve, given the source's whitening magnitudes. */
    void applyCorrectionLimits (Signal32& curve, const Signal32& whitening);
    /** One minimum-phase impulse response of 50 ms per channel of magnitudes. */
    Signal32 calculateImpulseResponse (const Signal32& magnitudes);
    /** The whole minimum-phase response (one transform long) per channel of magnitudes. */
    Signal32 minimumPhaseResponse (const Signal32& magnitudes);
    /** Turns the emphasis points into one weight per bin. */
    void updateEmphasisLevels();

    // Read-outs for tools and tests; copies. Any thread but the audio thread.
    std::uint64_t getEstimateFrameCount();  // any thread but the audio thread
    Signal32 getTargetMagnitudes();         // any thread but the audio thread
    Signal32 getEmphasisLevels();           // any thread but the audio thread
    Signal32 getBinWeights();               // any thread but the audio thread
    std::vector<float> getBinFrequencies(); // any thread but the audio thread
    double getSecondsSinceFilterUpdate();   // any thread but the audio thread
    int getQueuedSamples();                 // any thread but the audio thread
    int getFftSize();                       // any thread but the audio thread
    int getAnalyzerFrameSize();             // any thread but the audio thread
    int getAnalyzerHopSize();               // any thread but the audio thread
    /** Samples in one learning frame of the current estimator and length. Any thread. */
    int getEstimationFrameLength() const;
    /** The impulse response of the latest design (first channel). */
    Signal32 getImpulseResponse();
    /** How many designs have been installed in the convolution (audio side). */
    std::uint64_t getInstalledDesigns() const noexcept { return installedDesigns; }

private:
    class DesignThread;
    static constexpr int queueChunk = 4096; // queues take blocks in pieces of at most this

    int estimationLength() const;
    int maximumOrder() const;
    void prepareBuffers();
    void feedEstimation (const Signal32& input, int hopMultiple);
    void updateAnalyzers (const Signal32& input, const Signal32& output);
    void analyse (FrameQueue& queue, Signal32& spectrum, bool& valid, float smoothing);
    void publishSourceSnapshot (bool wait = false);
    int spectrumFrameLength() const;
    /** The material the learnt spectrum's frames stand for (s). Under engineLock. */
    double spectrumSeconds() const;
    void learnSpectrum (const Signal32& frame);
    /** The minimum-phase whitening filter of a summed power spectrum on the bin grid, as a
        coefficient set (flat when nothing was learnt), with a white floor this far under the
        spectrum's mean power. Under designLock. */
    Signal32 whiteningOf (const std::vector<double>& spectrum, double floor = 1.0e-9);
    void requestDesign();
    void designRequested();
    void installPendingResponse();
    bool onAudioThread() const noexcept;
    void parameterChangedFrom (int index);

    juce::CriticalSection engineLock;
    juce::CriticalSection designLock;

    std::atomic<int> numChannels{0};
    std::atomic<double> sampleRate{0.0};
    int fftSize = 0;
    int analyzerFrameSize = 0;
    int analyzerHopSize = 0;
    std::atomic<bool> realtime{false};

    // Audio side, under engineLock.
    double secondsSinceFilterUpdate = 0.0;
    std::atomic<std::uint64_t> estimateFrameCount{0};
    std::atomic<bool> restartEstimate{false};
    Signal32 sourceEstimate; // no samples: nothing learnt (the storage is kept for learning)
    double sourceSampleRate = 0.0;
    // The long-term-spectrum estimator's state: the sum of the frames' power spectra on the
    // correction's bin grid, which stands for the estimate while it holds frames.
    std::vector<double> spectrumSum;
    std::uint64_t spectrumFrames = 0;
    // The running level for a relative threshold: the power of the audible frames heard since
    // learning (re)started.
    double loadedModelSeconds = std::numeric_limits<double>::infinity();
    double levelPowerSum = 0.0;
    std::uint64_t levelFrames = 0;
    FourierTransform spectrumTransform;
    Signal32 spectrumFrame; // one channel of a frame, windowed and zero-padded
    ComplexSignal32 spectrumBins;
    double spectrumWindowPower = 1.0;
    FrameQueue inputQueue;
    FirFilter correctionFilter;
    LinearPrediction linearPrediction;
    Signal32 estimationWindow;
    Signal32 spectrumWindow; // the long-term spectrum's frames
    Signal32 estimationFrame;
    Signal32 frameCoefficients;
    std::vector<double> predictorScratch;
    Signal32 inputBlock; // the input with non-finite samples silenced
    Signal32 outputBlock;
    float appliedGain = 1.0f;
    std::atomic<std::uint64_t> installedDesigns{0};

    // Analysers (audio side, read out under engineLock).
    FrameQueue analyzerInputQueue;
    FrameQueue analyzerOutputQueue;
    FourierTransform analyzerTransform;
    Signal32 analyzerWindow;
    Signal32 inputSpectrum;
    Signal32 outputSpectrum;
    bool inputSpectrumValid = false;
    bool outputSpectrumValid = false;
    Signal32 analyzerSum;
    Signal32 analyzerFrame;
    ComplexSignal32 analyzerBins;
    Signal32 analyzerMagnitudes;

    // The learnt estimate as the designers see it.
    juce::SpinLock snapshotLock;
    Signal32 sourceSnapshot;
    std::vector<double> spectrumSnapshot; // used instead when it holds bins
    double snapshotSampleRate = 0.0;
    double snapshotLearntSeconds = 0.0; // infinite for a loaded or averaged-frames model
    bool snapshotStale = false;         // audio side: the last publication found the lock taken
    bool unpublishedFrames = false;     // audio side: frames learnt since the last publication

    // Design side, under designLock.
    Signal32 designSource;
    Signal32 envelopeSource; // the long-term spectrum's model for the "Automatic" profile
    double designSourceRate = 0.0;
    double designLearntSeconds = 0.0;
    CorrectionLimits correctionLimits;
    std::vector<double> designSpectrum;
    std::vector<double> designCoefficients;
    Signal32 targetFilter;
    double targetSampleRate = 0.0;
    Signal32 filterCurve;
    Signal32 targetMagnitudes;
    Signal32 emphasisLevels;
    Signal32 impulseResponse;
    std::vector<float> binFrequencies;
    std::vector<double> binLogFrequencies; // log10 of each bin's frequency, where curves are drawn
    Signal32 binWeights;
    FourierTransform designTransform;
    FourierTransform filterTransform; // for coefficient sets longer than designTransform
    MapScale rescaleMap;

    // Finished responses travel from the designers to the audio thread through three slots:
    // one being written, one ready (with a flag while it is fresh), one in use.
    static constexpr int freshResponse = 4;
    std::array<FirFilter::PreparedResponse, 3> responseSlots;
    int designSlot = 0;            // designers, under designLock
    std::atomic<int> readySlot{1}; // exchanged by both sides
    int audioSlot = 2;             // audio thread

    // Work that a change on the audio thread left for the design thread.
    std::atomic<bool> designPending{false};
    std::atomic<bool> designedSinceBlock{false}; // restarts the 40 ms pacing at the next block
    std::atomic<bool> emphasisPending{false};
    std::atomic<bool> targetPending{false};
    std::unique_ptr<juce::SharedResourcePointer<DesignThread>> designThread;

    // Parameters: atomics, because getParameterValue reads them without the lock.
    std::atomic<Estimator> estimator{Estimator::frameModels};
    std::atomic<int> estimationMode{1};
    std::atomic<float> estimationThreshold{-36.0f};
    std::atomic<bool> relativeThreshold{false}; // CorrectionLimits::thresholdRelativeToLevel
    std::atomic<float> filterLength{10.0f};
    std::atomic<int> targetModel{0};
    std::atomic<float> masterGain{0.0f};
    std::atomic<bool> analyzersEnabled{true};
    std::atomic<bool> emphasisCurveEnabled{false};
    std::atomic<std::uint16_t> emphasisPointEnabled{1};
    std::array<std::atomic<float>, numEmphasisPoints> emphasisPointFrequency;
    std::array<std::atomic<float>, numEmphasisPoints> emphasisPointLevel;
};
} // namespace vesk::audio
