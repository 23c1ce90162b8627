#include "tav/vinta/vinta_tls_client.h"

#include "support/client_rig.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

using namespace tav_test;

namespace {

/// The callbacks in which the last owner may let a client go, each on another thread.
enum class Place { open, error, hostile, message, reply, timedout, cancelled, last };

char const * name(Place place) {
    static char const * const names[] = {"open",  "error",    "hostile",  "message",
                                         "reply", "timedout", "cancelled"};
    return names[static_cast<int>(place)];
}

char const * threadOf(Place place) {
    static char const * const names[] = {
        "<n>io.context",         "<n>global.on_error.0", "<n>io.context", "<n>session.0.receiver",
        "<n>session.0.receiver", "<n>session.0.timer",   "<n>session.0"};
    return names[static_cast<int>(place)];
}

/// Brings a client to a callback, in which `act` is called once.
class Stage {
public:
    Stage(Place place, std::function<void()> act) : place_(place), act_(std::move(act)) {}

    void play(tls::client & c) {
        tls::connect_option option = optionFor(peer_.port(), events_);
        option.set_on_open([this] { reached(Place::open); });
        option.set_on_error([this](unsigned long long, unsigned short, int code, char const *) {
            reached(code == 10 ? Place::hostile : Place::error);
        });
        c.on_nbr_msg(0x4000, [this](unsigned long long, unsigned short, unsigned char const *, unsigned,
                                    tavMsgExt) { reached(Place::message); });
        auto const info = c.start(option);
        server_ = peer_.accept();
        server_->handshake();
        if (place_ == Place::open) {
            return;
        }
        resultOf(info);
        send(c);
        lead(c);
    }
    bool wait() const { return done_.wait(1); }
    std::string thread() const { return done_.all().at(0); }

private:
    void send(tls::client & c) {
        c.send_msg(Ask(1),
                   tls::send_option(
                       place_ == Place::timedout ? 100 : 20000,
                       [this](unsigned long long, unsigned short, bool cancelled) {
                           reached(cancelled ? Place::cancelled : Place::timedout);
                       },
                       tls::error_function(),
                       tls::nbr_function([this](unsigned long long, unsigned short, unsigned char const *,
                                                unsigned, tavMsgExt) { reached(Place::reply); }),
                       0x1235, false, 4));
    }
    void lead(tls::client & c) {
        unsigned long long const sno = Pkt::of(server_->receiveFrame()).sno;
        switch (place_) {
        case Place::error: server_->close(); break;
        case Place::hostile: server_->send(std::string("\x01\0\0\0", 4)); break;
        case Place::message: server_->send(mobile(0x4000, 1).framed()); break;
        case Place::reply: server_->send(mobile(0x1235, sno).framed()); break;
        case Place::cancelled: c.close(); break;
        default: break;
        }
    }
    void reached(Place place) {
        if (place == place_ && !acted_.exchange(true)) {
            act_();
            done_.add(threadName());
        }
    }

    Place const place_;
    std::function<void()> const act_;
    std::atomic<bool> acted_{false};
    TlsPeer peer_;
    std::unique_ptr<TlsConnection> server_;
    Events events_;
    Events done_;
};

class ClientRelease : public ::testing::TestWithParam<int> {
protected:
    static void SetUpTestSuite() {
        LogCapture const log("clear(NONE)");
        GatewayRig rig;
        tls::client c("warm");
        ASSERT_EQ(resultOf(c.start(rig.option())), tls::result_ok);
    }
    Place place() const { return static_cast<Place>(GetParam()); }

    /// The end is told in one line each of ERROR and WARN, and nothing of the client is left.
    void expectEnd(Holdings const & before, std::string const & call) {
        EXPECT_TRUE(log.waitFor("<n> context destruct"));
        EXPECT_TRUE(before.back()) << before.print();
        EXPECT_EQ(log.count("<n> the client is ended on another thread, as "), 1u);
        EXPECT_EQ(log.find("<n> the client is ended on another thread, as ").level, tavLogger::WARN);
        std::string const words = "<n> " + call + " on the client's own thread " + threadOf(place()) + ",";
        EXPECT_EQ(log.count(words), 1u);
        EXPECT_EQ(log.find(words).level, tavLogger::ERROR);
    }

