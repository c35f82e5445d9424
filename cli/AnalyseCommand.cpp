#include "BatchRun.h"
#include "Commands.h"
#include "SettingsOptions.h"

namespace
{
/** kelfiner analyse: what process would find and do, without writing any audio. */
class AnalyseCommand final : public Command
{
public:
    explicit AnalyseCommand (CLI::App& parent)
    {
        app = parent.add_subcommand ("analyse", "measure files and report what a correction "
                                                "would do, without writing audio");
        app->alias ("analyze");
        app->footer ("Example:\n  kelfiner analyse takes/ --recursive --reference ref.wav "
                     "--report takes.json");
        app->add_option ("inputs", inputs, "audio files or folders")->required();
        app->add_flag ("-r,--recursive", recursive, "take folders' sub-folders too");
        settings.addLearning (*app);
        settings.addCorrection (*app);
        settings.addForce (*app);
        options.add (*app);
    }

    int run() override
    {
        const auto job = settings.toJobSettings();
        auto items = planBatch (inputs, juce::File(), recursive, false, false);
        for (auto& item : items)
            item.output = juce::File(); // measured only
        return runBatch (items, job, options);
    }

private:
    std::vector<std::string> inputs;
    bool recursive = false;
    SettingsOptions settings;
    RunOptions options;
};
} // namespace

std::unique_ptr<Command> makeAnalyseCommand (CLI::App& parent)
{
    return std::make_unique<AnalyseCommand> (parent);
}
