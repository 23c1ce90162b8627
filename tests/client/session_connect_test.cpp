#include "client/vinta_tls_client_impl_session.h"

#include "support/log_capture.h"
#include "support/session_rig.h"
#include "support/tls_peer.h"

#include <gtest/gtest.h>

#include <fcntl.h>

using namespace tav_test;
using impl::session;

namespace {

/// A port on which nobody listens.
std::string deadPort() {
    TlsPeer peer;
    return peer.portText();
}

constexpr unsigned long long all_ones = ~0ull;

} // namespace

TEST(SessionConnectLife, NewSessionIsCreatedAndNothingElse) {
    LogCapture log;
    SessionRig rig("<a>");
    auto const s = rig.make(rig.option("127.0.0.1", "1"));
    EXPECT_EQ(s->state(), 0);
    EXPECT_FALSE(s->connected());
    EXPECT_FALSE(s->closing());
    EXPECT_FALSE(s->check_heartbeat());
    EXPECT_EQ(s->session_id(), 0u);
    EXPECT_EQ(s->sends().size(), 0u);
    EXPECT_EQ(log.find("<a> session construct\n").level, tavLogger::INFO);
}

TEST(SessionConnectLife, DestructorClosesAndCancels) {
    LogCapture log;
    SessionRig rig("<a>");
    {
        auto s = rig.make(rig.option("127.0.0.1", "1"));
        rig.forget(s);
    }
    EXPECT_TRUE(log.inOrder({"<a> session destruct\n", "<a> socket closing...\n", "<a> socket closed.\n",
                             "<a> cancel session\n"}));
    EXPECT_EQ(log.find(" session destruct").level, tavLogger::INFO);
    EXPECT_EQ(log.find(" socket closing...").level, tavLogger::DEBUG);
    EXPECT_EQ(log.find(" socket closed.").level, tavLogger::INFO);
}

TEST(SessionConnectLife, OpenStartsTimerThenReceiver) {
    LogCapture log;
    SessionRig rig("<a>");
    auto const s = rig.make(rig.option("127.0.0.1", "1"));
    s->open();
    EXPECT_TRUE(
        log.inOrder({"<a> open session\n", "<a> start timer\n", "started timer timer",
                     "thead started. {sender.0", "<a> start receiver\n", "thead started. {receiver"}));
    EXPECT_EQ(s->state(), 0);
}

TEST(SessionConnect, StepsAreLoggedInOrder) {
    LogCapture log;
    TlsPeer peer;
    SessionRig rig("<a>");
    std::unique_ptr<TlsConnection> server;
    rig.connect(peer, server);
    std::string const address = "127.0.0.1:" + peer.portText();
    EXPECT_TRUE(log.inOrder({"<a> connect \n", "<a> try connect\n", "<a> context_->should_verify() 0\n",
                             "<a> resolving " + address + "\n", "<a> connecting to " + address + "\n",
                             "<a> connected, start client handshake...\n", "<a> handshake ok...\n",
                             " channel open ok"}));
    EXPECT_EQ(log.find(" try connect").level, tavLogger::VERBOSE);
    for (char const * text : {" resolving ", " connecting to ", " handshake ok..."}) {
        EXPECT_EQ(log.find(text).level, tavLogger::INFO) << text;
    }
    EXPECT_EQ(peer.connections(), 1u);
    EXPECT_EQ(server->protocol(), "TLSv1.2");
}

TEST(SessionConnect, StatesFollowTheSteps) {
    TlsPeer peer;
    SessionRig rig;
    Gate gate;
    rig.context()->post([&] { gate.pass(); });
    ASSERT_TRUE(gate.waitArrived());
    auto const s = rig.start(rig.option(peer));
    EXPECT_EQ(s->state(), 1);
    gate.open();
    auto const server = peer.accept();
    EXPECT_TRUE(eventually([&] { return s->state() == 2; }));
    EXPECT_FALSE(s->connected());
    ASSERT_TRUE(server->handshake());
    EXPECT_TRUE(eventually([&] { return s->state() == 3; }));
    EXPECT_TRUE(s->connected());
    EXPECT_FALSE(s->closing());
}

