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
        app->add_flag ("-f,--force", force,
                       "replace files of the same names that an earlier demo did not make");
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
        const auto output = out.getChildFile ("corrected.wav");
        job.plot = out.getChildFile ("correction.png");
        // A folder an earlier demo made (it leaves a mark) gets its files made again; in any
        // other, files of these names are someone's and stay unless --force says otherwise.
        const auto mark = out.getChildFile (".kelfiner-demo");
        if (!force && !mark.existsAsFile())
            for (auto const& file : {input, output, job.plot})
                if (file.exists())
                {
                    printError ("demo: " + file.getFullPathName()
                                + " exists and was not made by a demo (use --force to replace "
                                  "it, or another folder)");
                    return 2;
                }
        juce::TemporaryFile made (input);
        if (!mark.replaceWithText ("made by kelfiner demo\n") || !writeDemoInput (made.getFile())
            || !made.overwriteTargetFileWithTemporary())
        {
            printError ("cannot write " + input.getFullPathName());
            return 1;
        }
        job.force = true;
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
    bool force = false;
    SettingsOptions settings;
};
} // namespace

std::unique_ptr<Command> makeDemoCommand (CLI::App& parent)
{
    return std::make_unique<DemoCommand> (parent);
}
