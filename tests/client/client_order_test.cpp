#include "tav/vinta/vinta_tls_client.h"

#include "support/client_rig.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

using namespace tav_test;

namespace {

constexpr unsigned char push_code = 5;
constexpr unsigned long long per_connection = 1000000;

/// Sends numbered messages on each connection that comes, as fast as they go, while it lives.  The numbers
/// grow over all connections.
class Fountain {
public:
    explicit Fountain(TlsPeer & peer) : thread_([this, &peer] { run(peer); }) {}
    ~Fountain() {
        done_ = true;
        thread_.join();
    }
    Fountain(Fountain const &) = delete;
    Fountain & operator=(Fountain const &) = delete;

    unsigned connections() const { return connections_; }

private:
    void run(TlsPeer & peer) {
        while (!done_) {
            if (!peer.pending(5)) {
                continue;
            }
            try {
                auto const server = peer.accept();
                if (server->handshake()) {
                    pour(*server, peer, ++connections_ * per_connection);
                }
            } catch (std::exception const &) {
                // The client went on the way.
            }
        }
    }
    void pour(TlsConnection & server, TlsPeer const & peer, unsigned long long first) {
        for (unsigned long long n = first; !done_ && !peer.pending(0); ++n) {
            if (!server.send(old(push_code, n).framed())) {
                return;
            }
        }
    }

    std::atomic<bool> done_{false};
    std::atomic<unsigned> connections_{0};
    std::thread thread_;
};

/// Takes numbered messages, and finds what runs beside another or out of order.
class Watch {
public:
    explicit Watch(int microseconds) : work_(microseconds) {}

    void take(unsigned long long number) {
        if (inside_.exchange(true)) {
            ++beside_;
        }
        if (number <= last_) {
            ++disorder_;
        }
        last_ = number;
        std::this_thread::sleep_for(std::chrono::microseconds(work_));
        ++count_;
        inside_ = false;
    }
    /// To be set as a callback.
    tls::nbr_function function() {
        return [this](unsigned long long number, unsigned short, unsigned char const *, unsigned, tavMsgExt) {
            take(number);
        };
    }
    unsigned beside() const { return beside_; }
    unsigned disorder() const { return disorder_; }
    unsigned count() const { return count_; }
    unsigned long long last() const { return last_; }

private:
    int const work_;
    std::atomic<bool> inside_{false};
    std::atomic<unsigned> beside_{0};
    std::atomic<unsigned> disorder_{0};
    std::atomic<unsigned> count_{0};
    std::atomic<unsigned long long> last_{0};
};

using Clock = std::chrono::steady_clock;

long long msSince(Clock::time_point begin) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin).count();
}

/// A client in whose receiver a long backlog waits.  The server has sent all of it.
class Backlog {
public:
    Backlog(unsigned messages, int ms_each) : ms_each_(ms_each) {
        rig.client.on_nbr_msg(push_code,
                              [this](unsigned long long number, unsigned short, unsigned char const *,
                                     unsigned, tavMsgExt) { take(number); });
        rig.connect();
        std::string all;
        for (unsigned n = 1; n <= messages; ++n) {
            all += old(push_code, n).framed();
        }
        rig.server->send(all);
        // The last frame has come.
        rig.server->send(frame(""));
        EXPECT_TRUE(log.waitFor(" empty body"));
    }

    std::vector<unsigned long long> numbers() const {
        std::lock_guard<std::mutex> const guard(mutex_);
        return numbers_;
    }
    /// Whether what has been handled is the beginning of what was sent.
    bool inOrder() const {
        unsigned long long next = 0;
        for (unsigned long long const each : numbers()) {
            if (each != ++next) {
                return false;
            }
        }
        return true;
    }

    LogCapture log{"clear(NONE)TLS.CLT(DEBUG)"};
    ClientRig rig;

private:
    void take(unsigned long long number) {
        std::this_thread::sleep_for(std::chrono::milliseconds(ms_each_));
        std::lock_guard<std::mutex> const guard(mutex_);
        numbers_.push_back(number);
    }

    int const ms_each_;
    mutable std::mutex mutex_;
    std::vector<unsigned long long> numbers_;
};

/// What a backlog may delay: the second that it is given, and a loaded machine.
constexpr long long bounded_ms = 4000;

} // namespace

TEST(ClientOrder, MessagesComeOneByOneWhileSessionsAreReplaced) {
    LogCapture log("clear(NONE)");
    ClientRig rig;
    Watch watch(50);
    rig.client.on_nbr_msg(push_code, watch.function());
    Fountain const fountain(rig.peer);
    ASSERT_EQ(resultOf(rig.client.start(rig.option())), tls::result_ok);
    for (unsigned i = 0; i < 5; ++i) {
        unsigned const before = watch.count();
        ASSERT_TRUE(eventually([&] { return watch.count() >= before + 500; }));
        auto const info =
            i % 2 == 0 ? rig.client.reconnect(tls::timedout_option()) : rig.client.start(rig.option());
        ASSERT_EQ(resultOf(info), tls::result_ok);
    }
    EXPECT_TRUE(eventually([&] { return watch.last() > 6 * per_connection; }));
    EXPECT_EQ(watch.beside(), 0u);
    EXPECT_EQ(watch.disorder(), 0u);
}

