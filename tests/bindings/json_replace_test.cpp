#include "bindings/json_rig.h"

#include "support/joining_thread.h"
#include "support/log_capture.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

using namespace tav_test;
using tav::gateway::Options;
using tav::gateway::Stats;

// What is handed to the client while its connection is replaced or ended.
namespace {

using namespace std::chrono_literals;

/// Of the message whose sender is held.
constexpr int held_code = 0x4444;

/// A gateway, and what came to it.
class Watched {
public:
    Watched() : gate_(std::make_unique<Gate>(options())) {}

    Gate & gate() { return *gate_; }
    std::vector<unsigned short> codes() {
        std::lock_guard<std::mutex> const guard(mutex_);
        return codes_;
    }
    /// Whether so many packets have come before the limit.
    bool wait(std::size_t packets) {
        std::unique_lock<std::mutex> guard(mutex_);
        return came_.wait_for(guard, std::chrono::duration<double>(limit_s),
                              [&] { return codes_.size() >= packets; });
    }
    /// Whether there is a new connection within a time in which there always was one.
    bool isConnectedSoon(unsigned connections) {
        auto const until = std::chrono::steady_clock::now() + 200ms;
        while (std::chrono::steady_clock::now() < until) {
            if (gate_->gateway.stats().connections > connections) {
                return true;
            }
            std::this_thread::sleep_for(5ms);
        }
        return false;
    }

private:
    Options options() {
        Options out;
        out.on_packet = [this](unsigned short code, std::string const &) {
            std::lock_guard<std::mutex> const guard(mutex_);
            codes_.push_back(code);
            came_.notify_all();
        };
        return out;
    }

    std::mutex mutex_;
    std::condition_variable came_;
    std::vector<unsigned short> codes_;
    std::unique_ptr<Gate> gate_;
};

/// A client with a sender that is about to hand its message to the connection.
class HeldSender {
public:
    /// `line` is in the log as a message is handed over.
    explicit HeldSender(char const * line = " send nbr msg 0x4444") {
        hold_.hold();
        log_.at(line, [this] { hold_.pass(); });
    }
    ~HeldSender() { release(); }
    HeldSender(HeldSender const &) = delete;
    HeldSender & operator=(HeldSender const &) = delete;

    void send(Json request) {
        Json const more = {{"@extra", "held"}, {"code", held_code}, {"body", "AQID"}};
        request.insert(more.begin(), more.end());
        thread_ = std::make_unique<JoiningThread>([this, request] { ann.send(request); });
        ASSERT_TRUE(hold_.waitForSomebody());
    }
    /// Whether somebody is held.
    bool isHeld() { return hold_.waitForSomebody(); }
    void release() {
        hold_.release();
        thread_.reset();
    }
    Json answer() {
        return ann.wait([](Json const & v) { return v.value("@extra", Json()) == "held"; });
    }

    Talker ann;

private:
    Hold hold_;
    LogCapture log_{"clear(INFO)"};
    std::unique_ptr<JoiningThread> thread_;
};

Json plain() {
    return {{"@type", "send"}};
}
Json tracked() {
    return {{"@type", "request"}, {"reply", held_code + 1}};
}

Json login() {
    return {{"class", "chat.Say"}, {"message", {{"text", "ann"}, {"tags", {"a"}}}}, {"reply", "chat.Said"}};
}

Json kept(Gate const & gate) {
    Json request = gate.connect();
    request["keeper"] = {{"first_wait_ms", 1}, {"longest_wait_ms", 1}, {"login", login()}};
    return request;
}

Json request() {
    return {{"@type", "request"}, {"code", 0x1000}, {"body", "AQID"}, {"reply", 0x1001}};
}

/// The texts up to "closed".
std::vector<Json> rest(Talker & talker) {
    std::vector<Json> out = talker.heard;
    while (char const * const text = tav_json_receive(talker.client, limit_s)) {
        out.push_back(Json::parse(text));
    }
    return out;
}

} // namespace

