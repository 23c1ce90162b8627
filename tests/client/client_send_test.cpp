#include "client/vinta_tls_client_impl.h"

#include "support/bounded.h"
#include "support/client_rig.h"
#include "support/log_capture.h"
#include "support/packet_bytes.h"

#include <gtest/gtest.h>

#include <thread>

using namespace tav_test;

namespace {

/// A message whose encoding fails.
class Broken : public Ask {
public:
    int kind;
    explicit Broken(int k) : kind(k) {}

protected:
    void traverse(tavCodecStream &) override {
        if (kind == 0) {
            throw std::runtime_error("can't encode");
        }
        throw 42;
    }
};

/// A message that can't be copied.
class Single : public Answer {
public:
    tavObject * newInstance() const override { return nullptr; }
};

/// A message that stops at a gate as it is read or printed.
class Held : public Answer {
public:
    explicit Held(Gate & g) : gate(g) {}

protected:
    void traverse(tavCodecStream & s) override {
        gate.pass();
        Answer::traverse(s);
    }

private:
    Gate & gate;
};

tls::send_option tracked(int wait_ms = 20000, unsigned short ack = 0xffff) {
    return tls::send_option(tls::timedout_option(wait_ms), tls::error_function(), tls::message_callback(),
                            ack, false, 4);
}

class ClientSend : public ::testing::Test {
protected:
    void SetUp() override { rig.connect(); }
    tls::client & client() { return rig.client; }
    /// Waits until a send of now has ended by this limit: all limits that were earlier have been looked at.
    void passesLimit(int wait_ms) {
        auto const sentinel = client().send_nbr_msg(0x4000, nullptr, 0, tracked(wait_ms));
        ASSERT_EQ(resultOf(sentinel), tls::result_timedout);
    }

    LogCapture log;
    ClientRig rig;
};

/// Runs send_and_wait on a thread of its own.
class Asking {
public:
    template <class F>
    explicit Asking(F f)
        : thread_([this, f] {
              result_ = f();
              done_ = true;
          }) {}
    ~Asking() { thread_.join(); }
    tls::result_type result() {
        eventually([&] { return done_.load(); });
        return done_ ? result_.load() : tls::result_pending;
    }
    bool done() const { return done_; }

private:
    std::atomic<tls::result_type> result_{tls::result_pending};
    std::atomic<bool> done_{false};
    std::thread thread_;
};

unsigned char const * raw(std::string const & text) {
    return reinterpret_cast<unsigned char const *>(text.data());
}

} // namespace

TEST_F(ClientSend, AnObjectGoesOutAsItsNbr) {
    Ask ask(5);
    ask.text = tavString("hi");
    auto const info = client().send_msg(ask, tracked());
    ASSERT_TRUE(info);
    Pkt const got = rig.receive();
    EXPECT_EQ(got.code, 0x1234);
    EXPECT_EQ(got.version, 4);
    EXPECT_EQ(got.affirm, 0);
    EXPECT_FALSE(got.grey);
    EXPECT_EQ(hex(got.body), hex(tav_istr(ask.encode(true))));
    EXPECT_EQ(info->msgcode(), 0x1234);
    EXPECT_EQ(info->result(), tls::result_unknown);
    EXPECT_EQ(info->option().wait_ms(), 20000);
}

TEST_F(ClientSend, APointerGoesOutTheSameWay) {
    tavSharedPtr<tavMessage> const ask(new Ask(6));
    auto const info = client().send_msg(ask, tracked());
    ASSERT_TRUE(info);
    EXPECT_EQ(hex(rig.receive().body), hex(bodyOf(6)));
    EXPECT_EQ(ask->sno, 0u);
}

TEST_F(ClientSend, ANullPointerIsNotSent) {
    EXPECT_FALSE(client().send_msg(tavSharedPtr<tavMessage>(), tracked()));
    client().send_old_nbr_msg(5, "");
    EXPECT_EQ(rig.receive().code, 5);
}

TEST_F(ClientSend, NbrGoesOutAsGiven) {
    std::string const body = bodyOf(9);
    auto const info = client().send_nbr_msg(0x4321, raw(body), static_cast<unsigned>(body.size()), tracked());
    ASSERT_TRUE(info);
    Pkt const got = rig.receive();
    EXPECT_EQ(got.code, 0x4321);
    EXPECT_EQ(hex(got.body), hex(body));
}

TEST_F(ClientSend, CodesUpToAByteMakeOldPackets) {
    for (unsigned short const code : std::initializer_list<unsigned short>{0x00, 0x05, 0x90, 0xff}) {
        client().send_nbr_msg(code, nullptr, 0, tls::send_option());
        Pkt const got = rig.receive();
        EXPECT_EQ(got.version, 0) << code;
        EXPECT_EQ(got.code, code);
    }
    for (unsigned short const code : std::initializer_list<unsigned short>{0x0100, 0xff00, 0xffff}) {
        client().send_nbr_msg(code, nullptr, 0, tls::send_option());
        Pkt const got = rig.receive();
        EXPECT_EQ(got.version, 4) << code;
        EXPECT_EQ(got.code, code);
    }
}

