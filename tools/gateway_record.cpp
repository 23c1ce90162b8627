#include "tools/gateway_record.h"

#include "tools/descriptor.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string_view>

namespace tav {
namespace tool {

namespace {

constexpr unsigned long long frameHead = 4;
constexpr unsigned long long largestFrame = 0xFFFFFF;

/// Reads lengths of frames, with few calls to the system.
class Lengths {
public:
    explicit Lengths(int fd) : fd_(fd) {}

    /// The size of the frame at `at`, its length included; 0 if less than a length is there.
    unsigned long long at(unsigned long long at) {
        if (at < begin_ || at + frameHead > begin_ + size_) {
            ssize_t const n = ::pread(fd_, bytes_.data(), bytes_.size(), static_cast<off_t>(at));
            begin_ = at;
            size_ = n > 0 ? static_cast<unsigned long long>(n) : 0;
        }
        if (size_ < frameHead) {
            return 0;
        }
        unsigned long long size = 0;
        for (unsigned long long i = 0; i < frameHead; ++i) {
            size = size << 8 | static_cast<unsigned char>(bytes_[static_cast<std::size_t>(at - begin_ + i)]);
        }
        return size + frameHead;
    }

private:
    int fd_;
    std::array<char, 64 * 1024> bytes_{};
    unsigned long long begin_ = 0;
    unsigned long long size_ = 0;
};

/// Behind what is no whole frame nothing could be read.
void demandWholeFrames(std::string const & path) {
    Descriptor const file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat state = {};
    if (file.get() < 0 || ::fstat(file.get(), &state) != 0 || !S_ISREG(state.st_mode)) {
        return;
    }
    auto const end = static_cast<unsigned long long>(state.st_size);
    Lengths lengths(file.get());
    unsigned long long at = 0;
    while (at < end) {
        unsigned long long const size = lengths.at(at);
        if (size == 0 || size > largestFrame + frameHead || size > end - at) {
            throw Failure(exitUse,
                          path + ": byte " + std::to_string(at) +
                              ": no whole frame is there, and what is recorded behind it could not be "
                              "read; record into another file, or cut this one off there: truncate -s " +
                              std::to_string(at) + " FILE");
        }
        at += size;
    }
}

} // namespace

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
    try {
        demandWholeFrames(path);
    } catch (...) {
        ::close(fd_);
        throw;
    }
}

GatewayRecord::~GatewayRecord() {
    ::close(fd_);
}

void GatewayRecord::put(bool in, std::string const & frame) {
    if (failed_ || (which_ != Recorded::both && in != (which_ == Recorded::in))) {
        return;
    }
    for (std::string_view rest = frame; !rest.empty();) {
        ssize_t const n = ::write(fd_, rest.data(), rest.size());
        if (n >= 0) {
            rest.remove_prefix(static_cast<std::size_t>(n));
        } else if (errno != EINTR) {
            trouble_.tell(systemFailure(path_, "can't be written", errno));
            failed_ = true;
            takeBack(frame.size() - rest.size());
            return;
        }
    }
}

void GatewayRecord::takeBack(std::size_t bytes) {
    struct stat state = {};
    auto const size = static_cast<off_t>(bytes);
    if (bytes != 0 && ::fstat(fd_, &state) == 0 && S_ISREG(state.st_mode) && state.st_size >= size) {
        int const done = ::ftruncate(fd_, state.st_size - size);
        static_cast<void>(done);
    }
}

} // namespace tool
} // namespace tav
