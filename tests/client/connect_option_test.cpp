#include "tav/vinta/vinta_tls_client_options.h"

#include "support/log_capture.h"
#include "support/option_messages.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <type_traits>
#include <utility>

using namespace tav::tls;
using tav_test::bytes;
using tav_test::LogCapture;
using tav_test::note;
using tav_test::Note;
using tav_test::printed;
using tav_test::Seen;
using tav_test::traced;

namespace {

bool baseEvent(connect_option & option, tavMessage const & msg) {
    return option.on_obj_msg(3, msg);
}
bool baseEvent(global_callback & option, tavMessage const & msg) {
    return option.on_base_msg(3, msg);
}
void setBase(connect_option & option, obj_function f) {
    option.set_obj_msg_callback(std::move(f));
}
void setBase(global_callback & option, obj_function f) {
    option.set_base_msg_callback(std::move(f));
}

template <class Option>
std::string takes(Option & option) {
    std::string taken;
    taken += option.on_json_msg(1, 2, "{}", tavMsgExt()) ? "json " : "";
    taken += option.on_nbr_msg(2, 2, bytes("ab"), 2, tavMsgExt()) ? "nbr " : "";
    taken += baseEvent(option, Note()) ? "obj " : "";
    taken += option.on_ptr_msg(4, note()) ? "ptr " : "";
    return taken;
}

} // namespace

TEST(ConnectOption, StartsEmpty) {
    connect_option const option;
    EXPECT_TRUE(option.empty());
    EXPECT_EQ(option.host + option.port + option.ca + option.metainfo + option.cipher, "");
    EXPECT_EQ(option.proxy_host + option.proxy_port + option.server_name + option.reserved_, "");
    EXPECT_TRUE(option.callback_.empty());
    EXPECT_EQ(option.timedout.wait_ms(), 0);
    EXPECT_FALSE(option.on_error_);
    EXPECT_FALSE(option.on_heartbeat_timedout_);
    EXPECT_FALSE(option.on_open_);
    EXPECT_FALSE(option.on_http_proxy_connect_);
}

TEST(ConnectOption, AnyOfFourThingsMakesItNotEmpty) {
    connect_option host;
    host.host = "h";
    EXPECT_FALSE(host.empty());
    connect_option port;
    port.port = "1";
    EXPECT_FALSE(port.empty());
    connect_option callback;
    callback.set_json_msg_callback(json_function());
    EXPECT_FALSE(callback.empty());
    connect_option wait;
    wait.timedout = timedout_option(1);
    EXPECT_FALSE(wait.empty());
}

TEST(ConnectOption, NothingElseMakesItNotEmpty) {
    connect_option option;
    option.ca = "ca";
    option.metainfo = "m";
    option.cipher = "c";
    option.proxy_host = "p";
    option.proxy_port = "1";
    option.server_name = "s";
    option.reserved_ = "r";
    option.set_on_open([] {});
    option.set_on_heartbeat_timedout([] {});
    option.set_on_error([](unsigned long long, unsigned short, int, char const *) {});
    option.set_on_http_proxy_connect([](unsigned int, char const *, unsigned short) { return 0; });
    option.timedout = timedout_option(-1);
    EXPECT_TRUE(option.empty());
}

TEST(ConnectOption, ConnectsToTheProxyIfItsFunctionIsSet) {
    connect_option option;
    option.host = "host";
    option.port = "1";
    option.proxy_host = "proxy";
    option.proxy_port = "2";
    connect_option const & same = option;
    EXPECT_EQ(&same.connect_host(), &option.host);
    EXPECT_EQ(&same.connect_port(), &option.port);
    option.set_on_http_proxy_connect([](unsigned int, char const *, unsigned short) { return 0; });
    EXPECT_EQ(&same.connect_host(), &option.proxy_host);
    EXPECT_EQ(&same.connect_port(), &option.proxy_port);
    option.set_on_http_proxy_connect(proxy_function());
    EXPECT_EQ(&same.connect_host(), &option.host);
}

TEST(ConnectOption, DefaultCipherList) {
    connect_option option;
    connect_option const & same = option;
    EXPECT_EQ(same.cipher_list(),
              "AES256-GCM-SHA384:AES128-GCM-SHA256:ECDHE-RSA-AES256-GCM-SHA384:ECDHE-RSA-AES128-GCM-SHA256:"
              "ECDHE-ECDSA-AES128-GCM-SHA256:ECDHE-ECDSA-AES256-GCM-SHA384");
    EXPECT_EQ(option.cipher, "");
    option.cipher = "mine";
    EXPECT_EQ(same.cipher_list(), "mine");
}