    LogCapture log{"clear(INFO)"};
};

std::string printed(::testing::TestParamInfo<int> const & each) {
    return name(static_cast<Place>(each.param));
}

} // namespace

TEST_P(ClientRelease, OfTheLastOwnerInACallbackEndsTheClientElsewhere) {
    Holdings const before;
    {
        auto owned = std::make_shared<tls::client>("n");
        std::weak_ptr<tls::client> const weak = owned;
        Gate alone;
        Stage stage(place(), [&] {
            std::shared_ptr<tls::client> last = weak.lock();
            alone.pass();
            EXPECT_EQ(last.use_count(), 1);
            last.reset();
        });
        stage.play(*owned);
        ASSERT_TRUE(alone.waitArrived());
        owned.reset();
        alone.open();
        ASSERT_TRUE(stage.wait());
        EXPECT_EQ(stage.thread(), threadOf(place()));
        EXPECT_TRUE(log.waitFor("<n> context destruct"));
    }
    expectEnd(before, "client::~client");
}

TEST_P(ClientRelease, ByDestroyInACallbackEndsTheClientElsewhere) {
    Holdings const before;
    {
        Stage stage(place(), [] { EXPECT_TRUE(tls::client::destroy("n")); });
        stage.play(tls::client::instance("n"));
        ASSERT_TRUE(stage.wait());
        EXPECT_FALSE(tls::client::destroy("n"));
        EXPECT_TRUE(log.waitFor("<n> context destruct"));
    }
    expectEnd(before, "client::destroy");
}

TEST_P(ClientRelease, ByFinalizeInACallbackEndsTheClientElsewhere) {
    Holdings const before;
    unsigned const threads = threadsNow();
    {
        Stage stage(place(), [] { tls::client::finalize(); });
        stage.play(tls::client::instance("n"));
        ASSERT_TRUE(stage.wait());
        EXPECT_FALSE(tls::client::destroy("n"));
        EXPECT_TRUE(eventually([&] { return threadsNow() <= threads; }));
    }
    EXPECT_TRUE(before.back()) << before.print();
    EXPECT_EQ(log.count("<n> the client is ended on another thread, as "), 1u);
    EXPECT_EQ(log.count("<n> client::finalize on the client's own thread "), 1u);
}

INSTANTIATE_TEST_SUITE_P(Places, ClientRelease, ::testing::Range(0, static_cast<int>(Place::last)), printed);

// The name of a thread begins with its maker's, which makes it none of the client's.
TEST_P(ClientRelease, OnAThreadThatACallbackHasMadeIsNoBusinessOfTheClients) {
    Holdings const before;
    {
        Events ended;
        Stage stage(place(), [&ended] {
            tav_async_call(
                [&ended] {
                    EXPECT_TRUE(tls::client::destroy("n"));
                    ended.add(threadName());
                },
                "ender", 0);
        });
        stage.play(tls::client::instance("n"));
        ASSERT_TRUE(ended.wait(1));
        EXPECT_EQ(ended.all().at(0), std::string(threadOf(place())) + ".ender");
        EXPECT_TRUE(log.contains("<n> context destruct")) << "the end is over when the call returns";
    }
    EXPECT_TRUE(before.back()) << before.print();
    EXPECT_FALSE(log.contains(" on the client's own thread "));
    EXPECT_FALSE(log.contains(" the client is ended on another thread"));
}

TEST(ClientReleaseElsewhere, FinalizeWaitsForClientsThatEndOnOtherThreads) {
    LogCapture log("clear(INFO)");
    Gate gate;
    auto owned = std::make_shared<tls::client>("n");
    std::weak_ptr<tls::client> const weak = owned;
    Gate alone;
    Stage stage(Place::message, [&] {
        std::shared_ptr<tls::client> last = weak.lock();
        alone.pass();
        last.reset();
        gate.pass();
    });
    stage.play(*owned);
    ASSERT_TRUE(alone.waitArrived());
    owned.reset();
    alone.open();
    ASSERT_TRUE(gate.waitArrived());
    // The callback still runs, so that its client has not ended.
    std::atomic<bool> finalized{false};
    std::thread other([&] {
        tls::client::finalize();
        finalized = true;
    });
    EXPECT_FALSE(finalized);
    gate.open();
    other.join();
    EXPECT_TRUE(log.contains("<n> context destruct"));
}
