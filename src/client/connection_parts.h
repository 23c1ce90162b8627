#ifndef TAV_CLIENT_CONNECTION_PARTS_H
#define TAV_CLIENT_CONNECTION_PARTS_H

#include "client/heartbeat.h"
#include "client/send_account.h"
#include "client/send_info.h"
#include "client/session_state.h"
#include "client/tls_socket.h"
#include "client/tracked_sends.h"
#include "client/vinta_tls_client_impl_context.h"
#include "foundation/build_stamp.h"

#include <functional>
#include <memory>
#include <string>
#include <system_error>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// Whose connection is read and written.  Internal.
class connection_owner : public send_owner {
public:
    /// A read or a write has failed.  On the I/O thread.
    virtual void on_broken(std::error_code ec) = 0;
    /// All frames that came have been handled.  On the thread that handled the last one.
    virtual void on_all_handled() noexcept = 0;
    /// What came is no frame, and nothing went wrong before.  On the I/O thread.
    virtual void on_bad_frame() noexcept = 0;
    /// Something went out, for which reading may have paused.  On the I/O thread.
    virtual void on_written() noexcept = 0;
};

/// What the reading and the writing of one connection work on: parts of its owner, which live as long as they
/// do.
struct connection_parts {
    connection_owner & owner;
    /// What stands for the connection, as thread_role knows it.
    void const * key;
    std::string const & name;
    std::function<long long()> const & clock;
    std::shared_ptr<context> const & io;
    tls_socket & socket;
    session_state & state;
    std::shared_ptr<send_account> const & account;
    tracked_sends & sends;
    heartbeat & beat;

    tavSharedPtr<connection_owner> hold() const { return tavSharedPtr<connection_owner>(&owner); }
};

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
