#include "client/vinta_tls_client_impl_session.h"

#include "foundation/platform.h"
#include "support/log_capture.h"
#include "support/session_rig.h"
#include "support/tls_peer.h"

#include <gtest/gtest.h>

using namespace tav_test;
using impl::session;

namespace {

constexpr unsigned long long all_ones = ~0ull;
std::string const heartbeat(4, '\0');

/// A connected session whose ticks and time are the test's.
class Beating {
public:
    Beating() {
        rig.freeze();
        s = rig.connectBare(peer, server);
        // The handshake took no time of this clock.
        s->check_heartbeat(true);
    }
    /// A tick `ms` later, with all that follows from it.
    void tickAfter(long long ms) {
        rig.advance(ms);
        s->on_timer(false);
        finish();
    }
    /// A write ends in a chain of completions, each of which is posted by the one before it.
    void finish() {
        for (int i = 0; i < 5; ++i) {
            rig.settle();
        }
    }

    /// Waits until the session has taken all that the far end has sent.
    void take() {
        std::size_t left = 1;
        ASSERT_TRUE(eventually([&] {
            rig.onIoThread([&] { left = s->socket().lowest_layer().available(); });
            return left == 0;
        }));
        finish();
    }

    TlsPeer peer;
    std::unique_ptr<TlsConnection> server;
    SessionRig rig{"<a>"};
    tavSharedPtr<session> s;
};

/// An option whose time-out is recorded with its arguments.
tav::tls::connect_option limited(SessionRig & rig, TlsPeer const & peer, int wait_ms) {
    tav::tls::connect_option option = rig.option(peer);
    option.timedout = tav::tls::timedout_option(
        wait_ms, [&rig](unsigned long long sno, unsigned short msgcode, bool cancelled) {
            rig.events.add("timedout " + std::to_string(sno == all_ones) + std::to_string(msgcode) +
                           (cancelled ? " cancelled" : ""));
        });
    return option;
}

} // namespace

TEST(SessionTimerConnectTimeout, FiresOnceAndClosesNothing) {
    LogCapture log;
    TlsPeer peer;
    SessionRig rig("<a>");
    rig.freeze();
    auto const s = rig.startBare(limited(rig, peer, 1000));
    auto const server = peer.accept();
    ASSERT_TRUE(eventually([&] { return s->state() == 2; }));
    rig.advance(995);
    s->on_timer(false);
    EXPECT_EQ(rig.events.count(), 0u);
    rig.advance(1);
    s->on_timer(false);
    EXPECT_EQ(rig.events.all(), std::vector<std::string>{"timedout 165535"});
    EXPECT_EQ(log.count("<a> connect timed out 996ms\n"), 1u);
    EXPECT_EQ(log.find(" connect timed out ").level, tavLogger::INFO);
    rig.advance(5000);
    s->on_timer(false);
    EXPECT_EQ(rig.events.count(), 1u);
    EXPECT_EQ(s->state(), 2);

    ASSERT_TRUE(server->handshake());
    ASSERT_TRUE(rig.events.wait(2));
    EXPECT_EQ(rig.events.all()[1], "open") << "the attempt goes on in the background";
    EXPECT_TRUE(s->connected());
}

TEST(SessionTimerConnectTimeout, CountsWhileTheAddressIsResolvedToo) {
    TlsPeer peer;
    SessionRig rig;
    rig.freeze();
    Gate gate;
    rig.context()->post([&] { gate.pass(); });
    ASSERT_TRUE(gate.waitArrived());
    auto const s = rig.startBare(limited(rig, peer, 1000));
    rig.advance(1000);
    s->on_timer(false);
    EXPECT_EQ(rig.events.count(), 1u);
    gate.open();
}

TEST(SessionTimerConnectTimeout, StartsWithTheConnectAndNotWithTheSession) {
    TlsPeer peer;
    SessionRig rig;
    rig.freeze();
    auto const s = rig.make(limited(rig, peer, 1000));
    rig.advance(5000);
    s->on_timer(false);
    EXPECT_EQ(rig.events.count(), 0u);
    s->connect();
    rig.advance(500);
    s->on_timer(false);
    EXPECT_EQ(rig.events.count(), 0u);
}

