#include "client/vinta_tls_client_impl_session.h"

#include "support/log_capture.h"
#include "support/session_rig.h"
#include "support/tls_peer.h"

#include <gtest/gtest.h>

#include <csignal>

using namespace tav_test;
using impl::session;

namespace {

constexpr unsigned long long all_ones = ~0ull;

/// Counts SIGPIPE while it lives.
class PipeSignals {
public:
    PipeSignals() {
        count() = 0;
        before_ = std::signal(SIGPIPE, [](int) { ++count(); });
    }
    ~PipeSignals() { std::signal(SIGPIPE, before_); }
    static std::atomic<int> & count() {
        static std::atomic<int> the{0};
        return the;
    }

private:
    void (*before_)(int);
};

} // namespace

TEST(SessionClose, CreatedSessionHasNoSocketToClose) {
    LogCapture log;
    SessionRig rig("<a>");
    auto const s = rig.make(rig.option("127.0.0.1", "1"));
    s->close();
    EXPECT_TRUE(log.inOrder(
        {"<a> close session\n", "<a> close timer\n", "<a> try active close\n", "<a> cancel session\n"}));
    EXPECT_EQ(log.find(" try active close").level, tavLogger::VERBOSE);
    EXPECT_FALSE(log.contains(" active closing..."));
    EXPECT_FALSE(log.contains(" socket closing..."));
    EXPECT_EQ(s->state(), 0);
    EXPECT_TRUE(s->closing());
    EXPECT_FALSE(s->passive_close());
    EXPECT_TRUE(log.contains("<a> try passive close\n"));
    EXPECT_FALSE(log.contains(" passive closing..."));
}

TEST(SessionClose, ConnectedSessionClosesInOrder) {
    LogCapture log;
    TlsPeer peer;
    SessionRig rig("<a>");
    std::unique_ptr<TlsConnection> server;
    auto const s = rig.connect(peer, server);
    log.clear();
    s->close();
    EXPECT_EQ(s->state(), 5);
    EXPECT_FALSE(s->connected());
    EXPECT_TRUE(log.inOrder({"<a> close session\n", "thead closing... {receiver",
                             "thead break running {sender.0", "<a> close timer\n", "thead closing... {timer",
                             "<a> try active close\n", "<a> active closing...\n", "<a> socket closing...\n",
                             "<a> socket closed.\n", "<a> cancel session\n"}));
    EXPECT_EQ(log.find(" active closing...").level, tavLogger::INFO);
    EXPECT_EQ(log.find(" socket closing...").level, tavLogger::DEBUG);
    EXPECT_EQ(log.find(" socket closed.").level, tavLogger::INFO);
    EXPECT_TRUE(server->waitClosed());
}

TEST(SessionClose, ActiveCloseTellsTheApplicationNothing) {
    LogCapture log;
    TlsPeer peer;
    SessionRig rig("<a>");
    std::unique_ptr<TlsConnection> server;
    auto const s = rig.connect(peer, server);
    s->active_close();
    ASSERT_TRUE(log.waitFor("<a> Read header failed: "));
    ASSERT_TRUE(log.waitFor("<a> on std::error_code "));
    rig.settle();
    EXPECT_EQ(rig.events.all(), std::vector<std::string>{"open"});
    EXPECT_FALSE(log.contains(" global level on error "));
    EXPECT_EQ(s->state(), 5);
    s->active_close();
    EXPECT_EQ(log.count(" active closing..."), 1u);
}

TEST(SessionClose, PassiveCloseClosesOnceAndTellsNothing) {
    LogCapture log;
    TlsPeer peer;
    SessionRig rig("<a>");
    std::unique_ptr<TlsConnection> server;
    auto const s = rig.connect(peer, server);
    EXPECT_TRUE(s->passive_close());
    EXPECT_FALSE(s->passive_close());
    ASSERT_TRUE(log.waitFor("<a> on std::error_code "));
    rig.settle();
    EXPECT_EQ(rig.events.all(), std::vector<std::string>{"open"});
    EXPECT_EQ(log.count(" passive closing..."), 1u);
    EXPECT_EQ(log.count(" socket closing..."), 1u);
}

