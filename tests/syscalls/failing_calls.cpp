#include "syscalls/failing_calls.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <netdb.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <mutex>
#include <utility>

namespace tav_test {
namespace syscalls {
namespace {

std::atomic<bool> watched{false};
std::array<std::atomic<long>, kinds_of_calls> counts{};
std::atomic<unsigned> kinds{0};
std::atomic<int> error{0};
std::atomic<long> first{0};
std::atomic<Lasting> lasting{Lasting::once};
std::atomic<long> count{0};
thread_local bool spared = false;

/// What becomes of the call in hand.
enum class Fate { whole, fails, comes_short };

Fate fateOf(Call call) {
    if (!watched.load(std::memory_order_relaxed) || spared) {
        return Fate::whole;
    }
    for (unsigned i = 0; i < kinds_of_calls; ++i) {
        counts[i] += call == 1u << i ? 1 : 0;
    }
    if ((kinds.load(std::memory_order_relaxed) & call) == 0) {
        return Fate::whole;
    }
    long const n = ++count;
    long const from = first;
    if (from == 0 || n < from || (n > from && lasting == Lasting::once)) {
        return Fate::whole;
    }
    return error == 0 || (n == from && lasting == Lasting::fills) ? Fate::comes_short : Fate::fails;
}

bool fails(Call call) {
    if (fateOf(call) != Fate::fails) {
        return false;
    }
    errno = error;
    return true;
}

template <class Function>
Function * real(char const * name) {
    return reinterpret_cast<Function *>(::dlsym(RTLD_NEXT, name));
}

/// Who waits for what of each descriptor.
struct Watch {
    int set = -1;
    epoll_event event{};
};
constexpr std::size_t mostDescriptors = 4096;
std::mutex watchesMutex;
std::array<Watch, mostDescriptors> known;

using Watcher = int(int, int, int, epoll_event *);

/// A set that tells of changes only would never tell of what was there before a made-up EAGAIN or short
/// count.  The system has such a change behind each real one, so there is one behind these.
void tellAgain(int descriptor) {
    static Watcher * const watch = real<Watcher>("epoll_ctl");
    int const before = errno;
    std::lock_guard<std::mutex> const guard(watchesMutex);
    Watch & one = known[static_cast<std::size_t>(descriptor) % mostDescriptors];
    if (one.set >= 0) {
        watch(one.set, EPOLL_CTL_MOD, descriptor, &one.event);
    }
    errno = before;
}

bool isSocket(int descriptor) {
    struct stat status;
    return ::fstat(descriptor, &status) == 0 && S_ISSOCK(status.st_mode);
}

bool isFile(int descriptor) {
    struct stat status;
    return ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

/// A call that moves `size` bytes, or as many as it may.
template <class Move>
ssize_t moved(Call call, int descriptor, std::size_t size, Move const & move) {
    switch (fateOf(call)) {
    case Fate::fails:
        if (error == movesNothing) {
            return 0;
        }
        errno = error;
        if (errno == EAGAIN) {
            tellAgain(descriptor);
        }
        return -1;
    case Fate::comes_short: {
        ssize_t const got = move(size == 0 ? size : 1);
        tellAgain(descriptor);
        return got;
    }
    case Fate::whole: break;
    }
    return move(size);
}

} // namespace

FailingCall::FailingCall(Fault const & fault, long n, long before) {
    count = before;
    error = fault.error;
    lasting = fault.lasting;
    first = n;
    kinds = fault.calls;
    watched = true;
}

FailingCall::~FailingCall() {
    watched = false;
    kinds = 0;
}

long FailingCall::met() {
    return count;
}

long FailingCall::metOf(unsigned calls) {
    long sum = 0;
    for (unsigned i = 0; i < kinds_of_calls; ++i) {
        sum += (calls & 1u << i) != 0 ? counts[i].load() : 0;
    }
    return sum;
}

void FailingCall::forget() {
    for (auto & each : counts) {
        each = 0;
    }
}

bool spareCallsOfThread(bool v) {
    return std::exchange(spared, v);
}

} // namespace syscalls
} // namespace tav_test

using namespace tav_test::syscalls;

extern "C" {

int socket(int domain, int type, int protocol) noexcept {
    static auto * const next = real<int(int, int, int)>("socket");
    return fails(makes_socket) ? -1 : next(domain, type, protocol);
}

int connect(int descriptor, sockaddr const * address, socklen_t size) {
    static auto * const next = real<int(int, sockaddr const *, socklen_t)>("connect");
    return fails(connects) ? -1 : next(descriptor, address, size);
}

int getaddrinfo(char const * host, char const * service, addrinfo const * hints, addrinfo ** out) {
    static auto * const next =
        real<int(char const *, char const *, addrinfo const *, addrinfo **)>("getaddrinfo");
    if (fateOf(looks_up) == Fate::fails) {
        int const why = error;
        // Codes of look-ups are below zero, and those of the system above.
        errno = why > 0 ? why : 0;
        return why > 0 ? EAI_SYSTEM : why;
    }
    return next(host, service, hints, out);
}

ssize_t recv(int descriptor, void * data, std::size_t size, int flags) {
    static auto * const next = real<ssize_t(int, void *, std::size_t, int)>("recv");
    return moved(receives, descriptor, size,
                 [&](std::size_t most) { return next(descriptor, data, most, flags); });
}

ssize_t send(int descriptor, void const * data, std::size_t size, int flags) {
    static auto * const next = real<ssize_t(int, void const *, std::size_t, int)>("send");
    return moved(sends, descriptor, size,
                 [&](std::size_t most) { return next(descriptor, data, most, flags); });
}

ssize_t recvmsg(int descriptor, msghdr * message, int flags) {
    static auto * const next = real<ssize_t(int, msghdr *, int)>("recvmsg");
    return moved(receives, descriptor, 0, [&](std::size_t) { return next(descriptor, message, flags); });
}

ssize_t sendmsg(int descriptor, msghdr const * message, int flags) {
    static auto * const next = real<ssize_t(int, msghdr const *, int)>("sendmsg");
    return moved(sends, descriptor, 0, [&](std::size_t) { return next(descriptor, message, flags); });
}

int epoll_wait(int set, epoll_event * events, int most, int ms) {
    static auto * const next = real<int(int, epoll_event *, int, int)>("epoll_wait");
    return fails(waits) ? -1 : next(set, events, most, ms);
}

int epoll_ctl(int set, int what, int descriptor, epoll_event * event) noexcept {
    static auto * const next = real<Watcher>("epoll_ctl");
    if (what == EPOLL_CTL_ADD && isSocket(descriptor) && fails(watches)) {
        return -1;
    }
    if (event != nullptr && descriptor >= 0) {
        std::lock_guard<std::mutex> const guard(watchesMutex);
        Watch & one = known[static_cast<std::size_t>(descriptor) % mostDescriptors];
        one.set = what == EPOLL_CTL_DEL ? -1 : set;
        one.event = *event;
    }
    return next(set, what, descriptor, event);
}

int epoll_create1(int flags) noexcept {
    static auto * const next = real<int(int)>("epoll_create1");
    return fails(makes_set) ? -1 : next(flags);
}

int eventfd(unsigned value, int flags) noexcept {
    static auto * const next = real<int(unsigned, int)>("eventfd");
    return fails(makes_event) ? -1 : next(value, flags);
}

// The undefined-behaviour sanitizer looks at memory by pipes: it has them for itself.
#if !defined(__SANITIZE_ADDRESS__)
int pipe(int ends[2]) noexcept {
    static auto * const next = real<int(int *)>("pipe");
    return fails(makes_pipe) ? -1 : next(ends);
}
#endif

int timerfd_create(clockid_t clock, int flags) noexcept {
    static auto * const next = real<int(clockid_t, int)>("timerfd_create");
    return fails(makes_timer) ? -1 : next(clock, flags);
}

int open(char const * path, int flags, ...) {
    static auto * const next = real<int(char const *, int, ...)>("open");
    mode_t mode = 0;
    if ((flags & (O_CREAT | O_TMPFILE)) != 0) {
        std::va_list more;
        va_start(more, flags);
        mode = va_arg(more, mode_t);
        va_end(more);
    }
    return fails(opens) ? -1 : next(path, flags, mode);
}

FILE * fopen(char const * path, char const * mode) {
    static auto * const next = real<FILE *(char const *, char const *)>("fopen");
    return fails(opens) ? nullptr : next(path, mode);
}

FILE * fopen64(char const * path, char const * mode) {
    static auto * const next = real<FILE *(char const *, char const *)>("fopen64");
    return fails(opens) ? nullptr : next(path, mode);
}

ssize_t read(int descriptor, void * data, std::size_t size) {
    static auto * const next = real<ssize_t(int, void *, std::size_t)>("read");
    if (!isFile(descriptor)) {
        return next(descriptor, data, size);
    }
    return moved(reads, descriptor, size, [&](std::size_t most) { return next(descriptor, data, most); });
}

ssize_t write(int descriptor, void const * data, std::size_t size) {
    static auto * const next = real<ssize_t(int, void const *, std::size_t)>("write");
    if (!isFile(descriptor)) {
        return next(descriptor, data, size);
    }
    return moved(writes, descriptor, size, [&](std::size_t most) { return next(descriptor, data, most); });
}

int rename(char const * from, char const * to) noexcept {
    static auto * const next = real<int(char const *, char const *)>("rename");
    return fails(renames) ? -1 : next(from, to);
}

int pthread_create(pthread_t * made, pthread_attr_t const * how, void * (*run)(void *),
                   void * with) noexcept {
    static auto * const next =
        real<int(pthread_t *, pthread_attr_t const *, void * (*)(void *), void *)>("pthread_create");
    return fateOf(starts_thread) == Fate::fails ? static_cast<int>(error) : next(made, how, run, with);
}

} // extern "C"
