#include "heap_peak.h"

#include <malloc.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>

// The C library's functions by their other names: these stand in for them.
extern "C" {
void * __libc_malloc(std::size_t);
void * __libc_calloc(std::size_t, std::size_t);
void * __libc_realloc(void *, std::size_t);
void * __libc_memalign(std::size_t, std::size_t);
void __libc_free(void *);
}

namespace {

std::atomic<std::size_t> inHand{0};
std::atomic<std::size_t> peak{0};

void * taken(void * memory) {
    std::size_t const now = inHand.fetch_add(::malloc_usable_size(memory)) + ::malloc_usable_size(memory);
    std::size_t most = peak.load();
    while (now > most && !peak.compare_exchange_weak(most, now)) {
    }
    return memory;
}

void given(void * memory) {
    inHand.fetch_sub(::malloc_usable_size(memory));
}

} // namespace

extern "C" {

void * malloc(std::size_t size) {
    return taken(__libc_malloc(size));
}

void * calloc(std::size_t count, std::size_t size) {
    return taken(__libc_calloc(count, size));
}

/// While it moves, both are in hand, as far as anybody can tell from without.
void * realloc(void * memory, std::size_t size) {
    std::size_t const before = ::malloc_usable_size(memory);
    void * const moved = __libc_realloc(memory, size);
    if (moved != nullptr) {
        taken(moved);
    }
    if (moved != nullptr || size == 0) {
        inHand.fetch_sub(before);
    }
    return moved;
}

void * aligned_alloc(std::size_t alignment, std::size_t size) {
    return taken(__libc_memalign(alignment, size));
}

void * memalign(std::size_t alignment, std::size_t size) {
    return taken(__libc_memalign(alignment, size));
}

int posix_memalign(void ** out, std::size_t alignment, std::size_t size) {
    void * const memory = __libc_memalign(alignment, size);
    if (memory == nullptr) {
        return ENOMEM;
    }
    *out = taken(memory);
    return 0;
}

void free(void * memory) {
    given(memory);
    __libc_free(memory);
}
}

namespace tav_bench {

std::size_t heapInHand() {
    return inHand;
}

std::size_t heapPeak() {
    return peak;
}

void resetPeak() {
    peak = inHand.load();
}

} // namespace tav_bench
