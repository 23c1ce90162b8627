#include "tav/vinta/vinta_mt_thread.h"

#include "support/bounded.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <type_traits>
#include <vector>

#include <pthread.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using tav_test::LogCapture;
using ThreadPtr = tavSharedPtr<tavThread>;

template <class T>
std::string text(T const & v) {
    std::ostringstream out;
    out << v;
    return out.str();
}

template <class F>
bool eventually(F const & condition) {
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

/// A thread whose body waits on the thread's monitor as a body should, and that notes what is called.
class Waiting : public tavThread {
public:
    explicit Waiting(tav_istr name) : tavThread(name) {}
    bool on_loop() override {
        std::lock_guard<tavThread const> guard(*this);
        if (!stopping()) {
            waitInLock(-1);
        }
        ++loops;
        return true;
    }
    void on_stop() override { ++stops; }
    std::atomic<int> loops{0};
    std::atomic<int> stops{0};
};

ThreadPtr make(char const * name, std::function<bool()> onLoop, std::function<void()> onStop = nullptr,
               std::function<bool()> onOpen = nullptr, std::function<void()> onClose = nullptr) {
    return ThreadPtr(
        new tavThread_(name, std::move(onLoop), std::move(onStop), std::move(onOpen), std::move(onClose)));
}

/// A thread that does nothing but go on; it ends within a millisecond or so after a stop.
ThreadPtr makeIdle(char const * name) {
    return make(name, [] {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return true;
    });
}

/// Starts the thread, lets its loop end by itself, and closes it.
void runOut(tavThread & thread) {
    thread.start();
    ASSERT_TRUE(eventually([&] { return thread.broken(); }));
    thread.close();
}

/// Runs `run` on a thread of the library named `name`, and waits for its end.
void runNamed(char const * name, std::function<void()> run) {
    bool done = false;
    ThreadPtr const thread = make(name, [&] {
        run();
        done = true;
        return false;
    });
    runOut(*thread);
    ASSERT_TRUE(done);
}

bool isDeadlock(std::system_error const & e) {
    return e.code() == std::errc::resource_deadlock_would_occur;
}

template <class A, class B>
constexpr bool same = std::is_same<A, B>::value;

using Do = void (tavThread::*)();
using Ask = bool (tavThread::*)() const;
using Tell = void (tavThread::*)() const;
using WaitFor = bool (tavThread::*)(int) const;
static_assert(same<decltype(&tavThread::on_loop), bool (tavThread::*)()> &&
                  same<decltype(&tavThread::on_stop), Do> &&
                  same<decltype(&tavThread::on_open), bool (tavThread::*)()> &&
                  same<decltype(&tavThread::on_close), Do>,
              "");
static_assert(same<decltype(&tavThread::start), Do> && same<decltype(&tavThread::stopRunning), Do> &&
                  same<decltype(&tavThread::close), Do> && same<decltype(&tavThread::detach), Do> &&
                  same<decltype(&tavThread::run_internally), Do>,
              "");
static_assert(same<decltype(&tavThread::running), Ask> && same<decltype(&tavThread::started), Ask> &&
                  same<decltype(&tavThread::broken), Ask> && same<decltype(&tavThread::loopRunning), Ask> &&
                  same<decltype(&tavThread::name), tav_istr (tavThread::*)() const> &&
                  same<decltype(&tavThread::id), std::string (tavThread::*)() const>,
              "");
static_assert(same<decltype(&tavThread::lock), Tell> && same<decltype(&tavThread::unlock), Tell> &&
                  same<decltype(&tavThread::wait), WaitFor> &&
                  same<decltype(&tavThread::waitInLock), WaitFor>,
              "");
static_assert(same<decltype(&tavThread::current), tavSharedPtr<tavThread> (*)()> &&
                  same<decltype(&tavThread::currentId), std::string (*)()> &&
                  same<decltype(&tavThread::currentName), tavString (*)()> &&
                  same<decltype(&tavThread::createThreadName), tavString (*)(tav_istr)> &&
                  same<decltype(&tavThread::getThreadId), std::string (*)(std::thread::id)> &&
                  same<decltype(&tavThread::getThreadName), tavString (*)(std::shared_ptr<std::thread>)> &&
                  same<decltype(&tavThread::setCurrentName), void (*)(char const *)> &&
                  same<decltype(&tavThread::printThreads), void (*)()> &&
                  same<decltype(&tavThread::finalize), void (*)()>,
              "");
static_assert(same<decltype(&tav_async_run),
                   std::shared_ptr<std::thread> (*)(std::function<void()>, std::string, int)> &&
                  same<decltype(&tav_async_call), void (*)(std::function<void()>, std::string, int)> &&
                  same<decltype(&tav_get_tid), unsigned (*)()> &&
                  same<decltype(&tav_get_pid), unsigned (*)()>,
              "");
static_assert(std::is_abstract<tavThread>::value && !std::is_convertible<char const *, Waiting>::value, "");

} // namespace

