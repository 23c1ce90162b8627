#ifndef TAV_BENCH_HEAP_PEAK_H
#define TAV_BENCH_HEAP_PEAK_H

#include <cstddef>

namespace tav_bench {

/// Bytes of the heap that are in hand, with what the allocator rounds up: all of the process, C's own
/// included.
std::size_t heapInHand();

/// The most that were in hand since the last `resetPeak`.
std::size_t heapPeak();
void resetPeak();

} // namespace tav_bench

#endif
