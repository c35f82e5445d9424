#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <map>
#include <string>
#include <vector>

namespace vesk::bench
{
/** CPU time of the calling thread, in seconds. */
inline double threadCpuSeconds()
{
    timespec now{};
    clock_gettime (CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double> (now.tv_sec) + 1e-9 * static_cast<double> (now.tv_nsec);
}

/** What one streaming run cost: CPU per second of audio and the spread of single blocks. */
struct StreamCost
{
    double cpuMillisecondsPerSecond = 0.0;
    double medianBlockMicroseconds = 0.0;
    double worstBlockMicroseconds = 0.0; // the 99.9th percentile
};

/** Collects per-block wall times and the thread's CPU time over a run of blocks. */
class BlockTimer
{
public:
    void start() { cpuStart = threadCpuSeconds(); }
    void beginBlock() { blockStart = std::chrono::steady_clock::now(); }
    void endBlock()
    {
        blockTimes.push_back (std::chrono::duration<double, std::micro> (
                                  std::chrono::steady_clock::now() - blockStart)
                                  .count());
    }
    double stop() { return threadCpuSeconds() - cpuStart; }
    double lastBlock() const { return blockTimes.empty() ? 0.0 : blockTimes.back(); }
    std::vector<double> const& times() const { return blockTimes; }

    /** Keeps, block by block, the smaller of this pass's time and the times kept so far. */
    void keepFastest (std::vector<double>& fastest) const
    {
        if (fastest.empty())
            fastest = blockTimes;
        for (std::size_t i = 0; i < fastest.size() && i < blockTimes.size(); ++i)
            fastest[i] = std::min (fastest[i], blockTimes[i]);
    }

private:
    double cpuStart = 0.0;
    std::chrono::steady_clock::time_point blockStart;
    std::vector<double> blockTimes;
};

inline StreamCost summarise (std::vector<double> blockTimes, double cpuSeconds, double audioSeconds)
{
    StreamCost cost;
    cost.cpuMillisecondsPerSecond = 1000.0 * cpuSeconds / audioSeconds;
    std::sort (blockTimes.begin(), blockTimes.end());
    if (!blockTimes.empty())
    {
        cost.medianBlockMicroseconds = blockTimes[blockTimes.size() / 2];
        cost.worstBlockMicroseconds =
            blockTimes[std::min (blockTimes.size() - 1, blockTimes.size() * 999 / 1000)];
    }
    return cost;
}

/** Results by row (a case such as a block size) and column (an implementation), printed as a
    table with ratios after all benchmarks have run. */
struct ComparisonTable
{
    static ComparisonTable& get()
    {
        static ComparisonTable table;
        return table;
    }

    void record (std::string const& title, std::string const& row, std::string const& column,
                 StreamCost cost)
    {
        auto& section = sections[title];
        if (std::find (section.rows.begin(), section.rows.end(), row) == section.rows.end())
            section.rows.push_back (row);
        if (std::find (section.columns.begin(), section.columns.end(), column)
            == section.columns.end())
            section.columns.push_back (column);
        section.costs[row + "|" + column] = cost;
    }

    void print() const;

    struct Section
    {
        std::vector<std::string> rows, columns;
        std::map<std::string, StreamCost> costs;
    };
    std::map<std::string, Section> sections;
};
} // namespace vesk::bench
