#include "tav/vinta/vinta_tls_client_options.h"

#include "support/log_capture.h"
#include "support/option_messages.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>

using namespace tav::tls;
using tav_test::bytes;
using tav_test::endsOnAnotherThread;
using tav_test::LogCapture;
using tav_test::note;
using tav_test::Note;
using tav_test::printed;
using tav_test::Seen;
using tav_test::traced;

namespace {

/// Which of the four events the callback takes, as a text.
std::string takes(message_callback & callback) {
    std::string taken;
    taken += callback.on_json_msg("x", 1, 2, "{}", tavMsgExt()) ? "json " : "";
    taken += callback.on_nbr_msg("x", 1, 2, bytes("ab"), 2, tavMsgExt()) ? "nbr " : "";
    taken += callback.on_base_msg("x", 1, Note()) ? "obj " : "";
    taken += callback.on_ptr_msg("x", 1, note()) ? "ptr " : "";
    return taken;
}

} // namespace

TEST(MessageCallback, StartsWithNoKind) {
    message_callback callback;
    EXPECT_EQ(callback.type(), callback_none);
    EXPECT_EQ(static_cast<int>(callback.type()), -1);
    EXPECT_TRUE(callback.empty());
    EXPECT_EQ(takes(callback), "");
    EXPECT_EQ(printed(callback), "<on_unknown_msg>");
}

TEST(MessageCallback, EachConstructorSetsItsKind) {
    Seen seen;
    message_callback json(seen.json());
    message_callback nbr(seen.nbr());
    message_callback obj(seen.obj());
    message_callback ptr(seen.ptr());
    EXPECT_EQ(static_cast<int>(json.type()), 0);
    EXPECT_EQ(static_cast<int>(nbr.type()), 1);
    EXPECT_EQ(static_cast<int>(obj.type()), 2);
    EXPECT_EQ(static_cast<int>(ptr.type()), 3);
    EXPECT_EQ(printed(json), "on_json_msg");
    EXPECT_EQ(printed(nbr), "on_nbr_msg");
    EXPECT_EQ(printed(obj), "on_obj_msg");
    EXPECT_EQ(printed(ptr), "on_ptr_msg");
    EXPECT_FALSE(json.empty());
    EXPECT_FALSE(nbr.empty());
    EXPECT_FALSE(obj.empty());
    EXPECT_FALSE(ptr.empty());
}

TEST(MessageCallback, FunctionsConvert) {
    EXPECT_TRUE((std::is_convertible<json_function, message_callback>::value));
    EXPECT_TRUE((std::is_convertible<nbr_function, message_callback>::value));
    EXPECT_TRUE((std::is_convertible<obj_function, message_callback>::value));
    EXPECT_TRUE((std::is_convertible<ptr_function, message_callback>::value));
    EXPECT_TRUE((std::is_convertible<json_function, msg_type_callback>::value));
}

TEST(MessageCallback, TakesItsOwnKindOnly) {
    Seen seen;
    message_callback json(seen.json());
    message_callback nbr(seen.nbr());
    message_callback obj(seen.obj());
    message_callback ptr(seen.ptr());
    EXPECT_EQ(takes(json), "json ");
    EXPECT_EQ(takes(nbr), "nbr ");
    EXPECT_EQ(takes(obj), "obj ");
    EXPECT_EQ(takes(ptr), "ptr ");
    EXPECT_EQ(seen.kinds, "json nbr obj ptr ");
}

TEST(MessageCallback, KindWithNullFunctionTakesNothing) {
    LogCapture log;
    message_callback json{json_function()};
    message_callback nbr{nbr_function()};
    message_callback obj{obj_function()};
    message_callback ptr{ptr_function()};
    EXPECT_EQ(json.type(), callback_json);
    EXPECT_EQ(nbr.type(), callback_nbr);
    EXPECT_EQ(obj.type(), callback_obj);
    EXPECT_EQ(ptr.type(), callback_ptr);
    for (message_callback * const one : {&json, &nbr, &obj, &ptr}) {
        EXPECT_FALSE(one->empty());
        EXPECT_EQ(takes(*one), "");
    }
    tavLogger::flush();
    EXPECT_EQ(log.count(" level on "), 0u);
}

