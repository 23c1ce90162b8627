#include "client/io_thread.h"

#include "client/thread_role.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>

using tav::tls::impl::io_thread;
using tav::tls::impl::thread_role;

namespace {

/// Keeps what it is told.
class Owner final : public io_thread::owner {
public:
    void on_exception(std::exception const & e) override { told.set_value(e.what()); }
    void on_no_memory(std::bad_alloc const &) override { told.set_value("no memory"); }

    std::promise<std::string> told;
    io_thread thread{"<io>"};
};

std::string said(std::promise<std::string> & promise) {
    std::future<std::string> future = promise.get_future();
    return future.wait_for(std::chrono::seconds(10)) == std::future_status::ready ? future.get() : "nothing";
}

/// What a task on the thread gives, when the thread has come to it.
bool runs_as_io(io_thread & thread) {
    auto const role = std::make_shared<std::promise<bool>>();
    void const * const client = thread.io().get();
    thread.io()->post([role, client] { role->set_value(thread_role::needed_to_end_sends(client)); });
    std::future<bool> future = role->get_future();
    return future.wait_for(std::chrono::seconds(10)) == std::future_status::ready && future.get();
}

} // namespace

TEST(IoThread, RunsWhatIsPostedUntilItIsClosed) {
    auto const owner = std::make_shared<Owner>();
    EXPECT_FALSE(owner->thread.io());
    owner->thread.start(owner);
    ASSERT_TRUE(owner->thread.io());
    EXPECT_TRUE(runs_as_io(owner->thread));
    owner->thread.close();
    EXPECT_FALSE(owner->thread.io()->post([] {}));
}

TEST(IoThread, TellsItsOwnerWhatACompletionThrewAndGoesOn) {
    auto const owner = std::make_shared<Owner>();
    owner->thread.start(owner);
    owner->thread.io()->post([] { throw std::runtime_error("of a completion"); });
    EXPECT_EQ(said(owner->told), "of a completion");
    EXPECT_TRUE(runs_as_io(owner->thread));
    owner->thread.close();
}

TEST(IoThread, TellsOfMemoryApart) {
    auto const owner = std::make_shared<Owner>();
    owner->thread.start(owner);
    owner->thread.io()->post([] { throw std::bad_alloc(); });
    EXPECT_EQ(said(owner->told), "no memory");
    owner->thread.close();
}

TEST(IoThread, KeepsItsOwnerUntilItIsClosed) {
    auto owner = std::make_shared<Owner>();
    std::weak_ptr<Owner> const watched = owner;
    owner->thread.start(owner);
    Owner & kept = *owner;
    owner.reset();
    ASSERT_FALSE(watched.expired());
    auto const held = watched.lock();
    kept.thread.close();
    EXPECT_EQ(watched.use_count(), 1);
}
