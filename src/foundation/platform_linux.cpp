#include "foundation/platform.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include <dirent.h>
#include <fcntl.h>
#include <linux/tcp.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace tav {
namespace platform {

namespace {

std::error_code lastError() noexcept {
    return std::error_code(errno, std::generic_category());
}

std::error_code setOption(int socket, int level, int name, int value) noexcept {
    return ::setsockopt(socket, level, name, &value, sizeof value) == 0 ? std::error_code() : lastError();
}

std::error_code writeAll(int descriptor, std::string_view text, std::size_t & written) noexcept {
    written = 0;
    while (written < text.size()) {
        ssize_t const moved = ::write(descriptor, text.data() + written, text.size() - written);
        if (moved > 0) {
            written += static_cast<std::size_t>(moved);
        } else if (moved == 0) {
            return std::make_error_code(std::errc::io_error);
        } else if (errno != EINTR) {
            return lastError();
        }
    }
    return std::error_code();
}

int openForAppending(char const * path) noexcept {
    int descriptor = -1;
    do {
        descriptor = ::open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY, 0666);
    } while (descriptor < 0 && errno == EINTR);
    return descriptor;
}

} // namespace

char const * systemName() noexcept {
    return "Linux";
}

unsigned processId() noexcept {
    return static_cast<unsigned>(::getpid());
}

unsigned threadId() noexcept {
    return static_cast<unsigned>(::syscall(SYS_gettid));
}

void nameThread(std::string_view name) noexcept {
    constexpr std::size_t most = 15;
    char cut[most + 1] = {};
    name = name.substr(0, name.find('\0'));
    std::memcpy(cut, name.data(), std::min(most, name.size()));
    static_cast<void>(::pthread_setname_np(::pthread_self(), cut));
}

bool aroundFork(void (*before)(), void (*inParent)(), void (*inChild)()) noexcept {
    return ::pthread_atfork(before, inParent, inChild) == 0;
}

bool localTime(std::time_t time, std::tm & fields) noexcept {
    return ::localtime_r(&time, &fields) != nullptr;
}

bool moveFile(char const * from, char const * to) noexcept {
    return std::rename(from, to) == 0;
}

bool keyPressed() noexcept {
    if (::isatty(STDIN_FILENO) == 0) {
        return false;
    }
    struct pollfd input = {STDIN_FILENO, POLLIN, 0};
    return ::poll(&input, 1, 0) > 0 && (input.revents & POLLIN) != 0;
}

