#include "tav/vinta/vinta_tls_client_options.h"

#include "support/log_capture.h"
#include "support/option_messages.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

using namespace tav::tls;
using tav_test::bytes;
using tav_test::LogCapture;
using tav_test::note;
using tav_test::Note;
using tav_test::printed;
using tav_test::Seen;
using tav_test::traced;

namespace {

/// With the functions that only a send has.
struct SendSeen : Seen {
    timedout_function timedout() {
        return [this](unsigned long long, unsigned short, bool) { kinds += "timedout "; };
    }
    error_function error() {
        return [this](unsigned long long, unsigned short, int, char const *) { kinds += "error "; };
    }
};

std::string takes(send_option & option) {
    std::string taken;
    taken += option.on_json_ack(1, 2, "{}", tavMsgExt()) ? "json " : "";
    taken += option.on_nbr_ack(2, 2, bytes("ab"), 2, tavMsgExt()) ? "nbr " : "";
    taken += option.on_base_ack(3, Note()) ? "obj " : "";
    taken += option.on_ptr_ack(4, note()) ? "ptr " : "";
    return taken;
}

/// The option holds a limit of 100, the functions for time-out and error, and the three values.
void expectFull(send_option & option, SendSeen & seen, char const * kind) {
    EXPECT_EQ(option.wait_ms(), 100);
    EXPECT_EQ(option.ack, 0x77);
    EXPECT_TRUE(option.grey);
    EXPECT_EQ(option.version, 6);
    EXPECT_EQ(option.sno, 0u);
    EXPECT_TRUE(option.ext.empty());
    EXPECT_EQ(takes(option), kind);
    EXPECT_TRUE(option.on_error(1, 1, 1, ""));
    option.on_timedout(1, 1, false);
    EXPECT_EQ(seen.kinds, kind + std::string("error timedout "));
    seen.kinds.clear();
}

} // namespace

TEST(SendOption, StartsWithItsDefaults) {
    LogCapture log;
    send_option option;
    EXPECT_TRUE(option.empty());
    EXPECT_EQ(option.wait_ms(), 0);
    EXPECT_EQ(option.ack, 0xffff);
    EXPECT_FALSE(option.grey);
    EXPECT_EQ(option.version, 4);
    EXPECT_EQ(option.sno, 0u);
    EXPECT_TRUE(option.ext.empty());
    EXPECT_TRUE(option.callback_.empty());
    EXPECT_FALSE(option.on_error_);
    tavLogger::flush();
    EXPECT_TRUE(log.records().empty());
}

TEST(SendOption, EachConstructorStoresItsArguments) {
    SendSeen seen;
    send_option obj(100, seen.timedout(), seen.error(), seen.obj(), 0x77, true, 6);
    expectFull(obj, seen, "obj ");
    send_option json(100, seen.timedout(), seen.error(), seen.json(), 0x77, true, 6);
    expectFull(json, seen, "json ");
    send_option nbr(100, seen.timedout(), seen.error(), seen.nbr(), 0x77, true, 6);
    expectFull(nbr, seen, "nbr ");
    send_option ptr(100, seen.timedout(), seen.error(), seen.ptr(), 0x77, true, 6);
    expectFull(ptr, seen, "ptr ");
    timedout_option const timedout(100, seen.timedout());
    send_option all(timedout, seen.error(), message_callback(seen.nbr()), 0x77, true, 6);
    expectFull(all, seen, "nbr ");
}

TEST(SendOption, ConstructorsWithoutReplyExpectNone) {
    SendSeen seen;
    send_option plain(100, seen.timedout(), true, 6);
    send_option only(timedout_option(100, seen.timedout()), true, 6);
    for (send_option * const option : {&plain, &only}) {
        EXPECT_EQ(option->wait_ms(), 100);
        EXPECT_EQ(option->ack, 0xffff);
        EXPECT_TRUE(option->grey);
        EXPECT_EQ(option->version, 6);
        EXPECT_EQ(option->sno, 0u);
        EXPECT_EQ(takes(*option), "");
        EXPECT_FALSE(option->on_error(1, 1, 1, ""));
        EXPECT_TRUE(option->check_timedout(1, 1, 100));
    }
    EXPECT_EQ(seen.kinds, "timedout timedout ");
}

TEST(SendOption, LambdasPickTheirConstructor) {
    send_option json(
        1, {}, {}, [](unsigned long long, unsigned short, char const *, tavMsgExt) {}, 1, false, 4);
    EXPECT_EQ(json.callback_.type(), callback_json);
    send_option nbr(
        1, {}, {}, [](unsigned long long, unsigned short, unsigned char const *, unsigned int, tavMsgExt) {},
        1, false, 4);
    EXPECT_EQ(nbr.callback_.type(), callback_nbr);
    send_option obj(
        1, {}, {}, [](unsigned long long, tavMessage const &) {}, 1, false, 4);
    EXPECT_EQ(obj.callback_.type(), callback_obj);
    send_option ptr(
        1, {}, {}, [](unsigned long long, tavSharedPtr<tavMessage>) {}, 1, false, 4);
    EXPECT_EQ(ptr.callback_.type(), callback_ptr);
}

