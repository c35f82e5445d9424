#include "InterruptCleanup.h"

#include <atomic>
#include <csignal>
#include <cstring>
#include <unistd.h>

namespace
{
// A fixed table that the signal handler reads without allocating or locking. A slot is free
// (0), being written (1) or holds a registered path (2); the handler only reads slots in 2.
constexpr int slots = 256;
constexpr std::size_t pathLength = 4096;
char paths[slots][pathLength];
std::atomic<int> states[slots];
// While outputs are being moved into place the interrupt waits, so that a file's outputs are
// all there or none.
std::atomic<int> committing{0};
std::atomic<int> deferredSignal{0};

void removeTemporariesAndStop (int signal)
{
    for (int i = 0; i < slots; ++i)
        if (states[i].load() == 2)
            ::unlink (paths[i]);
    std::signal (signal, SIG_DFL);
    std::raise (signal);
}

extern "C" void onInterrupt (int signal)
{
    if (committing.load() > 0)
    {
        deferredSignal = signal;
        return;
    }
    removeTemporariesAndStop (signal);
}
} // namespace

void installInterruptCleanup()
{
    for (int signal : {SIGINT, SIGTERM, SIGHUP})
        std::signal (signal, onInterrupt);
}

InterruptCleanup::InterruptCleanup (juce::File const& temporary)
{
    const auto path = temporary.getFullPathName().toStdString();
    if (path.size() >= pathLength)
        return;
    for (int i = 0; i < slots; ++i)
    {
        int expected = 0;
        if (!states[i].compare_exchange_strong (expected, 1))
            continue;
        std::memcpy (paths[i], path.c_str(), path.size() + 1);
        states[i] = 2;
        slot = i;
        return;
    }
}

InterruptCleanup::~InterruptCleanup()
{
    if (slot >= 0)
        states[slot] = 0;
}

InterruptDeferral::InterruptDeferral() { ++committing; }

InterruptDeferral::~InterruptDeferral()
{
    if (--committing == 0)
        if (const int signal = deferredSignal.exchange (0); signal != 0)
            removeTemporariesAndStop (signal);
}
