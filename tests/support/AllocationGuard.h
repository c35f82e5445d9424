#pragma once

#include <cstddef>

namespace vesk::test
{
/** Counts heap allocations made by the current thread while in scope: operator new and the C
    allocation functions, also from libraries loaded at run time (the test binary exports its
    replacements). Link AllocationGuard.cpp into the test and enable exports. */
class AllocationGuard
{
public:
    AllocationGuard();
    ~AllocationGuard();
    std::size_t count() const;
    /** False in sanitizer builds, whose own allocator the guard leaves alone. */
    static bool isCounting();

private:
    std::size_t start;
};
} // namespace vesk::test
