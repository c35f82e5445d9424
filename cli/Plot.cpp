#include "Plot.h"

#include "InterruptCleanup.h"
#include "RegularFile.h"

#include <juce_graphics/juce_graphics.h>

#include <cmath>
#include <mutex>

namespace
{
const juce::Colour background (0xff1e2227), grid (0xff343a42), label (0xffaab4be);
const juce::Colour inputColour (0xff6f8fb0), outputColour (0xffe8a33d), curveColour (0xff7fd47f),
    targetColour (0xffd0d0d0);
} // namespace

bool drawPlot (juce::File const& file, PlotData const& data)
{
    auto const& inputPower = data.inputPower;
    auto const& outputPower = data.outputPower;
    auto const& curveFrequencies = data.curveFrequencies;
    auto const& correction = data.correction;
    const double sampleRate = data.sampleRate;
    // JUCE's text rendering keeps shared caches (typefaces, glyphs) that are not safe to fill
    // from several threads at once, and a batch runs its files in parallel.
    static std::mutex drawing;
    const std::scoped_lock one (drawing);
    const int width = 1000, height = 560;
    juce::Image image (juce::Image::RGB, width, height, true);
    juce::Graphics g (image);
    g.fillAll (background);
    const juce::Rectangle<float> plot (70.0f, 64.0f, width - 100.0f, height - 124.0f);
    const double low = 20.0, high = sampleRate / 2.0;
    // Room above for the correction's largest boost, in steps of the grid.
    float mostDb = 0.0f;
    for (int k = 1; k < correction.getNumSamples(); ++k)
        if (curveFrequencies[static_cast<std::size_t> (k)] >= low)
            mostDb = std::max (mostDb, 20.0f * std::log10 (std::max (correction[0][k], 1e-10f)));
    const float topDb = juce::jlimit (24.0f, 48.0f, 12.0f * std::ceil (mostDb / 12.0f));
    const float bottomDb = -96.0f;
    const auto xOf = [&] (double f)
    {
        return plot.getX()
               + plot.getWidth() * static_cast<float> (std::log (f / low) / std::log (high / low));
    };
    const auto yOf = [&] (float db)
    {
        return plot.getY()
               + plot.getHeight() * (topDb - juce::jlimit (bottomDb, topDb, db))
                     / (topDb - bottomDb);
    };

    g.setFont (14.0f);
    for (double f : {20.0, 50.0, 100.0, 200.0, 500.0, 1000.0, 2000.0, 5000.0, 10000.0, 20000.0})
    {
        if (f > high)
            continue;
        g.setColour (grid);
        g.drawVerticalLine (juce::roundToInt (xOf (f)), plot.getY(), plot.getBottom());
        g.setColour (label);
        const auto text =
            f >= 1000.0 ? juce::String (f / 1000.0) + "k" : juce::String (static_cast<int> (f));
        g.drawText (text,
                    juce::Rectangle<float> (xOf (f) - 30.0f, plot.getBottom() + 4.0f, 60.0f, 18.0f),
                    juce::Justification::centred);
    }
    for (float db = bottomDb; db <= topDb; db += 12.0f)
    {
        g.setColour (grid);
        g.drawHorizontalLine (juce::roundToInt (yOf (db)), plot.getX(), plot.getRight());
        g.setColour (label);
        g.drawText (juce::String (static_cast<int> (db)),
                    juce::Rectangle<float> (10.0f, yOf (db) - 9.0f, 52.0f, 18.0f),
                    juce::Justification::centredRight);
    }
    g.setColour (label);
    g.drawText ("Frequency (Hz)",
                juce::Rectangle<float> (plot.getX(), height - 32.0f, plot.getWidth(), 20.0f),
                juce::Justification::centred);
    g.addTransform (juce::AffineTransform::rotation (-juce::MathConstants<float>::halfPi, 14.0f,
                                                     plot.getCentreY()));
    g.drawText ("Level (dB)",
                juce::Rectangle<float> (14.0f - 60.0f, plot.getCentreY() - 10.0f, 120.0f, 20.0f),
                juce::Justification::centred);
    g.addTransform (juce::AffineTransform::rotation (juce::MathConstants<float>::halfPi, 14.0f,
                                                     plot.getCentreY()));

    // Spectra relative to the input's strongest bin; the correction in dB as it stands.
    double peak = 1e-30;
    for (std::size_t k = 1; k < inputPower.size(); ++k)
        peak = std::max (peak, inputPower[k]);
    // Spectra smoothed over a sixth of an octave, so the long-term balance shows rather than
    // single partials.
    const auto spectrumPath = [&] (std::vector<double> const& power)
    {
        juce::Path path;
        const auto size = static_cast<double> (power.size() - 1) * 2.0;
        std::vector<double> cumulative (power.size() + 1, 0.0);
        for (std::size_t k = 0; k < power.size(); ++k)
            cumulative[k + 1] = cumulative[k] + power[k];
        bool started = false;
        for (std::size_t k = 1; k < power.size(); ++k)
        {
            const double f = static_cast<double> (k) * sampleRate / size;
            if (f < low)
                continue;
            const auto from = static_cast<std::size_t> (
                std::max (1.0, std::floor (static_cast<double> (k) * std::pow (2.0, -1.0 / 12.0))));
            const auto to = std::min (power.size() - 1,
                                      static_cast<std::size_t> (std::ceil (
                                          static_cast<double> (k) * std::pow (2.0, 1.0 / 12.0))));
            const double mean =
                (cumulative[to + 1] - cumulative[from]) / static_cast<double> (to - from + 1);
            const auto db = static_cast<float> (10.0 * std::log10 (std::max (mean, 1e-30) / peak));
            const juce::Point<float> point (xOf (f), yOf (db));
            started ? path.lineTo (point) : path.startNewSubPath (point);
            started = true;
        }
        return path;
    };
    // The target is a shape, not a level: drawn through the output's level (their mean
    // difference from 100 Hz to 10 kHz removed), so what is left between them is the error.
    if (data.target.getNumSamples() == correction.getNumSamples())
    {
        const auto size = static_cast<double> (outputPower.size() - 1) * 2.0;
        double offset = 0.0;
        int counted = 0;
        for (int k = 1; k < data.target.getNumSamples(); ++k)
        {
            const double f = curveFrequencies[static_cast<std::size_t> (k)];
            const auto bin = static_cast<std::size_t> (std::lround (f / sampleRate * size));
            if (f < 100.0 || f > 10000.0 || bin >= outputPower.size())
                continue;
            offset += 10.0 * std::log10 (std::max (outputPower[bin], 1e-30) / peak)
                      - 20.0 * std::log10 (std::max (data.target[0][k], 1e-10f));
            ++counted;
        }
        offset /= std::max (counted, 1);
        juce::Path target;
        bool begun = false;
        for (int k = 1; k < data.target.getNumSamples(); ++k)
        {
            const double f = curveFrequencies[static_cast<std::size_t> (k)];
            if (f < low)
                continue;
            const auto db = static_cast<float> (
                offset + 20.0 * std::log10 (std::max (data.target[0][k], 1e-10f)));
            const juce::Point<float> point (xOf (f), yOf (db));
            begun ? target.lineTo (point) : target.startNewSubPath (point);
            begun = true;
        }
        juce::Path dashed;
        const float dashes[] = {6.0f, 4.0f};
        juce::PathStrokeType (1.5f).createDashedStroke (dashed, target, dashes, 2);
        g.setColour (targetColour);
        g.fillPath (dashed);
    }
    g.setColour (inputColour);
    g.strokePath (spectrumPath (inputPower), juce::PathStrokeType (1.2f));
    g.setColour (outputColour);
    g.strokePath (spectrumPath (outputPower), juce::PathStrokeType (1.2f));

    juce::Path curve;
    bool started = false;
    for (int k = 1; k < correction.getNumSamples(); ++k)
    {
        const double f = curveFrequencies[static_cast<std::size_t> (k)];
        if (f < low)
            continue;
        const juce::Point<float> point (
            xOf (f), yOf (20.0f * std::log10 (std::max (correction[0][k], 1e-10f))));
        started ? curve.lineTo (point) : curve.startNewSubPath (point);
        started = true;
    }
    g.setColour (curveColour);
    g.strokePath (curve, juce::PathStrokeType (2.5f));

    g.setColour (label);
    g.setFont (15.0f);
    g.drawFittedText (data.title, juce::Rectangle<int> (10, 6, width - 20, 22),
                      juce::Justification::centredLeft, 1, 0.8f);
    g.setFont (14.0f);
    const std::pair<const char*, juce::Colour> legend[] = {{"Input", inputColour},
                                                           {"Output", outputColour},
                                                           {"Target (shape)", targetColour},
                                                           {nullptr, curveColour}};
    float x = plot.getX() + 8.0f;
    for (auto const& [name, colour] : legend)
    {
        g.setColour (colour);
        g.fillRect (x, 40.0f, 18.0f, 4.0f);
        g.setColour (label);
        g.drawText (
            name != nullptr ? juce::String (name) : "Correction " + data.applied,
            juce::Rectangle<float> (x + 24.0f, 32.0f, name != nullptr ? 120.0f : 420.0f, 20.0f),
            juce::Justification::centredLeft);
        x += 150.0f;
    }
    g.setColour (label);
    g.drawText ("Kelfiner", juce::Rectangle<float> (plot.getRight() - 120.0f, 32.0f, 120.0f, 20.0f),
                juce::Justification::centredRight);

    juce::MemoryOutputStream encoded;
    juce::PNGImageFormat png;
    return png.writeImageToStream (image, encoded)
           && regularFile::writeWhole (file, encoded.getData(), encoded.getDataSize());
}
