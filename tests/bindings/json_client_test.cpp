#include "bindings/json_rig.h"

#include "tav/vinta/vinta_log.h"

#include <atomic>
#include <cmath>
#include <filesystem>
#include <set>
#include <sstream>

using namespace tav_test;
using tav::gateway::Options;
using tav::gateway::Stats;

namespace {

Json whole() {
    return {{"text", "hello"}, {"tags", {"a"}}};
}

/// A body as it stands on the wire.
std::string bodyOf(std::string const & text) {
    std::string const digits = execute({{"@type", "encode"},
                                        {"template", chat},
                                        {"class", "chat.PushMe"},
                                        {"message", {{"text", text}}},
                                        {"as", "hex"}})["body"];
    std::string out;
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        out += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    }
    return out;
}

void connect(Talker & talker, Gate const & gate, Json const & more = Json::object()) {
    Json request = gate.connect();
    request.update(more);
    unsigned const before = gate.gateway.stats().handshakes;
    Json const answer = talker.ask(request);
    ASSERT_EQ(nameOf(answer), "ok") << answer;
    // The gateway's end may open a moment later; what it pushes until then goes to nobody.
    ASSERT_TRUE(gate.gateway.wait([&](Stats const & s) { return s.handshakes > before; }));
}

} // namespace

TEST(JsonClient, ConnectIsAnsweredAndToldWithWhatWasNegotiated) {
    Gate gate;
    Talker ann;
    connect(ann, gate);
    Json const event = ann.event("connected");
    EXPECT_EQ(event["tls"]["verified"], true);
    EXPECT_EQ(event["tls"]["matched_name"], "127.0.0.1");
    EXPECT_EQ(event["tls"]["chain"][0]["subject"], "CN=localhost");
    EXPECT_EQ(event["remote"], "127.0.0.1:" + std::to_string(gate.gateway.port()));
    EXPECT_EQ(ann.ask({{"@type", "state"}})["connected"], true);
}

