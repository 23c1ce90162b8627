#include "client/connect_info.h"
#include "client/send_info.h"
#include "client/tls_socket.h"
#include "client/vinta_tls_client_impl_context.h"
#include "support/bounded.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <memory>

using tav_test::LogCapture;
namespace impl = tav::tls::impl;
namespace tls = tav::tls;

TEST(LogPlace, LinesOfAConnectStandUnderTheClient) {
    LogCapture log;
    impl::connect_info open("<c>", tls::timedout_option());
    open.on_conn_connected();
    open.on_conn_error();
    open.on_conn_timedout();
    open.cancel();
    for (char const * const each : {"connected", "error", "timedout", "cancel"}) {
        EXPECT_EQ(log.count(std::string("connect_info::on_conn_") + each + "(vinta_tls_client_impl.cpp:"), 1u)
            << each;
    }
    impl::connect_info pending("<c>", tls::timedout_option());
    EXPECT_EQ(pending.wait(1, [left = 1]() mutable { return left-- > 0; }), tls::result_pending);
    EXPECT_EQ(log.count("connect_info::wait(vinta_tls_client_impl.cpp:"), 2u);
    EXPECT_FALSE(log.contains("(connect_info.cpp:"));
}

TEST(LogPlace, LinesOfASocketStandUnderTheContext) {
    LogCapture log;
    auto const context = std::make_shared<impl::context>("c");
    impl::tls_socket socket(context, "<s>");
    socket.init();
    EXPECT_EQ(log.count("tls_socket::init(vinta_tls_client_impl_context.cpp:"), 1u);
    std::unique_ptr<X509_STORE_CTX, void (*)(X509_STORE_CTX *)> const chain(X509_STORE_CTX_new(),
                                                                            X509_STORE_CTX_free);
    asio::ssl::verify_context ctx(chain.get());
    EXPECT_FALSE(socket.verify_certificate(false, ctx, true));
    EXPECT_EQ(log.count("tls_socket::verify_certificate(vinta_tls_client_impl_context.cpp:"), 2u);
    EXPECT_FALSE(log.contains("(tls_socket.cpp:"));
}

TEST(LogPlace, LinesOfASendStandUnderTheFrames) {
    LogCapture log;
    auto const send = std::make_shared<impl::send_info>("<s>", tavSharedPtr<impl::send_owner>(), 7, 0x1234,
                                                        tls::send_option(), 0);
    log.at("send wait begin", [&] { send->cancel(); });
    EXPECT_EQ(tav_test::waited(send), tls::result_cancelled);
    EXPECT_EQ(log.count("send_info::wait(vinta_tls_client_impl_framing.cpp:"), 2u);
    impl::send_info late("<s>", tavSharedPtr<impl::send_owner>(), 8, 0x1234,
                         tls::send_option(50, tls::timedout_function(), false, 4), 0);
    EXPECT_TRUE(late.check_timedout(1000));
    EXPECT_EQ(log.count("send_info::check_timedout(vinta_tls_client_impl_framing.cpp:"), 1u);
    EXPECT_FALSE(log.contains("(send_info.cpp:"));
}
