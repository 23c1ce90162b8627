#include "client/thread_role.h"
#include "client/vinta_tls_client_impl.h"

#include "support/bounded.h"
#include "support/client_rig.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <thread>

using namespace tav_test;
using tls::client;

namespace {

/// The port of a listener that is gone.
unsigned closedPort() {
    TlsPeer peer;
    return peer.port();
}

/// The events so far that begin with `part`.
unsigned countOf(Events const & events, std::string const & part) {
    unsigned n = 0;
    for (std::string const & event : events.all()) {
        n += event.rfind(part, 0) == 0 ? 1u : 0u;
    }
    return n;
}

tls::send_option waiting(Events & events, std::string const & name, int wait_ms = 20000) {
    return tls::send_option(
        wait_ms,
        [&events, name](unsigned long long, unsigned short, bool cancelled) {
            events.add(name + (cancelled ? " cancelled on " : " timedout on ") + threadName());
        },
        false, 4);
}

} // namespace

TEST(ClientConnectStart, AnEmptyHostOrPortGivesNullAndQueuesNothing) {
    LogCapture log;
    client c("n");
    tls::connect_option option;
    EXPECT_FALSE(c.start(option));
    EXPECT_EQ(log.find("<n> host is empty\n").level, tavLogger::ERROR);
    EXPECT_FALSE(log.contains(" port is empty"));
    option.host = "127.0.0.1";
    EXPECT_FALSE(c.start(option));
    EXPECT_EQ(log.find("<n> port is empty\n").level, tavLogger::ERROR);
    EXPECT_FALSE(log.contains(" on_start..."));
    option.host.clear();
    option.port = "1";
    EXPECT_FALSE(c.start(option));
    EXPECT_EQ(log.count("<n> host is empty\n"), 2u);
}

TEST(ClientConnectStart, TellsTheResultAfterOnOpen) {
    LogCapture log;
    ClientRig rig;
    Gate gate;
    tls::connect_option option = rig.option();
    option.set_on_open([&] { gate.pass(); });
    auto const info = rig.client.start(option);
    rig.server = rig.peer.accept();
    ASSERT_TRUE(rig.server->handshake());
    ASSERT_TRUE(gate.waitArrived());
    EXPECT_EQ(info->result(), tls::result_pending);
    gate.open();
    EXPECT_EQ(resultOf(info), tls::result_ok);
    EXPECT_EQ(waited(info), tls::result_ok);
    EXPECT_TRUE(rig.client.connected());
    EXPECT_TRUE(
        log.inOrder({"<n> starting... ", "<n> on_start...\n", "<n> cancel all\n", "<n> session construct\n",
                     "<n> open session\n", "<n> connect \n", "<n> connect ok\n", " channel open ok\n"}));
    EXPECT_FALSE(log.contains(" too fast"));
}

TEST(ClientConnectStart, WaitLogsTheOptionAndTheResult) {
    LogCapture log;
    ClientRig rig;
    tls::connect_option option = rig.option();
    option.timedout.wait_ms(60000);
    auto const info = rig.client.start(option);
    auto waiter = waitOf(info);
    ASSERT_TRUE(log.waitFor("<n> connect wait begin, max waiting 60000ms...\n"));
    rig.finish(info);
    EXPECT_EQ(got(std::move(waiter)), tls::result_ok);
    EXPECT_TRUE(log.contains("<n> connect wait end, result = ok\n"));
    EXPECT_EQ(waited(info), tls::result_ok);
    EXPECT_EQ(log.count(" connect wait begin, "), 1u);
}

TEST(ClientConnectStart, AllWaitersWake) {
    LogCapture log;
    ClientRig rig;
    auto const info = rig.client.start(rig.option());
    std::vector<std::future<tls::result_type>> waiters;
    for (int i = 0; i < 4; ++i) {
        waiters.push_back(waitOf(info));
    }
    ASSERT_TRUE(log.waitFor("<n> connect wait begin, ", 4));
    rig.finish(info);
    for (auto & waiter : waiters) {
        EXPECT_EQ(got(std::move(waiter)), tls::result_ok);
    }
}

TEST(ClientConnectStart, ARefusedPortIsAnErrorOnTheErrorQueue) {
    LogCapture log;
    Events events;
    client c("n");
    auto const info = c.start(optionFor(closedPort(), events));
    EXPECT_EQ(resultOf(info), tls::result_error);
    ASSERT_TRUE(events.wait(1));
    EXPECT_EQ(
        events.all()[0].rfind("error " + std::to_string(ECONNREFUSED) + " on <n>global.on_error.0: ", 0), 0u)
        << events.all()[0];
    EXPECT_TRUE(log.contains("<n> connect error <" + std::to_string(ECONNREFUSED) + ">"));
    EXPECT_FALSE(c.connected());
    c.close();
    ASSERT_TRUE(log.waitFor("<n> session destruct\n"));
    EXPECT_EQ(events.count(), 1u);
}

TEST(ClientConnectStart, AnUnknownHostIsAnError) {
    LogCapture log;
    Events events;
    client c("n");
    tls::connect_option option = optionFor(1, events);
    option.host = "not-a-host.invalid.";
    auto const info = c.start(option);
    EXPECT_EQ(resultOf(info, 60000), tls::result_error);
    ASSERT_TRUE(events.wait(1));
    EXPECT_NE(events.all()[0].find(" on <n>global.on_error.0: "), std::string::npos);
    EXPECT_TRUE(log.contains("<n> resolve failed "));
}

TEST(ClientConnectStart, AFailedResolveIsToldTwiceWhenThereIsALimit) {
    LogCapture log;
    Events events;
    client c("n");
    tls::connect_option option = optionFor(1, events);
    option.host = "127.0.0.1";
    option.port = "no such service";
    option.timedout.wait_ms(300);
    auto const info = c.start(option);
    EXPECT_EQ(resultOf(info), tls::result_error);
    ASSERT_TRUE(events.wait(2));
    EXPECT_EQ(countOf(events, "error "), 1u);
    EXPECT_EQ(countOf(events, "timedout on <n>session.0.timer"), 1u);
    EXPECT_EQ(info->result(), tls::result_error);
}