TEST(SendOption, ConstructorsLogTheirWordAtVerbose) {
    LogCapture log("clear(OUT)");
    tavLogger::setLogLevel("TLS.CLT", tavLogger::VERBOSE);
    SendSeen seen;
    timedout_option const timedout(100);
    send_option(100, seen.timedout(), seen.error(), seen.obj(), 1, false, 4);
    send_option(100, seen.timedout(), seen.error(), seen.json(), 1, false, 4);
    send_option(100, seen.timedout(), seen.error(), seen.nbr(), 1, false, 4);
    send_option(100, seen.timedout(), seen.error(), seen.ptr(), 1, false, 4);
    send_option(100, seen.timedout(), false, 4);
    send_option(timedout, seen.error(), message_callback(), 1, false, 4);
    send_option(timedout, false, 4);
    std::vector<std::string> const words = {") using object msg callback\n", ") using json msg callback\n",
                                            ") using nbr msg callback\n",    ") using ptr msg callback\n",
                                            ") no msg callback\n",           ") using all\n",
                                            ") timedout option only\n"};
    ASSERT_TRUE(log.waitFor(words.back()));
    EXPECT_TRUE(log.inOrder(words));
    std::vector<LogCapture::Record> const records = log.records();
    EXPECT_EQ(records.size(), words.size());
    for (LogCapture::Record const & record : records) {
        EXPECT_EQ(record.level, tavLogger::VERBOSE) << record.text;
    }
}

TEST(SendOption, CopiesLogNothing) {
    SendSeen seen;
    send_option option(100, seen.timedout(), seen.error(), seen.obj(), 1, false, 4);
    LogCapture log;
    send_option copy(option);
    send_option moved(std::move(copy));
    copy = option;
    moved = std::move(copy);
    tavLogger::flush();
    EXPECT_TRUE(log.records().empty());
}

TEST(SendOption, CopiesAndMovesHaveEverything) {
    SendSeen seen;
    send_option option(100, seen.timedout(), seen.error(), seen.json(), 0x77, true, 6);
    send_option source(option);
    source.sno = 9;
    source.ext.traceId = tavString("trace");

    send_option copy(source);
    send_option assigned;
    assigned = source;
    send_option from(source);
    send_option moved(std::move(from));
    send_option from2(source);
    send_option move_assigned;
    move_assigned = std::move(from2);
    for (send_option * const one : {&copy, &assigned, &moved, &move_assigned}) {
        EXPECT_EQ(one->sno, 9u);
        EXPECT_EQ(one->ext.traceId.value(), "trace");
        one->sno = 0;
        one->ext = tavMsgExt();
        expectFull(*one, seen, "json ");
    }
}

TEST(SendOption, SelfAssignmentChangesNothing) {
    SendSeen seen;
    send_option option(100, seen.timedout(), seen.error(), seen.json(), 0x77, true, 6);
    send_option & same = option;
    option = same;
    expectFull(option, seen, "json ");
}

TEST(SendOption, EmptyIsTheTestOfTheLimit) {
    SendSeen seen;
    send_option option(0, seen.timedout(), seen.error(), seen.json(), 1, true, 4);
    send_option const & same = option;
    EXPECT_TRUE(same.empty());
    option.wait_ms(-1);
    EXPECT_TRUE(same.empty());
    option.wait_ms(1);
    EXPECT_FALSE(same.empty());
}

TEST(SendOption, LevelWordIsSend) {
    EXPECT_STREQ(send_option::send_level_, "send");
}

TEST(SendOption, ClearDropsAllFunctionsAndKeepsTheValues) {
    SendSeen seen;
    send_option option(100, seen.timedout(), seen.error(), seen.json(), 0x77, true, 6);
    option.clear();
    EXPECT_EQ(option.wait_ms(), -100);
    EXPECT_FALSE(option.on_error_);
    EXPECT_TRUE(option.callback_.empty());
    option.on_timedout(1, 1, true);
    EXPECT_FALSE(option.on_error(1, 1, 1, ""));
    EXPECT_EQ(takes(option), "");
    EXPECT_EQ(seen.kinds, "");
    EXPECT_EQ(option.ack, 0x77);
    EXPECT_TRUE(option.grey);
    EXPECT_EQ(option.version, 6);
}

TEST(SendOption, LastReplyFunctionSetIsTheOnlyOne) {
    SendSeen seen;
    send_option option;
    option.set_json_ack_callback(seen.json());
    EXPECT_EQ(takes(option), "json ");
    option.set_nbr_ack_callback(seen.nbr());
    EXPECT_EQ(takes(option), "nbr ");
    option.set_base_ack_callback(seen.obj());
    EXPECT_EQ(takes(option), "obj ");
    option.set_ptr_ack_callback(seen.ptr());
    EXPECT_EQ(takes(option), "ptr ");
    EXPECT_EQ(seen.kinds, "json nbr obj ptr ");
}

