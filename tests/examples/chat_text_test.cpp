#include "examples/chat/text.h"

#include <gtest/gtest.h>

#include <string>

using chat::shown;

TEST(ChatText, LettersOfAllLanguagesStay) {
    std::string const text = "Grüße, привет, 你好, 🙂";
    EXPECT_EQ(shown(text), text);
}

TEST(ChatText, ControlsAreWrittenOut) {
    EXPECT_EQ(shown("\x1b[2J"), "\\x1b[2J");
    EXPECT_EQ(shown("a\r\n\tb\x7f"), "a\\x0d\\x0a\\x09b\\x7f");
    EXPECT_EQ(shown(std::string("a\0b", 3)), "a\\x00b");
    // The second half of the controls, each as one character.
    EXPECT_EQ(shown("\xc2\x9b"
                    "2J"),
              "\\u009b2J");
}

TEST(ChatText, MarksThatTurnTheWritingAreWrittenOut) {
    EXPECT_EQ(shown("\u202e"), "\\u202e");
    EXPECT_EQ(shown("\u2066"), "\\u2066");
    EXPECT_EQ(shown("\u200b"), "\\u200b");
    EXPECT_EQ(shown("\ufeff"), "\\ufeff");
    EXPECT_EQ(shown("\U000e0041"), "\\ue0041");
}

TEST(ChatText, BytesThatAreNoUtf8AreWrittenOut) {
    EXPECT_EQ(shown("\xff"), "\\xff");
    EXPECT_EQ(shown("\xc3"), "\\xc3");
    EXPECT_EQ(shown("\x9b"), "\\x9b");
    // A longer form than need be, half of a pair, beyond the last character.
    EXPECT_EQ(shown("\xc0\x9b"), "\\xc0\\x9b");
    EXPECT_EQ(shown("\xe0\x80\x9b"), "\\xe0\\x80\\x9b");
    EXPECT_EQ(shown("\xed\xa0\x80"), "\\xed\\xa0\\x80");
    EXPECT_EQ(shown("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80");
}

TEST(ChatText, NothingStaysNothing) {
    EXPECT_EQ(shown(""), "");
}
