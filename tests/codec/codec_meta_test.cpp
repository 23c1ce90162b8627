#include "tav/vinta/vinta_basetypes_codec.h"

#include "support/log_capture.h"
#include "support/recording_stream.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <sstream>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

std::atomic<unsigned long> allocations{0};

template <class T>
std::string printed(T const & v) {
    std::ostringstream out;
    out << v;
    return out.str();
}

} // namespace

// Kept out of line, so that the compiler does not take them for a mismatched pair.
[[gnu::noinline]] void * operator new(std::size_t size) {
    ++allocations;
    if (void * const p = std::malloc(size != 0 ? size : 1)) {
        return p;
    }
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void * p) noexcept {
    std::free(p);
}
[[gnu::noinline]] void operator delete(void * p, std::size_t) noexcept {
    std::free(p);
}

TEST(TavCodecMeta, DefaultsStateNothing) {
    tavCodecMeta const meta;
    EXPECT_EQ(meta.type, -1);
    EXPECT_FALSE(meta.isProtected);
    EXPECT_EQ(meta.spec.data(), nullptr);
    EXPECT_EQ(meta.spec.size(), 0u);
    EXPECT_FALSE(meta.optional);
    EXPECT_FALSE(meta.isOptional());
    EXPECT_TRUE(meta.rangeIsEmpty());
    EXPECT_TRUE(meta.checkRange(-5));
}

TEST(TavCodecMeta, ConstructorTakesTypeProtectionSpecAndOptional) {
    tavCodecMeta const meta(3, true, "1..5", true);
    EXPECT_EQ(meta.type, 3);
    EXPECT_TRUE(meta.isProtected);
    EXPECT_EQ(meta.spec, "1..5");
    EXPECT_EQ(meta.spec.size(), 4u);
    EXPECT_TRUE(meta.optional);
    EXPECT_TRUE(meta.isOptional());
}

TEST(TavCodecMeta, SpecIsNotCopied) {
    char const * const text = "...***...";
    EXPECT_EQ(tavCodecMeta(13, true, text, false).spec.data(), text);
}

TEST(TavCodecMeta, RangeComesFromSpec) {
    tavCodecMeta const meta(3, false, "1,3..5", false);
    EXPECT_FALSE(meta.rangeIsEmpty());
    EXPECT_TRUE(meta.checkRange(1));
    EXPECT_FALSE(meta.checkRange(2));
    EXPECT_TRUE(meta.checkRange(5));
    EXPECT_FALSE(meta.checkRange(6));
    EXPECT_EQ(printed(meta.range()), "{ 1:1 3:5 }");
}

TEST(TavCodecMeta, RangeIsSetUpWhenFirstAsked) {
    tav_test::LogCapture log;
    tavCodecMeta const meta(13, true, "...***...", false);
    tavCodecMeta const bad(3, false, "1.3", false);
    EXPECT_EQ(log.count("invalid pattern"), 0u);
    EXPECT_TRUE(bad.checkRange(77));
    EXPECT_EQ(log.count("invalid pattern: 1.3"), 1u);
    EXPECT_TRUE(bad.rangeIsEmpty());
    EXPECT_EQ(log.count("invalid pattern"), 1u);
}

TEST(TavCodecMeta, ProtectedFieldHasNoRangeWhateverItsMask) {
    tav_test::LogCapture log;
    for (char const * const mask : {"***", "...***...", "5", "1..9", "1.3", ""}) {
        tavCodecMeta const meta(3, true, mask);
        EXPECT_TRUE(meta.checkRange(1234)) << mask;
        EXPECT_TRUE(meta.rangeIsEmpty()) << mask;
        EXPECT_TRUE(meta.range().empty()) << mask;
    }
    EXPECT_TRUE(log.records().empty());
}

TEST(TavCodecMeta, MakingAndCopyingOneAllocatesNothing) {
    unsigned long const before = allocations;
    for (int i = 0; i < 10; ++i) {
        tavCodecMeta const meta(i, true, "...***...", true);
        tavCodecMeta const copy(meta);
        EXPECT_EQ(copy.type, i);
    }
    EXPECT_EQ(allocations - before, 0u);
}

