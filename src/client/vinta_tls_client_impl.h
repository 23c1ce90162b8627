#ifndef TAV_CLIENT_VINTA_TLS_CLIENT_IMPL_H
#define TAV_CLIENT_VINTA_TLS_CLIENT_IMPL_H

#include "client/client_state.h"
#include "client/connect_events.h"
#include "client/counters.h"
#include "client/io_thread.h"
#include "client/queue_teller.h"
#include "client/role_queue.h"
#include "client/vinta_tls_client_impl_dispatch.h"
#include "client/vinta_tls_client_impl_metainfo.h"
#include "client/vinta_tls_client_impl_session.h"
#include "tav/vinta/vinta_locks.h"
#include "tav/vinta/vinta_tls_client_options.h"

#include <atomic>
#include <exception>
#include <memory>
#include <new>
#include <string>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// What stands behind one client: its threads, and the starts, reconnects and closes of its session.
///
/// Session changes happen one at a time on the queue "session"; what others read meanwhile is in
/// `client_state`.  What a connect comes to goes by `connect_events`, and the messages by `message_dispatch`.
class Client : public std::enable_shared_from_this<Client> {
public:
    using send_ptr = message_dispatch::send_ptr;
    using connect_ptr = client_state::connect_ptr;

    /// `clock` replaces the steady clock in the supervision of connections.
    explicit Client(tav_istr name, session::clock_function clock = session::clock_function());
    ~Client();
    Client(Client const &) = delete;
    Client & operator=(Client const &) = delete;

    /// Starts the threads.
    void init__();
    /// Ends the session and the threads; not to be called on one of them.  A second call does nothing.
    void fini__();
    /// Whether the calling thread is one of this client's.
    bool on_own_thread() const;
    /// What stands for this client, as thread_role knows it.
    void const * key() const { return io_.io().get(); }

    connect_ptr start__(connect_option const & option, bool reuse_connected);
    connect_ptr reconnect__(timedout_option const & option, bool reuse_connected);
    void close__();
    void cancel_all__();

    std::string const & name() const { return name_; }
    counters const & counted() const { return *counted_; }
    void io(tavCodecStream & s);
    /// Null if there is none.
    tavSharedPtr<session> current() const { return present_.session(); }
    bool connected() const;
    /// Never null: a client that was not started has an empty one.
    std::shared_ptr<metainfo> meta() const { return present_.meta(); }
    message_dispatch & messages() { return messages_; }

private:
    /// Keeps the client, and has it told what completions threw.
    class completions;

    void on_exception(std::exception const & e);
    void on_no_memory(std::bad_alloc const & e);

    void on_start(connect_ptr const & info, connect_option const & option);
    void on_reconnect(connect_ptr const & info, timedout_option const & option);
    void on_close();
    void cancel_all_i();
    void check_connect(char const * what);
    void renew(connect_ptr const & info);
    tavSharedPtr<session> make_session(connect_ptr const & info);
    bool close_session();
    /// Whether the connect under way has waited for its host's address for longer than others should.
    bool hangs_in_lookup() const;

    std::string const name_;
    session::clock_function const clock_;
    std::shared_ptr<counters> const counted_ = std::make_shared<counters>();
    std::shared_ptr<queue_teller> const teller_ = std::make_shared<queue_teller>();
    client_state present_;
    io_thread io_;
    message_dispatch messages_;
    role_queue main_queue_;
    connect_events events_;
    /// Long ago, as long as there was none.
    long long last_connect_ms_;
    std::atomic<bool> finished_{false};
    /// Whether the last close has come about on the thread of the queue.
    std::atomic<bool> closed_at_end_{false};
    /// Keeps the closes, and the starts with the era that they have, in the order of the queue.
    detail::Guarding<tavMutex> requests_mutex_;
    /// The era of the present session.
    std::atomic<unsigned> session_era_{0};
};

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
