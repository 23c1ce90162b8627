#include "client/vinta_tls_client_impl.h"

#include "client/no_message.h"
#include "client/process_exit.h"
#include "client/thread_role.h"
#include "client/vinta_tls_client_impl_log.h"
#include "foundation/report.h"
#include "foundation/scope_exit.h"

#include <mutex>
#include <new>
#include <system_error>
#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

using detail::here;

constexpr long long connect_quiet_ms = 3000;
constexpr int keep_alive_seconds = 10;
constexpr int exception_code = -10;
/// How long a start waits for one before it that is still looking up its host.
constexpr int lookup_patience_ms = 500;
constexpr int wait_slice_ms = 50;

using Lock = std::lock_guard<tavMutex const>;

std::string nameOf(tav_istr name, void const * object) {
    if (!name.empty()) {
        return "<" + std::string(name) + ">";
    }
    std::uintptr_t const address = reinterpret_cast<std::uintptr_t>(object);
    return "<" + std::to_string(((address >> 16) ^ address) & 0xffffu) + ">";
}

/// A connect_info on its way through the queue: if its task is dropped or fails before it has ended, it ends
/// as cancelled.
class Journey {
public:
    explicit Journey(std::shared_ptr<connect_info> info) : info_(std::move(info)) {}
    ~Journey() {
        if (info_ && info_->result() < 0) {
            info_->on_conn_cancel();
        }
    }
    Journey(Journey const &) = delete;
    Journey & operator=(Journey const &) = delete;

    std::shared_ptr<connect_info> const & info() const { return info_; }
    void arrived() { info_.reset(); }

private:
    std::shared_ptr<connect_info> info_;
};

/// A connect that runs out of time may fail a second time.
void count_failed(counters & counted, connect_info & info) {
    if (!info.failed().exchange(true)) {
        counters::add(counted.connects_failed);
    }
}

/// What there is no memory for is told all the same, in a text that needs none.
std::string said_by(std::exception const & e) noexcept {
    try {
        return e.what();
    } catch (std::bad_alloc const &) {
        return "no memory";
    }
}

using policy_ptr = std::shared_ptr<tls_policy const>;

/// Whether two starts are given one policy; an empty one is none.
bool is_same_policy(policy_ptr const & a, policy_ptr const & b) {
    bool const a_none = !a || a->empty();
    bool const b_none = !b || b->empty();
    return a_none == b_none && (a_none || a == b);
}

} // namespace

Client::Client(tav_istr name, session::clock_function clock)
    : option_(std::make_shared<connect_option>()),
      metainfo_(std::make_shared<metainfo>(std::string())),
      id_generator_(tavTime::now()),
      last_connect_ms_(-connect_quiet_ms),
      name_(nameOf(name, this)),
      main_queue_(std::make_shared<tavTaskQueue>(tav_istr(name_ + "session"), 1)),
      error_queue_(std::make_shared<tavTaskQueue>(tav_istr(name_ + "global.on_error"), 1)),
      clock_(clock ? std::move(clock) : session::clock_function(&session::steady_ms)) {}

Client::~Client() = default;

void Client::init__() {
    log_parts(tavLogger::INFO, here("tav::tls::impl::Client::init__"), name_, " Client init");
    auto const self = shared_from_this();
    context_thread_ = tavSharedPtr<tavThread>(new tavThread_(
        tav_istr(name_ + "io.context"), [self] { return self->on_context_loop(); },
        [self] { self->on_context_stop(); }, [self] { return self->on_context_open(); },
        [self] { self->on_context_close(); }));
    context_thread_->start();
    if (open_failure_) {
        std::rethrow_exception(open_failure_);
    }
    main_queue_->start();
    error_queue_->start();
}

void Client::fini__() {
    if (finished_.exchange(true)) {
        return;
    }
    log_parts(tavLogger::INFO, here("tav::tls::impl::Client::fini__"), name_, " Client fini");
    log_parts(tavLogger::INFO, here("tav::tls::impl::Client::close__"), name_, " close...");
    try {
        post([self = shared_from_this()] {
            self->on_close();
            self->closed_at_end_ = true;
        });
    } catch (std::bad_alloc const & e) {
        // An end needs no memory: it comes about below, on this thread.
        detail::reportCaught(here("tav::tls::impl::Client::fini__"), e.what());
    }

    std::shared_ptr<tavTaskQueue> queue;
    {
        Lock const guard(fields_);
        queue.swap(main_queue_);
    }
    queue->close();
    if (!closed_at_end_) {
        // In the place of the queue, for what the application's functions may wait for.
        thread_role const role(context_.get(), thread_role::session);
        on_close();
    }
    // The tasks that never ran go with the queue; they hold this client.
    queue.reset();

    {
        Lock const guard(fields_);
        queue.swap(error_queue_);
    }
    queue->close();
    queue.reset();

    if (context_thread_) {
        context_thread_->close();
        context_thread_ = tavSharedPtr<tavThread>();
    }
}

