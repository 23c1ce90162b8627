#include "tav/vinta/vinta_json_parser.h"

#include "support/repeated.h"
#include "support/small_stack.h"

#include <gtest/gtest.h>

#include <functional>
#include <malloc.h>
#include <stdexcept>
#include <string>
#include <sys/resource.h>

// Whether the C library tells how much memory it has given out.
#if defined(__GLIBC__) && defined(__GLIBC_PREREQ)
#define TAV_TEST_ASKS_THE_ALLOCATOR __GLIBC_PREREQ(2, 33)
#else
#define TAV_TEST_ASKS_THE_ALLOCATOR 0
#endif

using tav::json::JsonParser;
using tav::json::JsonUnit;
using tav::json::JsonValue;
using tav_test::onSmallStack;
using tav_test::repeated;

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool sanitized = true;
#else
constexpr bool sanitized = false;
#endif

/// The largest text that arrives in one piece; less beside a sanitizer, which takes much memory itself.
constexpr unsigned frame = sanitized ? 1u << 20 : 16u << 20;

/// The failure's text up to its position; empty if there is none.
std::string failure(std::string const & text) {
    try {
        JsonParser::from(text);
        return std::string();
    } catch (std::invalid_argument const & e) {
        std::string const what = e.what();
        return what.substr(0, what.find("\n    throw at "));
    }
}

} // namespace

TEST(JsonFrame, OfOpenBracketsFailsInBoundedStackAndMemory) {
    onSmallStack([] {
        EXPECT_EQ(failure(std::string(frame, '[')), "array value no end : ");
        EXPECT_EQ(failure(repeated("{\"a\":", frame / 5)), "pair value no end : ");
    });
    rusage usage;
    ASSERT_EQ(getrusage(RUSAGE_SELF, &usage), 0);
    if (!sanitized) {
        // A tree of all that was opened would take more than 2 GB.
        EXPECT_LT(usage.ru_maxrss, 1800 * 1024) << "kB";
    }
}

TEST(JsonFrame, OfClosedBracketsIsReadAndDestroyedInBoundedStack) {
    onSmallStack([] {
        constexpr unsigned depth = frame / 16;
        tavSharedPtr<JsonValue> value = JsonParser::from(repeated("[", depth) + repeated("]", depth));
        EXPECT_EQ(4 * depth - 1, value->toJson().size());
        value.reset();
        value = JsonParser::from(repeated("{\"a\":", depth / 2) + repeated("}", depth / 2));
        EXPECT_EQ(tav::JsonFieldObject, value->type());
    });
}

TEST(JsonFrame, TextThatCannotEndFailsWhereItWouldHave) {
    for (unsigned open = 1; open < 20; ++open) {
        std::string const opened = repeated("[", open);
        for (unsigned closed = 0; closed <= open; ++closed) {
            std::string const closing = repeated("]", closed);
            bool const ends = closed == open || (open == 1 && closed == 0);
            EXPECT_EQ(ends ? "" : "array value no end : ", failure(opened + closing)) << opened << closing;
        }
        // One that can end, if only just, is read in full.
        EXPECT_EQ(tavString(repeated("[ ", open) + repeated("] ", open - 1) + "]"),
                  JsonParser::from(opened + repeated("]", open))->toJson());
        if (open < 4) {
            continue;
        }
        EXPECT_EQ(failure(opened + "}"), "array value no end : }");
        EXPECT_EQ(failure(opened + "1"), "array value no end : ");
        EXPECT_EQ(failure(opened + "1,"), "array value no end : ");
        EXPECT_EQ(failure(opened + "x:"), "no value end : :");
        EXPECT_EQ(failure(opened + "{ "), "no name : ");
        EXPECT_EQ(failure(opened + "{a,"), "no name : ,");
        EXPECT_EQ(failure(opened + "{:1"), "pair value no end : 1");
        EXPECT_EQ(failure(opened + "{a:1"), "pair value no end : ");
    }
}

TEST(JsonFrame, MembersOfATextThatCannotEndAreReadOn) {
    std::string const opened = repeated("{a:[", 20);
    EXPECT_EQ(failure(opened + "{b:'1' x"), "pair value no end : x");
    EXPECT_EQ(failure(opened + "{'b\\t':1,c:{}"), "pair value no end : ");
    EXPECT_EQ(failure(opened + "{b:1,'c"), "no name : ");
    EXPECT_EQ(failure(opened + "{b:1}{"), "array value no end : {");
    EXPECT_EQ(failure(opened + "{b}"), "array value no end : ");
    EXPECT_EQ(failure(opened + "{b:{}},[],}"), "array value no end : }");
    EXPECT_EQ(failure(opened + "]"), "pair value no end : ");
    EXPECT_EQ(failure(opened + "]}"), "array value no end : ");
}

#if TAV_TEST_ASKS_THE_ALLOCATOR
TEST(JsonFrame, AValueThatIsKeptKeepsLittleOfItsText) {
    if (sanitized) {
        GTEST_SKIP() << "a sanitizer has an allocator of its own, which is not asked here";
    }
    std::string const text = "[" + repeated("{a:[1,2],b:'x'},", 100000) + "]";
    auto const held = [] { return static_cast<long long>(mallinfo2().uordblks); };
    // The first round warms the allocator's caches.
    for (int round = 0; round < 2; ++round) {
        long long const before = held();
        JsonUnit whole;
        whole.decode(text);
        long long const all = held() - before;
        EXPECT_GT(all, 10 << 20);
        JsonUnit const kept(whole.arrayValue().at(50000));
        whole.setNull();
        EXPECT_EQ(kept.toString(false), "{ \"a\":[ 1, 2 ], \"b\":\"x\" }");
        if (round > 0) {
            EXPECT_LT(held() - before, 200 * 1024);
        }
    }
}
#endif
