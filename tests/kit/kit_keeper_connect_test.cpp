#include "tav/kit/keeper.h"

#include "support/keeper_rig.h"
#include "support/log_capture.h"
#include "support/openssl_server.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono_literals;
using namespace tav_test;
using state = kit::keeper_state;
using Texts = std::vector<std::string>;

} // namespace

TEST(KitKeeperConnect, ConnectsAndSends) {
    LiveRig rig;
    ASSERT_TRUE(rig.start());
    kit::result<Said> const reply = got(kit::request<Said>(rig.keeper, Say(7), 5s));
    ASSERT_TRUE(reply) << reply.error().message();
    EXPECT_EQ(reply->number, 7);
    rig.keeper.stop();
    EXPECT_EQ(rig.states.all(), (Texts{"connecting", "up", "stopped: stopped"}));
}

TEST(KitKeeperConnect, KeepsAClientOfTheCallers) {
    GatewayRig gateway;
    tls::client client("own");
    Events heard;
    kit::on<Say>(client, [&](Say const & say) { heard.add(std::to_string(say.number)); });
    {
        kit::keeper keeper(client, gateway.option());
        keeper.start();
        EXPECT_EQ(&keeper.client(), &client);
        ASSERT_TRUE(eventually([&] { return keeper.status().state == state::up; }));
        EXPECT_TRUE(client.connected());
        gateway.gateway.push(Say::type_code, bodyOf(12), false);
        EXPECT_TRUE(heard.wait(1));
    }
    EXPECT_TRUE(eventually([&] { return !client.connected(); }));
}

TEST(KitKeeperConnect, WaitsDoubleUpToTheLongestWithFullJitter) {
    ClosedPort closed;
    std::atomic<double> chance{0.5};
    kit::keeper_option how;
    how.jitter = [&] { return chance.load(); };
    KeeperRig rig(closed.port(), how);
    rig.keeper.start();
    for (int const wait : {250, 500, 1000, 2000, 4000, 8000, 15000, 15000, 29970}) {
        ASSERT_TRUE(rig.comesTo(state::waiting));
        EXPECT_EQ(rig.left().count(), wait);
        EXPECT_EQ(rig.keeper.status().cause, tls::failure::refused);
        chance = rig.keeper.status().failed < 8 ? 0.5 : rig.keeper.status().failed == 8 ? 0.999 : 0.0;
        rig.timer->advance(rig.left());
    }
    EXPECT_TRUE(rig.timer->run([&] { return rig.keeper.status().failed > 20; })) << "any time down to none";
}

TEST(KitKeeperConnect, WaitsAreSettable) {
    ClosedPort closed;
    kit::keeper_option how;
    how.first_wait = 10ms;
    how.longest_wait = 30ms;
    how.jitter = [] { return 1.0; };
    KeeperRig rig(closed.port(), how);
    rig.keeper.start();
    for (int const wait : {10, 20, 30, 30}) {
        ASSERT_TRUE(rig.comesTo(state::waiting));
        EXPECT_EQ(rig.left().count(), wait);
        rig.timer->advance(rig.left());
    }
}

TEST(KitKeeperConnect, WaitIsOverWhenItSays) {
    ClosedPort closed;
    KeeperRig rig(closed.port());
    rig.keeper.start();
    ASSERT_TRUE(rig.comesTo(state::waiting));
    rig.timer->advance(rig.left() - 1ms);
    EXPECT_EQ(rig.keeper.status().state, state::waiting);
    EXPECT_EQ(rig.keeper.status().failed, 1u);
    std::size_t const told = rig.states.count();
    rig.timer->advance(1ms);
    ASSERT_GT(rig.states.count(), told);
    EXPECT_EQ(rig.states.all()[told], "connecting");
}

TEST(KitKeeperConnect, ConnectionThatHeldBeginsAgainWithTheFirstWait) {
    TlsPeer peer;
    KeeperRig rig(peer.portText());
    rig.keeper.start();
    int const waits[] = {250, 500, 250, 500};
    for (int i = 0; i < 4; ++i) {
        auto const server = rig.accept(peer);
        ASSERT_TRUE(rig.comesTo(state::up));
        rig.timer->advance(i == 2 ? 60s : 59s);
        server->close();
        ASSERT_TRUE(rig.comesTo(state::waiting));
        EXPECT_EQ(rig.left().count(), waits[i]) << i;
        EXPECT_EQ(rig.keeper.status().cause, tls::failure::closed_by_peer);
        rig.timer->advance(rig.left());
    }
}