TEST(TavThread, IsCreatedUnstarted) {
    ThreadPtr const thread(new Waiting("made"));
    EXPECT_FALSE(thread->started());
    EXPECT_FALSE(thread->running());
    EXPECT_FALSE(thread->broken());
    EXPECT_FALSE(thread->loopRunning());
    EXPECT_EQ(thread->id(), "");
    EXPECT_TRUE(thread->name() == "made");
    EXPECT_EQ(text(*thread), "{made}");
}

TEST(TavThread, RunsUntilClosed) {
    std::promise<std::string> idInside;
    bool told = false;
    ThreadPtr const thread = make("work", [&] {
        if (!told) {
            told = true;
            idInside.set_value(tavThread::currentId());
        }
        std::this_thread::yield();
        return true;
    });
    thread->start();
    EXPECT_TRUE(thread->started());
    EXPECT_TRUE(thread->running());
    EXPECT_TRUE(thread->loopRunning());
    std::string const id = tav_test::got(idInside.get_future());
    EXPECT_EQ(id, thread->id());
    EXPECT_NE(tavThread::currentId(), id);
    EXPECT_EQ("{work." + id + "}", text(*thread));
    thread->close();
    EXPECT_TRUE(thread->started());
    EXPECT_FALSE(thread->running());
    EXPECT_TRUE(thread->broken());
    EXPECT_FALSE(thread->loopRunning());
}

TEST(TavThread, StartReturnsAfterOnOpen) {
    std::atomic<bool> opened{false};
    ThreadPtr const thread = make(
        "t", [] { return false; }, nullptr,
        [&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            opened = true;
            return true;
        });
    thread->start();
    EXPECT_TRUE(opened);
    thread->close();
}

TEST(TavThread, LogsItsLifeInOrder) {
    LogCapture log;
    std::string id;
    {
        ThreadPtr const thread = makeIdle("life");
        thread->start();
        id = thread->id();
        thread->close();
    }
    std::string const named = "{life." + id + "}\n";
    EXPECT_TRUE(
        log.inOrder({") thead init {life}\n", ") thead starting... {life}\n", ") starting thread {life}\n",
                     ") started thread " + named, ") thead closing... " + named,
                     ") thead break running " + named, ") thead on_stop " + named,
                     ") join thread begin...life\n", ") join thread end...life\n", ") thead fini " + named}));
    EXPECT_TRUE(log.inOrder({") starting thread {life}\n", ") enter thread " + named, ") thead run " + named,
                             ") thead started. " + named, ") thead closing... " + named}));
    EXPECT_TRUE(log.inOrder({") thead started. " + named, ") thead closed. " + named,
                             ") leave thread " + named, ") join thread end...life\n"}));
    EXPECT_TRUE(log.inOrder({") enter thread " + named, ") started thread " + named}));
    for (char const * all : {"thead init", "starting thread", "leave thread", "join thread begin..."}) {
        EXPECT_EQ(log.count(all), 1u) << all;
    }
}

