#include "tav/vinta/vinta_tls_client_options.h"

#include "support/option_messages.h"

#include <gtest/gtest.h>

#include <ios>
#include <limits>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <type_traits>

using namespace tav::tls;
using tav_test::endsOnAnotherThread;
using tav_test::printed;

namespace {

class Send : public send_info {
public:
    Send(unsigned long long sno, result_type result) : sno_(sno), result_(result) {}
    void cancel() override {}
    result_type wait() override { return result_; }
    result_type result() const override { return result_; }
    unsigned long long sno() const override { return sno_; }
    unsigned short msgcode() const override { return 1; }
    send_option option() const override { return send_option(); }

private:
    unsigned long long sno_;
    result_type result_;
};

class Connect : public connect_info {
public:
    void cancel() override {}
    result_type wait() override { return result_ok; }
    result_type result() const override { return result_ok; }
};

struct ErrorSeen {
    int count = 0;
    unsigned long long sno = 0;
    unsigned short msgcode = 0;
    int code = 0;
    std::string text;

    error_function function() {
        return [this](unsigned long long s, unsigned short m, int c, char const * t) {
            ++count;
            sno = s;
            msgcode = m;
            code = c;
            text = t;
        };
    }
};

} // namespace

TEST(ResultPrintType, HasItsValues) {
    EXPECT_EQ(static_cast<int>(result_pending), -3);
    EXPECT_EQ(static_cast<int>(result_busy), -2);
    EXPECT_EQ(static_cast<int>(result_unknown), -1);
    EXPECT_EQ(static_cast<int>(result_ok), 0);
    EXPECT_EQ(static_cast<int>(result_error), 1);
    EXPECT_EQ(static_cast<int>(result_timedout), 2);
    EXPECT_EQ(static_cast<int>(result_cancelled), 3);
}

TEST(ResultPrintType, PrintsItsWord) {
    struct {
        int value;
        char const * word;
    } const rows[] = {{-4, "<undefined>"}, {-3, "<undefined>"}, {-2, "busy"},    {-1, "unknown"},
                      {0, "ok"},           {1, "error"},        {2, "timedout"}, {3, "cancelled"}};
    for (auto const & row : rows) {
        EXPECT_EQ(printed(static_cast<result_type>(row.value)), row.word) << row.value;
    }
}

TEST(ResultPrintCallbackType, HasItsValues) {
    EXPECT_EQ(static_cast<int>(callback_none), -1);
    EXPECT_EQ(static_cast<int>(callback_json), 0);
    EXPECT_EQ(static_cast<int>(callback_nbr), 1);
    EXPECT_EQ(static_cast<int>(callback_obj), 2);
    EXPECT_EQ(static_cast<int>(callback_ptr), 3);
}

TEST(ResultPrintOnErrorCall, GivesTheAbsoluteCode) {
    ErrorSeen seen;
    on_error_call(seen.function(), 7, 0x1234, -10, "text");
    EXPECT_EQ(seen.count, 1);
    EXPECT_EQ(seen.sno, 7u);
    EXPECT_EQ(seen.msgcode, 0x1234);
    EXPECT_EQ(seen.code, 10);
    EXPECT_EQ(seen.text, "text");
    on_error_call(seen.function(), 7, 0x1234, 10, "");
    EXPECT_EQ(seen.code, 10);
    EXPECT_EQ(seen.text, "");
    on_error_call(seen.function(), 7, 0x1234, 0, "");
    EXPECT_EQ(seen.count, 3);
    EXPECT_EQ(seen.code, 0);
}

TEST(ResultPrintOnErrorCall, ExtremeCodesAreDefined) {
    ErrorSeen seen;
    on_error_call(seen.function(), 1, 1, -std::numeric_limits<int>::max(), "");
    EXPECT_EQ(seen.code, std::numeric_limits<int>::max());
    on_error_call(seen.function(), 1, 1, std::numeric_limits<int>::min(), "");
    EXPECT_EQ(seen.code, std::numeric_limits<int>::min());
}

TEST(ResultPrintOnErrorCall, WithoutFunctionDoesNothing) {
    EXPECT_NO_THROW(on_error_call(error_function(), 1, 1, 1, ""));
}

TEST(ResultPrintIpPort, StartsEmpty) {
    ip_port const v;
    EXPECT_TRUE(v.empty());
    EXPECT_EQ(v.host, "");
    EXPECT_EQ(v.port, "");
}

TEST(ResultPrintIpPort, ConstructorsStoreTexts) {
    ip_port const text("host", std::string("443"));
    EXPECT_EQ(text.host, "host");
    EXPECT_EQ(text.port, "443");
    unsigned short const number = 65535;
    ip_port const numbered("host", number);
    EXPECT_EQ(numbered.port, "65535");
    unsigned short const zero = 0;
    EXPECT_EQ(ip_port("h", zero).port, "0");
}