TEST(SessionClose, DisconnectIsAnActiveClose) {
    LogCapture log;
    TlsPeer peer;
    SessionRig rig("<a>");
    std::unique_ptr<TlsConnection> server;
    auto const s = rig.connect(peer, server);
    s->disconnect();
    EXPECT_TRUE(log.inOrder({"<a> disconnect\n", "<a> try active close\n", "<a> active closing...\n"}));
    EXPECT_EQ(s->state(), 5);
}

TEST(SessionClose, NoTlsNoticeIsSent) {
    TlsPeer peer;
    SessionRig rig;
    std::unique_ptr<TlsConnection> server;
    auto const s = rig.connect(peer, server);
    s->close();
    EXPECT_EQ(server->receive(1), "");
    EXPECT_FALSE(server->noticed());
}

TEST(SessionClose, EndOfThePeerIsAnError) {
    LogCapture log;
    TlsPeer peer;
    SessionRig rig("<a>");
    std::unique_ptr<TlsConnection> server;
    auto const s = rig.connect(peer, server);
    server->close();
    ASSERT_TRUE(rig.events.wait(2));
    EXPECT_EQ(rig.events.all()[1].substr(0, 6), "error ");
    EXPECT_EQ(rig.last_error_sno, all_ones);
    EXPECT_EQ(rig.last_error_msgcode, 0xffffu);
    EXPECT_GT(rig.last_error_code, 0);
    EXPECT_EQ(s->state(), 5);
    EXPECT_TRUE(s->closing());
    EXPECT_TRUE(log.inOrder({"<a> Read header failed: ", "<a> on std::error_code ", "<a> cancel session\n",
                             "<a> try passive close\n", "<a> passive closing...\n", "<a> socket closed.\n",
                             "<a> global level on error ", "global level on error "}));
    EXPECT_EQ(log.find(" Read header failed: ").level, tavLogger::ERROR);
}

TEST(SessionClose, ResetOfThePeerIsAnError) {
    TlsPeer peer;
    SessionRig rig;
    std::unique_ptr<TlsConnection> server;
    auto const s = rig.connect(peer, server);
    server->reset();
    ASSERT_TRUE(rig.events.wait(2));
    EXPECT_EQ(rig.events.all()[1], "error Connection reset by peer");
    EXPECT_EQ(rig.last_error_code, ECONNRESET);
    EXPECT_EQ(s->state(), 5);
}

TEST(SessionClose, SendingIntoADeadConnectionRaisesNoSignal) {
    PipeSignals signals;
    TlsPeer peer;
    SessionRig rig;
    std::unique_ptr<TlsConnection> server;
    auto const s = rig.connect(peer, server);
    Gate gate;
    rig.context()->post([&] { gate.pass(); });
    ASSERT_TRUE(gate.waitArrived());
    std::string const body(4000000, 'x');
    s->send_raw(reinterpret_cast<unsigned char const *>(body.data()), static_cast<unsigned>(body.size()));
    s->send_raw(reinterpret_cast<unsigned char const *>(body.data()), static_cast<unsigned>(body.size()));
    server->reset();
    gate.open();
    ASSERT_TRUE(rig.events.wait(2));
    rig.settle();
    EXPECT_EQ(rig.events.count(), 2u);
    EXPECT_EQ(PipeSignals::count(), 0);
}

TEST(SessionClose, ForeignThreadNeedNotWaitForTheIoThread) {
    TlsPeer peer;
    SessionRig rig;
    std::unique_ptr<TlsConnection> server;
    auto const s = rig.connect(peer, server);
    Gate gate;
    rig.context()->post([&] { gate.pass(); });
    ASSERT_TRUE(gate.waitArrived());
    s->active_close();
    EXPECT_EQ(s->state(), 5);
    EXPECT_TRUE(server->waitClosed()) << "the socket fails at once";
    EXPECT_TRUE(s->socket().lowest_layer().is_open()) << "the descriptor is closed by the I/O thread alone";
    gate.open();
    rig.settle();
    EXPECT_FALSE(s->socket().lowest_layer().is_open());
}

TEST(SessionClose, IoThreadClosesAtOnce) {
    TlsPeer peer;
    SessionRig rig;
    std::unique_ptr<TlsConnection> server;
    auto const s = rig.connect(peer, server);
    bool open = true;
    rig.onIoThread([&] {
        s->active_close();
        open = s->socket().lowest_layer().is_open();
    });
    EXPECT_FALSE(open);
    EXPECT_TRUE(server->waitClosed());
}

