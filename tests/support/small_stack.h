#ifndef TAV_TESTS_SUPPORT_SMALL_STACK_H
#define TAV_TESTS_SUPPORT_SMALL_STACK_H

#include <gtest/gtest.h>

#include <functional>

#include <pthread.h>

namespace tav_test {

/// Runs `body` on a thread with a stack of 256 kB, which a recursion along the input would exhaust.
inline void onSmallStack(std::function<void()> body) {
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, 256 * 1024), 0);
    pthread_t thread;
    auto const run = [](void * argument) -> void * {
        (*static_cast<std::function<void()> *>(argument))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, run, &body), 0);
    ASSERT_EQ(pthread_join(thread, nullptr), 0);
    pthread_attr_destroy(&attributes);
}

} // namespace tav_test

#endif
