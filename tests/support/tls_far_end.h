#ifndef TAV_TESTS_SUPPORT_TLS_FAR_END_H
#define TAV_TESTS_SUPPORT_TLS_FAR_END_H

#include "support/tls_peer.h"

#include <fcntl.h>

/// The server's end of a TLS connection, for one thread that drives both ends: nothing here waits.
namespace tav_test {

/// Two descriptors that are joined, as the system joins them.
struct DescriptorPair {
    DescriptorPair() {
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) != 0) {
            throw std::runtime_error("no pair of sockets");
        }
    }
    int ends[2];
};

class TlsFarEnd {
public:
    /// The descriptor, which does not block, is its own from here on.
    explicit TlsFarEnd(int descriptor) : descriptor_(descriptor), ssl_(SSL_new(context()), SSL_free) {
        SSL_set_bio(ssl_.get(), BIO_new(BIO_s_mem()), BIO_new(BIO_s_mem()));
        SSL_set_accept_state(ssl_.get());
    }
    ~TlsFarEnd() { close(); }
    TlsFarEnd(TlsFarEnd const &) = delete;
    TlsFarEnd & operator=(TlsFarEnd const &) = delete;

    /// Takes what has come, and gives what is to go; false if nothing was there to be done.
    bool step() {
        bool const moved = read();
        if (!isUp() && moved) {
            ERR_clear_error();
            SSL_do_handshake(ssl_.get());
        }
        decrypt();
        return flush() || moved;
    }

    bool isUp() const { return SSL_is_init_finished(ssl_.get()) == 1; }
    /// Encrypts the bytes, which go with the next steps.
    bool send(std::string const & bytes) {
        ERR_clear_error();
        return isUp() && !bytes.empty() &&
               SSL_write(ssl_.get(), bytes.data(), static_cast<int>(bytes.size())) > 0;
    }
    /// Gives the bytes to the connection as they are.
    void sendPlain(std::string const & bytes) { out_ += bytes; }
    /// Gives notice that it closes.
    void notice() {
        ERR_clear_error();
        SSL_shutdown(ssl_.get());
    }
    /// What was decrypted since the last time.
    std::string take() {
        std::string out;
        out.swap(plain_);
        return out;
    }
    void close() {
        if (descriptor_ >= 0) {
            ::close(descriptor_);
            descriptor_ = -1;
        }
    }

private:
    /// Of all of them, with tickets left out, which would go with the first bytes.
    static SSL_CTX * context() {
        static std::unique_ptr<SSL_CTX, void (*)(SSL_CTX *)> const made = [] {
            std::unique_ptr<SSL_CTX, void (*)(SSL_CTX *)> out(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
            TlsIdentity const & own = TlsIdentity::ecdsa();
            std::unique_ptr<BIO, int (*)(BIO *)> const chain(
                BIO_new_mem_buf(own.chain.data(), static_cast<int>(own.chain.size())), BIO_free);
            std::unique_ptr<BIO, int (*)(BIO *)> const key(
                BIO_new_mem_buf(own.key.data(), static_cast<int>(own.key.size())), BIO_free);
            std::unique_ptr<X509, void (*)(X509 *)> const certificate(
                PEM_read_bio_X509(chain.get(), nullptr, nullptr, nullptr), X509_free);
            std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY *)> const secret(
                PEM_read_bio_PrivateKey(key.get(), nullptr, nullptr, nullptr), EVP_PKEY_free);
            SSL_CTX_use_certificate(out.get(), certificate.get());
            SSL_CTX_use_PrivateKey(out.get(), secret.get());
            SSL_CTX_set_num_tickets(out.get(), 0);
            SSL_CTX_set_session_cache_mode(out.get(), SSL_SESS_CACHE_OFF);
            return out;
        }();
        return made.get();
    }

    bool read() {
        char buffer[16384];
        bool moved = false;
        for (;;) {
            ssize_t const n = descriptor_ < 0 ? -1 : ::recv(descriptor_, buffer, sizeof buffer, 0);
            if (n <= 0) {
                return moved;
            }
            BIO_write(SSL_get_rbio(ssl_.get()), buffer, static_cast<int>(n));
            moved = true;
        }
    }

    void decrypt() {
        char buffer[16384];
        while (isUp()) {
            ERR_clear_error();
            int const n = SSL_read(ssl_.get(), buffer, sizeof buffer);
            if (n <= 0) {
                return;
            }
            plain_.append(buffer, static_cast<std::size_t>(n));
        }
    }

    bool flush() {
        BIO * const made = SSL_get_wbio(ssl_.get());
        std::size_t const before = out_.size();
        out_.resize(before + BIO_ctrl_pending(made));
        if (out_.size() > before) {
            BIO_read(made, &out_[before], static_cast<int>(out_.size() - before));
        }
        if (out_.empty() || descriptor_ < 0) {
            return false;
        }
        ssize_t const n = ::send(descriptor_, out_.data(), out_.size(), MSG_NOSIGNAL);
        if (n > 0) {
            out_.erase(0, static_cast<std::size_t>(n));
        }
        return n > 0;
    }

    int descriptor_;
    std::unique_ptr<SSL, void (*)(SSL *)> ssl_;
    std::string plain_;
    std::string out_;
};

} // namespace tav_test

#endif
