#ifndef TAV_VINTA_TLS_LIMITS_H
#define TAV_VINTA_TLS_LIMITS_H

#include "tav/vinta/vinta_api.h"

#include <functional>

/// How much one connection may hold.
namespace tav {
namespace tls {

/// The bounds of one connection, all off by default: without them nothing holds an application or a gateway
/// back, and what waits costs memory.  They are read when a connection is made.
///
/// A send over a limit is refused at once: the call gives null, `last_failure()` tells `queue_full` or
/// `too_many_sends`, and nothing was sent.  What was accepted is never dropped for a limit.
/// Receipts and heartbeats have no limit and count for none.
/// Thread safety: none; a connection uses a copy of its own.
struct limit_option {
    /// Default: 0, no limit.  Messages: the most that wait to be written to the socket.
    unsigned queued_frames = 0;
    /// Default: 0, no limit.  Bytes: the most that the bodies of those take.  One message is always accepted
    /// when nothing waits.
    unsigned long long queued_bytes = 0;
    /// Default: 0, no limit.  Sends: the most that wait for their end.
    unsigned tracked_sends = 0;
    /// Default: 0, no limit.  Messages: the most that have arrived and are not handled, the one whose
    /// callback runs among them.  At the limit the connection stops reading, so that the gateway is held
    /// back, until half of them are handled.  The supervision of the heartbeat rests meanwhile: the gateway's
    /// are not missed, the client's own go out.
    unsigned received_waiting = 0;

    /// Default: none.  Told of high and low water: true when a limit on what waits to be sent is reached,
    /// false when half of it or less waits.  The two take turns, and the function never runs twice at a time.
    /// High water is told on the thread whose send reached it, low water on `<n>io.context`, which writes, or
    /// on the thread that drops a message instead: `sender.0`, or `<n>session.0` as a connection ends.  What
    /// turns while the function runs is told next, on the thread where it does.  May send and close; must not
    /// wait for a result.  `last_failure()` is behind it what it was ahead of it.
    std::function<void(bool full)> on_queue;
};

} // namespace tls
} // namespace tav

#endif
