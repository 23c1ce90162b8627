#ifndef TAV_VINTA_TLS_CLIENT_OPTIONS_H
#define TAV_VINTA_TLS_CLIENT_OPTIONS_H

#include "tav/vinta/vinta_api.h"
#include "tav/vinta/vinta_locks.h"
#include "tav/vinta/vinta_object.h"
#include "tav/vinta/vinta_tls_failure.h"
#include "tav/vinta/vinta_tls_limits.h"

#include <atomic>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>

/// What an application fills in for the TLS client and gets back from it: time limits, callbacks, the options
/// of a connect and of a send, and results.  These classes carry values and functions and log each call; they
/// hold no connection logic.
///
/// A sno of all ones and a message code of 0xffff mean "no message".  Times are milliseconds.
namespace tav {
namespace tls {

class tls_policy;

/// A time limit has passed (`cancelled` false), or what it was for ended first (true).
typedef std::function<void(unsigned long long sno, unsigned short msgcode, bool cancelled)> timedout_function;

/// Something failed; `text` is a C string, valid during the call only.
typedef std::function<void(unsigned long long sno, unsigned short msgcode, int code, char const * text)>
    error_function;

/// A message as JSON text, a C string valid during the call only.
typedef std::function<void(unsigned long long sno, unsigned short msgcode, char const * json, tavMsgExt ext)>
    json_function;

/// A message as the bytes of its body, valid during the call only.
typedef std::function<void(unsigned long long sno, unsigned short msgcode, unsigned char const * data,
                           unsigned int size, tavMsgExt ext)>
    nbr_function;

/// A message as an object, valid during the call only.
typedef std::function<void(unsigned long long sno, tavMessage const & msg)> obj_function;

/// A message as a shared object, which the function may keep.
typedef std::function<void(unsigned long long sno, tavSharedPtr<tavMessage> msg)> ptr_function;

/// Makes the tunnel to `host` and `port` through the proxy to which `socket`, a file descriptor in blocking
/// mode, is connected.  0 when that is done.
typedef std::function<int(unsigned int socket, char const * host, unsigned short port)> proxy_function;

/// The outcome of a connect or of a send.
enum result_type {
    result_pending = -3, ///< A connect not yet finished.
    result_busy = -2,    ///< A reconnect was refused, since one is in progress.
    result_unknown = -1, ///< A send not yet finished.
    result_ok = 0,       ///< Done.
    result_error = 1,    ///< Failed.
    result_timedout = 2, ///< No result in time.
    result_cancelled = 3 ///< Cancelled, or the session ended first.
};

/// The kind of function that a message_callback holds.
enum callback_type {
    callback_none = -1,
    callback_json = 0,
    callback_nbr = 1,
    callback_obj = 2,
    callback_ptr = 3
};

/// "ok", "error", "timedout", "cancelled", "busy" or "unknown"; "<undefined>" for result_pending and all
/// else.
TAV_API std::ostream & operator<<(std::ostream & out, result_type v);

/// Calls `f`, unless it is empty, with the absolute value of `code`, so that the library's negative codes
/// reach the application as positive numbers.
TAV_API void on_error_call(error_function const & f, unsigned long long sno, unsigned short msgcode, int code,
                           std::string text);

/// An address: a host's name or number and a port as text.
struct TAV_API ip_port {
    ip_port();
    ip_port(std::string host, std::string port);
    ip_port(std::string host, unsigned short port);

    /// True without a host if there is no port either, or the port is "0".
    bool empty() const;

    std::string host;
    std::string port;
};

/// Which message: its sequence, its code, and the size of its body in bytes, -1 for none.
struct TAV_API msginfo {
    msginfo();
    msginfo(unsigned long long sno, unsigned short msgcode, int size);

    /// True if none of the three is known.
    bool empty() const;

    unsigned long long sno;
    unsigned short msgcode;
    int size;
};

/// The host without its last three characters (one of fewer stands whole), "***:", and the port.
TAV_API std::ostream & operator<<(std::ostream & out, ip_port const & v);

/// `#7 0x1234 [12]`; the size only if it is above 0.
TAV_API std::ostream & operator<<(std::ostream & out, msginfo const & v);

/// A time limit with a function to call at its end.  It fires at most once.
/// Thread safety: all operations.  The function is called without any lock held, and may use this object.
/// Copies share the function object.
class TAV_API timedout_option {
public:
    /// No limit.
    timedout_option();
    /// A limit of `wait_ms` milliseconds; below 1 it is none.
    explicit timedout_option(int wait_ms, timedout_function on_timedout = timedout_function());
    timedout_option(timedout_option const & other);
    timedout_option & operator=(timedout_option const & other);

