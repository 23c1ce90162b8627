#include "tav/kit/keeper.h"

#include "support/keeper_rig.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono_literals;
using namespace tav_test;
using state = kit::keeper_state;
using Texts = std::vector<std::string>;

struct Raising : kit::message<Raising> {
    static constexpr char const * type_name = "Raising";
    static constexpr unsigned short type_code = 0x1236;
    void traverse(tavCodecStream &) override { throw std::runtime_error("no fields today"); }
};

} // namespace

TEST(KitKeeperOutbox, WhatIsSentWhileDownGoesOutInOrderWhenUp) {
    TlsPeer peer;
    Events ends;
    KeeperRig rig(peer.portText());
    rig.keeper.start();
    auto reply = kit::request<Said>(rig.keeper, Say(1), 30s);
    kit::post(rig.keeper, Say(2), 30s, [&](kit::result<void> v) { ends.add("post " + textOfResult(v)); });
    kit::send(rig.keeper, Say(3), 30s, [&](kit::result<void> v) { ends.add("send " + textOfResult(v)); });
    EXPECT_TRUE(kit::send(rig.keeper, Say(4)));
    EXPECT_EQ(rig.keeper.waiting(), 4u);
    EXPECT_EQ(ends.count(), 0u);
    auto const server = rig.accept(peer);
    ASSERT_TRUE(rig.timer->run([&] { return rig.keeper.waiting() == 0; }));
    for (int i = 1; i <= 4; ++i) {
        Pkt packet = Pkt::of(server->receiveFrame());
        EXPECT_EQ(numberIn(packet), i);
        if (i == 1) {
            server->send(mobile(Said::type_code, packet.sno).framed());
        } else if (i == 3) {
            packet.affirm = 0x30;
            packet.body.clear();
            server->send(packet.framed());
        }
    }
    EXPECT_TRUE(got(std::move(reply)));
    ASSERT_TRUE(ends.wait(2));
    EXPECT_EQ(ends.all(), (Texts{"post ok", "send ok"}));
}

TEST(KitKeeperOutbox, TermsReachThePacket) {
    TlsPeer peer;
    KeeperRig rig(peer.portText());
    rig.keeper.start();
    Say say(3);
    say.sno = 0x77;
    say.ext.traceId = tavString("trace");
    auto reply = kit::request<Said>(rig.keeper, say, kit::within(30s).grey(true).version(6));
    auto const server = rig.accept(peer);
    ASSERT_TRUE(rig.timer->run([&] { return rig.keeper.waiting() == 0; }));
    Pkt const sent = Pkt::of(server->receiveFrame());
    EXPECT_TRUE(sent.grey);
    EXPECT_EQ(sent.version, 6);
    EXPECT_EQ(sent.sno, 0x77u);
    EXPECT_EQ(sent.ext.traceId.value(), tavString("trace"));
    EXPECT_EQ(sent.body, std::string(tav_istr(say.encode(true))));
}

TEST(KitKeeperOutbox, StoppedKeeperTakesNothing) {
    kit::keeper keeper(quietOption("1"));
    EXPECT_EQ(got(kit::request<Said>(keeper, Say(1), 5s)).error(), kit::failure::stopped);
    EXPECT_EQ(kit::send(keeper, Say(1)).error(), kit::failure::stopped);
    EXPECT_EQ(keeper.status().state, state::stopped);
}

TEST(KitKeeperOutbox, MessageWaitsNoLongerThanItsLimit) {
    ClosedPort closed;
    KeeperRig rig(closed.port());
    rig.keeper.start();
    Events ends;
    kit::request<Said>(rig.keeper, Say(1), 700ms,
                       [&](kit::result<Said> v) { ends.add("1 " + textOfResult(v)); });
    kit::request<Said>(rig.keeper, Say(2), 100ms,
                       [&](kit::result<Said> v) { ends.add("2 " + textOfResult(v)); });
    kit::post(rig.keeper, Say(3), 300ms, [&](kit::result<void> v) { ends.add("3 " + textOfResult(v)); });
    rig.timer->advance(99ms);
    EXPECT_EQ(ends.count(), 0u);
    for (int i = 0; i < 8; ++i) {
        rig.timer->advance(100ms);
    }
    EXPECT_EQ(ends.all(), (Texts{"2 timed out", "3 timed out", "1 timed out"}));
    EXPECT_EQ(rig.keeper.waiting(), 0u);
    EXPECT_EQ(got(kit::request<Said>(rig.keeper, Say(1), 0ms)).error(), kit::failure::timed_out);
}

