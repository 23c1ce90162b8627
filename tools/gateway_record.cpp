#include "tools/gateway_record.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

namespace tav {
namespace tool {

Trouble::Trouble() : fd_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (fd_ < 0) {
        throw systemFailure("events", "no descriptor", errno);
    }
}

Trouble::~Trouble() {
    ::close(fd_);
}

void Trouble::tell(Failure const & failure) {
    std::lock_guard<std::mutex> const guard(mutex_);
    if (first_ == nullptr) {
        first_ = std::make_unique<Failure>(failure);
        unsigned long long const one = 1;
        ssize_t const written = ::write(fd_, &one, sizeof(one));
        static_cast<void>(written);
    }
}

void Trouble::raise() const {
    std::lock_guard<std::mutex> const guard(mutex_);
    if (first_ != nullptr) {
        throw Failure(*first_);
    }
}

std::map<std::string, Recorded> const & recordedNames() {
    static std::map<std::string, Recorded> const names = {
        {"both", Recorded::both}, {"in", Recorded::in}, {"out", Recorded::out}};
    return names;
}

GatewayRecord::GatewayRecord(std::string const & path, Recorded which, Trouble & trouble)
    : path_(path),
      which_(which),
      trouble_(trouble),
      fd_(::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600)) {
    if (fd_ < 0) {
        throw systemFailure(path, "can't be written", errno);
    }
}

GatewayRecord::~GatewayRecord() {
    ::close(fd_);
}

void GatewayRecord::put(bool in, std::string const & frame) {
    if (which_ != Recorded::both && in != (which_ == Recorded::in)) {
        return;
    }
    for (std::string_view rest = frame; !rest.empty();) {
        ssize_t const n = ::write(fd_, rest.data(), rest.size());
        if (n >= 0) {
            rest.remove_prefix(static_cast<std::size_t>(n));
        } else if (errno != EINTR) {
            trouble_.tell(systemFailure(path_, "can't be written", errno));
            return;
        }
    }
}

} // namespace tool
} // namespace tav