TEST(SessionConnect, SecondConnectDoesNothing) {
    TlsPeer peer;
    SessionRig rig;
    auto const s = rig.start(rig.option(peer));
    s->connect();
    auto const server = peer.accept();
    ASSERT_TRUE(server->handshake());
    ASSERT_TRUE(rig.events.wait(1));
    s->connect();
    rig.settle();
    EXPECT_TRUE(s->connected());
    EXPECT_FALSE(peer.pending(0));
}

TEST(SessionConnect, OpenIsToldOnTheIoThreadWhenConnected) {
    TlsPeer peer;
    SessionRig rig;
    std::atomic<int> state{-1};
    std::atomic<bool> on_io{false};
    session * made = nullptr;
    tav::tls::connect_option option = rig.option(peer);
    option.set_on_open([&] {
        state = made->state();
        on_io = rig.context()->runs_here();
        rig.events.add("open");
    });
    auto const s = rig.make(option);
    made = s.get();
    s->open();
    s->connect();
    auto const server = peer.accept();
    ASSERT_TRUE(server->handshake());
    ASSERT_TRUE(rig.events.wait(1));
    EXPECT_EQ(state, 3);
    EXPECT_TRUE(on_io);
}

TEST(SessionConnect, ExceptionOfOnOpenLeavesTheSessionAsItIs) {
    TlsPeer peer;
    SessionRig rig;
    tav::tls::connect_option option = rig.option(peer);
    option.set_on_open([] { throw std::runtime_error("from on_open"); });
    auto const s = rig.start(option);
    auto const server = peer.accept();
    ASSERT_TRUE(server->handshake());
    ASSERT_TRUE(rig.exceptions.wait(1));
    EXPECT_EQ(rig.exceptions.all().front(), "from on_open");
    EXPECT_TRUE(s->connected());
    server->send(frame("x"));
    EXPECT_TRUE(rig.bodies.wait(1));
    EXPECT_TRUE(s->send_raw(nullptr, 0));
    EXPECT_EQ(server->receiveFrame(), "");
}

TEST(SessionConnect, FailedResolveIsToldAndKeepsTheState) {
    LogCapture log;
    SessionRig rig("<a>");
    rig.freeze();
    tav::tls::connect_option option = rig.option("127.0.0.1", "no-such-service");
    option.timedout = tav::tls::timedout_option(
        1000, [&](unsigned long long, unsigned short, bool) { rig.events.add("timedout"); });
    auto const s = rig.startBare(option);
    ASSERT_TRUE(rig.events.wait(1));
    EXPECT_EQ(rig.last_error_sno, all_ones);
    EXPECT_EQ(rig.last_error_msgcode, 0xffffu);
    EXPECT_GT(rig.last_error_code, 0);
    std::string const reason = rig.events.all()[0].substr(6);
    EXPECT_EQ(log.count("<a> resolve failed " + reason + " for 127.0.0.1:no-such-service\n"), 1u);
    EXPECT_EQ(log.find(" resolve failed ").level, tavLogger::ERROR);
    EXPECT_EQ(s->state(), 1);
    EXPECT_FALSE(log.contains(" on std::error_code "));

    rig.advance(2000);
    s->on_timer(false);
    EXPECT_EQ(rig.events.all()[1], "timedout") << "a failed resolve is told twice when there is a limit";
    EXPECT_EQ(s->state(), 1);
}

TEST(SessionConnect, RefusedConnectionIsAnError) {
    LogCapture log;
    SessionRig rig("<a>");
    auto const s = rig.start(rig.option("127.0.0.1", deadPort()));
    ASSERT_TRUE(rig.events.wait(1));
    EXPECT_EQ(rig.events.all()[0], "error Connection refused");
    EXPECT_EQ(rig.last_error_code, ECONNREFUSED);
    EXPECT_EQ(rig.last_error_sno, all_ones);
    EXPECT_EQ(rig.last_error_msgcode, 0xffffu);
    EXPECT_EQ(s->state(), 5);
    EXPECT_TRUE(log.inOrder({"<a> Connect failed: Connection refused\n",
                             "<a> on std::error_code asio.system:111\n", "<a> cancel session\n",
                             "<a> try passive close\n", "<a> passive closing...\n", "<a> socket closing...\n",
                             "<a> socket closed.\n", "<a> global level on error asio.system:111\n"}));
    EXPECT_EQ(log.find(" Connect failed: ").level, tavLogger::ERROR);
    EXPECT_EQ(log.find(" on std::error_code ").level, tavLogger::INFO);
    EXPECT_EQ(log.find("<a> global level on error ").level, tavLogger::VERBOSE);
    EXPECT_EQ(log.find(" try passive close").level, tavLogger::VERBOSE);
    EXPECT_EQ(log.find(" passive closing...").level, tavLogger::INFO);
}

