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
/// Heartbeats have no limit.  A receipt is never refused: it counts as a message that is not handled, until
/// it has been written.
///
/// Thread safety: none; a connection uses a copy of its own.
struct limit_option {
    /// Default: 0, no limit.  Messages: the most that wait to be written to the socket.
    unsigned queued_frames = 0;
    /// Default: 0, no limit.  Bytes: the most that those take, each its body and 640 bytes for itself, so
    /// that short messages cost no more than the limit either.  Not counted are the texts of `ext`, the
    /// target of an old message, and what tracks a send.  One message is always accepted when nothing waits,
    /// so that below 1,280 one waits at a time.
    unsigned long long queued_bytes = 0;
    /// Default: 0, no limit.  Sends: the most that wait for their end.
    unsigned tracked_sends = 0;
    /// Default: 0, no limit.  Messages: the most that have arrived and are not handled, the one whose
    /// callback runs and those whose receipts were not written yet among them.  At the limit the connection
    /// stops reading, so that the gateway is held back, until half of them are handled.  The supervision of
    /// the heartbeat rests while callbacks are what it waits for: the gateway's are not missed, the client's
    /// own go out.  A gateway that takes no receipts counts as silent once it sends nothing, or the system
    /// takes no more of what it sends.  While the connection does not read it does not notice its end either,
    /// unless something is written.
    unsigned received_waiting = 0;

    /// Default: none.  Told of high and low water: true when a limit on what waits to be sent is reached,
    /// false when half of it or less waits.  Over all connections of a client the two take turns, and the
    /// function never runs twice at a time; of a connection that is replaced low water is told ahead of what
    /// the next one's turns are.
    /// High water is told on the thread whose send reached it, low water on `<n>io.context`, which writes, or
    /// on the thread that drops a message instead: `sender.0`, and as a connection ends `<n>io.context`,
    /// `<n>session.0` or the thread that ends the client.  What turns while the function runs is told next,
    /// on the thread where it does, which is held for so long.  May send and close; must not wait for a
    /// result, nor for the other telling, which comes behind this one: hold a sender back behind its call.
    /// `last_failure()` is behind it what it was ahead of it.  A close may return ahead of the last telling;
    /// none comes behind the client's end.
    std::function<void(bool full)> on_queue;
};

} // namespace tls
} // namespace tav

#endif
