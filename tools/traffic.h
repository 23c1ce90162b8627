#ifndef TAV_TOOLS_TRAFFIC_H
#define TAV_TOOLS_TRAFFIC_H

#include <cstddef>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tav {
namespace tool {

/// A frame that was seen, and when, in milliseconds since 1970.  With `odd` it is none, but what was sent to
/// misbehave, and that is what it was to be.  With `copyOf` its body is that of a packet of this code.
struct SeenPacket {
    unsigned long long id = 0;
    long long time = 0;
    unsigned connection = 0;
    bool in = true;
    std::string frame;
    std::string odd;
    std::optional<unsigned short> copyOf;
};

struct SeenConnection {
    unsigned id = 0;
    std::string peer;
    long long since = 0;
    bool open = true;
    bool silent = false;
    /// The frames that came and went, heartbeats among them.
    unsigned long long in = 0;
    unsigned long long out = 0;
};

/// What a gateway has seen lately, in memory that does not grow: the last packets, and of a flood of them
/// some, once it has lasted for more than a second's share.  Every operation may be called from any thread.
class Traffic {
public:
    using Packet = std::shared_ptr<SeenPacket const>;

    /// The most that is kept, and how much of it in a second; so much may come at once as well.
    static constexpr std::size_t mostPackets = 10000;
    static constexpr std::size_t mostBytes = 64 * 1024 * 1024;
    static constexpr std::size_t mostInASecond = 1000;
    static constexpr std::size_t mostClosed = 20;

    void frame(unsigned connection, bool in, std::string const & frame, long long now,
               std::optional<unsigned short> copyOf = std::nullopt);
    void odd(unsigned connection, std::string const & bytes, std::string const & what, long long now);
    void connection(unsigned id, bool open, std::string const & peer, long long now);
    void silence(unsigned id, bool on);

    /// Those with a number above `after`, oldest first.
    std::vector<Packet> packets(unsigned long long after) const;
    /// Null if it is not there any more.
    Packet packet(unsigned long long id) const;
    /// Those that are open, and the last ones that were, oldest first.
    std::vector<SeenConnection> connections() const;
    /// All packets that came and went, those that were not kept as there were too many at once, and the
    /// number of the oldest that is there.
    struct Counts {
        unsigned long long all = 0;
        unsigned long long leftOut = 0;
        unsigned long long last = 0;
        std::size_t kept = 0;
    };
    Counts counts() const;

private:
    static constexpr long long longestSaved = 1000 * static_cast<long long>(mostInASecond);

    bool admits(long long now);
    void count(unsigned connection, bool in);
    void keep(SeenPacket packet);

    mutable std::mutex mutex_;
    std::deque<Packet> packets_;
    std::map<unsigned, SeenConnection> connections_;
    std::deque<unsigned> closed_;
    Counts counts_;
    std::size_t bytes_ = 0;
    /// Thousandths of packets that may still be kept, and when that was so.
    long long saved_ = longestSaved;
    long long savedAt_ = 0;
};

} // namespace tool
} // namespace tav

#endif