Client::connect_ptr Client::start__(connect_option const & option, bool reuseConnected) {
    detail::Site const site = here("tav::tls::impl::Client::start__");
    if (option.host.empty()) {
        set_last_failure(failure::bad_address);
        log_parts(tavLogger::ERROR, site, name_, " host is empty");
        return nullptr;
    }
    if (option.port.empty()) {
        set_last_failure(failure::bad_address);
        log_parts(tavLogger::ERROR, site, name_, " port is empty");
        return nullptr;
    }
    connect_ptr const last = connecting();
    if (last && !thread_role::needed_to_connect(context_.get())) {
        log_parts(tavLogger::WARN, site, name_, " last start not complete, wait it...");
        result_type const result = last->wait(wait_slice_ms, [this] { return !hangs_in_lookup(); });
        log_line(tavLogger::WARN, site, [&](std::ostream & out) {
            out << name_ << " last start not complete, wait result = " << result;
        });
        if (result >= 0) {
            take_connecting(last);
        }
    }
    if (reuseConnected && connected()) {
        auto const present = this->option();
        if (present->host == option.host && present->port == option.port &&
            is_same_policy(present->policy, option.policy)) {
            log_line(tavLogger::WARN, site, [&](std::ostream & out) {
                out << name_ << " connected already, no need to start again";
            });
            return std::make_shared<connect_info>(name_);
        }
    }
    Lock const guard(requests_mutex_);
    auto const info = std::make_shared<connect_info>(name_, option.timedout, context_.get(), era_);
    auto const journey = std::make_shared<Journey>(info);
    post([self = shared_from_this(), journey, option] {
        self->on_start(journey->info(), option);
        journey->arrived();
    });
    return info;
}

Client::connect_ptr Client::reconnect__(timedout_option const & option, bool reuseConnected) {
    detail::Site const site = here("tav::tls::impl::Client::reconnect__");
    if (connect_ptr const last = connecting()) {
        log_line(tavLogger::WARN, site, [&](std::ostream & out) {
            out << name_ << " last reconnect not complete, return directly";
        });
        last->busy();
        set_last_failure(failure::busy);
        return last;
    }
    if (reuseConnected && connected()) {
        log_line(tavLogger::WARN, site,
                 [&](std::ostream & out) { out << name_ << " connected already, no need to reconnect"; });
        return std::make_shared<connect_info>(name_);
    }
    Lock const guard(requests_mutex_);
    auto const info = std::make_shared<connect_info>(name_, option, context_.get(), era_);
    auto const journey = std::make_shared<Journey>(info);
    post([self = shared_from_this(), journey, option] {
        self->on_reconnect(journey->info(), option);
        journey->arrived();
    });
    return info;
}

void Client::close__() {
    log_parts(tavLogger::INFO, here("tav::tls::impl::Client::close__"), name_, " close...");
    Lock const guard(requests_mutex_);
    ++era_;
    post([self = shared_from_this()] { self->on_close(); });
}

void Client::cancel_all__() {
    log_parts(tavLogger::INFO, here("tav::tls::impl::Client::cancel_all__"), name_, " cancel all");
    post([self = shared_from_this()] { self->cancel_all_i(); });
}

void Client::io(tavCodecStream & s) {
    s.enter("client", tav_istr());
    ioField(s, 1, "metainfo", *meta());
    s.leave();
}

tavSharedPtr<session> Client::current() const {
    Lock const guard(fields_);
    return session_;
}

bool Client::connected() const {
    auto const present = current();
    return present && present->connected();
}

unsigned short Client::get_next_sno() {
    unsigned short const sno = static_cast<unsigned short>(id_generator_.nextSno());
    return sno != 0 ? sno : static_cast<unsigned short>(id_generator_.nextSno());
}

