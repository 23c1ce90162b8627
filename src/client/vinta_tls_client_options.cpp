#include "tav/vinta/vinta_tls_client_options.h"

#include "client/no_message.h"
#include "client/vinta_tls_client_impl_log.h"
#include "foundation/report.h"
#include "foundation/scope_exit.h"
#include "tav/vinta/vinta_tls_policy.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <mutex>
#include <new>
#include <ostream>
#include <utility>

namespace tav {
namespace tls {

namespace {

constexpr char const * default_ciphers = "AES256-GCM-SHA384:AES128-GCM-SHA256:"
                                         "ECDHE-RSA-AES256-GCM-SHA384:ECDHE-RSA-AES128-GCM-SHA256:"
                                         "ECDHE-ECDSA-AES128-GCM-SHA256:ECDHE-ECDSA-AES256-GCM-SHA384";

/// Four lower-case digits, whatever the flags of the stream that they go to.
std::string hex4(unsigned short v) {
    char const * const digits = "0123456789abcdef";
    std::string text(4, '0');
    for (unsigned i = 0; i < 4; ++i) {
        text[i] = digits[(v >> (12 - 4 * i)) & 0xf];
    }
    return text;
}

std::string max_waiting(int wait_ms) {
    return "max waiting " + std::to_string(wait_ms) + "ms...";
}

std::string text_of(ip_port const & v) {
    return (v.host.size() < 3 ? v.host : v.host.substr(0, v.host.size() - 3)) + "***:" + v.port;
}

std::string text_of(msginfo const & v) {
    std::string text = "#" + std::to_string(v.sno) + " 0x" + hex4(v.msgcode);
    if (v.size > 0) {
        text += " [" + std::to_string(v.size) + "]";
    }
    return text;
}

int as_size(std::size_t size) {
    return static_cast<int>(std::min<std::size_t>(size, std::numeric_limits<int>::max()));
}

/// `info` makes the msginfo.
template <class Info>
void log_message(char const * level, char const * kind, detail::Site site, Info info) {
    log_line(tavLogger::INFO, site,
             [&](std::ostream & out) { out << level << " level on " << kind << ' ' << text_of(info()); });
}

void log_constructed(char const * word, detail::Site site) {
    log_parts(tavLogger::VERBOSE, site, word);
}

/// What every send has, for the constructors.
void fill(send_option & out, timedout_option const & limit, bool grey, unsigned short version) {
    static_cast<timedout_option &>(out) = limit;
    out.grey = grey;
    out.version = version;
}

/// The same of one with a reply, whose callback `word` names in the log.
void fill(send_option & out, timedout_option const & limit, error_function error,
          message_callback const & callback, unsigned short ack, bool grey, unsigned short version,
          char const * word) {
    fill(out, limit, grey, version);
    out.on_error_ = std::move(error);
    out.callback_ = callback;
    out.ack = ack;
    log_constructed(word, detail::here("tav::tls::send_option::send_option"));
}

/// Calls through a copy, as the function may replace the one that the object holds.  Without memory for one
/// it is called in its place: an event is told in any case.
template <class Function, class Call>
auto call_copy(Function const & held, Call call) {
    Function copy;
    try {
        copy = held;
    } catch (std::bad_alloc const &) {
        return call(held);
    }
    return call(copy);
}

bool fire(std::function<void()> const & held, char const * text, detail::Site site) {
    if (!held) {
        return false;
    }
    log_parts(tavLogger::INFO, site, text);
    call_copy(held, [](std::function<void()> const & function) { function(); });
    return true;
}

bool fire_error(error_function const & held, char const * level, unsigned long long sno,
                unsigned short msgcode, int code, std::string text, detail::Site site) {
    if (!held || code == 0) {
        return false;
    }
    log_line(tavLogger::INFO, site, [&](std::ostream & out) {
        out << level << " level on error " << text_of(msginfo(sno, msgcode, -1)) << " <"
            << std::to_string(code) << "> " << text;
    });
    call_copy(held, [&](error_function const & function) {
        on_error_call(function, sno, msgcode, code, std::move(text));
    });
    return true;
}

int fire_proxy(proxy_function const & held, unsigned int socket, char const * host, unsigned short port,
               detail::Site site) {
    if (!held) {
        return 0;
    }
    log_line(tavLogger::INFO, site, [&](std::ostream & out) {
        out << "http proxy tcp connected, connecting real server "
            << text_of(ip_port(host != nullptr ? host : "", port));
    });
    return call_copy(held, [&](proxy_function const & function) { return function(socket, host, port); });
}

/// Empty for callback_none.
char const * kind_word(callback_type type) {
    switch (type) {
    case callback_json: return "on_json_msg";
    case callback_nbr: return "on_nbr_msg";
    case callback_obj: return "on_obj_msg";
    case callback_ptr: return "on_ptr_msg";
    case callback_none: break;
    }
    return "";
}

} // namespace

std::ostream & operator<<(std::ostream & out, result_type v) {
    switch (v) {
    case result_busy: return out << "busy";
    case result_unknown: return out << "unknown";
    case result_ok: return out << "ok";
    case result_error: return out << "error";
    case result_timedout: return out << "timedout";
    case result_cancelled: return out << "cancelled";
    case result_pending: break;
    }
    return out << "<undefined>";
}

void on_error_call(error_function const & f, unsigned long long sno, unsigned short msgcode, int code,
                   std::string text) {
    if (!f) {
        return;
    }
    // The smallest int has no positive counterpart and stays as it is.
    int const positive = code < 0 && code != std::numeric_limits<int>::min() ? -code : code;
    f(sno, msgcode, positive, text.c_str());
}

ip_port::ip_port() = default;

ip_port::ip_port(std::string host_text, std::string port_text)
    : host(std::move(host_text)), port(std::move(port_text)) {}

ip_port::ip_port(std::string host_text, unsigned short port_number)
    : host(std::move(host_text)), port(std::to_string(port_number)) {}

bool ip_port::empty() const {
    return host.empty() && (port.empty() || port == "0");
}

msginfo::msginfo() : sno(no_sno), msgcode(no_code), size(-1) {}

msginfo::msginfo(unsigned long long sequence, unsigned short code, int body_size)
    : sno(sequence), msgcode(code), size(body_size) {}

bool msginfo::empty() const {
    return sno == no_sno && msgcode == no_code && size == -1;
}

std::ostream & operator<<(std::ostream & out, ip_port const & v) {
    return out << text_of(v);
}

std::ostream & operator<<(std::ostream & out, msginfo const & v) {
    return out << text_of(v);
}

timedout_option::timedout_option() : wait_ms_(0), firing_(false) {}

timedout_option::timedout_option(int wait_ms, timedout_function on_timedout)
    : wait_ms_(wait_ms), firing_(false) {
    set_on_timedout(std::move(on_timedout));
}

timedout_option::timedout_option(timedout_option const & other) : wait_ms_(0), firing_(false) {
    other.get(*this);
}

timedout_option & timedout_option::operator=(timedout_option const & other) {
    if (this != &other) {
        other.get(*this);
    }
    return *this;
}

int timedout_option::wait_ms() const {
    std::lock_guard<tavMutex const> guard(mutex_);
    return wait_ms_;
}

void timedout_option::wait_ms(int v) {
    std::lock_guard<tavMutex const> guard(mutex_);
    wait_ms_ = v;
}

bool timedout_option::empty() const {
    return wait_ms() < 1;
}

void timedout_option::set_on_timedout(timedout_function f) {
    Function function = f ? std::make_shared<timedout_function const>(std::move(f)) : nullptr;
    std::lock_guard<tavMutex const> guard(mutex_);
    on_timedout_.swap(function);
}

// The two mutexes are never held together, so that copies in both directions at once can't block.
void timedout_option::get(timedout_option & out) const {
    int wait = 0;
    Function function;
    {
        std::lock_guard<tavMutex const> guard(mutex_);
        wait = wait_ms_;
        function = on_timedout_;
    }
    std::lock_guard<tavMutex const> guard(out.mutex_);
    out.wait_ms_ = wait;
    out.on_timedout_.swap(function);
}

void timedout_option::clear() {
    Function dropped;
    std::lock_guard<tavMutex const> guard(mutex_);
    dropped = clear_i();
}

void timedout_option::on_timedout(unsigned long long sno, unsigned short msgcode, bool cancelled) {
    Function function;
    {
        std::lock_guard<tavMutex const> guard(mutex_);
        function.swap(on_timedout_);
    }
    if (function) {
        (*function)(sno, msgcode, cancelled);
    }
    clear();
}

bool timedout_option::check_timedout(unsigned long long sno, unsigned short msgcode, int elapsed) {
    Function function;
    int wait = 0;
    {
        std::lock_guard<tavMutex const> guard(mutex_);
        if (firing_ || !is_timedout_i(elapsed)) {
            return false;
        }
        firing_ = true;
        wait = wait_ms_;
        function.swap(on_timedout_);
    }
    // If the function raises, the limit stays, so that the next check reports it without calling anything.
    detail::ScopeExit const fired([this] {
        std::lock_guard<tavMutex const> guard(mutex_);
        firing_ = false;
    });
    log_line(tavLogger::INFO, detail::here("tav::tls::timedout_option::check_timedout"),
             [&](std::ostream & out) {
                 out << "on timedout " << text_of(msginfo(sno, msgcode, -1)) << max_waiting(wait)
                     << std::to_string(elapsed) << "ms";
             });
    if (function) {
        (*function)(sno, msgcode, false);
    }
    clear();
    return true;
}

/// Answers what is dropped, for the caller to destroy without the mutex.
timedout_option::Function timedout_option::clear_i() {
    if (wait_ms_ > 0) {
        wait_ms_ = -wait_ms_;
    }
    return std::move(on_timedout_);
}

bool timedout_option::is_timedout_i(int elapsed) const {
    return wait_ms_ >= 1 && static_cast<long long>(elapsed) + 5 > wait_ms_;
}

std::ostream & operator<<(std::ostream & out, timedout_option const & v) {
    return out << max_waiting(v.wait_ms());
}

/// Never changed once made, so that threads may call through it while it is being replaced.
struct message_callback::Entry {
    explicit Entry(json_function f) : type(callback_json), json(std::move(f)) {}
    explicit Entry(nbr_function f) : type(callback_nbr), nbr(std::move(f)) {}
    explicit Entry(obj_function f) : type(callback_obj), obj(std::move(f)) {}
    explicit Entry(ptr_function f) : type(callback_ptr), ptr(std::move(f)) {}