TEST(ConnectOption, Prints) {
    connect_option option;
    EXPECT_EQ(printed(option), "host= port= ca length=0");
    option.host = "h";
    option.port = "443";
    option.ca = "abc";
    EXPECT_EQ(printed(option), "host=h port=443 ca length=3");
    option.timedout.wait_ms(1);
    EXPECT_EQ(printed(option), "host=h port=443 ca length=3 max waiting 1ms...");
    option.timedout.wait_ms(-1);
    EXPECT_EQ(printed(option), "host=h port=443 ca length=3");
}

TEST(ConnectOption, CopiesHaveEverything) {
    Seen seen;
    connect_option option;
    option.host = "h";
    option.port = "p";
    option.ca = "a";
    option.metainfo = "m";
    option.cipher = "c";
    option.proxy_host = "H";
    option.proxy_port = "P";
    option.server_name = "s";
    option.reserved_ = "r";
    option.timedout =
        timedout_option(100, [&](unsigned long long, unsigned short, bool) { seen.kinds += "timedout "; });
    option.set_on_open([&] { seen.kinds += "open "; });
    option.set_on_heartbeat_timedout([&] { seen.kinds += "heartbeat "; });
    option.set_on_error(
        [&](unsigned long long, unsigned short, int, char const *) { seen.kinds += "error "; });
    option.set_on_http_proxy_connect([&](unsigned int, char const *, unsigned short) {
        seen.kinds += "proxy ";
        return 0;
    });
    option.set_json_msg_callback(seen.json());
    connect_option copy(option);
    connect_option assigned;
    assigned = option;
    option = connect_option();
    for (connect_option * const one : {&copy, &assigned}) {
        seen.kinds.clear();
        EXPECT_EQ(one->host + one->port + one->ca + one->metainfo + one->cipher, "hpamc");
        EXPECT_EQ(one->proxy_host + one->proxy_port + one->server_name + one->reserved_, "HPsr");
        EXPECT_TRUE(one->timedout.check_timedout(1, 1, 100));
        EXPECT_TRUE(one->on_open());
        EXPECT_TRUE(one->on_heartbeat_timedout());
        EXPECT_TRUE(one->on_error(1, 1, 1, ""));
        EXPECT_EQ(one->on_http_proxy_connect(1, "h", 1), 0);
        EXPECT_EQ(takes(*one), "json ");
        EXPECT_EQ(seen.kinds, "timedout open heartbeat error proxy json ");
    }
    EXPECT_TRUE(option.empty());
    EXPECT_FALSE(option.on_open());
}

template <class Option>
class ConnectOptionEvents : public testing::Test {};

struct OptionNames {
    template <class Option>
    static std::string GetName(int) {
        return std::is_same<Option, connect_option>::value ? "ConnectOption" : "GlobalCallback";
    }
};

typedef testing::Types<connect_option, global_callback> OptionTypes;
TYPED_TEST_SUITE(ConnectOptionEvents, OptionTypes, OptionNames);

TYPED_TEST(ConnectOptionEvents, NothingIsTakenWithoutFunctions) {
    LogCapture log;
    TypeParam option;
    EXPECT_FALSE(option.on_open());
    EXPECT_FALSE(option.on_heartbeat_timedout());
    EXPECT_FALSE(option.on_error(1, 2, 3, "text"));
    EXPECT_EQ(option.on_http_proxy_connect(1, "h", 2), 0);
    EXPECT_EQ(takes(option), "");
    tavLogger::flush();
    EXPECT_TRUE(log.records().empty());
}

TYPED_TEST(ConnectOptionEvents, OpenIsLoggedAndCalled) {
    LogCapture log;
    TypeParam option;
    int count = 0;
    option.set_on_open([&] {
        ++count;
        tav_log_out_("open called", "", 0, "");
    });
    EXPECT_TRUE(option.on_open());
    EXPECT_TRUE(option.on_open());
    EXPECT_EQ(count, 2);
    ASSERT_TRUE(log.waitFor(")  channel open ok\n", 2));
    EXPECT_EQ(log.find(" channel open ok").level, tavLogger::INFO);
    ASSERT_TRUE(log.waitFor("open called", 2));
    EXPECT_TRUE(log.inOrder({" channel open ok", "open called", " channel open ok", "open called"}));
}