TEST(SessionConnect, EndpointsAreTriedInTurn) {
    TlsPeer peer;
    SessionRig rig;
    auto const s = rig.start(rig.option("localhost", peer.portText()));
    auto const server = peer.accept();
    ASSERT_TRUE(server->handshake());
    EXPECT_TRUE(rig.events.wait(1));
    EXPECT_TRUE(s->connected());
}

TEST(SessionConnect, BadHandshakeIsAnError) {
    LogCapture log;
    TlsPeer peer;
    SessionRig rig("<a>");
    auto const s = rig.start(rig.option(peer));
    auto const server = peer.accept();
    server->sendPlain("HTTP/1.0 400 this is no TLS\r\n\r\n");
    ASSERT_TRUE(rig.events.wait(1));
    EXPECT_EQ(rig.events.all()[0].substr(0, 6), "error ");
    EXPECT_EQ(s->state(), 5);
    EXPECT_TRUE(log.inOrder({"<a> Handshake failed: ", "<a> on std::error_code ", "<a> passive closing..."}));
    EXPECT_EQ(log.find(" Handshake failed: ").level, tavLogger::ERROR);
}

TEST(SessionConnect, PeerThatHangsUpDuringTheHandshakeIsAnError) {
    TlsPeer peer;
    SessionRig rig;
    auto const s = rig.start(rig.option(peer));
    peer.accept()->close();
    ASSERT_TRUE(rig.events.wait(1));
    EXPECT_EQ(rig.events.all()[0].substr(0, 6), "error ");
    EXPECT_EQ(s->state(), 5);
}

TEST(SessionConnect, NewerProtocolAloneIsRefused) {
    TlsPeer peer(TlsIdentity::ecdsa(), "", TLS1_3_VERSION);
    SessionRig rig;
    rig.start(rig.option(peer));
    EXPECT_FALSE(peer.accept()->handshake());
    ASSERT_TRUE(rig.events.wait(1));
    EXPECT_EQ(rig.events.all()[0].substr(0, 6), "error ");
}

TEST(SessionConnect, CloseDuringTheHandshakeIsSilent) {
    LogCapture log;
    TlsPeer peer;
    SessionRig rig;
    auto const s = rig.start(rig.option(peer));
    auto const server = peer.accept();
    ASSERT_TRUE(eventually([&] { return s->state() == 2; }));
    s->close();
    EXPECT_EQ(s->state(), 5);
    EXPECT_TRUE(server->waitClosed());
    rig.settle();
    EXPECT_FALSE(log.contains(" Handshake failed: "));
    EXPECT_FALSE(log.contains(" on std::error_code "));
    EXPECT_EQ(rig.events.count(), 0u);
}

TEST(SessionConnect, CloseBeforeTheResolveEndsIsSilent) {
    LogCapture log;
    TlsPeer peer;
    SessionRig rig;
    Gate gate;
    rig.context()->post([&] { gate.pass(); });
    ASSERT_TRUE(gate.waitArrived());
    auto const s = rig.start(rig.option(peer));
    s->close();
    EXPECT_EQ(s->state(), 5);
    gate.open();
    rig.settle();
    EXPECT_FALSE(log.contains(" connecting to "));
    EXPECT_FALSE(peer.pending(50));
    EXPECT_EQ(rig.events.count(), 0u);
    EXPECT_EQ(s->state(), 5);
}

TEST(SessionConnect, CancelDoesNotStopTheAttempt) {
    TlsPeer peer;
    SessionRig rig;
    auto const s = rig.start(rig.option(peer));
    auto const server = peer.accept();
    s->cancel_all();
    ASSERT_TRUE(server->handshake());
    ASSERT_TRUE(rig.events.wait(1));
    EXPECT_EQ(rig.events.all()[0], "open");
    EXPECT_EQ(s->state(), 3);
    EXPECT_FALSE(s->connected()) << "a cancelled session sends nothing";
}

