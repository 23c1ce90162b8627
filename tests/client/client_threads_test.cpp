#include "client/vinta_tls_client_impl.h"

#include "support/bounded.h"
#include "support/client_rig.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <netdb.h>
#include <sys/socket.h>

#include <algorithm>

using namespace tav_test;

namespace {

tls::send_option waiting(int wait_ms, tls::timedout_function f) {
    return tls::send_option(wait_ms, std::move(f), false, 4);
}

class ClientThreads : public ::testing::Test {
protected:
    /// All calls that a callback may make that must not wait.  They only queue, so each returns at once; what
    /// the last of them asks for is a new connection.
    void callAll() {
        rig.client.send_msg(Ask(1), tls::send_option());
        rig.client.send_msg(Ask(2), waiting(20000, tls::timedout_function()));
        rig.client.send_nbr_msg(0x4001, nullptr, 0, tls::send_option());
        rig.client.connected();
        rig.client.should_check_heartbeat(true);
        rig.client.cancel_all();
        rig.client.close();
        last = rig.client.reconnect(tls::timedout_option());
        last = rig.client.start(rig.option());
        // One may be pending now, and is not waited for.
        last = rig.client.start(rig.option());
    }
    /// Notes the thread and makes all calls, the first time.
    void note(std::string const & what) {
        bool const first = !called.exchange(true);
        if (first) {
            callAll();
        }
        rig.events.add(what + " on " + threadName());
    }
    /// Waits for the note, and for the connection that the calls have asked for.
    void expectNote(std::string const & text) {
        ASSERT_TRUE(eventually([&] { return has(text); })) << text << ", got:" << seen();
        ASSERT_TRUE(last);
        acceptAll();
        EXPECT_EQ(resultOf(last), tls::result_ok) << seen();
    }
    /// From here on whatever connects is accepted.
    void acceptAll() {
        if (!accepting) {
            accepting = std::make_unique<Acceptor>(rig.peer);
        }
    }
    bool has(std::string const & text) const {
        std::vector<std::string> const all = rig.events.all();
        return std::find(all.begin(), all.end(), text) != all.end();
    }
    std::string seen() const {
        std::string out;
        for (std::string const & event : rig.events.all()) {
            out += "\n  " + event;
        }
        return out;
    }

    LogCapture log{"clear(NONE)"};
    std::atomic<bool> called{false};
    std::shared_ptr<tls::connect_info> last;
    ClientRig rig;
    std::unique_ptr<Acceptor> accepting;
};

} // namespace

TEST_F(ClientThreads, OnOpenRunsOnTheIoThread) {
    tls::connect_option option = rig.option();
    option.set_on_open([&] { note("open"); });
    auto const info = rig.client.start(option);
    acceptAll();
    EXPECT_EQ(resultOf(info), tls::result_ok);
    expectNote("open on <n>io.context");
}

TEST_F(ClientThreads, HighWaterIsToldWhereTheSendIsMadeAndLowWaterOnTheIoThread) {
    tls::connect_option option = rig.option();
    option.limits.queued_frames = 1;
    option.limits.on_queue = [&](bool full) { note(full ? "high water" : "low water"); };
    called = true; // Without further calls.
    rig.connect(option);
    rig.client.send_msg(Ask(1), tls::send_option());
    EXPECT_TRUE(has("high water on " + threadName())) << seen();
    EXPECT_TRUE(eventually([&] { return has("low water on <n>io.context"); })) << seen();
}

TEST_F(ClientThreads, LowWaterOfAConnectionThatIsClosedIsToldOnAThreadOfTheClient) {
    tls::connect_option option = rig.option();
    option.limits.queued_frames = 2;
    option.limits.on_queue = [&](bool full) { note(full ? "high water" : "low water"); };
    called = true;
    rig.connect(option);
    Ask more_than_sockets_hold(1);
    more_than_sockets_hold.text = tavString(std::string(15000000, 'x'));
    rig.client.send_msg(more_than_sockets_hold, tls::send_option());
    rig.client.send_msg(Ask(2), tls::send_option());
    ASSERT_TRUE(has("high water on " + threadName())) << seen();
    rig.client.close();
    EXPECT_TRUE(eventually([&] {
        return has("low water on <n>io.context") || has("low water on <n>session.0") ||
               has("low water on <n>session.0.sender.0");
    })) << seen();
}

