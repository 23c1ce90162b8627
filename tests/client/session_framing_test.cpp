#include "client/vinta_tls_client_impl_session.h"

#include "support/log_capture.h"
#include "support/session_rig.h"
#include "support/tls_peer.h"

#include <gtest/gtest.h>

#include <random>

using namespace tav_test;
using impl::session;

namespace {

/// A connected session and its far end.
class Pair {
public:
    Pair() { s = rig.connect(peer, server); }

    /// The bodies received so far, once there are `n`.
    std::vector<std::string> bodies(std::size_t n) const {
        rig.bodies.wait(n);
        return rig.bodies.all();
    }

    TlsPeer peer;
    std::unique_ptr<TlsConnection> server;
    SessionRig rig{"<a>"};
    tavSharedPtr<session> s;
};

std::string filled(std::size_t size, unsigned seed = 1) {
    std::mt19937 random(seed);
    std::string out(size, '\0');
    for (char & c : out) {
        c = static_cast<char>(random());
    }
    return out;
}

using Texts = std::vector<std::string>;

} // namespace

TEST(SessionFraming, HeadIsABigEndianLength) {
    EXPECT_EQ(frame(std::string(0x10203, 'x')).substr(0, 4), std::string("\x00\x01\x02\x03", 4));
    Pair p;
    p.server->send(std::string("\x00\x00\x00\x02hi", 6));
    EXPECT_EQ(p.bodies(1), Texts{"hi"});
}

TEST(SessionFraming, FrameInAnyTwoPieces) {
    Pair p;
    std::string const bytes = frame("0123456789");
    std::size_t expected = 0;
    for (std::size_t cut = 1; cut < bytes.size(); ++cut) {
        p.server->send(bytes.substr(0, cut));
        p.rig.settle();
        p.server->send(bytes.substr(cut));
        ASSERT_EQ(p.bodies(++expected).back(), "0123456789") << cut;
    }
    EXPECT_EQ(p.rig.bodies.count(), bytes.size() - 1);
}

TEST(SessionFraming, SingleBytes) {
    Pair p;
    p.server->sendInRecords(frame("abc") + frame("") + frame("defgh"), 1);
    EXPECT_EQ(p.bodies(2), (Texts{"abc", "defgh"}));
}

TEST(SessionFraming, RecordsInSingleSegments) {
    Pair p;
    p.server->sendInSegments(frame("abc") + frame("de"), 1);
    EXPECT_EQ(p.bodies(2), (Texts{"abc", "de"}));
}

TEST(SessionFraming, SeveralFramesInOneRecord) {
    Pair p;
    p.server->send(frame("1") + frame("22") + frame("") + frame("333"));
    EXPECT_EQ(p.bodies(3), (Texts{"1", "22", "333"}));
}

TEST(SessionFraming, TwoFramesCutAtEveryPlace) {
    Pair p;
    std::string const bytes = frame("first") + frame("second!");
    std::size_t expected = 0;
    for (std::size_t cut = 1; cut < bytes.size(); ++cut) {
        p.server->send(bytes.substr(0, cut));
        p.server->send(bytes.substr(cut));
        expected += 2;
        Texts const all = p.bodies(expected);
        ASSERT_EQ(all.size(), expected);
        ASSERT_EQ(all[expected - 2], "first") << cut;
        ASSERT_EQ(all[expected - 1], "second!") << cut;
    }
}

TEST(SessionFraming, RandomFramesInRandomPieces) {
    for (unsigned seed = 1; seed <= 5; ++seed) {
        Pair p;
        std::mt19937 random(seed);
        std::string bytes;
        Texts expected;
        for (unsigned i = 0; i < 60; ++i) {
            std::size_t const sizes[] = {random() % 4, random() % 300, random() % 20000,
                                         16380 + random() % 10};
            expected.push_back(filled(sizes[random() % 4], i));
            bytes += frame(expected.back());
        }
        expected.erase(std::remove(expected.begin(), expected.end(), std::string()), expected.end());
        for (std::size_t at = 0; at < bytes.size();) {
            std::size_t const piece = 1 + random() % (random() % 8 == 0 ? 40000 : 3000);
            ASSERT_TRUE(p.server->send(bytes.substr(at, piece)));
            at += piece;
        }
        ASSERT_TRUE(p.bodies(expected.size()) == expected) << seed;
    }
}

class SessionFramingSize : public testing::TestWithParam<unsigned> {};