TEST(KitKeeperConnect, RoundGoesThroughTheGatewaysByPreferenceWithoutAWait) {
    ClosedPort first;
    ClosedPort second;
    TlsPeer third;
    Events tried;
    kit::keeper_option how;
    how.gateways = {{"127.0.0.1", third.portText(), 7}, second.gateway(3), first.gateway(-1)};
    how.on_state = portsTried(tried);
    KeeperRig rig("1", how);
    rig.keeper.start();
    auto server = rig.accept(third);
    ASSERT_TRUE(rig.comesTo(state::up));
    EXPECT_EQ(rig.keeper.status().to.port, third.portText());
    EXPECT_EQ(tried.all(), (Texts{first.port(), second.port(), third.portText()}));

    // A connection that broke waits, and then the preferred one is the first again.
    server->close();
    ASSERT_TRUE(rig.comesTo(state::waiting));
    rig.timer->advance(rig.left());
    ASSERT_GE(tried.count(), 4u);
    EXPECT_EQ(tried.all()[3], first.port());
}

TEST(KitKeeperConnect, RoundOfFailuresEndsInOneWait) {
    ClosedPort first;
    ClosedPort second;
    kit::keeper_option how;
    how.gateways = {first.gateway(), second.gateway(1)};
    KeeperRig rig("1", how);
    rig.keeper.start();
    ASSERT_TRUE(rig.comesTo(state::waiting));
    EXPECT_EQ(rig.left().count(), 250);
    EXPECT_EQ(rig.keeper.status().failed, 2u);
    EXPECT_EQ(rig.states.count("connecting"), 2u);
    rig.timer->advance(rig.left());
    ASSERT_TRUE(rig.comesTo(state::waiting));
    EXPECT_EQ(rig.left().count(), 500);
}

TEST(KitKeeperConnect, GatewaysOfOnePreferenceTakeTurnsByChance) {
    ClosedPort first;
    ClosedPort second;
    Texts begun;
    for (double const chance : {0.0, 0.9}) {
        Events tried;
        kit::keeper_option how;
        how.gateways = {first.gateway(), second.gateway()};
        how.jitter = [=] { return chance; };
        how.on_state = portsTried(tried);
        KeeperRig rig("1", how);
        rig.keeper.start();
        ASSERT_TRUE(rig.timer->run([&] { return tried.count() >= 2; }));
        begun.push_back(tried.all()[0]);
        EXPECT_NE(tried.all()[0], tried.all()[1]);
    }
    EXPECT_NE(begun[0], begun[1]);
}

TEST(KitKeeperConnect, AttemptThatHangsEndsByTheConnectLimit) {
    tav::gateway::Options options;
    options.faults.no_handshake = true;
    GatewayRig gateway(options);
    KeeperRig rig(std::to_string(gateway.gateway.port()));
    rig.keeper.start();
    ASSERT_TRUE(rig.timer->run([&] { return gateway.gateway.stats().connections == 1; }));
    rig.timer->advance(9999ms);
    EXPECT_EQ(rig.keeper.status().state, state::connecting);
    rig.timer->advance(1ms);
    EXPECT_EQ(rig.keeper.status().state, state::waiting);
    EXPECT_EQ(rig.keeper.status().cause, tls::failure::timed_out);
    rig.timer->advance(rig.left());
    EXPECT_TRUE(rig.timer->run([&] { return gateway.gateway.stats().connections == 2; }));
}

TEST(KitKeeperConnect, LimitOfTheConnectOptionCountsToo) {
    tav::gateway::Options options;
    options.faults.no_handshake = true;
    GatewayRig gateway(options);
    auto const timer = std::make_shared<TestTimer>();
    Events told;
    tls::connect_option option = quietOption(std::to_string(gateway.gateway.port()));
    option.timedout = tls::timedout_option(150, [&](unsigned long long, unsigned short, bool cancelled) {
        told.add(cancelled ? "cancelled" : "timed out");
    });
    kit::keeper_option how;
    how.timer = timer;
    kit::keeper keeper(option, how);
    keeper.start();
    ASSERT_TRUE(timer->run([&] { return keeper.status().state == state::waiting; }));
    EXPECT_EQ(keeper.status().cause, tls::failure::timed_out);
    EXPECT_TRUE(told.wait(1));
    EXPECT_EQ(told.all(), Texts{"timed out"});
}

