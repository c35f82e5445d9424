#pragma once

#include "BaseAudioProcessor.h"
#include "FirFilter.h"
#include "FourierTransform.h"
#include "LinearPrediction.h"
#include "MapScale.h"
#include "SignalQueue.h"

#include <juce_core/juce_core.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <vector>

namespace vesk::audio
{
/** The tonal-balance correction engine. While learning it models the long-term spectral
    envelope of its input by linear prediction (the source estimate), compares it with a target
    profile and applies a 50 ms minimum-phase FIR correction with zero added latency.

    Threads: process() on the audio thread; parameter, filter and display calls from any thread.
    One re-entrant lock, engineLock, serialises them. */
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

    Deconvolution();
    ~Deconvolution() override;

    /** Builds the bin grid, weights, analyser sizes and a first filter. Refuses (false) differing
        input and output formats, and formats no engine can run (no channels, no sample rate).
        Not while audio runs. */
    bool setFormat (const AudioFormat& input, const AudioFormat& output) override;
    void getProcessingInfo (ProcessingInfo& info) override;
    /** Any thread, no lock. */
    void getParameterRange (int index, float& minimum, float& maximum) override;
    /** Any thread, no lock. */
    float getParameterValue (int index) override;
    /** Any thread; redesigns the filter under the lock. */
    void setParameterValue (int index, float value, bool) override;
    /** Message thread: rebuilds emphasis, target and filter. */
    void effectuateParameterChanges() override;
    /** Empties the estimation queue and the filter history; outside mode 2 also the estimate.
        Not while audio runs. */
    void reset() override;
    /** Learns (outside mode 2), filters and analyses one block. The result shares the engine's
        output storage until the next call. Audio thread. */
    Signal32 process (const Signal32& input) override;

    /** Feeds estimation frames only: no redesign, no convolution, no analysers. For offline tools
        that learn a whole file before processing it; call updateFilter() afterwards. A hop
        multiple of 2 takes frames edge to edge instead of half overlapping: over a whole file
        the mean is the same, at half the cost. Not while audio runs. */
    void learn (const Signal32& input, int hopMultiple = 1);

    /** Any thread. */
    bool hasTargetFilter();
    /** Deep copy of the current correction magnitude curve. Any thread. */
    Signal32 getFilterCurve();
    /** Deep copies of the smoothed input and output spectra (linear magnitudes). Any thread. */
    void getAnalyzerData (Signal32& input, Signal32& output);
    void getSourceFilter (Signal32& coefficients, double& rate);
    void setSourceFilter (const Signal32& coefficients, double rate);
    /** The stored target, but only while the "Custom" profile is chosen. */
    void getTargetFilter (Signal32& coefficients, double& rate);
    void setTargetFilter (const Signal32& coefficients, double rate);

    // The engine's routines. process() and the calls above use them; they are public so that
    // tools and tests can drive one step at a time. Each takes engineLock.

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
    /** Designs and installs the correction filter. */
    void updateFilter();
    /** One minimum-phase impulse response of 50 ms per channel of magnitudes. */
    Signal32 calculateImpulseResponse (const Signal32& magnitudes);
    /** Turns the emphasis points into one weight per bin. */
    void updateEmphasisLevels();

    // Read-outs for tools and tests; each takes engineLock and returns copies.
    std::uint64_t getEstimateFrameCount();
    Signal32 getTargetMagnitudes();
    Signal32 getEmphasisLevels();
    Signal32 getBinWeights();
    std::vector<float> getBinFrequencies();
    double getSecondsSinceFilterUpdate();
    int getQueuedSamples();
    int getFftSize();
    int getAnalyzerFrameSize();
    int getAnalyzerHopSize();
    /** The filter's current impulse response (first channel). */
    Signal32 getImpulseResponse();

private:
    int estimationLength() const;
    void feedEstimation (const Signal32& input, int hopMultiple);
    void updateAnalyzers (const Signal32& input, const Signal32& output);
    void installImpulseResponse (const Signal32& curve);

    juce::CriticalSection engineLock;

    std::atomic<int> numChannels{0};
    std::atomic<double> sampleRate{0.0};
    int fftSize = 0;
    int analyzerFrameSize = 0;
    int analyzerHopSize = 0;
    double secondsSinceFilterUpdate = 0.0;
    std::uint64_t estimateFrameCount = 0;

    Signal32 sourceEstimate;
    double sourceSampleRate = 0.0;
    Signal32 targetFilter;
    double targetSampleRate = 0.0;
    Signal32 filterCurve;
    Signal32 targetMagnitudes;
    Signal32 emphasisLevels;
    Signal32 impulseResponse;

    std::vector<float> binFrequencies;
    std::vector<double> binLogFrequencies; // log10 of each bin's frequency, where curves are drawn
    Signal32 binWeights;

    SignalQueue<Signal32> inputQueue;
    FirFilter correctionFilter;
    FourierTransform designTransform;
    FourierTransform analyzerTransform;
    LinearPrediction linearPrediction;

    // Parameters: atomics, because getParameterValue reads them without the lock.
    std::atomic<int> estimationMode{1};
    std::atomic<float> estimationThreshold{-36.0f};
    std::atomic<float> filterLength{10.0f};
    std::atomic<int> targetModel{0};
    std::atomic<float> masterGain{0.0f};
    std::atomic<bool> analyzersEnabled{true};
    std::atomic<bool> emphasisCurveEnabled{false};
    std::atomic<std::uint16_t> emphasisPointEnabled{1};
    std::array<std::atomic<float>, numEmphasisPoints> emphasisPointFrequency;
    std::array<std::atomic<float>, numEmphasisPoints> emphasisPointLevel;

    // Estimation scratch, reused so that learning does not allocate per frame.
    Signal32 estimationWindow;
    Signal32 estimationFrame;
    Signal32 frameCoefficients;
    std::vector<double> predictorScratch;

    // Analysers.
    SignalQueue<Signal32> analyzerInputQueue;
    SignalQueue<Signal32> analyzerOutputQueue;
    Signal32 analyzerWindow;
    Signal32 inputSpectrum;
    Signal32 outputSpectrum;
    Signal32 analyzerSum;
    Signal32 analyzerFrame;
    ComplexSignal32 analyzerBins;
    Signal32 analyzerMagnitudes;

    Signal32 outputBlock;
    MapScale rescaleMap;
};
} // namespace vesk::audio
