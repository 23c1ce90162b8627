#include "bindings/json_rig.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <set>

using namespace tav_test;
using tav::gateway::Options;
using tav::gateway::Stats;

namespace {

Json whole() {
    return {{"text", "hello"}, {"tags", {"a"}}};
}

/// A connect that is kept, with waits as short as a test wants them.
Json kept(Gate const & gate, Json const & more = Json::object()) {
    Json request = gate.connect();
    request["keeper"] = {{"first_wait_ms", 20}, {"longest_wait_ms", 50}};
    request["keeper"].update(more);
    return request;
}

Json state(Talker & talker, std::string const & wanted) {
    return talker.wait(
        [&](Json const & v) { return v["@type"] == "keeper" && v["state"].get<std::string>() == wanted; });
}

Json answer(Talker & talker, int extra) {
    return talker.wait([&](Json const & v) { return v.contains("@extra") && v["@extra"] == extra; });
}

/// A port where nobody listens until there is a gateway.
class Away {
public:
    Away() {
        Gate gate;
        port_ = gate.gateway.port();
    }
    std::unique_ptr<Gate> arrive() const {
        Options options;
        options.port = port_;
        return std::make_unique<Gate>(options);
    }
    unsigned short port() const { return port_; }

private:
    unsigned short port_ = 0;
};

/// A keeper whose gateway is away.
Json waiting(Talker & talker, Gate const & trusted, Away const & away, Json const & more = Json::object()) {
    Json request = kept(trusted, more);
    request["port"] = away.port();
    return talker.ask(request);
}

void say(Talker & talker, int extra, Json const & more = Json::object(), char const * type = "request") {
    Json request = Talker::said(whole(), type);
    request["@extra"] = extra;
    request.update(more);
    talker.send(request);
}

} // namespace

TEST(JsonKeeper, StatesAreToldAndAConnectIsAnsweredWhenItIsUp) {
    Gate gate;
    Talker ann;
    EXPECT_EQ(nameOf(ann.ask(kept(gate))), "ok");
    Json const connecting = state(ann, "connecting");
    EXPECT_EQ(connecting["port"], std::to_string(gate.gateway.port()));
    EXPECT_FALSE(connecting.contains("name"));
    EXPECT_EQ(ann.event("connected")["tls"]["verified"], true);
    EXPECT_EQ(state(ann, "up")["failed"], 0);
    EXPECT_EQ(ann.echo(whole())["message"], whole());
    Json const now = ann.ask({{"@type", "state"}});
    EXPECT_EQ(now["connected"], true);
    EXPECT_EQ(now["keeper"]["state"], "up");
    EXPECT_EQ(now["keeper"]["outbox"], 0);
    EXPECT_EQ(nameOf(ann.ask({{"@type", "disconnect"}})), "ok");
    EXPECT_EQ(ann.event("disconnected")["name"], "cancelled");
    Json const stopped = state(ann, "stopped");
    EXPECT_EQ(stopped["name"], "cancelled");
    EXPECT_EQ(stopped["port"], std::to_string(gate.gateway.port()));
    Json const then = ann.ask({{"@type", "state"}});
    EXPECT_EQ(then["connected"], false);
    EXPECT_FALSE(then.contains("keeper"));
    // And again, kept as before.
    EXPECT_EQ(nameOf(ann.ask({{"@type", "reconnect"}})), "ok");
    EXPECT_EQ(nameOf(ann.echo(whole())), "reply");
    gate.gateway.drop();
    EXPECT_EQ(state(ann, "waiting")["name"], "closed_by_peer");
}

