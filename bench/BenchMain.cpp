#include "BenchReport.h"

#include <benchmark/benchmark.h>

#include <fstream>
#include <sstream>
#include <thread>

namespace vesk::bench
{
void ComparisonTable::print() const
{
    for (auto const& [title, section] : sections)
    {
        std::printf ("\n%s\n", title.c_str());
        std::printf ("%-10s", "case");
        for (auto const& column : section.columns)
            std::printf (" | %-34s", (column + " ms/s, median/worst us").c_str());
        if (section.columns.size() > 1)
            std::printf (" | ratios to %s", section.columns[0].c_str());
        std::printf ("\n");
        for (auto const& row : section.rows)
        {
            std::printf ("%-10s", row.c_str());
            for (auto const& column : section.columns)
            {
                auto found = section.costs.find (row + "|" + column);
                if (found == section.costs.end())
                {
                    std::printf (" | %-34s", "-");
                    continue;
                }
                auto const& c = found->second;
                char cell[64];
                std::snprintf (cell, sizeof (cell), "%7.2f, %7.2f/%8.2f",
                               c.cpuMillisecondsPerSecond, c.medianBlockMicroseconds,
                               c.worstBlockMicroseconds);
                std::printf (" | %-34s", cell);
            }
            auto first = section.costs.find (row + "|" + section.columns[0]);
            for (std::size_t i = 1; first != section.costs.end() && i < section.columns.size(); ++i)
            {
                auto other = section.costs.find (row + "|" + section.columns[i]);
                if (other != section.costs.end())
                    std::printf (" | %s %.2fx", section.columns[i].c_str(),
                                 other->second.cpuMillisecondsPerSecond
                                     / first->second.cpuMillisecondsPerSecond);
            }
            std::printf ("\n");
        }
    }
}
} // namespace vesk::bench

int main (int argc, char** argv)
{
    benchmark::Initialize (&argc, argv);
    if (benchmark::ReportUnrecognizedArguments (argc, argv))
        return 1;
    std::ifstream cpu ("/proc/cpuinfo");
    std::string line;
    while (std::getline (cpu, line))
        if (line.rfind ("model name", 0) == 0)
        {
            std::printf ("Machine: %s, %u cores\n", line.substr (line.find (':') + 2).c_str(),
                         std::thread::hardware_concurrency());
            break;
        }
    benchmark::RunSpecifiedBenchmarks();
    vesk::bench::ComparisonTable::get().print();
    benchmark::Shutdown();
    return 0;
}
