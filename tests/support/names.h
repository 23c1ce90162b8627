#ifndef TAV_TESTS_SUPPORT_NAMES_H
#define TAV_TESTS_SUPPORT_NAMES_H

#include "support/session_rig.h"
#include "support/tls_peer.h"

#include <dlfcn.h>
#include <netdb.h>

#include <algorithm>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

/// The system's lookup of host names under a test's control, and addresses that behave badly.  A program that
/// includes this answers all its lookups itself; one source of a program at most may do so.
namespace tav_test {

/// What the program's lookups answer while this lives: all names that were given here, and numbers; any other
/// name does not exist.
class Names {
public:
    Names() {
        std::lock_guard<std::mutex> const guard(state().mutex);
        state().entries.clear();
        state().asked.clear();
    }
    ~Names() {
        std::lock_guard<std::mutex> const guard(state().mutex);
        for (auto const & each : state().entries) {
            each.second->gate.open();
        }
        state().entries.clear();
    }
    Names(Names const &) = delete;
    Names & operator=(Names const &) = delete;

    /// A name has these addresses, in this order.
    void add(std::string const & name, std::vector<std::string> addresses) {
        std::lock_guard<std::mutex> const guard(state().mutex);
        auto const made = std::make_shared<Entry>();
        made->addresses = std::move(addresses);
        made->gate.open();
        state().entries[name] = made;
    }
    /// A name whose lookup hangs until it is let go, and finds nothing then.
    void addHanging(std::string const & name) {
        std::lock_guard<std::mutex> const guard(state().mutex);
        state().entries[name] = std::make_shared<Entry>();
    }
    /// Waits until `n` lookups of a name have begun.
    bool waitAsked(std::string const & name, unsigned n = 1) { return find(name)->gate.waitArrived(n); }
    void letGo(std::string const & name) { find(name)->gate.open(); }

    /// The names that were looked up so far.
    std::vector<std::string> asked() const {
        std::lock_guard<std::mutex> const guard(state().mutex);
        return state().asked;
    }

    static int answer(char const * node, char const * service, addrinfo const * hints, addrinfo ** out) {
        std::string const name = node != nullptr ? node : "";
        std::shared_ptr<Entry> entry;
        {
            std::lock_guard<std::mutex> const guard(state().mutex);
            state().asked.push_back(name);
            auto const found = state().entries.find(name);
            if (found != state().entries.end()) {
                entry = found->second;
            }
        }
        if (!entry) {
            return system(node, service, hints, out);
        }
        entry->gate.pass();
        addrinfo ** end = out;
        *out = nullptr;
        for (std::string const & address : entry->addresses) {
            int const error = system(address.c_str(), service, hints, end);
            if (error != 0) {
                return error;
            }
            while (*end != nullptr) {
                end = &(*end)->ai_next;
            }
        }
        return *out != nullptr ? 0 : EAI_NONAME;
    }

private:
    struct Entry {
        std::vector<std::string> addresses;
        Gate gate;
    };
    struct State {
        std::mutex mutex;
        std::map<std::string, std::shared_ptr<Entry>> entries;
        std::vector<std::string> asked;
    };

    // Never destroyed: lookups may end after everything else.
    static State & state() {
        static State & the = *new State;
        return the;
    }

    static std::shared_ptr<Entry> find(std::string const & name) {
        std::lock_guard<std::mutex> const guard(state().mutex);
        return state().entries.at(name);
    }

    static int system(char const * node, char const * service, addrinfo const * hints, addrinfo ** out) {
        using Function = int (*)(char const *, char const *, addrinfo const *, addrinfo **);
        static auto const real = reinterpret_cast<Function>(::dlsym(RTLD_NEXT, "getaddrinfo"));
        addrinfo numeric{};
        if (hints != nullptr) {
            numeric = *hints;
        }
        numeric.ai_flags |= AI_NUMERICHOST;
        return real(node, service, &numeric, out);
    }
};

/// An address of loopback at a given port.
inline sockaddr_in loopback(std::string const & host, unsigned short port) {
    sockaddr_in out{};
    out.sin_family = AF_INET;
    out.sin_port = htons(port);
    ::inet_pton(AF_INET, host.c_str(), &out.sin_addr);
    return out;
}

/// A listener that answers nobody: its queue is full, so that the system drops what would connect to it.
class SilentAddress {
public:
    SilentAddress(std::string const & host, unsigned short port) {
        sockaddr_in const address = loopback(host, port);
        listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (::bind(listener_, reinterpret_cast<sockaddr const *>(&address), sizeof address) != 0 ||
            ::listen(listener_, 0) != 0) {
            ::close(listener_);
            throw std::runtime_error("no listener at " + host);
        }
        fill(address);
    }
    ~SilentAddress() {
        for (int const each : fillers_) {
            ::close(each);
        }
        ::close(listener_);
    }
    SilentAddress(SilentAddress const &) = delete;
    SilentAddress & operator=(SilentAddress const &) = delete;

private:
    // The queue is full when one more does not get through.
    void fill(sockaddr_in const & address) {
        for (int n = 0; n < 8; ++n) {
            int const filler = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
            fillers_.push_back(filler);
            ::connect(filler, reinterpret_cast<sockaddr const *>(&address), sizeof address);
            pollfd what{filler, POLLOUT, 0};
            if (::poll(&what, 1, 200) == 0) {
                return;
            }
        }
        throw std::runtime_error("the listener's queue does not fill");
    }

    int listener_;
    std::vector<int> fillers_;
};

} // namespace tav_test

extern "C" int getaddrinfo(char const * node, char const * service, addrinfo const * hints, addrinfo ** out) {
    return tav_test::Names::answer(node, service, hints, out);
}

#endif
