#ifndef TAV_FOUNDATION_THREAD_POOL_H
#define TAV_FOUNDATION_THREAD_POOL_H

#include <cstddef>

#if defined(__has_feature)
#define TAV_HAS_FEATURE(x) __has_feature(x)
#else
#define TAV_HAS_FEATURE(x) 0
#endif

/// What a thread has done with and will use again.  Internal.
namespace tav {
namespace detail {

/// Sanitized builds always make and delete, so that a use after the end shows.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || TAV_HAS_FEATURE(address_sanitizer) ||   \
    TAV_HAS_FEATURE(thread_sanitizer)
constexpr bool pooling = false;
#else
constexpr bool pooling = true;
#endif

#undef TAV_HAS_FEATURE

/// What the allocator adds to an allocation.
constexpr std::size_t allocationCost = 16;

/// Objects that are allocations of their own, so that each may end on another thread than the one that made
/// it. T has `T * next`, which links it while it is here, and `footprint()`, the bytes that it holds.  A
/// thread keeps `Limit` bytes at most; beyond that, and when it ends, objects are just deleted.  All limits
/// together stay below 64,000 bytes: that is what a thread keeps when its last tree, however large, is gone.
template <class T, std::size_t Limit>
class ThreadPool {
public:
    /// One that was given back, as it was then; null if there is none.
    static T * take() noexcept {
        State & state = state_;
        T * const taken = state.head;
        if (taken != nullptr) {
            state.head = taken->next;
            state.bytes -= taken->footprint();
        }
        return taken;
    }

    static void give(T * used) noexcept {
        State & state = state_;
        std::size_t const bytes = state.bytes + used->footprint();
        if (pooling && bytes <= Limit && (state.phase == Phase::open || open())) {
            used->next = state.head;
            state.head = used;
            state.bytes = bytes;
            return;
        }
        delete used;
    }

private:
    enum class Phase : unsigned char { fresh, open, ended };

    /// Trivial, so that it can be used before the thread's own objects live and after they have gone.
    struct State {
        T * head;
        std::size_t bytes;
        Phase phase;
    };

    /// Opens the thread's pool at its first use; false once the thread's end has closed it.
    [[gnu::noinline]] static bool open() noexcept {
        if (state_.phase == Phase::fresh) {
            drain_.open();
        }
        return state_.phase == Phase::open;
    }

    /// Deletes what is here at the thread's end; what dies later still is deleted at once.
    struct Drain {
        void open() noexcept { state_.phase = Phase::open; }
        ~Drain() {
            State & state = state_;
            state.phase = Phase::ended;
            while (T * const kept = take()) {
                delete kept;
            }
        }
    };

    // A few bytes, reached without a call.
    [[gnu::tls_model("initial-exec")]] inline static thread_local State state_{nullptr, 0, Phase::fresh};
    inline static thread_local Drain drain_;
};

} // namespace detail
} // namespace tav

#endif