TEST(JsonKeeper, GatewayThatResetsIsComeBackTo) {
    Gate gate;
    Talker ann;
    ASSERT_EQ(nameOf(ann.ask(kept(gate))), "ok");
    ASSERT_FALSE(state(ann, "up").is_null());
    ASSERT_FALSE(ann.event("connected").is_null());
    for (unsigned round = 1; round <= 3; ++round) {
        ASSERT_TRUE(gate.gateway.wait([](Stats const & s) { return s.open == 1; }));
        gate.gateway.drop(true);
        Json const broken = ann.event("disconnected");
        ASSERT_FALSE(broken.is_null());
        Json const waits = state(ann, "waiting");
        EXPECT_EQ(waits["name"], broken["name"]);
        EXPECT_LE(waits["wait_ms"], 50);
        EXPECT_EQ(waits["failed"], round);
        ASSERT_FALSE(ann.event("connected").is_null());
        ASSERT_FALSE(state(ann, "up").is_null());
        EXPECT_EQ(nameOf(ann.echo(whole())), "reply");
    }
}

TEST(JsonKeeper, WhatIsSentWhileDownGoesOutInItsOrder) {
    Gate trusted;
    Away const away;
    Talker ann;
    ASSERT_EQ(nameOf(waiting(ann, trusted, away)), "ok");
    EXPECT_EQ(state(ann, "waiting")["name"], "refused");
    for (int i = 101; i <= 104; ++i) {
        say(ann, i, Json::object(), i == 103 ? "send" : "request");
    }
    say(ann, 105, {{"time_limit_ms", 1}});
    EXPECT_EQ(nameOf(answer(ann, 105)), "timed_out");
    EXPECT_EQ(ann.ask({{"@type", "state"}})["keeper"]["outbox"], 4);
    auto const gate = away.arrive();
    for (int i = 101; i <= 104; ++i) {
        EXPECT_EQ(nameOf(answer(ann, i)), i == 103 ? "ok" : "reply");
    }
    EXPECT_TRUE(gate->gateway.wait([](Stats const & s) { return s.packets == 4; }));
}

TEST(JsonKeeper, OutboxHasItsBoundAndItsPolicy) {
    Gate trusted;
    Away const away;
    for (std::string const policy : {"refuse", "drop_oldest", "wait"}) {
        Talker ann;
        Json const outbox = {{"outbox", {{"messages", 2}, {"policy", policy}}}};
        ASSERT_EQ(nameOf(waiting(ann, trusted, away, outbox)), "ok");
        for (int i = 101; i <= 103; ++i) {
            say(ann, i);
        }
        if (policy == "refuse") {
            EXPECT_EQ(nameOf(answer(ann, 103)), "outbox_full");
        } else if (policy == "drop_oldest") {
            EXPECT_EQ(nameOf(answer(ann, 101)), "dropped");
        }
        EXPECT_EQ(ann.ask({{"@type", "state"}})["keeper"]["outbox"], policy == "wait" ? 3 : 2);
        auto const gate = away.arrive();
        for (int i = 101; i <= 103; ++i) {
            bool const ended = (policy == "refuse" && i == 103) || (policy == "drop_oldest" && i == 101);
            EXPECT_TRUE(ended || nameOf(answer(ann, i)) == "reply") << policy << i;
        }
    }
}

TEST(JsonKeeper, RequestGoesOutAgainOnlyIfItMay) {
    Options options;
    options.faults.silence = true;
    Gate gate(options);
    Talker ann;
    ASSERT_EQ(nameOf(ann.ask(kept(gate))), "ok");
    ASSERT_TRUE(gate.gateway.wait([](Stats const & s) { return s.open == 1; }));
    say(ann, 101);
    say(ann, 102, {{"safe_to_repeat", true}});
    ASSERT_TRUE(gate.gateway.wait([](Stats const & s) { return s.packets == 2; }));
    gate.gateway.setFaults(tav::gateway::Faults());
    gate.gateway.drop();
    EXPECT_EQ(nameOf(answer(ann, 101)), "connection_lost");
    EXPECT_EQ(nameOf(answer(ann, 102)), "reply");
    EXPECT_EQ(gate.gateway.stats().packets, 3u);
}