TEST(KitKeeperOutbox, LimitGoesOnOnTheWire) {
    LiveRig rig(kit::keeper_option(), neverAnswering());
    rig.keeper.start();
    auto const begin = std::chrono::steady_clock::now();
    EXPECT_EQ(got(kit::request<Said>(rig.keeper, Say(1), 300ms)).error(), kit::failure::timed_out);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 250ms);
}

TEST(KitKeeperOutbox, CancelledMessageLeavesTheOutbox) {
    ClosedPort closed;
    kit::keeper_option how;
    how.outbox = 2;
    KeeperRig rig(closed.port(), how);
    rig.keeper.start();
    Events ends;
    kit::cancellation stop;
    kit::pending const first = kit::request<Said>(
        rig.keeper, Say(1), 30s, [&](kit::result<Said> v) { ends.add("1 " + textOfResult(v)); });
    kit::request<Said>(rig.keeper, Say(2), kit::within(30s).unless(stop),
                       [&](kit::result<Said> v) { ends.add("2 " + textOfResult(v)); });
    EXPECT_EQ(kit::send(rig.keeper, Say(3)).error(), kit::failure::outbox_full);
    first.cancel();
    EXPECT_EQ(rig.keeper.waiting(), 1u);
    EXPECT_TRUE(kit::send(rig.keeper, Say(4)));
    stop.cancel();
    EXPECT_EQ(rig.keeper.waiting(), 1u);
    kit::request<Said>(rig.keeper, Say(5), kit::within(30s).unless(stop),
                       [&](kit::result<Said> v) { ends.add("5 " + textOfResult(v)); });
    EXPECT_EQ(ends.all(), (Texts{"1 cancelled", "2 cancelled", "5 cancelled"}));
}

TEST(KitKeeperOutbox, FullOutboxRefuses) {
    ClosedPort closed;
    kit::keeper_option how;
    how.outbox = 2;
    KeeperRig rig(closed.port(), how);
    rig.keeper.start();
    EXPECT_TRUE(kit::send(rig.keeper, Say(1)));
    EXPECT_TRUE(kit::send(rig.keeper, Say(2)));
    EXPECT_EQ(kit::send(rig.keeper, Say(3)).error(), kit::failure::outbox_full);
    EXPECT_EQ(got(kit::request<Said>(rig.keeper, Say(4), 5s)).error(), kit::failure::outbox_full);
    EXPECT_EQ(rig.keeper.waiting(), 2u);
}

TEST(KitKeeperOutbox, FullOutboxDropsTheOldest) {
    TlsPeer peer;
    kit::keeper_option how;
    how.outbox = 2;
    how.policy = kit::when_full::drop_oldest;
    KeeperRig rig(peer.portText(), how);
    rig.keeper.start();
    Events ends;
    for (int i = 1; i <= 4; ++i) {
        kit::post(rig.keeper, Say(i), 30s,
                  [&, i](kit::result<void> v) { ends.add(std::to_string(i) + " " + textOfResult(v)); });
    }
    EXPECT_EQ(ends.all(), (Texts{"1 dropped for a later message", "2 dropped for a later message"}));
    auto const server = rig.accept(peer);
    ASSERT_TRUE(rig.timer->run([&] { return ends.count() == 4; }));
    EXPECT_EQ(numberIn(Pkt::of(server->receiveFrame())), 3);
    EXPECT_EQ(numberIn(Pkt::of(server->receiveFrame())), 4);
}

TEST(KitKeeperOutbox, FullOutboxHoldsUpTheSenderUntilThereIsRoom) {
    TlsPeer peer;
    kit::keeper_option how;
    how.outbox = 1;
    how.policy = kit::when_full::wait;
    KeeperRig rig(peer.portText(), how);
    rig.keeper.start();
    EXPECT_TRUE(kit::send(rig.keeper, Say(1)));
    std::atomic<bool> through{false};
    std::thread sender([&] {
        EXPECT_TRUE(kit::send(rig.keeper, Say(2)));
        through = true;
    });
    ASSERT_TRUE(rig.timer->run([&] { return rig.keeper.waiting() == 2; }));
    EXPECT_FALSE(through);
    auto const server = rig.accept(peer);
    EXPECT_TRUE(rig.timer->run([&] { return through.load(); }));
    sender.join();
    EXPECT_TRUE(rig.timer->run([&] { return rig.keeper.waiting() == 0; }));
    EXPECT_EQ(numberIn(Pkt::of(server->receiveFrame())), 1);
    EXPECT_EQ(numberIn(Pkt::of(server->receiveFrame())), 2);
}

