#include "tav/vinta/vinta_tls_client_options.h"

#include "support/log_capture.h"
#include "support/option_messages.h"

#include <gtest/gtest.h>

#include <atomic>
#include <limits>
#include <memory>
#include <stdexcept>
#include <thread>
#include <type_traits>

using tav::tls::timedout_function;
using tav::tls::timedout_option;
using tav_test::endsOnAnotherThread;
using tav_test::LogCapture;
using tav_test::printed;

namespace {

struct Calls {
    int count = 0;
    unsigned long long sno = 0;
    unsigned short msgcode = 0;
    bool cancelled = false;

    timedout_function function() {
        return [this](unsigned long long s, unsigned short m, bool c) {
            ++count;
            sno = s;
            msgcode = m;
            cancelled = c;
        };
    }
};

/// Runs the work on two threads that begin as nearly together as can be, many times over.
template <class Prepare, class A, class B, class Check>
void race(int rounds, Prepare prepare, A a, B b, Check check) {
    for (int i = 0; i < rounds; ++i) {
        auto const shared = prepare();
        std::atomic<int> ready{0};
        auto const meet = [&] {
            ++ready;
            while (ready.load() < 2) {
                std::this_thread::yield();
            }
        };
        std::thread other([&] {
            meet();
            b(*shared);
        });
        meet();
        a(*shared);
        other.join();
        check(*shared);
    }
}

} // namespace

TEST(TimedoutOption, StartsWithoutLimit) {
    timedout_option const option;
    EXPECT_EQ(option.wait_ms(), 0);
    EXPECT_TRUE(option.empty());
}

TEST(TimedoutOption, NumberDoesNotConvert) {
    EXPECT_FALSE((std::is_convertible<int, timedout_option>::value));
}

TEST(TimedoutOption, IsEmptyBelow1) {
    for (int const wait : {0, -1, -100, std::numeric_limits<int>::min()}) {
        EXPECT_TRUE(timedout_option(wait).empty()) << wait;
    }
    EXPECT_FALSE(timedout_option(1).empty());
    timedout_option option;
    option.wait_ms(1);
    EXPECT_FALSE(option.empty());
    EXPECT_EQ(option.wait_ms(), 1);
}

TEST(TimedoutOption, FiresAt96Of100AndNotAt95) {
    Calls calls;
    timedout_option option(100, calls.function());
    EXPECT_FALSE(option.check_timedout(7, 0x1234, 95));
    EXPECT_EQ(calls.count, 0);
    EXPECT_EQ(option.wait_ms(), 100);
    EXPECT_TRUE(option.check_timedout(7, 0x1234, 96));
    EXPECT_EQ(calls.count, 1);
    EXPECT_EQ(calls.sno, 7u);
    EXPECT_EQ(calls.msgcode, 0x1234);
    EXPECT_FALSE(calls.cancelled);
    EXPECT_TRUE(option.empty());
    EXPECT_EQ(option.wait_ms(), -100);
}

TEST(TimedoutOption, FiresOnce) {
    Calls calls;
    timedout_option option(100, calls.function());
    EXPECT_TRUE(option.check_timedout(7, 1, 1000));
    EXPECT_FALSE(option.check_timedout(7, 1, 2000));
    option.on_timedout(7, 1, true);
    EXPECT_EQ(calls.count, 1);
    EXPECT_EQ(option.wait_ms(), -100);
}

TEST(TimedoutOption, FunctionIsGoneAfterFiring) {
    Calls calls;
    timedout_option option(100, calls.function());
    EXPECT_TRUE(option.check_timedout(7, 1, 1000));
    option.wait_ms(50);
    EXPECT_TRUE(option.check_timedout(7, 1, 1000));
    EXPECT_EQ(calls.count, 1);
    EXPECT_EQ(option.wait_ms(), -50);
}

TEST(TimedoutOption, FiresWithoutFunctionToo) {
    timedout_option option(100);
    EXPECT_FALSE(option.check_timedout(7, 1, 95));
    EXPECT_TRUE(option.check_timedout(7, 1, 96));
    EXPECT_FALSE(option.check_timedout(7, 1, 97));
    EXPECT_EQ(option.wait_ms(), -100);
}

TEST(TimedoutOption, SmallLimitsFireAtOnce) {
    timedout_option option(4);
    EXPECT_TRUE(option.check_timedout(7, 1, 0));
    timedout_option five(5);
    EXPECT_FALSE(five.check_timedout(7, 1, 0));
    EXPECT_TRUE(five.check_timedout(7, 1, 1));
}

