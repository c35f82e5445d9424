#include "Commands.h"
#include "DemoInput.h"
#include "Report.h"
#include "SettingsOptions.h"

#include <cstdio>

namespace
{
class DemoCommand final : public Command
{
public:
    explicit DemoCommand (CLI::App& parent)
    {
        app = parent.add_subcommand ("demo", "make a muffled test recording and correct it");
        app->add_option ("-o,--output", folder, "where to write (default: ./kelfiner-demo)");
        app->add_option ("--target", settings.target, "target profile (default: music)");
    }

    int run() override
    {
        auto job = settings.toJobSettings();
        if (!job.targetModel)
            job.targetModel = vesk::audio::Deconvolution::music;
        const auto out = fileArgument (folder);
        if (!out.createDirectory())
        {
            printError ("cannot create " + out.getFullPathName());
            return 1;
        }
        const auto input = out.getChildFile ("muffled.wav");
        if (!writeDemoInput (input))
        {
            printError ("cannot write " + input.getFullPathName());
            return 1;
        }
        // The demo's own files are made again on every run.
        job.force = true;
        job.plot = out.getChildFile ("correction.png");
        const auto output = out.getChildFile ("corrected.wav");
        OfflineJob run (job, input, output);
        const auto result = run.run ([] (const char*, double) {});
        if (!result.ok)
        {
            printError (result.error);
            return 1;
        }
        std::printf ("%s\nwrote %s, %s and %s\n",
                     summaryLine (input.getFullPathName(), output, result).toRawUTF8(),
                     input.getFullPathName().toRawUTF8(), output.getFullPathName().toRawUTF8(),
                     job.plot.getFullPathName().toRawUTF8());
        return 0;
    }

private:
    std::string folder = "kelfiner-demo";
    SettingsOptions settings;
};
} // namespace

std::unique_ptr<Command> makeDemoCommand (CLI::App& parent)
{
    return std::make_unique<DemoCommand> (parent);
}
