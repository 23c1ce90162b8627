// What the gateway sends unasked.  It wants a receipt for it, which goes back when the function has returned.
#include <tav/kit/kit.h>

#include <chrono>
#include <future>
#include <iostream>
#include <mutex>

using namespace std::chrono_literals;
using namespace tav::kit;
/// The development gateway answers this one, and pushes its text besides.
struct PushMe : message<PushMe> {
    static constexpr char const * type_name = "PushMe";
    static constexpr unsigned short type_code = 0x7001;
    tavString text;
    void traverse(tavCodecStream & s) override { ioField(s, 1, "text", text); }
};
struct Taken : message<Taken, PushMe> {
    static constexpr char const * type_name = "Taken";
    static constexpr unsigned short type_code = 0x7002;
};
struct Pushed : message<Pushed, PushMe> {
    static constexpr char const * type_name = "Pushed";
    static constexpr unsigned short type_code = 0x7003;
};

int main(int argc, char ** argv) {
    if (argc != 4) {
        std::cerr << "usage: pushes HOST PORT CA-FILE\n";
        return 2;
    }
    // Ahead of the client, as its callbacks use it: what is made later goes first.
    std::promise<std::string> heard;
    std::once_flag once;
    tav::tls::client gateway("pushes");
    on<Pushed>(gateway, [&](Pushed const & pushed) {
        std::call_once(once, [&] { heard.set_value(pushed.text.data()); });
    });
    auto const start = gateway.start(argv[1], argv[2], argv[3], nullptr, tav::tls::global_callback(),
                                     tav::tls::timedout_option(5000));
    if (!start || start->wait() != tav::tls::result_ok) {
        std::cerr << "pushes: " << (start ? start->error() : tav::tls::last_failure()).message() << "\n";
        return 1;
    }
    PushMe wake;
    wake.text = "wake me";
    bool well = bool(request<Taken>(gateway, wake, 5s).get());
    auto pushed = heard.get_future();
    if (!well || pushed.wait_for(5s) != std::future_status::ready) {
        std::cerr << "pushes: nothing was pushed\n";
        return 1;
    }
    // The receipt went ahead of the last of these, so that it has gone for certain when that one is answered.
    for (int more = 0; more < 2; ++more) {
        well &= bool(request<Taken>(gateway, wake, 5s).get());
    }
    std::cout << "pushed: " << pushed.get() << "; receipts sent: " << gateway.statistics().receipts_sent
              << "\n";
    return well && gateway.statistics().receipts_sent > 0 ? 0 : 1;
}
