#include "tav/vinta/vinta_log.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

class LogLevel : public testing::Test {
protected:
    void SetUp() override { tavLogger::finalize(); }
    void TearDown() override { tavLogger::finalize(); }
};

std::string state() {
    return std::string(tav_istr(tavLogger::str()));
}

/// The failure's text up to the position, "" if there is none.
template <class Call>
std::string failure(Call && call) {
    try {
        call();
    } catch (std::invalid_argument const & e) {
        std::string const what = e.what();
        return what.substr(0, what.find("\n    throw at "));
    }
    return "";
}

int calls = 0;

void count(int, char const *) {
    ++calls;
}

/// True if `T` is the type of the declaration given; else it does not compile.
template <class T>
constexpr bool declared(T) {
    return true;
}

} // namespace

static_assert(declared<tav_istr (*)()>(&tavLogger::DEFAULT_TAG), "");
static_assert(declared<void (*)(tav_istr, tav_istr, tav_istr, void (*)(int, char const *), tav_istr, int,
                                bool, tavLogger::LogLevel)>(&tavLogger::open),
              "");
static_assert(declared<void (*)(tav_istr, tavLogger::Callback, bool, tavLogger::LogLevel)>(&tavLogger::setup),
              "");
static_assert(declared<void (*)()>(&tavLogger::close), "");
static_assert(declared<void (*)()>(&tavLogger::flush), "");
static_assert(declared<void (*)()>(&tavLogger::finalize), "");
static_assert(declared<bool (*)(tav_istr, tavLogger::LogLevel)>(&tavLogger::isLoggable), "");
static_assert(declared<void (*)(tav_istr)>(&tavLogger::setLogLevel), "");
static_assert(declared<void (*)(tav_istr, tavLogger::LogLevel)>(&tavLogger::setLogLevel), "");
static_assert(declared<void (*)(tavLogger::LogLevel)>(&tavLogger::setLogLevel), "");
static_assert(declared<void (*)(tavLogger::Callback)>(&tavLogger::setCallback), "");
static_assert(declared<void (*)(tav_istr, tavLogger::LogLevel, tav_istr, char const *, int, char const *)>(
                  &tavLogger::writeLog),
              "");
static_assert(declared<tavString (*)()>(&tavLogger::str), "");
static_assert(declared<void (*)(char const *)>(&tav_log_setup), "");

TEST_F(LogLevel, ValuesOfTheLevels) {
    EXPECT_EQ(tavLogger::ALL, 0);
    EXPECT_EQ(tavLogger::TRACE, 1);
    EXPECT_EQ(tavLogger::VERBOSE, 2);
    EXPECT_EQ(tavLogger::DEBUG, 3);
    EXPECT_EQ(tavLogger::INFO, 4);
    EXPECT_EQ(tavLogger::WARN, 5);
    EXPECT_EQ(tavLogger::ERROR, 6);
    EXPECT_EQ(tavLogger::ASSERT, 7);
    EXPECT_EQ(tavLogger::OUT, 100);
    EXPECT_EQ(tavLogger::NONE, 255);
    EXPECT_EQ(tavLogger::UNKNOWN, -1);
}

TEST_F(LogLevel, DefaultTagIsTav) {
    EXPECT_EQ(std::string(tavLogger::DEFAULT_TAG()), "TAV");
}

TEST_F(LogLevel, DefaultsPassInfoAndAboveUnderAnyTag) {
    for (char const * tag : {"TAV", "x", ""}) {
        EXPECT_FALSE(tavLogger::isLoggable(tag, tavLogger::DEBUG));
        EXPECT_TRUE(tavLogger::isLoggable(tag, tavLogger::INFO));
        EXPECT_TRUE(tavLogger::isLoggable(tag, tavLogger::NONE));
    }
    EXPECT_FALSE(tavLogger::isLoggable(tav_istr(), tavLogger::DEBUG));
    EXPECT_TRUE(tavLogger::isLoggable(tav_istr(), tavLogger::INFO));
    EXPECT_EQ(state(), "(default(INFO)__console(0)__vip(5))");
}

