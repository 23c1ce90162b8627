#include "tav/vinta/vinta_tls_client.h"

#include "support/client_rig.h"
#include "support/joining_thread.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <thread>

using namespace tav_test;

namespace {

/// The body of a message of about a megabyte.
std::string const & large() {
    static std::string const body = [] {
        Ask big(1);
        big.text = tavString(std::string(1u << 20, 'x'));
        return std::string(tav_istr(big.encode(true)));
    }();
    return body;
}

void sendLarge(tls::client & client) {
    client.send_nbr_msg(0x1234, reinterpret_cast<unsigned char const *>(large().data()),
                        static_cast<unsigned>(large().size()), tls::send_option());
}

} // namespace

TEST(ClientLimits, SendOverTheQueueIsRefusedByNameAndNothingAcceptedIsLost) {
    LogCapture log("clear(ERROR)");
    ClientRig rig;
    std::vector<int> water;
    std::mutex mutex;
    tls::connect_option option = rig.option();
    option.limits.queued_frames = 20;
    option.limits.on_queue = [&](bool full) {
        std::lock_guard<std::mutex> const guard(mutex);
        water.push_back(full ? 1 : 0);
    };
    rig.connect(option);
    // The peer reads nothing: beyond what the sockets hold, messages wait in the client.
    unsigned accepted = 0;
    bool refused = false;
    for (; !refused && accepted < 1000; accepted += refused ? 0 : 1) {
        sendLarge(rig.client);
        refused = bool(tls::last_failure());
    }
    ASSERT_TRUE(refused);
    EXPECT_EQ(tls::last_failure(), tls::failure::queue_full);
    EXPECT_EQ(log.count("<n> send refused: too much waits to be sent\n"), 1u);
    EXPECT_LE(rig.client.statistics().queued_frames, 20u);
    EXPECT_LE(rig.client.statistics().queued_bytes, 20u * large().size());
    EXPECT_EQ(rig.client.statistics().sends_refused, 1u);
    {
        std::lock_guard<std::mutex> const guard(mutex);
        EXPECT_EQ(water.empty() ? 0 : water.back(), 1);
    }
    for (unsigned i = 0; i < accepted; ++i) {
        ASSERT_EQ(rig.receive().body.size(), large().size()) << i;
    }
    EXPECT_TRUE(eventually([&] { return rig.client.statistics().queued_frames == 0; }));
    EXPECT_TRUE(eventually([&] {
        std::lock_guard<std::mutex> const guard(mutex);
        return water.back() == 0;
    }));
    EXPECT_TRUE(eventually([&] { return rig.client.statistics().messages_sent == accepted; }));
    sendLarge(rig.client);
    EXPECT_FALSE(tls::last_failure());
    EXPECT_EQ(rig.receive().body.size(), large().size());
}

TEST(ClientLimits, AcceptedSendThatReachesTheLimitHasNotFailed) {
    unsigned told = 0;
    std::error_code inner;
    ClientRig rig;
    tls::connect_option option = rig.option();
    option.limits.queued_frames = 1;
    option.limits.on_queue = [&](bool full) {
        if (full && ++told == 1) {
            rig.client.send_msg(Ask(2), tls::send_option());
            inner = tls::last_failure();
        }
    };
    rig.connect(option);
    EXPECT_FALSE(rig.client.send_msg(Ask(1), tls::send_option())) << "it is not tracked";
    EXPECT_FALSE(tls::last_failure()) << tls::last_failure().message();
    EXPECT_EQ(told, 1u);
    EXPECT_EQ(inner, tls::failure::queue_full);
    EXPECT_EQ(rig.receive().body, bodyOf(1));
}

