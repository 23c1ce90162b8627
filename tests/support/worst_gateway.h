#ifndef TAV_TESTS_SUPPORT_WORST_GATEWAY_H
#define TAV_TESTS_SUPPORT_WORST_GATEWAY_H

#include "support/client_rig.h"
#include "support/log_capture.h"
#include "support/pki.h"

#include <gtest/gtest.h>

#include <linux/sockios.h>
#include <sys/ioctl.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

/// A gateway that goes through TLS step by step and does its worst at any of them, and all that a client
/// tells of it.
namespace tav_test {

/// What a gateway is able to speak.
struct WorstSettings {
    int lowest = TLS1_2_VERSION;
    int highest = TLS1_2_VERSION;
    /// OpenSSL's lists for TLS 1.2 and older, and for TLS 1.3; empty for all there are.
    std::string ciphers;
    std::string suites;
    /// What it shows, its own certificate first; empty for one of each kind of key that the root has signed.
    std::vector<Identity const *> chain;
};

/// The certificates that a worst gateway shows, of each kind of key.
struct WorstCertificates {
    Identity ecdsa{CertificateSpec(), &Pki::the().root};
    Identity rsa{CertificateSpec().withRsa(2048), &Pki::the().root};

    static WorstCertificates const & the() {
        static WorstCertificates const made;
        return made;
    }
};

/// One accepted connection.
class WorstConnection {
public:
    WorstConnection(int descriptor, SSL_CTX * context)
        : descriptor_(descriptor), ssl_(SSL_new(context), SSL_free) {
        SSL_set_bio(ssl_.get(), BIO_new(BIO_s_mem()), BIO_new(BIO_s_mem()));
        SSL_set_accept_state(ssl_.get());
        int const on = 1;
        ::setsockopt(descriptor_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    }
    ~WorstConnection() { close(); }
    WorstConnection(WorstConnection const &) = delete;
    WorstConnection & operator=(WorstConnection const &) = delete;

    /// Reads what the client says until there is something to be said to it, which is not sent yet; empty
    /// when the handshake is over.
    std::string flight() {
        for (;;) {
            ERR_clear_error();
            int const n = SSL_do_handshake(ssl_.get());
            std::string out = output();
            if (!out.empty() || n == 1 || SSL_get_error(ssl_.get(), n) != SSL_ERROR_WANT_READ || !feed()) {
                return out;
            }
        }
    }
    /// The whole handshake; false when either end refuses it.
    bool shake() {
        for (std::string next = flight(); !next.empty(); next = flight()) {
            if (!put(next)) {
                return false;
            }
        }
        return SSL_is_init_finished(ssl_.get()) == 1;
    }

    /// Sends bytes as they are, in segments of at most `piece` bytes; 0 for one.
    bool put(std::string const & bytes, std::size_t piece = 0) {
        std::size_t const step = piece == 0 ? bytes.size() : piece;
        for (std::size_t at = 0; at < bytes.size();) {
            pollfd what{descriptor_, POLLOUT, 0};
            if (::poll(&what, 1, peer_limit_ms) <= 0) {
                return false;
            }
            std::size_t const size = std::min(step, bytes.size() - at);
            ssize_t const n = ::send(descriptor_, bytes.data() + at, size, MSG_NOSIGNAL);
            if (n <= 0) {
                return false;
            }
            at += static_cast<std::size_t>(n);
        }
        return true;
    }
    /// What TLS has to say, taken from it.
    std::string output() {
        BIO * const out = SSL_get_wbio(ssl_.get());
        std::string bytes(BIO_ctrl_pending(out), '\0');
        if (!bytes.empty()) {
            BIO_read(out, &bytes[0], static_cast<int>(bytes.size()));
        }
        return bytes;
    }

    /// Sends bytes within TLS, in records of at most `piece` bytes each; 0 for as few as there can be.
    bool send(std::string const & bytes, std::size_t piece = 0) {
        std::size_t const step = piece == 0 ? bytes.size() : piece;
        for (std::size_t at = 0; at < bytes.size(); at += step) {
            std::string const record = bytes.substr(at, step);
            if (SSL_write(ssl_.get(), record.data(), static_cast<int>(record.size())) <= 0) {
                return false;
            }
        }
        return put(output());
    }
    /// Reads one packet, past heartbeats; throws if the client has gone.
    Pkt receive() {
        for (;;) {
            std::size_t size = 0;
            for (char const c : take(4)) {
                size = size << 8 | static_cast<unsigned char>(c);
            }
            if (size != 0) {
                return Pkt::of(take(size));
            }
        }
    }
    /// Lets TLS work on what the client sends until `done`; false when TLS or the client has ended.
    bool serve(std::function<bool()> const & done) {
        char buffer[4096];
        while (!done()) {
            int const n = SSL_read(ssl_.get(), buffer, sizeof buffer);
            if (n > 0) {
                read_.append(buffer, static_cast<std::size_t>(n));
                continue;
            }
            bool const waits = SSL_get_error(ssl_.get(), n) == SSL_ERROR_WANT_READ;
            if (!put(output()) || !waits || (!done() && !feed())) {
                return false;
            }
        }
        return put(output());
    }

    /// Sends TLS's word that nothing more comes.
    void notice() {
        SSL_shutdown(ssl_.get());
        put(output());
    }
    /// Sends nothing more, and takes what comes until the client has gone.
    bool end() {
        ::shutdown(descriptor_, SHUT_WR);
        return waitGone();
    }
    bool waitGone() {
        char buffer[16384];
        for (;;) {
            pollfd what{descriptor_, POLLIN, 0};
            if (::poll(&what, 1, peer_limit_ms) <= 0) {
                return false;
            }
            if (::recv(descriptor_, buffer, sizeof buffer, 0) <= 0) {
                return true;
            }
        }
    }
    void close() {
        if (descriptor_ >= 0) {
            ::close(descriptor_);
            descriptor_ = -1;
        }
    }
    void reset() {
        linger const now{1, 0};
        ::setsockopt(descriptor_, SOL_SOCKET, SO_LINGER, &now, sizeof now);
        close();
    }
    /// Waits for bytes of the client and reads them as they are; empty if it has gone.
    std::string raw() {
        pollfd what{descriptor_, POLLIN, 0};
        char buffer[16384];
        ssize_t const n =
            ::poll(&what, 1, peer_limit_ms) > 0 ? ::recv(descriptor_, buffer, sizeof buffer, 0) : 0;
        return n > 0 ? std::string(buffer, static_cast<std::size_t>(n)) : std::string();
    }

    /// Reads until there is something to be said to the client, which is not sent yet; empty if it has gone.
    std::string answer() {
        char byte = 0;
        for (;;) {
            SSL_read(ssl_.get(), &byte, 1);
            std::string out = output();
            if (!out.empty() || !feed()) {
                return out;
            }
        }
    }
    /// Waits until the client's system has all that was sent.
    bool waitTaken() const {
        int left = 0;
        return eventually([&] { return ::ioctl(descriptor_, SIOCOUTQ, &left) == 0 && left == 0; });
    }

    /// Keeps the system from taking much ahead of what is read here.
    void takeLittle() {
        int const little = 1 << 18;
        ::setsockopt(descriptor_, SOL_SOCKET, SO_RCVBUF, &little, sizeof little);
    }
    /// Waits until something of the client's can be read, and reads nothing of it.
    bool waitInput() {
        pollfd what{descriptor_, POLLIN, 0};
        return ::poll(&what, 1, peer_limit_ms) > 0;
    }

    SSL * ssl() { return ssl_.get(); }

private:
    bool feed() {
        std::string const bytes = raw();
        return !bytes.empty() && BIO_write(SSL_get_rbio(ssl_.get()), bytes.data(),
                                           static_cast<int>(bytes.size())) == static_cast<int>(bytes.size());
    }
    std::string take(std::size_t size) {
        if (!serve([&] { return read_.size() >= size; })) {
            throw std::runtime_error("the client has gone");
        }
        std::string const out = read_.substr(0, size);
        read_.erase(0, size);
        return out;
    }

    int descriptor_;
    std::unique_ptr<SSL, void (*)(SSL *)> ssl_;
    std::string read_;
};

/// Where a handshake is left: ahead of all, behind the client's hello, within and behind the gateway's first
/// flight, behind the client's second, within and behind the gateway's last.
enum Place { nothing, hello, half_first, first, second, half_last, last };

inline std::string half(std::string const & bytes) {
    return bytes.substr(0, bytes.size() / 2);
}

/// Goes as far as the place.
inline void goTo(Place place, WorstConnection & server) {
    if (place == nothing) {
        return;
    }
    std::string const greeting = server.flight();
    if (place == hello) {
        return;
    }
    server.put(place == half_first ? half(greeting) : greeting);
    if (place <= first) {
        return;
    }
    std::string const goodbye = server.flight();
    if (place != second) {
        server.put(place == half_last ? half(goodbye) : goodbye);
    }
}

/// The listener.
class WorstGateway {
public:
    explicit WorstGateway(WorstSettings const & settings = WorstSettings())
        : context_(SSL_CTX_new(TLS_server_method()), SSL_CTX_free) {
        SSL_CTX * const c = context_.get();
        SSL_CTX_set_security_level(c, 0);
        SSL_CTX_set_min_proto_version(c, settings.lowest);
        SSL_CTX_set_max_proto_version(c, settings.highest);
        // Two tickets of TLS 1.3 would make its flights depend on more than the version.
        SSL_CTX_set_num_tickets(c, 1);
        if (settings.chain.empty()) {
            show(WorstCertificates::the().ecdsa);
            show(WorstCertificates::the().rsa);
        } else {
            show(*settings.chain.front());
        }
        for (std::size_t i = 1; i < settings.chain.size(); ++i) {
            SSL_CTX_add1_chain_cert(c, settings.chain[i]->certificate());
        }
        if (!settings.ciphers.empty()) {
            SSL_CTX_set_cipher_list(c, settings.ciphers.c_str());
        }
        if (!settings.suites.empty()) {
            SSL_CTX_set_ciphersuites(c, settings.suites.c_str());
        }
        listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        bool const listens = ::bind(listener_, reinterpret_cast<sockaddr *>(&address), size) == 0 &&
                             ::listen(listener_, 64) == 0 &&
                             ::getsockname(listener_, reinterpret_cast<sockaddr *>(&address), &size) == 0;
        if (!listens) {
            throw std::runtime_error("the worst gateway does not listen");
        }
        port_ = ntohs(address.sin_port);
    }
    ~WorstGateway() { ::close(listener_); }
    WorstGateway(WorstGateway const &) = delete;
    WorstGateway & operator=(WorstGateway const &) = delete;

