#include "client/vinta_tls_client_impl_session.h"

#include "client/no_message.h"
#include "client/process_exit.h"
#include "client/thread_role.h"
#include "client/vinta_tls_client_impl_log.h"
#include "foundation/platform.h"
#include "foundation/scope_exit.h"

#include <openssl/err.h>
#include <openssl/ssl.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <exception>
#include <new>
#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

using tav::detail::here;

constexpr int timer_period_ms = 100;

/// Clears a flag at the end of a scope.
class clear_at_end {
public:
    explicit clear_at_end(std::atomic<bool> & flag) : flag_(flag) {}
    ~clear_at_end() { flag_ = false; }
    clear_at_end(clear_at_end const &) = delete;
    clear_at_end & operator=(clear_at_end const &) = delete;

private:
    std::atomic<bool> & flag_;
};

/// Empty if there is no memory for it.
std::string text(std::error_code ec) noexcept {
    try {
        return std::string(ec.category().name()) + ":" + std::to_string(ec.value());
    } catch (...) {
        return std::string();
    }
}

/// The text of an error, with what was wrong with the peer's certificate if that was it.
std::string refused_text(std::error_code ec, certificate_refusal const & refusal) noexcept {
    try {
        if (!refusal.reason.empty()) {
            return ec.message() + ": " + refusal.reason + ", subject " + refusal.subject;
        }
    } catch (std::bad_alloc const &) {
    }
    return text_of(ec);
}

std::string text(context::results_type const & results) {
    std::string out;
    for (asio::ip::tcp::endpoint const & endpoint : results) {
        out += out.empty() ? "" : ", ";
        out += endpoint.address().to_string() + ":" + std::to_string(endpoint.port());
    }
    return out;
}

unsigned short port_number(std::string const & port) {
    return static_cast<unsigned short>(std::strtoul(port.c_str(), nullptr, 10));
}

/// Null for an option without a policy, or with an empty one.
std::shared_ptr<tls_setup> setup_of(tav_istr name, connect_option const & option) {
    bool const none = !option.policy || option.policy->empty();
    return none ? nullptr : std::make_shared<tls_setup>(name, option);
}

} // namespace

long long session::steady_ms() {
    auto const passed = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(passed).count();
}

session::session(tav_istr name, std::shared_ptr<context> owner, recv_function on_recv,
                 connect_option const & option, clock_function clock, std::shared_ptr<counters> counted,
                 std::shared_ptr<std::atomic<failure>> cause)
    : name_(name),
      state_(state_created),
      active_closing_(false),
      closing_(false),
      clock_(clock ? std::move(clock) : clock_function(&steady_ms)),
      context_(std::move(owner)),
      socket_(context_, name, setup_of(name, option)),
      resolving_(0),
      looking_up_(false),
      race_(context_->io_context()),
      option_(option),
      account_(std::make_shared<send_account>(option.limits, std::move(counted))),
      sends_(name_, std::move(cause)),
      outgoing_([this] {
          return [self = self_ptr(this)] {
              thread_role::belong(self->context_.get());
              self->drain_outgoing();
          };
      }),
      received_(name_, account_, std::move(on_recv)),
      broken_(context_->io_context()),
      reading_(false),
      writing_(false),
      closed_by_owner_(false),
      connect_begin_ms_(clock_()),
      heartbeat_(clock_()),
      session_id_(0) {
    log_parts(tavLogger::INFO, here("tav::tls::impl::session::session"), name_, " session construct");
}

session::~session() {
    log_parts(tavLogger::INFO, here("tav::tls::impl::session::~session"), name_, " session destruct");
    // Nothing refers to the session any more, no operation of the socket is pending: any thread may close it.
    try {
        log_parts(tavLogger::DEBUG, here("tav::tls::impl::session::close_socket"), name_,
                  " socket closing...");
        close_descriptor();
        state_ = state_closed;
        log_parts(tavLogger::INFO, here("tav::tls::impl::session::close_socket"), name_, " socket closed.");
        cancel_all();
    } catch (std::exception const & e) {
        tav::detail::reportCaught(here("tav::tls::impl::session::~session"), e.what());
    }
}