TEST(ClientLimits, FunctionThatRunsAsItsConnectionIsReplacedIsToldOfTheNextBehindThat) {
    Gate gate;
    Events water;
    std::atomic<unsigned> inside{0};
    std::atomic<bool> alone{true};
    std::atomic<bool> first{true};
    ClientRig rig;
    tls::connect_option option = rig.option();
    option.limits.queued_frames = 1;
    option.limits.on_queue = [&](bool full) {
        alone = ++inside == 1 && alone;
        if (first.exchange(false)) {
            gate.pass();
        }
        water.add(full ? "full" : "low");
        --inside;
    };
    rig.connect(option);
    JoiningThread sender([&] { rig.client.send_msg(Ask(1), tls::send_option()); });
    ASSERT_TRUE(gate.waitArrived());
    rig.client.close();
    rig.connect(option);
    // More than sockets hold, so that it waits until the end.
    Ask long_one(1);
    long_one.text = tavString(std::string(15000000, 'x'));
    rig.client.send_msg(long_one, tls::send_option());
    EXPECT_FALSE(tls::last_failure()) << tls::last_failure().message();
    EXPECT_TRUE(water.all().empty());
    gate.open();
    ASSERT_TRUE(water.wait(3));
    EXPECT_TRUE(alone);
    EXPECT_EQ(water.all(), (std::vector<std::string>{"full", "low", "full"}));
}

TEST(ClientLimits, BreakWhileFullTellsLowWaterAndLeavesNothingWaiting) {
    Events water;
    ClientRig rig;
    tls::connect_option option = rig.option();
    option.limits.queued_frames = 20;
    option.limits.on_queue = [&](bool full) { water.add(full ? "full" : "low"); };
    rig.connect(option);
    for (unsigned i = 0; i < 1000 && !tls::last_failure(); ++i) {
        sendLarge(rig.client);
    }
    ASSERT_EQ(tls::last_failure(), tls::failure::queue_full);
    rig.server->reset();
    ASSERT_TRUE(eventually([&] { return !water.all().empty() && water.all().back() == "low"; }));
    EXPECT_TRUE(eventually([&] { return rig.client.statistics().queued_frames == 0; }));
    EXPECT_TRUE(eventually([&] { return rig.client.statistics().queued_bytes == 0; }));
    EXPECT_FALSE(rig.client.connected());
}

TEST(ClientLimits, ReceiptGoesOutOverTheQueue) {
    ClientRig rig;
    tls::connect_option option = rig.option();
    option.limits.queued_frames = 1;
    rig.connect(option);
    // More than sockets hold, so that it waits until the peer reads.
    Ask long_one(1);
    long_one.text = tavString(std::string(15000000, 'x'));
    std::string const body(tav_istr(long_one.encode(true)));
    rig.client.send_nbr_msg(0x1234, reinterpret_cast<unsigned char const *>(body.data()),
                            static_cast<unsigned>(body.size()), tls::send_option());
    ASSERT_FALSE(tls::last_failure());
    sendLarge(rig.client);
    ASSERT_EQ(tls::last_failure(), tls::failure::queue_full);
    Pkt wanted = mobile(0x2345, 77);
    wanted.affirm = 0x20;
    rig.server->send(wanted.framed());
    EXPECT_TRUE(eventually([&] { return rig.client.statistics().receipts_sent == 1; }));
    EXPECT_EQ(rig.client.statistics().sends_refused, 1u);
    EXPECT_EQ(rig.receive().body.size(), body.size());
    Pkt const receipt = rig.receive();
    EXPECT_EQ(receipt.affirm & 0xf0, 0x30);
    EXPECT_EQ(receipt.sno, 77u);
}

TEST(ClientLimits, GatewayThatTakesNoReceiptsIsReadUpToTheLimit) {
    constexpr unsigned limit = 16;
    constexpr unsigned total = 5000;
    ClientRig rig;
    tls::connect_option option = rig.option();
    option.limits.received_waiting = limit;
    rig.connect(option);
    // More than sockets hold, so that all behind it waits until the peer reads.
    Ask long_one(1);
    long_one.text = tavString(std::string(15000000, 'x'));
    rig.client.send_msg(long_one, tls::send_option());
    ASSERT_FALSE(tls::last_failure());
    std::string pushes;
    for (unsigned i = 0; i < total; ++i) {
        Pkt push = mobile(0x2345, i);
        push.affirm = 0x20;
        pushes += push.framed();
    }
    ASSERT_TRUE(rig.server->sendInRecords(pushes, 4096));
    unsigned long long most = 0;
    // The message in hand counts beside its receipt for a moment: one less may stop the reading too.
    EXPECT_TRUE(eventually([&] {
        most = std::max(most, rig.client.statistics().queued_frames);
        return most >= limit;
    })) << most;
    auto const stopped = std::chrono::steady_clock::now() + std::chrono::milliseconds(200);
    EXPECT_TRUE(eventually([&] {
        EXPECT_LE(rig.client.statistics().messages_received, limit);
        return std::chrono::steady_clock::now() > stopped;
    }));
    EXPECT_EQ(rig.receive().code, 0x1234);
    for (unsigned i = 0; i < total; ++i) {
        Pkt const receipt = rig.receive();
        ASSERT_EQ(receipt.affirm & 0xf0, 0x30);
        ASSERT_EQ(receipt.sno, i);
        ASSERT_LE(rig.client.statistics().queued_frames, limit);
    }
    EXPECT_TRUE(eventually([&] { return rig.client.statistics().queued_frames == 0; }));
    EXPECT_TRUE(eventually([&] { return rig.client.statistics().receipts_sent == total; }));
}