    /// The limit; negated once it has been spent or cleared.
    int wait_ms() const;
    void wait_ms(int v);

    /// True if there is no limit (below 1).
    bool empty() const;

    void set_on_timedout(timedout_function f);

    /// Copies limit and function.
    void get(timedout_option & out) const;

    /// Negates a positive limit and drops the function.
    void clear();

    /// Calls the function, if there still is one, and clears.
    void on_timedout(unsigned long long sno, unsigned short msgcode, bool cancelled);

    /// If there is a limit and `elapsed` is at most 4 ms short of it: does as on_timedout, not cancelled, and
    /// returns true.  Of two threads that ask at once one gets true.
    bool check_timedout(unsigned long long sno, unsigned short msgcode, int elapsed);

private:
    typedef std::shared_ptr<timedout_function const> Function;

    Function clear_i();
    bool is_timedout_i(int elapsed) const;

    int wait_ms_;
    Function on_timedout_;
    bool firing_;
    tavMutex mutex_;
};

/// `max waiting 100ms...`.
TAV_API std::ostream & operator<<(std::ostream & out, timedout_option const & v);

/// A function for messages, of one kind.  An event of another kind, or one for which no function is set, is
/// not taken: the event operations then return false.
/// Thread safety: all operations.  The function is called without any lock held; it may be replaced or
/// cleared while it runs.  Copies share the function object.
class TAV_API message_callback {
public:
    /// No function.
    message_callback();
    message_callback(json_function f);
    message_callback(nbr_function f);
    message_callback(obj_function f);
    message_callback(ptr_function f);
    message_callback(message_callback const & other);
    message_callback & operator=(message_callback const & other);

    callback_type type() const;

    /// True if there is no kind; a kind whose function is null is not empty.
    bool empty() const;

    void clear();

    /// Copies kind and function.
    void get(message_callback & out) const;

    /// The event operations log `level`, a word such as "send", and the message, and call the function.
    bool on_json_msg(char const * level, unsigned long long sno, unsigned short msgcode, char const * json,
                     tavMsgExt const & ext);
    bool on_nbr_msg(char const * level, unsigned long long sno, unsigned short msgcode,
                    unsigned char const * data, unsigned int size, tavMsgExt const & ext);
    bool on_base_msg(char const * level, unsigned long long sno, tavMessage const & msg);
    bool on_ptr_msg(char const * level, unsigned long long sno, tavSharedPtr<tavMessage> msg);

private:
    struct Entry;

    std::shared_ptr<Entry const> entry() const;
    void replace(std::shared_ptr<Entry const> next);

    std::shared_ptr<Entry const> entry_;
    tavMutex mutex_;
};

/// "on_json_msg", "on_nbr_msg", "on_obj_msg", "on_ptr_msg", or "<on_unknown_msg>" if it is empty.
TAV_API std::ostream & operator<<(std::ostream & out, message_callback const & v);

/// The function for all messages of one code.
class TAV_API msg_type_callback : public message_callback {
public:
    static constexpr char const * type_level_ = "type";

    using message_callback::message_callback;
    msg_type_callback();

    bool on_json(unsigned long long sno, unsigned short msgcode, char const * json, tavMsgExt const & ext);
    bool on_nbr(unsigned long long sno, unsigned short msgcode, unsigned char const * data, unsigned int size,
                tavMsgExt const & ext);
    bool on_base(unsigned long long sno, tavMessage const & msg);
    bool on_ptr(unsigned long long sno, tavSharedPtr<tavMessage> msg);
};

/// An application's callbacks for one client.  The base is the function for messages that no send and no
/// message code claims.
/// Thread safety: the base alone.
class TAV_API global_callback : public message_callback {
public:
    static constexpr char const * global_level_ = "global";

    global_callback();

    error_function on_error_;                     ///< Connection errors.
    std::function<void()> on_heartbeat_timedout_; ///< The peer has been silent too long.
    std::function<void()> on_open_;               ///< The connection is up.
    proxy_function on_http_proxy_connect_;        ///< If set, the connection goes through the proxy.
    std::string proxy_host_;
    std::string proxy_port_;
    std::string server_name_; ///< As connect_option::server_name.
    std::string reserved_;    ///< Copied along, never read.

    void set_on_error(error_function f);
    void set_on_heartbeat_timedout(std::function<void()> f);
    void set_on_open(std::function<void()> f);
    void set_on_http_proxy_connect(proxy_function f);

    /// Each of these replaces the message function; the last one set is the only one that counts.
    void set_json_msg_callback(json_function f);
    void set_nbr_msg_callback(nbr_function f);
    void set_base_msg_callback(obj_function f);
    void set_ptr_msg_callback(ptr_function f);

