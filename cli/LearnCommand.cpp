#include "Batch.h"
#include "Commands.h"
#include "FilterFile.h"
#include "OfflineJob.h"
#include "SettingsOptions.h"

#include <cstdio>

namespace
{
class LearnCommand final : public Command
{
public:
    explicit LearnCommand (CLI::App& parent)
    {
        app = parent.add_subcommand ("learn", "learn a recording's envelope into a filter file");
        app->footer ("The filter file is what --target-filter and the plug-in's \"Custom\" "
                     "target take.");
        app->add_option ("input", input, "the recording")->required();
        app->add_option ("-o,--output", output, "the filter file to write")->required();
        settings.addLearning (*app);
        settings.addForce (*app);
        app->add_flag ("-q,--quiet", quiet, "print nothing but errors");
    }

    int run() override
    {
        const auto job = settings.toJobSettings();
        const auto in = fileArgument (input), out = fileArgument (output);
        if (!in.existsAsFile())
            throw UsageError{input + ": no such file"};
        if (const auto problem = checkOutputs ({in}, {out}, job.force); problem.isNotEmpty())
            throw UsageError{problem.toStdString()};
        vesk::audio::Signal32 coefficients;
        double rate = 0.0;
        juce::String error;
        if (!OfflineJob::learnFilter (in, job, coefficients, rate, error))
        {
            printError (juce::String (input) + ": " + error);
            return 1;
        }
        if (!FilterFile::write (out, coefficients, rate))
        {
            printError ("cannot write " + out.getFullPathName());
            return 1;
        }
        if (!quiet)
            std::printf ("%s -> %s: %d coefficients at %.0f Hz\n", input.c_str(),
                         out.getFullPathName().toRawUTF8(), coefficients.getNumSamples(), rate);
        return 0;
    }

private:
    std::string input, output;
    bool quiet = false;
    SettingsOptions settings;
};
} // namespace

std::unique_ptr<Command> makeLearnCommand (CLI::App& parent)
{
    return std::make_unique<LearnCommand> (parent);
}
