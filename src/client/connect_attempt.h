#ifndef TAV_CLIENT_CONNECT_ATTEMPT_H
#define TAV_CLIENT_CONNECT_ATTEMPT_H

#include "client/address_race.h"
#include "client/session_state.h"
#include "client/tls_socket.h"
#include "client/tracked_sends.h"
#include "client/vinta_tls_client_impl_context.h"
#include "foundation/build_stamp.h"
#include "tav/vinta/vinta_locks.h"
#include "tav/vinta/vinta_tls_client_options.h"

#include <asio/ip/tcp.hpp>

#include <atomic>
#include <memory>
#include <string>
#include <system_error>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// To whom a connect goes when it has come to something.  On the I/O thread, but for connect_refused.
class connect_owner : public virtual tavRefCountObject {
public:
    /// The connection is up, and the application knows.
    virtual void connect_up() = 0;
    /// It ends; `told` is for the application.
    virtual void connect_failed(std::error_code ec, std::string told) = 0;
    /// There was nothing to connect to.  On the thread that began it.
    virtual void connect_refused(std::string const & why) = 0;
};

/// The one attempt of a connection to come up: lookup, race of the addresses, proxy and handshake.  It stops
/// at each step at which the connection has ended.  Internal.
///
/// Thread safety: begin on one thread, cancel_lookup, begun_ms and looking_up on any, cancel on the I/O
/// thread or when nothing of the attempt can run there, all else on the I/O thread.
class connect_attempt {
public:
    /// What the attempt works on: parts of its owner, which live as long as it does.
    struct parts {
        std::string const & name;
        context & io;
        tls_socket & socket;
        connect_option & option;
        session_state & state;
        tracked_sends & sends;
    };

    connect_attempt(parts of_owner, long long now);
    connect_attempt(connect_attempt const &) = delete;
    connect_attempt & operator=(connect_attempt const &) = delete;

    /// Begins, which is the first step of the connection; `owner` is kept for as long as anything is under
    /// way.  Throws std::system_error with "set_verify_callback".
    void begin(tavSharedPtr<connect_owner> owner, long long now);
    /// Drops the lookup.
    void cancel_lookup();
    /// Closes all that is under way but the lookup.
    void cancel() { race_.cancel(); }

    /// When it began.
    long long begun_ms() const noexcept { return begun_ms_; }
    bool looking_up() const noexcept { return looking_up_; }

private:
    using owner_ptr = tavSharedPtr<connect_owner>;
    using results_type = context::results_type;
    using tcp_socket = asio::ip::tcp::socket;

    void refuse_port(connect_owner & owner, std::string const & port);
    void on_resolved(owner_ptr owner, std::error_code ec, results_type results);
    void set_handshake();
    void on_race_end(owner_ptr owner, std::error_code ec, tcp_socket winner);
    void on_connect_end(owner_ptr owner, std::error_code ec);
    void watch_socket();
    bool connect_proxy();
    void on_handshake_end(connect_owner & owner, std::error_code ec);
    void keep_report();

    parts const of_;
    std::atomic<long long> begun_ms_;
    /// The call of the resolver that is under way, 0 if there was none.
    std::atomic<unsigned long long> resolving_{0};
    std::atomic<bool> looking_up_{false};
    address_race race_;
};

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
