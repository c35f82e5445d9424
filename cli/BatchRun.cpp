#include "BatchRun.h"

#include "Progress.h"
#include "Report.h"

#include <cstdio>

namespace
{
/** A run killed outright (SIGKILL, a power cut) leaves the temporary file it was writing beside
    an output: "NAME_tempHEX.EXT", as the next run would name its own. One that has not been
    written to for a quarter of an hour belongs to no run still going. */
void sweepStaleTemporaries (juce::File const& output)
{
    const auto stem = output.getFileNameWithoutExtension() + "_temp";
    const auto oldest = juce::Time::getCurrentTime() - juce::RelativeTime::minutes (15);
    for (auto const& entry : juce::RangedDirectoryIterator (
             output.getParentDirectory(), false, stem + "*" + output.getFileExtension(),
             juce::File::findFiles, juce::File::FollowSymlinks::no))
    {
        const auto name = entry.getFile().getFileNameWithoutExtension();
        const auto hex = name.substring (stem.length());
        if (hex.isNotEmpty() && hex.length() <= 8 && hex.containsOnly ("0123456789abcdef")
            && entry.getModificationTime() < oldest && !entry.getFile().isSymbolicLink())
            entry.getFile().deleteFile();
    }
}

struct Task
{
    BatchItem item;
    JobSettings settings;
    JobResult result;
    FileProgress progress;
};
} // namespace

void RunOptions::add (CLI::App& command)
{
    command.add_option ("--report", report, "write what was found and done, per file, as JSON");
    command.add_option ("-j,--jobs", jobs, "files at once (1 .. 256; default: all cores)");
    command.add_flag ("-q,--quiet", quiet, "print nothing but errors");
    command.add_flag ("--progress", progressLines,
                      "a line per finished file, also when the output is not a terminal");
}

int runBatch (std::vector<BatchItem> const& items, JobSettings const& job,
              RunOptions const& options)
{
    int threads = juce::SystemStats::getNumCpus();
    if (options.jobs)
        threads =
            static_cast<int> (checkedNumber ("--jobs", *options.jobs, 1, 256, "files at once"));
    if (options.quiet && options.progressLines)
        throw UsageError{"--quiet and --progress contradict each other: give one"};

    std::vector<std::unique_ptr<Task>> tasks;
    juce::Array<juce::File> reads, writes;
    for (auto const& file : {job.preset, job.targetFilter, job.reference})
        if (file != juce::File())
            reads.add (file);
    const auto reportFile = options.report ? fileArgument (*options.report) : juce::File();
    if (reportFile != juce::File())
        writes.add (reportFile);
    for (auto const& item : items)
    {
        auto task = std::make_unique<Task>();
        task->item = item;
        task->settings = job;
        if (item.plot != juce::File() || item.filter != juce::File())
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
    // Every folder a result goes to exists before the first file is processed, the report's too:
    // a run that cannot write its report must not have written audio first.
    juce::Array<juce::File> folders;
    for (auto& task : tasks)
        if (task->item.output != juce::File())
            folders.add (task->item.output.getParentDirectory());
    if (reportFile != juce::File())
        folders.add (reportFile.getParentDirectory());
    for (auto const& folder : folders)
        if (!folder.createDirectory())
        {
            printError ("cannot create folder " + folder.getFullPathName());
            return 1;
        }
    for (auto const& file : writes)
        sweepStaleTemporaries (file);

    // Several files at once, one per core: each job is independent and single-threaded.
    std::vector<FileProgress*> watched;
    for (auto& task : tasks)
        watched.push_back (&task->progress);
    ProgressReport progress (ProgressReport::choose (options.quiet, options.progressLines),
                             watched);
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
                    t->progress.failed = !t->result.ok;
                    t->progress.done = true;
                });
        while (pool.getNumJobs() > 0)
        {
            progress.update();
            juce::Thread::sleep (100);
        }
    }
    progress.finish();

    // In input order: every summary, and every failure with its file; the others stand.
    int failures = 0;
    JsonReport report;
    for (auto& task : tasks)
    {
        report.add (task->item.shownName, task->item.output, task->result);
        if (!task->result.ok)
        {
            printError (task->item.shownName + ": " + task->result.error);
            ++failures;
        }
        else if (!options.quiet)
            std::printf (
                "%s\n",
                summaryLine (task->item.shownName, task->item.output, task->result).toRawUTF8());
    }
    if (juce::String error; reportFile != juce::File() && !report.write (reportFile, error))
    {
        printError (error);
        return 1;
    }
    return failures > 0 ? 1 : 0;
}