TEST(JsonClient, KeyLogIsItsOwnersAlone) {
    Gate gate;
    Talker ann;
    Folder const folder;
    std::string const path = folder.path() + "/keys";
    Json policy = gate.connect()["policy"];
    policy["key_log_file"] = path;
    connect(ann, gate, {{"policy", policy}});
    EXPECT_GT(std::filesystem::file_size(path), 0u);
    EXPECT_EQ(std::filesystem::status(path).permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

TEST(JsonClient, ExtraOfAnyValueComesBackAsItCame) {
    Talker ann;
    for (std::string const extra : {"1", "12345678901234567890123", "1.0e5", "\"a\\u00e9\"", "null", "true",
                                    R"({"a": [1, {"b":null}]})"}) {
        std::string const request = R"({"@extra":)" + extra + R"(,"@type":"version"})";
        ASSERT_EQ(tav_json_send(ann.client, request.c_str()), 0);
        std::string const answer = tav_json_receive(ann.client, limit_s);
        EXPECT_NE(answer.find("\"@extra\":" + extra + ","), std::string::npos) << answer;
    }
}

TEST(JsonClient, RequestGetsItsReply) {
    Gate gate;
    Talker ann;
    connect(ann, gate);
    Json const answer = ann.echo(whole());
    EXPECT_EQ(answer["@type"], "reply") << answer;
    EXPECT_EQ(answer["class"], "chat.Said");
    EXPECT_EQ(answer["code"], 0x3002);
    EXPECT_EQ(answer["message"], whole());
}

TEST(JsonClient, MessagesGoByCodeToo) {
    Gate gate;
    Talker ann;
    connect(ann, gate);
    Json request = {{"@type", "request"}, {"code", 0x3001}, {"message", whole()}, {"reply", 0x3002}};
    EXPECT_EQ(ann.ask(request)["message"], whole());
    request = {{"@type", "request"}, {"code", 0x1000}, {"body", "AQID"}, {"reply", 0x1001}};
    Json const answer = ann.ask(request);
    EXPECT_EQ(answer["body"], "AQID") << answer;
    EXPECT_FALSE(answer.contains("class"));
    request["body"] = "EgA=";
    Json const refused = ann.ask(request);
    EXPECT_EQ(nameOf(refused), "encoding_failed");
    EXPECT_EQ(refused.value("field", ""), "body") << refused;
}

TEST(JsonClient, PushesAreEvents) {
    Gate gate;
    Talker ann;
    Talker bob;
    connect(ann, gate);
    connect(bob, gate);
    EXPECT_EQ(nameOf(ann.ask(Talker::said(whole(), "send"))), "ok");
    Json const push = bob.event("push");
    EXPECT_EQ(push["class"], "chat.Say");
    EXPECT_EQ(push["message"], whole());
    // One that no template knows comes as bytes.
    gate.gateway.push(0x4444, bodyOf("xyz"), false);
    Json const unknown = bob.wait([](Json const & v) { return v.value("code", 0) == 0x4444; });
    EXPECT_EQ(execute({{"@type", "decode"},
                       {"template", chat},
                       {"class", "chat.PushMe"},
                       {"body", unknown["body"]}})["message"]["text"],
              "xyz");
    // One whose bytes are no message comes with the reason.
    Json const lacking = execute({{"@type", "encode"},
                                  {"template", "A:object(__class__(A) __code__(3001) [2]mood:int8())"},
                                  {"class", "A"},
                                  {"message", {{"mood", 1}}}});
    ASSERT_EQ(nameOf(bob.ask({{"@type", "send"}, {"code", 0x3001}, {"body", lacking["body"]}})), "ok");
    Json const bad =
        ann.wait([](Json const & v) { return v.value("code", 0) == 0x3001 && v.contains("body"); });
    EXPECT_EQ(bad["name"], "bad_reply") << bad;
}

TEST(JsonClient, PushWithAReceiptIsConfirmed) {
    Options options;
    options.ask_affirm = true;
    Gate gate(options);
    Talker ann;
    connect(ann, gate);
    Json const pushed = ann.ask({{"@type", "request"},
                                 {"class", "chat.PushMe"},
                                 {"message", {{"text", "wake"}}},
                                 {"reply", "chat.Pushing"}});
    EXPECT_EQ(nameOf(pushed), "reply") << pushed;
    EXPECT_EQ(ann.event("push")["message"]["text"], "wake");
    EXPECT_TRUE(gate.gateway.wait([](Stats const & s) { return s.receipts_good == 1; }));
}

TEST(JsonClient, SendWithReceiptWaitsForThePeersWord) {
    Options options;
    options.echo = true;
    Gate gate(options);
    Talker ann;
    connect(ann, gate);
    Json request = Talker::said(whole(), "send");
    request["receipt"] = true;
    EXPECT_EQ(nameOf(ann.ask(request)), "receipt");
}

TEST(JsonClient, ReplyOfTheClassOfItsRequestIsAReply) {
    Options options;
    options.echo = true;
    Gate gate(options);
    for (bool const by_keeper : {false, true}) {
        Talker ann;
        connect(ann, gate, by_keeper ? Json{{"keeper", Json::object()}} : Json::object());
        Json request = Talker::said(whole());
        request["reply"] = "chat.Say";
        Json const reply = ann.ask(request);
        EXPECT_EQ(nameOf(reply), "reply") << by_keeper;
        EXPECT_EQ(reply["message"], whole());
        // One that says nothing confirms nothing.
        request.erase("message");
        request["body"] = "";
        Json const empty = ann.ask(request);
        EXPECT_EQ(nameOf(empty), "reply") << by_keeper;
        EXPECT_EQ(empty.value("name", ""), "bad_reply") << empty;
    }
}

TEST(JsonClient, OldMessagesGoAndCome) {
    Gate gate;
    Talker ann;
    connect(ann, gate);
    EXPECT_EQ(nameOf(ann.ask({{"@type", "send"}, {"code", 0x10}, {"body", "AQID"}, {"target", "bob"}})),
              "ok");
    Json const back = ann.event("push");
    EXPECT_EQ(back["code"], 0x11) << back;
    EXPECT_EQ(back["body"], "AQID");
}

TEST(JsonClient, FailuresHaveTheirNames) {
    Talker ann;
    Gate gate;
    EXPECT_EQ(nameOf(ann.ask({{"@type", "send"}, {"code", 0x3001}, {"body", ""}})), "not_connected");
    Json const again = ann.ask({{"@type", "reconnect"}});
    EXPECT_EQ(nameOf(again), "not_connected");
    EXPECT_EQ(again["text"], "there was no connect that could be made again");
    EXPECT_EQ(ann.ask({{"@type", "dance"}})["text"], "@type: there is no request dance");
    Json request = gate.connect();
    for (Json const & port : {Json("65536"), Json(70000), Json(-1), Json(1.5), Json("-1")}) {
        request["port"] = port;
        Json const refused = ann.ask(request);
        EXPECT_EQ(nameOf(refused), "bad_address");
        EXPECT_EQ(refused.value("field", ""), "port");
    }
    request["port"] = "no such service";
    EXPECT_EQ(nameOf(ann.ask(request)), "bad_address");
    EXPECT_EQ(ann.ask(request).value("field", ""), "port");
    request = gate.connect();
    request["proxy"] = {{"host", "127.0.0.1"}, {"port", "no such service"}};
    EXPECT_EQ(ann.ask(request).value("field", ""), "proxy.port");
    request = gate.connect();
    request["policy"] = {{"expected_name", "other.example"}};
    EXPECT_EQ(nameOf(ann.ask(request)), "name_mismatch");
    request["policy"] = {{"ciphers", "NO-SUCH"}};
    EXPECT_EQ(nameOf(ann.ask(request)), "bad_policy");
    EXPECT_EQ(ann.ask(request).value("field", ""), "policy.ciphers");
    request["policy"] = {{"min_version", "1.3"}, {"max_version", "1.2"}};
    EXPECT_EQ(ann.ask(request).value("field", ""), "policy.min_version");
    request["policy"] = {{"certificate_file", "/nowhere/at/all"}, {"key_file", "/nowhere/at/all"}};
    EXPECT_EQ(ann.ask(request).value("field", ""), "policy.certificate_file");
    request.erase("policy");
    request["ca"] = "/nowhere/at/all";
    EXPECT_EQ(ann.ask(request).value("field", ""), "ca");
    request["ca"] = "";
    EXPECT_EQ(nameOf(ann.ask(request)), "certificate_refused");
    request["policy"] = {{"safe", false}};
    EXPECT_EQ(nameOf(ann.ask(request)), "ok");
    unsigned short const port = gate.gateway.port();
    gate.gateway.stop();
    request["port"] = port;
    EXPECT_EQ(nameOf(ann.ask(request)), "refused");
}

TEST(JsonClient, OptionOfThePolicyThatCanNotBeKeptIsBlamed) {
    Gate gate;
    Talker ann;
    Json const wrong = {{"certificate_file", "/nowhere/at/all"},
                        {"certificate_pem", "none"},
                        {"key_file", "/nowhere/at/all"},
                        {"key_pem", "none"},
                        {"trusted_pem", "none"},
                        {"crl_file", "/nowhere/at/all"},
                        {"crl_pem", "none"},
                        {"ciphers", "none"},
                        {"cipher_suites", "none"},
                        {"alpn", {""}},
                        {"tcp_keep_alive_interval_s", 5},
                        {"tcp_keep_alive_probes", 5}};
    for (auto const & each : wrong.items()) {
        Json request = gate.connect();
        request["policy"] = {{each.key(), each.value()}};
        for (bool const by_keeper : {false, true}) {
            Json const answer = ann.ask(request);
            EXPECT_EQ(nameOf(answer), "bad_policy") << each.key() << by_keeper;
            EXPECT_EQ(answer.value("field", ""), "policy." + each.key()) << answer;
            request["keeper"] = Json::object();
        }
    }
    Json request = gate.connect();
    request["cipher"] = "none";
    EXPECT_EQ(ann.ask(request).value("field", ""), "cipher");
}

TEST(JsonClient, ConnectEndsByItsLimit) {
    Options options;
    options.faults.no_handshake = true;
    Gate gate(options);
    Talker ann;
    Json request = gate.connect();
    request["time_limit_ms"] = 200;
    EXPECT_EQ(nameOf(ann.ask(request)), "timed_out");
    // The next one is not held up by it.
    EXPECT_EQ(nameOf(ann.ask(request)), "timed_out");
}

TEST(JsonClient, RequestEndsByItsLimit) {
    Options options;
    options.faults.silence = true;
    Gate gate(options);
    Talker ann;
    connect(ann, gate);
    Json request = Talker::said(whole());
    request["time_limit_ms"] = 200;
    EXPECT_EQ(nameOf(ann.ask(request)), "timed_out");
}

TEST(JsonClient, BreakIsToldAndEndsWhatWaits) {
    Options options;
    options.faults.silence = true;
    Gate gate(options);
    Talker ann;
    connect(ann, gate);
    ASSERT_FALSE(ann.event("connected").is_null());
    Json request = Talker::said(whole());
    request["@extra"] = "waits";
    ann.send(request);
    ASSERT_TRUE(gate.gateway.wait([](Stats const & s) { return s.packets == 1; }));
    gate.gateway.drop();
    Json const broken = ann.event("disconnected");
    EXPECT_EQ(broken["name"], "closed_by_peer") << broken;
    Json const ended = ann.wait([](Json const & v) { return v.value("@extra", "") == "waits"; });
    EXPECT_EQ(nameOf(ended), "closed_by_peer") << ended;
    // And again, with what the last connect had.
    gate.gateway.setFaults(tav::gateway::Faults());
    EXPECT_EQ(nameOf(ann.ask({{"@type", "reconnect"}})), "ok");
    EXPECT_EQ(nameOf(ann.echo(whole())), "reply");
}

TEST(JsonClient, FrameThatIsNoneEndsTheConnection) {
    Gate gate;
    Talker ann;
    connect(ann, gate);
    gate.gateway.sendRaw(std::string("\x01\x00\x00\x00", 4));
    EXPECT_EQ(ann.event("disconnected")["name"], "bad_frame");
    EXPECT_EQ(ann.ask({{"@type", "state"}})["connected"], false);
}

TEST(JsonClient, DisconnectIsToldOnce) {
    Gate gate;
    Talker ann;
    connect(ann, gate);
    EXPECT_EQ(nameOf(ann.ask({{"@type", "disconnect"}})), "ok");
    EXPECT_EQ(ann.event("disconnected")["name"], "cancelled");
    EXPECT_EQ(nameOf(ann.ask({{"@type", "disconnect"}})), "ok");
    EXPECT_TRUE(gate.gateway.wait([](Stats const & s) { return s.open == 0; }));
    connect(ann, gate);
    connect(ann, gate);
    EXPECT_EQ(nameOf(ann.echo(whole())), "reply");
    int connected = 0;
    int disconnected = 0;
    for (Json const & each : ann.heard) {
        connected += each["@type"] == "connected" ? 1 : 0;
        disconnected += each["@type"] == "disconnected" ? 1 : 0;
    }
    EXPECT_EQ(connected, 3);
    EXPECT_EQ(disconnected, 1);
}

TEST(JsonClient, ConnectUnderWayMakesAnotherBusyAndEndsByDisconnect) {
    Options options;
    options.faults.no_handshake = true;
    Gate gate(options);
    Talker ann;
    Json request = gate.connect();
    request["@extra"] = "first";
    ann.send(request);
    EXPECT_EQ(nameOf(ann.ask(gate.connect())), "busy");
    EXPECT_EQ(nameOf(ann.ask({{"@type", "disconnect"}})), "ok");
    Json const first = ann.wait([](Json const & v) { return v.value("@extra", "") == "first"; });
    EXPECT_EQ(nameOf(first), "cancelled");
}

TEST(JsonClient, LimitsRefuseAndTellHighWater) {
    // A gateway that does not read while it is held, since its thread is.
    Hold gateway;
    Options options;
    options.faults.silence = true;
    options.log = [&gateway](std::string const &) { gateway.pass(); };
    Gate gate(options);
    Talker ann;
    connect(ann, gate, {{"limits", {{"tracked_sends", 1}, {"queued_bytes", 10000}}}});
    gateway.hold();
    Json request = Talker::said(whole());
    request["@extra"] = "first";
    ann.send(request);
    EXPECT_EQ(nameOf(ann.ask(Talker::said(whole()))), "too_many_sends");
    std::string const text = Talker::said({{"text", std::string(1000000, 'A')}}, "send").dump();
    for (int i = 0; i < 40; ++i) {
        EXPECT_EQ(tav_json_send(ann.client, text.c_str()), 0);
    }
    gateway.release();
    EXPECT_FALSE(ann.wait([](Json const & v) { return v.value("name", "") == "queue_full"; }).is_null());
    EXPECT_EQ(ann.event("queue")["full"], true);
    EXPECT_EQ(ann.event("queue")["full"], false);
}

TEST(JsonClient, WhatIsNotReceivedHoldsTheGatewayBack) {
    Gate gate;
    Talker ann;
    connect(ann, gate, {{"limits", {{"received_waiting", 4}}}});
    constexpr unsigned many = 200;
    std::string const body = bodyOf(std::string(1000, 'x'));
    for (unsigned i = 0; i < many; ++i) {
        gate.gateway.push(0x4444, body, false);
    }
    // What is read at most: four in the client, four behind it, and what was on its way.
    unsigned came = 0;
    for (; came < many; ++came) {
        Json const push = ann.event("push");
        ASSERT_FALSE(push.is_null());
        EXPECT_EQ(push["code"], 0x4444);
        Json const counted = execute({{"@type", "statistics"}}, ann.client);
        ASSERT_LE(counted["messages_received"].get<unsigned>(), came + 20);
    }
}

TEST(JsonClient, StatisticsCount) {
    Gate gate;
    Talker ann;
    connect(ann, gate);
    ann.echo(whole());
    // A send counts when the callback of its reply has ended, a moment behind the answer.
    Json counted;
    auto const until = std::chrono::steady_clock::now() + std::chrono::duration<double>(limit_s);
    do {
        counted = ann.ask({{"@type", "statistics"}});
    } while (counted["sends_ok"] != 1 && std::chrono::steady_clock::now() < until);
    EXPECT_EQ(counted["sends_ok"], 1);
    EXPECT_EQ(counted["connects_up"], 1);
}

TEST(JsonClient, BadRequestsNameWhatIsWrong) {
    Talker ann;
    auto const refused = [&](Json const & request) {
        Json const answer = ann.ask(request);
        return nameOf(answer) + " " + answer.value("field", "") +
               (answer["text"].get<std::string>().empty() ? " without text" : "");
    };
    Gate gate;
    EXPECT_EQ(refused(Json::object()), "field_missing @type");
    EXPECT_EQ(refused({{"@type", "fly"}}), "unknown_type @type");
    EXPECT_EQ(refused({{"@type", 7}}), "value_does_not_fit @type");
    EXPECT_EQ(refused({{"@type", "version"}, {"x", 1}}), "unknown_field x");
    EXPECT_EQ(refused({{"@type", "connect"}}), "field_missing host");
    EXPECT_EQ(refused({{"@type", "connect"}, {"host", "a"}}), "field_missing port");
    Json const base = gate.connect();
    auto const with = [&](char const * name, Json const & value) {
        Json out = base;
        out[name] = value;
        return refused(out);
    };
    EXPECT_EQ(with("host", 1), "value_does_not_fit host");
    EXPECT_EQ(with("host", std::string("a\0b", 3)), "value_does_not_fit host");
    EXPECT_EQ(with("heartbeat", "yes"), "value_does_not_fit heartbeat");
    EXPECT_EQ(with("time_limit_ms", 0), "value_does_not_fit time_limit_ms");
    EXPECT_EQ(with("time_limit_ms", 1.5), "value_does_not_fit time_limit_ms");
    EXPECT_EQ(with("policy", {{"min_version", "1.1"}}), "value_does_not_fit policy.min_version");
    EXPECT_EQ(with("policy", {{"alpn", {1}}}), "value_does_not_fit policy.alpn[0]");
    EXPECT_EQ(with("policy", {{"chek_name", true}}), "unknown_field policy.chek_name");
    EXPECT_EQ(with("limits", {{"queued_frames", -1}}), "value_does_not_fit limits.queued_frames");
    EXPECT_EQ(with("limits", 5), "value_does_not_fit limits");
    EXPECT_EQ(with("proxy", {{"port", 1}}), "field_missing proxy.host");
    EXPECT_EQ(with("proxy", {{"host", "a"}, {"port", 1}, {"type", "socks4"}}),
              "value_does_not_fit proxy.type");
    EXPECT_EQ(with("template", "Say:object("), "bad_template template");
    EXPECT_EQ(refused({{"@type", "request"}, {"code", 4096}, {"body", "AAAA"}}), "field_missing reply");
    EXPECT_EQ(refused({{"@type", "send"}, {"code", 4096}}), "field_missing message");
    EXPECT_EQ(refused({{"@type", "send"}, {"code", 4096}, {"body", "AAA"}}), "value_does_not_fit body");
    EXPECT_EQ(refused({{"@type", "send"}, {"code", 65535}, {"body", "AAAA"}}), "value_does_not_fit code");
    EXPECT_EQ(refused({{"@type", "send"}, {"code", 4096}, {"body", "AAAA"}, {"target", "bob"}}),
              "value_does_not_fit target");
    EXPECT_EQ(refused({{"@type", "decode"}, {"code", 4096}}), "field_missing body");
}

TEST(JsonClient, LogGoesToAFile) {
    Folder const folder;
    std::string const path = folder.path() + "/app.log";
    EXPECT_EQ(nameOf(execute(
                  {{"@type", "log"}, {"file", path}, {"levels", "(default(DEBUG))"}, {"size", 1000000}})),
              "ok");
    {
        Gate gate;
        Talker ann;
        connect(ann, gate);
        EXPECT_EQ(nameOf(ann.echo(whole())), "reply");
    }
    EXPECT_EQ(nameOf(execute({{"@type", "log"}, {"levels", "(default(INFO))"}})), "ok");
    tavLogger::close();
    std::stringstream lines;
    lines << std::ifstream(path).rdbuf();
    EXPECT_NE(lines.str().find("send nbr msg 0x3001"), std::string::npos) << lines.str();
    tavLogger::finalize();
}

TEST(JsonClient, LogRefusesWhatItWouldLetPass) {
    auto const refused = [](Json request) {
        request["@type"] = "log";
        Json const answer = execute(request);
        EXPECT_EQ(answer["text"].get<std::string>().find("throw at"), std::string::npos) << answer;
        return nameOf(answer) + " " + answer.value("field", "");
    };
    for (char const * const levels :
         {"(default(NOPE))", "default(WARN)", "(default(WARN)net())", "(default(WARN"}) {
        EXPECT_EQ(refused({{"levels", levels}}), "value_does_not_fit levels") << levels;
    }
    EXPECT_EQ(refused({{"file", "/nowhere/at/all.log"}}), "value_does_not_fit file");
    EXPECT_EQ(refused({{"file", "/tmp/a.log"}, {"size", 0}}), "value_does_not_fit size");
    EXPECT_EQ(refused({{"size", 5000}}), "field_missing levels");
    EXPECT_EQ(refused({{"levels", "(default(WARN))"}, {"size", 5000}}), "value_does_not_fit size");
}

TEST(JsonClient, MisspeltMemberIsToldAheadOfTheOneThatIsMissing) {
    Talker ann;
    auto const refused = [&](Json const & request) {
        Json const answer = ann.ask(request);
        return nameOf(answer) + " " + answer.value("field", "");
    };
    EXPECT_EQ(refused({{"@tpe", "connect"}}), "unknown_field @tpe");
    EXPECT_EQ(refused({{"@type", "connect"}, {"hst", "a"}, {"port", 1}}), "unknown_field hst");
    EXPECT_EQ(refused({{"@type", "connect"}, {"host", "a"}, {"prot", 1}}), "unknown_field prot");
    Json connect = {{"@type", "connect"}, {"host", "a"}, {"port", 1}, {"proxy", {{"hst", "b"}, {"port", 1}}}};
    EXPECT_EQ(refused(connect), "unknown_field proxy.hst");
    EXPECT_EQ(refused({{"@type", "check"}, {"request", connect}}), "unknown_field request.proxy.hst");
    EXPECT_EQ(refused({{"@type", "check"}, {"request", {{"@tpe", "send"}}}}), "unknown_field request.@tpe");
    EXPECT_EQ(refused({{"@type", "check"}, {"reqest", connect}}), "unknown_field reqest");
    EXPECT_EQ(refused({{"@type", "request"}, {"code", 4096}, {"body", "AAAA"}, {"repy", 4097}}),
              "unknown_field repy");
    EXPECT_EQ(refused({{"@type", "send"}, {"code", 4096}, {"bdy", "AAAA"}}), "unknown_field bdy");
    EXPECT_EQ(refused({{"@type", "send"}, {"cod", 4096}, {"body", "AAAA"}}), "unknown_field cod");
    EXPECT_EQ(refused({{"@type", "encode"}, {"template", chat}, {"clas", "chat.Say"}, {"message", whole()}}),
              "unknown_field clas");
    EXPECT_EQ(refused({{"@type", "decode"}, {"template", chat}, {"class", "chat.Say"}, {"bdy", "AAAA"}}),
              "unknown_field bdy");
    EXPECT_EQ(refused({{"@type", "log"}, {"level", "(default(WARN))"}}), "unknown_field level");
    // Alone, the missing one is named.
    EXPECT_EQ(refused({{"@type", "check"}, {"request", {{"host", "a"}}}}), "field_missing request.@type");
    EXPECT_EQ(refused({{"@type", "encode"}, {"template", chat}, {"message", whole()}}),
              "field_missing class");
}

TEST(JsonClient, CheckRefusesWhatSendRefuses) {
    auto const refused = [&](char const * name, Json const & value) {
        Json request = {{"@type", "send"}, {"code", 4096}, {"body", "AAAA"}};
        request[name] = value;
        Json const answer = execute({{"@type", "check"}, {"request", request}});
        return nameOf(answer) + " " + answer.value("field", "");
    };
    for (char const * const each :
         {"time_limit_ms", "version", "grey", "safe_to_repeat", "receipt", "target"}) {
        EXPECT_EQ(refused(each, Json::object()), std::string("value_does_not_fit request.") + each);
    }
    EXPECT_EQ(refused("grey", true), "ok ");
    EXPECT_EQ(refused("class", "chat.Say"), "template_lacks_class request.class");
}

TEST(JsonClient, NothingOfAConnectionIsToldBehindItsEnd) {
    Gate gate;
    Talker ann;
    connect(ann, gate, {{"limits", {{"received_waiting", 2}}}});
    std::string const body = bodyOf("late");
    for (int i = 0; i < 20; ++i) {
        gate.gateway.push(0x4444, body, false);
    }
    ASSERT_FALSE(ann.event("push").is_null());
    EXPECT_EQ(nameOf(ann.ask({{"@type", "disconnect"}})), "ok");
    ASSERT_FALSE(ann.event("disconnected").is_null());
    connect(ann, gate);
    tav_json_destroy(ann.client);
    ann.heard.clear();
    while (char const * const text = tav_json_receive(ann.client, limit_s)) {
        EXPECT_NE(Json::parse(text)["@type"], "push");
    }
}

TEST(JsonClient, MessageOfAnOldCodeIsNotToldAsOfTheNextConnection) {
    Gate gate;
    for (int round = 0; round < 10; ++round) {
        Talker ann;
        connect(ann, gate, {{"limits", {{"received_waiting", 2}}}});
        for (int i = 0; i < 20; ++i) {
            gate.gateway.push(0x44, bodyOf("late"), false);
        }
        ASSERT_FALSE(ann.event("push").is_null());
        connect(ann, gate);
        ASSERT_EQ(nameOf(ann.echo(whole())), "reply");
        bool over = false;
        for (Json const & each : ann.heard) {
            over = over || each["@type"] == "disconnected";
            EXPECT_FALSE(over && each["@type"] == "push") << round;
        }
        EXPECT_TRUE(over);
        // The new one brings its own.
        gate.gateway.push(0x44, "\1\2\3", false);
        EXPECT_EQ(ann.wait([](Json const & v) { return v.value("body", "") == "AQID"; })["code"], 0x44);
    }
}

TEST(JsonClient, MessageThatIsNestedTooDeepComesAsItsBytes) {
    Json const deep = "T:object(__class__(T) __code__(3001) [1]t:T?()) "
                      "R:object(__class__(R) __code__(3002) [1]t:T?())";
    std::string message;
    for (int i = 0; i < 5000; ++i) {
        message += "{\"t\":";
    }
    message += "{}" + std::string(5000, '}');
    std::string const request = R"({"@type":"encode","as":"base64","class":"T","template":)" + deep.dump() +
                                R"(,"message":)" + message + "}";
    std::string const body = Json::parse(tav_json_execute(nullptr, request.c_str()))["body"];
    Gate gate;
    Talker ann;
    Talker bob;
    connect(ann, gate);
    connect(bob, gate, {{"template", deep}});
    EXPECT_EQ(nameOf(ann.ask({{"@type", "send"}, {"code", 0x3001}, {"body", body}})), "ok");
    Json const push = bob.event("push");
    EXPECT_EQ(push["name"], "bad_reply");
    EXPECT_EQ(push["body"], body);
    Json const reply = bob.ask({{"@type", "request"}, {"code", 0x3001}, {"body", body}, {"reply", "R"}});
    EXPECT_EQ(reply["@type"], "reply");
    EXPECT_EQ(reply["name"], "bad_reply");
    EXPECT_EQ(reply["body"], body);
}

TEST(JsonClient, TextThatIsNoJsonNamesThePosition) {
    Talker ann;
    struct Case {
        char const * text;
        int position;
    };
    for (Case const & each :
         {Case{"", 0}, Case{"hello", 0}, Case{"{\"a\":1,}", 7}, Case{"[1,]", 3}, Case{"{\"a\":1}x", 7},
          Case{"{\"a\":01}", 5}, Case{"{\"a\":\"\x01\"}", 6}, Case{"{\"a\":\"\xff\"}", 6}, Case{"{'a':1}", 1},
          Case{"{\"a\":\"\\x\"}", 6}, Case{"{\"a\":\"\\ud800\"}", 6}, Case{"{\"a\":nul}", 5},
          Case{"{\"a\"", 4}, Case{"{\n\"a\":\n?}", 7}}) {
        ASSERT_EQ(tav_json_send(ann.client, each.text), 0);
        Json const answer = Json::parse(tav_json_receive(ann.client, limit_s));
        EXPECT_EQ(answer["name"], "bad_json") << each.text;
        EXPECT_EQ(answer["position"], each.position) << each.text << answer;
    }
    ASSERT_EQ(tav_json_send(ann.client, "[1]"), 0);
    EXPECT_EQ(Json::parse(tav_json_receive(ann.client, limit_s))["name"], "bad_json");
    ASSERT_EQ(tav_json_send(ann.client, nullptr), 0);
    EXPECT_EQ(Json::parse(tav_json_receive(ann.client, limit_s))["name"], "bad_json");
    // What had been read ahead of the fault comes back.
    for (char const * const text : {"{\"@extra\":[7],\"@type\":", "{\"@extra\":[7],\"x\":\"\xff\"}"}) {
        ASSERT_EQ(tav_json_send(ann.client, text), 0);
        EXPECT_EQ(Json::parse(tav_json_receive(ann.client, limit_s))["@extra"], Json{7});
    }
}

TEST(JsonClient, DepthCostsNoStack) {
    Talker ann;
    std::size_t const depth = 300000;
    for (bool const whole : {false, true}) {
        std::string const request = R"({"@extra":1,"@type":"version","x":)" + std::string(depth, '[') +
                                    (whole ? std::string(depth, ']') : std::string()) + "}";
        ASSERT_EQ(tav_json_send(ann.client, request.c_str()), 0);
        std::string const answer = tav_json_receive(ann.client, limit_s);
        EXPECT_NE(answer.find("\"error\""), std::string::npos);
    }
}

TEST(JsonClient, AnyBytesAsRequestGetOneAnswer) {
    Talker ann;
    std::string const seed =
        R"x({"@type":"encode","template":"A:object(__class__(A) __code__(1001) [1]m:map{string,int8}() )x"
        R"x([2]l:list{A}())","class":"A","@extra":{"a":[1]},"message":{"m":{"\u00e9":1},"l":[{"m":{"a":"b"}}]}})x";
    unsigned long long state = 0x9e3779b97f4a7c15ull;
    auto const next = [&state] {
        state ^= state << 13u;
        state ^= state >> 7u;
        state ^= state << 17u;
        return state >> 16u;
    };
    std::string const bytes = "{}[]\",:\\u0 e1-.tfn\x01\xc3\xff'()*@?";
    for (int i = 0; i < 4000; ++i) {
        std::string request = seed;
        for (unsigned n = 0; n < 1 + next() % 6; ++n) {
            std::size_t const at = next() % request.size();
            switch (next() % 3) {
            case 0: request[at] = bytes[next() % bytes.size()]; break;
            case 1: request.erase(at, 1 + next() % 5); break;
            default: request.insert(at, 1, bytes[next() % bytes.size()]);
            }
        }
        ASSERT_EQ(tav_json_send(ann.client, request.c_str()), 0);
        char const * const answer = tav_json_receive(ann.client, 0);
        ASSERT_NE(answer, nullptr) << request;
        ASSERT_TRUE(Json::accept(answer)) << request << "\n" << answer;
        ASSERT_EQ(tav_json_receive(ann.client, 0), nullptr) << request;
        char const * const executed = tav_json_execute(ann.client, request.c_str());
        ASSERT_TRUE(executed != nullptr && Json::accept(executed)) << request;
    }
}

