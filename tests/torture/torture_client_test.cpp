#include "support/worst_gateway.h"
#include "torture/scenarios.h"

#include "client/tls_socket.h"
#include "client/vinta_tls_client_impl_context.h"
#include "tav/vinta/vinta_log.h"

#include <openssl/x509_vfy.h>

#include <atomic>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tav_test {
namespace torture {
namespace {

class TortureClient : public testing::TestWithParam<Scenario> {};

TEST_P(TortureClient, OfEachAllocation) {
    runWithEachFailing(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Client, TortureClient, testing::ValuesIn(clientScenarios()), nameOf);

/// Lines about the verdict, and those that are told of as lost.
unsigned told = 0;

void count(int, char const * line) {
    std::string_view const text = line;
    auto const holds = [&](char const * part) { return text.find(part) != std::string_view::npos; };
    std::size_t const lost = text.find(" log lines lost, as memory was short");
    if (lost != std::string_view::npos) {
        told += static_cast<unsigned>(text[lost - 1] - '0');
    } else {
        told += holds(" Verifying ") ? 1 : 0;
        told += holds(" certificate refused: hostname mismatch, depth 0, subject ") ? 1 : 0;
    }
}

/// The TLS library asks about a certificate that is for another name.
void certificateRefused() {
    namespace impl = tav::tls::impl;
    Spared const spared;
    impl::tls_socket socket(std::make_shared<impl::context>("torture"), "<torture>");
    std::unique_ptr<X509_STORE_CTX, void (*)(X509_STORE_CTX *)> const chain(X509_STORE_CTX_new(),
                                                                            X509_STORE_CTX_free);
    X509_STORE_CTX_set_error(chain.get(), X509_V_ERR_HOSTNAME_MISMATCH);
    asio::ssl::verify_context asked(chain.get());
    told = 0;
    tavLogger::setCallback(&count);
    try {
        Unspared const unspared;
        holds(!socket.verify_certificate(false, asked, true), "the verdict stands");
    } catch (std::exception const &) {
        holds(false, "nothing is thrown through the TLS library");
    }
    // Ahead of any other line stands how many were lost.
    tavLogger::writeLog("TLS.CLT", tavLogger::ERROR, "behind it\n", "f", 1, "g");
    tavLogger::setCallback([](int, char const *) {});
    holds(socket.refusal().wrong_name, "that the name is wrong takes no memory");
    bool const logged = tavLogger::isLoggable("TLS.CLT", tavLogger::INFO);
    holds(told == (logged ? 2u : 0u), "each line of the verdict is told, or is counted as lost");
}

/// A gateway asks for a handshake anew, which takes up what was agreed on before: the last word of it is the
/// client's.  While that is being written TLS is given a message, which is told as written with it, and stays
/// in TLS.
class TakenAlong {
public:
    TakenAlong()
        : session_(new impl::session(
              "<torture>", rig_.context(), [](tavBytes const &) {},
              rig_.option("127.0.0.1", std::to_string(gateway_.port())), [this] { return clock(); },
              rig_.counted)) {
        session_->connect();
        server_ = gateway_.accept();
        holds(server_->shake() && rig_.events.wait(1), "a session connects");
    }
    ~TakenAlong() {
        session_->close();
        rig_.stop();
    }
    TakenAlong(TakenAlong const &) = delete;
    TakenAlong & operator=(TakenAlong const &) = delete;

    void run() {
        SSL_renegotiate_abbreviated(server_->ssl());
        SSL_do_handshake(server_->ssl());
        server_->put(server_->output());
        std::string const last = server_->answer();
        // What comes while one is passed is read behind the other, and what is sent at that one behind the
        // read.
        auto const context = rig_.context();
        context->post([this] { ahead_.pass(); });
        holds(ahead_.waitArrived() && server_->put(last) && server_->waitTaken(), "the I/O thread is held");
        context->post([this] { behind_.pass(); });
        ahead_.open();
        holds(behind_.waitArrived(), "the I/O thread is held again");
        send(1);
        wants_ = true;
        behind_.open();
        eventually([&] { return wantHappened() || rig_.counted->heartbeats_sent == 1; });
        rig_.settle();
        rig_.settle();
        want_.reset();
        expectAll();
    }

private:
    void send(unsigned long long number) {
        std::string const packet = mobile(0x2001, number).bytes();
        auto const * const bytes = reinterpret_cast<unsigned char const *>(packet.data());
        session_->send_raw(bytes, static_cast<unsigned>(packet.size()));
    }
    /// It is asked for as a frame counts as written: what is asked for behind that may fail.
    long long clock() {
        if (wants_.exchange(false)) {
            want_.emplace();
        }
        return impl::session::steady_ms();
    }
    /// What was told as written comes with the next message, and ahead of that if there is memory.  For a
    /// completion that there is no memory for a client ends the connection.
    void expectAll() {
        holds(rig_.counted->frames_sent != 0, "what TLS has kept is told as written");
        if (!wantHappened()) {
            holds(server_->receive().sno == 1, "a heartbeat takes along what TLS has kept");
        }
        if (rig_.exceptions.count() != 0) {
            return;
        }
        send(2);
        unsigned long long number = server_->receive().sno;
        bool const came = !wantHappened() || number == 1;
        if (number == 1) {
            number = server_->receive().sno;
        }
        holds(number == 2 && came, "the next message takes along what TLS has kept");
    }

    std::atomic<bool> wants_{false};
    std::optional<Want> want_;
    Gate ahead_;
    Gate behind_;
    SessionRig rig_;
    WorstGateway gateway_;
    SessionRig::session_ptr const session_;
    std::unique_ptr<WorstConnection> server_;
};

void takenAlong() {
    Spared const spared;
    TakenAlong().run();
}

INSTANTIATE_TEST_SUITE_P(Heartbeat, TortureClient,
                         testing::Values(Scenario{"takes_along_what_tls_kept", takenAlong, Of::want, 1}),
                         nameOf);

INSTANTIATE_TEST_SUITE_P(Verdict, TortureClient,
                         testing::Values(Scenario{"certificate_refused", certificateRefused, Of::caller, 1}),
                         nameOf);

} // namespace
} // namespace torture
} // namespace tav_test