    unsigned port() const { return port_; }
    SSL_CTX * context() { return context_.get(); }
    void show(Identity const & own) {
        SSL_CTX_use_certificate(context_.get(), own.certificate());
        SSL_CTX_use_PrivateKey(context_.get(), own.key());
    }

    std::unique_ptr<WorstConnection> accept() {
        pollfd what{listener_, POLLIN, 0};
        if (::poll(&what, 1, peer_limit_ms) <= 0) {
            throw std::runtime_error("no client has come");
        }
        return std::make_unique<WorstConnection>(::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC),
                                                 context_.get());
    }

private:
    std::unique_ptr<SSL_CTX, void (*)(SSL_CTX *)> context_;
    int listener_;
    unsigned port_;
};

/// What a client has to tell of a connection.
struct WorstStory {
    tls::result_type result = tls::result_ok;
    /// Of the connect, by name.
    tls::failure failure = tls::failure::none;
    /// All callbacks of the connection in their order, with what they are given; on_error with the name that
    /// it finds.
    std::vector<std::string> told;
    /// All lines at ERROR in their order, from the client's name on; that of a certificate up to its issuer.
    std::vector<std::string> lines;
};

/// What on_error is told in a story.
inline std::string errorTold(std::string const & text, tls::failure name) {
    return "error " + text + ": " + tls::make_error_code(name).message();
}

/// A connect that fails in the handshake.
inline WorstStory failedHandshake(std::string const & text,
                                  tls::failure name = tls::failure::handshake_failed) {
    return {tls::result_error, name, {errorTold(text, name)}, {"<n> Handshake failed: " + text}};
}

/// A connect that fails for a certificate, so many steps above the gateway's own.
inline WorstStory refusedCertificate(std::string const & reason, int depth, std::string const & subject,
                                     tls::failure name = tls::failure::certificate_refused) {
    std::string const failed = "certificate verify failed (SSL routines)";
    return {
        tls::result_error,
        name,
        {errorTold(failed + ": " + reason + ", subject " + subject, name)},
        {"<n> certificate refused: " + reason + ", depth " + std::to_string(depth) + ", subject " + subject,
         "<n> Handshake failed: " + failed}};
}

/// A connection that opens and breaks as it is read.
inline WorstStory brokenRead(std::string const & text, tls::failure name, char const * part = "header") {
    return {tls::result_ok,
            tls::failure::none,
            {"open", errorTold(text, name)},
            {std::string("<n> Read ") + part + " failed: " + text}};
}

/// A connection that opens and stays.
inline WorstStory opened() {
    return {tls::result_ok, tls::failure::none, {"open"}, {}};
}

/// A line for each.
inline std::string listed(std::vector<std::string> const & all) {
    std::string out;
    for (std::string const & each : all) {
        out += "\n    " + each;
    }
    return out;
}

/// What OpenSSL calls one of its own reasons, as errors tell it.
inline std::string tlsText(int reason) {
    char const * const text = ERR_reason_error_string(ERR_PACK(ERR_LIB_SSL, 0, reason));
    return text != nullptr ? std::string(text) + " (SSL routines)" : "asio.ssl error";
}

inline tls::tls_policy worstPolicy() {
    tls::tls_policy out = tls::tls_policy::safe();
    out.trusted_pem = Pki::the().root.pem();
    return out;
}

/// A client that meets the gateway's worst, and all that it tells; at the end it has to work with another
/// gateway as if nothing had been.
class WorstMeeting {
public:
    explicit WorstMeeting(WorstSettings const & settings = WorstSettings()) : gateway(settings) {}

