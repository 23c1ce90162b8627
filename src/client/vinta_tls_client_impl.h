#ifndef TAV_CLIENT_VINTA_TLS_CLIENT_IMPL_H
#define TAV_CLIENT_VINTA_TLS_CLIENT_IMPL_H

#include "client/connect_info.h"
#include "client/message_callbacks.h"
#include "client/message_factory.h"
#include "client/vinta_tls_client_impl_metainfo.h"
#include "client/vinta_tls_client_impl_session.h"
#include "foundation/report.h"
#include "tav/vinta/vinta_basetypes_time.h"
#include "tav/vinta/vinta_basetypes_util.h"
#include "tav/vinta/vinta_im_pkt.h"
#include "tav/vinta/vinta_mt_thread.h"

#include <asio/steady_timer.hpp>

#include <atomic>
#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <new>
#include <string>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// What stands behind one client: its threads, queues, registrations and the one current session.
///
/// Session changes happen one at a time on the queue "session".  `connecting_`, `session_`, `option_` and
/// `metainfo_` are read on other threads too, as copies taken under `fields_`, which is never held during a
/// call out.
///
/// It has more operations and members than other classes because it is where the application's calls, the
/// threads and the session meet: the order of starts, closes and their events, and the way of a message
/// through sends, codes and options, need the same queue, session and option.  What stands by itself, as the
/// registered classes and callbacks, has a class of its own.
///
/// Its source is two files, as lines of the log name the file that tells them: sends and what comes in tell
/// theirs as "dispatch".
class Client : public std::enable_shared_from_this<Client> {
public:
    using send_ptr = std::shared_ptr<tls::send_info>;
    using connect_ptr = std::shared_ptr<connect_info>;

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
    void const * key() const { return context_.get(); }

    connect_ptr start__(connect_option const & option, bool reuseConnected);
    connect_ptr reconnect__(timedout_option const & option, bool reuseConnected);
    void close__();
    void cancel_all__();

    std::string const & name() const { return name_; }
    counters const & counted() const { return *counted_; }
    void io(tavCodecStream & s);
    tavSharedPtr<session> current() const;
    bool connected() const;
    unsigned short get_next_sno();

    message_callbacks & callbacks() { return callbacks_; }
    message_factory & factory() { return factory_; }
    /// Never null: a client that was not started has an empty one.
    std::shared_ptr<metainfo> meta() const;

    /// Takes one frame: finds the level of callback that it is for, and affirms it.  On the thread
    /// "receiver".
    void on_recv(tavBytes frame);

    /// The common end of all sends; a `sno` of 0 is replaced by a new one.
    send_ptr send_msg(unsigned long long & sno, unsigned short msgcode, tav_istr body,
                      send_option const & option, tav_istr target, tavMessage const * obj,
                      tavMsgExt const & ext);
    send_ptr sendMsg(tavMessage const & msg, send_option const & option);
    send_ptr sendMsg(tavSharedPtr<tavMessage> const & msg, send_option const & option);
    /// JSON by the meta model, of a class, of a decimal code if `class_or_code` begins with a digit, or of
    /// what the object itself names.
    send_ptr sendJsonMsg(tav_istr json, send_option const & option, tav_istr class_or_code);
    send_ptr sendJsonMsg(tav_istr json, send_option const & option, unsigned short msgcode);
    send_ptr sendNbrMsg(unsigned short msgcode, tav_istr body, send_option const & option, tav_istr target);
    send_ptr sendOldNbrMsg(unsigned char msgcode, tav_istr body, tav_istr target);
    result_type send_and_wait(tavMessage const & msg, tavSharedPtr<tavMessage> const & ack, int wait_ms,
                              bool grey, unsigned short version, send_ptr * out);
    result_type send_and_wait(tavMessage const & msg, tavMessage & ack, int wait_ms, bool grey,
                              unsigned short version, send_ptr * out);
    /// The packet's body by the meta model; "null" for a code that it does not know.
    std::string to_json(im::Packet const & packet, bool for_log) const;

private:
    struct callback_level;

    bool on_context_open();
    bool on_context_loop();
    /// Runs completions; true if one of them threw, and there is more to run.
    bool on_context_run();
    void on_context_close();
    void on_context_stop();
    void stop_context();
    void keep_alive();
    void on_exception(std::exception const & e);
    void on_no_memory(std::bad_alloc const & e);

