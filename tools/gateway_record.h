#ifndef TAV_TOOLS_GATEWAY_RECORD_H
#define TAV_TOOLS_GATEWAY_RECORD_H

#include "tools/failure.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace tav {
namespace tool {

/// The first failure of a thread that nobody waits for.
class Trouble {
public:
    Trouble();
    ~Trouble();
    Trouble(Trouble const &) = delete;
    Trouble & operator=(Trouble const &) = delete;

    void tell(Failure const & failure);
    /// Can be read once there is one.
    int fd() const { return fd_; }
    /// Throws it, if there is one.
    void raise() const;

private:
    int fd_ = -1;
    mutable std::mutex mutex_;
    std::unique_ptr<Failure> first_;
};

/// Which frames a record has.
enum class Recorded { both, in, out };

std::map<std::string, Recorded> const & recordedNames();

/// A file to which frames are appended, as they are, and whole ones alone: it can be read to its end.  Its
/// owner alone can read it: there are people's messages in it.
class GatewayRecord {
public:
    /// Throws a Failure if the file can't be opened, or has something else than frames.  What can't be
    /// written later is told to `trouble`, and is the last that is tried.
    GatewayRecord(std::string const & path, Recorded which, Trouble & trouble);
    ~GatewayRecord();
    GatewayRecord(GatewayRecord const &) = delete;
    GatewayRecord & operator=(GatewayRecord const &) = delete;

    void put(bool in, std::string const & frame);

private:
    /// Cuts off what has been written of a frame.
    void takeBack(std::size_t bytes);

    std::string path_;
    Recorded which_;
    bool failed_ = false;
    Trouble & trouble_;
    int fd_ = -1;
};

} // namespace tool
} // namespace tav

#endif
