#include "client/vinta_tls_client_impl_session.h"

#include "support/bounded.h"
#include "support/log_capture.h"
#include "support/session_rig.h"
#include "support/tls_peer.h"

#include <gtest/gtest.h>

using namespace tav_test;
using impl::session;
using tav::tls::send_option;

namespace {

using Texts = std::vector<std::string>;

/// A packet that is nothing but its body on the wire, and can hold up or break "sender".
class TestPacket : public tav::im::Packet {
public:
    TestPacket(unsigned long long sno, unsigned short code, std::string body)
        : sno_(sno), code_(code), body_(std::move(body)) {}

    Gate * gate = nullptr;
    bool broken = false;

    void encode(tavBytes & out) override {
        if (gate != nullptr) {
            gate->pass();
        }
        if (broken) {
            throw std::runtime_error("broken packet");
        }
        out.writeBytes(tav_istr(body_));
    }
    bool decode(tav_istr) override { return false; }
    void setAffirm(unsigned char) override {}
    unsigned char affirm() const override { return 0; }
    void setCode(unsigned short v) override { code_ = v; }
    unsigned short code() const override { return code_; }
    void setSequence(unsigned long long v) override { sno_ = v; }
    unsigned long long sequence() const override { return sno_; }
    void setBody(tav_istr) override {}
    tav_istr body() const override { return tav_istr(body_); }
    void setSession(unsigned long long) override {}
    unsigned long long session() const override { return 0; }
    void setTarget(tav_istr) override {}
    tav_istr target() const override { return tav_istr(); }
    bool grey() const override { return false; }
    void setGrey(bool) override {}
    unsigned short version() const override { return 4; }
    void setExt(tavMsgExt const &) override {}
    tavMsgExt ext() const override { return tavMsgExt(); }

private:
    unsigned long long sno_;
    unsigned short code_;
    std::string body_;
};

using PacketPtr = tavSharedPtr<tav::im::Packet>;

PacketPtr packet(unsigned long long sno, std::string body = "body", unsigned short code = 0x1234) {
    return PacketPtr(new TestPacket(sno, code, std::move(body)));
}

PacketPtr heldUp(Gate & gate, unsigned long long sno, std::string body = "held") {
    auto * const made = new TestPacket(sno, 0x1234, std::move(body));
    made->gate = &gate;
    return PacketPtr(made);
}

/// A packet of the library.
PacketPtr ownPacket(unsigned long long sno, std::string const & body) {
    PacketPtr const made = tav::im::Packet::create(true, 4);
    made->setCode(0x1234);
    made->setSequence(sno);
    made->setBody(tav_istr(body));
    return made;
}

/// What such a packet without a body is on the wire.
std::string numbered(unsigned long long sno) {
    tavBytes out;
    ownPacket(sno, std::string())->encode(out);
    return std::string(tav_istr(out));
}

/// A connected session, its far end, and a record of time-outs.
class Pair {
public:
    explicit Pair(bool bare = false) {
        if (bare) {
            rig.freeze();
            s = rig.connectBare(peer, server);
        } else {
            s = rig.connect(peer, server);
        }
    }

    /// A send that is told to `timeouts` as "<sno> <code> timedout" or "... cancelled".
    send_option limited(int wait_ms, unsigned short ack = 0x4321) {
        return send_option(
            tav::tls::timedout_option(wait_ms,
                                      [this](unsigned long long sno, unsigned short msgcode, bool cancelled) {
                                          timeouts.add(std::to_string(sno) + " " + std::to_string(msgcode) +
                                                       (cancelled ? " cancelled" : " timedout"));
                                      }),
            tav::tls::error_function(), tav::tls::message_callback(), ack, false, 4);
    }
    /// Waits until `n` tracked sends have gone out.
    bool tracked(std::size_t n) {
        for (; received_ < n; ++received_) {
            server->receiveFrame();
        }
        return s->sends().size() == n;
    }

    TlsPeer peer;
    std::unique_ptr<TlsConnection> server;
    Events timeouts;
    SessionRig rig{"<a>"};
    tavSharedPtr<session> s;

private:
    std::size_t received_ = 0;
};

} // namespace

TEST(SessionSend, PacketGoesOutAsOneFrame) {
    LogCapture log;
    Pair p;
    EXPECT_EQ(p.s->send_pkt(packet(7, "hello"), send_option()), nullptr)
        << "without a limit nothing is tracked";
    EXPECT_EQ(p.server->receive(9), frame("hello"));
    EXPECT_EQ(p.s->sends().size(), 0u);
    EXPECT_EQ(log.find("<a> send buf /").level, tavLogger::VERBOSE);
    ASSERT_TRUE(log.waitFor("<a> sent 9 bytes, remaining 1 msgs.\n"));
    EXPECT_EQ(log.find(" sent 9 bytes").level, tavLogger::INFO);
    EXPECT_FALSE(log.contains(" add sending #"));
}

TEST(SessionSend, LibrarysPacketsGoOutAsTheyEncode) {
    Pair p;
    PacketPtr const pkt = tav::im::Packet::create(true, 4);
    pkt->setCode(0x1234);
    pkt->setSequence(2);
    pkt->setBody("AB");
    tavBytes expected;
    pkt->encode(expected);
    p.s->send_pkt(pkt, send_option());
    EXPECT_EQ(p.server->receiveFrame(),
              std::string(reinterpret_cast<char const *>(expected.data()), expected.size()));
}

