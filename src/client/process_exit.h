#ifndef TAV_CLIENT_PROCESS_EXIT_H
#define TAV_CLIENT_PROCESS_EXIT_H

#include "foundation/build_stamp.h"

#include <asio/io_context.hpp>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// What becomes of a client that lives when the process exits: each watches one's I/O context, and is
/// forgotten if it ends before.  Internal.
///
/// The clients' threads use what static destruction takes: the error categories, the TLS library, objects of
/// the application.  So they are stopped ahead of that, by a handler of the exit that is registered with the
/// first client: a thread that is idle, or comes back from the application, stays where it is for good, and
/// those at work get a second to come there.  No callback begins from then on, and nothing can be waited for.
class process_exit {
public:
    /// The TLS library must have been set up, so that the handler runs ahead of its own.
    explicit process_exit(asio::io_context & io);
    ~process_exit();
    process_exit(process_exit const &) = delete;
    process_exit & operator=(process_exit const &) = delete;

    /// Whether the threads have been stopped.
    static bool begun() noexcept;

    /// The calling thread, one of a client's, is at work from here; at the exit this does not return.
    static void enter() noexcept;
    /// It has done its work.
    static void leave() noexcept;
    /// Between the two: at the exit this does not return.
    static void pass() noexcept;

private:
    asio::io_context & io_;
};

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
