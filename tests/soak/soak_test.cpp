#include "support/in_child.h"
#include "support/storm.h"
#include "tav/kit/talk.h"

#if !TAV_TEST_SANITIZER_ALLOCATES
#include "support/heap_meter.h"
#endif

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <exception>
#include <functional>
#include <iostream>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

// What shows after long only: what grows, what is lost once in a million, what two threads do at last.  The
// ordinary run lasts for moments; scripts/soak.sh sets more.
namespace {

using namespace tav_test;

int numberOf(char const * variable, int otherwise) {
    char const * const text = std::getenv(variable);
    return text != nullptr ? std::atoi(text) : otherwise;
}

std::chrono::seconds lasting() {
    return std::chrono::seconds(numberOf("TAV_SOAK_SECONDS", 4));
}

/// A test of this length hangs only behind it.
void lasts(std::chrono::seconds v) {
    ::alarm(static_cast<unsigned>(v.count()) + 100);
}

/// What the process has taken of the heap; nothing where a sanitizer has it.
long long heapNow() {
#if TAV_TEST_SANITIZER_ALLOCATES
    return 0;
#else
    return heapBytes.load();
#endif
}

/// What a process holds in the course of its work.
class Course {
public:
    // Its own samples are not to be among what grows.
    Course() { samples_.reserve(1000 + 25 * static_cast<std::size_t>(lasting().count())); }

    void sample() {
        std::chrono::duration<double> const at = std::chrono::steady_clock::now() - begin_;
        samples_.push_back({at.count(), static_cast<double>(heapNow()), static_cast<double>(threadsNow()),
                            static_cast<double>(descriptorsNow())});
    }

    /// How many samples tell anything.
    static constexpr int least = 12;

    /// What it held in its last third is what it held in the one ahead of it, but for what is in hand; and
    /// what it gained by and by is less than chance makes of so many samples.
    void expectLevel() {
        ASSERT_GE(samples_.size(), static_cast<std::size_t>(least));
        EXPECT_LT(median(&Sample::heap, 2) - median(&Sample::heap, 1), heapInHand);
        // In a short run a session or two may be ending whenever it is looked.
        double const ending = samples_.size() < 100 ? 3 : 0;
        EXPECT_LE(median(&Sample::threads, 2), median(&Sample::threads, 1) + ending);
        EXPECT_LE(median(&Sample::descriptors, 2), median(&Sample::descriptors, 1) + ending);
        if (samples_.size() >= 100) {
            // A minute has some 300 samples, an hour 13,000: 230 KiB and 35 KiB.
            EXPECT_LT(gained(&Sample::heap),
                      4.0 * 1024 * 1024 / std::sqrt(static_cast<double>(samples_.size())));
            EXPECT_LT(gained(&Sample::threads), 0.5);
            EXPECT_LT(gained(&Sample::descriptors), 0.5);
        }
        std::cout << samples_.size() << " samples in " << samples_.back().at << " s; a second adds "
                  << slope(&Sample::heap) << " bytes of heap, " << slope(&Sample::threads) << " threads, "
                  << slope(&Sample::descriptors) << " descriptors" << std::endl;
    }

private:
    struct Sample {
        double at, heap, threads, descriptors;
    };
    using Value = double Sample::*;
    static constexpr double heapInHand = 512.0 * 1024;

    double median(Value v, std::size_t third) const {
        std::vector<double> all;
        std::size_t const n = samples_.size() / 3;
        for (std::size_t i = third * n; i < (third + 1) * n; ++i) {
            all.push_back(samples_[i].*v);
        }
        std::nth_element(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(n / 2), all.end());
        return all[n / 2];
    }
    /// In the time that its slope is of.
    double gained(Value v) const {
        return slope(v) * (samples_.back().at - samples_[samples_.size() / 3].at);
    }
    /// A second's, by least squares, without the first third.
    double slope(Value v) const {
        double n = 0, x = 0, y = 0, xx = 0, xy = 0;
        for (std::size_t i = samples_.size() / 3; i < samples_.size(); ++i) {
            Sample const & each = samples_[i];
            n += 1;
            x += each.at;
            y += each.*v;
            xx += each.at * each.at;
            xy += each.at * (each.*v);
        }
        double const spread = n * xx - x * x;
        return spread > 0 ? (n * xy - x * y) / spread : 0;
    }