TEST(TavThread, LogsWithLevelTagAndPosition) {
    LogCapture log;
    {
        ThreadPtr const thread = makeIdle("pos");
        thread->start();
        thread->close();
    }
    struct Row {
        char const * text;
        int level;
        char const * func;
    };
    for (Row const & row : {Row{"thead init ", tavLogger::DEBUG, "tavThread::tavThread("},
                            Row{"thead starting... ", tavLogger::INFO, "tavThread::start("},
                            Row{"starting thread {", tavLogger::DEBUG, "tav_async_run("},
                            Row{"started thread {", tavLogger::DEBUG, "tav_async_run("},
                            Row{"enter thread {", tavLogger::DEBUG, "tav_async_run_entry("},
                            Row{"leave thread {", tavLogger::DEBUG, "tav_async_run_entry("},
                            Row{"thead run ", tavLogger::DEBUG, "tavThread::run("},
                            Row{"thead started. ", tavLogger::INFO, "tavThread::onOpen("},
                            Row{"thead closed. ", tavLogger::INFO, "tavThread::onClose("},
                            Row{"thead break running ", tavLogger::DEBUG, "tavThread::stopRunning("},
                            Row{"thead closing... ", tavLogger::INFO, "tavThread::close("},
                            Row{"thead on_stop ", tavLogger::DEBUG, "tavThread::onStop("},
                            Row{"join thread begin...", tavLogger::DEBUG, "tavThreadImpl::close("},
                            Row{"join thread end...", tavLogger::DEBUG, "tavThreadImpl::close("},
                            Row{"thead fini ", tavLogger::DEBUG, "tavThread::~tavThread("}}) {
        LogCapture::Record const record = log.find(row.text);
        EXPECT_EQ(row.level, record.level) << row.text;
        EXPECT_NE(record.text.find(std::string("[TAV]") + row.func), std::string::npos) << record.text;
    }
}

TEST(TavThread, RefusedOpenEndsWithoutLoop) {
    std::atomic<int> loops{0};
    std::atomic<int> closes{0};
    ThreadPtr const thread = make(
        "no",
        [&] {
            ++loops;
            return true;
        },
        nullptr, [] { return false; }, [&] { ++closes; });
    thread->start();
    EXPECT_TRUE(thread->started());
    EXPECT_FALSE(thread->running());
    EXPECT_TRUE(eventually([&] { return thread->broken(); }));
    thread->close();
    EXPECT_EQ(loops, 0);
    EXPECT_EQ(closes, 1);
}

TEST(TavThread, RunningStaysWhenTheLoopEndsItself) {
    ThreadPtr const thread = make("self", [] { return false; });
    thread->start();
    EXPECT_TRUE(eventually([&] { return thread->broken(); }));
    EXPECT_TRUE(thread->running());
    EXPECT_FALSE(thread->loopRunning());
    thread->close();
    EXPECT_FALSE(thread->running());
}

TEST(TavThread, BrokenIsSetBeforeOnClose) {
    ThreadPtr thread;
    bool broken = false;
    thread = make(
        "b", [] { return false; }, nullptr, nullptr, [&] { broken = thread->broken(); });
    thread->start();
    thread->close();
    EXPECT_TRUE(broken);
}

TEST(TavThread, CallbacksRunOnTheThreadButOnStop) {
    std::vector<std::thread::id> ids;
    std::thread::id stopper;
    ThreadPtr const thread = make(
        "cb",
        [&] {
            ids.push_back(std::this_thread::get_id());
            return false;
        },
        [&] { stopper = std::this_thread::get_id(); },
        [&] {
            ids.push_back(std::this_thread::get_id());
            return true;
        },
        [&] { ids.push_back(std::this_thread::get_id()); });
    runOut(*thread);
    ASSERT_EQ(ids.size(), 3u);
    EXPECT_TRUE(ids[0] == ids[1] && ids[1] == ids[2]);
    EXPECT_NE(std::this_thread::get_id(), ids[0]);
    EXPECT_EQ(std::this_thread::get_id(), stopper);
}

TEST(TavThread, FlagsFollowItsLife) {
    ThreadPtr thread;
    std::vector<std::string> seen;
    auto const note = [&] {
        std::string flags;
        flags += thread->started() ? "S" : "-";
        flags += thread->running() ? "R" : "-";
        flags += thread->broken() ? "B" : "-";
        flags += thread->loopRunning() ? "L" : "-";
        seen.push_back(flags);
    };
    thread = make(
        "flags",
        [&] {
            note();
            thread->stopRunning();
            note();
            return true;
        },
        nullptr,
        [&] {
            note();
            return true;
        },
        note);
    runOut(*thread);
    EXPECT_EQ((std::vector<std::string>{"----", "SR-L", "S---", "S-B-"}), seen);
}

