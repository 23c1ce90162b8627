#ifndef TAV_VINTA_TLS_STATISTICS_H
#define TAV_VINTA_TLS_STATISTICS_H

#include "tav/vinta/vinta_api.h"

#include <string>

/// What a client has done and holds, as plain numbers.
namespace tav {
namespace tls {

/// A copy of a client's counters, taken without stopping anybody: each number is exact, two of them may be a
/// moment apart.  Totals count from the making of the client, over all of its connections; the last six are
/// of the moment, but for the longest callback.  Each connection that was up ends in one of breaks_... and
/// closes, by what came first.
///
/// It has more members than other classes: one for each number that there is to be seen, and no state beside
/// them.
struct TAV_API statistics {
    unsigned long long bytes_sent = 0;     ///< Of frames, head and body, before TLS; written to the socket.
    unsigned long long bytes_received = 0; ///< Of frames, after TLS.
    unsigned long long frames_sent = 0;    ///< Heartbeats included.
    unsigned long long frames_received = 0;
    /// Packets accepted and encoded to be sent, receipts included; those that a break kept from going out
    /// too.
    unsigned long long messages_sent = 0;
    unsigned long long messages_received = 0;
    unsigned long long heartbeats_sent = 0;
    unsigned long long heartbeats_received = 0;
    unsigned long long receipts_sent = 0;     ///< Accepted to be sent, for messages that asked for one.
    unsigned long long receipts_received = 0; ///< For messages of ours.

    unsigned long long sends_ok = 0;       ///< Tracked sends that got their reply.
    unsigned long long sends_timedout = 0; ///< Tracked sends whose limit passed.
    unsigned long long sends_cancelled =
        0; ///< Tracked sends that the application or the end of a connection ended.
    unsigned long long sends_refused = 0; ///< Sends of any kind that were not accepted.
    unsigned long long replies = 0;       ///< Messages for the send level.
    unsigned long long pushes = 0;        ///< Messages for the type or the global level.

    unsigned long long connects_begun = 0;  ///< Starts and reconnects, also with a bad option.
    unsigned long long connects_up = 0;     ///< Of these, that came up, in their time or later.
    unsigned long long connects_failed = 0; ///< That failed by the network, TLS, a bad option or their time.
    unsigned long long breaks_by_peer = 0;  ///< A connection that was up: the peer closed it.
    unsigned long long breaks_by_error = 0; ///< A connection that was up: reset, TLS error, bad frame.
    unsigned long long breaks_by_silence = 0; ///< A supervised connection whose peer was silent.
    unsigned long long closes = 0; ///< Connections that were up and that the application closed or replaced.

    unsigned long long queued_frames = 0; ///< Accepted, not yet written, receipts among them.
    /// The bytes of their bodies alone, without what `limit_option::queued_bytes` adds for each.
    unsigned long long queued_bytes = 0;
    unsigned long long tracked_sends = 0;    ///< Waiting for their end.
    unsigned long long received_waiting = 0; ///< Frames that no callback has begun with.
    unsigned long long received_waiting_bytes = 0;
    unsigned long long longest_callback_us = 0; ///< Of message callbacks, in microseconds.

    /// All of it in the text format of Prometheus, version 0.0.4, each line labelled with client="<name>",
    /// the name in UTF-8: counters end in "_total".
    std::string prometheus(char const * client_name) const;
};

} // namespace tls
} // namespace tav

#endif
