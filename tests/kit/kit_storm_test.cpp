#include "tav/kit/keeper.h"

#include "support/keeper_rig.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

// Four threads talk through a keeper while its gateway is killed, resets, goes silent, answers late and
// closes with the last reply.  What counts: each message ends once, none that may be repeated is lost, none
// that may not is twice on the wire, and nothing is left.  The same without a keeper, where an end of the
// connection is the end of what was under way.
namespace {

using namespace std::chrono_literals;
using namespace tav_test;

/// How long one storm lasts.  The long run of the tests sets more.
std::chrono::seconds lasting() {
    char const * const text = std::getenv("TAV_STORM_SECONDS");
    return std::chrono::seconds(text != nullptr ? std::atoi(text) : 15);
}

/// How a message was sent.
enum class kind : unsigned char { none, repeatable, once, hasty, posted, direct };

/// What has become of each message, by its number.
class Record {
public:
    /// More than a storm sends in its time.
    int const most = (1 << 21) * std::max(2, static_cast<int>(lasting().count()) / 15);

    struct Entry {
        std::atomic<kind> as{kind::none};
        std::atomic<unsigned char> ends{0};
        std::atomic<unsigned char> received{0};
        std::atomic<int> error{0};
    };

    Entry & operator[](int number) { return entries_[static_cast<std::size_t>(number)]; }
    /// The number of the next message; -1 if there have been enough.
    int begin(kind as) {
        int const number = next_++;
        if (number >= most) {
            return -1;
        }
        entries_[static_cast<std::size_t>(number)].as = as;
        ++under_way_;
        return number;
    }
    void end(int number, std::error_code error) {
        Entry & entry = (*this)[number];
        entry.error = error.value();
        ++entry.ends;
        std::lock_guard<std::mutex> const guard(mutex_);
        --under_way_;
        changed_.notify_all();
    }
    void receive(std::string const & body) {
        Say said;
        said.decode(tav_istr(body));
        if (said.number >= 0 && said.number < most) {
            ++(*this)[said.number].received;
        }
    }
    /// Waits until fewer than so many are under way.
    bool waitBelow(int n, std::chrono::seconds limit) {
        std::unique_lock<std::mutex> guard(mutex_);
        return changed_.wait_for(guard, limit, [&] { return under_way_ < n; });
    }
    int count() const { return std::min(next_.load(), most); }

private:
    std::vector<Entry> entries_ = std::vector<Entry>(static_cast<std::size_t>(most));
    std::atomic<int> next_{0};
    std::mutex mutex_;
    std::condition_variable changed_;
    std::atomic<int> under_way_{0};
};

/// A gateway that comes to harm, and comes back at the same port.
class Victim {
public:
    Victim(Record & record, unsigned seed) : chance_(seed) {
        options_.on_packet = [&record](unsigned short code, std::string const & body) {
            if (code == Say::type_code) {
                record.receive(body);
            }
        };
        begin();
        options_.port = gateway_->port();
    }
    unsigned short port() const { return options_.port; }
    /// Has it come to harm, in one way or another, for as long as the storm lasts.
    void suffer() {
        auto const end = std::chrono::steady_clock::now() + lasting();
        while (std::chrono::steady_clock::now() < end) {
            harm();
        }
        gateway_->setFaults(tav::gateway::Faults());
    }

private:
    void kill() { gateway_.reset(); }
    void begin() {
        auto const made = [this] {
            try {
                auto next = std::make_unique<tav::gateway::Gateway>(options_, GatewayRig::certificates());
                next->start();
                gateway_ = std::move(next);
                return true;
            } catch (std::exception const &) {
                // What was connected lingers at the port.
                return false;
            }
        };
        if (!eventually(made)) {
            throw std::runtime_error("the gateway did not come back");
        }
    }

    void harm() {
        tav::gateway::Faults faults;
        switch (chance_() % 7) {
        case 0:
            kill();
            calm(100);
            begin();
            break;
        case 1: gateway_->drop(true); break;
        case 2: gateway_->drop(false); break;
        case 3:
            faults.silence = true;
            gateway_->setFaults(faults);
            calm(200);
            gateway_->drop(chance_() % 2 == 0);
            break;
        case 4:
            faults.delay_ms = 60;
            gateway_->setFaults(faults);
            calm(200);
            break;
        case 5:
            faults.close_after = 1 + static_cast<unsigned>(chance_() % 40);
            gateway_->setFaults(faults);
            calm(200);
            break;
        default:
            faults.reset_after = 1 + static_cast<unsigned>(chance_() % 40);
            gateway_->setFaults(faults);
            calm(200);
            break;
        }
        gateway_->setFaults(tav::gateway::Faults());
        calm(150);
    }
    /// The pace of the storm; it orders nothing.
    void calm(unsigned most_ms) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20 + chance_() % most_ms));
    }

    tav::gateway::Options options_;
    std::unique_ptr<tav::gateway::Gateway> gateway_;
    std::minstd_rand chance_;
};

class Storm {
public:
    Storm(kit::when_full policy, unsigned seed, bool with_login)
        : record_(std::make_unique<Record>()),
          victim_(*record_, seed),
          keeper_(option(), how(policy, with_login), "storm") {}

    void rage() {
        // It lasts as long as it is told to, and hangs only behind that.
        ::alarm(static_cast<unsigned>(lasting().count()) + 100);
        keeper_.start();
        std::vector<std::thread> threads;
        for (unsigned t = 0; t < 4; ++t) {
            threads.emplace_back([this, t] { talk(t); });
        }
        victim_.suffer();
        over_ = true;
        for (std::thread & thread : threads) {
            thread.join();
        }
        EXPECT_TRUE(record_->waitBelow(1, 60s)) << "all come to their end in the calm";
        keeper_.stop();
    }

