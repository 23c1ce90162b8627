#include "tools/tls_probe.h"

#include "tools/failure.h"
#include "tools/input.h"

#include <tav/vinta/vinta_tls_policy.h>

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <arpa/inet.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <map>
#include <memory>
#include <system_error>

namespace tav {
namespace tool {

namespace {

using std::chrono::steady_clock;

typedef std::unique_ptr<SSL_CTX, void (*)(SSL_CTX *)> Context;
typedef std::unique_ptr<SSL, void (*)(SSL *)> Connection;
typedef std::unique_ptr<addrinfo, void (*)(addrinfo *)> Addresses;

/// A descriptor that is closed at the end.
class Socket {
public:
    explicit Socket(int fd = -1) : fd_(fd) {}
    ~Socket() {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    Socket(Socket && other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
    Socket & operator=(Socket &&) = delete;
    Socket(Socket const &) = delete;

    int fd() const { return fd_; }

private:
    int fd_;
};

/// As long as it lives, a peer that goes away is an error and no signal.
class QuietPipes {
public:
    QuietPipes() : before_(std::signal(SIGPIPE, SIG_IGN)) {}
    ~QuietPipes() { std::signal(SIGPIPE, before_); }
    QuietPipes(QuietPipes const &) = delete;
    QuietPipes & operator=(QuietPipes const &) = delete;

private:
    void (*before_)(int);
};

/// The time that is left for all of it, and what the phases took.
class Clock {
public:
    explicit Clock(unsigned ms)
        : end_(steady_clock::now() + std::chrono::milliseconds(ms)), begin_(steady_clock::now()) {}

    int leftMs() const {
        auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(end_ - steady_clock::now());
        return left.count() < 0 ? 0 : static_cast<int>(left.count());
    }
    void phase(char const * name, ProbeResult & to) {
        std::chrono::duration<double, std::milli> const took = steady_clock::now() - begin_;
        to.phases.emplace_back(name, took.count());
        begin_ = steady_clock::now();
    }

private:
    steady_clock::time_point end_;
    steady_clock::time_point begin_;
};

/// True once the descriptor is ready, false if the time is over.
bool isReady(int fd, short events, Clock const & clock) {
    for (;;) {
        pollfd entry{fd, events, 0};
        int const ready = ::poll(&entry, 1, clock.leftMs());
        if (ready > 0) {
            return true;
        }
        if (ready == 0 || errno != EINTR) {
            return false;
        }
    }
}

std::string placeOf(ProbeOptions const & options) {
    bool const colons = options.host.find(':') != std::string::npos;
    return (colons ? "[" + options.host + "]" : options.host) + ":" + options.port;
}

[[noreturn]] void failNetwork(ProbeOptions const & options, std::string const & what,
                              std::string const & mend = "") {
    throw Failure(exitNetwork, placeOf(options) + ": " + what + (mend.empty() ? "" : "\n    mend: " + mend));
}

std::string tlsReason() {
    unsigned long const code = ::ERR_peek_last_error();
    ::ERR_clear_error();
    char const * const reason = code == 0 ? nullptr : ::ERR_reason_error_string(code);
    return reason == nullptr ? "" : reason;
}

std::string numericOf(addrinfo const & address) {
    std::array<char, NI_MAXHOST> host{};
    ::getnameinfo(address.ai_addr, address.ai_addrlen, host.data(), host.size(), nullptr, 0, NI_NUMERICHOST);
    return host.data();
}

/// Connects to the first address that answers.
Socket connected(ProbeOptions const & options, Clock & clock, ProbeResult & to) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo * found = nullptr;
    int const failed = ::getaddrinfo(options.host.c_str(), options.port.c_str(), &hints, &found);
    if (failed != 0) {
        failNetwork(options, std::string("the name can't be looked up: ") + ::gai_strerror(failed),
                    "check the spelling, and the machine's resolver");
    }
    Addresses const all(found, &::freeaddrinfo);
    clock.phase("lookup", to);
    int error = 0;
    for (addrinfo const * at = found; at != nullptr; at = at->ai_next) {
        Socket socket(::socket(at->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        if (socket.fd() < 0) {
            error = errno;
            continue;
        }
        if (::connect(socket.fd(), at->ai_addr, at->ai_addrlen) != 0) {
            error = errno;
            if (error == EINPROGRESS) {
                socklen_t size = sizeof(error);
                error = isReady(socket.fd(), POLLOUT, clock) ? 0 : ETIMEDOUT;
                if (error == 0) {
                    ::getsockopt(socket.fd(), SOL_SOCKET, SO_ERROR, &error, &size);
                }
            }
            if (error != 0) {
                continue;
            }
        }
        to.address = numericOf(*at);
        clock.phase("connect", to);
        return socket;
    }
    failNetwork(options, std::string("can't connect: ") + std::generic_category().message(error),
                error == ECONNREFUSED ? "nobody listens there: check the port, and that the server runs"
                                      : "check the address, and what filters the way");
}

/// Where the faults of a verification go.
int faultsIndex() {
    static int const index = ::SSL_get_ex_new_index(0, nullptr, nullptr, nullptr, nullptr);
    return index;
}

/// Notes a fault and goes on, so that all are found.
int noteFault(int good, X509_STORE_CTX * store) {
    auto * const ssl =
        static_cast<SSL *>(::X509_STORE_CTX_get_ex_data(store, ::SSL_get_ex_data_X509_STORE_CTX_idx()));
    auto * const result = static_cast<ProbeResult *>(::SSL_get_ex_data(ssl, faultsIndex()));
    if (good == 0 && result != nullptr) {
        int const code = ::X509_STORE_CTX_get_error(store);
        int const depth = ::X509_STORE_CTX_get_error_depth(store);
        result->faults.push_back(
            VerifyFault{depth, code, ::X509_verify_cert_error_string(code), mendOf(code)});
    }
    return 1;
}

int noteAsked(SSL * ssl, void *) {
    auto * const result = static_cast<ProbeResult *>(::SSL_get_ex_data(ssl, faultsIndex()));
    if (result != nullptr) {
        result->clientAsked = true;
    }
    return 1;
}

/// Holds keys and signatures to the level of the safe policy, whatever that of the connection is.
int verifyStrictly(X509_STORE_CTX * store, void *) {
    ::X509_VERIFY_PARAM_set_auth_level(::X509_STORE_CTX_get0_param(store),
                                       tls::tls_policy::safe().security_level);
    return ::X509_verify_cert(store);
}

void addOwnCertificate(SSL_CTX * context, ProbeOptions const & options) {
    if (options.certificate.empty()) {
        return;
    }
    std::string const & key = options.key.empty() ? options.certificate : options.key;
    InputFile const there(options.certificate);
    InputFile const keyThere(key);
    if (::SSL_CTX_use_certificate_chain_file(context, options.certificate.c_str()) != 1) {
        throw Failure(exitUse, options.certificate + ": no certificate can be read: " + tlsReason());
    }
    if (::SSL_CTX_use_PrivateKey_file(context, key.c_str(), SSL_FILETYPE_PEM) != 1) {
        throw Failure(exitUse, key + ": no key that fits can be read: " + tlsReason());
    }
}

/// What the safe policy offers, with any certificate.
Context safeContextOf(ProbeOptions const & options) {
    Context context(::SSL_CTX_new(::TLS_client_method()), &::SSL_CTX_free);
    ::SSL_CTX_set_security_level(context.get(), 0);
    ::SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION);
    ::SSL_CTX_set_cipher_list(context.get(), tls::tls_policy::safe().ciphers.c_str());
    ::SSL_CTX_set_verify(context.get(), SSL_VERIFY_NONE, nullptr);
    addOwnCertificate(context.get(), options);
    return context;
}

Context contextOf(ProbeOptions const & options) {
    Context context(::SSL_CTX_new(::TLS_client_method()), &::SSL_CTX_free);
    // Whatever a server offers is looked at.
    ::SSL_CTX_set_security_level(context.get(), 0);
    ::SSL_CTX_set_min_proto_version(context.get(), TLS1_VERSION);
    ::SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, &noteFault);
    ::SSL_CTX_set_cert_verify_callback(context.get(), &verifyStrictly, nullptr);
    ::SSL_CTX_set_cert_cb(context.get(), &noteAsked, nullptr);
    if (options.ca.empty()) {
        ::SSL_CTX_set_default_verify_paths(context.get());
    } else if (InputFile(options.ca),
               ::SSL_CTX_load_verify_locations(context.get(), options.ca.c_str(), nullptr) != 1) {
        throw Failure(exitUse, options.ca + ": no certificates can be read: " + tlsReason());
    }
    addOwnCertificate(context.get(), options);
    return context;
}

std::string textOf(X509_NAME const * name) {
    std::unique_ptr<BIO, int (*)(BIO *)> const out(::BIO_new(::BIO_s_mem()), &::BIO_free);
    ::X509_NAME_print_ex(out.get(), name, 0, XN_FLAG_ONELINE & ~ASN1_STRFLGS_ESC_MSB);
    char * data = nullptr;
    long const size = BIO_get_mem_data(out.get(), &data);
    return std::string(data, size > 0 ? static_cast<std::size_t>(size) : 0);
}

std::string textOf(ASN1_TIME const * time) {
    std::tm parts{};
    if (::ASN1_TIME_to_tm(time, &parts) != 1) {
        return "?";
    }
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%SZ", &parts);
    return text.data();
}

std::string hexOf(unsigned char const * data, unsigned size) {
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (unsigned i = 0; i < size; ++i) {
        text += digits[data[i] >> 4];
        text += digits[data[i] & 15];
    }
    return text;
}

bool isAddress(ASN1_OCTET_STRING const * bytes) {
    int const size = ::ASN1_STRING_length(bytes);
    return size == 4 || size == 16;
}

std::vector<std::string> namesOf(X509 * certificate) {
    std::vector<std::string> names;
    std::unique_ptr<GENERAL_NAMES, void (*)(GENERAL_NAMES *)> const all(
        static_cast<GENERAL_NAMES *>(::X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr)),
        &::GENERAL_NAMES_free);
    for (int i = 0; all != nullptr && i < sk_GENERAL_NAME_num(all.get()); ++i) {
        GENERAL_NAME const * const name = sk_GENERAL_NAME_value(all.get(), i);
        if (name->type == GEN_DNS) {
            names.emplace_back(reinterpret_cast<char const *>(::ASN1_STRING_get0_data(name->d.dNSName)),
                               static_cast<std::size_t>(::ASN1_STRING_length(name->d.dNSName)));
        } else if (name->type == GEN_EMAIL || name->type == GEN_URI) {
            // No server is compared with these, but they say whose certificate it is.
            ASN1_IA5STRING const * const other =
                name->type == GEN_EMAIL ? name->d.rfc822Name : name->d.uniformResourceIdentifier;
            names.push_back((name->type == GEN_EMAIL ? "email:" : "URI:") +
                            std::string(reinterpret_cast<char const *>(::ASN1_STRING_get0_data(other)),
                                        static_cast<std::size_t>(::ASN1_STRING_length(other))));
        } else if (name->type == GEN_IPADD && isAddress(name->d.iPAddress)) {
            std::array<char, INET6_ADDRSTRLEN> text{};
            bool const wide = ::ASN1_STRING_length(name->d.iPAddress) == 16;
            ::inet_ntop(wide ? AF_INET6 : AF_INET, ::ASN1_STRING_get0_data(name->d.iPAddress), text.data(),
                        text.size());
            names.emplace_back(text.data());
        }
    }
    return names;
}

CertificateText textOf(X509 * certificate) {
    CertificateText text;
    text.subject = textOf(::X509_get_subject_name(certificate));
    text.issuer = textOf(::X509_get_issuer_name(certificate));
    text.names = namesOf(certificate);
    text.validFrom = textOf(::X509_get0_notBefore(certificate));
    text.validTo = textOf(::X509_get0_notAfter(certificate));
    int seconds = 0;
    ::ASN1_TIME_diff(&text.daysLeft, &seconds, nullptr, ::X509_get0_notAfter(certificate));
    text.expired = text.daysLeft < 0 || seconds < 0;
    text.authority = ::X509_check_ca(certificate) != 0;
    text.selfSigned = (::X509_get_extension_flags(certificate) & EXFLAG_SS) != 0;
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned size = 0;
    ::X509_digest(certificate, ::EVP_sha256(), digest.data(), &size);
    text.fingerprint = hexOf(digest.data(), size);
    ::X509_pubkey_digest(certificate, ::EVP_sha256(), digest.data(), &size);
    text.keyFingerprint = hexOf(digest.data(), size);
    EVP_PKEY * const key = ::X509_get0_pubkey(certificate);
    if (key != nullptr) {
        int const kind = ::EVP_PKEY_base_id(key);
        char const * const name = kind == EVP_PKEY_RSA  ? "RSA"
                                  : kind == EVP_PKEY_EC ? "EC"
                                                        : ::OBJ_nid2sn(kind);
        text.key =
            std::string(name == nullptr ? "?" : name) + " " + std::to_string(::EVP_PKEY_bits(key)) + " bits";
    }
    return text;
}

/// What a handshake that fails may need.
std::string mendOfHandshake(std::string const & reason, ProbeOptions const & options,
                            ProbeResult const & result) {
    if (reason.find("wrong version number") != std::string::npos ||
        reason.find("http request") != std::string::npos) {
        return "what answers speaks no TLS: check the port";
    }
    if (reason.find("protocol version") != std::string::npos ||
        reason.find("unsupported protocol") != std::string::npos) {
        return "server and client have no version of TLS in common";
    }
    if (result.clientAsked && !options.certificate.empty()) {
        return "the server does not trust the certificate of --cert: have one made by an authority that it "
               "trusts";
    }
    if (result.clientAsked) {
        return "the server asks for a certificate of the client's: --cert FILE --key FILE";
    }
    return reason.empty() ? "the server closed the connection: its log may say why" : "";
}

void shakeHands(SSL * ssl, int fd, ProbeOptions const & options, Clock & clock, ProbeResult & result) {
    for (;;) {
        int const done = ::SSL_connect(ssl);
        if (done == 1) {
            clock.phase("handshake", result);
            return;
        }
        int const error = ::SSL_get_error(ssl, done);
        bool const reads = error == SSL_ERROR_WANT_READ;
        if (!reads && error != SSL_ERROR_WANT_WRITE) {
            std::string const reason = tlsReason();
            failNetwork(options, "no TLS comes about" + (reason.empty() ? "" : ": " + reason),
                        mendOfHandshake(reason, options, result));
        }
        if (!isReady(fd, reads ? POLLIN : POLLOUT, clock)) {
            bool const spoke = BIO_number_read(::SSL_get_rbio(ssl)) != 0;
            failNetwork(options, "no TLS comes about within " + std::to_string(options.timeoutMs) + " ms",
                        spoke ? "the server answers, and is slow: --timeout gives it longer"
                              : "what answers may speak no TLS: check the port");
        }
    }
}

/// As the safe policy compares: alternative names alone, an address as an address, and whole labels.
bool matches(X509 * certificate, std::string const & name, bool address) {
    constexpr unsigned flags = X509_CHECK_FLAG_NEVER_CHECK_SUBJECT | X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS;
    return address ? ::X509_check_ip_asc(certificate, name.c_str(), flags) == 1
                   : ::X509_check_host(certificate, name.data(), name.size(), flags, nullptr) == 1;
}

/// With TLS 1.3 a server that refuses the client says so behind the handshake.
void hearRefusal(SSL * ssl, int fd, ProbeOptions const & options, Clock const & clock,
                 ProbeResult const & result) {
    constexpr int briefMs = 300;
    pollfd entry{fd, POLLIN, 0};
    char byte = 0;
    if (!result.clientAsked || ::poll(&entry, 1, std::min(briefMs, clock.leftMs())) <= 0) {
        return;
    }
    int const got = ::SSL_read(ssl, &byte, 1);
    if (got <= 0 && ::SSL_get_error(ssl, got) == SSL_ERROR_SSL) {
        failNetwork(options, "the server refuses the client: " + tlsReason(),
                    mendOfHandshake("", options, result));
    }
}

} // namespace

namespace {

/// Whether a connection comes about with what the safe policy offers.
bool comesAboutSafely(ProbeOptions const & options, ProbeResult const & before, bool address) {
    try {
        Context const context = safeContextOf(options);
        Clock clock(options.timeoutMs);
        ProbeResult result;
        Socket const socket = connected(options, clock, result);
        Connection const ssl(::SSL_new(context.get()), &::SSL_free);
        ::SSL_set_fd(ssl.get(), socket.fd());
        ::ERR_clear_error();
        if (!address) {
            ::SSL_set_tlsext_host_name(ssl.get(), before.name.c_str());
        }
        shakeHands(ssl.get(), socket.fd(), options, clock, result);
        ::SSL_shutdown(ssl.get());
        return true;
    } catch (Failure const &) {
        return false;
    }
}

/// A server that chose what the safe policy does not offer may have better.
void judgeProtocol(ProbeOptions const & options, SSL const * ssl, bool address, ProbeResult & result) {
    std::string const offered = ":" + tls::tls_policy::safe().ciphers + ":";
    int const version = ::SSL_version(ssl);
    bool const safe =
        version >= TLS1_3_VERSION ||
        (version == TLS1_2_VERSION && offered.find(":" + result.cipher + ":") != std::string::npos);
    if (!safe && !comesAboutSafely(options, result, address)) {
        result.faults.push_back(
            VerifyFault{VerifyFault::noCertificate, 0,
                        "the server has neither a protocol nor a cipher of those that are safe, and takes " +
                            result.protocol + " with " + result.cipher,
                        "have it offer TLS 1.3, or 1.2 with ECDHE and AES-GCM or ChaCha20"});
    }
}

} // namespace

std::string mendOf(int code) {
    static std::map<int, char const *> const mends = {
        {X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT,
         "trust this certificate itself (--ca with it), or give the server one that an authority has signed"},
        {X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN,
         "trust the root that signs it: --ca with the last certificate of the chain"},
        {X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY,
         "trust the authority that issued it (--ca), or have the server send the certificates between it and "
         "the root"},
        {X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT, "trust the authority that issued it: --ca"},
        {X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE,
         "have the server send the certificates between its own and the root, or trust its issuer: --ca"},
        {X509_V_ERR_CERT_HAS_EXPIRED, "renew the certificate; if it is in force, set this machine's clock"},
        {X509_V_ERR_CERT_NOT_YET_VALID, "wait for it, or set this machine's clock"},
        {X509_V_ERR_CERT_SIGNATURE_FAILURE,
         "what claims to have issued it has not: the chain is mixed up, or forged"},
        {X509_V_ERR_INVALID_CA, "what issued it may issue none: it needs CA:TRUE"},
        {X509_V_ERR_INVALID_PURPOSE,
         "it is for another use: a server needs serverAuth in its extended key usage"},
        {X509_V_ERR_PATH_LENGTH_EXCEEDED, "an authority of the chain may have fewer below it"},
        {X509_V_ERR_CERT_REVOKED, "its authority has taken it back: have a new one made"},
        {X509_V_ERR_EE_KEY_TOO_SMALL, "have one made with a longer key"},
        {X509_V_ERR_CA_KEY_TOO_SMALL, "have the authority use a longer key"},
        {X509_V_ERR_CA_MD_TOO_WEAK, "have it signed with SHA-256 or better"},
    };
    auto const found = mends.find(code);
    return found != mends.end() ? found->second : "have the certificate made anew by its authority";
}

ProbeResult probe(ProbeOptions const & options) {
    QuietPipes const quiet;
    ProbeResult result;
    result.name = options.name.empty() ? options.host : options.name;
    Context const context = contextOf(options);
    Clock clock(options.timeoutMs);
    Socket const socket = connected(options, clock, result);
    Connection const ssl(::SSL_new(context.get()), &::SSL_free);
    ::SSL_set_fd(ssl.get(), socket.fd());
    ::SSL_set_ex_data(ssl.get(), faultsIndex(), &result);
    std::unique_ptr<ASN1_OCTET_STRING, void (*)(ASN1_OCTET_STRING *)> const ip(
        ::a2i_IPADDRESS(result.name.c_str()), &::ASN1_OCTET_STRING_free);
    ::ERR_clear_error();
    if (ip == nullptr) {
        ::SSL_set_tlsext_host_name(ssl.get(), result.name.c_str());
    }
    shakeHands(ssl.get(), socket.fd(), options, clock, result);
    hearRefusal(ssl.get(), socket.fd(), options, clock, result);
    result.protocol = ::SSL_get_version(ssl.get());
    result.cipher = ::SSL_get_cipher_name(ssl.get());
    STACK_OF(X509) * const chain = ::SSL_get_peer_cert_chain(ssl.get());
    for (int i = 0; chain != nullptr && i < sk_X509_num(chain); ++i) {
        X509 * const certificate = sk_X509_value(chain, i);
        result.chain.push_back(textOf(certificate));
        result.nameMatches =
            result.nameMatches || (i == 0 && matches(certificate, result.name, ip != nullptr));
    }
    judgeProtocol(options, ssl.get(), ip != nullptr, result);
    ::SSL_set_quiet_shutdown(ssl.get(), 0);
    ::SSL_shutdown(ssl.get());
    return result;
}

} // namespace tool
} // namespace tav