TEST(JsonKeeper, LoginGoesFirstOnEachConnection) {
    std::mutex mutex;
    std::vector<unsigned short> codes;
    Options options;
    options.on_packet = [&](unsigned short code, std::string const &) {
        std::lock_guard<std::mutex> const guard(mutex);
        codes.push_back(code);
    };
    Gate gate(options);
    Talker ann;
    Json const login = {{"class", "chat.Say"},
                        {"message", {{"text", "ann"}, {"sure", true}, {"mood", 7}}},
                        {"reply", "chat.Said"},
                        {"expect", {{"text", "ann"}, {"sure", true}, {"mood", 7}}}};
    Json request = kept(gate, {{"login", login}});
    Json refused = request;
    refused["keeper"]["login"]["expect"]["mood"] = 8;
    EXPECT_EQ(nameOf(ann.ask(refused)), "ok");
    EXPECT_EQ(state(ann, "waiting")["name"], "login_refused");
    EXPECT_EQ(ann.ask({{"@type", "state"}})["connected"], false);
    EXPECT_EQ(nameOf(ann.ask({{"@type", "disconnect"}})), "ok");
    ASSERT_TRUE(gate.gateway.wait([](Stats const & s) { return s.open == 0; }));
    {
        std::lock_guard<std::mutex> const guard(mutex);
        codes.clear();
    }
    EXPECT_EQ(nameOf(ann.ask(request)), "ok");
    EXPECT_EQ(ann.event("logged_in")["message"]["text"], "ann");
    ASSERT_FALSE(ann.event("connected").is_null());
    ASSERT_TRUE(gate.gateway.wait([](Stats const & s) { return s.open == 1; }));
    gate.gateway.drop();
    ASSERT_FALSE(ann.event("disconnected").is_null());
    // This waits for the login of the next connection.
    Json const sent = {{"@type", "request"}, {"code", 0x1000}, {"body", "AQID"}, {"reply", 0x1001}};
    EXPECT_EQ(nameOf(ann.ask(sent)), "reply");
    EXPECT_EQ(ann.event("logged_in")["message"]["text"], "ann");
    std::lock_guard<std::mutex> const guard(mutex);
    EXPECT_EQ(codes, (std::vector<unsigned short>{0x3001, 0x3001, 0x1000}));
}

TEST(JsonKeeper, GatewaysAreTriedByPreference) {
    Gate gate;
    Away const away;
    Talker ann;
    Json request = gate.connect();
    request.erase("host");
    request.erase("port");
    request["keeper"] = {
        {"gateways",
         {{{"host", "127.0.0.1"}, {"port", gate.gateway.port()}, {"preference", 2}},
          {{"host", "127.0.0.1"}, {"port", std::to_string(away.port())}, {"preference", 1}}}}};
    EXPECT_EQ(nameOf(ann.ask(request)), "ok");
    EXPECT_EQ(state(ann, "connecting")["port"], std::to_string(away.port()));
    Json const second = state(ann, "connecting");
    EXPECT_EQ(second["port"], std::to_string(gate.gateway.port()));
    EXPECT_EQ(second["name"], "refused");
    EXPECT_FALSE(state(ann, "up").is_null());
}

TEST(JsonKeeper, KeeperThatCanNeverWorkSaysSo) {
    Gate gate;
    Talker ann;
    Json request = kept(gate);
    request["policy"] = {{"certificate_file", "/nowhere/at/all"}, {"key_file", "/nowhere/at/all"}};
    EXPECT_EQ(nameOf(ann.ask(request)), "bad_policy");
    EXPECT_EQ(state(ann, "stopped")["name"], "bad_policy");
    EXPECT_EQ(nameOf(ann.echo(whole())), "stopped");
    // A connect that is not kept takes its place.
    EXPECT_EQ(nameOf(ann.ask(gate.connect())), "ok");
    EXPECT_EQ(nameOf(ann.echo(whole())), "reply");
    gate.gateway.drop();
    EXPECT_FALSE(ann.event("disconnected").is_null());
    Json const then = ann.ask({{"@type", "state"}});
    EXPECT_EQ(then["connected"], false);
    EXPECT_FALSE(then.contains("keeper"));
}