TEST(TavThread, ExceptionsOfOnOpenAndOnClosePassOut) {
    for (bool atOpen : {true, false}) {
        ThreadPtr const thread = make(
            "out", [] { return false; }, nullptr,
            [&] { return atOpen ? throw std::runtime_error("open") : true; },
            [] { throw std::runtime_error("close"); });
        try {
            thread->run_internally();
            ADD_FAILURE();
        } catch (std::runtime_error const & e) {
            EXPECT_STREQ(atOpen ? "open" : "close", e.what());
        }
        EXPECT_EQ(text(tavThread::currentName()), "main");
        EXPECT_FALSE(tavThread::current());
    }
}

TEST(TavThreadDeathTest, ExceptionOfOnOpenEndsTheProcess) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    ThreadPtr const thread =
        make("die", nullptr, nullptr, []() -> bool { throw std::runtime_error("in on_open"); });
    EXPECT_DEATH(thread->start(), "in on_open");
}

TEST(TavThread, ExceptionsDoNotEndTheLoop) {
    LogCapture log;
    int loops = 0;
    {
        ThreadPtr const thread = make("ex", [&]() -> bool {
            switch (++loops) {
            case 1: throw std::runtime_error("bad luck");
            case 2: throw 17;
            default: return false;
            }
        });
        runOut(*thread);
    }
    EXPECT_EQ(loops, 3);
    LogCapture::Record const first = log.find("<<< EXCEPTION >>> bad luck\n    catch at tavThread::onLoop(");
    EXPECT_EQ(first.level, tavLogger::ERROR);
    LogCapture::Record const second = log.find(") <<< EXCEPTION >>> unknown exception\n");
    EXPECT_EQ(second.level, tavLogger::ERROR);
    EXPECT_NE(second.text.find("[TAV]tavThread::onLoop("), std::string::npos);
}

TEST(TavThread, StopRunningEndsWithoutWaiting) {
    tavSharedPtr<Waiting> const thread(new Waiting("stop"));
    thread->start();
    thread->stopRunning();
    EXPECT_FALSE(thread->running());
    EXPECT_TRUE(eventually([&] { return thread->broken(); }));
    EXPECT_EQ(thread->stops, 0);
    thread->close();
    EXPECT_EQ(thread->stops, 1);
}

TEST(TavThread, NoStopIsLostAroundTheWait) {
    for (int i = 0; i < 300; ++i) {
        tavSharedPtr<Waiting> const thread(new Waiting("race"));
        thread->start();
        thread->close();
        ASSERT_TRUE(thread->broken());
    }
}

TEST(TavThread, StopDuringOnOpenIsNotLost) {
    std::promise<void> opening;
    std::promise<void> goOn;
    std::atomic<int> loops{0};
    ThreadPtr const thread = make(
        "early",
        [&] {
            ++loops;
            return true;
        },
        nullptr,
        [&] {
            opening.set_value();
            tav_test::await(goOn.get_future());
            return true;
        });
    std::thread starter([&] { thread->start(); });
    tav_test::await(opening.get_future());
    thread->stopRunning();
    goOn.set_value();
    starter.join();
    thread->close();
    EXPECT_EQ(loops, 0);
    EXPECT_TRUE(thread->started());
}

TEST(TavThread, CloseDuringStartJoins) {
    for (int i = 0; i < 100; ++i) {
        std::promise<void> opening;
        ThreadPtr const closed = make(
            "cs", [] { return true; }, nullptr,
            [&] {
                opening.set_value();
                return true;
            });
        std::thread starter([&] { closed->start(); });
        tav_test::await(opening.get_future());
        closed->close();
        EXPECT_TRUE(closed->broken());
        starter.join();
    }
}

