#include "echo.h"

#include <benchmark/benchmark.h>

#include <condition_variable>
#include <mutex>
#include <string>

using namespace tav_bench;

namespace {

constexpr unsigned short code = 0x2001;

/// A client of the library that is connected to an echo.
struct Connected {
    Connected() : client("bench") {
        tavLogger::setup("(clear(NONE))", nullptr, false, tavLogger::WARN);
        auto const info = client.start(optionOf(echo.port(), authority.file));
        ok = info != nullptr && info->wait() == tav::tls::result_ok;
    }
    ~Connected() { client.close(); }
    Connected(Connected const &) = delete;
    Connected & operator=(Connected const &) = delete;

    Echo const echo{certificates()};
    Authority const authority;
    tav::tls::client client;
    bool ok = false;
};

/// A request and its reply by the library: an object goes out, its echo comes back as an object.
void requestReplyOwn(benchmark::State & state) {
    Connected it;
    tav_bench_own::Note const note = tav_bench_own::sample();
    tav_bench_own::Note reply;
    for (auto _ : state) {
        if (!it.ok || it.client.send_and_wait(note, reply, 5000) != tav::tls::result_ok) {
            state.SkipWithError("no reply");
            break;
        }
    }
}
BENCHMARK(requestReplyOwn)->UseRealTime();

/// The same frames by nothing but asio and OpenSSL: a blocking client.
void requestReplyBare(benchmark::State & state) {
    Echo const echo(certificates());
    BareClient client(echo.port());
    std::string const frame = requestFrame();
    std::string reply(frame.size(), '\0');
    for (auto _ : state) {
        client.write(frame);
        client.read(reply);
        benchmark::DoNotOptimize(reply);
    }
    if (reply != frame) {
        state.SkipWithError("a wrong reply");
    }
}
BENCHMARK(requestReplyBare)->UseRealTime();

constexpr unsigned burst = 256;

/// Requests that are all tracked, sent one behind the other, until each has its reply.
void trackedBurstOwn(benchmark::State & state) {
    std::string const body = requestBody();
    std::mutex mutex;
    std::condition_variable changed;
    unsigned back = 0;
    tav::tls::nbr_function const count = [&](unsigned long long, unsigned short, unsigned char const *,
                                             unsigned int, tavMsgExt) {
        std::lock_guard<std::mutex> const guard(mutex);
        if (++back == burst) {
            changed.notify_one();
        }
    };
    // Its functions have ended ahead of what they touch.
    Connected it;
    if (!it.ok) {
        state.SkipWithError("no connection");
    }
    for (auto _ : state) {
        back = 0;
        for (unsigned i = 0; i < burst; ++i) {
            tav::tls::send_option const option(5000, {}, {}, count, code, false, 4);
            it.client.send_nbr_msg(code, reinterpret_cast<unsigned char const *>(body.data()),
                                   static_cast<unsigned>(body.size()), option);
        }
        std::unique_lock<std::mutex> guard(mutex);
        if (!changed.wait_for(guard, std::chrono::seconds(10), [&] { return back == burst; })) {
            state.SkipWithError("a reply is missing");
            break;
        }
    }
}
BENCHMARK(trackedBurstOwn)->UseRealTime();

/// The same frames in one write, and as many bytes back.
void trackedBurstBare(benchmark::State & state) {
    Echo const echo(certificates());
    BareClient client(echo.port());
    std::string frames;
    for (unsigned i = 0; i < burst; ++i) {
        frames += requestFrame();
    }
    std::string replies(frames.size(), '\0');
    for (auto _ : state) {
        client.write(frames);
        client.read(replies);
        benchmark::DoNotOptimize(replies);
    }
}
BENCHMARK(trackedBurstBare)->UseRealTime();

/// From `start` until its result says that the connection is up.
void connectOwn(benchmark::State & state) {
    Connected it;
    tav::tls::connect_option const option = optionOf(it.echo.port(), it.authority.file);
    for (auto _ : state) {
        auto const info = it.client.start(option);
        if (info == nullptr || info->wait() != tav::tls::result_ok) {
            state.SkipWithError("no connection");
            break;
        }
        state.PauseTiming();
        it.client.close();
        state.ResumeTiming();
    }
}
BENCHMARK(connectOwn)->UseRealTime();

/// A context, a connect and a handshake by nothing but asio and OpenSSL.
void connectBare(benchmark::State & state) {
    Echo const echo(certificates());
    for (auto _ : state) {
        auto const client = std::make_unique<BareClient>(echo.port());
        benchmark::DoNotOptimize(client);
    }
}
BENCHMARK(connectBare)->UseRealTime();

} // namespace