TEST(SessionClose, FailedCloseThrowsAndKeepsTheState) {
    LogCapture log;
    TlsPeer peer;
    SessionRig rig("<a>");
    std::unique_ptr<TlsConnection> server;
    auto const s = rig.connect(peer, server);
    std::string thrown;
    rig.onIoThread([&] {
        ::close(s->socket().lowest_layer().native_handle());
        try {
            s->active_close();
        } catch (std::system_error const & e) {
            thrown = e.what();
        }
    });
    EXPECT_EQ(thrown.find("close"), 0u) << thrown;
    EXPECT_EQ(s->state(), 4);
    EXPECT_FALSE(log.contains(" socket closed."));
}

TEST(SessionClose, ErrorInStateFourOfAnActiveCloseEndsThere) {
    LogCapture log;
    TlsPeer peer;
    SessionRig rig("<a>");
    std::unique_ptr<TlsConnection> server;
    auto const s = rig.connect(peer, server);
    rig.onIoThread([&] {
        ::close(s->socket().lowest_layer().native_handle());
        EXPECT_THROW(s->active_close(), std::system_error);
    });
    ASSERT_TRUE(log.waitFor("<a> on std::error_code "));
    rig.settle();
    EXPECT_FALSE(log.contains(" try passive close"));
    EXPECT_EQ(s->state(), 4);
    EXPECT_EQ(rig.events.count(), 1u);
}

TEST(SessionClose, SecondCloseDoesNoHarm) {
    TlsPeer peer;
    SessionRig rig;
    std::unique_ptr<TlsConnection> server;
    auto const s = rig.connect(peer, server);
    s->close();
    s->close();
    EXPECT_EQ(s->state(), 5);
}

TEST(SessionClose, ClosedSessionIsFreedWithItsLastUser) {
    LogCapture log;
    TlsPeer peer;
    SessionRig rig("<a>");
    std::unique_ptr<TlsConnection> server;
    {
        auto s = rig.connect(peer, server);
        s->close();
        rig.forget(s);
    }
    EXPECT_TRUE(log.waitFor("<a> session destruct"));
}

TEST(SessionClose, NothingIsLeftWhenTheIoThreadEndsFirst) {
    LogCapture log;
    TlsPeer peer;
    std::unique_ptr<TlsConnection> server;
    {
        SessionRig rig("<a>");
        rig.connect(peer, server);
        rig.stop();
        EXPECT_TRUE(log.contains("<a> session destruct"));
        EXPECT_FALSE(log.contains("<a> context destruct"));
    }
    EXPECT_TRUE(log.contains("<a> context destruct"));
}

TEST(SessionClose, CloseAfterTheIoThreadsEndClosesTheSocketItself) {
    TlsPeer peer;
    std::unique_ptr<TlsConnection> server;
    SessionRig rig;
    auto const s = rig.connect(peer, server);
    rig.context()->close();
    ASSERT_TRUE(eventually([&] { return !rig.context()->post([] {}); }));
    EXPECT_TRUE(s->socket().lowest_layer().is_open());
    s->close();
    EXPECT_FALSE(s->socket().lowest_layer().is_open());
    EXPECT_TRUE(server->waitClosed());
    // What still waits in the I/O context holds the session; one more run lets it go.
    rig.context()->run();
}

TEST(SessionClose, WaitingFramesAreHandledOnTheClosingThread) {
    LogCapture log;
    TlsPeer peer;
    SessionRig rig("<a>");
    std::unique_ptr<TlsConnection> server;
    Gate gate;
    std::mutex mutex;
    std::vector<std::thread::id> threads;
    rig.on_body = [&](std::string const & body) {
        if (body == "1") {
            gate.pass();
        }
        std::lock_guard<std::mutex> const guard(mutex);
        threads.push_back(std::this_thread::get_id());
    };
    auto const s = rig.connect(peer, server);
    server->send(frame("1"));
    ASSERT_TRUE(gate.waitArrived());
    server->send(frame("2") + frame("3"));
    ASSERT_TRUE(log.waitFor(" received 1 bytes, queued 1 msgs."));
    rig.settle();
    log.clear();
    std::thread closer([&] { s->close(); });
    std::thread::id const closing = closer.get_id();
    ASSERT_TRUE(log.waitFor("thead on_stop {receiver"));
    gate.open();
    closer.join();
    EXPECT_EQ(rig.bodies.all(), (std::vector<std::string>{"1", "2", "3"}));
    ASSERT_EQ(threads.size(), 3u);
    EXPECT_NE(threads[0], closing);
    EXPECT_EQ(threads[1], closing);
    EXPECT_EQ(threads[2], closing);
}

