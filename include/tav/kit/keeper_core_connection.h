#ifndef TAV_KIT_KEEPER_CORE_CONNECTION_H
#define TAV_KIT_KEEPER_CORE_CONNECTION_H

#include "tav/kit/keeper_core.h"

/// The connection of a keeper: attempts, login, waits, states.  Internal.
namespace tav {
namespace kit {
namespace detail {

inline void keeper_core::start() {
    if (!of_this_process()) {
        return;
    }
    bool sound = true;
    for (gateway const & each : how_.gateways) {
        sound = sound && !each.host.empty() && !each.port.empty();
    }
    {
        lock const guard(mutex_);
        if (phase_ != phase::stopped) {
            return;
        }
        ++era_;
        rounds_ = 0;
        round_.clear();
        next_in_round_ = 0;
        phase_ = phase::waiting;
        until_ = timer_.now();
        status_ = keeper_status();
        status_.state = keeper_state::connecting;
        if (sound) {
            rearm();
        }
    }
    if (!sound) {
        halt(0, tls::make_error_code(tls::failure::bad_address), 0);
    }
}

inline void keeper_core::stop() noexcept {
    if (!of_this_process()) {
        return;
    }
    halt(0, make_error_code(failure::stopped), 0);
    auto const is_other = [](std::thread::id const & v) {
        return v != std::thread::id() && v != std::this_thread::get_id();
    };
    lock guard(mutex_);
    changed_.wait_for(guard, stop_patience, [&] { return !is_other(awake_) && !is_other(teller_); });
}

inline void keeper_core::halt(unsigned era, std::error_code cause, unsigned failed) noexcept {
    all_parcels left;
    std::shared_ptr<tls::connect_info> info;
    {
        lock const guard(mutex_);
        if (phase_ == phase::stopped || (era != 0 && era != era_)) {
            return;
        }
        ++era_;
        events_.clear();
        info.swap(info_);
        ++stops_;
        left = take_messages();
        phase_ = phase::stopped;
        status_.state = keeper_state::stopped;
        status_.cause = cause;
        status_.failed = era != 0 ? failed : status_.failed;
        status_.until = time_point();
        note_state();
        changed_.notify_all();
    }
    // Theirs from here on is no other end, such as that of the connection.
    for (parcels & some : left) {
        for (auto each = some.begin(); each != some.end();) {
            each = each->second->one->claim() ? std::next(each) : some.erase(each);
        }
    }
    drop_connection(info);
    for (parcels const & some : left) {
        for (auto const & each : some) {
            each.second->one->tell(make_error_code(failure::stopped));
        }
    }
    tell();
}

inline void keeper_core::drop_connection(std::shared_ptr<tls::connect_info> const & info) noexcept {
    // A connect that was cancelled holds up no later start.
    if (info) {
        call_guarded("tav::kit::keeper", [&] { info->cancel(); });
    }
    // The close needs memory for one task.  What the first attempt took is free again, and so is what others
    // gave back meanwhile.
    bool closed = false;
    for (int tries = 0; tries < 2 && !closed; ++tries) {
        call_guarded("tav::kit::keeper", [&] {
            client_.close();
            closed = true;
        });
    }
}

inline void keeper_core::wake_up() noexcept {
    {
        lock const guard(mutex_);
        awake_ = std::this_thread::get_id();
    }
    call_guarded("tav::kit::keeper", [this] { step(); });
    lock const guard(mutex_);
    awake_ = std::thread::id();
    rearm();
    changed_.notify_all();
}

inline void keeper_core::step() {
    for (event next{}; next_event(next);) {
        handle(next);
    }
    look_at_time();
    end_late();
    flush();
    tell();
}

inline bool keeper_core::next_event(event & out) {
    lock const guard(mutex_);
    if (events_.empty()) {
        return false;
    }
    out = events_.front();
    events_.pop_front();
    return true;
}

inline void keeper_core::handle(event const & e) {
    if (e.what == news::opened) {
        on_opened(e.era);
    } else if (e.what == news::logged_in && !e.cause) {
        come_up(e.era);
    } else {
        lost(e.era, e.cause);
    }
}

inline void keeper_core::on_opened(unsigned era) {
    {
        lock const guard(mutex_);
        if (era != era_ || phase_ != phase::connecting) {
            return;
        }
        if (how_.login) {
            phase_ = phase::logging_in;
            until_ = timer_.now() + how_.login_limit;
        }
    }
    if (!how_.login) {
        come_up(era);
        return;
    }
    login_end const end([owner = weak_from_this(), era](std::error_code v) {
        if (std::shared_ptr<keeper_core> const core = owner.lock()) {
            core->post(event{news::logged_in, era, v});
        }
    });
    try {
        how_.login(client_, end);
    } catch (std::exception const & e) {
        log_caught("tav::kit::keeper_option::login", e.what());
        end(failure::unspecified);
    }
}

inline void keeper_core::come_up(unsigned era) {
    {
        lock const guard(mutex_);
        if (era != era_ || (phase_ != phase::connecting && phase_ != phase::logging_in)) {
            return;
        }
        phase_ = phase::up;
        up_since_ = timer_.now();
        until_ = time_point::max();
        retry_at_ = time_point();
        refused_since_ = time_point();
        status_.state = keeper_state::up;
        note_state();
    }
    if (option_.on_open_) {
        call_guarded("tav::kit::keeper", option_.on_open_);
    }
}

// An attempt or a connection has ended.  What is left of it goes, and so does what it may still tell.
inline void keeper_core::lost(unsigned era, std::error_code cause) {
    bool was_up = false;
    // Of none of the gateways.
    bool no_address = false;
    std::shared_ptr<tls::connect_info> info;
    keeper_status next;
    {
        lock const guard(mutex_);
        if (era != era_ || phase_ == phase::stopped || phase_ == phase::waiting) {
            return;
        }
        ++era_;
        era = era_;
        info.swap(info_);
        was_up = phase_ == phase::up;
        bad_addresses_ = cause == tls::failure::bad_address ? bad_addresses_ + 1 : 0;
        no_address = bad_addresses_ >= how_.gateways.size();
        if (was_up && timer_.now() - up_since_ >= how_.reset_after) {
            rounds_ = 0;
            status_.failed = 0;
        }
        // Without memory for its name the state tells of none; what has ended has ended all the same.
        call_guarded("tav::kit::keeper", [&] { next.to = status_.to; });
        next.failed = status_.failed + 1;
        // What is sent from here on waits for the next connection.
        phase_ = phase::waiting;
        until_ = time_point::max();
    }
    next.state = keeper_state::waiting;
    next.cause = cause;
    drop_connection(info);
    bool hopeless = next.cause == tls::failure::bad_policy || next.cause == tls::failure::bad_template ||
                    next.cause == tls::failure::closed || no_address;
    if (how_.give_up && !hopeless) {
        call_guarded("tav::kit::keeper_option::give_up", [&] { hopeless = how_.give_up(next); });
    }
    if (hopeless) {
        halt(era, next.cause, next.failed);
        return;
    }
    wait_or_go_on(era, was_up, std::move(next));
}

inline void keeper_core::wait_or_go_on(unsigned era, bool was_up, keeper_status next) {
    lock const guard(mutex_);
    if (era != era_) {
        return;
    }
    time_point const now = timer_.now();
    if (!was_up && next_in_round_ < round_.size()) {
        status_.cause = next.cause;
        status_.failed = next.failed;
        until_ = now;
        return;
    }
    round_.clear();
    next_in_round_ = 0;
    until_ = now + back_off();
    next.until = until_;
    enter(phase::waiting, std::move(next));
}

inline void keeper_core::look_at_time() {
    unsigned era = 0;
    phase at = phase::stopped;
    {
        lock const guard(mutex_);
        time_point const now = timer_.now();
        bool const due = now >= until_;
        bool const dead =
            phase_ == phase::up && refused_since_ != time_point() && now >= refused_since_ + silent_end;
        if (!due && !dead) {
            return;
        }
        era = era_;
        at = phase_;
        refused_since_ = time_point();
    }
    if (at == phase::waiting) {
        begin_attempt();
    } else if (at == phase::connecting) {
        lost(era, tls::make_error_code(tls::failure::timed_out));
    } else if (at == phase::logging_in) {
        lost(era, make_error_code(failure::timed_out));
    } else if (at == phase::up && !client_.connected()) {
        // Somebody else has closed it, and so nothing is told.
        lost(era, tls::make_error_code(tls::failure::cancelled));
    }
}

inline void keeper_core::begin_attempt() {
    gateway to;
    unsigned era = 0;
    {
        lock const guard(mutex_);
        if (phase_ != phase::waiting) {
            return;
        }
        if (next_in_round_ >= round_.size()) {
            round_ = round();
            next_in_round_ = 0;
            bad_addresses_ = 0;
        }
        to = how_.gateways[round_[next_in_round_++]];
        era = ++era_;
        until_ = timer_.now() + how_.connect_limit;
        keeper_status next;
        next.state = keeper_state::connecting;
        next.to = to;
        next.cause = status_.cause;
        next.failed = status_.failed;
        enter(phase::connecting, std::move(next));
    }
    tell();
    {
        lock const guard(mutex_);
        if (era != era_) {
            return;
        }
    }
    connect(to, era);
}

inline void keeper_core::connect(gateway const & to, unsigned era) {
    std::shared_ptr<tls::connect_info> info;
    std::error_code refused = tls::make_error_code(tls::failure::other);
    call_guarded("tav::kit::keeper", [&] {
        info = client_.start(option_for(to, era));
        refused = tls::last_failure();
    });
    bool stale = false;
    {
        lock const guard(mutex_);
        stale = era != era_;
        if (!stale) {
            info_ = info;
        }
    }
    if (stale) {
        drop_connection(info);
    } else if (!info) {
        post(event{news::failed, era, refused});
    }
}

inline tls::connect_option keeper_core::option_for(gateway const & to, unsigned era) {
    tls::connect_option own = option_;
    own.host = to.host;
    own.port = to.port;
    std::weak_ptr<keeper_core> const owner = weak_from_this();
    own.set_on_open([owner, era, user = how_.on_open] {
        if (user) {
            call_guarded("tav::kit::keeper_option::on_open", user);
        }
        if (std::shared_ptr<keeper_core> const core = owner.lock()) {
            core->heed_heartbeat(era);
            core->post(event{news::opened, era, std::error_code()});
        }
    });
    own.set_on_error([owner, era, user = option_.on_error_](unsigned long long sno, unsigned short msgcode,
                                                            int code, char const * text) {
        std::error_code const cause = tls::last_failure();
        // Ahead of the state that it leads to.
        if (user) {
            call_guarded("tav::kit::keeper", [&] { user(sno, msgcode, code, text); });
        }
        if (std::shared_ptr<keeper_core> const core = owner.lock()) {
            core->post(event{news::failed, era, cause});
        }
    });
    own.set_on_heartbeat_timedout([owner, era, user = option_.on_heartbeat_timedout_] {
        if (std::shared_ptr<keeper_core> const core = owner.lock()) {
            core->post(event{news::failed, era, tls::make_error_code(tls::failure::peer_silent)});
        }
        if (user) {
            user();
        }
    });
    set_limit(own, era);
    set_proxy(own, era);
    set_queue(own);
    return own;
}

// The application's own limit for connecting, if there is one, ends the attempt too.
inline void keeper_core::set_limit(tls::connect_option & option, unsigned era) {
    if (option_.timedout.empty()) {
        return;
    }
    auto const user = std::make_shared<tls::timedout_option>(option_.timedout);
    option.timedout.set_on_timedout([owner = weak_from_this(), era,
                                     user](unsigned long long sno, unsigned short msgcode, bool cancelled) {
        if (std::shared_ptr<keeper_core> const core = owner.lock()) {
            auto const why = cancelled ? tls::failure::cancelled : tls::failure::timed_out;
            core->post(event{news::failed, era, tls::make_error_code(why)});
        }
        user->on_timedout(sno, msgcode, cancelled);
    });
}

// A proxy that refuses is told of by nobody, and would only use up the limit.
inline void keeper_core::set_proxy(tls::connect_option & option, unsigned era) {
    if (!option_.on_http_proxy_connect_) {
        return;
    }
    option.set_on_http_proxy_connect([owner = weak_from_this(), era, user = option_.on_http_proxy_connect_](
                                         unsigned socket, char const * host, unsigned short port) {
        int const refused = user(socket, host, port);
        std::shared_ptr<keeper_core> const core = owner.lock();
        if (refused != 0 && core) {
            core->post(event{news::failed, era, tls::make_error_code(tls::failure::proxy_refused)});
        }
        return refused;
    });
}

// What a limit has held back goes on at low water.
inline void keeper_core::set_queue(tls::connect_option & option) {
    if (option_.limits.queued_frames == 0 && option_.limits.queued_bytes == 0) {
        return;
    }
    option.limits.on_queue = [owner = weak_from_this(), user = option_.limits.on_queue](bool full) {
        std::shared_ptr<keeper_core> const core = owner.lock();
        if (!full && core) {
            lock const guard(core->mutex_);
            core->retry_at_ = time_point();
            core->rearm();
        }
        if (user) {
            user(full);
        }
    };
}

inline void keeper_core::heed_heartbeat(unsigned era) {
    {
        lock const guard(mutex_);
        if (era != era_) {
            return;
        }
    }
    if (how_.heartbeat) {
        client_.should_check_heartbeat(true);
    }
}

inline void keeper_core::post(event const & e) {
    lock const guard(mutex_);
    if (phase_ != phase::stopped && e.era == era_) {
        events_.push_back(e);
        rearm();
    }
}

// Any time up to the bound: so a crowd of clients that lost one gateway comes back spread over all of it.
inline keeper_core::clock::duration keeper_core::back_off() {
    using ms = std::chrono::duration<double, std::milli>;
    double most = ms(how_.first_wait).count();
    double const bound = ms(how_.longest_wait).count();
    for (unsigned i = 0; i < rounds_ && most < bound; ++i) {
        most *= 2;
    }
    ++rounds_;
    return std::chrono::duration_cast<clock::duration>(ms(std::min(most, bound) * chance()));
}

inline std::vector<std::size_t> keeper_core::round() {
    std::vector<std::size_t> order(how_.gateways.size());
    for (std::size_t i = 0; i < order.size(); ++i) {
        order[i] = i;
        std::size_t const other = static_cast<std::size_t>(chance() * static_cast<double>(i + 1));
        std::swap(order[i], order[std::min(other, i)]);
    }
    std::stable_sort(order.begin(), order.end(), [this](std::size_t a, std::size_t b) {
        return how_.gateways[a].preference < how_.gateways[b].preference;
    });
    return order;
}

inline void keeper_core::enter(phase v, keeper_status next) {
    phase_ = v;
    status_ = std::move(next);
    note_state();
}

inline void keeper_core::note_state() {
    if (how_.on_state && !muted_) {
        call_guarded("tav::kit::keeper", [this] { untold_.push_back(status_); });
    }
}

inline void keeper_core::rearm() {
    if (phase_ == phase::stopped) {
        return;
    }
    time_point at = std::min({until_, outbox_.next_limit(), line_.next_limit()});
    time_point const now = timer_.now();
    if (!events_.empty()) {
        at = now;
    }
    if (phase_ == phase::up && !outbox_.empty()) {
        at = std::min(at, std::max(retry_at_, now));
    }
    if (phase_ == phase::up && refused_since_ != time_point()) {
        at = std::min(at, refused_since_ + silent_end);
    }
    if (at != time_point::max()) {
        call_guarded("tav::kit::keeper", [&] { timer_.wake_at(shared_from_this(), at); });
    }
}

inline void keeper_core::tell() noexcept {
    {
        lock const guard(mutex_);
        if (untold_.empty()) {
            return;
        }
    }
    call_guarded("tav::kit::keeper", [this] {
        turn::take(std::make_shared<turn>([self = shared_from_this()] { self->tell_each(); }), how_.where);
    });
}

inline void keeper_core::tell_each() {
    lock guard(mutex_);
    if (teller_ != std::thread::id()) {
        return;
    }
    teller_ = std::this_thread::get_id();
    while (!untold_.empty()) {
        keeper_status const next = std::move(untold_.front());
        untold_.pop_front();
        guard.unlock();
        call_guarded("tav::kit::keeper_option::on_state", [&] { how_.on_state(next); });
        guard.lock();
    }
    teller_ = std::thread::id();
    changed_.notify_all();
}

} // namespace detail
} // namespace kit
} // namespace tav

#endif
