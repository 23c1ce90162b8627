#ifndef TAV_TESTS_SUPPORT_BOUNDED_H
#define TAV_TESTS_SUPPORT_BOUNDED_H

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <stdexcept>
#include <thread>
#include <utility>

/// Waits that end: what has not come in time fails the test and hangs nobody.
namespace tav_test {

constexpr std::chrono::seconds wait_limit(10);

/// Waits for a future, at most the limit; then throws std::runtime_error.
template <class Future>
void await(Future const & future) {
    if (future.wait_for(wait_limit) != std::future_status::ready) {
        throw std::runtime_error("a test has waited too long");
    }
}

/// The same, and takes what has come.
template <class T>
T got(std::future<T> future) {
    await(future);
    return future.get();
}

/// Has a thread of its own call `wait` on what a client has returned, and gives what that will say.  The
/// thread is left behind by a `wait` that does not return.
template <class Info>
auto waitOf(std::shared_ptr<Info> info) {
    if (!info) {
        throw std::runtime_error("nothing to wait for");
    }
    std::promise<decltype(info->wait())> said;
    auto future = said.get_future();
    std::thread([info = std::move(info), said = std::move(said)]() mutable {
        auto const result = info->wait();
        info.reset();
        said.set_value(result);
    }).detach();
    return future;
}

/// What `wait` says, at most the limit later; then throws std::runtime_error.
template <class Info>
auto waited(std::shared_ptr<Info> const & info) {
    return got(waitOf(info));
}

/// What `wait` says on the calling thread, for those where that matters.  What has not ended within the limit
/// is cancelled, and the test has failed.
template <class Info>
auto waitedHere(std::shared_ptr<Info> const & info) {
    std::promise<void> ended;
    std::thread watch([&info, over = ended.get_future()] {
        if (over.wait_for(wait_limit) != std::future_status::ready) {
            ADD_FAILURE() << "a wait in a callback does not end";
            info->cancel();
        }
    });
    auto const result = info->wait();
    ended.set_value();
    watch.join();
    return result;
}

} // namespace tav_test

#endif
