#include "tav/vinta/vinta_tls_client.h"

#include "gateway/gateway_core.h"
#include "support/client_rig.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <sys/socket.h>

using namespace tav_test;
using tav::gateway::Faults;
using tav::gateway::Options;
using tls::client;

namespace {

constexpr unsigned cycles = 200;

/// The points of a connect and of a send at which a client is ended.
enum class Point {
    idle,
    queued,
    resolving,
    refused,
    handshaking,
    proxy,
    connected,
    sending,
    replying,
    in_callback,
    failed,
    last
};

char const * name(Point point) {
    static char const * const names[] = {"idle",        "queued",      "resolving", "refused",
                                         "handshaking", "proxy",       "connected", "sending",
                                         "replying",    "in_callback", "failed"};
    return names[static_cast<int>(point)];
}

/// Brings a client to a point, and knows what must have ended afterwards.
class Scene {
public:
    explicit Scene(Point point) {
        Options options;
        options.faults.no_handshake = point == Point::handshaking || point == Point::proxy;
        options.faults.silence = point == Point::sending || point == Point::queued;
        gateway_ = std::make_unique<GatewayRig>(options);
    }
    ~Scene() { gate_.open(); }

    void reach(client & c, Point point) {
        tls::connect_option option = gateway_->option();
        switch (point) {
        case Point::idle: return;
        case Point::queued:
            for (int i = 0; i < 5; ++i) {
                connects_.push_back(c.start(option));
                connects_.push_back(c.reconnect(tls::timedout_option()));
                c.close();
            }
            return;
        case Point::resolving: connects_.push_back(c.start(option)); return;
        case Point::refused: {
            TlsPeer gone;
            option.port = gone.portText();
        }
            connects_.push_back(c.start(option));
            return;
        case Point::handshaking:
            connects_.push_back(c.start(option));
            gateway_->gateway.wait([](tav::gateway::Stats const & s) { return s.connections > 0; });
            return;
        case Point::proxy:
            option.proxy_host = option.host;
            option.proxy_port = option.port;
            // Waits for an answer that never comes; the end of the session ends the wait.
            option.set_on_http_proxy_connect([this](unsigned socket, char const *, unsigned short) {
                reached_.add("proxy");
                char byte = 0;
                return ::recv(static_cast<int>(socket), &byte, 1, 0) == 1 ? 0 : 1;
            });
            connects_.push_back(c.start(option));
            reached_.wait(1);
            return;
        case Point::in_callback:
            option.set_on_open([this] {
                reached_.add("open");
                gate_.pass();
            });
            connects_.push_back(c.start(option));
            reached_.wait(1);
            return;
        case Point::connected:
        case Point::sending:
        case Point::replying:
        case Point::failed: break;
        default: return;
        }
        connects_.push_back(c.start(option));
        resultOf(connects_.back());
        goOn(c, point);
    }

    /// Lets a callback that blocks go on.
    void release() { gate_.open(); }

    /// Whether each connect and send has an end.
    void expectEnded() {
        for (auto const & info : connects_) {
            EXPECT_GE(resultOf(info), tls::result_ok);
        }
        for (auto const & info : sends_) {
            if (info) {
                EXPECT_GE(resultOf(info), tls::result_ok);
            }
        }
    }

private:
    /// From a connected client on.
    void goOn(client & c, Point point) {
        if (point == Point::sending || point == Point::replying) {
            for (int i = 0; i < 20; ++i) {
                sends_.push_back(c.send_msg(Ask(i), tls::send_option(20000, tls::timedout_function(),
                                                                     tls::error_function(),
                                                                     tls::nbr_function(), 0x1235, false, 4)));
            }
        }
        if (point == Point::failed) {
            gateway_->gateway.wait([](tav::gateway::Stats const & s) { return s.open == 1; });
            gateway_->gateway.drop(true);
            gateway_->events.wait(2);
        }
    }

    Events reached_;
    Gate gate_;
    std::unique_ptr<GatewayRig> gateway_;
    std::vector<std::shared_ptr<tls::connect_info>> connects_;
    std::vector<std::shared_ptr<tls::send_info>> sends_;
};

class ClientCycles : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        LogCapture const log("clear(NONE)");
        GatewayRig rig;
        client c("warm");
        ASSERT_EQ(resultOf(c.start(rig.option())), tls::result_ok);
    }

    LogCapture log{"clear(NONE)"};
};

class ClientCyclesEnds : public ::testing::TestWithParam<int> {
protected:
    static void SetUpTestSuite() {
        LogCapture const log("clear(NONE)");
        GatewayRig rig;
        client c("warm");
        ASSERT_EQ(resultOf(c.start(rig.option())), tls::result_ok);
    }

    Point point() const { return static_cast<Point>(GetParam()); }

    LogCapture log{"clear(NONE)"};
};

} // namespace

TEST_F(ClientCycles, StartAndCloseTwoHundredTimes) {
    Holdings const before;
    {
        GatewayRig rig;
        client c("n");
        for (unsigned i = 0; i < cycles; ++i) {
            ASSERT_EQ(resultOf(c.start(rig.option())), tls::result_ok) << i;
            c.close();
        }
        EXPECT_EQ(rig.gateway.stats().connections, cycles);
    }
    EXPECT_TRUE(before.back()) << before.print();
}

