#ifndef TAV_TESTS_SUPPORT_FAILING_ALLOCATIONS_H
#define TAV_TESTS_SUPPORT_FAILING_ALLOCATIONS_H

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <limits>
#include <new>

/// Lets the n-th allocation of the process, or of one thread, fail, and counts those that live.  It replaces
/// the operators of the whole program, so one source of a test program includes it.

namespace tav_test {

/// How many allocations are left up to the one that fails; 0 or less for none.
inline std::atomic<long> allocationsLeft{0};
inline std::atomic<bool> allocationFailed{false};
inline thread_local bool allocationsSpared = false;
/// Whether only the thread whose allocations are `allocationsOwn` counts.
inline std::atomic<bool> onlyOwnAllocations{false};
inline thread_local bool allocationsOwn = false;
/// Those that live, but for those of threads that are spared.
inline std::atomic<long> allocationsLive{0};

inline bool allocationMayFail() {
    return !allocationsSpared && allocationsLeft.load(std::memory_order_relaxed) > 0 &&
           (allocationsOwn || !onlyOwnAllocations.load(std::memory_order_relaxed)) &&
           allocationsLeft.fetch_sub(1) == 1;
}

/// What stands ahead of each allocation: whether it is among those that live.
struct alignas(alignof(std::max_align_t)) AllocationHead {
    bool counted;
};

/// Null if there is no memory, or none is to be had.
inline void * allocateOrFail(std::size_t size) noexcept {
    if (allocationMayFail()) {
        allocationFailed = true;
        return nullptr;
    }
    if (size > std::numeric_limits<std::size_t>::max() - sizeof(AllocationHead)) {
        return nullptr;
    }
    void * const made = std::malloc(sizeof(AllocationHead) + size);
    if (made == nullptr) {
        return nullptr;
    }
    auto * const head = new (made) AllocationHead{!allocationsSpared};
    if (head->counted) {
        allocationsLive.fetch_add(1, std::memory_order_relaxed);
    }
    return head + 1;
}

inline void giveBack(void * p) noexcept {
    if (p == nullptr) {
        return;
    }
    AllocationHead * const head = static_cast<AllocationHead *>(p) - 1;
    if (head->counted) {
        allocationsLive.fetch_sub(1, std::memory_order_relaxed);
    }
    std::free(head);
}

/// While it lives, the `n`-th allocation from now on fails, on whichever thread; the others do not.
class FailingAllocation {
public:
    explicit FailingAllocation(long n) {
        allocationFailed = false;
        allocationsLeft = n;
    }
    ~FailingAllocation() { allocationsLeft = 0; }
    FailingAllocation(FailingAllocation const &) = delete;
    FailingAllocation & operator=(FailingAllocation const &) = delete;

    /// Whether there were as many.
    static bool happened() { return allocationFailed; }
};

/// While it lives, no allocation of its thread fails or counts: for a test's own notes in the middle.
class SparedAllocations {
public:
    SparedAllocations() : before_(allocationsSpared) { allocationsSpared = true; }
    ~SparedAllocations() { allocationsSpared = before_; }
    SparedAllocations(SparedAllocations const &) = delete;
    SparedAllocations & operator=(SparedAllocations const &) = delete;

private:
    bool const before_;
};

/// Runs `scenario` with its first allocation failing, its second, and so on, until one run has fewer.  What
/// the scenario raises is its own affair.  Returns how many failed.
template <class Scenario>
long eachAllocationFails(Scenario scenario) {
    for (long n = 1;; ++n) {
        FailingAllocation const failing(n);
        scenario();
        if (!FailingAllocation::happened()) {
            return n - 1;
        }
    }
}

} // namespace tav_test

// Kept out of line, so that the compiler does not take them for a mismatched pair.
[[gnu::noinline]] void * operator new(std::size_t size) {
    if (void * const p = tav_test::allocateOrFail(size)) {
        return p;
    }
    throw std::bad_alloc();
}

[[gnu::noinline]] void * operator new(std::size_t size, std::nothrow_t const &) noexcept {
    return tav_test::allocateOrFail(size);
}

// Those of arrays too, since a sanitizer's own do not come here.
[[gnu::noinline]] void * operator new[](std::size_t size) {
    return ::operator new(size);
}

[[gnu::noinline]] void * operator new[](std::size_t size, std::nothrow_t const & tag) noexcept {
    return ::operator new(size, tag);
}

[[gnu::noinline]] void operator delete[](void * p) noexcept {
    ::operator delete(p);
}

[[gnu::noinline]] void operator delete[](void * p, std::size_t) noexcept {
    ::operator delete(p);
}

[[gnu::noinline]] void operator delete[](void * p, std::nothrow_t const &) noexcept {
    ::operator delete(p);
}

[[gnu::noinline]] void operator delete(void * p) noexcept {
    tav_test::giveBack(p);
}

[[gnu::noinline]] void operator delete(void * p, std::size_t) noexcept {
    tav_test::giveBack(p);
}

[[gnu::noinline]] void operator delete(void * p, std::nothrow_t const &) noexcept {
    tav_test::giveBack(p);
}

#endif
