#pragma once

#include "FourierTransform.h"
#include "Signal.h"

#include <vector>

/** Long-term power spectrum of a stream, accumulated block by block (8192-point frames). */
class LongTermSpectrum
{
public:
    static constexpr int size = 8192;
    explicit LongTermSpectrum (double rate);
    void add (vesk::audio::Signal32 const& block);
    /** Mean power per bin (channels summed). */
    std::vector<double> power() const;
    double getSampleRate() const noexcept { return sampleRate; }

private:
    double sampleRate;
    vesk::audio::FourierTransform transform;
    vesk::audio::Signal32 window, frame, pending;
    int pendingCount = 0;
    std::vector<double> sum;
    int frames = 0;
};

/** Deviation in dB RMS of a spectrum from a target curve over third-octave bands 50 Hz .. 16 kHz,
    after removing the mean offset. */
double tonalDeviation (std::vector<double> const& power, double rate,
                       std::vector<float> const& targetFrequencies,
                       vesk::audio::Signal32 const& targetMagnitudes);

/** Levels (dB) of a spectrum in base-two third-octave bands centred from 20 Hz up to 20 kHz and
    under the rate's half: (centre, level); a band without power has -infinity. */
std::vector<std::pair<double, double>> thirdOctaveLevels (std::vector<double> const& power,
                                                          double rate);