TEST(SessionSend, RawBytesGoOutAsOneFrame) {
    Pair p;
    unsigned char const bytes[] = {1, 0, 255};
    EXPECT_TRUE(p.s->send_raw(bytes, 3));
    EXPECT_TRUE(p.s->send_raw(nullptr, 0));
    EXPECT_EQ(p.server->receive(11), std::string("\0\0\0\3\1\0\xff\0\0\0\0", 11));
}

TEST(SessionSend, TrackedSendIsPending) {
    LogCapture log;
    Pair p;
    auto const info = p.s->send_pkt(packet(7), p.limited(60000));
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->sno(), 7u);
    EXPECT_EQ(info->msgcode(), 0x1234);
    EXPECT_EQ(info->ack(), 0x4321);
    EXPECT_EQ(info->option().wait_ms(), 60000);
    EXPECT_EQ(info->result(), -1);
    EXPECT_EQ(p.server->receiveFrame(), "body");
    EXPECT_EQ(p.s->sends().size(), 1u);
    EXPECT_EQ(log.find("<a> add sending #7, total = 1\n").level, tavLogger::DEBUG);
}

TEST(SessionSend, WaitOfZeroOrLessIsNotTracked) {
    Pair p;
    EXPECT_EQ(p.s->send_pkt(packet(1), p.limited(0)), nullptr);
    EXPECT_EQ(p.s->send_pkt(packet(2), p.limited(-5)), nullptr);
    EXPECT_EQ(p.server->receiveFrame(), "body");
    EXPECT_EQ(p.server->receiveFrame(), "body");
    p.s->close();
    EXPECT_EQ(p.timeouts.count(), 0u);
}

TEST(SessionSend, NotConnected) {
    LogCapture log;
    TlsPeer peer;
    SessionRig rig("<a>");
    auto const s = rig.start(rig.option(peer));
    EXPECT_EQ(s->send_pkt(packet(1), send_option(1000, tav::tls::timedout_function(), false, 4)), nullptr);
    EXPECT_EQ(log.find("<a> not connected\n").level, tavLogger::ERROR);
    auto const server = peer.accept();
    ASSERT_TRUE(eventually([&] { return s->state() == 2; }));
    EXPECT_FALSE(s->send_raw(nullptr, 0)) << "nothing can be posted before the handshake's end";
    EXPECT_EQ(s->send_pkt(packet(1), send_option()), nullptr);
    EXPECT_EQ(log.count(" not connected"), 2u);
}

TEST(SessionSend, CancelledOrClosedSessionRefuses) {
    LogCapture log;
    Pair p;
    p.s->cancel_all();
    EXPECT_EQ(p.s->send_pkt(packet(1), p.limited(1000)), nullptr);
    p.s->close();
    EXPECT_EQ(p.s->send_pkt(packet(1), p.limited(1000)), nullptr);
    EXPECT_EQ(log.count("<a> not connected"), 2u);
    EXPECT_EQ(p.timeouts.count(), 0u);
}

TEST(SessionSend, FromOnOpenGoesOut) {
    TlsPeer peer;
    SessionRig rig;
    session * made = nullptr;
    tav::tls::connect_option option = rig.option(peer);
    option.set_on_open([&] {
        made->send_pkt(packet(1, "early"), send_option());
        rig.events.add("open");
    });
    auto const s = rig.make(option);
    made = s.get();
    s->open();
    s->connect();
    auto const server = peer.accept();
    ASSERT_TRUE(server->handshake());
    EXPECT_EQ(server->receiveFrame(), "early");
}

TEST(SessionSend, LargestFrameGoesOutWhole) {
    Pair p;
    std::string body(0xffffff, 'x');
    body.front() = 'a';
    body.back() = 'z';
    p.s->send_pkt(packet(1, body), send_option());
    p.s->send_pkt(packet(2, "behind"), send_option());
    EXPECT_TRUE(p.server->receiveFrame() == body);
    EXPECT_EQ(p.server->receiveFrame(), "behind");
}

TEST(SessionSendQueue, FramesPostedTogetherAreLoggedOneByOne) {
    LogCapture log;
    Pair p;
    Gate gate;
    p.rig.context()->post([&] { gate.pass(); });
    ASSERT_TRUE(gate.waitArrived());
    for (char const letter : {'a', 'b', 'c'}) {
        auto const c = static_cast<unsigned char>(letter);
        unsigned char const bytes[] = {c, c};
        ASSERT_TRUE(p.s->send_raw(bytes, c == 'c' ? 1u : 2u));
    }
    gate.open();
    EXPECT_EQ(p.server->receive(17), frame("aa") + frame("bb") + frame("c"));
    ASSERT_TRUE(log.waitFor(" sent 5 bytes"));
    EXPECT_TRUE(log.inOrder({"<a> sent 6 bytes, remaining 3 msgs.\n", "<a> sent 6 bytes, remaining 2 msgs.\n",
                             "<a> sent 5 bytes, remaining 1 msgs.\n"}));
}

TEST(SessionSendQueue, OrderHoldsAcrossSizes) {
    Pair p;
    Texts expected;
    for (unsigned i = 0; i < 400; ++i) {
        std::size_t const sizes[] = {i % 7, 16380, 16384, 30000 + i, 100};
        expected.push_back(std::string(sizes[i % 5], static_cast<char>('a' + i % 26)));
        ASSERT_EQ(p.s->send_pkt(packet(i, expected.back()), send_option()), nullptr);
    }
    for (std::string const & each : expected) {
        ASSERT_TRUE(p.server->receiveFrame() == each);
    }
}

