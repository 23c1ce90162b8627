#include "client/frame_writer.h"

#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

using Guard = detail::Guard<detail::Guarding<tavMutex>>;

} // namespace

frame_writer::frame_writer() : record_(static_cast<unsigned>(record_size)) {}

bool frame_writer::post(tavBytes && frame, send_account::room && room) {
    std::list<entry> one;
    one.emplace_back();
    one.front().frame.swap(frame);
    one.front().room = std::move(room);
    Guard const guard(mutex_);
    posted_.splice(posted_.end(), one);
    return !std::exchange(told_, true);
}

void frame_writer::untold() noexcept {
    Guard const guard(mutex_);
    told_ = false;
}

bool frame_writer::retell() noexcept {
    Guard const guard(mutex_);
    if (told_ || posted_.empty()) {
        return false;
    }
    told_ = true;
    return true;
}

bool frame_writer::accept() noexcept {
    Guard const guard(mutex_);
    bool const idle = queue_.empty();
    queue_.splice(queue_.end(), posted_);
    told_ = false;
    return idle && !queue_.empty();
}

// A frame is written from its place in the queue, unless it can share a record with those behind it.
frame_writer::piece frame_writer::next() noexcept {
    Guard const guard(mutex_);
    std::size_t total = queue_.front().frame.size();
    pending_ = 1;
    for (auto each = std::next(queue_.begin());
         each != queue_.end() && total + each->frame.size() <= record_size; ++each) {
        total += each->frame.size();
        ++pending_;
    }
    if (pending_ == 1) {
        return piece{queue_.front().frame.data(), total};
    }
    record_.size(0);
    auto each = queue_.begin();
    for (std::size_t i = 0; i < pending_; ++i, ++each) {
        record_.writeBytes(each->frame);
    }
    return piece{record_.data(), total};
}

frame_writer::written frame_writer::first() const noexcept {
    Guard const guard(mutex_);
    return written{queue_.front().frame.size(), queue_.size()};
}

bool frame_writer::pop() noexcept {
    std::list<entry> one;
    Guard const guard(mutex_);
    one.splice(one.end(), queue_, queue_.begin());
    --pending_;
    return !queue_.empty();
}

// The limits' function may be called as the room is given back: that is without the lock.
void frame_writer::clear() noexcept {
    std::list<entry> dropped;
    Guard const guard(mutex_);
    dropped.splice(dropped.end(), queue_);
    dropped.splice(dropped.end(), posted_);
    pending_ = 0;
}

bool frame_writer::empty() const noexcept {
    Guard const guard(mutex_);
    return queue_.empty();
}

std::vector<unsigned> frame_writer::sizes() const {
    std::vector<unsigned> out;
    Guard const guard(mutex_);
    for (entry const & each : queue_) {
        out.push_back(each.frame.size());
    }
    return out;
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
