// The first program without the kit: a message class written by hand, and the client alone.
#include <tav/vinta/vinta.h>

#include <iostream>

struct Hello : tavMessage {
    tavString text;

    unsigned short msgcode() const override { return 0x2001; }
    tav_istr className() const override { return "Hello"; }
    tav_istr baseName() const override { return "tavMessage"; }
    tavObject * newInstance() const override { return new Hello; }
    void assignFrom(tavObject const & other) override {
        if (auto const * from = dynamic_cast<Hello const *>(&other)) {
            *this = *from;
        }
    }

protected:
    void traverse(tavCodecStream & s) override { ioField(s, 1, "text", text); }
};

struct Greeting : Hello {
    unsigned short msgcode() const override { return 0x2002; }
    tav_istr className() const override { return "Greeting"; }
    tav_istr baseName() const override { return "Hello"; }
    tavObject * newInstance() const override { return new Greeting; }
};

int main(int argc, char ** argv) {
    using namespace tav::tls;
    if (argc != 4) {
        std::cerr << "usage: by_hand HOST PORT CA-FILE\n";
        return 2;
    }
    connect_option option;
    option.host = argv[1];
    option.port = argv[2];
    option.ca = argv[3];
    option.timedout.wait_ms(5000);
    client & gateway = client::instance("by_hand");
    auto const start = gateway.start(option);
    if (!start) {
        std::cerr << "by_hand: the host or the port is empty\n";
        client::finalize();
        return 2;
    }
    Hello hello;
    hello.text = "hello, gateway";
    Greeting reply;
    result_type result = start->wait();
    if (result == result_ok) {
        result = gateway.send_and_wait(hello, reply, 5000);
    } else {
        std::cerr << "by_hand: " << start->error().message() << "\n";
    }
    std::cout << result << ": " << reply.text << "\n";
    client::finalize();
    return result == result_ok && reply.text == hello.text ? 0 : 1;
}
