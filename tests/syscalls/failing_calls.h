#ifndef TAV_TESTS_SYSCALLS_FAILING_CALLS_H
#define TAV_TESTS_SYSCALLS_FAILING_CALLS_H

/// Lets the n-th system call of some kinds fail, or come short.  `failing_calls.cpp` stands in for the C
/// library's functions in the whole program, libraries included, and calls them for what does not fail.
namespace tav_test {
namespace syscalls {

/// Kinds of calls, as bits.
enum Call : unsigned {
    makes_socket = 1u << 0,  ///< socket
    connects = 1u << 1,      ///< connect
    looks_up = 1u << 2,      ///< getaddrinfo
    receives = 1u << 3,      ///< recv, recvmsg
    sends = 1u << 4,         ///< send, sendmsg
    waits = 1u << 5,         ///< epoll_wait
    watches = 1u << 6,       ///< epoll_ctl that adds a socket
    makes_set = 1u << 7,     ///< epoll_create1
    makes_event = 1u << 8,   ///< eventfd
    makes_pipe = 1u << 9,    ///< pipe
    makes_timer = 1u << 10,  ///< timerfd_create
    opens = 1u << 11,        ///< open, fopen
    reads = 1u << 12,        ///< read of a file
    writes = 1u << 13,       ///< write to a file
    renames = 1u << 14,      ///< rename
    starts_thread = 1u << 15 ///< pthread_create
};
constexpr unsigned kinds_of_calls = 16;

/// The n-th call only; each from the n-th on; or the n-th comes short and each behind it fails, as on a disk
/// that fills up.
enum class Lasting { once, stays, fills };

/// No error at all: what was to be moved is not, and the call says so.
constexpr int movesNothing = -1;

/// What becomes of a call.
struct Fault {
    char const * name;
    unsigned calls;
    /// What errno says, and of a look-up the code; 0 for a single byte where more was to be moved, or
    /// `movesNothing`.
    int error;
    Lasting lasting = Lasting::once;
};

/// While it lives, the `n`-th call of the fault's kinds on any thread that is not spared goes that way; for 0
/// none does, and the calls are counted.
class FailingCall {
public:
    /// `before` calls have been met ahead of it.
    FailingCall(Fault const & fault, long n, long before = 0);
    ~FailingCall();
    FailingCall(FailingCall const &) = delete;
    FailingCall & operator=(FailingCall const &) = delete;

    /// How many calls of its kinds have been met by now.
    static long met();
    /// How many calls of these kinds any has met, whether its own kinds or not, since the last `forget`.
    static long metOf(unsigned calls);
    static void forget();
};

/// Whether no call of the calling thread fails or counts from here on; returns what held before.
bool spareCallsOfThread(bool v);

/// While it lives, no call of its thread fails or counts.
class SparedCalls {
public:
    SparedCalls() : before_(spareCallsOfThread(true)) {}
    ~SparedCalls() { spareCallsOfThread(before_); }
    SparedCalls(SparedCalls const &) = delete;
    SparedCalls & operator=(SparedCalls const &) = delete;

private:
    bool const before_;
};

} // namespace syscalls
} // namespace tav_test

#endif
