#include "tav/vinta/vinta_tls_client.h"

#include "support/bounded.h"
#include "support/client_rig.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

using namespace tav_test;

namespace {

tls::send_option waiting(int wait_ms, tls::timedout_function f = tls::timedout_function()) {
    return tls::send_option(wait_ms, std::move(f), false, 4);
}

/// ClientWaits in callbacks, where each kind would hold the thread that it needs.
class ClientWaits : public ::testing::Test {
protected:
    /// ClientWaits for a connect that is under way, once.
    void waitForConnect() {
        if (!waited_.exchange(true)) {
            thread_ = threadName();
            connect_ = rig.client.reconnect(tls::timedout_option());
            result_ = waitedHere(connect_);
            done_.add("done");
        }
    }
    /// ClientWaits for a send that has no answer, a new one if none is given, and for another one as a whole,
    /// once.
    void waitForSend(std::shared_ptr<tls::send_info> info = nullptr) {
        if (!waited_.exchange(true)) {
            thread_ = threadName();
            if (!info) {
                info = rig.client.send_msg(Ask(1), waiting(20000));
            }
            result_ = info ? waitedHere(info) : tls::result_ok;
            Answer answer;
            both_ = rig.client.send_and_wait(Ask(2), answer, 20000);
            done_.add("done");
        }
    }
    /// The wait ends at once with the line, and the connect that was waited for comes all the same.
    void expectConnectRefused(std::string const & thread) {
        ASSERT_TRUE(done_.wait(1));
        EXPECT_EQ(thread_, thread);
        EXPECT_EQ(tls::result_error, result_);
        LogCapture::Record const line = log.find("<n> a wait for a connect on the thread " + thread + ",");
        EXPECT_EQ(line.level, tavLogger::ERROR);
        EXPECT_NE(line.text.find(", which the connect needs, would never end: wait on a thread of the "
                                 "application or in on_error, or let on_open and on_timedout tell\n"),
                  std::string::npos)
            << line.text;
        accepting = std::make_unique<Acceptor>(rig.peer);
        EXPECT_EQ(resultOf(connect_), tls::result_ok);
    }
    void expectSendRefused(std::string const & thread) {
        ASSERT_TRUE(done_.wait(1));
        EXPECT_EQ(thread_, thread);
        EXPECT_EQ(tls::result_error, result_);
        EXPECT_EQ(both_, tls::result_error);
        std::string const words =
            "<n> a wait for a send on the thread " + thread +
            ", which has to end the send, would never end: give the send_option functions to be told by, or "
            "wait on a thread of the application or in on_error\n";
        EXPECT_EQ(log.find(words).level, tavLogger::ERROR);
        EXPECT_EQ(log.count(words), 2u);
        EXPECT_TRUE(endsInTime([this] { rig.client.close(); }));
    }

    LogCapture log{"clear(ERROR)"};
    ClientRig rig;
    std::unique_ptr<Acceptor> accepting;

private:
    std::atomic<bool> waited_{false};
    std::string thread_;
    std::shared_ptr<tls::connect_info> connect_;
    std::atomic<int> result_{tls::result_pending};
    std::atomic<int> both_{tls::result_pending};
    Events done_;
};

} // namespace

TEST_F(ClientWaits, ForAConnectOnTheIoThreadEndsAtOnce) {
    tls::connect_option option = rig.option();
    option.set_on_open([&] { waitForConnect(); });
    rig.connect(option);
    expectConnectRefused("<n>io.context");
}

TEST_F(ClientWaits, ForAConnectAfterAFailedCompletionEndsAtOnce) {
    tls::connect_option option = rig.option();
    option.set_on_error([&](unsigned long long, unsigned short, int, char const *) { waitForConnect(); });
    rig.connect(option);
    rig.server->send(std::string("\x01\0\0\0", 4));
    expectConnectRefused("<n>io.context");
}

TEST_F(ClientWaits, ForAConnectOnTheReceiverEndsAtOnce) {
    rig.client.on_nbr_msg(0x4000, [&](unsigned long long, unsigned short, unsigned char const *, unsigned,
                                      tavMsgExt) { waitForConnect(); });
    rig.connect();
    rig.server->send(mobile(0x4000, 1).framed());
    expectConnectRefused("<n>session.0.receiver");
}

TEST_F(ClientWaits, ForAConnectOnTheTimerEndsAtOnce) {
    rig.connect();
    rig.client.send_msg(Ask(1),
                        waiting(100, [&](unsigned long long, unsigned short, bool) { waitForConnect(); }));
    expectConnectRefused("<n>session.0.timer");
}

TEST_F(ClientWaits, ForAConnectOnTheQueueEndsAtOnce) {
    rig.connect();
    rig.client.send_msg(Ask(1),
                        waiting(20000, [&](unsigned long long, unsigned short, bool) { waitForConnect(); }));
    rig.receive();
    rig.client.close();
    expectConnectRefused("<n>session.0");
}

TEST_F(ClientWaits, ForASendOnTheIoThreadEndsAtOnce) {
    tls::connect_option option = rig.option();
    option.set_on_open([&] { waitForSend(); });
    rig.connect(option);
    expectSendRefused("<n>io.context");
}

