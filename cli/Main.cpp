// kelfiner: corrects the tonal balance of audio files offline with the plug-in's own processor.
#include "Commands.h"
#include "InterruptCleanup.h"

#include <juce_events/juce_events.h>

#include <csignal>
#include <cstdio>

namespace
{
/** kelfiner help [COMMAND]: the same text as COMMAND --help. */
class HelpCommand final : public Command
{
public:
    explicit HelpCommand (CLI::App& parent) : root (parent)
    {
        app = parent.add_subcommand ("help", "help on the tool or on one command");
        app->add_option ("command", command, "a command");
    }

    int run() override
    {
        // The tool's own page, not this command's (which is what help() gives once "help" was
        // parsed), and each command's with its full name in the usage line.
        if (command.empty())
        {
            std::printf ("%s", root.get_formatter()
                                   ->make_help (&root, "kelfiner", CLI::AppFormatMode::Normal)
                                   .c_str());
            return 0;
        }
        for (auto* sub : root.get_subcommands ({}))
            if (sub->check_name (command))
            {
                std::printf ("%s", sub->help ("kelfiner").c_str());
                return 0;
            }
        throw UsageError{"\"" + command + "\" is not a command (kelfiner help lists them)"};
    }

private:
    CLI::App& root;
    std::string command;
};

/** The command a line names, for messages about it; empty when there is none. */
std::string commandNamed (CLI::App& app, int argc, char** argv)
{
    if (argc > 1)
        for (auto* sub : app.get_subcommands ({}))
            if (sub->check_name (argv[1]))
                return sub->get_name();
    return {};
}
} // namespace

int main (int argc, char** argv)
{
    // A full disk or a file-size limit should end in a clear message, not in a signal.
    std::signal (SIGXFSZ, SIG_IGN);
    installInterruptCleanup();
    juce::ScopedJuceInitialiser_GUI juce;

    CLI::App app ("Corrects the tonal balance of recordings with the plug-in's own processor.",
                  "kelfiner");
    app.set_version_flag ("-V,--version", "kelfiner " KELFINER_VERSION);
    app.require_subcommand (1);
    app.footer ("kelfiner help COMMAND (or kelfiner COMMAND --help) tells more about one.");
    std::vector<std::unique_ptr<Command>> commands;
    commands.push_back (makeProcessCommand (app));
    commands.push_back (makeAnalyseCommand (app));
    commands.push_back (makeLearnCommand (app));
    commands.push_back (makeInfoCommand (app));
    commands.push_back (makePresetsCommand (app));
    commands.push_back (makeDemoCommand (app));
    commands.push_back (makeLicenceCommand (app));
    commands.push_back (std::make_unique<HelpCommand> (app));

    if (argc < 2)
    {
        std::fprintf (stderr, "%s", app.help().c_str());
        return 2;
    }
    const auto named = commandNamed (app, argc, argv);
    const auto prefix = "kelfiner" + (named.empty() ? std::string() : " " + named) + ": ";
    try
    {
        app.parse (argc, argv);
        for (auto& command : commands)
            if (command->app->parsed())
                return command->run();
    }
    catch (CLI::Success const& e)
    {
        return app.exit (e); // --help, --version
    }
    catch (CLI::ParseError const& e)
    {
        // The parser's own words for an option given twice are about counts; say it plainly.
        std::string message = e.what();
        if (const auto at = message.find (": At Most 1 required but received ");
            at != std::string::npos)
            message = message.substr (0, at) + " was given more than once; it takes one value";
        std::fprintf (stderr, "%s%s (kelfiner help%s)\n", prefix.c_str(), message.c_str(),
                      named.empty() ? "" : (" " + named).c_str());
        return 2;
    }
    catch (UsageError const& e)
    {
        std::fprintf (stderr, "%s%s\n", prefix.c_str(), e.message.c_str());
        return 2;
    }
    return 2;
}
