#pragma once

// The per-thread counters of the real-time test program, which replaces the global
// operator new and the C allocation and mutex entry points to count them (defined in
// CAudioGraphRealTimeTest.cpp). A thread counts while its t_counting is set. The sanitizer
// builds bring their own allocator: there nothing is counted and QEL_COUNTING is unset.

#include <cstddef>

#if !defined(QEL_TSAN) && !defined(QEL_ASAN)
#define QEL_COUNTING 1
#endif

namespace qel::test {
extern thread_local bool t_counting;
extern thread_local size_t t_news;
extern thread_local size_t t_mallocs;
extern thread_local size_t t_frees;
extern thread_local size_t t_locks;
} // namespace qel::test