TEST(SessionClose, FramesThatComeWhenTheReceiverIsGoneAreDropped) {
    TlsPeer peer;
    SessionRig rig;
    std::unique_ptr<TlsConnection> server;
    Gate gate;
    tav::tls::connect_option option = rig.option(peer);
    auto const s = rig.connect(peer, server, option);
    // A time-out function that does not return holds up the end of "timer", which comes after "receiver".
    rig.freeze();
    tavSharedPtr<tav::im::Packet> const pkt = tav::im::Packet::create(true, 4);
    auto const info =
        s->send_pkt(pkt, tav::tls::send_option(
                             1, [&](unsigned long long, unsigned short, bool) { gate.pass(); }, false, 4));
    ASSERT_TRUE(info);
    ASSERT_TRUE(eventually([&] { return s->sends().size() == 1; }));
    rig.advance(1000);
    ASSERT_TRUE(gate.waitArrived());
    LogCapture log;
    std::thread closer([&] { s->close(); });
    ASSERT_TRUE(log.waitFor(" close timer"));
    server->send(frame("late"));
    EXPECT_TRUE(log.waitFor(" dropped 4 bytes that came during the close\n"));
    gate.open();
    closer.join();
    EXPECT_EQ(rig.bodies.count(), 0u);
}

TEST(SessionClose, MayBeCalledOnTheReceiver) {
    TlsPeer peer;
    SessionRig rig;
    std::unique_ptr<TlsConnection> server;
    tavSharedPtr<session> s;
    std::atomic<bool> own{false};
    rig.on_body = [&](std::string const & body) {
        if (body == "close") {
            own = s->on_own_thread();
            s->close();
        }
    };
    s = rig.connect(peer, server);
    EXPECT_FALSE(s->on_own_thread());
    server->send(frame("close"));
    ASSERT_TRUE(rig.bodies.wait(1));
    EXPECT_TRUE(own);
    EXPECT_EQ(s->state(), 5);
    EXPECT_TRUE(server->waitClosed());
}

TEST(SessionClose, MayBeCalledOnTheTimer) {
    TlsPeer peer;
    SessionRig rig;
    std::unique_ptr<TlsConnection> server;
    tavSharedPtr<session> s;
    std::atomic<bool> own{false};
    tav::tls::connect_option option = rig.option(peer);
    option.set_on_heartbeat_timedout([&] {
        own = s->on_own_thread();
        s->close();
        rig.events.add("closed");
    });
    s = rig.connect(peer, server, option);
    s->check_heartbeat(true);
    rig.freeze();
    rig.advance(90001);
    ASSERT_TRUE(rig.events.wait(2));
    EXPECT_EQ(rig.events.all()[1], "closed");
    EXPECT_TRUE(own);
    EXPECT_EQ(s->state(), 5);
}

TEST(SessionClose, CancelLeavesTheSocketOpenAndReading) {
    TlsPeer peer;
    SessionRig rig;
    std::unique_ptr<TlsConnection> server;
    auto const s = rig.connect(peer, server);
    s->cancel_all();
    EXPECT_FALSE(s->connected());
    EXPECT_TRUE(s->closing());
    EXPECT_EQ(s->state(), 3);
    EXPECT_FALSE(s->send_raw(nullptr, 0));
    server->send(frame("still here"));
    ASSERT_TRUE(rig.bodies.wait(1));
    EXPECT_EQ(rig.bodies.all()[0], "still here");
}

TEST(SessionClose, ManyThreadsCloseOnce) {
    LogCapture log;
    TlsPeer peer;
    SessionRig rig("<a>");
    std::unique_ptr<TlsConnection> server;
    auto const s = rig.connect(peer, server);
    std::atomic<int> closed{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] { closed += s->passive_close() ? 1 : 0; });
    }
    for (std::thread & each : threads) {
        each.join();
    }
    EXPECT_EQ(closed, 1);
    EXPECT_EQ(log.count(" socket closing..."), 1u);
}
