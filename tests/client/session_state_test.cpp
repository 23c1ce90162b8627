#include "client/session_state.h"

#include <gtest/gtest.h>

using tav::tls::impl::session_state;

TEST(SessionState, GoesFromStepToStep) {
    session_state state;
    EXPECT_EQ(state.now(), session_state::created);
    EXPECT_TRUE(state.advance(session_state::created, session_state::connecting));
    EXPECT_FALSE(state.advance(session_state::created, session_state::connecting)) << "one caller gets it";
    EXPECT_FALSE(state.ended());
    EXPECT_FALSE(state.up());
    EXPECT_TRUE(state.advance(session_state::connecting, session_state::handshaking));
    EXPECT_TRUE(state.advance(session_state::handshaking, session_state::connected));
    EXPECT_TRUE(state.up());
}

TEST(SessionState, ClosingBeginsOnceAndOnlyOfWhatWasBegun) {
    session_state state;
    EXPECT_EQ(state.begin_closing(), session_state::created);
    EXPECT_FALSE(state.ended());
    ASSERT_TRUE(state.advance(session_state::created, session_state::connecting));
    EXPECT_EQ(state.begin_closing(), session_state::connecting) << "what it left";
    EXPECT_EQ(state.begin_closing(), session_state::created);
    EXPECT_TRUE(state.ended());
    EXPECT_FALSE(state.advance(session_state::connecting, session_state::handshaking));
    state.close();
    EXPECT_EQ(state.begin_closing(), session_state::created);
    EXPECT_TRUE(state.ended());
}

TEST(SessionState, StoppedSendsLeaveTheStepAsItIs) {
    session_state state;
    ASSERT_TRUE(state.advance(session_state::created, session_state::connected));
    state.stop_sends();
    EXPECT_TRUE(state.stopped());
    EXPECT_FALSE(state.up());
    EXPECT_EQ(state.now(), session_state::connected);
    EXPECT_FALSE(state.ended());
}

TEST(SessionState, WishForTheEndIsKeptApartFromTheClosingOfTheSocket) {
    session_state state;
    state.closing_actively(true);
    EXPECT_FALSE(state.end_asked());
    state.closing_actively(false);
    state.ask_end();
    EXPECT_FALSE(state.closing_actively());
    EXPECT_TRUE(state.end_asked());
}
