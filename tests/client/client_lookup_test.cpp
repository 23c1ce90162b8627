#include "tav/vinta/vinta_tls_client.h"

#include "client/resolver.h"
#include "support/client_rig.h"
#include "support/log_capture.h"
#include "support/names.h"

#include <gtest/gtest.h>

using namespace tav_test;
using tls::client;

namespace {

using Clock = std::chrono::steady_clock;

long long msSince(Clock::time_point begin) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin).count();
}

/// Time limits that are promised, with room for a machine that has other work.
constexpr long long a_second = 3000;

tls::connect_option named(tls::connect_option option, std::string host) {
    option.host = std::move(host);
    return option;
}

/// What a start at this port ends with.
std::string errorOf(std::string const & port) {
    ClientRig rig;
    tls::connect_option option = rig.option();
    option.port = port;
    auto const info = rig.client.start(option);
    if (resultOf(info) != tls::result_error || !rig.events.wait(1)) {
        return "no error";
    }
    return rig.events.all()[0];
}

} // namespace

TEST(ClientLookup, AnAddressInNumbersIsNotLookedUp) {
    Names names;
    ClientRig rig;
    rig.connect();
    rig.reconnect();
    EXPECT_EQ(names.asked(), std::vector<std::string>{});
}

TEST(ClientLookup, ANameIsLookedUp) {
    Names names;
    names.add("here.test", {"127.0.0.1"});
    ClientRig rig;
    rig.connect(named(rig.option(), "here.test"));
    EXPECT_EQ(names.asked(), std::vector<std::string>{"here.test"});
}

TEST(ClientLookup, ANameThatDoesNotExistIsAnError) {
    Names names;
    ClientRig rig;
    EXPECT_EQ(resultOf(rig.client.start(named(rig.option(), "nobody.test"))), tls::result_error);
    ASSERT_TRUE(rig.events.wait(1));
    EXPECT_NE(rig.events.all()[0].find("Host not found"), std::string::npos) << rig.events.all()[0];
}

TEST(ClientLookup, OneThatHangsEndsByTheConnectsLimit) {
    Names names;
    names.addHanging("hangs.test");
    ClientRig rig;
    tls::connect_option option = named(rig.option(), "hangs.test");
    option.timedout.wait_ms(200);
    EXPECT_EQ(resultOf(rig.client.start(option)), tls::result_timedout);
}

TEST(ClientLookup, OneThatHangsHoldsUpNoLaterStart) {
    Names names;
    names.addHanging("hangs.test");
    names.add("here.test", {"127.0.0.1"});
    for (std::string const later : {"127.0.0.1", "here.test"}) {
        ClientRig rig;
        auto const first = rig.client.start(named(rig.option(), "hangs.test"));
        ASSERT_TRUE(names.waitAsked("hangs.test"));
        auto const begin = Clock::now();
        rig.connect(named(rig.option(), later));
        EXPECT_LT(msSince(begin), a_second) << later;
        EXPECT_EQ(first->result(), tls::result_cancelled);
        EXPECT_TRUE(rig.settle());
    }
}

TEST(ClientLookup, OneThatHangsHoldsUpNoReconnectAfterItsLimit) {
    Names names;
    names.addHanging("hangs.test");
    ClientRig rig;
    tls::connect_option option = named(rig.option(), "hangs.test");
    option.timedout.wait_ms(200);
    ASSERT_EQ(resultOf(rig.client.start(option)), tls::result_timedout);
    auto const again = rig.client.reconnect(tls::timedout_option(200));
    EXPECT_TRUE(names.waitAsked("hangs.test", 2)) << "a lookup of its own";
    EXPECT_EQ(resultOf(again), tls::result_timedout);
}

TEST(ClientLookup, OneThatHangsHoldsUpNoOtherClient) {
    Names names;
    names.addHanging("hangs.test");
    names.add("here.test", {"127.0.0.1"});
    ClientRig stuck("stuck");
    stuck.client.start(named(stuck.option(), "hangs.test"));
    ASSERT_TRUE(names.waitAsked("hangs.test"));
    ClientRig rig;
    rig.connect(named(rig.option(), "here.test"));
    EXPECT_TRUE(rig.settle());
}

