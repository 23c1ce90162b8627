// A connection that is kept: made again when it ends, logged in first, and with an outbox for what is sent
// meanwhile.
#include <tav/kit/keeper.h>
#include <tav/kit/message.h>

#include <chrono>
#include <iostream>

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
/// The development gateway hangs up on this one.
struct HangUp : message<HangUp, Ask> {
    static constexpr char const * type_name = "HangUp";
    static constexpr unsigned short type_code = 0x7005;
};

int main(int argc, char ** argv) {
    if (argc != 4) {
        std::cerr << "usage: reconnect HOST PORT CA-FILE\n";
        return 2;
    }
    tav::tls::connect_option option;
    option.ca = argv[3];
    Ask login;
    login.text = "it's me";

    keeper_option how;
    how.gateways = {{argv[1], argv[2]}, {argv[1], "1", 1}}; // the second only if the first is away
    how.login = login_with<Answer>(login, 5s);
    how.on_state = [](keeper_status const & now) {
        std::cout << now.state << (now.cause ? ", " + now.cause.message() : std::string()) << std::endl;
    };
    keeper gateway(option, how, "reconnect");
    gateway.start();
    // Sent at once, although nobody is connected yet: it waits for that, at most 20 s.
    Ask ask;
    ask.text = "still there?";
    auto const first = request<Answer>(gateway, ask, 20s).get();
    if (!first) {
        std::cerr << "reconnect: " << first.error().message() << "\n";
        return 1;
    }
    // The gateway hangs up.  What may be repeated goes out again on the next connection.
    bool ok = request<Answer>(gateway, HangUp(), 20s).get().error() == failure::disconnected;
    auto const again = request<Answer>(gateway, ask, within(20s).repeatable()).get();
    ok = again && again->text == ask.text && ok;
    gateway.stop();
    return ok ? 0 : 1;
}
