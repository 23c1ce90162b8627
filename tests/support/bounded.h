#ifndef TAV_TESTS_SUPPORT_BOUNDED_H
#define TAV_TESTS_SUPPORT_BOUNDED_H

#include <chrono>
#include <future>
#include <stdexcept>

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

} // namespace tav_test

#endif
