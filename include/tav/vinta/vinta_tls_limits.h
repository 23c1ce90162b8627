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
/// Thread safety: none; a connection uses a copy of its own.
struct limit_option {
    /// The most messages that wait to be written to the socket; 0 for no limit.
    unsigned queued_frames = 0;
    /// The most bytes of their bodies; 0 for no limit.  One message is always accepted when nothing waits.
    unsigned long long queued_bytes = 0;
    /// The most sends that wait for their end; 0 for no limit.
    unsigned tracked_sends = 0;
    /// The most messages that have arrived and that no callback has begun with; 0 for no limit.  At the limit
    /// the connection stops reading, so that the gateway is held back, until half of them are handled.  The
    /// supervision of the heartbeat rests meanwhile.
    unsigned received_waiting = 0;

    /// Told of high and low water: true when a limit on what waits to be sent is reached, false when half of
    /// it or less waits.  The two take turns.  High water is told on the thread whose send reached it, low
    /// water on `<n>io.context`, which writes, or on the thread that drops a message instead: `sender.0`, or
    /// `<n>session.0` as a connection ends.  May send and close; must not wait for a result.
    std::function<void(bool full)> on_queue;
};

} // namespace tls
} // namespace tav

#endif
