#include "tav/vinta/vinta_tls_client.h"

#include "support/worst_gateway.h"

#include <gtest/gtest.h>

using namespace tav_test;
using tls::failure;

namespace {

constexpr std::size_t largest_record = 16384;

/// An open connection whose messages are told by their numbers and sizes.
class Listening {
public:
    Listening() {
        it.client.on_nbr_msg(
            0x3001, [this](unsigned long long sno, unsigned short, unsigned char const *, unsigned size,
                           tavMsgExt) { got.add(std::to_string(sno) + ":" + std::to_string(size)); });
        it.open();
    }

    /// Whether exactly these numbers come, each with a body of this size.
    ::testing::AssertionResult comes(unsigned messages, std::size_t size, int ms = peer_limit_ms) {
        got.wait(messages, ms);
        std::vector<std::string> const all = got.all();
        if (all.size() != messages) {
            return ::testing::AssertionFailure() << all.size() << " of " << messages;
        }
        for (unsigned i = 0; i < messages; ++i) {
            if (all[i] != std::to_string(i) + ":" + std::to_string(size)) {
                return ::testing::AssertionFailure() << all[i] << " in the place of " << i;
            }
        }
        return ::testing::AssertionSuccess();
    }

    Events got;
    WorstMeeting it;
};

/// Messages with numbers from 0 on, and empty frames ahead of each.
std::string framesOf(unsigned messages, std::string const & body, unsigned empty = 0) {
    std::string out;
    for (unsigned i = 0; i < messages; ++i) {
        out += std::string(4u * empty, '\0') + mobile(0x3001, i, body).framed();
    }
    return out;
}

std::string length(unsigned long v) {
    std::string out;
    for (int shift = 24; shift >= 0; shift -= 8) {
        out.push_back(static_cast<char>(static_cast<unsigned char>(v >> shift)));
    }
    return out;
}

/// One NBR value that fills a frame of the largest size.
std::string largestBody() {
    std::size_t const size = 0xffffff - 16;
    std::size_t const block = size - 4;
    std::string out("\x03", 1);
    for (int shift = 0; shift <= 16; shift += 8) {
        out.push_back(static_cast<char>(static_cast<unsigned char>(block >> shift)));
    }
    out.resize(size, 'x');
    return out;
}

enum Ending { by_socket, by_notice, by_reset };

struct Row {
    char const * what;
    /// What is sent ahead of the end.
    std::string bytes;
    Ending ending;
    char const * text;
    failure name;
    char const * part;
};

std::vector<Row> endings() {
    std::string const message = mobile(0x3001, 1).framed();
    return {
        {"half close", "", by_socket, "stream truncated", failure::closed_by_peer, "header"},
        {"TLS's word of the end", "", by_notice, "End of file", failure::closed_by_peer, "header"},
        {"reset", "", by_reset, "Connection reset by peer", failure::connection_lost, "header"},
        {"no close_notify behind a message", message, by_socket, "stream truncated", failure::closed_by_peer,
         "header"},
        {"close_notify behind a message", message, by_notice, "End of file", failure::closed_by_peer,
         "header"},
        {"within a length", message + std::string(3, '\0'), by_socket, "stream truncated",
         failure::closed_by_peer, "header"},
        {"within a body", message + length(100) + "x", by_socket, "stream truncated", failure::closed_by_peer,
         "body"},
        {"within a body, by TLS's word", message + length(100) + "x", by_notice, "End of file",
         failure::closed_by_peer, "body"},
        {"ahead of the largest body", message + length(0xffffff), by_socket, "stream truncated",
         failure::closed_by_peer, "body"},
    };
}

} // namespace

// What came ahead of the end is handled first, and a request that waits is cancelled by it.
TEST(WorstFrames, EachKindOfEndIsOneErrorByItsName) {
    for (Row const & row : endings()) {
        SCOPED_TRACE(row.what);
        Listening at;
        auto const waiting = at.it.ask();
        at.it.server->receive();
        at.it.server->send(row.bytes);
        if (row.ending == by_reset) {
            at.it.server->reset();
        } else {
            if (row.ending == by_notice) {
                at.it.server->notice();
            }
            EXPECT_TRUE(at.it.server->end()) << "the client leaves too";
        }
        EXPECT_TRUE(at.it.isStory(brokenRead(row.text, row.name, row.part)));
        EXPECT_EQ(at.got.count(), row.bytes.empty() ? 0u : 1u);
        EXPECT_EQ(resultOf(waiting), tls::result_cancelled);
        EXPECT_EQ(waiting->error(), row.name);
        EXPECT_EQ(at.it.ends.all(), std::vector<std::string>{"cancelled 5"});
        at.it.expectRecovery();
    }
}

TEST(WorstFrames, OneByteInARecordIsBorne) {
    Listening at;
    auto const waiting = at.it.ask();
    Pkt const request = at.it.server->receive();
    ASSERT_TRUE(at.it.server->send(framesOf(20, bodyOf(5)) + mobile(0x1235, request.sno).framed(), 1));
    EXPECT_TRUE(at.comes(20, bodyOf(5).size()));
    EXPECT_EQ(resultOf(waiting), tls::result_ok);
    EXPECT_TRUE(at.it.isStory(opened()));
    at.it.expectRecovery();
}