bool isFolder(std::string const & path) noexcept {
    struct stat status;
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

std::error_code listFolder(std::string const & path, std::vector<std::string> & names) {
    std::unique_ptr<DIR, int (*)(DIR *)> const listing(::opendir(path.c_str()),
                                                       [](DIR * d) { return ::closedir(d); });
    if (!listing) {
        return lastError();
    }
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the listing is this call's own.
    while (dirent const * const entry = ::readdir(listing.get())) {
        names.emplace_back(entry->d_name);
    }
    return std::error_code();
}

std::error_code fileState(std::string const & path, std::string & state) {
    struct stat status;
    if (::stat(path.c_str(), &status) != 0) {
        return lastError();
    }
    state += std::to_string(status.st_dev) + ' ' + std::to_string(status.st_ino) + ' ' +
             std::to_string(status.st_size);
    for (timespec const & time : {status.st_mtim, status.st_ctim}) {
        state += ' ' + std::to_string(time.tv_sec) + '.' + std::to_string(time.tv_nsec);
    }
    return std::error_code();
}

std::error_code tryReading(std::string const & path) noexcept {
    int const descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (descriptor < 0) {
        return lastError();
    }
    ::close(descriptor);
    return std::error_code();
}

struct QuietPipes::State {
    sigset_t pipeSignal;
    sigset_t former;
    /// Whether the signal was there before: then it is somebody else's, and stays.
    bool foreign;
};

QuietPipes::QuietPipes() noexcept {
    static_assert(sizeof(State) <= sizeof state_ && alignof(State) <= alignof(void *),
                  "the place is large enough");
    State & state = *new (state_) State;
    sigemptyset(&state.pipeSignal);
    sigaddset(&state.pipeSignal, SIGPIPE);
    sigset_t pending;
    sigpending(&pending);
    state.foreign = sigismember(&pending, SIGPIPE) == 1;
    ::pthread_sigmask(SIG_BLOCK, &state.pipeSignal, &state.former);
}

QuietPipes::~QuietPipes() {
    State & state = *std::launder(reinterpret_cast<State *>(state_));
    if (!state.foreign) {
        timespec const now{};
        while (sigtimedwait(&state.pipeSignal, nullptr, &now) == -1 && errno == EINTR) {
        }
    }
    ::pthread_sigmask(SIG_SETMASK, &state.former, nullptr);
}

AppendFile::AppendFile(char const * path) noexcept : descriptor_(openForAppending(path)) {
    if (descriptor_ < 0) {
        error_ = lastError();
        return;
    }
    struct stat status {};
    if (::fstat(descriptor_, &status) == 0) {
        regular_ = S_ISREG(status.st_mode);
        size_ = regular_ ? static_cast<long long>(status.st_size) : 0;
    }
}

AppendFile::~AppendFile() {
    if (descriptor_ >= 0) {
        ::close(descriptor_);
    }
}

std::error_code AppendFile::write(std::string_view text, std::size_t & written) const noexcept {
    if (regular_) {
        return writeAll(descriptor_, text, written);
    }
    written = 0;
    if (descriptor_ < 0) {
        return error_;
    }
    QuietPipes const quiet;
    return writeAll(descriptor_, text, written);
}

void shutDown(int socket) noexcept {
    ::shutdown(socket, SHUT_RDWR);
}

std::error_code keepAlive(int socket, int idle_s, int interval_s, int probes) noexcept {
    std::error_code ec = setOption(socket, SOL_SOCKET, SO_KEEPALIVE, 1);
    ec = ec ? ec : setOption(socket, IPPROTO_TCP, TCP_KEEPIDLE, idle_s);
    if (!ec && interval_s > 0) {
        ec = setOption(socket, IPPROTO_TCP, TCP_KEEPINTVL, interval_s);
    }
    if (!ec && probes > 0) {
        ec = setOption(socket, IPPROTO_TCP, TCP_KEEPCNT, probes);
    }
    return ec;
}

std::error_code limitUnacknowledged(int socket, int ms) noexcept {
    return setOption(socket, IPPROTO_TCP, TCP_USER_TIMEOUT, ms);
}

unsigned long long bytesReceived(int socket) noexcept {
    tcp_info info{};
    socklen_t size = sizeof info;
    bool const told = ::getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size) == 0 &&
                      size >= offsetof(tcp_info, tcpi_bytes_received) + sizeof info.tcpi_bytes_received;
    return told ? info.tcpi_bytes_received : 0;
}

unsigned short servicePort(std::string const & name) noexcept {
    servent entry{};
    servent * found = nullptr;
    char room[1024];
    bool const known =
        ::getservbyname_r(name.c_str(), "tcp", &entry, room, sizeof room, &found) == 0 && found != nullptr;
    return known ? ntohs(static_cast<std::uint16_t>(found->s_port)) : static_cast<unsigned short>(0);
}

BlockingMode::BlockingMode(int socket) noexcept : socket_(socket), flags_(::fcntl(socket, F_GETFL)) {
    if (flags_ >= 0) {
        ::fcntl(socket_, F_SETFL, flags_ & ~O_NONBLOCK);
    }
}

BlockingMode::~BlockingMode() {
    if (flags_ >= 0) {
        ::fcntl(socket_, F_SETFL, flags_);
    }
}

} // namespace platform
} // namespace tav
