#include "tav/vinta/vinta_tls_client.h"

#include "support/client_rig.h"
#include "support/log_capture.h"
#include "support/names.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>

using namespace tav_test;

/// Each test is a process of its own that exits while its client has traffic.  It is killed, and the test
/// fails, if it does not end in time.
namespace {

constexpr unsigned watchdog_s = 20;
constexpr int not_quiet = 3;

std::atomic<unsigned> calls{0};

/// Runs behind the destruction of all that the client's threads use.  Nothing may be called any more; the
/// traffic goes on for a while, so that threads that still run do touch what is gone.
void lookForCalls() {
    unsigned const before = calls;
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    if (calls != before) {
        ::_exit(not_quiet);
    }
}

/// A server that never ends: it sends on its connections, answers, hangs up, and begins again.
void serve(TlsPeer & peer) {
    std::thread([&peer] {
        for (;;) {
            try {
                auto const server = peer.accept();
                server->handshake();
                for (unsigned n = 0; n < 2000 && server->send(old(5, n).framed()); ++n) {
                    std::this_thread::sleep_for(std::chrono::microseconds(20));
                }
            } catch (std::exception const &) {
                // Nobody has come for a while.
            }
        }
    }).detach();
}

/// Brings a process to traffic: pushes, sends with and without replies, and an end every now and then.
class Traffic {
public:
    Traffic() {
        ::alarm(watchdog_s);
        std::atexit(&lookForCalls);
        tavLogger::setup(tav_istr("(clear(NONE))"), nullptr, false, tavLogger::NONE);
        serve(peer_);
    }

    void begin(tls::client & c) {
        tls::connect_option option;
        option.host = "127.0.0.1";
        option.port = peer_.portText();
        option.set_on_open([this] {
            ++calls;
            if (on_open) {
                on_open();
            }
        });
        option.set_on_error([&c](unsigned long long, unsigned short, int, char const *) {
            ++calls;
            c.reconnect(tls::timedout_option());
        });
        c.on_nbr_msg(5, [this, &c](unsigned long long n, unsigned short, unsigned char const *, unsigned,
                                   tavMsgExt) {
            ++calls;
            c.send_msg(Ask(1), tls::send_option(
                                   50, [](unsigned long long, unsigned short, bool) { ++calls; }, false, 4));
            if (n == 100 && on_message) {
                on_message();
            }
        });
        if (on_queue) {
            option.limits.queued_frames = 1;
            option.limits.on_queue = on_queue;
        }
        c.start(option);
    }
    void run(tls::client & c) {
        begin(c);
        if (!eventually([] { return calls > 500; })) {
            ::_exit(4);
        }
    }

