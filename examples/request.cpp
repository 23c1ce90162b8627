// One call, three ways to get its reply, and what a request that fails says.
#include <tav/kit/kit.h>

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
        std::cerr << "usage: request HOST PORT CA-FILE\n";
        return 2;
    }
    tav::tls::client gateway("request");
    auto const start = gateway.start(argv[1], argv[2], argv[3], nullptr, tav::tls::global_callback(),
                                     tav::tls::timedout_option(5000));
    if (!start || start->wait() != tav::tls::result_ok) {
        std::cerr << "request: " << (start ? start->error() : tav::tls::last_failure()).message() << "\n";
        return 1;
    }
    Ask ask;
    ask.text = "how are you?";

    // Three under way at once.  Each is sent by the call, and ends exactly once.
    std::future<result<Answer>> first = request<Answer>(gateway, ask, 5s);
    std::promise<bool> told;
    request<Answer>(gateway, ask, 5s, [&](result<Answer> const & answer) { told.set_value(bool(answer)); });
    cancellation changed_my_mind;
    auto third = request<Answer>(gateway, ask, within(5s).unless(changed_my_mind));
    changed_my_mind.cancel();

    std::cout << "future:   " << first.get().value().text << "\n";
    std::cout << "callback: " << (told.get_future().get() ? "answered" : "not answered") << "\n";
    std::cout << "third:    " << third.get().error().message() << " (unless the reply was faster)\n";

    auto const late = request<Answer>(gateway, ask, 0s).get();
    auto const lost = request<Answer>(gateway, HangUp(), 5s).get();
    std::cout << "late:     " << late.error().message() << "\nlost:     " << lost.error().message() << "\n";
    return late.error() == failure::timed_out && lost.error() == failure::disconnected ? 0 : 1;
}
