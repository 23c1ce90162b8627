#include "tav/kit/keeper.h"

#include "support/keeper_rig.h"
#include "support/names.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using namespace tav_test;
using state = kit::keeper_state;
using Texts = std::vector<std::string>;

} // namespace

TEST(KitKeeperStop, StopEndsEachMessageOnceAndReturnsAtOnce) {
    Events ends;
    LiveRig rig(kit::keeper_option(), neverAnswering());
    ASSERT_TRUE(rig.start());
    for (int i = 0; i < 20; ++i) {
        kit::request<Said>(rig.keeper, Say(i), 30s, [&](kit::result<Said> v) { ends.add(textOfResult(v)); });
    }
    EXPECT_LT(took([&] { rig.keeper.stop(); }), a_second);
    EXPECT_EQ(ends.count("stopped"), 20u) << "all by then";
    EXPECT_TRUE(eventually([&] { return !rig.keeper.client().connected(); }));
    EXPECT_EQ(ends.count(), 20u);
}

TEST(KitKeeperStop, StopsWhileWaiting) {
    ClosedPort closed;
    kit::keeper_option how;
    how.first_wait = 30s;
    how.jitter = [] { return 1.0; };
    Events states;
    how.on_state = recorded(states).on_state;
    kit::keeper keeper(quietOption(closed.port()), how);
    keeper.start();
    ASSERT_TRUE(eventually([&] { return keeper.status().state == state::waiting; }));
    EXPECT_TRUE(kit::send(keeper, Say(1)));
    EXPECT_LT(took([&] { keeper.stop(); }), a_second);
    EXPECT_EQ(states.all().back(), "stopped: stopped");
}

TEST(KitKeeperStop, StopsWhileALookupHangs) {
    Names names;
    names.addHanging("hangs.test");
    {
        tls::connect_option option = quietOption("443");
        option.host = "hangs.test";
        kit::keeper keeper(option);
        keeper.start();
        ASSERT_TRUE(names.waitAsked("hangs.test"));
        EXPECT_LT(took([&] { keeper.stop(); }), a_second);
    }
    names.letGo("hangs.test");
}

TEST(KitKeeperStop, StopsWhileAConnectHangs) {
    tav::gateway::Options options;
    options.faults.no_handshake = true;
    LiveRig rig(kit::keeper_option(), options);
    rig.keeper.start();
    ASSERT_TRUE(rig.gateway.gateway.wait([](tav::gateway::Stats const & v) { return v.connections == 1; }));
    EXPECT_LT(took([&] { rig.keeper.stop(); }), a_second);
    EXPECT_EQ(rig.states.all(), (Texts{"connecting", "stopped: stopped"}));
}

TEST(KitKeeperStop, StopsWhileALoginHangs) {
    kit::keeper_option how;
    how.login = kit::login_with<Said>(Say(1), 30s);
    LiveRig rig(how, neverAnswering());
    rig.keeper.start();
    ASSERT_TRUE(rig.gateway.gateway.wait([](tav::gateway::Stats const & v) { return v.packets == 1; }));
    EXPECT_LT(took([&] { rig.keeper.stop(); }), a_second);
    EXPECT_EQ(rig.states.all(), (Texts{"connecting", "stopped: stopped"}));
}

TEST(KitKeeperStop, StopsWhileALoginHoldsUpTheThread) {
    auto const obstacle = std::make_shared<Gate>();
    kit::keeper_option how;
    how.login = [obstacle](tls::client &, kit::login_end const &) { obstacle->pass(); };
    LiveRig rig(how);
    rig.keeper.start();
    ASSERT_TRUE(obstacle->waitArrived());
    EXPECT_LT(took([&] { rig.keeper.stop(); }), a_second);
    EXPECT_EQ(rig.keeper.status().state, state::stopped);
    obstacle->open();
}

TEST(KitKeeperStop, StopsWhileAnotherKeeperHoldsUpTheThread) {
    auto const obstacle = std::make_shared<Gate>();
    Events ends;
    LiveRig rig(kit::keeper_option(), neverAnswering());
    ASSERT_TRUE(rig.start());
    kit::keeper_option how;
    how.on_state = [obstacle](kit::keeper_status const &) { obstacle->pass(); };
    kit::keeper other(quietOption("1"), how);
    other.start();
    ASSERT_TRUE(obstacle->waitArrived());
    kit::request<Said>(rig.keeper, Say(1), 30s, [&](kit::result<Said> v) { ends.add(textOfResult(v)); });
    EXPECT_LT(took([&] { rig.keeper.stop(); }), 800ms);
    EXPECT_EQ(ends.all(), Texts{"stopped"});
    EXPECT_EQ(rig.states.all().back(), "stopped: stopped");
    obstacle->open();
}