TEST(TavThread, CloseWithoutStartOnlyCallsOnStop) {
    LogCapture log;
    tavSharedPtr<Waiting> thread(new Waiting("never"));
    thread->close();
    EXPECT_EQ(thread->stops, 1);
    EXPECT_FALSE(thread->started());
    EXPECT_TRUE(
        log.inOrder({"thead closing... {never}", "thead break running {never}", "thead on_stop {never}"}));
    EXPECT_EQ(log.count("join thread"), 0u);
    thread.reset();
    EXPECT_EQ(log.count("thead fini {never}"), 1u);
}

TEST(TavThread, StopBeforeTheStartDoesNotCount) {
    std::promise<void> looped;
    int loops = 0;
    ThreadPtr const thread = make("later", [&] {
        if (++loops == 1) {
            looped.set_value();
        }
        return true;
    });
    thread->stopRunning();
    thread->start();
    tav_test::await(looped.get_future());
    EXPECT_TRUE(thread->running());
    thread->close();
}

TEST(TavThread, SecondCloseCallsOnStopAgainAndJoinsNothing) {
    LogCapture log;
    {
        tavSharedPtr<Waiting> const thread(new Waiting("twice"));
        thread->start();
        thread->close();
        thread->close();
        EXPECT_EQ(thread->stops, 2);
    }
    EXPECT_EQ(log.count("thead closing... "), 2u);
    EXPECT_EQ(log.count("join thread begin...twice"), 1u);
    EXPECT_EQ(log.count("join thread end...twice"), 1u);
}

TEST(TavThread, OfTwoClosersOneJoinsAndBothReturnAfterTheEnd) {
    for (int round = 0; round < 50; ++round) {
        std::promise<void> goOn;
        std::shared_future<void> const gone = goOn.get_future().share();
        std::atomic<bool> closed{false};
        ThreadPtr const thread = make(
            "both", [] { return true; }, nullptr, nullptr,
            [&] {
                tav_test::await(gone);
                closed = true;
            });
        thread->start();
        std::atomic<int> early{0};
        auto const close = [&] {
            thread->close();
            early += closed ? 0 : 1;
        };
        std::thread a(close);
        std::thread b(close);
        ASSERT_TRUE(eventually([&] { return thread->broken(); }));
        goOn.set_value();
        a.join();
        b.join();
        ASSERT_EQ(early, 0);
    }
}

TEST(TavThread, CloseFromItsOwnLoopIsADeadlockError) {
    std::promise<bool> result;
    ThreadPtr thread;
    thread = make("own", [&] {
        try {
            thread->close();
            result.set_value(false);
        } catch (std::system_error const & e) {
            result.set_value(isDeadlock(e));
        }
        return true;
    });
    thread->start();
    EXPECT_TRUE(tav_test::got(result.get_future()));
    EXPECT_TRUE(eventually([&] { return thread->broken(); }));
    thread->close();
}

TEST(TavThread, CloseFromItsOwnOnOpenIsADeadlockError) {
    std::promise<bool> result;
    ThreadPtr thread;
    thread = make(
        "own", [] { return true; }, nullptr,
        [&] {
            try {
                thread->close();
                result.set_value(false);
            } catch (std::system_error const & e) {
                result.set_value(isDeadlock(e));
            }
            return true;
        });
    thread->start();
    EXPECT_TRUE(tav_test::got(result.get_future()));
    thread->close();
}

TEST(TavThread, CloseFromItsOwnBodyWhileAnotherJoinsIsADeadlockErrorToo) {
    LogCapture log;
    {
        std::promise<bool> result;
        ThreadPtr thread;
        thread = make(
            "own", [] { return true; }, nullptr, nullptr,
            [&] {
                log.waitFor("join thread begin...own");
                try {
                    thread->close();
                    result.set_value(false);
                } catch (std::system_error const & e) {
                    result.set_value(isDeadlock(e));
                }
            });
        thread->start();
        thread->close();
        EXPECT_TRUE(tav_test::got(result.get_future()));
    }
    EXPECT_EQ(log.count("join thread end...own"), 1u);
}