void session::open() {
    log_parts(tavLogger::INFO, here("tav::tls::impl::session::open"), name_, " open session");
    start_timer();
    outgoing_.start();
    start_receiver();
}

void session::connect() {
    log_parts(tavLogger::INFO, here("tav::tls::impl::session::connect"), name_, " connect ");
    connect_();
}

void session::disconnect() {
    log_parts(tavLogger::INFO, here("tav::tls::impl::session::disconnect"), name_, " disconnect");
    active_close();
}

void session::close() {
    log_parts(tavLogger::INFO, here("tav::tls::impl::session::close"), name_, " close session");
    self_ptr const self(this);
    closed_by_owner_ = true;
    closing_ = true;
    received_.close();
    outgoing_.close();
    close_timer();
    active_close();
    cancel_all();
}

void session::active_close() {
    closing_ = true;
    log_parts(tavLogger::VERBOSE, here("tav::tls::impl::session::active_close"), name_, " try active close");
    state_type const left = begin_closing();
    if (left == state_created) {
        return;
    }
    if (left == state_connected && !is_misread()) {
        counters::add(account_->counted().closes);
    }
    active_closing_ = true;
    log_parts(tavLogger::INFO, here("tav::tls::impl::session::active_close"), name_, " active closing...");
    close_socket();
}

bool session::passive_close() {
    closing_ = true;
    log_parts(tavLogger::VERBOSE, here("tav::tls::impl::session::passive_close"), name_,
              " try passive close");
    if (begin_closing() == state_created) {
        return false;
    }
    log_parts(tavLogger::INFO, here("tav::tls::impl::session::passive_close"), name_, " passive closing...");
    close_socket();
    return true;
}

long long session::resolving_ms() const {
    return looking_up_ && !ended() ? clock_() - connect_begin_ms_ : 0;
}

bool session::on_own_thread() const {
    return thread_role::of_session(this);
}

bool session::on_timer(bool stopping) {
    if (stopping) {
        return true;
    }
    thread_role const role(context_.get(), thread_role::timer, this);
    long long const now = clock_();
    int const state = state_;
    if (state == state_connecting || state == state_handshaking) {
        int const elapsed = elapsed_ms(connect_begin_ms_, now);
        if (option_.timedout.check_timedout(no_sno, no_code, elapsed)) {
            log_parts(tavLogger::INFO, here("tav::tls::impl::session::on_timer"), name_,
                      " connect timed out ", elapsed, "ms");
        }
    }
    sends_.check_timedout(now);
    resume_sending();
    end_pause();
    if (state_ == state_connected && heartbeat_.wanted() && !broken_.begun()) {
        if (heartbeat_.due(now)) {
            if (send_raw(nullptr, 0)) {
                counters::add(account_->counted().heartbeats_sent);
            }
            heartbeat_.sent(now);
        }
        heartbeat_.listened(socket_.bytes_received(), now);
        if (!received_.paused() && heartbeat_.missed(now)) {
            on_heartbeat_timedout();
        }
    }
    return true;
}

void session::connect_() {
    log_parts(tavLogger::VERBOSE, here("tav::tls::impl::session::connect_"), name_, " try connect");
    if (!advance(state_created, state_connecting)) {
        return;
    }
    connect_begin_ms_ = clock_();
    if (!socket_.setup()) {
        context_->init(option_.ca, option_.cipher);
    }
    socket_.init();
    std::string const & host = option_.connect_host();
    std::string const & port = option_.connect_port();
    unsigned short number = 0;
    for (std::string const * const each : {static_cast<std::string const *>(&option_.port), &port}) {
        if (read_port(*each, number) == port_kind::wrong) {
            refuse_port(*each);
            return;
        }
    }
    log_parts(tavLogger::INFO, here("tav::tls::impl::session::connect_"), name_, " resolving ", host, ":",
              port);
    looking_up_ = true;
    resolving_ = context_->async_resolve(host, port,
                                         [self = self_ptr(this)](std::error_code ec, results_type results) {
                                             self->on_resolved(self, ec, std::move(results));
                                         });
    if (ended()) {
        // Closed on the way, by someone who could not know the number yet.
        context_->cancel_resolve(resolving_);
    }
}

