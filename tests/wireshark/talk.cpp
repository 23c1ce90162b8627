// Talks to a gateway as the tests of the dissector want it captured, and writes the keys of the connection to
// a file.
#include <tav/vinta/vinta.h>

#include <fstream>
#include <future>
#include <iostream>
#include <iterator>
#include <string>

using namespace tav::tls;

namespace {

/// More than two TLS records hold.
constexpr std::size_t long_text = 40000;
constexpr int small_messages = 20;

/// Sends by the template and waits for the reply.
bool ask(client & gateway, std::string const & json, unsigned short version) {
    send_option option(10000, nullptr, false, version);
    option.ack = gateway.find_code_by_class("chat.Said");
    option.ext.traceId = "trace-7";
    option.set_json_ack_callback([](unsigned long long, unsigned short, char const *, tavMsgExt) {});
    auto const sent = gateway.send_json_msg(json.c_str(), option, "chat.Say");
    return sent && sent->wait() == result_ok;
}

std::string say(std::string const & text) {
    return R"({"user":"ann", "password":"open sesame", "text":")" + text +
           R"(", "at":1700000000000, "mood":1, "tags":["sun", "sea"], "votes":{"ann":"2"},
              "place":{"city":"Utrecht", "latitude":52.5}})";
}

bool talk(client & gateway, std::future<void> pushed) {
    if (!ask(gateway, say("good morning"), 4) || !ask(gateway, say(std::string(long_text, 'z')), 6)) {
        return false;
    }
    // Old packets, and many small messages, which go together.
    tav_istr const old_body("\xFF\x01\x28\x01\xF1\x02hi\xFF\x01\x29");
    gateway.send_old_nbr_msg(0x21, old_body, "bob");
    for (int i = 0; i < small_messages; ++i) {
        gateway.send_json_msg(R"({"__class__":"chat.PushMe", "text":"wake me"})", send_option(), nullptr);
    }
    return pushed.wait_for(std::chrono::seconds(10)) == std::future_status::ready &&
           ask(gateway, say("good night"), 4);
}

} // namespace

int main(int argc, char ** argv) {
    if (argc != 7) {
        std::cerr << "usage: wireshark_talk HOST PORT CA-FILE TEMPLATE KEYS 12|13\n";
        return 2;
    }
    std::ifstream file(argv[4], std::ios::binary);
    std::ofstream keys(argv[5]);
    tls_policy policy;
    policy.max_version = std::string(argv[6]) == "13" ? tls_1_3 : tls_1_2;
    policy.key_log = [&keys](char const * line) { keys << line << std::endl; };
    connect_option option;
    option.host = argv[1];
    option.port = argv[2];
    option.ca = argv[3];
    option.metainfo.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    option.timedout.wait_ms(10000);
    option.set_tls_policy(policy);

    std::promise<void> all_pushed;
    int pushes = 0;
    client gateway("talk");
    auto const start = gateway.start(option);
    if (!start || start->wait() != result_ok) {
        std::cerr << "wireshark_talk: " << (start ? start->error() : last_failure()).message() << "\n";
        return 1;
    }
    gateway.on_json_msg("chat.Pushed", [&](unsigned long long, unsigned short, char const *, tavMsgExt) {
        if (++pushes == small_messages) {
            all_pushed.set_value();
        }
    });
    bool const done = talk(gateway, all_pushed.get_future());
    gateway.close();
    client::finalize();
    return done ? 0 : 1;
}