TEST(MessageCallback, FunctionGetsAllArguments) {
    Seen seen;
    EXPECT_TRUE(
        message_callback(seen.json()).on_json_msg("x", 0xFFFFFFFFFFull, 0x2345, "{\"a\":1}", traced()));
    EXPECT_EQ(seen.take(), "json 1099511627775 0x2345 {\"a\":1} trace");
    EXPECT_TRUE(message_callback(seen.nbr()).on_nbr_msg("x", 3, 0x2345, bytes("a\0b"), 3, traced()));
    EXPECT_EQ(seen.take(), std::string("nbr 3 0x2345 a\0b trace", 22));
    Note const msg;
    EXPECT_TRUE(message_callback(seen.obj()).on_base_msg("x", 4, msg));
    EXPECT_EQ(seen.take(), "obj 4 0x1234");
    EXPECT_EQ(seen.message, &msg);
    tavSharedPtr<tavMessage> const shared = note();
    EXPECT_TRUE(message_callback(seen.ptr()).on_ptr_msg("x", 5, shared));
    EXPECT_EQ(seen.take(), "ptr 5 0x1234");
    EXPECT_EQ(seen.message, shared.get());
}

TEST(MessageCallback, PointerMayBeKept) {
    tavSharedPtr<tavMessage> kept;
    message_callback callback(
        ptr_function([&](unsigned long long, tavSharedPtr<tavMessage> m) { kept = m; }));
    tavSharedPtr<tavMessage> const msg = note();
    EXPECT_TRUE(callback.on_ptr_msg("send", 3, msg));
    EXPECT_EQ(kept.get(), msg.get());
    EXPECT_EQ(msg->getRefCount(), 2u);
}

TEST(MessageCallback, NullTextIsHandedOn) {
    LogCapture log;
    bool null = false;
    message_callback callback(json_function(
        [&](unsigned long long, unsigned short, char const * json, tavMsgExt) { null = json == nullptr; }));
    EXPECT_TRUE(callback.on_json_msg("send", 3, 4, nullptr, tavMsgExt()));
    EXPECT_TRUE(null);
    EXPECT_TRUE(log.waitFor("send level on json #3 0x0004\n"));
}

TEST(MessageCallback, NullPointerIsHandedOn) {
    LogCapture log;
    bool null = false;
    message_callback callback(
        ptr_function([&](unsigned long long, tavSharedPtr<tavMessage> m) { null = !m; }));
    EXPECT_TRUE(callback.on_ptr_msg("send", 3, tavSharedPtr<tavMessage>()));
    EXPECT_TRUE(null);
    EXPECT_TRUE(log.waitFor("send level on ptr #3 0xffff\n"));
}

TEST(MessageCallback, EachEventIsLoggedAtInfoBeforeTheCall) {
    LogCapture log("clear(OUT)");
    tavLogger::setLogLevel("TLS.CLT", tavLogger::INFO);
    message_callback json(json_function([](unsigned long long, unsigned short, char const *, tavMsgExt) {
        tav_log_out_("json called\n", "", 0, "");
    }));
    EXPECT_TRUE(json.on_json_msg("lvl", 7, 0xab, "{\"a\":1}", tavMsgExt()));
    Seen seen;
    EXPECT_TRUE(message_callback(seen.nbr()).on_nbr_msg("lvl", 8, 0xab, bytes("abc"), 3, tavMsgExt()));
    EXPECT_TRUE(message_callback(seen.obj()).on_base_msg("lvl", 9, Note()));
    EXPECT_TRUE(message_callback(seen.ptr()).on_ptr_msg("lvl", 10, note()));
    ASSERT_TRUE(log.waitFor("level on ptr "));
    EXPECT_TRUE(log.inOrder({") lvl level on json #7 0x00ab [7]\n", "json called",
                             ") lvl level on nbr #8 0x00ab [3]\n", ") lvl level on obj #9 0x1234\n",
                             ") lvl level on ptr #10 0x1234\n"}));
    for (char const * const kind : {"json", "nbr", "obj", "ptr"}) {
        LogCapture::Record const record = log.find(std::string("lvl level on ") + kind);
        EXPECT_EQ(record.level, tavLogger::INFO) << kind;
        EXPECT_NE(record.text.find("[TLS.CLT]message_callback::on_"), std::string::npos) << record.text;
    }
}

TEST(MessageCallback, WhatIsNotTakenIsNotLogged) {
    LogCapture log;
    Seen seen;
    message_callback callback(seen.json());
    EXPECT_FALSE(callback.on_nbr_msg("lvl", 8, 0xab, bytes("abc"), 3, tavMsgExt()));
    EXPECT_FALSE(callback.on_base_msg("lvl", 8, Note()));
    EXPECT_FALSE(callback.on_ptr_msg("lvl", 8, note()));
    tavLogger::flush();
    EXPECT_EQ(log.count(" level on "), 0u);
}