TEST(JsonKeeper, WhatCanNotBeKeptFailsWhileDown) {
    Gate trusted;
    Away const away;
    Talker ann;
    ASSERT_EQ(nameOf(waiting(ann, trusted, away)), "ok");
    Json old = {{"@type", "send"}, {"code", 7}, {"body", "AQID"}};
    EXPECT_EQ(nameOf(ann.ask(old)), "not_connected");
    old["target"] = "bob";
    EXPECT_EQ(nameOf(ann.ask(old)), "not_connected");
}

TEST(JsonKeeper, StopByDestroyIsToldWithItsGateway) {
    Gate gate;
    Talker ann;
    ASSERT_EQ(nameOf(ann.ask(kept(gate))), "ok");
    ASSERT_FALSE(state(ann, "up").is_null());
    tav_json_destroy(ann.client);
    Json const stopped = state(ann, "stopped");
    EXPECT_EQ(stopped["name"], "cancelled");
    EXPECT_EQ(stopped["host"], "127.0.0.1");
    EXPECT_EQ(stopped["port"], std::to_string(gate.gateway.port()));
}

TEST(JsonKeeper, DestroyWhileDownAnswersAll) {
    Gate trusted;
    Away const away;
    Talker ann;
    ASSERT_EQ(nameOf(waiting(ann, trusted, away, {{"outbox", {{"messages", 3}, {"policy", "wait"}}}})), "ok");
    std::set<int> open;
    for (int i = 101; i <= 110; ++i) {
        say(ann, i, Json::object(), i % 2 == 0 ? "send" : "request");
        open.insert(i);
    }
    auto const begun = std::chrono::steady_clock::now();
    tav_json_destroy(ann.client);
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(2));
    std::string last;
    while (char const * const text = tav_json_receive(ann.client, limit_s)) {
        Json const one = Json::parse(text);
        last = one["@type"];
        if (one.contains("@extra")) {
            EXPECT_EQ(one["name"], "cancelled") << one;
            EXPECT_EQ(open.erase(one["@extra"].get<int>()), 1u);
        }
    }
    EXPECT_EQ(last, "closed");
    EXPECT_TRUE(open.empty());
}

