#ifndef TAV_CLIENT_CONNECT_EVENTS_H
#define TAV_CLIENT_CONNECT_EVENTS_H

#include "client/client_state.h"
#include "client/connect_info.h"
#include "client/counters.h"
#include "client/role_queue.h"
#include "client/vinta_tls_client_impl_session.h"
#include "foundation/build_stamp.h"
#include "tav/vinta/vinta_tls_client_options.h"

#include <atomic>
#include <memory>
#include <string>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// What the connects of one client come to: each outcome is counted, ends its connect, and is told to the
/// option of the start or reconnect that it belongs to.  Internal.
///
/// Errors are told on a thread of their own, "global.on_error".  What the application has closed is told of
/// no longer: each close begins an era, and an outcome belongs to that of its connect.
/// Thread safety: all operations.
class connect_events {
public:
    using connect_ptr = client_state::connect_ptr;
    using option_ptr = client_state::option_ptr;

    /// `name` begins the log lines; `present` lives as long as this object.
    connect_events(std::string name, client_state & present, std::shared_ptr<counters> counted);
    connect_events(connect_events const &) = delete;
    connect_events & operator=(connect_events const &) = delete;

    /// Starts the thread, one of this client's.
    void start(void const * client) { queue_.start(client); }
    /// Ends it; errors that were not told are dropped.
    void close() { queue_.close(); }

    /// The number of closes so far.
    unsigned era() const noexcept { return era_; }
    void begin_era() noexcept { ++era_; }

    void on_open(connect_ptr const & info, connect_option & told, session const & opened);
    /// `keep` lives until the error is told; it holds the owner of this object.
    void on_error(connect_ptr const & info, option_ptr const & told, unsigned long long sno,
                  unsigned short msgcode, int code, char const * text, std::shared_ptr<void> keep);
    void on_timedout(connect_ptr const & info, connect_option & told, unsigned long long sno,
                     unsigned short msgcode, bool cancelled);
    /// Tells an error of this era at once.
    void tell_error(unsigned era, failure why, connect_option & told, unsigned long long sno,
                    unsigned short msgcode, int code, std::string text);

private:
    /// Whether the application has closed since: nothing is told.
    bool closed_since(unsigned era) const { return era_ != era; }

    std::string const name_;
    client_state & present_;
    std::shared_ptr<counters> const counted_;
    role_queue queue_;
    std::atomic<unsigned> era_{0};
};

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