    std::function<void()> on_open;
    std::function<void()> on_message;
    std::function<void(bool)> on_queue;

private:
    TlsPeer peer_;
};

/// Outlives main, as what callbacks use would have to.
Traffic & traffic() {
    static Traffic & the = *new Traffic;
    return the;
}

std::unique_ptr<tls::client> & staticOwner() {
    static std::unique_ptr<tls::client> owner;
    return owner;
}

/// Whether a thread of this process has the name.
bool hasThread(std::string const & name) {
    for (auto const & each : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string of_it;
        std::getline(std::ifstream(each.path() / "comm"), of_it);
        if (of_it == name) {
            return true;
        }
    }
    return false;
}

constexpr char hanging[] = "hanging.example";

Names & names() {
    static Names & the = *new Names;
    return the;
}

/// The system answers behind the destruction of all that a lookup's thread uses.
void answerLookup() {
    names().letGo(hanging);
    auto const end = std::chrono::steady_clock::now() + std::chrono::milliseconds(300);
    while (std::chrono::steady_clock::now() < end) {
        if (!hasThread("resolver")) {
            ::_exit(not_quiet);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

/// What the log has told, also behind the destruction of static objects.
class Told {
public:
    bool has(std::string const & line) const { return text().find(line) != std::string::npos; }
    static void take(int, char const * line) { text() += line; }

private:
    static std::string & text() {
        static std::string & the = *new std::string;
        return the;
    }
};

class ClientExit : public ::testing::Test {
protected:
    void SetUp() override { ::testing::FLAGS_gtest_death_test_style = "threadsafe"; }
};

} // namespace

TEST_F(ClientExit, WhileTrafficRunsCallsNothingBehindIt) {
    EXPECT_EXIT(
        {
            traffic().run(tls::client::instance("n"));
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST_F(ClientExit, OutOfACallbackIsNoHang) {
    EXPECT_EXIT(
        {
            traffic().on_message = [] { std::exit(0); };
            traffic().run(tls::client::instance("n"));
            Gate never;
            never.pass();
        },
        ::testing::ExitedWithCode(0), "");
}

TEST_F(ClientExit, BesideACallbackThatHangsIsNoHang) {
    EXPECT_EXIT(
        {
            traffic().on_open = [] { std::this_thread::sleep_for(std::chrono::milliseconds(1200)); };
            traffic().begin(tls::client::instance("n"));
            eventually([] { return calls > 0; });
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST_F(ClientExit, BesideATellingOfTheQueueThatHangsIsNoHang) {
    EXPECT_EXIT(
        {
            static std::atomic<bool> told{false};
            traffic().on_queue = [](bool full) {
                ++calls;
                if (!full) {
                    // High water, of which the function is to be told behind this call.
                    tls::client::instance("n").send_msg(Ask(1), tls::send_option());
                    told = true;
                    std::this_thread::sleep_for(std::chrono::milliseconds(1200));
                }
            };
            traffic().begin(tls::client::instance("n"));
            eventually([] { return told.load(); });
            std::exit(told ? 0 : 6);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST_F(ClientExit, LeavesAClientThatAStaticObjectOwns) {
    EXPECT_EXIT(
        {
            staticOwner();
            traffic();
            staticOwner() = std::make_unique<tls::client>("n");
            traffic().run(*staticOwner());
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST_F(ClientExit, LookupThatIsUnderWayDoesNothingBehindIt) {
    EXPECT_EXIT(
        {
            ::alarm(watchdog_s);
            names().addHanging(hanging);
            std::atexit(&answerLookup);
            tls::connect_option option;
            option.host = hanging;
            option.port = "1";
            tls::client::instance("n").start(option);
            if (!names().waitAsked(hanging) || !hasThread("resolver")) {
                ::_exit(4);
            }
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST_F(ClientExit, WaitsBehindItEndAtOnceAndAreTold) {
    EXPECT_EXIT(
        {
            ::alarm(watchdog_s);
            names().addHanging(hanging);
            static auto & connect = *new std::shared_ptr<tls::connect_info>;
            static auto & told = *new Told;
            std::atexit([] {
                tavLogger::setup(tav_istr("(clear(ERROR))"), &Told::take, false, tavLogger::NONE);
                if (connect->wait() != tls::result_error ||
                    !told.has("<n> a wait for a connect while the process exits would never end\n")) {
                    ::_exit(5);
                }
                Answer answer;
                if (tls::client::instance("n").send_and_wait(Ask(1), answer, 10000) != tls::result_error ||
                    !told.has("<n> a wait for a send while the process exits would never end\n")) {
                    ::_exit(6);
                }
                tavLogger::setup(tav_istr("(clear(NONE))"), nullptr, false, tavLogger::NONE);
                names().letGo(hanging);
            });
            tls::connect_option option;
            option.host = hanging;
            option.port = "1";
            connect = tls::client::instance("n").start(option);
            std::exit(names().waitAsked(hanging) ? 0 : 4);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST_F(ClientExit, WithFinalizeBehindItIsNoHang) {
    EXPECT_EXIT(
        {
            traffic();
            std::atexit([] {
                Answer answer;
                tls::client & c = tls::client::instance("n");
                if (c.send_and_wait(Ask(1), answer, 10000) == tls::result_ok) {
                    ::_exit(5);
                }
                tls::client::finalize();
            });
            traffic().run(tls::client::instance("n"));
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "");
}

// The sanitizers' own work at the exit of a child takes what the parent's threads hold for leaks, and its
// time.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST_F(ClientExit, OfAForkedProcessWaitsForNoThread) {
    EXPECT_EXIT(
        {
            traffic().run(tls::client::instance("n"));
            auto const begin = std::chrono::steady_clock::now();
            pid_t const child = ::fork();
            if (child == 0) {
                std::exit(0);
            }
            int status = -1;
            ::waitpid(child, &status, 0);
            auto const took = std::chrono::steady_clock::now() - begin;
            ::_exit(status != 0 ? 6 : took < std::chrono::milliseconds(1200) ? 0 : 7);
        },
        ::testing::ExitedWithCode(0), "");
}
#endif