TEST(TavThread, DetachedThreadEndsByItselfAndKeepsItself) {
    LogCapture log;
    std::string id;
    {
        ThreadPtr const thread = makeIdle("free");
        thread->start();
        id = thread->id();
        thread->detach();
        thread->close();
        EXPECT_EQ(log.count("join thread"), 0u);
    }
    EXPECT_TRUE(log.waitFor("thead fini {free." + id + "}"));
    LogCapture::Record const record = log.find(") thead detach {free." + id + "}\n");
    EXPECT_EQ(record.level, tavLogger::INFO);
    EXPECT_NE(record.text.find("[TAV]tavThread::detach("), std::string::npos);
}

TEST(TavThread, DetachOfAnUnstartedThreadOnlyLogs) {
    LogCapture log;
    ThreadPtr(new Waiting("none"))->detach();
    EXPECT_EQ(log.count("thead detach {none}"), 1u);
}

TEST(TavThread, DroppedWithoutCloseItRunsOut) {
    LogCapture log;
    make("drop", [] { return false; })->start();
    EXPECT_TRUE(log.waitFor("thead fini {drop."));
    EXPECT_EQ(log.count("join thread"), 0u);
}

TEST(TavThread, KeepsItselfAliveWhileItRuns) {
    LogCapture log;
    std::promise<void> goOn;
    {
        ThreadPtr const thread = make("kept", [&] {
            tav_test::await(goOn.get_future());
            return false;
        });
        thread->start();
    }
    EXPECT_EQ(log.count("thead fini"), 0u);
    goOn.set_value();
    EXPECT_TRUE(log.waitFor("thead fini {kept."));
    EXPECT_TRUE(log.inOrder({"thead closed. ", "thead fini "}));
}

TEST(TavThread, RunInternallyUsesTheCallersThread) {
    LogCapture log;
    std::thread::id where;
    std::string name;
    {
        ThreadPtr const thread = make("inner", [&] {
            where = std::this_thread::get_id();
            name = text(tavThread::currentName());
            return false;
        });
        char before[16] = {};
        pthread_getname_np(pthread_self(), before, sizeof before);
        thread->run_internally();
        pthread_setname_np(pthread_self(), before);
        EXPECT_EQ(tavThread::currentId(), thread->id());
        EXPECT_TRUE(thread->broken());
        thread->close();
    }
    EXPECT_EQ(std::this_thread::get_id(), where);
    EXPECT_EQ(name, "inner");
    EXPECT_EQ(text(tavThread::currentName()), "main");
    EXPECT_EQ(log.count("starting thread"), 0u);
    EXPECT_EQ(log.count("join thread"), 0u);
    EXPECT_TRUE(log.inOrder({"thead run {inner.", "thead started. {inner.", "thead closed. {inner."}));
}

TEST(TavThread, UnregisteredThreadIsMain) {
    EXPECT_EQ(text(tavThread::currentName()), "main");
    EXPECT_EQ(text(tavThread::createThreadName("x")), "x");
    EXPECT_FALSE(tavThread::current());
    std::thread([] { EXPECT_EQ(text(tavThread::currentName()), "main"); }).join();
}

TEST(TavThread, NamesShowTheirCreators) {
    runNamed("net", [] {
        EXPECT_EQ(text(tavThread::currentName()), "net");
        EXPECT_EQ(text(tavThread::createThreadName("x")), "net.x");
        runNamed("work", [] {
            EXPECT_EQ(text(tavThread::currentName()), "net.work");
            EXPECT_TRUE(tavThread::current()->name() == "net.work");
        });
        EXPECT_EQ(text(tavThread::currentName()), "net");
    });
}

TEST(TavThread, CurrentIsTheRunningObject) {
    ThreadPtr thread;
    std::promise<bool> same;
    thread = make("me", [&] {
        same.set_value(tavThread::current() == thread && tavThread::current().counted());
        return false;
    });
    thread->start();
    EXPECT_TRUE(tav_test::got(same.get_future()));
    thread->close();
}

TEST(TavThread, IsHeldWhileItIsRegistered) {
    ThreadPtr thread;
    unsigned inside = 0;
    thread = make("held", [&] {
        inside = thread->getRefCount();
        return false;
    });
    thread->run_internally();
    // This test, the run itself, and the table of the running threads.
    EXPECT_EQ(inside, 3u);
    EXPECT_EQ(thread->getRefCount(), 1u);
}

