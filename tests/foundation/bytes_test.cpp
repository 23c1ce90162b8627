#include "tav/vinta/vinta_basetypes_bytes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iomanip>
#include <new>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

std::string contentOf(tavBytes const & b) {
    return static_cast<std::string>(tav_istr(b));
}

std::string bytes(std::initializer_list<int> values) {
    std::string text;
    for (int const v : values) {
        text += static_cast<char>(v);
    }
    return text;
}

/// A view that claims 4 GiB; only its size may be looked at.
tav_istr immense() {
    return tav_istr("x", 0xFFFFFFFFu);
}

template <class T>
std::string bigEndian(T v) {
    tavBytes b;
    b.writeBigEndian(v);
    return contentOf(b);
}

template <class T>
std::string machineOrder(T v) {
    tavBytes b;
    b << v;
    return contentOf(b);
}

std::string printed(tavBytes const & b) {
    std::ostringstream out;
    out << b;
    return out.str();
}

} // namespace

TEST(TavBytes, DefaultAllocatesNothing) {
    tavBytes const b;
    EXPECT_EQ(b.data(), nullptr);
    EXPECT_EQ(b.buffer(), nullptr);
    EXPECT_EQ(b.size(), 0u);
    EXPECT_EQ(b.maxSize(), 0u);
    EXPECT_TRUE(b.empty());
}

TEST(TavBytes, CapacityConstructorIsEmpty) {
    tavBytes const b(10u);
    EXPECT_NE(b.data(), nullptr);
    EXPECT_EQ(b.maxSize(), 10u);
    EXPECT_EQ(b.size(), 0u);
    EXPECT_TRUE(b.empty());
    tavBytes const none(0);
    EXPECT_EQ(none.maxSize(), 0u);
    EXPECT_EQ(none.size(), 0u);
}

TEST(TavBytes, ViewConstructorCopiesExactly) {
    std::string const text("a\0b", 3);
    tavBytes const b = tav_istr(text);
    EXPECT_EQ(contentOf(b), text);
    EXPECT_FALSE(b.empty());
    EXPECT_EQ(b.maxSize(), 3u);
    EXPECT_NE(static_cast<void const *>(b.data()), static_cast<void const *>(text.data()));
    tavBytes const hollow(tav_istr(static_cast<char const *>(nullptr), 5u));
    EXPECT_EQ(hollow.size(), 0u);
    EXPECT_EQ(hollow.maxSize(), 0u);
}

TEST(TavBytes, Base64ConstructorDecodes) {
    EXPECT_EQ(contentOf(tavBytes(tav_base64("YWJj"))), "abc");
    EXPECT_EQ(contentOf(tavBytes(tav_istr("YWJj"))), "YWJj");
    tav_base64 const text(tav_istr("YWJj"));
    EXPECT_EQ(text.size(), 4u);
    EXPECT_EQ(std::string(text.data(), text.size()), "YWJj");
}

TEST(TavBytes, CopyTakesTheWholeCapacity) {
    tavBytes source(100u);
    source.size(100);
    for (unsigned i = 0; i < 100; ++i) {
        source[i] = static_cast<unsigned char>(i);
    }
    source.size(3);
    tavBytes const copy(source);
    EXPECT_EQ(copy.maxSize(), 100u);
    EXPECT_EQ(copy.size(), 3u);
    EXPECT_NE(copy.data(), source.data());
    EXPECT_EQ(std::memcmp(copy.data(), source.data(), 100), 0);
    EXPECT_EQ(contentOf(tavBytes(static_cast<tavBytes const &>(tavBytes(tav_istr("x"))))), "x");
    tavBytes const empty;
    tavBytes const emptyCopy(empty);
    EXPECT_EQ(emptyCopy.data(), nullptr);
}

TEST(TavBytes, MoveConstructorTakesTheBuffer) {
    tavBytes source(tav_istr("abc"));
    unsigned char const * const data = source.data();
    tavBytes const moved(std::move(source));
    EXPECT_EQ(moved.data(), data);
    EXPECT_EQ(moved.size(), 3u);
    EXPECT_EQ(moved.maxSize(), 3u);
    EXPECT_EQ(source.data(), nullptr);
    EXPECT_EQ(source.size(), 0u);
    EXPECT_EQ(source.maxSize(), 0u);
}

