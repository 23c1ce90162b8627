#ifndef TAV_CLIENT_VINTA_TLS_CLIENT_IMPL_SESSION_H
#define TAV_CLIENT_VINTA_TLS_CLIENT_IMPL_SESSION_H

#include "client/broken_end.h"
#include "client/connect_attempt.h"
#include "client/connection_parts.h"
#include "client/failures.h"
#include "client/frame_input.h"
#include "client/frame_output.h"
#include "client/frame_reader.h"
#include "client/heartbeat.h"
#include "client/send_account.h"
#include "client/send_info.h"
#include "client/session_state.h"
#include "client/tls_socket.h"
#include "client/tracked_sends.h"
#include "foundation/build_stamp.h"
#include "foundation/guarded.h"
#include "tav/vinta/vinta_basetypes_bytes.h"
#include "tav/vinta/vinta_im_pkt.h"
#include "tav/vinta/vinta_locks.h"
#include "tav/vinta/vinta_mt_thread.h"
#include "tav/vinta/vinta_tls_client_options.h"

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <system_error>
#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// One connection: one attempt to reach the server and, if that succeeds, one connected life.  Never reused.
///
/// Its threads are "sender" (encodes packets), "receiver" (runs `on_recv`) and "timer" (time-outs and
/// heartbeats, each 100 ms); the socket belongs to the context's I/O thread.  From `open` to `close` they
/// keep the session alive, so `close` must be called.  Times are milliseconds of a clock that nobody can set.
///
/// What does each single part has a class of its own, and those are its members.  It has more operations than
/// other classes, and two members more, since it is what the client, the timer and the parts know of a
/// connection: most operations ask one part, or are told by one; the others are the order in which a
/// connection comes up and goes down, over four threads, and have no state that they could take with them.
class session : public connection_owner, public connect_owner {
public:
    using recv_function = frame_input::handler;
    using clock_function = std::function<long long()>;

    /// The milliseconds of a clock that nobody can set, from some time on.
    static long long steady_ms();

    /// The largest body that is sent or accepted.
    static constexpr unsigned max_body_size = frame_reader::max_body_size;

    /// `on_recv` is given each frame's body, on the thread "receiver"; `option` is copied.  `clock` replaces
    /// `steady_ms`; `counted`, `cause` and `teller` are null or the client's own.  Throws tls_policy_error if
    /// the option's policy can't be kept.
    session(tav_istr name, std::shared_ptr<context> owner, recv_function on_recv,
            connect_option const & option, clock_function clock = clock_function(),
            std::shared_ptr<counters> counted = nullptr,
            std::shared_ptr<std::atomic<failure>> cause = nullptr,
            std::shared_ptr<queue_teller> teller = nullptr);
    /// Closes the socket and cancels all that is left.
    ~session() override;
    session(session const &) = delete;
    session & operator=(session const &) = delete;

    /// Starts the three threads.
    void open();
    /// Begins to resolve, connect and shake hands; a session that is connecting, or ever did, does nothing.
    /// Throws std::system_error with "set_verify_callback".
    void connect();
    void disconnect();
    /// Ends the threads, the connection and all tracked sends.  The frames that wait for "receiver" are
    /// handled, then on the calling thread, for about a second; what is left and what comes later is dropped.
    /// May be called on "receiver" and "timer", which then end by themselves.
    void close();
    /// Closes the socket as the application's wish: no error is told.
    void active_close();
    /// Closes the socket as the network's doing; true if this call did it.
    bool passive_close();
    /// Ends the connection as if its socket had failed with `ec`, which is told.  On the I/O thread.
    void fail(std::error_code ec) { on_error(ec); }
    /// Why it fails or breaks; none as long as it does not.
    failure cause() const noexcept { return sends_.cause(); }
    /// Ends all tracked sends as cancelled; nothing can be sent any more.  Any thread.
    void cancel_all();

    int state() const { return state_.now(); }
    bool closing() const { return state_.stopped(); }
    /// True if connected and not closing.
    bool connected() const { return state_.up(); }
    /// The milliseconds that the lookup of the host takes by now; 0 if none is under way.
    long long resolving_ms() const;
    /// Whether the calling thread is "sender", "receiver" or "timer" of this session.
    bool on_own_thread() const;

    /// Whether heartbeats are sent and expected; not in a new session.
    void check_heartbeat(bool v) { heartbeat_.wanted(v); }
    bool check_heartbeat() const { return heartbeat_.wanted(); }
    /// The session value that the server gave last; 0 at first.
    void session_id(unsigned long long v) { session_id_ = v; }
    unsigned long long session_id() const { return session_id_; }

    /// Has "sender" encode and send the packet, which must not be changed any more.  With a time limit in
    /// `option` the result tracks the send until its reply, its time-out or a cancellation; otherwise, and
    /// when not connected, it is null.
    std::shared_ptr<send_info> send_pkt(tavSharedPtr<im::Packet> pkt, send_option const & option) {
        return output_.send_pkt(std::move(pkt), option);
    }
    /// The same for a receipt, which no limit holds back; false if it was not taken.
    bool send_receipt(tavSharedPtr<im::Packet> pkt) { return output_.send_receipt(std::move(pkt)); }
    /// The tracked sends.
    tracked_sends & sends() { return sends_; }
    void forget(send_info const & info) override { sends_.remove(info.sno(), &info); }
    void const * client() const override { return context_.get(); }

    /// What was negotiated; empty when not connected.
    tls_report negotiated() const;

    /// Sends a frame with this body; false when not connected.
    bool send_raw(unsigned char const * data, unsigned size) { return output_.send_raw(data, size); }
    /// The tick of "timer"; always true.
    bool on_timer(bool stopping);

    tls_socket & socket() { return socket_; }
    tls_socket const & socket() const { return socket_; }

private:
    using self_ptr = tavSharedPtr<session>;

    connection_parts parts();

    // The outcome of the connect.
    void connect_up() override;
    void connect_failed(std::error_code ec, std::string told) override;
    void connect_refused(std::string const & why) override;

    // What the reading and the writing tell, and the end that the network brings.  On the I/O thread, but for
    // the last frame and the count of ends.
    void on_error(std::error_code ec);
    void on_error(std::error_code ec, std::string told);
    void on_broken(std::error_code ec) override;
    void on_all_handled() noexcept override;
    void on_bad_frame() noexcept override { count_end(breaks_by(failure::bad_frame)); }
    void on_written() noexcept override { input_.end_pause(); }
    void begin_break(std::error_code ec);
    void end_broken(bool in_time);
    /// Counts the end of a connection that was up, once.
    void count_end(counters::number & by) noexcept;
    counters::number & breaks_by(failure why) const noexcept;

    // Closing.
    void close_socket();
    void post_close();
    void close_timer();
    void close_descriptor();
    void on_heartbeat_timedout();
    void start_timer();
    void start_receiver();

    std::string const name_;
    session_state state_;
    clock_function const clock_;
    std::shared_ptr<context> context_;
    tls_socket socket_;
    connect_option option_;
    std::shared_ptr<send_account> const account_;
    tracked_sends sends_;
    heartbeat heartbeat_;
    frame_input input_;
    frame_output output_;
    broken_end broken_;
    connect_attempt attempt_;

    detail::Mutex timer_mutex_;
    tavSharedPtr<tavTimerThread> timer_ TAV_GUARDED_BY(timer_mutex_);
    std::atomic<bool> end_counted_{false};
    std::atomic<unsigned long long> session_id_;
};

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
