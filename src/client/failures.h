#ifndef TAV_CLIENT_FAILURES_H
#define TAV_CLIENT_FAILURES_H

#include "foundation/build_stamp.h"
#include "tav/vinta/vinta_tls_failure.h"

#include <string>
#include <system_error>

/// The names of the client's failures, from the inside.  Internal.
namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// What `last_failure` tells this thread from now on.
void set_last_failure(failure v) noexcept;

/// Has `last_failure` tell this thread `v` while it lives, and then what it told before: around a function of
/// the application that hears of a failure.
class failure_scope {
public:
    explicit failure_scope(failure v) noexcept;
    ~failure_scope();
    failure_scope(failure_scope const &) = delete;
    failure_scope & operator=(failure_scope const &) = delete;

private:
    failure const before_;
};

/// The name of what ended a connection, or kept it from coming up: an error of the system, of the lookup or
/// of TLS.
failure named(std::error_code ec) noexcept;

/// The same of a connection that was up.  An error of TLS is the handshake's then only if the peer refuses
/// the client's certificate, which with TLS 1.3 it does behind the handshake.  A peer that cannot be reached
/// any more, as the system finds by keep-alive or user time-out, is a lost connection.
failure named_break(std::error_code ec) noexcept;

/// What an error says, in words.  The TLS library has none for an alert that tells the end as a failure.
std::string message_of(std::error_code ec);

/// The name of the exception that is being handled.
failure named_exception() noexcept;

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
