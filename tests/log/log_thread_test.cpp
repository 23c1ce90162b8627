#include "tav/vinta/vinta_log.h"

#include "support/folder.h"
#include "tav/vinta/vinta_mt_thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <fstream>
#include <functional>
#include <iterator>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

/// What the callback does with each record; set ahead of the opening.
std::function<void(int, std::string const &)> take;

std::mutex gotMutex;
std::vector<std::string> got;
std::atomic<int> gotCount{0};

void callback(int level, char const * text) {
    {
        std::lock_guard<std::mutex> const guard(gotMutex);
        got.push_back(text);
    }
    ++gotCount;
    if (take) {
        take(level, text);
    }
}

std::vector<std::string> gotTexts() {
    std::lock_guard<std::mutex> const guard(gotMutex);
    return got;
}

/// The places of the records that hold these parts, one behind the other; false if one is missing there.
bool inOrder(std::vector<std::string> const & parts) {
    std::size_t next = 0;
    for (std::string const & text : gotTexts()) {
        if (next < parts.size() && text.find(parts[next]) != std::string::npos) {
            ++next;
        }
    }
    EXPECT_EQ(parts.size(), next) << (next < parts.size() ? parts[next] : "");
    return next == parts.size();
}

unsigned countOf(std::string const & part) {
    unsigned n = 0;
    for (std::string const & text : gotTexts()) {
        n += text.find(part) != std::string::npos ? 1u : 0u;
    }
    return n;
}

/// Lets the callback pass only when it is opened.
class Gate {
public:
    void open() {
        std::lock_guard<std::mutex> const guard(mutex_);
        open_ = true;
        changed_.notify_all();
    }
    void pass() {
        std::unique_lock<std::mutex> guard(mutex_);
        entered_ = true;
        changed_.notify_all();
        changed_.wait_for(guard, std::chrono::seconds(10), [this] { return open_; });
    }
    bool waitEntered() {
        std::unique_lock<std::mutex> guard(mutex_);
        return changed_.wait_for(guard, std::chrono::seconds(10), [this] { return entered_; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool open_ = false;
    bool entered_ = false;
};

void write(tavLogger::LogLevel level, std::string const & text) {
    tavLogger::writeLog("t", level, tav_istr(text + "\n"), "f", 1, "g");
}

class LogThread : public testing::Test {
protected:
    void SetUp() override { reset(); }
    void TearDown() override { reset(); }

    static void reset() {
        tavLogger::finalize();
        take = nullptr;
        std::lock_guard<std::mutex> const guard(gotMutex);
        got.clear();
        gotCount = 0;
    }

    static void open(char const * levels = "(clear(NONE))", tavLogger::LogLevel vip = tavLogger::WARN,
                     std::string const & path = std::string()) {
        tavLogger::open(tav_istr(path), "app", levels, &callback, "1", 100000000, false, vip);
    }
};

} // namespace

TEST_F(LogThread, RecordsAreHandledInOrderOnTheThreadNamedLogger) {
    static std::vector<std::string> names;
    names.clear();
    take = [](int, std::string const &) { names.push_back(std::string(tav_istr(tavThread::currentName()))); };
    open();
    for (int i = 0; i < 100; ++i) {
        write(tavLogger::INFO, "n" + std::to_string(i) + ".");
    }
    tavLogger::flush();
    ASSERT_EQ(gotTexts().size(), 100u);
    for (unsigned i = 0; i < 100; ++i) {
        EXPECT_NE(gotTexts()[i].find(" n" + std::to_string(i) + ".\n"), std::string::npos);
        EXPECT_EQ(names[i], "logger");
    }
}

TEST_F(LogThread, LineShowsTheThreadThatLogsAndNotTheWriter) {
    open();
    write(tavLogger::ERROR, "x");
    tavLogger::close();
    EXPECT_EQ(countOf("[ERROR]{main}[t]"), 1u);
}

TEST_F(LogThread, WithoutOpenRecordsAreHandledByTheCaller) {
    static std::thread::id caller;
    take = [](int, std::string const &) { caller = std::this_thread::get_id(); };
    tavLogger::setup("(clear(NONE))", &callback, false, tavLogger::WARN);
    write(tavLogger::INFO, "x");
    EXPECT_EQ(std::this_thread::get_id(), caller);
    EXPECT_EQ(gotCount, 1);
}

TEST_F(LogThread, RecordsBelowVipDoNotWaitForTheWriter) {
    Gate gate;
    take = [&gate](int, std::string const &) { gate.pass(); };
    open();
    auto const before = std::chrono::steady_clock::now();
    for (int i = 0; i < 10; ++i) {
        write(tavLogger::INFO, "x");
    }
    ASSERT_TRUE(gate.waitEntered());
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(10));
    EXPECT_EQ(gotCount, 1);
    gate.open();
    tavLogger::close();
    EXPECT_EQ(gotCount, 10);
}

TEST_F(LogThread, RecordsAtVipHaveReachedTheSinksWhenTheCallReturns) {
    static std::atomic<int> done{0};
    done = 0;
    take = [](int, std::string const &) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        ++done;
    };
    open();
    for (int i = 1; i <= 5; ++i) {
        write(tavLogger::INFO, "x");
        write(tavLogger::WARN, "x");
        EXPECT_EQ(2 * i, done);
    }
    write(tavLogger::ERROR, "x");
    EXPECT_EQ(done, 11);
}