TEST(TimedoutOption, NeverFiresWithoutLimit) {
    Calls calls;
    for (int const wait : {0, -1, -100}) {
        timedout_option option(wait, calls.function());
        EXPECT_FALSE(option.check_timedout(7, 1, std::numeric_limits<int>::max()));
    }
    EXPECT_EQ(calls.count, 0);
}

TEST(TimedoutOption, ExtremeTimesDoNotOverflow) {
    timedout_option option(std::numeric_limits<int>::max());
    EXPECT_FALSE(option.check_timedout(7, 1, std::numeric_limits<int>::max() - 5));
    EXPECT_FALSE(option.check_timedout(7, 1, std::numeric_limits<int>::min()));
    EXPECT_TRUE(option.check_timedout(7, 1, std::numeric_limits<int>::max() - 4));
    EXPECT_EQ(option.wait_ms(), -std::numeric_limits<int>::max());
    EXPECT_TRUE(timedout_option(std::numeric_limits<int>::max())
                    .check_timedout(7, 1, std::numeric_limits<int>::max()));
}

TEST(TimedoutOption, FiringIsLogged) {
    LogCapture log("clear(OUT)");
    tavLogger::setLogLevel("TLS.CLT", tavLogger::INFO);
    timedout_option option(100);
    EXPECT_TRUE(option.check_timedout(7, 0x12ab, 96));
    ASSERT_TRUE(log.waitFor("on timedout "));
    LogCapture::Record const record = log.find("on timedout ");
    EXPECT_EQ(record.level, tavLogger::INFO);
    EXPECT_NE(record.text.find(") on timedout #7 0x12abmax waiting 100ms...96ms\n"), std::string::npos)
        << record.text;
    EXPECT_NE(record.text.find("[TLS.CLT]timedout_option::check_timedout("), std::string::npos)
        << record.text;
}

TEST(TimedoutOption, NotFiringIsNotLogged) {
    LogCapture log;
    timedout_option option(100);
    EXPECT_FALSE(option.check_timedout(7, 1, 95));
    option.on_timedout(7, 1, true);
    EXPECT_FALSE(option.check_timedout(7, 1, 1000));
    tavLogger::flush();
    EXPECT_EQ(log.count("on timedout "), 0u);
}

TEST(TimedoutOption, OnTimedoutCallsAndClears) {
    Calls calls;
    timedout_option option(100, calls.function());
    option.on_timedout(9, 0xffff, true);
    EXPECT_EQ(calls.count, 1);
    EXPECT_EQ(calls.sno, 9u);
    EXPECT_EQ(calls.msgcode, 0xffff);
    EXPECT_TRUE(calls.cancelled);
    EXPECT_EQ(option.wait_ms(), -100);
    option.on_timedout(9, 0xffff, true);
    EXPECT_EQ(calls.count, 1);
}

TEST(TimedoutOption, OnTimedoutWorksWithoutLimit) {
    Calls calls;
    timedout_option option(0, calls.function());
    option.on_timedout(9, 1, false);
    EXPECT_EQ(calls.count, 1);
    EXPECT_EQ(option.wait_ms(), 0);
}

TEST(TimedoutOption, ClearKeepsTheMagnitudeAndDropsTheFunction) {
    Calls calls;
    timedout_option option(100, calls.function());
    option.clear();
    EXPECT_EQ(option.wait_ms(), -100);
    option.clear();
    EXPECT_EQ(option.wait_ms(), -100);
    option.on_timedout(1, 1, true);
    EXPECT_EQ(calls.count, 0);
}

TEST(TimedoutOption, SetReplacesTheFunction) {
    Calls first;
    Calls second;
    timedout_option option(100, first.function());
    option.set_on_timedout(second.function());
    option.on_timedout(1, 1, true);
    EXPECT_EQ(first.count, 0);
    EXPECT_EQ(second.count, 1);
    timedout_option dropped(100, first.function());
    dropped.set_on_timedout(timedout_function());
    dropped.on_timedout(1, 1, true);
    EXPECT_EQ(first.count, 0);
}

TEST(TimedoutOption, CopiesFireOnTheirOwn) {
    Calls calls;
    timedout_option option(100, calls.function());
    timedout_option copy(option);
    timedout_option assigned(1);
    assigned = option;
    timedout_option got(2);
    option.get(got);
    for (timedout_option * const one : {&option, &copy, &assigned, &got}) {
        EXPECT_EQ(one->wait_ms(), 100);
        EXPECT_TRUE(one->check_timedout(1, 1, 100));
    }
    EXPECT_EQ(calls.count, 4);
}

