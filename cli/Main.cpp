// kelfiner: corrects the tonal balance of audio files offline with the plug-in's own processor.
#include "DemoInput.h"
#include "FilterFile.h"
#include "InterruptCleanup.h"
#include "LicenceCommand.h"
#include "OfflineJob.h"

#include <juce_events/juce_events.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <unistd.h>

using vesk::audio::Deconvolution;

namespace
{
const char* usage = R"(usage:
  kelfiner process IN... -o OUT [options]   correct files (OUT is a file, or a folder for several)
  kelfiner learn IN -o F.filter [options]     learn a recording's envelope into a filter file
  kelfiner info F.filter|P.xml                what a filter or preset file holds
  kelfiner demo [-o FOLDER]                   make a muffled test recording and correct it
  kelfiner licence status|authorise F|deauthorise   the plug-ins' licence on this machine

options:
  --target NAME        automatic, music, music-dark, music-less-harsh, speech, custom
  --target-filter F    a *.filter file as the custom target
  --reference REF      learn the custom target from another recording
  --estimator NAME     spectrum (the long-term spectrum, default) or frames (each frame's
                       model, averaged: the plug-in's original way)
  --threshold DB       learning threshold (-112 .. -12; default -70 with the spectrum
                       estimator and no preset, else -36 as in the plug-in)
  --smoothing OCT      smooth the correction over this many octaves (0 .. 2; default 1/3
                       with the spectrum estimator, else 0)
  --filter-length MS   model length (1 .. 20; default 20 with the spectrum estimator and no
                       preset, else 10 as in the plug-in)
  --gain DB            master gain (-24 .. 24)
  --emphasis HZ:PCT    an emphasis point (up to twelve; turns the emphasis curve on)
  --preset P.xml       start from a preset
  --save-filter F      save the learnt filter
  --plot P.png         draw input, output and correction
  --live               one pass, as the plug-in hears it (default: learn the whole file first)
  --max-boost DB       lift no frequency by more than this (0 .. 48; default: no limit)
  --lift-empty-bands   also lift bands that hold nothing (80 to 90 dB under the material's
                       peak level: noise, an encoder's cut-off); by default they are left alone
  --loudness MODE      match (default: the output as loud as the input, BS.1770) or off
  --ceiling DB|off     sample-peak ceiling of the output (default -1 dBFS); the gain comes
                       down rather than a sample clip
  --force              replace existing outputs
  --jobs N             files processed at once (default: all cores)
)";

struct UsageError
{
    juce::String message;
};

float number (juce::String const& text, juce::String const& option)
{
    if (!text.containsOnly ("0123456789.-+eE") || text.isEmpty())
        throw UsageError{option + " needs a number, not \"" + text + "\""};
    return text.getFloatValue();
}

/** A number that must lie in a range; the message names the option, the range and the value. */
float numberIn (juce::String const& text, juce::String const& option, float lowest, float highest,
                const char* unit)
{
    const float value = number (text, option);
    if (!(value >= lowest && value <= highest))
        throw UsageError{option + " takes " + juce::String (lowest, 0) + " .. "
                         + juce::String (highest, 0) + " " + unit + ", not " + text};
    return value;
}

int targetModelFromName (juce::String const& name)
{
    const auto* profile = vesk::audio::findTargetProfile (name.toLowerCase().toStdString());
    if (profile == nullptr)
        throw UsageError{"unknown target \"" + name + "\""};
    return profile->model;
}

vesk::audio::Estimator estimatorFromName (juce::String const& name)
{
    for (auto const& choice : vesk::audio::estimators)
        if (name == choice.key)
            return choice.estimator;
    throw UsageError{"unknown estimator \"" + name + "\" (spectrum or frames)"};
}

struct Arguments
{
    juce::String command;
    juce::StringArray inputs;
    juce::File output;
    JobSettings settings;
    int jobs = 0;
};

Arguments parse (juce::StringArray const& args)
{
    Arguments parsed;
    if (args.isEmpty())
        throw UsageError{"no command"};
    parsed.command = args[0];
    const auto file = [] (juce::String const& path)
    { return juce::File::getCurrentWorkingDirectory().getChildFile (path); };
    for (int i = 1; i < args.size(); ++i)
    {
        const auto& arg = args[i];
        const auto value = [&]() -> juce::String
        {
            if (i + 1 >= args.size())
                throw UsageError{arg + " needs a value"};
            return args[++i];
        };
        if (arg == "-o" || arg == "--output")
            parsed.output = file (value());
        else if (arg == "--target")
            parsed.settings.targetModel = targetModelFromName (value());
        else if (arg == "--estimator")
            parsed.settings.estimator = estimatorFromName (value());
        else if (arg == "--target-filter")
            parsed.settings.targetFilter = file (value());
        else if (arg == "--reference")
            parsed.settings.reference = file (value());
        else if (arg == "--threshold")
            parsed.settings.threshold = number (value(), arg);
        else if (arg == "--filter-length")
            parsed.settings.filterLength = number (value(), arg);
        else if (arg == "--gain")
            parsed.settings.masterGain = number (value(), arg);
        else if (arg == "--emphasis")
        {
            const auto point = value();
            if (!point.contains (":") || parsed.settings.emphasis.size() >= 12)
                throw UsageError{"--emphasis takes HZ:PERCENT, at most twelve times"};
            parsed.settings.emphasis.emplace_back (
                number (point.upToFirstOccurrenceOf (":", false, false), arg),
                number (point.fromFirstOccurrenceOf (":", false, false), arg));
        }
        else if (arg == "--preset")
            parsed.settings.preset = file (value());
        else if (arg == "--save-filter")
            parsed.settings.saveFilter = file (value());
        else if (arg == "--plot")
            parsed.settings.plot = file (value());
        else if (arg == "--live")
            parsed.settings.live = true;
        else if (arg == "--max-boost")
            parsed.settings.maximumBoostDb = numberIn (value(), arg, 0.0f, 48.0f, "dB");
        else if (arg == "--smoothing")
            parsed.settings.smoothingOctaves = numberIn (value(), arg, 0.0f, 2.0f, "octaves");
        else if (arg == "--lift-empty-bands")
            parsed.settings.spareEmptyBands = false;
        else if (arg == "--loudness")
        {
            const auto mode = value();
            if (mode != "match" && mode != "off")
                throw UsageError{"--loudness takes match or off, not \"" + mode + "\""};
            parsed.settings.matchLoudness = mode == "match";
        }
        else if (arg == "--ceiling")
        {
            const auto ceiling = value();
            if (ceiling == "off")
                parsed.settings.ceilingDb.reset();
            else
                parsed.settings.ceilingDb = numberIn (ceiling, arg, -60.0f, 0.0f, "dBFS or off");
        }
        else if (arg == "--force")
            parsed.settings.force = true;
        else if (arg == "--jobs")
            parsed.jobs = static_cast<int> (number (value(), arg));
        else if (arg.startsWith ("-"))
            throw UsageError{"unknown option " + arg};
        else
            parsed.inputs.add (arg);
    }
    return parsed;
}

bool toTerminal() { return isatty (STDERR_FILENO) != 0; }

juce::String summary (juce::File const& in, juce::File const& out, JobResult const& result)
{
    return in.getFileName() + " -> " + out.getFullPathName() + ": learnt "
           + juce::String (result.learntFrames) + " frames, correction "
           + juce::String (result.correctionMinDb, 1) + " .. "
           + juce::String (result.correctionMaxDb, 1) + " dB, deviation from target "
           + juce::String (result.deviationBeforeDb, 2) + " dB -> "
           + juce::String (result.deviationAfterDb, 2) + " dB RMS, loudness "
           + juce::String (result.loudnessInLufs, 1) + " -> "
           + juce::String (result.loudnessOutLufs, 1) + " LUFS (gain "
           + juce::String (result.gainDb, 1) + " dB"
           + (result.peakReductionDb > 0.0 ? ", " + juce::String (result.peakReductionDb, 1)
                                                 + " dB less to keep peaks under the ceiling"
                                           : juce::String())
           + ")"
           + (result.nonFiniteSamples > 0
                  ? "; warning: " + juce::String (result.nonFiniteSamples)
                        + " input samples were NaN or infinite and were taken as silence"
                  : juce::String())
           + (result.silencedOutputSamples > 0
                  ? "; warning: " + juce::String (result.silencedOutputSamples)
                        + " output samples overflowed and were written as silence"
                  : juce::String());
}

/** What stops a run before it starts: an output that is also something the run reads (never
    allowed, --force or not), two results bound for one file, or an existing file without
    --force. Empty when all is well. */
juce::String checkOutputs (juce::Array<juce::File> const& reads,
                           juce::Array<juce::File> const& writes, bool force)
{
    const auto same = [] (juce::File const& a, juce::File const& b)
    { return a.getLinkedTarget().getFullPathName() == b.getLinkedTarget().getFullPathName(); };
    for (int i = 0; i < writes.size(); ++i)
    {
        for (auto const& read : reads)
            if (same (writes[i], read))
                return writes[i].getFullPathName()
                       + " is read by this run; it cannot also be an output";
        for (int j = 0; j < i; ++j)
            if (same (writes[i], writes[j]))
                return "two results would be written to " + writes[i].getFullPathName()
                       + "; nothing was written";
        if (!force && writes[i].exists())
            return "output exists (use --force to replace it): " + writes[i].getFullPathName();
    }
    return {};
}

int process (Arguments const& args)
{
    if (args.inputs.isEmpty() || args.output == juce::File())
        throw UsageError{"process needs inputs and -o OUT"};
    const bool severalFiles = args.inputs.size() > 1 || args.output.isDirectory();
    if (severalFiles && !args.output.isDirectory() && !args.output.createDirectory())
    {
        std::fprintf (stderr, "error: cannot create folder %s\n",
                      args.output.getFullPathName().toRawUTF8());
        return 1;
    }

    struct Task
    {
        juce::File input, output;
        JobSettings settings;
        JobResult result;
        std::atomic<double> progress{0.0};
    };
    std::vector<std::unique_ptr<Task>> tasks;
    for (auto const& name : args.inputs)
    {
        auto task = std::make_unique<Task>();
        task->input = juce::File::getCurrentWorkingDirectory().getChildFile (name);
        task->settings = args.settings;
        if (severalFiles)
        {
            const auto extension = task->input.hasFileExtension ("wav;aif;aiff;flac")
                                       ? task->input.getFileExtension()
                                       : ".wav";
            task->output =
                args.output.getChildFile (task->input.getFileNameWithoutExtension() + extension);
            if (args.settings.plot != juce::File())
                task->settings.plot =
                    args.output.getChildFile (task->input.getFileNameWithoutExtension() + ".png");
            if (args.settings.saveFilter != juce::File())
                task->settings.saveFilter = args.output.getChildFile (
                    task->input.getFileNameWithoutExtension() + ".filter");
        }
        else
            task->output = args.output;
        tasks.push_back (std::move (task));
    }

    juce::Array<juce::File> reads, writes;
    for (auto const& file :
         {args.settings.preset, args.settings.targetFilter, args.settings.reference})
        if (file != juce::File())
            reads.add (file);
    for (auto& task : tasks)
    {
        reads.add (task->input);
        for (auto const& file : {task->output, task->settings.plot, task->settings.saveFilter})
            if (file != juce::File())
                writes.add (file);
    }
    if (const auto problem = checkOutputs (reads, writes, args.settings.force);
        problem.isNotEmpty())
    {
        std::fprintf (stderr, "error: %s\n", problem.toRawUTF8());
        return 2;
    }

    // Several files at once, one per core: each job is independent and single-threaded.
    const int threads = juce::jlimit (1, juce::jmax (1, static_cast<int> (tasks.size())),
                                      args.jobs > 0 ? args.jobs : juce::SystemStats::getNumCpus());
    juce::ThreadPool pool (threads);
    for (auto& task : tasks)
        pool.addJob (
            [t = task.get()]
            {
                OfflineJob job (t->settings, t->input, t->output);
                t->result = job.run ([t] (double p) { t->progress = p; });
                t->progress = 1.0;
            });

    const bool bar = toTerminal();
    while (pool.getNumJobs() > 0)
    {
        if (bar)
        {
            double total = 0.0;
            for (auto& task : tasks)
                total += task->progress;
            const auto fraction = total / static_cast<double> (tasks.size());
            const int filled = static_cast<int> (fraction * 40.0);
            std::fprintf (stderr, "\r[%s%s] %3d%%",
                          juce::String::repeatedString ("#", filled).toRawUTF8(),
                          juce::String::repeatedString (" ", 40 - filled).toRawUTF8(),
                          static_cast<int> (fraction * 100.0));
            std::fflush (stderr);
        }
        juce::Thread::sleep (100);
    }
    if (bar)
        std::fprintf (stderr, "\r%60s\r", "");

    int failures = 0;
    for (auto& task : tasks)
    {
        if (task->result.ok)
            std::printf ("%s\n", summary (task->input, task->output, task->result).toRawUTF8());
        else
        {
            std::fprintf (stderr, "error: %s\n", task->result.error.toRawUTF8());
            ++failures;
        }
    }
    return failures > 0 ? 1 : 0;
}

int learn (Arguments const& args)
{
    if (args.inputs.size() != 1 || args.output == juce::File())
        throw UsageError{"learn needs one input and -o F.filter"};
    const auto problem =
        checkOutputs ({juce::File::getCurrentWorkingDirectory().getChildFile (args.inputs[0])},
                      {args.output}, args.settings.force);
    if (problem.isNotEmpty())
    {
        std::fprintf (stderr, "error: %s\n", problem.toRawUTF8());
        return 2;
    }
    vesk::audio::Signal32 coefficients;
    double rate = 0.0;
    juce::String error;
    const auto input = juce::File::getCurrentWorkingDirectory().getChildFile (args.inputs[0]);
    if (!OfflineJob::learnFilter (input, args.settings, coefficients, rate, error)
        || !FilterFile::write (args.output, coefficients, rate))
    {
        std::fprintf (stderr, "error: %s\n",
                      (error.isEmpty() ? "cannot write " + args.output.getFullPathName() : error)
                          .toRawUTF8());
        return 1;
    }
    std::printf ("%s -> %s: %d coefficients at %.0f Hz\n", input.getFileName().toRawUTF8(),
                 args.output.getFullPathName().toRawUTF8(), coefficients.getNumSamples(), rate);
    return 0;
}

int info (Arguments const& args)
{
    if (args.inputs.size() != 1)
        throw UsageError{"info needs one file"};
    const auto file = juce::File::getCurrentWorkingDirectory().getChildFile (args.inputs[0]);
    if (file.hasFileExtension ("xml"))
    {
        KelfinerAudioProcessor processor;
        if (!processor.importFromPresetFile (file))
        {
            std::fprintf (stderr, "error: not a preset file: %s\n",
                          file.getFullPathName().toRawUTF8());
            return 1;
        }
        JUCE_BEGIN_IGNORE_WARNINGS_GCC_LIKE ("-Wdeprecated-declarations")
        std::printf ("preset \"%s\"\n", processor.getCurrentPresetName().toRawUTF8());
        for (int i = 0; i < processor.getNumParameters(); ++i)
            std::printf ("  %-22s %s\n", processor.getParameterName (i).toRawUTF8(),
                         processor.getParameterText (i).trimEnd().toRawUTF8());
        JUCE_END_IGNORE_WARNINGS_GCC_LIKE
        vesk::audio::Signal32 filter;
        double rate = 0.0;
        processor.getEngine().getSourceFilter (filter, rate);
        std::printf ("  source filter: %s\n",
                     filter.hasStorage() ? (juce::String (filter.getNumSamples())
                                            + " coefficients at " + juce::String (rate) + " Hz")
                                               .toRawUTF8()
                                         : "none");
        processor.getEngine().getTargetFilter (filter, rate);
        std::printf ("  target filter: %s\n",
                     filter.hasStorage() ? (juce::String (filter.getNumSamples())
                                            + " coefficients at " + juce::String (rate) + " Hz")
                                               .toRawUTF8()
                                         : "none");
        return 0;
    }
    vesk::audio::Signal32 coefficients;
    double rate = 0.0;
    if (FilterFile::read (file, coefficients, rate) != FilterFile::Status::ok)
    {
        std::fprintf (stderr, "error: not a filter or preset file: %s\n",
                      file.getFullPathName().toRawUTF8());
        return 1;
    }
    std::printf ("filter: %d channel(s), %d coefficients, made at %.1f Hz\n",
                 coefficients.getNumChannels(), coefficients.getNumSamples(), rate);
    return 0;
}

int demo (Arguments const& args)
{
    const auto folder =
        args.output == juce::File()
            ? juce::File::getCurrentWorkingDirectory().getChildFile ("kelfiner-demo")
            : args.output;
    if (!folder.createDirectory())
    {
        std::fprintf (stderr, "error: cannot create %s\n", folder.getFullPathName().toRawUTF8());
        return 1;
    }
    const auto input = folder.getChildFile ("muffled.wav");
    if (!writeDemoInput (input))
    {
        std::fprintf (stderr, "error: cannot write %s\n", input.getFullPathName().toRawUTF8());
        return 1;
    }
    Arguments run;
    run.command = "process";
    run.inputs.add (input.getFullPathName());
    run.output = folder.getChildFile ("corrected.wav");
    run.settings = args.settings;
    run.settings.force = true;
    if (!run.settings.targetModel)
        run.settings.targetModel = Deconvolution::music;
    run.settings.plot = folder.getChildFile ("correction.png");
    const int status = process (run);
    if (status == 0)
        std::printf ("wrote %s, %s and %s\n", input.getFullPathName().toRawUTF8(),
                     run.output.getFullPathName().toRawUTF8(),
                     run.settings.plot.getFullPathName().toRawUTF8());
    return status;
}
} // namespace

int main (int argc, char** argv)
{
    // A full disk or a file-size limit should end in a clear message, not in a signal.
    std::signal (SIGXFSZ, SIG_IGN);
    installInterruptCleanup();
    juce::ScopedJuceInitialiser_GUI juce;
    juce::StringArray args;
    for (int i = 1; i < argc; ++i)
        args.add (juce::CharPointer_UTF8 (argv[i]));
    try
    {
        if (args.isEmpty() || args[0] == "--help" || args[0] == "-h")
        {
            std::printf ("%s", usage);
            return args.isEmpty() ? 2 : 0;
        }
        if (args[0] == "licence" || args[0] == "license")
            return licenceCommand (args);
        const auto parsed = parse (args);
        if (parsed.command == "process")
            return process (parsed);
        if (parsed.command == "learn")
            return learn (parsed);
        if (parsed.command == "info")
            return info (parsed);
        if (parsed.command == "demo")
            return demo (parsed);
        throw UsageError{"unknown command \"" + parsed.command + "\""};
    }
    catch (UsageError const& e)
    {
        std::fprintf (stderr, "kelfiner: %s\n\n%s", e.message.toRawUTF8(), usage);
        return 2;
    }
}