TEST(KitKeeperStop, StopsInsideEachCallback) {
    enum class place { state, login, reply, refusal, give_up };
    for (place const at : {place::state, place::login, place::reply, place::refusal, place::give_up}) {
        ClosedPort closed;
        GatewayRig gateway;
        Events events;
        std::unique_ptr<kit::keeper> keeper;
        auto const stop = [&] {
            auto const time = took([&] { keeper->stop(); });
            events.add(time < a_second ? "in time" : "late");
        };
        kit::keeper_option how;
        how.on_state = [&](kit::keeper_status const & v) {
            if (at == place::state && v.state == state::up) {
                stop();
            }
        };
        how.login = [&](tls::client &, kit::login_end const & end) {
            if (at == place::login) {
                stop();
            }
            end({});
        };
        how.give_up = [&](kit::keeper_status const &) {
            stop();
            return false;
        };
        keeper = std::make_unique<kit::keeper>(at == place::give_up
                                                   ? quietOption(closed.port())
                                                   : quietOption(std::to_string(gateway.gateway.port())),
                                               how);
        if (at == place::refusal) {
            kit::request<Said>(*keeper, Say(1), 5s, [&](kit::result<Said>) { stop(); });
        }
        keeper->start();
        if (at == place::reply) {
            kit::request<Said>(*keeper, Say(1), 5s, [&](kit::result<Said>) { stop(); });
        }
        ASSERT_TRUE(events.wait(1)) << static_cast<int>(at);
        EXPECT_EQ(events.all()[0], "in time") << static_cast<int>(at);
        if (at != place::refusal) {
            EXPECT_TRUE(eventually([&] { return keeper->status().state == state::stopped; }));
        }
        keeper.reset();
    }
}

TEST(KitKeeperStop, NothingIsToldBehindADestruction) {
    GatewayRig gateway;
    std::atomic<int> calls{0};
    for (int i = 0; i < 20; ++i) {
        kit::keeper_option how;
        how.first_wait = 1ms;
        how.on_state = [&](kit::keeper_status const &) { ++calls; };
        auto keeper = std::make_unique<kit::keeper>(quietOption(std::to_string(gateway.gateway.port())), how);
        keeper->start();
        if (i % 2 == 0) {
            ASSERT_TRUE(eventually([&] { return keeper->status().state == state::up; }));
        }
        keeper.reset();
        int const by_then = calls;
        gateway.gateway.drop();
        std::thread([] {}).join();
        EXPECT_EQ(calls, by_then);
    }
}

TEST(KitKeeperStop, MayGoInItsOwnStateFunction) {
    GatewayRig gateway;
    Holdings const before;
    std::promise<void> gone;
    {
        tls::client client("n");
        std::unique_ptr<kit::keeper> keeper;
        kit::keeper_option how;
        how.on_state = [&](kit::keeper_status const & v) {
            if (v.state == state::up) {
                keeper.reset();
                gone.set_value();
            }
        };
        keeper =
            std::make_unique<kit::keeper>(client, quietOption(std::to_string(gateway.gateway.port())), how);
        keeper->start();
        ASSERT_EQ(gone.get_future().wait_for(10s), std::future_status::ready);
    }
    EXPECT_TRUE(before.back()) << before.print();
}

TEST(KitKeeperStop, LeavesNoThreadAndNoDescriptor) {
    GatewayRig gateway;
    ClosedPort closed;
    Holdings const before;
    for (int i = 0; i < 10; ++i) {
        kit::keeper_option how;
        how.first_wait = 1ms;
        how.gateways = {closed.gateway(), {"127.0.0.1", std::to_string(gateway.gateway.port()), 1}};
        kit::keeper keeper(tls::connect_option(), how);
        keeper.start();
        EXPECT_TRUE(got(kit::request<Said>(keeper, Say(i), 10s)));
    }
    EXPECT_TRUE(before.back()) << before.print();
}

// Of a reply, a time-out, a cancellation, a break and a stop one comes first, and is told.
TEST(KitKeeperStop, OneEndIsToldOutOfMany) {
    constexpr int rounds = 4;
    constexpr int each = 300;
    for (int round = 0; round < rounds; ++round) {
        std::atomic<int> ends{0};
        std::vector<std::unique_ptr<std::atomic<int>>> told;
        for (int i = 0; i < each; ++i) {
            told.push_back(std::make_unique<std::atomic<int>>(0));
        }
        kit::keeper_option how;
        how.outbox = 20;
        how.policy = static_cast<kit::when_full>(round % 3);
        LiveRig rig(how);
        rig.keeper.start();
        kit::cancellation stop;
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([&, t] {
                for (int i = t; i < each; i += 4) {
                    kit::within terms(std::chrono::milliseconds(1 + i % 40));
                    terms.unless(stop).repeatable(i % 2 == 0);
                    kit::pending const one =
                        kit::request<Said>(rig.keeper, Say(i), terms, [&, i](kit::result<Said>) {
                            ++*told[static_cast<std::size_t>(i)];
                            ++ends;
                        });
                    if (i % 5 == 0) {
                        one.cancel();
                    }
                    if (i % 100 == 50) {
                        rig.gateway.gateway.drop(i % 200 == 50);
                    }
                    if (i == each * 3 / 4) {
                        stop.cancel();
                    }
                    if (i == each * 7 / 8) {
                        rig.keeper.stop();
                    }
                }
            });
        }
        for (std::thread & thread : threads) {
            thread.join();
        }
        EXPECT_TRUE(eventually([&] { return ends == each; })) << ends;
        rig.keeper.stop();
        for (auto const & one : told) {
            EXPECT_EQ(*one, 1);
        }
    }
}