TEST_F(ClientSend, TheTargetStandsInOldPackets) {
    client().send_nbr_msg(0x0005, nullptr, 0, tls::send_option(), "someone");
    auto const packet = tav::im::Packet::create(false, 0);
    std::string bytes = rig.server->receiveFrame();
    ASSERT_TRUE(packet->decode(tav_istr(bytes)));
    EXPECT_EQ(std::string(packet->target()), "someone");
    client().send_old_nbr_msg(6, bodyOf(1), "another");
    bytes = rig.server->receiveFrame();
    ASSERT_TRUE(packet->decode(tav_istr(bytes)));
    EXPECT_EQ(std::string(packet->target()), "another");
    EXPECT_EQ(packet->code(), 6);
    EXPECT_EQ(std::string(packet->body()), bodyOf(1));
    client().send_msg(Ask(1), tracked());
    rig.receive();
    EXPECT_TRUE(log.contains("<n> send pkt #"));
    EXPECT_TRUE(log.contains(" {som***ne}"));
}

TEST_F(ClientSend, AnOldMessageIsNeverTracked) {
    EXPECT_FALSE(client().send_old_nbr_msg(0x91, bodyOf(1)));
    Pkt const got = rig.receive();
    EXPECT_EQ(got.code, 0x91);
    EXPECT_NE(got.sno, 0u);
    EXPECT_TRUE(log.inOrder({"<n> send old nbr msg 0x0091\n", "<n> send old nbr msg 0x0091\n",
                             "<n> send pkt #", "<n> send result: empty\n"}));
}

TEST_F(ClientSend, TheObjectsNumberCountsThenTheOptionsThenANewOne) {
    Ask ask(1);
    tls::send_option option = tracked();
    ask.sno = 17;
    option.sno = 18;
    EXPECT_EQ(client().send_msg(ask, option)->sno(), 17u);
    EXPECT_EQ(rig.receive().sno, 17u);
    ask.sno = 0;
    EXPECT_EQ(client().send_msg(ask, option)->sno(), 18u);
    EXPECT_EQ(rig.receive().sno, 18u);
    tavSharedPtr<tavMessage> const pointer(new Ask(1));
    EXPECT_EQ(client().send_msg(pointer, option)->sno(), 18u);
    EXPECT_EQ(rig.receive().sno, 18u);
    EXPECT_EQ(client().send_nbr_msg(0x4000, nullptr, 0, option)->sno(), 18u);
    EXPECT_EQ(rig.receive().sno, 18u);
    option.sno = 0;
    auto const first = client().send_msg(ask, option);
    auto const second = client().send_msg(ask, option);
    EXPECT_NE(first->sno(), 0u);
    EXPECT_EQ((first->sno() + 1) & 0xffff, second->sno());
    EXPECT_EQ(rig.receive().sno, first->sno());
    EXPECT_EQ(rig.receive().sno, second->sno());
}

TEST_F(ClientSend, NewNumbersAreOfSixtyFourBitsInOldPackets) {
    long long const now = tavTime::currentTimeMillis();
    client().send_old_nbr_msg(5, "");
    auto const sno = static_cast<long long>(rig.receive().sno);
    EXPECT_LE(sno, now + 1);
    EXPECT_GT(sno, now - 60000);
}

TEST_F(ClientSend, TheObjectsExtensionCountsThenTheOptions) {
    Ask ask(1);
    tls::send_option option = tracked();
    option.version = 6;
    option.ext.traceId = tavString("option");
    ask.ext.traceId = tavString("object");
    client().send_msg(ask, option);
    EXPECT_EQ(std::string(tav_istr(rig.receive().ext.traceId.value())), "object");
    ask.ext = tavMsgExt();
    client().send_msg(ask, option);
    EXPECT_EQ(std::string(tav_istr(rig.receive().ext.traceId.value())), "option");
    client().send_nbr_msg(0x4000, nullptr, 0, option);
    Pkt const got = rig.receive();
    EXPECT_EQ(got.version, 6);
    EXPECT_EQ(std::string(tav_istr(got.ext.traceId.value())), "option");
}

TEST_F(ClientSend, GreyAndVersionStandInThePacket) {
    client().send_msg(Ask(1), tls::send_option(tls::timedout_option(0), true, 9));
    Pkt const got = rig.receive();
    EXPECT_TRUE(got.grey);
    EXPECT_EQ(got.version, 9);
}