    /// The events: log, call the function and return true if it is set; otherwise false.
    bool on_open();
    bool on_heartbeat_timedout();
    /// A `code` of 0 calls nothing.
    bool on_error(unsigned long long sno, unsigned short msgcode, int code, std::string text);
    /// The function's result; 0 if none is set.
    int on_http_proxy_connect(unsigned int socket, char const * host, unsigned short port);
    bool on_json_msg(unsigned long long sno, unsigned short msgcode, char const * json,
                     tavMsgExt const & ext);
    bool on_nbr_msg(unsigned long long sno, unsigned short msgcode, unsigned char const * data,
                    unsigned int size, tavMsgExt const & ext);
    bool on_base_msg(unsigned long long sno, tavMessage const & msg);
    bool on_ptr_msg(unsigned long long sno, tavSharedPtr<tavMessage> msg);
};

/// What a start needs.
///
/// It has more members than other classes: each is a choice of one start, of which most are left as they are.
/// What belongs together has a type of its own, as `limits` and `policy` do.
/// Thread safety: `callback_` and `timedout` alone.
class TAV_API connect_option {
public:
    static constexpr char const * global_level_ = "global";

    connect_option();

    std::string host;
    std::string port; ///< In decimal, or the name of a service.
    /// A file of trusted certificates, or a directory of them ending in "/", of which the names ending in
    /// ".0" count.  Empty: nothing is verified, and any peer is believed.
    ///
    /// The chain is verified, the certificate's host name is NOT compared with anything, unless `policy` asks
    /// for it: whoever holds any certificate that one of these authorities has signed can pose as the server.
    /// So give a policy, or an authority of your own that signs your servers and nothing else, never the
    /// system's list of public authorities.
    std::string ca;
    std::string metainfo;                         ///< The meta model as PML text.
    std::string cipher;                           ///< A cipher list; see cipher_list.
    message_callback callback_;                   ///< For messages that no send and no code claims.
    error_function on_error_;                     ///< Connection errors.
    std::function<void()> on_heartbeat_timedout_; ///< The peer has been silent too long.
    timedout_option timedout;                     ///< The limit for connecting.
    limit_option limits;                          ///< What the connection may hold; no limits by default.
    /// The connection is up, after each start and reconnect: the place for client::should_check_heartbeat.
    std::function<void()> on_open_;
    proxy_function on_http_proxy_connect_; ///< If set, the connection goes through the proxy.
    std::string proxy_host;
    std::string proxy_port;
    /// The name sent in the TLS handshake, for servers that have several certificates; empty sends none.  It
    /// asks for a certificate and checks nothing: see `ca`.
    std::string server_name;
    std::string reserved_; ///< Copied along, never read.
    /// Default: null.  How safe the connection has to be; null or empty asks nothing beyond the other
    /// options.  `tls_policy::safe` is what most want; see vinta_tls_policy.h.
    std::shared_ptr<tls_policy const> policy;

    /// Gives the option a copy of the policy.
    void set_tls_policy(tls_policy const & v);
    void set_on_error(error_function f);
    void set_on_heartbeat_timedout(std::function<void()> f);
    void set_on_open(std::function<void()> f);
    void set_on_http_proxy_connect(proxy_function f);

    /// Each of these replaces the message function; the last one set is the only one that counts.
    void set_json_msg_callback(json_function f);
    void set_nbr_msg_callback(nbr_function f);
    void set_obj_msg_callback(obj_function f);
    void set_ptr_msg_callback(ptr_function f);

    /// Where the TCP connection goes: the proxy if its function is set, else host and port.
    std::string const & connect_host() const;
    std::string const & connect_port() const;

    /// `cipher`, or the library's list if that is empty.
    std::string cipher_list() const;

    /// True without host, port, message function and time limit.
    bool empty() const;

    /// The events: log, call the function and return true if it is set; otherwise false.
    bool on_open();
    bool on_heartbeat_timedout();
    /// A `code` of 0 calls nothing.
    bool on_error(unsigned long long sno, unsigned short msgcode, int code, std::string text);
    /// The function's result; 0 if none is set.
    int on_http_proxy_connect(unsigned int socket, char const * host, unsigned short port);
    bool on_json_msg(unsigned long long sno, unsigned short msgcode, char const * json,
                     tavMsgExt const & ext);
    bool on_nbr_msg(unsigned long long sno, unsigned short msgcode, unsigned char const * data,
                    unsigned int size, tavMsgExt const & ext);
    bool on_obj_msg(unsigned long long sno, tavMessage const & msg);
    bool on_ptr_msg(unsigned long long sno, tavSharedPtr<tavMessage> msg);
};

/// `host=a port=443 ca length=0`, and ` max waiting 100ms...` if there is a limit.
TAV_API std::ostream & operator<<(std::ostream & out, connect_option const & v);

/// What one send wants.  Without a time limit it is empty: the message goes out, and nothing waits for a
/// reply.
/// Thread safety: the base and `callback_` alone.
class TAV_API send_option : public timedout_option {
public:
    static constexpr char const * send_level_ = "send";