TEST_P(SessionFramingSize, BodyArrivesWhole) {
    Pair p;
    std::string const body = filled(GetParam());
    p.server->send(frame(body) + frame("next"));
    Texts const all = p.bodies(2);
    ASSERT_EQ(all.size(), 2u);
    EXPECT_TRUE(all[0] == body);
    EXPECT_EQ(all[1], "next");
}

INSTANTIATE_TEST_SUITE_P(AroundARecord, SessionFramingSize,
                         testing::Values(1u, 2u, 255u, 256u, 16379u, 16380u, 16381u, 16383u, 16384u, 16385u,
                                         32764u, 32768u, 32769u, 65535u, 65536u, 1000000u));

TEST(SessionFraming, LargestBodyIsRead) {
    Pair p;
    std::string const body = filled(0xffffff);
    ASSERT_TRUE(p.server->send(frame(body)));
    Texts const all = p.bodies(1);
    ASSERT_EQ(all.size(), 1u);
    EXPECT_TRUE(all[0] == body);
    EXPECT_EQ(p.rig.exceptions.count(), 0u);
}

class SessionFramingHostileSize : public testing::TestWithParam<std::string> {};

TEST_P(SessionFramingHostileSize, RaisesTheAssertionAndEndsReading) {
    LogCapture log;
    Pair p;
    p.server->send(frame("before") + GetParam() + frame("after"));
    ASSERT_TRUE(p.rig.exceptions.wait(1));
    EXPECT_EQ(p.rig.exceptions.all()[0], "assert failure: length <= 0xffffff");
    LogCapture::Record const record =
        log.find("<EXCEPTION> assert failure: length <= 0xffffff\n    throw at "
                 "session::on_read_header_end(vinta_tls_client_impl_framing.cpp:");
    EXPECT_EQ(record.level, tavLogger::ERROR);
    EXPECT_NE(record.text.find("[TAV]"), std::string::npos);
    EXPECT_TRUE(p.s->connected());
    EXPECT_EQ(p.bodies(1), Texts{"before"});
    p.server->send(frame("later"));
    p.rig.settle();
    EXPECT_EQ(p.rig.bodies.count(), 1u) << "nothing is read any more";
    ASSERT_TRUE(p.s->send_raw(nullptr, 0));
    EXPECT_EQ(p.server->receiveFrame(), "") << "sending goes on";

    p.s->check_heartbeat(true);
    p.rig.freeze();
    p.rig.advance(90001);
    ASSERT_TRUE(p.rig.events.wait(2));
    EXPECT_EQ(p.rig.events.all()[1], "heartbeat timedout");
}

INSTANTIATE_TEST_SUITE_P(AboveTheLimit, SessionFramingHostileSize,
                         testing::Values(std::string("\x01\x00\x00\x00", 4),
                                         std::string("\x7f\xff\xff\xff", 4),
                                         std::string("\x80\x00\x00\x00", 4),
                                         std::string("\xff\xff\xff\xff", 4)));

TEST(SessionFraming, RandomBytesDoNoHarm) {
    for (unsigned seed = 1; seed <= 8; ++seed) {
        Pair p;
        std::string bytes = filled(50000, seed);
        bytes[0] = '\0';
        p.server->send(bytes);
        p.server->close();
        EXPECT_TRUE(eventually([&] { return p.rig.exceptions.count() > 0 || p.s->state() == 5; })) << seed;
    }
}

TEST(SessionFraming, EmptyFrameIsLoggedAndDropped) {
    LogCapture log;
    Pair p;
    p.server->send(frame("") + frame("x"));
    EXPECT_EQ(p.bodies(1), Texts{"x"});
    EXPECT_EQ(log.count("<a> empty body\n"), 1u);
    EXPECT_EQ(log.find(" empty body").level, tavLogger::DEBUG);
}

TEST(SessionFraming, ManyEmptyFramesAreAFlatLoop) {
    LogCapture log("clear(NONE)");
    Pair p;
    p.server->send(std::string(400000, '\0') + frame("end"));
    EXPECT_EQ(p.bodies(1), Texts{"end"});
}