TEST_F(LogThread, VipLevelIsTheOneThatWasGiven) {
    Gate gate;
    take = [&gate](int, std::string const &) { gate.pass(); };
    open("(clear(NONE))", tavLogger::NONE);
    auto const before = std::chrono::steady_clock::now();
    for (int i = 0; i < 20; ++i) {
        write(tavLogger::ERROR, "x");
    }
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(10));
    gate.open();
    tavLogger::close();
    EXPECT_EQ(gotCount, 20);
}

TEST_F(LogThread, WaitForAStuckWriterEndsAfterAboutASecond) {
    Gate gate;
    take = [&gate](int, std::string const &) { gate.pass(); };
    open();
    auto const before = std::chrono::steady_clock::now();
    write(tavLogger::ERROR, "x");
    auto const waited = std::chrono::steady_clock::now() - before;
    EXPECT_LE(std::chrono::milliseconds(900), waited);
    EXPECT_GT(std::chrono::seconds(15), waited);
    gate.open();
    tavLogger::close(); // ahead of the gate's end: the writer is still inside it
}

TEST_F(LogThread, FlushWaitsForWhatWasPosted) {
    take = [](int, std::string const &) { std::this_thread::sleep_for(std::chrono::milliseconds(5)); };
    open();
    for (int i = 0; i < 10; ++i) {
        write(tavLogger::INFO, "x");
    }
    tavLogger::flush();
    EXPECT_EQ(gotCount, 10);
}

TEST_F(LogThread, FlushWithoutAThreadDoesNothing) {
    tavLogger::flush();
    open();
    tavLogger::close();
    tavLogger::flush();
    EXPECT_EQ(gotCount, 0);
}

TEST_F(LogThread, VipRecordOnTheWritersOwnThreadIsNotWaitedFor) {
    static std::atomic<long long> took{0};
    take = [](int, std::string const & text) {
        if (text.find("outer") != std::string::npos) {
            auto const before = std::chrono::steady_clock::now();
            write(tavLogger::ERROR, "inner");
            tavLogger::flush();
            took = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                         before)
                       .count();
        }
    };
    open();
    write(tavLogger::ERROR, "outer");
    tavLogger::close();
    EXPECT_TRUE(inOrder({"[ERROR]{main}[t]g(f:1) outer", "[ERROR]{logger}[t]g(f:1) inner"}));
    EXPECT_GT(900, took);
}

TEST_F(LogThread, CloseDeliversWhatWasPostedAndLaterRecordsGoStraight) {
    static std::thread::id last;
    take = [](int, std::string const &) { last = std::this_thread::get_id(); };
    open();
    for (int i = 0; i < 1000; ++i) {
        write(tavLogger::INFO, "x");
    }
    tavLogger::close();
    EXPECT_EQ(gotCount, 1000);
    write(tavLogger::INFO, "later");
    EXPECT_EQ(gotCount, 1001);
    EXPECT_EQ(std::this_thread::get_id(), last);
    tavLogger::close();
    tavLogger::close();
    EXPECT_EQ(gotCount, 1001);
}

