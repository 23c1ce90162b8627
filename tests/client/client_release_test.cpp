#include "tav/vinta/vinta_tls_client.h"

#include "support/client_rig.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

using namespace tav_test;

namespace {

/// By how many seconds the calling thread's monotonic clock is behind.
thread_local long clock_lag = 0;

} // namespace

/// Stands in for the system's function in the whole program, libraries included.
extern "C" int clock_gettime(clockid_t id, struct timespec * out) noexcept {
    int const result = static_cast<int>(::syscall(SYS_clock_gettime, id, out));
    if (result == 0 && id == CLOCK_MONOTONIC) {
        out->tv_sec -= clock_lag;
    }
    return result;
}

namespace {

/// The callbacks in which the last owner may let a client go.
enum class Place {
    open,
    error,
    hostile,
    message,
    reply,
    timedout,
    cancelled,
    proxy,
    connect_timedout,
    heartbeat,
    sender,
    last
};

char const * name(Place place) {
    static char const * const names[] = {"open",     "error",     "hostile", "message",          "reply",
                                         "timedout", "cancelled", "proxy",   "connect_timedout", "heartbeat",
                                         "sender"};
    return names[static_cast<int>(place)];
}

char const * threadOf(Place place) {
    static char const * const names[] = {
        "<n>io.context",         "<n>global.on_error.0", "<n>io.context",        "<n>session.0.receiver",
        "<n>session.0.receiver", "<n>session.0.timer",   "<n>session.0",         "<n>io.context",
        "<n>session.0.timer",    "<n>session.0.timer",   "<n>session.0.sender.0"};
    return names[static_cast<int>(place)];
}

/// Brings a client to a callback, in which `act` is called once.
class Stage {
public:
    Stage(LogCapture & log, Place place, std::function<void()> act)
        : log_(log), place_(place), act_(std::move(act)) {}
    ~Stage() { log_.at(std::string(), nullptr); }
    Stage(Stage const &) = delete;
    Stage & operator=(Stage const &) = delete;

    void play(tls::client & c) {
        c.on_nbr_msg(0x4000, [this](unsigned long long, unsigned short, unsigned char const *, unsigned,
                                    tavMsgExt) { reached(Place::message); });
        auto const info = c.start(option());
        if (place_ == Place::proxy || place_ == Place::connect_timedout) {
            // Nobody answers, and the time may be over ahead of the connection.
            return;
        }
        server_ = peer_.accept();
        server_->handshake();
        if (place_ == Place::open) {
            return;
        }
        resultOf(info);
        if (place_ == Place::sender) {
            tavLogger::setLogLevel("TLS.CLT", tavLogger::DEBUG);
            log_.at("<n> add sending #", [this] { held_.pass(); });
        }
        send(c);
        lead(c);
    }
    bool wait() const { return done_.wait(1); }
    std::string thread() const { return done_.all().at(0); }

private:
    tls::connect_option option() {
        tls::connect_option out = optionFor(peer_.port(), events_);
        out.set_on_open([this] {
            reached(Place::open);
            // What comes from here on seems to have come long ago.
            clock_lag = place_ == Place::heartbeat ? 100 : 0;
        });
        out.set_on_error([this](unsigned long long, unsigned short, int code, char const *) {
            reached(code == 10 ? Place::hostile : Place::error);
        });
        out.set_on_heartbeat_timedout([this] { reached(Place::heartbeat); });
        if (place_ == Place::proxy) {
            out.proxy_host = out.host;
            out.proxy_port = out.port;
            out.set_on_http_proxy_connect([this](unsigned, char const *, unsigned short) {
                reached(Place::proxy);
                return 0;
            });
        } else if (place_ == Place::connect_timedout) {
            out.timedout = tls::timedout_option(
                100, [this](unsigned long long, unsigned short, bool) { reached(Place::connect_timedout); });
        }
        return out;
    }
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
        if (place_ == Place::sender) {
            leadToSender(c);
            return;
        }
        unsigned long long const sno = Pkt::of(server_->receiveFrame()).sno;
        switch (place_) {
        case Place::error: server_->close(); break;
        case Place::hostile: server_->send(std::string("\x01\0\0\0", 4)); break;
        case Place::message: server_->send(mobile(0x4000, 1).framed()); break;
        case Place::reply: server_->send(mobile(0x1235, sno).framed()); break;
        case Place::cancelled: c.close(); break;
        case Place::heartbeat:
            c.should_check_heartbeat(true);
            server_->send(mobile(0x7000, 1).framed());
            break;
        default: break;
        }
    }
    /// The first send holds "sender" until the connection is gone, so that the one behind it is ended there.
    void leadToSender(tls::client & c) {
        ASSERT_TRUE(held_.waitArrived());
        c.send_msg(Ask(2),
                   tls::send_option(
                       20000, [this](unsigned long long, unsigned short, bool) { reached(Place::sender); },
                       false, 4));
        server_->reset();
        ASSERT_TRUE(log_.waitFor("<n> socket closed."));
        held_.open();
    }
    void reached(Place place) {
        if (place == place_ && !acted_.exchange(true)) {
            act_();
            done_.add(threadName());
        }
    }

    LogCapture & log_;
    Place const place_;
    std::function<void()> const act_;
    Gate held_;
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
        LogCapture::Record const told = log.find("<n> the client is ended on another thread, as ");
        EXPECT_EQ(told.level, tavLogger::WARN);
        EXPECT_NE(told.text.find(" is one of its own\n"), std::string::npos) << told.text;
        std::string const words = "<n> " + call + " on the client's own thread " + threadOf(place()) +
                                  ", which it would have to wait for: let another thread end the client\n";
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
        Stage stage(log, place(), [&] {
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
        Stage stage(log, place(), [] { EXPECT_TRUE(tls::client::destroy("n")); });
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
        Stage stage(log, place(), [] { tls::client::finalize(); });
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
        Stage stage(log, place(), [&ended] {
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
    Stage stage(log, Place::message, [&] {
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
