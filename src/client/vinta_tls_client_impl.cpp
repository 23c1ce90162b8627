#include "client/vinta_tls_client_impl.h"

#include "client/no_message.h"
#include "client/process_exit.h"
#include "client/thread_role.h"
#include "client/vinta_tls_client_impl_log.h"
#include "foundation/report.h"

#include <new>
#include <system_error>
#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

using detail::here;

constexpr long long connect_quiet_ms = 3000;
constexpr int exception_code = -10;
/// How long a start waits for one before it that is still looking up its host.
constexpr int lookup_patience_ms = 500;
constexpr int wait_slice_ms = 50;

using Lock = detail::Guard<detail::Guarding<tavMutex>>;

std::string name_of(tav_istr name, void const * object) {
    if (!name.empty()) {
        return "<" + std::string(name) + ">";
    }
    std::uintptr_t const address = reinterpret_cast<std::uintptr_t>(object);
    return "<" + std::to_string(((address >> 16) ^ address) & 0xffffu) + ">";
}

/// A connect_info on its way through the queue: if its task is dropped or fails before it has ended, it ends
/// as cancelled.
class connect_journey {
public:
    explicit connect_journey(std::shared_ptr<connect_info> info) : info_(std::move(info)) {}
    ~connect_journey() {
        if (info_ && info_->result() < 0) {
            info_->on_conn_cancel();
        }
    }
    connect_journey(connect_journey const &) = delete;
    connect_journey & operator=(connect_journey const &) = delete;

    std::shared_ptr<connect_info> const & info() const { return info_; }
    void arrived() { info_.reset(); }

private:
    std::shared_ptr<connect_info> info_;
};

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

class Client::completions final : public io_thread::owner {
public:
    explicit completions(std::shared_ptr<Client> client) : client_(std::move(client)) {}
    void on_exception(std::exception const & e) override { client_->on_exception(e); }
    void on_no_memory(std::bad_alloc const & e) override { client_->on_no_memory(e); }

private:
    std::shared_ptr<Client> const client_;
};

Client::Client(tav_istr name, session::clock_function clock)
    : name_(name_of(name, this)),
      clock_(clock ? std::move(clock) : session::clock_function(&session::steady_ms)),
      io_(name_),
      messages_(name_, present_, io_, counted_),
      main_queue_(tav_istr(name_ + "session"), thread_role::session),
      events_(name_, present_, counted_),
      last_connect_ms_(-connect_quiet_ms) {}

Client::~Client() = default;

void Client::init__() {
    log_parts(tavLogger::INFO, here("tav::tls::impl::Client::init__"), name_, " Client init");
    io_.start(std::make_shared<completions>(shared_from_this()));
    main_queue_.start(key());
    events_.start(key());
}

void Client::fini__() {
    if (finished_.exchange(true)) {
        return;
    }
    log_parts(tavLogger::INFO, here("tav::tls::impl::Client::fini__"), name_, " Client fini");
    log_parts(tavLogger::INFO, here("tav::tls::impl::Client::close__"), name_, " close...");
    try {
        main_queue_.put([self = shared_from_this()] {
            self->on_close();
            self->closed_at_end_ = true;
        });
    } catch (std::bad_alloc const & e) {
        // An end needs no memory: it comes about below, on this thread.
        detail::reportCaught(here("tav::tls::impl::Client::fini__"), e.what());
    }

    std::shared_ptr<void> never_ran = main_queue_.close();
    if (!closed_at_end_) {
        // In the place of the queue, for what the application's functions may wait for.
        thread_role const role(key(), thread_role::session);
        on_close();
    }
    // They hold this client.
    never_ran.reset();
    events_.close();
    io_.close();
}

Client::connect_ptr Client::start__(connect_option const & option, bool reuse_connected) {
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
    connect_ptr const last = present_.connecting();
    if (last && !thread_role::needed_to_connect(key())) {
        log_parts(tavLogger::WARN, site, name_, " last start not complete, wait it...");
        result_type const result = last->wait(wait_slice_ms, [this] { return !hangs_in_lookup(); });
        log_line(tavLogger::WARN, site, [&](std::ostream & out) {
            out << name_ << " last start not complete, wait result = " << result;
        });
        if (result >= 0) {
            present_.take_connecting(last);
        }
    }
    if (reuse_connected && connected()) {
        auto const present = present_.option();
        if (present->host == option.host && present->port == option.port &&
            is_same_policy(present->policy, option.policy)) {
            log_line(tavLogger::WARN, site, [&](std::ostream & out) {
                out << name_ << " connected already, no need to start again";
            });
            return std::make_shared<connect_info>(name_);
        }
    }
    Lock const guard(requests_mutex_);
    auto const info = std::make_shared<connect_info>(name_, option.timedout, key(), events_.era());
    auto const journey = std::make_shared<connect_journey>(info);
    main_queue_.put([self = shared_from_this(), journey, option] {
        self->on_start(journey->info(), option);
        journey->arrived();
    });
    return info;
}