TEST_F(ClientThreads, TheProxyCallbackRunsOnTheIoThreadAndMayBlockOnItsSocket) {
    tls::connect_option option = rig.option();
    option.proxy_host = "127.0.0.1";
    option.proxy_port = rig.peer.portText();
    option.set_on_http_proxy_connect([&](unsigned socket, char const *, unsigned short) {
        char hello[6] = {};
        EXPECT_EQ(::send(static_cast<int>(socket), "ping", 4, MSG_NOSIGNAL), 4);
        EXPECT_EQ(::recv(static_cast<int>(socket), hello, 4, MSG_WAITALL), 4);
        EXPECT_STREQ(hello, "pong");
        rig.events.add("proxy on " + threadName());
        return 0;
    });
    auto const info = rig.client.start(option);
    rig.server = rig.peer.accept();
    EXPECT_EQ(rig.server->receivePlainUntil("ping"), "ping");
    rig.server->sendPlain("pong");
    ASSERT_TRUE(rig.server->handshake());
    EXPECT_EQ(resultOf(info), tls::result_ok);
    EXPECT_EQ(rig.events.all()[0], "proxy on <n>io.context");
}

TEST_F(ClientThreads, TheProxyCallbackIsGivenTheNumberOfAService) {
    struct Asked {
        char const * port;
        unsigned number;
    };
    servent const * const https = ::getservbyname("https", "tcp");
    Events ports;
    unsigned calls = 0;
    for (Asked const asked :
         {Asked{"https", https != nullptr ? 443u : 0u}, Asked{"8443", 8443u}, Asked{"no-such-service", 0u}}) {
        tls::connect_option option = rig.option();
        option.port = asked.port;
        option.proxy_host = "127.0.0.1";
        option.proxy_port = rig.peer.portText();
        option.set_on_http_proxy_connect([&](unsigned, char const *, unsigned short port) {
            ports.add(std::to_string(port));
            return 1;
        });
        rig.client.start(option);
        ASSERT_TRUE(ports.wait(++calls)) << asked.port;
        EXPECT_EQ(ports.all().back(), std::to_string(asked.number)) << asked.port;
        rig.client.close();
    }
}

TEST_F(ClientThreads, OnErrorRunsOnItsQueueAndMayDoEverything) {
    tls::connect_option option = rig.option();
    Events events;
    option.set_on_error([&](unsigned long long, unsigned short, int, char const *) {
        events.add("error on " + threadName());
        // Waits for a whole new connection, and for a reply on it.
        auto const info = rig.client.reconnect(tls::timedout_option(20000));
        events.add(waitedHere(info) == tls::result_ok ? "connected" : "not connected");
        Answer answer;
        events.add(rig.client.send_and_wait(Ask(1), answer, 20000) == tls::result_ok ? "answered"
                                                                                     : "not answered");
    });
    rig.connect(option);
    rig.server->close();
    ASSERT_TRUE(events.wait(1));
    rig.server = rig.peer.accept();
    ASSERT_TRUE(rig.server->handshake());
    Pkt got = rig.receive();
    got.code = 0x1235;
    rig.server->send(got.framed());
    ASSERT_TRUE(events.wait(3));
    EXPECT_EQ(events.all(),
              (std::vector<std::string>{"error on <n>global.on_error.0", "connected", "answered"}));
}

TEST_F(ClientThreads, OnErrorMayWaitForAPendingStart) {
    tls::connect_option option = rig.option();
    Events events;
    Gate pending;
    option.set_on_error([&](unsigned long long, unsigned short, int, char const *) {
        pending.pass();
        events.add(waitedHere(rig.client.start(rig.option())) == tls::result_ok ? "connected"
                                                                                : "not connected");
    });
    rig.connect(option);
    rig.server->close();
    ASSERT_TRUE(pending.waitArrived());
    auto const first = rig.client.start(rig.option());
    rig.server = rig.peer.accept();
    pending.open();
    ASSERT_TRUE(rig.server->handshake());
    auto const second = rig.peer.accept();
    ASSERT_TRUE(second->handshake());
    ASSERT_TRUE(events.wait(1));
    EXPECT_EQ(events.all()[0], "connected");
    EXPECT_GE(first->result(), tls::result_ok);
}

TEST_F(ClientThreads, ErrorTenRunsOnTheIoThread) {
    tls::connect_option option = rig.option();
    option.set_on_error([&](unsigned long long, unsigned short, int code, char const *) {
        if (code == 10) {
            note("error 10");
        }
    });
    rig.connect(option);
    rig.server->send(std::string("\x01\0\0\0", 4));
    expectNote("error 10 on <n>io.context");
}

TEST_F(ClientThreads, ErrorTenDoesNotWaitForAPendingStart) {
    tls::connect_option option = rig.option();
    Events events;
    std::shared_ptr<tls::connect_info> second;
    tavLogger::setLogLevel("TLS.CLT", tavLogger::INFO);
    option.set_on_error([&](unsigned long long, unsigned short, int code, char const *) {
        if (code != 10) {
            return;
        }
        auto const first = rig.client.start(rig.option());
        // The first is under way, and this thread must let it go on.
        EXPECT_TRUE(log.waitFor("<n> connect \n", 2));
        EXPECT_EQ(rig.client.reconnect(tls::timedout_option()), first);
        second = rig.client.start(rig.option());
        events.add("started");
    });
    rig.connect(option);
    rig.server->send(std::string("\x01\0\0\0", 4));
    ASSERT_TRUE(events.wait(1));
    acceptAll();
    EXPECT_EQ(resultOf(second), tls::result_ok);
}

