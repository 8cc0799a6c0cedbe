// What LumRequestCost puts before the C library's allocator and before one function of libcurl.

#ifndef LUM_BENCH_INTERPOSED_H
#define LUM_BENCH_INTERPOSED_H

#include <cstddef>

namespace lumbench {

// Calls of malloc, calloc, realloc and the aligned forms by this process so far, whoever made them.
std::size_t Allocations();

}  // namespace lumbench

#endif  // LUM_BENCH_INTERPOSED_H