TEST(JsonReplace, MessageNeverGoesByTheConnectionThatTookThePlaceOfItsOwn) {
    for (Json const & wish : {plain(), tracked()}) {
        Watched first;
        Watched second;
        HeldSender sender;
        Talker & ann = sender.ann;
        ASSERT_EQ(nameOf(ann.ask(first.gate().connect())), "ok");
        sender.send(wish);
        Json connect = second.gate().connect();
        connect["@extra"] = "second";
        JoiningThread connector([&] { ann.send(connect); });
        EXPECT_EQ(ann.event("disconnected")["name"], "cancelled");
        EXPECT_FALSE(second.isConnectedSoon(0));
        sender.release();
        // The connection that it was meant for may still bring the reply.
        std::string const end = nameOf(sender.answer());
        EXPECT_TRUE(wish == plain() ? end == "ok" : end == "cancelled" || end == "reply") << end;
        EXPECT_EQ(nameOf(ann.wait([](Json const & v) { return v.value("@extra", Json()) == "second"; })),
                  "ok");
        EXPECT_EQ(nameOf(ann.ask(request())), "reply");
        EXPECT_EQ(second.codes(), (std::vector<unsigned short>{0x1000}));
    }
}

TEST(JsonReplace, MessageOfTheConnectionBeforeAKeeperIsNotAheadOfItsLogin) {
    Watched first;
    Watched second;
    HeldSender sender;
    Talker & ann = sender.ann;
    ASSERT_EQ(nameOf(ann.ask(first.gate().connect())), "ok");
    sender.send(plain());
    Json connect = kept(second.gate());
    connect["@extra"] = "second";
    JoiningThread connector([&] { ann.send(connect); });
    EXPECT_EQ(ann.event("disconnected")["name"], "cancelled");
    EXPECT_FALSE(second.isConnectedSoon(0));
    sender.release();
    EXPECT_EQ(nameOf(sender.answer()), "ok");
    connector.join();
    EXPECT_EQ(nameOf(ann.ask(request())), "reply");
    EXPECT_EQ(second.codes(), (std::vector<unsigned short>{0x3001, 0x1000}));
}

TEST(JsonReplace, MessageThatAKeeperDoesNotKeepIsNotAheadOfTheNextLogin) {
    Watched watched;
    HeldSender sender(" send old nbr msg 0x");
    Talker & ann = sender.ann;
    ASSERT_EQ(nameOf(ann.ask(kept(watched.gate()))), "ok");
    ASSERT_FALSE(ann.event("connected").is_null());
    Json wish = plain();
    wish["code"] = 0x44;
    wish["target"] = "bob";
    sender.send(wish);
    ASSERT_TRUE(watched.gate().gateway.wait([](Stats const & s) { return s.open == 1; }));
    unsigned const before = watched.gate().gateway.stats().connections;
    // A login that has no answer: what comes behind it on this connection came too early.
    tav::gateway::Faults silent;
    silent.silence = true;
    watched.gate().gateway.setFaults(silent);
    watched.gate().gateway.drop();
    EXPECT_FALSE(ann.event("disconnected").is_null());
    EXPECT_FALSE(watched.isConnectedSoon(before));
    sender.release();
    EXPECT_EQ(nameOf(sender.answer()), "not_connected");
    EXPECT_TRUE(watched.wait(2));
    EXPECT_EQ(watched.codes(), (std::vector<unsigned short>{0x3001, 0x3001}));
}

// It has left the client's queue, and is on its way to the application.
TEST(JsonReplace, MessageInHandOfTheConnectionBeforeIsNotToldAsOfTheNext) {
    for (bool const by_keeper : {false, true}) {
        Watched first;
        Watched second;
        HeldSender held("0x0044");
        Talker & ann = held.ann;
        ASSERT_EQ(nameOf(ann.ask(first.gate().connect())), "ok");
        ASSERT_EQ(nameOf(ann.ask(request())), "reply");
        first.gate().gateway.push(0x44, "\x01\x02\x03", false);
        ASSERT_TRUE(held.isHeld());
        Json connect = by_keeper ? kept(second.gate()) : second.gate().connect();
        connect["@extra"] = "second";
        ann.send(connect);
        held.release();
        EXPECT_EQ(nameOf(ann.wait([](Json const & v) { return v.value("@extra", Json()) == "second"; })),
                  "ok");
        EXPECT_EQ(nameOf(ann.ask(request())), "reply");
        second.gate().gateway.push(0x44, "\x01\x02\x04", false);
        EXPECT_EQ(ann.event("push")["body"], "AQIE");
    }
}

