#ifndef TAV_TOOLS_DESCRIPTOR_H
#define TAV_TOOLS_DESCRIPTOR_H

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace tav {
namespace tool {

/// A descriptor of the system's, closed with the object; negative for none.
class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    Descriptor(Descriptor const &) = delete;
    Descriptor & operator=(Descriptor const &) = delete;

    int get() const { return fd_; }
    /// 0, or the error: some disks tell only then that they are full.
    int close() { return ::close(std::exchange(fd_, -1)) == 0 ? 0 : errno; }

private:
    int fd_;
};

} // namespace tool
} // namespace tav

#endif
