#ifndef TAV_CLIENT_HEARTBEAT_H
#define TAV_CLIENT_HEARTBEAT_H

#include "foundation/build_stamp.h"

#include <atomic>
#include <optional>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// Whether the peer of one connection lives, and when it is to hear that this end does.  All times are
/// milliseconds of one clock.  Internal.
///
/// A TLS record is read when it is whole, but the peer lives with each of its bytes: so the bytes that have
/// come on the socket count too.
/// Thread safety: all operations; listened and its bytes belong to one thread.
class heartbeat {
public:
    /// Quiet send time after which a heartbeat goes out.
    static constexpr long long interval_ms = 30000;
    /// So many intervals without a received byte end the connection.
    static constexpr long long misses = 3;

    explicit heartbeat(long long now) : heard_ms_(now), sent_ms_(now) {}
    heartbeat(heartbeat const &) = delete;
    heartbeat & operator=(heartbeat const &) = delete;

    /// Whether heartbeats are sent and expected; not at first.
    void wanted(bool v) noexcept { wanted_ = v; }
    bool wanted() const noexcept { return wanted_; }

    /// Something was sent.
    void sent(long long now) noexcept { sent_ms_ = now; }
    /// Something was read.
    void heard(long long now) noexcept;
    /// Reading pauses, or goes on after a pause, in which the peer could not be heard.
    void resumed(long long now) noexcept { heard_ms_ = now; }
    /// So many bytes have come on the socket by now; none if that can't be told.  What a read has told of
    /// counts from then, so that only bytes without any read since the last call count here.
    void listened(std::optional<unsigned long long> bytes, long long now) noexcept;

    /// Whether a heartbeat is to go out.
    bool due(long long now) const noexcept { return now - sent_ms_ > interval_ms; }
    /// Whether the peer counts as gone.
    bool missed(long long now) const noexcept { return now - heard_ms_ > interval_ms * misses; }

private:
    std::atomic<bool> wanted_{false};
    std::atomic<long long> heard_ms_;
    std::atomic<long long> sent_ms_;
    /// Whether a read has ended since the last look at the bytes.
    std::atomic<bool> read_since_{true};
    /// The bytes at that look.
    unsigned long long bytes_ = 0;
};

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
