#include "BenchReport.h"
#include "FirFilter.h"

#include <juce_dsp/juce_dsp.h>

#include <benchmark/benchmark.h>

#include <random>
#include <thread>

using namespace vesk::audio;

namespace
{
constexpr double sampleRate = 48000.0;
constexpr int responseLength = 2400; // a 50 ms correction filter at 48 kHz
constexpr int channels = 2;
const char* title =
    "Convolution, 2400 taps, stereo 48 kHz (CPU ms per second of audio; block times in us)";

Signal32 makeSignal (int channelCount, int samples, unsigned seed, bool decaying)
{
    std::mt19937 generator (seed);
    std::uniform_real_distribution<float> distribution (-1.0f, 1.0f);
    Signal32 signal (channelCount, samples);
    for (int c = 0; c < channelCount; ++c)
        for (int n = 0; n < samples; ++n)
            signal[c][n] =
                distribution (generator)
                * (decaying
                       ? std::exp (-3.0f * static_cast<float> (n) / static_cast<float> (samples))
                       : 0.25f);
    return signal;
}

Signal32 const& response()
{
    static const Signal32 ir = makeSignal (channels, responseLength, 1, true);
    return ir;
}

Signal32 const& input()
{
    static const Signal32 audio =
        makeSignal (channels, static_cast<int> (sampleRate) * 10, 2, false);
    return audio;
}

/** Streams the input in blocks through process(block) and records the cost. */
template <typename Process>
void stream (benchmark::State& state, char const* implementation, int blockSize, double seconds,
             Process&& process)
{
    const int total = static_cast<int> (seconds * sampleRate);
    const int span = input().getNumSamples() - blockSize;
    // One untimed pass warms caches and pages. Every timed pass repeats the same work block by
    // block (a pass spans whole frames), so the fastest time of each block over the passes is
    // what the filter itself costs there; a pre-emption by another process is not its worst block.
    for (int done = 0; done + blockSize <= total; done += blockSize)
        process (done % span);
    vesk::bench::StreamCost cost;
    for (auto _ : state)
    {
        std::vector<double> fastest;
        double cpu = 0.0;
        for (int pass = 0; pass < 5; ++pass)
        {
            vesk::bench::BlockTimer timer;
            timer.start();
            for (int done = 0; done + blockSize <= total; done += blockSize)
            {
                timer.beginBlock();
                process (done % span);
                timer.endBlock();
            }
            const double passCpu = timer.stop();
            cpu = pass == 0 ? passCpu : std::min (cpu, passCpu);
            timer.keepFastest (fastest);
        }
        cost = vesk::bench::summarise (fastest, cpu, seconds);
        state.SetIterationTime (cpu);
    }
    state.counters["ms_per_s"] = cost.cpuMillisecondsPerSecond;
    state.counters["median_us"] = cost.medianBlockMicroseconds;
    state.counters["worst_us"] = cost.worstBlockMicroseconds;
    vesk::bench::ComparisonTable::get().record (title, std::to_string (blockSize), implementation,
                                                cost);
}

void firFilter (benchmark::State& state)
{
    const int blockSize = static_cast<int> (state.range (0));
    FirFilter filter;
    filter.setImpulseResponse (response());
    filter.updateBlockSize (blockSize);
    Signal32 block (channels, blockSize);
    stream (state, "FirFilter", blockSize, 10.0,
            [&] (int offset)
            {
                for (int c = 0; c < channels; ++c)
                    ippsCopy_32f (input()[c] + offset, block[c], blockSize);
                benchmark::DoNotOptimize (filter.process (block)[0][0]);
            });
}

void firFilterDirectHead (benchmark::State& state)
{
    // The same filter when the host's block size is not announced: direct head at every size.
    const int blockSize = static_cast<int> (state.range (0));
    FirFilter filter;
    filter.setImpulseResponse (response());
    Signal32 block (channels, blockSize);
    stream (state, "FirFilter(head)", blockSize, 10.0,
            [&] (int offset)
            {
                for (int c = 0; c < channels; ++c)
                    ippsCopy_32f (input()[c] + offset, block[c], blockSize);
                benchmark::DoNotOptimize (filter.process (block)[0][0]);
            });
}

void juceConvolution (benchmark::State& state)
{
    const int blockSize = static_cast<int> (state.range (0));
    juce::dsp::Convolution convolution (juce::dsp::Convolution::NonUniform{128});
    convolution.prepare (
        {sampleRate, static_cast<juce::uint32> (blockSize), static_cast<juce::uint32> (channels)});
    juce::AudioBuffer<float> ir (channels, responseLength);
    for (int c = 0; c < channels; ++c)
        ir.copyFrom (c, 0, response()[c], responseLength);
    convolution.loadImpulseResponse (
        std::move (ir), sampleRate, juce::dsp::Convolution::Stereo::yes,
        juce::dsp::Convolution::Trim::no, juce::dsp::Convolution::Normalise::no);
    juce::AudioBuffer<float> buffer (channels, blockSize);
    // The response is installed by a background thread and picked up by process().
    for (int tries = 0; tries < 500 && convolution.getCurrentIRSize() != responseLength; ++tries)
    {
        buffer.clear();
        juce::dsp::AudioBlock<float> block (buffer);
        convolution.process (juce::dsp::ProcessContextReplacing<float> (block));
        std::this_thread::sleep_for (std::chrono::milliseconds (5));
    }
    if (convolution.getCurrentIRSize() != responseLength)
    {
        state.SkipWithError ("JUCE's convolution did not load the response");
        return;
    }
    convolution.reset();
    stream (state, "JUCE", blockSize, 10.0,
            [&] (int offset)
            {
                for (int c = 0; c < channels; ++c)
                    buffer.copyFrom (c, 0, input()[c] + offset, blockSize);
                juce::dsp::AudioBlock<float> block (buffer);
                convolution.process (juce::dsp::ProcessContextReplacing<float> (block));
                benchmark::DoNotOptimize (buffer.getSample (0, 0));
            });
}

void directForm (benchmark::State& state)
{
    const int blockSize = static_cast<int> (state.range (0));
    std::vector<IppsFIRState_32f*> states (channels);
    for (int c = 0; c < channels; ++c)
        ippsFIRInitAlloc_32f (&states[static_cast<std::size_t> (c)], response()[c], responseLength,
                              nullptr);
    Signal32 out (channels, blockSize);
    stream (state, "direct", blockSize, 2.0,
            [&] (int offset)
            {
                for (int c = 0; c < channels; ++c)
                    ippsFIR_32f (input()[c] + offset, out[c], blockSize,
                                 states[static_cast<std::size_t> (c)]);
                benchmark::DoNotOptimize (out[0][0]);
            });
    for (auto* s : states)
        ippsFIRFree_32f (s);
}

void blockSizes (benchmark::internal::Benchmark* b)
{
    for (int size : {32, 64, 128, 256, 480, 512, 1024})
        b->Arg (size);
    b->UseManualTime()->Iterations (1)->Unit (benchmark::kMillisecond);
}
} // namespace

BENCHMARK (firFilter)->Apply (blockSizes);
BENCHMARK (firFilterDirectHead)->Apply (blockSizes);
BENCHMARK (juceConvolution)->Apply (blockSizes);
BENCHMARK (directForm)->Apply (blockSizes);