TYPED_TEST(ConnectOptionEvents, HeartbeatIsLoggedAndCalled) {
    LogCapture log;
    TypeParam option;
    int count = 0;
    option.set_on_heartbeat_timedout([&] { ++count; });
    EXPECT_TRUE(option.on_heartbeat_timedout());
    EXPECT_EQ(count, 1);
    ASSERT_TRUE(log.waitFor(") heartbeat timedout\n"));
    EXPECT_EQ(log.find("heartbeat timedout").level, tavLogger::INFO);
}

TYPED_TEST(ConnectOptionEvents, ErrorIsLoggedAndCalledWithThePositiveCode) {
    LogCapture log;
    TypeParam option;
    std::string got;
    option.set_on_error([&](unsigned long long sno, unsigned short msgcode, int code, char const * text) {
        got = std::to_string(sno) + ' ' + std::to_string(msgcode) + ' ' + std::to_string(code) + ' ' + text;
    });
    EXPECT_TRUE(option.on_error(7, 0x1234, -10, "broken"));
    EXPECT_EQ(got, "7 4660 10 broken");
    ASSERT_TRUE(log.waitFor("global level on error "));
    EXPECT_EQ(log.find("global level on error ").level, tavLogger::INFO);
    std::string const line = log.find("global level on error ").text;
    EXPECT_NE(line.find(") global level on error #7 0x1234 <-10> broken\n"), std::string::npos) << line;
}

TYPED_TEST(ConnectOptionEvents, ErrorOfCode0CallsNothing) {
    LogCapture log;
    TypeParam option;
    int count = 0;
    option.set_on_error([&](unsigned long long, unsigned short, int, char const *) { ++count; });
    EXPECT_FALSE(option.on_error(7, 0x1234, 0, "text"));
    EXPECT_EQ(count, 0);
    tavLogger::flush();
    EXPECT_EQ(log.count("level on error"), 0u);
}

TYPED_TEST(ConnectOptionEvents, ProxyIsLoggedMaskedAndItsResultReturned) {
    LogCapture log;
    TypeParam option;
    std::string got;
    option.set_on_http_proxy_connect([&](unsigned int socket, char const * host, unsigned short port) {
        got = std::to_string(socket) + ' ' + host + ' ' + std::to_string(port);
        return 42;
    });
    EXPECT_EQ(option.on_http_proxy_connect(0xFFFFFFFFu, "example", 443), 42);
    EXPECT_EQ(got, "4294967295 example 443");
    ASSERT_TRUE(log.waitFor(") http proxy tcp connected, connecting real server exam***:443\n"));
    EXPECT_EQ(log.find("http proxy tcp").level, tavLogger::INFO);
}

TYPED_TEST(ConnectOptionEvents, FunctionsMayReplaceThemselves) {
    TypeParam option;
    auto const owned = std::make_shared<int>(0);
    option.set_on_open([&option, owned] {
        option.set_on_open(std::function<void()>());
        ++*owned;
    });
    option.set_on_error([&option, owned](unsigned long long, unsigned short, int, char const *) {
        option.set_on_error(error_function());
        ++*owned;
    });
    option.set_on_heartbeat_timedout([&option, owned] {
        option.set_on_heartbeat_timedout(std::function<void()>());
        ++*owned;
    });
    option.set_on_http_proxy_connect([&option, owned](unsigned int, char const *, unsigned short) {
        option.set_on_http_proxy_connect(proxy_function());
        return ++*owned;
    });
    EXPECT_TRUE(option.on_open());
    EXPECT_TRUE(option.on_error(1, 1, 1, ""));
    EXPECT_TRUE(option.on_heartbeat_timedout());
    EXPECT_EQ(option.on_http_proxy_connect(1, "h", 1), 4);
    EXPECT_EQ(owned.use_count(), 1);
    EXPECT_FALSE(option.on_open());
    EXPECT_FALSE(option.on_error(1, 1, 1, ""));
    EXPECT_FALSE(option.on_heartbeat_timedout());
}

TYPED_TEST(ConnectOptionEvents, LastMessageFunctionSetIsTheOnlyOne) {
    Seen seen;
    TypeParam option;
    option.set_json_msg_callback(seen.json());
    EXPECT_EQ(takes(option), "json ");
    option.set_nbr_msg_callback(seen.nbr());
    EXPECT_EQ(takes(option), "nbr ");
    setBase(option, seen.obj());
    EXPECT_EQ(takes(option), "obj ");
    option.set_ptr_msg_callback(seen.ptr());
    EXPECT_EQ(takes(option), "ptr ");
    EXPECT_EQ(seen.kinds, "json nbr obj ptr ");
}

