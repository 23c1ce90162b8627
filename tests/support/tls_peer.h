#ifndef TAV_TESTS_SUPPORT_TLS_PEER_H
#define TAV_TESTS_SUPPORT_TLS_PEER_H

#include "support/frame_bytes.h"

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

/// The far end of a TLS connection, driven step by step by the test's own thread: a listener on loopback with
/// a port given by the system, and connections that do what they are told and nothing by themselves.  Every
/// step has a time limit and throws std::runtime_error when it is over.
///
///     TlsPeer peer;
///     ... make the client connect to 127.0.0.1, peer.portText() ...
///     auto server = peer.accept();
///     ASSERT_TRUE(server->handshake());
///     server->send(frame("hello"));
namespace tav_test {

constexpr int peer_limit_ms = 30000;

/// A certificate authority, and a certificate for "localhost" that it signed, as PEM texts.
class TlsIdentity {
public:
    std::string ca;
    std::string chain;
    std::string key;
    std::string ca_key;

    /// Elliptic curve keys, made once.
    static TlsIdentity const & ecdsa() {
        static TlsIdentity const the(false);
        return the;
    }
    /// RSA keys, made once.
    static TlsIdentity const & rsa() {
        static TlsIdentity const the(true);
        return the;
    }
    /// A new one that no other's authority has signed.
    static TlsIdentity stranger() { return TlsIdentity(false, "Stranger CA"); }
    /// A new one whose certificate is valid between two times, in seconds from now.
    static TlsIdentity valid(long from, long to) { return TlsIdentity(false, "Test CA", from, to); }
    /// A certificate that signed itself, and is its own authority.
    static TlsIdentity selfSigned() {
        TlsIdentity out = stranger();
        out.chain = out.ca;
        out.key = out.ca_key;
        return out;
    }

private:
    using Key = std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY *)>;
    using Certificate = std::unique_ptr<X509, void (*)(X509 *)>;

    static constexpr long from_now = -3600;
    static constexpr long to_tomorrow = 24 * 3600;

    explicit TlsIdentity(bool with_rsa, char const * name = "Test CA", long from = from_now,
                         long to = to_tomorrow) {
        Key const authority_key = makeKey(with_rsa);
        Certificate const authority =
            makeCertificate(*authority_key, name, nullptr, *authority_key, from_now, to_tomorrow);
        Key const leaf_key = makeKey(with_rsa);
        Certificate const leaf =
            makeCertificate(*leaf_key, "localhost", authority.get(), *authority_key, from, to);
        ca = pem([&](BIO * out) { return PEM_write_bio_X509(out, authority.get()); });
        chain = pem([&](BIO * out) { return PEM_write_bio_X509(out, leaf.get()); });
        key = pemOf(*leaf_key);
        ca_key = pemOf(*authority_key);
    }

    static void require(bool ok, char const * what) {
        if (!ok) {
            throw std::runtime_error(std::string("test certificate: ") + what);
        }
    }

    static Key makeKey(bool with_rsa) {
        EVP_PKEY * made = nullptr;
        EVP_PKEY_CTX * const maker = EVP_PKEY_CTX_new_id(with_rsa ? EVP_PKEY_RSA : EVP_PKEY_EC, nullptr);
        bool ok = maker != nullptr && EVP_PKEY_keygen_init(maker) > 0;
        ok = ok && (with_rsa ? EVP_PKEY_CTX_set_rsa_keygen_bits(maker, 2048)
                             : EVP_PKEY_CTX_set_ec_paramgen_curve_nid(maker, NID_X9_62_prime256v1)) > 0;
        ok = ok && EVP_PKEY_keygen(maker, &made) > 0;
        EVP_PKEY_CTX_free(maker);
        require(ok, "key");
        return Key(made, EVP_PKEY_free);
    }