TEST(SendOption, RepliesAreLoggedWithTheSendLevel) {
    LogCapture log;
    SendSeen seen;
    send_option option;
    option.set_json_ack_callback(seen.json());
    takes(option);
    option.set_nbr_ack_callback(seen.nbr());
    takes(option);
    option.set_base_ack_callback(seen.obj());
    takes(option);
    option.set_ptr_ack_callback(seen.ptr());
    takes(option);
    ASSERT_TRUE(log.waitFor("send level on ptr "));
    EXPECT_TRUE(log.inOrder({") send level on json #1 0x0002 [2]\n", ") send level on nbr #2 0x0002 [2]\n",
                             ") send level on obj #3 0x1234\n", ") send level on ptr #4 0x1234\n"}));
}

TEST(SendOption, ReplyFunctionGetsAllArguments) {
    Seen seen;
    send_option option;
    option.set_json_ack_callback(seen.json());
    EXPECT_TRUE(option.on_json_ack(1, 0x2345, "{}", traced()));
    EXPECT_EQ(seen.take(), "json 1 0x2345 {} trace");
    option.set_nbr_ack_callback(seen.nbr());
    EXPECT_TRUE(option.on_nbr_ack(2, 0x2345, bytes("abc"), 3, traced()));
    EXPECT_EQ(seen.take(), "nbr 2 0x2345 abc trace");
    option.set_base_ack_callback(seen.obj());
    Note const msg;
    EXPECT_TRUE(option.on_base_ack(3, msg));
    EXPECT_EQ(seen.take(), "obj 3 0x1234");
    EXPECT_EQ(seen.message, &msg);
    option.set_ptr_ack_callback(seen.ptr());
    tavSharedPtr<tavMessage> const shared = note();
    EXPECT_TRUE(option.on_ptr_ack(4, shared));
    EXPECT_EQ(seen.take(), "ptr 4 0x1234");
    EXPECT_EQ(seen.message, shared.get());
}

TEST(SendOption, ErrorIsLoggedAndCalledWithThePositiveCode) {
    LogCapture log;
    std::string got;
    send_option option;
    option.on_error_ = [&](unsigned long long sno, unsigned short msgcode, int code, char const * text) {
        got = std::to_string(sno) + ' ' + std::to_string(msgcode) + ' ' + std::to_string(code) + ' ' + text;
    };
    EXPECT_TRUE(option.on_error(7, 0x1234, -10, "broken"));
    EXPECT_EQ(got, "7 4660 10 broken");
    ASSERT_TRUE(log.waitFor("send level on error "));
    EXPECT_EQ(log.find("send level on error ").level, tavLogger::INFO);
    std::string const line = log.find("send level on error ").text;
    EXPECT_NE(line.find(") send level on error #7 0x1234 <-10> broken\n"), std::string::npos) << line;
}

TEST(SendOption, ErrorFunctionMayReplaceItself) {
    auto const owned = std::make_shared<int>(0);
    send_option option;
    option.on_error_ = [&option, owned](unsigned long long, unsigned short, int, char const *) {
        option.clear();
        ++*owned;
    };
    EXPECT_TRUE(option.on_error(1, 1, 1, ""));
    EXPECT_EQ(*owned, 1);
    EXPECT_EQ(owned.use_count(), 1);
    EXPECT_FALSE(option.on_error(1, 1, 1, ""));
}

TEST(SendOption, ErrorOfCode0CallsNothing) {
    LogCapture log;
    SendSeen seen;
    send_option option;
    option.on_error_ = seen.error();
    EXPECT_FALSE(option.on_error(7, 0x1234, 0, "text"));
    EXPECT_EQ(seen.kinds, "");
    tavLogger::flush();
    EXPECT_EQ(log.count("level on error"), 0u);
}

TEST(SendOption, Prints) {
    send_option option;
    EXPECT_EQ(printed(option), "version 4");
    option.wait_ms(100);
    EXPECT_EQ(printed(option), "max waiting 100ms... version 4");
    option.set_nbr_ack_callback(nbr_function());
    EXPECT_EQ(printed(option), "max waiting 100ms... on_nbr_msg version 4");
    option.ack = 0xab;
    EXPECT_EQ(printed(option), "max waiting 100ms... on_nbr_msg ack 0x00ab version 4");
    option.set_json_ack_callback(json_function());
    EXPECT_EQ(printed(option), "max waiting 100ms... on_json_msg ack 0x00ab version 4");
    option.set_base_ack_callback(obj_function());
    EXPECT_EQ(printed(option), "max waiting 100ms... on_obj_msg ack 0x00ab version 4");
    option.set_ptr_ack_callback(ptr_function());
    EXPECT_EQ(printed(option), "max waiting 100ms... on_ptr_msg ack 0x00ab version 4");
    option.set_nbr_ack_callback(nbr_function());
    option.grey = true;
    option.version = 6;
    EXPECT_EQ(printed(option), "max waiting 100ms... on_nbr_msg ack 0x00ab grey version 6");
    option.wait_ms(-100);
    option.callback_.clear();
    option.ack = 0xfffe;
    EXPECT_EQ(printed(option), "ack 0xfffe grey version 6");
    option.ack = 0xffff;
    EXPECT_EQ(printed(option), "grey version 6");
}
