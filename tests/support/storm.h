#ifndef TAV_TESTS_SUPPORT_STORM_H
#define TAV_TESTS_SUPPORT_STORM_H

#include "tav/kit/keeper.h"

#include "support/keeper_rig.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <iostream>
#include <memory>
#include <mutex>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

/// A storm over a keeper.  What counts: each message ends once, none that may be repeated is lost, none that
/// may not is twice on the wire.
namespace tav_test {

/// How a message was sent.
enum class storm_kind : unsigned char { none, repeatable, once, hasty, posted, direct };

/// How a storm goes.
struct StormTerms {
    kit::when_full policy = kit::when_full::refuse;
    unsigned seed = 1;
    bool with_login = false;
    std::chrono::seconds lasting{15};
    /// How many harms there are, however long they take.
    int harms = 0;
    /// What a thread waits behind each message; it orders nothing.
    std::chrono::microseconds pace{0};
};

/// What has become of each message, by its number.
class StormRecord {
public:
    explicit StormRecord(StormTerms const & terms)
        : most(mostOf(terms)), entries_(static_cast<std::size_t>(most)) {}

    /// More than a storm sends in its time.
    int const most;

    struct Entry {
        std::atomic<storm_kind> as{storm_kind::none};
        std::atomic<unsigned char> ends{0};
        std::atomic<unsigned char> received{0};
        std::atomic<int> error{0};
    };