    void judge(kit::when_full policy) {
        std::array<unsigned, 16> ends{};
        int lost = 0;
        int doubled = 0;
        int unended = 0;
        int wrong = 0;
        for (int i = 0; i < record_->count(); ++i) {
            Record::Entry & one = (*record_)[i];
            auto const error = static_cast<kit::failure>(one.error.load());
            bool const ok = one.error == 0;
            unended += one.ends == 1 ? 0 : 1;
            doubled += one.as != kind::repeatable && one.received > 1 ? 1 : 0;
            bool const never_went = error == kit::failure::outbox_full ||
                                    (error == kit::failure::dropped && one.as != kind::repeatable);
            wrong += never_went && one.received != 0 ? 1 : 0;
            wrong += ok && one.as != kind::posted && one.received == 0 ? 1 : 0;
            bool const full = error == kit::failure::outbox_full || error == kit::failure::dropped;
            wrong += full && policy == kit::when_full::wait ? 1 : 0;
            lost += one.as == kind::repeatable && !ok && !full ? 1 : 0;
            ++ends[static_cast<std::size_t>(one.error.load())];
        }
        EXPECT_EQ(lost, 0);
        EXPECT_EQ(doubled, 0);
        EXPECT_EQ(unended, 0);
        EXPECT_EQ(wrong, 0);
        EXPECT_GT(ends[0], 100u);
        EXPECT_GT(ends[static_cast<std::size_t>(kit::failure::disconnected)], 0u) << "there was a storm";
        EXPECT_LT(record_->count(), record_->most) << "there were numbers to the end of the storm";
        std::string text;
        for (std::size_t i = 0; i < ends.size(); ++i) {
            text += ends[i] != 0 ? " " + std::to_string(i) + ":" + std::to_string(ends[i]) : std::string();
        }
        std::cout << record_->count() << " messages, ends by failure:" << text << std::endl;
    }

private:
    tls::connect_option option() const { return quietOption(std::to_string(victim_.port())); }
    static kit::keeper_option how(kit::when_full policy, bool with_login) {
        kit::keeper_option made;
        made.first_wait = 20ms;
        made.longest_wait = 200ms;
        made.connect_limit = 2s;
        made.login_limit = 1s;
        made.outbox = 60;
        made.policy = policy;
        if (with_login) {
            made.login = kit::login_with<Said>(Say(-1), 1s);
        }
        return made;
    }

    void talk(unsigned thread) {
        constexpr int most_under_way = 200;
        std::minstd_rand chance(thread + 1);
        while (!over_) {
            if (!record_->waitBelow(most_under_way, 20s)) {
                ADD_FAILURE() << "nothing has come to an end for long";
                return;
            }
            auto const as = static_cast<kind>(1 + chance() % 5);
            int const number = record_->begin(as);
            if (number < 0) {
                return;
            }
            send(as, number, chance() % 7 == 0);
        }
    }
    void send(kind as, int number, bool cancels) {
        Say const say(number);
        auto const ended = [this, number](kit::result<Said> const & v) { record_->end(number, v.error()); };
        if (as == kind::repeatable) {
            kit::request<Said>(keeper_, say, kit::within(300s + lasting()).repeatable(), ended);
        } else if (as == kind::once) {
            kit::request<Said>(keeper_, say, 20s, ended);
        } else if (as == kind::hasty) {
            kit::pending const one =
                kit::request<Said>(keeper_, say, std::chrono::milliseconds(1 + number % 150), ended);
            if (cancels) {
                one.cancel();
            }
        } else if (as == kind::posted) {
            kit::post(keeper_, say, 20s,
                      [this, number](kit::result<void> const & v) { record_->end(number, v.error()); });
        } else {
            kit::request<Said>(keeper_.client(), say, 5s, ended);
        }
    }

    std::unique_ptr<Record> record_;
    Victim victim_;
    std::atomic<bool> over_{false};
    kit::keeper keeper_;
};

/// Talk on a client that the test itself connects again whenever its connection ends.
class DirectStorm {
public:
    explicit DirectStorm(unsigned seed)
        : record_(std::make_unique<Record>()), victim_(*record_, seed), client_("direct") {}

    void rage() {
        ::alarm(static_cast<unsigned>(lasting().count()) + 100);
        std::vector<std::thread> threads;
        threads.emplace_back([this] { stay_connected(); });
        for (unsigned t = 0; t < 4; ++t) {
            threads.emplace_back([this, t] { talk(t); });
        }
        victim_.suffer();
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
            Record::Entry & one = (*record_)[i];
            bool const ok = one.error == 0;
            wrong += one.ends != 1 || one.received > 1 || (ok && one.received == 0) ? 1 : 0;
            ++ends[static_cast<std::size_t>(one.error.load())];
        }
        EXPECT_EQ(wrong, 0) << "unended, ended twice, twice on the wire, or answered unasked";
        EXPECT_GT(ends[0], 100u);
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
            int const number = record_->begin(kind::direct);
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

    std::unique_ptr<Record> record_;
    Victim victim_;
    std::atomic<bool> over_{false};
    tls::client client_;
};

void storm(kit::when_full policy, unsigned seed, bool with_login) {
    Holdings const before;
    {
        Storm one(policy, seed, with_login);
        one.rage();
        one.judge(policy);
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