TEST(ResultPrintIpPort, IsEmptyWithoutHostAndPort) {
    unsigned short const zero = 0;
    unsigned short const eighty = 80;
    EXPECT_TRUE(ip_port("", zero).empty());
    EXPECT_TRUE(ip_port("", std::string("0")).empty());
    EXPECT_TRUE(ip_port("", std::string()).empty());
    EXPECT_FALSE(ip_port("", eighty).empty());
    EXPECT_FALSE(ip_port("", std::string("00")).empty());
    EXPECT_FALSE(ip_port("h", std::string()).empty());
    EXPECT_FALSE(ip_port("h", zero).empty());
}

TEST(ResultPrintIpPort, LogFormMasksTheHost) {
    struct {
        char const * host;
        char const * shown;
    } const rows[] = {{"abcdefgh", "abcde***:443"}, {"abcd", "a***:443"}, {"abc", "***:443"},
                      {"ab", "ab***:443"},          {"a", "a***:443"},    {"", "***:443"}};
    for (auto const & row : rows) {
        EXPECT_EQ(printed(ip_port(row.host, std::string("443"))), row.shown);
    }
    EXPECT_EQ(printed(ip_port("192.168.1.20", std::string())), "192.168.1***:");
}

TEST(ResultPrintMsgInfo, StartsEmpty) {
    msginfo const v;
    EXPECT_TRUE(v.empty());
    EXPECT_EQ(v.sno, 0xFFFFFFFFFFFFFFFFull);
    EXPECT_EQ(v.msgcode, 0xffff);
    EXPECT_EQ(v.size, -1);
}

TEST(ResultPrintMsgInfo, IsEmptyOnlyWhenAllThreeAreNone) {
    unsigned long long const none = 0xFFFFFFFFFFFFFFFFull;
    EXPECT_TRUE(msginfo(none, 0xffff, -1).empty());
    EXPECT_FALSE(msginfo(0, 0xffff, -1).empty());
    EXPECT_FALSE(msginfo(none, 0xfffe, -1).empty());
    EXPECT_FALSE(msginfo(none, 0xffff, 0).empty());
}

TEST(ResultPrintMsgInfo, LogForm) {
    EXPECT_EQ(printed(msginfo(7, 0x1234, 12)), "#7 0x1234 [12]");
    EXPECT_EQ(printed(msginfo(7, 0x0a, 1)), "#7 0x000a [1]");
    EXPECT_EQ(printed(msginfo(7, 0xABCD, 0)), "#7 0xabcd");
    EXPECT_EQ(printed(msginfo(0, 0, -1)), "#0 0x0000");
    EXPECT_EQ(printed(msginfo()), "#18446744073709551615 0xffff");
}

TEST(ResultPrintMsgInfo, NeitherTakesNorLeavesStreamFlags) {
    std::ostringstream out;
    out << std::hex << std::uppercase << msginfo(255, 0xab, 255) << ' ' << 255;
    EXPECT_EQ(out.str(), "#255 0x00ab [255] FF");
}

TEST(ResultPrintSendInfo, Prints) {
    EXPECT_EQ(printed(Send(7, result_ok)), "sno = #7, send result = ok");
    EXPECT_EQ(printed(Send(0xFFFFFFFFFFFFFFFFull, result_unknown)),
              "sno = #18446744073709551615, send result = unknown");
}

TEST(ResultPrintFutureObj, LockKeepsOthersOut) {
    Connect info;
    future_obj const & base = info;
    int total = 0;
    auto const count = [&] {
        for (int i = 0; i < 2000; ++i) {
            std::lock_guard<future_obj const> const guard(base);
            int const before = total;
            std::this_thread::yield();
            total = before + 1;
        }
    };
    std::thread other(count);
    count();
    other.join();
    EXPECT_EQ(total, 4000);
}

TEST(ResultPrintFutureObj, LockIsRecursive) {
    auto const info = std::make_shared<Connect>();
    EXPECT_TRUE(endsOnAnotherThread([info] {
        info->lock();
        info->lock();
        info->unlock();
        info->unlock();
    }));
    // Unlocked as often as locked, it is free for others.
    EXPECT_TRUE(endsOnAnotherThread([info] {
        info->lock();
        info->unlock();
    }));
}

TEST(ResultPrintFutureObj, HasAVirtualDestructor) {
    EXPECT_TRUE(std::has_virtual_destructor<future_obj>::value);
    EXPECT_TRUE(std::has_virtual_destructor<connect_info>::value);
    EXPECT_TRUE(std::has_virtual_destructor<send_info>::value);
    EXPECT_FALSE(std::is_copy_constructible<Connect>::value);
}