TEST(SessionTimerConnectTimeout, NoLimitNeverFires) {
    TlsPeer peer;
    SessionRig rig;
    rig.freeze();
    auto const s = rig.startBare(limited(rig, peer, 0));
    auto const server = peer.accept();
    rig.advance(100000000);
    s->on_timer(false);
    EXPECT_EQ(rig.events.count(), 0u);
}

TEST(SessionTimerConnectTimeout, ConnectedSessionHasNone) {
    TlsPeer peer;
    SessionRig rig;
    std::unique_ptr<TlsConnection> server;
    auto const s = rig.connect(peer, server, limited(rig, peer, 60000));
    rig.freeze();
    rig.advance(120000);
    s->on_timer(false);
    EXPECT_EQ(rig.events.all(), std::vector<std::string>{"open"});
}

TEST(SessionTimerConnectTimeout, IsTheTimersWork) {
    TlsPeer peer;
    SessionRig rig;
    tavSharedPtr<session> s;
    std::atomic<bool> own{false};
    tav::tls::connect_option option = rig.option(peer);
    option.timedout = tav::tls::timedout_option(1, [&](unsigned long long, unsigned short, bool) {
        own = s->on_own_thread();
        rig.events.add("timedout");
    });
    s = rig.make(option);
    s->open();
    s->connect();
    auto const server = peer.accept();
    ASSERT_TRUE(rig.events.wait(1));
    EXPECT_TRUE(own);
}

TEST(SessionTimerTick, StoppingDoesNothingAndGoesOn) {
    Beating b;
    b.rig.advance(100000);
    EXPECT_TRUE(b.s->on_timer(true));
    b.rig.settle();
    EXPECT_TRUE(b.server->quiet(0));
    EXPECT_EQ(b.rig.events.count(), 1u);
    EXPECT_TRUE(b.s->on_timer(false));
}

TEST(SessionTimerHeartbeat, LeavesStrictlyAfterThirtySeconds) {
    Beating b;
    b.tickAfter(30000);
    EXPECT_TRUE(b.server->quiet(0));
    b.tickAfter(1);
    EXPECT_EQ(b.server->receive(4), heartbeat);
}

TEST(SessionTimerHeartbeat, LeavesOnceAnInterval) {
    Beating b;
    b.tickAfter(30100);
    EXPECT_EQ(b.server->receive(4), heartbeat);
    b.tickAfter(100);
    b.tickAfter(29900);
    EXPECT_TRUE(b.server->quiet(0));
    b.tickAfter(1);
    EXPECT_EQ(b.server->receive(4), heartbeat);
}

TEST(SessionTimerHeartbeat, IsNotRepeatedWhileTheFirstStillWaits) {
    Beating b;
    Gate gate;
    b.rig.context()->post([&] { gate.pass(); });
    ASSERT_TRUE(gate.waitArrived());
    for (long long const ms : {30001, 100, 100}) {
        b.rig.advance(ms);
        b.s->on_timer(false);
    }
    gate.open();
    b.finish();
    EXPECT_EQ(b.server->receive(4), heartbeat);
    EXPECT_TRUE(b.server->quiet(0));
}

TEST(SessionTimerHeartbeat, CompletedWritePostponesIt) {
    Beating b;
    b.rig.advance(20000);
    unsigned char const byte = 'x';
    ASSERT_TRUE(b.s->send_raw(&byte, 1));
    EXPECT_EQ(b.server->receiveFrame(), "x");
    b.finish();
    b.tickAfter(30000);
    EXPECT_TRUE(b.server->quiet(0));
    b.tickAfter(1);
    EXPECT_EQ(b.server->receive(4), heartbeat);
}

TEST(SessionTimerHeartbeat, OffByDefault) {
    Beating b;
    b.s->check_heartbeat(false);
    b.tickAfter(10000000);
    EXPECT_TRUE(b.server->quiet(0));
    EXPECT_TRUE(b.s->connected());
    EXPECT_EQ(b.rig.events.count(), 1u);
}