TEST(ClientLookup, OneThatHangsHoldsUpNoCloseAndKeepsNoSession) {
    LogCapture log;
    Names names;
    names.addHanging("hangs.test");
    ClientRig rig;
    auto const info = rig.client.start(named(rig.option(), "hangs.test"));
    ASSERT_TRUE(names.waitAsked("hangs.test"));
    auto const begin = Clock::now();
    rig.client.close();
    EXPECT_EQ(resultOf(info), tls::result_cancelled);
    EXPECT_TRUE(log.waitFor("<n> session destruct\n"));
    EXPECT_LT(msSince(begin), a_second);
    EXPECT_EQ(rig.events.count(), 0u);
}

TEST(ClientLookup, OneThatHangsHoldsUpNoDestroyAndTouchesNothingLater) {
    Names names;
    names.addHanging("hangs.test");
    Holdings const before;
    Events events;
    auto const info = client::instance("lookup").start(named(optionFor(1, events), "hangs.test"));
    ASSERT_TRUE(names.waitAsked("hangs.test"));
    auto const begin = Clock::now();
    EXPECT_TRUE(client::destroy("lookup"));
    EXPECT_LT(msSince(begin), a_second);
    EXPECT_EQ(info->result(), tls::result_cancelled);
    names.letGo("hangs.test");
    EXPECT_TRUE(before.back()) << before.print();
    EXPECT_EQ(events.count(), 0u);
}

TEST(ClientLookup, OneThatHangsHoldsUpNoFinalize) {
    Names names;
    names.addHanging("hangs.test");
    Holdings const before;
    Events events;
    client::instance("lookup").start(named(optionFor(1, events), "hangs.test"));
    ASSERT_TRUE(names.waitAsked("hangs.test"));
    auto const begin = Clock::now();
    client::finalize();
    EXPECT_LT(msSince(begin), a_second);
    names.letGo("hangs.test");
    EXPECT_TRUE(before.back()) << before.print();
}

TEST(ClientLookup, ManyThatHangEndByThemselvesLater) {
    Names names;
    names.addHanging("hangs.test");
    Holdings const before;
    {
        ClientRig rig;
        for (unsigned n = 1; n <= 20; ++n) {
            tls::connect_option option = named(rig.option(), "hangs.test");
            option.timedout.wait_ms(1);
            rig.client.start(option);
            ASSERT_TRUE(names.waitAsked("hangs.test", n));
        }
        names.letGo("hangs.test");
    }
    EXPECT_TRUE(before.back()) << before.print();
}

TEST(ClientLookupAddresses, OneThatDoesNotAnswerHoldsUpTheOthersASecondAtMost) {
    Names names;
    ClientRig rig;
    SilentAddress const silent("127.0.0.2", rig.peer.port());
    names.add("two.test", {"127.0.0.2", "127.0.0.1"});
    auto const begin = Clock::now();
    rig.connect(named(rig.option(), "two.test"));
    EXPECT_LT(msSince(begin), a_second);
    EXPECT_EQ(rig.client.get_remote_addr().host, "127.0.0.1");
    EXPECT_TRUE(rig.settle());
    EXPECT_EQ(rig.events.count(), 1u) << "the address that was left behind tells nothing";
}

TEST(ClientLookupAddresses, OneThatRefusesHoldsUpNothing) {
    Names names;
    ClientRig rig;
    std::vector<std::string> addresses;
    for (int n = 2; n < 62; ++n) {
        addresses.push_back("127.0.0." + std::to_string(n));
    }
    addresses.push_back("127.0.0.1");
    names.add("many.test", addresses);
    auto const begin = Clock::now();
    rig.connect(named(rig.option(), "many.test"));
    EXPECT_LT(msSince(begin), a_second) << "each of the sixty would cost a head start";
    EXPECT_EQ(rig.events.count(), 1u);
}

TEST(ClientLookupAddresses, TheLastThatAnswersIsNotGivenUpForOneThatIsSilent) {
    Names names;
    ClientRig rig;
    SilentAddress const silent("127.0.0.3", rig.peer.port());
    names.add("three.test", {"127.0.0.2", "127.0.0.1", "127.0.0.3"});
    rig.connect(named(rig.option(), "three.test"));
    EXPECT_EQ(rig.client.get_remote_addr().host, "127.0.0.1");
}

