#pragma once

#include <juce_core/juce_core.h>

/** Removes, when the run is interrupted (Ctrl-C, SIGTERM, a closed terminal), the temporary
    files registered at that moment, so that an interrupted run leaves nothing beside its
    outputs. Install once, on the main thread, before any job starts. */
void installInterruptCleanup();

/** Registers a temporary file for the life of this object. Any thread. */
class InterruptCleanup
{
public:
    explicit InterruptCleanup (juce::File const& temporary);
    ~InterruptCleanup();
    InterruptCleanup (InterruptCleanup const&) = delete;
    InterruptCleanup& operator= (InterruptCleanup const&) = delete;

private:
    int slot = -1;
};
