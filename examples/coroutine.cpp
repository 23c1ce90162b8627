// Requests one after another, and two at once, in a function that reads from top to bottom and blocks no
// thread.
#include <tav/kit/kit.h>

#include <chrono>
#include <iostream>
#include <string>

using namespace std::chrono_literals;
using namespace tav::kit;

struct Ask : message<Ask> {
    static constexpr char const * type_name = "Ask";
    static constexpr unsigned short type_code = 0x2001;
    tavString text;
    void traverse(tavCodecStream & s) override { ioField(s, 1, "text", text); }
};
struct Answer : message<Answer, Ask> {
    static constexpr char const * type_name = "Answer";
    static constexpr unsigned short type_code = 0x2002;
};

task<std::string> talk(tav::tls::client & gateway) {
    Ask ask;
    ask.text = "one";
    auto const first = co_await request<Answer>(gateway, ask, 5s, use_awaitable);
    if (!first) {
        co_return first.error().message();
    }
    ask.text = "two";
    auto left = request<Answer>(gateway, ask, 5s, use_awaitable);
    ask.text = "three";
    auto right = request<Answer>(gateway, ask, 5s, use_awaitable);
    auto const second = co_await std::move(left);
    auto const third = co_await std::move(right);
    // The value of a failure raises, and the future of `spawn` raises it again.
    co_return first->text.data() + std::string(" ") + second.value().text.data() + " " +
        third.value().text.data();
}

int main(int argc, char ** argv) {
    if (argc != 4) {
        std::cerr << "usage: coroutine HOST PORT CA-FILE\n";
        return 2;
    }
    tav::tls::client gateway("coroutine");
    auto const start = gateway.start(argv[1], argv[2], argv[3], nullptr, tav::tls::global_callback(),
                                     tav::tls::timedout_option(5000));
    if (!start || start->wait() != tav::tls::result_ok) {
        std::cerr << "coroutine: " << (start ? start->error() : tav::tls::last_failure()).message() << "\n";
        return 1;
    }
    std::string const said = spawn(talk(gateway)).get();
    std::cout << said << "\n";
    return said == "one two three" ? 0 : 1;
}
