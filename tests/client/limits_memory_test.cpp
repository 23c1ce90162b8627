#include "tav/vinta/vinta_tls_client.h"

#include "support/client_rig.h"
#include "support/heap_meter.h"
#include "support/joining_thread.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

using namespace tav_test;

namespace {

/// What is logged while it lives, and goes nowhere.
class Logged {
public:
    explicit Logged(char const * levels) { tavLogger::setup(levels, nullptr, false, tavLogger::NONE); }
    ~Logged() { tavLogger::setup("(clear(INFO))", nullptr, false, tavLogger::WARN); }
    Logged(Logged const &) = delete;
    Logged & operator=(Logged const &) = delete;
};

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

namespace {

/// Sends bodies of so many bytes to a gateway that reads nothing, until one is refused, and looks at what the
/// heap takes.
void sendShortOnes(std::size_t size) {
    constexpr unsigned long long limit = 1u << 20;
    /// What a connection takes, and the message in hand.
    constexpr long long little = 100000;
    constexpr int unlimited = 600000; // Messages that no sockets and no limit hold together.
    Logged const quiet("(clear(WARN)TLS.CLT(NONE))");
    ClientRig rig;
    tls::connect_option option = rig.option();
    option.limits.queued_bytes = limit;
    rig.connect(option);
    std::string const body(size == 0 ? std::string() : bodyOf(1, size - bodyOf(1, 1).size() + 1));
    ASSERT_EQ(body.size(), size);
    HeapMeter const meter;
    // As long as the sockets take some, only what "sender" has not come to is refused, and has room soon.
    int accepted = 0;
    for (unsigned in_a_row = 0; in_a_row < 20;) {
        if (sends(rig.client, body)) {
            in_a_row = 0;
            ASSERT_LT(++accepted, unlimited);
            continue;
        }
        ASSERT_EQ(tls::last_failure(), tls::failure::queue_full);
        ++in_a_row;
        std::this_thread::sleep_for(std::chrono::milliseconds(5)); // The pace of one that tries again.
    }
    EXPECT_GT(accepted, 1000);
    EXPECT_LE(meter.peak(), static_cast<long long>(limit) + little);
    EXPECT_TRUE(rig.client.connected());
}

} // namespace

TEST(LimitsMemory, ShortMessagesCostAtMostTheLimit) {
    sendShortOnes(20);
}

TEST(LimitsMemory, EmptyMessagesCostAtMostTheLimit) {
    sendShortOnes(0);
}

namespace {

/// Floods a client whose first callback is held, and looks at what its heap takes: while the callback is held
/// no more than the limit, and never more than that, a frame, and `beside`.
class Flood {
public:
    static constexpr unsigned limit = 8;
    static constexpr unsigned total = 60;
    /// What a connection, a packet and their log lines take.
    static constexpr long long little = 100000;

    Flood() : Flood(mobile(0x2345, 1, bodyOf(1, 1u << 20))) {}
    explicit Flood(Pkt const & push) : body_size_(push.body.size()), bytes_(push.framed()) {}

    long long each() const { return static_cast<long long>(bytes_.size()); }
    /// To be called by the callback.
    void handle(bool whole) {
        if (handled_ == 0) {
            gate_.pass();
        }
        handled_ += whole ? 1u : 0u;
    }
    /// A callback for bytes.
    tls::nbr_function bytes() {
        return [this](unsigned long long, unsigned short, unsigned char const *, unsigned size, tavMsgExt) {
            handle(size == body_size_);
        };
    }

    void run(long long beside, std::string const & metainfo = std::string()) {
        tls::connect_option option = rig.option();
        option.limits.received_waiting = limit;
        option.metainfo = metainfo;
        rig.connect(option);
        HeapMeter const meter;
        std::atomic<unsigned> sent{0};
        JoiningThread gateway([&] {
            while (sent < total && rig.server->sendInRecords(bytes_, 16384)) {
                ++sent;
            }
        });
        ASSERT_TRUE(gate_.waitArrived());
        ASSERT_TRUE(eventually([&] { return rig.client.statistics().received_waiting == limit - 1; }));
        EXPECT_LE(meter.kept(), limit * each() + beside + little) << "nothing is read beyond the limit";
        EXPECT_LT(sent, total) << "the gateway is held back";
        gate_.open();
        ASSERT_TRUE(eventually([&] { return handled_ == total; }));
        gateway.join();
        EXPECT_EQ(sent, total);
        EXPECT_LE(meter.peak(), (limit + 1) * each() + beside + little)
            << "in frames: " << static_cast<double>(meter.peak()) / static_cast<double>(each());
        EXPECT_TRUE(eventually([&] { return rig.client.statistics().received_waiting == 0; }));
        EXPECT_TRUE(eventually([&] { return rig.client.statistics().received_waiting_bytes == 0; }));
        EXPECT_TRUE(eventually([&] { return meter.kept() < each(); }));
    }

