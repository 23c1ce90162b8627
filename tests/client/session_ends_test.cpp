#include "client/vinta_tls_client_impl_session.h"

#include "support/joining_thread.h"
#include "support/log_capture.h"
#include "support/session_rig.h"

#include <gtest/gtest.h>

#include <asio/error.hpp>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

// Ends of one connection that meet: whichever comes first counts, and nothing else does.

using namespace tav_test;

namespace {

class SessionEnds : public ::testing::Test {
protected:
    void connect() { session = rig.connect(peer, server); }
    /// The same with a limit of what is read ahead of its callback.
    void connect(unsigned received_waiting) {
        tav::tls::connect_option option = rig.option(peer);
        option.limits.received_waiting = received_waiting;
        session = rig.connect(peer, server, option);
    }
    /// What the session is told of a read or a write that has failed, on the I/O thread.
    void break_by(std::error_code ec) {
        impl::connection_owner & owner = *session;
        owner.on_broken(ec);
    }
    /// Has `f` called once, at the first line that holds `part`.
    void at(std::string part, std::function<void()> f) {
        log.at(std::move(part), [this, f = std::move(f)] {
            if (!met.exchange(true)) {
                f();
            }
        });
    }
    std::string counts() const {
        tav::tls::statistics const all = rig.counted->copy();
        return std::to_string(all.closes) + " closes, " + std::to_string(all.breaks_by_peer) + " by peer, " +
               std::to_string(all.breaks_by_error) + " by error, " + std::to_string(all.breaks_by_silence) +
               " by silence";
    }

    LogCapture log;
    std::atomic<bool> met{false};
    TlsPeer peer;
    SessionRig rig;
    std::unique_ptr<TlsConnection> server;
    SessionRig::session_ptr session;
};

constexpr long long silence_ms = impl::heartbeat::interval_ms * (impl::heartbeat::misses + 1);
std::string const not_a_frame("\xff\xff\xff\xff", 4);

} // namespace

TEST_F(SessionEnds, HandshakeThatEndsBesideACloseIsClosed) {
    session = rig.start(rig.option(peer));
    server = peer.accept();
    at(" try active close", [this] {
        server->handshake();
        eventually([this] { return session->state() == impl::session_state::connected; });
    });
    session->close();
    EXPECT_TRUE(met);
    EXPECT_EQ(counts(), "1 closes, 0 by peer, 0 by error, 0 by silence");
}

TEST_F(SessionEnds, BadFrameBesideACloseIsClosed) {
    connect();
    at(" received 4 bytes", [this] { session->active_close(); });
    server->send(not_a_frame);
    ASSERT_TRUE(log.waitFor("length <= 0xffffff"));
    EXPECT_EQ(counts(), "1 closes, 0 by peer, 0 by error, 0 by silence");
}

TEST_F(SessionEnds, CloseBehindABadFrameIsABreak) {
    connect();
    server->send(not_a_frame);
    ASSERT_TRUE(log.waitFor("length <= 0xffffff"));
    session->close();
    EXPECT_EQ(counts(), "0 closes, 0 by peer, 1 by error, 0 by silence");
}

TEST_F(SessionEnds, BadFrameBesideSilenceIsSilence) {
    connect();
    rig.freeze();
    session->check_heartbeat(true);
    at(" received 4 bytes", [this] {
        rig.advance(silence_ms);
        log.waitFor(" on heartbeat timedout");
        eventually([this] { return session->state() == impl::session_state::closed; });
    });
    server->send(not_a_frame);
    ASSERT_TRUE(log.waitFor("length <= 0xffffff"));
    EXPECT_EQ(session->cause(), tav::tls::failure::peer_silent);
    EXPECT_EQ(counts(), "0 closes, 0 by peer, 0 by error, 1 by silence");
}

TEST_F(SessionEnds, BreakThatOvertakesSilenceHasItsCause) {
    connect();
    rig.freeze();
    session->check_heartbeat(true);
    at(" try passive close",
       [this] { rig.onIoThread([this] { session->fail(asio::error::connection_reset); }); });
    rig.advance(silence_ms);
    ASSERT_TRUE(rig.events.wait(2)) << "it has opened, and broken";
    EXPECT_EQ(rig.events.all().back(), "error Connection reset by peer");
    EXPECT_EQ(session->cause(), tav::tls::failure::peer_silent);
    session->close();
    EXPECT_EQ(counts(), "0 closes, 0 by peer, 0 by error, 1 by silence");
}

