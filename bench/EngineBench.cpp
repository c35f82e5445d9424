#include "BenchReport.h"
#include "Deconvolution.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <random>

using namespace vesk::audio;

namespace
{
const char* title =
    "Deconvolution::process, stereo (CPU ms per second of audio; block times in us)";

Signal32 noise (int channels, int samples, unsigned seed)
{
    std::mt19937 generator (seed);
    std::normal_distribution<float> distribution (0.0f, 0.1f);
    Signal32 signal (channels, samples);
    for (int c = 0; c < channels; ++c)
    {
        float previous = 0.0f;
        for (int n = 0; n < samples; ++n)
            signal[c][n] = previous = 0.9f * previous + distribution (generator); // a gentle tilt
    }
    return signal;
}

void engineProcess (benchmark::State& state)
{
    const double rate = static_cast<double> (state.range (0));
    const int blockSize = static_cast<int> (state.range (1));
    const int mode = static_cast<int> (state.range (2));
    // Inline: the original way, redesigns inside process() and the direct-form head. Real time:
    // the plug-in's way, the announced block size and redesigns on the design thread.
    const bool realtime = state.range (3) != 0;
    const auto estimator = static_cast<Estimator> (state.range (4));
    const double seconds = 10.0;
    const int total = static_cast<int> (rate * seconds) / blockSize * blockSize;
    const auto input = noise (2, total, 1);

    Deconvolution engine;
    engine.expectedBlockSize = realtime ? blockSize : 0;
    engine.setFormat (AudioFormat (2, rate), AudioFormat (2, rate));
    engine.setRealtime (realtime);
    engine.setEstimator (estimator);
    engine.reset();
    Signal32 block (2, blockSize);
    const auto run = [&] (vesk::bench::BlockTimer* timer, std::vector<double>* redesigns)
    {
        for (int done = 0; done + blockSize <= total; done += blockSize)
        {
            for (int c = 0; c < 2; ++c)
                ippsCopy_32f (input[c] + done, block[c], blockSize);
            if (timer != nullptr)
                timer->beginBlock();
            benchmark::DoNotOptimize (engine.process (block)[0][0]);
            if (timer != nullptr)
            {
                timer->endBlock();
                if (redesigns != nullptr
                    && engine.getSecondsSinceFilterUpdate() * rate <= blockSize + 0.5)
                    redesigns->push_back (timer->lastBlock());
            }
        }
    };
    // Learn first, so the held mode holds a real filter and learning runs with a full estimate.
    run (nullptr, nullptr);
    engine.setParameterValue (Deconvolution::estimationModeIndex, static_cast<float> (mode), false);

    vesk::bench::StreamCost cost;
    double redesignMedian = 0.0, redesignWorst = 0.0, slowest = 0.0;
    for (auto _ : state)
    {
        double cpu = 0.0;
        for (int pass = 0; pass < 3; ++pass)
        {
            vesk::bench::BlockTimer timer;
            std::vector<double> redesigns;
            timer.start();
            run (&timer, &redesigns);
            const double passCpu = timer.stop();
            if (pass == 0 || passCpu < cpu)
            {
                cpu = passCpu;
                cost = vesk::bench::summarise (timer.times(), passCpu, seconds);
                std::sort (redesigns.begin(), redesigns.end());
                redesignMedian = redesigns.empty() ? 0.0 : redesigns[redesigns.size() / 2];
                redesignWorst = redesigns.empty() ? 0.0 : redesigns.back();
                slowest = *std::max_element (timer.times().begin(), timer.times().end());
            }
        }
        state.SetIterationTime (cpu);
    }
    state.counters["ms_per_s"] = cost.cpuMillisecondsPerSecond;
    state.counters["median_us"] = cost.medianBlockMicroseconds;
    state.counters["redesign_median_us"] = redesignMedian;
    state.counters["redesign_worst_us"] = redesignWorst;
    state.counters["slowest_us"] = slowest;
    const std::string row =
        std::to_string (static_cast<int> (rate)) + "/" + std::to_string (blockSize);
    cost.worstBlockMicroseconds = slowest;
    vesk::bench::ComparisonTable::get().record (
        title, row,
        std::string (mode == 1 ? "learning" : "holding") + (realtime ? ", real time" : ", inline")
            + (estimator == Estimator::longTermSpectrum ? ", long-term spectrum" : ""),
        cost);
}

void updateFilter (benchmark::State& state)
{
    Deconvolution engine;
    engine.setFormat (AudioFormat (2, 48000), AudioFormat (2, 48000));
    const auto input = noise (2, 48000, 2);
    engine.process (input);
    for (auto _ : state)
        engine.updateFilter();
}

void updateEstimate (benchmark::State& state)
{
    const float filterLength = static_cast<float> (state.range (0));
    Deconvolution engine;
    engine.setFormat (AudioFormat (2, 48000), AudioFormat (2, 48000));
    engine.setParameterValue (Deconvolution::filterLengthIndex, filterLength, false);
    const int length = static_cast<int> (std::nearbyint (filterLength * 48.0f));
    const auto frame = noise (2, 2 * (length + 1), 3);
    for (auto _ : state)
        benchmark::DoNotOptimize (engine.updateEstimate (frame));
}
} // namespace

BENCHMARK (engineProcess)
    ->ArgsProduct ({{44100, 48000}, {64, 512}, {1, 2}, {0, 1}, {0}})
    // Learning the long-term spectrum beside the original estimator, as the plug-in runs it.
    ->Args ({48000, 64, 1, 1, 1})
    ->Args ({48000, 512, 1, 1, 1})
    ->UseManualTime()
    ->Iterations (1)
    ->Unit (benchmark::kMillisecond);
BENCHMARK (updateFilter)->Unit (benchmark::kMicrosecond);
BENCHMARK (updateEstimate)->Arg (1)->Arg (10)->Arg (20)->Unit (benchmark::kMicrosecond);
