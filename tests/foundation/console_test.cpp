#include "tav/vinta/vinta_log.h"

#include "support/shape.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <functional>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

/// What `body` writes to the standard output and, behind a bar, to the standard error.
std::string written(std::function<void()> const & body) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    body();
    std::string const out = testing::internal::GetCapturedStdout();
    std::string const error = testing::internal::GetCapturedStderr();
    return error.empty() ? out : out + "|" + error;
}

std::string hex(unsigned long value) {
    std::ostringstream out;
    out << std::hex << std::uppercase << value;
    return out.str();
}

/// "{", process, ".", thread, "} --- " of the caller.
std::string ids() {
    return "{" + hex(static_cast<unsigned long>(::getpid())) + "." +
           hex(static_cast<unsigned long>(::gettid())) + "} --- ";
}

constexpr std::size_t timeSize = sizeof "2024-03-01~10:20:30.123+0800" - 1;

std::string behindTime(std::string const & text) {
    return text.size() < timeSize ? text : text.substr(timeSize);
}

template <class Stream>
class ConsoleLineStream : public testing::Test {};

struct Names {
    template <class T>
    static std::string GetName(int) {
        return std::is_same<T, tav::console>::value ? "console" : "debugger";
    }
};

typedef testing::Types<tav::console, tav::debugger> Streams;
TYPED_TEST_SUITE(ConsoleLineStream, Streams, Names);

} // namespace

TYPED_TEST(ConsoleLineStream, WritesPrefixTextAndLineFeedAtItsEnd) {
    std::string const out = written([] {
        TypeParam line;
        line << "x=" << 5 << std::string(" y") << ' ' << 1.5;
        EXPECT_EQ(ids() + "x=5 y 1.5", behindTime(line.str()));
    });
    EXPECT_EQ(ids() + "x=5 y 1.5\n", behindTime(out));
    EXPECT_TRUE(tav_test::hasShape(out, tav_test::timeShape() + "{$.$} --- x=5 y 1.5\n")) << out;
}

TYPED_TEST(ConsoleLineStream, WritesNothingAheadOfItsEnd) {
    TypeParam * line = nullptr;
    EXPECT_EQ(written([&line] {
                  line = new TypeParam();
                  *line << "x";
              }),
              "");
    EXPECT_EQ(ids() + "x\n", behindTime(written([&line] { delete line; })));
}

TYPED_TEST(ConsoleLineStream, CanBeUsedAsATemporary) {
    EXPECT_EQ(ids() + "12\n", behindTime(written([] { TypeParam() << 1 << 2; })));
    EXPECT_EQ(ids() + "\n", behindTime(written([] { TypeParam(); })));
}

TYPED_TEST(ConsoleLineStream, TakesManipulatorsAndWritesHexadecimalInUpperCase) {
    EXPECT_EQ(ids() + "255 FF  7\n",
              behindTime(written([] { TypeParam() << 255 << ' ' << std::hex << 255 << std::setw(3) << 7; })));
    EXPECT_EQ(ids() + "a\nb\n", behindTime(written([] { TypeParam() << "a" << std::endl << "b"; })));
}

TYPED_TEST(ConsoleLineStream, CarriesTheIdOfItsThread) {
    std::string expected;
    std::string const out = written([&expected] {
        std::thread([&expected] {
            expected = ids();
            TypeParam() << "x";
        }).join();
    });
    EXPECT_NE(ids(), expected);
    EXPECT_EQ(expected + "x\n", behindTime(out));
}

TYPED_TEST(ConsoleLineStream, LinesOfManyThreadsStayWhole) {
    std::string const out = written([] {
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([] {
                for (int i = 0; i < 50; ++i) {
                    TypeParam() << std::string(200, 'x');
                }
            });
        }
        for (std::thread & thread : threads) {
            thread.join();
        }
    });
    std::istringstream in(out);
    unsigned count = 0;
    for (std::string line; std::getline(in, line); ++count) {
        ASSERT_TRUE(tav_test::hasShape(behindTime(line), "{$.$} --- " + std::string(200, 'x'))) << line;
    }
    EXPECT_EQ(count, 200u);
}

TEST(Console, PrintWritesTheTextAlone) {
    EXPECT_EQ(written([] { tav::console::print("a b"); }), "a b");
    EXPECT_EQ(written([] { tav::console::println("a b"); }), "a b\n");
    EXPECT_EQ(written([] { tav::console::println(std::string("a\0b", 3)); }), std::string("a\0b\n", 4));
    EXPECT_EQ(written([] { tav::console::print(""); }), "");
}

TEST(Console, WritesThroughTheStandardStreamInOrder) {
    EXPECT_EQ(written([] {
                  std::cout << "1 ";
                  tav::console::print("2 ");
                  std::cout << "3 ";
                  tav::console::println("4");
              }),
              "1 2 3 4\n");
}

TEST(Console, FlushesTheStandardOutput) {
    void (*const writers[])() = {[] { tav::console::print("now"); }, [] { tav::console::println("now"); },
                                 [] { tav::console() << "now"; }, [] { tav::debugger() << "now"; }};
    for (auto const write : writers) {
        int ends[2];
        ASSERT_EQ(::pipe(ends), 0);
        pid_t const child = ::fork();
        ASSERT_NE(child, -1);
        if (child == 0) {
            ::dup2(ends[1], STDOUT_FILENO);
            std::setvbuf(stdout, nullptr, _IOFBF, 4096);
            write();
            ::_exit(0);
        }
        ::close(ends[1]);
        char buffer[128];
        ssize_t const got = ::read(ends[0], buffer, sizeof buffer);
        std::string const text(buffer, got > 0 ? static_cast<std::size_t>(got) : 0);
        EXPECT_NE(text.find("now"), std::string::npos);
        int status = -1;
        EXPECT_EQ(child, ::waitpid(child, &status, 0));
        ::close(ends[0]);
    }
}

TEST(Console, OutputThatNobodyReadsRaisesNoSignal) {
    pid_t const child = ::fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        int ends[2];
        std::signal(SIGPIPE, SIG_DFL);
        if (::pipe(ends) != 0) {
            ::_exit(2);
        }
        ::close(ends[0]);
        ::dup2(ends[1], STDOUT_FILENO);
        tav::console::println("lost");
        { tav::console() << "lost"; }
        { tav::debugger() << "lost"; }
        struct sigaction action {};
        ::sigaction(SIGPIPE, nullptr, &action);
        sigset_t mask;
        ::pthread_sigmask(SIG_BLOCK, nullptr, &mask);
        ::_exit(action.sa_handler == SIG_DFL && sigismember(&mask, SIGPIPE) == 0 ? 0 : 3);
    }
    int status = -1;
    ASSERT_EQ(child, ::waitpid(child, &status, 0));
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST(ConsoleDebugger, PrintLeavesOutputAndErrorUntouched) {
    EXPECT_EQ(written([] {
                  tav::debugger::print("a b");
                  tav::debugger::println("a b");
              }),
              "");
}
