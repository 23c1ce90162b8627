#include "tav/kit/keeper.h"

#include "support/keeper_rig.h"
#include "support/log_capture.h"
#include "support/names.h"
#include "support/openssl_server.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono_literals;
using namespace tav_test;
using state = kit::keeper_state;
using Texts = std::vector<std::string>;

tav::gateway::Options silent() {
    tav::gateway::Options options;
    options.faults.silence = true;
    return options;
}

/// A keeper by the time of the world, and a gateway.
class LiveRig {
public:
    explicit LiveRig(kit::keeper_option how = kit::keeper_option(),
                     tav::gateway::Options const & options = tav::gateway::Options())
        : gateway(options), keeper(quietOption(port()), completed(std::move(how)), "live") {}

    std::string port() const { return std::to_string(gateway.gateway.port()); }
    bool comesTo(state v) {
        return eventually([&] { return keeper.status().state == v; });
    }
    bool start() {
        keeper.start();
        return comesTo(state::up);
    }

    GatewayRig gateway;
    Events states;
    kit::keeper keeper;

private:
    kit::keeper_option completed(kit::keeper_option how) {
        how.first_wait = 20ms;
        how.longest_wait = 50ms;
        if (!how.on_state) {
            how.on_state = recorded(states).on_state;
        }
        return how;
    }
};

/// How long a call takes.
template <class Call>
std::chrono::milliseconds took(Call const & call) {
    auto const begin = std::chrono::steady_clock::now();
    call();
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin);
}

/// What a loaded machine may add to a second.
constexpr std::chrono::milliseconds a_second = 1500ms;

struct Raising : kit::message<Raising> {
    static constexpr char const * type_name = "Raising";
    static constexpr unsigned short type_code = 0x1236;
    void traverse(tavCodecStream &) override { throw std::runtime_error("no fields today"); }
};

} // namespace

// Attempts and waits.

TEST(KitKeeper, ConnectsAndSends) {
    LiveRig rig;
    ASSERT_TRUE(rig.start());
    kit::result<Said> const reply = got(kit::request<Said>(rig.keeper, Say(7), 5s));
    ASSERT_TRUE(reply) << reply.error().message();
    EXPECT_EQ(reply->number, 7);
    rig.keeper.stop();
    EXPECT_EQ(rig.states.all(), (Texts{"connecting", "up", "stopped: stopped"}));
}