TEST(ClientOrder, MessagesComeOneByOneWhileTheSessionIsClosed) {
    LogCapture log("clear(NONE)");
    ClientRig rig;
    Watch watch(50);
    rig.client.on_nbr_msg(push_code, watch.function());
    Fountain const fountain(rig.peer);
    for (unsigned i = 0; i < 5; ++i) {
        unsigned const before = watch.count();
        ASSERT_EQ(resultOf(rig.client.start(rig.option())), tls::result_ok);
        ASSERT_TRUE(eventually([&] { return watch.count() >= before + 500; }));
        rig.client.close();
    }
    EXPECT_TRUE(eventually([&] { return !rig.client.connected(); }));
    EXPECT_EQ(watch.beside(), 0u);
    EXPECT_EQ(watch.disorder(), 0u);
}

TEST(ClientOrder, ABacklogDelaysAReconnectByAboutASecond) {
    Backlog it(5000, 2);
    auto const begin = Clock::now();
    it.rig.reconnect();
    EXPECT_LT(msSince(begin), bounded_ms);
    EXPECT_TRUE(it.inOrder());
    EXPECT_LT(it.numbers().size(), 5000u);
    // The rest was dropped, and that is told.
    std::size_t const handled = it.numbers().size();
    EXPECT_EQ(it.log.find(" messages that still waited for their callbacks")
                      .text.find("<n> dropped " + textOf(5000 - handled) + " messages") != std::string::npos,
              true)
        << it.log.find(" messages that still waited for their callbacks").text;
    ASSERT_TRUE(it.rig.settle());
    EXPECT_EQ(it.numbers().size(), handled);
}

TEST(ClientOrder, ABacklogDelaysAStartByAboutASecond) {
    Backlog it(5000, 2);
    auto const begin = Clock::now();
    it.rig.connect();
    EXPECT_LT(msSince(begin), bounded_ms);
    EXPECT_TRUE(it.inOrder());
}

TEST(ClientOrder, ABacklogDelaysACloseByAboutASecond) {
    Backlog it(5000, 2);
    auto const begin = Clock::now();
    it.rig.client.close();
    EXPECT_TRUE(it.rig.server->waitClosed());
    EXPECT_LT(msSince(begin), bounded_ms);
    EXPECT_TRUE(it.inOrder());
}

TEST(ClientOrder, ABacklogDelaysTheEndOfTheClientByAboutASecond) {
    LogCapture log("clear(NONE)TLS.CLT(DEBUG)");
    TlsPeer peer;
    Events events;
    std::atomic<unsigned> count{0};
    auto c = std::make_unique<tls::client>("n");
    c->on_nbr_msg(push_code,
                  [&](unsigned long long, unsigned short, unsigned char const *, unsigned, tavMsgExt) {
                      std::this_thread::sleep_for(std::chrono::milliseconds(2));
                      ++count;
                  });
    auto const info = c->start(optionFor(peer.port(), events));
    auto const server = peer.accept();
    ASSERT_TRUE(server->handshake());
    ASSERT_EQ(resultOf(info), tls::result_ok);
    std::string all;
    for (unsigned n = 1; n <= 5000; ++n) {
        all += old(push_code, n).framed();
    }
    server->send(all + frame(""));
    ASSERT_TRUE(log.waitFor(" empty body"));
    auto const begin = Clock::now();
    c.reset();
    EXPECT_LT(msSince(begin), bounded_ms);
    EXPECT_LT(count, 5000u);
    EXPECT_GT(count, 0u);
}

namespace {

/// A client with sends that wait for replies, and a record of how each ended.
class Asking {
public:
    explicit Asking(int ms_each = 0) : ms_each_(ms_each) {
        option.set_on_error(
            [this](unsigned long long, unsigned short, int, char const *) { events.add("error"); });
        rig.client.on_nbr_msg(0x1235, [this](unsigned long long, unsigned short, unsigned char const *,
                                             unsigned, tavMsgExt) { events.add("push"); });
        rig.client.on_nbr_msg(0x4000, [this](unsigned long long, unsigned short, unsigned char const *,
                                             unsigned, tavMsgExt) { events.add("goodbye"); });
        rig.connect(option);
    }