TEST_F(LogLevel, ThresholdItselfPasses) {
    for (int threshold : {0, 1, 2, 3, 4, 5, 6, 7, 100, 255}) {
        tavLogger::setLogLevel(static_cast<tavLogger::LogLevel>(threshold));
        EXPECT_TRUE(tavLogger::isLoggable("x", static_cast<tavLogger::LogLevel>(threshold)));
        EXPECT_FALSE(tavLogger::isLoggable("x", static_cast<tavLogger::LogLevel>(threshold - 1)));
    }
}

TEST_F(LogLevel, UnknownThresholdPassesEverything) {
    tavLogger::setLogLevel("x", tavLogger::UNKNOWN);
    EXPECT_TRUE(tavLogger::isLoggable("x", tavLogger::ALL));
    EXPECT_TRUE(tavLogger::isLoggable("x", tavLogger::UNKNOWN));
    EXPECT_FALSE(tavLogger::isLoggable("y", tavLogger::DEBUG));
}

TEST_F(LogLevel, OwnThresholdOfATagReplacesTheDefault) {
    tavLogger::setLogLevel(tavLogger::TRACE);
    tavLogger::setLogLevel("net", tavLogger::WARN);
    EXPECT_FALSE(tavLogger::isLoggable("net", tavLogger::INFO));
    EXPECT_TRUE(tavLogger::isLoggable("net", tavLogger::WARN));
    EXPECT_TRUE(tavLogger::isLoggable("other", tavLogger::TRACE));
    tavLogger::setLogLevel(tavLogger::ERROR);
    tavLogger::setLogLevel("net", tavLogger::ALL);
    EXPECT_TRUE(tavLogger::isLoggable("net", tavLogger::ALL));
    EXPECT_FALSE(tavLogger::isLoggable("other", tavLogger::WARN));
}

TEST_F(LogLevel, TagsAreBytesOfAView) {
    tavLogger::setLogLevel(tav_istr("net.tls", 3u), tavLogger::TRACE);
    EXPECT_TRUE(tavLogger::isLoggable("net", tavLogger::TRACE));
    EXPECT_TRUE(tavLogger::isLoggable(tav_istr("network", 3u), tavLogger::TRACE));
    EXPECT_FALSE(tavLogger::isLoggable("net.tls", tavLogger::TRACE));
    EXPECT_FALSE(tavLogger::isLoggable("ne", tavLogger::TRACE));
    tavLogger::setLogLevel(tav_istr("a\0b", 3u), tavLogger::TRACE);
    EXPECT_TRUE(tavLogger::isLoggable(tav_istr("a\0b", 3u), tavLogger::TRACE));
    EXPECT_FALSE(tavLogger::isLoggable("a", tavLogger::TRACE));
    tavLogger::setLogLevel("", tavLogger::TRACE);
    EXPECT_TRUE(tavLogger::isLoggable(tav_istr(), tavLogger::TRACE));
}

TEST_F(LogLevel, ManyTagsAreKeptApart) {
    for (int i = 0; i < 500; ++i) {
        std::string const tag = "tag" + std::to_string(i);
        tavLogger::setLogLevel(tav_istr(tag), i % 2 == 0 ? tavLogger::TRACE : tavLogger::ERROR);
    }
    for (int i = 0; i < 500; ++i) {
        std::string const tag = "tag" + std::to_string(i);
        EXPECT_EQ(i % 2 == 0, tavLogger::isLoggable(tav_istr(tag), tavLogger::INFO)) << tag;
    }
}

TEST_F(LogLevel, ClearForgetsTheTagsAndSetsTheDefault) {
    tavLogger::setLogLevel("net", tavLogger::TRACE);
    tavLogger::setLogLevel("clear", tavLogger::WARN);
    EXPECT_EQ(state(), "(default(WARN)__console(0)__vip(5))");
    EXPECT_FALSE(tavLogger::isLoggable("net", tavLogger::INFO));
    tavLogger::setLogLevel(tavLogger::TRACE);
    EXPECT_TRUE(tavLogger::isLoggable("net", tavLogger::TRACE));
    tavLogger::setLogLevel("net", tavLogger::ERROR);
    EXPECT_EQ(state(), "(default(TRACE)net(ERROR)__console(0)__vip(5))");
}

