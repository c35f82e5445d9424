// Switching Learn on in a new instance makes no jump in level or balance, whatever the material:
// the correction grows with what has been learnt, keeps the loudness and lifts nothing the
// material does not hold. The original estimator without limits jumps on the same material.
#include "KelfinerAudioProcessor.h"
#include "Spectra.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

using vesk::audio::Signal32;
using vesk::test::Biquad;

namespace
{
constexpr double rate = 48000.0;

/** The output's level over the input's, in dB, for each 100 ms of a live run from the first
    sample, as a host plays a new instance (offline, so that every design is in place). */
std::vector<double> levelChanges (KelfinerAudioProcessor& processor, Signal32 const& input)
{
    processor.setNonRealtime (true);
    processor.prepareToPlay (rate, 512);
    juce::MidiBuffer midi;
    std::vector<double> changes;
    double in = 0.0, out = 0.0;
    for (int done = 0; done < input.getNumSamples(); done += 480)
    {
        juce::AudioBuffer<float> block (2, 480);
        for (int c = 0; c < 2; ++c)
            block.copyFrom (c, 0, input[0] + done, 480);
        for (int n = 0; n < 480; ++n)
            in += static_cast<double> (block.getSample (0, n)) * block.getSample (0, n);
        processor.processBlock (block, midi);
        for (int n = 0; n < 480; ++n)
            out += static_cast<double> (block.getSample (0, n)) * block.getSample (0, n);
        if ((done / 480) % 10 == 9)
        {
            changes.push_back (10.0 * std::log10 (out / in));
            in = out = 0.0;
        }
    }
    return changes;
}
} // namespace

TEST (KelfinerLearning, StartsWithoutAJumpOnShortQuietAndBandLimitedMaterial)
{
    std::vector<Biquad> telephone (4, Biquad::highPass (300, 0.7, rate));
    for (int i = 0; i < 4; ++i)
        telephone.push_back (Biquad::lowPass (3400, 0.7, rate));
    const struct
    {
        const char* name;
        Signal32 signal;
    } materials[] = {
        {"telephone band", vesk::test::colouredNoise (telephone, 48000 * 2, 41) * 0.1f},
        {"quiet (-60 dBFS), dull",
         vesk::test::colouredNoise ({Biquad::lowPass (1500, 0.7, rate)}, 48000 * 2, 42) * 0.001f},
        {"short (0.3 s), boomy",
         vesk::test::colouredNoise ({Biquad::peak (120, 1.0, 12.0, rate)}, 14400, 43) * 0.1f},
    };
    for (auto const& material : materials)
    {
        SCOPED_TRACE (material.name);
        KelfinerAudioProcessor fresh;
        for (const double change : levelChanges (fresh, material.signal))
            EXPECT_NEAR (change, 0.0, 2.0);
    }

    // The original estimator without limits, on the telephone band (louder, over its absolute
    // threshold): a jump of many dB.
    KelfinerAudioProcessor original;
    original.applyProductSettings (nullptr);
    double largest = 0.0;
    for (const double change : levelChanges (original, materials[0].signal * 5.0f))
        largest = std::max (largest, std::fabs (change));
    EXPECT_GT (largest, 6.0);
}
