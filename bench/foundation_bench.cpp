#include "allocations.h"
#include "tav/vinta/vinta.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace {

void bytesAppendBytes(benchmark::State & state) {
    CountAllocations const count(state);
    for (auto _ : state) {
        tavBytes bytes;
        for (int i = 0; i < 1000; ++i) {
            bytes.writeByte(static_cast<unsigned char>(i));
        }
        benchmark::DoNotOptimize(bytes.data());
    }
    state.SetItemsProcessed(state.iterations() * 1000);
}
BENCHMARK(bytesAppendBytes);

void vectorAppendBytes(benchmark::State & state) {
    CountAllocations const count(state);
    for (auto _ : state) {
        std::vector<unsigned char> bytes;
        for (int i = 0; i < 1000; ++i) {
            bytes.push_back(static_cast<unsigned char>(i));
        }
        benchmark::DoNotOptimize(bytes.data());
    }
    state.SetItemsProcessed(state.iterations() * 1000);
}
BENCHMARK(vectorAppendBytes);

void bytesAppendBigEndian(benchmark::State & state) {
    CountAllocations const count(state);
    for (auto _ : state) {
        tavBytes bytes(4096);
        for (unsigned i = 0; i < 1000; ++i) {
            bytes.writeBigEndian(i);
        }
        benchmark::DoNotOptimize(bytes.data());
    }
    state.SetItemsProcessed(state.iterations() * 1000);
}
BENCHMARK(bytesAppendBigEndian);

void bytesAppendViews(benchmark::State & state) {
    tav_istr const view("sixteen bytes...", 16);
    CountAllocations const count(state);
    for (auto _ : state) {
        tavBytes bytes(16000);
        for (int i = 0; i < 1000; ++i) {
            bytes.writeBytes(view);
        }
        benchmark::DoNotOptimize(bytes.data());
    }
    state.SetItemsProcessed(state.iterations() * 1000);
}
BENCHMARK(bytesAppendViews);

struct Counted : tavSharedObject {};

void sharedPtrCopy(benchmark::State & state) {
    tavSharedPtr<Counted> const one(new Counted);
    for (auto _ : state) {
        tavSharedPtr<Counted> copy(one);
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(sharedPtrCopy);

void standardSharedPtrCopy(benchmark::State & state) {
    auto const one = std::make_shared<int>(1);
    for (auto _ : state) {
        std::shared_ptr<int> copy(one);
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(standardSharedPtrCopy);

void sharedPtrMakeAndDrop(benchmark::State & state) {
    CountAllocations const count(state);
    for (auto _ : state) {
        tavSharedPtr<Counted> const one(new Counted);
        benchmark::DoNotOptimize(one);
    }
}
BENCHMARK(sharedPtrMakeAndDrop);

/// One hand-over to another thread and back.
void taskQueueRoundTrip(benchmark::State & state) {
    tavTaskQueue queue("bench", 1);
    queue.start();
    std::mutex mutex;
    std::condition_variable changed;
    bool done = false;
    for (auto _ : state) {
        done = false;
        queue.put([&] {
            std::lock_guard<std::mutex> const guard(mutex);
            done = true;
            changed.notify_one();
        });
        std::unique_lock<std::mutex> guard(mutex);
        changed.wait(guard, [&] { return done; });
    }
    queue.close();
}
BENCHMARK(taskQueueRoundTrip)->UseRealTime();

void taskQueueThroughput(benchmark::State & state) {
    tavTaskQueue queue("bench", 1);
    queue.start();
    std::atomic<long long> ran{0};
    long long put = 0;
    for (auto _ : state) {
        queue.put([&ran] { ran.fetch_add(1, std::memory_order_release); });
        ++put;
    }
    while (ran.load(std::memory_order_acquire) < put) {
        std::this_thread::yield();
    }
    queue.close();
}
BENCHMARK(taskQueueThroughput)->UseRealTime();

void msgQueueThroughput(benchmark::State & state) {
    std::atomic<long long> ran{0};
    tavSharedPtr<tavMsgQueueThread<int>> const queue(
        new tavMsgQueueThread<int>("bench", 1000, [&ran](int const &) { ran.fetch_add(1); }));
    queue->start();
    long long put = 0;
    for (auto _ : state) {
        queue->put(1);
        ++put;
    }
    while (ran.load() < put) {
        std::this_thread::yield();
    }
    queue->close();
}
BENCHMARK(msgQueueThroughput)->UseRealTime();

void logDisabled(benchmark::State & state) {
    tavLogger::setup("(clear(WARN))", nullptr, false, tavLogger::WARN);
    for (auto _ : state) {
        benchmark::DoNotOptimize(tavLogger::isLoggable(tav_istr("TLS.CLT", 7), tavLogger::INFO));
    }
}
BENCHMARK(logDisabled);

void logDisabledWithTags(benchmark::State & state) {
    tavLogger::setup("(clear(WARN)TLS.CLT(ERROR)JSON2NBR(WARN))", nullptr, false, tavLogger::WARN);
    for (auto _ : state) {
        benchmark::DoNotOptimize(tavLogger::isLoggable(tav_istr("TLS.CLT", 7), tavLogger::INFO));
    }
}
BENCHMARK(logDisabledWithTags);

void drop(int, char const *) {}

void logEnabled(benchmark::State & state) {
    tavLogger::setup("(clear(INFO))", &drop, false, tavLogger::WARN);
    CountAllocations const count(state);
    for (auto _ : state) {
        if (tavLogger::isLoggable(tav_istr("TLS.CLT", 7), tavLogger::INFO)) {
            tavLogger::writeLog("TLS.CLT", tavLogger::INFO,
                                "a line of the usual length, some sixty bytes of it\n", __FILE__, __LINE__,
                                "bench::logEnabled");
        }
    }
    tavLogger::setup("(clear(INFO))", nullptr, false, tavLogger::WARN);
}
BENCHMARK(logEnabled);

} // namespace