TEST(SessionTimerHeartbeat, NoneBeforeTheConnection) {
    TlsPeer peer;
    SessionRig rig;
    rig.freeze();
    auto const s = rig.startBare(rig.option(peer));
    s->check_heartbeat(true);
    auto const server = peer.accept();
    rig.advance(1000000);
    s->on_timer(false);
    EXPECT_NE(s->state(), 5);
    EXPECT_EQ(rig.events.count(), 0u);
}

TEST(SessionTimerHeartbeatTimeout, ComesStrictlyAfterNinetySeconds) {
    LogCapture log;
    Beating b;
    b.tickAfter(90000);
    EXPECT_TRUE(b.s->connected());
    b.tickAfter(1);
    EXPECT_EQ(b.s->state(), 5);
    ASSERT_TRUE(log.waitFor("<a> on std::error_code "));
    b.rig.settle();
    EXPECT_EQ(b.rig.events.all(), (std::vector<std::string>{"open", "heartbeat timedout"}))
        << "no error follows it";
    EXPECT_TRUE(log.inOrder({"<a> on heartbeat timedout\n", "<a> try passive close\n",
                             "<a> passive closing...\n", "<a> socket closed.\n", "heartbeat timedout\n"}));
    EXPECT_EQ(log.find(" on heartbeat timedout").level, tavLogger::INFO);
    EXPECT_FALSE(log.contains(" global level on error "));
}

TEST(SessionTimerHeartbeatTimeout, OwnHeartbeatsDoNotCount) {
    Beating b;
    b.tickAfter(30001);
    b.tickAfter(30001);
    EXPECT_EQ(b.server->receive(8), heartbeat + heartbeat);
    b.tickAfter(30001);
    EXPECT_EQ(b.rig.events.all().back(), "heartbeat timedout");
}

TEST(SessionTimerHeartbeatTimeout, HeartbeatOfThePeerCounts) {
    LogCapture log;
    Beating b;
    b.rig.advance(50000);
    b.server->send(heartbeat);
    ASSERT_TRUE(log.waitFor("<a> empty body"));
    b.tickAfter(90000);
    EXPECT_TRUE(b.s->connected());
    b.tickAfter(1);
    EXPECT_FALSE(b.s->connected());
}

TEST(SessionTimerHeartbeatTimeout, HeaderAloneCounts) {
    LogCapture log;
    Beating b;
    b.rig.advance(50000);
    b.server->send(frame("abcdef").substr(0, 6));
    ASSERT_TRUE(log.waitFor("<a> received 4 bytes"));
    b.rig.settle();
    b.tickAfter(90000);
    EXPECT_TRUE(b.s->connected());
    b.tickAfter(1);
    EXPECT_FALSE(b.s->connected());
}

TEST(SessionTimerHeartbeatTimeout, EachPieceOfABodyCounts) {
    Beating b;
    std::string const bytes = frame(std::string(100000, 'x'));
    for (std::size_t at = 0; at < bytes.size(); at += 25000) {
        b.rig.advance(80000);
        b.server->send(bytes.substr(at, 25000));
        b.take();
        b.s->on_timer(false);
        ASSERT_TRUE(b.s->connected()) << at;
    }
    EXPECT_TRUE(b.rig.bodies.wait(1));
    b.tickAfter(90001);
    EXPECT_FALSE(b.s->connected());
}

TEST(SessionTimerHeartbeatTimeout, EachPieceOfATlsRecordCounts) {
    Beating b;
    b.tickAfter(1);
    auto const come = [&] {
        return tav::platform::bytesReceived(b.s->socket().lowest_layer().native_handle());
    };
    unsigned long long all = come();
    unsigned pieces = 0;
    ASSERT_TRUE(b.server->sendInSegments(frame(std::string(4000, 'x')), 1000, [&](std::size_t size) {
        all += size;
        ++pieces;
        ASSERT_TRUE(eventually([&] { return come() == all; }));
        b.rig.advance(80000);
        b.s->on_timer(false);
        ASSERT_TRUE(b.s->connected()) << pieces;
        if (pieces < 5) {
            ASSERT_EQ(b.rig.bodies.count(), 0u) << "the record is not whole";
        }
    }));
    EXPECT_EQ(pieces, 5u);
    EXPECT_TRUE(b.rig.bodies.wait(1));
    b.tickAfter(90001);
    EXPECT_FALSE(b.s->connected());
    EXPECT_EQ(b.rig.events.all().back(), "heartbeat timedout");
}

