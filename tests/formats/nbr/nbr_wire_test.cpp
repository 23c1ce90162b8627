#include "tav/vinta/vinta_nbr_unit.h"

#include "support/nbr_bytes.h"
#include "tav/vinta/vinta_object.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <vector>

using tav::nbr::NbrInputStream;
using tav::nbr::NbrOutputStream;
using tav_test::bytes;
using tav_test::hex;

namespace {

template <class T>
std::string written(T const & v) {
    NbrOutputStream s;
    EXPECT_EQ(&s, &(s << v));
    return hex(s.str());
}

template <class T>
T reread(T v, T other) {
    NbrOutputStream s;
    s << v;
    EXPECT_TRUE(NbrInputStream(s.str()) >> other);
    return other;
}

template <class T>
T readAs(char const * document, T before) {
    NbrInputStream(bytes(document)) >> before;
    return before;
}

class Sample : public tavObject {
public:
    int number = 0;
    tavString text;
    std::vector<unsigned short> list;
    bool withList = true;

    tav_istr className() const override { return "Sample"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Sample; }
    void assignFrom(tavObject const &) override {}

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "number", number);
        ioField(s, 2, "text", text);
        ioField(s, 3, "list", list);
    }
};

class Mapped : public tavObject {
public:
    std::map<tavString, int> entries;

    tav_istr className() const override { return "Mapped"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Mapped; }
    void assignFrom(tavObject const &) override {}

protected:
    void traverse(tavCodecStream & s) override { ioField(s, 4, "entries", entries); }
};

class Outer : public tavObject {
public:
    Sample inner;
    int after = 0;

    tav_istr className() const override { return "Outer"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Outer; }
    void assignFrom(tavObject const &) override {}

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "inner", inner);
        ioField(s, 9, "after", after);
    }
};

class NoFields : public tavObject {
public:
    tav_istr className() const override { return "NoFields"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new NoFields; }
    void assignFrom(tavObject const &) override {}
};

} // namespace

TEST(NbrWire, Int) {
    EXPECT_EQ("01 01 00", written(0));
    EXPECT_EQ("01 01 7F", written(127));
    EXPECT_EQ("01 02 80 00", written(128));
    EXPECT_EQ("01 02 FF 00", written(255));
    EXPECT_EQ("01 02 2C 01", written(300));
    EXPECT_EQ("01 03 00 80 00", written(32768));
    EXPECT_EQ("01 04 00 00 80 00", written(8388608));
    EXPECT_EQ("01 04 FF FF FF FF", written(-1));
    EXPECT_EQ("01 04 FE FF FF FF", written(-2));
    EXPECT_EQ("01 04 FF FF FF 7F", written(std::numeric_limits<int>::max()));
    EXPECT_EQ("01 04 00 00 00 80", written(std::numeric_limits<int>::min()));
}

TEST(NbrWire, UnsignedInt) {
    EXPECT_EQ("01 04 FF FF FF FF", written(4294967295u));
    EXPECT_EQ("01 04 00 00 00 80", written(2147483648u));
}

TEST(NbrWire, Short) {
    EXPECT_EQ("01 02 80 00", written(static_cast<short>(128)));
    EXPECT_EQ("01 02 FF FF", written(static_cast<short>(-1)));
    EXPECT_EQ("01 02 00 80", written(static_cast<unsigned short>(32768)));
}

TEST(NbrWire, CharTakesUpToTwoBytes) {
    EXPECT_EQ("01 01 05", written(static_cast<char>(5)));
    EXPECT_EQ("01 02 FF FF", written(static_cast<char>(-1)));
    EXPECT_EQ("01 02 80 FF", written(static_cast<char>(-128)));
}

TEST(NbrWire, UnsignedCharAndBoolAreTheByteItself) {
    EXPECT_EQ("01 01 C8", written(static_cast<unsigned char>(200)));
    EXPECT_EQ("01 01 01", written(true));
    EXPECT_EQ("01 01 00", written(false));
}

TEST(NbrWire, LongLong) {
    EXPECT_EQ("01 08 FF FF FF FF FF FF FF FF", written(-1LL));
    EXPECT_EQ("01 05 00 00 00 00 01", written(4294967296LL));
    EXPECT_EQ("01 08 FF FF FF FF FF FF FF FF", written(std::numeric_limits<unsigned long long>::max()));
}

TEST(NbrWire, LongGoesAs64Bits) {
    EXPECT_EQ("01 08 FE FF FF FF FF FF FF FF", written(-2L));
    EXPECT_EQ("01 05 00 00 00 00 01", written(4294967296ul));
    EXPECT_EQ("01 01 07", written(static_cast<std::int64_t>(7)));
    EXPECT_EQ("01 02 80 00", written(static_cast<std::uint64_t>(128)));
    EXPECT_EQ("01 01 07", written(std::size_t{7}));
}