TEST(TimedoutOption, SpentOneIsCopiedSpent) {
    Calls calls;
    timedout_option option(100, calls.function());
    option.clear();
    timedout_option copy(option);
    EXPECT_EQ(copy.wait_ms(), -100);
    copy.on_timedout(1, 1, true);
    EXPECT_EQ(calls.count, 0);
}

TEST(TimedoutOption, SelfAssignmentChangesNothing) {
    Calls calls;
    timedout_option option(100, calls.function());
    timedout_option & same = option;
    option = same;
    option.get(same);
    EXPECT_EQ(option.wait_ms(), 100);
    option.on_timedout(1, 1, true);
    EXPECT_EQ(calls.count, 1);
}

TEST(TimedoutOption, Prints) {
    EXPECT_EQ(printed(timedout_option(100)), "max waiting 100ms...");
    EXPECT_EQ(printed(timedout_option()), "max waiting 0ms...");
    timedout_option option(100);
    option.clear();
    EXPECT_EQ(printed(option), "max waiting -100ms...");
}

TEST(TimedoutOption, LimitIsSpentOnlyAfterTheCall) {
    timedout_option option(100);
    int during = 0;
    option.set_on_timedout([&](unsigned long long, unsigned short, bool) { during = option.wait_ms(); });
    EXPECT_TRUE(option.check_timedout(1, 1, 100));
    EXPECT_EQ(during, 100);
    EXPECT_EQ(option.wait_ms(), -100);
}

TEST(TimedoutOption, MutexIsNotHeldDuringTheCall) {
    for (bool const check : {true, false}) {
        auto const option = std::make_shared<timedout_option>(100);
        bool free = false;
        option->set_on_timedout([&, option](unsigned long long, unsigned short, bool) {
            free = endsOnAnotherThread([option] {
                option->wait_ms();
                timedout_option copy(*option);
                option->clear();
            });
        });
        if (check) {
            EXPECT_TRUE(option->check_timedout(1, 1, 100));
        } else {
            option->on_timedout(1, 1, true);
        }
        EXPECT_TRUE(free) << check;
    }
}

TEST(TimedoutOption, FunctionMayReplaceAndClearItself) {
    auto const counter = std::make_shared<int>(0);
    timedout_option option(100);
    // The function owns the counter: it must live on although the option drops it while it runs.
    option.set_on_timedout([&option, counter](unsigned long long, unsigned short, bool) {
        option.set_on_timedout(timedout_function());
        option.clear();
        ++*counter;
    });
    option.on_timedout(1, 1, true);
    EXPECT_EQ(*counter, 1);
    EXPECT_EQ(counter.use_count(), 1);
}

TEST(TimedoutOption, CopyTakenDuringTheCallHasTheLimitWithoutTheFunction) {
    timedout_option option(100);
    timedout_option copy;
    int count = 0;
    option.set_on_timedout([&](unsigned long long, unsigned short, bool) {
        ++count;
        copy = option;
    });
    EXPECT_TRUE(option.check_timedout(1, 1, 100));
    EXPECT_EQ(copy.wait_ms(), 100);
    EXPECT_TRUE(copy.check_timedout(1, 1, 100));
    EXPECT_EQ(count, 1);
}

TEST(TimedoutOption, LimitThatTheFunctionSetsIsSpentToo) {
    timedout_option option(100);
    option.set_on_timedout([&](unsigned long long, unsigned short, bool) { option.wait_ms(70); });
    EXPECT_TRUE(option.check_timedout(1, 1, 100));
    EXPECT_EQ(option.wait_ms(), -70);
}

TEST(TimedoutOption, FunctionThatAsksAgainIsNotCalledAgain) {
    timedout_option option(100);
    int count = 0;
    bool again = true;
    option.set_on_timedout([&](unsigned long long, unsigned short, bool) {
        ++count;
        again = option.check_timedout(1, 1, 1000);
        option.on_timedout(1, 1, true);
    });
    EXPECT_TRUE(option.check_timedout(1, 1, 1000));
    EXPECT_EQ(count, 1);
    EXPECT_FALSE(again);
}

TEST(TimedoutOption, DroppedFunctionIsDestroyedWithoutTheMutex) {
    struct Probe {
        std::shared_ptr<timedout_option> option;
        bool * free;
        ~Probe() {
            auto const held = option;
            *free = endsOnAnotherThread([held] { held->wait_ms(); });
        }
    };
    auto const option = std::make_shared<timedout_option>(100);
    for (int way = 0; way < 4; ++way) {
        bool free = false;
        auto probe = std::make_shared<Probe>(Probe{option, &free});
        option->set_on_timedout([probe](unsigned long long, unsigned short, bool) {});
        free = false;
        probe.reset();
        switch (way) {
        case 0: option->clear(); break;
        case 1: option->set_on_timedout(timedout_function()); break;
        case 2: *option = timedout_option(); break;
        default: option->on_timedout(1, 1, true); break;
        }
        EXPECT_TRUE(free) << way;
    }
}

