#include "tools/traffic.h"

#include <algorithm>

namespace tav {
namespace tool {

namespace {

constexpr std::size_t heartbeatSize = 4;

bool isBelow(Traffic::Packet const & packet, unsigned long long id) {
    return packet->id < id;
}

} // namespace

bool Traffic::admits(long long now) {
    // Each millisecond has its share.  A clock that was set back gives none.
    long long const passed = std::max(now - savedAt_, 0LL);
    savedAt_ = now;
    saved_ = passed >= 1000 ? longestSaved
                            : std::min(longestSaved, saved_ + passed * static_cast<long long>(mostInASecond));
    constexpr long long one = 1000;
    if (saved_ < one) {
        return false;
    }
    saved_ -= one;
    return true;
}

void Traffic::count(unsigned connection, bool in) {
    auto const found = connections_.find(connection);
    if (found != connections_.end()) {
        ++(in ? found->second.in : found->second.out);
    }
}

void Traffic::frame(unsigned connection, bool in, std::string const & frame, long long now,
                    std::optional<unsigned short> copyOf) {
    std::lock_guard<std::mutex> const guard(mutex_);
    count(connection, in);
    if (frame.size() > heartbeatSize) {
        keep({0, now, connection, in, frame, {}, copyOf});
    }
}

void Traffic::odd(unsigned connection, std::string const & bytes, std::string const & what, long long now) {
    std::lock_guard<std::mutex> const guard(mutex_);
    keep({0, now, connection, false, bytes, what, {}});
}

void Traffic::keep(SeenPacket packet) {
    ++counts_.all;
    if (!admits(packet.time)) {
        ++counts_.leftOut;
        return;
    }
    packet.id = ++counts_.last;
    bytes_ += packet.frame.size();
    packets_.push_back(std::make_shared<SeenPacket const>(std::move(packet)));
    while (packets_.size() > mostPackets || (bytes_ > mostBytes && packets_.size() > 1)) {
        bytes_ -= packets_.front()->frame.size();
        packets_.pop_front();
    }
}

void Traffic::connection(unsigned id, bool open, std::string const & peer, long long now) {
    std::lock_guard<std::mutex> const guard(mutex_);
    if (open) {
        SeenConnection made;
        made.id = id;
        made.peer = peer;
        made.since = now;
        connections_[id] = made;
        return;
    }
    auto const found = connections_.find(id);
    if (found == connections_.end()) {
        return;
    }
    found->second.open = false;
    closed_.push_back(id);
    if (closed_.size() > mostClosed) {
        connections_.erase(closed_.front());
        closed_.pop_front();
    }
}

void Traffic::silence(unsigned id, bool on) {
    std::lock_guard<std::mutex> const guard(mutex_);
    auto const found = connections_.find(id);
    if (found != connections_.end()) {
        found->second.silent = on;
    }
}

std::vector<Traffic::Packet> Traffic::packets(unsigned long long after) const {
    std::lock_guard<std::mutex> const guard(mutex_);
    return {std::lower_bound(packets_.begin(), packets_.end(), after + 1, isBelow), packets_.end()};
}

Traffic::Packet Traffic::packet(unsigned long long id) const {
    std::lock_guard<std::mutex> const guard(mutex_);
    auto const found = std::lower_bound(packets_.begin(), packets_.end(), id, isBelow);
    return found == packets_.end() || (*found)->id != id ? nullptr : *found;
}

std::vector<SeenConnection> Traffic::connections() const {
    std::lock_guard<std::mutex> const guard(mutex_);
    std::vector<SeenConnection> all;
    for (auto const & entry : connections_) {
        all.push_back(entry.second);
    }
    return all;
}

Traffic::Counts Traffic::counts() const {
    std::lock_guard<std::mutex> const guard(mutex_);
    Counts counts = counts_;
    counts.kept = packets_.size();
    return counts;
}

} // namespace tool
} // namespace tav