TEST_F(SessionEnds, CloseBehindABreakIsABreak) {
    Gate gate;
    rig.on_body = [&](std::string const &) { gate.pass(); };
    connect();
    server->send(frame("goodbye"));
    ASSERT_TRUE(gate.waitArrived());
    server->close();
    ASSERT_TRUE(eventually([this] { return session->closing(); }));
    rig.settle();
    session->active_close();
    EXPECT_EQ(counts(), "0 closes, 1 by peer, 0 by error, 0 by silence");
    gate.open();
    session->close();
    EXPECT_EQ(counts(), "0 closes, 1 by peer, 0 by error, 0 by silence");
}

// A close waits for the callback that runs, for a second at most; the peer's own may come within that.
TEST_F(SessionEnds, BreakWhileACloseWaitsIsAClose) {
    Gate gate;
    rig.on_body = [&](std::string const &) { gate.pass(); };
    connect();
    server->send(frame("goodbye"));
    ASSERT_TRUE(gate.waitArrived());
    {
        JoiningThread const closer([this] { session->close(); });
        EXPECT_TRUE(eventually([this] { return session->closing(); }));
        server->close();
        EXPECT_TRUE(log.waitFor(" Read header failed: "));
        rig.settle();
        gate.open();
    }
    EXPECT_EQ(counts(), "1 closes, 0 by peer, 0 by error, 0 by silence");
}

TEST_F(SessionEnds, BadFrameWhileACloseWaitsIsAClose) {
    Gate gate;
    rig.on_body = [&](std::string const &) { gate.pass(); };
    connect();
    server->send(frame("goodbye"));
    ASSERT_TRUE(gate.waitArrived());
    {
        JoiningThread const closer([this] { session->close(); });
        EXPECT_TRUE(eventually([this] { return session->closing(); }));
        server->send(not_a_frame);
        EXPECT_TRUE(log.waitFor("length <= 0xffffff"));
        rig.settle();
        gate.open();
    }
    EXPECT_EQ(counts(), "1 closes, 0 by peer, 0 by error, 0 by silence");
}

// The close makes the read fail, which is no break of the network.
TEST_F(SessionEnds, SendThatACloseLeavesIsCancelledByIt) {
    // Without threads, so that "sender" never comes to it.
    session = rig.connectBare(peer, server);
    auto const pkt = tav::im::Packet::create(true, 4);
    pkt->setSequence(1);
    auto const left =
        session->send_pkt(pkt, tav::tls::send_option(60000, tav::tls::timedout_function(), false, 4));
    ASSERT_TRUE(left);
    at(" socket closed.", [this] {
        log.waitFor(" on std::error_code ");
        rig.settle();
    });
    session->close();
    EXPECT_TRUE(met);
    EXPECT_EQ(left->result(), tav::tls::result_cancelled);
    EXPECT_EQ(left->error(), tav::tls::failure::cancelled) << left->error().message();
    EXPECT_EQ(session->cause(), tav::tls::failure::cancelled);
}

// A break may come while the word that reading can go on is on its way: what came ahead of it counts as ever.
TEST_F(SessionEnds, BreakWhileAPauseEndsLosesNothingThatHadCome) {
    Gate gate;
    rig.on_body = [&](std::string const & body) {
        gate.pass();
        rig.events.add(body);
    };
    connect(1);
    ASSERT_TRUE(server->send(frame("first") + frame("second")));
    ASSERT_TRUE(gate.waitArrived());
    rig.settle();
    rig.onIoThread([&] {
        auto const before = session->getRefCount();
        gate.open();
        // The word keeps the session until it has been read, which is behind this function.
        EXPECT_TRUE(eventually([&] { return session->getRefCount() > before; }));
        break_by(asio::error::connection_reset);
    });
    server->reset();
    ASSERT_TRUE(rig.events.wait(4)) << rig.events.count();
    EXPECT_EQ(rig.events.all(),
              (std::vector<std::string>{"open", "first", "second", "error Connection reset by peer"}));
    session->close();
}
