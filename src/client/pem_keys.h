#ifndef TAV_CLIENT_PEM_KEYS_H
#define TAV_CLIENT_PEM_KEYS_H

#include "foundation/build_stamp.h"

#include <string>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// The text without its private keys: the TLS library decodes each block that it passes over, and frees what
/// it has made of it as it is.  As there, a block begins and ends at the beginning of a line; a key that
/// lacks its end ends where the next block begins.
std::string without_keys(std::string const & text);

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
