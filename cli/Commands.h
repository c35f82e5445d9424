#pragma once

#include "CommandLine.h"

/** Each command of the tool, added to the parent's subcommands; one file each. */
std::unique_ptr<Command> makeProcessCommand (CLI::App& parent);
std::unique_ptr<Command> makeAnalyseCommand (CLI::App& parent);
std::unique_ptr<Command> makeLearnCommand (CLI::App& parent);
std::unique_ptr<Command> makeInfoCommand (CLI::App& parent);
std::unique_ptr<Command> makeDemoCommand (CLI::App& parent);
std::unique_ptr<Command> makePresetsCommand (CLI::App& parent);
std::unique_ptr<Command> makeLicenceCommand (CLI::App& parent);