TEST(SessionConnect, DefaultCiphersPreferPlainRsa) {
    TlsPeer peer(TlsIdentity::rsa());
    SessionRig rig;
    std::unique_ptr<TlsConnection> server;
    rig.connect(peer, server);
    EXPECT_EQ(server->cipher(), "AES256-GCM-SHA384");
}

TEST(SessionConnect, GivenCiphersAreUsedForTheConnection) {
    TlsPeer peer(TlsIdentity::rsa());
    SessionRig rig;
    std::unique_ptr<TlsConnection> server;
    tav::tls::connect_option option = rig.option(peer);
    option.cipher = "ECDHE-RSA-AES128-GCM-SHA256";
    rig.connect(peer, server, option);
    EXPECT_EQ(server->cipher(), "ECDHE-RSA-AES128-GCM-SHA256");

    std::unique_ptr<TlsConnection> second;
    rig.connect(peer, second);
    EXPECT_EQ(second->cipher(), "AES256-GCM-SHA384") << "the list is set on every connect";
}

TEST(SessionConnect, UnknownCiphersFallBackToTheContexts) {
    TlsPeer peer(TlsIdentity::rsa());
    SessionRig rig;
    std::unique_ptr<TlsConnection> server;
    tav::tls::connect_option option = rig.option(peer);
    option.cipher = "NO-SUCH-SUITE";
    rig.connect(peer, server, option);
    EXPECT_EQ(server->cipher(), "AES256-GCM-SHA384");

    option.cipher = "AES128-GCM-SHA256";
    rig.connect(peer, server, option);
    option.cipher = "NEITHER-THIS";
    rig.connect(peer, server, option);
    EXPECT_EQ(server->cipher(), "AES128-GCM-SHA256");
}

TEST(SessionConnect, ServerNameIsSentOnlyIfThereIsOne) {
    TlsPeer peer;
    SessionRig rig;
    std::unique_ptr<TlsConnection> server;
    tav::tls::connect_option option = rig.option(peer);
    option.server_name = "im.example.org";
    rig.connect(peer, server, option);
    EXPECT_EQ(server->serverName(), "im.example.org");
    std::unique_ptr<TlsConnection> second;
    rig.connect(peer, second);
    EXPECT_EQ(second->serverName(), "");
}

TEST(SessionConnect, SocketDelaysNothing) {
    TlsPeer peer;
    SessionRig rig;
    std::unique_ptr<TlsConnection> server;
    auto const s = rig.connect(peer, server);
    bool no_delay = false;
    rig.onIoThread([&] {
        asio::ip::tcp::no_delay option;
        s->socket().lowest_layer().get_option(option);
        no_delay = option.value();
    });
    EXPECT_TRUE(no_delay);
}

TEST(SessionConnect, EndpointsAreReadWhileTheSocketIsOpen) {
    TlsPeer peer;
    SessionRig rig;
    std::unique_ptr<TlsConnection> server;
    auto const s = rig.connect(peer, server);
    EXPECT_EQ(s->socket().remote_addr().host, "127.0.0.1");
    EXPECT_EQ(s->socket().remote_addr().port, peer.portText());
    EXPECT_EQ(s->socket().local_addr().host, "127.0.0.1");
    std::error_code ec;
    EXPECT_EQ(s->socket().local_addr(ec).port, s->socket().local_addr().port);
    EXPECT_FALSE(ec);
    s->close();
    rig.settle();
    EXPECT_TRUE(s->socket().remote_addr(ec).empty());
    EXPECT_TRUE(ec);
    EXPECT_TRUE(s->socket().local_addr(ec).empty());
    try {
        s->socket().local_addr();
        ADD_FAILURE() << "an address of a closed socket";
    } catch (std::system_error const & e) {
        EXPECT_EQ(std::string(e.what()).find("local_endpoint"), 0u) << e.what();
    }
    try {
        s->socket().remote_addr();
        ADD_FAILURE() << "an address of a closed socket";
    } catch (std::system_error const & e) {
        EXPECT_EQ(std::string(e.what()).find("remote_endpoint"), 0u) << e.what();
    }
}

