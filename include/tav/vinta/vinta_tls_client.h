#ifndef TAV_VINTA_TLS_CLIENT_H
#define TAV_VINTA_TLS_CLIENT_H

#include "tav/vinta/vinta_tls_client_options.h"
#include "tav/vinta/vinta_tls_policy.h"
#include "tav/vinta/vinta_tls_statistics.h"

#include <functional>
#include <memory>
#include <string>

namespace tav {
namespace detail {
struct Site;
}
namespace tls {

/// An asynchronous TLS client of a message gateway, with one connection at a time.
///
/// What an application registers with it (callbacks, classes, messages) survives every reconnect; a
/// connection and the sends that wait for replies do not.  The client never reconnects and never sends again
/// by itself: it tells what happened, and the application decides.
///
/// Thread rule: every member may be called from any thread.  `wait` of a result and `send_and_wait` are
/// no use on a thread that has to bring the result, and return result_error there: see docs/client.md for
/// what is allowed in each callback.  `close`, `cancel_all` and the sends return at once.  A client that is
/// destroyed on one of its own threads is ended on another one, with an ERROR line.
///
/// Message callbacks run one at a time and in the order of arrival, also while a connection is closed or
/// replaced.
///
/// It has more operations than other classes: they are all that an application does with a gateway, in each
/// form of messages that there is, and each only asks a part that stands behind it.
class TAV_API client : public tavCodecInterface {
public:
    /// Makes a client and starts its own threads.  With an empty name it gets a number of its own.  Throws
    /// std::system_error, and leaves nothing behind, if the system has no descriptor or thread for it.
    explicit client(tav_istr name);
    ~client() override;
    client(client const &) = delete;
    client & operator=(client const &) = delete;

    /// The process-wide client of this name, made at first use, which throws as the constructor does.
    /// The reference is good until `destroy` of the name or `finalize`.
    static client & instance(tav_istr name);
    /// Drops the process-wide client of this name, which ends it unless somebody else holds it.  False,
    /// without any effect, if there is none.
    static bool destroy(tav_istr name);
    /// Once, at the end of the process: closes and ends every named client, then the logger, the thread list
    /// and the id generator.  Clients that the application still holds are named in the log.  In a forked
    /// child it ends what is the child's; the parent's clients are left alone, and must not be used there.
    static void finalize();

    /// "<", the name, ">": what begins the client's log lines.
    std::string id() const;
    /// Passes the client's description through the stream.
    void io(tavCodecStream & s) override;

    /// Starts connecting, in place of any connection there is.  Null if host or port is empty.  The outcome
    /// is told by the result and by the option's callbacks.  With `reuseConnected`, a connection to the same
    /// host and port is kept, if it was made with the same policy object or both have none; its own limits
    /// stay in force then, whatever the option says.  If another start
    /// or reconnect is under way, this call waits for it first, unless it is made on a thread of that
    /// attempt, or that one's host name takes its time to be looked up; then that one is cancelled.
    std::shared_ptr<connect_info> start(connect_option const & option, bool reuseConnected = false);
    /// The same with the option in pieces; null texts count as empty.
    std::shared_ptr<connect_info> start(char const * host, char const * port, char const * ca,
                                        char const * metainfo, global_callback const & callback,
                                        timedout_option const & timedout, char const * cipher = nullptr,
                                        bool reuseConnected = false);
    /// Connects again with the option of the last start.  While a start or reconnect is under way, that one's
    /// result is returned, and reads busy until it ends; one that was cancelled or ran out of time is none.
    std::shared_ptr<connect_info> reconnect(timedout_option const & timedout, bool reuseConnected = false);
    /// Ends the connection and cancels all that waits; returns before that has happened, but no `on_error` of
    /// the connection is told any more.  Messages that wait for their callbacks get about a second.
    void close();
    /// Cancels a connect and all sends under way.  A connection then refuses sends until the next start,
    /// reconnect or close.
    void cancel_all();

    bool connected() const;
    /// Switches the supervision of the present connection on or off: a heartbeat after 30 s without sending,
    /// an end after 90 s without receiving.  Every new connection begins with it off, that of a reconnect
    /// too: call this in `on_open`, and each of them has it.
    void should_check_heartbeat(bool v);
    /// The connection's endpoints; empty without one.  Throws std::system_error if the socket can't tell.
    ip_port get_local_addr();
    ip_port get_remote_addr();
    /// What the present connection has negotiated, and who the peer is; empty without one.
    tls_report negotiated() const;

