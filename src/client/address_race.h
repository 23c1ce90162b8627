#ifndef TAV_CLIENT_ADDRESS_RACE_H
#define TAV_CLIENT_ADDRESS_RACE_H

#include "foundation/build_stamp.h"

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/steady_timer.hpp>

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <system_error>
#include <vector>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// Connects to the first of several addresses that answers.  They are tried in their order; the next one is
/// tried as soon as one fails, or when the one before it has not answered for a moment, and goes on beside
/// it. The first that connects wins, and the others are closed.  With one address it is a plain connect.
/// Internal.
///
/// Thread safety: none; everything happens on the thread that runs `io`.
class address_race {
public:
    using endpoint = asio::ip::tcp::endpoint;
    using socket = asio::ip::tcp::socket;
    /// Given the winner; or the error of the attempt that failed last, and a socket that is not open.
    using done_function = std::function<void(std::error_code, socket)>;

    /// How long an address is waited for before the next one is tried too.
    static constexpr std::chrono::milliseconds head_start{250};

    explicit address_race(asio::io_context & io);
    address_race(address_race const &) = delete;
    address_race & operator=(address_race const &) = delete;

    /// Begins, and calls `done` once, unless it is cancelled before.  `done` must hold the owner of this
    /// object: it is kept for as long as anything is under way, and nowhere else.
    void start(std::vector<endpoint> addresses, done_function done);

    /// Closes all that is under way; `done` is dropped.
    void cancel();

private:
    using done_ptr = std::shared_ptr<done_function const>;

    void start_next(done_ptr const & done);
    void await_next(done_ptr const & done);
    void on_connected(std::size_t place, std::error_code ec, done_ptr const & done);
    void finish(std::error_code ec, socket winner, done_ptr const & done);

    asio::io_context & io_;
    asio::steady_timer timer_;
    std::vector<endpoint> addresses_;
    std::size_t next_;
    /// Null where an attempt has failed.
    std::vector<std::unique_ptr<socket>> attempts_;
    std::size_t running_;
    std::error_code last_error_;
    /// Tells completions of this race from those of one that is over.
    unsigned round_;
};

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