TEST(TavCodecMeta, CopiesHaveARangeOfTheirOwn) {
    tavCodecMeta copy;
    {
        tavCodecMeta const meta(3, false, "7", true);
        EXPECT_FALSE(meta.checkRange(8));
        copy = meta;
    }
    EXPECT_EQ(copy.type, 3);
    EXPECT_TRUE(copy.optional);
    EXPECT_EQ(copy.spec, "7");
    EXPECT_TRUE(copy.checkRange(7));
    EXPECT_FALSE(copy.checkRange(8));
}

TEST(TavCodecMeta, AssignmentReplacesARangeThatWasAskedFor) {
    tavCodecMeta meta(3, false, "7", false);
    EXPECT_FALSE(meta.checkRange(9));
    tavCodecMeta const other(3, false, "9", false);
    meta = other;
    EXPECT_TRUE(meta.checkRange(9));
    EXPECT_FALSE(meta.checkRange(7));
    tavCodecMeta const & same = meta;
    meta = same;
    EXPECT_FALSE(meta.checkRange(7));
}

TEST(TavCodecMeta, ThreadsMayAskASharedOneFirst) {
    for (int round = 0; round < 50; ++round) {
        tavCodecMeta const meta(3, false, "1..100", false);
        std::atomic<int> right{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&] {
                right += meta.checkRange(100) && !meta.checkRange(101) && !meta.range().empty() ? 1 : 0;
            });
        }
        for (std::thread & thread : threads) {
            thread.join();
        }
        EXPECT_EQ(right, 4);
    }
}

TEST(TavCodecMeta, PrintsItsFourParts) {
    EXPECT_EQ(printed(tavCodecMeta(3, true, "1..5", false)), "{3, true, 1..5, false}");
    EXPECT_EQ(printed(tavCodecMeta(13, false, "x", true)), "{13, false, x, true}");
    EXPECT_EQ(printed(tavCodecMeta()), "{-1, false, , false}");
}

TEST(TavCodecMeta, PrintsDecimalOnAHexadecimalStream) {
    std::ostringstream out;
    out << std::hex << std::boolalpha << tavCodecMeta(28, true, "m", true);
    EXPECT_EQ(out.str(), "{28, true, m, true}");
}

TEST(CodecMetaFieldMeta, DefaultHasNoId) {
    tavFieldMeta const field;
    EXPECT_EQ(field.id, -1);
    EXPECT_TRUE(field.name.empty());
    EXPECT_TRUE(field.values.empty());
    EXPECT_EQ(field.meta.type, -1);
}

TEST(CodecMetaFieldMeta, TakesCopiesOfItsParts) {
    std::set<int> values{1, 2};
    tavFieldMeta const field(9, "kind", values, tavCodecMeta(18, false, "1,2", true));
    values.clear();
    EXPECT_EQ(field.id, 9);
    EXPECT_EQ(field.name, "kind");
    EXPECT_EQ(field.values, (std::set<int>{1, 2}));
    EXPECT_EQ(field.meta.type, 18);
    EXPECT_TRUE(field.meta.isOptional());
    EXPECT_FALSE(field.meta.checkRange(3));
}

TEST(CodecMetaFieldMeta, MovesWithoutACopyOfItsValues) {
    EXPECT_TRUE(std::is_nothrow_move_constructible<tavFieldMeta>::value);
    std::set<int> const values{1, 2, 3};
    tavFieldMeta field(9, "kind", values, tavCodecMeta(18));
    unsigned long const before = allocations;
    tavFieldMeta const moved(std::move(field));
    EXPECT_EQ(allocations - before, 0u);
    EXPECT_EQ(moved.values, values);
    EXPECT_EQ(moved.meta.type, 18);
}

TEST(CodecMetaInterface, IsTheRootOfTheOthers) {
    EXPECT_TRUE((std::is_base_of<tavInterface, tavCodecInterface>::value));
    EXPECT_TRUE((std::is_base_of<tavInterface, tavMsgInterface>::value));
    EXPECT_TRUE(std::has_virtual_destructor<tavInterface>::value);
}

TEST(CodecMetaInterface, IsNotEmptyByItself) {
    struct Plain : tavCodecInterface {
        void io(tavCodecStream &) override {}
    } plain;
    EXPECT_FALSE(static_cast<tavCodecInterface const &>(plain).empty());
    EXPECT_TRUE((std::is_base_of<tavInterface, Plain>::value));
}