TEST_F(ClientSend, WithoutAWaitNothingIsTracked) {
    Events events;
    for (int wait : {0, -5}) {
        tls::send_option const option(
            wait, [&](unsigned long long, unsigned short, bool) { events.add("timedout"); },
            [&](unsigned long long, unsigned short, int, char const *) { events.add("error"); },
            tls::nbr_function([&](unsigned long long, unsigned short, unsigned char const *, unsigned,
                                  tavMsgExt) { events.add("reply"); }),
            0x1235, false, 4);
        EXPECT_FALSE(client().send_msg(Ask(1), option));
        Pkt const got = rig.receive();
        EXPECT_EQ(got.code, 0x1234);
        rig.server->send(mobile(0x1235, got.sno).framed());
    }
    ASSERT_TRUE(rig.settle());
    Events type;
    client().on_nbr_msg(0x1235, [&](unsigned long long, unsigned short, unsigned char const *, unsigned,
                                    tavMsgExt) { type.add("type"); });
    rig.server->send(mobile(0x1235, 1).framed());
    ASSERT_TRUE(type.wait(1));
    client().cancel_all();
    ASSERT_TRUE(eventually([&] { return !client().connected(); }));
    EXPECT_EQ(events.count(), 0u);
    EXPECT_FALSE(log.contains(" add sending #"));
    EXPECT_EQ(log.count("<n> send result: empty\n"), 2u);
}

TEST_F(ClientSend, TheOptionIsCopiedAtOnce) {
    Events events;
    tls::send_option option(
        20000,
        [&](unsigned long long, unsigned short, bool cancelled) {
            events.add(cancelled ? "cancelled" : "no");
        },
        false, 4);
    auto const info = client().send_msg(Ask(1), option);
    option.clear();
    rig.receive();
    info->cancel();
    EXPECT_EQ(events.all(), (std::vector<std::string>{"cancelled"}));
    EXPECT_EQ(info->result(), tls::result_cancelled);
    EXPECT_EQ(info->option().wait_ms(), -20000);
}

TEST_F(ClientSend, EachMemberLogsWhatItSendsAndTheResult) {
    tls::send_option option = tracked();
    option.sno = 7;
    client().send_msg(Ask(1), option);
    EXPECT_TRUE(
        log.inOrder({"<n> send msg obj 0x1234\n", "<n> send obj msg  0x1234\n", "<n> send pkt #7 0x1234",
                     "<n> send result: sno = #7, send result = unknown\n"}));
    EXPECT_EQ(log.find("<n> send obj msg ").level, tavLogger::VERBOSE);
    rig.receive();
    log.clear();
    client().send_msg(tavSharedPtr<tavMessage>(new Ask(1)), option);
    EXPECT_TRUE(
        log.inOrder({"<n> send msg ptr 0x1234\n", "<n> send ptr msg  0x1234\n", "<n> send pkt #7 0x1234",
                     "<n> send result: sno = #7, send result = unknown\n"}));
    EXPECT_EQ(log.find("<n> send ptr msg ").level, tavLogger::VERBOSE);
    rig.receive();
    log.clear();
    client().send_nbr_msg(0xabcd, nullptr, 0, option);
    EXPECT_TRUE(
        log.inOrder({"<n> send nbr msg 0xABCD\n", "<n> send nbr msg  0xABCD\n", "<n> send pkt #7 0xABCD",
                     "<n> send result: sno = #7, send result = unknown\n"}));
    rig.receive();
}

TEST_F(ClientSend, ThePacketIsLoggedWithTheObjectOrItsNbr) {
    client().send_msg(Ask(5), tracked());
    LogCapture::Record const object = log.find("<n> send pkt #");
    EXPECT_EQ(object.level, tavLogger::INFO);
    EXPECT_NE(object.text.find(" 0x1234 00***00 v4 ["), std::string::npos) << object.text;
    EXPECT_NE(object.text.find(" / obj @Msg{"), std::string::npos) << object.text;
    rig.receive();
    log.clear();
    std::string const body = bodyOf(5);
    client().send_nbr_msg(0x4000, raw(body), static_cast<unsigned>(body.size()), tracked());
    LogCapture::Record const nbr = log.find("<n> send pkt #");
    EXPECT_EQ(nbr.level, tavLogger::INFO);
    EXPECT_NE(nbr.text.find(" / nbr "), std::string::npos) << nbr.text;
    EXPECT_FALSE(log.contains(" json "));
    rig.receive();
}

TEST_F(ClientSend, ABodyThatIsNotNbrIsNotSent) {
    std::string const bad = "hello";
    EXPECT_FALSE(client().send_nbr_msg(0x4000, raw(bad), 5, tracked()));
    EXPECT_FALSE(client().send_old_nbr_msg(5, bad));
    EXPECT_EQ(log.count("<<< EXCEPTION >>> "), 2u);
    EXPECT_EQ(log.find("<<< EXCEPTION >>> ").level, tavLogger::ERROR);
    EXPECT_TRUE(log.contains("\n    catch at "));
    EXPECT_EQ(log.count("<n> send result: empty\n"), 2u);
    client().send_nbr_msg(0x4001, nullptr, 0, tls::send_option());
    EXPECT_EQ(rig.receive().code, 0x4001);
}