TEST(JsonClient, HandlesThatAreNoneDoNoHarm) {
    auto * const none = static_cast<tav_json_client *>(nullptr);
    int thing = 0;
    auto * const wrong = reinterpret_cast<tav_json_client *>(&thing);
    for (tav_json_client * const each : {none, wrong}) {
        EXPECT_EQ(tav_json_send(each, R"({"@type":"version"})"), -1);
        EXPECT_EQ(tav_json_receive(each, 5), nullptr);
        EXPECT_EQ(Json::parse(tav_json_execute(each, R"({"@type":"version"})"))["@type"], "version");
        EXPECT_EQ(Json::parse(tav_json_execute(each, R"({"@type":"state"})"))["name"], "closed");
        EXPECT_EQ(Json::parse(tav_json_execute(each, nullptr))["name"], "bad_json");
        tav_json_destroy(each);
    }
}

TEST(JsonClient, ExecuteRefusesWhatTakesTime) {
    EXPECT_EQ(execute({{"@type", "connect"}})["name"], "unknown_type");
    EXPECT_EQ(execute({{"@type", "version"}, {"@extra", "a"}})["@extra"], "a");
}

TEST(JsonClient, CheckReadsARequestWithoutDoingIt) {
    Gate gate;
    EXPECT_EQ(nameOf(execute({{"@type", "check"}, {"request", gate.connect()}})), "ok");
    Json wrong = gate.connect();
    wrong["policy"] = {{"security_level", 9}};
    EXPECT_EQ(execute({{"@type", "check"}, {"request", wrong}})["field"], "request.policy.security_level");
    Json const say = Talker::said({{"text", 7}});
    EXPECT_EQ(execute({{"@type", "check"}, {"template", chat}, {"request", say}})["field"],
              "request.message.text");
    EXPECT_EQ(gate.gateway.stats().connections, 0u);
}