    /// Puts a task on "session"; a task that never runs is destroyed with the queue.
    void post(std::function<void()> task);
    void on_start(connect_ptr const & info, connect_option const & option);
    void on_reconnect(connect_ptr const & info, timedout_option const & option);
    void on_close();
    void cancel_all_i();
    void checkConnect(char const * what);
    void renew(connect_ptr const & info);
    tavSharedPtr<session> make_session(connect_ptr const & info);
    bool close_session();

    /// A session's events go to the option and the result of the start or reconnect that made it.
    void on_connect_open(connect_ptr const & info, connect_option & told, session const & opened);
    void on_connect_error(connect_ptr const & info, std::shared_ptr<connect_option> const & told,
                          unsigned long long sno, unsigned short msgcode, int code, char const * text);
    void tell_error(unsigned era, failure why, connect_option & told, unsigned long long sno,
                    unsigned short msgcode, int code, std::string text);
    void on_connect_timedout(connect_ptr const & info, connect_option & told, unsigned long long sno,
                             unsigned short msgcode, bool cancelled);
    /// Whether the connection of this attempt was closed by the application since: nothing is told of it.
    bool closed_since(unsigned era) const { return era_ != era; }
    /// Takes `info` out of `connecting_`; null if it is not the one there.
    connect_ptr take_connecting(connect_ptr const & info);
    /// The start or reconnect that has not ended; one that has counts as none.
    connect_ptr connecting() const;
    /// Whether the connect under way has waited for its host's address for longer than others should.
    bool hangs_in_lookup() const;
    std::shared_ptr<connect_option> option() const;

    send_ptr refused(failure why) const;
    send_ptr refused_caught(detail::Site site, failure why) const;
    void count_callback(std::chrono::steady_clock::time_point begin) const noexcept;
    send_ptr send_object(tavMessage const & msg, send_option const & option, detail::Site site);
    send_ptr send_json(tav_istr json, send_option const & option, unsigned short msgcode, tav_istr className);
    /// The body as the log shows it: " json " and the text, or " nbr " and the values.  A body that is not
    /// NBR throws whatever the log level is; without a reader the values are left out.
    std::string body_text(im::Packet const & packet) const;
    void dispatch(tavBytes frame, session & from);
    bool to_send_level(session & from, im::Packet const & packet, tavSharedPtr<tavMessage> const & obj,
                       tavMsgExt const & ext);
    bool to_type_level(im::Packet const & packet, tavSharedPtr<tavMessage> const & obj,
                       tavMsgExt const & ext);
    void to_global_level(im::Packet const & packet, tavSharedPtr<tavMessage> const & obj,
                         tavMsgExt const & ext);
    void to_old_callback(im::Packet const & packet) const;
    /// Gives the message to the callback in the form that it takes.
    void call(message_callback & callback, callback_level const & level, im::Packet const & packet,
              tavSharedPtr<tavMessage> const & obj, tavMsgExt const & ext) const;
    void warn_unregistered(message_callback const & callback, unsigned short code,
                           tavSharedPtr<tavMessage> const & obj) const;

    /// First of all: no template is read before the kinds of fields have their names.
    pml::field_type::Initializer field_initializer_;
    tavMutex fields_;
    std::shared_ptr<connect_option> option_;
    std::shared_ptr<metainfo> metainfo_;
    connect_ptr connecting_;
    tavSharedPtr<session> session_;

    message_callbacks callbacks_;
    message_factory factory_;

    std::shared_ptr<context> context_;
    std::shared_ptr<asio::steady_timer> keep_alive_timer_;
    /// Why the I/O thread could not open; set before `init__` goes on.
    std::exception_ptr open_failure_;
    tavIdGenerator id_generator_;
    tavSharedPtr<tavThread> context_thread_;
    /// Long ago, as long as there was none.
    long long last_connect_ms_;
    std::string name_;
    std::shared_ptr<tavTaskQueue> main_queue_;
    std::shared_ptr<tavTaskQueue> error_queue_;
    session::clock_function const clock_;
    std::shared_ptr<counters> const counted_ = std::make_shared<counters>();
    std::shared_ptr<queue_teller> const teller_ = std::make_shared<queue_teller>();
    std::atomic<bool> finished_{false};
    /// Whether the last close has come about on the thread of the queue.
    std::atomic<bool> closed_at_end_{false};
    /// Keeps the closes, and the starts with the era that they have, in the order of the queue.
    tavMutex requests_mutex_;
    /// The number of closes so far.
    std::atomic<unsigned> era_{0};
    /// The era of the present session.
    std::atomic<unsigned> session_era_{0};
};

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
