#include "BatchRun.h"
#include "Commands.h"
#include "SettingsOptions.h"

namespace
{
class ProcessCommand final : public Command
{
public:
    explicit ProcessCommand (CLI::App& parent)
    {
        app = parent.add_subcommand ("process", "correct files, or folders of files");
        app->footer ("OUT is a file for one input, else a folder; results in a folder keep the "
                     "path they had under the folder given.\nExamples:\n"
                     "  kelfiner process talk.wav -o talk-fixed.wav --target speech\n"
                     "  kelfiner process takes/ -o fixed/ --recursive --reference ref.wav");
        app->add_option ("inputs", inputs, "audio files or folders")->required();
        app->add_option ("-o,--output", output, "the output file, or folder")->required();
        app->add_flag ("-r,--recursive", recursive, "take folders' sub-folders too");
        settings.addLearning (*app);
        settings.addCorrection (*app);
        settings.addFileOutputs (*app);
        settings.addOutputFormat (*app);
        settings.addForce (*app);
        options.add (*app);
    }

    int run() override
    {
        const auto job = settings.toJobSettings();
        if (output.empty())
            throw UsageError{"-o needs a file or folder"};
        const auto out = fileArgument (output);
        // "-o fixed/" names a folder even for one input, as it does for cp and rsync.
        if (output.back() == '/' && !out.isDirectory() && !out.createDirectory())
            throw UsageError{"cannot create the folder " + output};
        return runBatch (planBatch (inputs, out, recursive, job.plot != juce::File(),
                                    job.saveFilter != juce::File(), settings.outputExtension()),
                         job, options);
    }

private:
    std::vector<std::string> inputs;
    std::string output;
    bool recursive = false;
    SettingsOptions settings;
    RunOptions options;
};
} // namespace

std::unique_ptr<Command> makeProcessCommand (CLI::App& parent)
{
    return std::make_unique<ProcessCommand> (parent);
}
