#ifndef TAV_TESTS_SUPPORT_PROXY_SERVERS_H
#define TAV_TESTS_SUPPORT_PROXY_SERVERS_H

#include "support/policy_matrix.h"

#include <list>
#include <memory>
#include <string>
#include <thread>
#include <vector>

/// Programs that stand in front of a server and speak TLS for it.
namespace tav_test {

/// A listener on loopback with a port given by the system.
class Listener {
public:
    Listener() : descriptor_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto * const at = reinterpret_cast<sockaddr *>(&address);
        if (::bind(descriptor_, at, size) != 0 || ::listen(descriptor_, 64) != 0 ||
            ::getsockname(descriptor_, at, &size) != 0) {
            throw std::runtime_error("no listener");
        }
        port_ = ntohs(address.sin_port);
    }
    ~Listener() { ::close(descriptor_); }
    Listener(Listener const &) = delete;
    Listener & operator=(Listener const &) = delete;

    int descriptor() const { return descriptor_; }
    unsigned port() const { return port_; }

private:
    int descriptor_;
    unsigned port_ = 0;
};

/// Sends back what it gets, without TLS.
class PlainEcho {
public:
    PlainEcho() : thread_([this] { run(); }) {}
    ~PlainEcho() {
        ::shutdown(listener_.descriptor(), SHUT_RDWR);
        thread_.join();
    }
    PlainEcho(PlainEcho const &) = delete;
    PlainEcho & operator=(PlainEcho const &) = delete;

    unsigned port() const { return listener_.port(); }

private:
    void run() {
        std::vector<pollfd> all{pollfd{listener_.descriptor(), POLLIN, 0}};
        while ((all[0].revents & (POLLHUP | POLLERR | POLLNVAL)) == 0) {
            ::poll(all.data(), all.size(), -1);
            for (std::size_t i = all.size(); i-- > 1;) {
                if (all[i].revents != 0 && !sendBack(all[i].fd)) {
                    ::close(all[i].fd);
                    all.erase(all.begin() + static_cast<std::ptrdiff_t>(i));
                }
            }
            if ((all[0].revents & POLLIN) != 0) {
                int const next = ::accept4(listener_.descriptor(), nullptr, nullptr, SOCK_CLOEXEC);
                if (next >= 0) {
                    all.push_back(pollfd{next, POLLIN, 0});
                }
            }
        }
        for (std::size_t i = 1; i < all.size(); ++i) {
            ::close(all[i].fd);
        }
    }

    static bool sendBack(int descriptor) {
        char buffer[4096];
        ssize_t const n = ::recv(descriptor, buffer, sizeof buffer, 0);
        return n > 0 && ::send(descriptor, buffer, static_cast<std::size_t>(n), MSG_NOSIGNAL) == n;
    }

    Listener const listener_;
    std::thread thread_;
};

/// What is behind it, its files, and OpenSSL told to show certificates that are too weak for others.
class ProxyServer : public ServerProcess {
protected:
    explicit ProxyServer(ServerSettings const & settings)
        : identity_(settings.pemOfOwn() + settings.pemOfOthers()),
          weakness_("openssl_conf = all\n[all]\nssl_conf = ssl\n[ssl]\nsystem_default = any\n[any]\n"
                    "CipherString = DEFAULT:@SECLEVEL=0\n") {}

    void run(std::string const & configuration, std::vector<std::string> command, int inherited = -1) {
        configuration_ = std::make_unique<TempFile>(configuration);
        command.push_back(configuration_->path());
        start(command, {"OPENSSL_CONF=" + weakness_.path()}, inherited);
    }

    PlainEcho echo_;
    TempFile const identity_;

private:
    TempFile const weakness_;
    std::unique_ptr<TempFile> configuration_;
};

/// haproxy, which accepts on a listener of ours.
class HaproxyServer final : public ProxyServer {
public:
    explicit HaproxyServer(ServerSettings const & settings) : ProxyServer(settings) {
        std::string const version = "TLSv1." + std::to_string(settings.version);
        std::string const clients =
            settings.clients.empty() ? "" : " ca-file " + settings.clients + " verify required";
        run("defaults\n mode tcp\n timeout connect 10s\n timeout client 60s\n timeout server 60s\n"
            "frontend in\n bind fd@" +
                std::to_string(listener_.descriptor()) + " ssl crt " + identity_.path() + " ssl-min-ver " +
                version + " ssl-max-ver " + version + clients +
                "\n default_backend out\nbackend out\n server echo 127.0.0.1:" +
                std::to_string(echo_.port()) + "\n",
            {"/usr/sbin/haproxy", "-db", "-f"}, listener_.descriptor());
        port(listener_.port());
    }

private:
    Listener const listener_;
};

/// stunnel.
class StunnelServer final : public ProxyServer {
public:
    explicit StunnelServer(ServerSettings const & settings) : ProxyServer(settings) {
        std::string const version = "TLSv1." + std::to_string(settings.version);
        std::string const clients =
            settings.clients.empty() ? "" : "CAfile = " + settings.clients + "\nverifyChain = yes\n";
        run("foreground = yes\npid =\nsyslog = no\ndebug = info\n[echo]\naccept = 127.0.0.1:0\n"
            "connect = 127.0.0.1:" +
                std::to_string(echo_.port()) + "\ncert = " + identity_.path() +
                "\nsecurityLevel = 0\nsslVersionMin = " + version + "\nsslVersionMax = " + version + "\n" +
                clients,
            {"/usr/bin/stunnel4"});
        readPort(" bound to 127.0.0.1:");
    }
};

} // namespace tav_test

#endif