    std::chrono::steady_clock::time_point const begin_ = std::chrono::steady_clock::now();
    std::vector<Sample> samples_;
};

struct Pushed : kit::message<Pushed, Say> {
    static constexpr char const * type_name = "Pushed";
    static constexpr unsigned short type_code = 0x4001;
};

/// What the gateway says unasked.  On a connection that stays each message comes once; on one that ends, once
/// at most.  Behind the millionth, which takes hours, nothing more is said.
class Pushes {
public:
    explicit Pushes(Storm & storm) : storm_(storm), got_(1 << 20) {
        kit::on<Pushed>(storm.keeper().client(), [this](Pushed const & v) {
            if (v.number >= 0 && v.number < next_) {
                ++got_[static_cast<std::size_t>(v.number)];
            }
        });
    }

    /// Between two harms: what is pushed first has to come, and what is pushed last meets the next harm.
    void push() {
        bool const up = eventually([&] {
            return storm_.keeper().status().state == kit::keeper_state::up &&
                   storm_.gateway().stats().open == 1;
        });
        EXPECT_TRUE(up) << "the connection comes back";
        unsigned const connections = storm_.gateway().stats().connections;
        int const begin = next_;
        send(20);
        bool const all = eventually([&] { return arrived(begin, next_); });
        if (next_ > begin && storm_.gateway().stats().connections == connections &&
            storm_.gateway().stats().open == 1) {
            lost_ += all ? 0 : 1;
            sure_ += next_ - begin;
        }
        send(5);
    }

    void judge() const {
        int doubled = 0;
        for (auto const & each : got_) {
            doubled += each > 1 ? 1 : 0;
        }
        EXPECT_EQ(doubled, 0);
        EXPECT_EQ(lost_, 0);
        EXPECT_GT(sure_, 0);
        std::cout << next_ << " pushes, " << sure_ << " of them in the calm" << std::endl;
    }

private:
    void send(int n) {
        for (int i = 0; i < n && next_ < static_cast<int>(got_.size()); ++i) {
            int const number = next_++;
            Pushed message;
            message.number = number;
            storm_.gateway().push(Pushed::type_code, std::string(tav_istr(message.encode(true))), false);
        }
    }
    bool arrived(int begin, int end) const {
        return std::all_of(got_.begin() + begin, got_.begin() + end, [](auto const & v) { return v > 0; });
    }

    Storm & storm_;
    std::vector<std::atomic<unsigned char>> got_;
    std::atomic<int> next_{0};
    int lost_ = 0;
    int sure_ = 0;
};

/// Eight threads that do anything with some clients, whose functions do as much.
class Crowd : public std::enable_shared_from_this<Crowd> {
public:
    explicit Crowd(unsigned short port) : port_(std::to_string(port)) {}

