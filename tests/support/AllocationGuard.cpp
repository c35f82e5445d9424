#include "AllocationGuard.h"

#include <cstdlib>
#include <new>

// Sanitizers bring their own allocator; replacing it would mix two heaps, so under them the
// guard counts nothing and says so.
// GCC says __SANITIZE_ADDRESS__; clang answers __has_feature.
#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define VESK_UNDER_SANITIZER 1
#endif
#endif
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)                                \
    && !defined(VESK_UNDER_SANITIZER)
#define VESK_COUNT_ALLOCATIONS 1
#endif

#if VESK_COUNT_ALLOCATIONS
extern "C"
{
    void* __libc_malloc (std::size_t);
    void* __libc_calloc (std::size_t, std::size_t);
    void* __libc_realloc (void*, std::size_t);
    void* __libc_memalign (std::size_t, std::size_t);
    void __libc_free (void*);
}

#endif

namespace
{
thread_local int watching = 0;
thread_local std::size_t allocations = 0;

} // namespace

#if VESK_COUNT_ALLOCATIONS
namespace
{
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

#endif

namespace vesk::test
{
bool AllocationGuard::isCounting()
{
#if VESK_COUNT_ALLOCATIONS
    return true;
#else
    return false;
#endif
}

AllocationGuard::AllocationGuard() : start (allocations) { ++watching; }
AllocationGuard::~AllocationGuard() { --watching; }
std::size_t AllocationGuard::count() const { return allocations - start; }
} // namespace vesk::test
