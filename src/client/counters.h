#ifndef TAV_CLIENT_COUNTERS_H
#define TAV_CLIENT_COUNTERS_H

#include "foundation/build_stamp.h"
#include "tav/vinta/vinta_tls_statistics.h"

#include <atomic>

/// The counters of one client, over all of its connections.  Internal.
namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// It has more members than other classes because each is one number of `statistics`, counted where it
/// happens.
/// Thread safety: all operations, without a lock.  Numbers that different threads write lie on different
/// lines of the cache.
class counters {
public:
    using number = std::atomic<unsigned long long>;

    static void add(number & n, unsigned long long by = 1) noexcept {
        n.fetch_add(by, std::memory_order_relaxed);
    }
    static void sub(number & n, unsigned long long by = 1) noexcept {
        n.fetch_sub(by, std::memory_order_relaxed);
    }

    /// Keeps the larger.
    static void raise(number & n, unsigned long long to) noexcept {
        unsigned long long present = n.load(std::memory_order_relaxed);
        while (present < to && !n.compare_exchange_weak(present, to, std::memory_order_relaxed)) {
        }
    }

    statistics copy() const noexcept;

    // Where frames are written and read: the I/O thread.
    alignas(64) number bytes_sent{0};
    number bytes_received{0};
    number frames_sent{0};
    number frames_received{0};
    number heartbeats_received{0};
    number breaks_by_peer{0};
    number breaks_by_error{0};

    // Where messages are dispatched.
    alignas(64) number messages_received{0};
    number receipts_sent{0};
    number receipts_received{0};
    number replies{0};
    number pushes{0};
    number longest_callback_us{0};

    // Where sends begin, are encoded and end.
    alignas(64) number messages_sent{0};
    number sends_ok{0};
    number sends_timedout{0};
    number sends_cancelled{0};
    number sends_refused{0};

    // What is rare.
    alignas(64) number heartbeats_sent{0};
    number connects_begun{0};
    number connects_up{0};
    number connects_failed{0};
    number breaks_by_silence{0};
    number closes{0};

    // Of the moment: what one side adds, another takes away.
    alignas(64) number queued_frames{0};
    number queued_bytes{0};
    number tracked_sends{0};
    alignas(64) number received_waiting{0};
    number received_waiting_bytes{0};
};

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