// No such port exists, so that there is nothing to resolve and nothing to wait for.
void session::refuse_port(std::string const & port) {
    std::string const text = "port " + port + " is no number from 0 to 65535";
    log_parts(tavLogger::ERROR, here("tav::tls::impl::session::connect_"), name_, " ", text);
    sends_.set_cause(failure::bad_address);
    passive_close();
    option_.on_error(no_sno, no_code, EINVAL, text);
}

void session::on_resolved(self_ptr self, std::error_code ec, results_type results) {
    looking_up_ = false;
    if (ended()) {
        return;
    }
    if (ec) {
        log_parts(tavLogger::ERROR, here("tav::tls::impl::session::on_resolved"), name_, " resolve failed ",
                  text_of(ec), " for ", option_.connect_host(), ":", option_.connect_port());
        sends_.set_cause(named(ec));
        option_.on_error(no_sno, no_code, ec.value(), text_of(ec));
        return;
    }
    if (tavLogger::isLoggable(log_tag, tavLogger::INFO)) {
        log_parts(tavLogger::INFO, here("tav::tls::impl::session::on_resolved"), name_, " connecting to ",
                  text(results));
    }
    set_handshake();
    race_.start(std::move(results), [self = std::move(self)](std::error_code failed, tcp_socket winner) {
        self->on_race_end(self, failed, std::move(winner));
    });
}

void session::set_handshake() {
    SSL * const handle = socket_.native_handle();
    tls_setup const * const setup = socket_.setup().get();
    // The list is always the connection's own, since the context's may be replaced during the handshake.
    if (setup == nullptr && ::SSL_set_cipher_list(handle, option_.cipher_list().c_str()) != 1) {
        ::SSL_set_cipher_list(handle, context_->cipher_list().c_str());
    }
    std::string const & server_name = setup != nullptr ? setup->server_name() : option_.server_name;
    if (!server_name.empty()) {
        ::SSL_ctrl(handle, SSL_CTRL_SET_TLSEXT_HOSTNAME, TLSEXT_NAMETYPE_host_name,
                   const_cast<char *>(server_name.c_str()));
    }
    ::ERR_clear_error();
}

void session::on_race_end(self_ptr self, std::error_code ec, tcp_socket winner) {
    if (!ec) {
        ec = socket_.adopt(std::move(winner), [this] { return !ended(); });
    }
    on_connect_end(std::move(self), ec);
}

void session::on_connect_end(self_ptr self, std::error_code ec) {
    if (ended()) {
        return;
    }
    clear_at_end const end(active_closing_);
    if (ec) {
        log_parts(tavLogger::ERROR, here("tav::tls::impl::session::on_connect_end"), name_,
                  " Connect failed: ", text_of(ec));
        on_error(ec);
        return;
    }
    watch_socket();
    if (option_.on_http_proxy_connect_ && !connect_proxy()) {
        return;
    }
    if (!advance(state_connecting, state_handshaking)) {
        return;
    }
    log_parts(tavLogger::INFO, here("tav::tls::impl::session::on_connect_end"), name_,
              " connected, start client handshake...");
    socket_.stream().async_handshake(asio::ssl::stream_base::client,
                                     [self = std::move(self)](std::error_code failed) mutable {
                                         session & s = *self;
                                         s.on_handshake_end(std::move(self), failed);
                                     });
}

void session::watch_socket() {
    if (!socket_.setup()) {
        return;
    }
    if (std::error_code const ec = socket_.setup()->watch(socket_.lowest_layer().native_handle())) {
        log_parts(tavLogger::WARN, here("tav::tls::impl::session::watch_socket"), name_,
                  " the system does not watch over the connection: ", ec.message());
    }
}

bool session::connect_proxy() {
    log_parts(tavLogger::INFO, here("tav::tls::impl::session::on_connect_end"), name_,
              " http proxy connect ");
    int const descriptor = socket_.lowest_layer().native_handle();
    int result = 0;
    {
        platform::BlockingMode const mode(descriptor);
        result = option_.on_http_proxy_connect(static_cast<unsigned>(descriptor), option_.host.c_str(),
                                               port_number(option_.port));
    }
    process_exit::pass();
    if (result != 0) {
        log_parts(tavLogger::ERROR, here("tav::tls::impl::session::on_connect_end"), name_,
                  " http proxy connect error ", result);
        sends_.set_cause(failure::proxy_refused);
        return false;
    }
    log_parts(tavLogger::INFO, here("tav::tls::impl::session::on_connect_end"), name_,
              " http proxy connect ok");
    return true;
}