TEST_F(ClientSend, AnEncodingThatFailsGivesNull) {
    EXPECT_FALSE(client().send_msg(Broken(0), tracked()));
    EXPECT_TRUE(log.contains("<<< EXCEPTION >>> can't encode\n    catch at "));
    EXPECT_FALSE(client().send_msg(tavSharedPtr<tavMessage>(new Broken(1)), tracked()));
    Answer answer;
    EXPECT_EQ(client().send_and_wait(Broken(0), answer, 1000), tls::result_error);
    client().send_nbr_msg(0x4001, nullptr, 0, tls::send_option());
    EXPECT_EQ(rig.receive().code, 0x4001);
}

TEST_F(ClientSend, NoMessageAtAllIsNotSent) {
    EXPECT_FALSE(client().send_msg(tavSharedPtr<tavMessage>(), tracked()));
    EXPECT_EQ(tls::last_failure(), tls::failure::encoding_failed);
    EXPECT_EQ(log.find("<n> send ptr msg  null\n").level, tavLogger::ERROR);
}

TEST(ClientSendAlone, WithoutASessionItIsNull) {
    LogCapture log;
    tls::client c("n");
    EXPECT_FALSE(c.send_msg(Ask(1), tracked()));
    EXPECT_EQ(log.find("<n> no session\n").level, tavLogger::ERROR);
    Answer answer;
    EXPECT_EQ(c.send_and_wait(Ask(1), answer, 1000), tls::result_error);
    EXPECT_EQ(log.count("<n> no session\n"), 2u);
    EXPECT_EQ(log.count("<n> send result: empty\n"), 1u);
}

TEST(ClientSendAlone, WhileConnectingItIsNull) {
    LogCapture log;
    ClientRig rig;
    auto const info = rig.client.start(rig.option());
    rig.server = rig.peer.accept();
    ASSERT_TRUE(log.waitFor("<n> connected, start client handshake..."));
    EXPECT_FALSE(rig.client.send_msg(Ask(1), tracked()));
    EXPECT_EQ(log.find("<n> session not connected\n").level, tavLogger::ERROR);
    rig.client.close();
    resultOf(info);
}

TEST(ClientSendAlone, AMessageThatDoesNotFitAFrameIsNotSent) {
    LogCapture log("clear(ERROR)");
    Events events;
    ClientRig rig;
    rig.connect();
    Ask ask(1);
    auto const setBodySize = [&](std::size_t size) {
        ask.text = tavString(std::string(16000000, 'x'));
        std::size_t const rest = ask.encode(true).size() - 16000000;
        ask.text = tavString(std::string(size - rest, 'x'));
        ASSERT_EQ(ask.encode(true).size(), size);
    };
    constexpr std::size_t most = 0xffffff;
    constexpr std::size_t head = 16;
    tls::send_option const option(
        60000, [&](unsigned long long, unsigned short, bool) { events.add("told"); }, false, 4);
    setBodySize(most - head);
    EXPECT_TRUE(rig.client.send_msg(ask, option));
    EXPECT_EQ(rig.server->receiveFrame().size(), most);
    EXPECT_EQ(log.count(" too large"), 0u);

    setBodySize(most - head + 1);
    EXPECT_FALSE(rig.client.send_msg(ask, option));
    EXPECT_EQ(log.find("<n> send pkt too large, 16777216 bytes, at most 16777215\n").level, tavLogger::ERROR);
    Answer answer;
    EXPECT_EQ(rig.client.send_and_wait(ask, answer, 60000), tls::result_error);
    tavBytes const body = ask.encode(true);
    EXPECT_FALSE(rig.client.send_nbr_msg(0x4000, body.data(), body.size(), option));
    EXPECT_FALSE(rig.client.send_old_nbr_msg(5, tav_istr(body)));
    EXPECT_EQ(log.count(" too large"), 4u);

    std::string const huge(20000000, '\0');
    EXPECT_FALSE(rig.client.send_nbr_msg(0x4000, raw(huge), 20000000, option));
    EXPECT_TRUE(log.contains("<n> send pkt too large, 20000000 bytes, at most 16777215\n"));

    rig.client.send_nbr_msg(0x4001, nullptr, 0, option);
    EXPECT_EQ(rig.receive().code, 0x4001) << "nothing was sent in between";
    EXPECT_TRUE(rig.client.connected());
    EXPECT_EQ(events.count(), 0u);
}

TEST_F(ClientSend, FromManyThreadsEachArrivesOnce) {
    // A send that no line tells of need not go by "sender".
    for (tavLogger::LogLevel const level : {tavLogger::TRACE, tavLogger::WARN}) {
        tavLogger::setLogLevel(tav_istr("TLS.CLT"), level);
        constexpr unsigned threads = 4;
        constexpr unsigned each = 50;
        std::vector<std::thread> senders;
        for (unsigned t = 0; t < threads; ++t) {
            senders.emplace_back([&, t] {
                for (unsigned i = 0; i < each; ++i) {
                    tls::send_option option = tracked();
                    option.sno = t * each + i + 1;
                    EXPECT_TRUE(client().send_msg(Ask(static_cast<int>(i)), option));
                }
            });
        }
        std::vector<bool> came(threads * each + 1);
        std::vector<unsigned long long> last(threads);
        for (unsigned i = 0; i < threads * each; ++i) {
            unsigned long long const sno = rig.receive().sno;
            ASSERT_LE(sno, threads * each);
            ASSERT_FALSE(came[sno]);
            came[sno] = true;
            // Each thread's own messages keep their order.
            unsigned long long & before = last[(sno - 1) / each];
            EXPECT_LT(before, sno);
            before = sno;
        }
        for (std::thread & sender : senders) {
            sender.join();
        }
    }
}