TEST_F(LogLevel, AllSetsTheTagsKnownByNowAndTheDefault) {
    tavLogger::setLogLevel("gone", tavLogger::WARN);
    tavLogger::setLogLevel("clear", tavLogger::INFO);
    tavLogger::setLogLevel("a", tavLogger::WARN);
    tavLogger::setLogLevel("b", tavLogger::TRACE);
    tavLogger::setLogLevel("all", tavLogger::DEBUG);
    EXPECT_EQ(state(), "(default(DEBUG)a(DEBUG)b(DEBUG)__console(0)__vip(5))");
    EXPECT_FALSE(tavLogger::isLoggable("b", tavLogger::TRACE));
    EXPECT_TRUE(tavLogger::isLoggable("a", tavLogger::DEBUG));
    EXPECT_TRUE(tavLogger::isLoggable("c", tavLogger::DEBUG));
    tavLogger::setLogLevel(tavLogger::ERROR);
    EXPECT_TRUE(tavLogger::isLoggable("a", tavLogger::DEBUG));
    EXPECT_FALSE(tavLogger::isLoggable("c", tavLogger::DEBUG));
}

TEST_F(LogLevel, DefaultSetsTheDefaultOnly) {
    tavLogger::setLogLevel("a", tavLogger::WARN);
    tavLogger::setLogLevel("default", tavLogger::TRACE);
    EXPECT_EQ(state(), "(default(TRACE)a(WARN)__console(0)__vip(5))");
}

TEST_F(LogLevel, LevelTextSetsEachChildInOrder) {
    tavLogger::setLogLevel("(net(DEBUG)default(WARN)tls(OUT))");
    EXPECT_EQ(state(), "(default(WARN)net(DEBUG)tls(OUT)__console(0)__vip(5))");
    tavLogger::setLogLevel("levels(all(ERROR)new(TRACE))");
    EXPECT_EQ(state(), "(default(ERROR)net(ERROR)new(TRACE)tls(ERROR)__console(0)__vip(5))");
    tavLogger::setLogLevel("(clear(INFO)x(ALL))");
    EXPECT_EQ(state(), "(default(INFO)x(ALL)__console(0)__vip(5))");
    tavLogger::setLogLevel("(x(ALL)clear(NONE))");
    EXPECT_EQ(state(), "(default(NONE)__console(0)__vip(5))");
}

TEST_F(LogLevel, LevelTextLooksAtTheChildrenOfTheFirstUnitOnly) {
    for (char const * text : {"net(DEBUG)", "clear(TRACE)net(DEBUG)", "()(net(DEBUG))", "(DEBUG)"}) {
        tavLogger::setLogLevel(text);
        EXPECT_EQ(state(), "(default(INFO)__console(0)__vip(5))") << text;
    }
    tavLogger::setLogLevel("(a(b(TRACE)DEBUG))(c(ALL))");
    EXPECT_EQ(state(), "(default(INFO)a(DEBUG)__console(0)__vip(5))");
}

TEST_F(LogLevel, LevelTextTakesAllThatItsFormatAllows) {
    tavLogger::setLogLevel(" (*c*) levels : t ( net tls (\"DEBUG\") (*d*) x:int('WARN') )");
    EXPECT_EQ(state(), "(default(INFO)net tls(DEBUG)x(WARN)__console(0)__vip(5))");
}

TEST_F(LogLevel, LevelTextWithClearRemovesAllTags) {
    tavLogger::setLogLevel("(a(TRACE)b(ERROR))");
    tavLogger::setLogLevel("(clear(WARN))");
    EXPECT_EQ(state(), "(default(WARN)__console(0)__vip(5))");
    EXPECT_FALSE(tavLogger::isLoggable("a", tavLogger::INFO));
    EXPECT_TRUE(tavLogger::isLoggable("b", tavLogger::WARN));
}

TEST_F(LogLevel, LevelTextKnowsEveryName) {
    char const * const names[] = {"ALL",   "TRACE",  "VERBOSE", "DEBUG", "INFO",   "WARN",
                                  "ERROR", "ASSERT", "OUT",     "NONE",  "UNKNOWN"};
    for (char const * name : names) {
        tavLogger::setLogLevel(tav_istr("(t(" + std::string(name) + "))"));
        EXPECT_EQ("(default(INFO)t(" + std::string(name) + ")__console(0)__vip(5))", state());
    }
}

