#include "tav/vinta/vinta_log.h"

#include "support/folder.h"
#include "support/in_child.h"
#include "tav/vinta/vinta_mt_thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <future>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using tav_test::BesideForks;
using tav_test::inChild;

void write(tavLogger::LogLevel level, std::string const & text) {
    tavLogger::writeLog("t", level, tav_istr(text + ".\n"), "f", 1, "g");
}

unsigned countOf(std::string const & whole, std::string const & part) {
    unsigned n = 0;
    for (std::size_t at = whole.find(part); at != std::string::npos; at = whole.find(part, at + 1)) {
        ++n;
    }
    return n;
}

std::string content(std::string const & path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

class LogFork : public testing::Test {
protected:
    void SetUp() override { tavLogger::finalize(); }
    void TearDown() override { tavLogger::finalize(); }

    static void open(std::string const & path, tavLogger::Callback callback = nullptr) {
        tavLogger::open(tav_istr(path), "app", "(clear(NONE)t(INFO))", callback, "1", 1 << 30, false,
                        tavLogger::WARN);
    }

    tav_test::Folder const own_;
    std::string const folder_ = own_.path();
    std::string const path_ = folder_ + "/app.log";
};

} // namespace

TEST_F(LogFork, ChildWritesItsLinesItselfAndAtOnceWhileTheParentsThreadsLog) {
    open(path_);
    std::atomic<bool> stop{false};
    std::atomic<unsigned> written{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&] {
            while (!stop) {
                BesideForks const here;
                write(tavLogger::WARN, "parent " + std::to_string(written++));
                tavLogger::setLogLevel("x", tavLogger::INFO);
                tavLogger::str();
            }
        });
    }
    constexpr int children = 15;
    for (int i = 0; i < children; ++i) {
        EXPECT_TRUE(inChild([i] {
            Clock::time_point const start = Clock::now();
            write(tavLogger::WARN, "child warns " + std::to_string(i));
            write(tavLogger::INFO, "child " + std::to_string(i));
            tavLogger::setLogLevel("x", tavLogger::WARN);
            tavLogger::flush();
            return Clock::now() - start < std::chrono::milliseconds(900);
        }));
    }
    stop = true;
    for (std::thread & thread : threads) {
        thread.join();
    }
    tavLogger::close();
    std::string const log = content(path_);
    for (int i = 0; i < children; ++i) {
        EXPECT_EQ(countOf(log, " child warns " + std::to_string(i) + ".\n"), 1u);
        EXPECT_EQ(countOf(log, " child " + std::to_string(i) + ".\n"), 1u);
    }
    EXPECT_EQ(written.load(), countOf(log, " parent "));
}

TEST_F(LogFork, ChildEndsItsLoggerWithoutTheParentsLines) {
    static std::promise<void> gate;
    static std::shared_future<void> opened;
    gate = std::promise<void>();
    opened = gate.get_future().share();
    open(path_, [](int, char const *) { opened.wait(); });
    write(tavLogger::INFO, "in hand");
    write(tavLogger::INFO, "waits");
    EXPECT_TRUE(inChild([] {
        gate.set_value();
        tavLogger::close();
        write(tavLogger::ERROR, "child");
        tavLogger::finalize();
        return true;
    }));
    gate.set_value();
    tavLogger::close();
    std::string const log = content(path_);
    EXPECT_EQ(countOf(log, " in hand.\n"), 1u);
    EXPECT_EQ(countOf(log, " waits.\n"), 1u);
    EXPECT_EQ(countOf(log, " child.\n"), 1u);
}

TEST_F(LogFork, ACallbackMayFork) {
    static std::atomic<bool> good{false};
    good = false;
    open(path_, [](int, char const * text) {
        if (std::string(text).find("fork") != std::string::npos) {
            good = inChild([] {
                write(tavLogger::WARN, "child");
                return true;
            });
        }
    });
    write(tavLogger::INFO, "fork");
    write(tavLogger::INFO, "behind");
    tavLogger::close();
    EXPECT_TRUE(good);
    EXPECT_EQ(countOf(content(path_), " child.\n"), 1u);
    EXPECT_EQ(countOf(content(path_), " behind.\n"), 1u);
}

TEST_F(LogFork, GrandchildLogsToo) {
    open(path_);
    write(tavLogger::INFO, "parent");
    EXPECT_TRUE(inChild([] {
        write(tavLogger::WARN, "child");
        return inChild([] {
            write(tavLogger::WARN, "grandchild");
            return true;
        });
    }));
    tavLogger::close();
    for (char const * line : {" parent.\n", " child.\n", " grandchild.\n"}) {
        EXPECT_EQ(countOf(content(path_), line), 1u) << line;
    }
}

#if TAV_TEST_CHILD_HAS_THREADS
TEST_F(LogFork, ChildMayOpenALogOfItsOwn) {
    open(path_);
    std::atomic<bool> stop{false};
    std::thread starter([&] {
        while (!stop) {
            BesideForks const here;
            tav_async_run(nullptr, "short", 0)->join();
        }
    });
    std::string const own = folder_ + "/child.log";
    for (int i = 0; i < 5; ++i) {
        EXPECT_TRUE(inChild([&own] {
            open(own);
            write(tavLogger::INFO, "child");
            tavLogger::close();
            tavThread::printThreads();
            tavThread::finalize();
            return true;
        }));
    }
    stop = true;
    starter.join();
    EXPECT_EQ(countOf(content(own), " child.\n"), 5u);
    EXPECT_EQ(countOf(content(path_), " child.\n"), 0u);
}
#endif
