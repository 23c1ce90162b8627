#include "foundation/scope_exit.h"

#include <gtest/gtest.h>

#include <stdexcept>

using tav::detail::ScopeExit;

TEST(ScopeExit, ActsOnceAtTheEndOfTheScope) {
    int calls = 0;
    {
        ScopeExit const end([&] { ++calls; });
        EXPECT_EQ(calls, 0);
    }
    EXPECT_EQ(calls, 1);
}

TEST(ScopeExit, ActsWhenTheScopeIsLeftByAnException) {
    int calls = 0;
    EXPECT_THROW(
        {
            ScopeExit const end([&] { ++calls; });
            throw std::runtime_error("left");
        },
        std::runtime_error);
    EXPECT_EQ(calls, 1);
}