TEST(SessionSendQueue, FramesPostedDuringAWriteFollowItInOrder) {
    Pair p;
    std::string const large(8000000, 'L');
    p.s->send_pkt(packet(1, large), send_option());
    // The far end reads nothing, so the write is still under way when the others come.
    p.s->send_pkt(packet(2, "second"), send_option());
    p.s->send_pkt(packet(3, "third"), send_option());
    EXPECT_TRUE(p.server->receiveFrame() == large);
    EXPECT_EQ(p.server->receiveFrame(), "second");
    EXPECT_EQ(p.server->receiveFrame(), "third");
}

TEST(SessionSendQueue, FailedWriteKeepsItsFramesAndIsAnError) {
    LogCapture log;
    Pair p;
    unsigned char const small[] = {'s'};
    std::string const large(8000000, 'L');
    p.s->send_raw(reinterpret_cast<unsigned char const *>(large.data()), 8000000);
    p.s->send_raw(small, 1);
    p.rig.settle();
    p.server->reset();
    ASSERT_TRUE(p.rig.events.wait(2));
    ASSERT_TRUE(log.waitFor("<a> Write failed: "));
    EXPECT_EQ(log.find(" Write failed: ").level, tavLogger::ERROR);
    p.rig.settle();
    EXPECT_TRUE(log.inOrder({"<a> remove message size 8000004\n", "<a> remove message size 5\n"}));
    EXPECT_FALSE(log.contains(" sent 8000004"));
    EXPECT_EQ(p.rig.events.count(), 2u) << "read and write both fail, and one error is told";
    EXPECT_EQ(p.s->state(), 5);
}

TEST(SessionSendQueue, CancelLogsWhatWaitsAndKeepsIt) {
    LogCapture log;
    Pair p;
    std::string const large(8000000, 'L');
    unsigned char const small[] = {'s'};
    p.s->send_raw(reinterpret_cast<unsigned char const *>(large.data()), 8000000);
    p.s->send_raw(small, 1);
    p.rig.settle();
    p.s->cancel_all();
    EXPECT_TRUE(log.inOrder(
        {"<a> cancel session\n", "<a> remove message size 8000004\n", "<a> remove message size 5\n"}));
    EXPECT_TRUE(p.server->receiveFrame() == large) << "the frames are not removed";
    EXPECT_EQ(p.server->receiveFrame(), "s");
}

TEST(SessionSendQueue, ManyThreadsSendEverything) {
    LogCapture log("clear(NONE)");
    Pair p;
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < 4; ++t) {
        threads.emplace_back([&p, t] {
            for (unsigned i = 0; i < 300; ++i) {
                p.s->send_pkt(packet(t * 1000 + i, std::to_string(t) + ":" + std::to_string(i)),
                              i % 2 == 0 ? send_option() : p.limited(60000));
            }
        });
    }
    std::vector<unsigned> next(4, 0);
    for (unsigned n = 0; n < 1200; ++n) {
        std::string const body = p.server->receiveFrame();
        unsigned const t = static_cast<unsigned>(body[0] - '0');
        ASSERT_EQ(body, std::to_string(t) + ":" + std::to_string(next[t]++));
    }
    for (std::thread & each : threads) {
        each.join();
    }
    EXPECT_EQ(p.s->sends().size(), 600u);
    p.s->close();
    EXPECT_EQ(p.s->sends().size(), 0u);
    EXPECT_TRUE(p.timeouts.wait(600));
    EXPECT_EQ(p.timeouts.count(), 600u);
}

TEST(SessionSendQueue, ThreadsKeepTheirOrderAlsoWhereSomeIsNotLeftToSender) {
    LogCapture log("clear(NONE)");
    Pair p;
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < 3; ++t) {
        threads.emplace_back([&p, t] {
            for (unsigned i = 0; i < 200; ++i) {
                // Short ones, and some that are left to "sender" for their size or their kind.
                PacketPtr const own = i % 16 != 0
                                          ? ownPacket(t * 1000 + i, std::string(i % 5 == 0 ? 9000 : 9, 'x'))
                                          : packet(t * 1000 + i, numbered(t * 1000 + i));
                p.s->send_pkt(own, i % 2 == 0 ? send_option() : p.limited(60000));
            }
        });
    }
    std::vector<unsigned> next(3, 0);
    for (unsigned n = 0; n < 600; ++n) {
        PacketPtr const got = tav::im::Packet::create(true, 4);
        std::string const frame = p.server->receiveFrame();
        ASSERT_TRUE(got->decode(tav_istr(frame)));
        unsigned const t = static_cast<unsigned>(got->sequence()) / 1000;
        ASSERT_LT(t, 3u);
        ASSERT_EQ(got->sequence(), t * 1000 + next[t]++);
    }
    for (std::thread & each : threads) {
        each.join();
    }
    EXPECT_EQ(p.s->sends().size(), 300u);
}

TEST(SessionSendQueue, LinesOfASendNameSender) {
    LogCapture log("clear(DEBUG)");
    Pair p;
    p.s->send_pkt(ownPacket(7, "body"), p.limited(60000));
    ASSERT_TRUE(log.waitFor("<a> add sending #7"));
    EXPECT_NE(log.find("<a> add sending #7").text.find("sender.0}"), std::string::npos)
        << log.find("<a> add sending #7").text;
}

