#ifndef TAV_KIT_EXCHANGE_H
#define TAV_KIT_EXCHANGE_H

#include "tav/kit/result.h"
#include "tav/vinta/vinta_log.h"
#include "tav/vinta/vinta_tls_client.h"

#include <atomic>
#include <chrono>
#include <exception>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

/// What stands behind requests: how long, where and until when one waits, and that each ends exactly once.
namespace tav {
namespace kit {

/// Runs what it is given, later or at once, on a thread of its choice: a task queue, an event loop, a pool.
/// What an executor refuses by an exception, or drops without having run it, runs on the thread that does so,
/// so that nothing is lost.
using executor = std::function<void(std::function<void()>)>;

namespace detail {

inline void log_caught(char const * function, char const * text) noexcept {
    // By number: programs define macros of the levels' names.
    constexpr auto level = static_cast<tavLogger::LogLevel>(6);
    try {
        if (tavLogger::isLoggable("TAV.KIT", level)) {
            tavLogger::writeLog("TAV.KIT", level,
                                tav_istr(std::string("raised by a callback: ") + text + "\n"), __FILE__,
                                __LINE__, function);
        }
    } catch (...) {
        // There is nobody left to be told.
    }
}

/// Calls `f`; what it raises goes to the log.
template <class F>
void call_guarded(char const * function, F const & f) noexcept {
    try {
        f();
    } catch (std::exception const & e) {
        log_caught(function, e.what());
    } catch (...) {
        log_caught(function, "of an unknown type");
    }
}

/// Something to run once: where an executor says, or at the latest when the last owner lets it go.
class turn {
public:
    explicit turn(std::function<void()> body) : body_(std::move(body)) {}
    ~turn() {
        if (armed_) {
            run();
        }
    }
    turn(turn const &) = delete;
    turn & operator=(turn const &) = delete;

    void run() noexcept {
        if (!ran_.exchange(true)) {
            call_guarded("tav::kit::turn::run", [this] { body_(); });
        }
    }

    /// Has `where` run it; it runs here if there is no executor.
    static void take(std::shared_ptr<turn> it, executor const & where) noexcept {
        it->armed_ = true;
        if (!where) {
            it->run();
            return;
        }
        call_guarded("tav::kit::turn::take", [&] { where([it] { it->run(); }); });
    }

private:
    std::function<void()> const body_;
    std::atomic<bool> armed_{false};
    std::atomic<bool> ran_{false};
};

class exchange;

/// The requests that end together.
class exchange_group {
    struct entry {
        exchange const * key;
        std::weak_ptr<exchange> value;
    };

public:
    /// False if the group has been cancelled already.
    bool add(exchange const * key, std::weak_ptr<exchange> value) {
        std::lock_guard<std::mutex> const guard(mutex_);
        if (!cancelled_) {
            running_.push_back(entry{key, std::move(value)});
        }
        return !cancelled_;
    }
    void remove(exchange const * key) noexcept {
        std::lock_guard<std::mutex> const guard(mutex_);
        for (entry & each : running_) {
            if (each.key == key) {
                std::swap(each, running_.back());
                running_.pop_back();
                return;
            }
        }
    }
    bool cancelled() const {
        std::lock_guard<std::mutex> const guard(mutex_);
        return cancelled_;
    }
    void cancel();

private:
    mutable std::mutex mutex_;
    bool cancelled_ = false;
    std::vector<entry> running_;
};

/// A reply as it came; valid during the call only.
struct arrival {
    unsigned long long sno = 0;
    unsigned char const * data = nullptr;
    unsigned size = 0;
    tavMsgExt const * ext = nullptr;
};

/// One request from its send to its end, of which there is exactly one: whatever comes first is told, on the
/// thread where it happens, and what comes later is ignored.
/// Thread safety: all operations.
class exchange : public std::enable_shared_from_this<exchange> {
public:
    using ending = std::function<void(std::error_code, arrival const &)>;

    exchange(ending told, std::shared_ptr<exchange_group> group)
        : told_(std::move(told)), group_(std::move(group)) {}