TEST_F(ClientSend, TimeOutIsToldOnceAndEndsTheSend) {
    Events events;
    auto const info = client().send_msg(
        Ask(1), tls::send_option(
                    200,
                    [&](unsigned long long sno, unsigned short code, bool cancelled) {
                        events.add(textOf(sno) + " " + textOf(code) + (cancelled ? " c" : " t"));
                    },
                    false, 4));
    unsigned long long const sno = rig.receive().sno;
    EXPECT_EQ(waited(info), tls::result_timedout);
    client().cancel_all();
    ASSERT_TRUE(eventually([&] { return !client().connected(); }));
    EXPECT_EQ(events.all(), (std::vector<std::string>{textOf(sno) + " 4660 t"}));
}

TEST_F(ClientSend, ACallbackSlowerThanTheLimitIsNeverToldATimeOutToo) {
    Events events;
    Gate gate;
    auto const info =
        client().send_msg(Ask(1), tls::send_option(
                                      200,
                                      [&](unsigned long long, unsigned short, bool cancelled) {
                                          events.add(cancelled ? "cancelled" : "timedout");
                                      },
                                      tls::error_function(),
                                      tls::nbr_function([&](unsigned long long, unsigned short,
                                                            unsigned char const *, unsigned, tavMsgExt) {
                                          events.add("reply");
                                          gate.pass();
                                      }),
                                      0x1235, false, 4));
    rig.server->send(mobile(0x1235, rig.receive().sno).framed());
    ASSERT_TRUE(gate.waitArrived());
    passesLimit(400);
    info->cancel();
    EXPECT_EQ(info->result(), tls::result_unknown) << "the reply has it";
    gate.open();
    EXPECT_EQ(resultOf(info), tls::result_ok);
    EXPECT_EQ(waited(info), tls::result_ok);
    EXPECT_EQ(events.all(), std::vector<std::string>{"reply"});
}

TEST_F(ClientSend, ALimitBeginsWithTheSendHoweverLateTheTickIs) {
    Events events;
    auto const slow =
        client().send_msg(Ask(1), tls::send_option(
                                      1,
                                      [&](unsigned long long, unsigned short, bool) {
                                          events.add("slow");
                                          std::this_thread::sleep_for(std::chrono::milliseconds(700));
                                      },
                                      false, 4));
    ASSERT_TRUE(events.wait(1));
    eventually([] { return false; }, 500);
    auto const begin = std::chrono::steady_clock::now();
    Answer answer;
    EXPECT_EQ(client().send_and_wait(Ask(2), answer, 700), tls::result_timedout);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(694));
    EXPECT_EQ(waited(slow), tls::result_timedout);
}

TEST_F(ClientSend, ATimeOutFunctionKeepsNobodyFromAReply) {
    Gate gate;
    auto const slow = client().send_msg(
        Ask(1), tls::send_option(
                    1, [&](unsigned long long, unsigned short, bool) { gate.pass(); }, false, 4));
    rig.receive();
    ASSERT_TRUE(gate.waitArrived());
    Answer answer;
    Asking asking([&] { return client().send_and_wait(Ask(2), answer, 60000); });
    rig.server->send(mobile(0x1235, rig.receive().sno, bodyOf(42)).framed());
    EXPECT_EQ(asking.result(), tls::result_ok);
    EXPECT_EQ(slow->result(), tls::result_unknown);
    gate.open();
    EXPECT_EQ(waited(slow), tls::result_timedout);
}

TEST_F(ClientSend, ANumberThatIsUsedAgainLeavesTheFirstSendItsLimit) {
    tls::send_option option = tracked(200);
    option.sno = 7;
    auto const first = client().send_msg(Ask(1), option);
    option = tracked(60000, 0x1235);
    option.sno = 7;
    auto const second = client().send_msg(Ask(2), option);
    EXPECT_EQ(resultOf(first), tls::result_timedout);
    EXPECT_EQ(second->result(), tls::result_unknown);
    rig.server->send(mobile(0x1235, 7).framed());
    EXPECT_EQ(resultOf(second), tls::result_ok);
}