TEST(SessionSendCancel, CloseBesideSendsEndsEachThatWasAccepted) {
    LogCapture log("clear(NONE)");
    for (int round = 0; round < 10; ++round) {
        Pair p;
        std::vector<std::vector<std::shared_ptr<tav::tls::send_info>>> accepted(2);
        std::vector<std::thread> threads;
        for (unsigned t = 0; t < 2; ++t) {
            threads.emplace_back([&, t] {
                for (unsigned i = 0; i < 100000; ++i) {
                    auto info = p.s->send_pkt(ownPacket(t * 100000 + i, "body"), p.limited(60000));
                    if (!info) {
                        return;
                    }
                    accepted[t].push_back(std::move(info));
                }
            });
        }
        for (int i = 0; i < 5; ++i) {
            p.server->receiveFrame();
        }
        p.s->close();
        for (std::thread & each : threads) {
            each.join();
        }
        for (auto const & of : accepted) {
            for (auto const & info : of) {
                ASSERT_EQ(waited(info), 3);
            }
        }
        EXPECT_EQ(p.timeouts.count(), accepted[0].size() + accepted[1].size()) << "each was told once";
        EXPECT_EQ(p.s->sends().size(), 0u);
    }
}

TEST(SessionSendTimeout, FiresOnceWithFiveMillisecondsOfSlack) {
    LogCapture log;
    Pair p;
    p.rig.freeze();
    p.s->on_timer(false);
    auto const info = p.s->send_pkt(packet(7), p.limited(100));
    ASSERT_TRUE(p.tracked(1));
    p.rig.advance(95);
    p.s->on_timer(false);
    EXPECT_EQ(info->result(), -1);
    p.rig.advance(1);
    p.s->on_timer(false);
    EXPECT_EQ(p.timeouts.all(), Texts{"7 4660 timedout"});
    EXPECT_EQ(info->result(), 2);
    EXPECT_EQ(waited(info), 2);
    EXPECT_EQ(p.s->sends().size(), 0u);
    EXPECT_EQ(log.find("<a> send timed out #7\n").level, tavLogger::VERBOSE);
    EXPECT_EQ(log.find(", will remove sending\n").level, tavLogger::DEBUG);
    EXPECT_EQ(info->option().wait_ms(), -100);
    p.rig.advance(1000);
    p.s->on_timer(false);
    p.s->cancel_all();
    EXPECT_EQ(p.timeouts.count(), 1u);
    EXPECT_EQ(info->result(), 2);
}

TEST(SessionSendTimeout, CountsFromTheSendAndNotFromTheLastTick) {
    Pair p(true);
    p.s->on_timer(false);
    long long const tick = p.rig.frozen_at;
    p.rig.advance(50);
    auto const info = p.s->send_pkt(packet(7), p.limited(100));
    ASSERT_NE(info, nullptr);
    EXPECT_FALSE(info->check_timedout(tick + 145));
    EXPECT_TRUE(info->check_timedout(tick + 146));
    EXPECT_EQ(info->result(), 2);
}

TEST(SessionSendTimeout, FunctionRunsWithoutTheSendsLock) {
    Pair p;
    p.rig.freeze();
    std::thread helper;
    bool done = false;
    auto const info = p.s->send_pkt(packet(1), send_option(
                                                   100,
                                                   [&](unsigned long long, unsigned short, bool) {
                                                       std::atomic<bool> asked{false};
                                                       helper = std::thread([&] {
                                                           p.s->sends().find(1, 1);
                                                           asked = true;
                                                       });
                                                       done = eventually([&] { return asked.load(); }, 2000);
                                                   },
                                                   false, 4));
    ASSERT_TRUE(p.tracked(1));
    p.rig.advance(1000);
    EXPECT_EQ(waited(info), 2);
    helper.join();
    EXPECT_TRUE(done);
}

TEST(SessionSendTimeout, ReachesAWaiterThroughTheTimer) {
    Pair p;
    auto const info = p.s->send_pkt(packet(7), p.limited(1));
    EXPECT_EQ(waited(info), tav::tls::result_timedout);
    EXPECT_EQ(p.timeouts.all(), Texts{"7 4660 timedout"});
}

TEST(SessionSendTimeout, IsToldInTheOrderOfSequences) {
    Pair p;
    p.rig.freeze();
    for (unsigned long long sno : {9ull, 3ull, 12ull, 5ull}) {
        p.s->send_pkt(packet(sno), p.limited(sno == 12 ? 1 : 100));
    }
    ASSERT_TRUE(p.tracked(4));
    p.rig.advance(1000);
    p.s->on_timer(false);
    ASSERT_TRUE(p.timeouts.wait(4));
    EXPECT_EQ(p.timeouts.all(),
              (Texts{"3 4660 timedout", "5 4660 timedout", "9 4660 timedout", "12 4660 timedout"}));
}

TEST(SessionSendTimeout, FunctionMayEndAndAddSends) {
    Pair p;
    p.rig.freeze();
    std::shared_ptr<impl::send_info> last;
    std::shared_ptr<impl::send_info> self;
    Events ran;
    auto const first = p.s->send_pkt(packet(1), send_option(
                                                    100,
                                                    [&](unsigned long long, unsigned short, bool) {
                                                        last->cancel();
                                                        p.s->sends().remove(2);
                                                        p.s->send_pkt(packet(4), p.limited(60000));
                                                        p.s->cancel_all();
                                                        ran.add("ran");
                                                    },
                                                    false, 4));
    auto const second = p.s->send_pkt(packet(2), p.limited(100));
    last = p.s->send_pkt(packet(3), p.limited(100));
    ASSERT_TRUE(p.tracked(3));
    p.rig.advance(1000);
    p.s->on_timer(false);
    ASSERT_TRUE(ran.wait(1));
    EXPECT_TRUE(eventually([&] { return first->result() == 2; }));
    EXPECT_EQ(last->result(), 3);
    EXPECT_EQ(second->result(), -1) << "it was forgotten by hand";
    second->complete(tav::tls::result_error);
    p.s->close();
    EXPECT_EQ(p.s->sends().size(), 0u);
}