TYPED_TEST(ConnectOptionEvents, FunctionGetsAllArguments) {
    Seen seen;
    TypeParam option;
    option.set_json_msg_callback(seen.json());
    EXPECT_TRUE(option.on_json_msg(1, 0x2345, "{}", traced()));
    EXPECT_EQ(seen.take(), "json 1 0x2345 {} trace");
    option.set_nbr_msg_callback(seen.nbr());
    EXPECT_TRUE(option.on_nbr_msg(2, 0x2345, bytes("abc"), 3, traced()));
    EXPECT_EQ(seen.take(), "nbr 2 0x2345 abc trace");
    setBase(option, seen.obj());
    Note const msg;
    EXPECT_TRUE(baseEvent(option, msg));
    EXPECT_EQ(seen.take(), "obj 3 0x1234");
    EXPECT_EQ(seen.message, &msg);
    option.set_ptr_msg_callback(seen.ptr());
    tavSharedPtr<tavMessage> const shared = note();
    EXPECT_TRUE(option.on_ptr_msg(4, shared));
    EXPECT_EQ(seen.take(), "ptr 4 0x1234");
    EXPECT_EQ(seen.message, shared.get());
}

TYPED_TEST(ConnectOptionEvents, MessagesAreLoggedWithTheGlobalLevel) {
    LogCapture log;
    Seen seen;
    TypeParam option;
    option.set_json_msg_callback(seen.json());
    takes(option);
    option.set_nbr_msg_callback(seen.nbr());
    takes(option);
    setBase(option, seen.obj());
    takes(option);
    option.set_ptr_msg_callback(seen.ptr());
    takes(option);
    ASSERT_TRUE(log.waitFor("global level on ptr "));
    EXPECT_TRUE(
        log.inOrder({") global level on json #1 0x0002 [2]\n", ") global level on nbr #2 0x0002 [2]\n",
                     ") global level on obj #3 0x1234\n", ") global level on ptr #4 0x1234\n"}));
}

TYPED_TEST(ConnectOptionEvents, NoRecordIsWrittenUnderAnotherTag) {
    LogCapture log("TLS.CLT(OUT)");
    Seen seen;
    TypeParam option;
    option.set_on_open([] {});
    option.set_on_heartbeat_timedout([] {});
    option.set_on_error([](unsigned long long, unsigned short, int, char const *) {});
    option.set_on_http_proxy_connect([](unsigned int, char const *, unsigned short) { return 0; });
    option.set_json_msg_callback(seen.json());
    EXPECT_TRUE(option.on_open());
    EXPECT_TRUE(option.on_heartbeat_timedout());
    EXPECT_TRUE(option.on_error(1, 2, 3, "text"));
    EXPECT_EQ(option.on_http_proxy_connect(1, "h", 2), 0);
    EXPECT_EQ(takes(option), "json ");
    tavLogger::flush();
    EXPECT_TRUE(log.records().empty());
}

TYPED_TEST(ConnectOptionEvents, LevelWordIsGlobal) {
    EXPECT_STREQ(TypeParam::global_level_, "global");
}

TEST(ConnectOptionGlobalCallback, StartsEmpty) {
    global_callback const callback;
    EXPECT_TRUE(callback.empty());
    EXPECT_EQ(callback.type(), callback_none);
    EXPECT_EQ(callback.proxy_host_ + callback.proxy_port_ + callback.server_name_ + callback.reserved_, "");
    EXPECT_FALSE(callback.on_error_);
    EXPECT_FALSE(callback.on_heartbeat_timedout_);
    EXPECT_FALSE(callback.on_open_);
    EXPECT_FALSE(callback.on_http_proxy_connect_);
}

TEST(ConnectOptionGlobalCallback, GivesItsMessageFunctionOn) {
    Seen seen;
    global_callback callback;
    callback.set_nbr_msg_callback(seen.nbr());
    connect_option option;
    option.callback_ = callback;
    EXPECT_EQ(takes(option), "nbr ");
    callback.proxy_host_ = "H";
    callback.proxy_port_ = "P";
    callback.server_name_ = "s";
    callback.reserved_ = "r";
    callback.set_on_open([&] { seen.kinds += "open "; });
    global_callback copy(callback);
    callback.clear();
    EXPECT_EQ(takes(copy), "nbr ");
    EXPECT_TRUE(copy.on_open());
    EXPECT_EQ(copy.proxy_host_ + copy.proxy_port_ + copy.server_name_ + copy.reserved_, "HPsr");
    EXPECT_EQ(takes(callback), "");
    EXPECT_EQ(printed(copy), "on_nbr_msg");
}