    callback_type const type;
    json_function const json;
    nbr_function const nbr;
    obj_function const obj;
    ptr_function const ptr;
};

message_callback::message_callback() = default;

message_callback::message_callback(json_function f) : entry_(std::make_shared<Entry const>(std::move(f))) {}

message_callback::message_callback(nbr_function f) : entry_(std::make_shared<Entry const>(std::move(f))) {}

message_callback::message_callback(obj_function f) : entry_(std::make_shared<Entry const>(std::move(f))) {}

message_callback::message_callback(ptr_function f) : entry_(std::make_shared<Entry const>(std::move(f))) {}

message_callback::message_callback(message_callback const & other) : entry_(other.entry()) {}

message_callback & message_callback::operator=(message_callback const & other) {
    if (this != &other) {
        other.get(*this);
    }
    return *this;
}

callback_type message_callback::type() const {
    std::lock_guard<tavMutex const> guard(mutex_);
    return entry_ ? entry_->type : callback_none;
}

bool message_callback::empty() const {
    return type() == callback_none;
}

void message_callback::clear() {
    replace(nullptr);
}

// The two mutexes are never held together, so that copies in both directions at once can't block.
void message_callback::get(message_callback & out) const {
    out.replace(entry());
}

bool message_callback::on_json_msg(char const * level, unsigned long long sno, unsigned short msgcode,
                                   char const * json, tavMsgExt const & ext) {
    std::shared_ptr<Entry const> const held = entry();
    if (!held || !held->json) {
        return false;
    }
    log_message(level, "json", detail::here("tav::tls::message_callback::on_json_msg"),
                [&] { return msginfo(sno, msgcode, json != nullptr ? as_size(std::strlen(json)) : 0); });
    held->json(sno, msgcode, json, ext);
    return true;
}

bool message_callback::on_nbr_msg(char const * level, unsigned long long sno, unsigned short msgcode,
                                  unsigned char const * data, unsigned int size, tavMsgExt const & ext) {
    std::shared_ptr<Entry const> const held = entry();
    if (!held || !held->nbr) {
        return false;
    }
    log_message(level, "nbr", detail::here("tav::tls::message_callback::on_nbr_msg"),
                [&] { return msginfo(sno, msgcode, as_size(size)); });
    held->nbr(sno, msgcode, data, size, ext);
    return true;
}

bool message_callback::on_base_msg(char const * level, unsigned long long sno, tavMessage const & msg) {
    std::shared_ptr<Entry const> const held = entry();
    if (!held || !held->obj) {
        return false;
    }
    log_message(level, "obj", detail::here("tav::tls::message_callback::on_base_msg"),
                [&] { return msginfo(sno, msg.msgcode(), -1); });
    held->obj(sno, msg);
    return true;
}

bool message_callback::on_ptr_msg(char const * level, unsigned long long sno, tavSharedPtr<tavMessage> msg) {
    std::shared_ptr<Entry const> const held = entry();
    if (!held || !held->ptr) {
        return false;
    }
    log_message(level, "ptr", detail::here("tav::tls::message_callback::on_ptr_msg"),
                [&] { return msginfo(sno, msg ? msg->msgcode() : no_code, -1); });
    held->ptr(sno, std::move(msg));
    return true;
}

std::shared_ptr<message_callback::Entry const> message_callback::entry() const {
    std::lock_guard<tavMutex const> guard(mutex_);
    return entry_;
}

/// What was held goes when the mutex has been released.
void message_callback::replace(std::shared_ptr<Entry const> next) {
    std::lock_guard<tavMutex const> guard(mutex_);
    entry_.swap(next);
}

std::ostream & operator<<(std::ostream & out, message_callback const & v) {
    callback_type const type = v.type();
    return out << (type == callback_none ? "<on_unknown_msg>" : kind_word(type));
}

msg_type_callback::msg_type_callback() = default;

bool msg_type_callback::on_json(unsigned long long sno, unsigned short msgcode, char const * json,
                                tavMsgExt const & ext) {
    return on_json_msg(type_level_, sno, msgcode, json, ext);
}

bool msg_type_callback::on_nbr(unsigned long long sno, unsigned short msgcode, unsigned char const * data,
                               unsigned int size, tavMsgExt const & ext) {
    return on_nbr_msg(type_level_, sno, msgcode, data, size, ext);
}

bool msg_type_callback::on_base(unsigned long long sno, tavMessage const & msg) {
    return on_base_msg(type_level_, sno, msg);
}

bool msg_type_callback::on_ptr(unsigned long long sno, tavSharedPtr<tavMessage> msg) {
    return on_ptr_msg(type_level_, sno, std::move(msg));
}

global_callback::global_callback() = default;

void global_callback::set_on_error(error_function f) {
    on_error_ = std::move(f);
}

void global_callback::set_on_heartbeat_timedout(std::function<void()> f) {
    on_heartbeat_timedout_ = std::move(f);
}

void global_callback::set_on_open(std::function<void()> f) {
    on_open_ = std::move(f);
}

void global_callback::set_on_http_proxy_connect(proxy_function f) {
    on_http_proxy_connect_ = std::move(f);
}

void global_callback::set_json_msg_callback(json_function f) {
    message_callback::operator=(message_callback(std::move(f)));
}

void global_callback::set_nbr_msg_callback(nbr_function f) {
    message_callback::operator=(message_callback(std::move(f)));
}

void global_callback::set_base_msg_callback(obj_function f) {
    message_callback::operator=(message_callback(std::move(f)));
}

void global_callback::set_ptr_msg_callback(ptr_function f) {
    message_callback::operator=(message_callback(std::move(f)));
}

bool global_callback::on_open() {
    return fire(on_open_, " channel open ok", detail::here("tav::tls::global_callback::on_open"));
}

bool global_callback::on_heartbeat_timedout() {
    return fire(on_heartbeat_timedout_, "heartbeat timedout",
                detail::here("tav::tls::global_callback::on_heartbeat_timedout"));
}

bool global_callback::on_error(unsigned long long sno, unsigned short msgcode, int code, std::string text) {
    return fire_error(on_error_, global_level_, sno, msgcode, code, std::move(text),
                      detail::here("tav::tls::global_callback::on_error"));
}

int global_callback::on_http_proxy_connect(unsigned int socket, char const * host, unsigned short port) {
    return fire_proxy(on_http_proxy_connect_, socket, host, port,
                      detail::here("tav::tls::global_callback::on_http_proxy_connect"));
}

bool global_callback::on_json_msg(unsigned long long sno, unsigned short msgcode, char const * json,
                                  tavMsgExt const & ext) {
    return message_callback::on_json_msg(global_level_, sno, msgcode, json, ext);
}

bool global_callback::on_nbr_msg(unsigned long long sno, unsigned short msgcode, unsigned char const * data,
                                 unsigned int size, tavMsgExt const & ext) {
    return message_callback::on_nbr_msg(global_level_, sno, msgcode, data, size, ext);
}

bool global_callback::on_base_msg(unsigned long long sno, tavMessage const & msg) {
    return message_callback::on_base_msg(global_level_, sno, msg);
}

bool global_callback::on_ptr_msg(unsigned long long sno, tavSharedPtr<tavMessage> msg) {
    return message_callback::on_ptr_msg(global_level_, sno, std::move(msg));
}

connect_option::connect_option() = default;

void connect_option::set_tls_policy(tls_policy const & v) {
    policy = std::make_shared<tls_policy const>(v);
}

void connect_option::set_on_error(error_function f) {
    on_error_ = std::move(f);
}

void connect_option::set_on_heartbeat_timedout(std::function<void()> f) {
    on_heartbeat_timedout_ = std::move(f);
}

void connect_option::set_on_open(std::function<void()> f) {
    on_open_ = std::move(f);
}

void connect_option::set_on_http_proxy_connect(proxy_function f) {
    on_http_proxy_connect_ = std::move(f);
}

void connect_option::set_json_msg_callback(json_function f) {
    callback_ = message_callback(std::move(f));
}

void connect_option::set_nbr_msg_callback(nbr_function f) {
    callback_ = message_callback(std::move(f));
}

void connect_option::set_obj_msg_callback(obj_function f) {
    callback_ = message_callback(std::move(f));
}

void connect_option::set_ptr_msg_callback(ptr_function f) {
    callback_ = message_callback(std::move(f));
}

std::string const & connect_option::connect_host() const {
    return on_http_proxy_connect_ ? proxy_host : host;
}

std::string const & connect_option::connect_port() const {
    return on_http_proxy_connect_ ? proxy_port : port;
}

std::string connect_option::cipher_list() const {
    return cipher.empty() ? default_ciphers : cipher;
}

bool connect_option::empty() const {
    return host.empty() && port.empty() && callback_.empty() && timedout.empty();
}

bool connect_option::on_open() {
    return fire(on_open_, " channel open ok", detail::here("tav::tls::connect_option::on_open"));
}

bool connect_option::on_heartbeat_timedout() {
    return fire(on_heartbeat_timedout_, "heartbeat timedout",
                detail::here("tav::tls::connect_option::on_heartbeat_timedout"));
}

bool connect_option::on_error(unsigned long long sno, unsigned short msgcode, int code, std::string text) {
    return fire_error(on_error_, global_level_, sno, msgcode, code, std::move(text),
                      detail::here("tav::tls::connect_option::on_error"));
}

int connect_option::on_http_proxy_connect(unsigned int socket, char const * real_host,
                                          unsigned short real_port) {
    return fire_proxy(on_http_proxy_connect_, socket, real_host, real_port,
                      detail::here("tav::tls::connect_option::on_http_proxy_connect"));
}

bool connect_option::on_json_msg(unsigned long long sno, unsigned short msgcode, char const * json,
                                 tavMsgExt const & ext) {
    return callback_.on_json_msg(global_level_, sno, msgcode, json, ext);
}

bool connect_option::on_nbr_msg(unsigned long long sno, unsigned short msgcode, unsigned char const * data,
                                unsigned int size, tavMsgExt const & ext) {
    return callback_.on_nbr_msg(global_level_, sno, msgcode, data, size, ext);
}

bool connect_option::on_obj_msg(unsigned long long sno, tavMessage const & msg) {
    return callback_.on_base_msg(global_level_, sno, msg);
}

bool connect_option::on_ptr_msg(unsigned long long sno, tavSharedPtr<tavMessage> msg) {
    return callback_.on_ptr_msg(global_level_, sno, std::move(msg));
}

std::ostream & operator<<(std::ostream & out, connect_option const & v) {
    std::string text = "host=" + v.host + " port=" + v.port + " ca length=" + std::to_string(v.ca.size());
    int const wait = v.timedout.wait_ms();
    if (wait >= 1) {
        text += " " + max_waiting(wait);
    }
    return out << text;
}

send_option::send_option() : ack(no_code), grey(false), version(4), sno(0) {}

send_option::send_option(int wait_ms, timedout_function timedout, error_function error, obj_function f,
                         unsigned short ack_code, bool is_grey, unsigned short pkt_version)
    : send_option() {
    fill(*this, timedout_option(wait_ms, std::move(timedout)), std::move(error),
         message_callback(std::move(f)), ack_code, is_grey, pkt_version, "using object msg callback");
}

send_option::send_option(int wait_ms, timedout_function timedout, error_function error, json_function f,
                         unsigned short ack_code, bool is_grey, unsigned short pkt_version)
    : send_option() {
    fill(*this, timedout_option(wait_ms, std::move(timedout)), std::move(error),
         message_callback(std::move(f)), ack_code, is_grey, pkt_version, "using json msg callback");
}

send_option::send_option(int wait_ms, timedout_function timedout, error_function error, nbr_function f,
                         unsigned short ack_code, bool is_grey, unsigned short pkt_version)
    : send_option() {
    fill(*this, timedout_option(wait_ms, std::move(timedout)), std::move(error),
         message_callback(std::move(f)), ack_code, is_grey, pkt_version, "using nbr msg callback");
}

send_option::send_option(int wait_ms, timedout_function timedout, error_function error, ptr_function f,
                         unsigned short ack_code, bool is_grey, unsigned short pkt_version)
    : send_option() {
    fill(*this, timedout_option(wait_ms, std::move(timedout)), std::move(error),
         message_callback(std::move(f)), ack_code, is_grey, pkt_version, "using ptr msg callback");
}

send_option::send_option(int wait_ms, timedout_function timedout, bool is_grey, unsigned short pkt_version)
    : send_option() {
    fill(*this, timedout_option(wait_ms, std::move(timedout)), is_grey, pkt_version);
    log_constructed("no msg callback", detail::here("tav::tls::send_option::send_option"));
}

send_option::send_option(timedout_option const & timedout, error_function error,
                         message_callback const & callback, unsigned short ack_code, bool is_grey,
                         unsigned short pkt_version)
    : send_option() {
    fill(*this, timedout, std::move(error), callback, ack_code, is_grey, pkt_version, "using all");
}

send_option::send_option(timedout_option const & timedout, bool is_grey, unsigned short pkt_version)
    : send_option() {
    fill(*this, timedout, is_grey, pkt_version);
    log_constructed("timedout option only", detail::here("tav::tls::send_option::send_option"));
}

send_option::send_option(send_option const & other) = default;

send_option::send_option(send_option && other) = default;

send_option & send_option::operator=(send_option const & other) = default;

send_option & send_option::operator=(send_option && other) = default;

bool send_option::empty() const {
    return timedout_option::empty();
}

void send_option::clear() {
    timedout_option::clear();
    on_error_ = nullptr;
    callback_.clear();
}

void send_option::set_json_ack_callback(json_function f) {
    callback_ = message_callback(std::move(f));
}

void send_option::set_nbr_ack_callback(nbr_function f) {
    callback_ = message_callback(std::move(f));
}

void send_option::set_base_ack_callback(obj_function f) {
    callback_ = message_callback(std::move(f));
}

void send_option::set_ptr_ack_callback(ptr_function f) {
    callback_ = message_callback(std::move(f));
}

bool send_option::on_json_ack(unsigned long long seq, unsigned short msgcode, char const * json,
                              tavMsgExt const & msg_ext) {
    return callback_.on_json_msg(send_level_, seq, msgcode, json, msg_ext);
}

bool send_option::on_nbr_ack(unsigned long long seq, unsigned short msgcode, unsigned char const * data,
                             unsigned int size, tavMsgExt const & msg_ext) {
    return callback_.on_nbr_msg(send_level_, seq, msgcode, data, size, msg_ext);
}

bool send_option::on_base_ack(unsigned long long seq, tavMessage const & msg) {
    return callback_.on_base_msg(send_level_, seq, msg);
}

bool send_option::on_ptr_ack(unsigned long long seq, tavSharedPtr<tavMessage> msg) {
    return callback_.on_ptr_msg(send_level_, seq, std::move(msg));
}

bool send_option::on_error(unsigned long long seq, unsigned short msgcode, int code, std::string text) {
    return fire_error(on_error_, send_level_, seq, msgcode, code, std::move(text),
                      detail::here("tav::tls::send_option::on_error"));
}

std::ostream & operator<<(std::ostream & out, send_option const & v) {
    std::string text;
    int const wait = v.wait_ms();
    if (wait > 0) {
        text += max_waiting(wait) + " ";
    }
    callback_type const type = v.callback_.type();
    if (type != callback_none) {
        text += kind_word(type);
        text += ' ';
    }
    if (v.ack < no_code) {
        text += "ack 0x" + hex4(v.ack) + " ";
    }
    if (v.grey) {
        text += "grey ";
    }
    return out << text + "version " + std::to_string(v.version);
}

future_obj::future_obj() : error_(0) {}

future_obj::~future_obj() = default;

std::error_code future_obj::error() const noexcept {
    return make_error_code(static_cast<failure>(error_.load()));
}

void future_obj::error(failure v) noexcept {
    int none = 0;
    error_.compare_exchange_strong(none, static_cast<int>(v));
}

void future_obj::lock() const {
    monitor_.lock();
}

void future_obj::unlock() const {
    monitor_.unlock();
}

connect_info::~connect_info() = default;

send_info::~send_info() = default;

std::ostream & operator<<(std::ostream & out, send_info const & v) {
    return out << "sno = #" << v.sno() << ", send result = " << v.result();
}

} // namespace tls
} // namespace tav
