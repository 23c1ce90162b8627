#ifndef TAV_CLIENT_SEND_TABLE_H
#define TAV_CLIENT_SEND_TABLE_H

#include "foundation/build_stamp.h"
#include "foundation/guarded.h"
#include "tav/vinta/vinta_locks.h"

#include <cstddef>
#include <map>
#include <memory>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

class send_info;

/// The sends of one connection that wait for their end.
///
/// A number leads to the last send that was made under it, which alone can have the reply.  The ones before
/// it have lost that place, but stay here until their limit or a cancellation ends them. Thread safety: all
/// operations.  Nothing is called, and nothing ends, with the lock held.
class send_table {
public:
    using info_ptr = std::shared_ptr<send_info>;

    /// All that a table held: the sends in the order of their numbers, and those without a place in the order
    /// in which they were made.
    struct content {
        std::map<unsigned long long, info_ptr> by_number;
        std::map<unsigned long long, info_ptr> replaced;
        bool empty() const { return by_number.empty() && replaced.empty(); }
    };
    /// Where a walk stands.
    struct cursor {
        bool started = false;
        bool in_replaced = false;
        unsigned long long last = 0;
    };

    /// Adds a send and gives the number of those that have a place.  If there is no memory nothing has
    /// changed.
    std::size_t add(info_ptr const & info);
    /// The send of this number, if a message of code `ack` is its reply; otherwise null.
    info_ptr find(unsigned long long sno, unsigned short ack) const;
    /// Takes out the send that has the place of this number; null if there is none.
    info_ptr remove(unsigned long long sno);
    /// Takes out this send, wherever it is; true if it had a place, false also if it is not here.
    bool remove(send_info const & info);
    /// Whether this send is here.
    bool contains(send_info const & info) const;
    /// The number of sends that have a place.
    std::size_t size() const;
    /// Claims the next send behind `at` whose limit has passed at `now`, takes it out and moves `at` there;
    /// null at the end.  Sends may come and go between the calls.
    info_ptr take_due(long long now, cursor & at);
    /// Takes all out.
    content take_all();

private:
    using map_type = std::map<unsigned long long, info_ptr>;

    static info_ptr take_due_of(map_type & map, map_type::iterator from, long long now, cursor & at);
    static map_type::iterator behind(map_type & map, cursor const & at);

    detail::Guarding<tavMutex> mutex_;
    content content_ TAV_GUARDED_BY(mutex_);
    unsigned long long next_ticket_ TAV_GUARDED_BY(mutex_) = 0;
};

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
