#include "client/vinta_tls_client_impl_session.h"

#include "client/no_message.h"
#include "client/process_exit.h"
#include "client/thread_role.h"
#include "client/vinta_tls_client_impl_log.h"

#include <cerrno>
#include <chrono>
#include <exception>
#include <new>
#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

using tav::detail::here;

constexpr int timer_period_ms = 100;

/// Empty if there is no memory for it.
std::string text(std::error_code ec) noexcept {
    try {
        return std::string(ec.category().name()) + ":" + std::to_string(ec.value());
    } catch (...) {
        return std::string();
    }
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
                 std::shared_ptr<std::atomic<failure>> cause, std::shared_ptr<queue_teller> teller)
    : name_(name),
      clock_(clock ? std::move(clock) : clock_function(&steady_ms)),
      context_(std::move(owner)),
      socket_(context_, name, setup_of(name, option)),
      option_(option),
      account_(std::make_shared<send_account>(option.limits, std::move(counted), std::move(teller))),
      sends_(name_, std::move(cause)),
      heartbeat_(clock_()),
      input_(parts(), std::move(on_recv)),
      output_(parts()),
      broken_(context_->io_context()),
      attempt_({name_, *context_, socket_, option_, state_, sends_}, clock_()),
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
        state_.close();
        log_parts(tavLogger::INFO, here("tav::tls::impl::session::close_socket"), name_, " socket closed.");
        cancel_all();
    } catch (std::exception const & e) {
        tav::detail::reportCaught(here("tav::tls::impl::session::~session"), e.what());
    }
}

void session::open() {
    log_parts(tavLogger::INFO, here("tav::tls::impl::session::open"), name_, " open session");
    start_timer();
    output_.start();
    start_receiver();
}

void session::connect() {
    log_parts(tavLogger::INFO, here("tav::tls::impl::session::connect"), name_, " connect ");
    attempt_.begin(self_ptr(this), clock_());
}

void session::disconnect() {
    log_parts(tavLogger::INFO, here("tav::tls::impl::session::disconnect"), name_, " disconnect");
    active_close();
}

void session::close() {
    log_parts(tavLogger::INFO, here("tav::tls::impl::session::close"), name_, " close session");
    self_ptr const self(this);
    state_.ask_end();
    state_.stop_sends();
    input_.close();
    output_.close();
    close_timer();
    active_close();
    cancel_all();
}

void session::active_close() {
    state_.stop_sends();
    log_parts(tavLogger::VERBOSE, here("tav::tls::impl::session::active_close"), name_, " try active close");
    session_state::step const left = state_.begin_closing();
    if (left == session_state::created) {
        return;
    }
    if (left == session_state::connected) {
        count_end(account_->counted().closes);
    }
    state_.closing_actively(true);
    // The socket fails by this: what it then says is no doing of the peer's.
    sends_.set_cause(failure::cancelled);
    log_parts(tavLogger::INFO, here("tav::tls::impl::session::active_close"), name_, " active closing...");
    close_socket();
}

bool session::passive_close() {
    state_.stop_sends();
    log_parts(tavLogger::VERBOSE, here("tav::tls::impl::session::passive_close"), name_,
              " try passive close");
    session_state::step const left = state_.begin_closing();
    if (left == session_state::created) {
        return false;
    }
    if (left == session_state::connected) {
        count_end(breaks_by(cause()));
    }
    log_parts(tavLogger::INFO, here("tav::tls::impl::session::passive_close"), name_, " passive closing...");
    close_socket();
    return true;
}

void session::count_end(counters::number & by) noexcept {
    if (!end_counted_.exchange(true)) {
        counters::add(by);
    }
}

// What breaks a connection while the application's close waits for a callback is the close's end.
counters::number & session::breaks_by(failure why) const noexcept {
    counters & counted = account_->counted();
    if (state_.end_asked()) {
        return counted.closes;
    }
    switch (why) {
    case failure::closed_by_peer: return counted.breaks_by_peer;
    case failure::peer_silent: return counted.breaks_by_silence;
    default: return counted.breaks_by_error;
    }
}

long long session::resolving_ms() const {
    return attempt_.looking_up() && !state_.ended() ? clock_() - attempt_.begun_ms() : 0;
}

bool session::on_own_thread() const {
    return thread_role::of_session(this);
}

connection_parts session::parts() {
    return {*this, this, name_, clock_, context_, socket_, state_, account_, sends_, heartbeat_};
}