    tls::connect_option option() {
        tls::connect_option out;
        out.host = "127.0.0.1";
        out.port = std::to_string(gateway.port());
        out.set_on_open([this] { told.add("open"); });
        out.set_on_error([this](unsigned long long, unsigned short, int, char const * text) {
            told.add(errorTold(text, static_cast<tls::failure>(tls::last_failure().value())));
        });
        out.timedout.set_on_timedout([this](unsigned long long, unsigned short, bool cancelled) {
            told.add(cancelled ? "cancelled" : "timedout");
        });
        out.set_on_heartbeat_timedout([this] { told.add("heartbeat timedout"); });
        return out;
    }

    void start() { start(option()); }
    void start(tls::connect_option const & option) { info = client.start(option); }
    void startSafely() {
        tls::connect_option out = option();
        out.set_tls_policy(worstPolicy());
        start(out);
    }
    /// Starts, and goes through the handshake.
    void open() {
        start();
        server = gateway.accept();
        if (!server->shake() || resultOf(info) != tls::result_ok) {
            throw std::runtime_error("the connection did not open");
        }
    }
    /// A tracked request for 0x1235, whose end is added to `ends`.
    std::shared_ptr<tls::send_info> ask(int number = 5, int wait_ms = 60000) {
        return send(Ask(number), number, wait_ms);
    }
    /// The same with a message of one's own.
    std::shared_ptr<tls::send_info> send(Ask const & message, int number, int wait_ms = 60000) {
        tls::send_option option(
            tls::timedout_option(wait_ms,
                                 [this, number](unsigned long long, unsigned short, bool cancelled) {
                                     ends.add((cancelled ? "cancelled " : "timedout ") +
                                              std::to_string(number));
                                 }),
            tls::error_function(),
            tls::nbr_function([this, number](unsigned long long, unsigned short, unsigned char const *,
                                             unsigned size, tavMsgExt) {
                ends.add("reply " + std::to_string(number) + " of " + std::to_string(size));
            }),
            0x1235, false, 4);
        return client.send_msg(message, option);
    }