TEST(MessageCallback, ClearDropsTheFunction) {
    auto const owned = std::make_shared<int>(1);
    message_callback callback(
        json_function([owned](unsigned long long, unsigned short, char const *, tavMsgExt) {}));
    EXPECT_EQ(owned.use_count(), 2);
    callback.clear();
    EXPECT_EQ(owned.use_count(), 1);
    EXPECT_EQ(callback.type(), callback_none);
    EXPECT_EQ(takes(callback), "");
    callback.clear();
    EXPECT_TRUE(callback.empty());
}

TEST(MessageCallback, CopiesHaveKindAndFunction) {
    Seen seen;
    message_callback const callback(seen.nbr());
    message_callback copy(callback);
    message_callback assigned(seen.json());
    assigned = callback;
    message_callback got(seen.obj());
    callback.get(got);
    EXPECT_EQ(takes(copy), "nbr ");
    EXPECT_EQ(takes(assigned), "nbr ");
    EXPECT_EQ(takes(got), "nbr ");
    EXPECT_EQ(seen.kinds, "nbr nbr nbr ");
    assigned = message_callback();
    EXPECT_TRUE(assigned.empty());
}

TEST(MessageCallback, ClearingTheOriginalLeavesACopy) {
    Seen seen;
    message_callback callback(seen.json());
    message_callback copy(callback);
    callback.clear();
    EXPECT_EQ(takes(copy), "json ");
}

TEST(MessageCallback, SelfAssignmentChangesNothing) {
    Seen seen;
    message_callback callback(seen.json());
    message_callback & same = callback;
    callback = same;
    callback.get(same);
    EXPECT_EQ(takes(callback), "json ");
}

TEST(MessageCallback, MutexIsNotHeldDuringTheCall) {
    auto const callback = std::make_shared<message_callback>();
    bool free = false;
    auto const probe = [&] {
        free = endsOnAnotherThread([callback] {
            callback->type();
            message_callback copy(*callback);
            *callback = copy;
        });
    };
    *callback = message_callback(
        json_function([&](unsigned long long, unsigned short, char const *, tavMsgExt) { probe(); }));
    EXPECT_TRUE(callback->on_json_msg("x", 1, 1, "", tavMsgExt()));
    EXPECT_TRUE(free);
    free = false;
    *callback = message_callback(nbr_function([&](unsigned long long, unsigned short, unsigned char const *,
                                                  unsigned int, tavMsgExt) { probe(); }));
    EXPECT_TRUE(callback->on_nbr_msg("x", 1, 1, nullptr, 0, tavMsgExt()));
    EXPECT_TRUE(free);
    free = false;
    *callback = message_callback(obj_function([&](unsigned long long, tavMessage const &) { probe(); }));
    EXPECT_TRUE(callback->on_base_msg("x", 1, Note()));
    EXPECT_TRUE(free);
    free = false;
    *callback =
        message_callback(ptr_function([&](unsigned long long, tavSharedPtr<tavMessage>) { probe(); }));
    EXPECT_TRUE(callback->on_ptr_msg("x", 1, note()));
    EXPECT_TRUE(free);
    callback->clear();
}

TEST(MessageCallback, FunctionMayClearAndReplaceItself) {
    auto const owned = std::make_shared<int>(0);
    message_callback callback;
    callback = message_callback(
        json_function([&callback, owned](unsigned long long, unsigned short, char const *, tavMsgExt) {
            callback.clear();
            callback = message_callback(obj_function());
            ++*owned;
        }));
    EXPECT_TRUE(callback.on_json_msg("x", 1, 1, "", tavMsgExt()));
    EXPECT_EQ(*owned, 1);
    EXPECT_EQ(owned.use_count(), 1);
    EXPECT_EQ(callback.type(), callback_obj);
}

TEST(MessageCallback, FunctionThatThrowsLeavesTheMutexFree) {
    auto const callback = std::make_shared<message_callback>(json_function(
        [](unsigned long long, unsigned short, char const *, tavMsgExt) { throw std::runtime_error("no"); }));
    EXPECT_THROW(callback->on_json_msg("x", 1, 1, "", tavMsgExt()), std::runtime_error);
    EXPECT_TRUE(endsOnAnotherThread([callback] { callback->type(); }));
    EXPECT_EQ(callback->type(), callback_json);
}