TEST_F(LogLevel, LevelTextWithAnUnknownNamePassesEverything) {
    for (char const * text : {"(t(warn))", "(t())", "(t(WARN ))", "(t(5))"}) {
        tavLogger::setLogLevel("t", tavLogger::ERROR);
        tavLogger::setLogLevel(text);
        EXPECT_TRUE(tavLogger::isLoggable("t", tavLogger::ALL)) << text;
        EXPECT_EQ(state(), "(default(INFO)t(UNKNOWN)__console(0)__vip(5))") << text;
    }
}

TEST_F(LogLevel, EmptyLevelTextChangesNothing) {
    tavLogger::setLogLevel("t", tavLogger::ERROR);
    tavLogger::setLogLevel("");
    tavLogger::setLogLevel(tav_istr());
    EXPECT_EQ(state(), "(default(INFO)t(ERROR)__console(0)__vip(5))");
}

TEST_F(LogLevel, BadLevelTextRaisesOutOfEveryEntry) {
    tavLogger::setLogLevel("t", tavLogger::ERROR);
    std::string const before = state();
    EXPECT_EQ(failure([] { tavLogger::setLogLevel("t"); }), "empty after pml name");
    EXPECT_EQ(failure([] { tavLogger::setup(")", nullptr, true, tavLogger::ERROR); }),
              "invalid pml: extra )");
    EXPECT_EQ(failure([] { tavLogger::open("", "n", "(t(INFO)", nullptr, "1", 1, true, tavLogger::ERROR); }),
              "no pml value end tag");
    EXPECT_EQ(failure([] { tav_log_setup("t:"); }), "no pml type");
    EXPECT_EQ(before, state());
    // No lock was left behind.
    std::thread([] {
        tavLogger::setup("(t(WARN))", nullptr, false, tavLogger::WARN);
        tavLogger::close();
    }).join();
    EXPECT_TRUE(tavLogger::isLoggable("t", tavLogger::WARN));
}

TEST_F(LogLevel, RaisedFailureOfALevelTextIsLoggedWithoutDeadlock) {
    calls = 0;
    tavLogger::setCallback(&count);
    EXPECT_EQ(failure([] { tavLogger::open("", "n", "t", nullptr, "1", 1, true, tavLogger::ERROR); }),
              "empty after pml name");
    // The banner and the failure.
    EXPECT_EQ(calls, 2);
}

TEST_F(LogLevel, UnlistedLevelPrintsAnEmptyName) {
    tavLogger::setLogLevel("X", static_cast<tavLogger::LogLevel>(42));
    tavLogger::setLogLevel(static_cast<tavLogger::LogLevel>(8));
    EXPECT_EQ(state(), "(default()X()__console(0)__vip(5))");
}

TEST_F(LogLevel, StrListsTagsInByteOrder) {
    tavLogger::setLogLevel("(b(INFO)a(WARN)B(OUT)ab(ALL))");
    tavLogger::setLogLevel("\xff", tavLogger::NONE);
    EXPECT_EQ(state(), "(default(INFO)B(OUT)a(WARN)ab(ALL)b(INFO)\xff(NONE)__console(0)__vip(5))");
}

TEST_F(LogLevel, StrShowsConsoleAndVip) {
    tavLogger::setup("", nullptr, true, tavLogger::OUT);
    EXPECT_EQ(state(), "(default(INFO)__console(1)__vip(100))");
    tavLogger::setup("", nullptr, false, tavLogger::UNKNOWN);
    EXPECT_EQ(state(), "(default(INFO)__console(0)__vip(-1))");
}

TEST_F(LogLevel, OpenSetsLevelsConsoleAndVip) {
    tavLogger::open("", "n", "(net(OUT))", nullptr, "1", 1, true, tavLogger::ERROR);
    EXPECT_EQ(state(), "(default(INFO)net(OUT)__console(1)__vip(6))");
    tavLogger::open("", "n", "", nullptr, "1", 1, false, tavLogger::NONE);
    EXPECT_EQ(state(), "(default(INFO)net(OUT)__console(0)__vip(255))");
}

