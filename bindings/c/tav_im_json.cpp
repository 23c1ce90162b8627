#include "tav/kit/tav_im_json.h"

#include "bindings/c/session.h"

#include <cstdint>
#include <deque>
#include <map>
#include <new>

namespace {

using namespace tav::json_client;
using SessionPtr = std::shared_ptr<Session>;

/// The clients by their handles.
class Registry {
public:
    /// There is one, and it stays: threads may call while the process ends.
    static Registry & instance() {
        union Place {
            Place() : registry() {}
            ~Place() {}
            Registry registry;
        };
        static Place place;
        return place.registry;
    }

    tav_json_client * add(SessionPtr session) {
        std::lock_guard<std::mutex> const guard(mutex_);
        last_ += step;
        sessions_[last_] = std::move(session);
        return handleOf(last_);
    }

    /// Null if there is none.
    SessionPtr find(tav_json_client * handle) const {
        std::lock_guard<std::mutex> const guard(mutex_);
        auto const found = sessions_.find(keyOf(handle));
        return found != sessions_.end() ? found->second : nullptr;
    }

    /// The client has been destroyed; what is left of it is kept for a while.
    void leave(tav_json_client * handle) {
        SessionPtr dropped;
        std::lock_guard<std::mutex> const guard(mutex_);
        left_.push_back(keyOf(handle));
        if (left_.size() > most_left) {
            auto const oldest = sessions_.find(left_.front());
            if (oldest != sessions_.end()) {
                dropped = std::move(oldest->second);
                sessions_.erase(oldest);
            }
            left_.pop_front();
        }
    }

    void remove(tav_json_client * handle) {
        std::lock_guard<std::mutex> const guard(mutex_);
        sessions_.erase(keyOf(handle));
    }

private:
    static constexpr std::size_t most_left = 16;
    static constexpr std::uintptr_t step = 16;

    // A handle is never followed, only looked up.
    static std::uintptr_t keyOf(tav_json_client * handle) { return reinterpret_cast<std::uintptr_t>(handle); }
    static tav_json_client * handleOf(std::uintptr_t key) {
        return reinterpret_cast<tav_json_client *>(key); // NOLINT(performance-no-int-to-ptr)
    }

    mutable std::mutex mutex_;
    std::uintptr_t last_ = 0;
    std::map<std::uintptr_t, SessionPtr> sessions_;
    std::deque<std::uintptr_t> left_;
};

/// The text that a thread was given last.
std::string & received() {
    thread_local std::string text;
    return text;
}
std::string & executed() {
    thread_local std::string text;
    return text;
}

std::string execute(Session const * session, char const * request) {
    Document document;
    Failure fault(0, std::string(), std::string());
    bool const good = document.read(request != nullptr ? request : "", fault);
    unsigned const at = document.member(Document::root, "@extra");
    std::string const extra = at != 0 ? std::string(document.raw(at)) : std::string();
    try {
        if (!good) {
            throw fault;
        }
        std::string const type = readType(document);
        Fields fields(document, Document::root);
        fields.pass("@type");
        fields.pass("@extra");
        std::string answer;
        if (!serveAtOnce(session, fields, type, extra, answer)) {
            throw Failure(code_unknown_type, "unknown_type",
                          "@type: there is no request " + type + " that is answered at once", "@type");
        }
        return answer;
    } catch (Failure const & e) {
        return errorText(e, extra);
    } catch (std::bad_alloc const &) {
        throw;
    } catch (std::exception const & e) {
        return errorText(failureOf(tav::tls::failure::other, e.what()), extra);
    }
}

} // namespace

tav_json_client * tav_json_create(char const * name) {
    try {
        auto const session = std::make_shared<Session>(name != nullptr ? name : "");
        session->open();
        return Registry::instance().add(session);
    } catch (std::exception const &) {
        return nullptr;
    }
}

int tav_json_send(tav_json_client * client, char const * request) {
    try {
        SessionPtr const session = Registry::instance().find(client);
        return session && session->send(request != nullptr ? request : "") ? 0 : -1;
    } catch (std::bad_alloc const &) {
        return -1;
    }
}

char const * tav_json_receive(tav_json_client * client, double seconds) {
    SessionPtr const session = Registry::instance().find(client);
    if (!session) {
        return nullptr;
    }
    switch (session->receive(received(), seconds)) {
    case Outbox::Found::text: break;
    case Outbox::Found::none: return nullptr;
    case Outbox::Found::gone: Registry::instance().remove(client); return nullptr;
    }
    if (session->isDone()) {
        Registry::instance().remove(client);
    }
    return received().c_str();
}

char const * tav_json_execute(tav_json_client * client, char const * request) {
    try {
        SessionPtr const session = Registry::instance().find(client);
        executed() = execute(session.get(), request);
        return executed().c_str();
    } catch (std::bad_alloc const &) {
        return nullptr;
    }
}

void tav_json_destroy(tav_json_client * client) {
    SessionPtr const session = Registry::instance().find(client);
    if (session && session->end()) {
        try {
            Registry::instance().leave(client);
        } catch (std::bad_alloc const &) {
            Registry::instance().remove(client);
        }
    }
}