TEST(TimedoutOption, FunctionThatThrowsIsNotCalledAgainAndTheLimitStays) {
    timedout_option option(100);
    int count = 0;
    option.set_on_timedout([&](unsigned long long, unsigned short, bool) {
        ++count;
        throw std::runtime_error("no");
    });
    EXPECT_THROW(option.check_timedout(1, 1, 100), std::runtime_error);
    EXPECT_EQ(option.wait_ms(), 100);
    EXPECT_TRUE(option.check_timedout(1, 1, 100));
    EXPECT_EQ(count, 1);
    EXPECT_EQ(option.wait_ms(), -100);
}

TEST(TimedoutOptionThreads, TwoChecksFireOnce) {
    struct Shared {
        timedout_option option{100};
        std::atomic<int> calls{0};
        std::atomic<int> fired{0};
        Shared() {
            option.set_on_timedout([this](unsigned long long, unsigned short, bool) { ++calls; });
        }
    };
    auto const check = [](Shared & s) { s.fired += s.option.check_timedout(1, 1, 100) ? 1 : 0; };
    race(
        200, [] { return std::make_unique<Shared>(); }, check, check,
        [](Shared & s) {
            ASSERT_EQ(s.calls, 1);
            ASSERT_EQ(s.fired, 1);
            ASSERT_EQ(s.option.wait_ms(), -100);
        });
}

TEST(TimedoutOptionThreads, CheckBesideCancelFiresOnce) {
    struct Shared {
        timedout_option option{100};
        std::atomic<int> calls{0};
        Shared() {
            option.set_on_timedout([this](unsigned long long, unsigned short, bool) { ++calls; });
        }
    };
    race(
        200, [] { return std::make_unique<Shared>(); },
        [](Shared & s) { s.option.check_timedout(1, 1, 100); },
        [](Shared & s) { s.option.on_timedout(1, 1, true); },
        [](Shared & s) {
            ASSERT_EQ(s.calls, 1);
            ASSERT_EQ(s.option.wait_ms(), -100);
        });
}

TEST(TimedoutOptionThreads, ClearBesideFiringIsHarmless) {
    struct Shared {
        timedout_option option{100};
        std::atomic<int> calls{0};
        Shared() {
            auto const owned = std::make_shared<int>(1);
            option.set_on_timedout(
                [this, owned](unsigned long long, unsigned short, bool) { calls += *owned; });
        }
    };
    race(
        200, [] { return std::make_unique<Shared>(); },
        [](Shared & s) { s.option.check_timedout(1, 1, 100); }, [](Shared & s) { s.option.clear(); },
        [](Shared & s) {
            ASSERT_LE(s.calls, 1);
            ASSERT_EQ(s.option.wait_ms(), -100);
        });
}

TEST(TimedoutOptionThreads, AssignmentsInBothDirectionsDoNotBlock) {
    auto const a = std::make_shared<timedout_option>(1);
    auto const b = std::make_shared<timedout_option>(2);
    auto const go = std::make_shared<std::atomic<int>>(0);
    auto const meet = [go] {
        ++*go;
        while (*go < 2) {
            std::this_thread::yield();
        }
    };
    EXPECT_TRUE(endsOnAnotherThread([a, b, meet] {
        std::thread other([a, b, meet] {
            meet();
            for (int i = 0; i < 5000; ++i) {
                *b = *a;
            }
        });
        meet();
        for (int i = 0; i < 5000; ++i) {
            *a = *b;
        }
        other.join();
    }));
}

TEST(TimedoutOptionThreads, CopiesBesideFiring) {
    timedout_option option(100);
    std::atomic<bool> stop{false};
    std::thread copier([&] {
        while (!stop) {
            timedout_option copy(option);
            int const wait = copy.wait_ms();
            EXPECT_TRUE(wait == 100 || wait == -100 || wait == 50) << wait;
        }
    });
    std::atomic<int> calls{0};
    for (int i = 0; i < 2000; ++i) {
        option.set_on_timedout([&](unsigned long long, unsigned short, bool) { ++calls; });
        option.wait_ms(100);
        EXPECT_TRUE(option.check_timedout(1, 1, 100));
    }
    stop = true;
    copier.join();
    EXPECT_EQ(calls, 2000);
}
