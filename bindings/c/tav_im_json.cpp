#include "tav/kit/tav_im_json.h"

#include "bindings/c/session.h"

#include <cstdint>
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
        sessions_[last_].session = std::move(session);
        return handleOf(last_);
    }

    /// Null if there is none.
    SessionPtr find(tav_json_client * handle) const {
        std::lock_guard<std::mutex> const guard(mutex_);
        auto const found = sessions_.find(keyOf(handle));
        return found != sessions_.end() ? found->second.session : nullptr;
    }

    /// The client has been destroyed.  What is left of it stays until it has been received; if nobody
    /// receives it, until later ones need its room.
    void leave(tav_json_client * handle) noexcept {
        std::lock_guard<std::mutex> const guard(mutex_);
        auto const found = sessions_.find(keyOf(handle));
        if (found == sessions_.end()) {
            return;
        }
        found->second.left = ++leaves_;
        found->second.bytes = overhead + found->second.session->bytes();
        left_bytes_ += found->second.bytes;
        if (left_bytes_ > most_left_bytes) {
            dropAlone(found);
        }
    }

    void remove(tav_json_client * handle) {
        std::lock_guard<std::mutex> const guard(mutex_);
        auto const found = sessions_.find(keyOf(handle));
        if (found != sessions_.end()) {
            erase(found);
        }
    }

private:
    static constexpr std::size_t most_left_bytes = 16u << 20u;
    /// What a client that was destroyed takes besides its texts.
    static constexpr std::size_t overhead = 4096;
    static constexpr std::uintptr_t step = 16;

    struct Entry {
        SessionPtr session;
        /// The number of its end; 0 before that.
        unsigned long long left = 0;
        std::size_t bytes = 0;
    };
    using Entries = std::map<std::uintptr_t, Entry>;

    // A handle is never followed, only looked up.
    static std::uintptr_t keyOf(tav_json_client * handle) { return reinterpret_cast<std::uintptr_t>(handle); }
    static tav_json_client * handleOf(std::uintptr_t key) {
        return reinterpret_cast<tav_json_client *>(key); // NOLINT(performance-no-int-to-ptr)
    }

    static bool isAlone(Entry const & entry) noexcept {
        return entry.left != 0 && !entry.session->isReceivedFrom();
    }

    /// Lets go of those from which nobody receives, the first that was destroyed first, while they take too
    /// much; not of `last`.
    void dropAlone(Entries::iterator last) noexcept {
        for (;;) {
            std::size_t bytes = 0;
            auto oldest = sessions_.end();
            for (auto at = sessions_.begin(); at != sessions_.end(); ++at) {
                if (isAlone(at->second)) {
                    bytes += at->second.bytes;
                    bool const earlier = oldest == sessions_.end() || at->second.left < oldest->second.left;
                    oldest = earlier && at != last ? at : oldest;
                }
            }
            if (bytes <= most_left_bytes || oldest == sessions_.end()) {
                return;
            }
            erase(oldest);
        }
    }

    void erase(Entries::iterator at) noexcept {
        left_bytes_ -= at->second.bytes;
        sessions_.erase(at);
    }

    mutable std::mutex mutex_;
    std::uintptr_t last_ = 0;
    Entries sessions_;
    unsigned long long leaves_ = 0;
    std::size_t left_bytes_ = 0;
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
        return errorText(failureOf(tav::tls::failure::other, wordsOf(e)), extra);
    }
}

} // namespace

tav_json_client * tav_json_create(char const * name) {
    try {
        auto const session = Session::create(name != nullptr ? name : "");
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
        Registry::instance().leave(client);
    }
}