TEST(ClientConnectStart, AnUnusableCertificatePathIsNoReasonForNull) {
    LogCapture log;
    ClientRig rig;
    tls::connect_option option = rig.option();
    option.ca = "/nonexistent/ca.pem";
    auto const info = rig.client.start(option);
    ASSERT_TRUE(info);
    rig.server = rig.peer.accept();
    rig.server->handshake();
    EXPECT_EQ(resultOf(info), tls::result_error);
    ASSERT_TRUE(rig.events.wait(1));
    EXPECT_EQ(countOf(rig.events, "error "), 1u);
}

TEST(ClientConnectStart, ASecondStartWaitsForTheFirst) {
    LogCapture log;
    ClientRig rig;
    auto const first = rig.client.start(rig.option());
    rig.server = rig.peer.accept();
    ASSERT_TRUE(log.waitFor("<n> connected, start client handshake..."));
    std::shared_ptr<tls::connect_info> second;
    std::thread other([&] { second = rig.client.start(rig.option()); });
    ASSERT_TRUE(log.waitFor("<n> last start not complete, wait it...\n"));
    EXPECT_EQ(log.find(" last start not complete, wait it...").level, tavLogger::WARN);
    ASSERT_TRUE(rig.server->handshake());
    other.join();
    EXPECT_EQ(first->result(), tls::result_ok);
    EXPECT_EQ(log.find("<n> last start not complete, wait result = ok\n").level, tavLogger::WARN);
    rig.finish(second);
    EXPECT_EQ(second->result(), tls::result_ok);
    EXPECT_EQ(rig.peer.connections(), 2u);
    EXPECT_EQ(countOf(rig.events, "error "), 0u);
}

TEST(ClientConnectStart, AStartThatIsOnlyQueuedIsCancelledByTheNext) {
    LogCapture log;
    ClientRig rig;
    rig.connect();
    // A cancelled send holds the queue, so that the next starts are queued behind it.
    Gate gate;
    auto const send = rig.client.send_msg(
        Ask(1), tls::send_option(
                    20000, [&](unsigned long long, unsigned short, bool) { gate.pass(); }, false, 4));
    ASSERT_TRUE(send);
    rig.receive();
    rig.client.cancel_all();
    ASSERT_TRUE(gate.waitArrived());
    auto const first = rig.client.start(rig.option());
    auto const second = rig.client.start(rig.option());
    EXPECT_EQ(first->result(), tls::result_pending);
    gate.open();
    EXPECT_EQ(resultOf(first), tls::result_cancelled);
    EXPECT_FALSE(log.contains(" last start not complete"));
    Acceptor const accepting(rig.peer);
    EXPECT_EQ(resultOf(second), tls::result_ok);
    EXPECT_TRUE(log.contains("<n> cancel connecting...\n"));
}

TEST(ClientConnectStart, BehindACancelledOneItIsANewAttemptAtOnce) {
    LogCapture log;
    ClientRig rig;
    auto const first = rig.client.start(rig.option());
    auto const lost = rig.peer.accept();
    ASSERT_TRUE(log.waitFor("<n> connected, start client handshake..."));
    first->cancel();
    auto const second = rig.client.start(rig.option());
    EXPECT_FALSE(log.contains(" last start not complete"));
    rig.finish(second);
    EXPECT_TRUE(lost->waitClosed());
    EXPECT_EQ(first->result(), tls::result_cancelled);
    EXPECT_TRUE(rig.settle());
    EXPECT_EQ(countOf(rig.events, "open "), 1u);
    EXPECT_EQ(countOf(rig.events, "error "), 0u);
}

TEST(ClientConnectStart, OneThatWaitsGoesOnAsTheFirstIsCancelled) {
    LogCapture log;
    ClientRig rig;
    auto const first = rig.client.start(rig.option());
    auto const lost = rig.peer.accept();
    ASSERT_TRUE(log.waitFor("<n> connected, start client handshake..."));
    std::shared_ptr<tls::connect_info> second;
    std::thread other([&] { second = rig.client.start(rig.option()); });
    ASSERT_TRUE(log.waitFor("<n> connect wait begin, "));
    first->cancel();
    other.join();
    EXPECT_TRUE(log.contains("<n> last start not complete, wait result = cancelled\n"));
    rig.finish(second);
    EXPECT_TRUE(rig.settle());
}

TEST(ClientConnectStart, AStartInACallbackDoesNotWaitForThePendingOne) {
    LogCapture log;
    ClientRig rig;
    tls::connect_option option = rig.option();
    std::shared_ptr<tls::connect_info> second;
    option.set_on_open([&] {
        if (!second) {
            second = rig.client.start(rig.option());
            rig.events.add("started");
        }
    });
    // A message callback that starts twice: the first of them may be pending when the second comes.
    rig.connect(option);
    ASSERT_TRUE(second);
    rig.server = rig.peer.accept();
    ASSERT_TRUE(rig.server->handshake());
    EXPECT_EQ(resultOf(second), tls::result_ok);
}

TEST(ClientConnectStart, ATimeOutCallbackThatStartsIsNotHeldUp) {
    LogCapture log;
    Events events;
    TlsPeer silent;
    ClientRig rig;
    tls::connect_option option = optionFor(silent.port(), events);
    std::shared_ptr<tls::connect_info> second;
    option.timedout = tls::timedout_option(200, [&](unsigned long long, unsigned short, bool) {
        second = rig.client.start(rig.option());
        events.add("started");
    });
    auto const first = rig.client.start(option);
    EXPECT_EQ(resultOf(first), tls::result_timedout);
    ASSERT_TRUE(events.wait(1));
    rig.finish(second);
}

