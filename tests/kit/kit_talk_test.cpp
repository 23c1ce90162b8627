#include "tav/kit/talk.h"

#include "support/bounded.h"
#include "support/log_capture.h"
#include "support/talk_rig.h"
#include "tav/kit/message.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <future>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono_literals;
using namespace tav_test;

enum class Mood { good = 1 };
/// Reads no reply whose number is not registered.
struct Picky : kit::message<Picky> {
    static constexpr char const * type_name = "Picky";
    static constexpr unsigned short type_code = 0x1235;
    tavEnum<Mood> mood;
    void traverse(tavCodecStream & s) override { ioField(s, 1, "number", mood); }
};

struct Raising : kit::message<Raising> {
    static constexpr char const * type_name = "Raising";
    static constexpr unsigned short type_code = 0x1236;
    void traverse(tavCodecStream &) override { throw std::runtime_error("no fields today"); }
};

/// A callback that counts its calls and keeps what it was given.
class Ends {
public:
    auto taker() {
        return [this](kit::result<Said> v) {
            events.add(textOfResult(v) + (v ? " " + std::to_string(v->number) : std::string()));
            threads.add(threadName());
        };
    }
    Events events;
    Events threads;
};

/// A thread that runs tasks in order, and counts them.
class Loop {
public:
    Loop() : thread_([this] { run(); }) {}
    ~Loop() {
        put(nullptr);
        thread_.join();
    }
    Loop(Loop const &) = delete;
    Loop & operator=(Loop const &) = delete;

    void put(std::function<void()> task) {
        std::lock_guard<std::mutex> const guard(mutex_);
        tasks_.push_back(std::move(task));
        changed_.notify_one();
    }
    kit::executor executor() {
        return [this](std::function<void()> task) { put(std::move(task)); };
    }
    std::thread::id id() const { return thread_.get_id(); }

private:
    void run() {
        for (;;) {
            std::function<void()> task;
            {
                std::unique_lock<std::mutex> guard(mutex_);
                changed_.wait(guard, [this] { return !tasks_.empty(); });
                task = std::move(tasks_.front());
                tasks_.pop_front();
            }
            if (!task) {
                return;
            }
            task();
        }
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::function<void()>> tasks_;
    std::thread thread_;
};

} // namespace

TEST(KitTalk, FutureHoldsTheReply) {
    TalkRig rig;
    Say say(7);
    say.text = "hello";
    kit::result<Said> const reply = got(kit::request<Said>(*rig.client, say, 5s));
    ASSERT_TRUE(reply) << reply.error().message();
    EXPECT_EQ(reply->number, 7);
    EXPECT_EQ(reply->text, tavString("hello"));
    EXPECT_NE(reply->sno, 0u);
    EXPECT_FALSE(reply.error());
}

TEST(KitTalk, ReplyMayBeOfAClassByHand) {
    TalkRig rig;
    kit::result<Answer> const reply = got(kit::request<Answer>(*rig.client, Ask(8), 5s));
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->number, 8);
}

TEST(KitTalk, CallbackGetsTheReplyOnTheReceiver) {
    Ends ends;
    TalkRig rig;
    kit::request<Said>(*rig.client, Say(9), 5s, ends.taker());
    ASSERT_TRUE(ends.threads.wait(1));
    EXPECT_EQ(ends.events.all(), std::vector<std::string>{"ok 9"});
    EXPECT_NE(ends.threads.all()[0].find("receiver"), std::string::npos) << ends.threads.all()[0];
}

TEST(KitTalk, CallbackMayBeOfATypeThatOnlyMoves) {
    TalkRig rig;
    std::promise<int> promise;
    std::future<int> number = promise.get_future();
    kit::request<Said>(*rig.client, Say(10), 5s, [own = std::move(promise)](kit::result<Said> v) mutable {
        own.set_value(v ? v->number : -1);
    });
    EXPECT_EQ(got(std::move(number)), 10);
}

TEST(KitTalk, NoReplyInTimeIsTimedOutAndComesInTime) {
    TalkRig rig(neverAnswering());
    auto const begin = std::chrono::steady_clock::now();
    kit::result<Said> const reply = got(kit::request<Said>(*rig.client, Say(1), 200ms));
    EXPECT_EQ(reply.error(), kit::failure::timed_out);
    EXPECT_EQ(reply.error(), std::errc::timed_out);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 150ms);
}