TEST(ClientLookupAddresses, AllThatRefuseAreOneError) {
    LogCapture log;
    Names names;
    ClientRig rig;
    rig.peer.stop();
    names.add("none.test", {"127.0.0.2", "127.0.0.3"});
    EXPECT_EQ(resultOf(rig.client.start(named(rig.option(), "none.test"))), tls::result_error);
    ASSERT_TRUE(rig.events.wait(1));
    EXPECT_NE(rig.events.all()[0].find("Connection refused"), std::string::npos);
    EXPECT_EQ(log.count(" Connect failed: Connection refused"), 1u);
    std::string const port = rig.peer.portText();
    EXPECT_TRUE(log.contains(" connecting to 127.0.0.2:" + port + ", 127.0.0.3:" + port));
}

TEST(ClientLookupAddresses, AllThatAreSilentEndWithTheConnectAndLeaveNothing) {
    Names names;
    Holdings const before;
    {
        ClientRig rig;
        SilentAddress const first("127.0.0.2", rig.peer.port());
        SilentAddress const second("127.0.0.3", rig.peer.port());
        names.add("silent.test", {"127.0.0.2", "127.0.0.3"});
        tls::connect_option option = named(rig.option(), "silent.test");
        option.timedout.wait_ms(600);
        EXPECT_EQ(resultOf(rig.client.start(option)), tls::result_timedout);
        rig.connect();
        EXPECT_TRUE(rig.settle());
    }
    EXPECT_TRUE(before.back()) << before.print();
}

TEST(ClientLookupPort, AboveTheLargestIsAnErrorAndConnectsToNothing) {
    LogCapture log;
    ClientRig rig;
    tls::connect_option option = rig.option();
    option.port = std::to_string(65536 + rig.peer.port());
    EXPECT_EQ(resultOf(rig.client.start(option)), tls::result_error);
    ASSERT_TRUE(rig.events.wait(1));
    EXPECT_EQ(rig.events.all()[0], "error " + textOf(EINVAL) + " on <n>global.on_error.0: port " +
                                       option.port + " is no number from 0 to 65535");
    EXPECT_EQ(log.find("<n> port " + option.port).level, tavLogger::ERROR);
    EXPECT_FALSE(rig.peer.pending(0));
    EXPECT_EQ(resultOf(rig.client.reconnect(tls::timedout_option())), tls::result_error);
    rig.connect();
    EXPECT_TRUE(rig.settle());
}

TEST(ClientLookupPort, TrailingLettersAndSignsAreErrors) {
    for (char const * port : {"443x", "1 ", " 80", "+80", "-1", "80.", "0x50", "99999999999999999999"}) {
        EXPECT_NE(errorOf(port).find(std::string("port ") + port + " is no number"), std::string::npos)
            << port << ": " << errorOf(port);
    }
}

TEST(ClientLookupPort, TheLargestIsTried) {
    EXPECT_EQ(errorOf("65535").find("is no number"), std::string::npos);
    EXPECT_EQ(errorOf("065535").find("is no number"), std::string::npos);
}

TEST(ClientLookupPort, BehindAProxyCountsToo) {
    ClientRig rig;
    tls::connect_option option = rig.option();
    option.proxy_host = option.host;
    option.proxy_port = option.port;
    option.port = "65536";
    option.set_on_http_proxy_connect([](unsigned int, char const *, unsigned short) { return 0; });
    EXPECT_EQ(resultOf(rig.client.start(option)), tls::result_error);
    std::swap(option.port, option.proxy_port);
    EXPECT_EQ(resultOf(rig.client.start(option)), tls::result_error);
    EXPECT_FALSE(rig.peer.pending(0));
}

TEST(ClientLookupPort, IsTellableFromAService) {
    unsigned short port = 7;
    for (char const * name : {"", "https", "x11", "no-such-service"}) {
        EXPECT_EQ(impl::read_port(name, port), impl::port_kind::name) << name;
    }
    EXPECT_EQ(port, 7);
    EXPECT_EQ(impl::read_port("0", port), impl::port_kind::number);
    EXPECT_EQ(port, 0);
    EXPECT_EQ(impl::read_port("65535", port), impl::port_kind::number);
    EXPECT_EQ(port, 65535);
    EXPECT_EQ(impl::read_port("65536", port), impl::port_kind::wrong);
}
