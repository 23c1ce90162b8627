#include "client/process_exit.h"

#include "foundation/guarded.h"
#include "foundation/platform.h"

#include <asio/error.hpp>
#include <asio/ssl/error.hpp>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <set>
#include <thread>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

constexpr std::chrono::milliseconds limit(1000);

std::atomic<bool> stopped{false};
/// The threads of clients that are at work.
std::atomic<unsigned> busy{0};
thread_local bool at_work = false;
/// How many times the thread is at work, one within the other.
thread_local unsigned depth = 0;
/// Set on the thread that exits: it may be a client's own, and goes on.
thread_local bool exits = false;

/// Never destroyed: contexts may go at any time.
struct contexts {
    detail::Mutex mutex;
    std::set<asio::io_context *> all TAV_GUARDED_BY(mutex);
    unsigned process = platform::processId();
};

contexts & the_contexts() {
    static contexts & the = *new contexts;
    return the;
}

[[noreturn]] void stay() {
    for (;;) {
        std::this_thread::sleep_for(std::chrono::hours(1));
    }
}

// A forked process has none of the threads.
void stop_all() {
    contexts & the = the_contexts();
    if (the.process != platform::processId()) {
        return;
    }
    stopped = true;
    {
        detail::Guard const guard(the.mutex);
        for (asio::io_context * const io : the.all) {
            io->stop();
        }
    }
    unsigned const own = at_work ? 1 : 0;
    exits = true;
    auto const end = std::chrono::steady_clock::now() + limit;
    while (busy > own && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

// Static objects go in the reverse order of their making: these are made ahead of the handler.
bool watch_exit() {
    asio::error::get_system_category();
    asio::error::get_netdb_category();
    asio::error::get_addrinfo_category();
    asio::error::get_misc_category();
    asio::error::get_ssl_category();
    asio::ssl::error::get_stream_category();
    the_contexts();
    return std::atexit(&stop_all) == 0;
}

} // namespace

process_exit::process_exit(asio::io_context & io) : io_(io) {
    static bool const watching = watch_exit();
    static_cast<void>(watching);
    detail::Guard const guard(the_contexts().mutex);
    the_contexts().all.insert(&io_);
}

process_exit::~process_exit() {
    detail::Guard const guard(the_contexts().mutex);
    the_contexts().all.erase(&io_);
}

bool process_exit::begun() noexcept {
    return stopped;
}

void process_exit::enter() noexcept {
    if (depth++ == 0) {
        ++busy;
        at_work = true;
    }
    pass();
}

void process_exit::leave() noexcept {
    pass();
    if (--depth == 0) {
        at_work = false;
        --busy;
    }
}

void process_exit::pass() noexcept {
    if (at_work && stopped && !exits) {
        --busy;
        stay();
    }
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
