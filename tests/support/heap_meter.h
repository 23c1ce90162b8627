#ifndef TAV_TESTS_SUPPORT_HEAP_METER_H
#define TAV_TESTS_SUPPORT_HEAP_METER_H

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <malloc.h>

/// Counts the heap of the whole process, by the functions that all allocations go through; to be included by
/// one source of a program.  Not for sanitized builds, which have these functions for themselves.
namespace tav_test {

inline std::atomic<long long> heapBytes{0};
inline std::atomic<long long> heapPeak{0};
inline std::atomic<long long> heapBlocks{0};

/// The bytes that were taken since it was made.  A block counts with what the allocator spends for it.
class HeapMeter {
public:
    HeapMeter() : begin_(heapBytes.load()), blocks_(heapBlocks.load()) { heapPeak.store(begin_); }

    long long kept() const { return heapBytes.load() - begin_; }
    /// The most at one time.
    long long peak() const { return heapPeak.load() - begin_; }
    /// How many blocks were taken, also those that were given back.
    long long taken() const { return heapBlocks.load() - blocks_; }

private:
    long long begin_;
    long long blocks_;
};

inline void * counted(void * block) noexcept {
    if (block != nullptr) {
        long long const size = static_cast<long long>(malloc_usable_size(block) + sizeof(std::size_t));
        heapBlocks.fetch_add(1, std::memory_order_relaxed);
        long long const now = heapBytes.fetch_add(size, std::memory_order_relaxed) + size;
        long long peak = heapPeak.load(std::memory_order_relaxed);
        while (now > peak && !heapPeak.compare_exchange_weak(peak, now, std::memory_order_relaxed)) {
        }
    }
    return block;
}

inline void uncounted(void * block) noexcept {
    if (block != nullptr) {
        heapBytes.fetch_sub(static_cast<long long>(malloc_usable_size(block) + sizeof(std::size_t)),
                            std::memory_order_relaxed);
    }
}

} // namespace tav_test

extern "C" {

void * __libc_malloc(std::size_t size);
void * __libc_calloc(std::size_t count, std::size_t size);
void * __libc_realloc(void * block, std::size_t size);
void * __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void * block);

void * malloc(std::size_t size) {
    return tav_test::counted(__libc_malloc(size));
}
void * calloc(std::size_t count, std::size_t size) {
    return tav_test::counted(__libc_calloc(count, size));
}
void * realloc(void * block, std::size_t size) {
    tav_test::uncounted(block);
    void * const moved = __libc_realloc(block, size);
    if (moved == nullptr && size != 0) {
        tav_test::counted(block);
    }
    return tav_test::counted(moved);
}
void * memalign(std::size_t alignment, std::size_t size) {
    return tav_test::counted(__libc_memalign(alignment, size));
}
void * aligned_alloc(std::size_t alignment, std::size_t size) {
    return memalign(alignment, size);
}
int posix_memalign(void ** block, std::size_t alignment, std::size_t size) {
    *block = memalign(alignment, size);
    return *block != nullptr ? 0 : ENOMEM;
}
void free(void * block) {
    tav_test::uncounted(block);
    __libc_free(block);
}
}

#endif
