// How close the correction brings coloured material to its clean self, for each learning
// estimator, beside a plain match EQ in the same run. Generated material, known minimum-phase
// colourations, a clean excerpt of the same kind as the reference: the third-octave deviation
// (50 Hz to 16 kHz, mean removed) before and after, and what the correction does to loudness
// (BS.1770) and to the peak before any level guard. Prints a Markdown table; then, for each
// target profile used blind on its own kind of material, how many tasks end closer to the clean
// excerpt and how many further, against doing nothing and against the match EQ with a reference.
#include "Deconvolution.h"
#include "FirFilter.h"
#include "FourierTransform.h"
#include "KelfinerAudioProcessor.h"

#include <ebur128.h>

#include <cmath>
#include <cstdio>
#include <functional>
#include <random>
#include <string>
#include <vector>

using namespace vesk::audio;

namespace
{
constexpr double rate = 48000.0;
constexpr int seconds = 8;
constexpr int length = static_cast<int> (rate) * seconds;

//==============================================================================
// Material: each source has two independent excerpts, a (coloured) and b (the reference).

struct Biquad
{
    double b0 = 1, b1 = 0, b2 = 0, a1 = 0, a2 = 0;

    /** The cookbook's shelves and peak, by their analogue gain A and angular frequency. */
    static Biquad shelf (bool low, double frequency, double gainDb)
    {
        const double a = std::pow (10.0, gainDb / 40.0), w = 2.0 * M_PI * frequency / rate;
        const double c = std::cos (w), alpha = std::sin (w) / 2.0 * std::sqrt (2.0);
        const double s = low ? 1.0 : -1.0, root = 2.0 * std::sqrt (a) * alpha;
        const double a0 = (a + 1) + s * (a - 1) * c + root;
        return {a * ((a + 1) - s * (a - 1) * c + root) / a0,
                s * 2 * a * ((a - 1) - s * (a + 1) * c) / a0,
                a * ((a + 1) - s * (a - 1) * c - root) / a0,
                -s * 2 * ((a - 1) + s * (a + 1) * c) / a0, ((a + 1) + s * (a - 1) * c - root) / a0};
    }

    static Biquad peak (double frequency, double q, double gainDb)
    {
        const double a = std::pow (10.0, gainDb / 40.0), w = 2.0 * M_PI * frequency / rate;
        const double alpha = std::sin (w) / (2.0 * q), c = std::cos (w), a0 = 1.0 + alpha / a;
        return {(1.0 + alpha * a) / a0, -2.0 * c / a0, (1.0 - alpha * a) / a0, -2.0 * c / a0,
                (1.0 - alpha / a) / a0};
    }