TEST_F(ClientSend, ACancelAfterTheEndChangesNothing) {
    Events events;
    auto const info = client().send_msg(
        Ask(1), tls::send_option(
                    20000, [&](unsigned long long, unsigned short, bool) { events.add("told"); },
                    tls::error_function(), tls::nbr_function(), 0x1235, false, 4));
    rig.server->send(mobile(0x1235, rig.receive().sno).framed());
    ASSERT_EQ(resultOf(info), tls::result_ok);
    info->cancel();
    EXPECT_EQ(info->result(), tls::result_ok);
    EXPECT_EQ(waited(info), tls::result_ok);
    EXPECT_EQ(events.count(), 0u);
    auto const timed = client().send_msg(Ask(1), tracked(1));
    ASSERT_EQ(resultOf(timed), tls::result_timedout);
    timed->cancel();
    EXPECT_EQ(timed->result(), tls::result_timedout);
    auto const connect = client().start(rig.option(), true);
    ASSERT_EQ(connect->result(), tls::result_ok);
    connect->cancel();
    EXPECT_EQ(connect->result(), tls::result_ok);
    EXPECT_TRUE(client().connected());
}

TEST_F(ClientSend, EachSendThatWasAcceptedIsToldItsEnd) {
    for (int round = 0; round < 20; ++round) {
        // A send that no line tells of need not go by "sender".
        tavLogger::setLogLevel(tav_istr("TLS.CLT"), round % 2 == 0 ? tavLogger::TRACE : tavLogger::WARN);
        std::atomic<unsigned> told{0};
        tls::send_option const option(
            60000,
            [&](unsigned long long, unsigned short, bool cancelled) { told += cancelled ? 1u : 1000000u; },
            false, 4);
        std::vector<std::shared_ptr<tls::send_info>> accepted;
        unsigned const before = 20u + 15u * static_cast<unsigned>(round);
        while (auto info = client().send_nbr_msg(0x4000, nullptr, 0, option)) {
            accepted.push_back(std::move(info));
            if (accepted.size() == before) {
                rig.server->reset();
            }
        }
        for (auto const & info : accepted) {
            ASSERT_EQ(resultOf(info), tls::result_cancelled);
        }
        EXPECT_EQ(told, accepted.size());
        rig.reconnect();
    }
}

TEST_F(ClientSend, EachThatWaitsForTheWireAsItGoesIsToldOnceAsCancelled) {
    Gate gate;
    log.at("<n> add sending #", [&] { gate.pass(); });
    ASSERT_TRUE(client().send_msg(Ask(1), tracked()));
    ASSERT_TRUE(gate.waitArrived());
    constexpr unsigned total = 5;
    Events events;
    std::vector<std::shared_ptr<tls::send_info>> waiting;
    for (unsigned n = 0; n < total; ++n) {
        waiting.push_back(client().send_msg(
            Ask(2), tls::send_option(
                        60000,
                        [&events, n](unsigned long long, unsigned short, bool cancelled) {
                            events.add(textOf(n) + (cancelled ? " cancelled" : " timedout"));
                        },
                        false, 4)));
        ASSERT_TRUE(waiting.back());
    }
    rig.server->reset();
    ASSERT_TRUE(log.waitFor("<n> socket closed."));
    EXPECT_EQ(events.count(), 0u) << "nobody has come to them yet";
    gate.open();
    for (auto const & each : waiting) {
        EXPECT_EQ(waited(each), tls::result_cancelled);
    }
    std::vector<std::string> const once{"0 cancelled", "1 cancelled", "2 cancelled", "3 cancelled",
                                        "4 cancelled"};
    EXPECT_EQ(events.all(), once);
    EXPECT_EQ(log.count("<n> send buf fail, maybe not connected, remove #"), total + 1);
    rig.reconnect();
    EXPECT_EQ(events.all(), once) << "the end of the session tells none of them again";
    log.at(std::string(), nullptr);
}

TEST_F(ClientSend, CancelCompletesEvenIfItsFunctionThrows) {
    auto const info = client().send_msg(
        Ask(1), tls::send_option(
                    20000, [](unsigned long long, unsigned short, bool) { throw std::runtime_error("own"); },
                    false, 4));
    rig.receive();
    EXPECT_THROW(info->cancel(), std::runtime_error);
    EXPECT_EQ(info->result(), tls::result_cancelled);
}

TEST_F(ClientSend, ASendInfoOutlivesTheClient) {
    auto other = std::make_unique<ClientRig>("m");
    other->connect();
    auto const info = other->client.send_msg(Ask(1), tracked());
    other->receive();
    other.reset();
    EXPECT_EQ(waited(info), tls::result_cancelled);
    info->cancel();
    EXPECT_EQ(info->result(), tls::result_cancelled);
    EXPECT_EQ(info->msgcode(), 0x1234);
}

TEST_F(ClientSend, AndWaitFillsTheAnswer) {
    Answer answer(1);
    Asking asking([&] { return client().send_and_wait(Ask(3), answer, 20000); });
    Pkt const got = rig.receive();
    EXPECT_EQ(got.code, 0x1234);
    EXPECT_EQ(got.version, 4);
    EXPECT_FALSE(got.grey);
    Pkt reply = mobile(0x1235, got.sno, bodyOf(42));
    reply.version = 6;
    reply.ext.serverTime = 1;
    reply.ext.clientTime = 2;
    reply.ext.traceId = tavString("t");
    rig.server->send(reply.framed());
    EXPECT_EQ(asking.result(), tls::result_ok);
    EXPECT_EQ(answer.number, 42);
    EXPECT_EQ(answer.sno, got.sno);
    EXPECT_EQ(answer.ext.serverTime.value(), 1);
    EXPECT_EQ(answer.ext.clientTime.value(), 2);
    EXPECT_EQ(std::string(tav_istr(answer.ext.traceId.value())), "t");
    EXPECT_TRUE(log.inOrder({"<n> send arg 0x1234, expect ack obj 0x1235, wait 20000ms, grey 0, version 4\n",
                             "<n> send obj msg  0x1234\n", "<n> send pkt #", "<n> ack @Msg{",
                             "<n> send and wait result = ok\n"}));
}

