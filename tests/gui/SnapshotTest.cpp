#include "EditorFixture.h"

#include <cstdlib>

// The whole editor drawn headless and compared with pictures kept in the source. The pictures
// are stored at half size (what they must catch, a misplaced or missing part, shows at half size
// too, and they stay small). KELFINER_UPDATE_GOLDEN=1 rewrites them; KELFINER_SCREENSHOTS=<dir>
// also writes the full-size pictures there (the README's come from it).

using vesk::audio::Deconvolution;

namespace
{
struct Snapshot : vesk::test::EditorFixture, testing::WithParamInterface<std::tuple<int, int, int>>
{
    juce::Image render()
    {
        const auto [themeId, width, height] = GetParam();
        editor->setTheme (themeId);
        editor->setSize (width, height);
        processor.setCheckedParameterValue (EngineParameterId (Deconvolution::enableAnalyzersIndex),
                                            1.0f);
        processor.setCheckedParameterValue (
            EngineParameterId (Deconvolution::enableEmphasisCurveIndex), 1.0f);
        editor->updateParameterControls();
        editor->updateEmphasisHandles();
        for (auto [x, y] :
             {std::pair (0.15f, 0.55f), std::pair (0.5f, 0.8f), std::pair (0.85f, 0.4f)})
            editor->backGroundDoubleClick (&editor->getCurveEditor(), {x, y});
        play (300);
        editor->timerCallback();
        editor->updateParameterControls();
        return editor->createComponentSnapshot (editor->getLocalBounds(), true, 1.0f);
    }
    juce::String name() const
    {
        const auto [themeId, width, height] = GetParam();
        return juce::String (themeId == BaseTheme::steelThemeId ? "steel" : "dark") + "-"
               + juce::String (width) + "x" + juce::String (height);
    }
};

double meanDifference (const juce::Image& a, const juce::Image& b)
{
    double sum = 0.0;
    for (int y = 0; y < a.getHeight(); ++y)
        for (int x = 0; x < a.getWidth(); ++x)
        {
            const auto p = a.getPixelAt (x, y), q = b.getPixelAt (x, y);
            sum += std::abs (p.getRed() - q.getRed()) + std::abs (p.getGreen() - q.getGreen())
                   + std::abs (p.getBlue() - q.getBlue());
        }
    return sum / (3.0 * a.getWidth() * a.getHeight());
}

bool writePng (const juce::Image& image, const juce::File& file)
{
    file.deleteFile();
    juce::FileOutputStream out (file);
    juce::PNGImageFormat png;
    return out.openedOk() && png.writeImageToStream (image, out);
}
} // namespace

TEST_P (Snapshot, MatchesTheStoredPicture)
{
    const auto image = render();
    const auto half = image.rescaled (image.getWidth() / 2, image.getHeight() / 2,
                                      juce::Graphics::mediumResamplingQuality);
    const auto golden = juce::File (KELFINER_GOLDEN_DIR).getChildFile (name() + ".png");
    if (const char* folder = std::getenv ("KELFINER_SCREENSHOTS"))
    {
        ASSERT_TRUE (
            writePng (image, juce::File (folder).getChildFile ("editor-" + name() + ".png")));
    }
    if (std::getenv ("KELFINER_UPDATE_GOLDEN") != nullptr)
    {
        ASSERT_TRUE (writePng (half, golden));
        return;
    }
    const auto stored = juce::ImageFileFormat::loadFrom (golden);
    ASSERT_TRUE (stored.isValid()) << golden.getFullPathName() << " is missing";
    ASSERT_EQ (stored.getBounds(), half.getBounds());
    EXPECT_LT (meanDifference (half, stored), 1.5) << name();
}

INSTANTIATE_TEST_SUITE_P (Editor, Snapshot,
                          testing::Values (std::tuple (1, 760, 480), std::tuple (2, 760, 480),
                                           std::tuple (1, 1280, 800), std::tuple (2, 1280, 800)),
                          [] (const testing::TestParamInfo<std::tuple<int, int, int>>& parameters)
                          {
                              return std::string (std::get<0> (parameters.param) == 2 ? "Steel"
                                                                                      : "Dark")
                                     + std::to_string (std::get<1> (parameters.param));
                          });
