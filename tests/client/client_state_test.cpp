#include "client/client_state.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace impl = tav::tls::impl;
using impl::client_state;
using tav::tls::connect_option;

TEST(ClientState, IsNeverWithoutAnOptionAndAModel) {
    client_state const state;
    EXPECT_TRUE(state.option());
    EXPECT_TRUE(state.meta());
    EXPECT_FALSE(state.session());
    EXPECT_FALSE(state.connecting());
}

TEST(ClientState, GivesBackWhatIsReplaced) {
    client_state state;
    auto const first = state.option();
    auto const fresh = std::make_shared<connect_option>();
    EXPECT_EQ(state.replace(fresh), first);
    EXPECT_EQ(state.option(), fresh);
}

TEST(ClientState, StartBringsItsModelAndAReconnectLeavesIt) {
    client_state state;
    auto const first = state.meta();
    auto described = std::make_shared<impl::metainfo>(std::string());
    auto const fresh = described;
    state.begin(std::make_shared<impl::connect_info>("<c>", tav::tls::timedout_option()), &described);
    EXPECT_EQ(state.meta(), fresh);
    EXPECT_EQ(described, first);
    state.begin(std::make_shared<impl::connect_info>("<c>", tav::tls::timedout_option()));
    EXPECT_EQ(state.meta(), fresh);
}

TEST(ClientState, ConnectIsTakenOnceAndOnlyIfItIsTheOneUnderWay) {
    client_state state;
    auto const former = std::make_shared<impl::connect_info>("<c>", tav::tls::timedout_option());
    auto const present = std::make_shared<impl::connect_info>("<c>", tav::tls::timedout_option());
    state.begin(former);
    state.begin(present);
    EXPECT_FALSE(state.take_connecting(former));
    EXPECT_EQ(state.take_connecting(present), present);
    EXPECT_FALSE(state.take_connecting(present));
}

TEST(ClientState, ConnectThatHasEndedCountsAsNone) {
    client_state state;
    auto const info = std::make_shared<impl::connect_info>("<c>", tav::tls::timedout_option());
    state.begin(info);
    EXPECT_EQ(state.connecting(), info);
    info->on_conn_connected();
    EXPECT_FALSE(state.connecting());
    EXPECT_EQ(state.take_connecting(info), info);
}
