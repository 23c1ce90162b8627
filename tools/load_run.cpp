#include "tools/load_run.h"

#include "tools/connection.h"
#include "tools/interrupts.h"
#include "tools/progress.h"

#include <tav/vinta/vinta_tls_client.h>

#include <poll.h>
#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <deque>
#include <memory>
#include <mutex>

namespace tav {
namespace tool {

namespace {

typedef std::chrono::steady_clock Clock;

/// So many clients connect at a time, so that no handshake waits for all others.
constexpr std::size_t mostConnecting = 32;
/// What may wait to be sent, over all clients.
constexpr unsigned long long mostQueuedBytes = 256ull * 1024 * 1024;
constexpr unsigned long long leastQueuedBytes = 1024 * 1024;
constexpr std::chrono::milliseconds glance(5);

unsigned long long microsecondsSince(Clock::time_point then) {
    auto const past = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - then).count();
    return past > 0 ? static_cast<unsigned long long>(past) : 0;
}

double secondsSince(Clock::time_point then) {
    return std::chrono::duration<double>(Clock::now() - then).count();
}

double cpuSeconds() {
    rusage used{};
    ::getrusage(RUSAGE_SELF, &used);
    auto const seconds = [](timeval const & t) {
        return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6;
    };
    return seconds(used.ru_utime) + seconds(used.ru_stime);
}

double memoryMegabytes() {
    rusage used{};
    ::getrusage(RUSAGE_SELF, &used);
    return static_cast<double>(used.ru_maxrss) / 1024;
}

/// What the clients' threads tell.
class Tally {
public:
    explicit Tally(LoadResult & result) : result_(result) {}

    /// The end of a send.  One that ran out of time has waited for that long at least, and counts so.
    void ended(std::error_code why, Clock::time_point due, Clock::time_point made) {
        if (!why || why == tls::failure::timed_out) {
            result_.latency.put(microsecondsSince(due));
            result_.service.put(microsecondsSince(made));
        }
        count(why);
    }
    void count(std::error_code why) {
        if (why) {
            std::lock_guard<std::mutex> const guard(mutex_);
            ++result_.sends[nameOf(why)];
        } else {
            ++good_;
        }
        ++ended_;
    }
    void add(std::string const & name, unsigned long long n) {
        std::lock_guard<std::mutex> const guard(mutex_);
        result_.sends[name] += n;
    }
    void broke(std::error_code why) {
        std::lock_guard<std::mutex> const guard(mutex_);
        ++result_.breaks[nameOf(why)];
    }
    /// A push under this sequence, which is that of a send unless 65535 have been begun since.
    void came(unsigned long long sequence) {
        long long const due = due_[sequence & 0xffff].load(std::memory_order_relaxed);
        if (due != 0) {
            ++delivered_;
            result_.latency.put(microsecondsSince(Clock::time_point(Clock::duration(due))));
        }
    }
    void begin(unsigned long long sequence, Clock::time_point due) {
        due_[sequence & 0xffff].store(due.time_since_epoch().count(), std::memory_order_relaxed);
    }

    unsigned long long ended() const { return ended_; }
    unsigned long long good() const { return good_; }
    unsigned long long delivered() const { return delivered_; }

private:
    LoadResult & result_;
    std::mutex mutex_;
    std::atomic<unsigned long long> ended_{0};
    std::atomic<unsigned long long> good_{0};
    std::atomic<unsigned long long> delivered_{0};
    std::array<std::atomic<long long>, 0x10000> due_{};
};

class Load {
public:
    Load(LoadPlan const & plan, LoadResult & result)
        : plan_(plan), result_(result), tally_(std::make_unique<Tally>(result)) {
        for (LoadMessage const & message : plan.messages) {
            codes_[message.code] = true;
        }
    }
    ~Load() { close(); }
    Load(Load const &) = delete;
    Load & operator=(Load const &) = delete;

