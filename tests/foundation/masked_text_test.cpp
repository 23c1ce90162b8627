#include "foundation/masked_text.h"

#include <gtest/gtest.h>

using tav::detail::maskedText;
using tav::detail::shownLength;

TEST(MaskedText, ShowsWhatThePointsOfTheMaskShow) {
    EXPECT_EQ(maskedText("hello world", "...***..."), "hel***rld[11]");
    EXPECT_EQ(maskedText("hello world", "..****"), "he****[11]");
    EXPECT_EQ(maskedText("hello world", "**."), "**d[11]");
}

TEST(MaskedText, EmptyMaskShowsTheLengthOnly) {
    EXPECT_EQ(maskedText("hello world", ""), "***[11]");
    EXPECT_EQ(maskedText("", ""), "***[0]");
}

TEST(MaskedText, ShortTextIsShownOnceAtMost) {
    EXPECT_EQ(maskedText("ab", "...***..."), "ab***[2]");
    EXPECT_EQ(maskedText("abcd", "...***..."), "abc***d[4]");
    EXPECT_EQ(maskedText("", "...***..."), "***[0]");
}

TEST(MaskedText, WhatFollowsTheMaskIsPassedOver) {
    EXPECT_EQ(maskedText("secret", ".*.x..."), "s*t[6]");
}

TEST(MaskedText, LengthIsInBytes) {
    EXPECT_EQ(shownLength(""), "[0]");
    EXPECT_EQ(shownLength(std::string(1234, 'x')), "[1234]");
}
