#include "ProcessCommand.h"

#include "Batch.h"
#include "Progress.h"
#include "SettingsOptions.h"

#include <cstdio>

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
        settings.addOutputFormat (*app);
        settings.addForce (*app);
        app->add_option ("-j,--jobs", jobs,
                         "files processed at once (1 .. 256; default: all cores)");
        app->add_flag ("-q,--quiet", quiet, "print nothing but errors");
        app->add_flag ("--progress", progressLines,
                       "a line per finished file, also when the output is not a terminal");
    }

    int run() override
    {
        const auto job = settings.toJobSettings();
        int threads = juce::SystemStats::getNumCpus();
        if (jobs)
            threads = static_cast<int> (checkedNumber ("--jobs", *jobs, 1, 256, "files at once"));
        if (quiet && progressLines)
            throw UsageError{"--quiet and --progress contradict each other: give one"};
        const auto out = fileArgument (output);
        const auto items = planBatch (inputs, out, recursive, job.plot != juce::File(),
                                      job.saveFilter != juce::File(), settings.outputExtension());
        return runBatch (items, out, job, threads);
    }

private:
    struct Task
    {
        BatchItem item;
        JobSettings settings;
        JobResult result;
        FileProgress progress;
    };

    int runBatch (std::vector<BatchItem> const& items, juce::File const& out,
                  JobSettings const& job, int threads)
    {
        std::vector<std::unique_ptr<Task>> tasks;
        juce::Array<juce::File> reads, writes;
        for (auto const& file : {job.preset, job.targetFilter, job.reference})
            if (file != juce::File())
                reads.add (file);
        const bool intoFolder = items.size() > 1 || items.front().output != out;
        for (auto const& item : items)
        {
            auto task = std::make_unique<Task>();
            task->item = item;
            task->settings = job;
            if (intoFolder)
            {
                task->settings.plot = item.plot;
                task->settings.saveFilter = item.filter;
            }
            task->progress.name = item.shownName;
            reads.add (item.input);
            for (auto const& file : {item.output, task->settings.plot, task->settings.saveFilter})
                if (file != juce::File())
                    writes.add (file);
            tasks.push_back (std::move (task));
        }
        // Refused before anything exists: a run either writes every result or none clobbers.
        if (const auto problem = checkOutputs (reads, writes, job.force); problem.isNotEmpty())
            throw UsageError{problem.toStdString()};
        if (intoFolder)
            for (auto& task : tasks)
                if (!task->item.output.getParentDirectory().createDirectory())
                {
                    printError ("cannot create folder "
                                + task->item.output.getParentDirectory().getFullPathName());
                    return 1;
                }

        // Several files at once, one per core: each job is independent and single-threaded.
        std::vector<FileProgress*> watched;
        for (auto& task : tasks)
            watched.push_back (&task->progress);
        ProgressReport report (ProgressReport::choose (quiet, progressLines), watched);
        {
            juce::ThreadPool pool (juce::jlimit (1, static_cast<int> (tasks.size()), threads));
            for (auto& task : tasks)
                pool.addJob (
                    [t = task.get()]
                    {
                        OfflineJob one (t->settings, t->item.input, t->item.output);
                        t->result = one.run (
                            [t] (const char* phase, double fraction)
                            {
                                t->progress.phase = phase;
                                t->progress.fraction = fraction;
                            });
                        t->progress.done = true;
                    });
            while (pool.getNumJobs() > 0)
            {
                report.update();
                juce::Thread::sleep (100);
            }
        }
        report.finish();

        // In input order: every summary, and every failure with its file; the others stand.
        int failures = 0;
        for (auto& task : tasks)
        {
            if (!task->result.ok)
            {
                printError (task->item.shownName + ": " + task->result.error);
                ++failures;
            }
            else if (!quiet)
                std::printf ("%s\n",
                             summaryLine (task->item.shownName, task->item.output, task->result)
                                 .toRawUTF8());
        }
        return failures > 0 ? 1 : 0;
    }

    std::vector<std::string> inputs;
    std::string output;
    bool recursive = false, quiet = false, progressLines = false;
    std::optional<std::string> jobs;
    SettingsOptions settings;
};
} // namespace

std::unique_ptr<Command> makeProcessCommand (CLI::App& parent)
{
    return std::make_unique<ProcessCommand> (parent);
}

juce::String summaryLine (juce::String const& shownName, juce::File const& output,
                          JobResult const& result)
{
    auto line = shownName + " -> " + output.getFullPathName() + ": learnt "
                + juce::String (result.learntFrames) + " frames, correction "
                + juce::String (result.correctionMinDb, 1) + " .. "
                + juce::String (result.correctionMaxDb, 1) + " dB, deviation from target "
                + juce::String (result.deviationBeforeDb, 2) + " dB -> "
                + juce::String (result.deviationAfterDb, 2) + " dB RMS, loudness "
                + juce::String (result.loudnessInLufs, 1) + " -> "
                + juce::String (result.loudnessOutLufs, 1) + " LUFS (gain "
                + juce::String (result.gainDb, 1) + " dB";
    if (result.peakReductionDb > 0.0)
        line << ", " << juce::String (result.peakReductionDb, 1)
             << " dB less to keep peaks under the ceiling";
    line << ")";
    if (result.samplesKeptUnderCeiling > 0)
        line << "; warning: the ceiling kept " << juce::String (result.samplesKeptUnderCeiling)
             << " samples from going over it (the output is "
             << juce::String (result.peakReductionDb, 1) << " dB quieter than asked)";
    // About a second of material at the tool's default model length.
    constexpr std::uint64_t fewestFramesToTrust = 25;
    if (result.learntFrames == 0)
        line << "; warning: nothing was loud enough to learn, so nothing was corrected (see "
                "--threshold)";
    else if (result.learntFrames < fewestFramesToTrust)
        line << "; warning: only " << juce::String (result.learntFrames)
             << " frames were learnt, too few to trust the correction";
    if (result.deviationAfterDb > result.deviationBeforeDb)
        line << "; warning: the result is further from the target than the input";
    if (result.nonFiniteSamples > 0)
        line << "; warning: " << juce::String (result.nonFiniteSamples)
             << " input samples were NaN or infinite and were taken as silence";
    if (result.silencedOutputSamples > 0)
        line << "; warning: " << juce::String (result.silencedOutputSamples)
             << " output samples overflowed and were written as silence";
    return line;
}