    send_option();
    send_option(int wait_ms, timedout_function timedout, error_function error, obj_function f,
                unsigned short ack, bool grey, unsigned short version);
    send_option(int wait_ms, timedout_function timedout, error_function error, json_function f,
                unsigned short ack, bool grey, unsigned short version);
    send_option(int wait_ms, timedout_function timedout, error_function error, nbr_function f,
                unsigned short ack, bool grey, unsigned short version);
    send_option(int wait_ms, timedout_function timedout, error_function error, ptr_function f,
                unsigned short ack, bool grey, unsigned short version);
    send_option(int wait_ms, timedout_function timedout, bool grey, unsigned short version);
    send_option(timedout_option const & timedout, error_function error, message_callback const & callback,
                unsigned short ack, bool grey, unsigned short version);
    send_option(timedout_option const & timedout, bool grey, unsigned short version);
    send_option(send_option const & other);
    send_option(send_option && other);
    send_option & operator=(send_option const & other);
    send_option & operator=(send_option && other);

    error_function on_error_;
    message_callback callback_; ///< For the reply.
    unsigned short ack;         ///< The code of the reply; 0xffff expects none.
    bool grey;                  ///< Goes into the packet.
    unsigned short version;     ///< Of the packet; 4 unless set.
    unsigned long long sno;     ///< The sequence to use; 0 lets the client choose one.
    tavMsgExt ext;              ///< Goes into the packet.

    /// True without a time limit.
    bool empty() const;

    /// Clears the time limit, the error function and the reply's function.
    void clear();

    /// Each of these replaces the reply's function; the last one set is the only one that counts.
    void set_json_ack_callback(json_function f);
    void set_nbr_ack_callback(nbr_function f);
    void set_base_ack_callback(obj_function f);
    void set_ptr_ack_callback(ptr_function f);

    /// The events: log, call the function and return true if it is set and of this kind; otherwise false.
    bool on_json_ack(unsigned long long sno, unsigned short msgcode, char const * json,
                     tavMsgExt const & ext);
    bool on_nbr_ack(unsigned long long sno, unsigned short msgcode, unsigned char const * data,
                    unsigned int size, tavMsgExt const & ext);
    bool on_base_ack(unsigned long long sno, tavMessage const & msg);
    bool on_ptr_ack(unsigned long long sno, tavSharedPtr<tavMessage> msg);
    /// A `code` of 0 calls nothing.
    bool on_error(unsigned long long sno, unsigned short msgcode, int code, std::string text);
};

/// Limit, kind of the reply's function, `ack 0x1234 `, `grey ` and `version 4`, each only if it is set but
/// the last.
TAV_API std::ostream & operator<<(std::ostream & out, send_option const & v);

/// Something under way.
/// Thread safety: all operations.
class TAV_API future_obj {
public:
    future_obj();
    future_obj(future_obj const &) = delete;
    future_obj & operator=(future_obj const &) = delete;
    virtual ~future_obj();

    /// Ends it; who waits gets result_cancelled.
    virtual void cancel() = 0;

    /// Blocks until it has ended and returns the outcome, which is never result_pending or result_unknown.
    /// On a thread that has to bring the end, result_error at once, with a line in the log.  An outcome may
    /// be there before the connect's `on_error` has run, which has a thread of its own.
    virtual result_type wait() = 0;

    /// The outcome so far.
    virtual result_type result() const = 0;

    /// Why it ended otherwise than well; no error as long as it has not ended.
    std::error_code error() const noexcept;

    /// The lock under which the outcome changes.
    void lock() const;
    void unlock() const;

protected:
    /// Takes the first failure that it is told.
    void error(failure v) noexcept;

    tavMonitor monitor_;

private:
    std::atomic<int> error_;
};

/// A connect under way.
class TAV_API connect_info : public future_obj {
public:
    ~connect_info() override;
};

/// A tracked send under way.
class TAV_API send_info : public future_obj {
public:
    ~send_info() override;

    /// The sequence under which it went out.
    virtual unsigned long long sno() const = 0;

    /// The code of the message sent.
    virtual unsigned short msgcode() const = 0;

    /// A copy; its limit is negative once the send has ended.
    virtual send_option option() const = 0;
};

/// `sno = #7, send result = ok`.
TAV_API std::ostream & operator<<(std::ostream & out, send_info const & v);

} // namespace tls
} // namespace tav

#endif