TEST_F(ClientWaits, ForASendOnTheTimerEndsAtOnce) {
    rig.connect();
    rig.client.send_msg(Ask(1),
                        waiting(100, [&](unsigned long long, unsigned short, bool) { waitForSend(); }));
    expectSendRefused("<n>session.0.timer");
}

TEST_F(ClientWaits, ForASendOnTheQueueEndsAtOnce) {
    rig.connect();
    // Whichever is told first waits for the other one, which is told behind it.
    std::shared_ptr<tls::send_info> sends[2];
    for (unsigned const n : {0u, 1u}) {
        sends[n] = rig.client.send_msg(Ask(1), waiting(20000, [&, n](unsigned long long, unsigned short,
                                                                     bool) { waitForSend(sends[1 - n]); }));
        ASSERT_TRUE(sends[n]);
        rig.receive();
    }
    rig.client.close();
    expectSendRefused("<n>session.0");
    EXPECT_EQ(resultOf(sends[0]), tls::result_cancelled);
    EXPECT_EQ(resultOf(sends[1]), tls::result_cancelled);
}

TEST_F(ClientWaits, ForASendOnTheSenderEndsAtOnce) {
    rig.connect();
    // The first holds "sender" until the connection is gone, so that those behind it are ended there.
    tavLogger::setLogLevel("TLS.CLT", tavLogger::DEBUG);
    Gate gate;
    log.at("<n> add sending #", [&] { gate.pass(); });
    std::shared_ptr<tls::send_info> last;
    ASSERT_TRUE(rig.client.send_msg(Ask(1), waiting(20000)));
    ASSERT_TRUE(gate.waitArrived());
    ASSERT_TRUE(rig.client.send_msg(
        Ask(2), waiting(20000, [&](unsigned long long, unsigned short, bool) { waitForSend(last); })));
    last = rig.client.send_msg(Ask(3), waiting(20000));
    ASSERT_TRUE(last);
    rig.server->reset();
    ASSERT_TRUE(log.waitFor("<n> socket closed."));
    gate.open();
    expectSendRefused("<n>session.0.sender.0");
    EXPECT_EQ(resultOf(last), tls::result_cancelled);
    log.at(std::string(), nullptr);
}

TEST_F(ClientWaits, ForASendInItsOwnFunctionEndsAtOnce) {
    rig.connect();
    std::shared_ptr<tls::send_info> info;
    int result = tls::result_pending;
    info = rig.client.send_msg(
        Ask(1), waiting(20000, [&](unsigned long long, unsigned short, bool) { result = waitedHere(info); }));
    ASSERT_TRUE(info);
    rig.receive();
    info->cancel();
    EXPECT_EQ(result, tls::result_error);
    EXPECT_EQ(info->result(), tls::result_cancelled);
    LogCapture::Record const line = log.find("<n> a wait for the send #");
    EXPECT_EQ(line.level, tavLogger::ERROR);
    EXPECT_NE(line.text.find(
                  " in its own function, which ends it, would never end: the function is told the outcome\n"),
              std::string::npos)
        << line.text;
}

TEST_F(ClientWaits, ForASendOnTheReceiverEndsByItsLimit) {
    Events events;
    rig.client.on_nbr_msg(
        0x4000, [&](unsigned long long, unsigned short, unsigned char const *, unsigned, tavMsgExt) {
            auto const info = rig.client.send_msg(Ask(1), waiting(200));
            events.add(info && waitedHere(info) == tls::result_timedout ? "timedout" : "something else");
        });
    rig.connect();
    rig.server->send(mobile(0x4000, 1).framed());
    ASSERT_TRUE(events.wait(1));
    EXPECT_EQ(events.all()[0], "timedout");
    EXPECT_FALSE(log.contains(" would never end"));
}

TEST_F(ClientWaits, ForWhatHasEndedReturnItOnAnyThread) {
    tls::connect_option option = rig.option();
    std::shared_ptr<tls::connect_info> connect;
    std::shared_ptr<tls::send_info> send;
    Events events;
    rig.client.on_nbr_msg(
        0x4000, [&](unsigned long long, unsigned short, unsigned char const *, unsigned, tavMsgExt) {
            events.add(waitedHere(connect) == tls::result_ok ? "ok" : "not ok");
        });
    connect = rig.client.start(option);
    rig.finish(connect);
    rig.server->send(mobile(0x4000, 1).framed());
    ASSERT_TRUE(events.wait(1));
    EXPECT_EQ(events.all()[0], "ok");
}

TEST_F(ClientWaits, OnAThreadOfAnotherClientAreAllowed) {
    ClientRig other("other");
    Events events;
    std::unique_ptr<Acceptor> others;
    rig.client.on_nbr_msg(
        0x4000, [&](unsigned long long, unsigned short, unsigned char const *, unsigned, tavMsgExt) {
            others = std::make_unique<Acceptor>(other.peer);
            events.add(waitedHere(other.client.start(other.option())) == tls::result_ok ? "ok" : "not ok");
        });
    rig.connect();
    rig.server->send(mobile(0x4000, 1).framed());
    ASSERT_TRUE(events.wait(1));
    EXPECT_EQ(events.all()[0], "ok");
}