    void ask(int n) {
        for (int i = 0; i < n; ++i) {
            sends.push_back(rig.client.send_msg(
                Ask(i), tls::send_option(
                            20000,
                            [this](unsigned long long, unsigned short, bool cancelled) {
                                events.add(cancelled ? "cancelled" : "timedout");
                            },
                            tls::error_function(),
                            tls::nbr_function([this](unsigned long long, unsigned short,
                                                     unsigned char const *, unsigned, tavMsgExt) {
                                std::this_thread::sleep_for(std::chrono::milliseconds(ms_each_));
                                events.add("reply");
                            }),
                            0x1235, false, 4)));
        }
    }
    /// The replies to what the server has been asked.
    std::string replies(int n) {
        std::string out;
        for (int i = 0; i < n; ++i) {
            out += mobile(0x1235, rig.receive().sno).framed();
        }
        return out;
    }

    LogCapture log{"clear(NONE)"};
    Events events;
    ClientRig rig;
    tls::connect_option option = rig.option();
    std::vector<std::shared_ptr<tls::send_info>> sends;

private:
    int const ms_each_;
};

} // namespace

TEST(ClientOrderBreak, RepliesThatComeWithTheEndEndTheirSends) {
    Asking it(2);
    it.ask(41);
    std::string const last_words = it.replies(40) + mobile(0x4000, 7).framed();
    it.rig.server->send(last_words);
    it.rig.server->close();
    ASSERT_TRUE(it.events.wait(43));
    std::vector<std::string> expected(40, "reply");
    expected.insert(expected.end(), {"goodbye", "cancelled", "error"});
    EXPECT_EQ(it.events.all(), expected);
    for (unsigned i = 0; i < 40; ++i) {
        EXPECT_EQ(it.sends[i]->result(), tls::result_ok) << i;
    }
    EXPECT_EQ(it.sends[40]->result(), tls::result_cancelled);
}

TEST(ClientOrderBreak, RepliesThatComeAheadOfAFailedWriteEndTheirSends) {
    Asking it(2);
    it.ask(40);
    std::string const last_words = it.replies(40);
    // More than the sockets take, so that a write is under way when the server goes.
    std::string const body = bodyOf(1);
    for (int i = 0; i < 40; ++i) {
        std::string block("\x03\x00\x00\x08", 4);
        block.resize(0x80004, 'x');
        it.rig.client.send_nbr_msg(0x4001, reinterpret_cast<unsigned char const *>(block.data()),
                                   static_cast<unsigned>(block.size()), tls::send_option());
    }
    it.rig.server->send(last_words);
    it.rig.server->close();
    ASSERT_TRUE(it.events.wait(41));
    EXPECT_EQ(it.events.count("reply"), 40u);
    EXPECT_EQ(it.events.all().back(), "error");
}

TEST(ClientOrderBreak, ABacklogHoldsUpTheEndForAboutASecond) {
    Asking it(20);
    it.ask(501);
    it.rig.server->send(it.replies(500));
    auto const begin = Clock::now();
    it.rig.server->close();
    ASSERT_TRUE(eventually([&] { return it.events.count("error") == 1; }));
    EXPECT_LT(msSince(begin), bounded_ms);
    EXPECT_GT(it.events.count("reply"), 0u);
    EXPECT_LT(it.events.count("reply"), 500u);
    EXPECT_GE(it.events.count("cancelled"), 1u);
    for (auto const & send : it.sends) {
        EXPECT_GE(resultOf(send), tls::result_ok);
    }
}

TEST(ClientOrderBreak, NoSendIsAcceptedWhileWhatCameIsHandled) {
    Asking it;
    Gate gate;
    std::atomic<bool> connected{true};
    std::shared_ptr<tls::send_info> late;
    it.rig.client.on_nbr_msg(0x4000, [&](unsigned long long, unsigned short, unsigned char const *, unsigned,
                                         tavMsgExt) {
        gate.pass();
        connected = it.rig.client.connected();
        late = it.rig.client.send_msg(Ask(1), tls::send_option(20000, tls::timedout_function(), false, 4));
        it.events.add("goodbye");
    });
    tavLogger::setLogLevel("TLS.CLT", tavLogger::ERROR);
    it.rig.server->send(mobile(0x4000, 7).framed());
    it.rig.server->close();
    ASSERT_TRUE(gate.waitArrived());
    ASSERT_TRUE(it.log.waitFor("<n> Read header failed: "));
    EXPECT_TRUE(eventually([&] { return !it.rig.client.connected(); }));
    gate.open();
    ASSERT_TRUE(it.events.wait(2));
    EXPECT_EQ(it.events.all(), (std::vector<std::string>{"goodbye", "error"}));
    EXPECT_FALSE(connected);
    EXPECT_FALSE(late);
}