TEST(NbrWire, Floats) {
    EXPECT_EQ("01 04 00 00 80 3F", written(1.0f));
    EXPECT_EQ("01 04 00 00 00 80", written(-0.0f));
    EXPECT_EQ("01 01 00", written(0.0f));
    EXPECT_EQ("01 08 00 00 00 00 00 00 F8 3F", written(1.5));
    EXPECT_EQ("01 01 00", written(0.0));
    EXPECT_EQ("01 04 00 00 80 BF", written(-1.0f));
    EXPECT_EQ("01 08 00 00 00 00 00 00 00 80", written(-0.0));
}

TEST(NbrWire, Time) {
    EXPECT_EQ("01 01 00", written(tavTime()));
    EXPECT_EQ("01 06 15 CD 5B 07 80 01", written(tavTime::milliseconds(0x0180075BCD15LL)));
    EXPECT_EQ("01 08 FF FF FF FF FF FF FF FF", written(tavTime::milliseconds(-1)));
}

TEST(NbrWire, Text) {
    EXPECT_EQ("F1 02 68 69", written("hi"));
    EXPECT_EQ("F1 02 68 69", written(std::string("hi")));
    EXPECT_EQ("F1 02 68 69", written(tavString("hi")));
    EXPECT_EQ("F1 02 68 69", written(tav_istr("hi")));
    EXPECT_EQ("F1 00", written(""));
    EXPECT_EQ("F1 00", written(static_cast<char const *>(nullptr)));
    EXPECT_EQ("F1 00", written(tav_istr()));
    EXPECT_EQ("F1 00", written(tav_istr(static_cast<char const *>(nullptr), 7u)));
    EXPECT_EQ("F1 00", written(tavString()));
    EXPECT_EQ("F1 03 61 00 62", written(std::string("a\0b", 3)));
}

TEST(NbrWire, SizesFrom128To255TakeTwoSizeBytes) {
    EXPECT_EQ("F1 7F", written(std::string(127, 'x')).substr(0, 5));
    EXPECT_EQ("F2 80 00 78", written(std::string(128, 'x')).substr(0, 11));
    EXPECT_EQ("F2 C8 00 78", written(std::string(200, 'x')).substr(0, 11));
    EXPECT_EQ("F2 FF 00 78", written(std::string(255, 'x')).substr(0, 11));
    EXPECT_EQ("F2 00 01 78", written(std::string(256, 'x')).substr(0, 11));
    NbrOutputStream s;
    s << std::string(200, 'x');
    EXPECT_EQ(203u, s.size());
    EXPECT_EQ(std::string(200, 'x'), std::string(s.str().removeLeft(3)));
}

TEST(NbrWire, Binary) {
    EXPECT_EQ("01 03 AA BB CC", written(tavBytes(tav_istr(bytes("AA BB CC")))));
    EXPECT_EQ("01 00", written(tavBytes()));
    EXPECT_EQ("03 70 11 01", written(tavBytes(tav_istr(std::string(70000, '\0')))).substr(0, 11));
    EXPECT_EQ("03 FF FF 00", written(tavBytes(tav_istr(std::string(65535, '\0')))).substr(0, 11));
    EXPECT_EQ("04 00 00 80 00", written(tavBytes(tav_istr(std::string(0x800000, '\0')))).substr(0, 14));
    NbrOutputStream s;
    s << tavBytes(tav_istr(std::string(70000, '\x07')));
    EXPECT_EQ(70004u, s.size());
    EXPECT_EQ(std::string(70000, '\x07'), std::string(s.str().removeLeft(4)));
}

TEST(NbrWire, NullAndEmpty) {
    NbrOutputStream s;
    s.writeNull();
    EXPECT_EQ("00", hex(s.str()));
    s.writeEmpty();
    EXPECT_EQ("00 01 00", hex(s.str()));
}

TEST(NbrWire, WholeObject) {
    Sample v;
    v.number = 5;
    v.text = "ab";
    v.list = {7, 300};
    EXPECT_EQ("FF 01 28 01 01 01 05 02 F1 02 61 62 03 FF 01 28 00 01 01 07 00 01 02 2C 01 FF 01 29 FF 01 29",
              hex(v.encode(false)));
    v.list.clear();
    EXPECT_EQ("FF 01 28 01 01 01 05 02 F1 02 61 62 03 FF 01 28 FF 01 29 FF 01 29", hex(v.encode(false)));
}

TEST(NbrWire, Map) {
    Mapped v;
    v.entries["k"] = 9;
    EXPECT_EQ("FF 01 28 04 FF 01 28 00 FF 01 28 01 F1 01 6B 02 01 01 09 FF 01 29 FF 01 29 FF 01 29",
              hex(v.encode(false)));
}

