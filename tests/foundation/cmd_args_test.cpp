#include "tav/vinta/vinta_basetypes_util.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <type_traits>
#include <vector>

namespace {

/// A command line with a program's name ahead of the words.
std::unique_ptr<tavCmdArgs> parse(std::vector<std::string> const & words) {
    std::vector<char const *> argv = {"program"};
    for (std::string const & word : words) {
        argv.push_back(word.c_str());
    }
    return std::make_unique<tavCmdArgs>(static_cast<int>(argv.size()), argv.data());
}

std::vector<std::string> plainWords(std::vector<std::string> const & words) {
    auto const args = parse(words);
    std::vector<std::string> out;
    for (unsigned i = 0; i < args->numofArguments(); ++i) {
        out.push_back(args->argument(i));
    }
    return out;
}

using Words = std::vector<std::string>;

TEST(CmdArgs, ProgramNameIsSkipped) {
    EXPECT_EQ(plainWords({}), Words());
    EXPECT_EQ(plainWords({"a", "b"}), (Words{"a", "b"}));
}

TEST(CmdArgs, NoWordsAtAll) {
    char const * const none[] = {nullptr};
    EXPECT_EQ(tavCmdArgs(0, const_cast<char const **>(none)).numofArguments(), 0u);
}

TEST(CmdArgs, TakesWhatMainIsGiven) {
    char program[] = "program";
    char word[] = "word";
    char * argv[] = {program, word, nullptr};
    tavCmdArgs const args(2, argv);
    EXPECT_EQ(args.numofArguments(), 1u);
    EXPECT_EQ(args.argument(0), "word");
}

TEST(CmdArgs, KeepsNothingOfArgv) {
    std::string word = "word";
    std::vector<char const *> argv = {"program", word.c_str(), "-o", word.c_str()};
    tavCmdArgs const args(4, argv.data());
    word = "lost";
    argv.assign(4, nullptr);
    EXPECT_EQ(args.argument(0), "word");
    EXPECT_EQ(args.option("o"), "word");
}

TEST(CmdArgs, OptionsTakeTheNextWord) {
    auto const args = parse({"-v", "file", "-o", "out"});
    EXPECT_EQ(args->option("v"), "file");
    EXPECT_EQ(args->option("o"), "out");
    EXPECT_EQ(args->numofArguments(), 0u);
}

TEST(CmdArgs, OptionAheadOfAnOptionIsEmpty) {
    auto const args = parse({"-v", "-o", "out"});
    EXPECT_TRUE(args->hasOption("v"));
    EXPECT_EQ(args->option("v", "fallback"), "");
    EXPECT_EQ(args->option("o"), "out");
}

TEST(CmdArgs, LastOptionIsEmpty) {
    auto const args = parse({"a", "-v"});
    EXPECT_TRUE(args->hasOption("v"));
    EXPECT_EQ(args->option("v", "fallback"), "");
    EXPECT_EQ(args->numofArguments(), 1u);
}

TEST(CmdArgs, NegativeNumberIsAnOption) {
    auto const args = parse({"-n", "-5"});
    EXPECT_EQ(args->option("n", "fallback"), "");
    EXPECT_TRUE(args->hasOption("5"));
}

TEST(CmdArgs, EmptyWordIsAValueAndAPlainWord) {
    auto const args = parse({"-n", "", "", "-m", "x"});
    EXPECT_EQ(args->option("n", "fallback"), "");
    EXPECT_EQ(args->option("m"), "x");
    ASSERT_EQ(args->numofArguments(), 1u);
    EXPECT_EQ(args->argument(0), "");
}

TEST(CmdArgs, OnlyOneLeadingDashGoes) {
    auto const args = parse({"--x", "1", "-", "2"});
    EXPECT_EQ(args->option("-x"), "1");
    EXPECT_FALSE(args->hasOption("x"));
    EXPECT_EQ(args->option(""), "2");
}

TEST(CmdArgs, LaterOptionReplacesAnEarlierOne) {
    EXPECT_EQ(parse({"-a", "1", "-a", "2"})->option("a"), "2");
    EXPECT_EQ(parse({"-a", "1", "-a"})->option("a", "fallback"), "");
}

TEST(CmdArgs, WordsBehindAValueArePlain) {
    auto const args = parse({"-a", "1", "b", "c"});
    EXPECT_EQ(args->option("a"), "1");
    EXPECT_EQ(args->numofArguments(), 2u);
}

TEST(CmdArgs, CommentIsSkipped) {
    EXPECT_EQ(plainWords({"a", "/*", "b", "c", "*/", "d"}), (Words{"a", "d"}));
    EXPECT_EQ(plainWords({"a", "/*b", "c", "d*/", "e"}), (Words{"a", "e"}));
    EXPECT_EQ(plainWords({"/*", "-x", "y", "*/"}), Words());
    EXPECT_FALSE(parse({"/*", "-x", "y", "*/"})->hasOption("x"));
}

TEST(CmdArgs, CommentEndAloneVanishes) {
    EXPECT_EQ(plainWords({"/*", "*/", "a"}), Words{"a"});
}

TEST(CmdArgs, CommentEndAheadOfAWordStaysInIt) {
    EXPECT_EQ(plainWords({"/*", "b", "*/c", "d"}), (Words{"*/c", "d"}));
    EXPECT_EQ(plainWords({"/*", "*/-x", "d"}), (Words{"*/-x", "d"}));
    EXPECT_EQ(plainWords({"/*", "*/*/", "d"}), (Words{"*/*/", "d"}));
}

TEST(CmdArgs, CommentEndOutsideACommentIsAWord) {
    EXPECT_EQ(plainWords({"a", "*/", "b*/"}), (Words{"a", "*/", "b*/"}));
}

TEST(CmdArgs, OneWordOpensACommentThatItDoesNotClose) {
    EXPECT_EQ(plainWords({"/*x*/", "a", "*/", "b"}), Words{"b"});
    EXPECT_EQ(plainWords({"/**/", "a", "*/", "b"}), Words{"b"});
}

TEST(CmdArgs, CommentsDoNotNest) {
    EXPECT_EQ(plainWords({"/*", "/*", "*/", "a", "*/"}), (Words{"a", "*/"}));
    EXPECT_EQ(plainWords({"/*", "/*b*/", "a"}), Words{"a"});
}

TEST(CmdArgs, OpenCommentReachesToTheEnd) {
    EXPECT_EQ(plainWords({"a", "/*", "b", "c"}), Words{"a"});
}

TEST(CmdArgs, ValueIsTakenBeforeCommentsAreSeen) {
    auto const args = parse({"-o", "/*", "a"});
    EXPECT_EQ(args->option("o"), "/*");
    ASSERT_EQ(args->numofArguments(), 1u);
    EXPECT_EQ(args->argument(0), "a");
}

TEST(CmdArgs, SlashAloneIsAPlainWord) {
    EXPECT_EQ(plainWords({"/", "/a", "*"}), (Words{"/", "/a", "*"}));
}

TEST(CmdArgs, WordsAreFoundByIndex) {
    auto const args = parse({"a", "b"});
    EXPECT_EQ((*args)[1], "b");
    static_assert(std::is_same<decltype((*args)[1u]), std::string>::value, "a copy");
    static_assert(std::is_same<decltype(args->argument(1u)), std::string const &>::value, "a reference");
    std::string out = "kept";
    EXPECT_TRUE(args->getArgument(0, out));
    EXPECT_EQ(out, "a");
    EXPECT_FALSE(args->getArgument(2, out));
    EXPECT_EQ(out, "a");
}

TEST(CmdArgs, OptionsNotGivenHaveFallbacks) {
    auto const args = parse({"-a", "1", "b"});
    EXPECT_TRUE(args->hasOption("a"));
    EXPECT_FALSE(args->hasOption("b"));
    EXPECT_FALSE(args->hasOption(tav_istr()));
    EXPECT_FALSE(args->hasOption("aa"));
    EXPECT_EQ(args->option("b"), "");
    EXPECT_EQ(args->option("b", "fallback"), "fallback");
    EXPECT_EQ(args->option("a", "fallback"), "1");
    EXPECT_EQ((*args)("b"), "");
    EXPECT_EQ((*args)("a"), "1");
    EXPECT_EQ((*args)("b", "fallback"), "fallback");
    EXPECT_EQ((*args)("a", "fallback"), "1");
}

TEST(CmdArgs, GetOptionLeavesItsTargetAloneIfNotGiven) {
    auto const args = parse({"-a", "1", "-b"});
    std::string out = "kept";
    EXPECT_FALSE(args->getOption("c", out));
    EXPECT_EQ(out, "kept");
    EXPECT_TRUE(args->getOption("a", out));
    EXPECT_EQ(out, "1");
    EXPECT_TRUE(args->getOption("b", out));
    EXPECT_EQ(out, "");
}

TEST(CmdArgs, IsNotCopied) {
    EXPECT_FALSE(std::is_copy_constructible<tavCmdArgs>::value);
    EXPECT_FALSE(std::is_copy_assignable<tavCmdArgs>::value);
}

} // namespace
