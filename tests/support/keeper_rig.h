#ifndef TAV_TESTS_SUPPORT_KEEPER_RIG_H
#define TAV_TESTS_SUPPORT_KEEPER_RIG_H

#include "tav/kit/keeper.h"

#include "support/bounded.h"
#include "support/talk_rig.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

/// What tests of keepers share: a time that the test decides, a record of states.
namespace tav_test {

namespace kit = tav::kit;

/// A time that passes when the test says so.  What is due happens on the test's own thread.
class TestTimer final : public kit::keeper_timer {
public:
    clock::time_point now() const override {
        std::lock_guard<std::mutex> const guard(mutex_);
        return now_;
    }
    void wake_at(std::shared_ptr<sleeper> const & who, clock::time_point at) override {
        std::lock_guard<std::mutex> const guard(mutex_);
        due_[who.get()] = {at, who};
    }

    void advance(clock::duration v) {
        {
            std::lock_guard<std::mutex> const guard(mutex_);
            now_ += v;
        }
        pump();
    }
    /// Wakes whoever is due.
    void pump() {
        while (std::shared_ptr<sleeper> const who = next()) {
            who->wake();
        }
    }
    /// Whether somebody is to be woken by now.
    bool due() const {
        std::lock_guard<std::mutex> const guard(mutex_);
        return std::any_of(due_.begin(), due_.end(),
                           [this](auto const & each) { return each.second.first <= now_; });
    }
    /// Lets what is due happen until `done` holds, ten seconds at most of the world's time and none of its
    /// own.
    template <class Done>
    bool run(Done const & done) {
        return eventually([&] {
            pump();
            return done();
        });
    }

private:
    std::shared_ptr<sleeper> next() {
        std::lock_guard<std::mutex> const guard(mutex_);
        for (auto each = due_.begin(); each != due_.end(); ++each) {
            if (each->second.first <= now_) {
                std::shared_ptr<sleeper> const who = each->second.second.lock();
                if (who) {
                    // Its place stays, as the process's timer keeps it.
                    each->second.first = clock::time_point::max();
                    return who;
                }
                due_.erase(each);
                return next_of_rest();
            }
        }
        return nullptr;
    }
    std::shared_ptr<sleeper> next_of_rest() {
        for (auto each = due_.begin(); each != due_.end();) {
            std::shared_ptr<sleeper> const who = each->second.second.lock();
            if (who && each->second.first <= now_) {
                each->second.first = clock::time_point::max();
                return who;
            }
            each = who ? std::next(each) : due_.erase(each);
        }
        return nullptr;
    }

    mutable std::mutex mutex_;
    clock::time_point now_ = clock::time_point(std::chrono::hours(1));
    std::map<sleeper const *, std::pair<clock::time_point, std::weak_ptr<sleeper>>> due_;
};

/// A port of loopback at which nobody listens, as long as this lives.
class ClosedPort {
public:
    ClosedPort() : descriptor_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        if (::bind(descriptor_, reinterpret_cast<sockaddr *>(&address), size) != 0 ||
            ::getsockname(descriptor_, reinterpret_cast<sockaddr *>(&address), &size) != 0) {
            throw std::runtime_error("no port");
        }
        port_ = std::to_string(ntohs(address.sin_port));
    }
    ~ClosedPort() { ::close(descriptor_); }
    ClosedPort(ClosedPort const &) = delete;
    ClosedPort & operator=(ClosedPort const &) = delete;

    std::string const & port() const { return port_; }
    kit::gateway gateway(int preference = 0) const { return {"127.0.0.1", port_, preference}; }

private:
    int const descriptor_;
    std::string port_;
};

/// States as texts.
inline kit::keeper_option recorded(Events & states) {
    kit::keeper_option how;
    how.on_state = [&states](kit::keeper_status const & v) {
        std::ostringstream out;
        out << v.state;
        if (v.state == kit::keeper_state::waiting || v.state == kit::keeper_state::stopped) {
            out << ": " << v.cause.message();
        }
        states.add(out.str());
    };
    return how;
}

/// A function of states that keeps the ports of the attempts.
inline auto portsTried(Events & tried) {
    return [&tried](kit::keeper_status const & v) {
        if (v.state == kit::keeper_state::connecting) {
            tried.add(v.to.port);
        }
    };
}

/// An option for a port of loopback that tells nothing.
inline tls::connect_option quietOption(std::string const & port) {
    tls::connect_option out;
    out.host = "127.0.0.1";
    out.port = port;
    return out;
}

/// A keeper by a test's own time, with the recorded states.
class KeeperRig {
public:
    explicit KeeperRig(std::string const & port, kit::keeper_option how = kit::keeper_option())
        : timer(std::make_shared<TestTimer>()),
          keeper(quietOption(port), completed(std::move(how)), "kept") {}

    /// Waits for a state, in which the keeper has to be by then.
    bool comesTo(kit::keeper_state v) {
        return timer->run([&] { return keeper.status().state == v; });
    }
    std::chrono::milliseconds left() const {
        return std::chrono::duration_cast<std::chrono::milliseconds>(keeper.status().until - timer->now());
    }
    /// The keeper's next connection, by the test's far end.
    std::unique_ptr<TlsConnection> accept(TlsPeer & peer) const {
        if (!timer->run([&] { return peer.pending(1); })) {
            throw std::runtime_error("no connection");
        }
        auto server = peer.accept();
        if (!server->handshake()) {
            throw std::runtime_error("no handshake");
        }
        return server;
    }

    Events states;
    std::shared_ptr<TestTimer> timer;
    kit::keeper keeper;

private:
    kit::keeper_option completed(kit::keeper_option how) {
        how.timer = timer;
        if (!how.jitter) {
            how.jitter = [] { return 0.5; };
        }
        if (!how.on_state) {
            how.on_state = recorded(states).on_state;
        }
        return how;
    }
};

/// A keeper by the time of the world, and a gateway.
class LiveRig {
public:
    explicit LiveRig(kit::keeper_option how = kit::keeper_option(),
                     tav::gateway::Options const & options = tav::gateway::Options())
        : gateway(options), keeper(quietOption(port()), completed(std::move(how)), "live") {}

    std::string port() const { return std::to_string(gateway.gateway.port()); }
    bool comesTo(kit::keeper_state v) {
        return eventually([&] { return keeper.status().state == v; });
    }
    bool start() {
        keeper.start();
        return comesTo(kit::keeper_state::up);
    }

    GatewayRig gateway;
    Events states;
    kit::keeper keeper;

private:
    kit::keeper_option completed(kit::keeper_option how) {
        how.first_wait = std::chrono::milliseconds(20);
        how.longest_wait = std::chrono::milliseconds(50);
        if (!how.on_state) {
            how.on_state = recorded(states).on_state;
        }
        return how;
    }
};

/// How long a call takes.
template <class Call>
std::chrono::milliseconds took(Call const & call) {
    auto const begin = std::chrono::steady_clock::now();
    call();
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin);
}

/// What a loaded machine may add to a second.
constexpr std::chrono::milliseconds a_second(1500);

/// The number in the body of a packet that a keeper sent.
inline int numberIn(Pkt const & packet) {
    Say said;
    said.decode(tav_istr(packet.body));
    return said.number;
}

} // namespace tav_test

#endif
