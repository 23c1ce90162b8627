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
#include <random>
#include <stdexcept>

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
/// A message that was due is begun so long behind the end: a thread wakes up late now and then.
constexpr std::chrono::milliseconds lateness(20);

unsigned long long microsecondsSince(Clock::time_point then) {
    auto const past = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - then).count();
    return past > 0 ? static_cast<unsigned long long>(past) : 0;
}

unsigned long long microsecondsBetween(Clock::time_point then, Clock::time_point later) {
    auto const past = std::chrono::duration_cast<std::chrono::microseconds>(later - then).count();
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

    /// The end of a send.  One that ran out of time, of so many milliseconds, has waited for that long at
    /// least, and counts so.
    void ended(std::error_code why, Clock::time_point due, Clock::time_point made, unsigned limitMs) {
        if (!why || why == tls::failure::timed_out) {
            unsigned long long const least = why ? limitMs * 1000ull : 0;
            unsigned long long const served = microsecondsSince(made);
            result_.latency.put(std::max(served, least) + microsecondsBetween(due, made));
            result_.service.put(std::max(served, least));
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
    /// A push under this sequence came to this client.  It is that of a send unless 65535 have been begun
    /// since; what comes back to its sender, or once more than there are others, is none.
    void came(unsigned long long sequence, std::size_t client) {
        Sent & sent = sent_[sequence & 0xffff];
        unsigned left = sent.left;
        if (client == sent.sender) {
            return;
        }
        while (left != 0 && !sent.left.compare_exchange_weak(left, left - 1)) {
        }
        if (left != 0) {
            ++delivered_;
            result_.latency.put(microsecondsSince(Clock::time_point(Clock::duration(sent.due))));
        }
    }
    void begin(unsigned long long sequence, Clock::time_point due, std::size_t sender, unsigned others) {
        Sent & sent = sent_[sequence & 0xffff];
        sent.left = 0;
        sent.due = due.time_since_epoch().count();
        sent.sender = sender;
        sent.left = others;
    }

    unsigned long long ended() const { return ended_; }
    unsigned long long good() const { return good_; }
    unsigned long long delivered() const { return delivered_; }

private:
    /// A push that is on its way.
    struct Sent {
        std::atomic<unsigned> left{0};
        std::atomic<std::size_t> sender{0};
        std::atomic<long long> due{0};
    };

    LoadResult & result_;
    std::mutex mutex_;
    std::atomic<unsigned long long> ended_{0};
    std::atomic<unsigned long long> good_{0};
    std::atomic<unsigned long long> delivered_{0};
    std::array<Sent, 0x10000> sent_;
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
        unsigned long long const left = plan_.push ? notGoneOut() : 0;
        // A request that still waits ends with its client, and tells so.
        close();
        if (tally_->good() > left) {
            result_.sends["ok"] = tally_->good() - left;
        }
        if (left > 0) {
            result_.sends["not_sent"] = left;
        }
        result_.expected = plan_.push ? (tally_->good() - left) * (result_.connected - 1) : 0;
        result_.delivered = tally_->delivered();
        result_.memoryMegabytes = memoryMegabytes();
    }

private:
    /// A client and its number, from 0.
    struct Up {
        tls::client * client;
        std::size_t number;
    };

    struct Connecting {
        Up client;
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

    /// Pushes that were taken to be sent, and that no connection has written.
    unsigned long long notGoneOut() const {
        unsigned long long written = 0;
        for (Up const & one : up_) {
            tls::statistics const all = one.client->statistics();
            unsigned long long const others = all.heartbeats_sent + all.receipts_sent;
            written += all.frames_sent > others ? all.frames_sent - others : 0;
        }
        return tally_->good() > written ? tally_->good() - written : 0;
    }

    tls::connect_option option(std::size_t client) const {
        tls::connect_option made = plan_.connect;
        made.timedout.wait_ms(static_cast<int>(plan_.limitMs));
        made.limits.queued_bytes = std::max(leastQueuedBytes, mostQueuedBytes / plan_.clients);
        made.set_on_error([this](unsigned long long, unsigned short, int, char const *) {
            if (sending_) {
                tally_->broke(tls::last_failure());
            }
        });
        made.set_nbr_msg_callback([this, client](unsigned long long sequence, unsigned short code,
                                                 unsigned char const *, unsigned, tavMsgExt const &) {
            if (plan_.push && codes_[code]) {
                tally_->came(sequence, client);
            }
        });
        return made;
    }

    void connect() {
        Clock::time_point const begin = Clock::now();
        auto const limit = begin + std::chrono::milliseconds(plan_.limitMs);
        std::deque<Connecting> going;
        bool more = true;
        auto const inTime = [this, limit] { return interrupts_.signal() == 0 && Clock::now() < limit; };
        while (((more && begun_ < plan_.clients) || !going.empty()) && inTime()) {
            // A start may take long by itself, as where it reads the system's authorities.
            while (more && begun_ < plan_.clients && going.size() < mostConnecting && inTime()) {
                more = beginOne(going);
            }
            settle(going);
            status_.show("connected " + std::to_string(result_.connected) + " of " +
                         std::to_string(plan_.clients));
            if (!going.empty()) {
                waitUntil(Clock::now() + glance);
            }
        }
        settle(going);
        add(result_.connects, interrupts_.signal() != 0 ? "cancelled" : "timed_out", going.size());
        add(result_.connects, more ? "not_begun" : "no_resources", plan_.clients - begun_);
        result_.connectSeconds = secondsSince(begin);
    }

    static void add(LoadResult::Counts & counts, char const * name, unsigned long long n) {
        if (n > 0) {
            counts[name] += n;
        }
    }

    /// False where the system has no descriptors or threads for another client.
    bool beginOne(std::deque<Connecting> & going) {
        std::string const name = "load-" + std::to_string(begun_ + 1);
        try {
            auto client = std::make_unique<tls::client>(tav_istr(name.data(), name.size()));
            auto info = client->start(option(begun_));
            if (info) {
                clients_.push_back(std::move(client));
                going.push_back(Connecting{Up{clients_.back().get(), begun_}, std::move(info)});
            } else {
                ++result_.connects[nameOf(tls::last_failure())];
            }
        } catch (std::runtime_error const &) {
            return false;
        }
        ++begun_;
        return true;
    }

    void settle(std::deque<Connecting> & going) {
        for (std::size_t i = going.size(); i-- > 0;) {
            tls::result_type const now = going[i].info->result();
            if (now == tls::result_pending) {
                continue;
            }
            if (now == tls::result_ok) {
                ++result_.connected;
                up_.push_back(going[i].client);
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
            if (!waitUntil(at(due)) || Clock::now() >= end + lateness) {
                break;
            }
            ++result_.begun;
            sendOne(number, at(due));
        }
        waitUntil(end);
        // Those that this process was too slow to begin have waited since they were due, all the same.
        unsigned long long late = 0;
        for (double due = 0;
             interrupts_.signal() == 0 && (due = dueTime(plan_, number + late)) < plan_.seconds; ++late) {
            unsigned long long const waited = microsecondsSince(at(due));
            for (std::size_t i = plan_.push ? 1 : 0; i < (plan_.push ? up_.size() : 1); ++i) {
                result_.latency.put(waited);
            }
        }
        if (late > 0) {
            tally_->add("not_begun", late);
        }
    }

    void sendOne(unsigned long long number, Clock::time_point due) {
        LoadMessage const & message = plan_.messages[number % plan_.messages.size()];
        Up const & sender = up_[number % up_.size()];
        tls::client & client = *sender.client;
        auto const * const data = reinterpret_cast<unsigned char const *>(message.body.data());
        tls::send_option how;
        if (plan_.push) {
            how.sno = (number + firstSequence_) % 0xffff + 1;
            tally_->begin(how.sno, due, sender.number, static_cast<unsigned>(up_.size() - 1));
            client.send_nbr_msg(message.code, data, message.body.size(), how);
            result_.bytes += tls::last_failure() ? 0 : message.body.size();
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
                          due, made, plan_.limitMs);
        });
        how.set_nbr_ack_callback(
            [this, due, made](unsigned long long, unsigned short, unsigned char const *, unsigned,
                              tavMsgExt const &) { tally_->ended(std::error_code(), due, made, 0); });
        if (client.send_nbr_msg(message.code, data, message.body.size(), how)) {
            result_.bytes += message.body.size();
        } else {
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
                         std::to_string(plan_.push ? queued() : result_.begun - tally_->ended()));
            if (!waitUntil(Clock::now() + glance)) {
                return;
            }
            if (plan_.push && (tally_->delivered() != delivered || queued() > 0)) {
                delivered = tally_->delivered();
                quiet = Clock::now() + slack;
            }
        }
    }

    /// What waits to be written.
    unsigned long long queued() const {
        unsigned long long all = 0;
        for (Up const & one : up_) {
            all += one.client->statistics().queued_frames;
        }
        return all;
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
    /// Of pushes: another one than that of another load of the same gateway.
    unsigned const firstSequence_ = std::random_device()() % 0xffff;
    std::atomic<bool> sending_{false};
    Interrupts interrupts_;
    StatusLine status_;
    std::vector<std::unique_ptr<tls::client>> clients_;
    std::size_t begun_ = 0;
    std::vector<Up> up_;
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
