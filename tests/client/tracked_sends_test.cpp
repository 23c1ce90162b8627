#include "client/tracked_sends.h"

#include "client/send_info.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace impl = tav::tls::impl;
namespace tls = tav::tls;
using impl::tracked_sends;

namespace {

using Texts = std::vector<std::string>;

/// Tracked sends and what the application hears of them.
struct Heard {
    tracked_sends::info_ptr made(unsigned long long sno, int wait_ms = 1000) {
        tls::timedout_option timedout(wait_ms);
        timedout.set_on_timedout([this](unsigned long long number, unsigned short, bool cancelled) {
            texts.push_back(std::to_string(number) + (cancelled ? " cancelled" : " timed out"));
            if (number == thrower) {
                throw std::runtime_error("thrown by the application");
            }
        });
        tls::send_option const option(timedout, tls::error_function(), tls::message_callback(), 0x4321, false,
                                      4);
        return std::make_shared<impl::send_info>("<t>", tavSharedPtr<impl::send_owner>(), sno, 0x1234, option,
                                                 0);
    }
    tracked_sends::info_ptr tracked(unsigned long long sno, int wait_ms = 1000) {
        auto info = made(sno, wait_ms);
        sends.track(info);
        return info;
    }

    std::shared_ptr<std::atomic<tls::failure>> const cause =
        std::make_shared<std::atomic<tls::failure>>(tls::failure::none);
    tracked_sends sends{"<t>", cause};
    Texts texts;
    unsigned long long thrower = 0;
};

} // namespace

TEST(TrackedSends, FindsAndForgetsByNumber) {
    Heard heard;
    auto const seven = heard.tracked(7);
    auto const eight = heard.tracked(8);
    EXPECT_EQ(heard.sends.find(7, 0x4321), seven);
    EXPECT_FALSE(heard.sends.remove(7, eight.get()));
    EXPECT_TRUE(heard.sends.remove(7));
    EXPECT_FALSE(heard.sends.remove(7));
    EXPECT_EQ(heard.sends.size(), 1u);
    EXPECT_EQ(heard.texts, Texts{});
}

TEST(TrackedSends, SendThatWasCancelledAheadOfItsPlaceDoesNotGetOne) {
    Heard heard;
    auto const info = heard.made(7);
    info->cancel();
    heard.sends.track(info);
    EXPECT_EQ(heard.sends.size(), 0u);
}

TEST(TrackedSends, LimitEndsTheSendsThatAreDue) {
    Heard heard;
    auto const soon = heard.tracked(1, 100);
    auto const late = heard.tracked(2, 1000);
    heard.sends.check_timedout(500);
    EXPECT_EQ(heard.texts, Texts{"1 timed out"});
    EXPECT_EQ(soon->result(), tls::result_timedout);
    EXPECT_LT(late->result(), 0);
}

TEST(TrackedSends, CancellationEndsAllAndTheUnsentBehindThem) {
    Heard heard;
    heard.tracked(2);
    heard.tracked(1);
    impl::send_queue::list unsent;
    unsent.push_back(impl::send_queue::entry{nullptr, heard.made(9), impl::send_account::room()});
    heard.sends.cancel_all(unsent);
    EXPECT_EQ(heard.texts, (Texts{"1 cancelled", "2 cancelled", "9 cancelled"}));
    EXPECT_EQ(heard.sends.size(), 0u);
}

TEST(TrackedSends, WhatTheApplicationThrowsKeepsNoSendFromItsEnd) {
    for (bool const by_limit : {true, false}) {
        Heard heard;
        heard.thrower = 1;
        heard.tracked(1);
        heard.tracked(2);
        if (by_limit) {
            heard.sends.check_timedout(5000);
        } else {
            heard.sends.cancel_all({});
        }
        EXPECT_EQ(heard.texts.size(), 2u) << by_limit;
        EXPECT_EQ(heard.sends.size(), 0u) << by_limit;
    }
}

TEST(TrackedSends, FirstCauseStays) {
    Heard heard;
    EXPECT_TRUE(heard.sends.set_cause(tls::failure::bad_frame));
    EXPECT_FALSE(heard.sends.set_cause(tls::failure::peer_silent));
    EXPECT_EQ(*heard.cause, tls::failure::bad_frame);
}

TEST(TrackedSends, SendThatFailsOnItsWayOutWaitsForItsLimitIfItIsTracked) {
    Heard heard;
    auto const tracked = heard.tracked(1);
    auto const untracked = heard.made(2);
    heard.sends.fail(tracked);
    heard.sends.fail(untracked);
    EXPECT_EQ(heard.texts, Texts{"2 cancelled"});
    heard.sends.drop(tracked);
    EXPECT_EQ(heard.texts, (Texts{"2 cancelled", "1 cancelled"}));
    EXPECT_EQ(heard.sends.size(), 0u);
}

TEST(TrackedSends, ClaimThatIsGivenBackWaitsOnUnlessAllHaveEnded) {
    Heard heard;
    auto const info = heard.tracked(1);
    ASSERT_TRUE(info->claim());
    heard.sends.unclaim(info);
    EXPECT_EQ(heard.texts, Texts{});
    ASSERT_TRUE(info->claim());
    heard.sends.cancel_all({});
    EXPECT_EQ(heard.texts, Texts{}) << "whoever has claimed it ends it";
    heard.sends.unclaim(info);
    EXPECT_EQ(heard.texts, Texts{"1 cancelled"});
}