    /// The same with a callback for objects.
    void runObjects(long long beside) {
        rig.client.register_message(0x2345, &Msg<0x2345>::create);
        tls::obj_function const take = [this](unsigned long long, tavMessage const & msg) {
            auto const * const got = dynamic_cast<Msg<0x2345> const *>(&msg);
            handle(got != nullptr && got->text.size() == 1u << 20);
        };
        rig.client.on_msg(0x2345, take);
        run(beside);
    }

    ClientRig rig;

private:
    std::size_t const body_size_;
    std::string const bytes_;
    Gate gate_;
    std::atomic<unsigned> handled_{0};
};

/// A template of the flood's messages.
constexpr char described[] = "Big:object(\n"
                             "    __class__(im.Big)\n"
                             "    __code__(2345)\n"
                             "    [1]number:int32()\n"
                             "    [2]text:string()\n"
                             ")\n";

} // namespace

// What waits is the limit's, the message in hand among it.  Beside it stands the half that a body leaves
// behind as it grows, and no copy of a body that is parsed.
TEST(LimitsMemory, FloodOfASlowCallbackCostsAtMostTheLimitAndOneFrame) {
    Logged const quiet("(clear(WARN))");
    Flood flood;
    flood.rig.client.on_nbr_msg(0x2345, flood.bytes());
    flood.run(0);
}

// A template has the log told of what does not fit it.  No text is made for that.
TEST(LimitsMemory, FloodOfDescribedMessagesCostsNoMore) {
    Logged const quiet("(clear(WARN))");
    Flood flood;
    flood.rig.client.on_nbr_msg(0x2345, flood.bytes());
    flood.run(0, described);
}

// The old form is copied out of its frame, which goes then.
TEST(LimitsMemory, FloodOfTheOldFormCostsHalfAFrameMore) {
    Logged const quiet("(clear(WARN))");
    Flood flood(old(5, 1, bodyOf(1, 1u << 20)));
    flood.rig.client.on_nbr_msg(5, flood.bytes());
    flood.run(6 * flood.each() / 10);
}

// The object that is made of the message in hand is the application's, and stands beside it.
TEST(LimitsMemory, FloodOfASlowCallbackForObjectsCostsTheObjectBesides) {
    Logged const quiet("(clear(WARN))");
    Flood flood;
    flood.runObjects(flood.each());
}

// So does the JSON, and the places of the values that it is made of.
TEST(LimitsMemory, FloodOfASlowCallbackForJsonCostsTheTextTwiceBesides) {
    Logged const quiet("(clear(WARN))");
    Flood flood;
    flood.rig.client.on_json_msg(0x2345, [&](unsigned long long, unsigned short, char const * json,
                                             tavMsgExt) { flood.handle(std::strlen(json) > 1u << 20); });
    flood.run(2 * flood.each(), described);
}

// Without a template a line shows no long values.
TEST(LimitsMemory, FloodThatIsLoggedCostsNoMore) {
    Logged const loud("(clear(INFO))");
    Flood flood;
    flood.rig.client.on_nbr_msg(0x2345, flood.bytes());
    flood.run(0);
}

// Otherwise it is as long as the message, and is put together once: out of what was printed.
TEST(LimitsMemory, FloodOfObjectsThatIsLoggedCostsTheObjectAndItsLineTwiceBesides) {
    Logged const loud("(clear(INFO))");
    Flood flood;
    flood.runObjects(3 * flood.each());
}

TEST(LimitsMemory, FloodOfDescribedMessagesThatIsLoggedCostsTheTextAndItsLineTwiceBesides) {
    Logged const loud("(clear(INFO))");
    Flood flood;
    flood.rig.client.on_nbr_msg(0x2345, flood.bytes());
    flood.run(3 * flood.each(), described);
}