TEST(JsonKeeper, BadOptionsNameTheField) {
    Gate gate;
    Talker ann;
    auto const with = [&](Json const & keeper) {
        Json request = gate.connect();
        request["keeper"] = keeper;
        Json const refused = ann.ask(request);
        EXPECT_EQ(execute({{"@type", "check"}, {"request", request}})["field"],
                  "request." + refused.value("field", ""));
        return nameOf(refused) + " " + refused.value("field", "");
    };
    EXPECT_EQ(with(true), "value_does_not_fit keeper");
    EXPECT_EQ(with({{"fist_wait_ms", 1}}), "unknown_field keeper.fist_wait_ms");
    EXPECT_EQ(with({{"first_wait_ms", -1}}), "value_does_not_fit keeper.first_wait_ms");
    EXPECT_EQ(with({{"reset_after_ms", "long"}}), "value_does_not_fit keeper.reset_after_ms");
    EXPECT_EQ(with({{"gateways", 1}}), "value_does_not_fit keeper.gateways");
    EXPECT_EQ(with({{"gateways", {1}}}), "value_does_not_fit keeper.gateways[0]");
    EXPECT_EQ(with({{"gateways", {{{"host", "a"}}}}}), "field_missing keeper.gateways[0].port");
    EXPECT_EQ(with({{"gateways", {{{"host", "a"}, {"port", 1}, {"x", 1}}}}}),
              "unknown_field keeper.gateways[0].x");
    EXPECT_EQ(with({{"outbox", {{"messages", 1.5}}}}), "value_does_not_fit keeper.outbox.messages");
    EXPECT_EQ(with({{"outbox", {{"policy", "lose"}}}}), "value_does_not_fit keeper.outbox.policy");
    Json login = {{"class", "chat.PushMe"}, {"message", {{"text", 7}}}, {"reply", "chat.Pushing"}};
    EXPECT_EQ(with({{"login", login}}), "value_does_not_fit keeper.login.message.text");
    login["message"]["text"] = "ann";
    login["expect"] = {{"text", Json::array()}};
    EXPECT_EQ(with({{"login", login}}), "value_does_not_fit keeper.login.expect.text");
    login.erase("expect");
    login.erase("reply");
    EXPECT_EQ(with({{"login", login}}), "field_missing keeper.login.reply");
    login["rply"] = "chat.Pushing";
    EXPECT_EQ(with({{"login", login}}), "unknown_field keeper.login.rply");
    login.erase("rply");
    login["reply"] = "chat.Pushing";
    login.erase("message");
    EXPECT_EQ(with({{"login", login}}), "field_missing keeper.login.message");
    login["message"] = {{"text", "ann"}};
    login["class"] = "chat.Nobody";
    EXPECT_EQ(with({{"login", login}}), "template_lacks_class keeper.login.class");
    EXPECT_EQ(with({{"gateways", {{{"host", "a"}, {"port", 70000}}}}}),
              "bad_address keeper.gateways[0].port");
    Json empty = gate.connect();
    empty.erase("host");
    empty.erase("port");
    empty["keeper"] = {{"gateways", Json::array()}};
    Json const refused = ann.ask(empty);
    EXPECT_EQ(refused["field"], "keeper.gateways");
    EXPECT_EQ(refused["text"], "keeper.gateways: there has to be a gateway");
    empty["keeper"]["gateways"] = nullptr;
    EXPECT_EQ(ann.ask(empty)["field"], "host");
    EXPECT_EQ(gate.gateway.stats().connections, 0u);
}

TEST(JsonKeeper, EachRequestHasOneAnswerWhileTheGatewayFailsAndTheClientEnds) {
    Gate gate;
    for (int round = 0; round < 5; ++round) {
        auto ann = std::make_unique<Talker>();
        ASSERT_EQ(nameOf(ann->ask(kept(gate, {{"outbox", {{"messages", 20}, {"policy", "drop_oldest"}}}}))),
                  "ok");
        std::atomic<int> taken{0};
        std::vector<std::thread> senders;
        for (int t = 0; t < 3; ++t) {
            senders.emplace_back([&, t] {
                for (int i = 0; i < 60; ++i) {
                    Json request = Talker::said(whole());
                    request["safe_to_repeat"] = i % 2 == 0;
                    if (i % 20 == 19) {
                        request = {{"@type", t == 0 ? "reconnect" : t == 1 ? "disconnect" : "state"}};
                    }
                    request["@extra"] = i;
                    taken += tav_json_send(ann->client, request.dump().c_str()) == 0 ? 1 : 0;
                }
            });
        }
        gate.gateway.drop(round % 2 == 0);
        std::thread ender([&] { tav_json_destroy(ann->client); });
        for (std::thread & sender : senders) {
            sender.join();
        }
        ender.join();
        int answers = 0;
        std::string last;
        while (char const * const text = tav_json_receive(ann->client, limit_s)) {
            Json const one = Json::parse(text);
            last = one["@type"];
            answers += one.contains("@extra") && one["@extra"].is_number() ? 1 : 0;
        }
        EXPECT_EQ(last, "closed");
        EXPECT_EQ(answers, taken);
    }
}