TEST(SessionSendReply, IsFoundByNumberAndCodeTogether) {
    Pair p;
    auto const info = p.s->send_pkt(packet(7), p.limited(60000, 0x4321));
    ASSERT_TRUE(p.tracked(1));
    EXPECT_EQ(p.s->sends().find(7, 0x4321), info);
    EXPECT_EQ(p.s->sends().find(7, 0x4322), nullptr);
    EXPECT_EQ(p.s->sends().find(8, 0x4321), nullptr);
    p.s->cancel_all();
    EXPECT_EQ(p.s->sends().find(7, 0x4321), nullptr) << "a late reply finds nothing";
}

TEST(SessionSendReply, ClaimKeepsAllOthersFromEndingIt) {
    Pair p;
    p.rig.freeze();
    auto const info = p.s->send_pkt(packet(7), p.limited(1000));
    ASSERT_TRUE(p.tracked(1));
    ASSERT_TRUE(info->claim());
    EXPECT_FALSE(info->claim());
    p.rig.advance(5000);
    p.s->on_timer(false);
    info->cancel();
    p.s->cancel_all();
    EXPECT_EQ(info->result(), -1);
    EXPECT_EQ(p.timeouts.count(), 0u);
    info->complete(tav::tls::result_ok);
    EXPECT_EQ(waited(info), 0);
}

TEST(SessionSendReply, ClaimThatIsGivenBackLeavesItToItsLimit) {
    Pair p;
    p.rig.freeze();
    auto const info = p.s->send_pkt(packet(7), p.limited(1000));
    ASSERT_TRUE(p.tracked(1));
    ASSERT_TRUE(info->claim());
    p.s->sends().unclaim(info);
    EXPECT_EQ(info->result(), -1);
    p.rig.advance(5000);
    EXPECT_EQ(waited(info), 2);
}

TEST(SessionSendReply, ClaimThatIsGivenBackAfterTheEndOfAllIsCancelled) {
    Pair p;
    auto const info = p.s->send_pkt(packet(7), p.limited(60000));
    ASSERT_TRUE(p.tracked(1));
    ASSERT_TRUE(info->claim());
    p.s->cancel_all();
    p.s->sends().unclaim(info);
    EXPECT_EQ(info->result(), 3);
    EXPECT_EQ(p.timeouts.all(), Texts{"7 4660 cancelled"});
}

TEST(SessionSendReply, CompleteWakesAllWaiters) {
    LogCapture log;
    Pair p;
    auto const info = p.s->send_pkt(packet(7), p.limited(60000));
    ASSERT_TRUE(p.tracked(1));
    std::vector<std::future<tav::tls::result_type>> waiters;
    for (int i = 0; i < 3; ++i) {
        waiters.push_back(waitOf(info));
    }
    ASSERT_TRUE(log.waitFor("<a> send wait begin, sno = #7, send result = unknown\n", 3));
    info->complete(tav::tls::result_ok);
    p.s->sends().remove(7, info.get());
    for (auto & each : waiters) {
        EXPECT_EQ(got(std::move(each)), tav::tls::result_ok);
    }
    EXPECT_EQ(log.count("<a> send wait end, result = ok\n"), 3u);
    EXPECT_EQ(p.s->sends().size(), 0u);
    EXPECT_EQ(waited(info), 0) << "waiting afterwards returns at once";
    EXPECT_EQ(log.count("<a> send wait begin, "), 3u);
    EXPECT_EQ(info->option().wait_ms(), -60000);
    p.s->close();
    EXPECT_EQ(p.timeouts.count(), 0u) << "nothing fires after the end";
}

TEST(SessionSendReply, WaitForgetsTheSend) {
    Pair p;
    auto const info = p.s->send_pkt(packet(7), p.limited(60000));
    ASSERT_TRUE(p.tracked(1));
    std::thread other([&] { info->complete(tav::tls::result_error); });
    EXPECT_EQ(waited(info), 1);
    other.join();
    p.s->cancel_all();
    EXPECT_EQ(p.timeouts.count(), 0u);
}

TEST(SessionSendReply, RemoveTellsWhetherThereWasOne) {
    LogCapture log;
    Pair p;
    auto const info = p.s->send_pkt(packet(7), p.limited(60000));
    auto const odd = p.s->send_pkt(packet(~0ull), p.limited(60000));
    ASSERT_TRUE(p.tracked(2));
    EXPECT_FALSE(p.s->sends().remove(8));
    EXPECT_FALSE(p.s->sends().remove(~0ull)) << "all ones is nobody's number";
    EXPECT_EQ(p.s->sends().size(), 2u);
    EXPECT_FALSE(p.s->sends().remove(7, odd.get()));
    EXPECT_TRUE(p.s->sends().remove(7));
    EXPECT_FALSE(p.s->sends().remove(7));
    EXPECT_EQ(log.count("<a> removed waiting msg #7\n"), 1u);
    EXPECT_EQ(log.find(" removed waiting msg #7").level, tavLogger::INFO);
    EXPECT_FALSE(log.contains(" removed waiting msg #8"));
    info->complete(tav::tls::result_ok);
}

