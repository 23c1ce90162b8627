#include "examples/chat/messages.h"

#include "gateway/gateway_core.h"
#include "support/bounded.h"
#include "support/folder.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using tav_test::got;
namespace tls = tav::tls;

/// The chat on a terminal of its own.
class Terminal {
public:
    Terminal(std::string const & port, std::string const & ca) {
        char name[128];
        winsize const size{40, 200, 0, 0};
        if (::openpty(&master_, &slave_, name, nullptr, &size) != 0) {
            throw std::runtime_error("no terminal");
        }
        before_ = settings();
        posix_spawnattr_t attributes;
        ::posix_spawnattr_init(&attributes);
        ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
        posix_spawn_file_actions_t files;
        ::posix_spawn_file_actions_init(&files);
        // Opened by the leader of a session, it becomes the terminal of it.
        ::posix_spawn_file_actions_addopen(&files, 0, name, O_RDWR, 0);
        ::posix_spawn_file_actions_adddup2(&files, 0, 1);
        ::posix_spawn_file_actions_adddup2(&files, 0, 2);
        ::posix_spawn_file_actions_addclose(&files, master_);
        ::posix_spawn_file_actions_addclose(&files, slave_);
        std::vector<std::string> words = {TAV_CHAT, "127.0.0.1", port, ca, "ann"};
        std::vector<char *> arguments;
        for (std::string & word : words) {
            arguments.push_back(&word[0]);
        }
        arguments.push_back(nullptr);
        ::setenv("TERM", "xterm", 1);
        int const failed = ::posix_spawn(&pid_, TAV_CHAT, &files, &attributes, arguments.data(), environ);
        ::posix_spawn_file_actions_destroy(&files);
        ::posix_spawnattr_destroy(&attributes);
        if (failed != 0) {
            throw std::runtime_error("the chat can't be started");
        }
    }
    ~Terminal() {
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, nullptr, 0);
        }
        ::close(master_);
        ::close(slave_);
    }
    Terminal(Terminal const &) = delete;
    Terminal & operator=(Terminal const &) = delete;

    void type(std::string const & keys) {
        ASSERT_EQ(::write(master_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }
    void signal(int number) { ::kill(pid_, number); }

    /// Whether the text appears within the limit.
    bool shows(std::string const & text) {
        auto const end = std::chrono::steady_clock::now() + tav_test::wait_limit;
        while (screen_.find(text) == std::string::npos) {
            auto const left =
                std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
            pollfd ready{master_, POLLIN, 0};
            if (left.count() <= 0 || ::poll(&ready, 1, static_cast<int>(left.count())) != 1) {
                return false;
            }
            char bytes[4096];
            ssize_t const size = ::read(master_, bytes, sizeof bytes);
            if (size <= 0) {
                return false;
            }
            screen_.append(bytes, static_cast<std::size_t>(size));
        }
        return true;
    }
    std::string const & screen() const { return screen_; }

    /// Waits until the process has ended or was stopped; its status.
    int wait() {
        std::promise<int> said;
        auto future = said.get_future();
        std::thread([pid = pid_, said = std::move(said)]() mutable {
            int status = -1;
            ::waitpid(pid, &status, WUNTRACED);
            said.set_value(status);
        }).detach();
        int const status = got(std::move(future));
        if (!WIFSTOPPED(status)) {
            pid_ = -1;
        }
        return status;
    }

    bool isAsBefore() const {
        termios const now = settings();
        return now.c_lflag == before_.c_lflag && now.c_iflag == before_.c_iflag &&
               now.c_oflag == before_.c_oflag && std::memcmp(now.c_cc, before_.c_cc, sizeof now.c_cc) == 0;
    }

private:
    termios settings() const {
        termios out{};
        ::tcgetattr(slave_, &out);
        return out;
    }

    int master_ = -1;
    int slave_ = -1;
    pid_t pid_ = -1;
    termios before_{};
    std::string screen_;
};

class ChatTerminal : public testing::Test {
protected:
    ChatTerminal() : gateway_(tav::gateway::Options(), certificates()) { gateway_.start(); }

    static tav::gateway::Certificates const & certificates() {
        static tav::gateway::Certificates const the = tav::gateway::makeCertificates();
        return the;
    }
    std::string port() const { return std::to_string(gateway_.port()); }
    std::string ca() const { return folder_.write("ca.pem", certificates().ca); }

    tav_test::Folder folder_;
    tav::gateway::Gateway gateway_;
};

class ChatTerminalEnds : public ChatTerminal, public testing::WithParamInterface<char const *> {};

} // namespace