TEST(JsonKeeper, ReasonOfAFailureIsToldInWords) {
    Gate gate;
    Talker ann;
    Json request = kept(gate);
    request["ca"] = "/nowhere/at/all.pem";
    Json const refused = ann.ask(request);
    EXPECT_EQ(nameOf(refused), "bad_policy");
    EXPECT_EQ(refused.value("field", ""), "ca");
    EXPECT_NE(refused["text"].get<std::string>().find("/nowhere/at/all.pem"), std::string::npos) << refused;
    request["ca"] = "";
    EXPECT_EQ(nameOf(ann.ask(request)), "ok");
    Json const waits = state(ann, "waiting");
    EXPECT_EQ(waits["name"], "certificate_refused");
    EXPECT_NE(waits["text"].get<std::string>().find("certificate verify failed"), std::string::npos) << waits;
    Json const now = ann.ask({{"@type", "state"}})["keeper"];
    EXPECT_NE(now["text"].get<std::string>().find("certificate verify failed"), std::string::npos) << now;
}

TEST(JsonKeeper, WordsOfAFailureAreNotThoseOfTheNextOne) {
    Gate gate;
    Talker ann;
    Json login = Talker::said(whole());
    login.erase("@type");
    login["reply"] = "chat.Pushing";
    login["time_limit_ms"] = 50;
    Away const away;
    Json request =
        kept(gate, {{"gateways", {{{"host", "127.0.0.1"}, {"port", gate.gateway.port()}, {"preference", 1}}}},
                    {"login", login}});
    request["port"] = away.port();
    EXPECT_EQ(nameOf(ann.ask(request)), "ok");
    Json const second = ann.wait([&](Json const & v) {
        return v["@type"] == "keeper" && v["state"] == "waiting" &&
               v["port"] == std::to_string(gate.gateway.port());
    });
    EXPECT_EQ(second["name"], "timed_out");
    EXPECT_EQ(second["text"].get<std::string>().find("refused"), std::string::npos) << second;
}

TEST(JsonKeeper, GatewayThatCanHaveNoAddressEndsIt) {
    Gate gate;
    Talker ann;
    Json request =
        kept(gate, {{"gateways", {{{"host", "127.0.0.1"}, {"port", "no such service"}, {"preference", 1}}}}});
    request["port"] = "neither this one";
    Json const refused = ann.ask(request);
    EXPECT_EQ(nameOf(refused), "bad_address") << refused;
    EXPECT_EQ(refused.value("field", ""), "keeper.gateways[0].port");
    EXPECT_FALSE(state(ann, "stopped").is_null());
    request["keeper"].erase("gateways");
    EXPECT_EQ(ann.ask(request).value("field", ""), "port");
    // One that can be reached is enough.
    request["keeper"]["gateways"] = {{{"host", "127.0.0.1"}, {"port", "no such service"}}};
    request["port"] = gate.gateway.port();
    EXPECT_EQ(nameOf(ann.ask(request)), "ok");
}

TEST(JsonKeeper, ExpectedValuesAreComparedByTheirField) {
    Gate gate;
    Talker ann;
    Json const message = {{"text", "ann"}, {"tags", {"a"}}, {"ratio", 1},
                          {"big", 5},      {"mood", 3},     {"sure", true}};
    auto const with = [&](Json const & expect) {
        Json login = {
            {"class", "chat.Say"}, {"message", message}, {"reply", "chat.Said"}, {"expect", expect}};
        return ann.ask(kept(gate, {{"login", login}}));
    };
    for (Json const & expect : {Json{{"ratio", 1.0}}, Json{{"ratio", 1}}, Json{{"big", 5}},
                                Json{{"big", "5"}}, Json{{"mood", 3}, {"sure", true}, {"text", "ann"}}}) {
        EXPECT_EQ(nameOf(with(expect)), "ok");
        EXPECT_FALSE(state(ann, "up").is_null()) << expect;
    }
    EXPECT_EQ(nameOf(with({{"big", 6}})), "ok");
    EXPECT_EQ(state(ann, "waiting")["name"], "login_refused");
    EXPECT_EQ(with({{"txt", "ann"}}).value("field", ""), "keeper.login.expect.txt");
    EXPECT_EQ(nameOf(with({{"mood", "3"}})), "value_does_not_fit");
}