void session::on_handshake_end(self_ptr self, std::error_code ec) {
    if (ended()) {
        return;
    }
    if (ec) {
        log_parts(tavLogger::ERROR, here("tav::tls::impl::session::on_handshake_end"), name_,
                  " Handshake failed: ", text_of(ec));
        certificate_refusal const & refusal = socket_.refusal();
        if (!refusal.reason.empty()) {
            sends_.set_cause(refusal.wrong_name ? failure::name_mismatch : failure::certificate_refused);
        }
        on_error(ec, refused_text(ec, refusal));
        return;
    }
    keep_report();
    if (!advance(state_handshaking, state_connected)) {
        return;
    }
    log_parts(tavLogger::INFO, here("tav::tls::impl::session::on_handshake_end"), name_, " handshake ok...");
    try {
        option_.on_open();
        process_exit::pass();
    } catch (...) {
        start_io(std::move(self));
        throw;
    }
    start_io(std::move(self));
}

void session::keep_report() {
    auto const made = socket_.keep_report();
    if (socket_.setup()) {
        log_line(tavLogger::INFO, here("tav::tls::impl::session::keep_report"),
                 [&](std::ostream & out) { out << name_ << " negotiated " << *made; });
    }
}

tls_report session::negotiated() const {
    return connected() ? socket_.kept_report() : tls_report();
}

void session::start_io(self_ptr self) {
    do_read(self);
    if (!writer_.empty() && state_ == state_connected) {
        do_write(std::move(self));
    }
}

void session::on_error(std::error_code ec) {
    on_error(ec, text_of(ec));
}

// Between the end of the session and the word of it nothing asks for memory that it could not do without.  A
// socket that can't be closed, since a proxy callback has done so, is still an end to be told.
void session::on_error(std::error_code ec, std::string told) {
    log_parts(tavLogger::INFO, here("tav::tls::impl::session::on_error"), name_, " on std::error_code ",
              text(ec));
    sends_.set_cause(named(ec));
    cancel_all();
    drop_unsent();
    if (closed_by_owner_ || (active_closing_ && state_ == state_closing)) {
        return;
    }
    std::exception_ptr failed;
    try {
        if (!passive_close()) {
            return;
        }
    } catch (...) {
        failed = std::current_exception();
    }
    log_parts(tavLogger::VERBOSE, here("tav::tls::impl::session::on_error"), name_, " global level on error ",
              text(ec));
    option_.on_error(no_sno, no_code, ec.value(), std::move(told));
    if (failed) {
        std::rethrow_exception(failed);
    }
}

// What came before the end counts: the sends are cancelled and the error is told when it has been handled,
// for which it gets a second.  A failed write leaves the read on, which may still bring something ahead of
// its own end.
void session::on_broken(std::error_code ec) {
    if (active_closing_ || broken_.told()) {
        sends_.set_cause(named_break(ec));
        on_error(ec);
        return;
    }
    if (!broken_.begun()) {
        closing_ = true;
        broken_.begin(ec);
        if (input_left()) {
            broken_.limit(receive_queue::rest_limit, [self = self_ptr(this)] { self->end_broken(false); });
        }
    }
    end_broken(true);
}

// Tells the end once nothing is left to wait for, or the time for that is over.
void session::end_broken(bool in_time) {
    if (in_time && input_left()) {
        return;
    }
    if (broken_.tell()) {
        sends_.set_cause(named_break(broken_.error()));
        on_error(broken_.error());
    }
}

bool session::ended() const {
    int const state = state_;
    return state == state_closing || state == state_closed;
}

bool session::advance(int from, int to) {
    return state_.compare_exchange_strong(from, to);
}

