#ifndef TAV_CLIENT_BROKEN_END_H
#define TAV_CLIENT_BROKEN_END_H

#include "foundation/build_stamp.h"
#include "foundation/guarded.h"

#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>

#include <atomic>
#include <chrono>
#include <functional>
#include <system_error>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// The end that the network brings to one connection.  It begins with the first failure, and is told once:
/// when all that came before has been handled, or when the time for that is over.  Internal.
///
/// Thread safety: begun and cancel on any thread; all else on the thread that runs `io`.
class broken_end {
public:
    explicit broken_end(asio::io_context & io) : limit_(io) {}
    broken_end(broken_end const &) = delete;
    broken_end & operator=(broken_end const &) = delete;

    /// From here on no send is accepted.
    void begin(std::error_code ec) noexcept;
    bool begun() const noexcept { return begun_; }
    /// What it began with.
    std::error_code error() const noexcept { return error_; }

    /// Has `over`, which must hold the owner of this object, called when so much time has passed, unless the
    /// end is told or cancelled before.
    void limit(std::chrono::milliseconds time, std::function<void()> over);

    /// True for the one who is to tell it.
    bool tell();
    bool told() const noexcept { return told_; }

    /// Drops what `limit` was given.
    void cancel();

private:
    std::atomic<bool> begun_{false};
    std::error_code error_;
    bool told_ = false;
    detail::Mutex limit_mutex_;
    asio::steady_timer limit_ TAV_GUARDED_BY(limit_mutex_);
};

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