    void end(std::error_code error, arrival const & reply = arrival()) noexcept {
        if (claim()) {
            tell(error, reply);
        }
    }
    /// The same in two steps: whoever gets true has to tell the end, and nobody else will.
    bool claim() noexcept { return !ended_.exchange(true); }
    void tell(std::error_code error, arrival const & reply = arrival()) noexcept {
        if (group_) {
            group_->remove(this);
        }
        std::function<void()> first;
        {
            std::lock_guard<std::mutex> const guard(mutex_);
            first.swap(first_);
        }
        if (first) {
            call_guarded("tav::kit::exchange::end", first);
        }
        ending const told = std::move(told_);
        call_guarded("tav::kit::exchange::end", [&] { told(error, reply); });
    }

    /// Ends it as cancelled, on the calling thread, and the send with it.
    void cancel() noexcept {
        end(make_error_code(failure::cancelled));
        std::shared_ptr<tls::send_info> sent;
        {
            std::lock_guard<std::mutex> const guard(mutex_);
            cancelled_ = true;
            sent = sent_.lock();
        }
        cancel(sent);
    }

    bool ended() const noexcept { return ended_; }
    /// Has `f` called at the end, ahead of whoever is told of it; now if that has come.
    void when_ended(std::function<void()> f) {
        {
            std::lock_guard<std::mutex> const guard(mutex_);
            if (!ended_) {
                first_.swap(f);
                return;
            }
        }
        f();
    }

    /// Makes it one of its group; false if that was cancelled, and it has ended.
    bool join() {
        if (group_ && !group_->add(this, weak_from_this())) {
            end(make_error_code(failure::cancelled));
            return false;
        }
        return true;
    }
    /// Takes note of what to cancel with it.
    void went_as(std::shared_ptr<tls::send_info> const & sent) noexcept {
        bool late = false;
        {
            std::lock_guard<std::mutex> const guard(mutex_);
            sent_ = sent;
            late = cancelled_;
        }
        if (late) {
            cancel(sent);
        }
    }

    /// Sends, unless the group has been cancelled.  Raises nothing.
    void begin(tls::client & client, tavMessage const & msg, tls::send_option & option);

private:
    static void cancel(std::shared_ptr<tls::send_info> const & sent) noexcept {
        if (sent && sent->result() < 0) {
            call_guarded("tav::kit::exchange::cancel", [&] { sent->cancel(); });
        }
    }
    void send(tls::client & client, tavMessage const & msg, tls::send_option & option);

    std::atomic<bool> ended_{false};
    ending told_;
    std::shared_ptr<exchange_group> const group_;
    /// Guards what follows.
    std::mutex mutex_;
    bool cancelled_ = false;
    std::weak_ptr<tls::send_info> sent_;
    std::function<void()> first_;
};

/// Held by the functions that the client was given, and by nobody else: when the last of them is gone,
/// nothing can end the request any more but this.
class last_word {
public:
    explicit last_word(std::shared_ptr<exchange> about) : about_(std::move(about)) {}
    ~last_word() { about_->end(make_error_code(failure::disconnected)); }
    last_word(last_word const &) = delete;
    last_word & operator=(last_word const &) = delete;

    exchange & operator*() const { return *about_; }

private:
    std::shared_ptr<exchange> const about_;
};

inline void exchange_group::cancel() {
    std::vector<entry> running;
    {
        std::lock_guard<std::mutex> const guard(mutex_);
        cancelled_ = true;
        running.swap(running_);
    }
    for (entry const & each : running) {
        if (std::shared_ptr<exchange> const one = each.value.lock()) {
            one->cancel();
        }
    }
}

inline void exchange::begin(tls::client & client, tavMessage const & msg, tls::send_option & option) {
    try {
        if (join()) {
            send(client, msg, option);
        }
    } catch (std::exception const & e) {
        log_caught("tav::kit::exchange::begin", e.what());
        end(make_error_code(failure::not_sent));
    }
}

inline void exchange::send(tls::client & client, tavMessage const & msg, tls::send_option & option) {
    auto const word = std::make_shared<last_word>(shared_from_this());
    option.set_on_timedout([word](unsigned long long, unsigned short, bool) {
        (**word).end(failure_of_end(tls::last_failure()));
    });
    option.set_nbr_ack_callback([word](unsigned long long sno, unsigned short, unsigned char const * data,
                                       unsigned size, tavMsgExt ext) {
        arrival reply;
        reply.sno = sno;
        reply.data = data;
        reply.size = size;
        reply.ext = &ext;
        (**word).end(std::error_code(), reply);
    });
    std::shared_ptr<tls::send_info> const sent = client.send_msg(msg, option);
    if (!sent) {
        end(failure_of_refusal(tls::last_failure()));
        return;
    }
    went_as(sent);
}

} // namespace detail

/// Ends the requests that were made with it (`within::unless`), at a call of `cancel` or when it goes.  What
/// it cancels ends on the thread that cancels.
/// Thread safety: all operations but destruction.
class cancellation {
public:
    cancellation() : group_(std::make_shared<detail::exchange_group>()) {}
    ~cancellation() { group_->cancel(); }
    cancellation(cancellation const &) = delete;
    cancellation & operator=(cancellation const &) = delete;

