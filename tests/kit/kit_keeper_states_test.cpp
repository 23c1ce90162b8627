#include "tav/kit/keeper.h"

#include "support/keeper_rig.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono_literals;
using namespace tav_test;
using state = kit::keeper_state;
using Texts = std::vector<std::string>;

} // namespace

TEST(KitKeeperStates, StatesAreToldInOrderOnOneThreadForAllKeepers) {
    constexpr int keepers = 3;
    GatewayRig gateway;
    Holdings const before;
    std::mutex mutex;
    std::set<std::thread::id> threads;
    {
        std::vector<std::unique_ptr<Events>> states;
        std::vector<std::unique_ptr<tls::client>> clients;
        std::vector<std::unique_ptr<kit::keeper>> all;
        unsigned const alone = threadsNow();
        for (int i = 0; i < keepers; ++i) {
            states.push_back(std::make_unique<Events>());
            clients.push_back(std::make_unique<tls::client>("k"));
        }
        unsigned const with_clients = threadsNow();
        for (int i = 0; i < keepers; ++i) {
            kit::keeper_option how = recorded(*states[static_cast<std::size_t>(i)]);
            how.first_wait = 1ms;
            how.on_state = [&, record = how.on_state](kit::keeper_status const & v) {
                {
                    std::lock_guard<std::mutex> const guard(mutex);
                    threads.insert(std::this_thread::get_id());
                }
                record(v);
            };
            all.push_back(std::make_unique<kit::keeper>(*clients[static_cast<std::size_t>(i)],
                                                        quietOption(std::to_string(gateway.gateway.port())),
                                                        how));
        }
        EXPECT_EQ(threadsNow(), with_clients + 1) << "one for all, above " << alone;
        for (auto const & each : all) {
            each->start();
        }
        for (auto const & each : states) {
            ASSERT_TRUE(each->wait(2));
        }
        gateway.gateway.drop();
        for (auto const & each : states) {
            ASSERT_TRUE(each->wait(5));
            EXPECT_EQ(each->all(), (Texts{"connecting", "up", "waiting: the peer closed the connection",
                                          "connecting", "up"}));
        }
        std::lock_guard<std::mutex> const guard(mutex);
        EXPECT_EQ(threads.size(), 1u);
        EXPECT_EQ(threads.count(std::this_thread::get_id()), 0u);
    }
    EXPECT_TRUE(before.back()) << before.print();
}

TEST(KitKeeperStates, StatesAreToldOnTheExecutorInOrder) {
    tavTaskQueue queue("states", 1);
    queue.start();
    Events states;
    Events threads;
    kit::keeper_option how = recorded(states);
    how.where = [&](std::function<void()> task) { queue.put(std::move(task)); };
    how.on_state = [&, record = how.on_state](kit::keeper_status const & v) {
        threads.add(threadName());
        record(v);
    };
    {
        LiveRig rig(how);
        ASSERT_TRUE(rig.start());
        rig.keeper.stop();
        ASSERT_TRUE(states.wait(3));
    }
    EXPECT_EQ(states.all(), (Texts{"connecting", "up", "stopped: stopped"}));
    for (std::string const & each : threads.all()) {
        EXPECT_NE(each.find("states"), std::string::npos) << each;
    }
    queue.close();
}

TEST(KitKeeperStates, StateFunctionThatRaisesHurtsNobody) {
    kit::keeper_option how;
    std::atomic<int> calls{0};
    how.on_state = [&](kit::keeper_status const &) {
        ++calls;
        throw std::runtime_error("state");
    };
    LiveRig rig(how);
    ASSERT_TRUE(rig.start());
    EXPECT_TRUE(got(kit::request<Said>(rig.keeper, Say(1), 5s)));
    rig.keeper.stop();
    EXPECT_EQ(calls, 3);
}

TEST(KitKeeperStates, MayBeStartedAgain) {
    LiveRig rig;
    ASSERT_TRUE(rig.start());
    rig.keeper.start();
    rig.keeper.stop();
    rig.keeper.stop();
    ASSERT_TRUE(rig.start());
    EXPECT_TRUE(got(kit::request<Said>(rig.keeper, Say(1), 5s)));
    rig.keeper.stop();
    EXPECT_EQ(rig.states.all(),
              (Texts{"connecting", "up", "stopped: stopped", "connecting", "up", "stopped: stopped"}));
}

TEST(KitKeeperStates, OnOpenOfTheOptionComesBehindTheLogin) {
    GatewayRig gateway;
    Events events;
    tls::connect_option option = quietOption(std::to_string(gateway.gateway.port()));
    option.set_on_open([&] { events.add("open"); });
    kit::keeper_option how;
    how.login = [&](tls::client &, kit::login_end const & end) {
        events.add("login");
        end({});
    };
    kit::keeper keeper(option, how);
    keeper.start();
    ASSERT_TRUE(events.wait(2));
    EXPECT_EQ(events.all(), (Texts{"login", "open"}));
}
