#ifndef TAV_TESTS_SUPPORT_OPENSSL_SERVER_H
#define TAV_TESTS_SUPPORT_OPENSSL_SERVER_H

#include "support/client_rig.h"
#include "support/pki.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

namespace tav_test {

/// OpenSSL's own server, `openssl s_server` (the program TAV_OPENSSL), in a process of its own on loopback
/// with a port given by the system.  It takes one connection after another and echoes nothing.
class OpensslServer {
public:
    /// `chain` is what it shows, its own certificate first; `more` are further arguments.
    OpensslServer(std::vector<Identity const *> const & chain, std::vector<std::string> const & more)
        : certificate_(chain.front()->pem()), key_(chain.front()->keyPem()), above_(pemOf(chain)) {
        std::vector<std::string> arguments = {TAV_OPENSSL, "s_server",          "-accept", "127.0.0.1:0",
                                              "-cert",     certificate_.path(), "-key",    key_.path()};
        if (chain.size() > 1) {
            arguments.insert(arguments.end(), {"-cert_chain", above_.path()});
        }
        arguments.insert(arguments.end(), more.begin(), more.end());
        start(arguments);
        port_ = readPort();
    }
    ~OpensslServer() {
        ::kill(process_, SIGKILL);
        ::waitpid(process_, nullptr, 0);
        ::close(input_);
        ::close(output_);
    }
    OpensslServer(OpensslServer const &) = delete;
    OpensslServer & operator=(OpensslServer const &) = delete;

    unsigned port() const { return port_; }

private:
    static std::string pemOf(std::vector<Identity const *> const & chain) {
        std::string out;
        for (std::size_t i = 1; i < chain.size(); ++i) {
            out += chain[i]->pem();
        }
        return out;
    }

    void start(std::vector<std::string> const & arguments) {
        int in[2];
        int out[2];
        if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0) {
            throw std::runtime_error("no pipe");
        }
        posix_spawn_file_actions_t actions;
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawn_file_actions_adddup2(&actions, in[0], 0);
        ::posix_spawn_file_actions_adddup2(&actions, out[1], 1);
        ::posix_spawn_file_actions_adddup2(&actions, out[1], 2);
        std::vector<char *> texts;
        for (std::string const & each : arguments) {
            texts.push_back(const_cast<char *>(each.c_str()));
        }
        texts.push_back(nullptr);
        int const failed = ::posix_spawn(&process_, texts[0], &actions, nullptr, texts.data(), environ);
        ::posix_spawn_file_actions_destroy(&actions);
        ::close(in[0]);
        ::close(out[1]);
        input_ = in[1];
        output_ = out[0];
        if (failed != 0) {
            throw std::runtime_error("openssl can't be started");
        }
    }

    /// It says "ACCEPT 127.0.0.1:PORT" once it listens.
    unsigned readPort() {
        std::string said;
        std::string const word = "ACCEPT 127.0.0.1:";
        for (;;) {
            std::size_t const at = said.find(word);
            std::size_t const end = at == std::string::npos ? at : said.find('\n', at);
            if (end != std::string::npos) {
                return static_cast<unsigned>(std::stoul(said.substr(at + word.size())));
            }
            pollfd what{output_, POLLIN, 0};
            char buffer[512];
            ssize_t const n =
                ::poll(&what, 1, peer_limit_ms) > 0 ? ::read(output_, buffer, sizeof buffer) : 0;
            if (n <= 0) {
                throw std::runtime_error("openssl does not listen: " + said);
            }
            said.append(buffer, static_cast<std::size_t>(n));
        }
    }

    TempFile const certificate_;
    TempFile const key_;
    TempFile const above_;
    pid_t process_ = -1;
    int input_ = -1;
    int output_ = -1;
    unsigned port_ = 0;
};

} // namespace tav_test

#endif
