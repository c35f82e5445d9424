// The editor's cost to a host: one timer tick (the three curves copied out of the engine and
// built) and one paint of the curve display, with the software renderer; and how long the editor
// holds the engine's lock for its copies. Run: build/bench/kelfiner_editor_bench
#include "KelfinerAudioProcessorEditor.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <fstream>
#include <random>
#include <thread>

using vesk::audio::Deconvolution;

namespace
{
struct LearntEditor
{
    LearntEditor (int width, int height)
    {
        processor.setNonRealtime (true);
        processor.prepareToPlay (48000.0, 512);
        processor.setCheckedParameterValue (EngineParameterId (Deconvolution::enableAnalyzersIndex),
                                            1.0f);
        processor.setCheckedParameterValue (
            EngineParameterId (Deconvolution::enableEmphasisCurveIndex), 1.0f);
        std::minstd_rand random (11);
        std::uniform_real_distribution<float> noise (-0.3f, 0.3f);
        juce::AudioBuffer<float> block (2, 512);
        juce::MidiBuffer midi;
        for (int b = 0; b < 400; ++b)
        {
            for (int c = 0; c < 2; ++c)
                for (int n = 0; n < 512; ++n)
                    block.setSample (c, n, noise (random));
            processor.processBlock (block, midi);
        }
        editor = std::make_unique<KelfinerAudioProcessorEditor> (processor);
        editor->setSize (width, height);
        editor->updateEmphasisHandles();
    }
    KelfinerAudioProcessor processor;
    std::unique_ptr<KelfinerAudioProcessorEditor> editor;
};

void paintCurves (KelfinerAudioProcessorEditor& editor, juce::Image& image)
{
    juce::Graphics g (image);
    editor.getCurveEditor().paintEntireComponent (g, true);
}

void timerTick (benchmark::State& state, bool build, bool paint)
{
    LearntEditor fixture ((int) state.range (0), (int) state.range (1));
    auto& curves = fixture.editor->getCurveEditor();
    juce::Image image (juce::Image::ARGB, curves.getWidth(), curves.getHeight(), true,
                       juce::SoftwareImageType());
    fixture.editor->timerCallback();
    for (auto _ : state)
    {
        if (build)
            fixture.editor->timerCallback();
        if (paint)
            paintCurves (*fixture.editor, image);
        benchmark::DoNotOptimize (image.getPixelAt (1, 1));
    }
    state.SetLabel (std::to_string (state.range (0)) + "x" + std::to_string (state.range (1)));
}

void BM_TimerTick (benchmark::State& state) { timerTick (state, true, true); }
void BM_CurvesOnly (benchmark::State& state) { timerTick (state, true, false); }
void BM_PaintOnly (benchmark::State& state) { timerTick (state, false, true); }

/** The editor's engine calls: each holds the engine's lock for a copy (and no longer). */
void BM_EngineLockHold (benchmark::State& state)
{
    LearntEditor fixture (760, 480);
    auto& engine = fixture.processor.getEngine();
    double longest = 0.0;
    for (auto _ : state)
    {
        const auto start = std::chrono::steady_clock::now();
        benchmark::DoNotOptimize (engine.getFilterCurve());
        vesk::audio::Signal32 input, output;
        engine.getAnalyzerData (input, output);
        benchmark::DoNotOptimize (engine.getEstimateFrameCount());
        const std::chrono::duration<double, std::micro> took =
            std::chrono::steady_clock::now() - start;
        longest = std::max (longest, took.count());
    }
    state.counters["longest_us"] = longest;
}

#define SIZES ->Args ({760, 480})->Args ({1920, 1080})->Unit (benchmark::kMillisecond)
BENCHMARK (BM_TimerTick) SIZES->Repetitions (5)->ReportAggregatesOnly (true);
BENCHMARK (BM_CurvesOnly) SIZES->Repetitions (5)->ReportAggregatesOnly (true);
BENCHMARK (BM_PaintOnly) SIZES->Repetitions (5)->ReportAggregatesOnly (true);
BENCHMARK (BM_EngineLockHold)->Unit (benchmark::kMicrosecond);
} // namespace

int main (int argc, char** argv)
{
    const juce::ScopedJuceInitialiser_GUI gui;
    benchmark::Initialize (&argc, argv);
    if (benchmark::ReportUnrecognizedArguments (argc, argv))
        return 1;
    std::ifstream cpu ("/proc/cpuinfo");
    for (std::string line; std::getline (cpu, line);)
        if (line.rfind ("model name", 0) == 0)
        {
            std::printf ("Machine: %s, %u cores\n", line.substr (line.find (':') + 2).c_str(),
                         std::thread::hardware_concurrency());
            break;
        }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