TEST(WorstFrames, OneFrameInTwoThousandRecordsIsOne) {
    Listening at;
    std::string const body = std::string("\x02\x69\x3e", 3) + std::string(0x3e69, 'x');
    std::string const bytes = framesOf(1, body);
    ASSERT_EQ(bytes.size(), 2000u * 8);
    ASSERT_TRUE(at.it.server->send(bytes, 8));
    EXPECT_TRUE(at.comes(1, body.size()));
    EXPECT_TRUE(at.it.isStory(opened()));
    at.it.expectRecovery();
}

TEST(WorstFrames, TwoThousandFramesInOneRecordAreTwoThousand) {
    Listening at;
    // A message without a body takes twenty bytes, a heartbeat four.
    std::string const bytes = framesOf(400, "", 4);
    ASSERT_LE(bytes.size(), largest_record);
    ASSERT_TRUE(at.it.server->send(bytes));
    EXPECT_TRUE(at.comes(400, 0));
    EXPECT_TRUE(eventually([&] { return at.it.client.statistics().frames_received == 2000; }));
    EXPECT_EQ(at.it.client.statistics().heartbeats_received, 1600u);
    EXPECT_EQ(at.it.client.statistics().messages_received, 400u);
    EXPECT_TRUE(at.it.isStory(opened()));
    at.it.expectRecovery();
}

TEST(WorstFrames, LengthsDecide) {
    struct {
        unsigned long length;
        bool taken;
    } const rows[] = {{0, true},           {0xffffff, true},    {0x1000000, false},
                      {0x7fffffff, false}, {0x80000000, false}, {0xffffffff, false}};
    std::string const assertion = "assert failure: length <= 0xffffff";
    for (auto const & row : rows) {
        SCOPED_TRACE(row.length);
        Listening at;
        auto const waiting = at.it.ask();
        at.it.server->receive();
        ASSERT_TRUE(at.it.server->send(length(row.length) + mobile(0x3001, 0).framed()));
        if (row.taken) {
            EXPECT_TRUE(at.comes(row.length == 0 ? 1 : 0, bodyOf(5).size()));
            EXPECT_TRUE(at.it.isStory(opened()));
        } else {
            WorstStory const refused = {tls::result_ok,
                                        failure::none,
                                        {"open", errorTold(assertion, failure::bad_frame)},
                                        {"<EXCEPTION> " + assertion, "<<< EXCEPTION >>> " + assertion}};
            EXPECT_TRUE(at.it.isStory(refused));
            EXPECT_EQ(at.got.count(), 0u) << "nothing is read behind it";
        }
        EXPECT_TRUE(at.it.client.connected());
        EXPECT_EQ(waiting->result(), tls::result_unknown) << "it waits for its own limit";
        at.it.close();
        EXPECT_EQ(resultOf(waiting), tls::result_cancelled);
        at.it.expectRecovery();
    }
}

TEST(WorstFrames, LargestBodiesOneBehindAnotherAreTakenInTurn) {
    Listening at;
    std::string const body = largestBody();
    for (unsigned i = 0; i < 4; ++i) {
        ASSERT_TRUE(at.it.server->send(mobile(0x3001, i, body).framed())) << i;
    }
    EXPECT_TRUE(at.comes(4, body.size(), 30000));
    EXPECT_TRUE(at.it.isStory(opened()));
    at.it.expectRecovery();
}

// The callback holds up its thread until the whole flood has been sent, or as much of it as the client takes.
TEST(WorstFrames, FloodOfASlowCallbackIsHandledInItsOrder) {
    for (unsigned const limit : {0u, 100u}) {
        SCOPED_TRACE(limit);
        WorstMeeting it;
        Gate gate;
        Events got;
        it.client.on_nbr_msg(
            0x3001, [&](unsigned long long sno, unsigned short, unsigned char const *, unsigned, tavMsgExt) {
                gate.pass();
                got.add(std::to_string(sno));
            });
        tls::connect_option option = it.option();
        option.limits.received_waiting = limit;
        it.start(option);
        it.server = it.gateway.accept();
        ASSERT_TRUE(it.server->shake());
        ASSERT_EQ(resultOf(it.info), tls::result_ok);
        ASSERT_TRUE(it.server->send(framesOf(3000, bodyOf(5))));
        std::size_t const most = limit == 0 ? 3000 : limit;
        ASSERT_TRUE(gate.waitArrived());
        EXPECT_TRUE(eventually([&] { return it.client.statistics().received_waiting + 1 >= most; }));
        EXPECT_LE(it.client.statistics().received_waiting, most);
        EXPECT_EQ(got.count(), 0u);
        gate.open();
        ASSERT_TRUE(got.wait(3000));
        std::vector<std::string> const all = got.all();
        for (unsigned i = 0; i < 3000; ++i) {
            ASSERT_EQ(all[i], std::to_string(i));
        }
        EXPECT_TRUE(it.isStory(opened()));
        it.expectRecovery();
    }
}
