#ifndef TAV_GATEWAY_CERTIFICATES_H
#define TAV_GATEWAY_CERTIFICATES_H

#include <string>

/// The certificates of a development gateway: a CA of its own and a server certificate that it signed.
namespace tav {
namespace gateway {

/// PEM texts.  `ca` is what a client trusts; `chain` and `key` are what the server shows and proves, `client`
/// and `client_key` what a client does for a server that asks.
struct Certificates {
    std::string ca;
    std::string chain;
    std::string key;
    std::string client = {};
    std::string client_key = {};
};

/// Makes a CA, a server certificate for "localhost", 127.0.0.1 and ::1, and one for a client (RSA 2048, valid
/// from an hour ago for ten years).  Throws std::runtime_error with the TLS library's words.
Certificates makeCertificates();

/// The file names inside a certificate folder.
std::string caFile(std::string const & folder);
std::string chainFile(std::string const & folder);
std::string keyFile(std::string const & folder);
std::string clientFile(std::string const & folder);
std::string clientKeyFile(std::string const & folder);

/// Makes sure that `folder` holds certificates: makes the folder and all files if none of them is there.
/// Throws std::runtime_error that names the file when some of the CA's and the server's are missing or one
/// can't be read or written.  The keys' files are readable by their owner only.
void ensureCertificates(std::string const & folder);

} // namespace gateway
} // namespace tav

#endif
