#include "client/counters.h"
#include "client/send_account.h"

#include "support/client_rig.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <time.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <limits>
#include <memory>
#include <string>

using namespace tav_test;
using tav::tls::impl::counters;
using tav::tls::impl::send_account;

namespace {

/// The processor time of the process, of all its threads, in nanoseconds.
double spent() {
    timespec now{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

/// What one of `n` takes in the best of five runs.
double best(unsigned n, std::function<void(unsigned)> const & run) {
    double least = std::numeric_limits<double>::max();
    for (int i = 0; i < 5; ++i) {
        double const begin = spent();
        run(n);
        least = std::min(least, (spent() - begin) / n);
    }
    return least;
}

/// What a connection keeps of its received messages for its limit.
struct Received {
    std::atomic<unsigned> waiting{0};
    std::atomic<unsigned> unhandled{0};
    std::atomic<unsigned long long> bytes{0};
};

/// All that is counted for a request that is tracked and its reply, in the order of the two.
void countRequest(send_account & account, Received & received, unsigned long long size) {
    counters & counted = account.counted();
    {
        send_account::room const room = account.enter(size, true);
        counters::add(counted.messages_sent);
        counters::add(counted.frames_sent);
        counters::add(counted.bytes_sent, size);
    }
    counters::add(counted.frames_received);
    counters::add(counted.bytes_received, size);
    ++received.waiting;
    ++received.unhandled;
    received.bytes += size;
    counters::add(counted.received_waiting);
    counters::add(counted.received_waiting_bytes, size);
    --received.waiting;
    received.bytes -= size;
    counters::sub(counted.received_waiting);
    counters::sub(counted.received_waiting_bytes, size);
    counters::add(counted.messages_received);
    auto const begin = std::chrono::steady_clock::now();
    counters::add(counted.replies);
    counters::add(counted.sends_ok);
    account.untrack();
    auto const took = std::chrono::steady_clock::now() - begin;
    counters::raise(
        counted.longest_callback_us,
        static_cast<unsigned long long>(std::chrono::duration_cast<std::chrono::microseconds>(took).count()));
    --received.unhandled;
}

} // namespace

TEST(CountersCost, IsLessThanAHundredthOfARequest) {
    LogCapture const quiet("clear(WARN)");
    GatewayRig rig;
    tls::client client("n");
    ASSERT_EQ(resultOf(client.start(rig.option())), tls::result_ok);
    unsigned failed = 0;
    double const request = best(2000, [&](unsigned n) {
        for (unsigned i = 0; i < n; ++i) {
            Answer answer;
            failed += client.send_and_wait(Ask(1), answer, 10000) == tls::result_ok ? 0u : 1u;
        }
    });
    ASSERT_EQ(failed, 0u);
    send_account account(tav::tls::limit_option(), std::make_shared<counters>());
    Received received;
    std::size_t const size = bodyOf(1).size();
    double const counting = best(1000000, [&](unsigned n) {
        for (unsigned i = 0; i < n; ++i) {
            countRequest(account, received, size);
        }
    });
    RecordProperty("request_ns", std::to_string(request));
    RecordProperty("counting_ns", std::to_string(counting));
    EXPECT_EQ(account.counted().copy().sends_ok, 5000000u);
    EXPECT_GT(counting, 1);
    EXPECT_LT(counting, request / 100) << "a request takes " << request << " ns, counting it " << counting;
}