TEST_F(ClientSend, AndWaitTakesAPointer) {
    tavSharedPtr<tavMessage> const answer(new Answer(1));
    Asking asking([&] { return client().send_and_wait(Ask(3), answer, 20000, true, 6); });
    Pkt const got = rig.receive();
    EXPECT_TRUE(got.grey);
    EXPECT_EQ(got.version, 6);
    rig.server->send(mobile(0x1235, got.sno, bodyOf(43)).framed());
    EXPECT_EQ(asking.result(), tls::result_ok);
    EXPECT_EQ(dynamic_cast<Answer const &>(*answer).number, 43);
    EXPECT_TRUE(
        log.contains("<n> send arg 0x1234, expect ack ptr 0x1235, wait 20000ms, grey 1, version 6\n"));
}

TEST_F(ClientSend, AndWaitNeedsAnAnswerObject) {
    EXPECT_EQ(client().send_and_wait(Ask(3), tavSharedPtr<tavMessage>(), 1000), tls::result_error);
    EXPECT_EQ(log.find("<n> no ack object\n").level, tavLogger::ERROR);
    Single single;
    EXPECT_EQ(client().send_and_wait(Ask(3), single, 1000), tls::result_error);
    client().send_nbr_msg(0x4001, nullptr, 0, tls::send_option());
    EXPECT_EQ(rig.receive().code, 0x4001);
}

TEST_F(ClientSend, AndWaitWithoutALimitSendsAndReturnsErrorAtOnce) {
    Answer answer(1);
    EXPECT_EQ(client().send_and_wait(Ask(3), answer, 0), tls::result_error);
    EXPECT_EQ(client().send_and_wait(Ask(4), answer, -1), tls::result_error);
    EXPECT_EQ(hex(rig.receive().body), hex(bodyOf(3)));
    EXPECT_EQ(hex(rig.receive().body), hex(bodyOf(4)));
    EXPECT_EQ(answer.number, 1);
    EXPECT_EQ(log.count("<n> send and wait result = error\n"), 2u);
}

TEST_F(ClientSend, AndWaitEndsByItsLimitAndNothingIsWrittenLater) {
    Answer answer(1);
    EXPECT_EQ(client().send_and_wait(Ask(3), answer, 200), tls::result_timedout);
    EXPECT_EQ(answer.number, 1);
    Pkt const got = rig.receive();
    EXPECT_TRUE(log.contains("<n> #" + textOf(got.sno) + " 0x1234 timedout\n"));
    EXPECT_TRUE(log.contains("<n> send and wait result = timedout\n"));
    Events type;
    client().on_nbr_msg(0x1235, [&](unsigned long long, unsigned short, unsigned char const *, unsigned,
                                    tavMsgExt) { type.add("type"); });
    rig.server->send(mobile(0x1235, got.sno, bodyOf(42)).framed());
    ASSERT_TRUE(type.wait(1));
    EXPECT_EQ(answer.number, 1);
}

TEST_F(ClientSend, AndWaitIgnoresAReplyOfAnotherCode) {
    Answer answer(1);
    Asking asking([&] { return client().send_and_wait(Ask(3), answer, 20000); });
    Pkt const got = rig.receive();
    rig.server->send(mobile(0x1236, got.sno, bodyOf(41)).framed());
    ASSERT_TRUE(rig.settle());
    EXPECT_FALSE(asking.done());
    rig.server->send(mobile(0x1235, got.sno, bodyOf(42)).framed());
    EXPECT_EQ(asking.result(), tls::result_ok);
    EXPECT_EQ(answer.number, 42);
}