bool session::on_timer(bool stopping) {
    if (stopping) {
        return true;
    }
    thread_role const role(context_.get(), thread_role::timer, this);
    long long const now = clock_();
    int const state = state_.now();
    if (state == session_state::connecting || state == session_state::handshaking) {
        int const elapsed = elapsed_ms(attempt_.begun_ms(), now);
        if (option_.timedout.check_timedout(no_sno, no_code, elapsed)) {
            log_parts(tavLogger::INFO, here("tav::tls::impl::session::on_timer"), name_,
                      " connect timed out ", elapsed, "ms");
        }
    }
    sends_.check_timedout(now);
    output_.retell();
    input_.end_pause();
    if (state_.now() == session_state::connected && heartbeat_.wanted() && !broken_.begun()) {
        if (heartbeat_.due(now)) {
            if (send_raw(nullptr, 0)) {
                counters::add(account_->counted().heartbeats_sent);
            }
            heartbeat_.sent(now);
        }
        heartbeat_.listened(socket_.bytes_received(), now);
        if (input_.paused() && input_.busy()) {
            // What ran above may have taken long.
            heartbeat_.resumed(clock_());
        } else if (heartbeat_.missed(now)) {
            on_heartbeat_timedout();
        }
    }
    return true;
}

tls_report session::negotiated() const {
    return connected() ? socket_.kept_report() : tls_report();
}

void session::connect_up() {
    input_.begin();
}

void session::connect_failed(std::error_code ec, std::string told) {
    on_error(ec, std::move(told));
}

void session::connect_refused(std::string const & why) {
    passive_close();
    option_.on_error(no_sno, no_code, EINVAL, why);
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
    output_.drop_unsent();
    if (state_.end_asked() || (state_.closing_actively() && state_.now() == session_state::closing)) {
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
// its own end.  Without memory to limit that, the end is told at once.
void session::on_broken(std::error_code ec) {
    if (state_.closing_actively() || broken_.told()) {
        sends_.set_cause(named_break(ec));
        on_error(ec);
        return;
    }
    bool in_time = true;
    if (!broken_.begun()) {
        begin_break(ec);
        try {
            if (input_.left()) {
                broken_.limit(receive_queue::rest_limit,
                              [self = self_ptr(this)] { self->end_broken(false); });
            }
        } catch (std::bad_alloc const & e) {
            tav::detail::reportCaught(here("tav::tls::impl::session::on_broken"), e.what());
            in_time = false;
        }
    }
    end_broken(in_time);
}

// It counts as a break from here on, also if the application closes the connection ahead of the word of it.
void session::begin_break(std::error_code ec) {
    state_.stop_sends();
    broken_.begin(ec);
    if (state_.now() == session_state::connected) {
        count_end(breaks_by(cause() != failure::none ? cause() : named_break(ec)));
    }
    // No receipt goes out any more, so that none may keep what came ahead of the break from being read.
    account_->receipts_over();
    input_.end_pause();
}

// Tells the end once nothing is left to wait for, or the time for that is over.
void session::end_broken(bool in_time) {
    if (in_time && input_.left()) {
        return;
    }
    if (broken_.tell()) {
        sends_.set_cause(named_break(broken_.error()));
        on_error(broken_.error());
    }
}

void session::cancel_all() {
    // Under the name of the frames, as all that is told of sends.
    log_parts(tavLogger::INFO,
              site_in("vinta_tls_client_impl_framing.cpp", "tav::tls::impl::session::cancel_all"), name_,
              " cancel session");
    state_.stop_sends();
    sends_.cancel_all(output_.take_left());
    output_.log_waiting();
}

// On the I/O thread the socket is closed at once.  For any other thread it is made to fail at once, and
// closed by the I/O thread as soon as that comes to it.
void session::close_socket() {
    log_parts(tavLogger::DEBUG, here("tav::tls::impl::session::close_socket"), name_, " socket closing...");
    attempt_.cancel_lookup();
    if (context_->runs_here()) {
        close_descriptor();
    } else {
        socket_.shut_down();
        post_close();
    }
    state_.close();
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

void session::close_timer() {
    log_parts(tavLogger::INFO, here("tav::tls::impl::session::close_timer"), name_, " close timer");
    tavSharedPtr<tavTimerThread> timer;
    {
        detail::Guard const guard(timer_mutex_);
        timer.swap(timer_);
    }
    if (timer) {
        end_thread(*timer);
    }
}

void session::close_descriptor() {
    attempt_.cancel();
    broken_.cancel();
    socket_.close();
}

void session::on_heartbeat_timedout() {
    log_parts(tavLogger::INFO, here("tav::tls::impl::session::on_heartbeat_timedout"), name_,
              " on heartbeat timedout");
    sends_.set_cause(failure::peer_silent);
    if (passive_close()) {
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
        detail::Guard const guard(timer_mutex_);
        timer_ = timer;
    }
    timer->start();
}

void session::start_receiver() {
    log_parts(tavLogger::INFO, here("tav::tls::impl::session::start_receiver"), name_, " start receiver");
    input_.start();
}

// A broken connection waits for the last frame; without memory to tell of that, for its limit.
void session::on_all_handled() noexcept {
    if (!broken_.begun()) {
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