    static Certificate makeCertificate(EVP_PKEY & own, char const * name, X509 * issuer,
                                       EVP_PKEY & issuer_key, long from, long to) {
        Certificate made(X509_new(), X509_free);
        X509 * const x = made.get();
        std::unique_ptr<BIGNUM, void (*)(BIGNUM *)> const serial(BN_new(), BN_free);
        require(BN_rand(serial.get(), 64, BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ANY) > 0, "serial");
        BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(x));
        X509_set_version(x, 2);
        X509_gmtime_adj(X509_getm_notBefore(x), from);
        X509_gmtime_adj(X509_getm_notAfter(x), to);
        X509_set_pubkey(x, &own);
        X509_NAME * const subject = X509_get_subject_name(x);
        X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC, reinterpret_cast<unsigned char const *>(name),
                                   -1, -1, 0);
        X509_set_issuer_name(x, issuer != nullptr ? X509_get_subject_name(issuer) : subject);
        X509V3_CTX ctx;
        X509V3_set_ctx(&ctx, issuer != nullptr ? issuer : x, x, nullptr, nullptr, 0);
        X509_EXTENSION * const basic =
            X509V3_EXT_conf_nid(nullptr, &ctx, NID_basic_constraints,
                                issuer != nullptr ? "critical,CA:FALSE" : "critical,CA:TRUE");
        require(basic != nullptr && X509_add_ext(x, basic, -1) > 0, "extension");
        X509_EXTENSION_free(basic);
        require(X509_sign(x, &issuer_key, EVP_sha256()) > 0, "signature");
        return made;
    }

    static std::string pemOf(EVP_PKEY & made) {
        return pem([&](BIO * out) {
            return PEM_write_bio_PrivateKey(out, &made, nullptr, nullptr, 0, nullptr, nullptr);
        });
    }

    template <class Write>
    static std::string pem(Write const & write) {
        std::unique_ptr<BIO, int (*)(BIO *)> const out(BIO_new(BIO_s_mem()), BIO_free);
        require(write(out.get()) > 0, "text");
        char * data = nullptr;
        long const size = BIO_get_mem_data(out.get(), &data);
        return std::string(data, static_cast<std::size_t>(size));
    }
};

