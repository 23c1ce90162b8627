#ifndef TAV_TESTS_SUPPORT_MEMORY_TLS_H
#define TAV_TESTS_SUPPORT_MEMORY_TLS_H

#include "support/pki.h"

#include <openssl/ssl.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tav_test {

/// What a server shows and wants.
struct ServerSpec {
    Identity const * own = nullptr;
    std::vector<Identity const *> above;
    int version = TLS1_3_VERSION;
    /// Whose clients are wanted; null for no client certificate.
    Identity const * clients = nullptr;
    /// Chosen if offered; empty for no ALPN.
    std::string alpn;
};

inline std::unique_ptr<SSL_CTX, void (*)(SSL_CTX *)> serverContext(ServerSpec const & spec) {
    std::unique_ptr<SSL_CTX, void (*)(SSL_CTX *)> out(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
    SSL_CTX * const c = out.get();
    SSL_CTX_set_security_level(c, 0);
    SSL_CTX_set_min_proto_version(c, spec.version);
    SSL_CTX_set_max_proto_version(c, spec.version);
    SSL_CTX_use_certificate(c, spec.own->certificate());
    SSL_CTX_use_PrivateKey(c, spec.own->key());
    for (Identity const * each : spec.above) {
        SSL_CTX_add1_chain_cert(c, each->certificate());
    }
    if (spec.clients != nullptr) {
        X509_STORE_add_cert(SSL_CTX_get_cert_store(c), spec.clients->certificate());
        SSL_CTX_set_verify(c, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    }
    return out;
}

/// A client and a server joined in memory, driven to the end of the handshake.
class MemoryTls {
public:
    /// `verify` is the client's mode.
    MemoryTls(SSL_CTX * client, ServerSpec const & spec, int verify)
        : spec_(spec),
          server_context_(serverContext(spec_)),
          client_(SSL_new(client), SSL_free),
          server_(SSL_new(server_context_.get()), SSL_free) {
        SSL_CTX_set_alpn_select_cb(server_context_.get(), choose, &spec_);
        BIO * one = nullptr;
        BIO * other = nullptr;
        BIO_new_bio_pair(&one, 1 << 18, &other, 1 << 18);
        SSL_set_bio(client_.get(), one, one);
        SSL_set_bio(server_.get(), other, other);
        SSL_set_connect_state(client_.get());
        SSL_set_accept_state(server_.get());
        SSL_set_verify(client_.get(), verify, nullptr);
    }

    SSL * client() { return client_.get(); }
    SSL * server() { return server_.get(); }

    /// True when both ends are content.
    bool handshake() {
        bool client_done = false;
        bool server_done = false;
        for (int i = 0; i < 10; ++i) {
            client_done = SSL_do_handshake(client_.get()) == 1;
            server_done = SSL_do_handshake(server_.get()) == 1;
        }
        return client_done && server_done;
    }

    /// What the client's check says.
    std::string verdict() const {
        return X509_verify_cert_error_string(SSL_get_verify_result(client_.get()));
    }
    std::string serverName() const {
        char const * const name = SSL_get_servername(server_.get(), TLSEXT_NAMETYPE_host_name);
        return name != nullptr ? name : "";
    }

private:
    static int choose(SSL *, unsigned char const ** out, unsigned char * size, unsigned char const * in,
                      unsigned in_size, void * data) {
        std::string const & wanted = static_cast<ServerSpec const *>(data)->alpn;
        for (unsigned at = 0; at < in_size; at += in[at] + 1u) {
            if (wanted == std::string(reinterpret_cast<char const *>(in) + at + 1, in[at])) {
                *out = in + at + 1;
                *size = in[at];
                return SSL_TLSEXT_ERR_OK;
            }
        }
        return SSL_TLSEXT_ERR_NOACK;
    }

    ServerSpec spec_;
    std::unique_ptr<SSL_CTX, void (*)(SSL_CTX *)> server_context_;
    std::unique_ptr<SSL, void (*)(SSL *)> client_;
    std::unique_ptr<SSL, void (*)(SSL *)> server_;
};

} // namespace tav_test

#endif