TEST(KitTalk, NoTimeAtAllSendsNothing) {
    TalkRig rig;
    for (auto const limit : {0ms, -5ms}) {
        EXPECT_EQ(got(kit::request<Said>(*rig.client, Say(1), limit)).error(), kit::failure::timed_out);
    }
    EXPECT_TRUE(got(kit::request<Said>(*rig.client, Say(1), 5s)));
    EXPECT_EQ(rig.gateway.gateway.stats().packets, 1u);
}

TEST(KitTalk, TermsRoundUpAndStayInRange) {
    EXPECT_EQ(kit::within(1us).limit_ms(), 1);
    EXPECT_EQ(kit::within(1500us).limit_ms(), 2);
    EXPECT_EQ(kit::within(2min).limit_ms(), 120000);
    EXPECT_EQ(kit::within(std::chrono::hours::max()).limit_ms(), std::numeric_limits<int>::max() - 5);
    EXPECT_EQ(kit::within(std::chrono::duration<float>(-1.0f)).limit_ms(), 0);
}

TEST(KitTalk, TermsReachThePacket) {
    ClientRig rig;
    rig.connect();
    auto reply = kit::request<Said>(rig.client, Say(3), kit::within(5s).grey(true).version(6));
    Pkt const sent = rig.receive();
    EXPECT_TRUE(sent.grey);
    EXPECT_EQ(sent.version, 6);
    Pkt answer = mobile(Said::type_code, sent.sno);
    answer.ext.traceId = tavString("trace");
    answer.version = 6;
    rig.server->send(answer.framed());
    kit::result<Said> const got_reply = got(std::move(reply));
    ASSERT_TRUE(got_reply);
    EXPECT_EQ(got_reply->number, 5);
    EXPECT_EQ(got_reply->sno, sent.sno);
    EXPECT_EQ(got_reply->ext.traceId.value(), tavString("trace"));
}

TEST(KitTalk, RefusedSendEndsOnTheCallersThread) {
    tls::client client("kit");
    Ends ends;
    kit::request<Said>(client, Say(1), 5s, ends.taker());
    EXPECT_EQ(ends.events.all(), std::vector<std::string>{"not connected"});
    EXPECT_EQ(ends.threads.all(), std::vector<std::string>{threadName()});
    EXPECT_EQ(got(kit::request<Said>(client, Say(1), 5s)).error(), kit::failure::not_connected);
}

TEST(KitTalk, MessageThatCanNotBeEncodedIsNotSent) {
    TalkRig rig;
    EXPECT_EQ(got(kit::request<Said>(*rig.client, Raising(), 5s)).error(), kit::failure::not_sent);
    EXPECT_TRUE(got(kit::request<Said>(*rig.client, Say(1), 5s)));
}

TEST(KitTalk, ReplyThatCanNotBeReadIsABadReply) {
    tavEnum<Mood>::add(Mood::good, "good");
    TalkRig rig;
    EXPECT_EQ(got(kit::request<Picky>(*rig.client, Say(7), 5s)).error(), kit::failure::bad_reply);
    EXPECT_TRUE(got(kit::request<Picky>(*rig.client, Say(1), 5s)));
}

TEST(KitTalk, CancelEndsItOnceOnTheCancellersThread) {
    Ends ends;
    TalkRig rig(neverAnswering());
    kit::pending const request = kit::request<Said>(*rig.client, Say(1), 1s, ends.taker());
    request.cancel();
    request.cancel();
    EXPECT_EQ(ends.events.all(), std::vector<std::string>{"cancelled"});
    EXPECT_EQ(ends.threads.all(), std::vector<std::string>{threadName()});
    // Behind a later request's time-out the first one's would have come as well.
    EXPECT_EQ(got(kit::request<Said>(*rig.client, Say(2), 1500ms)).error(), kit::failure::timed_out);
    EXPECT_EQ(ends.events.count(), 1u);
}

TEST(KitTalk, PendingThatGoesDoesNotCancel) {
    Ends ends;
    TalkRig rig;
    { kit::pending const request = kit::request<Said>(*rig.client, Say(4), 5s, ends.taker()); }
    kit::pending().cancel();
    ASSERT_TRUE(ends.events.wait(1));
    EXPECT_EQ(ends.events.all(), std::vector<std::string>{"ok 4"});
}

