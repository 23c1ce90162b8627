#ifndef TAV_KIT_KEEPER_CORE_MESSAGES_H
#define TAV_KIT_KEEPER_CORE_MESSAGES_H

#include "tav/kit/keeper_core.h"

/// The messages of a keeper: on their way, in the outbox, or ahead of it.  Internal.
namespace tav {
namespace kit {
namespace detail {

inline void keeper_core::accept(std::shared_ptr<exchange> const & one, tavMessage const & msg,
                                unsigned short ack, bool awaits, within const & terms,
                                bool may_block) noexcept {
    try {
        if (!one->join()) {
            return;
        }
        auto const made = std::make_shared<parcel>(one, msg, terms);
        made->ack = awaits ? ack : made->ack;
        made->awaits = awaits;
        made->holds_sender = may_block;
        made->number = ++last_number_;
        if (terms.limit_ms() < within(std::chrono::hours::max()).limit_ms()) {
            made->limit = timer_.now() + std::chrono::milliseconds(terms.limit_ms());
        }
        one->when_ended([owner = weak_from_this(), number = made->number] {
            if (std::shared_ptr<keeper_core> const core = owner.lock()) {
                core->forget(number);
            }
        });
        take_on(made, may_block);
        if (one->ended()) {
            forget(made->number);
        }
    } catch (std::exception const & e) {
        log_caught("tav::kit::keeper", e.what());
        one->end(make_error_code(failure::not_sent));
    }
}

inline void keeper_core::take_on(parcel_ptr const & p, bool may_block) {
    std::vector<parcel_ptr> dropped;
    std::error_code refused;
    {
        lock guard(mutex_);
        if (phase_ == phase::stopped) {
            refused = make_error_code(failure::stopped);
        } else if (phase_ == phase::up && outbox_.empty() && line_.empty() && !flushing_) {
            in_flight_.emplace(p->number, p);
            guard.unlock();
            way const went = send_now(p);
            if (went != way::gone) {
                put_back(p, went);
            }
            return;
        } else {
            refused = store(guard, p, may_block, dropped);
        }
    }
    if (refused) {
        p->one->end(refused);
    }
    for (parcel_ptr const & each : dropped) {
        each->one->end(make_error_code(failure::dropped));
    }
}

inline bool keeper_core::fits(parcel const & p) const {
    return outbox_.count() < how_.outbox &&
           (how_.outbox_bytes == 0 || outbox_.bytes() + p.body.size() <= how_.outbox_bytes);
}

inline std::error_code keeper_core::store(lock & guard, parcel_ptr const & p, bool may_block,
                                          std::vector<parcel_ptr> & dropped) {
    bool const ever = how_.outbox != 0 && (how_.outbox_bytes == 0 || p->body.size() <= how_.outbox_bytes);
    bool const now = line_.empty() && fits(*p);
    // Nobody may be held up on the thread that has to make the room.
    bool const waits = how_.policy == when_full::wait &&
                       !(may_block && (timer_.here() || awake_ == std::this_thread::get_id()));
    if (!now && (!ever || how_.policy == when_full::refuse || (how_.policy == when_full::wait && !waits))) {
        return make_error_code(failure::outbox_full);
    }
    if (!now && waits) {
        line_.add(p);
        rearm();
        unsigned const stops = stops_;
        if (may_block) {
            changed_.wait(guard, [&] { return !line_.holds(p->number); });
        }
        return stops == stops_ ? std::error_code() : make_error_code(failure::stopped);
    }
    while (!fits(*p)) {
        dropped.push_back(outbox_.take_first());
    }
    outbox_.add(p);
    rearm();
    return std::error_code();
}

// All but those whose senders stand at the outbox: these are let go, and end them.
inline keeper_core::all_parcels keeper_core::take_messages() noexcept {
    all_parcels all{outbox_.take_all(), line_.take_all(), parcels()};
    all.back().swap(in_flight_);
    parcels & line = all[1];
    for (auto each = line.begin(); each != line.end();) {
        each = each->second->holds_sender ? line.erase(each) : std::next(each);
    }
    return all;
}

inline void keeper_core::admit() {
    bool any = false;
    while (!line_.empty() && fits(*line_.first())) {
        line_.give_first(outbox_);
        any = true;
    }
    if (any) {
        rearm();
        changed_.notify_all();
    }
}

inline void keeper_core::flush() {
    parcel_ptr next;
    try {
        for (unsigned n = 0; n < in_one_go && flush_one(next); ++n) {
        }
    } catch (std::exception const & e) {
        // Nobody else holds the one that could not be put back.
        log_caught("tav::kit::keeper", e.what());
        if (next) {
            next->one->end(make_error_code(failure::not_sent));
        }
    }
    lock const guard(mutex_);
    flushing_ = false;
}

// False if there is nothing more to do for the moment.
inline bool keeper_core::flush_one(parcel_ptr & next) {
    next.reset();
    {
        lock const guard(mutex_);
        if (phase_ != phase::up || outbox_.empty() || timer_.now() < retry_at_) {
            return false;
        }
        next = outbox_.first();
        in_flight_.insert(outbox_.extract_first());
        flushing_ = true;
        admit();
    }
    way const went = send_now(next);
    if (went != way::gone) {
        put_back(next, went);
        return false;
    }
    if (next->one->ended()) {
        forget(next->number);
    }
    return true;
}

// Whether it went out is known for sure: a send that the client tracks was accepted if it is there, and one
// that waits for nothing, which the client does not track, if the call has not failed.
inline keeper_core::way keeper_core::send_now(parcel_ptr const & p) noexcept {
    way result = way::gone;
    try {
        if (p->one->ended()) {
            return way::gone;
        }
        int limit_ms = 1;
        if (p->has_limit()) {
            double const left = std::chrono::duration<double, std::milli>(p->limit - timer_.now()).count();
            limit_ms = within(std::chrono::duration<double, std::milli>(left)).limit_ms();
        } else if (p->awaits) {
            limit_ms = p->terms.limit_ms();
        }
        if (limit_ms < 1) {
            p->one->end(make_error_code(failure::timed_out));
            return way::gone;
        }
        auto const going = std::make_shared<trip>(weak_from_this(), p);
        std::shared_ptr<tls::send_info> const sent = hand_over(*p, going, limit_ms);
        std::error_code const why = tls::last_failure();
        bool const taken = p->awaits ? sent != nullptr : !why;
        if (!taken) {
            going->void_it();
            result = refused(why, *p);
        } else if (p->awaits) {
            p->one->went_as(sent);
        } else {
            going->void_it();
            p->one->end(std::error_code());
        }
        if (taken) {
            lock const guard(mutex_);
            refused_since_ = time_point();
        }
    } catch (std::exception const & e) {
        log_caught("tav::kit::keeper", e.what());
        p->one->end(make_error_code(failure::not_sent));
    }
    return result;
}

inline keeper_core::way keeper_core::refused(std::error_code why, parcel const & p) {
    std::error_code const named = failure_of_refusal(why);
    if (named == failure::over_limit) {
        return way::busy;
    }
    if (named == failure::not_connected) {
        return way::down;
    }
    p.one->end(named);
    return way::gone;
}

inline std::shared_ptr<tls::send_info>
keeper_core::hand_over(parcel const & p, std::shared_ptr<trip> const & going, int limit_ms) {
    tls::send_option option = p.terms.option(p.ack);
    option.wait_ms(p.awaits ? limit_ms : 0);
    option.sno = p.sno;
    option.ext = p.ext;
    if (p.awaits) {
        option.set_on_timedout([going](unsigned long long, unsigned short, bool cancelled) {
            if (cancelled) {
                going->came_back();
            } else {
                going->ended(make_error_code(failure::timed_out));
            }
        });
        option.set_nbr_ack_callback([going](unsigned long long sno, unsigned short,
                                            unsigned char const * data, unsigned size, tavMsgExt ext) {
            arrival reply;
            reply.sno = sno;
            reply.data = data;
            reply.size = size;
            reply.ext = &ext;
            going->ended(std::error_code(), reply);
        });
    }
    return client_.send_nbr_msg(p.code, reinterpret_cast<unsigned char const *>(p.body.data()), p.body.size(),
                                option);
}

// The client took nothing of it: it goes on as if it had not been sent.
inline void keeper_core::put_back(parcel_ptr const & p, way why) {
    bool stopped = false;
    {
        lock const guard(mutex_);
        in_flight_.erase(p->number);
        stopped = phase_ == phase::stopped;
        if (!stopped && !p->one->ended()) {
            time_point const now = timer_.now();
            outbox_.add(p);
            if (why == way::down && refused_since_ == time_point()) {
                refused_since_ = now;
            }
            retry_at_ = now + (why == way::down ? down_pause : busy_pause);
            rearm();
        }
    }
    if (stopped) {
        p->one->end(make_error_code(failure::stopped));
    } else if (p->one->ended()) {
        forget(p->number);
    }
}

// Whether a message whose connection has ended goes out once more.
inline bool keeper_core::again(parcel_ptr const & p) noexcept {
    try {
        if (!p->terms.repeatable() || p->one->ended()) {
            return false;
        }
        {
            lock const guard(mutex_);
            time_point const now = timer_.now();
            if (phase_ == phase::stopped || now >= p->limit) {
                return false;
            }
            in_flight_.erase(p->number);
            outbox_.add(p);
            retry_at_ = now + down_pause;
            rearm();
        }
        if (p->one->ended()) {
            forget(p->number);
        }
        return true;
    } catch (std::exception const & e) {
        log_caught("tav::kit::keeper", e.what());
        return false;
    }
}

inline void keeper_core::forget(unsigned long long number) {
    // They go when the lock is free.
    parcel_ptr sent;
    parcel_ptr waited;
    lock const guard(mutex_);
    auto const found = in_flight_.find(number);
    if (found != in_flight_.end()) {
        sent = found->second;
        in_flight_.erase(found);
    }
    waited = outbox_.take(number);
    if (!waited) {
        waited = line_.take(number);
        changed_.notify_all();
    }
    admit();
}

inline void keeper_core::end_late() {
    for (;;) {
        parcel_ptr late;
        {
            lock const guard(mutex_);
            late = outbox_.take_late(timer_.now());
            if (!late) {
                late = line_.take_late(timer_.now());
                changed_.notify_all();
            }
            admit();
        }
        if (!late) {
            return;
        }
        late->one->end(make_error_code(failure::timed_out));
    }
}

} // namespace detail
} // namespace kit
} // namespace tav

#endif