/// One accepted connection.  It never raises SIGPIPE, whatever the other end does.
class TlsConnection {
public:
    TlsConnection(int descriptor, SSL_CTX * context)
        : descriptor_(descriptor), ssl_(SSL_new(context), SSL_free) {
        BIO * const in = BIO_new(BIO_s_mem());
        BIO * const out = BIO_new(BIO_s_mem());
        SSL_set_bio(ssl_.get(), in, out);
        SSL_set_accept_state(ssl_.get());
        int const on = 1;
        ::setsockopt(descriptor_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    }
    ~TlsConnection() { close(); }
    TlsConnection(TlsConnection const &) = delete;
    TlsConnection & operator=(TlsConnection const &) = delete;

    /// The whole TLS handshake; false when either end refuses it.
    bool handshake() {
        for (;;) {
            ERR_clear_error();
            int const n = SSL_do_handshake(ssl_.get());
            if (!flush()) {
                return false;
            }
            if (n == 1) {
                return true;
            }
            if (SSL_get_error(ssl_.get(), n) != SSL_ERROR_WANT_READ || !feed()) {
                return false;
            }
        }
    }

    /// Sends the bytes as one or more TLS records; false if the connection is gone.
    bool send(std::string const & bytes) { return write(bytes) && flush(); }

    /// Sends the bytes in TLS records of at most `piece` bytes each.
    bool sendInRecords(std::string const & bytes, std::size_t piece) {
        for (std::size_t at = 0; at < bytes.size(); at += piece) {
            if (!send(bytes.substr(at, piece))) {
                return false;
            }
        }
        return true;
    }

    /// Sends the bytes in one go of TLS, but the encrypted stream in pieces of at most `piece` bytes.
    /// `sent` is called after each with its size.
    bool sendInSegments(std::string const & bytes, std::size_t piece,
                        std::function<void(std::size_t)> const & sent = nullptr) {
        if (!write(bytes)) {
            return false;
        }
        std::string const encrypted = takeOutput();
        for (std::size_t at = 0; at < encrypted.size(); at += piece) {
            std::string const segment = encrypted.substr(at, piece);
            if (!sendPlain(segment)) {
                return false;
            }
            if (sent) {
                sent(segment.size());
            }
        }
        return true;
    }

    /// Sends bytes outside TLS.
    bool sendPlain(std::string const & bytes) {
        std::size_t done = 0;
        while (done < bytes.size()) {
            await(POLLOUT);
            ssize_t const n = ::send(descriptor_, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
            if (n <= 0) {
                return false;
            }
            done += static_cast<std::size_t>(n);
        }
        return true;
    }

    /// Reads exactly `size` bytes; what has come if the other end closes first.
    std::string receive(std::size_t size) {
        while (plain_.size() < size && decrypt()) {
        }
        std::string const out = plain_.substr(0, size);
        plain_.erase(0, out.size());
        return out;
    }

    /// Reads one frame and returns its body.
    std::string receiveFrame() {
        std::string const head = receive(4);
        if (head.size() < 4) {
            throw std::runtime_error("no frame: the connection has ended");
        }
        std::size_t size = 0;
        for (char const c : head) {
            size = size << 8 | static_cast<unsigned char>(c);
        }
        return receive(size);
    }

    /// Reads bytes outside TLS, at least one, until `end` stands in them.
    std::string receivePlainUntil(std::string const & end) {
        std::string out;
        char c = 0;
        while (out.find(end) == std::string::npos) {
            await(POLLIN);
            if (::recv(descriptor_, &c, 1, 0) != 1) {
                break;
            }
            out.push_back(c);
        }
        return out;
    }

    /// True when the other end closes, whatever it sends before that.
    bool waitClosed() {
        char buffer[4096];
        for (;;) {
            await(POLLIN);
            if (::recv(descriptor_, buffer, sizeof buffer, 0) <= 0) {
                return true;
            }
        }
    }

    /// True if nothing arrives for `ms` milliseconds.
    bool quiet(int ms) const {
        pollfd what{descriptor_, POLLIN, 0};
        return plain_.empty() && ::poll(&what, 1, ms) == 0;
    }

    void close() {
        if (descriptor_ >= 0) {
            ::close(descriptor_);
            descriptor_ = -1;
        }
    }

    /// Closes by a reset.
    void reset() {
        linger const now{1, 0};
        ::setsockopt(descriptor_, SOL_SOCKET, SO_LINGER, &now, sizeof now);
        close();
    }

    std::string cipher() const { return SSL_get_cipher_name(ssl_.get()); }
    std::string protocol() const { return SSL_get_version(ssl_.get()); }
    /// The first bytes that came, as they came.
    std::string const & wire() const { return wire_; }
    /// True if the other end has sent the TLS notice that it closes.
    bool noticed() const { return (SSL_get_shutdown(ssl_.get()) & SSL_RECEIVED_SHUTDOWN) != 0; }
    std::string serverName() const {
        char const * const name = SSL_get_servername(ssl_.get(), TLSEXT_NAMETYPE_host_name);
        return name != nullptr ? name : "";
    }

private:
    void await(short events) const {
        pollfd what{descriptor_, events, 0};
        if (::poll(&what, 1, peer_limit_ms) <= 0) {
            throw std::runtime_error("the peer has waited too long");
        }
    }

    bool write(std::string const & bytes) {
        return bytes.empty() || SSL_write(ssl_.get(), bytes.data(), static_cast<int>(bytes.size())) > 0;
    }

    std::string takeOutput() {
        BIO * const out = SSL_get_wbio(ssl_.get());
        std::string bytes(BIO_ctrl_pending(out), '\0');
        if (!bytes.empty()) {
            BIO_read(out, &bytes[0], static_cast<int>(bytes.size()));
        }
        return bytes;
    }

    bool flush() { return sendPlain(takeOutput()); }

    bool feed() {
        char buffer[16384];
        await(POLLIN);
        ssize_t const n = ::recv(descriptor_, buffer, sizeof buffer, 0);
        if (n > 0 && wire_.size() < 16384) {
            wire_.append(buffer, static_cast<std::size_t>(n));
        }
        return n > 0 && BIO_write(SSL_get_rbio(ssl_.get()), buffer, static_cast<int>(n)) == n;
    }

    bool decrypt() {
        char buffer[16384];
        for (;;) {
            int const n = SSL_read(ssl_.get(), buffer, sizeof buffer);
            if (n > 0) {
                plain_.append(buffer, static_cast<std::size_t>(n));
                return true;
            }
            if (SSL_get_error(ssl_.get(), n) != SSL_ERROR_WANT_READ || !feed()) {
                return false;
            }
        }
    }

    int descriptor_;
    std::unique_ptr<SSL, void (*)(SSL *)> ssl_;
    std::string plain_;
    std::string wire_;
};

/// The listener.
class TlsPeer {
public:
    /// `ciphers` restricts what the server is willing to use.
    explicit TlsPeer(TlsIdentity const & identity = TlsIdentity::ecdsa(), std::string const & ciphers = "",
                     int version = TLS1_2_VERSION)
        : context_(SSL_CTX_new(TLS_server_method()), SSL_CTX_free) {
        SSL_CTX_set_min_proto_version(context_.get(), version);
        SSL_CTX_set_max_proto_version(context_.get(), version);
        useIdentity(identity);
        if (!ciphers.empty()) {
            require(SSL_CTX_set_cipher_list(context_.get(), ciphers.c_str()) == 1, "ciphers");
        }
        listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        require(::bind(listener_, reinterpret_cast<sockaddr *>(&address), size) == 0, "bind");
        require(::listen(listener_, 64) == 0, "listen");
        require(::getsockname(listener_, reinterpret_cast<sockaddr *>(&address), &size) == 0, "port");
        port_ = ntohs(address.sin_port);
    }
    ~TlsPeer() { stop(); }
    TlsPeer(TlsPeer const &) = delete;
    TlsPeer & operator=(TlsPeer const &) = delete;

    unsigned short port() const { return port_; }
    std::string portText() const { return std::to_string(port_); }

    /// The next connection, before any handshake.
    std::unique_ptr<TlsConnection> accept() {
        require(pending(peer_limit_ms), "no connection has come");
        int const descriptor = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        require(descriptor >= 0, "accept");
        ++connections_;
        return std::make_unique<TlsConnection>(descriptor, context_.get());
    }

    /// True if a connection that was not accepted yet comes within `ms` milliseconds.
    bool pending(int ms) const {
        pollfd what{listener_, POLLIN, 0};
        return ::poll(&what, 1, ms) > 0;
    }

    /// The number of connections accepted.
    unsigned connections() const { return connections_; }

    /// Listens no more; the port refuses connections from then on.
    void stop() {
        if (listener_ >= 0) {
            ::close(listener_);
            listener_ = -1;
        }
    }

private:
    static void require(bool ok, char const * what) {
        if (!ok) {
            throw std::runtime_error(std::string("test peer: ") + what);
        }
    }

    void useIdentity(TlsIdentity const & identity) {
        std::unique_ptr<BIO, int (*)(BIO *)> const chain(
            BIO_new_mem_buf(identity.chain.data(), static_cast<int>(identity.chain.size())), BIO_free);
        std::unique_ptr<BIO, int (*)(BIO *)> const key(
            BIO_new_mem_buf(identity.key.data(), static_cast<int>(identity.key.size())), BIO_free);
        std::unique_ptr<X509, void (*)(X509 *)> const certificate(
            PEM_read_bio_X509(chain.get(), nullptr, nullptr, nullptr), X509_free);
        std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY *)> const own(
            PEM_read_bio_PrivateKey(key.get(), nullptr, nullptr, nullptr), EVP_PKEY_free);
        require(SSL_CTX_use_certificate(context_.get(), certificate.get()) == 1, "certificate");
        require(SSL_CTX_use_PrivateKey(context_.get(), own.get()) == 1, "key");
    }

    std::unique_ptr<SSL_CTX, void (*)(SSL_CTX *)> context_;
    int listener_ = -1;
    unsigned short port_ = 0;
    unsigned connections_ = 0;
};

} // namespace tav_test

#endif
