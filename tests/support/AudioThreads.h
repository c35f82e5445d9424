#pragma once

#include <atomic>
#include <functional>
#include <thread>

namespace vesk::test
{
/** Runs body (0 .. count - 1) in order, alternately on two threads of its own: a host with a
    pool of audio workers, neither of them the message thread. */
inline void onTwoAlternatingThreads (int count, const std::function<void (int)>& body)
{
    std::atomic<int> next{0};
    const auto worker = [&] (int first)
    {
        for (int i = first; i < count; i += 2)
        {
            while (next.load() != i)
                std::this_thread::yield();
            body (i);
            next.store (i + 1);
        }
    };
    std::thread even (worker, 0), odd (worker, 1);
    even.join();
    odd.join();
}

/** Runs body once on a thread of its own (a host's audio thread) and waits for it. */
inline void onAnotherThread (const std::function<void()>& body)
{
    std::thread thread (body);
    thread.join();
}
} // namespace vesk::test
