#include "fuzz/heap.h"

#include <cstddef>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define TAV_FUZZ_SANITIZED
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define TAV_FUZZ_SANITIZED
#endif

#ifdef TAV_FUZZ_SANITIZED

#include <atomic>

extern "C" {
int __sanitizer_install_malloc_and_free_hooks(void (*onMalloc)(void const volatile *, std::size_t),
                                              void (*onFree)(void const volatile *));
std::size_t __sanitizer_get_allocated_size(void const volatile * block);
}

namespace {

std::atomic<long long> heapBytes{0};
std::atomic<long long> heapPeak{0};

void onMalloc(void const volatile *, std::size_t size) {
    long long const now = heapBytes.fetch_add(static_cast<long long>(size), std::memory_order_relaxed) +
                          static_cast<long long>(size);
    long long most = heapPeak.load(std::memory_order_relaxed);
    while (now > most && !heapPeak.compare_exchange_weak(most, now, std::memory_order_relaxed)) {
    }
}

void onFree(void const volatile * block) {
    if (block != nullptr) {
        heapBytes.fetch_sub(static_cast<long long>(__sanitizer_get_allocated_size(block)),
                            std::memory_order_relaxed);
    }
}

bool const installed = __sanitizer_install_malloc_and_free_hooks(onMalloc, onFree) != 0;

} // namespace

namespace tav_fuzz {
namespace heap {

long long begin() {
    long long const now = installed ? heapBytes.load() : 0;
    heapPeak = now;
    return now;
}

long long peak() {
    return heapPeak;
}

} // namespace heap
} // namespace tav_fuzz

#else

#include "support/heap_meter.h"

namespace tav_fuzz {
namespace heap {

long long begin() {
    long long const now = tav_test::heapBytes.load();
    tav_test::heapPeak = now;
    return now;
}

long long peak() {
    return tav_test::heapPeak;
}

} // namespace heap
} // namespace tav_fuzz

#endif