TEST(KitTalk, CancellationEndsAllThatWereMadeWithIt) {
    Ends ends;
    TalkRig rig(neverAnswering());
    kit::cancellation stop;
    auto future = kit::request<Said>(*rig.client, Say(1), kit::within(10s).unless(stop));
    kit::request<Said>(*rig.client, Say(1), kit::within(10s).unless(stop), ends.taker());
    EXPECT_FALSE(stop.cancelled());
    stop.cancel();
    EXPECT_TRUE(stop.cancelled());
    EXPECT_EQ(got(std::move(future)).error(), kit::failure::cancelled);
    EXPECT_EQ(ends.events.all(), std::vector<std::string>{"cancelled"});

    kit::request<Said>(*rig.client, Say(1), kit::within(10s).unless(stop), ends.taker());
    EXPECT_EQ(ends.events.count("cancelled"), 2u);
    // The last one was not sent: the next message is the third that the gateway sees.
    rig.client->send_nbr_msg(0x4000, nullptr, 0, tls::send_option());
    EXPECT_TRUE(rig.gateway.gateway.wait(
        [](tav::gateway::Stats const & stats) { return stats.last_code == 0x4000; }));
    EXPECT_EQ(rig.gateway.gateway.stats().packets, 3u);
}

TEST(KitTalk, CancellationThatGoesCancels) {
    Ends ends;
    TalkRig rig(neverAnswering());
    {
        kit::cancellation const stop;
        kit::request<Said>(*rig.client, Say(1), kit::within(10s).unless(stop), ends.taker());
        EXPECT_EQ(ends.events.count(), 0u);
    }
    EXPECT_EQ(ends.events.all(), std::vector<std::string>{"cancelled"});
}

TEST(KitTalk, CancellationOfWhatHasEndedDoesNothing) {
    Ends ends;
    TalkRig rig;
    kit::cancellation stop;
    kit::request<Said>(*rig.client, Say(4), kit::within(5s).unless(stop), ends.taker());
    ASSERT_TRUE(ends.events.wait(1));
    stop.cancel();
    EXPECT_EQ(ends.events.all(), std::vector<std::string>{"ok 4"});
}

TEST(KitTalk, CloseEndsEachRequestOnce) {
    Ends ends;
    TalkRig rig(neverAnswering());
    for (int i = 0; i < 100; ++i) {
        kit::request<Said>(*rig.client, Say(i), 10s, ends.taker());
    }
    rig.client->close();
    ASSERT_TRUE(ends.events.wait(100));
    rig.client.reset();
    EXPECT_EQ(ends.events.count("the connection ended first"), 100u);
    EXPECT_EQ(ends.events.count(), 100u);
}

TEST(KitTalk, CancelAllEndsRequests) {
    TalkRig rig(neverAnswering());
    auto future = kit::request<Said>(*rig.client, Say(1), 10s);
    rig.client->cancel_all();
    EXPECT_EQ(got(std::move(future)).error(), kit::failure::disconnected);
}

TEST(KitTalk, EndOfTheClientEndsEachRequestOnce) {
    Ends ends;
    TalkRig rig(neverAnswering());
    std::vector<std::future<kit::result<Said>>> futures;
    for (int i = 0; i < 50; ++i) {
        kit::request<Said>(*rig.client, Say(i), 10s, ends.taker());
        futures.push_back(kit::request<Said>(*rig.client, Say(i), 10s));
    }
    rig.client.reset();
    for (auto & future : futures) {
        EXPECT_EQ(got(std::move(future)).error(), kit::failure::disconnected);
    }
    EXPECT_TRUE(ends.events.wait(50));
    EXPECT_EQ(ends.events.count("the connection ended first"), 50u);
    EXPECT_EQ(ends.events.count(), 50u);
}

TEST(KitTalk, DestroyedClientEndsItsRequests) {
    GatewayRig gateway(neverAnswering());
    tls::client & client = tls::client::instance("kit destroyed");
    ASSERT_EQ(resultOf(client.start(gateway.option())), tls::result_ok);
    auto future = kit::request<Said>(client, Say(1), 10s);
    ASSERT_TRUE(tls::client::destroy("kit destroyed"));
    EXPECT_EQ(got(std::move(future)).error(), kit::failure::disconnected);
}

