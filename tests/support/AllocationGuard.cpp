#include "AllocationGuard.h"

#include <cstdlib>
#include <new>

extern "C"
{
    void* __libc_malloc (std::size_t);
    void* __libc_calloc (std::size_t, std::size_t);
    void* __libc_realloc (void*, std::size_t);
    void* __libc_memalign (std::size_t, std::size_t);
    void __libc_free (void*);
}

namespace
{
thread_local int watching = 0;
thread_local std::size_t allocations = 0;

inline void note()
{
    if (watching > 0)
        ++allocations;
}
} // namespace

extern "C"
{
    void* malloc (std::size_t size)
    {
        note();
        return __libc_malloc (size);
    }

    void* calloc (std::size_t count, std::size_t size)
    {
        note();
        return __libc_calloc (count, size);
    }

    void* realloc (void* pointer, std::size_t size)
    {
        note();
        return __libc_realloc (pointer, size);
    }

    void free (void* pointer) { __libc_free (pointer); }

    void* aligned_alloc (std::size_t alignment, std::size_t size)
    {
        note();
        return __libc_memalign (alignment, size);
    }

    void* memalign (std::size_t alignment, std::size_t size)
    {
        note();
        return __libc_memalign (alignment, size);
    }

    int posix_memalign (void** result, std::size_t alignment, std::size_t size)
    {
        note();
        *result = __libc_memalign (alignment, size);
        return *result != nullptr ? 0 : 12;
    }
}

namespace vesk::test
{
AllocationGuard::AllocationGuard() : start (allocations) { ++watching; }
AllocationGuard::~AllocationGuard() { --watching; }
std::size_t AllocationGuard::count() const { return allocations - start; }
} // namespace vesk::test
