#ifndef TAV_TOOLS_TLS_PROBE_H
#define TAV_TOOLS_TLS_PROBE_H

#include <string>
#include <utility>
#include <vector>

namespace tav {
namespace tool {

struct ProbeOptions {
    std::string host;
    std::string port;
    /// What the certificate has to be for; the host if it is empty.
    std::string name;
    /// A file of authorities; those of the system if it is empty.
    std::string ca;
    /// A client's own certificate and its key.
    std::string certificate;
    std::string key;
    unsigned timeoutMs = 10000;
};

/// A certificate as people need it.
struct CertificateText {
    std::string subject;
    std::string issuer;
    std::vector<std::string> names;
    std::string key;
    std::string validFrom;
    std::string validTo;
    /// Of a public key and of the whole, SHA-256 in hexadecimal.
    std::string keyFingerprint;
    std::string fingerprint;
    int daysLeft = 0;
    bool expired = false;
    bool authority = false;
    bool selfSigned = false;
};

/// Why the certificates are not to be trusted, and what mends it.
struct VerifyFault {
    static constexpr int noCertificate = -1;

    /// The place in the chain, the server's own being 0; `noCertificate` if it is none of theirs.
    int depth = 0;
    int code = 0;
    std::string words;
    std::string mend;
};

struct ProbeResult {
    std::string address;
    /// The name and the milliseconds of each phase.
    std::vector<std::pair<std::string, double>> phases;
    std::string protocol;
    std::string cipher;
    /// As the server sent them.
    std::vector<CertificateText> chain;
    std::vector<VerifyFault> faults;
    std::string name;
    bool nameMatches = false;
    /// Whether the server asked for a certificate of the client's.
    bool clientAsked = false;
};

/// Connects, looks, and closes.  Throws a Failure of exitNetwork if no TLS comes about, with what mends it
/// where that is known, and of exitUse for files that can't be read.
ProbeResult probe(ProbeOptions const & options);

/// What mends a verify error of OpenSSL's.
std::string mendOf(int code);

} // namespace tool
} // namespace tav

#endif