// On the I/O thread the socket is closed at once.  For any other thread it is made to fail at once, and
// closed by the I/O thread as soon as that comes to it.
void session::close_socket() {
    log_parts(tavLogger::DEBUG, here("tav::tls::impl::session::close_socket"), name_, " socket closing...");
    context_->cancel_resolve(resolving_);
    if (context_->runs_here()) {
        close_descriptor();
    } else {
        socket_.shut_down();
        post_close();
    }
    state_ = state_closed;
    log_parts(tavLogger::INFO, here("tav::tls::impl::session::close_socket"), name_, " socket closed.");
}

// Without memory to tell the I/O thread the descriptor, which has been shut down, closes with the session.
void session::post_close() {
    try {
        if (!context_->post([self = self_ptr(this)] { self->close_descriptor(); })) {
            close_descriptor();
        }
    } catch (std::bad_alloc const & e) {
        tav::detail::reportCaught(here("tav::tls::impl::session::close_socket"), e.what());
    }
}

// The state that it left, for the one caller who brings a session with a socket to the closing one; for all
// others the created one.
session::state_type session::begin_closing() {
    int state = state_;
    while (state != state_created && state != state_closing && state != state_closed) {
        if (state_.compare_exchange_weak(state, state_closing)) {
            return static_cast<state_type>(state);
        }
    }
    return state_created;
}

void session::close_timer() {
    log_parts(tavLogger::INFO, here("tav::tls::impl::session::close_timer"), name_, " close timer");
    tavSharedPtr<tavTimerThread> timer;
    {
        std::lock_guard<std::mutex> const guard(timer_mutex_);
        timer.swap(timer_);
    }
    if (timer) {
        end_thread(*timer);
    }
}

void session::close_descriptor() {
    race_.cancel();
    broken_.cancel();
    socket_.close();
}

void session::on_heartbeat_timedout() {
    log_parts(tavLogger::INFO, here("tav::tls::impl::session::on_heartbeat_timedout"), name_,
              " on heartbeat timedout");
    sends_.set_cause(failure::peer_silent);
    if (passive_close()) {
        if (!is_misread()) {
            counters::add(account_->counted().breaks_by_silence);
        }
        failure_scope const why(failure::peer_silent);
        option_.on_heartbeat_timedout();
    }
}

void session::start_timer() {
    log_parts(tavLogger::INFO, here("tav::tls::impl::session::start_timer"), name_, " start timer");
    tavSharedPtr<tavTimerThread> const timer(new tavTimerThread(
        "timer", timer_period_ms,
        [self = self_ptr(this)](bool stopping) {
            thread_role::belong(self->context_.get());
            return self->on_timer(stopping);
        },
        std::function<void()>(), -1));
    {
        std::lock_guard<std::mutex> const guard(timer_mutex_);
        timer_ = timer;
    }
    timer->start();
}

void session::start_receiver() {
    log_parts(tavLogger::INFO, here("tav::tls::impl::session::start_receiver"), name_, " start receiver");
    received_.start(context_.get(),
                    [self = self_ptr(this)](tavBytes body) { self->handle_frame(std::move(body)); });
}

void session::handle_frame(tavBytes body) {
    thread_role const role(context_.get(), thread_role::receiver, this);
    tav::detail::ScopeExit const done([this] { frame_handled(); });
    received_.taken(body);
    received_.deliver(std::move(body));
}

// A pause that the I/O thread could not be told the end of lasts until the next frame or tick.  The peer
// could not be heard meanwhile, which no tick may take for silence once the pause is over.
void session::end_pause() noexcept {
    if (!received_.may_resume()) {
        return;
    }
    heartbeat_.resumed(clock_());
    if (!received_.end_pause()) {
        return;
    }
    try {
        context_->post([self = self_ptr(this)]() mutable {
            session & s = *self;
            s.resume_reading(std::move(self));
        });
    } catch (...) {
        tav::detail::reportCaught(here("tav::tls::impl::session::end_pause"));
        received_.pause_on();
    }
}

// A broken connection waits for the last frame; without memory to tell of that, for its limit.
void session::frame_handled() noexcept {
    bool const last = received_.done();
    end_pause();
    if (!last || !broken_.begun()) {
        return;
    }
    try {
        context_->post([self = self_ptr(this)] { self->end_broken(true); });
    } catch (...) {
        tav::detail::reportCaught(here("tav::tls::impl::session::frame_handled"));
    }
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
