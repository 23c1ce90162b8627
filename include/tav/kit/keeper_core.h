#ifndef TAV_KIT_KEEPER_CORE_H
#define TAV_KIT_KEEPER_CORE_H

#include "tav/kit/keeper_option.h"
#include "tav/kit/keeper_outbox.h"
#include "tav/kit/talk.h"

#include <algorithm>
#include <array>
#include <condition_variable>
#include <deque>
#include <iterator>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

/// What a keeper does; its parts are in keeper_core_connection.h and keeper_core_messages.h.  Internal.
namespace tav {
namespace kit {
namespace detail {

/// The work of a keeper.  All that has to do with the connection happens on the timer's thread, one step
/// after the other: others leave an event.  Messages go out on the thread that sends them if the way is free,
/// and on the timer's if they had to wait.
///
/// `era_` numbers the attempts; what an earlier one still tells is ignored.  The client is used only between
/// start and the end of stop.  No lock is held while the client or the application is called.
///
/// It has more operations and members than other classes: most are the steps of the one order in which a
/// connection is begun, kept and given up, and what these steps know of it, under one lock with the messages
/// that wait for it.
class keeper_core final : public keeper_timer::sleeper, public std::enable_shared_from_this<keeper_core> {
public:
    using clock = keeper_timer::clock;
    using time_point = clock::time_point;

    keeper_core(tls::client & client, tls::connect_option const & option, keeper_option const & how)
        : process_(tav_process_id()),
          client_(client),
          option_(option),
          how_(how),
          timer_(timer_of(how)),
          chance_(seed()) {
        if (how_.gateways.empty()) {
            how_.gateways.push_back(gateway{option.host, option.port, 0});
        }
    }

    bool of_this_process() const { return process_ == tav_process_id(); }
    /// It is never destroyed from then on.
    void stay() noexcept { stays_ = shared_from_this(); }
    keeper_timer & timer() const { return timer_; }
    tls::client & client() const { return client_; }
    keeper_status status() const {
        std::lock_guard<std::mutex> const guard(mutex_);
        return status_;
    }
    std::size_t waiting() const {
        std::lock_guard<std::mutex> const guard(mutex_);
        return outbox_.count() + line_.count();
    }

    void start();
    /// Goes without memory: then the state it leads to may be told to nobody, and if there is none for the
    /// close either, which is tried twice, the connection stays up until the client is closed or goes.
    void stop() noexcept;
    /// Nothing more is told from here on.
    void mute() {
        std::lock_guard<std::mutex> const guard(mutex_);
        muted_ = true;
        untold_.clear();
    }

    /// Takes a message on.  `ack` is the code of the reply that ends it; if it awaits none, it ends when it
    /// has been handed to a connection.
    void accept(std::shared_ptr<exchange> const & one, tavMessage const & msg, unsigned short ack,
                bool awaits, within const & terms, bool may_block) noexcept;

    void wake() noexcept override { wake_up(); }

private:
    using lock = std::unique_lock<std::mutex>;

    enum class phase { stopped, waiting, connecting, logging_in, up };
    enum class way { gone, down, busy };
    enum class news { opened, failed, logged_in };
    struct event {
        news what;
        unsigned era;
        std::error_code cause;
    };

    /// One way of a parcel to the gateway.  When the client lets go of it untold, the connection has ended.
    class trip {
    public:
        trip(std::weak_ptr<keeper_core> owner, parcel_ptr of)
            : owner_(std::move(owner)), parcel_(std::move(of)) {}
        ~trip() { came_back(); }
        trip(trip const &) = delete;
        trip & operator=(trip const &) = delete;

        /// It never went.
        void void_it() noexcept { done_ = true; }
        void ended(std::error_code error, arrival const & reply = arrival()) noexcept {
            if (!done_.exchange(true)) {
                parcel_->one->end(error, reply);
            }
        }
        void came_back() noexcept {
            if (done_.exchange(true)) {
                return;
            }
            std::shared_ptr<keeper_core> const owner = owner_.lock();
            if (!owner || !owner->again(parcel_)) {
                parcel_->one->end(make_error_code(failure::disconnected));
            }
        }

    private:
        std::weak_ptr<keeper_core> const owner_;
        parcel_ptr const parcel_;
        std::atomic<bool> done_{false};
    };