    void run() {
        connect();
        if (result_.connected > 0 && interrupts_.signal() == 0) {
            Clock::time_point const begin = Clock::now();
            double const used = cpuSeconds();
            send();
            result_.seconds = secondsSince(begin);
            drain();
            result_.cpuSeconds = cpuSeconds() - used;
            result_.wallSeconds = secondsSince(begin);
        }
        result_.signal = interrupts_.signal();
        // What still waits ends with its client, and tells so.
        close();
        if (tally_->good() > 0) {
            result_.sends["ok"] = tally_->good();
        }
        result_.delivered = tally_->delivered();
        result_.memoryMegabytes = memoryMegabytes();
    }

private:
    struct Connecting {
        std::size_t client;
        std::shared_ptr<tls::connect_info> info;
    };

    /// Waits until then, or until a signal; false for a signal.
    bool waitUntil(Clock::time_point then) {
        for (;;) {
            if (interrupts_.signal() != 0) {
                return false;
            }
            auto const left =
                std::chrono::duration_cast<std::chrono::nanoseconds>(then - Clock::now()).count();
            if (left <= 0) {
                return true;
            }
            constexpr long long second = 1000000000;
            timespec const time{static_cast<time_t>(left / second), static_cast<long>(left % second)};
            pollfd what{interrupts_.fd(), POLLIN, 0};
            ::ppoll(&what, 1, &time, nullptr);
        }
    }

    tls::connect_option option() const {
        tls::connect_option made = plan_.connect;
        made.timedout.wait_ms(static_cast<int>(plan_.limitMs));
        made.limits.queued_bytes = std::max(leastQueuedBytes, mostQueuedBytes / plan_.clients);
        made.set_on_error([this](unsigned long long, unsigned short, int, char const *) {
            if (sending_) {
                tally_->broke(tls::last_failure());
            }
        });
        made.set_nbr_msg_callback([this](unsigned long long sequence, unsigned short code,
                                         unsigned char const *, unsigned, tavMsgExt const &) {
            if (plan_.push && codes_[code]) {
                tally_->came(sequence);
            }
        });
        return made;
    }

    void connect() {
        Clock::time_point const begin = Clock::now();
        auto const limit = begin + std::chrono::milliseconds(plan_.limitMs);
        std::deque<Connecting> going;
        while ((clients_.size() < plan_.clients || !going.empty()) && Clock::now() < limit) {
            while (clients_.size() < plan_.clients && going.size() < mostConnecting) {
                std::string const name = "load-" + std::to_string(clients_.size() + 1);
                clients_.push_back(std::make_unique<tls::client>(tav_istr(name.data(), name.size())));
                going.push_back(Connecting{clients_.size() - 1, clients_.back()->start(option())});
                if (!going.back().info) {
                    ++result_.connects[nameOf(tls::last_failure())];
                    going.pop_back();
                }
            }
            settle(going);
            status_.show("connected " + std::to_string(result_.connected) + " of " +
                         std::to_string(plan_.clients));
            if (!going.empty() && !waitUntil(Clock::now() + glance)) {
                break;
            }
        }
        settle(going);
        unsigned long long const late = going.size() + plan_.clients - clients_.size();
        if (late > 0) {
            result_.connects[nameOf(tls::make_error_code(tls::failure::timed_out))] += late;
        }
        result_.connectSeconds = secondsSince(begin);
    }

    void settle(std::deque<Connecting> & going) {
        for (std::size_t i = going.size(); i-- > 0;) {
            tls::result_type const now = going[i].info->result();
            if (now == tls::result_pending) {
                continue;
            }
            if (now == tls::result_ok) {
                ++result_.connected;
                up_.push_back(clients_[going[i].client].get());
            } else {
                ++result_.connects[nameOf(going[i].info->error())];
            }
            going.erase(going.begin() + static_cast<std::ptrdiff_t>(i));
        }
    }

    void send() {
        sending_ = true;
        Clock::time_point const begin = Clock::now();
        auto const at = [begin](double seconds) {
            return begin +
                   std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
        };
        auto const end = at(plan_.seconds);
        unsigned long long number = 0;
        for (double due = 0; (due = dueTime(plan_, number)) < plan_.seconds; ++number) {
            show(begin);
            if (!waitUntil(at(due)) || Clock::now() >= end) {
                break;
            }
            ++result_.begun;
            sendOne(number, at(due));
        }
        // Those that this process was too slow to begin.
        unsigned long long late = 0;
        while (interrupts_.signal() == 0 && dueTime(plan_, number + late) < plan_.seconds) {
            ++late;
        }
        if (late > 0) {
            tally_->add("not_begun", late);
        }
    }

