#include "tav/kit/result.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <system_error>
#include <utility>

namespace kit = tav::kit;

TEST(KitResult, ValueHasNoError) {
    kit::result<std::string> good("tea");
    EXPECT_TRUE(good);
    EXPECT_FALSE(good.error());
    EXPECT_EQ(*good, "tea");
    EXPECT_EQ(good->size(), 3u);
    EXPECT_TRUE(kit::result<void>());
    EXPECT_NO_THROW(kit::result<void>().value());
}

TEST(KitResult, ValueOfAFailureRaisesItsCode) {
    kit::result<std::string> bad(kit::failure::timed_out);
    EXPECT_FALSE(bad);
    EXPECT_EQ(bad.error(), kit::failure::timed_out);
    auto const raised = [](auto const & take) {
        try {
            take();
        } catch (std::system_error const & error) {
            return error.code();
        }
        return std::error_code();
    };
    EXPECT_EQ(raised([&] { static_cast<void>(bad.value()); }), kit::failure::timed_out);
    EXPECT_EQ(raised([&] { static_cast<void>(*bad); }), kit::failure::timed_out);
    EXPECT_EQ(raised([&] { static_cast<void>(bad->size()); }), kit::failure::timed_out);
    EXPECT_EQ(raised([&] { static_cast<void>(*std::move(bad)); }), kit::failure::timed_out);
    EXPECT_EQ(raised([] { kit::result<void>(kit::failure::stopped).value(); }), kit::failure::stopped);
}

TEST(KitResult, FailureWithoutACodeIsAFailureAllTheSame) {
    EXPECT_EQ(kit::result<std::string>(std::error_code()).error(), kit::failure::unspecified);
}

TEST(KitResult, ValueMayBeOfATypeThatOnlyMoves) {
    kit::result<std::unique_ptr<int>> good(std::make_unique<int>(7));
    std::unique_ptr<int> const taken = *std::move(good);
    ASSERT_NE(taken, nullptr);
    EXPECT_EQ(*taken, 7);
}