TEST_F(LogLevel, InsertionPrintsTheState) {
    tavLogger::setLogLevel("(a(WARN))");
    std::ostringstream out;
    out << tavLogger();
    EXPECT_EQ(out.str(), "(default(INFO)a(WARN)__console(0)__vip(5))");
}

TEST_F(LogLevel, SetupTextOfTheStateCanBeReadBack) {
    tavLogger::setLogLevel("(default(ERROR)a(WARN))");
    std::string const text = state();
    tavLogger::finalize();
    tavLogger::setLogLevel(tav_istr(text));
    EXPECT_FALSE(tavLogger::isLoggable("x", tavLogger::WARN));
    EXPECT_TRUE(tavLogger::isLoggable("a", tavLogger::WARN));
}

TEST_F(LogLevel, FinalizeBringsBackTheDefaults) {
    tavLogger::setup("(default(TRACE)a(WARN))", &count, true, tavLogger::OUT);
    calls = 0;
    tavLogger::finalize();
    EXPECT_EQ(state(), "(default(INFO)__console(0)__vip(5))");
    tav_log_error_("x", "f", 1, "g");
    EXPECT_EQ(calls, 0);
}

TEST_F(LogLevel, LookUpFollowsASetOfTheSameThreadAtOnce) {
    std::vector<std::thread> threads;
    std::atomic<int> wrong{0};
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t, &wrong] {
            std::string const tag = "own" + std::to_string(t);
            for (int i = 0; i < 2000; ++i) {
                tavLogger::setLogLevel(tav_istr(tag), tavLogger::TRACE);
                wrong += tavLogger::isLoggable(tav_istr(tag), tavLogger::TRACE) ? 0 : 1;
                tavLogger::setLogLevel(tav_istr(tag), tavLogger::ERROR);
                wrong += tavLogger::isLoggable(tav_istr(tag), tavLogger::WARN) ? 1 : 0;
            }
        });
    }
    for (std::thread & thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong.load(), 0);
}

TEST_F(LogLevel, ReadersSeeEachRuleAsAWhole) {
    // With many tags a rule for all of them takes a while.
    for (int i = 0; i < 1000; ++i) {
        tavLogger::setLogLevel(tav_istr("filler" + std::to_string(i)), tavLogger::ERROR);
    }
    tavLogger::setLogLevel("net", tavLogger::ERROR);
    std::atomic<bool> stop{false};
    std::atomic<int> wrong{0};
    std::vector<std::thread> readers;
    for (int t = 0; t < 2; ++t) {
        readers.emplace_back([&stop, &wrong] {
            while (!stop) {
                wrong += tavLogger::isLoggable("net", tavLogger::INFO) ? 1 : 0;
            }
        });
    }
    // Behind each of these rules the tag refuses INFO.
    for (int i = 0; i < 1000; ++i) {
        tavLogger::setLogLevel(tavLogger::TRACE);
        tavLogger::setLogLevel("clear", tavLogger::ERROR);
        tavLogger::setLogLevel("net", tavLogger::ERROR);
    }
    stop = true;
    for (std::thread & reader : readers) {
        reader.join();
    }
    EXPECT_EQ(wrong.load(), 0);
}

TEST_F(LogLevel, ReadersAndWritersMeetWithoutHarm) {
    std::atomic<bool> stop{false};
    std::vector<std::thread> readers;
    std::atomic<int> wrong{0};
    tavLogger::setLogLevel("fixed", tavLogger::WARN);
    for (int t = 0; t < 3; ++t) {
        readers.emplace_back([&stop, &wrong] {
            while (!stop) {
                wrong += tavLogger::isLoggable("fixed", tavLogger::INFO) ? 1 : 0;
                wrong += tavLogger::isLoggable("fixed", tavLogger::ERROR) ? 0 : 1;
                tavLogger::isLoggable("churn7", tavLogger::INFO);
            }
        });
    }
    for (int i = 0; i < 3000; ++i) {
        std::string const tag = "churn" + std::to_string(i % 50);
        tavLogger::setLogLevel(tav_istr(tag), tavLogger::DEBUG);
        if (i % 100 == 0) {
            tavLogger::str();
        }
    }
    stop = true;
    for (std::thread & reader : readers) {
        reader.join();
    }
    EXPECT_EQ(wrong.load(), 0);
}