TEST(KitTalk, BrokenConnectionEndsEachRequestOnce) {
    for (bool const reset : {false, true}) {
        Ends ends;
        TalkRig rig(neverAnswering());
        for (int i = 0; i < 20; ++i) {
            kit::request<Said>(*rig.client, Say(i), 10s, ends.taker());
        }
        ASSERT_TRUE(
            rig.gateway.gateway.wait([](tav::gateway::Stats const & s) { return s.packets >= 20; }, 5000));
        rig.gateway.gateway.drop(reset);
        ASSERT_TRUE(ends.events.wait(20));
        EXPECT_EQ(ends.events.count("the connection ended first"), 20u);
        EXPECT_EQ(got(kit::request<Said>(*rig.client, Say(1), 1s)).error(), kit::failure::not_connected);
        EXPECT_EQ(ends.events.count(), 20u);
    }
}

TEST(KitTalk, CallbackThatRaisesEndsOnceAndHurtsNobody) {
    std::atomic<int> calls{0};
    LogCapture log("TAV.KIT(ERROR)");
    TalkRig rig;
    kit::request<Said>(*rig.client, Say(1), 300ms, [&](kit::result<Said>) {
        ++calls;
        throw std::runtime_error("callback");
    });
    kit::request<Said>(*rig.client, Say(1), 300ms, [&](kit::result<Said>) {
        ++calls;
        throw 5;
    });
    EXPECT_TRUE(got(kit::request<Said>(*rig.client, Say(2), 5s)));
    rig.gateway.gateway.setFaults(neverAnswering().faults);
    EXPECT_EQ(got(kit::request<Said>(*rig.client, Say(3), 800ms)).error(), kit::failure::timed_out);
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(log.count("raised by a callback: callback\n"), 1u);
    EXPECT_EQ(log.count("raised by a callback: of an unknown type\n"), 1u);
}

TEST(KitTalk, SlowCallbackIsNeverToldATimeOutToo) {
    std::vector<std::string> told{"timed out"};
    // Where the answer itself comes too late, another one is waited for longer.
    for (auto limit = 200ms; limit < 10s && told.front() == "timed out"; limit *= 3) {
        Events ends;
        TalkRig rig;
        kit::request<Said>(*rig.client, Say(1), limit, [&](kit::result<Said> v) {
            ends.add(textOfResult(v));
            std::promise<void> never;
            never.get_future().wait_for(2 * limit);
        });
        ASSERT_TRUE(ends.wait(1));
        EXPECT_TRUE(got(kit::request<Said>(*rig.client, Say(2), 30s)));
        told = ends.all();
    }
    EXPECT_EQ(told, std::vector<std::string>{"ok"});
}

TEST(KitTalk, CallbackMaySendTheNextRequest) {
    Events ends;
    TalkRig rig;
    std::function<void(int)> ask = [&](int left) {
        kit::request<Said>(*rig.client, Say(left), 5s, [&, left](kit::result<Said> v) {
            if (v && left > 0) {
                ask(left - 1);
            } else {
                ends.add(textOfResult(v));
            }
        });
    };
    ask(50);
    ASSERT_TRUE(ends.wait(1));
    EXPECT_EQ(ends.all(), std::vector<std::string>{"ok"});
}

TEST(KitTalk, ExecutorRunsTheCallbackForEachKindOfEnd) {
    Loop loop;
    std::mutex mutex;
    std::vector<std::string> ends;
    Events done;
    TalkRig rig;
    auto const taker = [&](kit::result<Said> v) {
        EXPECT_EQ(std::this_thread::get_id(), loop.id());
        std::lock_guard<std::mutex> const guard(mutex);
        ends.push_back(textOfResult(v));
        done.add("done");
    };
    kit::within const terms = kit::within(5s).on(loop.executor());
    kit::request<Said>(*rig.client, Say(1), terms, taker);
    ASSERT_TRUE(done.wait(1));
    rig.gateway.gateway.setFaults(neverAnswering().faults);
    kit::request<Said>(*rig.client, Say(1), kit::within(100ms).on(loop.executor()), taker);
    ASSERT_TRUE(done.wait(2));
    kit::request<Said>(*rig.client, Say(1), terms, taker).cancel();
    ASSERT_TRUE(done.wait(3));
    kit::request<Said>(*rig.client, Say(1), terms, taker);
    rig.client->close();
    ASSERT_TRUE(done.wait(4));
    ASSERT_TRUE(eventually([&] { return !rig.client->connected(); }));
    kit::request<Said>(*rig.client, Say(1), terms, taker);
    ASSERT_TRUE(done.wait(5));
    std::lock_guard<std::mutex> const guard(mutex);
    EXPECT_EQ(ends, (std::vector<std::string>{"ok", "timed out", "cancelled", "the connection ended first",
                                              "not connected"}));
}