TEST(SessionConnectProxy, TunnelIsMadeBeforeTheHandshake) {
    LogCapture log;
    TlsPeer peer;
    SessionRig rig("<a>");
    tav::tls::connect_option option = rig.option("real.example.org", "7000");
    option.proxy_host = "127.0.0.1";
    option.proxy_port = peer.portText();
    std::atomic<bool> blocking{false};
    std::atomic<bool> on_io{false};
    std::string host;
    unsigned short port = 0;
    option.set_on_http_proxy_connect([&](unsigned int socket, char const * to, unsigned short at) {
        int const fd = static_cast<int>(socket);
        blocking = (::fcntl(fd, F_GETFL) & O_NONBLOCK) == 0;
        on_io = rig.context()->runs_here();
        host = to;
        port = at;
        ::send(fd, "CONNECT\n", 8, MSG_NOSIGNAL);
        char answer[3] = {};
        return ::recv(fd, answer, 3, MSG_WAITALL) == 3 && std::string(answer, 3) == "OK\n" ? 0 : 1;
    });
    auto const s = rig.start(option);
    auto const server = peer.accept();
    EXPECT_EQ(server->receivePlainUntil("\n"), "CONNECT\n");
    EXPECT_EQ(s->state(), 1);
    server->sendPlain("OK\n");
    ASSERT_TRUE(server->handshake());
    ASSERT_TRUE(rig.events.wait(1));
    EXPECT_TRUE(s->connected());
    EXPECT_TRUE(blocking);
    EXPECT_TRUE(on_io);
    EXPECT_EQ(host, "real.example.org");
    EXPECT_EQ(port, 7000);
    bool non_blocking = false;
    rig.onIoThread([&] {
        non_blocking = (::fcntl(s->socket().lowest_layer().native_handle(), F_GETFL) & O_NONBLOCK) != 0;
    });
    EXPECT_TRUE(non_blocking);
    EXPECT_TRUE(log.inOrder({"<a> resolving 127.0.0.1:" + peer.portText(), "<a> http proxy connect \n",
                             "http proxy tcp connected, connecting real server ",
                             "<a> http proxy connect ok\n", "<a> connected, start client handshake...\n"}));
    EXPECT_EQ(log.find(" http proxy connect \n").level, tavLogger::INFO);
    EXPECT_EQ(log.find(" http proxy connect ok").level, tavLogger::INFO);
}

TEST(SessionConnectProxy, RefusalIsSilentAndLeavesTheSocketOpen) {
    LogCapture log;
    TlsPeer peer;
    SessionRig rig("<a>");
    rig.freeze();
    tav::tls::connect_option option = rig.option("real.example.org", "443");
    option.proxy_host = "127.0.0.1";
    option.proxy_port = peer.portText();
    option.set_on_http_proxy_connect([](unsigned int, char const *, unsigned short) { return 407; });
    option.timedout = tav::tls::timedout_option(
        500, [&](unsigned long long, unsigned short, bool) { rig.events.add("timedout"); });
    auto const s = rig.startBare(option);
    auto const server = peer.accept();
    ASSERT_TRUE(log.waitFor(" http proxy connect error "));
    EXPECT_EQ(log.find(" http proxy connect error ").level, tavLogger::ERROR);
    rig.settle();
    EXPECT_EQ(s->state(), 1);
    EXPECT_EQ(rig.events.count(), 0u);
    EXPECT_TRUE(server->quiet(0)) << "neither a handshake nor an end";
    rig.advance(1000);
    s->on_timer(false);
    EXPECT_EQ(rig.events.all(), std::vector<std::string>{"timedout"});
}

TEST(SessionConnectProxy, CloseEndsABlockedTunnel) {
    TlsPeer peer;
    SessionRig rig;
    tav::tls::connect_option option = rig.option("real.example.org", "443");
    option.proxy_host = "127.0.0.1";
    option.proxy_port = peer.portText();
    Gate inside;
    inside.open();
    option.set_on_http_proxy_connect([&](unsigned int socket, char const *, unsigned short) {
        inside.pass();
        char c = 0;
        ::recv(static_cast<int>(socket), &c, 1, 0);
        rig.events.add("tunnel ended");
        return 0;
    });
    auto const s = rig.start(option);
    auto const server = peer.accept();
    ASSERT_TRUE(inside.waitArrived());
    s->close();
    ASSERT_TRUE(rig.events.wait(1));
    rig.settle();
    EXPECT_EQ(s->state(), 5);
    EXPECT_EQ(rig.events.all(), std::vector<std::string>{"tunnel ended"});
    EXPECT_TRUE(server->waitClosed());
}