TEST(TavBytes, CopyAssignmentIsLikeTheConstructor) {
    tavBytes source(50u);
    source.size(50);
    std::fill(source.data(), source.data() + 50, static_cast<unsigned char>('x'));
    source.size(3);
    tavBytes target(tav_istr("old"));
    target = source;
    EXPECT_EQ(contentOf(target), "xxx");
    EXPECT_EQ(target.maxSize(), 50u);
    EXPECT_NE(target.data(), source.data());
    EXPECT_EQ(std::memcmp(target.data(), source.data(), 50), 0);
}

TEST(TavBytes, SelfAssignmentDoesNothing) {
    tavBytes b(tav_istr("abc"));
    unsigned char const * const data = b.data();
    tavBytes & same = b;
    b = same;
    EXPECT_EQ(b.data(), data);
    b = std::move(same);
    EXPECT_EQ(b.data(), data);
    EXPECT_EQ(contentOf(b), "abc");
}

TEST(TavBytes, MoveAssignmentCopies) {
    tavBytes source(tav_istr("abc"));
    unsigned char const * const data = source.data();
    tavBytes target(tav_istr("old"));
    target = std::move(source);
    EXPECT_EQ(contentOf(target), "abc");
    EXPECT_NE(target.data(), data);
    EXPECT_EQ(source.data(), data);
    EXPECT_EQ(contentOf(source), "abc");
}

TEST(TavBytes, AssignmentOfAViewOfItselfIsSafe) {
    tavBytes b(tav_istr("abcdef"));
    b = tav_istr(b).substr(2, 3);
    EXPECT_EQ(contentOf(b), "cde");
    EXPECT_EQ(b.maxSize(), 3u);
    b = "literal";
    EXPECT_EQ(contentOf(b), "literal");
    EXPECT_EQ(b.maxSize(), 7u);
    b = tav_istr();
    EXPECT_EQ(b.size(), 0u);
    EXPECT_EQ(b.maxSize(), 0u);
}

TEST(TavBytes, GivesReferencesToItsBytes) {
    tavBytes b(tav_istr("abc"));
    *b = 'x';
    b[1] = 'y';
    b.data()[2] = 'z';
    EXPECT_EQ(contentOf(b), "xyz");
    EXPECT_EQ(b.buffer(), b.data());
    tavBytes const & constant = b;
    EXPECT_EQ(*constant, 'x');
    EXPECT_EQ(constant[2], 'z');
    EXPECT_EQ(constant.buffer(), constant.data());
}

TEST(TavBytes, SizeGrowsAndShrinks) {
    tavBytes b(tav_istr("abc"));
    b.size(5);
    EXPECT_EQ(b.size(), 5u);
    EXPECT_EQ(b.maxSize(), 7u);
    EXPECT_EQ(std::memcmp(b.data(), "abc", 3), 0);
    b.size(2);
    EXPECT_EQ(contentOf(b), "ab");
    EXPECT_EQ(b.maxSize(), 7u);
    b.size(100);
    EXPECT_EQ(b.maxSize(), 100u);
}

TEST(TavBytes, SizeZeroKeepsTheCapacityAndClearFreesIt) {
    tavBytes b(10u);
    b.size(10);
    b.size(0);
    EXPECT_EQ(b.maxSize(), 10u);
    EXPECT_NE(b.data(), nullptr);
    EXPECT_TRUE(b.empty());
    b.clear();
    EXPECT_EQ(b.data(), nullptr);
    EXPECT_EQ(b.maxSize(), 0u);
    EXPECT_EQ(b.size(), 0u);
}