TEST(SessionTimerHeartbeatTimeout, ComesAfterARecordThatNeverEnds) {
    Beating b;
    b.tickAfter(1);
    bool began = false;
    b.server->sendInSegments(frame(std::string(4000, 'x')), 1000, [&](std::size_t) {
        if (began) {
            return;
        }
        began = true;
        b.take();
        b.tickAfter(80000);
        EXPECT_TRUE(b.s->connected());
        b.tickAfter(90000);
        EXPECT_TRUE(b.s->connected());
        b.tickAfter(1);
        EXPECT_FALSE(b.s->connected());
    });
    EXPECT_TRUE(began);
    EXPECT_EQ(b.rig.events.all().back(), "heartbeat timedout");
}

TEST(SessionTimerHeartbeatTimeout, TellsNothingIfSomeoneElseClosed) {
    Beating b;
    b.rig.onIoThread([&] { b.s->active_close(); });
    b.tickAfter(200000);
    EXPECT_EQ(b.rig.events.count(), 1u);
}

TEST(SessionTimerHeartbeatTimeout, IsTheTimersWork) {
    TlsPeer peer;
    SessionRig rig;
    std::unique_ptr<TlsConnection> server;
    auto const s = rig.connect(peer, server);
    s->check_heartbeat(true);
    rig.freeze();
    rig.advance(100000);
    ASSERT_TRUE(rig.events.wait(2));
    EXPECT_EQ(rig.events.all()[1], "heartbeat timedout");
    EXPECT_TRUE(server->waitClosed());
}

TEST(SessionTimerHeartbeat, ClockThatStepsBackDoesNoHarm) {
    Beating b;
    b.tickAfter(-50000);
    EXPECT_TRUE(b.server->quiet(0));
    EXPECT_TRUE(b.s->connected());
}

TEST(SessionTimerHeartbeat, OnesThatGoOutAndAnEndBySilenceAreCounted) {
    Beating b;
    b.tickAfter(impl::heartbeat::interval_ms + 1);
    EXPECT_EQ(b.server->receiveFrame(), "");
    EXPECT_EQ(b.rig.counted->copy().heartbeats_sent, 1u);
    EXPECT_EQ(b.rig.counted->copy().breaks_by_silence, 0u);
    b.tickAfter(impl::heartbeat::interval_ms * impl::heartbeat::misses + 1);
    EXPECT_EQ(b.rig.events.count("heartbeat timedout"), 1u);
    EXPECT_EQ(b.rig.counted->copy().breaks_by_silence, 1u);
    EXPECT_EQ(b.rig.counted->copy().closes, 0u);
    EXPECT_EQ(b.s->cause(), tav::tls::failure::peer_silent);
}

TEST(SessionTimerHeartbeat, SilenceOfAPeerThatIsHeldBackEndsNothing) {
    Gate gate;
    TlsPeer peer;
    std::unique_ptr<TlsConnection> server;
    SessionRig rig("<a>");
    rig.freeze();
    rig.on_body = [&](std::string const &) { gate.pass(); };
    tav::tls::connect_option option = rig.option(peer);
    option.limits.received_waiting = 2;
    auto const s = rig.connect(peer, server, option);
    s->check_heartbeat(true);
    for (int i = 0; i < 8; ++i) {
        ASSERT_TRUE(server->send(frame("body " + std::to_string(i))));
    }
    ASSERT_TRUE(gate.waitArrived());
    ASSERT_TRUE(eventually([&] { return rig.counted->copy().received_waiting == 1; }));
    rig.advance(impl::heartbeat::interval_ms * (impl::heartbeat::misses + 1));
    s->on_timer(false);
    EXPECT_TRUE(s->connected());
    gate.open();
    EXPECT_TRUE(rig.bodies.wait(8));
    ASSERT_TRUE(eventually([&] { return rig.counted->copy().received_waiting == 0; }));
    rig.settle();
    s->on_timer(false);
    EXPECT_TRUE(s->connected()) << "the time of the pause does not count";
    EXPECT_EQ(rig.events.count("heartbeat timedout"), 0u);
}

