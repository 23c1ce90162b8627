#ifndef TAV_CLIENT_PEER_REPORT_H
#define TAV_CLIENT_PEER_REPORT_H

#include "foundation/build_stamp.h"
#include "tav/vinta/vinta_tls_policy.h"

struct ssl_st;
struct x509_st;

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// Reads off a connection what its handshake has come to.  `verified` tells whether the chain had to pass.
/// On the thread that drives the connection.  Texts that a peer has chosen are free of control characters.
/// Internal.
tls_report report_of(ssl_st * handle, bool verified);

/// Describes one certificate.
peer_certificate describe(x509_st * certificate);

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