    /// Closes the connection from this end.
    void close() {
        closed_ = true;
        client.close();
    }

    /// Whether the connection's story has come to be this one, and no other.
    ::testing::AssertionResult isStory(WorstStory const & expected) {
        tls::result_type const result = resultOf(info);
        told.wait(expected.told.size());
        if (!expected.lines.empty()) {
            eventually([&] { return lines().size() >= expected.lines.size(); });
        }
        if (result == expected.result && info->error() == expected.failure && told.all() == expected.told &&
            lines() == expected.lines) {
            return ::testing::AssertionSuccess();
        }
        return ::testing::AssertionFailure()
               << "result " << result << ", \"" << info->error().message()
               << "\", told:" << listed(told.all()) << "\nlines:" << listed(lines());
    }

    /// The client talks to a gateway that behaves; nothing more is told of the one that did not.
    void expectRecovery() {
        // The end of a connection that still is up has a line of its own.
        bool const was_up = closed_ || client.connected();
        std::size_t const told_before = told.count();
        std::vector<std::string> const lines_before = lines();
        TlsPeer good;
        Events none;
        tls::connect_option right = optionFor(good.port(), none);
        tls::tls_policy policy;
        policy.trusted_pem = TlsIdentity::ecdsa().ca;
        right.set_tls_policy(policy);
        std::shared_ptr<tls::connect_info> const again = client.start(right);
        std::unique_ptr<TlsConnection> const fresh = good.accept();
        ASSERT_TRUE(fresh->handshake());
        ASSERT_EQ(resultOf(again), tls::result_ok);
        std::shared_ptr<tls::send_info> const asked = ask(77);
        ASSERT_TRUE(asked);
        Pkt const came = Pkt::of(fresh->receiveFrame());
        fresh->send(mobile(0x1235, came.sno).framed());
        EXPECT_EQ(resultOf(asked), tls::result_ok);
        EXPECT_EQ(told.count(), told_before) << listed(told.all());
        if (!was_up) {
            EXPECT_EQ(lines(), lines_before);
        }
        client.close();
    }

    std::vector<std::string> lines() const {
        std::vector<std::string> out;
        for (LogCapture::Record const & each : log.records()) {
            if (each.level == tavLogger::ERROR) {
                // Behind the stamp, which ends in the place.
                std::size_t const at = each.text.find(") ", each.text.find(".cpp:"));
                out.push_back(each.text.substr(at == std::string::npos ? 0 : at + 2));
                for (char const * end : {"\n", ", issuer "}) {
                    out.back().erase(std::min(out.back().find(end), out.back().size()));
                }
            }
        }
        return out;
    }

    LogCapture log{"clear(WARN)"};
    Events told;
    Events ends;
    WorstGateway gateway;
    std::unique_ptr<WorstConnection> server;
    tls::client client{"n"};
    std::shared_ptr<tls::connect_info> info;

private:
    bool closed_ = false;
};

} // namespace tav_test

#endif