TEST_F(LogThread, WholeLifeIsLoggedInOrder) {
    open("(clear(TRACE))");
    tavLogger::close();
    EXPECT_TRUE(inOrder({"thead init {logger}", "thead starting... {logger}", "thead run {logger.",
                         "thead started. {logger.", "thead closing... {logger.", "join thread end...",
                         "thead fini {logger."}));
    for (char const * once : {"thead init ", "thead starting... ", "thead run ", "thead started. ",
                              "thead closing... ", "thead break running ", "thead on_stop ", "thead closed. ",
                              "join thread begin...", "join thread end...", "thead fini "}) {
        EXPECT_EQ(countOf(once), 1u) << once;
    }
}

TEST_F(LogThread, WholeLifeIsLoggedWhenEachRecordIsWaitedFor) {
    auto const before = std::chrono::steady_clock::now();
    open("(clear(TRACE))", tavLogger::ALL);
    write(tavLogger::TRACE, "x");
    EXPECT_EQ(countOf(" x\n"), 1u);
    tavLogger::close();
    EXPECT_EQ(countOf("thead fini "), 1u);
    EXPECT_GT(std::chrono::seconds(10), std::chrono::steady_clock::now() - before);
}

TEST_F(LogThread, SecondOpenClosesTheFormerThread) {
    open("(clear(INFO))");
    write(tavLogger::INFO, "one");
    open("(clear(INFO))");
    write(tavLogger::INFO, "two");
    tavLogger::close();
    EXPECT_TRUE(
        inOrder({" one\n", "app version 1\n", "thead closing... {logger.", "thead starting... {logger}",
                 "thead started. {logger.", " two\n", "thead closing... {logger."}));
    EXPECT_EQ(countOf("thead closing... "), 2u);
}

TEST_F(LogThread, FinalizeClosesTheThreadAndDropsTheSinks) {
    open("(clear(TRACE))");
    for (int i = 0; i < 100; ++i) {
        write(tavLogger::INFO, "posted");
    }
    tavLogger::finalize();
    EXPECT_EQ(countOf(" posted\n"), 100u);
    EXPECT_EQ(countOf("thead fini "), 1u);
    EXPECT_EQ(std::string(tav_istr(tavLogger::str())), "(default(INFO)__console(0)__vip(5))");
    int const before = gotCount;
    write(tavLogger::ERROR, "x");
    EXPECT_EQ(before, gotCount);
    tavLogger::finalize();
    open();
    write(tavLogger::ERROR, "again");
    EXPECT_EQ(countOf(" again\n"), 1u);
}

TEST_F(LogThread, LoggingGoesOnWhileOpenIsHeldUp) {
    Gate gate;
    take = [&gate](int, std::string const & text) {
        if (text.find("Log started: ") != std::string::npos) {
            gate.pass();
        }
    };
    tavLogger::setup("(clear(NONE))", &callback, false, tavLogger::WARN);
    std::thread opener([] { open(); });
    EXPECT_TRUE(gate.waitEntered());
    auto const before = std::chrono::steady_clock::now();
    write(tavLogger::ERROR, "meanwhile");
    tavLogger::flush();
    tavLogger::setLogLevel("t", tavLogger::TRACE);
    tavLogger::str();
    EXPECT_GT(std::chrono::seconds(30), std::chrono::steady_clock::now() - before);
    EXPECT_EQ(countOf(" meanwhile\n"), 1u);
    gate.open();
    opener.join();
    tavLogger::close(); // ahead of the gate's end: the writer may still be inside it
}

TEST_F(LogThread, FinalizeLetsTheCallbackUseTheLogger) {
    take = [](int, std::string const &) {
        tavLogger::str();
        tavLogger::setLogLevel("x", tavLogger::TRACE);
        tavLogger::flush();
    };
    for (int i = 0; i < 10; ++i) {
        open();
        for (int k = 0; k < 10; ++k) {
            write(tavLogger::INFO, "x");
        }
        tavLogger::finalize();
        EXPECT_EQ(std::string(tav_istr(tavLogger::str())), "(default(INFO)__console(0)__vip(5))");
    }
    EXPECT_EQ(countOf(" x\n"), 100u);
}