TEST(KitKeeper, KeepsAClientOfTheCallers) {
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

TEST(KitKeeper, WaitsDoubleUpToTheLongestWithFullJitter) {
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

TEST(KitKeeper, WaitsAreSettable) {
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

TEST(KitKeeper, WaitIsOverWhenItSays) {
    ClosedPort closed;
    KeeperRig rig(closed.port());
    rig.keeper.start();
    ASSERT_TRUE(rig.comesTo(state::waiting));
    rig.timer->advance(rig.left() - 1ms);
    EXPECT_EQ(rig.keeper.status().state, state::waiting);
    EXPECT_EQ(rig.keeper.status().failed, 1u);
    rig.timer->advance(1ms);
    EXPECT_EQ(rig.states.all().back(), "connecting");
}

TEST(KitKeeper, ConnectionThatHeldBeginsAgainWithTheFirstWait) {
    TlsPeer peer;
    KeeperRig rig(peer.portText());
    rig.keeper.start();
    int const waits[] = {250, 500, 250, 500};
    for (int i = 0; i < 4; ++i) {
        ASSERT_TRUE(rig.timer->run([&] { return peer.pending(1); }));
        auto const server = acceptFrom(peer);
        ASSERT_TRUE(rig.comesTo(state::up));
        rig.timer->advance(i == 2 ? 60s : 59s);
        server->close();
        ASSERT_TRUE(rig.comesTo(state::waiting));
        EXPECT_EQ(rig.left().count(), waits[i]) << i;
        EXPECT_EQ(rig.keeper.status().cause, tls::failure::closed_by_peer);
        rig.timer->advance(rig.left());
    }
}

TEST(KitKeeper, RoundGoesThroughTheGatewaysByPreferenceWithoutAWait) {
    ClosedPort first;
    ClosedPort second;
    TlsPeer third;
    Events tried;
    kit::keeper_option how;
    how.gateways = {{"127.0.0.1", third.portText(), 7}, second.gateway(3), first.gateway(-1)};
    how.on_state = [&](kit::keeper_status const & v) {
        if (v.state == state::connecting) {
            tried.add(v.to.port);
        }
    };
    KeeperRig rig("1", how);
    rig.keeper.start();
    ASSERT_TRUE(rig.timer->run([&] { return third.pending(1); }));
    auto server = acceptFrom(third);
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

TEST(KitKeeper, RoundOfFailuresEndsInOneWait) {
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

TEST(KitKeeper, GatewaysOfOnePreferenceTakeTurnsByChance) {
    ClosedPort first;
    ClosedPort second;
    Texts begun;
    for (double const chance : {0.0, 0.9}) {
        Events tried;
        kit::keeper_option how;
        how.gateways = {first.gateway(), second.gateway()};
        how.jitter = [=] { return chance; };
        how.on_state = [&](kit::keeper_status const & v) {
            if (v.state == state::connecting) {
                tried.add(v.to.port);
            }
        };
        KeeperRig rig("1", how);
        rig.keeper.start();
        ASSERT_TRUE(rig.timer->run([&] { return tried.count() >= 2; }));
        begun.push_back(tried.all()[0]);
        EXPECT_NE(tried.all()[0], tried.all()[1]);
    }
    EXPECT_NE(begun[0], begun[1]);
}

TEST(KitKeeper, AttemptThatHangsEndsByTheConnectLimit) {
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

TEST(KitKeeper, LimitOfTheConnectOptionCountsToo) {
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

TEST(KitKeeper, BreakIsNamed) {
    TlsPeer peer;
    KeeperRig rig(peer.portText());
    rig.keeper.start();
    ASSERT_TRUE(rig.timer->run([&] { return peer.pending(1); }));
    acceptFrom(peer)->reset();
    ASSERT_TRUE(rig.timer->run([&] { return rig.states.count() >= 2; }));
    ASSERT_TRUE(rig.comesTo(state::waiting));
    tls::failure const lost = tls::failure::connection_lost;
    EXPECT_EQ(rig.keeper.status().cause, lost) << rig.keeper.status().cause.message();
}

TEST(KitKeeper, FrameThatIsNoneIsNamed) {
    TlsPeer peer;
    KeeperRig rig(peer.portText());
    rig.keeper.start();
    ASSERT_TRUE(rig.timer->run([&] { return peer.pending(1); }));
    auto const server = acceptFrom(peer);
    ASSERT_TRUE(rig.comesTo(state::up));
    server->send("\x01\x01\x01\x01");
    ASSERT_TRUE(rig.comesTo(state::waiting));
    EXPECT_EQ(rig.keeper.status().cause, tls::failure::bad_frame);
}

// A server of TLS 1.3 refuses the client's certificate when the connection has opened, and does so each time.
TEST(KitKeeper, RefusalBehindTheHandshakeIsNamedSoThatItCanGiveUp) {
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

TEST(KitKeeper, ProxyThatRefusesIsAFailedAttemptAtOnce) {
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

TEST(KitKeeper, OptionThatCanNotMendStopsIt) {
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

TEST(KitKeeper, GatewayWithoutANameStopsItAtOnce) {
    Events states;
    kit::keeper keeper(tls::connect_option(), recorded(states));
    keeper.start();
    EXPECT_EQ(keeper.status().state, state::stopped);
    EXPECT_EQ(keeper.status().cause, tls::failure::bad_address);
    EXPECT_EQ(states.count(), 1u);
}

TEST(KitKeeper, GivesUpWhenToldTo) {
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

TEST(KitKeeper, CloseByAnotherHandIsNoticedBySending) {
    TlsPeer peer;
    KeeperRig rig(peer.portText());
    rig.keeper.start();
    ASSERT_TRUE(rig.timer->run([&] { return peer.pending(1); }));
    auto const server = acceptFrom(peer);
    ASSERT_TRUE(rig.comesTo(state::up));
    rig.keeper.client().close();
    ASSERT_TRUE(eventually([&] { return !rig.keeper.client().connected(); }));
    EXPECT_TRUE(kit::send(rig.keeper, Say(5)));
    EXPECT_EQ(rig.keeper.waiting(), 1u);
    rig.timer->advance(3s);
    EXPECT_EQ(rig.keeper.status().state, state::waiting);
    EXPECT_EQ(rig.keeper.status().cause, tls::failure::cancelled);
    rig.timer->advance(rig.left());
    ASSERT_TRUE(rig.timer->run([&] { return peer.pending(1); }));
    auto const next = acceptFrom(peer);
    ASSERT_TRUE(rig.timer->run([&] { return rig.keeper.waiting() == 0; }));
    EXPECT_EQ(numberIn(Pkt::of(next->receiveFrame())), 5);
}

TEST(KitKeeper, HeartbeatIsSupervisedOnEachConnection) {
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

TEST(KitKeeper, HeartbeatIsLeftAloneIfNotWanted) {
    LogCapture log("TLS.CLT(INFO)");
    {
        kit::keeper_option how;
        how.heartbeat = false;
        LiveRig rig(how);
        ASSERT_TRUE(rig.start());
    }
    EXPECT_EQ(log.count("check comm heartbeat"), 0u);
}

// States.

TEST(KitKeeper, StatesAreToldInOrderOnOneThreadForAllKeepers) {
    constexpr int keepers = 3;
    GatewayRig gateway;
    Holdings const before;
    std::mutex mutex;
    std::set<std::thread::id> threads;
    {
        std::vector<std::unique_ptr<Events>> states;
        std::vector<std::unique_ptr<tls::client>> clients;
        std::vector<std::unique_ptr<kit::keeper>> all;
        unsigned const alone = threadsNow();
        for (int i = 0; i < keepers; ++i) {
            states.push_back(std::make_unique<Events>());
            clients.push_back(std::make_unique<tls::client>("k"));
        }
        unsigned const with_clients = threadsNow();
        for (int i = 0; i < keepers; ++i) {
            kit::keeper_option how = recorded(*states[static_cast<std::size_t>(i)]);
            how.first_wait = 1ms;
            how.on_state = [&, record = how.on_state](kit::keeper_status const & v) {
                {
                    std::lock_guard<std::mutex> const guard(mutex);
                    threads.insert(std::this_thread::get_id());
                }
                record(v);
            };
            all.push_back(std::make_unique<kit::keeper>(*clients[static_cast<std::size_t>(i)],
                                                        quietOption(std::to_string(gateway.gateway.port())),
                                                        how));
        }
        EXPECT_EQ(threadsNow(), with_clients + 1) << "one for all, above " << alone;
        for (auto const & each : all) {
            each->start();
        }
        for (auto const & each : states) {
            ASSERT_TRUE(each->wait(2));
        }
        gateway.gateway.drop();
        for (auto const & each : states) {
            ASSERT_TRUE(each->wait(5));
            EXPECT_EQ(each->all(), (Texts{"connecting", "up", "waiting: the peer closed the connection",
                                          "connecting", "up"}));
        }
        std::lock_guard<std::mutex> const guard(mutex);
        EXPECT_EQ(threads.size(), 1u);
        EXPECT_EQ(threads.count(std::this_thread::get_id()), 0u);
    }
    EXPECT_TRUE(before.back()) << before.print();
}

TEST(KitKeeper, StatesAreToldOnTheExecutorInOrder) {
    tavTaskQueue queue("states", 1);
    queue.start();
    Events states;
    Events threads;
    kit::keeper_option how = recorded(states);
    how.where = [&](std::function<void()> task) { queue.put(std::move(task)); };
    how.on_state = [&, record = how.on_state](kit::keeper_status const & v) {
        threads.add(threadName());
        record(v);
    };
    {
        LiveRig rig(how);
        ASSERT_TRUE(rig.start());
        rig.keeper.stop();
        ASSERT_TRUE(states.wait(3));
    }
    EXPECT_EQ(states.all(), (Texts{"connecting", "up", "stopped: stopped"}));
    for (std::string const & each : threads.all()) {
        EXPECT_NE(each.find("states"), std::string::npos) << each;
    }
    queue.close();
}

TEST(KitKeeper, StateFunctionThatRaisesHurtsNobody) {
    kit::keeper_option how;
    std::atomic<int> calls{0};
    how.on_state = [&](kit::keeper_status const &) {
        ++calls;
        throw std::runtime_error("state");
    };
    LiveRig rig(how);
    ASSERT_TRUE(rig.start());
    EXPECT_TRUE(got(kit::request<Said>(rig.keeper, Say(1), 5s)));
    rig.keeper.stop();
    EXPECT_EQ(calls, 3);
}

TEST(KitKeeper, MayBeStartedAgain) {
    LiveRig rig;
    ASSERT_TRUE(rig.start());
    rig.keeper.start();
    rig.keeper.stop();
    rig.keeper.stop();
    ASSERT_TRUE(rig.start());
    EXPECT_TRUE(got(kit::request<Said>(rig.keeper, Say(1), 5s)));
    rig.keeper.stop();
    EXPECT_EQ(rig.states.all(),
              (Texts{"connecting", "up", "stopped: stopped", "connecting", "up", "stopped: stopped"}));
}

TEST(KitKeeper, OnOpenOfTheOptionComesBehindTheLogin) {
    GatewayRig gateway;
    Events events;
    tls::connect_option option = quietOption(std::to_string(gateway.gateway.port()));
    option.set_on_open([&] { events.add("open"); });
    kit::keeper_option how;
    how.login = [&](tls::client &, kit::login_end const & end) {
        events.add("login");
        end({});
    };
    kit::keeper keeper(option, how);
    keeper.start();
    ASSERT_TRUE(events.wait(2));
    EXPECT_EQ(events.all(), (Texts{"login", "open"}));
}

// The login.

TEST(KitKeeper, LoginComesBeforeAllElse) {
    TlsPeer peer;
    Events ends;
    kit::keeper_option how;
    how.login = kit::login_with<Said>(Say(100), 5s);
    KeeperRig rig(peer.portText(), how);
    rig.keeper.start();
    for (int i = 1; i <= 3; ++i) {
        EXPECT_TRUE(kit::send(rig.keeper, Say(i)));
    }
    for (int connection = 0; connection < 2; ++connection) {
        ASSERT_TRUE(rig.timer->run([&] { return peer.pending(1); }));
        auto const server = acceptFrom(peer);
        ASSERT_TRUE(rig.timer->run([&] { return !server->quiet(0); }));
        Pkt const login = Pkt::of(server->receiveFrame());
        EXPECT_EQ(numberIn(login), 100);
        rig.timer->pump();
        EXPECT_TRUE(kit::send(rig.keeper, Say(4 + connection)));
        EXPECT_TRUE(server->quiet(50)) << "nothing goes ahead of the answer";
        EXPECT_EQ(rig.keeper.status().state, state::connecting);
        server->send(mobile(Said::type_code, login.sno).framed());
        ASSERT_TRUE(rig.comesTo(state::up));
        ASSERT_TRUE(rig.timer->run([&] { return rig.keeper.waiting() == 0; }));
        for (int const expected : connection == 0 ? std::vector<int>{1, 2, 3, 4} : std::vector<int>{5}) {
            EXPECT_EQ(numberIn(Pkt::of(server->receiveFrame())), expected);
        }
        server->close();
        ASSERT_TRUE(rig.comesTo(state::waiting));
        rig.timer->advance(rig.left());
    }
}

TEST(KitKeeper, LoginThatFailsIsAFailedAttempt) {
    GatewayRig gateway;
    int logins = 0;
    kit::keeper_option how;
    how.login = [&](tls::client &, kit::login_end const & end) {
        ++logins;
        if (logins == 1) {
            end(std::make_error_code(std::errc::permission_denied));
        } else if (logins == 2) {
            throw std::runtime_error("no login");
        } else if (logins > 3) {
            end({});
            end(kit::failure::login_refused);
        }
    };
    KeeperRig rig(std::to_string(gateway.gateway.port()), how);
    rig.keeper.start();
    std::error_code const causes[] = {std::make_error_code(std::errc::permission_denied),
                                      kit::failure::unspecified, kit::failure::unspecified};
    int const waits[] = {250, 500, 1000};
    for (std::size_t i = 0; i < 3; ++i) {
        ASSERT_TRUE(rig.comesTo(state::waiting));
        EXPECT_EQ(rig.keeper.status().cause, causes[i]);
        EXPECT_EQ(rig.left().count(), waits[i]);
        rig.timer->advance(rig.left());
    }
    ASSERT_TRUE(rig.comesTo(state::up));
    EXPECT_EQ(logins, 4);
}

TEST(KitKeeper, LoginThatIsRefusedIsNamed) {
    GatewayRig gateway;
    kit::keeper_option how;
    how.login = kit::login_with<Said>(Say(1), 5s, [](Said const & v) { return v.number != 1; });
    KeeperRig rig(std::to_string(gateway.gateway.port()), how);
    rig.keeper.start();
    ASSERT_TRUE(rig.comesTo(state::waiting));
    EXPECT_EQ(rig.keeper.status().cause, kit::failure::login_refused);
    EXPECT_EQ(rig.keeper.status().cause, std::errc::permission_denied);
}

TEST(KitKeeper, LoginThatHangsEndsByItsLimit) {
    GatewayRig gateway;
    std::vector<kit::login_end> kept;
    kit::keeper_option how;
    how.login = [&](tls::client &, kit::login_end const & end) { kept.push_back(end); };
    KeeperRig rig(std::to_string(gateway.gateway.port()), how);
    rig.keeper.start();
    ASSERT_TRUE(rig.timer->run([&] { return kept.size() == 1; }));
    rig.timer->advance(9999ms);
    EXPECT_EQ(rig.keeper.status().state, state::connecting);
    rig.timer->advance(1ms);
    EXPECT_EQ(rig.keeper.status().state, state::waiting);
    EXPECT_EQ(rig.keeper.status().cause, kit::failure::timed_out);
    kept[0]({});
    rig.timer->pump();
    EXPECT_EQ(rig.keeper.status().state, state::waiting) << "it came too late";
}

TEST(KitKeeper, ConnectionThatBreaksInTheLoginIsAFailedAttempt) {
    TlsPeer peer;
    kit::keeper_option how;
    how.login = kit::login_with<Said>(Say(100), 600s);
    KeeperRig rig(peer.portText(), how);
    rig.keeper.start();
    ASSERT_TRUE(rig.timer->run([&] { return peer.pending(1); }));
    auto const server = acceptFrom(peer);
    ASSERT_TRUE(rig.timer->run([&] { return !server->quiet(0); }));
    server->reset();
    ASSERT_TRUE(rig.comesTo(state::waiting));
    EXPECT_EQ(rig.states.count("up"), 0u);
    EXPECT_TRUE(rig.keeper.status().cause);
}

// Messages.

TEST(KitKeeper, WhatIsSentWhileDownGoesOutInOrderWhenUp) {
    TlsPeer peer;
    Events ends;
    KeeperRig rig(peer.portText());
    rig.keeper.start();
    auto reply = kit::request<Said>(rig.keeper, Say(1), 30s);
    kit::post(rig.keeper, Say(2), 30s, [&](kit::result<void> v) { ends.add("post " + textOfResult(v)); });
    kit::send(rig.keeper, Say(3), 30s, [&](kit::result<void> v) { ends.add("send " + textOfResult(v)); });
    EXPECT_TRUE(kit::send(rig.keeper, Say(4)));
    EXPECT_EQ(rig.keeper.waiting(), 4u);
    EXPECT_EQ(ends.count(), 0u);
    ASSERT_TRUE(rig.timer->run([&] { return peer.pending(1); }));
    auto const server = acceptFrom(peer);
    ASSERT_TRUE(rig.timer->run([&] { return rig.keeper.waiting() == 0; }));
    for (int i = 1; i <= 4; ++i) {
        Pkt packet = Pkt::of(server->receiveFrame());
        EXPECT_EQ(numberIn(packet), i);
        if (i == 1) {
            server->send(mobile(Said::type_code, packet.sno).framed());
        } else if (i == 3) {
            packet.affirm = 0x30;
            packet.body.clear();
            server->send(packet.framed());
        }
    }
    EXPECT_TRUE(got(std::move(reply)));
    ASSERT_TRUE(ends.wait(2));
    EXPECT_EQ(ends.all(), (Texts{"post ok", "send ok"}));
}

TEST(KitKeeper, TermsReachThePacket) {
    TlsPeer peer;
    KeeperRig rig(peer.portText());
    rig.keeper.start();
    Say say(3);
    say.sno = 0x77;
    say.ext.traceId = tavString("trace");
    auto reply = kit::request<Said>(rig.keeper, say, kit::within(30s).grey(true).version(6));
    ASSERT_TRUE(rig.timer->run([&] { return peer.pending(1); }));
    auto const server = acceptFrom(peer);
    ASSERT_TRUE(rig.timer->run([&] { return rig.keeper.waiting() == 0; }));
    Pkt const sent = Pkt::of(server->receiveFrame());
    EXPECT_TRUE(sent.grey);
    EXPECT_EQ(sent.version, 6);
    EXPECT_EQ(sent.sno, 0x77u);
    EXPECT_EQ(sent.ext.traceId.value(), tavString("trace"));
    EXPECT_EQ(sent.body, std::string(tav_istr(say.encode(true))));
}

TEST(KitKeeper, StoppedKeeperTakesNothing) {
    kit::keeper keeper(quietOption("1"));
    EXPECT_EQ(got(kit::request<Said>(keeper, Say(1), 5s)).error(), kit::failure::stopped);
    EXPECT_EQ(kit::send(keeper, Say(1)).error(), kit::failure::stopped);
    EXPECT_EQ(keeper.status().state, state::stopped);
}

TEST(KitKeeper, MessageWaitsNoLongerThanItsLimit) {
    ClosedPort closed;
    KeeperRig rig(closed.port());
    rig.keeper.start();
    Events ends;
    kit::request<Said>(rig.keeper, Say(1), 700ms,
                       [&](kit::result<Said> v) { ends.add("1 " + textOfResult(v)); });
    kit::request<Said>(rig.keeper, Say(2), 100ms,
                       [&](kit::result<Said> v) { ends.add("2 " + textOfResult(v)); });
    kit::post(rig.keeper, Say(3), 300ms, [&](kit::result<void> v) { ends.add("3 " + textOfResult(v)); });
    rig.timer->advance(99ms);
    EXPECT_EQ(ends.count(), 0u);
    for (int i = 0; i < 8; ++i) {
        rig.timer->advance(100ms);
    }
    EXPECT_EQ(ends.all(), (Texts{"2 timed out", "3 timed out", "1 timed out"}));
    EXPECT_EQ(rig.keeper.waiting(), 0u);
    EXPECT_EQ(got(kit::request<Said>(rig.keeper, Say(1), 0ms)).error(), kit::failure::timed_out);
}

TEST(KitKeeper, LimitGoesOnOnTheWire) {
    LiveRig rig(kit::keeper_option(), silent());
    rig.keeper.start();
    auto const begin = std::chrono::steady_clock::now();
    EXPECT_EQ(got(kit::request<Said>(rig.keeper, Say(1), 300ms)).error(), kit::failure::timed_out);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 250ms);
}

TEST(KitKeeper, CancelledMessageLeavesTheOutbox) {
    ClosedPort closed;
    kit::keeper_option how;
    how.outbox = 2;
    KeeperRig rig(closed.port(), how);
    rig.keeper.start();
    Events ends;
    kit::cancellation stop;
    kit::pending const first = kit::request<Said>(
        rig.keeper, Say(1), 30s, [&](kit::result<Said> v) { ends.add("1 " + textOfResult(v)); });
    kit::request<Said>(rig.keeper, Say(2), kit::within(30s).unless(stop),
                       [&](kit::result<Said> v) { ends.add("2 " + textOfResult(v)); });
    EXPECT_EQ(kit::send(rig.keeper, Say(3)).error(), kit::failure::outbox_full);
    first.cancel();
    EXPECT_EQ(rig.keeper.waiting(), 1u);
    EXPECT_TRUE(kit::send(rig.keeper, Say(4)));
    stop.cancel();
    EXPECT_EQ(rig.keeper.waiting(), 1u);
    kit::request<Said>(rig.keeper, Say(5), kit::within(30s).unless(stop),
                       [&](kit::result<Said> v) { ends.add("5 " + textOfResult(v)); });
    EXPECT_EQ(ends.all(), (Texts{"1 cancelled", "2 cancelled", "5 cancelled"}));
}

TEST(KitKeeper, FullOutboxRefuses) {
    ClosedPort closed;
    kit::keeper_option how;
    how.outbox = 2;
    KeeperRig rig(closed.port(), how);
    rig.keeper.start();
    EXPECT_TRUE(kit::send(rig.keeper, Say(1)));
    EXPECT_TRUE(kit::send(rig.keeper, Say(2)));
    EXPECT_EQ(kit::send(rig.keeper, Say(3)).error(), kit::failure::outbox_full);
    EXPECT_EQ(got(kit::request<Said>(rig.keeper, Say(4), 5s)).error(), kit::failure::outbox_full);
    EXPECT_EQ(rig.keeper.waiting(), 2u);
}

TEST(KitKeeper, FullOutboxDropsTheOldest) {
    TlsPeer peer;
    kit::keeper_option how;
    how.outbox = 2;
    how.policy = kit::when_full::drop_oldest;
    KeeperRig rig(peer.portText(), how);
    rig.keeper.start();
    Events ends;
    for (int i = 1; i <= 4; ++i) {
        kit::post(rig.keeper, Say(i), 30s,
                  [&, i](kit::result<void> v) { ends.add(std::to_string(i) + " " + textOfResult(v)); });
    }
    EXPECT_EQ(ends.all(), (Texts{"1 dropped for a later message", "2 dropped for a later message"}));
    ASSERT_TRUE(rig.timer->run([&] { return peer.pending(1); }));
    auto const server = acceptFrom(peer);
    ASSERT_TRUE(rig.timer->run([&] { return ends.count() == 4; }));
    EXPECT_EQ(numberIn(Pkt::of(server->receiveFrame())), 3);
    EXPECT_EQ(numberIn(Pkt::of(server->receiveFrame())), 4);
}

TEST(KitKeeper, FullOutboxHoldsUpTheSenderUntilThereIsRoom) {
    TlsPeer peer;
    kit::keeper_option how;
    how.outbox = 1;
    how.policy = kit::when_full::wait;
    KeeperRig rig(peer.portText(), how);
    rig.keeper.start();
    EXPECT_TRUE(kit::send(rig.keeper, Say(1)));
    std::atomic<bool> through{false};
    std::thread sender([&] {
        EXPECT_TRUE(kit::send(rig.keeper, Say(2)));
        through = true;
    });
    ASSERT_TRUE(rig.timer->run([&] { return rig.keeper.waiting() == 2; }));
    EXPECT_FALSE(through);
    ASSERT_TRUE(rig.timer->run([&] { return peer.pending(1); }));
    auto const server = acceptFrom(peer);
    EXPECT_TRUE(rig.timer->run([&] { return through.load(); }));
    sender.join();
    EXPECT_TRUE(rig.timer->run([&] { return rig.keeper.waiting() == 0; }));
    EXPECT_EQ(numberIn(Pkt::of(server->receiveFrame())), 1);
    EXPECT_EQ(numberIn(Pkt::of(server->receiveFrame())), 2);
}

TEST(KitKeeper, SenderIsHeldUpNoLongerThanHisLimitNorAStop) {
    ClosedPort closed;
    kit::keeper_option how;
    how.outbox = 1;
    how.policy = kit::when_full::wait;
    KeeperRig rig(closed.port(), how);
    rig.keeper.start();
    EXPECT_TRUE(kit::send(rig.keeper, Say(1)));
    Events ends;
    std::thread first([&] { ends.add(textOfResult(got(kit::request<Said>(rig.keeper, Say(2), 400ms)))); });
    ASSERT_TRUE(rig.timer->run([&] { return rig.keeper.waiting() == 2; }));
    rig.timer->advance(400ms);
    EXPECT_TRUE(ends.wait(1));
    first.join();
    std::thread second([&] { ends.add(textOfResult(kit::send(rig.keeper, Say(3)))); });
    ASSERT_TRUE(rig.timer->run([&] { return rig.keeper.waiting() == 2; }));
    rig.keeper.stop();
    EXPECT_TRUE(ends.wait(2));
    second.join();
    EXPECT_EQ(ends.all(), (Texts{"timed out", "stopped"}));
}

TEST(KitKeeper, KeepersThreadIsNeverHeldUp) {
    ClosedPort closed;
    Events ends;
    kit::keeper * target = nullptr;
    kit::keeper_option how;
    how.outbox = 0;
    how.policy = kit::when_full::wait;
    how.first_wait = 10ms;
    how.on_state = [&](kit::keeper_status const & v) {
        if (v.state == state::waiting) {
            ends.add(textOfResult(kit::send(*target, Say(1))));
        }
    };
    kit::keeper keeper(quietOption(closed.port()), how);
    target = &keeper;
    keeper.start();
    ASSERT_TRUE(ends.wait(1));
    EXPECT_EQ(ends.all()[0], "no room in the outbox");
}

TEST(KitKeeper, OutboxIsBoundedInBytesToo) {
    ClosedPort closed;
    kit::keeper_option how;
    how.outbox_bytes = 2000;
    KeeperRig rig(closed.port(), how);
    rig.keeper.start();
    Say large;
    large.text = std::string(900, 'x').c_str();
    EXPECT_TRUE(kit::send(rig.keeper, large));
    EXPECT_TRUE(kit::send(rig.keeper, large));
    EXPECT_EQ(kit::send(rig.keeper, large).error(), kit::failure::outbox_full);
    EXPECT_EQ(kit::send(rig.keeper, large).error(), std::errc::no_buffer_space);
}

TEST(KitKeeper, MessageThatWasOnTheWireEndsWithItsConnection) {
    LiveRig rig(kit::keeper_option(), silent());
    ASSERT_TRUE(rig.start());
    auto lost = kit::request<Said>(rig.keeper, Say(1), 30s);
    ASSERT_TRUE(rig.gateway.gateway.wait([](tav::gateway::Stats const & v) { return v.packets == 1; }));
    rig.gateway.gateway.setFaults(tav::gateway::Faults());
    rig.gateway.gateway.drop(true);
    EXPECT_EQ(got(std::move(lost)).error(), kit::failure::disconnected);
    EXPECT_TRUE(got(kit::request<Said>(rig.keeper, Say(2), 10s)));
    EXPECT_EQ(rig.gateway.gateway.stats().packets, 2u) << "the first went out once";
}

TEST(KitKeeper, RepeatableMessageGoesOutAgainUntilItIsAnswered) {
    LiveRig rig(kit::keeper_option(), silent());
    ASSERT_TRUE(rig.start());
    Events ends;
    kit::request<Said>(rig.keeper, Say(1), kit::within(30s).repeatable(),
                       [&](kit::result<Said> v) { ends.add(textOfResult(v)); });
    for (unsigned times = 1; times <= 3; ++times) {
        ASSERT_TRUE(
            rig.gateway.gateway.wait([=](tav::gateway::Stats const & v) { return v.packets == times; }));
        rig.gateway.gateway.setFaults(times < 3 ? silent().faults : tav::gateway::Faults());
        rig.gateway.gateway.drop(times % 2 == 0);
    }
    ASSERT_TRUE(ends.wait(1));
    EXPECT_TRUE(got(kit::request<Said>(rig.keeper, Say(2), 10s)));
    EXPECT_EQ(ends.all(), Texts{"ok"});
    EXPECT_EQ(rig.gateway.gateway.stats().packets, 5u);
}

TEST(KitKeeper, RepeatableMessageEndsByItsOwnLimit) {
    TlsPeer peer;
    KeeperRig rig(peer.portText());
    rig.keeper.start();
    auto reply = kit::request<Said>(rig.keeper, Say(1), kit::within(40s).repeatable());
    ASSERT_TRUE(rig.timer->run([&] { return peer.pending(1); }));
    auto const server = acceptFrom(peer);
    ASSERT_TRUE(rig.timer->run([&] { return rig.keeper.waiting() == 0; }));
    server->receiveFrame();
    server->close();
    ASSERT_TRUE(rig.comesTo(state::waiting));
    EXPECT_EQ(rig.keeper.waiting(), 1u);
    rig.timer->advance(40s);
    EXPECT_EQ(got(std::move(reply)).error(), kit::failure::timed_out);
}

TEST(KitKeeper, LimitsOfTheConnectionHoldMessagesBackAndLoseNone) {
    GatewayRig gateway;
    tls::connect_option option = quietOption(std::to_string(gateway.gateway.port()));
    option.limits.queued_frames = 2;
    option.limits.tracked_sends = 3;
    kit::keeper_option how;
    how.policy = kit::when_full::wait;
    how.outbox = 20;
    kit::keeper keeper(option, how);
    keeper.start();
    std::vector<std::future<kit::result<Said>>> replies;
    for (int i = 0; i < 200; ++i) {
        replies.push_back(kit::request<Said>(keeper, Say(i), 60s));
    }
    for (int i = 0; i < 200; ++i) {
        kit::result<Said> const reply = got(std::move(replies[static_cast<std::size_t>(i)]));
        ASSERT_TRUE(reply) << reply.error().message();
        EXPECT_EQ(reply->number, i);
    }
    EXPECT_EQ(gateway.gateway.stats().packets, 200u);
}

TEST(KitKeeper, MessageThatCanNotBeEncodedIsNotSent) {
    LiveRig rig;
    ASSERT_TRUE(rig.start());
    EXPECT_EQ(got(kit::request<Said>(rig.keeper, Raising(), 5s)).error(), kit::failure::not_sent);
    EXPECT_EQ(kit::send(rig.keeper, Raising()).error(), kit::failure::not_sent);
}

TEST(KitKeeper, SendsThatWaitForNothingHoldNothing) {
    LiveRig rig;
    ASSERT_TRUE(rig.start());
    for (int i = 0; i < 100; ++i) {
        EXPECT_TRUE(kit::send(rig.keeper, Say(i)));
    }
    EXPECT_TRUE(rig.gateway.gateway.wait([](tav::gateway::Stats const & v) { return v.packets == 100; }));
    EXPECT_TRUE(eventually([&] { return rig.keeper.client().statistics().messages_sent == 100; }));
    EXPECT_EQ(rig.keeper.client().statistics().tracked_sends, 0u);
    EXPECT_EQ(rig.keeper.client().statistics().sends_cancelled, 0u);
}

TEST(KitKeeper, SendsThatWaitForNothingNeedNoPlaceAmongThoseThatWait) {
    GatewayRig gateway(silent());
    tls::connect_option option = quietOption(std::to_string(gateway.gateway.port()));
    option.limits.tracked_sends = 1;
    kit::keeper keeper(option);
    keeper.start();
    ASSERT_TRUE(eventually([&] { return keeper.status().state == state::up; }));
    auto const waiting = kit::request<Said>(keeper, Say(1), 60s);
    ASSERT_TRUE(eventually([&] { return keeper.client().statistics().tracked_sends == 1; }));
    EXPECT_TRUE(kit::send(keeper, Say(2)));
    EXPECT_EQ(keeper.waiting(), 0u);
    EXPECT_TRUE(gateway.gateway.wait([](tav::gateway::Stats const & v) { return v.packets == 2; }));
    EXPECT_EQ(keeper.client().statistics().tracked_sends, 1u);
}

// The end.

TEST(KitKeeper, StopEndsEachMessageOnceAndReturnsAtOnce) {
    Events ends;
    LiveRig rig(kit::keeper_option(), silent());
    ASSERT_TRUE(rig.start());
    for (int i = 0; i < 20; ++i) {
        kit::request<Said>(rig.keeper, Say(i), 30s, [&](kit::result<Said> v) { ends.add(textOfResult(v)); });
    }
    EXPECT_LT(took([&] { rig.keeper.stop(); }), a_second);
    EXPECT_EQ(ends.count("stopped"), 20u) << "all by then";
    EXPECT_TRUE(eventually([&] { return !rig.keeper.client().connected(); }));
    EXPECT_EQ(ends.count(), 20u);
}

TEST(KitKeeper, StopsWhileWaiting) {
    ClosedPort closed;
    kit::keeper_option how;
    how.first_wait = 30s;
    how.jitter = [] { return 1.0; };
    Events states;
    how.on_state = recorded(states).on_state;
    kit::keeper keeper(quietOption(closed.port()), how);
    keeper.start();
    ASSERT_TRUE(eventually([&] { return keeper.status().state == state::waiting; }));
    EXPECT_TRUE(kit::send(keeper, Say(1)));
    EXPECT_LT(took([&] { keeper.stop(); }), a_second);
    EXPECT_EQ(states.all().back(), "stopped: stopped");
}

TEST(KitKeeper, StopsWhileALookupHangs) {
    Names names;
    names.addHanging("hangs.test");
    {
        tls::connect_option option = quietOption("443");
        option.host = "hangs.test";
        kit::keeper keeper(option);
        keeper.start();
        ASSERT_TRUE(names.waitAsked("hangs.test"));
        EXPECT_LT(took([&] { keeper.stop(); }), a_second);
    }
    names.letGo("hangs.test");
}

TEST(KitKeeper, StopsWhileAConnectHangs) {
    tav::gateway::Options options;
    options.faults.no_handshake = true;
    LiveRig rig(kit::keeper_option(), options);
    rig.keeper.start();
    ASSERT_TRUE(rig.gateway.gateway.wait([](tav::gateway::Stats const & v) { return v.connections == 1; }));
    EXPECT_LT(took([&] { rig.keeper.stop(); }), a_second);
    EXPECT_EQ(rig.states.all(), (Texts{"connecting", "stopped: stopped"}));
}

TEST(KitKeeper, StopsWhileALoginHangs) {
    kit::keeper_option how;
    how.login = kit::login_with<Said>(Say(1), 30s);
    LiveRig rig(how, silent());
    rig.keeper.start();
    ASSERT_TRUE(rig.gateway.gateway.wait([](tav::gateway::Stats const & v) { return v.packets == 1; }));
    EXPECT_LT(took([&] { rig.keeper.stop(); }), a_second);
    EXPECT_EQ(rig.states.all(), (Texts{"connecting", "stopped: stopped"}));
}

TEST(KitKeeper, StopsWhileALoginHoldsUpTheThread) {
    auto const obstacle = std::make_shared<Gate>();
    kit::keeper_option how;
    how.login = [obstacle](tls::client &, kit::login_end const &) { obstacle->pass(); };
    LiveRig rig(how);
    rig.keeper.start();
    ASSERT_TRUE(obstacle->waitArrived());
    EXPECT_LT(took([&] { rig.keeper.stop(); }), a_second);
    EXPECT_EQ(rig.keeper.status().state, state::stopped);
    obstacle->open();
}

TEST(KitKeeper, StopsWhileAnotherKeeperHoldsUpTheThread) {
    auto const obstacle = std::make_shared<Gate>();
    Events ends;
    LiveRig rig(kit::keeper_option(), silent());
    ASSERT_TRUE(rig.start());
    kit::keeper_option how;
    how.on_state = [obstacle](kit::keeper_status const &) { obstacle->pass(); };
    kit::keeper other(quietOption("1"), how);
    other.start();
    ASSERT_TRUE(obstacle->waitArrived());
    kit::request<Said>(rig.keeper, Say(1), 30s, [&](kit::result<Said> v) { ends.add(textOfResult(v)); });
    EXPECT_LT(took([&] { rig.keeper.stop(); }), 800ms);
    EXPECT_EQ(ends.all(), Texts{"stopped"});
    EXPECT_EQ(rig.states.all().back(), "stopped: stopped");
    obstacle->open();
}

TEST(KitKeeper, StopsInsideEachCallback) {
    enum class place { state, login, reply, refusal, give_up };
    for (place const at : {place::state, place::login, place::reply, place::refusal, place::give_up}) {
        ClosedPort closed;
        GatewayRig gateway;
        Events events;
        std::unique_ptr<kit::keeper> keeper;
        auto const stop = [&] {
            auto const time = took([&] { keeper->stop(); });
            events.add(time < a_second ? "in time" : "late");
        };
        kit::keeper_option how;
        how.on_state = [&](kit::keeper_status const & v) {
            if (at == place::state && v.state == state::up) {
                stop();
            }
        };
        how.login = [&](tls::client &, kit::login_end const & end) {
            if (at == place::login) {
                stop();
            }
            end({});
        };
        how.give_up = [&](kit::keeper_status const &) {
            stop();
            return false;
        };
        keeper = std::make_unique<kit::keeper>(at == place::give_up
                                                   ? quietOption(closed.port())
                                                   : quietOption(std::to_string(gateway.gateway.port())),
                                               how);
        if (at == place::refusal) {
            kit::request<Said>(*keeper, Say(1), 5s, [&](kit::result<Said>) { stop(); });
        }
        keeper->start();
        if (at == place::reply) {
            kit::request<Said>(*keeper, Say(1), 5s, [&](kit::result<Said>) { stop(); });
        }
        ASSERT_TRUE(events.wait(1)) << static_cast<int>(at);
        EXPECT_EQ(events.all()[0], "in time") << static_cast<int>(at);
        if (at != place::refusal) {
            EXPECT_TRUE(eventually([&] { return keeper->status().state == state::stopped; }));
        }
        keeper.reset();
    }
}

TEST(KitKeeper, NothingIsToldBehindADestruction) {
    GatewayRig gateway;
    std::atomic<int> calls{0};
    for (int i = 0; i < 20; ++i) {
        kit::keeper_option how;
        how.first_wait = 1ms;
        how.on_state = [&](kit::keeper_status const &) { ++calls; };
        auto keeper = std::make_unique<kit::keeper>(quietOption(std::to_string(gateway.gateway.port())), how);
        keeper->start();
        if (i % 2 == 0) {
            ASSERT_TRUE(eventually([&] { return keeper->status().state == state::up; }));
        }
        keeper.reset();
        int const by_then = calls;
        gateway.gateway.drop();
        std::thread([] {}).join();
        EXPECT_EQ(calls, by_then);
    }
}

TEST(KitKeeper, MayGoInItsOwnStateFunction) {
    GatewayRig gateway;
    Holdings const before;
    std::promise<void> gone;
    {
        tls::client client("n");
        std::unique_ptr<kit::keeper> keeper;
        kit::keeper_option how;
        how.on_state = [&](kit::keeper_status const & v) {
            if (v.state == state::up) {
                keeper.reset();
                gone.set_value();
            }
        };
        keeper =
            std::make_unique<kit::keeper>(client, quietOption(std::to_string(gateway.gateway.port())), how);
        keeper->start();
        ASSERT_EQ(gone.get_future().wait_for(10s), std::future_status::ready);
    }
    EXPECT_TRUE(before.back()) << before.print();
}

TEST(KitKeeper, LeavesNoThreadAndNoDescriptor) {
    GatewayRig gateway;
    ClosedPort closed;
    Holdings const before;
    for (int i = 0; i < 10; ++i) {
        kit::keeper_option how;
        how.first_wait = 1ms;
        how.gateways = {closed.gateway(), {"127.0.0.1", std::to_string(gateway.gateway.port()), 1}};
        kit::keeper keeper(tls::connect_option(), how);
        keeper.start();
        EXPECT_TRUE(got(kit::request<Said>(keeper, Say(i), 10s)));
    }
    EXPECT_TRUE(before.back()) << before.print();
}

// Of a reply, a time-out, a cancellation, a break and a stop one comes first, and is told.
TEST(KitKeeper, OneEndIsToldOutOfMany) {
    constexpr int rounds = 4;
    constexpr int each = 300;
    for (int round = 0; round < rounds; ++round) {
        std::atomic<int> ends{0};
        std::vector<std::unique_ptr<std::atomic<int>>> told;
        for (int i = 0; i < each; ++i) {
            told.push_back(std::make_unique<std::atomic<int>>(0));
        }
        kit::keeper_option how;
        how.outbox = 20;
        how.policy = static_cast<kit::when_full>(round % 3);
        LiveRig rig(how);
        rig.keeper.start();
        kit::cancellation stop;
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([&, t] {
                for (int i = t; i < each; i += 4) {
                    kit::within terms(std::chrono::milliseconds(1 + i % 40));
                    terms.unless(stop).repeatable(i % 2 == 0);
                    kit::pending const one =
                        kit::request<Said>(rig.keeper, Say(i), terms, [&, i](kit::result<Said>) {
                            ++*told[static_cast<std::size_t>(i)];
                            ++ends;
                        });
                    if (i % 5 == 0) {
                        one.cancel();
                    }
                    if (i % 100 == 50) {
                        rig.gateway.gateway.drop(i % 200 == 50);
                    }
                    if (i == each * 3 / 4) {
                        stop.cancel();
                    }
                    if (i == each * 7 / 8) {
                        rig.keeper.stop();
                    }
                }
            });
        }
        for (std::thread & thread : threads) {
            thread.join();
        }
        EXPECT_TRUE(eventually([&] { return ends == each; })) << ends;
        rig.keeper.stop();
        for (auto const & one : told) {
            EXPECT_EQ(*one, 1);
        }
    }
}
