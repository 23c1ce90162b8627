#ifndef TAV_CLIENT_PEM_TEXT_H
#define TAV_CLIENT_PEM_TEXT_H

#include "foundation/build_stamp.h"

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// A text of PEM and what it is called in failures.  It is wiped at the end.  Internal.
class pem_text {
public:
    /// `label` is what the text is called, such as "key_pem".
    pem_text(std::string label, std::string text);
    /// The content of a file; the label is `label`, a blank and the path.  Throws std::runtime_error with the
    /// label and the system's words.
    static pem_text of_file(std::string const & label, std::string const & path);
    ~pem_text();
    pem_text(pem_text && other) noexcept;
    pem_text(pem_text const &) = delete;
    pem_text & operator=(pem_text const &) = delete;

    std::string const & label() const { return label_; }

    using certificate = std::unique_ptr<X509, void (*)(X509 *)>;
    using revocation_list = std::unique_ptr<X509_CRL, void (*)(X509_CRL *)>;
    using private_key = std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY *)>;

    // These throw std::runtime_error that begins with the label, also if there is none in the text.

    std::vector<certificate> certificates() const;
    std::vector<revocation_list> revocation_lists() const;
    /// `password` is asked at most once, and only for a key that is encrypted.
    private_key key(std::function<std::string()> const & password) const;

private:
    template <class Item, class Read>
    std::vector<Item> all(Read const & read, char const * what) const;
    [[noreturn]] void fail(std::string const & why) const;

    std::string label_;
    std::string text_;
};

/// The TLS library's last failure in its words; `otherwise` if it has none.  Clears its list of failures.
std::string openssl_reason(char const * otherwise);

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