TEST(SessionSendCancel, OneSendIsToldAndForgotten) {
    Pair p;
    auto const info = p.s->send_pkt(packet(7), p.limited(60000));
    auto const other = p.s->send_pkt(packet(8), p.limited(60000));
    ASSERT_TRUE(p.tracked(2));
    std::thread canceller([&] { info->cancel(); });
    EXPECT_EQ(waited(info), tav::tls::result_cancelled);
    canceller.join();
    EXPECT_EQ(p.timeouts.all(), Texts{"7 4660 cancelled"});
    EXPECT_EQ(p.s->sends().size(), 1u);
    EXPECT_EQ(other->result(), -1);
    info->cancel();
    EXPECT_EQ(p.timeouts.count(), 1u);
    other->complete(tav::tls::result_ok);
    other->cancel();
    EXPECT_EQ(other->result(), 0) << "a cancel after the end changes nothing";
    EXPECT_EQ(p.timeouts.count(), 1u);
}

TEST(SessionSendCancel, AllAreToldInOrder) {
    LogCapture log;
    Pair p;
    std::vector<std::shared_ptr<impl::send_info>> infos;
    for (unsigned long long sno : {30ull, 10ull, 20ull}) {
        infos.push_back(p.s->send_pkt(packet(sno), p.limited(60000)));
    }
    ASSERT_TRUE(p.tracked(3));
    p.s->cancel_all();
    EXPECT_EQ(p.timeouts.all(), (Texts{"10 4660 cancelled", "20 4660 cancelled", "30 4660 cancelled"}));
    for (auto const & each : infos) {
        EXPECT_EQ(waited(each), 3);
    }
    EXPECT_TRUE(
        log.inOrder({"<a> cancel session\n", "<a> cancel all sending...\n", "<a> cancel sending #10\n",
                     "<a> cancel sending #20\n", "<a> cancel sending #30\n"}));
    log.clear();
    p.s->cancel_all();
    EXPECT_TRUE(log.contains(" cancel session"));
    EXPECT_FALSE(log.contains(" cancel all sending..."));
}

TEST(SessionSendCancel, FunctionThatThrowsKeepsNoSendFromItsEnd) {
    LogCapture log;
    Pair p;
    auto const bad = send_option(
        60000, [](unsigned long long, unsigned short, bool) { throw std::runtime_error("from on_timedout"); },
        false, 4);
    auto const first = p.s->send_pkt(packet(1), bad);
    auto const second = p.s->send_pkt(packet(2), p.limited(60000));
    auto const third = p.s->send_pkt(packet(3), bad);
    ASSERT_TRUE(p.tracked(3));
    EXPECT_THROW(third->cancel(), std::runtime_error) << "the canceller hears of it";
    EXPECT_EQ(third->result(), 3);
    p.s->cancel_all();
    EXPECT_EQ(first->result(), 3);
    EXPECT_EQ(second->result(), 3);
    EXPECT_EQ(p.timeouts.all(), Texts{"2 4660 cancelled"});
    EXPECT_TRUE(log.contains("<<< EXCEPTION >>> from on_timedout"));
}

TEST(SessionSendTimeout, FunctionThatThrowsKeepsNoSendFromItsEnd) {
    Pair p;
    auto const first = p.s->send_pkt(
        packet(1),
        send_option(
            1, [](unsigned long long, unsigned short, bool) { throw std::runtime_error("from on_timedout"); },
            false, 4));
    auto const second = p.s->send_pkt(packet(2), p.limited(1));
    EXPECT_EQ(waited(first), 2);
    EXPECT_EQ(waited(second), 2);
    EXPECT_EQ(p.timeouts.all(), Texts{"2 4660 timedout"});
}

TEST(SessionSendCancel, FunctionRunsWithoutTheSendsLock) {
    Pair p;
    std::thread helper;
    bool done = false;
    auto const info = p.s->send_pkt(packet(1), send_option(
                                                   60000,
                                                   [&](unsigned long long, unsigned short, bool) {
                                                       std::atomic<bool> asked{false};
                                                       helper = std::thread([&] {
                                                           p.s->sends().size();
                                                           asked = true;
                                                       });
                                                       done = eventually([&] { return asked.load(); });
                                                   },
                                                   false, 4));
    ASSERT_TRUE(p.tracked(1));
    p.s->cancel_all();
    helper.join();
    EXPECT_TRUE(done);
    EXPECT_EQ(info->result(), 3);
}

TEST(SessionSendCancel, EndOfTheConnectionEndsAllSends) {
    Pair p;
    auto const info = p.s->send_pkt(packet(7), p.limited(60000));
    ASSERT_TRUE(p.tracked(1));
    p.server->close();
    EXPECT_EQ(waited(info), 3);
    EXPECT_EQ(p.timeouts.all(), Texts{"7 4660 cancelled"});
}

TEST(SessionSendCancel, CloseEndsAllSends) {
    Pair p;
    auto const info = p.s->send_pkt(packet(7), p.limited(60000));
    ASSERT_TRUE(p.tracked(1));
    p.s->close();
    EXPECT_EQ(waited(info), 3);
    EXPECT_EQ(p.timeouts.all(), Texts{"7 4660 cancelled"});
}

