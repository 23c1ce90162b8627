#include "support/storm.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <random>
#include <thread>
#include <unistd.h>
#include <vector>

// The storm over a keeper; and the same without one, where an end of the connection is the end of what was
// under way.
namespace {

using namespace std::chrono_literals;
using namespace tav_test;

/// How long one storm lasts.  The long run of the tests sets more.
std::chrono::seconds lasting() {
    char const * const text = std::getenv("TAV_STORM_SECONDS");
    return std::chrono::seconds(text != nullptr ? std::atoi(text) : 15);
}

StormTerms termsNow() {
    StormTerms terms;
    terms.lasting = lasting();
    return terms;
}

/// Talk on a client that the test itself connects again whenever its connection ends.
class DirectStorm {
public:
    explicit DirectStorm(unsigned seed)
        : record_(std::make_unique<StormRecord>(termsNow())), victim_(*record_, seed), client_("direct") {}

    void rage() {
        ::alarm(static_cast<unsigned>(lasting().count()) + 100);
        std::vector<std::thread> threads;
        threads.emplace_back([this] { stay_connected(); });
        for (unsigned t = 0; t < 4; ++t) {
            threads.emplace_back([this, t] { talk(t); });
        }
        victim_.suffer(lasting());
        over_ = true;
        for (std::thread & thread : threads) {
            thread.join();
        }
        EXPECT_TRUE(record_->waitBelow(1, 20s)) << "none outlives its limit";
    }

    void judge() {
        std::array<unsigned, 16> ends{};
        int wrong = 0;
        for (int i = 0; i < record_->count(); ++i) {
            StormRecord::Entry & one = (*record_)[i];
            bool const ok = one.error == 0;
            wrong += one.ends != 1 || one.received > 1 || (ok && one.received == 0) ? 1 : 0;
            ++ends[static_cast<std::size_t>(one.error.load())];
        }
        EXPECT_EQ(wrong, 0) << "unended, ended twice, twice on the wire, or answered unasked";
        EXPECT_GT(ends[0], 20u);
        EXPECT_GT(ends[static_cast<std::size_t>(kit::failure::disconnected)], 0u) << "there was a storm";
        EXPECT_GT(ends[static_cast<std::size_t>(kit::failure::cancelled)], 0u);
        EXPECT_LT(record_->count(), record_->most) << "there were numbers to the end of the storm";
    }

private:
    void stay_connected() {
        tls::connect_option option = quietOption(std::to_string(victim_.port()));
        option.timedout.wait_ms(1000);
        while (!over_) {
            if (!client_.connected()) {
                if (auto const info = client_.start(option)) {
                    info->wait();
                }
            }
            std::this_thread::sleep_for(5ms); // The pace of an application that tries again.
        }
    }

    void talk(unsigned thread) {
        std::minstd_rand chance(thread + 1);
        while (!over_) {
            if (!client_.connected()) {
                std::this_thread::sleep_for(1ms); // There would be a refusal for each number else.
            }
            if (!record_->waitBelow(200, 20s)) {
                ADD_FAILURE() << "nothing has come to an end for long";
                return;
            }
            int const number = record_->begin(storm_kind::direct);
            if (number < 0) {
                return;
            }
            send(number, static_cast<unsigned>(chance() % 3), chance() % 2 == 0);
        }
    }
    void send(int number, unsigned way, bool cancels) {
        Say const say(number);
        auto const ended = [this, number](kit::result<Said> const & v) { record_->end(number, v.error()); };
        if (way == 0) {
            ended(kit::request<Said>(client_, say, 5s, kit::use_future).get());
        } else if (way == 1) {
            kit::request<Said>(client_, say, 5s, ended);
        } else {
            kit::pending const one =
                kit::request<Said>(client_, say, std::chrono::milliseconds(1 + number % 150), ended);
            if (cancels) {
                one.cancel();
            }
        }
    }

    std::unique_ptr<StormRecord> record_;
    StormVictim victim_;
    std::atomic<bool> over_{false};
    tls::client client_;
};

void storm(kit::when_full policy, unsigned seed, bool with_login) {
    Holdings const before;
    {
        Storm one({policy, seed, with_login, lasting()});
        one.rage();
        one.judge();
    }
    EXPECT_TRUE(before.back()) << before.print();
}

} // namespace

TEST(KitStorm, LosesAndDoublesNothingWhereTheOutboxRefuses) {
    storm(kit::when_full::refuse, 1, false);
}

TEST(KitStorm, LosesAndDoublesNothingWhereTheOutboxDrops) {
    storm(kit::when_full::drop_oldest, 2, false);
}

TEST(KitStorm, LosesAndDoublesNothingWhereSendersWait) {
    storm(kit::when_full::wait, 3, false);
}

TEST(KitStorm, LosesAndDoublesNothingBehindALogin) {
    storm(kit::when_full::wait, 4, true);
}

TEST(KitStorm, EndsEachRequestOnceWithoutAKeeper) {
    Holdings const before;
    {
        DirectStorm one(5);
        one.rage();
        one.judge();
    }
    EXPECT_TRUE(before.back()) << before.print();
}