TEST_F(LogThread, CallbackThatThrowsLeavesTheThreadAlive) {
    take = [](int, std::string const & text) {
        if (text.find(" bad\n") != std::string::npos) {
            throw std::runtime_error("callback failed");
        }
    };
    open();
    write(tavLogger::INFO, "bad");
    write(tavLogger::ERROR, "good");
    tavLogger::close();
    EXPECT_EQ(countOf(" bad\n"), 1u);
    EXPECT_EQ(countOf(" good\n"), 1u);
}

TEST_F(LogThread, LevelsAndCallbackMayBeSetFromTheCallback) {
    take = [](int, std::string const &) {
        tavLogger::setLogLevel("seen", tavLogger::TRACE);
        tavLogger::setCallback(nullptr);
    };
    open();
    write(tavLogger::ERROR, "x");
    write(tavLogger::ERROR, "y");
    EXPECT_EQ(gotCount, 1);
    EXPECT_TRUE(tavLogger::isLoggable("seen", tavLogger::TRACE));
}

TEST_F(LogThread, ErrorsAreInTheFileWhenTheCallReturnsAndLinesStayWhole) {
    tav_test::Folder const folder;
    std::string const path = folder.path() + "/app.log";
    open("(clear(NONE))", tavLogger::WARN, path);
    auto const content = [&path] {
        std::ifstream in(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    };
    write(tavLogger::INFO, "first");
    write(tavLogger::ERROR, "second");
    std::string const now = content();
    EXPECT_EQ(now.size() - 8, now.find(" second\n"));
    EXPECT_NE(now.find(" first\n"), std::string::npos);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 100; ++i) {
                write(tavLogger::INFO, "T" + std::to_string(t) + ":" + std::to_string(i));
            }
        });
    }
    for (std::thread & thread : threads) {
        thread.join();
    }
    tavLogger::close();
    std::vector<int> next(4, 0);
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);) {
        std::size_t const mark = line.find("(f:1) T");
        if (mark != std::string::npos) {
            std::size_t const thread = static_cast<std::size_t>(line[mark + 7] - '0');
            EXPECT_EQ(next[thread]++, std::stoi(line.substr(mark + 9)));
        }
    }
    EXPECT_EQ(std::vector<int>(4, 100), next);
}

TEST_F(LogThread, RecordsThatRaceWithOpenAndCloseAreDeliveredOnce) {
    tavLogger::setup("(clear(NONE))", &callback, false, tavLogger::WARN);
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 300; ++i) {
                write(i % 50 == 0 ? tavLogger::ERROR : tavLogger::INFO, "R" + std::to_string(t * 1000 + i));
            }
        });
    }
    for (int i = 0; i < 20; ++i) {
        open();
        tavLogger::close();
    }
    for (std::thread & thread : threads) {
        thread.join();
    }
    tavLogger::close();
    for (int t = 0; t < 3; ++t) {
        for (int i = 0; i < 300; ++i) {
            EXPECT_EQ(countOf(" R" + std::to_string(t * 1000 + i) + "\n"), 1u);
        }
    }
}

TEST_F(LogThread, LoggingRacesWithEverythingWithoutHarm) {
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&stop] {
            while (!stop) {
                if (tavLogger::isLoggable("t", tavLogger::INFO)) {
                    write(tavLogger::INFO, "x");
                }
                tavLogger::str();
            }
        });
    }
    for (int i = 0; i < 20; ++i) {
        open("(clear(INFO)t(INFO))");
        tavLogger::setCallback(nullptr);
        tavLogger::setLogLevel("(t(WARN))");
        tavLogger::flush();
        tavLogger::finalize();
    }
    stop = true;
    for (std::thread & thread : threads) {
        thread.join();
    }
    EXPECT_EQ(std::string(tav_istr(tavLogger::str())), "(default(INFO)__console(0)__vip(5))");
}
