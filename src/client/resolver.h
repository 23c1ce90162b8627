#ifndef TAV_CLIENT_RESOLVER_H
#define TAV_CLIENT_RESOLVER_H

#include "foundation/build_stamp.h"
#include "foundation/guarded.h"

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// What the text of a port is.
enum class port_kind {
    /// Digits only, from 0 to 65535.
    number,
    /// It begins as a number does, and is none that a port can have.
    wrong,
    /// Anything else, to be looked up among the services.
    name
};

/// Tells what a port's text is; a number goes to `out`.
port_kind read_port(std::string_view text, unsigned short & out);

/// Turns the texts of a host and a service into addresses.  Nobody ever waits for it: an address in numbers
/// needs no lookup, and each name is looked up on a thread of its own, so that one which hangs, as with a
/// name server that is gone, holds up no other.  A thread whose answer is wanted no more ends when the system
/// lets it; until then it owns what it uses and touches nothing of the client.  Internal.
///
/// Thread safety: all operations, but the destructor.
class resolver {
public:
    using results_type = std::vector<asio::ip::tcp::endpoint>;
    using handler = std::function<void(std::error_code, results_type)>;

    /// Handlers run on the thread that runs `io`.
    explicit resolver(asio::io_context & io);
    ~resolver();
    resolver(resolver const &) = delete;
    resolver & operator=(resolver const &) = delete;

    /// Calls `f` once, with the system's error or with the addresses in the system's order, unless it is
    /// cancelled before.  A thread that can't be started is such an error.  Gives a number for `cancel`;
    /// after `close` it gives 0 and drops `f`.
    unsigned long long resolve(std::string const & host, std::string const & service, handler f);

    /// Drops the handler of one call; does nothing if it was called or dropped already.
    void cancel(unsigned long long id);

    /// Drops all handlers, and those to come.
    void close();

private:
    struct lookup;
    struct entry {
        handler f;
        /// Null if there is nothing to look up.
        std::shared_ptr<lookup> what;
    };

    static void run(lookup & what) noexcept;
    static bool hand_over(lookup & what, std::error_code ec, results_type const & results) noexcept;
    static void abandon(entry const & dropped);
    void start(std::shared_ptr<lookup> const & what, unsigned long long id);
    unsigned long long add(handler & f, std::shared_ptr<lookup> const & what);
    void deliver(unsigned long long id, std::error_code ec, results_type results);
    void on_delivered(unsigned long long id, std::error_code ec, results_type results);

    asio::io_context & io_;
    detail::Mutex mutex_;
    std::map<unsigned long long, entry> pending_ TAV_GUARDED_BY(mutex_);
    unsigned long long last_ TAV_GUARDED_BY(mutex_);
    bool closed_ TAV_GUARDED_BY(mutex_);
};

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
