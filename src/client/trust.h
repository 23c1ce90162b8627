#ifndef TAV_CLIENT_TRUST_H
#define TAV_CLIENT_TRUST_H

#include "foundation/build_stamp.h"

#include <string>
#include <system_error>
#include <vector>

struct x509_store_ctx_st;

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// What lies under the path of trusted certificates: a file, or a folder, told by the "/" at its end, of
/// which the files count whose names end in ".0".  Internal.
struct certificate_path {
    /// The files to load, in the folder's order; the path itself if it is no folder.
    std::vector<std::string> files;
    /// Changes whenever a file does, by its size, its times, its inode or its name.  Empty if a file could
    /// not be read as it was, so that it has to be tried again.
    std::string state;
    /// Why there is nothing to load; empty if there is.
    std::string trouble;
};

/// Looks, and opens no file.  An empty path is empty in every respect.
certificate_path look_at_certificates(std::string const & path);

/// What the process, the system or the TLS library wanted for, if a file could not be loaded for that and not
/// for what it is; `told` is the TLS library's code.
std::error_code want_of(std::error_code const & told) noexcept;

/// Why a certificate file could not be loaded, `told` being what the TLS library said.
std::string certificate_trouble(std::string const & file, std::string const & told);

/// Why a certificate was refused.
struct certificate_refusal {
    /// In the TLS library's words; empty if none was refused, or memory was short.
    std::string reason;
    std::string subject;
    /// The certificate is for another name or address, and good otherwise.
    bool wrong_name = false;
    /// All of it: reason, place in the chain, subject, issuer and validity.
    std::string details;
};

/// What a verification that has just failed says of the certificate that it has come to.  Where memory runs
/// short, std::bad_alloc leaves what has been said so far: whether the name is wrong takes none.
void describe_refusal(x509_store_ctx_st * verification, certificate_refusal & out);

/// The name of the certificate that a verification has come to; empty if there is none.
std::string subject_of(x509_store_ctx_st * verification);

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