// clang-format off
TEST_P(ChatTerminalEnds, GiveTheTerminalBack) {
    // clang-format on
    Terminal terminal(port(), ca());
    ASSERT_TRUE(terminal.shows("connected to")) << terminal.screen();
    EXPECT_FALSE(terminal.isAsBefore()) << "the editor has not taken the terminal";
    std::string const how = GetParam();
    if (how == "SIGTERM") {
        terminal.signal(SIGTERM);
    } else if (how == "SIGHUP") {
        terminal.signal(SIGHUP);
    } else {
        terminal.type(how);
    }
    int const status = terminal.wait();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_TRUE(terminal.isAsBefore());
}

INSTANTIATE_TEST_SUITE_P(All, ChatTerminalEnds,
                         testing::Values("\x03", "half a line\x03", "\x04", "/quit\r", "SIGTERM", "SIGHUP"));

TEST_F(ChatTerminal, IsGivenBackWhileTheChatIsSuspended) {
    Terminal terminal(port(), ca());
    ASSERT_TRUE(terminal.shows("connected to")) << terminal.screen();
    terminal.type("\x1a");
    EXPECT_TRUE(WIFSTOPPED(terminal.wait()));
    EXPECT_TRUE(terminal.isAsBefore());
    terminal.signal(SIGCONT);
    terminal.type("/help\r");
    ASSERT_TRUE(terminal.shows("/help\r\n")) << terminal.screen();
    terminal.type("\x03");
    EXPECT_TRUE(WIFEXITED(terminal.wait()));
    EXPECT_TRUE(terminal.isAsBefore());
}

TEST_F(ChatTerminal, LinesAreEditedAndSaid) {
    std::promise<std::string> heard;
    tls::client bob("bob");
    tav::kit::on<chat::Say>(bob, [&](chat::Say const & say) { heard.set_value(say.line.text.data()); });
    ASSERT_EQ(bob.start("127.0.0.1", port().c_str(), ca().c_str(), nullptr, tls::global_callback(),
                        tls::timedout_option(10000))
                  ->wait(),
              tls::result_ok);
    Terminal terminal(port(), ca());
    ASSERT_TRUE(terminal.shows("connected to")) << terminal.screen();
    // A letter too much, one that is missing in front, and a key of two bytes.
    terminal.type("ellox\x7f \xc3\xa9\x01h\r");
    EXPECT_EQ(got(heard.get_future()), "hello \xc3\xa9");
}

TEST_F(ChatTerminal, ShowsControlsOfOthersWrittenOut) {
    Terminal terminal(port(), ca());
    ASSERT_TRUE(terminal.shows("connected to")) << terminal.screen();
    tls::client eve("eve");
    ASSERT_EQ(eve.start("127.0.0.1", port().c_str(), ca().c_str(), nullptr, tls::global_callback(),
                        tls::timedout_option(10000))
                  ->wait(),
              tls::result_ok);
    chat::Say say;
    say.line.id = 1;
    say.line.room = "lobby";
    say.line.name = "eve\x1b[8m";
    say.line.text = "\x1b]0;a title of mine\x07 done";
    ASSERT_TRUE(tav::kit::send(eve, say));
    ASSERT_TRUE(terminal.shows("done")) << terminal.screen();
    EXPECT_NE(terminal.screen().find("<eve\\x1b[8m> \\x1b]0;a title of mine\\x07 done"), std::string::npos)
        << terminal.screen();
    EXPECT_EQ(terminal.screen().find("\x1b]0;"), std::string::npos);
    EXPECT_EQ(terminal.screen().find("\x1b[8m"), std::string::npos);
}
