// Connects to a gateway, says hello and prints the reply.
#include <tav/kit/kit.h>

#include <chrono>
#include <iostream>

using namespace std::chrono_literals;

struct Hello : tav::kit::message<Hello> {
    static constexpr char const * type_name = "Hello";
    static constexpr unsigned short type_code = 0x2001;
    tavString text;
    void traverse(tavCodecStream & s) override { ioField(s, 1, "text", text); }
};

struct Greeting : tav::kit::message<Greeting, Hello> {
    static constexpr char const * type_name = "Greeting";
    static constexpr unsigned short type_code = 0x2002;
};

int main(int argc, char ** argv) {
    if (argc != 4) {
        std::cerr << "usage: first HOST PORT CA-FILE\n";
        return 2;
    }
    tav::tls::connect_option option;
    option.host = argv[1];
    option.port = argv[2];
    option.ca = argv[3];
    option.timedout.wait_ms(5000);

    tav::tls::client gateway("first");
    auto const start = gateway.start(option);
    if (!start) {
        std::cerr << "first: the host or the port is empty\n";
        return 2;
    }
    if (start->wait() != tav::tls::result_ok) {
        std::cerr << "first: " << start->error().message() << "\n";
        return 1;
    }

    Hello hello;
    hello.text = "hello, gateway";
    auto const reply = tav::kit::request<Greeting>(gateway, hello, 5s).get();
    if (!reply) {
        std::cerr << "first: " << reply.error().message() << "\n";
        return 1;
    }
    std::cout << reply->text << "\n";
    return reply->text == hello.text ? 0 : 1;
}