TEST(KitKeeperOutbox, SenderIsHeldUpNoLongerThanHisLimitNorAStop) {
    ClosedPort closed;
    kit::keeper_option how;
    how.outbox = 1;
    how.policy = kit::when_full::wait;
    KeeperRig rig(closed.port(), how);
    rig.keeper.start();
    EXPECT_TRUE(kit::send(rig.keeper, Say(1)));
    Events ends;
    std::thread first([&] { ends.add(textOfResult(got(kit::request<Said>(rig.keeper, Say(2), 400ms)))); });
    ASSERT_TRUE(rig.timer->run([&] { return rig.keeper.waiting() == 2; }));
    rig.timer->advance(400ms);
    EXPECT_TRUE(ends.wait(1));
    first.join();
    std::thread second([&] { ends.add(textOfResult(kit::send(rig.keeper, Say(3)))); });
    ASSERT_TRUE(rig.timer->run([&] { return rig.keeper.waiting() == 2; }));
    rig.keeper.stop();
    EXPECT_TRUE(ends.wait(2));
    second.join();
    EXPECT_EQ(ends.all(), (Texts{"timed out", "stopped"}));
}

TEST(KitKeeperOutbox, KeepersThreadIsNeverHeldUp) {
    ClosedPort closed;
    Events ends;
    kit::keeper * target = nullptr;
    kit::keeper_option how;
    how.outbox = 0;
    how.policy = kit::when_full::wait;
    how.first_wait = 10ms;
    how.on_state = [&](kit::keeper_status const & v) {
        if (v.state == state::waiting) {
            ends.add(textOfResult(kit::send(*target, Say(1))));
        }
    };
    kit::keeper keeper(quietOption(closed.port()), how);
    target = &keeper;
    keeper.start();
    ASSERT_TRUE(ends.wait(1));
    EXPECT_EQ(ends.all()[0], "no room in the outbox");
}

TEST(KitKeeperOutbox, OutboxIsBoundedInBytesToo) {
    ClosedPort closed;
    kit::keeper_option how;
    how.outbox_bytes = 2000;
    KeeperRig rig(closed.port(), how);
    rig.keeper.start();
    Say large;
    large.text = std::string(900, 'x').c_str();
    EXPECT_TRUE(kit::send(rig.keeper, large));
    EXPECT_TRUE(kit::send(rig.keeper, large));
    EXPECT_EQ(kit::send(rig.keeper, large).error(), kit::failure::outbox_full);
    EXPECT_EQ(kit::send(rig.keeper, large).error(), std::errc::no_buffer_space);
}

TEST(KitKeeperOutbox, MessageThatWasOnTheWireEndsWithItsConnection) {
    LiveRig rig(kit::keeper_option(), neverAnswering());
    ASSERT_TRUE(rig.start());
    auto lost = kit::request<Said>(rig.keeper, Say(1), 30s);
    ASSERT_TRUE(rig.gateway.gateway.wait([](tav::gateway::Stats const & v) { return v.packets == 1; }));
    rig.gateway.gateway.setFaults(tav::gateway::Faults());
    rig.gateway.gateway.drop(true);
    EXPECT_EQ(got(std::move(lost)).error(), kit::failure::disconnected);
    EXPECT_TRUE(got(kit::request<Said>(rig.keeper, Say(2), 10s)));
    EXPECT_EQ(rig.gateway.gateway.stats().packets, 2u) << "the first went out once";
}

TEST(KitKeeperOutbox, RepeatableMessageGoesOutAgainUntilItIsAnswered) {
    LiveRig rig(kit::keeper_option(), neverAnswering());
    ASSERT_TRUE(rig.start());
    Events ends;
    kit::request<Said>(rig.keeper, Say(1), kit::within(30s).repeatable(),
                       [&](kit::result<Said> v) { ends.add(textOfResult(v)); });
    for (unsigned times = 1; times <= 3; ++times) {
        ASSERT_TRUE(
            rig.gateway.gateway.wait([=](tav::gateway::Stats const & v) { return v.packets == times; }));
        rig.gateway.gateway.setFaults(times < 3 ? neverAnswering().faults : tav::gateway::Faults());
        rig.gateway.gateway.drop(times % 2 == 0);
    }
    ASSERT_TRUE(ends.wait(1));
    EXPECT_TRUE(got(kit::request<Said>(rig.keeper, Say(2), 10s)));
    EXPECT_EQ(ends.all(), Texts{"ok"});
    EXPECT_EQ(rig.gateway.gateway.stats().packets, 5u);
}