TEST(JsonClient, ReceiveWaitsForItsLimitAndNoLonger) {
    Talker ann;
    auto const begin = std::chrono::steady_clock::now();
    EXPECT_EQ(tav_json_receive(ann.client, 0.1), nullptr);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(99));
    for (double const seconds : {0.0, -1.0, -HUGE_VAL, std::nan("")}) {
        EXPECT_EQ(tav_json_receive(ann.client, seconds), nullptr);
    }
    // Without end, until something comes.
    std::thread later([&ann] { tav_json_send(ann.client, R"({"@type":"version"})"); });
    EXPECT_NE(tav_json_receive(ann.client, HUGE_VAL), nullptr);
    later.join();
}

TEST(JsonClient, ReceivedTextStaysUntilTheThreadReceivesAgain) {
    Talker ann;
    ann.send({{"@type", "version"}, {"@extra", "mine"}});
    ann.send({{"@type", "version"}, {"@extra", "others"}});
    char const * const mine = tav_json_receive(ann.client, limit_s);
    std::string const copy = mine;
    std::thread([&ann] {
        EXPECT_NE(std::string(tav_json_receive(ann.client, limit_s)).find("others"), std::string::npos);
    }).join();
    tav_json_execute(ann.client, R"({"@type":"version"})");
    EXPECT_EQ(mine, copy);
}