TEST(TavThread, RunInsideAnotherTakesItsPlaceAndLeavesNothing) {
    std::string inside;
    std::string after;
    runNamed("outer", [&] {
        ThreadPtr const inner = make("inner", [&] {
            inside = text(tavThread::currentName()) + text(*tavThread::current());
            return false;
        });
        inner->run_internally();
        inside += inner->id() == tavThread::currentId() ? "=" : "!";
        after = text(tavThread::currentName()) + (tavThread::current() ? "!" : ".");
        EXPECT_EQ("outer.inner{outer.inner." + inner->id() + "}=", inside);
    });
    EXPECT_EQ(after, "main.");
    LogCapture log;
    tavThread::printThreads();
    EXPECT_EQ(log.count("thread not closed"), 0u);
}

TEST(TavThread, IdsAreDecimalAndAgree) {
    std::ostringstream out;
    out << std::this_thread::get_id();
    EXPECT_EQ(out.str(), tavThread::currentId());
    EXPECT_EQ(out.str(), tavThread::getThreadId(std::this_thread::get_id()));
    EXPECT_EQ(tavThread::currentId().find_first_not_of("0123456789"), std::string::npos);
    EXPECT_EQ(tavThread::getThreadId(std::thread::id()), "0");
}

TEST(TavThread, GetThreadNameKnowsRegisteredThreads) {
    EXPECT_EQ(text(tavThread::getThreadName(nullptr)), "");
    auto const foreign = std::make_shared<std::thread>([] {});
    EXPECT_EQ(text(tavThread::getThreadName(foreign)), "");
    foreign->join();
    std::promise<void> goOn;
    std::shared_ptr<std::thread> const named =
        tav_async_run([&] { tav_test::await(goOn.get_future()); }, "known", 0);
    EXPECT_EQ(text(tavThread::getThreadName(named)), "known");
    goOn.set_value();
    named->join();
    EXPECT_EQ(text(tavThread::getThreadName(named)), "");
}

TEST(TavThread, DebuggerSeesFifteenBytes) {
    runNamed("a_name_of_twenty_two", [] {
        char name[32] = {};
        EXPECT_EQ(pthread_getname_np(pthread_self(), name, sizeof name), 0);
        EXPECT_STREQ(name, "a_name_of_twent");
        tavThread::setCurrentName("short");
        EXPECT_EQ(pthread_getname_np(pthread_self(), name, sizeof name), 0);
        EXPECT_STREQ(name, "short");
        tavThread::setCurrentName(nullptr);
        EXPECT_EQ(pthread_getname_np(pthread_self(), name, sizeof name), 0);
        EXPECT_STREQ(name, "short");
    });
}

TEST(TavThread, PrintThreadsListsWhoIsRegistered) {
    ThreadPtr const thread = makeIdle("listed");
    thread->start();
    std::promise<void> goOn;
    std::shared_ptr<std::thread> const bare =
        tav_async_run([&] { tav_test::await(goOn.get_future()); }, "bare", 0);
    {
        LogCapture log;
        tavThread::printThreads();
        LogCapture::Record const record = log.find(") thread not closed: " + thread->id() + ".listed\n");
        EXPECT_EQ(record.level, tavLogger::INFO);
        EXPECT_NE(record.text.find("[TAV]tavThreadManager::print("), std::string::npos);
        EXPECT_EQ(log.count(") thread not closed: " + tavThread::getThreadId(bare->get_id()) + ".bare\n"),
                  1u);
        EXPECT_EQ(log.count("thread not closed"), 2u);
    }
    goOn.set_value();
    bare->join();
    thread->close();
    LogCapture log;
    tavThread::printThreads();
    EXPECT_EQ(log.count("thread not closed"), 0u);
}