TEST(CodecMetaMsgInterface, AnswersAMessageCode) {
    struct Coded : tavMsgInterface {
        unsigned short msgcode() const override { return 0xFFFE; }
    } coded;
    EXPECT_EQ(static_cast<tavMsgInterface const &>(coded).msgcode(), 0xFFFE);
}

TEST(CodecMetaStream, DefaultsDoNothing) {
    tav_test::RecordingStream::Calls calls;
    tav_test::RecordingStream stream(calls, {});
    tavCodecStream & s = stream;
    EXPECT_FALSE(s.tavCodecStream::isNull());
    EXPECT_FALSE(s.tavCodecStream::hideEmpty());
    s.tavCodecStream::writeNull();
    s.tavCodecStream::makeArrayValue();
    s.tavCodecStream::makeObjectValue();
    s.tavCodecStream::on_each_field_meta(1, "a", {}, tavCodecMeta());
    EXPECT_TRUE(s.isEmpty());
    EXPECT_TRUE(calls.empty());
}

class CodecMetaStreamAdapters : public ::testing::Test {
protected:
    template <class T>
    std::vector<std::string> write(T v) {
        tav_test::RecordingStream::Calls calls;
        tav_test::RecordingStream s(calls, {});
        s.io(v, tavCodecMeta(13, true, "*", true));
        return calls;
    }
    template <class T>
    std::vector<std::string> read(T & v, std::string const & text) {
        tav_test::RecordingStream::Calls calls;
        tav_test::Node const node = tav_test::Node::of(text);
        tav_test::RecordingStream s(calls, {}, node);
        s.io(v, tavCodecMeta(13, true, "*", true));
        return calls;
    }
};

TEST_F(CodecMetaStreamAdapters, TextIsWrittenAsTavStringWithItsMeta) {
    EXPECT_EQ(write(std::string("abc")), std::vector<std::string>{"io tavString abc {13, true, *, true}"});
    EXPECT_EQ(write(std::string("a\0b", 3)),
              (std::vector<std::string>{"io tavString " + std::string("a\0b", 3) + " {13, true, *, true}"}));
}

TEST_F(CodecMetaStreamAdapters, TextIsReadIntoAFreshTavStringWithADefaultMeta) {
    std::string v = "old";
    EXPECT_EQ(read(v, "new"), std::vector<std::string>{"io tavString ? {-1, false, , false}"});
    EXPECT_EQ(v, "new");
    read(v, "");
    EXPECT_EQ(v, "");
}

TEST_F(CodecMetaStreamAdapters, WideTextGoesThroughUtf8) {
    EXPECT_EQ(write(tavWstring(L"a\u00e4\u20ac")),
              std::vector<std::string>{"io tavString a\xC3\xA4\xE2\x82\xAC {13, true, *, true}"});
    tavWstring v(L"old");
    EXPECT_EQ(read(v, "\xE2\x82\xACx"), std::vector<std::string>{"io tavString ? {-1, false, , false}"});
    EXPECT_TRUE(v == tavWstring(L"\u20acx"));
    read(v, "");
    EXPECT_TRUE(v.empty());
}

TEST_F(CodecMetaStreamAdapters, WideCharacterIsATextOfOne) {
    EXPECT_EQ(write(L'\u00e4'), std::vector<std::string>{"io tavString \xC3\xA4 {13, true, *, true}"});
    wchar_t v = L'x';
    EXPECT_EQ(read(v, "\xE2\x82\xACzz"), std::vector<std::string>{"io tavString ? {-1, false, , false}"});
    EXPECT_EQ(v, L'\u20ac');
}

TEST_F(CodecMetaStreamAdapters, NoWideCharacterLeavesTheTarget) {
    wchar_t v = L'x';
    read(v, "");
    EXPECT_EQ(v, L'x');
}

TEST_F(CodecMetaStreamAdapters, ZeroWideCharacterIsReadAsNone) {
    wchar_t v = L'x';
    read(v, std::string(1, '\0'));
    EXPECT_EQ(v, L'x');
}

TEST_F(CodecMetaStreamAdapters, ZeroWideCharacterGoesOutAsOneNul) {
    std::vector<std::string> const calls = write(L'\0');
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0], std::string("io tavString \0 {13, true, *, true}", 34));
}