TEST(ClientLimits, BreakWhileReceiptsHoldTheReadingLosesNothingThatHadCome) {
    constexpr unsigned limit = 2;
    ClientRig rig;
    rig.client.on_nbr_msg(0x2345, [&](unsigned long long sno, unsigned short, unsigned char const *, unsigned,
                                      tavMsgExt) { rig.events.add("message " + textOf(sno)); });
    tls::connect_option option = rig.option();
    option.limits.received_waiting = limit;
    rig.connect(option);
    // More than sockets hold, so that all behind it waits until the peer reads.
    Ask long_one(1);
    long_one.text = tavString(std::string(15000000, 'x'));
    rig.client.send_msg(long_one, tls::send_option());
    ASSERT_FALSE(tls::last_failure());
    std::string pushes;
    for (unsigned i = 1; i <= limit + 1; ++i) {
        Pkt push = mobile(0x2345, i);
        push.affirm = 0x20;
        pushes += push.framed();
    }
    ASSERT_TRUE(rig.server->send(pushes));
    ASSERT_TRUE(eventually([&] { return rig.client.statistics().queued_frames == 1 + limit; }));
    ASSERT_EQ(rig.client.statistics().messages_received, limit) << "the third has been read, and waits";
    rig.server->reset();
    ASSERT_TRUE(rig.events.wait(limit + 3)) << rig.events.count();
    std::vector<std::string> const told = rig.events.all();
    EXPECT_EQ(told[limit + 1], "message 3");
    EXPECT_EQ(told[limit + 2].compare(0, 6, "error "), 0) << told[limit + 2];
}

TEST(ClientLimits, BytesThatWaitAreBoundedToo) {
    ClientRig rig;
    tls::connect_option option = rig.option();
    option.limits.queued_bytes = 3u << 20;
    rig.connect(option);
    unsigned accepted = 0;
    while (accepted < 1000) {
        sendLarge(rig.client);
        if (tls::last_failure()) {
            break;
        }
        ++accepted;
        ASSERT_LE(rig.client.statistics().queued_bytes, 3u << 20);
    }
    EXPECT_EQ(tls::last_failure(), tls::failure::queue_full);
    for (unsigned i = 0; i < accepted; ++i) {
        ASSERT_EQ(rig.receive().body.size(), large().size()) << i;
    }
}

TEST(ClientLimits, TrackedSendOverTheLimitIsRefusedUntilOneHasEnded) {
    ClientRig rig;
    tls::connect_option option = rig.option();
    option.limits.tracked_sends = 2;
    rig.connect(option);
    auto const ask = [&] {
        return rig.client.send_msg(Ask(1), tls::send_option(60000, tls::timedout_function(), false, 4));
    };
    auto const first = ask();
    auto const second = ask();
    ASSERT_TRUE(first && second);
    EXPECT_FALSE(ask());
    EXPECT_EQ(tls::last_failure(), tls::failure::too_many_sends);
    EXPECT_EQ(rig.client.statistics().tracked_sends, 2u);
    first->cancel();
    EXPECT_EQ(rig.client.statistics().tracked_sends, 1u);
    EXPECT_TRUE(ask());
}