TEST_F(ClientSend, AndWaitIsCancelledWithTheSession) {
    Answer answer(1);
    Asking asking([&] { return client().send_and_wait(Ask(3), answer, 20000); });
    Pkt const got = rig.receive();
    client().close();
    EXPECT_EQ(asking.result(), tls::result_cancelled);
    EXPECT_EQ(answer.number, 1);
    EXPECT_TRUE(log.contains("<n> #" + textOf(got.sno) + " 0x1234 cancelled\n"));
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
/// As an application reads it, of whichever standard: C++20 would have a pointer of a type that is atomic.
static std::shared_ptr<tls::send_info> handedOut(std::shared_ptr<tls::send_info> const & out) {
    return std::atomic_load(&out);
}
#pragma GCC diagnostic pop

TEST_F(ClientSend, AndWaitHandsOutTheSendForAnotherThreadToCancel) {
    Answer answer(1);
    std::shared_ptr<tls::send_info> out;
    Asking asking([&] { return client().send_and_wait(&out, Ask(3), answer, 20000); });
    Pkt const got = rig.receive();
    std::shared_ptr<tls::send_info> seen;
    ASSERT_TRUE(eventually([&] { return (seen = handedOut(out)) != nullptr; }));
    EXPECT_EQ(seen->sno(), got.sno);
    seen->cancel();
    EXPECT_EQ(asking.result(), tls::result_cancelled);
    EXPECT_FALSE(handedOut(out));
    EXPECT_EQ(answer.number, 1);
}

TEST_F(ClientSend, AndWaitClearsOutOnlyIfItWasSet) {
    client().close();
    ASSERT_TRUE(log.waitFor("<n> session destruct\n"));
    Answer answer(1);
    std::shared_ptr<tls::send_info> out;
    EXPECT_EQ(client().send_and_wait(&out, Ask(3), answer, 1000), tls::result_error);
    EXPECT_FALSE(out);
}

TEST_F(ClientSend, AndWaitWithAReplyThatDoesNotFitEndsByItsLimit) {
    Answer answer(1);
    Asking asking([&] { return client().send_and_wait(Ask(3), answer, 400); });
    Pkt const got = rig.receive();
    rig.server->send(mobile(0x1235, got.sno, "hello").framed());
    EXPECT_EQ(asking.result(), tls::result_timedout);
    EXPECT_EQ(answer.number, 1);
}

TEST_F(ClientSend, AndWaitWithAReplyInHandAsItsLimitPassesIsAnswered) {
    Gate gate;
    tavSharedPtr<tavMessage> const answer(new Held(gate));
    Asking asking([&] { return client().send_and_wait(Ask(3), answer, 200); });
    Pkt const got = rig.receive();
    rig.server->send(mobile(0x1235, got.sno, bodyOf(42)).framed());
    ASSERT_TRUE(gate.waitArrived());
    passesLimit(400);
    EXPECT_FALSE(asking.done());
    gate.open();
    EXPECT_EQ(asking.result(), tls::result_ok);
    EXPECT_EQ(dynamic_cast<Answer const &>(*answer).number, 42);
    EXPECT_EQ(answer->getRefCount(), 1u) << "it is the caller's alone again";
    EXPECT_FALSE(log.contains("<n> #" + textOf(got.sno) + " 0x1234 timedout\n"));
}

TEST_F(ClientSend, AndWaitBesideItsOwnLimitNeverWritesLater) {
    // Replies that come just as the limit ends: whatever the result, the answer is the caller's again.
    for (int i = 0; i < 5; ++i) {
        tavSharedPtr<tavMessage> const answer(new Answer(1));
        tls::result_type result = tls::result_pending;
        std::thread asking([&] {
            result = client().send_and_wait(Ask(3), answer, 100 + i);
            dynamic_cast<Answer &>(*answer).number = 7;
        });
        Pkt const got = rig.receive();
        std::thread answering([&] {
            for (int n = 0; n < 400; ++n) {
                rig.server->send(mobile(0x1235, got.sno, bodyOf(42)).framed());
                if (n > 150) {
                    std::this_thread::yield();
                }
            }
        });
        asking.join();
        answering.join();
        ASSERT_TRUE(rig.settle());
        EXPECT_TRUE(result == tls::result_ok || result == tls::result_timedout);
        EXPECT_EQ(dynamic_cast<Answer const &>(*answer).number, 7);
    }
}

TEST_F(ClientSend, AndWaitOnTheReceiverEndsByItsLimit) {
    Events events;
    client().on_nbr_msg(0x4000, [&](unsigned long long, unsigned short, unsigned char const *, unsigned,
                                    tavMsgExt) {
        Answer answer(1);
        events.add(client().send_and_wait(Ask(3), answer, 300) == tls::result_timedout ? "timedout" : "no");
    });
    rig.server->send(mobile(0x4000, 1).framed());
    Pkt const got = rig.receive();
    rig.server->send(mobile(0x1235, got.sno, bodyOf(42)).framed());
    ASSERT_TRUE(events.wait(1));
    EXPECT_EQ(events.all()[0], "timedout");
}

TEST_F(ClientSend, ManyCanWaitAtOnce) {
    constexpr int n = 8;
    std::vector<std::thread> waiting;
    std::atomic<int> good{0};
    for (int i = 0; i < n; ++i) {
        waiting.emplace_back([&, i] {
            Answer answer;
            if (client().send_and_wait(Ask(i), answer, 20000) == tls::result_ok && answer.number == i) {
                ++good;
            }
        });
    }
    for (int i = 0; i < n; ++i) {
        Pkt got = rig.receive();
        got.code = 0x1235;
        rig.server->send(got.framed());
    }
    for (std::thread & each : waiting) {
        each.join();
    }
    EXPECT_EQ(good, n);
}