TEST_F(ClientCycles, ReconnectTwoHundredTimes) {
    Holdings const before;
    {
        GatewayRig rig;
        client c("n");
        ASSERT_EQ(resultOf(c.start(rig.option())), tls::result_ok);
        for (unsigned i = 0; i < cycles; ++i) {
            ASSERT_EQ(resultOf(c.reconnect(tls::timedout_option())), tls::result_ok) << i;
        }
        EXPECT_EQ(rig.gateway.stats().connections, cycles + 1);
        EXPECT_TRUE(rig.gateway.wait([](tav::gateway::Stats const & s) { return s.open == 1; }));
    }
    EXPECT_TRUE(before.back()) << before.print();
}

TEST_F(ClientCycles, ASessionsThreadsEndWithIt) {
    GatewayRig rig;
    client c("n");
    ASSERT_EQ(resultOf(c.start(rig.option())), tls::result_ok);
    Holdings const connected;
    for (unsigned i = 0; i < 20; ++i) {
        ASSERT_EQ(resultOf(c.reconnect(tls::timedout_option())), tls::result_ok) << i;
    }
    EXPECT_TRUE(connected.back()) << connected.print();
}

TEST_F(ClientCycles, SendsInEachCycleEnd) {
    Options options;
    options.faults.delay_ms = 1;
    GatewayRig rig(options);
    Holdings const before;
    unsigned long long const objects = tavObject::counts();
    {
        client c("n");
        ASSERT_EQ(resultOf(c.start(rig.option())), tls::result_ok);
        for (unsigned i = 0; i < 50; ++i) {
            std::vector<std::shared_ptr<tls::send_info>> sends;
            for (int k = 0; k < 5; ++k) {
                sends.push_back(c.send_msg(Ask(k), tls::send_option(20000, tls::timedout_function(),
                                                                    tls::error_function(),
                                                                    tls::nbr_function(), 0x1235, false, 4)));
            }
            ASSERT_EQ(resultOf(c.reconnect(tls::timedout_option())), tls::result_ok) << i;
            for (auto const & send : sends) {
                ASSERT_TRUE(send);
                EXPECT_GE(resultOf(send), tls::result_ok);
            }
        }
    }
    EXPECT_TRUE(eventually([&] { return tavObject::counts() <= objects; }));
    EXPECT_TRUE(before.back()) << before.print();
}

TEST_F(ClientCycles, InstancesComeAndGo) {
    Holdings const before;
    {
        GatewayRig rig;
        for (unsigned i = 0; i < 30; ++i) {
            auto const info = client::instance("cycle").start(rig.option());
            if (i % 2 == 0) {
                ASSERT_EQ(resultOf(info), tls::result_ok);
            }
            ASSERT_TRUE(endsInTime([] { client::destroy("cycle"); }));
            EXPECT_GE(resultOf(info), tls::result_ok);
        }
    }
    EXPECT_TRUE(before.back()) << before.print();
}

TEST_P(ClientCyclesEnds, CloseReturnsAndActs) {
    Scene scene(point());
    auto const c = std::make_shared<client>("n");
    scene.reach(*c, point());
    EXPECT_TRUE(endsInTime([c] { c->close(); }));
    scene.release();
    scene.expectEnded();
    EXPECT_TRUE(eventually([&] { return !c->connected(); }));
}

TEST_P(ClientCyclesEnds, DestructionReturnsAndLeavesNothing) {
    Holdings const before;
    {
        Scene scene(point());
        auto c = std::make_shared<client>("n");
        scene.reach(*c, point());
        scene.release();
        EXPECT_TRUE(endsInTime([c = std::move(c)]() mutable { c.reset(); }));
        scene.expectEnded();
    }
    EXPECT_TRUE(before.back()) << before.print();
}

TEST_P(ClientCyclesEnds, CloseAndDestructionFromOtherThreadsAtOnce) {
    Holdings const before;
    {
        Scene scene(point());
        auto c = std::make_shared<client>("n");
        scene.reach(*c, point());
        scene.release();
        std::vector<std::thread> others;
        for (int t = 0; t < 3; ++t) {
            others.emplace_back([c, t] {
                for (int i = 0; i < 10; ++i) {
                    if (t == 0) {
                        c->cancel_all();
                    } else if (t == 1) {
                        c->close();
                    } else {
                        c->send_msg(Ask(1), tls::send_option(10, tls::timedout_function(), false, 4));
                    }
                }
            });
        }
        c.reset();
        for (std::thread & other : others) {
            EXPECT_TRUE(endsInTime([&other] { other.join(); }));
        }
        scene.expectEnded();
    }
    EXPECT_TRUE(before.back()) << before.print();
}

TEST_P(ClientCyclesEnds, FinalizeReturnsAndLeavesNothing) {
    Holdings const before;
    {
        Scene scene(point());
        scene.reach(client::instance("final"), point());
        scene.release();
        EXPECT_TRUE(endsInTime([] { client::finalize(); }));
        scene.expectEnded();
        EXPECT_FALSE(client::destroy("final"));
    }
    EXPECT_TRUE(before.back()) << before.print();
}

TEST_P(ClientCyclesEnds, DestroyBesideFinalizeIsSafe) {
    Scene scene(point());
    scene.reach(client::instance("both"), point());
    scene.release();
    std::thread other([] { client::destroy("both"); });
    EXPECT_TRUE(endsInTime([] { client::finalize(); }));
    EXPECT_TRUE(endsInTime([&other] { other.join(); }));
    scene.expectEnded();
}

INSTANTIATE_TEST_SUITE_P(Points, ClientCyclesEnds, ::testing::Range(0, static_cast<int>(Point::last)),
                         [](::testing::TestParamInfo<int> const & each) {
                             return std::string(name(static_cast<Point>(each.param)));
                         });