TEST(TavBytes, ResizeIsAReserve) {
    tavBytes b(tav_istr("abc"));
    b.resize(100);
    EXPECT_EQ(b.maxSize(), 100u);
    EXPECT_EQ(contentOf(b), "abc");
    b.resize(10);
    EXPECT_EQ(b.maxSize(), 100u);
    EXPECT_EQ(b.size(), 3u);
    tavBytes c(tav_istr("abcd"));
    c.resize(5);
    EXPECT_EQ(c.maxSize(), 9u);
}

TEST(TavBytes, CapacityGrowsToTwicePlusOneOrTheNeed) {
    tavBytes b;
    b.writeByte(1);
    EXPECT_EQ(b.maxSize(), 1u);
    b.writeByte(2);
    EXPECT_EQ(b.maxSize(), 3u);
    b.writeByte(3);
    EXPECT_EQ(b.maxSize(), 3u);
    b.writeByte(4);
    EXPECT_EQ(b.maxSize(), 7u);
    b.writeBytes(tav_istr("0123456789"));
    EXPECT_EQ(b.maxSize(), 15u);
    b << 1ll;
    EXPECT_EQ(b.maxSize(), 31u);
    tavBytes c;
    c << 1ll;
    EXPECT_EQ(c.maxSize(), 8u);
    c.writeBytes(std::string(100, 'x'));
    EXPECT_EQ(c.maxSize(), 108u);
}