bool Client::on_context_open() {
    log_parts(tavLogger::INFO, here("tav::tls::impl::Client::on_context_open"), name_, " io context open");
    try {
        auto const made = std::make_shared<context>(tav_istr(name_));
        keep_alive_timer_ = std::make_shared<asio::steady_timer>(made->io_context());
        context_ = made;
        thread_role::belong(context_.get());
        keep_alive();
    } catch (...) {
        // For the one who makes the client, since the thread would take the process with it.
        open_failure_ = std::current_exception();
        keep_alive_timer_.reset();
        context_.reset();
        return false;
    }
    return true;
}

bool Client::on_context_loop() {
    detail::Site const site = here("tav::tls::impl::Client::on_context_loop");
    log_parts(tavLogger::INFO, site, name_, " io context loop begin...");
    if (on_context_run()) {
        return true;
    }
    log_parts(tavLogger::INFO, site, name_, " io context loop end.");
    return false;
}

bool Client::on_context_run() {
    // Outside of the context's own run too, as what a completion threw is told here.
    thread_role const role(context_.get(), thread_role::io);
    try {
        context_->run();
        return false;
    } catch (std::bad_alloc const & e) {
        on_no_memory(e);
    } catch (std::exception const & e) {
        on_exception(e);
    } catch (...) {
        detail::reportCaught(here("tav::tls::impl::Client::on_context_run"));
    }
    return true;
}

void Client::on_context_close() {
    log_parts(tavLogger::INFO, here("tav::tls::impl::Client::on_context_close"), name_, " io context close");
    if (!context_) {
        return;
    }
    keep_alive_timer_->cancel();
    // If a completion threw as the loop was told to end, what was ready is still there and holds its session.
    while (on_context_run()) {
    }
}

void Client::on_context_stop() {
    stop_context();
}

void Client::stop_context() {
    log_parts(tavLogger::INFO, here("tav::tls::impl::Client::stop_context"), name_, " stop io context");
    if (context_) {
        context_->close();
    }
}

void Client::keep_alive() {
    keep_alive_timer_->expires_after(std::chrono::seconds(keep_alive_seconds));
    // Its only work is that the loop always has some; the handler lives no longer than the context.
    keep_alive_timer_->async_wait([this](std::error_code const &) { keep_alive(); });
}

// Which step of the connection was lost nobody knows: it ends, and that is told.
void Client::on_no_memory(std::bad_alloc const & e) {
    if (auto const present = current()) {
        detail::reportCaught(here("tav::tls::impl::Client::on_exception"), e.what());
        present->fail(std::make_error_code(std::errc::not_enough_memory));
    } else {
        on_exception(e);
    }
}

void Client::on_exception(std::exception const & e) {
    detail::reportCaught(here("tav::tls::impl::Client::on_exception"), e.what());
    try {
        auto const present = current();
        bool const misread = present && present->cause() == failure::bad_frame;
        tell_error(session_era_, misread ? failure::bad_frame : named_exception(), *option(), no_sno, no_code,
                   exception_code, said_by(e));
        process_exit::pass();
    } catch (...) {
        detail::reportCaught(here("tav::tls::impl::Client::on_exception"));
    }
}

void Client::post(std::function<void()> task) {
    std::shared_ptr<tavTaskQueue> queue;
    {
        Lock const guard(fields_);
        queue = main_queue_;
    }
    if (queue) {
        queue->put([client = context_.get(), work = std::move(task)] {
            thread_role::belong(client);
            thread_role const role(client, thread_role::session);
            work();
        });
    }
}

void Client::on_start(connect_ptr const & info, connect_option const & option) {
    log_parts(tavLogger::INFO, here("tav::tls::impl::Client::on_start"), name_, " on_start...");
    counters::add(counted_->connects_begun);
    checkConnect("start");
    cancel_all_i();
    auto const fresh = std::make_shared<connect_option>(option);
    auto retired = fresh;
    {
        Lock const guard(fields_);
        option_.swap(retired);
    }
    std::shared_ptr<metainfo> described;
    try {
        described = std::make_shared<metainfo>(option.metainfo);
    } catch (std::exception const & e) {
        // The application hears of it as of any start that fails; the queue's loop has the log line.
        info->cause() = failure::bad_template;
        on_connect_error(info, fresh, no_sno, no_code, exception_code, e.what());
        info->on_conn_error();
        throw;
    }
    {
        Lock const guard(fields_);
        metainfo_.swap(described);
        connecting_ = info;
    }
    renew(info);
    auto const present = current();
    if (present && !present->socket().should_verify()) {
        log_parts(tavLogger::WARN, here("tav::tls::impl::Client::on_start"), name_,
                  " no certificates to trust were given: any peer is believed");
    }
}