TEST(JsonClient, DestroyAnswersWhatIsPendingAndClosesLast) {
    Options options;
    options.faults.silence = true;
    Gate gate(options);
    std::set<int> open;
    Talker ann;
    connect(ann, gate);
    for (int i = 0; i < 50; ++i) {
        Json request = Talker::said(whole());
        request["@extra"] = 1000 + i;
        ann.send(request);
        open.insert(1000 + i);
    }
    tav_json_destroy(ann.client);
    EXPECT_EQ(tav_json_send(ann.client, R"({"@type":"version"})"), -1);
    std::string last;
    while (char const * const text = tav_json_receive(ann.client, limit_s)) {
        Json const one = Json::parse(text);
        EXPECT_NE(last, "closed");
        last = one["@type"];
        if (one.contains("@extra")) {
            EXPECT_EQ(one["name"], "cancelled") << one;
            EXPECT_EQ(open.erase(one["@extra"].get<int>()), 1u);
        }
    }
    EXPECT_EQ(last, "closed");
    EXPECT_TRUE(open.empty());
    EXPECT_EQ(tav_json_receive(ann.client, limit_s), nullptr);
    EXPECT_TRUE(gate.gateway.wait([](Stats const & s) { return s.open == 0; }));
}

TEST(JsonClient, DestroyEndsAConnectUnderWay) {
    Options options;
    options.faults.no_handshake = true;
    Gate gate(options);
    Talker ann;
    Json request = gate.connect();
    request["@extra"] = 1;
    ann.send(request);
    tav_json_destroy(ann.client);
    EXPECT_EQ(Json::parse(tav_json_receive(ann.client, limit_s))["name"], "cancelled");
    EXPECT_EQ(Json::parse(tav_json_receive(ann.client, limit_s))["@type"], "closed");
}