TEST(SessionTimerHeartbeat, PauseThatEndsIsNoSilenceBeforeReadingGoesOn) {
    Gate callback;
    Gate reading;
    TlsPeer peer;
    std::unique_ptr<TlsConnection> server;
    SessionRig rig("<a>");
    rig.freeze();
    rig.on_body = [&](std::string const &) { callback.pass(); };
    tav::tls::connect_option option = rig.option(peer);
    option.limits.received_waiting = 2;
    auto const s = rig.connect(peer, server, option);
    s->check_heartbeat(true);
    for (int i = 0; i < 8; ++i) {
        ASSERT_TRUE(server->send(frame("body")));
    }
    ASSERT_TRUE(callback.waitArrived());
    ASSERT_TRUE(eventually([&] { return rig.counted->copy().received_waiting == 1; }));
    rig.settle();
    rig.context()->post([&] { reading.pass(); });
    ASSERT_TRUE(reading.waitArrived());
    rig.advance(impl::heartbeat::interval_ms * (impl::heartbeat::misses + 1));
    callback.open();
    EXPECT_TRUE(rig.bodies.wait(2));
    s->on_timer(false);
    EXPECT_TRUE(s->connected());
    reading.open();
    EXPECT_TRUE(rig.bodies.wait(8));
    EXPECT_EQ(rig.events.count("heartbeat timedout"), 0u);
}

TEST(SessionTimerHeartbeat, FloodOfASlowCallbackMissesNone) {
    constexpr int bodies = 8;
    Gate gate;
    TlsPeer peer;
    std::unique_ptr<TlsConnection> server;
    SessionRig rig("<a>");
    rig.freeze();
    rig.on_body = [&](std::string const &) { gate.pass(); };
    tav::tls::connect_option option = rig.option(peer);
    option.limits.received_waiting = 2;
    auto const s = rig.connect(peer, server, option);
    s->check_heartbeat(true);
    for (int i = 0; i < bodies; ++i) {
        ASSERT_TRUE(server->send(frame("body") + heartbeat));
    }
    ASSERT_TRUE(gate.waitArrived());
    ASSERT_TRUE(eventually([&] { return rig.counted->copy().received_waiting == 1; }));
    // Longer than a silent peer is given, in which the timer's own thread works.
    for (unsigned i = 1; i <= impl::heartbeat::misses + 1u; ++i) {
        rig.advance(impl::heartbeat::interval_ms + 1);
        ASSERT_EQ(server->receive(4), heartbeat);
        ASSERT_TRUE(eventually([&] { return rig.counted->copy().frames_sent == i; }));
    }
    EXPECT_LT(rig.counted->copy().heartbeats_received, bodies);
    gate.open();
    EXPECT_TRUE(rig.bodies.wait(bodies));
    EXPECT_TRUE(eventually([&] { return rig.counted->copy().heartbeats_received == bodies; }));
    EXPECT_TRUE(
        eventually([&] { return rig.counted->copy().heartbeats_sent == impl::heartbeat::misses + 1u; }));
    EXPECT_TRUE(s->connected());
    EXPECT_EQ(rig.counted->copy().breaks_by_silence, 0u);
    EXPECT_EQ(rig.events.count("heartbeat timedout"), 0u);
}