TEST(TavBytes, NeedAbove4GiBIsBadAlloc) {
    tavBytes b(tav_istr("ab"));
    EXPECT_THROW(b.writeBytes(immense()), std::bad_alloc);
    EXPECT_THROW(b += immense(), std::bad_alloc);
    EXPECT_THROW(b << immense(), std::bad_alloc);
    EXPECT_EQ(contentOf(b), "ab");
    EXPECT_EQ(b.maxSize(), 2u);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST(TavBytes, DoubledCapacityIsCutTo4GiB) {
    try {
        tavBytes b(0x80000001u); // none of it is touched
        b.resize(0x80000002u);
        EXPECT_EQ(b.maxSize(), 0xFFFFFFFFu);
    } catch (std::bad_alloc const &) {
        GTEST_SKIP() << "no room for 6 GiB here";
    }
}
#endif

TEST(TavBytes, AppendsViews) {
    tavBytes b;
    b.writeByte('a').writeBytes("bc") += "de";
    b << tav_istr("fgh", 2u) << std::string("h");
    b << tav_istr() << tav_istr(static_cast<char const *>(nullptr), 5u);
    b.writeBytes(tavBytes(tav_istr("i")));
    EXPECT_EQ(contentOf(b), "abcdefghi");
}

TEST(TavBytes, AppendingAViewOfItselfIsSafe) {
    tavBytes b(tav_istr("0123456789"));
    std::string expected = "0123456789";
    for (int i = 0; i < 6; ++i) {
        b.writeBytes(b);
        expected += expected;
        ASSERT_EQ(contentOf(b), expected);
    }
    tavBytes roomy(100u);
    roomy << "abc";
    roomy += tav_istr(roomy).removeLeft(1);
    EXPECT_EQ(contentOf(roomy), "abcbc");
}

TEST(TavBytes, BigEndianPutsTheMostSignificantByteFirst) {
    EXPECT_EQ(bigEndian(static_cast<unsigned short>(0x1234)), bytes({0x12, 0x34}));
    EXPECT_EQ(bigEndian(static_cast<short>(-2)), bytes({0xFF, 0xFE}));
    EXPECT_EQ(bigEndian(0x12345678), bytes({0x12, 0x34, 0x56, 0x78}));
    EXPECT_EQ(bigEndian(0x87654321u), bytes({0x87, 0x65, 0x43, 0x21}));
    EXPECT_EQ(bigEndian(-2), bytes({0xFF, 0xFF, 0xFF, 0xFE}));
    EXPECT_EQ(bigEndian(0), bytes({0, 0, 0, 0}));
    std::string const eight = bytes({1, 2, 3, 4, 5, 6, 7, 8});
    EXPECT_EQ(bigEndian(0x0102030405060708l), eight);
    EXPECT_EQ(bigEndian(0x0102030405060708ul), eight);
    EXPECT_EQ(bigEndian(0x0102030405060708ll), eight);
    EXPECT_EQ(bigEndian(0x0102030405060708ull), eight);
    EXPECT_EQ(bigEndian(std::size_t{1}).size(), 8u);
    EXPECT_EQ(bigEndian(-1l), std::string(8, '\xFF'));
    EXPECT_EQ(bigEndian(1.0f), bytes({0x3F, 0x80, 0, 0}));
    EXPECT_EQ(bigEndian(1.0), bytes({0x3F, 0xF0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(bigEndian('a').size(), 4u);
}

TEST(TavBytes, StreamOperatorWritesMachineOrder) {
    EXPECT_EQ(machineOrder('a'), "a");
    EXPECT_EQ(machineOrder(static_cast<unsigned char>(0xFE)), "\xFE");
    EXPECT_EQ(machineOrder(static_cast<unsigned short>(0x1234)), bytes({0x34, 0x12}));
    EXPECT_EQ(machineOrder(static_cast<short>(-2)), bytes({0xFE, 0xFF}));
    EXPECT_EQ(machineOrder(0x12345678), bytes({0x78, 0x56, 0x34, 0x12}));
    EXPECT_EQ(machineOrder(0x87654321u), bytes({0x21, 0x43, 0x65, 0x87}));
    EXPECT_EQ(machineOrder(0), bytes({0, 0, 0, 0}));
    std::string const eight = bytes({8, 7, 6, 5, 4, 3, 2, 1});
    EXPECT_EQ(machineOrder(0x0102030405060708l), eight);
    EXPECT_EQ(machineOrder(0x0102030405060708ul), eight);
    EXPECT_EQ(machineOrder(0x0102030405060708ll), eight);
    EXPECT_EQ(machineOrder(0x0102030405060708ull), eight);
    EXPECT_EQ(machineOrder(std::size_t{1}).size(), 8u);
    EXPECT_EQ(machineOrder(1.0f), bytes({0, 0, 0x80, 0x3F}));
    EXPECT_EQ(machineOrder(1.0), bytes({0, 0, 0, 0, 0, 0, 0xF0, 0x3F}));
}

TEST(TavBytes, WritesReturnTheBuffer) {
    tavBytes b;
    EXPECT_EQ(&b.writeByte(1), &b);
    EXPECT_EQ(&b.writeBytes("x"), &b);
    EXPECT_EQ(&b.writeBigEndian(1u), &b);
    EXPECT_EQ(&(b << 1), &b);
    EXPECT_EQ(&(b += "x"), &b);
}

TEST(TavBytes, WhatIsWrittenBigEndianIsReadByTheView) {
    tavBytes b;
    b.writeByte(7)
        .writeBigEndian(static_cast<unsigned short>(0xABCD))
        .writeBigEndian(-5)
        .writeBigEndian(1ull);
    tav_istr v = b;
    EXPECT_EQ(v.readByte(), 7);
    EXPECT_EQ(v.readBigEndianUint16(), 0xABCD);
    EXPECT_EQ(v.readBigEndianInt32(), -5);
    EXPECT_EQ(v.readBigEndianUint64(), 1u);
    EXPECT_TRUE(v.eof());
}

TEST(TavBytes, RemoveMovesTheRestToTheFront) {
    tavBytes b(tav_istr("abcde"));
    b.remove(0);
    EXPECT_EQ(contentOf(b), "abcde");
    b.remove(3);
    EXPECT_EQ(contentOf(b), "de");
    EXPECT_EQ(b.maxSize(), 5u);
}

TEST(TavBytes, RemoveOfAllLeavesTheBytesUntouched) {
    for (unsigned const n : {5u, 6u, 0xFFFFFFFFu}) {
        tavBytes b(tav_istr("abcde"));
        b.remove(n);
        EXPECT_EQ(b.size(), 0u);
        EXPECT_EQ(b.maxSize(), 5u);
        EXPECT_EQ(std::memcmp(b.data(), "abcde", 5), 0);
    }
    tavBytes none;
    none.remove(3);
    EXPECT_EQ(none.size(), 0u);
}

TEST(TavBytes, ResetForgetsWithoutFreeing) {
    tavBytes b(tav_istr("abc"));
    unsigned char * const data = b.data();
    b.reset();
    EXPECT_EQ(b.data(), nullptr);
    EXPECT_EQ(b.size(), 0u);
    EXPECT_EQ(b.maxSize(), 0u);
    EXPECT_EQ(std::memcmp(data, "abc", 3), 0); // still there
    delete[] data;
}

TEST(TavBytes, ReleaseHandsTheBufferOver) {
    tavBytes b(100u);
    b << "abc";
    unsigned char * const data = b.data();
    tav_ostr out = b.release();
    EXPECT_EQ(b.data(), nullptr);
    EXPECT_EQ(b.size(), 0u);
    EXPECT_EQ(b.maxSize(), 0u);
    EXPECT_EQ(out.data(), reinterpret_cast<char *>(data));
    EXPECT_EQ(out.size(), 3u);
    out.free();
    EXPECT_EQ(out.data(), nullptr);
    out.free(); // the function takes null
    EXPECT_EQ(out.size(), 3u);
}

TEST(TavBytes, ReleaseOfNothingCanBeFreed) {
    tavBytes b;
    tav_ostr out = b.release();
    EXPECT_EQ(out.data(), nullptr);
    EXPECT_EQ(out.size(), 0u);
    out.free();
    EXPECT_EQ(out.data(), nullptr);
}

TEST(TavBytes, SwapExchangesAllThree) {
    tavBytes a(tav_istr("abc"));
    tavBytes b(10u);
    unsigned char const * const dataOfA = a.data();
    a.swap(b);
    EXPECT_EQ(b.data(), dataOfA);
    EXPECT_EQ(b.size(), 3u);
    EXPECT_EQ(b.maxSize(), 3u);
    EXPECT_EQ(a.size(), 0u);
    EXPECT_EQ(a.maxSize(), 10u);
}

TEST(TavBytes, ComparesAsItsView) {
    tavBytes const a(tav_istr("ab"));
    tavBytes const b(tav_istr("abc"));
    tavBytes const high(tav_istr("\x80"));
    tavBytes roomy(100u);
    roomy << "ab";
    EXPECT_TRUE(a == roomy);
    EXPECT_TRUE(a != b);
    EXPECT_TRUE(a < b);
    EXPECT_TRUE(a < high);
    EXPECT_TRUE(a <= b);
    EXPECT_TRUE(a <= roomy);
    EXPECT_TRUE(b > a);
    EXPECT_TRUE(b >= a);
    EXPECT_TRUE(tavBytes() == tavBytes(5u));
    EXPECT_FALSE(a == b);
    EXPECT_FALSE(a != roomy);
    EXPECT_FALSE(a < roomy);
    EXPECT_FALSE(high < a);
    EXPECT_FALSE(b <= a);
    EXPECT_FALSE(a > roomy);
    EXPECT_FALSE(a > b);
    EXPECT_FALSE(a >= b);
    EXPECT_TRUE(a >= roomy);
}

TEST(TavBytes, EqualsWhateverConvertsToAView) {
    tavBytes const b(tav_istr("ab"));
    tav_istr const view("ab");
    std::string const text("ab");
    tavString const owned("ab");
    char const * const pointer = text.c_str();
    EXPECT_TRUE(b == view);
    EXPECT_TRUE(view == b);
    EXPECT_FALSE(b != view);
    EXPECT_FALSE(view != b);
    EXPECT_TRUE(b == "ab");
    EXPECT_TRUE("ab" == b);
    EXPECT_TRUE(b != "b");
    EXPECT_TRUE("b" != b);
    EXPECT_FALSE(b == "b");
    EXPECT_FALSE("b" == b);
    EXPECT_TRUE(b == text);
    EXPECT_TRUE(text == b);
    EXPECT_TRUE(b == owned);
    EXPECT_TRUE(owned == b);
    EXPECT_TRUE(b == pointer);
    EXPECT_TRUE(pointer == b);
    EXPECT_TRUE(tavBytes() == nullptr);
    EXPECT_TRUE(nullptr != b);
}

TEST(TavBytes, StreamsAllOfAShortBuffer) {
    EXPECT_EQ(printed(tavBytes()), "[0][]");
    EXPECT_EQ(printed(tav_istr("\x01\x02\x03\x04\xFF")), "[5][01020304 FF]");
    std::string const eighty = printed(tavBytes(std::string(80, '\x5A')));
    EXPECT_EQ(eighty.find("***"), std::string::npos);
    EXPECT_EQ(eighty.substr(0, 14), "[80][5A5A5A5A ");
    EXPECT_EQ(std::count(eighty.begin(), eighty.end(), 'A'), 80);
}

TEST(TavBytes, StreamsHeadAndTailOfALongBuffer) {
    std::string content;
    for (int i = 0; i < 100; ++i) {
        content += static_cast<char>(i);
    }
    std::ostringstream expected;
    expected << "[100]" << std::hex << std::uppercase << std::setfill('0');
    for (int part = 0; part < 2; ++part) {
        expected << '[';
        for (int i = 0; i < (part == 0 ? 64 : 16); ++i) {
            expected << (i % 4 == 0 && i != 0 ? " " : "") << std::setw(2) << (part == 0 ? i : 84 + i);
        }
        expected << ']' << (part == 0 ? "***" : "");
    }
    EXPECT_EQ(printed(tavBytes(content)), expected.str());
    EXPECT_NE(printed(tavBytes(std::string(81, 'x'))).find("***"), std::string::npos);
}

TEST(TavBytes, SizeIsPrintedInDecimalWhateverTheStreamsFlags) {
    std::ostringstream out;
    out << std::hex << std::setw(20) << tavBytes(tav_istr("0123456789abcdef"));
    EXPECT_EQ(out.str().substr(0, 5), "[16][");
}

TEST(BytesHash16, KeepsShortNumbers) {
    EXPECT_EQ(tavHash16().value(), 0);
    EXPECT_EQ(tavHash16(true).value(), 1);
    EXPECT_EQ(tavHash16(false).value(), 0);
    EXPECT_EQ(tavHash16('a').value(), 'a');
    EXPECT_EQ(tavHash16('\xFF').value(), 0xFFFF);
    EXPECT_EQ(tavHash16(static_cast<unsigned char>(0xFF)).value(), 0x00FF);
    EXPECT_EQ(tavHash16(static_cast<short>(-2)).value(), 0xFFFE);
    EXPECT_EQ(tavHash16(static_cast<unsigned short>(0x8001)).value(), 0x8001);
}

TEST(BytesHash16, FoldsHalvesAndQuarters) {
    EXPECT_EQ(tavHash16(0x12345678).value(), 0x444C);
    EXPECT_EQ(tavHash16(0x12345678u).value(), 0x444C);
    EXPECT_EQ(tavHash16(-1).value(), 0);
    EXPECT_EQ(tavHash16(0).value(), 0);
    unsigned short const folded = 0x0123 ^ 0x4567 ^ 0x89AB ^ 0xCDEE;
    EXPECT_EQ(tavHash16(0x0123456789ABCDEEll).value(), folded);
    EXPECT_EQ(tavHash16(0x0123456789ABCDEEull).value(), folded);
    EXPECT_EQ(tavHash16(0x0123456789ABCDEEl).value(), folded);
    EXPECT_EQ(tavHash16(0x0123456789ABCDEEul).value(), folded);
    EXPECT_EQ(tavHash16(reinterpret_cast<void const *>(std::uintptr_t{0x0123456789ABCDEE})).value(), folded);
    EXPECT_EQ(tavHash16(nullptr).value(), 0);
    int number = 0;
    std::uintptr_t const address = reinterpret_cast<std::uintptr_t>(&number);
    EXPECT_EQ(tavHash16(&number).value(), tavHash16(static_cast<unsigned long long>(address)).value());
}
