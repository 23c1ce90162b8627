#include "client/role_queue.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <vector>

using tav::tls::impl::role_queue;
using tav::tls::impl::thread_role;

TEST(RoleQueue, RunsTasksInTheirOrderAsOneOfItsClientsThreads) {
    int const client = 0;
    role_queue queue("<q>session", thread_role::session);
    queue.start(&client);
    std::vector<int> ran;
    std::promise<bool> in_role;
    EXPECT_TRUE(queue.put([&] { ran.push_back(1); }));
    EXPECT_TRUE(queue.put([&] { ran.push_back(2); }));
    EXPECT_TRUE(queue.put([&] {
        in_role.set_value(thread_role::of_client(&client) && thread_role::needed_to_end_sends(&client));
    }));
    std::future<bool> told = in_role.get_future();
    ASSERT_EQ(told.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_TRUE(told.get());
    queue.close();
    EXPECT_EQ(ran, (std::vector<int>{1, 2}));
    EXPECT_FALSE(thread_role::of_client(&client));
}

TEST(RoleQueue, ClosedOneTakesNoTask) {
    int const client = 0;
    role_queue queue("<q>session", thread_role::session);
    queue.start(&client);
    EXPECT_TRUE(queue.close());
    bool ran = false;
    EXPECT_FALSE(queue.put([&] { ran = true; }));
    EXPECT_FALSE(queue.close());
    EXPECT_FALSE(ran);
}

TEST(RoleQueue, TasksThatNeverRanGoWithWhatTheCloseGives) {
    role_queue queue("<q>session", thread_role::session);
    auto held = std::make_shared<int>(1);
    std::weak_ptr<int> const watched = held;
    queue.put([kept = std::move(held)] {});
    std::shared_ptr<void> never_ran = queue.close();
    EXPECT_FALSE(watched.expired());
    never_ran.reset();
    EXPECT_TRUE(watched.expired());
}
