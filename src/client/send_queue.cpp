#include "client/send_queue.h"

#include "client/send_info.h"
#include "client/vinta_tls_client_impl_log.h"

#include <chrono>
#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

using Lock = detail::Guard<detail::Mutex>;

} // namespace

send_queue::send_queue(work_maker make_work)
    : make_work_(std::move(make_work)), sender_(std::make_shared<tavTaskQueue>("sender", 1)) {}

void send_queue::start() {
    std::shared_ptr<tavTaskQueue> sender;
    {
        Lock const guard(mutex_);
        sender = sender_;
    }
    sender->start();
}

bool send_queue::put(list & packets) {
    std::shared_ptr<tavTaskQueue> idle;
    {
        Lock const guard(mutex_);
        if (closed_) {
            return false;
        }
        waiting_.splice(waiting_.end(), packets);
        idle = claim_sender();
    }
    tell(idle);
    return true;
}

send_queue::list send_queue::take() {
    list one;
    Lock const guard(mutex_);
    if (closed_ || waiting_.empty()) {
        working_ = false;
    } else {
        one.splice(one.end(), waiting_, waiting_.begin());
    }
    return one;
}

bool send_queue::begin_turn() {
    Lock const guard(mutex_);
    if (closed_ || working_ || !waiting_.empty()) {
        return false;
    }
    working_ = true;
    turn_of_ = std::this_thread::get_id();
    return true;
}

void send_queue::end_turn(list & left, bool asked) {
    std::shared_ptr<tavTaskQueue> idle;
    {
        Lock const guard(mutex_);
        waiting_.splice(waiting_.begin(), left);
        turn_of_ = std::thread::id();
        working_ = false;
        if (closed_) {
            turn_ended_.notify_all();
        } else if (asked) {
            working_ = true;
            idle = sender_;
        } else {
            idle = claim_sender();
        }
    }
    tell(idle);
}

void send_queue::retell() {
    std::shared_ptr<tavTaskQueue> idle;
    {
        Lock const guard(mutex_);
        idle = claim_sender();
    }
    tell(idle);
}

void send_queue::close() {
    std::shared_ptr<tavTaskQueue> sender;
    {
        Lock const guard(mutex_);
        if (!closed_) {
            closed_ = true;
            await_turn();
            sender = sender_;
        }
    }
    if (!sender) {
        return;
    }
    sender->close();
    std::shared_ptr<tavTaskQueue> ended;
    list dropped;
    {
        Lock const guard(mutex_);
        ended.swap(sender_);
        dropped.swap(waiting_);
    }
    dropped.remove_if([](entry const & each) { return !each.info; });
    Lock const guard(mutex_);
    left_.splice(left_.end(), dropped);
}

send_queue::list send_queue::take_left() {
    list left;
    Lock const guard(mutex_);
    left.swap(left_);
    return left;
}

// A turn lasts for one packet, unless its thread is the one that closes.
void send_queue::await_turn() {
    while (turn_of_ != std::thread::id() && turn_of_ != std::this_thread::get_id()) {
        mutex_.waitUntil(turn_ended_, std::chrono::steady_clock::now() + std::chrono::seconds(1));
    }
}

std::shared_ptr<tavTaskQueue> send_queue::claim_sender() {
    if (working_ || waiting_.empty() || closed_) {
        return nullptr;
    }
    working_ = true;
    return sender_;
}

// Called without the lock, which is the first that the woken thread takes.  Packets that "sender" could not
// be told of wait for the next ones or for `retell`.
void send_queue::tell(std::shared_ptr<tavTaskQueue> const & sender) {
    if (!sender) {
        return;
    }
    try {
        sender->put(make_work_());
    } catch (...) {
        tav::detail::reportCaught(
            site_in("vinta_tls_client_impl_framing.cpp", "tav::tls::impl::session::put_drain"));
        Lock const guard(mutex_);
        working_ = false;
    }
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
