#include "client/vinta_tls_client_impl_session.h"

#include "support/session_rig.h"
#include "support/worst_gateway.h"

#include <gtest/gtest.h>

using namespace tav_test;
using impl::session;

namespace {

constexpr long long a_day = 24ll * 3600 * 1000;
using Told = std::vector<std::string>;

/// A gateway that has fallen silent, and a session whose clock and ticks are the test's.
class Silent {
public:
    Silent() { rig.freeze(); }

    tav::tls::connect_option option(int wait_ms) {
        tav::tls::connect_option out = rig.option("127.0.0.1", std::to_string(gateway.port()));
        out.timedout = tav::tls::timedout_option(
            wait_ms, [this](unsigned long long, unsigned short, bool) { rig.events.add("timedout"); });
        return out;
    }

    /// Goes as far as the place, and waits until the session has taken what was said.
    void leave(Place place, int wait_ms) {
        s = rig.startBare(option(wait_ms));
        server = gateway.accept();
        goTo(place, *server);
        ASSERT_TRUE(eventually([&] { return s->state() >= 2; }));
        take();
    }
    void open() {
        s = rig.startBare(option(0));
        server = gateway.accept();
        ASSERT_TRUE(server->shake());
        ASSERT_TRUE(rig.events.wait(1));
        take();
    }
    void take() {
        std::size_t left = 1;
        ASSERT_TRUE(eventually([&] {
            rig.onIoThread([&] { left = s->socket().lowest_layer().available(); });
            return left == 0;
        }));
        settle();
    }
    /// A tick `ms` later, with all that follows from it.
    void tickAfter(long long ms) {
        rig.advance(ms);
        s->on_timer(false);
        settle();
    }

    WorstGateway gateway;
    std::unique_ptr<WorstConnection> server;
    SessionRig rig{"<a>"};
    tavSharedPtr<session> s;

private:
    void settle() {
        for (int i = 0; i < 5; ++i) {
            rig.settle();
        }
    }
};

struct Left {
    char const * what;
    Place place;
};
constexpr Left places[] = {
    {"ahead of the client's first word", nothing},     {"behind it", hello},
    {"within the gateway's first flight", half_first}, {"behind it", first},
    {"behind the client's second flight", second},     {"within the gateway's last flight", half_last},
};

/// What an open connection is left with.
struct Rest {
    char const * what;
    std::string bytes;
    /// A part of a record, that TLS does not give out.
    bool cut;
};

std::vector<Rest> rests() {
    return {
        {"behind the handshake", "", false},
        {"behind a message", mobile(0x3001, 1).framed(), false},
        {"behind a heartbeat", std::string(4, '\0'), false},
        {"within a length", std::string(2, '\0'), false},
        {"behind a length", frame("12345").substr(0, 4), false},
        {"within a body", frame("12345").substr(0, 7), false},
        {"within a record", frame(std::string(4000, 'x')), true},
    };
}

void say(Silent & it, Rest const & rest) {
    if (rest.cut) {
        SSL_write(it.server->ssl(), rest.bytes.data(), static_cast<int>(rest.bytes.size()));
        std::string const record = it.server->output();
        it.server->put(record.substr(0, record.size() / 2));
    } else {
        it.server->send(rest.bytes);
    }
    it.take();
    it.tickAfter(0);
}

} // namespace

TEST(WorstSilence, AtEachFlightIsEndedByTheConnectsLimitOnce) {
    for (Left const & each : places) {
        SCOPED_TRACE(each.what);
        Silent it;
        it.leave(each.place, 5000);
        it.tickAfter(4995);
        EXPECT_EQ(it.rig.events.all(), Told{});
        it.tickAfter(1);
        EXPECT_EQ(it.rig.events.all(), Told{"timedout"});
        it.tickAfter(a_day);
        EXPECT_EQ(it.rig.events.all(), Told{"timedout"});
    }
}

TEST(WorstSilence, AtEachFlightIsBorneWithoutALimit) {
    for (Left const & each : places) {
        SCOPED_TRACE(each.what);
        Silent it;
        it.leave(each.place, 0);
        it.tickAfter(a_day);
        EXPECT_EQ(it.rig.events.all(), Told{});
        EXPECT_EQ(it.s->state(), 2) << "it still shakes hands";
    }
}

TEST(WorstSilence, OfASupervisedConnectionIsAskedAfterThirtySecondsAndEndsItAfterNinety) {
    for (Rest const & rest : rests()) {
        SCOPED_TRACE(rest.what);
        Silent it;
        it.open();
        it.s->check_heartbeat(true);
        say(it, rest);
        it.tickAfter(30000);
        EXPECT_EQ(it.rig.counted->heartbeats_sent.load(), 0u);
        it.tickAfter(1);
        EXPECT_EQ(it.rig.counted->heartbeats_sent.load(), 1u);
        it.tickAfter(59999);
        EXPECT_TRUE(it.s->connected());
        it.tickAfter(1);
        EXPECT_FALSE(it.s->connected());
        EXPECT_EQ(it.rig.events.all(), (Told{"open", "heartbeat timedout"})) << "and no error";
        EXPECT_TRUE(it.server->waitGone());
    }
}

TEST(WorstSilence, OfAConnectionThatIsNotSupervisedIsBorne) {
    for (Rest const & rest : rests()) {
        SCOPED_TRACE(rest.what);
        Silent it;
        it.open();
        say(it, rest);
        for (int day = 0; day < 3; ++day) {
            it.tickAfter(a_day);
        }
        EXPECT_TRUE(it.s->connected());
        EXPECT_EQ(it.rig.counted->heartbeats_sent.load(), 0u);
        EXPECT_EQ(it.rig.events.all(), Told{"open"});
    }
}