    void apply (Signal32& signal) const
    {
        for (int ch = 0; ch < signal.getNumChannels(); ++ch)
        {
            double x1 = 0, x2 = 0, y1 = 0, y2 = 0;
            for (int n = 0; n < signal.getNumSamples(); ++n)
            {
                const double x = signal[ch][n];
                const double y = b0 * x + b1 * x1 + b2 * x2 - a1 * y1 - a2 * y2;
                x2 = x1, x1 = x, y2 = y1, y1 = y;
                signal[ch][n] = static_cast<float> (y);
            }
        }
    }
};

Signal32 white (std::uint32_t seed)
{
    std::mt19937 generator (seed);
    std::normal_distribution<float> normal (0.0f, 0.1f);
    Signal32 signal (2, length);
    for (int c = 0; c < 2; ++c)
        for (int n = 0; n < length; ++n)
            signal[c][n] = normal (generator);
    return signal;
}

Signal32 pink (std::uint32_t seed)
{
    // Three first-order sections approximate -3 dB per octave across the audio band.
    Signal32 signal = white (seed);
    for (int c = 0; c < 2; ++c)
    {
        double b0 = 0, b1 = 0, b2 = 0;
        for (int n = 0; n < length; ++n)
        {
            const double x = signal[c][n];
            b0 = 0.99765 * b0 + x * 0.0990460;
            b1 = 0.96300 * b1 + x * 0.2965164;
            b2 = 0.57000 * b2 + x * 1.0526913;
            signal[c][n] = static_cast<float> (0.3 * (b0 + b1 + b2 + x * 0.1848));
        }
    }
    return signal;
}

/** Chords of harmonic tones with decaying notes over a soft noise bed: music-like, with a
    spectrum that changes from chord to chord. */
Signal32 tonal (std::uint32_t seed)
{
    std::mt19937 generator (seed);
    std::uniform_int_distribution<int> note (36, 72);
    Signal32 signal = white (seed + 100) * 0.05f;
    const int step = static_cast<int> (rate * 0.4);
    for (int start = 0; start < length; start += step)
        for (int voice = 0; voice < 3; ++voice)
        {
            const double f0 = 440.0 * std::pow (2.0, (note (generator) - 69) / 12.0);
            for (int h = 1; h * f0 < 16000.0; ++h)
                for (int n = start; n < std::min (length, start + step); ++n)
                {
                    const double t = (n - start) / rate;
                    const auto v = static_cast<float> (0.08 / h * std::exp (-3.0 * t)
                                                       * std::sin (2.0 * M_PI * h * f0 * t));
                    signal[0][n] += v;
                    signal[1][n] += v;
                }
        }
    return signal;
}

/** A pulse train through three moving resonances, with pauses: speech-like. */
Signal32 voiced (std::uint32_t seed)
{
    std::mt19937 generator (seed);
    std::uniform_real_distribution<double> formant (0.0, 1.0);
    Signal32 signal (2, length, 0.0f);
    const int syllable = static_cast<int> (rate * 0.15);
    double phase = 0.0;
    for (int start = 0; start < length; start += syllable)
    {
        Signal32 part (1, std::min (syllable, length - start), 0.0f);
        if (formant (generator) > 0.25) // a pause otherwise
            for (int n = 0; n < part.getNumSamples(); ++n)
            {
                phase += (110.0 + 30.0 * std::sin (start * 0.0001)) / rate;
                if (phase >= 1.0)
                    phase -= 1.0, part[0][n] = 1.0f;
            }
        for (const double centre :
             {300.0 + 500.0 * formant (generator), 900.0 + 1400.0 * formant (generator),
              2400.0 + 800.0 * formant (generator)})
        {
            auto resonance = Biquad::peak (centre, 8.0, 24.0);
            resonance.apply (part);
        }
        for (int c = 0; c < 2; ++c)
            for (int n = 0; n < part.getNumSamples(); ++n)
                signal[c][start + n] = 0.02f * part[0][n];
    }
    Biquad::shelf (false, 3000.0, -12.0).apply (signal); // a voice's fall above the formants
    return signal;
}

/** Every excerpt at -20 dBFS RMS, as recordings meant for listening would be. */
Signal32 normalised (Signal32 signal)
{
    double sum = 0.0;
    for (int c = 0; c < signal.getNumChannels(); ++c)
        for (int n = 0; n < signal.getNumSamples(); ++n)
            sum += static_cast<double> (signal[c][n]) * signal[c][n];
    const double rms = std::sqrt (sum / (signal.getNumChannels() * signal.getNumSamples()));
    return signal * static_cast<float> (0.1 / std::max (rms, 1.0e-12));
}

struct Source
{
    const char* name;
    std::function<Signal32 (std::uint32_t)> make;
};

struct Colour
{
    const char* name;
    std::vector<Biquad> sections;
};

//==============================================================================
// Measurement.

/** Welch power spectrum (Hann, 8192 points, half overlap), channels summed. */
std::vector<double> powerSpectrum (Signal32 const& signal)
{
    constexpr int size = 8192;
    FourierTransform transform;
    Signal32 frame (1, size);
    std::vector<double> power (size / 2 + 1, 0.0);
    for (int c = 0; c < signal.getNumChannels(); ++c)
        for (int start = 0; start + size <= signal.getNumSamples(); start += size / 2)
        {
            for (int n = 0; n < size; ++n)
                frame[0][n] = signal[c][start + n]
                              * static_cast<float> (0.5 - 0.5 * std::cos (2.0 * M_PI * n / size));
            const auto bins = transform.forwardReal (frame);
            for (int k = 0; k <= size / 2; ++k)
                power[static_cast<std::size_t> (k)] +=
                    bins[0][k].re * bins[0][k].re + bins[0][k].im * bins[0][k].im;
        }
    return power;
}

/** Third-octave band levels from 50 Hz to 16 kHz, in dB. */
std::vector<double> bands (std::vector<double> const& power)
{
    const double binWidth = rate / (2.0 * (static_cast<double> (power.size()) - 1.0));
    std::vector<double> levels;
    for (int k = -13; k <= 13; ++k)
    {
        const double centre = 1000.0 * std::pow (2.0, k / 3.0);
        const auto lo =
            static_cast<std::size_t> (std::ceil (centre * std::pow (2.0, -1.0 / 6.0) / binWidth));
        const auto hi =
            static_cast<std::size_t> (std::floor (centre * std::pow (2.0, 1.0 / 6.0) / binWidth));
        double sum = 1.0e-30;
        for (auto b = lo; b <= hi; ++b)
            sum += power[b];
        levels.push_back (10.0 * std::log10 (sum / static_cast<double> (hi - lo + 1)));
    }
    return levels;
}

double deviation (Signal32 const& output, Signal32 const& target)
{
    const auto a = bands (powerSpectrum (output)), b = bands (powerSpectrum (target));
    double mean = 0.0;
    for (std::size_t i = 0; i < a.size(); ++i)
        mean += (a[i] - b[i]) / static_cast<double> (a.size());
    double sum = 0.0;
    for (std::size_t i = 0; i < a.size(); ++i)
        sum += (a[i] - b[i] - mean) * (a[i] - b[i] - mean);
    return std::sqrt (sum / static_cast<double> (a.size()));
}

double loudness (Signal32 const& signal)
{
    auto* state = ebur128_init (2, static_cast<unsigned long> (rate), EBUR128_MODE_I);
    std::vector<float> interleaved (static_cast<std::size_t> (2 * signal.getNumSamples()));
    for (int n = 0; n < signal.getNumSamples(); ++n)
        for (int c = 0; c < 2; ++c)
            interleaved[static_cast<std::size_t> (2 * n + c)] = signal[c][n];
    ebur128_add_frames_float (state, interleaved.data(),
                              static_cast<std::size_t> (signal.getNumSamples()));
    double lufs = -HUGE_VAL;
    ebur128_loudness_global (state, &lufs);
    ebur128_destroy (&state);
    return lufs;
}

double peakDb (Signal32 const& signal)
{
    float peak = 1.0e-20f;
    for (int c = 0; c < signal.getNumChannels(); ++c)
        for (int n = 0; n < signal.getNumSamples(); ++n)
            peak = std::max (peak, std::abs (signal[c][n]));
    return 20.0 * std::log10 (peak);
}

//==============================================================================
// The methods.

Signal32 convolve (Signal32 const& input, Signal32 const& response)
{
    FirFilter filter;
    filter.setImpulseResponse (response.createMultichannelSignal (2));
    return filter.process (input).copy();
}

/** A plain match EQ: the ratio of the two Welch spectra, smoothed over a third of an octave, as
    a 50 ms minimum-phase filter (made by the engine's own minimum-phase design). */
Signal32 matchEq (Signal32 const& input, Signal32 const& reference)
{
    Deconvolution engine;
    engine.setFormat (AudioFormat (2, rate), AudioFormat (2, rate));
    const auto in = powerSpectrum (input), ref = powerSpectrum (reference);
    const auto frequencies = engine.getBinFrequencies();
    const double binWidth = rate / 8192.0;
    Signal32 curve (1, static_cast<int> (frequencies.size()));
    for (std::size_t k = 0; k < frequencies.size(); ++k)
    {
        const double f = std::max (static_cast<double> (frequencies[k]), 20.0);
        const auto lo = static_cast<std::size_t> (f * std::pow (2.0, -1.0 / 6.0) / binWidth);
        const auto hi = std::min (
            in.size() - 1, static_cast<std::size_t> (f * std::pow (2.0, 1.0 / 6.0) / binWidth) + 1);
        double a = 1.0e-30, b = 1.0e-30;
        for (auto i = lo; i <= hi; ++i)
            a += in[i], b += ref[i];
        curve[0][static_cast<int> (k)] = static_cast<float> (std::sqrt (b / a));
    }
    return convolve (input, engine.calculateImpulseResponse (curve));
}

/** Learns the whole input, holds what was learnt and processes the input from its start. */
Signal32 learnHoldAndProcess (Deconvolution& engine, Signal32 const& input)
{
    engine.learn (input, 2);
    engine.setParameterValue (Deconvolution::estimationModeIndex, 2.0f, false);
    engine.reset();
    Signal32 output (2, input.getNumSamples());
    for (int done = 0; done < input.getNumSamples(); done += 4800)
    {
        const auto block = engine.process (input.extractSection (done, 4800));
        for (int c = 0; c < 2; ++c)
            std::copy (block[c], block[c] + 4800, output[c] + done);
    }
    return output;
}

/** The tool's reference-based correction with the given estimator: the reference learnt into a
    target filter, the input learnt whole, then held and processed. */
Signal32 kelfiner (Signal32 const& input, Signal32 const& reference, Estimator estimator,
                   float filterLength)
{
    const auto prepare = [&] (Deconvolution& engine)
    {
        engine.setFormat (AudioFormat (2, rate), AudioFormat (2, rate));
        engine.setEstimator (estimator);
        engine.setParameterValue (Deconvolution::filterLengthIndex, filterLength, false);
        engine.setParameterValue (Deconvolution::enableAnalyzersIndex, 0.0f, false);
        if (estimator == Estimator::longTermSpectrum)
        {
            // The tool's defaults with this estimator.
            engine.setParameterValue (Deconvolution::estimationThresholdIndex, -70.0f, false);
            Deconvolution::CorrectionLimits limits;
            limits.smoothingOctaves = 1.0f / 3.0f;
            engine.setCorrectionLimits (limits);
        }
    };
    Deconvolution learner;
    prepare (learner);
    learner.learn (reference, 2);
    Signal32 target;
    double targetRate = 0.0;
    learner.getSourceFilter (target, targetRate);

    Deconvolution engine;
    prepare (engine);
    engine.setParameterValue (Deconvolution::targetModelIndex, Deconvolution::custom, false);
    engine.setTargetFilter (target, targetRate);
    return learnHoldAndProcess (engine, input);
}

/** A new plug-in instance's defaults used blind with a target profile: the input learnt whole,
    then held and processed. */
Signal32 blind (Signal32 const& input, int target)
{
    KelfinerAudioProcessor processor;
    auto& engine = processor.getEngine();
    engine.setFormat (AudioFormat (2, rate), AudioFormat (2, rate));
    engine.setParameterValue (Deconvolution::enableAnalyzersIndex, 0.0f, false);
    engine.setParameterValue (Deconvolution::targetModelIndex, static_cast<float> (target), false);
    return learnHoldAndProcess (engine, input);
}
} // namespace