TEST(KitKeeperConnect, BreakIsNamed) {
    TlsPeer peer;
    KeeperRig rig(peer.portText());
    rig.keeper.start();
    rig.accept(peer)->reset();
    ASSERT_TRUE(rig.timer->run([&] { return rig.states.count() >= 2; }));
    ASSERT_TRUE(rig.comesTo(state::waiting));
    tls::failure const lost = tls::failure::connection_lost;
    EXPECT_EQ(rig.keeper.status().cause, lost) << rig.keeper.status().cause.message();
}

TEST(KitKeeperConnect, FrameThatIsNoneIsNamed) {
    TlsPeer peer;
    KeeperRig rig(peer.portText());
    rig.keeper.start();
    auto const server = rig.accept(peer);
    ASSERT_TRUE(rig.comesTo(state::up));
    server->send("\x01\x01\x01\x01");
    ASSERT_TRUE(rig.comesTo(state::waiting));
    EXPECT_EQ(rig.keeper.status().cause, tls::failure::bad_frame);
}

// A server of TLS 1.3 refuses the client's certificate when the connection has opened, and does so each time.
TEST(KitKeeperConnect, RefusalBehindTheHandshakeIsNamedSoThatItCanGiveUp) {
    Identity const own{CertificateSpec(), &Pki::the().root};
    TempFile const root(Pki::the().root.pem());
    ServerSettings settings;
    settings.chain = {&own};
    settings.clients = root.path();
    OpensslServer const server(settings);
    tls::connect_option option = quietOption(std::to_string(server.port()));
    option.set_tls_policy(safePolicy());
    kit::keeper_option how;
    how.timer = std::make_shared<TestTimer>();
    how.give_up = [](kit::keeper_status const & v) { return v.cause == tls::failure::handshake_failed; };
    kit::keeper keeper(option, how);
    keeper.start();
    auto & timer = static_cast<TestTimer &>(*how.timer);
    ASSERT_TRUE(timer.run([&] { return keeper.status().state == state::stopped; }));
    EXPECT_EQ(keeper.status().cause, tls::failure::handshake_failed);
    EXPECT_EQ(keeper.status().failed, 1u);
}

TEST(KitKeeperConnect, ProxyThatRefusesIsAFailedAttemptAtOnce) {
    TlsPeer peer;
    auto const timer = std::make_shared<TestTimer>();
    tls::connect_option option = quietOption(peer.portText());
    option.proxy_host = "127.0.0.1";
    option.proxy_port = peer.portText();
    option.set_on_http_proxy_connect([](unsigned, char const *, unsigned short) { return 407; });
    kit::keeper_option how;
    how.timer = timer;
    kit::keeper keeper(option, how);
    keeper.start();
    ASSERT_TRUE(timer->run([&] { return keeper.status().state == state::waiting; }));
    EXPECT_EQ(keeper.status().cause, tls::failure::proxy_refused);
}

TEST(KitKeeperConnect, OptionThatCanNotMendStopsIt) {
    auto const timer = std::make_shared<TestTimer>();
    tls::connect_option option = quietOption("1");
    option.metainfo = "no template (";
    kit::keeper_option how;
    how.timer = timer;
    kit::keeper keeper(option, how);
    keeper.start();
    ASSERT_TRUE(timer->run([&] { return keeper.status().state == state::stopped; }));
    EXPECT_EQ(keeper.status().cause, tls::failure::bad_template);
    EXPECT_EQ(got(kit::request<Said>(keeper, Say(1), 5s)).error(), kit::failure::stopped);
}

TEST(KitKeeperConnect, GatewayWithoutANameStopsItAtOnce) {
    Events states;
    kit::keeper keeper(tls::connect_option(), recorded(states));
    keeper.start();
    EXPECT_EQ(keeper.status().state, state::stopped);
    EXPECT_EQ(keeper.status().cause, tls::failure::bad_address);
    EXPECT_EQ(states.count(), 1u);
}