void Client::on_reconnect(connect_ptr const & info, timedout_option const & option) {
    log_parts(tavLogger::INFO, here("tav::tls::impl::Client::on_reconnect"), name_, " on_reconnect...");
    counters::add(counted_->connects_begun);
    checkConnect("reconnect");
    cancel_all_i();
    {
        Lock const guard(fields_);
        connecting_ = info;
    }
    if (!option.empty()) {
        this->option()->timedout = option;
    }
    renew(info);
}

void Client::on_close() {
    log_parts(tavLogger::INFO, here("tav::tls::impl::Client::on_close"), name_, " on_close...");
    cancel_all_i();
    close_session();
}

void Client::cancel_all_i() {
    detail::Site const site = here("tav::tls::impl::Client::cancel_all_i");
    log_parts(tavLogger::INFO, site, name_, " cancel all");
    if (connect_ptr const last = connecting()) {
        log_parts(tavLogger::INFO, site, name_, " cancel connecting...");
        last->cancel();
        take_connecting(last);
    }
    if (auto const present = current()) {
        present->cancel_all();
    }
}

void Client::checkConnect(char const * what) {
    long long const now = clock_();
    long long const elapsed = now - last_connect_ms_;
    if (elapsed > 0 && elapsed < connect_quiet_ms) {
        log_line(tavLogger::INFO, here("tav::tls::impl::Client::checkConnect"), [&](std::ostream & out) {
            out << name_ << " " << what << " too fast, sleep " << connect_quiet_ms - elapsed
                << "ms....(no support)";
        });
    }
    last_connect_ms_ = now;
}

void Client::renew(connect_ptr const & info) {
    try {
        close_session();
        auto const fresh = make_session(info);
        {
            Lock const guard(fields_);
            session_ = fresh;
        }
        session_era_ = info->era();
        fresh->connect();
    } catch (std::exception const & e) {
        // The application hears of it as of any connect that fails; the queue's loop has the log line.
        close_session();
        failure none = failure::none;
        info->cause().compare_exchange_strong(none, named_exception());
        auto const * const of_system = dynamic_cast<std::system_error const *>(&e);
        on_connect_error(info, option(), no_sno, no_code,
                         of_system != nullptr ? of_system->code().value() : exception_code, e.what());
        throw;
    }
}

tavSharedPtr<session> Client::make_session(connect_ptr const & info) {
    auto const self = shared_from_this();
    std::shared_ptr<connect_option> const told = option();
    connect_option own = *told;
    own.set_on_error(
        [self, info, told](unsigned long long sno, unsigned short msgcode, int code, char const * text) {
            self->on_connect_error(info, told, sno, msgcode, code, text);
        });
    auto const opened = std::make_shared<session *>(nullptr);
    own.set_on_open([self, info, told, opened] { self->on_connect_open(info, *told, **opened); });
    own.timedout.set_on_timedout(
        [self, info, told](unsigned long long sno, unsigned short msgcode, bool cancelled) {
            self->on_connect_timedout(info, *told, sno, msgcode, cancelled);
        });
    tavSharedPtr<session> fresh(new session(
        name_, context_, [self](tavBytes frame) { self->on_recv(std::move(frame)); }, own, clock_, counted_,
        std::shared_ptr<std::atomic<failure>>(info, &info->cause()), teller_));
    *opened = &*fresh;
    try {
        fresh->open();
    } catch (...) {
        fresh->close();
        throw;
    }
    return fresh;
}

bool Client::close_session() {
    auto const last = current();
    if (!last) {
        return false;
    }
    last->close();
    Lock const guard(fields_);
    session_ = tavSharedPtr<session>();
    return true;
}

