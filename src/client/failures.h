#ifndef TAV_CLIENT_FAILURES_H
#define TAV_CLIENT_FAILURES_H

#include "foundation/build_stamp.h"
#include "tav/vinta/vinta_tls_failure.h"

#include <system_error>

/// The names of the client's failures, from the inside.  Internal.
namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// What `last_failure` tells this thread from now on.
void set_last_failure(failure v) noexcept;

/// The name of what ended a connection, or kept it from coming up: an error of the system, of the lookup or
/// of TLS.
failure named(std::error_code ec) noexcept;

/// The name of the exception that is being handled.
failure named_exception() noexcept;

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
