#include "allocations.h"
#include "tav/vinta/vinta.h"

#include <asio.hpp>
#include <benchmark/benchmark.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/spdlog.h>

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
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

/// One hand-over to another thread, by `put`, and back.
template <class Put>
void roundTrip(benchmark::State & state, Put const & put) {
    std::mutex mutex;
    std::condition_variable changed;
    bool done = false;
    for (auto _ : state) {
        done = false;
        put([&] {
            std::lock_guard<std::mutex> const guard(mutex);
            done = true;
            changed.notify_one();
        });
        std::unique_lock<std::mutex> guard(mutex);
        changed.wait(guard, [&] { return done; });
    }
}

void taskQueueRoundTrip(benchmark::State & state) {
    tavTaskQueue queue("bench", 1);
    queue.start();
    roundTrip(state, [&](auto const & task) { queue.put(task); });
    queue.close();
}
BENCHMARK(taskQueueRoundTrip)->UseRealTime();

void asioPostRoundTrip(benchmark::State & state) {
    asio::io_context io;
    auto const work = asio::make_work_guard(io);
    std::thread thread([&] { io.run(); });
    roundTrip(state, [&](auto const & task) { asio::post(io, task); });
    io.stop();
    thread.join();
}
BENCHMARK(asioPostRoundTrip)->UseRealTime();

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

/// Takes each line as a text, as the library's callback does.
class SpdlogDrop : public spdlog::sinks::base_sink<std::mutex> {
    void sink_it_(spdlog::details::log_msg const & message) override {
        spdlog::memory_buf_t line;
        formatter_->format(message, line);
        benchmark::DoNotOptimize(line.data());
    }
    void flush_() override {}
};

/// The parts of a line are those of the library's own.
void logEnabledSpdlog(benchmark::State & state) {
    spdlog::logger logger("TLS.CLT", std::make_shared<SpdlogDrop>());
    logger.set_pattern("%Y-%m-%d %H:%M:%S.%e %P %t %L <%n> %v (%s:%# %!)");
    CountAllocations const count(state);
    for (auto _ : state) {
        if (logger.should_log(spdlog::level::info)) {
            logger.log(spdlog::source_loc(__FILE__, __LINE__, "bench::logEnabled"), spdlog::level::info,
                       "a line of the usual length, some sixty bytes of it");
        }
    }
}
BENCHMARK(logEnabledSpdlog);

/// A file that is there as long as the object.
struct LogFile {
    LogFile()
        : path(std::filesystem::temp_directory_path() / ("tav-bench-log-" + std::to_string(::getpid()))) {}
    ~LogFile() { std::filesystem::remove(path); }
    LogFile(LogFile const &) = delete;
    LogFile & operator=(LogFile const &) = delete;
    std::string const path;
};

constexpr int lines = 1000;

/// A thousand lines of one thread, all of them in the file at the end.
void logToFile(benchmark::State & state) {
    LogFile const file;
    tavLogger::open(tav_istr(file.path), "bench", "(clear(INFO))", nullptr, "1", 1 << 30, false,
                    tavLogger::ASSERT);
    for (auto _ : state) {
        for (int i = 0; i < lines; ++i) {
            tavLogger::writeLog("TLS.CLT", tavLogger::INFO,
                                "a line of the usual length, some sixty bytes of it\n", __FILE__, __LINE__,
                                "bench::logToFile");
        }
        tavLogger::flush();
    }
    state.SetItemsProcessed(state.iterations() * lines);
    tavLogger::finalize();
}
BENCHMARK(logToFile)->UseRealTime();

/// The same bytes by nothing but the system: open, write and close for each line.
void logToFileBare(benchmark::State & state) {
    LogFile const file;
    std::string const line(128, 'x');
    bool failed = false;
    for (auto _ : state) {
        for (int i = 0; i < lines; ++i) {
            int const descriptor = ::open(file.path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
            failed |= ::write(descriptor, line.data(), line.size()) != static_cast<ssize_t>(line.size());
            ::close(descriptor);
        }
    }
    if (failed) {
        state.SkipWithError("a line was not written");
    }
    state.SetItemsProcessed(state.iterations() * lines);
}
BENCHMARK(logToFileBare)->UseRealTime();

} // namespace