TEST(JsonClient, DestroyEndsAConnectThroughAProxyThatSaysNothing) {
    Options options;
    options.faults.no_handshake = true;
    Gate proxy(options);
    Gate gate;
    Talker ann;
    Json request = gate.connect();
    request["proxy"] = {{"host", "127.0.0.1"}, {"port", proxy.gateway.port()}};
    request["@extra"] = 1;
    ann.send(request);
    ASSERT_TRUE(proxy.gateway.wait([](Stats const & s) { return s.connections == 1; }));
    auto const begun = std::chrono::steady_clock::now();
    tav_json_destroy(ann.client);
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(5));
    EXPECT_EQ(Json::parse(tav_json_receive(ann.client, limit_s))["name"], "cancelled");
    EXPECT_EQ(Json::parse(tav_json_receive(ann.client, limit_s))["@type"], "closed");
}

TEST(JsonClient, EachOfManyThatEndTogetherGivesAllItsAnswers) {
    std::vector<tav_json_client *> all;
    for (int i = 0; i < 40; ++i) {
        all.push_back(tav_json_create("gone"));
        ASSERT_NE(all.back(), nullptr);
        for (int n = 0; n < 10; ++n) {
            ASSERT_EQ(tav_json_send(all.back(), R"({"@type":"version","@extra":1})"), 0);
        }
        tav_json_destroy(all.back());
        tav_json_destroy(all.back());
    }
    for (tav_json_client * const each : all) {
        for (int n = 0; n < 10; ++n) {
            char const * const text = tav_json_receive(each, limit_s);
            ASSERT_NE(text, nullptr);
            EXPECT_EQ(Json::parse(text)["@type"], "version");
        }
        char const * const last = tav_json_receive(each, limit_s);
        ASSERT_NE(last, nullptr);
        EXPECT_EQ(Json::parse(last)["@type"], "closed");
        EXPECT_EQ(tav_json_receive(each, limit_s), nullptr);
    }
}

