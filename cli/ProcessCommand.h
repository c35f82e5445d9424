#pragma once

#include "Commands.h"
#include "OfflineJob.h"

/** One file's summary line, naming the input as the user gave it. */
juce::String summaryLine (juce::String const& shownName, juce::File const& output,
                          JobResult const& result);