TEST_F(ClientThreads, SendLevelCallbacksRunOnTheReceiver) {
    rig.connect();
    tls::send_option option(20000, tls::timedout_function(), tls::error_function(),
                            tls::nbr_function([&](unsigned long long, unsigned short, unsigned char const *,
                                                  unsigned, tavMsgExt) { note("send level"); }),
                            0x1235, false, 4);
    rig.client.send_msg(Ask(1), option);
    rig.server->send(mobile(0x1235, rig.receive().sno).framed());
    expectNote("send level on <n>session.0.receiver");
}

TEST_F(ClientThreads, TypeLevelCallbacksRunOnTheReceiver) {
    rig.client.on_json_msg(
        0x3001, [&](unsigned long long, unsigned short, char const *, tavMsgExt) { note("type level"); });
    rig.connect();
    rig.server->send(mobile(0x3001, 1).framed());
    expectNote("type level on <n>session.0.receiver");
}

TEST_F(ClientThreads, GlobalCallbacksRunOnTheReceiver) {
    tls::connect_option option = rig.option();
    option.set_json_msg_callback(
        [&](unsigned long long, unsigned short, char const *, tavMsgExt) { note("global level"); });
    rig.connect(option);
    rig.server->send(mobile(0x3001, 1).framed());
    expectNote("global level on <n>session.0.receiver");
}

TEST_F(ClientThreads, OldMessageCallbacksRunOnTheReceiver) {
    rig.client.set_old_msg_default_callback(
        [&](unsigned long long, unsigned short, unsigned char const *, unsigned, tavMsgExt) { note("old"); });
    rig.connect();
    rig.server->send(old(5, 1).framed());
    expectNote("old on <n>session.0.receiver");
}

TEST_F(ClientThreads, ASendsTimeOutRunsOnTheTimer) {
    rig.connect();
    rig.client.send_msg(Ask(1), waiting(100, [&](unsigned long long, unsigned short, bool cancelled) {
                            note(cancelled ? "cancelled" : "timedout");
                        }));
    expectNote("timedout on <n>session.0.timer");
}

TEST_F(ClientThreads, ASendCancelledByItsInfoRunsOnTheCaller) {
    rig.connect();
    auto const info =
        rig.client.send_msg(Ask(1), waiting(20000, [&](unsigned long long, unsigned short, bool c) {
                                note(c ? "cancelled" : "timedout");
                            }));
    rig.receive();
    // A thread of the application's own waits for a pending start, so that one must be able to go on.
    acceptAll();
    EXPECT_TRUE(endsInTime([info] { info->cancel(); }));
    // A thread of the application's own has no registered name.
    expectNote("cancelled on main");
}

TEST_F(ClientThreads, ASendCancelledByCloseRunsOnTheQueue) {
    rig.connect();
    rig.client.send_msg(Ask(1), waiting(20000, [&](unsigned long long, unsigned short, bool c) {
                            note(c ? "cancelled" : "timedout");
                        }));
    rig.receive();
    rig.client.close();
    expectNote("cancelled on <n>session.0");
}

TEST_F(ClientThreads, ASendCancelledByCancelAllRunsOnTheQueue) {
    rig.connect();
    rig.client.send_msg(Ask(1), waiting(20000, [&](unsigned long long, unsigned short, bool c) {
                            note(c ? "cancelled" : "timedout");
                        }));
    rig.receive();
    rig.client.cancel_all();
    expectNote("cancelled on <n>session.0");
}

TEST_F(ClientThreads, ASendCancelledByReconnectRunsOnTheQueue) {
    rig.connect();
    rig.client.send_msg(Ask(1), waiting(20000, [&](unsigned long long, unsigned short, bool c) {
                            note(c ? "cancelled" : "timedout");
                        }));
    rig.receive();
    rig.client.reconnect(tls::timedout_option());
    expectNote("cancelled on <n>session.0");
}

TEST_F(ClientThreads, ASendCancelledByABrokenConnectionRunsOnTheIoThread) {
    rig.connect();
    rig.client.send_msg(Ask(1), waiting(20000, [&](unsigned long long, unsigned short, bool c) {
                            note(c ? "cancelled" : "timedout");
                        }));
    rig.receive();
    rig.server->close();
    expectNote("cancelled on <n>io.context");
}

