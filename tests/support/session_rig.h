#ifndef TAV_TESTS_SUPPORT_SESSION_RIG_H
#define TAV_TESTS_SUPPORT_SESSION_RIG_H

#include "client/vinta_tls_client_impl_session.h"

#include "support/tls_peer.h"

#include <asio/executor_work_guard.hpp>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

/// What stands around sessions in a client, for tests: the I/O thread, and a record of all events.
namespace tav_test {

namespace impl = tav::tls::impl;

/// Waits until `done` holds, at most `ms` milliseconds.
template <class Done>
bool eventually(Done const & done, int ms = peer_limit_ms) {
    auto const end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    while (!done()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return true;
}

/// Something that is closed until it is opened.
class Gate {
public:
    void open() {
        std::lock_guard<std::mutex> const guard(mutex_);
        open_ = true;
        changed_.notify_all();
    }
    /// Waits until it is open, and counts who waits.
    void pass() {
        std::unique_lock<std::mutex> guard(mutex_);
        ++arrived_;
        changed_.notify_all();
        changed_.wait_for(guard, std::chrono::milliseconds(peer_limit_ms), [&] { return open_; });
    }
    /// Waits until `n` have come.
    bool waitArrived(unsigned n = 1) {
        std::unique_lock<std::mutex> guard(mutex_);
        return changed_.wait_for(guard, std::chrono::milliseconds(peer_limit_ms),
                                 [&] { return arrived_ >= n; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool open_ = false;
    unsigned arrived_ = 0;
};

/// Things that happened, in order, as texts.
class Events {
public:
    void add(std::string event) {
        std::lock_guard<std::mutex> const guard(mutex_);
        all_.push_back(std::move(event));
        changed_.notify_all();
    }
    /// Waits until there are `n` events; false when that has not come in time.
    bool wait(std::size_t n, int ms = peer_limit_ms) const {
        std::unique_lock<std::mutex> guard(mutex_);
        return changed_.wait_for(guard, std::chrono::milliseconds(ms), [&] { return all_.size() >= n; });
    }
    std::vector<std::string> all() const {
        std::lock_guard<std::mutex> const guard(mutex_);
        return all_;
    }
    std::size_t count() const { return all().size(); }
    std::size_t count(std::string const & event) const {
        std::vector<std::string> const events = all();
        return static_cast<std::size_t>(std::count(events.begin(), events.end(), event));
    }

private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::vector<std::string> all_;
};

/// A context with its I/O thread.  Sessions made here are closed when it goes.
class SessionRig {
public:
    using session_ptr = tavSharedPtr<impl::session>;

    explicit SessionRig(std::string name = "<rig>") : name_(std::move(name)) {
        context_ = std::make_shared<impl::context>(tav_istr(name_));
        io_thread_ = std::thread([this] { run(); });
    }
    ~SessionRig() {
        // A session that was closed on its own timer's thread is let go there a moment later.  It must not
        // end there: OpenSSL orders what threads do to its objects by means that the thread sanitizer does
        // not see.
        std::vector<session_ptr> const kept = sessions_;
        stop();
        for (session_ptr const & each : kept) {
            eventually([&each] { return each->getRefCount() == 1; }, 2000);
        }
    }
    SessionRig(SessionRig const &) = delete;
    SessionRig & operator=(SessionRig const &) = delete;

    /// Closes all sessions and ends the I/O thread.
    void stop() {
        for (session_ptr const & each : sessions_) {
            each->close();
        }
        if (io_thread_.joinable()) {
            context_->close();
            io_thread_.join();
        }
        sessions_.clear();
    }

    /// An option for this address whose events are recorded.
    tav::tls::connect_option option(std::string host, std::string port) {
        tav::tls::connect_option out;
        out.host = std::move(host);
        out.port = std::move(port);
        out.set_on_open([this] { events.add("open"); });
        out.set_on_heartbeat_timedout([this] { events.add("heartbeat timedout"); });
        out.set_on_error([this](unsigned long long sno, unsigned short msgcode, int code, char const * text) {
            last_error_sno = sno;
            last_error_msgcode = msgcode;
            last_error_code = code;
            events.add(std::string("error ") + text);
        });
        return out;
    }
    tav::tls::connect_option option(TlsPeer const & peer) { return option("127.0.0.1", peer.portText()); }

    /// A new session, not opened yet.  Its bodies are recorded.
    session_ptr make(tav::tls::connect_option const & option) {
        session_ptr const made(new impl::session(
            tav_istr(name_), context_,
            [this](tavBytes const & body) {
                std::string const bytes(reinterpret_cast<char const *>(body.data()), body.size());
                if (on_body) {
                    on_body(bytes);
                }
                bodies.add(bytes);
            },
            option, [this] { return frozen_at != 0 ? frozen_at.load() : impl::session::steady_ms(); },
            counted));
        sessions_.push_back(made);
        return made;
    }

    /// A session that is connecting and has no threads: its ticks are the test's, and bodies come on the I/O
    /// thread.
    session_ptr startBare(tav::tls::connect_option const & option) {
        session_ptr const made = make(option);
        made->connect();
        return made;
    }
    session_ptr connectBare(TlsPeer & peer, std::unique_ptr<TlsConnection> & server) {
        return finish(startBare(option(peer)), peer, server);
    }

    /// A new session that is connecting.
    session_ptr start(tav::tls::connect_option const & option) {
        session_ptr const made = make(option);
        made->open();
        made->connect();
        return made;
    }

    /// A connected session, with the far end in `server`.
    session_ptr connect(TlsPeer & peer, std::unique_ptr<TlsConnection> & server) {
        return connect(peer, server, option(peer));
    }
    session_ptr connect(TlsPeer & peer, std::unique_ptr<TlsConnection> & server,
                        tav::tls::connect_option const & option) {
        return finish(start(option), peer, server);
    }

    /// Runs `f` on the I/O thread and waits for its end.
    void onIoThread(std::function<void()> const & f) {
        std::atomic<bool> done{false};
        context_->post([&] {
            f();
            done = true;
        });
        eventually([&] { return done.load(); });
    }

    /// Waits until the I/O thread has done all that was posted to it by now.
    void settle() {
        onIoThread([] {});
    }

    /// Stops the sessions' clock.
    void freeze() { frozen_at = impl::session::steady_ms(); }
    /// Moves the stopped clock.
    void advance(long long ms) { frozen_at += ms; }

    /// Drops what this object holds of a session.
    void forget(session_ptr const & gone) {
        for (auto each = sessions_.begin(); each != sessions_.end(); ++each) {
            if (*each == gone) {
                sessions_.erase(each);
                return;
            }
        }
    }

    std::shared_ptr<impl::context> const & context() const { return context_; }

    Events events;
    Events bodies;
    /// What completions threw.
    Events exceptions;
    std::function<void(std::string const &)> on_body;
    std::atomic<unsigned long long> last_error_sno{0};
    std::atomic<unsigned> last_error_msgcode{0};
    std::atomic<int> last_error_code{0};
    std::atomic<long long> frozen_at{0};
    /// Of all sessions made here.
    std::shared_ptr<impl::counters> const counted = std::make_shared<impl::counters>();

private:
    session_ptr finish(session_ptr const & made, TlsPeer & peer, std::unique_ptr<TlsConnection> & server) {
        std::size_t const before = events.count("open");
        server = peer.accept();
        if (!server->handshake() || !eventually([&] { return events.count("open") > before; })) {
            throw std::runtime_error("the session did not connect");
        }
        return made;
    }

    void run() {
        auto const work = asio::make_work_guard(context_->io_context());
        for (;;) {
            try {
                context_->run();
                return;
            } catch (std::exception const & e) {
                exceptions.add(e.what());
            }
        }
    }

    std::string const name_;
    std::shared_ptr<impl::context> context_;
    std::vector<session_ptr> sessions_;
    std::thread io_thread_;
};

} // namespace tav_test

#endif
