#include "tav/vinta/vinta_tls_client.h"

#include "support/client_rig.h"
#include "support/heap_meter.h"
#include "support/joining_thread.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <thread>

using namespace tav_test;

namespace {

/// For how long the gateway does not read, if that is set: the long tests have it for a minute.  Otherwise it
/// is until some sends were refused.
std::chrono::seconds stall() {
    char const * const set = std::getenv("TAV_TEST_STALL_S");
    return std::chrono::seconds(set != nullptr ? std::atoi(set) : 0);
}

/// The body of a message with a number and a text of so many bytes.
std::string bodyOf(int number, std::size_t size) {
    Ask msg(number);
    msg.text = tavString(std::string(size, 'x'));
    return std::string(tav_istr(msg.encode(true)));
}

int numberOf(std::string const & body) {
    Ask msg;
    msg.decode(tav_istr(body));
    return msg.number;
}

bool sends(tls::client & client, std::string const & body) {
    client.send_nbr_msg(0x1234, reinterpret_cast<unsigned char const *>(body.data()),
                        static_cast<unsigned>(body.size()), tls::send_option());
    return !tls::last_failure();
}

} // namespace

TEST(LimitsMemory, GatewayThatStopsReadingCostsAtMostTheLimitAndLosesNothing) {
    constexpr std::size_t size = 100000;
    constexpr unsigned long long limit = 4000000;
    constexpr long long each = size + 4096;
    constexpr unsigned enough = 20;
    constexpr int unlimited = 2000; // Messages that no sockets and no limit hold together.
    ClientRig rig;
    tls::connect_option option = rig.option();
    option.limits.queued_bytes = limit;
    rig.connect(option);
    int accepted = 0;
    unsigned refused = 0;
    HeapMeter const meter;
    auto const end = std::chrono::steady_clock::now() + stall();
    while (refused < enough || std::chrono::steady_clock::now() < end) {
        if (sends(rig.client, bodyOf(accepted, size))) {
            ASSERT_LT(++accepted, unlimited);
            continue;
        }
        ASSERT_EQ(tls::last_failure(), tls::failure::queue_full);
        ++refused;
        ASSERT_LE(rig.client.statistics().queued_bytes, limit);
        std::this_thread::sleep_for(
            std::chrono::milliseconds(5)); // The pace of an application that tries again.
    }
    EXPECT_GT(accepted, 0);
    // Beside what waits stands the message in hand, as the application and as the sender have it.
    EXPECT_LE(meter.peak(), static_cast<long long>(limit) + 6 * each);
    EXPECT_TRUE(rig.client.connected());
    for (int i = 0; i < accepted; ++i) {
        ASSERT_EQ(numberOf(rig.receive().body), i);
    }
    EXPECT_TRUE(eventually([&] { return rig.client.statistics().queued_bytes == 0; }));
    ASSERT_TRUE(sends(rig.client, bodyOf(accepted, size)));
    EXPECT_EQ(numberOf(rig.receive().body), accepted);
    EXPECT_TRUE(eventually(
        [&] { return rig.client.statistics().messages_sent == static_cast<unsigned>(accepted) + 1u; }));
    EXPECT_EQ(rig.client.statistics().sends_refused, refused);
}

// What waits is the limit's, the message in hand among it.  Beside it stands the half that a body leaves
// behind as it grows; the little is what a connection, a packet and their log lines take.
TEST(LimitsMemory, FloodOfASlowCallbackCostsAtMostTheLimitAndOneFrame) {
    constexpr unsigned limit = 8;
    constexpr unsigned total = 60;
    constexpr long long little = 100000;
    std::string const body = bodyOf(1, 1u << 20);
    std::string const flood = mobile(0x2345, 1, body).framed();
    auto const each = static_cast<long long>(flood.size());
    Gate gate;
    ClientRig rig;
    std::atomic<unsigned> handled{0};
    rig.client.on_nbr_msg(
        0x2345, [&](unsigned long long, unsigned short, unsigned char const *, unsigned size, tavMsgExt) {
            if (handled == 0) {
                gate.pass();
            }
            handled += size == body.size() ? 1u : 0u;
        });
    tls::connect_option option = rig.option();
    option.limits.received_waiting = limit;
    rig.connect(option);
    HeapMeter const meter;
    std::atomic<unsigned> sent{0};
    JoiningThread gateway([&] {
        while (sent < total && rig.server->sendInRecords(flood, 16384)) {
            ++sent;
        }
    });
    ASSERT_TRUE(gate.waitArrived());
    ASSERT_TRUE(eventually([&] { return rig.client.statistics().received_waiting == limit - 1; }));
    EXPECT_LE(meter.kept(), limit * each + little) << "nothing is read beyond the limit";
    EXPECT_LT(sent, total) << "the gateway is held back";
    gate.open();
    ASSERT_TRUE(eventually([&] { return handled == total; }));
    gateway.join();
    EXPECT_EQ(sent, total);
    EXPECT_LE(meter.peak(), (limit + 1) * each + little);
    EXPECT_TRUE(eventually([&] { return rig.client.statistics().received_waiting == 0; }));
    EXPECT_TRUE(eventually([&] { return rig.client.statistics().received_waiting_bytes == 0; }));
    EXPECT_TRUE(eventually([&] { return meter.kept() < each; }));
}