    /// Ends all requests under way; those made later end at once and send nothing.
    void cancel() { group_->cancel(); }
    bool cancelled() const { return group_->cancelled(); }

private:
    friend class within;

    std::shared_ptr<detail::exchange_group> group_;
};

/// The terms of a request.  A duration alone will do: `request<Said>(client, say, 5s)`.
class within {
public:
    /// The time that the reply may take, rounded up to a millisecond.  Without any, the request times out at
    /// once and sends nothing.
    template <class Rep, class Period>
    within(std::chrono::duration<Rep, Period> limit) {
        constexpr int most = std::numeric_limits<int>::max() - 5;
        double const ms = std::chrono::duration<double, std::milli>(limit).count();
        if (ms >= most) {
            limit_ms_ = most;
        } else if (ms > 0) {
            limit_ms_ = static_cast<int>(ms);
            limit_ms_ += limit_ms_ < ms ? 1 : 0;
        }
    }
    /// A plain number does not compile, as it could be of any unit.
    template <class Number, class = std::enable_if_t<std::is_arithmetic<Number>::value>>
    within(Number) {
        static_assert(!std::is_arithmetic<Number>::value,
                      "tav::kit: a time limit has a unit, such as 5s or std::chrono::milliseconds(500)");
    }

    /// Where the callback runs and the coroutine goes on; a future needs none.
    within & on(executor where) {
        where_ = std::move(where);
        return *this;
    }
    /// What cancels the request.
    within & unless(cancellation const & by) {
        group_ = by.group_;
        return *this;
    }
    /// What goes into the packet, as of send_option.
    within & grey(bool v) {
        grey_ = v;
        return *this;
    }
    within & version(unsigned short v) {
        version_ = v;
        return *this;
    }
    /// For a keeper: the message may go out once more, on the next connection, if one ended before its reply.
    within & repeatable(bool v = true) {
        repeatable_ = v;
        return *this;
    }

    int limit_ms() const { return limit_ms_; }
    executor const & where() const { return where_; }
    bool repeatable() const { return repeatable_; }
    std::shared_ptr<detail::exchange_group> const & group() const { return group_; }
    tls::send_option option(unsigned short ack) const {
        tls::send_option made(limit_ms_, tls::timedout_function(), grey_, version_);
        made.ack = ack;
        return made;
    }

private:
    int limit_ms_ = 0;
    executor where_;
    std::shared_ptr<detail::exchange_group> group_;
    bool grey_ = false;
    unsigned short version_ = 4;
    bool repeatable_ = false;
};

/// A request under way, for whoever may want to cancel it.  To let it go does not cancel.
/// Thread safety: all operations.
class pending {
public:
    pending() = default;
    explicit pending(std::weak_ptr<detail::exchange> about) : about_(std::move(about)) {}

    /// Ends it as cancelled, on the calling thread or its executor; no effect if it has ended.
    void cancel() const noexcept {
        if (std::shared_ptr<detail::exchange> const about = about_.lock()) {
            about->cancel();
        }
    }

private:
    std::weak_ptr<detail::exchange> about_;
};

} // namespace kit
} // namespace tav

#endif