Client::connect_ptr Client::reconnect__(timedout_option const & option, bool reuse_connected) {
    detail::Site const site = here("tav::tls::impl::Client::reconnect__");
    if (connect_ptr const last = present_.connecting()) {
        log_line(tavLogger::WARN, site, [&](std::ostream & out) {
            out << name_ << " last reconnect not complete, return directly";
        });
        last->busy();
        set_last_failure(failure::busy);
        return last;
    }
    if (reuse_connected && connected()) {
        log_line(tavLogger::WARN, site,
                 [&](std::ostream & out) { out << name_ << " connected already, no need to reconnect"; });
        return std::make_shared<connect_info>(name_);
    }
    Lock const guard(requests_mutex_);
    auto const info = std::make_shared<connect_info>(name_, option, key(), events_.era());
    auto const journey = std::make_shared<connect_journey>(info);
    main_queue_.put([self = shared_from_this(), journey, option] {
        self->on_reconnect(journey->info(), option);
        journey->arrived();
    });
    return info;
}

void Client::close__() {
    log_parts(tavLogger::INFO, here("tav::tls::impl::Client::close__"), name_, " close...");
    Lock const guard(requests_mutex_);
    // A close that could not be put leaves the connection as it is, and the word of its end too.
    main_queue_.put([self = shared_from_this()] { self->on_close(); });
    events_.begin_era();
}

void Client::cancel_all__() {
    log_parts(tavLogger::INFO, here("tav::tls::impl::Client::cancel_all__"), name_, " cancel all");
    main_queue_.put([self = shared_from_this()] { self->cancel_all_i(); });
}

void Client::io(tavCodecStream & s) {
    s.enter("client", tav_istr());
    ioField(s, 1, "metainfo", *meta());
    s.leave();
}

bool Client::connected() const {
    auto const present = current();
    return present && present->connected();
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
        events_.tell_error(session_era_, misread ? failure::bad_frame : named_exception(), *present_.option(),
                           no_sno, no_code, exception_code, said_by(e));
        process_exit::pass();
    } catch (...) {
        detail::reportCaught(here("tav::tls::impl::Client::on_exception"));
    }
}

void Client::on_start(connect_ptr const & info, connect_option const & option) {
    log_parts(tavLogger::INFO, here("tav::tls::impl::Client::on_start"), name_, " on_start...");
    counters::add(counted_->connects_begun);
    check_connect("start");
    cancel_all_i();
    auto const fresh = std::make_shared<connect_option>(option);
    auto const retired = present_.replace(fresh);
    std::shared_ptr<metainfo> described;
    try {
        described = std::make_shared<metainfo>(option.metainfo);
    } catch (std::exception const & e) {
        // The application hears of it as of any start that fails; the queue's loop has the log line.
        failure const why = named_exception();
        info->cause() = why == failure::out_of_memory ? why : failure::bad_template;
        events_.on_error(info, fresh, no_sno, no_code, exception_code, e.what(), shared_from_this());
        info->on_conn_error();
        throw;
    }
    present_.begin(info, &described);
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
    check_connect("reconnect");
    cancel_all_i();
    present_.begin(info);
    if (!option.empty()) {
        // Of its own: a function of the earlier limit that runs clears that one behind itself.
        auto const fresh = std::make_shared<connect_option>(*present_.option());
        fresh->timedout = option;
        present_.replace(fresh);
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
    if (connect_ptr const last = present_.connecting()) {
        log_parts(tavLogger::INFO, site, name_, " cancel connecting...");
        last->cancel();
        present_.take_connecting(last);
    }
    if (auto const present = current()) {
        present->cancel_all();
    }
}

void Client::check_connect(char const * what) {
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
        present_.replace(fresh);
        session_era_ = info->era();
        fresh->connect();
    } catch (std::exception const & e) {
        // The application hears of it as of any connect that fails; the queue's loop has the log line.  The
        // end of what there is so far is no cause of its own.
        failure none = failure::none;
        info->cause().compare_exchange_strong(none, named_exception());
        close_session();
        auto const * const of_system = dynamic_cast<std::system_error const *>(&e);
        events_.on_error(info, present_.option(), no_sno, no_code,
                         of_system != nullptr ? of_system->code().value() : exception_code, e.what(),
                         shared_from_this());
        throw;
    }
}

tavSharedPtr<session> Client::make_session(connect_ptr const & info) {
    auto const self = shared_from_this();
    std::shared_ptr<connect_option> const told = present_.option();
    connect_option own = *told;
    own.set_on_error(
        [self, info, told](unsigned long long sno, unsigned short msgcode, int code, char const * text) {
            self->events_.on_error(info, told, sno, msgcode, code, text, self);
        });
    auto const opened = std::make_shared<session *>(nullptr);
    own.set_on_open([self, info, told, opened] { self->events_.on_open(info, *told, **opened); });
    own.timedout.set_on_timedout(
        [self, info, told](unsigned long long sno, unsigned short msgcode, bool cancelled) {
            self->events_.on_timedout(info, *told, sno, msgcode, cancelled);
        });
    tavSharedPtr<session> fresh(new session(
        name_, io_.io(), [self](tavBytes frame) { self->messages_.on_recv(std::move(frame)); }, own, clock_,
        counted_, std::shared_ptr<std::atomic<failure>>(info, &info->cause()), teller_));
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
    present_.replace(tavSharedPtr<session>());
    return true;
}

bool Client::on_own_thread() const {
    return thread_role::of_client(key());
}

bool Client::hangs_in_lookup() const {
    auto const present = current();
    return present && present->resolving_ms() > lookup_patience_ms;
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