TEST(ClientConnectReuse, AConnectionToTheSameHostAndPortIsKept) {
    LogCapture log;
    ClientRig rig;
    rig.connect();
    auto const again = rig.client.start(rig.option(), true);
    ASSERT_TRUE(again);
    EXPECT_EQ(again->result(), tls::result_ok);
    EXPECT_EQ(waited(again), tls::result_ok);
    EXPECT_EQ(log.find("<n> connected already, no need to start again\n").level, tavLogger::WARN);
    EXPECT_EQ(rig.peer.connections(), 1u);
    EXPECT_EQ(log.count(" on_start..."), 1u);
    auto const reconnected = rig.client.reconnect(tls::timedout_option(100), true);
    EXPECT_EQ(reconnected->result(), tls::result_ok);
    EXPECT_EQ(log.find("<n> connected already, no need to reconnect\n").level, tavLogger::WARN);
    EXPECT_EQ(log.count(" on_reconnect..."), 0u);
    EXPECT_TRUE(rig.client.connected());
    EXPECT_TRUE(rig.settle());
}

TEST(ClientConnectReuse, AnotherAddressOrFalseMakesANewConnection) {
    LogCapture log;
    ClientRig rig;
    rig.connect();
    auto first = std::move(rig.server);
    tls::connect_option named = rig.option();
    named.host = "localhost";
    auto const info = rig.client.start(named, true);
    rig.finish(info);
    EXPECT_TRUE(first->waitClosed());
    EXPECT_EQ(rig.peer.connections(), 2u);
    auto second = std::move(rig.server);
    rig.connect(named);
    EXPECT_TRUE(second->waitClosed());
    EXPECT_EQ(rig.peer.connections(), 3u);
    EXPECT_EQ(countOf(rig.events, "error "), 0u);
    EXPECT_EQ(countOf(rig.events, "open "), 3u);
    EXPECT_FALSE(log.contains("connected already"));
}

TEST(ClientConnectReuse, AClosedConnectionIsNotReused) {
    LogCapture log;
    ClientRig rig;
    rig.connect();
    rig.client.cancel_all();
    ASSERT_TRUE(eventually([&] { return !rig.client.connected(); }));
    rig.finish(rig.client.start(rig.option(), true));
    EXPECT_EQ(rig.peer.connections(), 2u);
}

TEST(ClientConnectReconnect, UsesTheOptionOfTheLastStart) {
    LogCapture log;
    ClientRig rig;
    rig.connect();
    auto const first = std::move(rig.server);
    rig.reconnect();
    EXPECT_TRUE(first->waitClosed());
    EXPECT_TRUE(rig.client.connected());
    EXPECT_EQ(countOf(rig.events, "open "), 2u);
    EXPECT_EQ(countOf(rig.events, "error "), 0u);
    EXPECT_TRUE(log.inOrder({"<n> reconnecting... ", "<n> on_reconnect...\n", "<n> cancel all\n",
                             "<n> close session\n", "<n> session construct\n", "<n> connect \n"}));
}

TEST(ClientConnectReconnect, AfterAnErrorBringsTheConnectionBack) {
    LogCapture log;
    ClientRig rig;
    rig.connect();
    rig.server->close();
    ASSERT_TRUE(rig.events.wait(2));
    EXPECT_EQ(countOf(rig.events, "error "), 1u);
    EXPECT_FALSE(rig.client.connected());
    rig.reconnect();
    EXPECT_TRUE(rig.settle());
}

TEST(ClientConnectReconnect, WithoutAStartThereIsNoAddressAndNothingIsReached) {
    LogCapture log;
    client c("n");
    auto const info = c.reconnect(tls::timedout_option());
    ASSERT_TRUE(info);
    c.close();
    EXPECT_GE(resultOf(info), tls::result_error);
    EXPECT_FALSE(c.connected());
}

