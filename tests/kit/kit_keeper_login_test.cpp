#include "tav/kit/keeper.h"

#include "support/keeper_rig.h"

#include <gtest/gtest.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace std::chrono_literals;
using namespace tav_test;
using state = kit::keeper_state;

} // namespace

TEST(KitKeeperLogin, LoginComesBeforeAllElse) {
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
        auto const server = rig.accept(peer);
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

TEST(KitKeeperLogin, LoginThatFailsIsAFailedAttempt) {
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

TEST(KitKeeperLogin, LoginThatIsRefusedIsNamed) {
    GatewayRig gateway;
    kit::keeper_option how;
    how.login = kit::login_with<Said>(Say(1), 5s, [](Said const & v) { return v.number != 1; });
    KeeperRig rig(std::to_string(gateway.gateway.port()), how);
    rig.keeper.start();
    ASSERT_TRUE(rig.comesTo(state::waiting));
    EXPECT_EQ(rig.keeper.status().cause, kit::failure::login_refused);
    EXPECT_EQ(rig.keeper.status().cause, std::errc::permission_denied);
}

TEST(KitKeeperLogin, LoginThatHangsEndsByItsLimit) {
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

TEST(KitKeeperLogin, ConnectionThatBreaksInTheLoginIsAFailedAttempt) {
    TlsPeer peer;
    kit::keeper_option how;
    how.login = kit::login_with<Said>(Say(100), 600s);
    KeeperRig rig(peer.portText(), how);
    rig.keeper.start();
    auto const server = rig.accept(peer);
    ASSERT_TRUE(rig.timer->run([&] { return !server->quiet(0); }));
    server->reset();
    ASSERT_TRUE(rig.comesTo(state::waiting));
    EXPECT_EQ(rig.states.count("up"), 0u);
    EXPECT_TRUE(rig.keeper.status().cause);
}