int main()
{
    const juce::ScopedJuceInitialiser_GUI juce;
    const std::vector<Source> sources{{"white", white},
                                      {"pink", pink},
                                      {"tonal", tonal},
                                      {"voiced", voiced}};
    const std::vector<Colour> colours{
        {"muffled", {Biquad::shelf (false, 2000.0, -12.0), Biquad::peak (12000.0, 0.7, -6.0)}},
        {"boomy", {Biquad::shelf (true, 180.0, 8.0), Biquad::peak (110.0, 2.0, 5.0)}},
        {"harsh", {Biquad::peak (3800.0, 1.4, 9.0), Biquad::peak (7000.0, 2.0, 3.0)}},
        {"telephone", {Biquad::shelf (true, 300.0, -30.0), Biquad::shelf (false, 3400.0, -30.0)}},
    };
    struct Method
    {
        const char* name;
        std::function<Signal32 (Signal32 const&, Signal32 const&)> run;
    };
    const std::vector<Method> methods{
        {"plain match EQ", matchEq},
        {"long-term spectrum, 20 ms", [] (auto const& in, auto const& ref)
         { return kelfiner (in, ref, Estimator::longTermSpectrum, 20.0f); }},
        {"long-term spectrum, 10 ms", [] (auto const& in, auto const& ref)
         { return kelfiner (in, ref, Estimator::longTermSpectrum, 10.0f); }},
        {"frame models averaged, 10 ms", [] (auto const& in, auto const& ref)
         { return kelfiner (in, ref, Estimator::frameModels, 10.0f); }},
    };

    std::printf ("Third-octave deviation from the clean excerpt in dB (before -> after), the "
                 "loudness change in LU and the output peak in dBFS, before any level guard.\n\n");
    std::printf ("| material | before |");
    for (auto const& method : methods)
        std::printf (" %s |", method.name);
    std::printf ("\n|---|---|");
    for (std::size_t i = 0; i < methods.size(); ++i)
        std::printf ("---|");
    std::printf ("\n");
    std::vector<double> sums (methods.size(), 0.0);
    double before = 0.0;
    int rows = 0;
    struct Task
    {
        std::size_t source;
        Signal32 input, clean;
        double before, matchEq;
    };
    std::vector<Task> tasks;
    for (std::size_t s = 0; s < sources.size(); ++s)
    {
        const auto clean = normalised (sources[s].make (static_cast<std::uint32_t> (11 + s)));
        const auto reference = normalised (sources[s].make (static_cast<std::uint32_t> (101 + s)));
        for (auto const& colour : colours)
        {
            Signal32 input = clean.copy();
            for (auto const& section : colour.sections)
                section.apply (input);
            const double inputDeviation = deviation (input, clean);
            before += inputDeviation;
            ++rows;
            std::printf ("| %s/%s | %.2f |", sources[s].name, colour.name, inputDeviation);
            for (std::size_t m = 0; m < methods.size(); ++m)
            {
                const auto output = methods[m].run (input, reference);
                const double after = deviation (output, clean);
                sums[m] += after;
                std::printf (" %.2f (%+.1f LU, %.1f dBFS) |", after,
                             loudness (output) - loudness (input), peakDb (output));
                if (m == 0)
                    tasks.push_back ({s, input, clean, inputDeviation, after});
            }
            std::printf ("\n");
            std::fflush (stdout);
        }
    }
    std::printf ("| **mean** | %.2f |", before / rows);
    for (auto sum : sums)
        std::printf (" **%.2f** |", sum / rows);
    std::printf ("\n");

    // Blind: no reference, a new instance's defaults. A task ends "further" when it is more than
    // 0.25 dB further from the clean excerpt than the untouched input.
    struct Blind
    {
        const char* profile;
        int model;
        const char* material; // the sources it is meant for; empty: every one
    };
    const std::vector<Blind> blinds{{"Automatic", Deconvolution::automatic, ""},
                                    {"Music", Deconvolution::music, "tonal"},
                                    {"Music (dark)", Deconvolution::musicDark, "tonal"},
                                    {"Music (less harsh)", Deconvolution::musicLessHarsh, "tonal"},
                                    {"Speech", Deconvolution::speech, "voiced"}};
    std::printf (
        "\nBlind, with a new instance's defaults: restore tasks of each profile's own kind "
        "of material.\n\n| profile | material | tasks | closer | further | mean "
        "removed | plain match EQ (with a reference) |\n|---|---|---|---|---|---|---|\n");
    for (auto const& profile : blinds)
    {
        int count = 0, closer = 0, further = 0;
        double removed = 0.0, matched = 0.0;
        for (auto const& task : tasks)
        {
            if (*profile.material != 0
                && std::string (sources[task.source].name) != profile.material)
                continue;
            const double after = deviation (blind (task.input, profile.model), task.clean);
            ++count;
            closer += after < task.before ? 1 : 0;
            further += after > task.before + 0.25 ? 1 : 0;
            removed += 100.0 * (1.0 - after / task.before);
            matched += 100.0 * (1.0 - task.matchEq / task.before);
        }
        std::printf ("| %s | %s | %d | %d | %d | %.0f %% | %.0f %% |\n", profile.profile,
                     *profile.material != 0 ? profile.material : "all", count, closer, further,
                     removed / count, matched / count);
        std::fflush (stdout);
    }
    return 0;
}