// Bytes that the peer does not take keep the receipts back, which keep the reading back: that is no pause of
// the supervision.
TEST(SessionTimerHeartbeat, PeerThatTakesNoReceiptsIsSilent) {
    constexpr unsigned limit = 2;
    TlsPeer peer;
    std::unique_ptr<TlsConnection> server;
    SessionRig rig("<a>");
    rig.freeze();
    SessionRig::session_ptr s;
    rig.on_body = [&s](std::string const &) { s->send_receipt(tav::im::Packet::create(true, 4)); };
    tav::tls::connect_option option = rig.option(peer);
    option.limits.received_waiting = limit;
    s = rig.connect(peer, server, option);
    s->check_heartbeat(true);
    std::string const more_than_sockets_hold(15000000, 'x');
    ASSERT_TRUE(s->send_raw(reinterpret_cast<unsigned char const *>(more_than_sockets_hold.data()),
                            static_cast<unsigned>(more_than_sockets_hold.size())));
    for (int i = 0; i < 10; ++i) {
        ASSERT_TRUE(server->send(frame("body")));
    }
    ASSERT_TRUE(eventually([&] { return rig.counted->copy().queued_frames == limit; }));
    EXPECT_TRUE(rig.bodies.wait(limit));
    EXPECT_EQ(rig.bodies.count(), limit);
    rig.advance(impl::heartbeat::interval_ms * impl::heartbeat::misses - 1);
    ASSERT_TRUE(eventually([&] { return rig.counted->copy().heartbeats_sent == 1; }));
    EXPECT_EQ(rig.events.count("heartbeat timedout"), 0u);
    rig.advance(2);
    EXPECT_TRUE(eventually([&] { return rig.events.count("heartbeat timedout") == 1; }));
    EXPECT_EQ(rig.counted->copy().breaks_by_silence, 1u);
}

// A tick whose functions take long has an old time, which must not take the place of the time of the pause.
TEST(SessionTimerHeartbeat, LongTickDoesNotSetThePauseBack) {
    constexpr unsigned limit = 2;
    Gate callback;
    Gate timer;
    TlsPeer peer;
    std::unique_ptr<TlsConnection> server;
    SessionRig rig("<a>");
    rig.freeze();
    rig.on_body = [&](std::string const &) { callback.pass(); };
    tav::tls::connect_option option = rig.option(peer);
    option.limits.received_waiting = limit;
    auto const s = rig.connect(peer, server, option);
    s->check_heartbeat(true);
    std::string const more_than_sockets_hold(15000000, 'x');
    ASSERT_TRUE(s->send_raw(reinterpret_cast<unsigned char const *>(more_than_sockets_hold.data()),
                            static_cast<unsigned>(more_than_sockets_hold.size())));
    auto const track = [&s](unsigned long long sno, std::function<void()> f) {
        auto const pkt = tav::im::Packet::create(true, 4);
        pkt->setSequence(sno);
        s->send_pkt(pkt, tav::tls::send_option(
                             1000, [f](unsigned long long, unsigned short, bool) { f(); }, false, 4));
    };
    // The ticks are the test's own while the timer's thread is kept.
    track(1, [&] { timer.pass(); });
    ASSERT_TRUE(eventually([&] { return s->sends().size() == 1; }));
    rig.advance(1001);
    ASSERT_TRUE(timer.waitArrived());
    bool long_tick = false;
    track(2, [&] {
        long_tick = true;
        rig.advance(impl::heartbeat::interval_ms * (impl::heartbeat::misses + 1));
    });
    ASSERT_TRUE(eventually([&] { return s->sends().size() == 1; }));
    for (unsigned i = 0; i < limit; ++i) {
        ASSERT_TRUE(server->send(frame("body")));
    }
    ASSERT_TRUE(callback.waitArrived());
    ASSERT_TRUE(eventually([&] { return rig.counted->copy().received_waiting == limit - 1; }));
    rig.settle();
    for (unsigned i = 0; i < limit; ++i) {
        ASSERT_TRUE(s->send_receipt(tav::im::Packet::create(true, 4)));
    }
    s->on_timer(false);
    rig.advance(1001);
    s->on_timer(false);
    ASSERT_TRUE(long_tick);
    callback.open();
    // From the second on it is the receipts that hold the reading.
    ASSERT_TRUE(rig.bodies.wait(limit - 1));
    ASSERT_TRUE(callback.waitArrived(limit));
    s->on_timer(false);
    EXPECT_TRUE(s->connected());
    EXPECT_EQ(rig.events.count("heartbeat timedout"), 0u);
    timer.open();
}
