#ifndef TAV_VINTA_TLS_FAILURE_H
#define TAV_VINTA_TLS_FAILURE_H

#include "tav/vinta/vinta_api.h"

#include <system_error>

/// Why a call of the TLS client, a connect or a send failed, by name.
///
///     auto sent = client.send_msg(say, option);
///     if (!sent && tav::tls::last_failure() == tav::tls::failure::queue_full) { ... }
///
/// A failure is a std::error_code of the category `failure_category()`, so that it prints, compares and
/// travels with every other one: code.message() is a sentence in English.  The numbers are fixed.
namespace tav {
namespace tls {

enum class failure {
    none = 0,                   ///< Nothing failed.
    other = 1,                  ///< What has no name of its own; the log has the reason at ERROR.
    not_connected = 2,          ///< There is no connection, or it is closing.
    closed = 3,                 ///< The client has ended.
    queue_full = 4,             ///< A limit on what waits to be sent.
    too_many_sends = 5,         ///< A limit on tracked sends.
    body_too_long = 6,          ///< The packet would be above 16,777,215 bytes.
    bad_json = 7,               ///< The text is not JSON, or not one object.
    template_lacks_class = 8,   ///< The template does not know the class or the code.
    value_does_not_fit = 9,     ///< A value is not one that its field takes.
    field_missing = 10,         ///< A necessary field has no value.
    encoding_failed = 11,       ///< The message could not be encoded.
    out_of_memory = 12,         ///< An allocation failed.
    timed_out = 13,             ///< The time limit passed.
    cancelled = 14,             ///< The application cancelled, closed or replaced it.
    busy = 15,                  ///< A connect is under way already.
    connection_lost = 16,       ///< The connection broke.
    closed_by_peer = 17,        ///< The peer ended the connection.
    peer_silent = 18,           ///< Nothing came from a supervised peer for too long.
    bad_address = 19,           ///< The host or the port is empty or not one.
    host_not_found = 20,        ///< The host's name has no address, or no name server could tell it.
    refused = 21,               ///< The peer refused the TCP connection.
    unreachable = 22,           ///< No route to the peer, or no answer from it.
    proxy_refused = 23,         ///< The proxy function failed.
    handshake_failed = 24,      ///< The TLS handshake failed for another reason than a certificate.
    certificate_refused = 25,   ///< The peer's certificate is not trusted, not valid, or revoked.
    name_mismatch = 26,         ///< The peer's certificate is for another name or address.
    bad_policy = 27,            ///< The TLS policy can't be used.
    bad_template = 28,          ///< The meta template can't be read.
    bad_frame = 29,             ///< The peer sent what is no frame.
    no_resources = 30,          ///< The system refused a descriptor or a thread.
    would_wait_for_itself = 31, ///< A wait on the thread that has to bring the result.
};

/// Named "tav.tls".
TAV_API std::error_category const & failure_category() noexcept;

TAV_API std::error_code make_error_code(failure v) noexcept;

/// Why the last call of this thread that failed on a client did: start, reconnect, a send, `send_and_wait` or
/// a `wait`.  One of these that succeeds sets it to none; all other calls leave it as it is.
///
/// In a function that tells of a failure, `on_error`, `on_timedout` or `on_heartbeat_timedout`, it is the
/// name of that failure as the function begins, and what it was before when the function has returned.
TAV_API std::error_code last_failure() noexcept;

} // namespace tls
} // namespace tav

namespace std {
template <>
struct is_error_code_enum<tav::tls::failure> : true_type {};
} // namespace std

#endif