TEST(ClientOrderBreak, AReconnectInTheLastMessageTellsNoError) {
    Asking it;
    std::shared_ptr<tls::connect_info> again;
    it.rig.client.on_nbr_msg(
        0x4000, [&](unsigned long long, unsigned short, unsigned char const *, unsigned, tavMsgExt) {
            EXPECT_TRUE(eventually([&] { return !it.rig.client.connected(); }));
            again = it.rig.client.reconnect(tls::timedout_option());
            EXPECT_TRUE(it.log.waitFor("<n> close session"));
            it.events.add("goodbye");
        });
    tavLogger::setLogLevel("TLS.CLT", tavLogger::DEBUG);
    it.rig.server->send(mobile(0x4000, 7).framed());
    it.rig.server->close();
    ASSERT_TRUE(it.events.wait(1));
    it.rig.finish(again);
    it.rig.server->close();
    ASSERT_TRUE(it.events.wait(2));
    EXPECT_EQ(it.events.all(), (std::vector<std::string>{"goodbye", "error"}));
}

TEST(ClientOrderClose, TellsNoErrorAfterItHasReturned) {
    LogCapture log("clear(NONE)");
    for (int i = 0; i < 20; ++i) {
        ClientRig rig;
        std::atomic<bool> closed{false};
        std::atomic<unsigned> late{0};
        tls::connect_option option = rig.option();
        option.set_on_error(
            [&](unsigned long long, unsigned short, int, char const *) { late += closed ? 1u : 0u; });
        // A cancelled send holds the queue, so that the reset comes ahead of what the close queues.
        Gate gate;
        rig.connect(option);
        ASSERT_TRUE(rig.client.send_msg(
            Ask(1), tls::send_option(
                        20000, [&](unsigned long long, unsigned short, bool) { gate.pass(); }, false, 4)));
        rig.receive();
        rig.client.cancel_all();
        ASSERT_TRUE(gate.waitArrived());
        rig.client.close();
        closed = true;
        tavLogger::setLogLevel("TLS.CLT", tavLogger::INFO);
        rig.server->reset();
        ASSERT_TRUE(log.waitFor("<n> socket closed.", static_cast<unsigned>(i + 1)));
        gate.open();
        // The error queue has done what it had: a failed start comes behind it.
        option.port = "1";
        Events told;
        option.set_on_error(
            [&](unsigned long long, unsigned short, int, char const *) { told.add("error"); });
        rig.client.start(option);
        ASSERT_TRUE(told.wait(1));
        EXPECT_EQ(late, 0u) << i;
        tavLogger::setLogLevel("TLS.CLT", tavLogger::NONE);
    }
}

TEST(ClientOrderClose, AnErrorThatWaitsForItsTurnIsNotToldAfterwards) {
    LogCapture log("clear(NONE)TLS.CLT(INFO)");
    ClientRig rig;
    Events told;
    Gate gate;
    tls::connect_option option = rig.option();
    option.set_on_error([&](unsigned long long, unsigned short, int, char const *) {
        told.add("error");
        gate.pass();
    });
    // The first error holds the error queue; the second one, of the next connection, waits behind it.
    rig.connect(option);
    rig.server->close();
    ASSERT_TRUE(gate.waitArrived());
    rig.reconnect();
    rig.server->reset();
    ASSERT_TRUE(log.waitFor("<n> connect error <", 2));
    rig.client.close();
    gate.open();
    Events next;
    option.port = "1";
    option.set_on_error([&](unsigned long long, unsigned short, int, char const *) { next.add("error"); });
    rig.client.start(option);
    ASSERT_TRUE(next.wait(1));
    EXPECT_EQ(told.count(), 1u);
}

TEST(ClientOrderClose, AnErrorThatTheLogHoldsUpIsNotToldAfterwards) {
    LogCapture log("clear(NONE)TLS.CLT(INFO)");
    ClientRig rig;
    std::atomic<unsigned> told{0};
    Gate gate;
    tls::connect_option option = rig.option();
    option.set_on_error([&](unsigned long long, unsigned short, int, char const *) { ++told; });
    rig.connect(option);
    log.at("global level on error ", [&] { gate.pass(); });
    rig.server->reset();
    ASSERT_TRUE(gate.waitArrived());
    rig.client.close();
    gate.open();
    log.at(std::string(), nullptr);
    // Comes behind it in the error queue.
    Events next;
    option.port = "1";
    option.set_on_error([&](unsigned long long, unsigned short, int, char const *) { next.add("error"); });
    rig.client.start(option);
    ASSERT_TRUE(next.wait(1));
    EXPECT_EQ(told, 0u);
}

TEST(ClientOrderClose, TheNextStartTellsItsErrors) {
    LogCapture log("clear(NONE)");
    ClientRig rig;
    rig.connect();
    rig.client.close();
    rig.connect();
    rig.server->close();
    ASSERT_TRUE(rig.events.wait(3));
    EXPECT_EQ(rig.events.all()[2].substr(0, 6), "error ");
}
