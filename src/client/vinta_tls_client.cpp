#include "tav/vinta/vinta_tls_client.h"

#include "client/end_elsewhere.h"
#include "client/no_message.h"
#include "client/process_exit.h"
#include "client/vinta_tls_client_impl.h"
#include "client/vinta_tls_client_impl_log.h"
#include "foundation/platform.h"
#include "foundation/report.h"
#include "tav/vinta/vinta_basetypes_util.h"
#include "tav/vinta/vinta_mt_thread.h"

#include <atomic>
#include <chrono>
#include <forward_list>
#include <list>
#include <map>
#include <mutex>
#include <set>
#include <utility>
#include <vector>

namespace tav {
namespace tls {

/// The exported class knows the core by this name, since the core's own namespace carries the build's stamp.
struct client::Core : impl::Client {
    using impl::Client::Client;
};

namespace {

using detail::here;
using detail::Site;
/// Of the public class.
using Lock = std::lock_guard<tavMutex const>;
using ClientMap = std::map<std::string, std::shared_ptr<client>>;

/// The process-wide registries.  They are made at first use and never destroyed, so that a client that ends
/// with the process still finds them.  A forked child begins with empty ones: the threads of its parent's
/// clients are not in it, so there these clients can be neither used nor ended.
struct client_registry {
    detail::Guarding<tavMutex> names_mutex;
    ClientMap names TAV_GUARDED_BY(names_mutex);
    detail::Guarding<tavMutex> all_mutex;
    std::set<client const *> all TAV_GUARDED_BY(all_mutex);
    /// Those of the process that forked this one.
    client_registry * former = nullptr;
};

detail::Mutex registry_making;
client_registry * parents_registry TAV_GUARDED_BY(registry_making) = nullptr;
std::atomic<client_registry *> present_registry{nullptr};

client_registry & registry() {
    client_registry * the = present_registry.load(std::memory_order_acquire);
    if (the == nullptr) {
        detail::Guard const guard(registry_making);
        the = present_registry.load(std::memory_order_relaxed);
        if (the == nullptr) {
            the = new client_registry;
            the->former = parents_registry;
            present_registry.store(the, std::memory_order_release);
        }
    }
    return *the;
}

[[maybe_unused]] bool const forks_are_watched = platform::aroundFork(
    []() TAV_AROUND_FORK { registry_making.lock(); }, []() TAV_AROUND_FORK { registry_making.unlock(); },
    []() TAV_AROUND_FORK {
        if (client_registry * const parents = present_registry.exchange(nullptr)) {
            parents_registry = parents;
        }
        registry_making.unlock();
    });

/// Whether `one` was made by this process, not by the one that forked it.
bool is_own(client const * one) {
    detail::Guard const guard(registry().all_mutex);
    return registry().all.count(one) != 0;
}

/// Keeps the core of a client of the parent's for ever: its end would wait for threads that are not here.
void keep(std::shared_ptr<void> core) {
    static auto & kept = *new std::forward_list<std::shared_ptr<void>>;
    kept.push_front(std::move(core));
}

void log_text(Site site, std::string const & id, char const * words) {
    log_line(tavLogger::INFO, site, [&](std::ostream & out) { out << id << words; });
}

void log_code(Site site, std::string const & id, char const * words, unsigned short msgcode) {
    log_line(tavLogger::INFO, site,
             [&](std::ostream & out) { out << id << words << asHex(msgcode, 4, true); });
}

/// The call that ends a client on the calling thread.
thread_local char const * ending_call = "client::~client";

/// Names the call while it lives.
class call_name {
public:
    explicit call_name(char const * call) : before_(ending_call) { ending_call = call; }
    ~call_name() { ending_call = before_; }
    call_name(call_name const &) = delete;
    call_name & operator=(call_name const &) = delete;

private:
    char const * const before_;
};

/// How long the end of the process waits for clients that end on threads of their own.
constexpr std::chrono::seconds ends_limit(5);

/// Ends a core.  One of its own threads would wait for itself, so that another one does it then.
void end_core(std::shared_ptr<impl::Client> core, Site site) {
    if (impl::process_exit::begun()) {
        // Its threads stay as they are, and use it.
        static auto & kept = *new std::list<std::shared_ptr<impl::Client>>;
        static auto & mutex = *new std::mutex;
        std::lock_guard<std::mutex> const guard(mutex);
        kept.push_back(std::move(core));
        return;
    }
    if (!core->on_own_thread()) {
        core->fini__();
        return;
    }
    auto const thread = std::string(tav_istr(tavThread::currentName()));
    log_line(tavLogger::ERROR, site, [&](std::ostream & out) {
        out << core->name() << " " << ending_call << " on the client's own thread " << thread
            << ", which it would have to wait for: let another thread end the client";
    });
    log_line(tavLogger::WARN, site, [&](std::ostream & out) {
        out << core->name() << " the client is ended on another thread, as " << thread
            << " is one of its own";
    });
    void const * const key = core->key();
    impl::end_elsewhere(key, [held = std::move(core)] { held->fini__(); });
}

/// What is left of the end of the process when the named clients have ended.
void finish_process(Site site) {
    if (!impl::process_exit::begun()) {
        impl::wait_for_ends(ends_limit);
    }
    std::vector<std::string> left;
    {
        detail::Guard const guard(registry().all_mutex);
        for (client const * other : registry().all) {
            left.push_back(other->id());
        }
    }
    for (std::string const & id : left) {
        log_line(tavLogger::INFO, site,
                 [&](std::ostream & out) { out << "finalize: client not deleted: " << id; });
    }
    tavLogger::close();
    tavThread::printThreads();
    tavIdGenerator::finalize();
    tavLogger::finalize();
    log_line(tavLogger::INFO, site, [](std::ostream & out) { out << "finalized."; });
}

std::string text_or_empty(char const * text) {
    return text ? text : std::string();
}

/// Begins a call that `last_failure` tells of; null if the client has ended.
template <class Core>
std::shared_ptr<Core> begun(std::shared_ptr<Core> core) {
    impl::set_last_failure(core ? failure::none : failure::closed);
    return core;
}

void log_arg(Site site, std::string const & id, tavMessage const & msg, char const * expected,
             tavMessage const * ack, int wait_ms, bool grey, unsigned short version) {
    log_line(tavLogger::INFO, site, [&](std::ostream & out) {
        out << id << " send arg 0x" << asHex(msg.msgcode(), 4, true) << expected
            << asHex(ack ? ack->msgcode() : no_code, 4, true) << std::dec << ", wait " << wait_ms
            << "ms, grey " << grey << ", version " << version;
    });
}

void log_sent(Site site, std::string const & id, std::shared_ptr<send_info> const & info) {
    log_line(tavLogger::INFO, site, [&](std::ostream & out) {
        out << id << " send result: ";
        if (info) {
            out << *info;
        } else {
            out << "empty";
        }
    });
}

} // namespace

client::client(tav_istr name) : id_("<" + std::string(name) + ">") {
    {
        detail::Guard const guard(registry().all_mutex);
        registry().all.insert(this);
    }
    log_text(here("tav::tls::client::client"), id_, " client construct");
    try {
        init(name);
    } catch (...) {
        detail::Guard const guard(registry().all_mutex);
        registry().all.erase(this);
        throw;
    }
}

client::~client() {
    log_text(here("tav::tls::client::~client"), id_, " client destruct");
    if (!is_own(this)) {
        keep(std::move(impl_));
        return;
    }
    fini();
    detail::Guard const guard(registry().all_mutex);
    registry().all.erase(this);
}

client & client::instance(tav_istr name) {
    detail::Guard const guard(registry().names_mutex);
    std::string key(name);
    auto const found = registry().names.find(key);
    if (found != registry().names.end()) {
        return *found->second;
    }
    log_line(tavLogger::INFO, here("tav::tls::client::instance"),
             [&](std::ostream & out) { out << "<" << name << "> client instance creating..."; });
    auto made = std::make_shared<client>(name);
    return *registry().names.emplace(std::move(key), std::move(made)).first->second;
}

bool client::destroy(tav_istr name) {
    std::shared_ptr<client> taken;
    {
        detail::Guard const guard(registry().names_mutex);
        auto const found = registry().names.find(std::string(name));
        if (found == registry().names.end()) {
            return false;
        }
        taken = std::move(found->second);
        registry().names.erase(found);
    }
    {
        call_name const call("client::destroy");
        taken.reset();
    }
    log_line(tavLogger::INFO, here("tav::tls::client::destroy"),
             [&](std::ostream & out) { out << "<" << name << "> client instance destroyed."; });
    return true;
}

void client::finalize() {
    Site const site = here("tav::tls::client::finalize");
    log_line(tavLogger::DEBUG, site, [](std::ostream & out) { out << "finalizing..."; });
    // The entries stay while their clients end, so that a callback which asks for one finds that one.
    ClientMap names;
    {
        detail::Guard const guard(registry().names_mutex);
        names = registry().names;
    }
    bool on_own_thread = false;
    for (auto const & entry : names) {
        call_name const call("client::finalize");
        log_line(tavLogger::INFO, site,
                 [&](std::ostream & out) { out << "finalize: client " << entry.second->id(); });
        {
            Lock const guard(entry.second->mutex_);
            on_own_thread = on_own_thread || (entry.second->impl_ && entry.second->impl_->on_own_thread());
        }
        entry.second->close();
        entry.second->fini();
    }
    names.clear();
    {
        detail::Guard const guard(registry().names_mutex);
        names.swap(registry().names);
    }
    names.clear();
    if (on_own_thread) {
        impl::end_elsewhere(nullptr, [site] { finish_process(site); });
    } else {
        finish_process(site);
    }
}

std::string client::id() const {
    Lock const guard(mutex_);
    return impl_ ? impl_->name() : id_;
}

void client::io(tavCodecStream & s) {
    if (auto const core = alive(here("tav::tls::client::io"))) {
        core->io(s);
    }
}

std::shared_ptr<connect_info> client::start(connect_option const & option, bool reuseConnected) {
    Site const site = here("tav::tls::client::start");
    auto const core = begun(alive(site));
    if (!core) {
        return nullptr;
    }
    log_line(tavLogger::INFO, site, [&](std::ostream & out) {
        out << core->name() << " starting... " << option << " reuseConnected=" << reuseConnected;
    });
    return core->start__(option, reuseConnected);
}

std::shared_ptr<connect_info> client::start(char const * host, char const * port, char const * ca,
                                            char const * metainfo, global_callback const & callback,
                                            timedout_option const & timedout, char const * cipher,
                                            bool reuseConnected) {
    Site const site = here("tav::tls::client::start");
    auto const core = begun(alive(site));
    if (!core) {
        return nullptr;
    }
    connect_option option;
    option.host = text_or_empty(host);
    option.port = text_or_empty(port);
    option.ca = text_or_empty(ca);
    option.metainfo = text_or_empty(metainfo);
    option.cipher = text_or_empty(cipher);
    option.callback_ = callback;
    option.on_error_ = callback.on_error_;
    option.on_heartbeat_timedout_ = callback.on_heartbeat_timedout_;
    option.timedout = timedout;
    option.on_open_ = callback.on_open_;
    option.on_http_proxy_connect_ = callback.on_http_proxy_connect_;
    option.proxy_host = callback.proxy_host_;
    option.proxy_port = callback.proxy_port_;
    option.server_name = callback.server_name_;
    option.reserved_ = callback.reserved_;
    log_line(tavLogger::INFO, site, [&](std::ostream & out) {
        out << core->name() << " starting... " << option.host << ":" << option.port;
    });
    return start(option, reuseConnected);
}

std::shared_ptr<connect_info> client::reconnect(timedout_option const & timedout, bool reuseConnected) {
    Site const site = here("tav::tls::client::reconnect");
    auto const core = begun(alive(site));
    if (!core) {
        return nullptr;
    }
    log_line(tavLogger::INFO, site, [&](std::ostream & out) {
        out << core->name() << " reconnecting... " << timedout << " reuseConnected=" << reuseConnected;
    });
    return core->reconnect__(timedout, reuseConnected);
}

void client::close() {
    Site const site = here("tav::tls::client::close");
    if (auto const core = alive(site)) {
        log_text(site, core->name(), " closing...");
        core->close__();
    }
}

void client::cancel_all() {
    Site const site = here("tav::tls::client::cancel_all");
    if (auto const core = alive(site)) {
        log_text(site, core->name(), " cancel all");
        core->cancel_all__();
    }
}

bool client::connected() const {
    Site const site = here("tav::tls::client::connected");
    auto const core = alive(site);
    if (!core) {
        return false;
    }
    bool const result = core->connected();
    log_line(tavLogger::DEBUG, site,
             [&](std::ostream & out) { out << core->name() << " connected = " << result; });
    return result;
}

void client::should_check_heartbeat(bool v) {
    Site const site = here("tav::tls::client::should_check_heartbeat");
    auto const core = alive(site);
    if (!core) {
        return;
    }
    log_line(tavLogger::INFO, site,
             [&](std::ostream & out) { out << core->name() << " check comm heartbeat = " << v; });
    if (auto const session = core->current()) {
        session->check_heartbeat(v);
    }
}

ip_port client::get_local_addr() {
    Site const site = here("tav::tls::client::get_local_addr");
    auto const core = alive(site);
    if (!core) {
        return ip_port();
    }
    auto const session = core->current();
    ip_port const address = session ? session->socket().local_addr() : ip_port();
    log_line(tavLogger::DEBUG, site,
             [&](std::ostream & out) { out << core->name() << " self addr = " << address; });
    return address;
}

ip_port client::get_remote_addr() {
    Site const site = here("tav::tls::client::get_remote_addr");
    auto const core = alive(site);
    if (!core) {
        return ip_port();
    }
    auto const session = core->current();
    ip_port const address = session ? session->socket().remote_addr() : ip_port();
    log_line(tavLogger::DEBUG, site,
             [&](std::ostream & out) { out << core->name() << " peer addr = " << address; });
    return address;
}

tls_report client::negotiated() const {
    auto const core = alive(here("tav::tls::client::negotiated"));
    auto const session = core ? core->current() : tavSharedPtr<impl::session>();
    return session ? session->negotiated() : tls_report();
}

std::shared_ptr<send_info> client::send_msg(tavMessage const & msg, send_option const & option) {
    Site const site = here("tav::tls::client::send_msg");
    auto const core = begun(alive(site));
    if (!core) {
        return nullptr;
    }
    log_code(site, core->name(), " send msg obj 0x", msg.msgcode());
    auto const info = core->messages().send(msg, option);
    log_sent(site, core->name(), info);
    return info;
}

std::shared_ptr<send_info> client::send_msg(tavSharedPtr<tavMessage> msg, send_option const & option) {
    Site const site = here("tav::tls::client::send_msg");
    auto const core = begun(alive(site));
    if (!core) {
        return nullptr;
    }
    log_code(site, core->name(), " send msg ptr 0x", msg ? msg->msgcode() : no_code);
    auto const info = core->messages().send(msg, option);
    log_sent(site, core->name(), info);
    return info;
}

std::shared_ptr<send_info> client::send_json_msg(char const * json, send_option const & option,
                                                 char const * class_or_code) {
    Site const site = here("tav::tls::client::send_json_msg");
    auto const core = begun(alive(site));
    if (!core) {
        return nullptr;
    }
    log_line(tavLogger::INFO, site, [&](std::ostream & out) {
        out << core->name() << " send json msg @" << tav_istr(class_or_code);
    });
    auto const info = core->messages().send_json(tav_istr(json), option, tav_istr(class_or_code));
    log_sent(site, core->name(), info);
    return info;
}

std::shared_ptr<send_info> client::send_nbr_msg(unsigned short msgcode, unsigned char const * data,
                                                unsigned int size, send_option const & option,
                                                tav_istr target) {
    Site const site = here("tav::tls::client::send_nbr_msg");
    auto const core = begun(alive(site));
    if (!core) {
        return nullptr;
    }
    log_code(site, core->name(), " send nbr msg 0x", msgcode);
    auto const info = core->messages().send_nbr(msgcode, tav_istr(data, size), option, target);
    log_sent(site, core->name(), info);
    return info;
}

std::shared_ptr<send_info> client::send_old_nbr_msg(unsigned char msgcode, tav_istr body, tav_istr target) {
    Site const site = here("tav::tls::client::send_old_nbr_msg");
    auto const core = begun(alive(site));
    if (!core) {
        return nullptr;
    }
    log_code(site, core->name(), " send old nbr msg 0x", msgcode);
    auto const info = core->messages().send_old_nbr(msgcode, body, target);
    log_sent(site, core->name(), info);
    return info;
}

result_type client::send_and_wait(tavMessage const & msg, tavMessage & ack, int wait_ms, bool grey,
                                  unsigned short version) {
    return send_and_wait(nullptr, msg, ack, wait_ms, grey, version);
}

result_type client::send_and_wait(tavMessage const & msg, tavSharedPtr<tavMessage> ack, int wait_ms,
                                  bool grey, unsigned short version) {
    Site const site = here("tav::tls::client::send_and_wait");
    auto const core = begun(alive(site));
    if (!core) {
        return result_error;
    }
    log_arg(site, core->name(), msg, ", expect ack ptr 0x", ack.get(), wait_ms, grey, version);
    result_type const result = core->messages().send_and_wait(msg, ack, wait_ms, grey, version, nullptr);
    log_line(tavLogger::INFO, site,
             [&](std::ostream & out) { out << core->name() << " send and wait result = " << result; });
    return result;
}

result_type client::send_and_wait(std::shared_ptr<send_info> * out, tavMessage const & msg, tavMessage & ack,
                                  int wait_ms, bool grey, unsigned short version) {
    Site const site = here("tav::tls::client::send_and_wait");
    auto const core = begun(alive(site));
    if (!core) {
        return result_error;
    }
    log_arg(site, core->name(), msg, ", expect ack obj 0x", &ack, wait_ms, grey, version);
    result_type const result = core->messages().send_and_wait(msg, ack, wait_ms, grey, version, out);
    log_line(tavLogger::INFO, site,
             [&](std::ostream & line) { line << core->name() << " send and wait result = " << result; });
    return result;
}

void client::on_msg(unsigned short msgcode, obj_function f) {
    Site const site = here("tav::tls::client::on_msg");
    if (auto const core = alive(site)) {
        log_code(site, core->name(), " setup type level obj msg callback, msgcode = 0x", msgcode);
        core->messages().callbacks().set_type(msgcode, msg_type_callback(std::move(f)));
    }
}

void client::on_msg(unsigned short msgcode, ptr_function f) {
    Site const site = here("tav::tls::client::on_msg");
    if (auto const core = alive(site)) {
        log_code(site, core->name(), " setup type level ptr msg callback, msgcode = 0x", msgcode);
        core->messages().callbacks().set_type(msgcode, msg_type_callback(std::move(f)));
    }
}

void client::on_json_msg(unsigned short msgcode, json_function f) {
    Site const site = here("tav::tls::client::on_json_msg");
    if (auto const core = alive(site)) {
        log_code(site, core->name(), " setup type level json msg callback, msgcode = 0x", msgcode);
        core->messages().callbacks().set_type(msgcode, msg_type_callback(std::move(f)));
    }
}

void client::on_json_msg(char const * className, json_function f) {
    Site const site = here("tav::tls::client::on_json_msg");
    if (auto const core = alive(site)) {
        log_line(tavLogger::INFO, site, [&](std::ostream & out) {
            out << core->name() << " setup type level json msg callback, class = " << tav_istr(className);
        });
        core->messages().callbacks().set_type(core->meta()->find_code_by_class(className),
                                              msg_type_callback(std::move(f)));
    }
}

void client::on_nbr_msg(unsigned short msgcode, nbr_function f) {
    Site const site = here("tav::tls::client::on_nbr_msg");
    if (auto const core = alive(site)) {
        log_code(site, core->name(), " setup type level nbr msg callback, msgcode = 0x", msgcode);
        core->messages().callbacks().set_type(msgcode, msg_type_callback(std::move(f)));
    }
}

void client::set_old_msg_default_callback(nbr_function f) {
    Site const site = here("tav::tls::client::set_old_msg_default_callback");
    if (auto const core = alive(site)) {
        log_text(site, core->name(), " set old msg callback");
        core->messages().callbacks().set_old(std::move(f));
    }
}

void client::register_class(tav_istr name, std::function<tavObject *()> creator) {
    Site const site = here("tav::tls::client::register_class");
    if (auto const core = alive(site)) {
        log_line(tavLogger::INFO, site,
                 [&](std::ostream & out) { out << core->name() << " register object class " << name; });
        core->messages().factory().register_class(name, std::move(creator));
    }
}

void client::unregister_class(tav_istr name) {
    Site const site = here("tav::tls::client::unregister_class");
    if (auto const core = alive(site)) {
        log_line(tavLogger::INFO, site,
                 [&](std::ostream & out) { out << core->name() << " unregister object class " << name; });
        core->messages().factory().unregister_class(name);
    }
}

void client::register_message(unsigned short msgcode, std::function<tavObject *()> creator) {
    Site const site = here("tav::tls::client::register_message");
    if (auto const core = alive(site)) {
        log_code(site, core->name(), " register message msgcode = 0x", msgcode);
        core->messages().factory().register_message(msgcode, std::move(creator));
    }
}

void client::unregister_message(unsigned short msgcode) {
    Site const site = here("tav::tls::client::unregister_message");
    if (auto const core = alive(site)) {
        log_code(site, core->name(), " unregister message msgcode = 0x", msgcode);
        core->messages().factory().unregister_message(msgcode);
    }
}

tavSharedPtr<tavMessage> client::createMessage(unsigned short msgcode) {
    Site const site = here("tav::tls::client::createMessage");
    auto const core = alive(site);
    if (!core) {
        return nullptr;
    }
    log_code(site, core->name(), " creating message msgcode = 0x", msgcode);
    return core->messages().factory().create_message(msgcode);
}

tavSharedPtr<tavMessage> client::createMessage(tav_istr class_or_code) {
    Site const site = here("tav::tls::client::createMessage");
    auto const core = alive(site);
    if (!core) {
        return nullptr;
    }
    log_line(tavLogger::INFO, site, [&](std::ostream & out) {
        out << core->name() << " creating message class_or_code = " << class_or_code;
    });
    return core->messages().factory().create_message(class_or_code);
}

tavSharedPtr<tavObject> client::createObject(tav_istr name) {
    Site const site = here("tav::tls::client::createObject");
    auto const core = alive(site);
    if (!core) {
        return nullptr;
    }
    log_line(tavLogger::INFO, site,
             [&](std::ostream & out) { out << core->name() << " creating object class = " << name; });
    return core->messages().factory().create_object(name);
}

tavString client::find_class_by_code(unsigned short msgcode) {
    Site const site = here("tav::tls::client::find_class_by_code");
    auto const core = alive(site);
    if (!core) {
        return tavString();
    }
    tavString const name = core->meta()->find_class_by_code(msgcode);
    log_line(tavLogger::DEBUG, site, [&](std::ostream & out) {
        out << core->name() << " found class " << name << " by msgcode 0x" << asHex(msgcode, 4, true);
    });
    return name;
}

unsigned short client::find_code_by_class(char const * name) const {
    Site const site = here("tav::tls::client::find_code_by_class");
    auto const core = alive(site);
    if (!core) {
        return 0;
    }
    unsigned short const code = core->meta()->find_code_by_class(name);
    log_line(tavLogger::DEBUG, site, [&](std::ostream & out) {
        out << core->name() << " by class " << tav_istr(name) << " found msgcode 0x" << asHex(code, 4, true);
    });
    return code;
}

tav::tls::statistics client::statistics() const {
    auto const core = alive(here("tav::tls::client::statistics"));
    return core ? core->counted().copy() : tav::tls::statistics();
}

unsigned short client::get_next_sno() {
    auto const core = alive(here("tav::tls::client::get_next_sno"));
    return core ? core->messages().get_next_sno() : static_cast<unsigned short>(0);
}

void client::init(tav_istr name) {
    Site const site = here("tav::tls::client::init");
    {
        Lock const guard(mutex_);
        if (impl_) {
            log_text(site, id_, " initialized already.");
            return;
        }
    }
    log_text(site, id_, " initializing...");
    auto const made = std::make_shared<Core>(name);
    try {
        made->init__();
    } catch (...) {
        made->fini__();
        throw;
    }
    Lock const guard(mutex_);
    impl_ = made;
}

void client::fini() {
    Site const site = here("tav::tls::client::fini");
    std::shared_ptr<Core> taken;
    {
        Lock const guard(mutex_);
        taken = impl_;
    }
    if (!taken) {
        log_text(site, id_, " finalized already.");
        return;
    }
    log_text(site, id_, " finalizing...");
    end_core(std::move(taken), site);
    Lock const guard(mutex_);
    impl_.reset();
}

std::shared_ptr<client::Core> client::alive(Site const & site) const {
    {
        Lock const guard(mutex_);
        if (impl_) {
            return impl_;
        }
    }
    detail::log(tavLogger::DEFAULT_TAG(), tavLogger::ERROR, site,
                [](std::ostream & out) { out << "<ASSERT FAILURE> impl_ != nullptr"; });
    return nullptr;
}

} // namespace tls
} // namespace tav
