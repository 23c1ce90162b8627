#include "torture/scenarios.h"

#include "client/tls_socket.h"
#include "client/vinta_tls_client_impl_context.h"
#include "tav/vinta/vinta_log.h"

#include <openssl/x509_vfy.h>

#include <exception>
#include <memory>
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

INSTANTIATE_TEST_SUITE_P(Verdict, TortureClient,
                         testing::Values(Scenario{"certificate_refused", certificateRefused, Of::caller, 1}),
                         nameOf);

} // namespace
} // namespace torture
} // namespace tav_test