TEST(SessionSendCancel, QueuedSendThatIsRefusedAfterwardsIsToldAsCancelled) {
    LogCapture log;
    Pair p;
    Gate gate;
    auto const first = p.s->send_pkt(heldUp(gate, 1), p.limited(60000));
    auto const second = p.s->send_pkt(packet(2), p.limited(60000));
    p.s->send_pkt(packet(3), send_option());
    ASSERT_TRUE(gate.waitArrived());
    p.s->cancel_all();
    EXPECT_EQ(first->result(), 3);
    gate.open();
    EXPECT_EQ(waited(second), tav::tls::result_cancelled);
    EXPECT_EQ(p.timeouts.all(), (Texts{"1 4660 cancelled", "2 4660 cancelled"}));
    ASSERT_TRUE(log.waitFor("<a> send buf fail, maybe not connected, remove #3\n"));
    EXPECT_TRUE(log.contains("<a> send buf fail, maybe not connected, remove #2\n"));
    EXPECT_EQ(log.find(" send buf fail").level, tavLogger::ERROR);
    EXPECT_EQ(p.s->sends().size(), 0u);
    EXPECT_EQ(first->result(), 3);
}

// The I/O thread has ended, so that nobody takes the frames any more.
TEST(SessionSendCancel, EachOfSeveralThatTheWireRefusesIsToldOnceAsCancelled) {
    LogCapture log;
    Pair p;
    Gate gate;
    std::vector<std::shared_ptr<impl::send_info>> infos;
    infos.push_back(p.s->send_pkt(heldUp(gate, 1), p.limited(60000)));
    for (unsigned long long sno = 2; sno <= 5; ++sno) {
        infos.push_back(p.s->send_pkt(packet(sno), p.limited(60000)));
    }
    ASSERT_TRUE(gate.waitArrived());
    p.rig.context()->close();
    ASSERT_TRUE(eventually([&] { return !p.rig.context()->post([] {}); }));
    EXPECT_TRUE(p.s->connected());
    gate.open();
    for (auto const & each : infos) {
        EXPECT_EQ(waited(each), tav::tls::result_cancelled);
    }
    EXPECT_EQ(p.timeouts.all(), (Texts{"1 4660 cancelled", "2 4660 cancelled", "3 4660 cancelled",
                                       "4 4660 cancelled", "5 4660 cancelled"}));
    EXPECT_EQ(log.count(" send buf fail, maybe not connected, remove #"), 5u);
    EXPECT_EQ(p.s->sends().size(), 0u);
    p.s->close();
    EXPECT_EQ(p.timeouts.count(), 5u) << "the end tells none of them again";
}

TEST(SessionSendCancel, CloseEndsTheSendsThatSenderNeverCameTo) {
    LogCapture log;
    Pair p;
    Gate gate;
    auto const first = p.s->send_pkt(heldUp(gate, 1), p.limited(60000));
    auto const third = p.s->send_pkt(packet(3), p.limited(60000));
    auto const second = p.s->send_pkt(packet(2), p.limited(60000));
    p.s->send_pkt(packet(4), send_option());
    ASSERT_TRUE(gate.waitArrived());
    std::thread closer([&] { p.s->close(); });
    ASSERT_TRUE(log.waitFor("thead break running {sender.0"));
    gate.open();
    closer.join();
    EXPECT_EQ(waited(first), 3) << "it was refused";
    EXPECT_EQ(waited(second), 3);
    EXPECT_EQ(waited(third), 3);
    EXPECT_EQ(p.timeouts.all(), (Texts{"1 4660 cancelled", "3 4660 cancelled", "2 4660 cancelled"}));
}

TEST(SessionSendCancel, SendThatIsCancelledAheadOfSenderIsNotTracked) {
    Pair p;
    Gate gate;
    p.s->send_pkt(heldUp(gate, 1), send_option());
    auto const second = p.s->send_pkt(packet(2, "second"), p.limited(60000));
    ASSERT_TRUE(gate.waitArrived());
    second->cancel();
    EXPECT_EQ(second->result(), 3);
    EXPECT_EQ(p.timeouts.all(), Texts{"2 4660 cancelled"});
    gate.open();
    EXPECT_EQ(p.server->receiveFrame(), "held");
    EXPECT_EQ(p.server->receiveFrame(), "second");
    EXPECT_EQ(p.s->sends().size(), 0u);
}

TEST(SessionSendReplace, FirstOfTwoWithOneNumberEndsByItsOwnLimit) {
    Pair p;
    p.rig.freeze();
    auto const first = p.s->send_pkt(packet(7, "1"), p.limited(1000, 0x1111));
    EXPECT_EQ(p.server->receiveFrame(), "1");
    auto const second = p.s->send_pkt(packet(7, "2"), p.limited(60000, 0x2222));
    EXPECT_EQ(p.server->receiveFrame(), "2");
    EXPECT_EQ(p.s->sends().size(), 1u);
    EXPECT_EQ(p.s->sends().find(7, 0x2222), second);
    EXPECT_EQ(p.s->sends().find(7, 0x1111), nullptr) << "the reply goes to the last one";
    p.rig.advance(5000);
    EXPECT_EQ(waited(first), 2);
    EXPECT_EQ(p.timeouts.all(), Texts{"7 4660 timedout"});
    EXPECT_EQ(second->result(), -1);
    EXPECT_EQ(p.s->sends().find(7, 0x2222), second);
}

