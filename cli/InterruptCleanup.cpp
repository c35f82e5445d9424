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

extern "C" void removeTemporariesAndStop (int signal)
{
    for (int i = 0; i < slots; ++i)
        if (states[i].load() == 2)
            ::unlink (paths[i]);
    std::signal (signal, SIG_DFL);
    std::raise (signal);
}
} // namespace

void installInterruptCleanup()
{
    for (int signal : {SIGINT, SIGTERM, SIGHUP})
        std::signal (signal, removeTemporariesAndStop);
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