    /// Sends an object.  Null if it could not be sent, and for an option without a wait, which is not
    /// tracked.
    std::shared_ptr<send_info> send_msg(tavMessage const & msg, send_option const & option);
    std::shared_ptr<send_info> send_msg(tavSharedPtr<tavMessage> msg, send_option const & option);
    /// Sends a JSON object as a message of the meta template that the last start was given, which has to
    /// describe its class (`connect_option::metainfo`, PML text; see docs/templates.md).  The object's
    /// members are the fields of the class by name; one that the class does not have is dropped with a log
    /// line.
    ///
    /// `class_or_code` is a class name, or, if it begins with a digit, a decimal code; null and an empty text
    /// leave it to the members "__class__" and "__code__" of the object, which go ahead of it anyway, and a
    /// code goes ahead of a class.  Neither text is kept.  An empty `json` is sent as an empty body of the
    /// decimal code, of 0xffff if there is none.
    ///
    /// The result is that of `send_msg`.  Also null, with the reason in the log at ERROR and nothing sent, if
    /// the text is no JSON, the template lacks the class, a value does not fit its field or a necessary field
    /// is missing.
    std::shared_ptr<send_info> send_json_msg(char const * json, send_option const & option,
                                             char const * class_or_code);
    /// Sends a body that is NBR already.
    std::shared_ptr<send_info> send_nbr_msg(unsigned short msgcode, unsigned char const * data,
                                            unsigned int size, send_option const & option,
                                            tav_istr target = tav_istr());
    /// Sends an old message, whose code is one byte; it is never tracked.
    std::shared_ptr<send_info> send_old_nbr_msg(unsigned char msgcode, tav_istr body,
                                                tav_istr target = tav_istr());
    /// Sends `msg` and waits up to `wait_ms` for its reply, of `ack`'s own code, which fills `ack`.  1,
    /// error, if it could not be sent or `wait_ms` is below 1.  Not for a message callback: the reply comes
    /// on that thread.
    result_type send_and_wait(tavMessage const & msg, tavMessage & ack, int wait_ms, bool grey = false,
                              unsigned short version = 4);
    result_type send_and_wait(tavMessage const & msg, tavSharedPtr<tavMessage> ack, int wait_ms,
                              bool grey = false, unsigned short version = 4);
    /// `*out` holds the send while it waits, for another thread to cancel: that one reads it by
    /// std::atomic_load.
    result_type send_and_wait(std::shared_ptr<send_info> * out, tavMessage const & msg, tavMessage & ack,
                              int wait_ms, bool grey = false, unsigned short version = 4);

    /// Callbacks for one message code, each in place of any of another kind.
    void on_msg(unsigned short msgcode, obj_function f);
    void on_msg(unsigned short msgcode, ptr_function f);
    /// The same with the message as JSON by the meta template of the last start, which may come later: one
    /// line of text such as `{ "__class__":"chat.Said", "text":"hello" }`, members by name, 64-bit integers
    /// and times as strings of digits; "null" if the template does not know the code, an empty text for an
    /// empty body.  A message that lacks a necessary field is dropped, with a log line at ERROR and without
    /// receipt.
    void on_json_msg(unsigned short msgcode, json_function f);
    /// The class is looked up in the template now, so this belongs behind the start's `wait`; one that is not
    /// known, or has no code, counts as the code 0xffff.
    void on_json_msg(char const * className, json_function f);
    void on_nbr_msg(unsigned short msgcode, nbr_function f);
    /// For old messages, of codes up to 0xff, that no other callback takes.  Codes from 0x80 arrive as 0xff80
    /// and up.
    void set_old_msg_default_callback(nbr_function f);

    /// What makes an object of a class, or a message of a code.  `creator` gives the object away.
    void register_class(tav_istr name, std::function<tavObject *()> creator);
    void unregister_class(tav_istr name);
    void register_message(unsigned short msgcode, std::function<tavObject *()> creator);
    void unregister_message(unsigned short msgcode);
    /// New objects; null if the code or class is not registered.  A text that begins with a digit is a
    /// decimal code.
    tavSharedPtr<tavMessage> createMessage(unsigned short msgcode);
    tavSharedPtr<tavMessage> createMessage(tav_istr class_or_code);
    tavSharedPtr<tavObject> createObject(tav_istr name);

    /// The class names and codes of the meta template that the last start was given; empty and 0xffff if
    /// unknown.  A template counts once its start has begun, so at the latest when that one's `wait` returns,
    /// and until another start has one in its place: a reconnect and a close keep it, a start without a
    /// template drops it, and one that is no PML fails its start and leaves the one before.
    tavString find_class_by_code(unsigned short msgcode);
    unsigned short find_code_by_class(char const * name) const;
    /// What the client has done and holds, over all of its connections; all 0 once it has ended.  Costs no
    /// lock of the client's work.
    tav::tls::statistics statistics() const;
    /// The next sequence number of 16 bits.
    unsigned short get_next_sno();

private:
    struct Core;

    void init(tav_istr name);
    void fini();
    /// The core, or null with a word in the log as from `site`.
    std::shared_ptr<Core> alive(detail::Site const & site) const;

    std::string id_;
    mutable tavMutex mutex_;
    std::shared_ptr<Core> impl_;
};

} // namespace tls
} // namespace tav

#endif
