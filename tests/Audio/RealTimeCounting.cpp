// The counters of RealTimeCounting.h: this file replaces the global operator new and the C
// allocation and mutex entry points of the program it is linked into, and counts them per
// thread while that thread's t_counting is set. Sanitizer builds keep their own allocator:
// there nothing is replaced and nothing counted.

#include "RealTimeCounting.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <dlfcn.h>
#include <new>
#include <pthread.h>

namespace qel::test {
thread_local bool t_counting = false;
thread_local size_t t_news = 0;
thread_local size_t t_mallocs = 0;
thread_local size_t t_frees = 0;
thread_local size_t t_locks = 0;
} // namespace qel::test

using qel::test::t_counting;
using qel::test::t_frees;
using qel::test::t_locks;
using qel::test::t_mallocs;
using qel::test::t_news;

#ifdef QEL_COUNTING
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* p, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
void __libc_free(void* p);

void* malloc(size_t size)
{
    t_mallocs += t_counting ? 1 : 0;
    return __libc_malloc(size);
}
void* calloc(size_t count, size_t size)
{
    t_mallocs += t_counting ? 1 : 0;
    return __libc_calloc(count, size);
}
void* realloc(void* p, size_t size)
{
    t_mallocs += t_counting ? 1 : 0;
    return __libc_realloc(p, size);
}
void* aligned_alloc(size_t alignment, size_t size)
{
    t_mallocs += t_counting ? 1 : 0;
    return __libc_memalign(alignment, size);
}
int posix_memalign(void** out, size_t alignment, size_t size)
{
    t_mallocs += t_counting ? 1 : 0;
    *out = __libc_memalign(alignment, size);
    return *out ? 0 : ENOMEM;
}
void free(void* p)
{
    t_frees += t_counting && p ? 1 : 0;
    __libc_free(p);
}
// The C library's own lock, found on first use. No function-local static: its guard
// could itself lock.
static std::atomic<int (*)(pthread_mutex_t*)> s_realLock{nullptr};
int pthread_mutex_lock(pthread_mutex_t* mutex)
{
    t_locks += t_counting ? 1 : 0;
    auto* lock = s_realLock.load(std::memory_order_acquire);
    if (!lock) {
        lock = reinterpret_cast<int (*)(pthread_mutex_t*)>(dlsym(RTLD_NEXT, "pthread_mutex_lock"));
        s_realLock.store(lock, std::memory_order_release);
    }
    return lock(mutex);
}
}

static void* countedNew(std::size_t size)
{
    t_news += t_counting ? 1 : 0;
    if (void* p = std::malloc(size ? size : 1))
        return p;
    throw std::bad_alloc();
}
void* operator new(std::size_t size) { return countedNew(size); }
void* operator new[](std::size_t size) { return countedNew(size); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
#endif