TEST(ClientConnectReconnect, WhileOneIsPendingIsBusyAndTheSame) {
    LogCapture log;
    ClientRig rig;
    auto const pending = rig.client.start(rig.option());
    rig.server = rig.peer.accept();
    ASSERT_TRUE(log.waitFor("<n> connected, start client handshake..."));
    auto waiter = waitOf(pending);
    ASSERT_TRUE(log.waitFor("<n> connect wait begin, "));
    auto const busy = rig.client.reconnect(tls::timedout_option(50));
    EXPECT_EQ(busy, pending);
    EXPECT_EQ(busy->result(), tls::result_busy);
    EXPECT_EQ(log.find("<n> last reconnect not complete, return directly\n").level, tavLogger::WARN);
    EXPECT_EQ(rig.client.reconnect(tls::timedout_option()), pending);
    EXPECT_EQ(waiter.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    ASSERT_TRUE(rig.server->handshake());
    EXPECT_EQ(got(std::move(waiter)), tls::result_ok);
    EXPECT_EQ(busy->result(), tls::result_ok);
    EXPECT_EQ(log.count(" on_reconnect..."), 0u);
}

TEST(ClientConnectReconnect, BehindACancelledAttemptItIsANewOne) {
    LogCapture log;
    ClientRig rig;
    auto const cancelled = rig.client.start(rig.option());
    auto const lost = rig.peer.accept();
    ASSERT_TRUE(log.waitFor("<n> connected, start client handshake..."));
    cancelled->cancel();
    auto const again = rig.client.reconnect(tls::timedout_option());
    ASSERT_NE(again, cancelled);
    rig.finish(again);
    EXPECT_TRUE(lost->waitClosed());
    EXPECT_EQ(cancelled->result(), tls::result_cancelled);
    EXPECT_FALSE(log.contains(" last reconnect not complete"));
    EXPECT_TRUE(rig.settle());
}

TEST(ClientConnectReconnect, ALateSuccessOfTheCancelledAttemptTellsNoSecondOnOpen) {
    for (char const * const line : {"<n> handshake ok...", "<n> connect ok\n", " channel open ok"}) {
        LogCapture log;
        ClientRig rig;
        Gate gate;
        log.at(line, [&] { gate.pass(); });
        auto const cancelled = rig.client.start(rig.option());
        auto const lost = rig.peer.accept();
        ASSERT_TRUE(lost->handshake());
        ASSERT_TRUE(gate.waitArrived()) << line;
        cancelled->cancel();
        auto const again = rig.client.reconnect(tls::timedout_option());
        ASSERT_NE(again, cancelled);
        ASSERT_TRUE(log.waitFor("<n> resolving ", 2));
        gate.open();
        rig.finish(again);
        EXPECT_TRUE(rig.settle());
        EXPECT_EQ(rig.events.all(), std::vector<std::string>{"open on <n>io.context"}) << line;
        EXPECT_EQ(cancelled->result(), tls::result_cancelled);
        log.at(std::string(), nullptr);
    }
}

TEST(ClientConnectReconnect, BehindAnAttemptThatRanOutOfTimeItIsANewOne) {
    LogCapture log;
    ClientRig rig;
    tls::connect_option option = rig.option();
    option.timedout.wait_ms(100);
    ASSERT_EQ(resultOf(rig.client.start(option)), tls::result_timedout);
    auto const lost = rig.peer.accept();
    rig.finish(rig.client.reconnect(tls::timedout_option()));
    EXPECT_TRUE(lost->waitClosed());
    EXPECT_TRUE(rig.settle());
}

TEST(ClientConnectReconnect, ASecondAttemptWithinThreeSecondsIsNotedAndGoesOnAtOnce) {
    LogCapture log;
    ClientRig rig;
    rig.connect();
    EXPECT_FALSE(log.contains(" too fast"));
    rig.reconnect();
    LogCapture::Record const first = log.find("<n> reconnect too fast, sleep ");
    EXPECT_EQ(first.level, tavLogger::INFO);
    std::size_t const at = first.text.find("sleep ") + 6;
    int const left = std::atoi(first.text.c_str() + at);
    EXPECT_GE(left, 1);
    EXPECT_LE(left, 2999);
    EXPECT_EQ(first.text.substr(first.text.find("ms....", at)), "ms....(no support)\n");
    rig.connect();
    EXPECT_EQ(log.count("<n> start too fast, sleep "), 1u);
    EXPECT_TRUE(log.inOrder({"<n> on_reconnect...\n", "<n> reconnect too fast", "<n> cancel all\n",
                             "<n> on_start...\n", "<n> start too fast"}));
}

TEST(ClientConnectReconnect, AnAttemptJustThreeSecondsLaterIsNotTooFast) {
    LogCapture log;
    TlsPeer peer;
    Events events;
    std::atomic<long long> now{0};
    auto const core = std::make_shared<tls::impl::Client>("n", [&now] { return now.load(); });
    core->init__();
    auto const attempted = [&](unsigned times, std::shared_ptr<tls::connect_info> const & info) {
        bool const came = log.waitFor("<n> resolving ", times);
        core->cancel_all__();
        return came && resultOf(info) == tls::result_cancelled;
    };
    EXPECT_TRUE(attempted(1, core->start__(optionFor(peer.port(), events), false)));
    now += 3000;
    EXPECT_TRUE(attempted(2, core->reconnect__(tls::timedout_option(), false)));
    EXPECT_FALSE(log.contains(" too fast"));
    now += 2999;
    EXPECT_TRUE(attempted(3, core->reconnect__(tls::timedout_option(), false)));
    EXPECT_EQ(log.count("<n> reconnect too fast, sleep 1ms....(no support)\n"), 1u);
    core->fini__();
}

TEST(ClientConnectTimeOut, FiresOnTheTimerAndLeavesTheAttempt) {
    LogCapture log;
    ClientRig rig;
    tls::connect_option option = rig.option();
    option.timedout.wait_ms(300);
    auto const info = rig.client.start(option);
    EXPECT_EQ(resultOf(info), tls::result_timedout);
    ASSERT_TRUE(rig.events.wait(1));
    EXPECT_EQ(rig.events.all()[0], "timedout on <n>session.0.timer");
    EXPECT_TRUE(log.contains("<n> connect timedout\n"));
    EXPECT_TRUE(log.contains("max waiting 300ms..."));
    EXPECT_FALSE(rig.client.connected());
    // The attempt goes on in the background.
    rig.server = rig.peer.accept();
    ASSERT_TRUE(rig.server->handshake());
    ASSERT_TRUE(rig.events.wait(2));
    EXPECT_EQ(rig.events.all()[1], "open on <n>io.context");
    EXPECT_EQ(info->result(), tls::result_timedout);
    EXPECT_TRUE(rig.client.connected());
    EXPECT_TRUE(rig.settle());
}

TEST(ClientConnectTimeOut, TheFunctionRunsBeforeTheResult) {
    LogCapture log;
    ClientRig rig;
    Gate gate;
    tls::connect_option option = rig.option();
    option.timedout =
        tls::timedout_option(200, [&](unsigned long long, unsigned short, bool) { gate.pass(); });
    auto const info = rig.client.start(option);
    ASSERT_TRUE(gate.waitArrived());
    EXPECT_EQ(info->result(), tls::result_pending);
    gate.open();
    EXPECT_EQ(resultOf(info), tls::result_timedout);
}

TEST(ClientConnectTimeOut, AReconnectInItsFunctionHasItsOwnLimit) {
    LogCapture log;
    Gate gate;
    ClientRig rig;
    std::shared_ptr<tls::connect_info> again;
    tls::connect_option option = rig.option();
    option.timedout = tls::timedout_option(200, [&](unsigned long long, unsigned short, bool) {
        again = rig.client.reconnect(tls::timedout_option(
            200, [&](unsigned long long, unsigned short, bool) { rig.events.add("own timedout"); }));
        gate.pass();
    });
    auto const first = rig.client.start(option);
    ASSERT_TRUE(gate.waitArrived());
    // The next attempt has its limit by then, and waits for the function to end.
    EXPECT_TRUE(log.waitFor(" close session\n", 1));
    gate.open();
    EXPECT_EQ(resultOf(first), tls::result_timedout);
    EXPECT_EQ(resultOf(again), tls::result_timedout);
    EXPECT_EQ(countOf(rig.events, "own timedout"), 1u);
}

TEST(ClientConnectTimeOut, ASpentLimitLeavesAnEmptyReconnectWithoutOne) {
    LogCapture log;
    ClientRig rig;
    tls::connect_option option = rig.option();
    option.timedout.wait_ms(200);
    ASSERT_EQ(resultOf(rig.client.start(option)), tls::result_timedout);
    ASSERT_TRUE(rig.events.wait(1));
    EXPECT_EQ(option.timedout.wait_ms(), 200);
    auto const again = rig.client.reconnect(tls::timedout_option());
    ASSERT_TRUE(log.waitFor("<n> connect \n", 2));
    // Longer than the first limit, by ticks that pass.
    EXPECT_FALSE(rig.events.wait(2, 900));
    EXPECT_EQ(again->result(), tls::result_pending);
    rig.server = rig.peer.accept();
    rig.server = rig.peer.accept();
    ASSERT_TRUE(rig.server->handshake());
    EXPECT_EQ(resultOf(again), tls::result_ok);
    // An option with a limit of its own has one again.
    auto const limited = rig.client.reconnect(tls::timedout_option(
        200, [&](unsigned long long, unsigned short, bool) { rig.events.add("own timedout"); }));
    EXPECT_EQ(resultOf(limited), tls::result_timedout);
    EXPECT_EQ(countOf(rig.events, "own timedout"), 1u);
}

TEST(ClientConnectTimeOut, AnEmptyReconnectOptionKeepsTheEarlierLimitInForce) {
    LogCapture log;
    ClientRig rig;
    tls::connect_option option = rig.option();
    option.timedout.wait_ms(1500);
    rig.connect(option);
    auto const info = rig.client.reconnect(tls::timedout_option(0));
    EXPECT_EQ(resultOf(info), tls::result_timedout);
    ASSERT_TRUE(rig.events.wait(2));
    EXPECT_EQ(countOf(rig.events, "timedout on <n>session.0.timer"), 1u);
    EXPECT_TRUE(log.contains("on timedout #18446744073709551615 0xffffmax waiting 1500ms..."));
}

TEST(ClientConnectTimeOut, AThrowingFunctionDoesNotKeepTheResult) {
    LogCapture log;
    ClientRig rig;
    tls::connect_option option = rig.option();
    option.timedout = tls::timedout_option(
        200, [](unsigned long long, unsigned short, bool) { throw std::runtime_error("from timed out"); });
    EXPECT_EQ(resultOf(rig.client.start(option)), tls::result_timedout);
    EXPECT_TRUE(log.waitFor("<<< EXCEPTION >>> from timed out\n    catch at "));
}

TEST(ClientConnectClose, EndsTheConnectionAndTheSendsWithoutAnEvent) {
    LogCapture log;
    ClientRig rig;
    rig.connect();
    auto const send = rig.client.send_msg(Ask(1), waiting(rig.events, "send"));
    ASSERT_TRUE(send);
    rig.receive();
    rig.client.close();
    EXPECT_EQ(resultOf(send), tls::result_cancelled);
    EXPECT_TRUE(rig.server->waitClosed());
    ASSERT_TRUE(log.waitFor("<n> session destruct\n"));
    EXPECT_FALSE(rig.client.connected());
    EXPECT_EQ(rig.events.all(),
              (std::vector<std::string>{"open on <n>io.context", "send cancelled on <n>session.0"}));
    EXPECT_TRUE(log.inOrder({"<n> closing...\n", "<n> close...\n", "<n> on_close...\n", "<n> cancel all\n",
                             "<n> cancel session\n", "<n> cancel all sending...\n", "<n> close session\n"}));
    EXPECT_TRUE(rig.client.get_remote_addr().empty());
    EXPECT_FALSE(rig.client.send_msg(Ask(1), waiting(rig.events, "late")));
    EXPECT_EQ(log.find("<n> no session\n").level, tavLogger::ERROR);
}

TEST(ClientConnectClose, CancelsAPendingConnect) {
    LogCapture log;
    ClientRig rig;
    auto const info = rig.client.start(rig.option());
    rig.server = rig.peer.accept();
    ASSERT_TRUE(log.waitFor("<n> connected, start client handshake..."));
    rig.client.close();
    EXPECT_EQ(resultOf(info), tls::result_cancelled);
    EXPECT_TRUE(rig.server->waitClosed());
    ASSERT_TRUE(log.waitFor("<n> session destruct\n"));
    EXPECT_EQ(rig.events.count(), 0u);
    EXPECT_TRUE(log.inOrder({"<n> on_close...\n", "<n> cancel all\n", "<n> cancel connecting...\n"}));
}

TEST(ClientConnectClose, WithoutAConnectionIsHarmless) {
    LogCapture log;
    client c("n");
    c.close();
    c.cancel_all();
    ASSERT_TRUE(log.waitFor("<n> on_close...\n"));
    EXPECT_FALSE(log.contains(" close session"));
}

TEST(ClientConnectCancelAll, StopsSendingAndKeepsTheSocketOpen) {
    LogCapture log;
    ClientRig rig;
    rig.connect();
    auto const send = rig.client.send_msg(Ask(1), waiting(rig.events, "send"));
    ASSERT_TRUE(send);
    rig.receive();
    rig.client.cancel_all();
    EXPECT_EQ(resultOf(send), tls::result_cancelled);
    EXPECT_FALSE(rig.client.connected());
    EXPECT_FALSE(rig.client.send_msg(Ask(2), waiting(rig.events, "late")));
    EXPECT_EQ(log.find("<n> session not connected\n").level, tavLogger::ERROR);
    EXPECT_EQ(rig.client.get_remote_addr().port, rig.peer.portText());
    // What the server sends still arrives.
    EXPECT_TRUE(rig.settle());
    EXPECT_EQ(countOf(rig.events, "error "), 0u);
    rig.client.close();
    EXPECT_TRUE(rig.server->waitClosed());
}

TEST(ClientConnectCancelAll, EndsAPendingConnectAndLetsTheAttemptGoOn) {
    LogCapture log;
    ClientRig rig;
    auto const info = rig.client.start(rig.option());
    rig.server = rig.peer.accept();
    ASSERT_TRUE(log.waitFor("<n> connected, start client handshake..."));
    rig.client.cancel_all();
    EXPECT_EQ(resultOf(info), tls::result_cancelled);
    ASSERT_TRUE(rig.server->handshake());
    ASSERT_TRUE(rig.events.wait(1));
    EXPECT_EQ(rig.events.all()[0], "open on <n>io.context");
    EXPECT_EQ(info->result(), tls::result_cancelled);
    EXPECT_FALSE(rig.client.connected());
}

TEST(ClientConnectError, OfASocketThatTheProxyCallbackClosedIsTold) {
    ClientRig rig;
    tls::connect_option option = rig.option();
    option.proxy_host = option.host;
    option.proxy_port = option.port;
    option.set_on_http_proxy_connect([](unsigned int socket, char const *, unsigned short) {
        ::close(static_cast<int>(socket));
        return 0;
    });
    auto const info = rig.client.start(option);
    EXPECT_EQ(resultOf(info), tls::result_error);
    // The close that failed is told too, on the I/O thread.
    EXPECT_TRUE(eventually(
        [&] { return countOf(rig.events, "error " + textOf(EBADF) + " on <n>global.on_error.0: ") == 1; }));
    EXPECT_FALSE(rig.client.connected());
}

TEST(ClientConnectError, FoundAsTheErrorQueueHasEndedIsDropped) {
    Gate found;
    Events told;
    {
        LogCapture log;
        auto rig = std::make_unique<ClientRig>();
        tls::connect_option option = rig->option();
        option.set_on_error(
            [&](unsigned long long, unsigned short, int, char const *) { told.add("error"); });
        rig->connect(option);
        log.at("<n> global level on error ", [&] { found.pass(); });
        rig->server->reset();
        ASSERT_TRUE(found.waitArrived());
        std::thread end([&] { rig.reset(); });
        EXPECT_TRUE(log.waitFor("thead closed. {<n>global.on_error.0"));
        found.open();
        end.join();
        EXPECT_TRUE(log.contains("<n> connect error <"));
    }
    EXPECT_EQ(told.count(), 0u);
}

TEST(ClientConnectInfo, CancelByTheApplicationWakesWaitersOnly) {
    LogCapture log;
    ClientRig rig;
    auto const info = rig.client.start(rig.option());
    rig.server = rig.peer.accept();
    ASSERT_TRUE(log.waitFor("<n> connected, start client handshake..."));
    auto waiter = waitOf(info);
    ASSERT_TRUE(log.waitFor("<n> connect wait begin, "));
    info->cancel();
    EXPECT_EQ(got(std::move(waiter)), tls::result_cancelled);
    ASSERT_TRUE(rig.server->handshake());
    ASSERT_TRUE(rig.events.wait(1));
    EXPECT_TRUE(rig.client.connected());
    EXPECT_EQ(info->result(), tls::result_cancelled);
}

TEST(ClientConnectInfo, CancelAfterTheEndChangesNothing) {
    LogCapture log;
    ClientRig rig;
    auto const info = rig.client.start(rig.option());
    rig.finish(info);
    EXPECT_EQ(resultOf(info), tls::result_ok);
    info->cancel();
    EXPECT_EQ(info->result(), tls::result_ok);
    EXPECT_FALSE(info->error()) << info->error();
}

TEST(ClientConnectInfo, EndsOnceWithTheFirstOutcome) {
    LogCapture log;
    auto const held = std::make_shared<tls::impl::connect_info>("n", tls::timedout_option(7));
    tls::impl::connect_info & info = *held;
    EXPECT_EQ(info.result(), tls::result_pending);
    info.busy();
    EXPECT_EQ(info.result(), tls::result_busy);
    info.on_conn_error();
    EXPECT_EQ(info.result(), tls::result_error);
    std::error_code const why = info.error();
    info.busy();
    info.on_conn_connected();
    info.on_conn_cancel();
    info.on_conn_timedout();
    EXPECT_EQ(info.result(), tls::result_error);
    EXPECT_EQ(info.error(), why);
    EXPECT_EQ(waited(held), tls::result_error);
    auto const held_done = std::make_shared<tls::impl::connect_info>("n");
    tls::impl::connect_info & done = *held_done;
    EXPECT_EQ(done.result(), tls::result_ok);
    EXPECT_EQ(waited(held_done), tls::result_ok);
    done.on_conn_cancel();
    done.on_conn_error();
    done.on_conn_timedout();
    EXPECT_FALSE(done.error()) << done.error();
}

TEST(ClientConnectDropped, AStartThatIsStillQueuedAtTheEndIsCancelled) {
    LogCapture log("clear(NONE)");
    TlsPeer peer;
    Events events;
    Gate gate;
    auto c = std::make_unique<client>("n");
    auto const info = c->start(optionFor(peer.port(), events));
    auto const server = peer.accept();
    ASSERT_TRUE(server->handshake());
    ASSERT_EQ(resultOf(info), tls::result_ok);
    auto const send = c->send_msg(
        Ask(1), tls::send_option(
                    20000, [&](unsigned long long, unsigned short, bool) { gate.pass(); }, false, 4));
    server->receiveFrame();
    c->cancel_all();
    ASSERT_TRUE(gate.waitArrived());
    auto const start = c->start(optionFor(peer.port(), events));
    auto const reconnect = c->reconnect(tls::timedout_option());
    std::thread ending([&] { c.reset(); });
    // The queue is told to end before it is let go, or the first task behind ends the same way.
    gate.open();
    ending.join();
    EXPECT_EQ(resultOf(start), tls::result_cancelled);
    EXPECT_EQ(resultOf(reconnect), tls::result_cancelled);
    EXPECT_EQ(send->result(), tls::result_cancelled);
    EXPECT_TRUE(server->waitClosed());
}

TEST(ClientConnectDropped, ACloseThatTheEndFindsInTheQueueIsDoneAsByTheQueue) {
    LogCapture log;
    auto const core = std::make_shared<tls::impl::Client>("n");
    core->init__();
    Gate gate;
    std::atomic<unsigned> as_queue{0};
    std::atomic<unsigned> otherwise{0};
    auto const test = std::this_thread::get_id();
    log.at("<n> cancel all\n", [&] {
        if (std::this_thread::get_id() == test) {
            return;
        }
        gate.pass();
        ++(tls::impl::thread_role::needed_to_end_sends(core->key()) ? as_queue : otherwise);
    });
    core->cancel_all__();
    ASSERT_TRUE(gate.waitArrived());
    std::thread ending([&] { core->fini__(); });
    // The queue is told to end before it is let go, or the close runs on it.
    EXPECT_TRUE(log.waitFor("<n> close...\n"));
    gate.open();
    ending.join();
    log.at(std::string(), nullptr);
    EXPECT_EQ(as_queue, 2u);
    EXPECT_EQ(otherwise, 0u);
}

TEST(ClientConnectDropped, AfterTheEndOfTheClientAStartEndsAtOnce) {
    LogCapture log("clear(NONE)");
    TlsPeer peer;
    Events events;
    auto const core = std::make_shared<tls::impl::Client>("n");
    core->init__();
    core->fini__();
    core->fini__();
    auto const start = core->start__(optionFor(peer.port(), events), false);
    ASSERT_TRUE(start);
    EXPECT_EQ(waited(start), tls::result_cancelled);
    EXPECT_EQ(waited(core->reconnect__(tls::timedout_option(), false)), tls::result_cancelled);
    core->close__();
    core->cancel_all__();
    EXPECT_FALSE(core->connected());
    EXPECT_FALSE(peer.pending(0));
}

TEST(ClientConnectErrors, ABrokenConnectionIsToldOnTheErrorQueueAndEndsTheSends) {
    LogCapture log;
    ClientRig rig;
    rig.connect();
    auto const send = rig.client.send_msg(Ask(1), waiting(rig.events, "send"));
    rig.receive();
    rig.server->reset();
    EXPECT_EQ(resultOf(send), tls::result_cancelled);
    ASSERT_TRUE(rig.events.wait(3));
    EXPECT_EQ(rig.events.all()[1], "send cancelled on <n>io.context");
    EXPECT_NE(rig.events.all()[2].find(" on <n>global.on_error.0: "), std::string::npos)
        << rig.events.all()[2];
    EXPECT_TRUE(log.inOrder({"<n> on std::error_code ", "<n> connect error <", "global level on error "}));
    EXPECT_FALSE(rig.client.connected());
}

TEST(ClientConnectErrors, AnExceptionOutOfACompletionIsErrorTen) {
    LogCapture log;
    ClientRig rig;
    tls::connect_option option = rig.option();
    option.set_on_open([] { throw std::runtime_error("from on_open"); });
    auto const info = rig.client.start(option);
    rig.server = rig.peer.accept();
    ASSERT_TRUE(rig.server->handshake());
    ASSERT_TRUE(rig.events.wait(1));
    EXPECT_EQ(rig.events.all()[0], "error 10 on <n>io.context: from on_open");
    EXPECT_EQ(resultOf(info), tls::result_ok);
    LogCapture::Record const record = log.find("<<< EXCEPTION >>> from on_open\n    catch at ");
    EXPECT_EQ(record.level, tavLogger::ERROR);
    EXPECT_NE(record.text.find("on_exception"), std::string::npos) << record.text;
    EXPECT_TRUE(log.waitFor("<n> io context loop begin...\n", 2));
    // The session is left as it is, and the I/O context goes on.
    EXPECT_TRUE(rig.client.connected());
    EXPECT_TRUE(rig.settle());
    auto const send = rig.client.send_msg(Ask(4), waiting(rig.events, "send"));
    EXPECT_EQ(rig.receive().code, 0x1234);
}

TEST(ClientConnectErrors, AThrowingErrorFunctionIsOnlyLogged) {
    LogCapture log;
    ClientRig rig;
    tls::connect_option option = rig.option();
    option.set_on_open([] { throw std::runtime_error("from on_open"); });
    option.set_on_error([&](unsigned long long, unsigned short, int code, char const *) {
        rig.events.add("error " + std::to_string(code));
        throw std::logic_error("from on_error");
    });
    rig.connect(option);
    ASSERT_TRUE(log.waitFor("<<< EXCEPTION >>> from on_error"));
    EXPECT_TRUE(rig.settle());
    rig.server->close();
    ASSERT_TRUE(log.waitFor("<<< EXCEPTION >>> from on_error", 2));
    EXPECT_EQ(rig.events.count(), 2u);
    rig.reconnect();
}

TEST(ClientConnectErrors, SomethingElseThrownDoesNotEndTheLoop) {
    LogCapture log;
    ClientRig rig;
    tls::connect_option option = rig.option();
    option.set_on_open([] { throw 42; });
    rig.connect(option);
    EXPECT_TRUE(rig.settle());
    EXPECT_EQ(rig.events.count(), 0u);
    EXPECT_TRUE(log.contains("<<< EXCEPTION >>> unknown exception"));
}

TEST(ClientConnectErrors, AThrowingCancelledSendDoesNotHoldUpTheOthers) {
    LogCapture log;
    ClientRig rig;
    rig.connect();
    std::vector<std::shared_ptr<tls::send_info>> sends;
    for (int i = 0; i < 3; ++i) {
        sends.push_back(rig.client.send_msg(Ask(i), tls::send_option(
                                                        20000,
                                                        [&](unsigned long long, unsigned short, bool) {
                                                            rig.events.add("told");
                                                            throw std::runtime_error("from cancelled");
                                                        },
                                                        false, 4)));
        rig.receive();
    }
    rig.reconnect();
    for (auto const & send : sends) {
        EXPECT_EQ(resultOf(send), tls::result_cancelled);
    }
    EXPECT_EQ(countOf(rig.events, "told"), 3u);
    EXPECT_EQ(log.count("<<< EXCEPTION >>> from cancelled"), 3u);
    EXPECT_TRUE(rig.settle());
}

TEST(ClientConnectSurvive, ANewStartKeepsRegistrationsAndReplacesTheOption) {
    LogCapture log;
    ClientRig rig;
    Events got;
    rig.client.register_message(0x1234, &Ask::create);
    rig.client.on_msg(
        0x1234, tls::ptr_function([&](unsigned long long, tavSharedPtr<tavMessage>) { got.add("type"); }));
    rig.client.set_old_msg_default_callback([&](unsigned long long, unsigned short, unsigned char const *,
                                                unsigned, tavMsgExt) { got.add("old"); });
    tls::connect_option first = rig.option();
    first.set_nbr_msg_callback([&](unsigned long long, unsigned short, unsigned char const *, unsigned,
                                   tavMsgExt) { got.add("first"); });
    rig.connect(first);
    auto const all = [&](unsigned expected) {
        rig.server->send(mobile(0x1234, 1).framed() + old(3, 1).framed() + mobile(0x4000, 1).framed());
        return got.wait(expected);
    };
    ASSERT_TRUE(all(3));
    rig.reconnect();
    ASSERT_TRUE(all(6));
    tls::connect_option second = rig.option();
    second.set_nbr_msg_callback([&](unsigned long long, unsigned short, unsigned char const *, unsigned,
                                    tavMsgExt) { got.add("second"); });
    rig.connect(second);
    ASSERT_TRUE(all(9));
    EXPECT_EQ(got.all(), (std::vector<std::string>{"type", "old", "first", "type", "old", "first", "type",
                                                   "old", "second"}));
}

TEST(ClientConnectSurvive, TrustAndCiphersOutliveTheSession) {
    LogCapture log;
    ClientRig rig;
    TempFile const ca(TlsIdentity::ecdsa().ca);
    tls::connect_option option = rig.option();
    option.ca = ca.path();
    rig.connect(option);
    EXPECT_TRUE(log.contains(" Verifying "));
    log.clear();
    option.ca.clear();
    rig.connect(option);
    EXPECT_TRUE(log.contains(" Verifying "));
    EXPECT_FALSE(log.contains(" context construct"));
}

TEST(ClientConnectSurvive, TheSessionValueAndTheSupervisionEnd) {
    LogCapture log;
    ClientRig rig;
    rig.connect();
    Pkt told = mobile(0x4000, 1);
    told.session = 0x1122334455667788ull;
    rig.server->send(told.framed());
    ASSERT_TRUE(rig.settle());
    rig.client.send_nbr_msg(0x4001, nullptr, 0, tls::send_option());
    // The last packet that came was the settling one, whose session is 0.
    EXPECT_EQ(rig.receive().session, 0u);
    rig.server->send(told.framed());
    Events got;
    rig.client.on_nbr_msg(0x4002, [&](unsigned long long, unsigned short, unsigned char const *, unsigned,
                                      tavMsgExt) { got.add("got"); });
    told.code = 0x4002;
    rig.server->send(told.framed());
    ASSERT_TRUE(got.wait(1));
    rig.client.send_nbr_msg(0x4001, nullptr, 0, tls::send_option());
    EXPECT_EQ(rig.receive().session, 0x1122334455667788ull);
    rig.reconnect();
    rig.client.send_nbr_msg(0x4001, nullptr, 0, tls::send_option());
    EXPECT_EQ(rig.receive().session, 0u);
}

TEST(ClientConnectSurvive, NothingIsSentAgain) {
    LogCapture log;
    ClientRig rig;
    rig.connect();
    auto const send = rig.client.send_msg(Ask(1), waiting(rig.events, "send"));
    rig.receive();
    rig.reconnect();
    EXPECT_EQ(resultOf(send), tls::result_cancelled);
    rig.client.send_nbr_msg(0x4001, nullptr, 0, tls::send_option());
    EXPECT_EQ(rig.receive().code, 0x4001);
}

TEST(ClientConnectSession, EventsOfAnOldAttemptDoNotEndANewerOne) {
    LogCapture log;
    ClientRig rig;
    // The first attempt is cancelled while it shakes hands; what happens to it later is not the second one's.
    auto const first = rig.client.start(rig.option());
    auto const lost = rig.peer.accept();
    ASSERT_TRUE(log.waitFor("<n> connected, start client handshake..."));
    rig.client.close();
    ASSERT_EQ(resultOf(first), tls::result_cancelled);
    ASSERT_TRUE(log.waitFor("<n> active closing...\n"));
    auto const second = rig.client.start(rig.option());
    lost->reset();
    rig.finish(second);
    EXPECT_EQ(second->result(), tls::result_ok);
    EXPECT_EQ(first->result(), tls::result_cancelled);
    EXPECT_EQ(countOf(rig.events, "error "), 0u);
}

TEST(ClientConnectSession, FramesThatWaitAtACloseAreHandledOnTheClosingThread) {
    LogCapture log;
    ClientRig rig;
    Events got;
    Gate gate;
    rig.client.on_nbr_msg(
        0x4000, [&](unsigned long long sno, unsigned short, unsigned char const *, unsigned, tavMsgExt) {
            got.add(textOf(sno) + " on " + threadName());
            if (sno == 1) {
                gate.pass();
            }
        });
    rig.connect();
    rig.server->send(mobile(0x4000, 1).framed());
    ASSERT_TRUE(gate.waitArrived());
    rig.server->send(mobile(0x4000, 2).framed() + mobile(0x4000, 3).framed() + frame(""));
    ASSERT_TRUE(log.waitFor(" queued 2 msgs."));
    rig.client.close();
    ASSERT_TRUE(log.waitFor("thead on_stop {<n>session.0.receiver"));
    gate.open();
    ASSERT_TRUE(log.waitFor("<n> session destruct\n"));
    EXPECT_EQ(got.all(), (std::vector<std::string>{"1 on <n>session.0.receiver", "2 on <n>session.0",
                                                   "3 on <n>session.0"}));
    EXPECT_FALSE(log.contains(" no session"));
}