TEST(SessionFraming, EachPartIsLoggedWithTheQueue) {
    LogCapture log;
    Pair p;
    Gate gate;
    p.rig.on_body = [&](std::string const & body) {
        if (body == "first") {
            gate.pass();
        }
    };
    p.server->send(frame("first"));
    ASSERT_TRUE(gate.waitArrived());
    EXPECT_TRUE(
        log.inOrder({"<a> received 4 bytes, queued 0 msgs.\n", "<a> received 5 bytes, queued 0 msgs.\n"}));
    EXPECT_EQ(log.find(" received 4 bytes").level, tavLogger::INFO);
    p.server->send(frame("sixsix"));
    ASSERT_TRUE(log.waitFor("<a> received 6 bytes, queued 0 msgs.\n"));
    p.server->send(frame("seventh"));
    ASSERT_TRUE(log.waitFor("<a> received 7 bytes, queued 1 msgs.\n"));
    p.server->send(frame("eighth.."));
    ASSERT_TRUE(log.waitFor("<a> received 8 bytes, queued 2 msgs.\n"));
    gate.open();
    EXPECT_EQ(p.bodies(4).size(), 4u);
}

TEST(SessionFraming, HeaderInTwoRecordsIsOneRead) {
    LogCapture log;
    Pair p;
    p.server->send(std::string("\x00\x00", 2));
    p.rig.settle();
    EXPECT_FALSE(log.contains(" received "));
    p.server->send(std::string("\x00\x01z", 3));
    EXPECT_EQ(p.bodies(1), Texts{"z"});
    EXPECT_EQ(log.count(" received 4 bytes"), 1u);
    EXPECT_EQ(log.count(" received "), 2u);
}

TEST(SessionFraming, EndInsideAHeader) {
    LogCapture log;
    Pair p;
    p.server->send(std::string("\x00\x00\x00", 3));
    p.server->close();
    ASSERT_TRUE(p.rig.events.wait(2));
    EXPECT_EQ(log.find("<a> Read header failed: ").level, tavLogger::ERROR);
    EXPECT_FALSE(log.contains(" Read body failed: "));
}

TEST(SessionFraming, EndInsideABody) {
    LogCapture log;
    Pair p;
    p.server->send(frame("abcdef").substr(0, 7));
    p.server->close();
    ASSERT_TRUE(p.rig.events.wait(2));
    EXPECT_EQ(log.find("<a> Read body failed: ").level, tavLogger::ERROR);
    EXPECT_FALSE(log.contains(" Read header failed: "));
}

TEST(SessionFraming, EndInsideALongBody) {
    LogCapture log;
    Pair p;
    p.server->send(frame(filled(200000)).substr(0, 150000));
    p.server->close();
    ASSERT_TRUE(p.rig.events.wait(2));
    EXPECT_TRUE(log.contains("<a> Read body failed: "));
    EXPECT_EQ(p.rig.bodies.count(), 0u);
}

TEST(SessionFraming, BodiesAreHandledOnTheReceiverInOrder) {
    Pair p;
    std::atomic<bool> own{true};
    p.rig.on_body = [&](std::string const &) {
        own = own && p.s->on_own_thread() && !p.rig.context()->runs_here();
    };
    std::string bytes;
    Texts expected;
    for (int i = 0; i < 3000; ++i) {
        expected.push_back(std::to_string(i));
        bytes += frame(expected.back());
    }
    p.server->sendInRecords(bytes, 1000);
    EXPECT_TRUE(p.bodies(expected.size()) == expected);
    EXPECT_TRUE(own);
}

TEST(SessionFraming, ExceptionOfTheReceiverLosesOneBodyOnly) {
    LogCapture log;
    Pair p;
    p.rig.on_body = [](std::string const & body) {
        if (body == "bad") {
            throw std::runtime_error("bad body");
        }
    };
    p.server->send(frame("bad") + frame("good"));
    EXPECT_EQ(p.bodies(1), Texts{"good"});
    EXPECT_TRUE(log.contains("<<< EXCEPTION >>> bad body"));
}

TEST(SessionFraming, SessionThatClosesOnTheWayTakesNoMore) {
    TlsPeer peer;
    std::unique_ptr<TlsConnection> server;
    SessionRig rig;
    tavSharedPtr<session> s;
    rig.on_body = [&](std::string const &) { s->active_close(); };
    s = rig.connectBare(peer, server);
    server->send(frame("last") + frame("never"));
    EXPECT_TRUE(server->waitClosed());
    rig.settle();
    EXPECT_EQ(rig.bodies.all(), Texts{"last"});
    EXPECT_EQ(rig.events.count(), 1u);
}
