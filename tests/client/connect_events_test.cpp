#include "client/connect_events.h"

#include "client/thread_role.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <string>

namespace impl = tav::tls::impl;
using impl::connect_events;
using tav::tls::connect_option;
using tav::tls::failure;

namespace {

/// The events of a client that has begun a connect.
class Connecting {
public:
    Connecting() {
        state.begin(info);
        option->set_on_error([this](unsigned long long, unsigned short, int code, char const * text) {
            own_thread = impl::thread_role::of_client(&state);
            told_.set_value(std::to_string(code) + " " + text);
        });
        events.start(&state);
    }
    ~Connecting() { events.close(); }

    void fail(int code, char const * text) { events.on_error(info, option, 0, 0xffff, code, text, nullptr); }
    /// What was told; empty if nothing was in time.
    std::string told(std::chrono::seconds limit = std::chrono::seconds(10)) {
        std::future<std::string> said = told_.get_future();
        return said.wait_for(limit) == std::future_status::ready ? said.get() : std::string();
    }

    impl::client_state state;
    std::shared_ptr<impl::counters> const counted = std::make_shared<impl::counters>();
    connect_events events{"<c>", state, counted};
    std::shared_ptr<impl::connect_info> const info =
        std::make_shared<impl::connect_info>("<c>", tav::tls::timedout_option());
    std::shared_ptr<connect_option> const option = std::make_shared<connect_option>();
    bool own_thread = false;

private:
    std::promise<std::string> told_;
};

} // namespace

TEST(ConnectEvents, ErrorEndsItsConnectAndIsToldOnAThreadOfTheClient) {
    Connecting rig;
    rig.fail(7, "refused");
    EXPECT_EQ(rig.info->result(), tav::tls::result_error);
    EXPECT_EQ(rig.told(), "7 refused");
    EXPECT_TRUE(rig.own_thread);
    EXPECT_FALSE(rig.state.connecting());
}

TEST(ConnectEvents, ConnectFailsOnceThoughItRunsOutOfTimeFirst) {
    Connecting rig;
    rig.events.on_timedout(rig.info, *rig.option, 0, 0xffff, false);
    EXPECT_EQ(rig.info->result(), tav::tls::result_timedout);
    rig.fail(7, "late");
    EXPECT_EQ(rig.counted->connects_failed.load(), 1u);
}

TEST(ConnectEvents, CancelledConnectDoesNotCountAsFailed) {
    Connecting rig;
    rig.events.on_timedout(rig.info, *rig.option, 0, 0xffff, true);
    EXPECT_EQ(rig.info->result(), tav::tls::result_cancelled);
    EXPECT_EQ(rig.counted->connects_failed.load(), 0u);
}

TEST(ConnectEvents, BreakIsNoFailedConnect) {
    Connecting rig;
    rig.info->up() = true;
    rig.fail(1, "end");
    EXPECT_EQ(rig.told(), "1 end");
    EXPECT_EQ(rig.counted->connects_failed.load(), 0u);
}

TEST(ConnectEvents, ErrorOfAConnectionThatTheApplicationHasClosedIsNotTold) {
    Connecting rig;
    unsigned const before = rig.events.era();
    rig.events.begin_era();
    bool told = false;
    connect_option option;
    option.set_on_error([&](unsigned long long, unsigned short, int, char const *) { told = true; });
    rig.events.tell_error(before, failure::other, option, 0, 0xffff, 1, "late");
    EXPECT_FALSE(told);
    rig.events.tell_error(rig.events.era(), failure::other, option, 0, 0xffff, 1, "of the present one");
    EXPECT_TRUE(told);
}

TEST(ConnectEvents, ErrorKeepsWhatItIsGivenUntilItIsTold) {
    Connecting rig;
    auto kept = std::make_shared<int>(1);
    std::weak_ptr<int> const watched = kept;
    std::promise<bool> held;
    rig.option->set_on_error(
        [&](unsigned long long, unsigned short, int, char const *) { held.set_value(!watched.expired()); });
    rig.events.on_error(rig.info, rig.option, 0, 0xffff, 1, "x", std::move(kept));
    std::future<bool> told = held.get_future();
    ASSERT_EQ(told.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_TRUE(told.get());
    rig.events.close();
    EXPECT_TRUE(watched.expired());
}
