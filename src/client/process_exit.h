#ifndef TAV_CLIENT_PROCESS_EXIT_H
#define TAV_CLIENT_PROCESS_EXIT_H

#include "foundation/build_stamp.h"

#include <asio/io_context.hpp>

/// What becomes of clients that live when the process exits.  Internal.
///
/// Their threads use what static destruction takes: the error categories, the TLS library, objects of the
/// application.  So they are stopped ahead of that, by a handler of the exit that is registered with the
/// first client: a thread that is idle, or comes back from the application, stays where it is for good, and
/// those at work get a second to come there.  No callback begins from then on, and nothing can be waited for.
namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {
namespace process_exit {

/// Stops an I/O context at the exit; one that ends before is forgotten.
class watched {
public:
    /// The TLS library must have been set up, so that the handler runs ahead of its own.
    explicit watched(asio::io_context & io);
    ~watched();
    watched(watched const &) = delete;
    watched & operator=(watched const &) = delete;

private:
    asio::io_context & io_;
};

/// Whether the threads have been stopped.
bool begun() noexcept;

/// The calling thread, one of a client's, is at work from here; at the exit this does not return.
void enter() noexcept;
/// It has done its work.
void leave() noexcept;
/// Between the two: at the exit this does not return.
void pass() noexcept;

} // namespace process_exit
} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