TEST(NbrWire, EmptyMapIsTheTwoMarkers) {
    EXPECT_EQ("FF 01 28 04 FF 01 28 FF 01 29 FF 01 29", hex(Mapped().encode(false)));
}

TEST(NbrWire, NestedObject) {
    Outer v;
    v.inner.number = 1;
    v.after = 2;
    EXPECT_EQ("FF 01 28 01 FF 01 28 01 01 01 01 02 F1 00 03 FF 01 28 FF 01 29 FF 01 29 09 01 01 02 FF 01 29",
              hex(v.encode(false)));
}

TEST(NbrWire, NoFieldsAreTheTwoMarkers) {
    EXPECT_EQ("FF 01 28 FF 01 29", hex(NoFields().encode(false)));
}

TEST(NbrWire, EncodeTwiceGivesTheSameAndLeavesTheFirstResult) {
    Sample v;
    v.number = 5;
    tavBytes const first = v.encode(false);
    std::string const before = hex(first);
    v.number = 6;
    v.text = std::string(100000, 'x');
    tavBytes const second = v.encode(false);
    EXPECT_EQ(before, hex(first));
    EXPECT_NE(before, hex(second));
    v.number = 5;
    v.text = "";
    EXPECT_EQ(before, hex(v.encode(false)));
}

TEST(NbrWire, ValuesComeBack) {
    EXPECT_EQ(-1, reread<char>(-1, 0));
    EXPECT_EQ(200, reread<unsigned char>(200, 0));
    EXPECT_TRUE(reread<bool>(true, false));
    EXPECT_FALSE(reread<bool>(false, true));
    EXPECT_EQ(-300, reread<short>(-300, 0));
    EXPECT_EQ(65535, reread<unsigned short>(65535, 0));
    EXPECT_EQ(std::numeric_limits<int>::min(), reread(std::numeric_limits<int>::min(), 0));
    EXPECT_EQ(4294967295u, reread(4294967295u, 0u));
    EXPECT_EQ(-5L, reread(-5L, 0L));
    EXPECT_EQ(~0ul, reread(~0ul, 0ul));
    EXPECT_EQ(std::numeric_limits<long long>::min(), reread(std::numeric_limits<long long>::min(), 0LL));
    EXPECT_EQ(~0ull, reread(~0ull, 0ull));
    EXPECT_EQ(-1.25f, reread(-1.25f, 0.0f));
    EXPECT_EQ(1e300, reread(1e300, 0.0));
    EXPECT_EQ(tavTime::milliseconds(-7), reread(tavTime::milliseconds(-7), tavTime()));
    EXPECT_EQ("text", reread(tavString("text"), tavString()));
    EXPECT_EQ(tavBytes(tav_istr("raw")), reread(tavBytes(tav_istr("raw")), tavBytes()));
}

TEST(NbrWire, NoSignIsExtendedInAWiderType) {
    EXPECT_EQ(-1, readAs<char>("01 02 FF FF", 0));
    EXPECT_EQ(-1, readAs<short>("01 02 FF FF", 0));
    EXPECT_EQ(65535, readAs<int>("01 02 FF FF", 0));
    EXPECT_EQ(255, readAs<short>("01 01 FF", 0));
    EXPECT_EQ(4294967295LL, readAs<long long>("01 04 FF FF FF FF", 0));
    EXPECT_EQ(-5, readAs<int>("01 08 FB FF FF FF FF FF FF FF", 0));
}

TEST(NbrWire, BoolTakesOneByte) {
    EXPECT_FALSE(readAs<bool>("01 02 00 01", true));
    EXPECT_TRUE(readAs<bool>("01 01 80", false));
}

TEST(NbrWire, TextReadAsNumberGivesItsFirstBytes) {
    EXPECT_EQ(0x64636261, readAs<int>("F1 05 61 62 63 64 65", 0));
    EXPECT_EQ(0x6261, readAs<short>("F1 05 61 62 63 64 65", 0));
    EXPECT_EQ("\x05", std::string(tav_istr(readAs<tavString>("01 01 05", tavString()))));
}

TEST(NbrWire, ValueWithoutDataChangesNothing) {
    for (char const * document : {"01 00", "F1 00"}) {
        EXPECT_EQ(7, readAs<int>(document, 7)) << document;
        EXPECT_EQ(7L, readAs<long>(document, 7)) << document;
        EXPECT_EQ("old", readAs<tavString>(document, "old")) << document;
        EXPECT_EQ(tavBytes(tav_istr("old")), readAs<tavBytes>(document, tav_istr("old"))) << document;
        EXPECT_TRUE(readAs<bool>(document, true)) << document;
        EXPECT_EQ(1.5, readAs<double>(document, 1.5)) << document;
        EXPECT_EQ(tavTime::milliseconds(3), readAs<tavTime>(document, tavTime::milliseconds(3))) << document;
    }
}
