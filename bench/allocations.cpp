#include "allocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<unsigned long long> count{0};

} // namespace

unsigned long long allocations() {
    return count.load(std::memory_order_relaxed);
}

void * operator new(std::size_t size) {
    count.fetch_add(1, std::memory_order_relaxed);
    if (void * const p = std::malloc(size == 0 ? 1 : size)) {
        return p;
    }
    throw std::bad_alloc();
}

void operator delete(void * p) noexcept {
    std::free(p);
}
void operator delete(void * p, std::size_t) noexcept {
    std::free(p);
}