TEST(KitTalk, ExecutorThatRefusesOrDropsLosesNothing) {
    Ends ends;
    TalkRig rig;
    kit::executor const refuses = [](std::function<void()>) { throw std::runtime_error("closed"); };
    kit::executor const drops = [](std::function<void()>) {};
    kit::executor const twice = [](std::function<void()> task) {
        task();
        task();
    };
    kit::request<Said>(*rig.client, Say(1), kit::within(5s).on(refuses), ends.taker());
    ASSERT_TRUE(ends.events.wait(1));
    kit::request<Said>(*rig.client, Say(2), kit::within(5s).on(drops), ends.taker());
    ASSERT_TRUE(ends.events.wait(2));
    kit::request<Said>(*rig.client, Say(3), kit::within(5s).on(twice), ends.taker());
    ASSERT_TRUE(ends.events.wait(3));
    EXPECT_TRUE(got(kit::request<Said>(*rig.client, Say(4), 5s)));
    EXPECT_EQ(ends.events.all(), (std::vector<std::string>{"ok 1", "ok 2", "ok 3"}));
}

TEST(KitTalk, CallbackIsLetGoAfterTheEnd) {
    std::promise<void> done;
    TalkRig rig;
    auto const held = std::make_shared<int>(5);
    kit::request<Said>(*rig.client, Say(1), 5s, [held, &done](kit::result<Said>) { done.set_value(); });
    await(done.get_future());
    EXPECT_TRUE(eventually([&] { return held.use_count() == 1; }));
}

TEST(KitTalk, OwnTokenDecidesWhatARequestReturns) {
    struct Flag {
        std::shared_ptr<std::atomic<int>> ended = std::make_shared<std::atomic<int>>(0);
        void operator()(kit::result<Said> const & v) const { *ended = v ? v->number : -1; }
    };
    TalkRig rig;
    Flag const flag;
    static_assert(
        std::is_same<decltype(kit::request<Said>(*rig.client, Say(), 5s, flag)), kit::pending>::value,
        "a function gives a handle");
    kit::request<Said>(*rig.client, Say(6), 5s, flag);
    EXPECT_TRUE(eventually([&] { return *flag.ended == 6; }));
}

TEST(KitTalk, OnRegistersAndCastsOnce) {
    Events heard;
    TalkRig rig;
    kit::on<Say>(*rig.client, [&](Say const & say) {
        heard.add(std::string(tav_istr(say.text)) + " #" + std::to_string(say.sno) + " on " + threadName());
    });
    Say push;
    push.text = "hello";
    rig.gateway.gateway.push(Say::type_code, std::string(tav_istr(push.encode(true))), true);
    ASSERT_TRUE(heard.wait(1));
    EXPECT_EQ(heard.all()[0].find("hello #"), 0u) << heard.all()[0];
    EXPECT_NE(heard.all()[0].find("receiver"), std::string::npos) << heard.all()[0];
    EXPECT_TRUE(
        rig.gateway.gateway.wait([](tav::gateway::Stats const & s) { return s.receipts_good == 1; }, 5000));
}

TEST(KitTalk, OnMayKeepTheMessageAndChooseTheThread) {
    Loop loop;
    std::promise<tavSharedPtr<Say>> kept;
    TalkRig rig;
    kit::on<Say>(
        *rig.client,
        [&](tavSharedPtr<Say> say) {
            EXPECT_EQ(std::this_thread::get_id(), loop.id());
            kept.set_value(std::move(say));
        },
        loop.executor());
    rig.gateway.gateway.push(Say::type_code, std::string(tav_istr(Say(12).encode(true))), false);
    EXPECT_EQ(got(kept.get_future())->number, 12);
}

