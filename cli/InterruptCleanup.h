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

/** While one exists, an interrupt waits: it takes effect when the last one goes. For moving a
    file's finished outputs into place, so that they are all there or none. Any thread. */
class InterruptDeferral
{
public:
    InterruptDeferral();
    ~InterruptDeferral();
    InterruptDeferral (InterruptDeferral const&) = delete;
    InterruptDeferral& operator= (InterruptDeferral const&) = delete;
};
