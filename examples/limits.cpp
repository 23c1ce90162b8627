// A sender that is held back, and the numbers to watch: docs/production.md.
#include <tav/vinta/vinta.h>

#include "steps.h"

#include <string>

using namespace tav::tls;

namespace {

constexpr unsigned most_waiting = 16;

/// An NBR body of some 100 kB.
std::string largeBody() {
    tav::nbr::NbrOutputStream out;
    out << tav_istr(std::string(100000, 'x'));
    return std::string(tav_istr(out.str()));
}

} // namespace

int main(int argc, char ** argv) {
    if (argc != 4) {
        std::cerr << "usage: limits HOST PORT CA-FILE\n";
        return 2;
    }
    auto const water = std::make_shared<steps::Events>();
    connect_option option;
    option.host = argv[1];
    option.port = argv[2];
    option.ca = argv[3];
    option.timedout.wait_ms(5000);
    option.limits.queued_frames = most_waiting;
    option.limits.on_queue = [water](bool full) { water->happened(full ? "high" : "low"); };

    steps::Talk talk;
    client & gateway = client::instance("limits");
    auto const connecting = gateway.start(option);
    talk.step("connected", connecting && connecting->wait() == result_ok);

    std::string const body = largeBody();
    unsigned accepted = 0;
    do {
        gateway.send_nbr_msg(0x2001, reinterpret_cast<unsigned char const *>(body.data()),
                             static_cast<unsigned>(body.size()), send_option());
        accepted += last_failure() ? 0 : 1;
    } while (!last_failure() && accepted < 100000);
    talk.step("refused by name: " + last_failure().message(), last_failure() == failure::queue_full);
    talk.step("told of high water", water->wait("high"));
    talk.step("told of low water, when half of it is sent", water->wait("low"));

    statistics const all = gateway.statistics();
    talk.step("never more than the limit waits", all.queued_frames <= most_waiting);
    std::cout << all.prometheus("limits");
    client::finalize();
    return talk.failed() ? 1 : 0;
}
