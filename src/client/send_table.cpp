#include "client/send_table.h"

#include "client/send_info.h"

#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

using Guard = detail::Guard<detail::Guarding<tavMutex>>;

} // namespace

std::size_t send_table::add(info_ptr const & info) {
    Guard const guard(mutex_);
    auto const place = content_.by_number.try_emplace(info->sno_, info);
    if (!place.second) {
        info_ptr & present = place.first->second;
        if (present != info) {
            content_.replaced.try_emplace(present->ticket_, present);
            present = info;
        }
    }
    info->ticket_ = next_ticket_++;
    return content_.by_number.size();
}

send_table::info_ptr send_table::find(unsigned long long sno, unsigned short ack) const {
    Guard const guard(mutex_);
    auto const found = content_.by_number.find(sno);
    return found != content_.by_number.end() && found->second->ack() == ack ? found->second : nullptr;
}

send_table::info_ptr send_table::remove(unsigned long long sno) {
    info_ptr removed;
    Guard const guard(mutex_);
    auto const found = content_.by_number.find(sno);
    if (found != content_.by_number.end()) {
        removed.swap(found->second);
        content_.by_number.erase(found);
    }
    return removed;
}

bool send_table::remove(send_info const & info) {
    // Goes when the lock is free again.
    info_ptr removed;
    Guard const guard(mutex_);
    auto const found = content_.by_number.find(info.sno_);
    if (found != content_.by_number.end() && found->second.get() == &info) {
        removed.swap(found->second);
        content_.by_number.erase(found);
        return true;
    }
    auto const other = content_.replaced.find(info.ticket_);
    if (other != content_.replaced.end() && other->second.get() == &info) {
        removed.swap(other->second);
        content_.replaced.erase(other);
    }
    return false;
}

bool send_table::contains(send_info const & info) const {
    Guard const guard(mutex_);
    auto const found = content_.by_number.find(info.sno_);
    if (found != content_.by_number.end() && found->second.get() == &info) {
        return true;
    }
    auto const other = content_.replaced.find(info.ticket_);
    return other != content_.replaced.end() && other->second.get() == &info;
}

std::size_t send_table::size() const {
    Guard const guard(mutex_);
    return content_.by_number.size();
}

send_table::info_ptr send_table::take_due(long long now, cursor & at) {
    Guard const guard(mutex_);
    if (!at.in_replaced) {
        if (info_ptr due = take_due_of(content_.by_number, behind(content_.by_number, at), now, at)) {
            return due;
        }
        at = cursor();
        at.in_replaced = true;
    }
    return take_due_of(content_.replaced, behind(content_.replaced, at), now, at);
}

send_table::map_type::iterator send_table::behind(map_type & map, cursor const & at) {
    return at.started ? map.upper_bound(at.last) : map.begin();
}

// A send that someone else has claimed stays: who claimed it takes it out.
send_table::info_ptr send_table::take_due_of(map_type & map, map_type::iterator from, long long now,
                                             cursor & at) {
    for (auto each = from; each != map.end(); ++each) {
        if (each->second->due(now) && each->second->claim()) {
            at.started = true;
            at.last = each->first;
            info_ptr due = std::move(each->second);
            map.erase(each);
            return due;
        }
    }
    return nullptr;
}

send_table::content send_table::take_all() {
    content taken;
    Guard const guard(mutex_);
    taken.by_number.swap(content_.by_number);
    taken.replaced.swap(content_.replaced);
    return taken;
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