    Entry & operator[](int number) { return entries_[static_cast<std::size_t>(number)]; }
    /// The number of the next message; -1 if there have been enough.
    int begin(storm_kind as) {
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
    /// On the gateway's thread, which nothing may be raised on.
    void receive(std::string const & body) {
        Say said;
        try {
            said.decode(tav_istr(body));
        } catch (std::exception const & e) {
            ADD_FAILURE() << "what was sent has come as no message: " << e.what();
            return;
        }
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
    static int mostOf(StormTerms const & terms) {
        int const seconds = static_cast<int>(terms.lasting.count());
        constexpr int threads = 4;
        return terms.pace.count() == 0
                   ? (1 << 21) * std::max(2, seconds / 15)
                   : static_cast<int>(1000000 / terms.pace.count() + 1) * threads * (seconds + 30);
    }

    std::vector<Entry> entries_;
    std::atomic<int> next_{0};
    std::mutex mutex_;
    std::condition_variable changed_;
    std::atomic<int> under_way_{0};
};

/// A gateway that comes to harm, and comes back at the same port.
class StormVictim {
public:
    StormVictim(StormRecord & record, unsigned seed) : chance_(seed) {
        options_.on_packet = [&record](unsigned short code, std::string const & body) {
            if (code == Say::type_code) {
                record.receive(body);
            }
        };
        begin();
        options_.port = gateway_->port();
    }
    unsigned short port() const { return options_.port; }
    tav::gateway::Gateway & operator*() { return *gateway_; }
    /// Has it come to harm, in one way or another, for so long and so often at least; calls `between` behind
    /// each.
    void suffer(std::chrono::seconds time, std::function<void()> const & between = nullptr, int least = 0) {
        auto const end = std::chrono::steady_clock::now() + time;
        for (int harms = 0; harms < least || std::chrono::steady_clock::now() < end; ++harms) {
            harm();
            if (between) {
                between();
            }
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

/// Four threads talk through a keeper while its gateway is killed, resets, goes silent, answers late and
/// closes with the last reply.
class Storm {
public:
    explicit Storm(StormTerms const & terms)
        : terms_(terms),
          record_(std::make_unique<StormRecord>(terms)),
          victim_(*record_, terms.seed),
          keeper_(option(), how(terms.policy, terms.with_login), "storm") {}

    kit::keeper & keeper() { return keeper_; }
    /// As it is between two harms, on whose thread it may be asked.
    tav::gateway::Gateway & gateway() { return *victim_; }

    /// Calls `between` behind each harm, once the gateway does no harm any more.
    void rage(std::function<void()> const & between = nullptr) {
        // It lasts as long as it is told to, and hangs only behind that.
        ::alarm(static_cast<unsigned>(terms_.lasting.count()) + 100);
        keeper_.start();
        std::vector<std::thread> threads;
        for (unsigned t = 0; t < 4; ++t) {
            threads.emplace_back([this, t] { talk(t); });
        }
        victim_.suffer(terms_.lasting, between, terms_.harms);
        over_ = true;
        for (std::thread & thread : threads) {
            thread.join();
        }
        EXPECT_TRUE(record_->waitBelow(1, std::chrono::seconds(60))) << "all come to their end in the calm";
        keeper_.stop();
    }

    void judge() {
        std::array<unsigned, 16> ends{};
        int lost = 0;
        int doubled = 0;
        int unended = 0;
        int wrong = 0;
        for (int i = 0; i < record_->count(); ++i) {
            StormRecord::Entry & one = (*record_)[i];
            auto const error = static_cast<kit::failure>(one.error.load());
            bool const ok = one.error == 0;
            unended += one.ends == 1 ? 0 : 1;
            doubled += one.as != storm_kind::repeatable && one.received > 1 ? 1 : 0;
            bool const never_went = error == kit::failure::outbox_full ||
                                    (error == kit::failure::dropped && one.as != storm_kind::repeatable);
            wrong += never_went && one.received != 0 ? 1 : 0;
            wrong += ok && one.as != storm_kind::posted && one.received == 0 ? 1 : 0;
            bool const full = error == kit::failure::outbox_full || error == kit::failure::dropped;
            wrong += full && terms_.policy == kit::when_full::wait ? 1 : 0;
            lost += one.as == storm_kind::repeatable && !ok && !full ? 1 : 0;
            ++ends[static_cast<std::size_t>(one.error.load())];
        }
        EXPECT_EQ(lost, 0);
        EXPECT_EQ(doubled, 0);
        EXPECT_EQ(unended, 0);
        EXPECT_EQ(wrong, 0);
        EXPECT_GT(ends[0], 100u);
        if (terms_.lasting >= std::chrono::seconds(15)) {
            EXPECT_GT(ends[static_cast<std::size_t>(kit::failure::disconnected)], 0u) << "there was a storm";
        }
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
        made.first_wait = std::chrono::milliseconds(20);
        made.longest_wait = std::chrono::milliseconds(200);
        made.connect_limit = std::chrono::seconds(2);
        made.login_limit = std::chrono::seconds(1);
        made.outbox = 60;
        made.policy = policy;
        if (with_login) {
            made.login = kit::login_with<Said>(Say(-1), std::chrono::seconds(1));
        }
        return made;
    }

    void talk(unsigned thread) {
        constexpr int most_under_way = 200;
        std::minstd_rand chance(thread + 1);
        while (!over_) {
            if (!record_->waitBelow(most_under_way, std::chrono::seconds(20))) {
                ADD_FAILURE() << "nothing has come to an end for long";
                return;
            }
            auto const as = static_cast<storm_kind>(1 + chance() % 5);
            int const number = record_->begin(as);
            if (number < 0) {
                return;
            }
            send(as, number, chance() % 7 == 0);
            if (terms_.pace.count() != 0) {
                std::this_thread::sleep_for(terms_.pace);
            }
        }
    }
    void send(storm_kind as, int number, bool cancels) {
        Say const say(number);
        auto const ended = [this, number](kit::result<Said> const & v) { record_->end(number, v.error()); };
        if (as == storm_kind::repeatable) {
            kit::request<Said>(keeper_, say,
                               kit::within(std::chrono::seconds(300) + terms_.lasting).repeatable(), ended);
        } else if (as == storm_kind::once) {
            kit::request<Said>(keeper_, say, std::chrono::seconds(20), ended);
        } else if (as == storm_kind::hasty) {
            kit::pending const one =
                kit::request<Said>(keeper_, say, std::chrono::milliseconds(1 + number % 150), ended);
            if (cancels) {
                one.cancel();
            }
        } else if (as == storm_kind::posted) {
            kit::post(keeper_, say, std::chrono::seconds(20),
                      [this, number](kit::result<void> const & v) { record_->end(number, v.error()); });
        } else {
            kit::request<Said>(keeper_.client(), say, std::chrono::seconds(5), ended);
        }
    }

    StormTerms const terms_;
    std::unique_ptr<StormRecord> record_;
    StormVictim victim_;
    std::atomic<bool> over_{false};
    kit::keeper keeper_;
};

} // namespace tav_test

#endif