    void sendOne(unsigned long long number, Clock::time_point due) {
        LoadMessage const & message = plan_.messages[number % plan_.messages.size()];
        tls::client & client = *up_[number % up_.size()];
        auto const * const data = reinterpret_cast<unsigned char const *>(message.body.data());
        result_.bytes += message.body.size();
        tls::send_option how;
        if (plan_.push) {
            how.sno = number % 0xffff + 1;
            tally_->begin(how.sno, due);
            client.send_nbr_msg(message.code, data, message.body.size(), how);
            tally_->count(tls::last_failure());
            return;
        }
        Clock::time_point const made = Clock::now();
        how.wait_ms(static_cast<int>(plan_.limitMs));
        how.ack = plan_.reply != 0xffff ? plan_.reply : static_cast<unsigned short>(message.code + 1);
        how.set_on_timedout([this, due, made](unsigned long long, unsigned short, bool cancelled) {
            std::error_code const why = tls::last_failure();
            tally_->ended(why         ? why
                          : cancelled ? tls::make_error_code(tls::failure::cancelled)
                                      : tls::make_error_code(tls::failure::timed_out),
                          due, made);
        });
        how.set_nbr_ack_callback(
            [this, due, made](unsigned long long, unsigned short, unsigned char const *, unsigned,
                              tavMsgExt const &) { tally_->ended(std::error_code(), due, made); });
        if (!client.send_nbr_msg(message.code, data, message.body.size(), how)) {
            tally_->count(tls::last_failure());
        }
    }

    void drain() {
        constexpr std::chrono::milliseconds slack(500);
        auto const limit = Clock::now() + std::chrono::milliseconds(plan_.limitMs) + slack;
        unsigned long long delivered = tally_->delivered();
        auto quiet = Clock::now() + slack;
        while (Clock::now() < limit &&
               (plan_.push ? Clock::now() < quiet : tally_->ended() < result_.begun)) {
            status_.show("waiting for the last " +
                         std::to_string(plan_.push ? 0 : result_.begun - tally_->ended()));
            if (!waitUntil(Clock::now() + glance)) {
                return;
            }
            if (tally_->delivered() != delivered) {
                delivered = tally_->delivered();
                quiet = Clock::now() + slack;
            }
        }
    }

    void show(Clock::time_point begin) {
        if (status_.due()) {
            char text[160];
            std::snprintf(text, sizeof(text),
                          "%.1f of %.1f s, %llu begun, %llu good, %llu failed, %llu under way",
                          secondsSince(begin), plan_.seconds, result_.begun, tally_->good(),
                          tally_->ended() - tally_->good(), result_.begun - tally_->ended());
            status_.show(text);
        }
    }

    void close() {
        sending_ = false;
        for (auto const & client : clients_) {
            client->close();
        }
        up_.clear();
        clients_.clear();
    }

    LoadPlan const & plan_;
    LoadResult & result_;
    std::unique_ptr<Tally> const tally_;
    std::array<bool, 0x10000> codes_{};
    std::atomic<bool> sending_{false};
    Interrupts interrupts_;
    StatusLine status_;
    std::vector<std::unique_ptr<tls::client>> clients_;
    std::vector<tls::client *> up_;
};

} // namespace

double dueTime(LoadPlan const & plan, unsigned long long number) {
    auto const n = static_cast<double>(number);
    double const whileGrowing = plan.rate * plan.ramp / 2;
    return n < whileGrowing ? std::sqrt(2 * n * plan.ramp / plan.rate)
                            : plan.ramp + (n - whileGrowing) / plan.rate;
}

void runLoad(LoadPlan const & plan, LoadResult & result) {
    auto const load = std::make_unique<Load>(plan, result);
    load->run();
}

} // namespace tool
} // namespace tav