TEST(JsonClient, WhatNobodyReceivesOfManyIsBoundByItsSize) {
    std::string const request = R"({"@type":"version","@extra":")" + std::string(1u << 20u, 'x') + "\"}";
    std::vector<tav_json_client *> all;
    for (int i = 0; i < 24; ++i) {
        all.push_back(tav_json_create("gone"));
        ASSERT_NE(all.back(), nullptr);
        ASSERT_EQ(tav_json_send(all.back(), request.c_str()), 0);
        if (i == 0) {
            ASSERT_EQ(tav_json_send(all.back(), request.c_str()), 0);
            ASSERT_NE(tav_json_receive(all.back(), limit_s), nullptr);
        }
        tav_json_destroy(all.back());
    }
    // From the first one somebody has received a moment ago.
    EXPECT_NE(tav_json_receive(all[0], limit_s), nullptr);
    EXPECT_EQ(tav_json_receive(all[1], 0), nullptr);
    EXPECT_NE(tav_json_receive(all[23], limit_s), nullptr);
    EXPECT_EQ(Json::parse(tav_json_receive(all[23], limit_s))["@type"], "closed");
    for (tav_json_client * const each : all) {
        while (tav_json_receive(each, 0) != nullptr) {
        }
    }
}

TEST(JsonClient, DestroyWakesTheReceiver) {
    Talker ann;
    std::atomic<bool> closed{false};
    std::thread receiver([&] {
        char const * const text = tav_json_receive(ann.client, 60);
        closed = text != nullptr && Json::parse(text)["@type"] == "closed";
    });
    tav_json_destroy(ann.client);
    receiver.join();
    EXPECT_TRUE(closed);
}

