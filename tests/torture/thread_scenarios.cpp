#include "tav/vinta/vinta_mt_thread.h"
#include "torture/scenarios.h"

#include <atomic>
#include <memory>
#include <string>
#include <thread>

namespace tav_test {
namespace torture {
namespace {

/// Ends a thread, however far it came, with all memory there is.
template <class Thread>
class Ended {
public:
    explicit Ended(Thread & thread) : thread_(thread) {}
    ~Ended() {
        Spared const spared;
        thread_.close();
    }
    Ended(Ended const &) = delete;
    Ended & operator=(Ended const &) = delete;

private:
    Thread & thread_;
};

void threadLife() {
    std::atomic<int> loops{0};
    tavSharedPtr<tavThread> const thread(new tavThread_(
        "a thread with a name that is long", [&loops] { return ++loops < 3; }, [] {}, [] { return true; },
        [] {}));
    Ended<tavThread> const ended(*thread);
    thread->start();
    holds(thread->started() && !thread->id().empty(), "the thread has started");
    thread->stopRunning();
    thread->close();
    holds(thread->broken(), "the thread has ended");
}

void threadInPlace() {
    int loops = 0;
    auto const loop = [&loops] {
        tavThread::printThreads();
        holds(tavThread::currentName().size() > 20 && tavThread::current(), "the thread is registered");
        return ++loops < 3;
    };
    tavSharedPtr<tavThread> const thread(
        new tavThread_("a thread with a name that is long", loop, nullptr, nullptr, nullptr));
    thread->run_internally();
    holds(loops == 3, "the thread has run");
    holds(tavThread::createThreadName("of a thread, with some length").size() > 10, "a thread has a name");
}

void timerLife() {
    std::atomic<int> fired{0};
    tavSharedPtr<tavTimerThread> const timer(new tavTimerThread(
        "a timer with a name that is long", 1, [&fired](bool) { return ++fired < 2; }, [] {}, 2));
    Ended<tavThread> const ended(*timer);
    timer->start();
    while (timer->loopRunning()) {
        std::this_thread::yield();
    }
    timer->close();
    holds(fired > 0, "the timer has fired");
}

void queueLife() {
    std::atomic<int> sum{0};
    tavSharedPtr<tavMsgQueueThread<std::string>> const queue(new tavMsgQueueThread<std::string>(
        "a queue with a name that is long", -1,
        [&sum](std::string const & text) { sum += static_cast<int>(text.size()); }));
    Ended<tavThread> const ended(*queue);
    queue->start();
    int put = 0;
    for (int i = 0; i < 40; ++i) {
        queue->put(std::string(50, 'x'));
        put += 50;
    }
    queue->flush();
    holds(sum == put, "what was put is handled");
    queue->close();
}

void taskQueueLife() {
    std::atomic<int> ran{0};
    tavTaskQueue queue("tasks with a name that is long", 2);
    Ended<tavTaskQueue> const ended(queue);
    queue.start();
    for (int i = 0; i < 30; ++i) {
        std::string const text(50, 'x');
        queue.put([&ran, text] { ran += static_cast<int>(text.size()); });
    }
    queue.close();
    holds(ran % 50 == 0, "tasks run as a whole");
}

void singleCall() {
    std::atomic<bool> ran{false};
    auto const thread = tav_async_run([&ran] { ran = true; }, "a call with a name that is no short one", 0);
    thread->join();
    holds(ran, "the call has run");
}

} // namespace

Scenarios threadScenarios() {
    return {{"thread_life", threadLife, Of::process},        {"thread_in_place", threadInPlace},
            {"timer_life", timerLife, Of::process},          {"queue_life", queueLife, Of::process},
            {"task_queue_life", taskQueueLife, Of::process}, {"single_call", singleCall, Of::process}};
}

} // namespace torture
} // namespace tav_test
