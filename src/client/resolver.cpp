#include "client/resolver.h"

#include "client/process_exit.h"
#include "foundation/platform.h"
#include "foundation/scope_exit.h"

#include <asio/ip/address.hpp>
#include <asio/post.hpp>

#include <charconv>
#include <chrono>
#include <new>
#include <thread>
#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

using asio::ip::tcp;

/// How long an answer that there is no memory to hand over waits for the next attempt.
constexpr std::chrono::milliseconds memory_wait(10);

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

/// True, with the endpoint, if both texts are numbers.
bool read_endpoint(std::string const & host, std::string const & service, tcp::endpoint & out) {
    unsigned short port = 0;
    if (read_port(service, port) != port_kind::number) {
        return false;
    }
    std::error_code ec;
    asio::ip::address const address = asio::ip::make_address(host, ec);
    out = tcp::endpoint(address, port);
    return !ec;
}

/// The thread is at work between `begin` and the end of the scope.
class work {
public:
    work() = default;
    ~work() {
        if (begun_) {
            process_exit::leave();
        }
    }
    work(work const &) = delete;
    work & operator=(work const &) = delete;

    void begin() noexcept {
        begun_ = true;
        process_exit::enter();
    }

private:
    bool begun_ = false;
};

/// Asks the system, and waits for as long as it takes; what follows the answer is work.
std::error_code ask_system(std::string const & host, std::string const & service,
                           resolver::results_type & out, work & following) {
    asio::io_context own;
    tcp::resolver asked(own);
    std::error_code ec;
    tcp::resolver::results_type answer;
    {
        detail::ScopeExit const answered([&] { following.begin(); });
        answer = asked.resolve(host, service, ec);
    }
    for (auto const & each : answer) {
        out.push_back(each.endpoint());
    }
    return ec;
}

} // namespace

port_kind read_port(std::string_view text, unsigned short & out) {
    if (text.empty() || (!is_digit(text[0]) && std::string_view("+- \t").find(text[0]) == text.npos)) {
        return port_kind::name;
    }
    unsigned short value = 0;
    char const * const end = text.data() + text.size();
    std::from_chars_result const read = std::from_chars(text.data(), end, value);
    if (read.ec != std::errc() || read.ptr != end) {
        return port_kind::wrong;
    }
    out = value;
    return port_kind::number;
}

/// One question, shared by the one who asks and the thread that waits for the answer.
struct resolver::lookup {
    lookup(std::string h, std::string s) : host(std::move(h)), service(std::move(s)) {}

    std::string const host;
    std::string const service;
    /// Held while an answer is handed over, so that the owner outlives that.
    detail::Mutex mutex;
    /// Null once nobody wants the answer.
    resolver * owner TAV_GUARDED_BY(mutex) = nullptr;
    unsigned long long id TAV_GUARDED_BY(mutex) = 0;
};

resolver::resolver(asio::io_context & io) : io_(io), last_(0), closed_(false) {}

resolver::~resolver() {
    close();
}

unsigned long long resolver::resolve(std::string const & host, std::string const & service, handler f) {
    tcp::endpoint endpoint;
    bool const numbers = read_endpoint(host, service, endpoint);
    auto const what = numbers ? nullptr : std::make_shared<lookup>(host, service);
    unsigned long long const id = add(f, what);
    if (id == 0) {
        return id;
    }
    try {
        if (numbers) {
            deliver(id, std::error_code(), results_type{endpoint});
        } else {
            start(what, id);
        }
    } catch (...) {
        cancel(id);
        throw;
    }
    return id;
}

void resolver::start(std::shared_ptr<lookup> const & what, unsigned long long id) {
    try {
        std::thread([what] { run(*what); }).detach();
    } catch (std::system_error const & e) {
        deliver(id, e.code(), results_type());
    }
}

void resolver::cancel(unsigned long long id) {
    entry dropped;
    {
        detail::Guard const guard(mutex_);
        auto const found = pending_.find(id);
        if (found == pending_.end()) {
            return;
        }
        dropped = std::move(found->second);
        pending_.erase(found);
    }
    abandon(dropped);
}

void resolver::close() {
    std::map<unsigned long long, entry> dropped;
    {
        detail::Guard const guard(mutex_);
        closed_ = true;
        dropped.swap(pending_);
    }
    for (auto const & each : dropped) {
        abandon(each.second);
    }
}

void resolver::run(lookup & what) noexcept {
    platform::nameThread("resolver");
    std::error_code ec;
    results_type results;
    // The process may have exited while the system was asked.
    work following;
    try {
        ec = ask_system(what.host, what.service, results, following);
    } catch (std::exception const &) {
        ec = std::make_error_code(std::errc::not_enough_memory);
    }
    while (!hand_over(what, ec, results)) {
        std::this_thread::sleep_for(memory_wait);
    }
}

// False if there was no memory for it: an answer that is wanted has to arrive.
bool resolver::hand_over(lookup & what, std::error_code ec, results_type const & results) noexcept {
    detail::Guard const guard(what.mutex);
    try {
        if (what.owner != nullptr) {
            what.owner->deliver(what.id, ec, results);
        }
    } catch (std::bad_alloc const &) {
        return false;
    }
    return true;
}

void resolver::abandon(entry const & dropped) {
    if (dropped.what) {
        detail::Guard const guard(dropped.what->mutex);
        dropped.what->owner = nullptr;
    }
}

// A handler that is refused stays with the caller, to end there without a lock.
unsigned long long resolver::add(handler & f, std::shared_ptr<lookup> const & what) {
    detail::Guard const guard(mutex_);
    if (closed_) {
        return 0;
    }
    unsigned long long const id = ++last_;
    if (what) {
        detail::Guard const own(what->mutex);
        what->owner = this;
        what->id = id;
    }
    pending_.emplace(id, entry{std::move(f), what});
    return id;
}

void resolver::deliver(unsigned long long id, std::error_code ec, results_type results) {
    asio::post(io_, [this, id, ec, results = std::move(results)]() mutable {
        on_delivered(id, ec, std::move(results));
    });
}

void resolver::on_delivered(unsigned long long id, std::error_code ec, results_type results) {
    entry found;
    {
        detail::Guard const guard(mutex_);
        auto const place = pending_.find(id);
        if (place == pending_.end()) {
            return;
        }
        found = std::move(place->second);
        pending_.erase(place);
    }
    found.f(ec, std::move(results));
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