TEST(ClientLimits, FloodOfASlowCallbackStopsTheReadingAndLosesNothing) {
    constexpr unsigned limit = 10;
    constexpr unsigned total = 40;
    Gate gate;
    ClientRig rig;
    std::atomic<unsigned> handled{0};
    std::atomic<bool> ordered{true};
    rig.client.on_nbr_msg(
        0x2345, [&](unsigned long long sno, unsigned short, unsigned char const *, unsigned, tavMsgExt) {
            if (handled == 0) {
                gate.pass();
            }
            ordered = ordered && sno == handled + 1;
            ++handled;
        });
    tls::connect_option option = rig.option();
    option.limits.received_waiting = limit;
    rig.connect(option);
    std::atomic<bool> sent{false};
    JoiningThread flood([&] {
        for (unsigned i = 1; i <= total && rig.server->send(mobile(0x2345, i, large()).framed()); ++i) {
        }
        sent = true;
    });
    ASSERT_TRUE(gate.waitArrived());
    // The one whose callback runs is not handled yet, so that it counts for the limit.
    EXPECT_TRUE(eventually([&] { return rig.client.statistics().received_waiting == limit - 1; }));
    // What the sockets take is little beside the flood, so the peer is held.
    EXPECT_FALSE(sent);
    EXPECT_LE(rig.client.statistics().received_waiting_bytes, limit * (large().size() + 64));
    gate.open();
    EXPECT_TRUE(eventually([&] { return handled == total; }));
    flood.join();
    EXPECT_TRUE(ordered);
    EXPECT_TRUE(eventually([&] { return rig.client.statistics().received_waiting == 0; }));
    EXPECT_TRUE(eventually([&] { return rig.client.statistics().messages_received == total; }));
}

TEST(ClientLimits, ManySmallMessagesInOneRecordAreBoundedToo) {
    constexpr unsigned limit = 4;
    constexpr unsigned total = 300;
    Gate gate;
    ClientRig rig;
    std::atomic<unsigned> handled{0};
    std::atomic<unsigned long long> most{0};
    rig.client.on_nbr_msg(
        0x2345, [&](unsigned long long, unsigned short, unsigned char const *, unsigned, tavMsgExt) {
            if (handled == 0) {
                gate.pass();
            }
            most = std::max(most.load(), rig.client.statistics().received_waiting);
            ++handled;
        });
    tls::connect_option option = rig.option();
    option.limits.received_waiting = limit;
    rig.connect(option);
    std::string together;
    for (unsigned i = 1; i <= total; ++i) {
        together += mobile(0x2345, i, bodyOf(1)).framed();
    }
    rig.server->send(together);
    ASSERT_TRUE(gate.waitArrived());
    // The one whose callback runs is not handled yet, so that it counts for the limit.
    EXPECT_TRUE(eventually([&] { return rig.client.statistics().received_waiting == limit - 1; }));
    gate.open();
    EXPECT_TRUE(eventually([&] { return handled == total; }));
    EXPECT_LT(most, limit);
}

TEST(ClientLimits, PausedReadingEndsWithTheConnection) {
    Gate gate;
    ClientRig rig;
    rig.client.on_nbr_msg(0x2345, [&](unsigned long long, unsigned short, unsigned char const *, unsigned,
                                      tavMsgExt) { gate.pass(); });
    tls::connect_option option = rig.option();
    option.limits.received_waiting = 2;
    rig.connect(option);
    for (unsigned i = 1; i <= 10; ++i) {
        rig.server->send(mobile(0x2345, i).framed());
    }
    ASSERT_TRUE(gate.waitArrived());
    EXPECT_TRUE(eventually([&] { return rig.client.statistics().received_waiting == 1; }));
    gate.open();
    rig.client.close();
    EXPECT_TRUE(eventually([&] { return !rig.client.connected(); }));
    rig.reconnect();
    EXPECT_TRUE(rig.settle());
}

TEST(ClientLimits, WithoutLimitsNothingIsRefused) {
    ClientRig rig;
    rig.connect();
    for (unsigned i = 0; i < 100; ++i) {
        sendLarge(rig.client);
        ASSERT_FALSE(tls::last_failure());
    }
    for (unsigned i = 0; i < 100; ++i) {
        ASSERT_EQ(rig.receive().body.size(), large().size());
    }
}