TEST(KitKeeperOutbox, RepeatableMessageEndsByItsOwnLimit) {
    TlsPeer peer;
    KeeperRig rig(peer.portText());
    rig.keeper.start();
    auto reply = kit::request<Said>(rig.keeper, Say(1), kit::within(40s).repeatable());
    auto const server = rig.accept(peer);
    ASSERT_TRUE(rig.timer->run([&] { return rig.keeper.waiting() == 0; }));
    server->receiveFrame();
    server->close();
    ASSERT_TRUE(rig.comesTo(state::waiting));
    EXPECT_EQ(rig.keeper.waiting(), 1u);
    rig.timer->advance(40s);
    EXPECT_EQ(got(std::move(reply)).error(), kit::failure::timed_out);
}

TEST(KitKeeperOutbox, LimitsOfTheConnectionHoldMessagesBackAndLoseNone) {
    GatewayRig gateway;
    tls::connect_option option = quietOption(std::to_string(gateway.gateway.port()));
    option.limits.queued_frames = 2;
    option.limits.tracked_sends = 3;
    kit::keeper_option how;
    how.policy = kit::when_full::wait;
    how.outbox = 20;
    kit::keeper keeper(option, how);
    keeper.start();
    std::vector<std::future<kit::result<Said>>> replies;
    for (int i = 0; i < 200; ++i) {
        replies.push_back(kit::request<Said>(keeper, Say(i), 60s));
    }
    for (int i = 0; i < 200; ++i) {
        kit::result<Said> const reply = got(std::move(replies[static_cast<std::size_t>(i)]));
        ASSERT_TRUE(reply) << reply.error().message();
        EXPECT_EQ(reply->number, i);
    }
    EXPECT_EQ(gateway.gateway.stats().packets, 200u);
}

TEST(KitKeeperOutbox, MessageThatCanNotBeEncodedIsNotSent) {
    LiveRig rig;
    ASSERT_TRUE(rig.start());
    EXPECT_EQ(got(kit::request<Said>(rig.keeper, Raising(), 5s)).error(), kit::failure::not_sent);
    EXPECT_EQ(kit::send(rig.keeper, Raising()).error(), kit::failure::not_sent);
}

TEST(KitKeeperOutbox, SendsThatWaitForNothingHoldNothing) {
    LiveRig rig;
    ASSERT_TRUE(rig.start());
    for (int i = 0; i < 100; ++i) {
        EXPECT_TRUE(kit::send(rig.keeper, Say(i)));
    }
    EXPECT_TRUE(rig.gateway.gateway.wait([](tav::gateway::Stats const & v) { return v.packets == 100; }));
    EXPECT_TRUE(eventually([&] { return rig.keeper.client().statistics().messages_sent == 100; }));
    EXPECT_EQ(rig.keeper.client().statistics().tracked_sends, 0u);
    EXPECT_EQ(rig.keeper.client().statistics().sends_cancelled, 0u);
}

TEST(KitKeeperOutbox, SendsThatWaitForNothingNeedNoPlaceAmongThoseThatWait) {
    GatewayRig gateway(neverAnswering());
    tls::connect_option option = quietOption(std::to_string(gateway.gateway.port()));
    option.limits.tracked_sends = 1;
    kit::keeper keeper(option);
    keeper.start();
    ASSERT_TRUE(eventually([&] { return keeper.status().state == state::up; }));
    auto const waiting = kit::request<Said>(keeper, Say(1), 60s);
    ASSERT_TRUE(eventually([&] { return keeper.client().statistics().tracked_sends == 1; }));
    EXPECT_TRUE(kit::send(keeper, Say(2)));
    EXPECT_EQ(keeper.waiting(), 0u);
    EXPECT_TRUE(gateway.gateway.wait([](tav::gateway::Stats const & v) { return v.packets == 2; }));
    EXPECT_EQ(keeper.client().statistics().tracked_sends, 1u);
}
