#pragma once

#include "Batch.h"
#include "CommandLine.h"
#include "OfflineJob.h"

#include <optional>

/** How a batch runs and speaks; the options process and analyse share. */
struct RunOptions
{
    std::optional<std::string> jobs, report;
    bool quiet = false, progressLines = false;

    void add (CLI::App& command);
};

/** Runs every file of a batch, several at once, each with its own processor; prints a summary
    per file and the failures with their files, in input order; writes the report if asked.
    Outputs are checked before anything runs (a UsageError when one would be lost). Items
    without an output are measured only. Exit status: 0, or 1 when any file failed. Main
    thread only. */
int runBatch (std::vector<BatchItem> const& items, JobSettings const& job,
              RunOptions const& options);