TEST(JsonClient, ManyThreadsGetOneAnswerEach) {
    Gate gate;
    Talker ann;
    connect(ann, gate);
    constexpr int threads = 4;
    constexpr int each = 100;
    std::vector<std::thread> senders;
    for (int t = 0; t < threads; ++t) {
        senders.emplace_back([&ann, t] {
            for (int i = 0; i < each; ++i) {
                Json request = Talker::said(whole());
                if (i % 3 == 1) {
                    request = Talker::said(whole(), "send");
                } else if (i % 3 == 2) {
                    request["message"]["text"] = 7;
                }
                request["@extra"] = t * each + i;
                tav_json_send(ann.client, request.dump().c_str());
            }
        });
    }
    std::set<int> seen;
    while (seen.size() < threads * each) {
        Json const one = ann.wait([](Json const & v) { return v.contains("@extra"); });
        ASSERT_FALSE(one.is_null()) << seen.size();
        int const extra = one["@extra"];
        EXPECT_TRUE(seen.insert(extra).second);
        char const * const expected[] = {"reply", "ok", "value_does_not_fit"};
        EXPECT_EQ(nameOf(one), expected[extra % each % 3]) << one;
    }
    for (std::thread & sender : senders) {
        sender.join();
    }
    EXPECT_EQ(tav_json_receive(ann.client, 0), nullptr);
}

TEST(JsonClient, EachRequestHasOneAnswerWhileTheGatewayFailsAndTheClientEnds) {
    Gate gate;
    for (int round = 0; round < 5; ++round) {
        auto ann = std::make_unique<Talker>();
        connect(*ann, gate);
        std::atomic<int> taken{0};
        std::vector<std::thread> senders;
        for (int t = 0; t < 3; ++t) {
            senders.emplace_back([&, t] {
                for (int i = 0; i < 60; ++i) {
                    Json request = Talker::said(whole());
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
