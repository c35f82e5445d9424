#pragma once

#include <CLI/CLI.hpp>
#include <juce_core/juce_core.h>

#include <memory>
#include <string>

/** A command line that cannot run as given: exit status 2 and one line that says why. */
struct UsageError
{
    std::string message;
};

/** One subcommand: its options live in the object, run() does the work after parsing.
    Main thread only. */
class Command
{
public:
    virtual ~Command() = default;
    virtual int run() = 0;
    CLI::App* app = nullptr;
};

/** Reads a whole text as a finite number; anything else ("e", "1-2", "") is a usage error that
    names the option and the text. */
double parseNumber (std::string const& option, std::string const& text);
/** A value for one of the plug-in's public parameters, checked against that parameter's own
    range (the one table the host, states, presets and the editor go through too). */
float checkedParameter (int internalId, std::string const& option, std::string const& text);
/** A value only the tool takes, checked against its range. */
double checkedNumber (std::string const& option, std::string const& text, double lowest,
                      double highest, std::string const& unit);
/** A path as the user gave it, against the working folder. */
juce::File fileArgument (std::string const& path);
/** "kelfiner: message" on standard error; runtime failures, whatever the command. */
void printError (juce::String const& message);