TEST(TavThread, FinalizeForgetsThreadsThatRunOn) {
    std::promise<void> finalized;
    std::promise<std::string> names;
    ThreadPtr const thread = make("gone", [&] {
        tav_test::await(finalized.get_future());
        names.set_value(text(tavThread::currentName()) + text(tavThread::createThreadName("x")) +
                        (tavThread::current() ? "!" : "."));
        return false;
    });
    thread->start();
    tavThread::finalize();
    tavThread::finalize();
    finalized.set_value();
    EXPECT_EQ(tav_test::got(names.get_future()), "mainx.");
    thread->close();
    LogCapture log;
    tavThread::printThreads();
    EXPECT_EQ(log.count("thread not closed"), 0u);
    runNamed("fresh", [] { EXPECT_EQ(text(tavThread::currentName()), "fresh"); });
}

TEST(TavThread, MonitorIsTheSubclassesOwn) {
    ThreadPtr const thread(new Waiting("mon"));
    EXPECT_FALSE(thread->wait(0));
    thread->lock();
    EXPECT_FALSE(thread->waitInLock(1));
    thread->unlock();
    void (tavThread::*const signals[])() const = {&tavThread::notify, &tavThread::notifyAll,
                                                  &tavThread::notifyInLock, &tavThread::notifyAllInLock};
    for (auto const signal : signals) {
        bool waiting = false;
        bool woken = false;
        std::thread other([&] {
            std::lock_guard<tavThread const> guard(*thread);
            waiting = true;
            while (waiting) {
                woken = thread->waitInLock(-1);
            }
        });
        ASSERT_TRUE(eventually([&] {
            std::lock_guard<tavThread const> guard(*thread);
            return waiting;
        }));
        {
            std::lock_guard<tavThread const> guard(*thread);
            waiting = false;
            ((*thread).*signal)();
        }
        other.join();
        EXPECT_TRUE(woken);
    }
}

TEST(TavThread, EmptyFunctionsMakeAThreadThatEndsAtOnce) {
    ThreadPtr const thread = make("empty", nullptr);
    thread->start();
    EXPECT_TRUE(eventually([&] { return thread->broken(); }));
    thread->close();
}

TEST(TavThread, BaseCallbacksOpenAndDoNothing) {
    struct Once : tavThread {
        Once() : tavThread("once") {}
        bool on_loop() override {
            ++loops;
            return false;
        }
        int loops = 0;
    };
    tavSharedPtr<Once> const thread(new Once);
    runOut(*thread);
    EXPECT_EQ(thread->loops, 1);
}

TEST(TavThread, ManyLiveAtOnce) {
    std::vector<ThreadPtr> threads;
    for (int i = 0; i < 16; ++i) {
        threads.push_back(ThreadPtr(new Waiting("many")));
        threads.back()->start();
    }
    for (ThreadPtr const & thread : threads) {
        thread->close();
        EXPECT_TRUE(thread->broken());
    }
}

TEST(TavThreadIds, AreTheSystems) {
    EXPECT_EQ(static_cast<unsigned>(::getpid()), tav_get_pid());
    EXPECT_EQ(static_cast<unsigned>(::getpid()), tav_get_tid());
    std::thread([] {
        EXPECT_NE(tav_get_pid(), tav_get_tid());
        EXPECT_EQ(static_cast<unsigned>(::syscall(SYS_gettid)), tav_get_tid());
    }).join();
}

TEST(TavThreadIds, FollowAFork) {
    unsigned const before = tav_get_pid();
    int ends[2] = {};
    ASSERT_EQ(::pipe(ends), 0);
    pid_t const child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        unsigned const ids[] = {tav_get_pid(), tav_get_tid()};
        ::_exit(::write(ends[1], ids, sizeof ids) == sizeof ids ? 0 : 1);
    }
    ::close(ends[1]);
    unsigned ids[2] = {};
    EXPECT_EQ(static_cast<ssize_t>(sizeof ids), ::read(ends[0], ids, sizeof ids));
    ::close(ends[0]);
    int status = -1;
    EXPECT_EQ(child, ::waitpid(child, &status, 0));
    EXPECT_EQ(status, 0);
    EXPECT_EQ(ids[0], static_cast<unsigned>(child));
    EXPECT_EQ(ids[1], static_cast<unsigned>(child));
    EXPECT_NE(before, ids[0]);
}