TEST(MessageCallback, DroppedFunctionIsDestroyedWithoutTheMutex) {
    struct Probe {
        std::shared_ptr<message_callback> callback;
        bool * free;
        ~Probe() {
            auto const held = callback;
            *free = endsOnAnotherThread([held] { held->type(); });
        }
    };
    auto const callback = std::make_shared<message_callback>();
    for (int way = 0; way < 2; ++way) {
        bool free = false;
        auto probe = std::make_shared<Probe>(Probe{callback, &free});
        *callback = message_callback(
            json_function([probe](unsigned long long, unsigned short, char const *, tavMsgExt) {}));
        free = false;
        probe.reset();
        if (way == 0) {
            callback->clear();
        } else {
            *callback = message_callback();
        }
        EXPECT_TRUE(free) << way;
    }
}

TEST(MessageCallbackThreads, ReplacingBesideCalling) {
    message_callback callback;
    std::atomic<bool> stop{false};
    std::atomic<long> calls{0};
    std::thread caller([&] {
        while (!stop) {
            callback.on_json_msg("x", 1, 1, "{}", tavMsgExt());
            callback.type();
        }
    });
    for (int i = 0; i < 2000; ++i) {
        auto const owned = std::make_shared<long>(1);
        callback =
            message_callback(json_function([&calls, owned](unsigned long long, unsigned short, char const *,
                                                           tavMsgExt) { calls += *owned; }));
        if (i % 3 == 0) {
            callback.clear();
        }
    }
    long const before = calls;
    while (calls == before) {
        std::this_thread::yield();
    }
    stop = true;
    caller.join();
    EXPECT_GT(calls, before);
}

TEST(MessageCallbackThreads, AssignmentsInBothDirectionsDoNotBlock) {
    auto const a = std::make_shared<message_callback>(json_function());
    auto const b = std::make_shared<message_callback>(nbr_function());
    auto const go = std::make_shared<std::atomic<int>>(0);
    auto const meet = [go] {
        ++*go;
        while (*go < 2) {
            std::this_thread::yield();
        }
    };
    EXPECT_TRUE(endsOnAnotherThread([a, b, meet] {
        std::thread other([a, b, meet] {
            meet();
            for (int i = 0; i < 5000; ++i) {
                *b = *a;
            }
        });
        meet();
        for (int i = 0; i < 5000; ++i) {
            *a = *b;
        }
        other.join();
    }));
    EXPECT_FALSE(a->empty());
    EXPECT_FALSE(b->empty());
}

TEST(MessageCallbackMsgTypeCallback, HandsEverythingOnAndLogsItsLevel) {
    LogCapture log;
    Seen seen;
    EXPECT_TRUE(msg_type_callback(seen.json()).on_json(1, 2, "{}", traced()));
    EXPECT_EQ(seen.take(), "json 1 0x2 {} trace");
    EXPECT_TRUE(msg_type_callback(seen.nbr()).on_nbr(3, 4, bytes("a\0b"), 3, traced()));
    EXPECT_EQ(seen.take(), std::string("nbr 3 0x4 a\0b trace", 19));
    Note const msg;
    EXPECT_TRUE(msg_type_callback(seen.obj()).on_base(5, msg));
    EXPECT_EQ(seen.take(), "obj 5 0x1234");
    EXPECT_EQ(seen.message, &msg);
    tavSharedPtr<tavMessage> const shared = note();
    EXPECT_TRUE(msg_type_callback(seen.ptr()).on_ptr(6, shared));
    EXPECT_EQ(seen.take(), "ptr 6 0x1234");
    EXPECT_EQ(seen.message, shared.get());
    ASSERT_TRUE(log.waitFor(") type level on ptr #6 0x1234\n"));
    EXPECT_TRUE(log.inOrder({") type level on json #1 0x0002 [2]\n", ") type level on nbr #3 0x0004 [3]\n",
                             ") type level on obj #5 0x1234\n", ") type level on ptr #6 0x1234\n"}));
}

TEST(MessageCallbackMsgTypeCallback, TakesItsOwnKindOnly) {
    EXPECT_STREQ(msg_type_callback::type_level_, "type");
    Seen seen;
    msg_type_callback none;
    EXPECT_TRUE(none.empty());
    EXPECT_FALSE(none.on_json(1, 2, "{}", tavMsgExt()));
    msg_type_callback callback(seen.obj());
    EXPECT_EQ(callback.type(), callback_obj);
    EXPECT_FALSE(callback.on_json(1, 2, "{}", tavMsgExt()));
    EXPECT_FALSE(callback.on_nbr(1, 2, bytes("a"), 1, tavMsgExt()));
    EXPECT_FALSE(callback.on_ptr(1, note()));
    EXPECT_TRUE(callback.on_base(1, Note()));
    msg_type_callback copy(callback);
    EXPECT_TRUE(copy.on_base(1, Note()));
}