// Whether it is still open is asked at the call itself: another attempt may have taken its place while the
// application's log took the lines of it.
void Client::on_connect_open(connect_ptr const & info, connect_option & told, session const & opened) {
    log_parts(tavLogger::INFO, here("tav::tls::impl::Client::on_connect_open"), name_, " connect ok");
    info->up() = true;
    counters::add(counted_->connects_up);
    detail::ScopeExit const end([taken = take_connecting(info)] {
        if (taken) {
            taken->on_conn_connected();
        }
    });
    if (!told.on_open_) {
        return;
    }
    connect_option asking;
    asking.set_on_open([&told, &opened] {
        if (opened.state() == session_state::connected) {
            told.on_open_();
        }
    });
    asking.on_open();
}

void Client::on_connect_error(connect_ptr const & info, std::shared_ptr<connect_option> const & told,
                              unsigned long long sno, unsigned short msgcode, int code, char const * text) {
    log_line(tavLogger::INFO, here("tav::tls::impl::Client::on_connect_error"),
             [&](std::ostream & out) { out << name_ << " connect error <" << code << ">" << text; });
    if (!info->up()) {
        count_failed(*counted_, *info);
    }
    failure const cause = info->cause();
    connect_ptr const taken = take_connecting(info);
    std::shared_ptr<tavTaskQueue> queue;
    {
        Lock const guard(fields_);
        queue = error_queue_;
    }
    detail::ScopeExit const end([&] {
        if (taken) {
            taken->on_conn_error();
        }
    });
    if (queue) {
        try {
            queue->put([self = shared_from_this(), era = info->era(), cause, told, sno, msgcode, code,
                        said = std::string(text)]() mutable {
                thread_role::belong(self->context_.get());
                thread_role const role(self->context_.get(), thread_role::error);
                self->tell_error(era, cause, *told, sno, msgcode, code, std::move(said));
            });
        } catch (std::bad_alloc const &) {
            // Told on this thread: better than not at all.
            tell_error(info->era(), cause, *told, sno, msgcode, code, "no memory");
        }
    }
}

// Asked when its turn has come, and again at the call itself: a close may have returned since it was queued,
// and while the application's log took the line of it.
void Client::tell_error(unsigned era, failure why, connect_option & told, unsigned long long sno,
                        unsigned short msgcode, int code, std::string text) {
    if (closed_since(era) || !told.on_error_) {
        return;
    }
    failure_scope const named(why != failure::none ? why : failure::other);
    std::unique_ptr<connect_option> asking;
    try {
        asking = std::make_unique<connect_option>();
        asking->set_on_error([this, era, f = told.on_error_](unsigned long long number, unsigned short msg,
                                                             int error, char const * said) {
            if (!closed_since(era)) {
                f(number, msg, error, said);
            }
        });
    } catch (std::bad_alloc const &) {
        asking.reset();
    }
    (asking ? *asking : told).on_error(sno, msgcode, code, std::move(text));
}

void Client::on_connect_timedout(connect_ptr const & info, connect_option & told, unsigned long long sno,
                                 unsigned short msgcode, bool cancelled) {
    log_line(tavLogger::INFO, here("tav::tls::impl::Client::on_connect_timedout"), [&](std::ostream & out) {
        out << name_ << " connect " << (cancelled ? "cancelled" : "timedout");
    });
    if (!cancelled && !info->up()) {
        count_failed(*counted_, *info);
    }
    detail::ScopeExit const end([taken = take_connecting(info), cancelled] {
        if (taken && cancelled) {
            taken->on_conn_cancel();
        } else if (taken) {
            taken->on_conn_timedout();
        }
    });
    failure_scope const why(cancelled ? failure::cancelled : failure::timed_out);
    told.timedout.on_timedout(sno, msgcode, cancelled);
}

bool Client::on_own_thread() const {
    return thread_role::of_client(key());
}

Client::connect_ptr Client::take_connecting(connect_ptr const & info) {
    Lock const guard(fields_);
    return connecting_ == info ? std::move(connecting_) : nullptr;
}

Client::connect_ptr Client::connecting() const {
    connect_ptr last;
    {
        Lock const guard(fields_);
        last = connecting_;
    }
    return last && last->result() < 0 ? last : nullptr;
}

bool Client::hangs_in_lookup() const {
    auto const present = current();
    return present && present->resolving_ms() > lookup_patience_ms;
}

std::shared_ptr<connect_option> Client::option() const {
    Lock const guard(fields_);
    return option_;
}

std::shared_ptr<metainfo> Client::meta() const {
    Lock const guard(fields_);
    return metainfo_;
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