// All keepers of the process share a thread, on which their states are told.
TEST(JsonReplace, SenderWhoseMessageAKeeperTakesHoldsUpNoState) {
    auto best = std::chrono::steady_clock::duration::max();
    for (int round = 0; round < 5 && best >= 400ms; ++round) {
        Watched watched;
        HeldSender sender;
        ASSERT_EQ(nameOf(sender.ann.ask(kept(watched.gate()))), "ok");
        ASSERT_FALSE(sender.ann.event("connected").is_null());
        sender.send(tracked());
        tav::gateway::Gateway & gateway = watched.gate().gateway;
        ASSERT_TRUE(gateway.wait([](Stats const & s) { return s.open == 1; }));
        unsigned const before = gateway.stats().connections;
        auto const begun = std::chrono::steady_clock::now();
        gateway.drop();
        ASSERT_TRUE(gateway.wait([&](Stats const & s) { return s.connections > before; }));
        best = std::min(best, std::chrono::steady_clock::now() - begun);
    }
    EXPECT_LT(best, 400ms);
}

TEST(JsonReplace, SenderThatStaysHoldsUpAConnectForItsBoundAlone) {
    Watched first;
    Watched second;
    HeldSender sender;
    Talker & ann = sender.ann;
    ASSERT_EQ(nameOf(ann.ask(first.gate().connect())), "ok");
    sender.send(tracked());
    auto const begun = std::chrono::steady_clock::now();
    EXPECT_EQ(nameOf(ann.ask(second.gate().connect())), "ok");
    EXPECT_GE(std::chrono::steady_clock::now() - begun, 500ms);
    EXPECT_LT(std::chrono::steady_clock::now() - begun, 5s);
    sender.release();
    EXPECT_EQ(nameOf(sender.answer()), "reply");
    EXPECT_EQ(nameOf(ann.ask({{"@type", "disconnect"}})), "ok");
}

TEST(JsonReplace, DestroyEndsWithinItsBoundBesideASenderThatStays) {
    for (bool const by_keeper : {false, true}) {
        for (Json const & wish : {plain(), tracked()}) {
            Watched watched;
            HeldSender sender;
            Talker & ann = sender.ann;
            Gate & gate = watched.gate();
            ASSERT_EQ(nameOf(ann.ask(by_keeper ? kept(gate) : gate.connect())), "ok");
            ASSERT_FALSE(ann.event("connected").is_null());
            sender.send(wish);
            auto const begun = std::chrono::steady_clock::now();
            tav_json_destroy(ann.client);
            EXPECT_LT(std::chrono::steady_clock::now() - begun, 5s);
            // The connection is closed by then, and what the sender has left finds no other.
            EXPECT_TRUE(gate.gateway.wait([](Stats const & s) { return s.open == 0; }));
            EXPECT_EQ(tav_json_send(ann.client, R"({"@type":"version"})"), -1);
            sender.release();
            int answers = 0;
            std::string last;
            for (Json const & each : rest(ann)) {
                answers += each.value("@extra", Json()) == "held" ? 1 : 0;
                last = each["@type"];
            }
            EXPECT_EQ(answers, 1);
            EXPECT_EQ(last, "closed");
            EXPECT_EQ(watched.codes().size(), by_keeper ? 1u : 0u);
        }
    }
}

TEST(JsonReplace, AnswerAndEndThatComeTogetherWakeTwoReceivers) {
    Watched watched;
    HeldSender sender;
    tav_json_client * const client = sender.ann.client;
    ASSERT_EQ(nameOf(sender.ann.ask(watched.gate().connect())), "ok");
    sender.send(plain());
    tav_json_destroy(client);
    while (tav_json_receive(client, 0) != nullptr) {
    }
    std::atomic<int> received{0};
    auto const begun = std::chrono::steady_clock::now();
    {
        auto const receive = [&] { received += tav_json_receive(client, limit_s) != nullptr ? 1 : 0; };
        JoiningThread const first(receive);
        JoiningThread const second(receive);
        sender.release();
    }
    EXPECT_EQ(received, 2);
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::duration<double>(limit_s / 2))
        << "one slept beside a text";
}