TEST_F(ClientThreads, AConnectsTimeOutRunsOnTheTimer) {
    tls::connect_option option = rig.option();
    option.timedout = tls::timedout_option(
        200, [&](unsigned long long, unsigned short, bool c) { note(c ? "cancelled" : "timedout"); });
    auto const first = rig.client.start(option);
    EXPECT_EQ(resultOf(first), tls::result_timedout);
    expectNote("timedout on <n>session.0.timer");
}

TEST_F(ClientThreads, OnHeartbeatTimedoutRunsOnTheTimer) {
    // The core is used alone here, with a clock that can be moved on.
    std::atomic<long long> ahead{0};
    auto const core = std::make_shared<tls::impl::Client>(
        "h", [&ahead] { return tavTime::currentTimeMillis() + ahead.load(); });
    core->init__();
    Events events;
    tls::connect_option option = optionFor(rig.peer.port(), events);
    std::shared_ptr<tls::connect_info> again;
    option.set_on_heartbeat_timedout([&] {
        tls::send_option const plain;
        core->messages().send(Ask(1), plain);
        core->cancel_all__();
        core->close__();
        again = core->reconnect__(tls::timedout_option(), false);
        events.add("heartbeat on " + threadName());
    });
    auto const info = core->start__(option, false);
    rig.server = rig.peer.accept();
    ASSERT_TRUE(rig.server->handshake());
    ASSERT_EQ(resultOf(info), tls::result_ok);
    core->current()->check_heartbeat(true);
    ahead = 95000;
    ASSERT_TRUE(events.wait(2));
    EXPECT_EQ(events.all()[1], "heartbeat on <h>session.0.timer");
    rig.server = rig.peer.accept();
    ASSERT_TRUE(rig.server->handshake());
    EXPECT_EQ(resultOf(again), tls::result_ok);
    core->fini__();
    EXPECT_EQ(events.count(), 3u);
}

TEST_F(ClientThreads, TheThreadsOfAClientAreSix) {
    Holdings const without;
    unsigned const before = threadsNow();
    {
        ClientRig other("six");
        EXPECT_EQ(threadsNow(), before + 3);
        other.connect();
        // An address in numbers needs no lookup, and so no thread for it.
        EXPECT_TRUE(eventually([&] { return threadsNow() == before + 6; })) << threadsNow() - before;
        other.client.close();
        EXPECT_TRUE(eventually([&] { return threadsNow() == before + 3; })) << threadsNow() - before;
    }
    EXPECT_TRUE(without.back()) << without.print();
}

TEST_F(ClientThreads, NamesCarryTheCreatorsName) {
    Events events;
    std::thread const * made = nullptr;
    auto const thread = tav_async_run(
        [&] {
            tls::client c("n");
            tls::connect_option option = optionFor(rig.peer.port(), events);
            auto const info = c.start(option);
            auto const server = rig.peer.accept();
            server->handshake();
            resultOf(info);
            server->close();
            events.wait(2);
        },
        "app", 0);
    made = thread.get();
    ASSERT_NE(made, nullptr);
    thread->join();
    ASSERT_EQ(events.count(), 2u);
    EXPECT_EQ(events.all()[0], "open on app.<n>io.context");
    EXPECT_NE(events.all()[1].find(" on app.<n>global.on_error.0: "), std::string::npos) << events.all()[1];
}

TEST_F(ClientThreads, EachMemberMayBeCalledFromManyThreadsAtOnce) {
    rig.connect();
    acceptAll();
    std::vector<std::thread> callers;
    tls::connect_option const option = rig.option();
    for (int t = 0; t < 4; ++t) {
        callers.emplace_back([&, t] {
            for (int i = 0; i < 60; ++i) {
                switch ((i + t * 3) % 9) {
                case 0: rig.client.start(option, i % 2 == 0); break;
                case 1: rig.client.reconnect(tls::timedout_option(5000)); break;
                case 2: rig.client.send_msg(Ask(i), waiting(50, tls::timedout_function())); break;
                case 3: rig.client.close(); break;
                case 4: rig.client.cancel_all(); break;
                case 5: rig.client.connected(); break;
                case 6: rig.client.should_check_heartbeat(true); break;
                case 7:
                    try {
                        rig.client.get_local_addr();
                        rig.client.get_remote_addr();
                    } catch (std::system_error const &) {
                    }
                    break;
                default:
                    rig.client.register_message(0x3001, &Ask::create);
                    rig.client.find_code_by_class("Ask");
                    rig.client.get_next_sno();
                    break;
                }
            }
        });
    }
    for (std::thread & caller : callers) {
        caller.join();
    }
    auto const info = rig.client.start(option);
    EXPECT_EQ(resultOf(info), tls::result_ok);
}