TEST(SessionSendReplace, FirstOfTwoEndsWithTheSessionAheadOfItsLimit) {
    Pair p;
    auto const first = p.s->send_pkt(packet(7, "1"), p.limited(60000, 0x1111));
    auto const second = p.s->send_pkt(packet(7, "2"), p.limited(60000, 0x2222));
    EXPECT_EQ(p.server->receiveFrame(), "1");
    EXPECT_EQ(p.server->receiveFrame(), "2");
    second->complete(tav::tls::result_ok);
    p.s->sends().remove(7);
    p.s->close();
    EXPECT_EQ(waited(first), 3);
    EXPECT_EQ(second->result(), 0);
    EXPECT_EQ(p.timeouts.all(), Texts{"7 4660 cancelled"});
}

TEST(SessionSendReplace, CancelOfTheFirstLeavesTheSecondAlone) {
    Pair p;
    auto const first = p.s->send_pkt(packet(7, "1"), p.limited(60000));
    auto const second = p.s->send_pkt(packet(7, "2"), p.limited(60000));
    EXPECT_EQ(p.server->receiveFrame(), "1");
    EXPECT_EQ(p.server->receiveFrame(), "2");
    first->cancel();
    EXPECT_EQ(p.s->sends().find(7, 0x4321), second);
    p.s->cancel_all();
    EXPECT_EQ(second->result(), 3);
    EXPECT_EQ(p.timeouts.count(), 2u);
}

TEST(SessionSendFailure, BrokenPacketIsLoggedAndTheNextGoesOut) {
    LogCapture log;
    Pair p;
    auto * const broken = new TestPacket(7, 0x1234, "");
    broken->broken = true;
    auto const info = p.s->send_pkt(PacketPtr(broken), p.limited(1));
    p.s->send_pkt(packet(8, "next"), send_option());
    EXPECT_EQ(p.server->receiveFrame(), "next");
    EXPECT_TRUE(log.contains("<<< EXCEPTION >>> broken packet"));
    EXPECT_EQ(waited(info), 2) << "its time-out ends it";
}

TEST(SessionSendFailure, BrokenPacketBehindOthersStopsNothing) {
    Pair p;
    Gate gate;
    p.s->send_pkt(heldUp(gate, 1), send_option());
    ASSERT_TRUE(gate.waitArrived());
    for (int i = 0; i < 10; ++i) {
        auto * const broken = new TestPacket(7, 0x1234, "");
        broken->broken = true;
        p.s->send_pkt(PacketPtr(broken), send_option());
        p.s->send_pkt(packet(8, std::to_string(i)), send_option());
    }
    gate.open();
    EXPECT_EQ(p.server->receiveFrame(), "held");
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(p.server->receiveFrame(), std::to_string(i));
    }
}

TEST(SessionSendFailure, FrameThatIsTooLargeIsNotSentAndItsSendIsCancelled) {
    LogCapture log("clear(ERROR)");
    Pair p;
    auto const info = p.s->send_pkt(packet(7, std::string(0x1000000, 'x')), p.limited(60000));
    EXPECT_EQ(waited(info), 3);
    EXPECT_EQ(p.timeouts.all(), Texts{"7 4660 cancelled"});
    EXPECT_EQ(log.find("<a> send buf too large, 16777216 bytes, remove #7\n").level, tavLogger::ERROR);
    p.s->send_pkt(packet(8, "next"), send_option());
    EXPECT_EQ(p.server->receiveFrame(), "next");
}

TEST(SessionSendInfo, EndedSendLetsTheSessionGo) {
    LogCapture log;
    std::shared_ptr<impl::send_info> info;
    {
        Pair p;
        info = p.s->send_pkt(packet(7), p.limited(60000));
        ASSERT_TRUE(p.tracked(1));
        p.s->close();
        p.rig.forget(p.s);
        p.s.reset();
        EXPECT_TRUE(log.waitFor("<a> session destruct"));
    }
    EXPECT_EQ(waited(info), 3);
    info->cancel();
    EXPECT_EQ(waited(info), 3);
}

TEST(SessionSendInfo, FunctionsGoWithTheEnd) {
    Pair p;
    auto const witness = std::make_shared<int>(0);
    auto const info = p.s->send_pkt(
        packet(7),
        send_option(
            60000, [witness](unsigned long long, unsigned short, bool) {},
            [witness](unsigned long long, unsigned short, int, char const *) {},
            tav::tls::obj_function([witness](unsigned long long, tavMessage const &) {}), 1, false, 4));
    EXPECT_GT(witness.use_count(), 3);
    ASSERT_TRUE(p.tracked(1));
    info->complete(tav::tls::result_ok);
    EXPECT_EQ(witness.use_count(), 1);
}

TEST(SessionSendInfo, EndsMayRaceInAnyNumber) {
    LogCapture log("clear(NONE)");
    for (int round = 0; round < 30; ++round) {
        Pair p(true);
        p.s->open();
        auto const info = p.s->send_pkt(packet(7), p.limited(1));
        std::vector<std::thread> threads;
        threads.emplace_back([&] { info->cancel(); });
        threads.emplace_back([&] { p.s->cancel_all(); });
        threads.emplace_back([&] {
            if (auto const found = p.s->sends().find(7, 0x4321)) {
                found->complete(tav::tls::result_ok);
                p.s->sends().remove(7);
            }
        });
        threads.emplace_back([&] {
            p.rig.advance(1000);
            p.s->on_timer(false);
        });
        threads.emplace_back([&] { info->option(); });
        EXPECT_GE(waited(info), 0);
        for (std::thread & each : threads) {
            each.join();
        }
        EXPECT_LE(p.timeouts.count(), 1u);
        p.s->close();
        EXPECT_EQ(p.s->sends().size(), 0u);
    }
}