    void run(std::chrono::seconds time, std::function<void()> const & harm) {
        std::vector<std::thread> threads;
        for (unsigned t = 0; t < 8; ++t) {
            threads.emplace_back([this, t] { act(t); });
        }
        auto const end = std::chrono::steady_clock::now() + time;
        while (std::chrono::steady_clock::now() < end) {
            harm();
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        over_ = true;
        for (std::thread & thread : threads) {
            thread.join();
        }
        for (std::size_t place = 0; place < clients_.size(); ++place) {
            drop(place);
        }
        tls::client::destroy("of the crowd");
    }

    /// Each connect and send that has begun.
    bool allEnded() {
        std::lock_guard<std::mutex> const guard(keptMutex_);
        return std::all_of(ended_.begin(), ended_.end(), [](auto const & ends) { return ends(); });
    }
    /// They hold functions, which hold this.
    void forget() {
        // They end behind the lock.
        std::vector<std::function<bool()>> ended;
        std::lock_guard<std::mutex> const guard(keptMutex_);
        ended.swap(ended_);
    }
    unsigned long long opened() const { return opened_; }
    unsigned long long answered() const { return answered_; }

private:
    using Chance = std::minstd_rand;
    using client_ptr = std::shared_ptr<tls::client>;

    /// The calling thread's.
    static Chance & chance() {
        static std::atomic<unsigned> seed{1};
        thread_local Chance own(seed++);
        return own;
    }
    static bool oneIn(unsigned n) { return chance()() % n == 0; }

    client_ptr at(std::size_t place) {
        std::lock_guard<std::mutex> const guard(mutex_);
        if (!clients_[place]) {
            clients_[place] = std::make_shared<tls::client>("c" + std::to_string(place));
        }
        return clients_[place];
    }
    void drop(std::size_t place) {
        // Ends behind the lock, here or with whoever has it in hand.
        client_ptr dropped;
        std::lock_guard<std::mutex> const guard(mutex_);
        dropped.swap(clients_[place]);
    }

    tls::connect_option option(client_ptr const & one) {
        tls::connect_option out = quietOption(port_);
        out.timedout.wait_ms(1000);
        std::weak_ptr<tls::client> const weak = one;
        auto const self = shared_from_this();
        auto const calls = [self, weak](unsigned n) {
            if (client_ptr const present = weak.lock()) {
                self->callBack(*present, n);
            }
        };
        out.set_on_open([self, calls] {
            ++self->opened_;
            calls(2);
        });
        out.set_on_error([calls](unsigned long long, unsigned short, int, char const *) { calls(3); });
        out.timedout.set_on_timedout([calls](unsigned long long, unsigned short, bool) { calls(3); });
        out.set_nbr_msg_callback([calls](unsigned long long, unsigned short, unsigned char const *, unsigned,
                                         tavMsgExt) { calls(4); });
        return out;
    }

    /// What a function of the client does with it, once in `n` times.
    void callBack(tls::client & one, unsigned n) {
        if (over_ || !oneIn(n)) {
            return;
        }
        switch (chance()() % 5) {
        case 0: one.close(); break;
        case 1: keep(one.reconnect(tls::timedout_option(1000))); break;
        case 2: one.cancel_all(); break;
        default: send(one); break;
        }
    }
    void send(tls::client & one) {
        tls::send_option const how(
            tls::timedout_option(1000), tls::error_function(),
            tls::nbr_function([self = shared_from_this()](unsigned long long, unsigned short,
                                                          unsigned char const *, unsigned,
                                                          tavMsgExt) { ++self->answered_; }),
            Answer().msgcode(), false, 6);
        auto const info = one.send_msg(Ask(1), how);
        keep(info);
        if (info && oneIn(5)) {
            info->cancel();
        }
    }
    template <class Info>
    void keep(std::shared_ptr<Info> const & info) {
        if (!info) {
            return;
        }
        std::lock_guard<std::mutex> const guard(keptMutex_);
        ended_.push_back([info] { return info->result() >= 0; });
        if (ended_.size() > 5000) {
            ended_.erase(
                std::remove_if(ended_.begin(), ended_.end(), [](auto const & ends) { return ends(); }),
                ended_.end());
        }
    }

    void act(unsigned thread) {
        chance().seed(1000 + thread);
        while (!over_) {
            std::size_t const place = chance()() % clients_.size();
            if (oneIn(40)) {
                drop(place);
            } else if (oneIn(40)) {
                actNamed();
            } else {
                act(at(place));
            }
        }
    }
    void act(client_ptr const & one) {
        // The pace; it orders nothing.
        std::this_thread::sleep_for(std::chrono::milliseconds(3));
        switch (chance()() % 60) {
        case 0: keep(one->start(option(one), oneIn(2))); break;
        case 1:
        case 2:
            if (auto const info = one->start(option(one), true)) {
                keep(info);
                info->wait();
            }
            break;
        case 6: keep(one->reconnect(tls::timedout_option(1000), oneIn(2))); break;
        case 3: one->close(); break;
        case 4: one->cancel_all(); break;
        case 5:
            if (auto const info = one->start(option(one))) {
                info->cancel();
                keep(info);
            }
            break;
        case 8:
        case 9: {
            Answer answer;
            one->send_and_wait(Ask(1), answer, 30);
            break;
        }
        case 7: ask(*one); break;
        default: send(*one); break;
        }
    }
    static void ask(tls::client & one) {
        one.connected();
        one.statistics();
        one.negotiated();
        one.should_check_heartbeat(oneIn(2));
        try {
            one.get_local_addr();
        } catch (std::exception const &) {
            // It has just gone.
        }
    }
    /// A client by name goes under whoever uses it: these calls are one at a time.
    void actNamed() {
        std::lock_guard<std::mutex> const guard(namedMutex_);
        if (oneIn(3)) {
            tls::client::destroy("of the crowd");
            return;
        }
        tls::client & one = tls::client::instance("of the crowd");
        keep(one.start(option(nullptr)));
        send(one);
    }

    std::string const port_;
    std::atomic<bool> over_{false};
    std::atomic<unsigned long long> opened_{0};
    std::atomic<unsigned long long> answered_{0};
    std::mutex mutex_;
    std::array<client_ptr, 5> clients_;
    std::mutex namedMutex_;
    std::mutex keptMutex_;
    std::vector<std::function<bool()>> ended_;
};

} // namespace

TEST(Soak, KeeperLosesDoublesAndLeavesNothing) {
    Holdings const before;
    {
        StormTerms terms;
        terms.policy = kit::when_full::wait;
        terms.seed = 5;
        terms.lasting = lasting();
        terms.harms = Course::least;
        terms.pace = std::chrono::milliseconds(1);
        Storm storm(terms);
        Pushes pushes(storm);
        Course course;
        storm.rage([&] {
            pushes.push();
            course.sample();
        });
        storm.judge();
        pushes.judge();
        course.expectLevel();
    }
    EXPECT_TRUE(before.back()) << before.print();
}

TEST(Soak, EightThreadsDoAnythingWithClients) {
    lasts(lasting());
    Holdings const before;
    {
        GatewayRig rig;
        std::minstd_rand chance(1);
        auto const crowd = std::make_shared<Crowd>(rig.gateway.port());
        crowd->run(lasting(), [&] {
            tav::gateway::Faults faults;
            faults.silence = chance() % 8 == 0;
            faults.reset_after = chance() % 4 == 0 ? 7 : 0;
            rig.gateway.setFaults(faults);
            if (chance() % 3 == 0) {
                rig.gateway.drop(chance() % 2 == 0);
            }
        });
        EXPECT_TRUE(eventually([&] { return crowd->allEnded(); })) << "what has begun ends";
        crowd->forget();
        EXPECT_GT(crowd->opened(), 0u);
        EXPECT_GT(crowd->answered(), 0u);
        // The functions of clients that end elsewhere hold it still.
        EXPECT_TRUE(eventually([&] { return crowd.use_count() == 1; }));
        std::cout << crowd->opened() << " connections, " << crowd->answered() << " answers" << std::endl;
    }
    EXPECT_TRUE(before.back()) << before.print();
}

TEST(Soak, ConnectsLeaveNeitherHeapNorDescriptors) {
    int const connects = numberOf("TAV_SOAK_CONNECTS", 150);
    lasts(std::chrono::seconds(connects / 8));
    GatewayRig rig;
    tls::client client("soak");
    tls::connect_option const option = quietOption(std::to_string(rig.gateway.port()));
    auto const connect = [&](int i) {
        auto const info = i % 2 == 0 ? client.start(option) : client.reconnect(tls::timedout_option(10000));
        ASSERT_EQ(resultOf(info), tls::result_ok) << i;
        if (i % 10 == 0) {
            Answer answer;
            ASSERT_EQ(client.send_and_wait(Ask(i), answer, 10000), tls::result_ok) << i;
        }
        if (i % 3 == 0) {
            client.close();
            ASSERT_TRUE(eventually([&] { return !client.connected(); }));
        }
    };
    auto const rest = [&] {
        client.close();
        EXPECT_TRUE(eventually([&] { return !client.connected() && rig.gateway.stats().open == 0; }));
    };
    for (int i = 0; i < 30; ++i) {
        connect(i);
    }
    rest();
    Holdings const before;
    long long const heap = heapNow();
    for (int i = 0; i < connects && !HasFatalFailure(); ++i) {
        connect(i);
    }
    rest();
    EXPECT_TRUE(before.back()) << before.print();
    EXPECT_TRUE(eventually([&] { return heapNow() <= heap + 16 * 1024; }))
        << "heap " << heap << " -> " << heapNow();
    std::cout << connects << " connects, heap " << heap << " -> " << heapNow() << std::endl;
}