TEST(KitTalk, OnIsNotHurtByAnotherClassOfTheCode) {
    Events heard;
    LogCapture log("TAV.KIT(ERROR)");
    TalkRig rig;
    kit::on<Say>(*rig.client, [&](Say const & say) { heard.add(std::to_string(say.number)); });
    rig.client->register_message(Say::type_code, &Ask::create);
    rig.gateway.gateway.push(Say::type_code, bodyOf(1), false);
    kit::on<Said>(*rig.client, [&](Said const & said) { heard.add("said " + std::to_string(said.number)); });
    rig.gateway.gateway.push(Said::type_code, bodyOf(2), false);
    ASSERT_TRUE(heard.wait(1));
    EXPECT_EQ(heard.all(), std::vector<std::string>{"said 2"});
    EXPECT_TRUE(log.contains("another class was registered for the code since\n"));
}

TEST(KitTalk, ReplyThatARequestWaitsForIsNoPush) {
    Events heard;
    TalkRig rig;
    kit::on<Said>(*rig.client, [&](Said const &) { heard.add("push"); });
    EXPECT_TRUE(got(kit::request<Said>(*rig.client, Say(1), 5s)));
    EXPECT_EQ(heard.count(), 0u);
}

TEST(KitTalk, SendTellsWhetherThereIsAConnection) {
    TalkRig rig;
    EXPECT_TRUE(kit::send(*rig.client, Say(1)));
    EXPECT_TRUE(rig.gateway.gateway.wait([](tav::gateway::Stats const & s) { return s.packets == 1; }, 5000));
    tls::client idle("idle");
    EXPECT_EQ(kit::send(idle, Say(1)).error(), kit::failure::not_connected);
}

TEST(KitTalk, SendWithTermsWaitsForTheConfirmation) {
    tav::gateway::Options echo;
    echo.echo = true;
    Events ends;
    TalkRig rig(echo);
    EXPECT_TRUE(got(kit::send(*rig.client, Say(1), 5s)));
    kit::send(*rig.client, Say(1), 5s, [&](kit::result<void> v) { ends.add(textOfResult(v)); });
    ASSERT_TRUE(ends.wait(1));
    rig.gateway.gateway.setFaults(neverAnswering().faults);
    EXPECT_EQ(got(kit::send(*rig.client, Say(1), 200ms)).error(), kit::failure::timed_out);
    EXPECT_EQ(ends.all(), std::vector<std::string>{"ok"});
}

TEST(KitTalk, ReceiptConfirmsASend) {
    ClientRig rig;
    rig.connect();
    auto confirmed = kit::send(rig.client, Say(3), 5s);
    Pkt receipt = rig.receive();
    receipt.affirm = 0x30;
    receipt.body.clear();
    rig.server->send(receipt.framed());
    EXPECT_TRUE(got(std::move(confirmed)));
}

// What threads do to one request at once: of a reply, a cancellation, a time-out and a close one comes first.
TEST(KitTalk, OneEndIsToldOutOfMany) {
    std::atomic<int> ends{0};
    TalkRig rig;
    constexpr int requests = 400;
    std::vector<std::unique_ptr<std::atomic<int>>> each;
    for (int i = 0; i < requests; ++i) {
        each.push_back(std::make_unique<std::atomic<int>>(0));
    }
    kit::cancellation stop;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = t; i < requests; i += 4) {
                kit::pending const one = kit::request<Said>(
                    *rig.client, Say(i), kit::within(std::chrono::milliseconds(1 + i % 7)).unless(stop),
                    [&, i](kit::result<Said>) {
                        ++*each[static_cast<std::size_t>(i)];
                        ++ends;
                    });
                if (i % 3 == 0) {
                    one.cancel();
                }
                if (i == requests / 2) {
                    rig.gateway.gateway.drop(true);
                }
                if (i == requests * 3 / 4) {
                    stop.cancel();
                }
            }
        });
    }
    for (std::thread & thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(eventually([&] { return ends == requests; }));
    rig.client.reset();
    for (auto const & one : each) {
        EXPECT_EQ(*one, 1);
    }
}
