#include "bindings/c/last_owner.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>

namespace {

using namespace std::chrono_literals;
using tav::json_client::LastOwner;

/// Tells where it ends.
struct Thing {
    explicit Thing(std::promise<std::thread::id> & at) : ended(at) {}
    ~Thing() { ended.set_value(std::this_thread::get_id()); }
    std::promise<std::thread::id> & ended;
};

std::chrono::steady_clock::time_point in(std::chrono::milliseconds v) {
    return std::chrono::steady_clock::now() + v;
}

} // namespace

TEST(LastOwner, ThingThatNobodyUsesEndsAtOnce) {
    std::promise<std::thread::id> ended;
    LastOwner<Thing> owner(std::make_unique<Thing>(ended));
    EXPECT_TRUE(owner);
    EXPECT_TRUE(owner.end(in(0ms)));
    EXPECT_EQ(ended.get_future().get(), std::this_thread::get_id());
    EXPECT_FALSE(owner);
    EXPECT_TRUE(owner.end(in(10s)));
}

TEST(LastOwner, LastUserThatGoesLetsTheOwnerEndIt) {
    std::promise<std::thread::id> ended;
    std::promise<void> may_go;
    LastOwner<Thing> owner(std::make_unique<Thing>(ended));
    std::shared_ptr<Thing> used = owner.share();
    std::thread user([&, mine = std::move(used)]() mutable {
        may_go.get_future().wait();
        mine.reset();
    });
    std::thread::id const other = user.get_id();
    may_go.set_value();
    EXPECT_TRUE(owner.end(in(10s)));
    std::thread::id const at = ended.get_future().get();
    EXPECT_EQ(at, std::this_thread::get_id());
    EXPECT_NE(at, other);
    user.join();
}

TEST(LastOwner, UserThatStaysHoldsUpNoLongerThanTheBoundAndEndsItLater) {
    std::promise<std::thread::id> ended;
    std::future<std::thread::id> end = ended.get_future();
    std::promise<void> may_go;
    LastOwner<Thing> owner(std::make_unique<Thing>(ended));
    std::thread user([mine = owner.share(), &may_go]() mutable {
        may_go.get_future().wait();
        mine.reset();
    });
    std::thread::id const other = user.get_id();
    EXPECT_FALSE(owner.end(in(20ms)));
    EXPECT_FALSE(owner);
    EXPECT_EQ(end.wait_for(0s), std::future_status::timeout);
    may_go.set_value();
    ASSERT_EQ(end.wait_for(10s), std::future_status::ready);
    EXPECT_EQ(end.get(), other);
    user.join();
}

TEST(LastOwner, OneOfManyUsersIsTheLastWhoeverThatIs) {
    for (int round = 0; round < 200; ++round) {
        std::promise<std::thread::id> ended;
        std::future<std::thread::id> end = ended.get_future();
        LastOwner<Thing> owner(std::make_unique<Thing>(ended));
        std::thread users[3];
        for (std::thread & each : users) {
            each = std::thread([mine = owner.share()]() mutable { mine.reset(); });
        }
        // With no time at all the users are left alone with it.
        bool const here = owner.end(in(round % 2 == 0 ? 10s : 0s));
        EXPECT_TRUE(here || round % 2 == 1);
        ASSERT_EQ(end.wait_for(10s), std::future_status::ready);
        EXPECT_EQ(end.get() == std::this_thread::get_id(), here);
        for (std::thread & each : users) {
            each.join();
        }
    }
}