TEST(KitKeeperConnect, GatewayWithoutAnAddressEndsNothingBesideOneThatIsDown) {
    ClosedPort closed;
    kit::keeper_option how;
    how.gateways = {closed.gateway(), {"127.0.0.1", "70000", 0}};
    KeeperRig rig(closed.port(), how);
    rig.keeper.start();
    for (unsigned round = 1; round <= 40; ++round) {
        ASSERT_TRUE(rig.comesTo(state::waiting)) << round;
        EXPECT_EQ(rig.keeper.status().failed, 2 * round);
        rig.timer->advance(rig.left());
    }
}

TEST(KitKeeperConnect, GatewaysNoneOfWhichHasAnAddressEndIt) {
    kit::keeper_option how;
    how.gateways = {{"127.0.0.1", "70000", 0}, {"127.0.0.1", "70001", 0}};
    KeeperRig rig("70000", how);
    rig.keeper.start();
    ASSERT_TRUE(rig.comesTo(state::stopped));
    EXPECT_EQ(rig.keeper.status().cause, tls::failure::bad_address);
    EXPECT_EQ(rig.keeper.status().failed, 2u);
}

TEST(KitKeeperConnect, GivesUpWhenToldTo) {
    ClosedPort closed;
    kit::keeper_option how;
    how.give_up = [](kit::keeper_status const & v) { return v.failed == 3; };
    KeeperRig rig(closed.port(), how);
    rig.keeper.start();
    auto waiting = kit::request<Said>(rig.keeper, Say(1), 600s);
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(rig.comesTo(state::waiting));
        rig.timer->advance(rig.left());
    }
    ASSERT_TRUE(rig.comesTo(state::stopped));
    EXPECT_EQ(rig.keeper.status().cause, tls::failure::refused);
    EXPECT_EQ(rig.keeper.status().failed, 3u);
    EXPECT_EQ(got(std::move(waiting)).error(), kit::failure::stopped);
}

TEST(KitKeeperConnect, CloseByAnotherHandIsNoticedBySending) {
    TlsPeer peer;
    KeeperRig rig(peer.portText());
    rig.keeper.start();
    auto const server = rig.accept(peer);
    ASSERT_TRUE(rig.comesTo(state::up));
    rig.keeper.client().close();
    ASSERT_TRUE(eventually([&] { return !rig.keeper.client().connected(); }));
    EXPECT_TRUE(kit::send(rig.keeper, Say(5)));
    EXPECT_EQ(rig.keeper.waiting(), 1u);
    rig.timer->advance(3s);
    EXPECT_EQ(rig.keeper.status().state, state::waiting);
    EXPECT_EQ(rig.keeper.status().cause, tls::failure::cancelled);
    rig.timer->advance(rig.left());
    auto const next = rig.accept(peer);
    ASSERT_TRUE(rig.timer->run([&] { return rig.keeper.waiting() == 0; }));
    EXPECT_EQ(numberIn(Pkt::of(next->receiveFrame())), 5);
}

TEST(KitKeeperConnect, HeartbeatIsSupervisedOnEachConnection) {
    LogCapture log("TLS.CLT(INFO)");
    {
        LiveRig rig;
        ASSERT_TRUE(rig.start());
        for (unsigned connections = 2; connections < 5; ++connections) {
            rig.gateway.gateway.drop(connections % 2 == 0);
            ASSERT_TRUE(rig.gateway.gateway.wait(
                [=](tav::gateway::Stats const & v) { return v.handshakes == connections; }));
            EXPECT_TRUE(log.waitFor("check comm heartbeat = 1", connections));
        }
    }
    EXPECT_EQ(log.count("check comm heartbeat = 0"), 0u);
}

TEST(KitKeeperConnect, HeartbeatIsLeftAloneIfNotWanted) {
    LogCapture log("TLS.CLT(INFO)");
    {
        kit::keeper_option how;
        how.heartbeat = false;
        LiveRig rig(how);
        ASSERT_TRUE(rig.start());
    }
    EXPECT_EQ(log.count("check comm heartbeat"), 0u);
}
