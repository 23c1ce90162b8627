#include "client/counters.h"

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

statistics counters::copy() const noexcept {
    auto const of = [](number const & n) { return n.load(std::memory_order_relaxed); };
    statistics out;
    out.bytes_sent = of(bytes_sent);
    out.bytes_received = of(bytes_received);
    out.frames_sent = of(frames_sent);
    out.frames_received = of(frames_received);
    out.messages_sent = of(messages_sent);
    out.messages_received = of(messages_received);
    out.heartbeats_sent = of(heartbeats_sent);
    out.heartbeats_received = of(heartbeats_received);
    out.receipts_sent = of(receipts_sent);
    out.receipts_received = of(receipts_received);
    out.sends_ok = of(sends_ok);
    out.sends_timedout = of(sends_timedout);
    out.sends_cancelled = of(sends_cancelled);
    out.sends_refused = of(sends_refused);
    out.replies = of(replies);
    out.pushes = of(pushes);
    out.connects_begun = of(connects_begun);
    out.connects_up = of(connects_up);
    out.connects_failed = of(connects_failed);
    out.breaks_by_peer = of(breaks_by_peer);
    out.breaks_by_error = of(breaks_by_error);
    out.breaks_by_silence = of(breaks_by_silence);
    out.closes = of(closes);
    out.queued_frames = of(queued_frames);
    out.queued_bytes = of(queued_bytes);
    out.tracked_sends = of(tracked_sends);
    out.received_waiting = of(received_waiting);
    out.received_waiting_bytes = of(received_waiting_bytes);
    out.longest_callback_us = of(longest_callback_us);
    return out;
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
