#ifndef TAV_KIT_KEEPER_OPTION_H
#define TAV_KIT_KEEPER_OPTION_H

#include "tav/kit/exchange.h"
#include "tav/kit/keeper_timer.h"
#include "tav/vinta/vinta_tls_client.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

/// What a keeper is told, and what it tells.
namespace tav {
namespace kit {

/// Where a keeper connects to.
struct gateway {
    std::string host;
    std::string port;
    int preference = 0; ///< The lowest is tried first; of equal ones each in turn, in an order by chance.
};

enum class keeper_state {
    stopped,    ///< Not started, or stopped for `cause`.
    connecting, ///< A connection is made, and the login under way.
    up,         ///< Connected and logged in.
    waiting     ///< Until `until`, as what was tried or had been up ended for `cause`.
};

inline std::ostream & operator<<(std::ostream & out, keeper_state v) {
    switch (v) {
    case keeper_state::connecting: return out << "connecting";
    case keeper_state::up: return out << "up";
    case keeper_state::waiting: return out << "waiting";
    case keeper_state::stopped: break;
    }
    return out << "stopped";
}

/// Where a keeper stands.
struct keeper_status {
    keeper_state state = keeper_state::stopped;
    /// The gateway of the connection, or of the last one.
    gateway to;
    /// When the next attempt begins, by the keeper's timer; of keeper_state::waiting alone.
    keeper_timer::clock::time_point until;
    /// Why the last connection or attempt ended: a `tls::failure` such as refused or closed_by_peer, a
    /// `kit::failure` such as timed_out, or what the login was ended with.  No error if none has failed since
    /// the start.
    std::error_code cause;
    /// The attempts, or connections that did not hold, since one that held.
    unsigned failed = 0;
};

/// What becomes of a message for which the outbox has no room.
enum class when_full {
    refuse,      ///< It ends with failure::outbox_full.
    drop_oldest, ///< It goes in, and the oldest ends with failure::dropped.
    wait         ///< Its sender is held up until there is room; a coroutine waits and holds up no thread.
};

/// Tells the end of a login, once: what is told first counts.  If all copies go untold, the login has failed.
/// Thread safety: all operations.
class login_end {
public:
    explicit login_end(std::function<void(std::error_code)> tell)
        : word_(std::make_shared<word>(std::move(tell))) {}

    void operator()(result<void> const & v) const { word_->say(v.error()); }

private:
    class word {
    public:
        explicit word(std::function<void(std::error_code)> tell) : tell_(std::move(tell)) {}
        ~word() { say(make_error_code(failure::unspecified)); }
        word(word const &) = delete;
        word & operator=(word const &) = delete;
        void say(std::error_code v) noexcept {
            if (!said_.exchange(true)) {
                detail::call_guarded("tav::kit::login_end", [&] { tell_(v); });
            }
        }

    private:
        std::function<void(std::error_code)> const tell_;
        std::atomic<bool> said_{false};
    };

    std::shared_ptr<word> word_;
};

/// Logs in on a connection that is up, by requests to the client itself, and tells the end, then or later on
/// any thread.
using login_function = std::function<void(tls::client &, login_end)>;

/// How a connection is kept.  It has more members than other classes: each is a choice by itself, with a
/// default.
struct keeper_option {
    /// Where to; empty: the host and port of the connect_option.
    std::vector<gateway> gateways;

    /// What is waited after n failures in a row, of whole rounds or of connections, is a random time up to
    /// first_wait * 2^(n-1), and at most longest_wait.  A round tries each gateway once, without a wait.
    std::chrono::milliseconds first_wait{500};
    std::chrono::milliseconds longest_wait{30000};
    /// A connection that was up so long was no failure.
    std::chrono::milliseconds reset_after{60000};
    /// What an attempt may take, from the lookup of the name to the end of the handshake.
    std::chrono::milliseconds connect_limit{10000};
    std::chrono::milliseconds login_limit{10000};

    /// Called on the client's I/O thread as each connection opens, ahead of all that it brings: a push may
    /// come before the login and before the state is keeper_state::up.  Be quick there.
    std::function<void()> on_open;
    /// Called on the keepers' thread when a connection is up, before the keeper sends anything else.  If it
    /// raises, or the end that it tells is a failure, or none comes in time, the attempt has failed.
    login_function login;
    /// Whether the heartbeat of each connection is supervised.
    bool heartbeat = true;
    /// Asked after each failed attempt, on the keepers' thread; true stops the keeper for that cause.
    std::function<bool(keeper_status const &)> give_up;

    /// How many messages are kept for the next connection, and of how many bytes together (0: any number).
    std::size_t outbox = 1000;
    unsigned long long outbox_bytes = 0;
    when_full policy = when_full::refuse;

    /// Told of each state, in order and one at a time: on `where`, or else on the keepers' thread, or on the
    /// one that calls `stop`.  All keepers of the process share the keepers' thread, so be quick there.
    std::function<void(keeper_status const &)> on_state;
    executor where;

    /// For tests: another time than the process's, and numbers from 0 up to below 1 that stand for chance.
    std::shared_ptr<keeper_timer> timer;
    std::function<double()> jitter;
};

} // namespace kit
} // namespace tav

#endif
