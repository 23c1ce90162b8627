// No message class at all: a template, template.pml, describes the messages, and the program talks JSON.
#include <tav/vinta/vinta.h>

#include <fstream>
#include <future>
#include <iostream>
#include <string>

using namespace tav::tls;

int main(int argc, char ** argv) {
    if (argc != 5) {
        std::cerr << "usage: template HOST PORT CA-FILE TEMPLATE\n";
        return 2;
    }
    std::ifstream file(argv[4], std::ios::binary);
    connect_option option;
    option.host = argv[1];
    option.port = argv[2];
    option.ca = argv[3];
    option.metainfo.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    option.timedout.wait_ms(5000);
    option.set_on_error([](unsigned long long, unsigned short, int, char const * text) {
        std::cerr << "template: " << text << "\n"; // a template that is no PML, for one
    });
    std::promise<std::string> replied;
    std::promise<std::string> pushed;
    client gateway("template");
    auto const start = gateway.start(option);
    if (!start || start->wait() != result_ok) {
        std::cerr << "template: " << (start ? start->error() : last_failure()).message() << "\n";
        return 1;
    }
    // Classes are looked up in the template that the start has read, so this stands behind it.
    gateway.on_json_msg("chat.Pushed", [&](unsigned long long, unsigned short, char const * json, tavMsgExt) {
        pushed.set_value(json);
    });
    send_option tracked(5000, nullptr, false, 4);
    tracked.ack = gateway.find_code_by_class("chat.Said");
    tracked.set_json_ack_callback(
        [&](unsigned long long, unsigned short, char const * json, tavMsgExt) { replied.set_value(json); });
    auto const sent = gateway.send_json_msg(
        R"({"user":"ann", "password":"open sesame", "text":"good morning", "at":1700000000000, "mood":1,
            "tags":["sun"], "votes":{"ann":"2"}, "place":{"city":"Utrecht", "latitude":52.09}})",
        tracked, "chat.Say");
    if (!sent || sent->wait() != result_ok) {
        std::cerr << "template: " << (sent ? sent->error() : last_failure()).message() << "\n";
        return 1;
    }
    std::cout << replied.get_future().get() << "\n";

    gateway.send_json_msg(R"({"__class__":"chat.PushMe", "text":"wake me"})", send_option(), nullptr);
    std::string const push = pushed.get_future().get();
    std::cout << push << "\n";

    bool const refused = !gateway.send_json_msg(R"({"user":"ann"})", tracked, "chat.Say");
    std::cout << "a message that lacks fields: " << last_failure().message() << "\n";
    return refused && push == R"({ "__class__":"chat.Pushed", "text":"wake me" })" ? 0 : 1;
}