namespace {

/// What the setting of a level text tells on the debugger, without the line's prefix.
std::string told(std::string const & levels) {
    testing::internal::CaptureStdout();
    try {
        tavLogger::setLogLevel(tav_istr(levels));
    } catch (std::invalid_argument const &) {
    }
    std::string const out = testing::internal::GetCapturedStdout();
    std::size_t const text = out.find(" --- ");
    return text == std::string::npos ? out : out.substr(text + 5);
}

std::string const shape = "; a level text looks like (default(INFO)net(DEBUG))\n";

} // namespace

TEST_F(LogLevel, GoodTextTellsNothing) {
    for (char const * text : {"", "()", "(net(DEBUG))", "(default(INFO)net(UNKNOWN))", "levels(net(OUT))",
                              "(default(INFO)net(DEBUG)__console(0)__vip(5))"}) {
        EXPECT_EQ(told(text), "") << text;
    }
}

TEST_F(LogLevel, TextWithoutBracketsIsToldAndSetsNothing) {
    std::string const why = "only what stands in one pair of brackets counts" + shape;
    for (std::string const text : {"net(DEBUG)", "default(WARN)net(DEBUG)", "(DEBUG)"}) {
        EXPECT_EQ("log levels " + text + ": " + why, told(text));
    }
    EXPECT_EQ(state(), "(default(INFO)__console(0)__vip(5))");
    EXPECT_EQ("log levels (net(WARN))x(DEBUG): " + why, told("(net(WARN))x(DEBUG)"));
    EXPECT_EQ(state(), "(default(INFO)net(WARN)__console(0)__vip(5))");
}

TEST_F(LogLevel, UnknownLevelsAreToldInOneLine) {
    EXPECT_EQ(
        "log levels (net(DEBG)ui()ok(WARN)): there is no level \"DEBG\", so all of net passes; there is no "
        "level \"\", so all of ui passes" +
            shape,
        told("(net(DEBG)ui()ok(WARN))"));
    EXPECT_EQ(state(), "(default(INFO)net(UNKNOWN)ok(WARN)ui(UNKNOWN)__console(0)__vip(5))");
}

TEST_F(LogLevel, UnknownLevelsAreToldOfSixteenTags) {
    std::string text = "(";
    for (int i = 0; i < 40; ++i) {
        text += "t" + std::to_string(i) + "(what)";
    }
    std::string const got = told(text + ")");
    EXPECT_NE(got.find("so all of t15 passes; the same of 24 more" + shape), std::string::npos) << got;
    EXPECT_EQ(got.find("so all of t16 passes"), std::string::npos) << got;
}

TEST_F(LogLevel, LowestLevelIsThatOfAllTagsWhicheverChanges) {
    tavLogger::setLogLevel("(default(ERROR)a(DEBUG)b(TRACE)c(TRACE))");
    EXPECT_TRUE(tavLogger::isLoggable("b", tavLogger::TRACE));
    tavLogger::setLogLevel("b", tavLogger::WARN);
    EXPECT_TRUE(tavLogger::isLoggable("c", tavLogger::TRACE));
    tavLogger::setLogLevel("c", tavLogger::WARN);
    EXPECT_FALSE(tavLogger::isLoggable("c", tavLogger::INFO));
    EXPECT_TRUE(tavLogger::isLoggable("a", tavLogger::DEBUG));
    EXPECT_FALSE(tavLogger::isLoggable("a", tavLogger::VERBOSE));
    tavLogger::setLogLevel("d", tavLogger::TRACE);
    EXPECT_TRUE(tavLogger::isLoggable("d", tavLogger::TRACE));
}

TEST_F(LogLevel, MalformedTextIsToldAndRaises) {
    EXPECT_EQ("log levels DEBUG: it is no level text" + shape, told("DEBUG"));
    EXPECT_EQ(failure([] { tavLogger::setLogLevel("DEBUG"); }), "empty after pml name");
}

TEST_F(LogLevel, SetupTellsABadTextOnce) {
    testing::internal::CaptureStdout();
    tavLogger::setup("net(DEBUG)", nullptr, false, tavLogger::WARN);
    std::string const out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 1);
}
