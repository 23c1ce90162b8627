#ifndef TAV_TESTS_SUPPORT_SERVER_PROCESS_H
#define TAV_TESTS_SUPPORT_SERVER_PROCESS_H

#include "support/tls_peer.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace tav_test {

/// A server of others in a process of its own on loopback, with a port given by the system.
class ServerProcess {
public:
    virtual ~ServerProcess() {
        if (process_ > 0) {
            ::kill(process_, SIGKILL);
            ::waitpid(process_, nullptr, 0);
        }
        ::close(input_);
        ::close(output_);
    }
    ServerProcess(ServerProcess const &) = delete;
    ServerProcess & operator=(ServerProcess const &) = delete;

    unsigned port() const { return port_; }

protected:
    ServerProcess() = default;

    /// Starts a program, with what stands in `settings` added to its environment and the descriptor
    /// `inherited` left open, if there is one.
    void start(std::vector<std::string> const & arguments, std::vector<std::string> const & settings = {},
               int inherited = -1) {
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
        if (inherited >= 0) {
            // Onto itself, which leaves it open.
            ::posix_spawn_file_actions_adddup2(&actions, inherited, inherited);
        }
        std::vector<char *> environment = texts(settings);
        environment.pop_back();
        for (char ** each = environ; *each != nullptr; ++each) {
            environment.push_back(*each);
        }
        environment.push_back(nullptr);
        std::vector<char *> const words = texts(arguments);
        int const failed =
            ::posix_spawn(&process_, words[0], &actions, nullptr, words.data(), environment.data());
        ::posix_spawn_file_actions_destroy(&actions);
        ::close(in[0]);
        ::close(out[1]);
        input_ = in[1];
        output_ = out[0];
        if (failed != 0) {
            process_ = -1;
            throw std::runtime_error(arguments[0] + " can't be started: is it installed?");
        }
    }

    /// Waits until it says a line with `words`, behind which its port stands.
    void readPort(std::string const & words) {
        std::string said;
        for (;;) {
            std::size_t const at = said.find(words);
            std::size_t const end = at == std::string::npos ? at : said.find('\n', at);
            if (end != std::string::npos) {
                port_ = static_cast<unsigned>(std::stoul(said.substr(at + words.size())));
                return;
            }
            pollfd what{output_, POLLIN, 0};
            char buffer[512];
            ssize_t const n =
                ::poll(&what, 1, peer_limit_ms) > 0 ? ::read(output_, buffer, sizeof buffer) : 0;
            if (n <= 0) {
                throw std::runtime_error("the server does not listen: " + said);
            }
            said.append(buffer, static_cast<std::size_t>(n));
        }
    }

    void port(unsigned v) { port_ = v; }

private:
    static std::vector<char *> texts(std::vector<std::string> const & from) {
        std::vector<char *> out;
        for (std::string const & each : from) {
            out.push_back(const_cast<char *>(each.c_str()));
        }
        out.push_back(nullptr);
        return out;
    }

    pid_t process_ = -1;
    int input_ = -1;
    int output_ = -1;
    unsigned port_ = 0;
};

} // namespace tav_test

#endif
