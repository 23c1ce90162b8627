// A sender that is held back, and the numbers to watch: docs/operators.md.
#include <tav/vinta/vinta.h>

#include <chrono>
#include <condition_variable>
#include <iostream>
#include <mutex>
#include <string>

using namespace tav::tls;

/// An NBR body of some 100 kB.
static tavBytes body() {
    tav::nbr::NbrOutputStream out;
    out << tav_istr(std::string(100000, 'x'));
    return out.str();
}

int main(int argc, char ** argv) {
    if (argc != 4) {
        std::cerr << "usage: limits HOST PORT CA-FILE\n";
        return 2;
    }
    std::mutex mutex;
    std::condition_variable changed;
    bool told = false, full = false;
    connect_option option;
    option.host = argv[1];
    option.port = argv[2];
    option.ca = argv[3];
    option.timedout.wait_ms(5000);
    option.limits.queued_frames = 16;
    option.limits.on_queue = [&](bool high) {
        std::lock_guard<std::mutex> const guard(mutex);
        told = true;
        full = high;
        changed.notify_all();
    };
    client gateway("limits");
    auto const connecting = gateway.start(option);
    if (!connecting || connecting->wait() != result_ok) {
        std::cerr << "limits: " << (connecting ? connecting->error() : last_failure()).message() << "\n";
        return 1;
    }
    tavBytes const bytes = body();
    unsigned sent = 0;
    do {
        gateway.send_nbr_msg(0x2001, bytes.data(), bytes.size(), send_option());
    } while (!last_failure() && ++sent < 100000);
    bool const refused = last_failure() == failure::queue_full;
    std::cout << sent << " accepted, then: " << last_failure().message() << "\n";

    std::unique_lock<std::mutex> guard(mutex);
    bool const drained = changed.wait_for(guard, std::chrono::seconds(10), [&] { return told && !full; });
    std::cout << (drained ? "half of it has gone: time to go on\n" : "nothing goes out\n");

    statistics const all = gateway.statistics();
    std::cout << all.prometheus("limits");
    return refused && drained && all.queued_frames <= 16 ? 0 : 1;
}
