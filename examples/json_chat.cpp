#include "steps.h"

#include <tav/vinta/vinta.h>

#include <atomic>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>

// Two clients, ann and bob, talk through a development gateway without any message class of their own: a
// template, chat.pml, describes the messages, and the program sends and receives JSON.

namespace {

using namespace tav::tls;
using namespace steps;

// Log lines come on all threads.
std::atomic<Talk *> logged_by{nullptr};
std::atomic<bool> masked{false};
std::atomic<bool> leaked{false};

/// Takes the log lines that show messages: they hold the fields of a message, protected ones masked.
void onLog(int, char const * text) {
    std::string const line = text;
    std::size_t const at = line.find(" json @");
    if (at != std::string::npos && line.find("[2]password:\"***[11]\"") != std::string::npos) {
        masked = true;
    }
    if (line.find("open sesame") != std::string::npos) {
        leaked = true;
    }
    Talk * const talk = logged_by;
    if (at != std::string::npos && talk) {
        talk->note("log:" + line.substr(at, line.find('\n', at) - at));
    }
}

std::string readFile(char const * path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return in ? out.str() : std::string();
}

std::string const greeting = R"({
    "user": "ann", "password": "open sesame", "text": "good morning", "at": 1700000000000, "mood": 1,
    "tags": ["sun", "wind"], "votes": {"ann": "2", "bob": -1}, "place": {"city": "Utrecht", "latitude": 52.09}
})";

/// What the others get of it, as a message of this class.
std::string heard(std::string const & className) {
    return R"({ "__class__":")" + className +
           R"(", "at":"1700000000000", "mood":1, "password":"open sesame", )"
           R"("place":{ "city":"Utrecht", "latitude":52.09 }, "tags":[ "sun", "wind" ], )"
           R"("text":"good morning", "user":"ann", "votes":{ "ann":"2", "bob":"-1" } })";
}

void sendWrongTexts(client & ann, send_option const & tracked, Talk & talk) {
    talk.step("a message that lacks fields is refused",
              !ann.send_json_msg(R"({"user":"ann"})", tracked, "chat.Say"));
    talk.step("so is one of an unknown class", !ann.send_json_msg("{}", tracked, "chat.Nothing"));
    talk.step("and text that is no JSON", !ann.send_json_msg("good morning", tracked, "chat.Say"));
}

void talk(char ** argv, std::string const & chat, Talk & talk, Events & events) {
    client & ann = client::instance("ann");
    client & bob = client::instance("bob");

    auto const start = [&](client & one) {
        connect_option option;
        option.host = argv[1];
        option.port = argv[2];
        option.ca = argv[3];
        option.metainfo = chat;
        option.timedout.wait_ms(limit_ms);
        // What no other callback is for: here, the push.
        option.set_json_msg_callback([&](unsigned long long, unsigned short, char const * json, tavMsgExt) {
            talk.step(std::string("a push arrives: ") + json,
                      json == std::string(R"({ "__class__":"chat.Pushed", "text":"wake me" })"));
            events.happened("pushed");
        });
        auto const info = one.start(option);
        return info && info->wait() == result_ok;
    };
    talk.step("ann connects", start(ann));
    talk.step("bob connects", start(bob));

    unsigned short const say = ann.find_code_by_class("chat.Say");
    unsigned short const said = ann.find_code_by_class("chat.Said");
    talk.step("the template knows the codes", say == 0x3001 && said == 0x3002 &&
                                                  ann.find_class_by_code(say) == "chat.Say" &&
                                                  ann.find_code_by_class("chat.Nothing") == 0xffff);

    // From now on, since classes are looked up in the template that the start has read.
    bob.on_json_msg("chat.Say", [&](unsigned long long, unsigned short, char const * json, tavMsgExt) {
        talk.step(std::string("bob hears ") + json, json == heard("chat.Say"));
        events.happened("bob heard");
    });

    send_option const tracked(
        limit_ms, nullptr, nullptr,
        [&](unsigned long long, unsigned short, char const * json, tavMsgExt) {
            talk.step(std::string("ann's reply: ") + json, json == heard("chat.Said"));
            events.happened("replied");
        },
        said, false, 4);
    auto const byClass = ann.send_json_msg(greeting.c_str(), tracked, "chat.Say");
    talk.step("ann says it, by class, and gets her reply",
              byClass && byClass->wait() == result_ok && events.wait("replied"));
    talk.step("it has reached bob", events.wait("bob heard"));
    auto const byCode = ann.send_json_msg(greeting.c_str(), tracked, std::to_string(say).c_str());
    talk.step("ann says it, by code, and gets her reply",
              byCode && byCode->wait() == result_ok && events.wait("replied", 2));
    talk.step("it has reached bob too", events.wait("bob heard", 2));

    // The answer to this one is of no interest, so that only the push is left for the global callback.
    bob.on_json_msg(0x7002, nullptr);
    bob.send_json_msg(R"({"__class__":"chat.PushMe","text":"wake me"})", send_option(), nullptr);
    talk.step("the gateway pushes to bob", events.wait("pushed"));

    sendWrongTexts(ann, tracked, talk);
    talk.step("the connection is none the worse", ann.connected());
}

} // namespace

int main(int argc, char ** argv) {
    if (argc != 5) {
        std::cerr << "usage: json_chat HOST PORT CA-FILE TEMPLATE\n";
        return 2;
    }
    std::string const chat = readFile(argv[4]);
    if (chat.empty()) {
        std::cerr << "can't read " << argv[4] << "\n";
        return 2;
    }
    Talk steps;
    Events events;
    logged_by = &steps;
    tavLogger::setup("(clear(NONE)TLS.CLT(INFO))", onLog, false, tavLogger::NONE);
    talk(argv, chat, steps, events);
    client::finalize();
    logged_by = nullptr;
    steps.step("the log shows passwords masked only", masked && !leaked);
    steps.step("no thread is left", threads() == 1);
    return steps.failed() ? 1 : 0;
}