    static constexpr std::chrono::milliseconds busy_pause{50};
    static constexpr std::chrono::milliseconds down_pause{100};
    /// How long a connection that takes nothing any more may be without word of its end.
    static constexpr std::chrono::milliseconds silent_end{2500};
    static constexpr std::chrono::milliseconds stop_patience{800};
    /// After so many messages other keepers have their turn.
    static constexpr unsigned in_one_go = 256;

    static keeper_timer & timer_of(keeper_option const & how) {
        return how.timer ? *how.timer : process_timer::instance();
    }
    static unsigned seed() {
        std::random_device device;
        return device();
    }

    // The connection, on the timer's thread.
    void wake_up() noexcept;
    void step();
    bool next_event(event & out);
    void handle(event const & e);
    void on_opened(unsigned era);
    void come_up(unsigned era);
    void lost(unsigned era, std::error_code cause);
    void wait_or_go_on(unsigned era, bool was_up, keeper_status next);
    void look_at_time();
    void begin_attempt();
    void connect(gateway const & to, unsigned era);
    tls::connect_option option_for(gateway const & to, unsigned era);
    void set_limit(tls::connect_option & option, unsigned era);
    void set_proxy(tls::connect_option & option, unsigned era);
    void set_queue(tls::connect_option & option);

    // Any thread.
    /// Of this era alone, if it is not 0.
    void halt(unsigned era, std::error_code cause, unsigned failed) noexcept;
    void drop_connection(std::shared_ptr<tls::connect_info> const & info) noexcept;
    void heed_heartbeat(unsigned era);
    void post(event const & e);
    void tell() noexcept;
    void tell_each();

    double chance() {
        return how_.jitter ? how_.jitter() : std::uniform_real_distribution<double>(0, 1)(chance_);
    }
    clock::duration back_off();
    std::vector<std::size_t> round();

    // Messages, on any thread but `flush` and `end_late`, which are the timer's.
    void take_on(parcel_ptr const & p, bool may_block);
    way send_now(parcel_ptr const & p) noexcept;
    static way refused(std::error_code why, parcel const & p);
    std::shared_ptr<tls::send_info> hand_over(parcel const & p, std::shared_ptr<trip> const & going,
                                              int limit_ms);
    void put_back(parcel_ptr const & p, way why);
    bool again(parcel_ptr const & p) noexcept;
    void forget(unsigned long long number);
    void flush();
    bool flush_one(parcel_ptr & next);
    void end_late();

    // With the lock held.
    bool fits(parcel const & p) const;
    std::error_code store(lock & guard, parcel_ptr const & p, bool may_block,
                          std::vector<parcel_ptr> & dropped);
    void admit();
    /// What waits, what waits for room, and what is on its way.
    using all_parcels = std::array<parcels, 3>;
    all_parcels take_messages() noexcept;
    void rearm();
    void enter(phase v, keeper_status next);
    void note_state();

    unsigned const process_;
    tls::client & client_;
    tls::connect_option const option_;
    keeper_option how_;
    keeper_timer & timer_;
    /// The timer's thread's own.
    std::minstd_rand chance_;
    std::atomic<unsigned long long> last_number_{0};

    /// Guards what follows.
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    phase phase_ = phase::stopped;
    unsigned era_ = 0;
    keeper_status status_;
    /// When the phase is over.
    time_point until_;
    time_point up_since_;
    /// Rounds, or connections that did not hold, in a row.
    unsigned rounds_ = 0;
    /// The attempts of this round, in a row, that ended since their gateway has no address.
    std::size_t bad_addresses_ = 0;
    std::vector<std::size_t> round_;
    std::size_t next_in_round_ = 0;
    std::shared_ptr<tls::connect_info> info_;
    std::deque<event> events_;

    outbox outbox_;
    /// Those for which the outbox has no room, and whose senders wait.
    outbox line_;
    parcels in_flight_;
    bool flushing_ = false;
    unsigned stops_ = 0;
    /// No earlier than this is sending tried again.
    time_point retry_at_;
    /// Since when the connection takes nothing; the clock's zero if it does.
    time_point refused_since_;

    std::deque<keeper_status> untold_;
    bool muted_ = false;
    /// Who tells, and who is in `wake`.
    std::thread::id teller_;
    std::thread::id awake_;
    std::shared_ptr<keeper_core> stays_;
};

} // namespace detail
} // namespace kit
} // namespace tav

#endif
