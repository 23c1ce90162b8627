#ifndef TAV_KIT_KEEPER_OUTBOX_H
#define TAV_KIT_KEEPER_OUTBOX_H

#include "tav/kit/exchange.h"
#include "tav/kit/keeper_timer.h"
#include "tav/vinta/vinta_basetypes_bytes.h"
#include "tav/vinta/vinta_object.h"

#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <set>
#include <utility>

namespace tav {
namespace kit {
namespace detail {

/// A message whose bytes are there already, for who has no class of it; it has no fields.
class packed final : public tavMessage {
public:
    packed(unsigned short code, tavBytes bytes) : body(std::move(bytes)), code_(code) {}

    tav_istr className() const override { return tav_istr("tav::kit::packed"); }
    tav_istr baseName() const override { return tav_istr("tavMessage"); }
    unsigned short msgcode() const override { return code_; }
    tavObject * newInstance() const override { return nullptr; }
    void assignFrom(tavObject const & /*other*/) override {}

    tavBytes const body;

private:
    unsigned short const code_;
};

/// A message of a keeper on its way, encoded.
struct parcel {
    using clock = keeper_timer::clock;

    parcel(std::shared_ptr<exchange> of, tavMessage const & msg, within const & how)
        : one(std::move(of)),
          body(bytes_of(msg)),
          code(msg.msgcode()),
          sno(msg.sno),
          ext(msg.ext),
          terms(how) {}

    static tavBytes bytes_of(tavMessage const & msg) {
        auto const made = dynamic_cast<packed const *>(&msg);
        return made != nullptr ? made->body : msg.encode(true);
    }
    bool has_limit() const { return limit != clock::time_point::max(); }

    std::shared_ptr<exchange> const one;
    tavBytes const body;
    unsigned short const code;
    unsigned long long const sno;
    tavMsgExt const ext;
    within const terms;
    /// The code of what ends it; without one it has ended when it has been handed to the connection.
    unsigned short ack = 0xffff;
    bool awaits = false;
    /// Whether its sender stands still until there is room for it.
    bool holds_sender = false;
    clock::time_point limit = clock::time_point::max();
    /// The place in the order of all messages of the keeper.
    unsigned long long number = 0;
};
using parcel_ptr = std::shared_ptr<parcel const>;
/// By their place in the order.
using parcels = std::map<unsigned long long, parcel_ptr>;

/// Messages that wait, in their order, with the times when they have waited too long.
class outbox {
public:
    using time_point = parcel::clock::time_point;

    bool empty() const { return parcels_.empty(); }
    std::size_t count() const { return parcels_.size(); }
    unsigned long long bytes() const { return bytes_; }
    bool holds(unsigned long long number) const { return parcels_.count(number) != 0; }
    parcel_ptr const & first() const { return parcels_.begin()->second; }

    /// At its place in the order, which is not the end for what comes back.
    void add(parcel_ptr const & p) {
        parcels_.emplace(p->number, p);
        bytes_ += p->body.size();
        if (p->has_limit()) {
            limits_.emplace(p->limit, p->number);
        }
    }
    parcel_ptr take(unsigned long long number) {
        auto const found = parcels_.find(number);
        if (found == parcels_.end()) {
            return nullptr;
        }
        parcel_ptr const taken = found->second;
        parcels_.erase(found);
        bytes_ -= taken->body.size();
        limits_.erase({taken->limit, number});
        return taken;
    }
    parcel_ptr take_first() { return take(parcels_.begin()->first); }
    /// The first with the node that holds it: who takes it over needs no memory.
    parcels::node_type extract_first() noexcept {
        parcels::node_type node = parcels_.extract(parcels_.begin());
        bytes_ -= node.mapped()->body.size();
        limits_.erase({node.mapped()->limit, node.key()});
        return node;
    }
    /// Moves the first to its place in another, without memory for it.
    void give_first(outbox & to) noexcept {
        parcel const & p = *first();
        auto limit = limits_.extract({p.limit, p.number});
        to.bytes_ += p.body.size();
        to.parcels_.insert(extract_first());
        if (limit) {
            to.limits_.insert(std::move(limit));
        }
    }

    /// The next of those whose time is over; null if there is none.
    parcel_ptr take_late(time_point now) {
        if (limits_.empty() || limits_.begin()->first > now) {
            return nullptr;
        }
        return take(limits_.begin()->second);
    }
    time_point next_limit() const { return limits_.empty() ? time_point::max() : limits_.begin()->first; }

    parcels take_all() noexcept {
        parcels all;
        all.swap(parcels_);
        limits_.clear();
        bytes_ = 0;
        return all;
    }

private:
    parcels parcels_;
    std::set<std::pair<time_point, unsigned long long>> limits_;
    unsigned long long bytes_ = 0;
};

} // namespace detail
} // namespace kit
} // namespace tav

#endif
